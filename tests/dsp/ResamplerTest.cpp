#include "dsp/SincInterpolator.h"

#include "TestSources.h"
#include "tests/support/Signal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <memory>
#include <random>
#include <string>
#include <vector>

using dsp::HiQualityResampler;
using dsp::SincInterpolator;
using dsptest::MemorySource;
using dsptest::sine;

namespace
{

std::vector<float> readAll(dsp::RandomAccessPCM& r, int frames)
{
    std::vector<float> out(static_cast<std::size_t>(frames));
    r.read(out.data(), frames);
    return out;
}

// Where y first falls through `level` after `from`, interpolated between frames.
double crossing(const std::vector<float>& y, float level, std::size_t from)
{
    for (std::size_t i = from; i + 1 < y.size(); ++i)
        if (y[i] >= level && y[i + 1] < level)
            return static_cast<double>(i) + (y[i] - level) / (y[i] - y[i + 1]);
    return -1.0;
}

double dB(double x)
{
    return 20.0 * std::log10(x);
}

const double rates[] = {22050.0, 44100.0, 48000.0, 88200.0, 96000.0};

} // namespace

TEST(SincInterpolator, RefusesRatesItCannotServe)
{
    MemorySource src(sine(1000, 44100, 1000), 44100.0f);
    SincInterpolator s;
    EXPECT_FALSE(s.setOutputRate(48000.0f)); // no source
    s.setSource(&src);
    EXPECT_FALSE(s.setOutputRate(0.0f));
    EXPECT_FALSE(s.setOutputRate(40.0f)); // beyond the input stage
    std::vector<float> out(10, 1.0f);
    EXPECT_EQ(s.read(out.data(), 10), 10);
    for (float v : out)
        EXPECT_EQ(v, 0.0f);
}

TEST(HiQualityResampler, EqualRatesPassThroughBitForBit)
{
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<float> x(5000);
    for (float& v : x)
        v = dist(rng);
    MemorySource src(x, 48000.0f);
    HiQualityResampler r;
    r.setSource(&src);
    ASSERT_TRUE(r.setOutputRate(48000.0f));
    EXPECT_TRUE(r.bypass());
    EXPECT_FALSE(r.lowPassActive());
    r.seek(0);
    const std::vector<float> y = readAll(r, 5000);
    for (std::size_t i = 0; i < x.size(); ++i)
        ASSERT_EQ(y[i], x[i]) << i;
    r.seek(1234);
    float v[3];
    r.read(v, 3);
    EXPECT_EQ(v[0], x[1234]);
    EXPECT_EQ(v[2], x[1236]);
}

// A resampled sine against the sine computed at the output rate, for every pair of rates, at
// 1 kHz and at 5 kHz. Away from the start and the end the error stays below 2e-4 of a 0.5
// amplitude (-68 dB): the Hann-windowed sinc's passband ripple at these frequencies and float
// accumulation, well below what a wrong tap, phase or delay of even 1/160 sample would give.
TEST(HiQualityResampler, ResampledSineMatchesTheDirectSineForEveryPair)
{
    for (double in : rates)
        for (double out : rates)
            for (double hz : {1000.0, 5000.0})
            {
                const int frames = static_cast<int>(in / 4);
                MemorySource src(sine(hz, in, frames, 0.5, 0.3), static_cast<float>(in));
                HiQualityResampler r;
                r.setSource(&src);
                ASSERT_TRUE(r.setOutputRate(static_cast<float>(out)));
                EXPECT_EQ(r.lowPassActive(), out < in);
                r.seek(0);
                const int n = r.length();
                const std::vector<float> y = readAll(r, n);
                const std::vector<float> expected = sine(hz, out, n, 0.5, 0.3);
                double worst = 0.0;
                const int margin = static_cast<int>(300 * std::max(1.0, out / in));
                for (int i = margin; i < n - margin; ++i)
                    worst = std::max(worst, std::abs(static_cast<double>(y[static_cast<std::size_t>(i)]) -
                                                     expected[static_cast<std::size_t>(i)]));
                EXPECT_LT(worst, 2e-4) << in << " -> " << out << " at " << hz << " Hz";
            }
}

// Seeking to a position gives the samples that reading from 0 gives there, for both paths, after
// a read elsewhere first. A staircase plus a sine exposes any offset.
TEST(HiQualityResampler, SeekGivesTheSequentialSamples)
{
    for (auto [in, out] : {std::pair{44100.0, 48000.0}, std::pair{48000.0, 44100.0},
                           std::pair{96000.0, 22050.0}, std::pair{22050.0, 96000.0}})
    {
        const int frames = 20000;
        std::vector<float> x = sine(700, in, frames, 0.4);
        for (int i = 0; i < frames; ++i)
            x[static_cast<std::size_t>(i)] += 0.5f * static_cast<float>(i / 64) / (frames / 64);
        MemorySource src(x, static_cast<float>(in));
        HiQualityResampler sequential;
        sequential.setSource(&src);
        ASSERT_TRUE(sequential.setOutputRate(static_cast<float>(out)));
        const std::vector<float> whole = readAll(sequential, sequential.length());

        MemorySource src2(x, static_cast<float>(in));
        HiQualityResampler r;
        r.setSource(&src2);
        ASSERT_TRUE(r.setOutputRate(static_cast<float>(out)));
        std::vector<float> scratch(777);
        r.read(scratch.data(), 777);
        for (int position : {0, 1, 3, 127, 1001, 4097, 9000, 5})
        {
            if (position >= r.length() - 100)
                continue;
            r.seek(position);
            const int n = std::min(1500, r.length() - position);
            const std::vector<float> y = readAll(r, n);
            for (int i = 0; i < n; ++i)
                ASSERT_NEAR(y[static_cast<std::size_t>(i)], whole[static_cast<std::size_t>(position + i)],
                            2e-6f)
                    << in << " -> " << out << " seek " << position << " + " << i;
        }
    }
}

// The end of the source fades out through the filter's tail, then silence, and the interpolator
// never asks for frames past the end.
TEST(HiQualityResampler, EndFadesOutThroughTheTail)
{
    const int frames = 3000;
    std::vector<float> x(frames, 0.5f);
    MemorySource src(x, 44100.0f);
    HiQualityResampler r;
    r.setSource(&src);
    ASSERT_TRUE(r.setOutputRate(48000.0f));
    const int n = r.length();
    const std::vector<float> y = readAll(r, n + 400);
    EXPECT_EQ(src.framesOutside(), 0);
    const double endTime = (frames - 1) * 48000.0 / 44100.0; // last input sample, in output frames
    EXPECT_NEAR(y[static_cast<std::size_t>(n / 2)], 0.5f, 1e-4f);
    // The step to silence half an input sample after the last one crosses half its height there,
    // rings within the filter's reach of 128 output frames and is exactly zero beyond it.
    EXPECT_NEAR(crossing(y, 0.25f, static_cast<std::size_t>(n / 2)), endTime + 0.5 * 48000.0 / 44100.0, 0.1);
    float lateTail = 0.0f;
    for (auto i = static_cast<std::size_t>(endTime) + 100; i < static_cast<std::size_t>(endTime) + 128; ++i)
        lateTail = std::max(lateTail, std::abs(y[i]));
    EXPECT_LT(lateTail, 1e-3f);
    for (std::size_t i = static_cast<std::size_t>(endTime) + 130; i < y.size(); ++i)
        ASSERT_EQ(y[i], 0.0f) << i;

    // The same on the low-pass path, whose own tail adds to the sinc's.
    MemorySource src2(x, 48000.0f);
    HiQualityResampler d;
    d.setSource(&src2);
    ASSERT_TRUE(d.setOutputRate(44100.0f));
    const int m = d.length();
    const std::vector<float> z = readAll(d, m + 600);
    EXPECT_NEAR(z[static_cast<std::size_t>(m / 2)], 0.5f, 1e-3f);
    const double endDown = (frames - 1) * 44100.0 / 48000.0;
    // The sinc reads the low-pass no further than the source's length, so the low-pass's own ringing
    // past the end is cut off: the crossing moves by about a tenth of a frame, no more.
    EXPECT_NEAR(crossing(z, 0.25f, static_cast<std::size_t>(m / 2)), endDown + 0.5 * 44100.0 / 48000.0, 0.2);
    for (std::size_t i = static_cast<std::size_t>(endDown) + 400; i < z.size(); ++i)
        ASSERT_NEAR(z[i], 0.0f, 1e-6f) << i;
}

// The design fixes the quality: the implementation has to give what the design's own taps give,
// computed here in double precision. Passband gain at 18 and 20 kHz, the image of a 21 kHz tone when
// the rate rises, the alias of a 23 kHz tone when it falls, each within 1 dB.
TEST(HiQualityResampler, MeasuredResponseMatchesTheDesign)
{
    using cd = std::complex<double>;
    struct Case
    {
        double in, out, tone, heardAt;
        // Where the filters are evaluated: the tone, or for an image the input-rate image of it.
        double filterAt() const { return out > in && heardAt != tone ? in - tone : tone; }
    };
    const Case cases[] = {
        {44100, 48000, 18000, 18000}, {44100, 48000, 20000, 20000}, {44100, 48000, 21000, 23100},
        {48000, 44100, 18000, 18000}, {48000, 44100, 20000, 20000}, {48000, 44100, 23000, 21100},
        {44100, 96000, 21000, 23100}, {96000, 44100, 21500, 21500}, {96000, 48000, 26000, 22000},
    };
    for (const Case& c : cases)
    {
        const int frames = static_cast<int>(c.in);
        MemorySource src(sine(c.tone, c.in, frames, 0.5), static_cast<float>(c.in));
        HiQualityResampler r;
        r.setSource(&src);
        ASSERT_TRUE(r.setOutputRate(static_cast<float>(c.out)));

        // Expected: the sinc's response at the tone's frequency at the rate of filter units, times
        // the low-pass's at the input rate when the rate falls.
        const double unitRate = c.in * r.down();
        const auto hl = static_cast<int64_t>(r.halfLength());
        cd sinc = 0.0;
        for (int64_t t = -hl + 1; t < hl; ++t)
            sinc +=
                static_cast<double>(r.tap(t)) * std::polar(1.0, -2.0 * M_PI * c.filterAt() * t / unitRate);
        double expected = 0.5 * std::abs(sinc) / r.down();
        if (r.lowPassActive())
        {
            const int taps = r.lowPass().taps();
            std::vector<double> h(static_cast<std::size_t>(taps));
            dsp::LinearPhaseLowPass2::designTaps(taps, r.lowPass().cutoff(), c.in, h.data());
            cd lp = 0.0;
            for (int k = 0; k < taps; ++k)
                lp += static_cast<double>(static_cast<float>(h[static_cast<std::size_t>(k)])) *
                      std::polar(1.0, -2.0 * M_PI * c.filterAt() * k / c.in);
            expected *= std::abs(lp);
        }
        const std::vector<float> y = readAll(r, r.length());
        const int n = static_cast<int>(y.size());
        const double measured = testsignal::amplitudeAt(y.data() + 2000, n - 4000, c.heardAt, c.out, 2000);
        EXPECT_NEAR(dB(measured), dB(expected), 1.0)
            << c.in << " -> " << c.out << " tone " << c.tone << " heard at " << c.heardAt << " expected "
            << dB(expected / 0.5) << " dB";
    }
}

// Before, a pair whose exact ratio needs more than 4096 phases (or falls too far) was refused: silence.
TEST(HiQualityResampler, PairsBeyondTheExactTableStillMatchTheDirectSine)
{
    const double pairs[][2] = {{44056, 48000}, {44056, 44100}, {31337, 44100}, {31337, 48000},
                               {48000, 31337}, {384000, 8000}, {8000, 44101},  {352800, 11025}};
    for (const auto& pair : pairs)
    {
        const double in = pair[0], out = pair[1];
        MemorySource src(sine(1000.0, in, static_cast<int>(in / 4), 0.5, 0.3), static_cast<float>(in));
        HiQualityResampler r;
        r.setSource(&src);
        ASSERT_TRUE(r.setOutputRate(static_cast<float>(out))) << in << " -> " << out;
        r.seek(0);
        const int n = r.length();
        const std::vector<float> y = readAll(r, n);
        const std::vector<float> expected = sine(1000.0, out, n, 0.5, 0.3);
        double worst = 0.0;
        const int margin = static_cast<int>(300 * std::max(1.0, out / in));
        for (int i = margin; i < n - margin; ++i)
            worst = std::max(worst, std::abs(static_cast<double>(y[static_cast<std::size_t>(i)]) -
                                             expected[static_cast<std::size_t>(i)]));
        // A millionth of pitch drifts the phase by 1.6e-3 over the quarter second.
        EXPECT_LT(worst, 1e-3) << in << " -> " << out;
    }
}
