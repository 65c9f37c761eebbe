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

// A signal in memory through the resampler at an output rate.
struct Resampled
{
    Resampled(std::vector<float> x, double in, double out) : src(std::move(x), static_cast<float>(in))
    {
        r.setSource(&src);
        EXPECT_TRUE(r.setOutputRate(static_cast<float>(out))) << in << " -> " << out;
    }
    std::vector<float> read(int frames)
    {
        std::vector<float> y(static_cast<std::size_t>(frames));
        r.read(y.data(), frames);
        return y;
    }

    MemorySource src;
    HiQualityResampler r;
};

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

// The largest distance, away from the ends, from a resampled sine to the sine at the output rate.
double worstAgainstTheSine(double in, double out, double hz)
{
    Resampled s(sine(hz, in, static_cast<int>(in / 4), 0.5, 0.3), in, out);
    EXPECT_EQ(s.r.lowPassActive(), out < in);
    const int n = s.r.length();
    const std::vector<float> y = s.read(n);
    const std::vector<float> expected = sine(hz, out, n, 0.5, 0.3);
    double worst = 0.0;
    const int margin = static_cast<int>(300 * std::max(1.0, out / in));
    for (int i = margin; i < n - margin; ++i)
        worst = std::max(worst, std::abs(static_cast<double>(y[static_cast<std::size_t>(i)]) -
                                         expected[static_cast<std::size_t>(i)]));
    return worst;
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
    EXPECT_EQ(out, std::vector<float>(10, 0.0f));
}

TEST(HiQualityResampler, EqualRatesPassThroughBitForBit)
{
    const std::vector<float> x = dsptest::noise(5000, 1);
    Resampled s(x, 48000.0, 48000.0);
    EXPECT_TRUE(s.r.bypass());
    EXPECT_FALSE(s.r.lowPassActive());
    EXPECT_EQ(s.read(5000), x);
    s.r.seek(1234);
    EXPECT_EQ(s.read(3), std::vector<float>(x.begin() + 1234, x.begin() + 1237));
}

TEST(HiQualityResampler, ResampledSineMatchesTheDirectSineForEveryPair)
{
    for (double in : rates)
        for (double out : rates)
            for (double hz : {1000.0, 5000.0})
                EXPECT_LT(worstAgainstTheSine(in, out, hz), 2e-4)
                    << in << " -> " << out << " at " << hz << " Hz";
}

// Before, a pair whose exact ratio needs more than 4096 phases (or falls too far) was refused: silence.
// A millionth of pitch drifts the phase by 1.6e-3 over the quarter second.
TEST(HiQualityResampler, PairsBeyondTheExactTableStillMatchTheDirectSine)
{
    const double pairs[][2] = {{44056, 48000}, {44056, 44100}, {31337, 44100}, {31337, 48000},
                               {48000, 31337}, {384000, 8000}, {8000, 44101},  {352800, 11025}};
    for (const auto& pair : pairs)
        EXPECT_LT(worstAgainstTheSine(pair[0], pair[1], 1000.0), 1e-3) << pair[0] << " -> " << pair[1];
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
        Resampled sequential(x, in, out);
        const std::vector<float> whole = sequential.read(sequential.r.length());
        Resampled s(x, in, out);
        s.read(777);
        for (int position : {0, 1, 3, 127, 1001, 4097, 9000, 5})
        {
            if (position >= s.r.length() - 100)
                continue;
            const int n = std::min(1500, s.r.length() - position);
            s.r.seek(position);
            const std::vector<float> y = s.read(n);
            for (int i = 0; i < n; ++i)
                ASSERT_NEAR(y[static_cast<std::size_t>(i)], whole[static_cast<std::size_t>(position + i)],
                            2e-6f)
                    << in << " -> " << out << " seek " << position << " + " << i;
        }
    }
}

// The end fades out through the filter's tail, crossing half height half an input sample after the
// last one, then silence: exact beyond the sinc's reach of 128 frames on the way up, where nothing is
// read past the end; within 1e-6 on the way down, where the low-pass's ringing moves the crossing.
TEST(HiQualityResampler, EndFadesOutThroughTheTail)
{
    struct Case
    {
        double in, out, crossing;
        std::size_t silentAfter;
        float silence;
    };
    for (const Case& c : {Case{44100, 48000, 0.1, 130, 0.0f}, Case{48000, 44100, 0.2, 400, 1e-6f}})
    {
        const int frames = 3000;
        Resampled s(std::vector<float>(frames, 0.5f), c.in, c.out);
        const int n = s.r.length();
        const std::vector<float> y = s.read(n + 600);
        EXPECT_TRUE(c.in > c.out || s.src.framesOutside() == 0); // the low-pass reads ahead
        EXPECT_NEAR(y[static_cast<std::size_t>(n / 2)], 0.5f, 1e-3f);
        const double end = (frames - 1) * c.out / c.in; // the last input sample, in output frames
        EXPECT_NEAR(crossing(y, 0.25f, static_cast<std::size_t>(n / 2)), end + 0.5 * c.out / c.in,
                    c.crossing);
        for (std::size_t i = static_cast<std::size_t>(end) + c.silentAfter; i < y.size(); ++i)
            ASSERT_NEAR(y[i], 0.0f, c.silence) << c.in << " -> " << c.out << " at " << i;
    }
}

// Passband gain, images when the rate rises and aliases when it falls are those of the design's own
// taps computed in double, within 1 dB.
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
        Resampled s(sine(c.tone, c.in, static_cast<int>(c.in), 0.5), c.in, c.out);
        HiQualityResampler& r = s.r;

        // The sinc's response at the rate of filter units, times the low-pass's when the rate falls.
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
        const std::vector<float> y = s.read(r.length());
        const int n = static_cast<int>(y.size());
        const double measured = testsignal::amplitudeAt(y.data() + 2000, n - 4000, c.heardAt, c.out, 2000);
        EXPECT_NEAR(dB(measured), dB(expected), 1.0)
            << c.in << " -> " << c.out << " tone " << c.tone << " heard at " << c.heardAt << " expected "
            << dB(expected / 0.5) << " dB";
    }
}
