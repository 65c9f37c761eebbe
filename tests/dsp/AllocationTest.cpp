// Steady reads must not allocate: operator new is replaced here to count every allocation made
// while a resampler seeks and reads.
#include "dsp/SincInterpolator.h"

#include "TestSources.h"

#if defined(DSP_TEST_NODE)
#include "audiofiles/AudioFileLoaded.h"
#include "dsp/AudioResampler_DSP.h"
#endif

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

namespace
{
// Relaxed: the test reads it on the thread that allocates.
std::atomic<long> allocations{0};
} // namespace

void* operator new(std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void operator delete(void* p) noexcept
{
    std::free(p);
}

void operator delete[](void* p) noexcept
{
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}

void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}

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
        const long before = allocations.load(std::memory_order_relaxed);
        for (int block : {64, 1, 3, 256, 1024, 4096, 7})
        {
            r.read(buffer.data(), block);
            r.read(buffer.data(), block);
        }
        r.seek(5000);
        r.read(buffer.data(), 512);
        r.seek(17);
        r.read(buffer.data(), 3);
        EXPECT_EQ(allocations.load(std::memory_order_relaxed) - before, 0) << in << " -> " << out;
    }
    // The counter works: a vector allocates.
    const long before = allocations.load(std::memory_order_relaxed);
    std::vector<int> v(10);
    EXPECT_GT(allocations.load(std::memory_order_relaxed) - before, 0);
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
        const long before = allocations.load(std::memory_order_relaxed);
        for (int64_t position : {0, 512, 1024, 90000, 90512, 3})
        {
            block.position = position;
            block.frames = position == 3 ? 100 : 512;
            ASSERT_TRUE(r.read(block));
        }
        EXPECT_EQ(allocations.load(std::memory_order_relaxed) - before, 0) << in;
    }
}
#endif
