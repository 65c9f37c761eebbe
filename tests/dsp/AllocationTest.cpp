// Steady reads must not allocate: no allocation while a resampler seeks and reads.
#include "dsp/SincInterpolator.h"

#include "TestSources.h"

#if defined(DSP_TEST_NODE)
#include "audiofiles/AudioFileLoaded.h"
#include "dsp/AudioResampler_DSP.h"
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
namespace
{
class RatedSound : public AudioFileLoaded
{
public:
    RatedSound(int32_t rate, int64_t frames) : rate_(rate)
    {
        AudioBuffer b;
        b.alloc(frames, 2);
        b.frames = frames;
        for (int64_t i = 0; i < frames; ++i)
            b.channel[0][i] = b.channel[1][i] = static_cast<float>(std::sin(0.05 * static_cast<double>(i)));
        loadFrom(b);
    }
    int32_t sampleRate() const override { return rate_; }

private:
    int32_t rate_;
};
} // namespace

TEST(Allocation, ResamplerNodeReadsAllocateNothing)
{
    for (int32_t in : {44100, 96000})
    {
        RatedSound sound(in, 200000);
        AudioResampler_DSP r;
        r.setProvider(&sound);
        r.prepare(48000, 512);
        r.sourceChanged();
        ASSERT_TRUE(r.ready());
        std::vector<float> left(512), right(512);
        AudioData block;
        block.channel[0] = left.data();
        block.channel[1] = right.data();
        block.channels = 2;
        const testsupport::CountedAllocations counting;
        for (int64_t position : {0, 512, 1024, 90000, 90512, 3})
        {
            block.position = position;
            block.frames = position == 3 ? 100 : 512;
            ASSERT_TRUE(r.read(block));
        }
        EXPECT_EQ(counting.count(), 0) << in;
    }
}
#endif
