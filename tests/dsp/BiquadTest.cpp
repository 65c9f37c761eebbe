#include "dsp/BiquadFilter.h"

#include "TestSources.h"
#include "tests/support/Signal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

using utils::BiquadFilter;
using utils::BiquadFilterKATMAI;
using cd = std::complex<double>;

namespace
{

constexpr double fs = 48000.0;

// Magnitude of the digital section at f Hz.
double digitalGain(const BiquadFilter& f, double hz)
{
    const cd z1 = std::polar(1.0, -2.0 * M_PI * hz / fs);
    const cd num = cd(f.b0()) + cd(f.b1()) * z1 + cd(f.b2()) * z1 * z1;
    const cd den = cd(1.0) + cd(f.a1()) * z1 + cd(f.a2()) * z1 * z1;
    return std::abs(num / den);
}

// Level of a sine at f Hz after the filter, measured by running it through processBlock.
double measuredGain(BiquadFilter& f, double hz)
{
    const int n = 48000;
    std::vector<float> x(static_cast<std::size_t>(n)), y(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
        x[static_cast<std::size_t>(i)] = static_cast<float>(std::sin(2.0 * M_PI * hz * i / fs));
    f.reset();
    f.processBlock(y.data(), x.data(), n);
    return testsignal::amplitudeAt(y.data() + n / 2, n / 2, hz, fs, n / 2);
}

void expectMatchesPrototype(BiquadFilter& f, auto analog, const char* what)
{
    for (double hz : {50.0, 300.0, 1000.0, 2500.0, 6000.0, 12000.0, 20000.0})
    {
        // The bilinear transform without prewarping maps digital f to analog 2 fs tan(pi f / fs).
        const double expected = std::abs(analog(cd(0.0, 2.0 * fs * std::tan(M_PI * hz / fs))));
        EXPECT_NEAR(20 * std::log10(digitalGain(f, hz)), 20 * std::log10(expected), 0.01)
            << what << " " << hz;
        EXPECT_NEAR(20 * std::log10(measuredGain(f, hz)), 20 * std::log10(expected), 0.05)
            << what << " " << hz;
    }
}

} // namespace

TEST(BiquadFilter, DesignsMatchTheirAnalogPrototypes)
{
    BiquadFilter f;
    f.setup(1, static_cast<int32_t>(fs));
    const double w = 2.0 * M_PI * 2000.0;
    const double d = 0.7;

    f.designLowPass(static_cast<float>(w), static_cast<float>(d));
    expectMatchesPrototype(
        f, [&](cd s) { return w * w / (s * s + d * w * s + w * w); }, "low-pass");

    f.designHighPass(static_cast<float>(w), static_cast<float>(d));
    expectMatchesPrototype(
        f, [&](cd s) { return s * s / (s * s + d * w * s + w * w); }, "high-pass");

    f.designBandPass(static_cast<float>(w), static_cast<float>(d));
    expectMatchesPrototype(
        f, [&](cd s) { return d * w * s / (s * s + d * w * s + w * w); }, "band-pass");

    const double z1 = 2 * M_PI * 300.0, z2 = 2 * M_PI * 900.0, p1 = 2 * M_PI * 1500.0, p2 = 2 * M_PI * 4000.0;
    f.designShelf(static_cast<float>(z1), static_cast<float>(z2), static_cast<float>(p1),
                  static_cast<float>(p2));
    expectMatchesPrototype(
        f, [&](cd s) { return (p1 * p2) / (z1 * z2) * (s + z1) * (s + z2) / ((s + p1) * (s + p2)); },
        "shelf");
    // Float coefficients beside k squared of about 1e10 hold the zero-frequency gain to about 1e-4.
    EXPECT_NEAR(digitalGain(f, 0.0), 1.0, 2e-4);

    // A general section: (s^2 + 100 s + 4e6) / (2 s^2 + 3e4 s + 8e7).
    f.designBilinear(1.0f, 100.0f, 4e6f, 2.0f, 3e4f, 8e7f);
    expectMatchesPrototype(
        f, [&](cd s) { return (s * s + 100.0 * s + 4e6) / (2.0 * s * s + 3e4 * s + 8e7); }, "bilinear");
}

TEST(BiquadFilter, DenormalResultsComeOutAsZero)
{
    const float in[4] = {1e-30f, 1e-30f, 1.0f, -1.0f};
    BiquadFilter plain;
    BiquadFilterKATMAI vector;
    for (BiquadFilter* f : {&plain, static_cast<BiquadFilter*>(&vector)})
    {
        f->setup(2, 48000);
        f->setCoefficients(1e-10f, 0.0f, 0.0f, 0.0f, 0.0f);
        float out[4] = {1, 1, 1, 1};
        f->processBlock(out, in, 2);
        EXPECT_EQ(out[0], 0.0f);
        EXPECT_EQ(out[1], 0.0f);
        EXPECT_FLOAT_EQ(out[2], 1e-10f);
        f->processSample(out, in);
        EXPECT_EQ(out[0], 0.0f);
        EXPECT_FALSE(std::signbit(out[0]));
    }
    // A decaying resonance reaches zero instead of creeping through denormals.
    BiquadFilter f;
    f.setup(1, 48000);
    f.designLowPass(2.0f * static_cast<float>(M_PI) * 100.0f, 0.05f);
    std::vector<float> x(200000, 0.0f), y(200000);
    x[0] = 1.0f;
    f.processBlock(y.data(), x.data(), 200000);
    for (float v : y)
        ASSERT_TRUE(v == 0.0f || std::fpclassify(v) == FP_NORMAL);
}

// Blocks of uneven sizes (the first two frames of each from the stored history), one sample at a
// time, and the vector form in blocks all give the same output.
TEST(BiquadFilter, BlockSampleAndVectorFormsAgreeForOneAndTwoChannels)
{
    for (int channels : {1, 2})
    {
        BiquadFilter blocks, samples;
        BiquadFilterKATMAI vector;
        for (BiquadFilter* f : {&blocks, &samples, static_cast<BiquadFilter*>(&vector)})
        {
            f->setup(channels, 48000);
            f->designBandPass(2.0f * static_cast<float>(M_PI) * 1000.0f, 0.3f);
        }
        const std::vector<float> x = dsptest::noise(static_cast<std::size_t>(4000 * channels), 3);
        std::vector<float> yb(x.size()), ys(x.size()), yv(x.size());
        int done = 0;
        for (int size : {2, 3, 17, 2, 100, 876, 1000, 2000})
        {
            blocks.processBlock(yb.data() + done * channels, x.data() + done * channels, size);
            vector.processBlock(yv.data() + done * channels, x.data() + done * channels, size);
            done += size;
        }
        for (int i = 0; i < 4000; ++i)
            samples.processSample(ys.data() + i * channels, x.data() + i * channels);
        for (std::size_t i = 0; i < x.size(); ++i)
        {
            ASSERT_NEAR(yb[i], ys[i], 1e-5f) << "channels " << channels << " at " << i;
            ASSERT_NEAR(yv[i], ys[i], 2e-5f) << "channels " << channels << " at " << i;
        }
    }
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(std::make_unique<BiquadFilterKATMAI>().get()) % 16, 0u);
}
