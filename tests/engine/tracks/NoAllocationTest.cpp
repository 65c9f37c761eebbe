#include "tests/engine/tracks/TrackRig.h"
#include "tests/support/CountedAllocations.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <chrono>
#include <cmath>
#include <thread>

// No allocation on the audio thread while the engine runs a block, through the whole track chain.

using namespace tracktest;

namespace
{

float tone(int64_t i)
{
    return static_cast<float>(0.3 * std::sin(static_cast<double>(i) * 0.05));
}

struct QuietRig : TrackRig
{
    explicit QuietRig(uint32_t block) : TrackRig(48000, block), block_(block)
    {
        harness().recordOutput = false;
        harness().recordBlocks = false;
    }

    /**
     * Runs blocks, counting only the allocations inside them, with a locate to jumpTo ahead of block
     * jumpAt; paced so the disk threads keep up (the recorder never more than a buffer behind, the rings
     * full).
     */
    int64_t allocationsOver(int blocks, int jumpAt = -1, int64_t jumpTo = 0)
    {
        int64_t allocations = 0;
        for (int b = 0; b < blocks; ++b)
        {
            if (b == jumpAt)
            {
                manager().locate(jumpTo);
            }
            {
                const testsupport::CountedAllocations counting;
                harness().runBlock(block_);
                allocations += counting.count();
            }
            while (track().recorder().pendingBuffers() > 1)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            if (b % 16 == 0)
            {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        }
        return allocations;
    }

    bool load(int32_t track, const char* name, int32_t channels, int32_t rate)
    {
        const std::string path = folder.file(name);
        return writeFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, rate, rate * 30, tone, tone) &&
               manager().loadTrack(track, epiPath(path));
    }

    uint32_t block_;
    TempFolder folder;
};

class NoAllocationTest : public ::testing::TestWithParam<int32_t>
{
};

} // namespace

TEST_P(NoAllocationTest, StreamedPlaybackWithSpeedAndPitchAllocatesNothingPerBlock)
{
    QuietRig rig(128);
    ASSERT_TRUE(rig.load(0, "tone.wav", 2, GetParam()));
    rig.track().setSpeed(0.8f);
    rig.track().setPitch(2.0f);
    rig.manager().start();
    // Ten seconds of blocks, and a jump half way.
    EXPECT_EQ(rig.allocationsOver(3750, 1800, 300000), 0) << "allocations on the audio thread while playing";
}

INSTANTIATE_TEST_SUITE_P(FileRates, NoAllocationTest, ::testing::Values(48000, 44100, 96000));

TEST(NoAllocationTakeTest, RecordingATakeAllocatesNothingPerBlock)
{
    QuietRig rig(256);
    rig.track().setArmed(true);
    ASSERT_TRUE(rig.manager().startTake(0, epiPath(rig.folder.file("take.aif"))));
    rig.manager().start();
    // Past two buffer changes of the recorder, with the overview fed from every block.
    EXPECT_EQ(rig.allocationsOver(1000), 0) << "allocations on the audio thread while recording";
    EXPECT_GE(rig.track().recorder().buffersHandedOver(), 2);
    EXPECT_TRUE(rig.stopTake()) << rig.track().takeErrorText();
}

TEST(NoAllocationFormatTest, PlaybackAfterAFormatChangeAllocatesNothingPerBlock)
{
    // Before, the format change shrank the file's buffer that loading had grown: the first blocks allocated.
    QuietRig rig(128);
    ASSERT_TRUE(rig.load(0, "mono.wav", 1, 44100));
    ASSERT_TRUE(rig.load(1, "stereo.wav", 2, 96000));
    rig.manager().setFormat(48000, 128);
    rig.manager().setLoopStart(200000);
    rig.manager().setLoopEnd(300000);
    rig.manager().setLoopEnabled(true);
    rig.manager().start();
    EXPECT_EQ(rig.allocationsOver(3000, 1000, 150000), 0)
        << "allocations on the audio thread after the format changed";
    EXPECT_GT(rig.manager().enginePosition(), 200000);
}
