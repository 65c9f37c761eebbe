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

class NoAllocationTest : public ::testing::TestWithParam<int32_t>
{
};

} // namespace

TEST_P(NoAllocationTest, StreamedPlaybackWithSpeedAndPitchAllocatesNothingPerBlock)
{
    const int32_t fileRate = GetParam();
    int64_t allocations = 0;
    TempFolder folder;
    TrackRig rig(48000, 128);
    rig.harness().recordOutput = false;
    rig.harness().recordBlocks = false;
    Manager& manager = rig.manager();
    const std::string path = folder.file("tone.wav");
    ASSERT_TRUE(writeFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, fileRate, fileRate * 30, tone, tone));
    ASSERT_TRUE(manager.loadTrack(0, epiPath(path)));
    Track& track = manager.trackNode(0);
    track.setSpeed(0.8f);
    track.setPitch(2.0f);
    manager.start();
    // Ten seconds of blocks, paced so the disk thread keeps the ring full, and a jump half way.
    for (int b = 0; b < 3750; ++b)
    {
        if (b == 1800)
        {
            manager.locate(300000);
        }
        {
            const testsupport::CountedAllocations counting;
            rig.harness().runBlock(128);
            allocations += counting.count();
        }
        if (b % 16 == 0)
        {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    EXPECT_EQ(allocations, 0) << "allocations on the audio thread while playing";
    EXPECT_FALSE(track.recorder().isOpen());
}

INSTANTIATE_TEST_SUITE_P(FileRates, NoAllocationTest, ::testing::Values(48000, 44100, 96000));

TEST(NoAllocationTakeTest, RecordingATakeAllocatesNothingPerBlock)
{
    int64_t allocations = 0;
    TempFolder folder;
    TrackRig rig(48000, 256);
    rig.harness().recordOutput = false;
    rig.harness().recordBlocks = false;
    Track& track = rig.track();
    track.setArmed(true);
    ASSERT_TRUE(rig.manager().startTake(0, epiPath(folder.file("take.aif"))));
    rig.manager().start();
    // Past two buffer changes of the recorder, with the overview fed from every block.
    for (int b = 0; b < 1000; ++b)
    {
        {
            const testsupport::CountedAllocations counting;
            rig.harness().runBlock(256);
            allocations += counting.count();
        }
        while (track.recorder().pendingBuffers() > 1)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    EXPECT_GE(track.recorder().buffersHandedOver(), 2);
    EXPECT_EQ(allocations, 0) << "allocations on the audio thread while recording";
    EXPECT_TRUE(rig.stopTake()) << track.takeErrorText();
}

TEST(NoAllocationFormatTest, PlaybackAfterAFormatChangeAllocatesNothingPerBlock)
{
    // Before, the format change shrank the file's buffer that loading had grown: the first blocks allocated.
    int64_t allocations = 0;
    TempFolder folder;
    TrackRig rig(48000, 128);
    rig.harness().recordOutput = false;
    rig.harness().recordBlocks = false;
    Manager& manager = rig.manager();
    ASSERT_TRUE(writeFile(folder.file("mono.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 44100, 44100 * 20,
                          tone, tone));
    ASSERT_TRUE(writeFile(folder.file("stereo.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 96000, 96000 * 20,
                          tone, tone));
    ASSERT_TRUE(manager.loadTrack(0, epiPath(folder.file("mono.wav"))));
    ASSERT_TRUE(manager.loadTrack(1, epiPath(folder.file("stereo.wav"))));
    manager.setFormat(48000, 128);
    manager.setLoopStart(200000);
    manager.setLoopEnd(300000);
    manager.setLoopEnabled(true);
    manager.start();
    for (int b = 0; b < 3000; ++b)
    {
        if (b == 1000)
            manager.locate(150000);
        {
            const testsupport::CountedAllocations counting;
            rig.harness().runBlock(128);
            allocations += counting.count();
        }
        if (b % 16 == 0)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    EXPECT_GT(manager.enginePosition(), 200000);
    EXPECT_EQ(allocations, 0) << "allocations on the audio thread after the format changed";
}
