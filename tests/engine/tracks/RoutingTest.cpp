#include "tests/engine/tracks/TrackRig.h"
#include "tests/support/PluginEnv.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <chrono>
#include <cmath>
#include <thread>

using namespace tracktest;

// Each row of the track's switch table, heard through the mixer. The track plays a file of a constant
// 0.4; the device input is a constant 0.2; the effect is the test library, which halves what it gets.

namespace
{

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 128;

template <int Tenths> float level(int64_t)
{
    return static_cast<float>(Tenths) / 10.0f;
}

class RoutingTest : public ::testing::Test
{
protected:
    RoutingTest() : env_(KV3_TEST_GAIN), rig_(std::make_unique<TrackRig>(kRate, kBlock))
    {
        rig_->harness().fillInput = [](AudioData& input, int64_t)
        {
            for (int64_t i = 0; i < input.frames; ++i)
            {
                input.channel[0][i] = input.channel[1][i] = 0.2f;
            }
        };
        rig_->harness().recordOutput = true;
        // The Manager's own track 0, read by the calling thread so that every block is exact.
        EXPECT_TRUE(manager().loadTrack(0, epiPath(writeLevel("level.wav", level<4>))));
        track().setDirectRead(true);
        track().rewire();
    }

    std::string writeLevel(const char* name, float (*value)(int64_t))
    {
        const std::string path = folder_.file(name);
        EXPECT_TRUE(writeFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, kRate, kRate * 4, value, value));
        return path;
    }

    Manager& manager() { return rig_->manager(); }
    Track& track() { return manager().trackNode(0); }

    /** The output level of the last block after running a few. */
    float levelAfter(int blocks)
    {
        rig_->harness().left.clear();
        rig_->harness().right.clear();
        rig_->run(blocks * kBlock);
        EXPECT_FLOAT_EQ(rig_->harness().right.back(), rig_->harness().left.back());
        return rig_->harness().left.back();
    }

    testsupport::PluginEnv env_;
    TempFolder folder_;
    std::unique_ptr<TrackRig> rig_;
};

} // namespace

TEST_F(RoutingTest, PlayingTrackIsHeardAndAStoppedOneFeedsSilence)
{
    // Neither armed nor playing: the effect is fed silence (so that tails ring out), nothing is heard.
    EXPECT_EQ(levelAfter(2), 0.0f);
    manager().start();
    EXPECT_FLOAT_EQ(levelAfter(2), 0.4f);
    manager().stop();
    EXPECT_EQ(levelAfter(2), 0.0f);
}

TEST_F(RoutingTest, EffectInThePathProcessesThePlayback)
{
    track().setEffectEnabled(true);
    manager().start();
    EXPECT_FLOAT_EQ(levelAfter(2), 0.2f);
    track().setEffectEnabled(false);
    EXPECT_TRUE(track().effect().isEnabled()) << "bypassing keeps the plug-in alive";
    EXPECT_FLOAT_EQ(levelAfter(2), 0.4f);
}

TEST_F(RoutingTest, ArmedTrackMonitorsItsInputThroughTheEffect)
{
    track().setEffectEnabled(true);
    track().setArmed(true);
    // Stopped: the live input is heard through the effect, the file not.
    EXPECT_FLOAT_EQ(levelAfter(2), 0.1f);
    // Playing: still the input, never the file.
    manager().start();
    EXPECT_FLOAT_EQ(levelAfter(2), 0.1f);
    track().setArmed(false);
    EXPECT_FLOAT_EQ(levelAfter(2), 0.2f);
}

TEST_F(RoutingTest, FrozenTrackPlaysItsFrozenFileWithoutAnInstance)
{
    const std::string frozen = writeLevel("level_frozen.wav", level<1>);
    track().setEffectEnabled(true);
    track().loadFrozen(epiPath(frozen));
    track().setFrozen(true);
    EXPECT_FALSE(track().effect().isEnabled()) << "a frozen track holds no plug-in instance";
    // Stopped, it goes the normal way with the effect out of the path: silence.
    EXPECT_EQ(levelAfter(1), 0.0f);
    manager().start();
    // The frozen file streams from its own thread: paced like a device, it arrives.
    float level = 0.0f;
    for (int tries = 0; tries < 200 && level == 0.0f; ++tries)
    {
        level = levelAfter(1);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_FLOAT_EQ(level, 0.1f);
    // Unfreezing brings the instance back and deletes the frozen file.
    track().setFrozen(false);
    EXPECT_TRUE(track().effect().isEnabled());
    EXPECT_FALSE(exists(frozen));
    EXPECT_FLOAT_EQ(levelAfter(2), 0.2f);
}

TEST_F(RoutingTest, MutedTrackIsSilentYetKeepsRecording)
{
    manager().mixerInput(0).setMute(true);
    const std::string take = folder_.file("muted.aif");
    track().setArmed(true);
    ASSERT_TRUE(manager().startTake(0, epiPath(take)));
    manager().start();
    EXPECT_EQ(levelAfter(8), 0.0f);
    manager().stop();
    ASSERT_TRUE(track().setRecording(false)) << track().takeErrorText();
    const FileAudio audio = readFile(take);
    // The take, the dry input, lies over the start of the old file, whose rest follows.
    ASSERT_EQ(audio.frames(), kRate * 4);
    // 24-bit files hold these levels to within one step of 2^-23.
    EXPECT_NEAR(audio.left[100], 0.2f, 1e-6f);
    EXPECT_NEAR(audio.left[8 * kBlock - 1], 0.2f, 1e-6f);
    EXPECT_NEAR(audio.left[8 * kBlock], 0.4f, 1e-6f);
}
