#include "dsp/LinearPhaseLowPass2.h"
#include "dsp/RealTransform.h"
#include "dsp/SegmentedConv.h"
#include "dsp/SimdKernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

using dsp::FilterSpectrum;
using dsp::Domain::Adapters::AnySizeAdapter2;

namespace
{

std::vector<float> randomSignal(int n, unsigned seed, float amplitude)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-amplitude, amplitude);
    std::vector<float> v(static_cast<std::size_t>(n));
    for (float& x : v)
        x = dist(rng);
    return v;
}

std::vector<double> directConvolution(const std::vector<float>& x, const std::vector<float>& h)
{
    std::vector<double> y(x.size(), 0.0);
    for (std::size_t n = 0; n < x.size(); ++n)
        for (std::size_t k = 0; k < h.size() && k <= n; ++k)
            y[n] += static_cast<double>(h[k]) * x[n - k];
    return y;
}

// Runs x through an adapter of block `segment` in calls of varying sizes (1 to 2 S frames).
std::vector<float> runAdapter(const FilterSpectrum& spectrum, int segment, const std::vector<float>& x,
                              unsigned seed)
{
    AnySizeAdapter2 adapter(segment, 0);
    EXPECT_TRUE(adapter.attach(spectrum));
    adapter.reset();
    std::vector<float> y(x.size(), -99.0f);
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> sizes(1, 2 * segment);
    std::size_t done = 0;
    while (done < x.size())
    {
        const int n = std::min<int>(sizes(rng), static_cast<int>(x.size() - done));
        EXPECT_EQ(adapter.process(x.data() + done, y.data() + done, n), n);
        done += static_cast<std::size_t>(n);
    }
    return y;
}

} // namespace

TEST(RealTransform, ForwardThenBackwardRestoresAndPacksTheHalfSpectrum)
{
    for (int size : {8, 64, 128, 300, 301})
    {
        auto t = dsp::makeRealTransform(size);
        ASSERT_TRUE(t) << size;
        EXPECT_EQ(t->size(), size);
        dsp::AlignedPool pool;
        float* buf = pool.allocate(static_cast<std::size_t>(size) + 2);
        // A cosine at bin 3 gives size/2 at bins 3 only (real part), nothing else.
        for (int i = 0; i < size; ++i)
            buf[i] = static_cast<float>(std::cos(2.0 * M_PI * 3.0 * i / size));
        std::vector<float> original(buf, buf + size);
        ASSERT_TRUE(t->forward(buf));
        for (int bin = 0; bin <= size / 2; ++bin)
        {
            const double expected = bin == 3 ? size / 2.0 : 0.0;
            EXPECT_NEAR(buf[2 * bin], expected, 1e-3) << size << " bin " << bin;
            EXPECT_NEAR(buf[2 * bin + 1], 0.0, 1e-3) << size << " bin " << bin;
        }
        ASSERT_TRUE(t->backward(buf));
        for (int i = 0; i < size; ++i)
            EXPECT_NEAR(buf[i], original[static_cast<std::size_t>(i)], 1e-5);
    }
    EXPECT_FALSE(dsp::makeRealTransform(0));
}

TEST(SegmentedConv, UnitTapDelaysBySegmentLessOneExactly)
{
    const std::vector<float> x = randomSignal(3000, 1, 1.0f);
    for (int segment : {1, 2, 7, 16, 64, 100, 256, 1024})
    {
        const float one = 1.0f;
        FilterSpectrum spectrum(segment, &one, 1);
        const std::vector<float> y = runAdapter(spectrum, segment, x, 7);
        const int delay = segment - 1;
        for (int n = 0; n < delay && n < 3000; ++n)
            ASSERT_NEAR(y[static_cast<std::size_t>(n)], 0.0f, 1e-6f) << "S " << segment << " n " << n;
        for (int n = delay; n < 3000; ++n)
            ASSERT_NEAR(y[static_cast<std::size_t>(n)], x[static_cast<std::size_t>(n - delay)], 2e-6f)
                << "S " << segment << " n " << n;
    }
}

// Every block size from 1 to 1024 against a double-precision direct convolution of random taps.
// Taps of at most 0.05 over 300 taps and a signal within +-1 give outputs of about 0.5; float FFTs
// of these lengths stay within a few 1e-7 of that, so 1e-5 leaves room without hiding a wrong tap.
TEST(SegmentedConv, MatchesDirectConvolutionForEveryBlockSize)
{
    const std::vector<float> h = randomSignal(300, 2, 0.05f);
    const std::vector<float> x = randomSignal(2600, 3, 1.0f);
    const std::vector<double> reference = directConvolution(x, h);
    for (int segment = 1; segment <= 1024; ++segment)
    {
        FilterSpectrum spectrum(segment, h.data(), static_cast<int>(h.size()));
        ASSERT_TRUE(spectrum.valid()) << segment;
        const std::vector<float> y = runAdapter(spectrum, segment, x, static_cast<unsigned>(segment));
        const int delay = segment - 1;
        double worst = 0.0;
        for (std::size_t n = static_cast<std::size_t>(delay); n < x.size(); ++n)
            worst = std::max(worst, std::abs(y[n] - reference[n - static_cast<std::size_t>(delay)]));
        ASSERT_LT(worst, 1e-5) << "block size " << segment;
    }
}

TEST(SegmentedConv, LongFiltersAcrossTheTableSizes)
{
    const std::vector<float> x = randomSignal(12000, 4, 1.0f);
    for (int taps : {257, 1000, 4096})
    {
        const std::vector<float> h =
            randomSignal(taps, static_cast<unsigned>(taps), 0.5f / std::sqrt(taps * 1.0f));
        const std::vector<double> reference = directConvolution(x, h);
        for (int segment : {16, 32, 64, 128, 256})
        {
            FilterSpectrum spectrum(segment, h.data(), taps);
            const std::vector<float> y = runAdapter(spectrum, segment, x, 11);
            double worst = 0.0;
            for (std::size_t n = static_cast<std::size_t>(segment - 1); n < x.size(); ++n)
                worst =
                    std::max(worst, std::abs(y[n] - reference[n - static_cast<std::size_t>(segment - 1)]));
            EXPECT_LT(worst, 1e-5) << "taps " << taps << " block " << segment;
        }
    }
}

TEST(SegmentedConv, ResetForgetsTheHistory)
{
    const std::vector<float> h = randomSignal(200, 5, 0.1f);
    FilterSpectrum spectrum(64, h.data(), 200);
    AnySizeAdapter2 adapter(64, 0);
    ASSERT_TRUE(adapter.attach(spectrum));
    adapter.reset();
    const std::vector<float> x = randomSignal(1000, 6, 1.0f);
    std::vector<float> first(1000), second(1000);
    adapter.process(x.data(), first.data(), 1000);
    adapter.reset();
    adapter.process(x.data(), second.data(), 1000);
    for (std::size_t i = 0; i < first.size(); ++i)
        ASSERT_EQ(first[i], second[i]) << i;
}

TEST(SegmentedConv, DenormalInputLeavesNoDenormalOutput)
{
    const std::vector<float> h = randomSignal(256, 8, 0.1f);
    FilterSpectrum spectrum(64, h.data(), 256);
    AnySizeAdapter2 adapter(64, 0);
    ASSERT_TRUE(adapter.attach(spectrum));
    adapter.reset();
    std::vector<float> x(4096, 1e-39f), y(4096);
    adapter.process(x.data(), y.data(), 4096);
    for (float v : y)
        ASSERT_TRUE(v == 0.0f || std::fpclassify(v) == FP_NORMAL) << v;
}

TEST(SegmentedConv, InvalidFilterGivesSilenceAndNotReady)
{
    FilterSpectrum empty(64, nullptr, 0);
    EXPECT_FALSE(empty.valid());
    dsp::SegmentedConv conv;
    EXPECT_FALSE(conv.attach(empty));
    EXPECT_FALSE(conv.ready());
}

// A tone in the passband comes out at the level the double-precision taps give, delayed by the
// stated latency; a tone in the stopband is as far down as those taps say, within 1 dB.
TEST(LinearPhaseLowPass2, MeasuredResponseMatchesTheDesign)
{
    dsp::LinearPhaseLowPass2 lp;
    lp.setTaps(278);
    lp.setSampleRate(48000.0);
    ASSERT_TRUE(lp.design(44100.0 * 0.5 * 0.93424));
    EXPECT_EQ(lp.filterLatency(), 278 / 2 - 1 + 64);
    std::vector<double> h(278);
    dsp::LinearPhaseLowPass2::designTaps(278, lp.cutoff(), 48000.0, h.data());
    const int n = 48000;
    for (double f : {1000.0, 18000.0, 20000.0, 23000.0})
    {
        double re = 0.0, im = 0.0;
        for (std::size_t k = 0; k < h.size(); ++k)
        {
            re += static_cast<float>(h[k]) * std::cos(2.0 * M_PI * f * k / 48000.0);
            im -= static_cast<float>(h[k]) * std::sin(2.0 * M_PI * f * k / 48000.0);
        }
        const double expected = std::hypot(re, im);
        std::vector<float> x(static_cast<std::size_t>(n)), y(static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i)
            x[static_cast<std::size_t>(i)] = static_cast<float>(std::sin(2.0 * M_PI * f * i / 48000.0));
        lp.resetFilter();
        lp.filter(x.data(), y.data(), n);
        // Amplitude by projection on the delayed sine over the settled part.
        const int d = lp.filterLatency();
        double s = 0.0, c = 0.0;
        const int from = 4000, to = n - 4000;
        for (int i = from; i < to; ++i)
        {
            s += y[static_cast<std::size_t>(i)] * std::sin(2.0 * M_PI * f * (i - d) / 48000.0);
            c += y[static_cast<std::size_t>(i)] * std::cos(2.0 * M_PI * f * (i - d) / 48000.0);
        }
        const double amplitude = 2.0 * std::hypot(s, c) / (to - from);
        EXPECT_NEAR(20.0 * std::log10(amplitude), 20.0 * std::log10(expected), 1.0) << f << " Hz";
        if (f < 20000.0)
        {
            EXPECT_LT(std::abs(c) / std::abs(s), 1e-3) << "phase at " << f; // no time shift
        }
    }
}

// The wide kernels the CPU test may choose against the four-wide ones, and both against double.
TEST(SimdKernels, ChosenFormWithinRoundingOfTheSseForm)
{
    const dsp::SimdKernels& chosen = dsp::simdKernels();
    const dsp::SimdKernels& sse = dsp::sseKernels();
    dsp::AlignedPool pool;
    const int floats = 264;
    std::vector<float*> entries;
    std::vector<dsp::ScatterTerm> terms;
    const std::vector<float> values = randomSignal(7 * floats + 7, 21, 1.0f);
    for (int t = 0; t < 7; ++t)
    {
        float* e = pool.allocate(floats);
        std::copy(values.begin() + t * floats, values.begin() + (t + 1) * floats, e);
        terms.push_back({e, values[static_cast<std::size_t>(7 * floats + t)]});
    }
    float* a = pool.allocate(floats);
    float* b = pool.allocate(floats);
    std::vector<double> exact(floats, 0.0);
    for (int t = 0; t < 7; ++t)
        for (int j = 0; j < floats; ++j)
            exact[static_cast<std::size_t>(j)] +=
                static_cast<double>(terms[static_cast<std::size_t>(t)].entry[j]) *
                terms[static_cast<std::size_t>(t)].x;
    // Split at 100 floats as at the ring's end: the second run starts 100 floats into each entry.
    chosen.scatter(a, terms.data(), 7, 0, 100);
    chosen.scatter(a + 100, terms.data(), 7, 100, floats - 100);
    sse.scatter(b, terms.data(), 7, 0, floats);
    for (int j = 0; j < floats; ++j)
    {
        ASSERT_NEAR(a[j], b[j], 1e-5f) << j;
        ASSERT_NEAR(a[j], exact[static_cast<std::size_t>(j)], 1e-5) << j;
    }

    float* acc1 = pool.allocate(floats);
    float* acc2 = pool.allocate(floats);
    float* x = pool.allocate(floats);
    float* y = pool.allocate(floats);
    std::copy(values.begin(), values.begin() + floats, x);
    std::copy(values.begin() + floats, values.begin() + 2 * floats, y);
    chosen.complexMultiplyAdd(acc1, x, y, floats);
    sse.complexMultiplyAdd(acc2, x, y, floats);
    for (int k = 0; k < floats; k += 2)
    {
        const std::complex<double> p =
            std::complex<double>(x[k], x[k + 1]) * std::complex<double>(y[k], y[k + 1]);
        ASSERT_NEAR(acc1[k], p.real(), 1e-6) << k;
        ASSERT_NEAR(acc1[k + 1], p.imag(), 1e-6) << k;
        ASSERT_NEAR(acc2[k], p.real(), 1e-6) << k;
        ASSERT_NEAR(acc2[k + 1], p.imag(), 1e-6) << k;
    }
}
