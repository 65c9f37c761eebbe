#include "dsp/RealTransform.h"
#include "dsp/SegmentedConv.h"
#include "dsp/SimdKernels.h"

#include "TestSources.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numeric>
#include <random>
#include <vector>

using dsp::FilterSpectrum;
using dsp::Domain::Adapters::AnySizeAdapter2;
using dsptest::noise;

namespace
{

std::vector<double> directConvolution(const std::vector<float>& x, const std::vector<float>& h)
{
    std::vector<double> y(x.size(), 0.0);
    for (std::size_t n = 0; n < x.size(); ++n)
        for (std::size_t k = 0; k < h.size() && k <= n; ++k)
            y[n] += static_cast<double>(h[k]) * x[n - k];
    return y;
}

// Runs x through an adapter of block `segment` in calls of varying sizes (1 to 2 S frames).
std::vector<float> runAdapter(AnySizeAdapter2& adapter, int segment, const std::vector<float>& x)
{
    std::vector<float> y(x.size(), -99.0f);
    std::mt19937 rng(static_cast<unsigned>(segment));
    std::uniform_int_distribution<int> sizes(1, 2 * segment);
    for (std::size_t done = 0; done < x.size();)
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
        dsp::AlignedPool pool;
        float* buf = pool.allocate(static_cast<std::size_t>(size) + 2);
        // A cosine at bin 3 gives size/2 at bin 3 only (real part), nothing else.
        for (int i = 0; i < size; ++i)
            buf[i] = static_cast<float>(std::cos(2.0 * M_PI * 3.0 * i / size));
        std::vector<float> original(buf, buf + size);
        ASSERT_TRUE(t->forward(buf));
        for (int bin = 0; bin <= size / 2; ++bin)
        {
            EXPECT_NEAR(buf[2 * bin], bin == 3 ? size / 2.0 : 0.0, 1e-3) << size << " bin " << bin;
            EXPECT_NEAR(buf[2 * bin + 1], 0.0, 1e-3) << size << " bin " << bin;
        }
        ASSERT_TRUE(t->backward(buf));
        for (int i = 0; i < size; ++i)
            EXPECT_NEAR(buf[i], original[static_cast<std::size_t>(i)], 1e-5);
    }
    EXPECT_FALSE(dsp::makeRealTransform(0));
}

// Every block size from 1 to 1024, and long filters across the table sizes, against a
// double-precision direct convolution of random taps, delayed by the block less one. Outputs are
// about 0.5; float FFTs of these lengths stay within a few 1e-7, so 1e-5 hides no wrong tap.
TEST(SegmentedConv, MatchesDirectConvolution)
{
    std::vector<int> everySize(1024);
    std::iota(everySize.begin(), everySize.end(), 1);
    const std::vector<int> tableSizes = {16, 32, 64, 128, 256};
    struct Case
    {
        int taps;
        int frames;
        const std::vector<int>& segments;
    };
    for (const Case& c : {Case{300, 2600, everySize}, Case{257, 12000, tableSizes},
                          Case{1000, 12000, tableSizes}, Case{4096, 12000, tableSizes}})
    {
        const std::vector<float> h = noise(static_cast<std::size_t>(c.taps), static_cast<unsigned>(c.taps),
                                           0.5f / std::sqrt(c.taps * 1.0f));
        const std::vector<float> x = noise(static_cast<std::size_t>(c.frames), 3);
        const std::vector<double> reference = directConvolution(x, h);
        for (int segment : c.segments)
        {
            FilterSpectrum spectrum(segment, h.data(), c.taps);
            AnySizeAdapter2 adapter(segment, 0);
            ASSERT_TRUE(adapter.attach(spectrum)) << segment;
            adapter.reset();
            const std::vector<float> y = runAdapter(adapter, segment, x);
            const auto delay = static_cast<std::size_t>(segment - 1);
            double worst = 0.0;
            for (std::size_t n = delay; n < x.size(); ++n)
                worst = std::max(worst, std::abs(y[n] - reference[n - delay]));
            ASSERT_LT(worst, 1e-5) << "taps " << c.taps << " block " << segment;
        }
    }
}

TEST(SegmentedConv, ResetForgetsTheHistoryAndDenormalsComeOutAsZero)
{
    const std::vector<float> h = noise(256, 5, 0.1f);
    FilterSpectrum spectrum(64, h.data(), 256);
    AnySizeAdapter2 adapter(64, 0);
    ASSERT_TRUE(adapter.attach(spectrum));
    const std::vector<float> x = noise(1000, 6);
    std::vector<float> first(1000), second(1000);
    adapter.reset();
    adapter.process(x.data(), first.data(), 1000);
    adapter.reset();
    adapter.process(x.data(), second.data(), 1000);
    EXPECT_EQ(first, second);

    std::vector<float> tiny(4096, 1e-39f), y(4096);
    adapter.process(tiny.data(), y.data(), 4096);
    for (std::size_t i = 1000; i < y.size(); ++i)
        ASSERT_TRUE(y[i] == 0.0f || std::fpclassify(y[i]) == FP_NORMAL) << y[i];
}

TEST(SegmentedConv, InvalidFilterGivesNotReady)
{
    FilterSpectrum empty(64, nullptr, 0);
    EXPECT_FALSE(empty.valid());
    dsp::SegmentedConv conv;
    EXPECT_FALSE(conv.attach(empty));
    EXPECT_FALSE(conv.ready());
}

// The wide kernels the CPU test may choose and the four-wide ones, against double.
TEST(SimdKernels, ChosenAndSseFormsWithinRoundingOfDouble)
{
    dsp::AlignedPool pool;
    const int floats = 264;
    const std::vector<float> values = noise(7 * floats + 7, 21);
    std::vector<dsp::ScatterTerm> terms;
    std::vector<double> scattered(floats, 0.0);
    for (int t = 0; t < 7; ++t)
    {
        float* e = pool.allocate(floats);
        std::copy(values.begin() + t * floats, values.begin() + (t + 1) * floats, e);
        terms.push_back({e, values[static_cast<std::size_t>(7 * floats + t)]});
        for (int j = 0; j < floats; ++j)
            scattered[static_cast<std::size_t>(j)] += static_cast<double>(e[j]) * terms.back().x;
    }
    const float* x = terms[0].entry;
    const float* y = terms[1].entry;
    for (const dsp::SimdKernels* kernels : {&dsp::simdKernels(), &dsp::sseKernels()})
    {
        float* a = pool.allocate(floats);
        // Split at 100 floats as at the ring's end: the second run starts 100 floats into each entry.
        kernels->scatter(a, terms.data(), 7, 0, 100);
        kernels->scatter(a + 100, terms.data(), 7, 100, floats - 100);
        for (int j = 0; j < floats; ++j)
            ASSERT_NEAR(a[j], scattered[static_cast<std::size_t>(j)], 1e-5) << j;
        float* acc = pool.allocate(floats);
        kernels->complexMultiplyAdd(acc, x, y, floats);
        for (int k = 0; k < floats; k += 2)
        {
            const std::complex<double> p =
                std::complex<double>(x[k], x[k + 1]) * std::complex<double>(y[k], y[k + 1]);
            ASSERT_NEAR(acc[k], p.real(), 1e-6) << k;
            ASSERT_NEAR(acc[k + 1], p.imag(), 1e-6) << k;
        }
    }
}
