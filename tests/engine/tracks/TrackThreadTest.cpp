#include "tests/engine/tracks/TrackRig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

using namespace tracktest;

// A take while a device thread runs the engine, the interface thread driving the take as the main panel
// does. Run under the thread sanitizer.

namespace
{

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 256;

/** The staircase index of a value written by stepValue. */
int64_t stepIndex(float value)
{
    return static_cast<int64_t>(std::lround(value * 32768.0f)) + 16384;
}

} // namespace

TEST(TrackThreadTest, TakeWhileTheDeviceRunsIsWholeAndContinuous)
{
    TempFolder folder;
    TrackRig rig(kRate, kBlock);
    rig.harness().recordOutput = false;
    rig.harness().recordBlocks = false;
    Manager& manager = rig.manager();
    Track& track = rig.track();
    const std::string path = folder.file("Audio_T1_1.aif");
    {
        DeviceThread device(rig);
        track.setArmed(true);
        ASSERT_TRUE(manager.startTake(0, epiPath(path)));
        manager.setRecording(true);
        manager.start();
        const int64_t startBlocks = device.blocks();
        while (device.blocks() - startBlocks < 400)
        {
            // The interface polls while the take grows.
            EXPECT_EQ(track.length(), Track::kRecordingLength);
            manager.poll();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        manager.stop();
        manager.setRecording(false);
        ASSERT_TRUE(track.setRecording(false)) << track.takeErrorText();
        track.setArmed(false);
        // The device keeps running over the new file while the interface looks at it.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_TRUE(track.isLoaded());
    }
    EXPECT_EQ(track.recorder().overruns(), 0u);
    const FileAudio audio = readFile(path);
    ASSERT_TRUE(audio.ok);
    const int64_t start = track.takeStart();
    ASSERT_GE(audio.frames(), start + 400 * static_cast<int64_t>(kBlock));
    for (int64_t i = 0; i < start; ++i)
    {
        ASSERT_EQ(audio.left[static_cast<size_t>(i)], 0.0f);
    }
    // Every frame of the take follows the one before it in the input: no block lost or doubled.
    int64_t expected = stepIndex(audio.left[static_cast<size_t>(start)]);
    for (int64_t i = start; i < audio.frames(); ++i)
    {
        ASSERT_FLOAT_EQ(audio.left[static_cast<size_t>(i)], stepValue(expected)) << "frame " << i;
        ASSERT_FLOAT_EQ(audio.right[static_cast<size_t>(i)], stepValueRight(expected)) << "frame " << i;
        ++expected;
    }
    EXPECT_FALSE(exists(folder.file("Audio_T1_1_tmp.aif")));
}
