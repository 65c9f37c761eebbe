// Steady reads must not allocate: operator new is replaced here to count every allocation made
// while a resampler seeks and reads.
#include "dsp/SincInterpolator.h"

#include "TestSources.h"

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
