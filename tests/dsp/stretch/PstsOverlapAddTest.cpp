#include "dsp/stretch/PstsOverlapAdd.h"
#include "StretchTestSources.h"
#include "dsp/stretch/CRAPSTS.h"
#include "dsp/stretch/PstsButterworth.h"
#include "dsp/stretch/PstsHannTable.h"
#include "dsp/stretch/PstsScratch.h"
#include "tests/support/Signal.h"

#include <gtest/gtest.h>

#include <cmath>
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

} // namespace

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
}

TEST(PstsOverlapAdd, FilterIsNotAppliedTwiceAcrossBlockBorders)
{
    // The same stream of grains, rendered once in one block and once in blocks of assorted sizes,
    // must come out the same: a frame filtered twice at a border would differ at once.
    std::vector<float> grain = hannGrain(800);
    for (size_t i = 0; i < grain.size(); ++i)
    {
        grain[i] *= static_cast<float>(std::sin(0.37 * static_cast<double>(i)) + 0.3);
    }
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
        for (int64_t at = std::max<int64_t>(0, c - 400); at < c + 400; ++at)
        {
            ring[static_cast<size_t>(at)] += grain[static_cast<size_t>(at - c + 400)];
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

TEST(CRANewPolyPSTS, SourceAtAHigherRateIsLowPassed)
{
    // 2 kHz tone at 88.2 kHz into a 44.1 kHz output passes; 30 kHz would alias and must be removed.
    auto level = [&](double f)
    {
        stretchtest::FunctionSource src(
            88200, [f](int64_t i)
            { return static_cast<float>(std::sin(2.0 * std::numbers::pi * f * i / 88200.0)); });
        CRANewPolyPSTS engine(true, nullptr);
        engine.setSource(&src);
        engine.setOutputRate(44100.0f);
        engine.setGrainFrequency(25.0f);
        engine.seek(0.0);
        std::vector<float> out(44800);
        for (size_t d = 0; d < out.size(); d += 64)
        {
            engine.process(out.data() + d, 64);
        }
        return testsignal::peak(out.data() + 10000, static_cast<int64_t>(out.size()) - 10000);
    };
    EXPECT_GT(level(2000.0), 0.8);
    EXPECT_LT(level(30000.0), 0.01);
}
