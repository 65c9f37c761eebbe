#include "StretchTestNodes.h"
#include "StretchTestSources.h"
#include "tests/support/Signal.h"
#include "tests/support/StereoBlock.h"

#include "dsp/stretch/AudioFxPSTS.h"
#include "dsp/stretch/nvEfx.h"
#include "dsp/stretch/nvEfxImplPstsPoly.h"
#include "dsp/stretch/nvEfxTable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

using stretchtest::SignalNode;
using stretchtest::staircase;

namespace
{

constexpr int64_t kLong = 1LL << 40;

// The node over a source prepared at a rate and block; blocks it plays land in `out`.
struct Prepared
{
    Prepared(uint32_t rate, uint32_t block, std::function<float(int64_t, int32_t)> f = staircase)
        : source(kLong, std::move(f))
    {
        node.setSource(&source);
        node.prepare(rate, block);
    }
    void play(int64_t position, int64_t frames)
    {
        out.data.frames = frames;
        out.data.position = position;
        ASSERT_TRUE(node.read(out.data));
    }

    SignalNode source;
    AudioFxPSTS node;
    testsupport::StereoBlock out{4096};
};

} // namespace

// Loops and locates over a staircase: every sample is near the source position its output position
// stands for, and the first after each jump is that position itself.
class StaircaseJumps : public ::testing::TestWithParam<std::tuple<uint32_t, int32_t>>
{
};

TEST_P(StaircaseJumps, GrainsRestartAtTheCorrespondingSourcePosition)
{
    const auto [rate, block] = GetParam();
    for (float stretch : {2.0f, 0.75f, 1.0f / 0.75f})
    {
        Prepared p(rate, static_cast<uint32_t>(block));
        p.node.setStretch(stretch);
        p.node.setPitch(stretch == 2.0f ? 1.0f : 0.9f);
        const float period = static_cast<float>(rate) / 25.0f;
        std::mt19937 rng(static_cast<uint32_t>(rate + block));
        // Loop from 150,000 back to 40,000 a few times, then a locate forward.
        const std::vector<std::pair<int64_t, int64_t>> spans = {
            {40000, 150000}, {40000, 150000}, {40000, 90000}, {700000, 760000}, {0, 30000}};
        for (const auto& [from, to] : spans)
        {
            int64_t pos = from;
            bool first = true;
            while (pos < to)
            {
                const auto frames = static_cast<int32_t>(
                    std::min<int64_t>(1 + rng() % static_cast<uint32_t>(block), to - pos));
                p.play(pos, frames);
                for (int32_t i = 0; i < frames; ++i)
                {
                    const double expect = static_cast<double>(pos + i) / stretch;
                    const double got = p.out.left[static_cast<size_t>(i)];
                    if (first && i == 0)
                    {
                        // At 0 the grain has no first half, and the output runs one frame ahead.
                        const double at = from == 0 ? 1.0 : std::trunc(expect);
                        ASSERT_NEAR(got, at, std::max(0.01, expect * 2e-4))
                            << "jump to " << from << " stretch " << stretch;
                    }
                    // Between jumps the lattice lets the position lag or lead by about a period.
                    ASSERT_NEAR(got, expect, 1.6 * period + 2.0) << pos + i << " stretch " << stretch;
                    ASSERT_NEAR(p.out.right[static_cast<size_t>(i)], -got, std::fabs(got) * 1e-5 + 1e-3);
                }
                first = false;
                pos += frames;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Matrix, StaircaseJumps,
                         ::testing::Combine(::testing::Values(44100u, 48000u, 96000u),
                                            ::testing::Values(64, 256, 1024)));

// A 440 Hz tone changed in pitch keeps its time; at half speed (stretch 2) it keeps its frequency.
TEST(AudioFxPSTS, PitchChangesTheFrequencyAndKeepsTheTime)
{
    struct Case
    {
        float semitones;
        float stretch;
        uint32_t rate;
        int32_t block;
        double expect;
    };
    for (const Case& c : {Case{12.0f, 1.0f, 44100, 256, 880.0},
                          Case{-7.0f, 1.0f, 44100, 256, 440.0 * std::pow(2.0, -7.0 / 12.0)},
                          Case{3.0f, 1.0f, 44100, 256, 523.25}, Case{0.0f, 2.0f, 48000, 512, 440.0}})
    {
        const double rate = c.rate;
        Prepared p(c.rate, static_cast<uint32_t>(c.block), stretchtest::sine(440.0, rate));
        p.node.setPitch(std::pow(2.0f, -c.semitones / 12.0f));
        p.node.setStretch(c.stretch);
        std::vector<float> out;
        for (int64_t pos = 0; pos < 2 * c.rate; pos += c.block)
        {
            p.play(pos, c.block);
            out.insert(out.end(), p.out.left.begin(), p.out.left.begin() + c.block);
        }
        const float* settled = out.data() + c.rate / 10;
        const double f = testsignal::medianPeriodFrequency(settled, 80000, rate);
        EXPECT_NEAR(f, c.expect, c.expect * 0.005) << c.semitones << " " << c.stretch;
        // Phase steps between grains pull the mean by up to about one percent; more is a fault.
        const double mean = testsignal::meanFrequency(settled, 80000, rate);
        EXPECT_NEAR(mean, c.expect, c.expect * 0.02) << c.semitones << " " << c.stretch;
    }
}
