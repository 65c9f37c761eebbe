#include "StretchTestSources.h"

#include "dsp/stretch/CRAPSTS.h"
#include "dsp/stretch/PstsGrainReader.h"
#include "dsp/stretch/PstsHannTable.h"
#include "dsp/stretch/PstsScratch.h"
#include "dsp/stretch/PstsVoice.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

using namespace dsp::Stretch;
using stretchtest::FunctionSource;
using stretchtest::staircase;

namespace
{

constexpr int32_t kRate = 44100;
constexpr int64_t kLong = 1LL << 30;

// A voice set up the way the effect does it: grain frequency 25 Hz at 44.1 kHz, so the lattice
// period is 1,764 frames and a grain spans 3,528.
struct VoiceRig
{
    explicit VoiceRig(FunctionSource& src, float pitch = 1.0f, float stretch = 1.0f, double seekTo = 0.0)
        : voice(static_cast<float>(kRate), 25.0f, 4.0f, 64, scratch)
    {
        voice.setSource(&src);
        voice.setRateRatio(1.0f);
        voice.setGrain(static_cast<float>(kRate) / 25.0f, 1.0f);
        voice.seek(seekTo);
        voice.setPitchFactor(pitch);
        voice.setStretch(stretch);
    }

    std::vector<float> run(int64_t frames, int32_t block = 64)
    {
        std::vector<float> out(static_cast<size_t>(frames));
        for (int64_t done = 0; done < frames; done += block)
        {
            voice.process(out.data() + done, static_cast<int32_t>(std::min<int64_t>(block, frames - done)));
        }
        return out;
    }

    PstsScratch scratch;
    PstsVoice voice;
};

// Sets an engine up as the effect does, at grain frequency 25 Hz.
void startEngine(CRANewPolyPSTS& engine, FunctionSource& src, float outputRate, double at, float pitch = 1.0f,
                 float stretch = 1.0f)
{
    engine.setSource(&src);
    engine.setOutputRate(outputRate);
    engine.setGrainFrequency(25.0f);
    engine.seek(at);
    engine.setPitchFactor(pitch);
    engine.setStretch(stretch);
}

// Ring centre of the next grain over the hop: how many grains the overlap-add has taken.
int64_t grainsAdded(const PstsVoice& v)
{
    return v.overlapAdd().nextCentre() / v.overlapAdd().hopInt();
}

} // namespace

// A grain reader over a staircase, with room for the longest grain.
struct ReaderRig
{
    ReaderRig() : reader(14113, scratch), src(kRate, 1, kLong, staircase), grain(14113)
    {
        reader.setSource(&src);
    }
    PstsScratch scratch;
    PstsGrainReader reader;
    FunctionSource src;
    std::vector<float> grain;
    int32_t count = 0;
};

TEST(PstsVoice, StretchTwoAddsEachGrainTwiceAndReadsEverySecondTime)
{
    FunctionSource src(kRate, 1, kLong, staircase);
    VoiceRig rig(src, 1.0f, 2.0f, 100000.0);
    EXPECT_FLOAT_EQ(rig.voice.hop(), 1764.0f);
    rig.run(44100);
    const int64_t added = grainsAdded(rig.voice);
    ASSERT_GT(added, 20);
    // The analysis time moved by 882 source frames for each grain added.
    EXPECT_DOUBLE_EQ(rig.voice.analysisTime(), 100000.0 + 882.0 * static_cast<double>(added));
    // Reads: the opening grain, then one new lattice point for every two grains.
    ASSERT_GE(src.fetches.size(), 2u);
    EXPECT_NEAR(static_cast<double>(src.fetches.size()), static_cast<double>(added) / 2.0, 1.5);
    for (size_t i = 1; i < src.fetches.size(); ++i)
    {
        // Consecutive lattice points, none skipped.
        ASSERT_EQ(src.fetches[i].first - src.fetches[i - 1].first, 1764) << i;
    }
}

TEST(PstsVoice, PitchFactorHalfReadsWithStepTwo)
{
    FunctionSource src(kRate, 1, kLong, staircase);
    VoiceRig rig(src, 0.5f, 1.0f, 100000.0);
    EXPECT_FLOAT_EQ(rig.voice.hop(), 882.0f);
    EXPECT_EQ(rig.voice.overlapAdd().hopInt(), 882);
    EXPECT_FLOAT_EQ(rig.voice.overlapAdd().step(), 1.0f);
    rig.run(4410);
    // 3,528 source frames at step 2 give 1,764 samples.
    ASSERT_EQ(rig.voice.grainCount(), 1764);
    const double start = rig.voice.lastStart();
    const std::vector<float> w = stretchtest::hannGrain(1764);
    for (int32_t j = 0; j < rig.voice.grainCount(); ++j)
    {
        if (w[static_cast<size_t>(j)] > 0.1f)
        {
            ASSERT_NEAR(rig.voice.grainBuffer()[j] / w[static_cast<size_t>(j)], start + 2.0 * j, 0.2) << j;
        }
    }
}

TEST(PstsVoice, FirstGrainAfterASeekIsCentredOnTheOutputStart)
{
    FunctionSource src(kRate, 1, kLong, staircase);
    VoiceRig rig(src, 1.0f, 1.0f, 50000.0);
    std::vector<float> out = rig.run(64);
    ASSERT_GE(src.fetches.size(), 1u);
    // The grain reaches a period before the sought position; its first half falls before the output.
    EXPECT_EQ(src.fetches[0].first, 50000 - 1764 - 1);
    EXPECT_NEAR(out[0], 50000.0f, 50000.0f * 1e-4f);
    EXPECT_NEAR(out[1], 50001.0f, 50000.0f * 1e-4f);

    // Seek to 0: the grain starts before the source's first frame and uses its opening half twice;
    // together with the next grain, which starts at frame 1, the output runs one frame ahead.
    src.fetches.clear();
    rig.voice.seek(0.0);
    std::vector<float> zero(64);
    rig.voice.process(zero.data(), 64);
    ASSERT_GE(src.fetches.size(), 1u);
    EXPECT_EQ(src.fetches[0].first, 0);
    // Silence is restarted: no trace of the 50,000 staircase remains.
    for (size_t j = 0; j < zero.size(); ++j)
    {
        ASSERT_NEAR(zero[j], static_cast<float>(j + 1), 0.01f) << j;
    }
}

TEST(PstsVoice, UnityFollowsTheSourceThroughManyGrains)
{
    FunctionSource src(kRate, 1, kLong, [](int64_t i, int32_t) { return static_cast<float>(i % 5000); });
    VoiceRig rig(src, 1.0f, 1.0f, 20000.0);
    std::vector<float> out = rig.run(30000, 256);
    for (size_t i = 2000; i < out.size(); ++i)
    {
        const float expect = static_cast<float>((20000 + i) % 5000);
        // The ramp's wrap smears over one grain; elsewhere it is exact but for the window ripple.
        if (std::abs(static_cast<int64_t>((20000 + i) % 5000) - 2500) < 2500 - 1800)
        {
            ASSERT_NEAR(out[i], expect, 2.0f) << i;
        }
    }
}

TEST(CRANewPolyPSTS, StereoSourceIsSplitIntoTwoVoices)
{
    FunctionSource src(kRate, 2, kLong, staircase);
    PstsScratch scratch;
    PstsVoice left(static_cast<float>(kRate), 25.0f, 4.0f, 64, scratch);
    PstsVoice right(static_cast<float>(kRate), 25.0f, 4.0f, 64, scratch);
    CRANewPolyPSTS engine(false, &scratch);
    engine.setVoices(&left, &right);
    startEngine(engine, src, static_cast<float>(kRate), 30000.0, 0.75f, 1.5f);
    EXPECT_EQ(engine.channels(), 2);
    EXPECT_FLOAT_EQ(left.hop(), 1764.0f * 0.75f);
    EXPECT_FLOAT_EQ(right.stretch(), 1.5f);

    std::vector<float> l(3000);
    std::vector<float> r(3000);
    engine.process(l.data(), r.data(), 3000);
    for (size_t i = 0; i < l.size(); ++i)
    {
        ASSERT_NEAR(r[i], -l[i], 1e-3f * std::fabs(l[i]) + 1e-3f) << i;
    }
    EXPECT_GT(l[100], 29000.0f);

    // Interleaved output of more than the 128-frame staging gives the same frames.
    engine.seek(30000.0);
    std::vector<float> woven(2 * 3000);
    engine.process(woven.data(), 3000);
    for (size_t i = 0; i < l.size(); ++i)
    {
        ASSERT_FLOAT_EQ(woven[2 * i], l[i]) << i;
        ASSERT_FLOAT_EQ(woven[2 * i + 1], r[i]) << i;
    }
}

TEST(CRANewPolyPSTS, SourceAtAHigherRateIsLowPassed)
{
    // 2 kHz tone at 88.2 kHz into a 44.1 kHz output passes; 30 kHz would alias and must be removed.
    auto tone = [](double f)
    {
        return [f](int64_t i, int32_t)
        { return static_cast<float>(std::sin(2.0 * std::numbers::pi * f * i / 88200.0)); };
    };
    auto level = [&](double f)
    {
        FunctionSource src(88200, 1, kLong, tone(f));
        CRANewPolyPSTS engine(true, nullptr);
        startEngine(engine, src, 44100.0f, 0.0);
        std::vector<float> out(44800);
        for (size_t d = 0; d < out.size(); d += 64)
        {
            engine.process(out.data() + d, 64);
        }
        double peak = 0.0;
        for (size_t i = 10000; i < out.size(); ++i)
        {
            peak = std::max(peak, static_cast<double>(std::fabs(out[i])));
        }
        return peak;
    };
    EXPECT_GT(level(2000.0), 0.8);
    EXPECT_LT(level(30000.0), 0.01);
}
