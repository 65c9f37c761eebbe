// Counts every heap allocation made on this thread while blocks run through the engine choice: the
// audio thread must never allocate. The C library's allocator itself is replaced, so the stretcher's
// own buffers are counted too, not only what goes through operator new. (Under the sanitizers, which
// own the allocator, operator new alone is counted.)
#include "tests/dsp/stretch/StretchTestNodes.h"

#include "dsp/stretchhq/AudioFxStretchChoice.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KV3_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KV3_SANITIZED 1
#endif
#endif

namespace
{

thread_local bool counting = false;
std::atomic<int64_t> allocations{0}; // relaxed: read after the counted work on the same thread

void count()
{
    if (counting)
    {
        allocations.fetch_add(1, std::memory_order_relaxed);
    }
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

#ifndef KV3_SANITIZED
extern "C"
{
    void* __libc_malloc(size_t);
    void* __libc_calloc(size_t, size_t);
    void* __libc_realloc(void*, size_t);
    void* __libc_memalign(size_t, size_t);
    void __libc_free(void*);

    void* malloc(size_t size)
    {
        count();
        return __libc_malloc(size);
    }
    void* calloc(size_t n, size_t size)
    {
        count();
        return __libc_calloc(n, size);
    }
    void* realloc(void* p, size_t size)
    {
        count();
        return __libc_realloc(p, size);
    }
    void* memalign(size_t alignment, size_t size)
    {
        count();
        return __libc_memalign(alignment, size);
    }
    void* aligned_alloc(size_t alignment, size_t size)
    {
        count();
        return __libc_memalign(alignment, size);
    }
    int posix_memalign(void** p, size_t alignment, size_t size)
    {
        count();
        *p = __libc_memalign(alignment, size);
        return *p != nullptr ? 0 : ENOMEM;
    }
    void free(void* p)
    {
        __libc_free(p);
    }
}
#else
void* operator new(std::size_t size)
{
    count();
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
#endif

TEST(StretchHQAllocation, TheCounterSeesAllocations)
{
    Counting c;
    // Direct calls: a new-expression whose result goes unused may be left out by the compiler.
    void* plain = ::operator new(100);
    ::operator delete(plain);
    EXPECT_GE(allocations.load(std::memory_order_relaxed), 1);
}

TEST(StretchHQAllocation, NothingAllocatesWhileBlocksRun)
{
    for (uint32_t rate : {44100u, 96000u})
    {
        stretchtest::SignalNode source(1LL << 40, stretchtest::sine(220.0, rate));
        AudioFxStretchChoice node;
        node.setSource(&source);
        node.prepare(rate, 1024);
        node.setQuality(StretchQuality::high);
        std::vector<float> l(1024);
        std::vector<float> r(1024);
        std::mt19937 rng(rate);

        Counting c;
        int64_t pos = 0;
        // Speeds 0.1 to 10 and 24 semitones either way, the widest the program asks for.
        const float stretches[] = {2.0f, 0.5f, 1.0f / 0.75f, 10.0f, 0.1f, 1.0f, 1.5f};
        const float pitches[] = {1.0f, 0.5f, 2.0f, 4.0f, 0.25f, 1.0f, 0.75f};
        for (int round = 0; round < 14; ++round)
        {
            // The interface thread's part, not counted; the stretcher takes the new pitch in the blocks.
            counting = false;
            node.setStretch(stretches[round % 7]);
            node.setPitch(pitches[(round + 3) % 7]);
            node.setQuality(round % 3 == 2 ? StretchQuality::standard : StretchQuality::high);
            counting = true;
            for (int b = 0; b < 40; ++b)
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
