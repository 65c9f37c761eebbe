// No allocation on this thread while blocks run through either engine: the audio thread must never
// allocate. The C library's allocator itself is replaced, so the high-quality stretcher's own
// buffers are counted too, not only what goes through operator new (which calls it).
#include "tests/dsp/stretch/StretchTestNodes.h"

#include "dsp/stretchhq/AudioFxStretchChoice.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <vector>

namespace
{

thread_local bool counting = false;
thread_local int64_t allocations = 0;

void count()
{
    allocations += counting ? 1 : 0;
}

} // namespace

extern "C"
{
    void* __libc_malloc(size_t);
    void* __libc_calloc(size_t, size_t);
    void* __libc_realloc(void*, size_t);
    void* __libc_memalign(size_t, size_t);

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
}

TEST(StretchAllocation, NothingAllocatesWhileBlocksRunOnEitherEngine)
{
    for (uint32_t rate : {44100u, 96000u})
    {
        stretchtest::SignalNode source(1LL << 40, stretchtest::sine(220.0, rate));
        AudioFxStretchChoice node;
        node.setSource(&source);
        node.prepare(rate, 1024);
        std::vector<float> l(1024);
        std::vector<float> r(1024);
        std::mt19937 rng(rate);
        allocations = 0;
        int64_t pos = 0;
        // Speeds 0.1 to 10 and 24 semitones either way, the widest the program asks for.
        const float stretches[] = {2.0f, 0.5f, 1.0f / 0.75f, 10.0f, 0.1f, 1.0f, 1.5f};
        const float pitches[] = {1.0f, 0.5f, 2.0f, 4.0f, 0.25f, 1.0f, 0.75f};
        for (int round = 0; round < 14; ++round)
        {
            // The interface thread's part, not counted; the stretcher takes the new pitch in the blocks.
            node.setStretch(stretches[round % 7]);
            node.setPitch(pitches[(round + 3) % 7]);
            node.setQuality(round % 3 == 2 ? StretchQuality::standard : StretchQuality::high);
            counting = true;
            for (int b = 0; b < 40; ++b)
            {
                AudioData d;
                d.channels = 2;
                d.frames = static_cast<int64_t>(1 + rng() % 1024);
                d.position = b % 20 == 19 ? static_cast<int64_t>(rng() % 10000000) : pos; // loop or locate
                d.channel[0] = l.data();
                d.channel[1] = r.data();
                ASSERT_TRUE(b % 2 == 0 ? node.read(d) : node.provide(d));
                pos = d.position + d.frames;
            }
            counting = false;
        }
        EXPECT_EQ(allocations, 0) << rate;
    }
}
