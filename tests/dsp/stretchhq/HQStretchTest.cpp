// The high-quality node and the choice between the engines, through the history reader as a track
// feeds them: unity bypass, loops on the beat, clean restarts.
#include "tests/dsp/stretch/StretchTestNodes.h"

#include "dsp/stretchhq/AudioFxStretchChoice.h"
#include "engine/graph/ContiguousReader.h"
#include "tests/support/Signal.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

namespace
{

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 256;

// A track's chain: a source behind the history reader, then the node.
struct Chain : AudioSource
{
    explicit Chain(std::function<float(int64_t, int32_t)> f, int64_t length = 1LL << 40)
        : source(length, std::move(f))
    {
        reader.setFirst(&source);
        reader.prepare(kRate, kBlock);
        reader.setActive(true);
        node.setSource(this);
        node.prepare(kRate, kBlock);
    }
    void set(StretchQuality quality, double speed, double semitones)
    {
        node.setQuality(quality);
        node.setStretch(static_cast<float>(1.0 / speed));
        node.setPitch(std::pow(2.0f, static_cast<float>(-semitones / 12.0)));
    }
    // One block at a position, through read or provide; its sides land in `out`.
    void play(int64_t position, int64_t frames, bool provide = false)
    {
        AudioData d = out.data;
        d.frames = frames;
        d.position = position;
        ASSERT_TRUE(provide ? node.provide(d) : node.read(d));
        for (int c = 0; c < 2 && provide; ++c)
            std::copy_n(d.channel[c], frames, out.data.channel[c]);
    }

    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        fed += into.frames;
        return reader.read(into);
    }
    void prepare(uint32_t, uint32_t) override {}

    int64_t fed = 0;
    stretchtest::SignalNode source;
    ContiguousReader reader;
    AudioFxStretchChoice node;
    testsupport::StereoBlock out{kBlock};
};

// A note on every beat at 240 bpm: a 1 kHz tone under a 50 ms Hann envelope.
constexpr int64_t kBeat = 12000;
constexpr int64_t kBar = 4 * kBeat;
constexpr int64_t kNote = 2400;

float beatNotes(int64_t p, int32_t)
{
    const int64_t k = p % kBeat;
    return p >= 0 && k < kNote
               ? static_cast<float>(std::sin(2.0 * std::numbers::pi * k / 48.0) *
                                    (0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * k / kNote)))
               : 0.0f;
}

// The centre of the energy within 50 ms of a frame: where a note is heard, however spread.
double centreNear(const std::vector<float>& x, int64_t at)
{
    double sum = 0.0;
    double moment = 0.0;
    for (int64_t i = std::max<int64_t>(0, at - 2400);
         i < std::min<int64_t>(static_cast<int64_t>(x.size()), at + 2400); ++i)
    {
        const double e = static_cast<double>(x[static_cast<size_t>(i)]) * x[static_cast<size_t>(i)];
        sum += e;
        moment += e * static_cast<double>(i);
    }
    return sum > 0.0 ? moment / sum : -1.0;
}

} // namespace

// Speed 1 and pitch 0 pass the source through untouched, also right after stretching with either engine.
TEST(StretchChoice, UnityIsTheSourceBitForBit)
{
    for (StretchQuality quality : {StretchQuality::standard, StretchQuality::high})
    {
        Chain chain([](int64_t p, int32_t c)
                    { return static_cast<float>(p % 1000000) + 0.5f * static_cast<float>(c); });
        chain.set(quality, 0.5, 3.0);
        for (int64_t b = 0; b < 40; ++b)
        {
            chain.play(1000 + b * kBlock, kBlock);
        }
        chain.set(quality, 1.0, 0.0);
        std::mt19937 rng(7);
        int64_t position = 1000 + 40 * kBlock;
        for (int b = 0; b < 200; ++b)
        {
            const auto frames = static_cast<int64_t>(1 + rng() % kBlock);
            position = b % 50 == 49 ? static_cast<int64_t>(rng() % 900000) : position;
            chain.play(position, frames, b % 2 == 1);
            for (int64_t i = 0; i < frames; ++i)
            {
                const auto expected = static_cast<float>((position + i) % 1000000);
                ASSERT_EQ(chain.out.left[static_cast<size_t>(i)], expected) << position + i;
                ASSERT_EQ(chain.out.right[static_cast<size_t>(i)], expected + 0.5f) << position + i;
            }
            position += frames;
        }
    }
}

// Bars 2 and 3 looped ten times as the transport loops: every note of every pass lies within 1 ms of
// where the first pass put it, and on the high-quality engine of where the source puts it; the
// standard engine's grain lattice places a note up to about half a grain off.
struct LoopCase
{
    StretchQuality quality;
    double speed;
    double semitones;
    double toSourceMs;
};

class LoopOnTheBeat : public ::testing::TestWithParam<LoopCase>
{
};

TEST_P(LoopOnTheBeat, EveryPassLinesUp)
{
    const LoopCase c = GetParam();
    const double stretch = 1.0 / c.speed;
    const auto start = static_cast<int64_t>(std::llround(kBar * stretch));
    const auto end = static_cast<int64_t>(std::llround(3 * kBar * stretch));
    Chain chain(beatNotes);
    chain.set(c.quality, c.speed, c.semitones);
    std::vector<double> first;
    for (int pass = 0; pass < 10; ++pass)
    {
        int64_t most = 0;
        std::vector<float> out;
        for (int64_t position = start; position < end; position += kBlock)
        {
            const int64_t before = chain.fed;
            chain.play(position, kBlock);
            out.insert(out.end(), chain.out.left.begin(), chain.out.left.end());
            most = std::max(most, chain.fed - before);
        }
        // A jump back to the loop's start primed the stretcher there in one block: some 6,000 frames.
        EXPECT_TRUE(pass == 0 || c.quality == StretchQuality::standard || most < 2048) << most;
        for (int beat = 0; beat < 8; ++beat)
        {
            const double source = (static_cast<double>(beat * kBeat) + kNote / 2.0) * stretch;
            const double heard = centreNear(out, static_cast<int64_t>(source));
            if (pass == 0)
            {
                first.push_back(heard);
            }
            EXPECT_NEAR(heard, first[static_cast<size_t>(beat)], 48) << "pass " << pass << " beat " << beat;
            EXPECT_NEAR(heard, source, c.toSourceMs * 48.0) << "pass " << pass << " beat " << beat;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Engines, LoopOnTheBeat,
                         ::testing::Values(LoopCase{StretchQuality::standard, 0.5, 0.0, 19.0},
                                           LoopCase{StretchQuality::standard, 1.5, -5.0, 8.0},
                                           LoopCase{StretchQuality::high, 0.5, 0.0, 1.0},
                                           LoopCase{StretchQuality::high, 0.75, 2.0, 1.0},
                                           LoopCase{StretchQuality::high, 1.5, 0.0, 1.0},
                                           LoopCase{StretchQuality::high, 1.0, -5.0, 1.0}));

// A locate into silence brings silence at once; back into the music, the first block is at full level.
TEST(StretchChoice, ASeekRestartsCleanly)
{
    for (StretchQuality quality : {StretchQuality::standard, StretchQuality::high})
        for (double speed : {0.5, 0.75, 1.5})
        {
            Chain chain(stretchtest::sine(440.0, kRate), 4 * kRate);
            chain.set(quality, speed, 0.0);
            const double stretch = 1.0 / speed;
            for (int64_t b = 0; b < 100; ++b)
            {
                chain.play(static_cast<int64_t>(kRate * stretch) + b * kBlock, kBlock);
            }
            const auto silent = static_cast<int64_t>(6 * kRate * stretch);
            for (int64_t b = 0; b < 20; ++b)
            {
                chain.play(silent + b * kBlock, kBlock);
                ASSERT_LT(testsignal::peak(chain.out.left.data(), kBlock), 1e-6)
                    << "block " << b << " speed " << speed;
            }
            chain.play(static_cast<int64_t>(2 * kRate * stretch), kBlock);
            EXPECT_TRUE(quality == StretchQuality::standard ||
                        testsignal::peak(chain.out.left.data(), kBlock) > 0.4)
                << "speed " << speed;
        }
}

// A pitch change on the high-quality engine made a new stretcher and restarted the sound with a jump.
TEST(StretchChoice, APitchChangeGlidesWithoutABreak)
{
    Chain chain(stretchtest::sine(440.0, kRate));
    chain.set(StretchQuality::high, 0.75, 0.0);
    float last = 0.0f;
    for (int64_t b = 0; b < 200; ++b)
    {
        if (b == 100)
        {
            chain.node.setPitch(std::pow(2.0f, -2.0f / 12.0f));
        }
        chain.play(b * kBlock, kBlock);
        // A tone of 0.5 at 494 Hz moves at most 0.033 a frame; a restart jumps much further.
        for (float v : chain.out.left)
        {
            ASSERT_TRUE(b < 20 || std::fabs(v - last) < 0.06f) << "block " << b;
            last = v;
        }
    }
}
