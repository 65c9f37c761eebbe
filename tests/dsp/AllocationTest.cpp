// Steady reads must not allocate: no allocation while a resampler seeks and reads.
#include "dsp/SincInterpolator.h"

#include "TestSources.h"

#if defined(DSP_TEST_NODE)
#include "dsp/AudioResampler_DSP.h"
#include "tests/support/StereoBlock.h"
#endif

#include "tests/support/CountedAllocations.h"

#include <gtest/gtest.h>

#include <vector>

TEST(Allocation, ResamplerReadsAndSeeksAllocateNothing)
{
    for (auto [in, out] : {std::pair{44100.0f, 48000.0f}, std::pair{48000.0f, 44100.0f},
                           std::pair{48000.0f, 48000.0f}, std::pair{96000.0f, 22050.0f}})
    {
        dsptest::MemorySource src(dsptest::sine(440, in, 100000), in);
        dsp::HiQualityResampler r;
        r.setSource(&src);
        ASSERT_TRUE(r.setOutputRate(out));
        std::vector<float> buffer(4096);
        const testsupport::CountedAllocations counting;
        for (int block : {64, 1, 3, 256, 1024, 4096, 7})
        {
            r.read(buffer.data(), block);
            r.read(buffer.data(), block);
        }
        r.seek(5000);
        r.read(buffer.data(), 512);
        r.seek(17);
        r.read(buffer.data(), 3);
        EXPECT_EQ(counting.count(), 0) << in << " -> " << out;
    }
}

#if defined(DSP_TEST_NODE)
TEST(Allocation, ResamplerNodeReadsAllocateNothing)
{
    for (int32_t in : {44100, 96000})
    {
        dsptest::RatedSound sound(in, 2, 200000, 440.0);
        AudioResampler_DSP r;
        r.setProvider(&sound);
        r.prepare(48000, 512);
        r.sourceChanged();
        ASSERT_TRUE(r.ready());
        testsupport::StereoBlock block(512);
        const testsupport::CountedAllocations counting;
        for (int64_t position : {0, 512, 1024, 90000, 90512, 3})
        {
            block.data.position = position;
            block.data.frames = position == 3 ? 100 : 512;
            ASSERT_TRUE(r.read(block.data));
        }
        EXPECT_EQ(counting.count(), 0) << in;
    }
}
#endif
