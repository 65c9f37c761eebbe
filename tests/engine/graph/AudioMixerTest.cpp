#include "engine/graph/AudioMixer.h"
#include "tests/engine/harness/TestTrack.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using enginetest::TestTrack;

namespace
{

using Output = testsupport::StereoBlock;

// Five playing tracks, each with its own level, so that every strip's share of the sum is known.
struct MixerRig
{
    MixerRig()
    {
        for (int i = 0; i < AudioMixer::kInputs; ++i)
        {
            tracks[i].prepare(44100, 256);
            tracks[i].setPlaying(true);
            mixer.setSource(i, &tracks[i]);
        }
        mixer.prepare(44100, 256);
    }
    void setLevels(const std::vector<float>& levels)
    {
        for (size_t i = 0; i < levels.size(); ++i)
        {
            tracks[i].setLevel(levels[i]);
        }
    }
    // The first left sample of a block where the staircase is 0.5: the sum of the playing strips' shares.
    float mixFirstSample()
    {
        Output out(16, 16384);
        mixer.read(out.data);
        return out.left[0];
    }
    TestTrack tracks[AudioMixer::kInputs];
    AudioMixer mixer;
};

TEST(AudioMixer, SumsEveryStripAndClamps)
{
    MixerRig rig;
    rig.setLevels({0.1f, 0.2f, 0.3f, 0.4f, 0.5f});
    // Each strip contributes 0.5 * level; the sum is 0.75.
    EXPECT_FLOAT_EQ(rig.mixFirstSample(), 0.75f);
    rig.setLevels({1.0f, 1.0f, 1.0f, 1.0f, 1.0f});
    Output out(256, 16000);
    rig.mixer.read(out.data);
    EXPECT_EQ(out.left[0], 1.0f) << "five strips of about 0.49 clamp at full scale";
    EXPECT_EQ(out.right[0], -1.0f);

    // The pan law itself is AudioData's; here the strip's pan, volume and the master reach the sum.
    rig.setLevels({1.0f, 0.0f, 0.0f, 0.0f, 0.0f});
    rig.mixer.input(0).setPan(-0.5f);
    rig.mixer.input(0).setVolume(-6.0f);
    rig.mixer.setMaster(-6.0f);
    Output panned(4, 16384);
    rig.mixer.read(panned.data);
    // The staircase at 16384 gives 0.5 on the left and -0.5 on the right.
    EXPECT_NEAR(panned.left[0], 0.75f * std::pow(10.0f, -0.6f), 1e-6f);
    EXPECT_NEAR(panned.right[0], -0.25f * std::pow(10.0f, -0.6f), 1e-6f);
}

TEST(AudioMixer, MuteAndSoloRule)
{
    MixerRig rig;
    rig.setLevels({1.0f / 64, 2.0f / 64, 4.0f / 64, 8.0f / 64, 16.0f / 64});
    rig.mixer.strip(4).setSoloExempt(true);
    // Each strip's share in units of 0.5/64, so the sum tells which strips played.
    auto played = [&] { return static_cast<int>(std::lround(rig.mixFirstSample() * 128.0f)); };
    EXPECT_EQ(played(), 31);

    rig.mixer.input(1).setMute(true);
    EXPECT_EQ(played(), 31 - 2);
    EXPECT_EQ(rig.tracks[1].provides.load(), 2) << "a muted source is asked all the same";

    // Solo strip 2: only it and the exempt metronome play.
    rig.mixer.setSolo(2, true);
    EXPECT_EQ(played(), 4 + 16);

    // A muted, soloed, non-exempt strip plays; muting does not count under solo.
    rig.mixer.setSolo(1, true);
    EXPECT_EQ(played(), 2 + 4 + 16);

    // The exempt strip still obeys its mute.
    rig.mixer.input(4).setMute(true);
    EXPECT_EQ(played(), 2 + 4);

    // Unsolo one of two: the other keeps playing alone.
    rig.mixer.setSolo(2, false);
    EXPECT_EQ(played(), 2);
    // Last solo off: back to the mute rule.
    rig.mixer.setSolo(1, false);
    EXPECT_EQ(played(), 1 + 4 + 8);
}

// The pan law itself is AudioData's; here the strip's pan, volume and the master reach the sum.
TEST(AudioMixer, LivePassFeedsArmedTracksAndDoesNotClamp)
{
    AudioMixer mixer;
    TestTrack armed, playing;
    armed.setArmed(true);
    playing.setPlaying(true);
    mixer.setSource(0, &armed);
    mixer.setSource(1, &playing);

    Output in(8, 0, 0.75f), out(8, 16384);
    mixer.input(0).setVolume(6.0f); // about 2x: the live pass leaves the sum unclamped
    mixer.mixLive(in.data, out.data);
    EXPECT_NEAR(out.left[0], 0.75f * std::pow(10.0f, 0.3f), 1e-6f);
    EXPECT_EQ(playing.liveCalls.load(), 1) << "every track is asked; only armed ones answer";
    mixer.read(out.data); // the armed track answers false here; the sum is clamped
    EXPECT_EQ(out.left[0], 1.0f);
}

TEST(AudioMixer, ShortDeliveryIsMixedOverWhatWasDelivered)
{
    // A source that hands over fewer frames than asked must not be read past its end.
    struct Short : TestTrack
    {
        bool provide(AudioData& r) override
        {
            r.channel[0] = r.channel[1] = samples;
            r.channels = 2;
            r.frames = 2;
            return true;
        }
        float samples[2] = {0.25f, 0.5f};
    } shortSource;
    AudioMixer mixer;
    mixer.setSource(0, &shortSource);
    Output out(8, 0);
    mixer.read(out.data);
    EXPECT_EQ(out.left[1], 0.5f);
    EXPECT_EQ(out.left[2], 0.0f);
    AudioData request = out.data;
    EXPECT_FALSE(mixer.provide(request)) << "the mixer is read into the device's buffer, never adopted";
}

} // namespace
