// Counts every heap allocation made on this thread while a block runs through the speed/pitch node:
// the audio thread must never allocate. The replaced operators serve the whole test program.
#include "StretchTestNodes.h"

#include "dsp/stretch/AudioFxPSTS.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <vector>

namespace
{

thread_local bool counting = false;
std::atomic<int64_t> allocations{0}; // relaxed: read after the counted work on the same thread

void* allocate(std::size_t size, std::size_t alignment)
{
    if (counting)
    {
        allocations.fetch_add(1, std::memory_order_relaxed);
    }
    if (size == 0)
    {
        size = 1;
    }
    void* p = nullptr;
    if (alignment <= alignof(std::max_align_t))
    {
        p = std::malloc(size);
    }
    else if (posix_memalign(&p, alignment, size) != 0)
    {
        p = nullptr;
    }
    return p;
}

struct Counting
{
    Counting()
    {
        allocations.store(0, std::memory_order_relaxed);
        counting = true;
    }
    ~Counting() { counting = false; }
};

} // namespace

void* operator new(std::size_t size)
{
    void* p = allocate(size, 0);
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size, 0);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size, 0);
}
void* operator new(std::size_t size, std::align_val_t al)
{
    void* p = allocate(size, static_cast<std::size_t>(al));
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}
void* operator new[](std::size_t size, std::align_val_t al)
{
    return operator new(size, al);
}
void* operator new(std::size_t size, std::align_val_t al, const std::nothrow_t&) noexcept
{
    return allocate(size, static_cast<std::size_t>(al));
}
void* operator new[](std::size_t size, std::align_val_t al, const std::nothrow_t&) noexcept
{
    return allocate(size, static_cast<std::size_t>(al));
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
void operator delete(void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(p);
}

TEST(StretchAllocation, TheCounterSeesAllocations)
{
    Counting c;
    // Direct calls: a new-expression whose result goes unused may be left out by the compiler.
    void* plain = ::operator new(100);
    void* aligned = ::operator new (64, std::align_val_t{64});
    ::operator delete (aligned, std::align_val_t{64});
    ::operator delete(plain);
    EXPECT_EQ(allocations.load(std::memory_order_relaxed), 2);
}

TEST(StretchAllocation, NothingAllocatesInProcess)
{
    for (uint32_t rate : {44100u, 96000u})
    {
        stretchtest::SignalNode source(1LL << 40, stretchtest::sine(220.0, rate));
        AudioFxPSTS node;
        node.setSource(&source);
        node.prepare(rate, 1024);
        std::vector<float> l(1024);
        std::vector<float> r(1024);
        std::mt19937 rng(rate);

        Counting c;
        int64_t pos = 0;
        const float stretches[] = {1.0f, 2.0f, 0.5f, 1.0f / 0.75f, 10.0f, 0.001f, 1.0f};
        const float pitches[] = {1.0f, 0.5f, 2.0f, 8.0f, 0.001f, 1.0f, 0.75f};
        for (int round = 0; round < 7; ++round)
        {
            // Parameter changes from the interface side are plain stores too.
            node.setStretch(stretches[round]);
            node.setPitch(pitches[round]);
            for (int b = 0; b < 60; ++b)
            {
                const auto frames = static_cast<int64_t>(1 + rng() % 1024);
                if (b % 20 == 19)
                {
                    pos = static_cast<int64_t>(rng() % 10000000); // loop or locate
                }
                AudioData d;
                d.channels = 2;
                d.frames = frames;
                d.position = pos;
                if (b % 2 == 0)
                {
                    d.channel[0] = l.data();
                    d.channel[1] = r.data();
                    ASSERT_TRUE(node.read(d));
                }
                else
                {
                    ASSERT_TRUE(node.provide(d));
                }
                pos += frames;
            }
        }
        EXPECT_EQ(allocations.load(std::memory_order_relaxed), 0) << rate;
    }
}
