#include "dsp/stretch/PstsOverlapAdd.h"
#include "StretchTestSources.h"
#include "dsp/stretch/PstsButterworth.h"
#include "dsp/stretch/PstsHannTable.h"
#include "dsp/stretch/PstsScratch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

using namespace dsp::Stretch;
using stretchtest::hannGrain;

namespace
{

// Runs one block: grains are offered until the block needs no more, then the block is rendered.
void runBlock(PstsOverlapAdd& ola, float* out, int32_t count, const std::vector<float>& grain,
              int* added = nullptr)
{
    ola.beginBlock(out, count);
    while (ola.offerGrain(static_cast<int32_t>(grain.size())))
    {
        ola.addGrain(grain.data());
        if (added != nullptr)
        {
            ++*added;
        }
    }
    ola.render();
}

double sectionGain(const PstsButterworth::Section& s, double w)
{
    const std::complex<double> z1 = std::polar(1.0, -w);
    const std::complex<double> z2 = z1 * z1;
    const std::complex<double> num =
        static_cast<double>(s.b0) + static_cast<double>(s.b1) * z1 + static_cast<double>(s.b2) * z2;
    const std::complex<double> den = 1.0 - static_cast<double>(s.c1) * z1 - static_cast<double>(s.c2) * z2;
    return std::abs(num / den);
}

double cascadeGain(const PstsButterworth& f, double w)
{
    double gain = 1.0;
    for (int i = 0; i < f.sections(); ++i)
    {
        gain *= sectionGain(f.section(i), w);
    }
    return gain;
}

} // namespace

TEST(PstsButterworth, DesignIsAUnityGainLowPass)
{
    PstsButterworth f;
    f.design(0.5f);
    EXPECT_EQ(f.order(), 12);
    ASSERT_EQ(f.sections(), 6);
    for (int i = 0; i < f.sections(); ++i)
    {
        // Each section has unity gain at zero frequency.
        EXPECT_NEAR(sectionGain(f.section(i), 0.0), 1.0, 1e-5) << i;
    }
    EXPECT_NEAR(cascadeGain(f, 0.25 * std::numbers::pi), 1.0, 0.01);
    // Twelfth order: far below -60 dB an octave above the cut-off.
    EXPECT_LT(cascadeGain(f, 0.75 * std::numbers::pi), 1e-3);
    // At the cut-off a Butterworth response is 3 dB down.
    EXPECT_NEAR(cascadeGain(f, 0.5 * std::numbers::pi), std::sqrt(0.5), 0.01);
}

TEST(PstsButterworth, RunFiltersAndFlushesDenormals)
{
    PstsButterworth f;
    f.design(0.25f);
    std::vector<float> x(20000, 0.0f);
    x[0] = 1.0f;
    f.run(x.data(), 100);
    f.run(x.data() + 100, static_cast<int32_t>(x.size()) - 100);
    // The impulse response decays and ends as true zeros, never as denormals.
    for (size_t i = 10000; i < x.size(); ++i)
    {
        ASSERT_TRUE(x[i] == 0.0f || std::fpclassify(x[i]) == FP_NORMAL) << i;
    }
    EXPECT_EQ(x.back(), 0.0f);
    // DC goes through at unity once settled.
    std::vector<float> dc(4000, 0.5f);
    f.reset();
    f.run(dc.data(), static_cast<int32_t>(dc.size()));
    EXPECT_NEAR(dc.back(), 0.5f, 1e-4f);
    // Reset clears the history, so the same run gives the same result.
    std::vector<float> again(4000, 0.5f);
    f.reset();
    f.run(again.data(), static_cast<int32_t>(again.size()));
    EXPECT_EQ(dc, again);
}

TEST(PstsOverlapAdd, ConstantGainAwayFromTheStart)
{
    PstsScratch scratch;
    PstsOverlapAdd ola(14113 + 64, scratch);
    ola.setHop(1764);
    ola.setStep(1.0f);
    const std::vector<float> grain = hannGrain(3528);
    std::vector<float> out(44100);
    const int32_t block = ola.maxBlock(3528);
    ASSERT_GE(block, 64);
    for (size_t done = 0; done < out.size(); done += 64)
    {
        runBlock(ola, out.data() + done, static_cast<int32_t>(std::min<size_t>(64, out.size() - done)),
                 grain);
    }
    // The first grain is centred on frame 0, so only its second half is heard, and the second grain
    // rises under it: two half-overlapped Hann grains sum to one from the first frame on.
    for (size_t i = 1; i < out.size(); ++i)
    {
        ASSERT_NEAR(out[i], 1.0f, 5e-4f) << i;
    }
    // A wrong hop shows at once: the same grains at a hop of 1,700 overlap too much.
    PstsOverlapAdd dense(14113 + 64, scratch);
    dense.setHop(1700);
    std::vector<float> over(8000);
    for (size_t done = 0; done < over.size(); done += 64)
    {
        runBlock(dense, over.data() + done, 64, grain);
    }
    float top = 0.0f;
    for (size_t i = 1; i < over.size(); ++i)
    {
        top = std::max(top, over[i]);
    }
    EXPECT_GT(top, 1.01f);
}

TEST(PstsOverlapAdd, FirstSampleAfterResetIsExtrapolatedThenFramesComeThrough)
{
    PstsScratch scratch;
    PstsOverlapAdd ola(1000, scratch);
    ola.setHop(1000000); // one grain only
    ola.setStep(1.0f);
    // A grain of 200 samples centred on frame 0: ring frames 0..99 take samples 100..199.
    std::vector<float> grain(200);
    for (size_t i = 0; i < grain.size(); ++i)
    {
        grain[i] = static_cast<float>(i * i) * 0.001f;
    }
    std::vector<float> out(50);
    runBlock(ola, out.data(), 50, grain);
    const float p = grain[100];
    const float q = grain[101];
    const float r = grain[102];
    const float t = grain[103];
    EXPECT_NEAR(out[0], 2 * p - 3 * q + 3 * r - t, 1e-4f);
    // With a step of exactly 1, every later sample is a ring frame.
    for (size_t i = 1; i < out.size(); ++i)
    {
        ASSERT_FLOAT_EQ(out[i], grain[100 + i]) << i;
    }
    // Frames before position 0 were dropped, not wrapped to the end of the ring.
    for (int64_t i = 100; i < 1000; ++i)
    {
        ASSERT_EQ(ola.ringAt(i), 0.0f) << i;
    }
}

TEST(PstsOverlapAdd, FilterIsNotAppliedTwiceAcrossBlockBorders)
{
    // The same stream of grains, rendered once in one block and once in blocks of assorted sizes,
    // must come out the same: a frame filtered twice at a border would differ at once.
    const std::vector<float> grain = []
    {
        std::vector<float> g = hannGrain(800);
        for (size_t i = 0; i < g.size(); ++i)
        {
            g[i] *= static_cast<float>(std::sin(0.37 * static_cast<double>(i)) + 0.3);
        }
        return g;
    }();
    const int32_t total = 3000;
    auto render = [&](const std::vector<int32_t>& sizes)
    {
        PstsScratch scratch;
        PstsOverlapAdd ola(8000, scratch);
        ola.setHop(400);
        ola.setStep(1.0f);
        ola.setFilter(true, 0.3f);
        std::vector<float> out(total);
        int32_t done = 0;
        size_t k = 0;
        while (done < total)
        {
            const int32_t n = std::min(sizes[k++ % sizes.size()], total - done);
            runBlock(ola, out.data() + done, n, grain);
            done += n;
        }
        return out;
    };
    const std::vector<float> whole = render({3000});
    const std::vector<float> pieces = render({1, 7, 64, 3, 129, 2, 500});
    const std::vector<float> small = render({1});
    // A reference: the ring's frames built independently and filtered exactly once.
    std::vector<float> ring(total + 1000, 0.0f);
    for (int64_t c = 0; c < total + 400; c += 400)
    {
        for (int64_t j = 0; j < 800; ++j)
        {
            const int64_t at = c - 400 + j;
            if (at >= 0 && at < static_cast<int64_t>(ring.size()))
            {
                ring[static_cast<size_t>(at)] += grain[static_cast<size_t>(j)];
            }
        }
    }
    PstsButterworth once;
    once.design(0.3f);
    once.run(ring.data(), static_cast<int32_t>(ring.size()));
    for (int32_t i = 1; i < total; ++i)
    {
        ASSERT_NEAR(pieces[static_cast<size_t>(i)], whole[static_cast<size_t>(i)], 1e-5f) << i;
        ASSERT_NEAR(small[static_cast<size_t>(i)], whole[static_cast<size_t>(i)], 1e-5f) << i;
        ASSERT_NEAR(whole[static_cast<size_t>(i)], ring[static_cast<size_t>(i)], 1e-4f) << i;
    }
}
