#include "tests/engine/tracks/TrackRig.h"
#include "tests/support/PluginEnv.h"

#include <gtest/gtest.h>
#include <sndfile.h>

using namespace tracktest;

namespace
{

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 256;

class ManagerTrackTest : public ::testing::Test
{
protected:
    ManagerTrackTest() : env_(KV3_TEST_GAIN), rig_(kRate, kBlock) {}

    testsupport::PluginEnv env_;
    TempFolder folder_;
    TrackRig rig_;
};

} // namespace

TEST_F(ManagerTrackTest, ATakeFollowsTheLoopAndKeepsTheSessionOpen)
{
    Manager& manager = rig_.manager();
    manager.sessionLength();
    manager.setLoopStart(1000);
    manager.setLoopEnd(3000);
    manager.setLoopEnabled(true);
    rig_.track().setArmed(true);
    ASSERT_TRUE(manager.startTake(0, epiPath(folder_.file("loop.aif"))));
    EXPECT_EQ(rig_.track().punchIn(), 1000);
    EXPECT_EQ(rig_.track().punchOut(), 3000);
    EXPECT_EQ(manager.sessionLength(), Track::kRecordingLength);
    rig_.stopTake();
}

TEST_F(ManagerTrackTest, LoadTrackLocatesToTheStartAndTrackLengthIsInSessionFrames)
{
    Manager& manager = rig_.manager();
    const std::string path = folder_.file("second.wav");
    ASSERT_TRUE(writeFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, 44100, 44100, otherValue, nullptr));
    manager.locate(5000);
    ASSERT_TRUE(manager.loadTrack(2, epiPath(path)));
    EXPECT_EQ(manager.sessionPosition(), 0);
    // One second at 44.1 kHz is 48000 frames at the session's 48 kHz.
    EXPECT_EQ(manager.trackLength(2), 48000);
    EXPECT_EQ(manager.sessionLength(), 48000);
    manager.unloadTrack(2);
    EXPECT_EQ(manager.trackLength(2), 0);
}

TEST_F(ManagerTrackTest, EffectsGetEachBlocksMidiOnceWithItsTimeAndTick)
{
    Manager& manager = rig_.manager();
    kv3test::TestPluginLog* log = env_.log();
    ASSERT_NE(log, nullptr);
    manager.trackNode(0).setEffectEnabled(true);
    manager.trackNode(2).setEffectEnabled(true);
    const int before = log->midiEvents.load();
    MidiEventBlock& midi = rig_.harness().midi();
    midi.events[0] = {0, 0x643C90};
    midi.events[1] = {1, 0x003C80};
    midi.events[2] = {2, 0x7F07B0};
    midi.count = 3;
    manager.setTempo(90.0f);
    manager.metronome().setTimeSignature(6, 8);
    manager.locate(48000);
    const uint32_t ticks = manager.trackNode(3).effect().tick();
    rig_.run(kBlock);
    // Two units with an instance, three events each; the two units without one drop them.
    EXPECT_EQ(log->midiEvents.load() - before, 6);
    EXPECT_EQ(log->lastMessage, 0x7F07B0u);
    float tempo = 0.0f;
    double samples = -1.0;
    double beats = -1.0;
    ASSERT_TRUE(manager.effects().plugin().getTimeInfo(&tempo, &samples, &beats));
    EXPECT_FLOAT_EQ(tempo, 90.0f);
    EXPECT_DOUBLE_EQ(samples, 48000.0);
    // The metronome's beats: at 90 BPM in 6/8 an eighth is 16000 frames of 48 kHz. Before, quarter notes
    // were counted whatever the signature (1.5 here).
    EXPECT_DOUBLE_EQ(beats, 3.0);
    manager.setSpeedRatio(2.0f);
    rig_.run(kBlock);
    ASSERT_TRUE(manager.effects().plugin().getTimeInfo(&tempo, &samples, &beats));
    EXPECT_FLOAT_EQ(tempo, 180.0f) << "the plug-in hears the tempo at the present speed";
    EXPECT_EQ(manager.trackNode(3).effect().tick() - ticks, 2u);
    EXPECT_EQ(log->midiEvents.load() - before, 6) << "a block's MIDI is delivered once";
}
