#include "tests/engine/tracks/TrackRig.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <chrono>
#include <thread>
#include <vector>

using namespace tracktest;

namespace
{

/** A value for each frame that doesn't repeat within the take and is exact in 24 bits. */
float noise(uint64_t i)
{
    uint64_t x = i * 0x9E3779B97F4A7C15ull;
    x ^= x >> 29;
    x *= 0xBF58476D1CE4E5B9ull;
    x ^= x >> 32;
    return static_cast<float>(static_cast<int64_t>(x & 0xFFFF) - 32768) / 65536.0f;
}

} // namespace

TEST(LongTakeTest, TenMinutesLoseNoFrame)
{
    constexpr uint32_t kRate = 44100;
    constexpr uint32_t kBlock = 1024;
    // Ten minutes, in whole blocks.
    constexpr int64_t kFrames = (600 * static_cast<int64_t>(kRate) + kBlock - 1) / kBlock * kBlock;
    TempFolder folder;
    TrackRig rig(kRate, kBlock);
    rig.harness().recordOutput = false;
    rig.harness().recordBlocks = false;
    rig.harness().fillInput = [](AudioData& input, int64_t deviceFrame)
    {
        for (int64_t i = 0; i < input.frames; ++i)
        {
            const uint64_t frame = static_cast<uint64_t>(deviceFrame + i);
            input.channel[0][i] = noise(2 * frame);
            input.channel[1][i] = noise(2 * frame + 1);
        }
    };
    Track& track = rig.track();
    const std::string path = folder.file("long.aif");
    track.setArmed(true);
    ASSERT_TRUE(rig.manager().startTake(0, epiPath(path)));
    rig.manager().start();
    const int64_t first = rig.harness().deviceFrames();
    for (int64_t done = 0; done < kFrames; done += kBlock)
    {
        rig.harness().runBlock(kBlock);
        // Offline the engine outruns any disk; a device would give the disk about four seconds.
        while (track.recorder().pendingBuffers() > 1)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ASSERT_TRUE(rig.stopTake()) << track.takeErrorText();
    EXPECT_EQ(track.recorder().overruns(), 0u);
    EXPECT_EQ(track.recorder().writeFailures(), 0u);

    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(info.frames, kFrames);
    std::vector<float> chunk(65536 * 2);
    int64_t at = 0;
    while (at < kFrames)
    {
        const sf_count_t got = sf_readf_float(file, chunk.data(), 65536);
        ASSERT_GT(got, 0);
        for (sf_count_t i = 0; i < got; ++i)
        {
            const uint64_t frame = static_cast<uint64_t>(first + at + i);
            ASSERT_EQ(chunk[static_cast<size_t>(2 * i)], noise(2 * frame)) << "frame " << at + i;
            ASSERT_EQ(chunk[static_cast<size_t>(2 * i + 1)], noise(2 * frame + 1)) << "frame " << at + i;
        }
        at += got;
    }
    sf_close(file);
}
