#pragma once

#include <cstddef>
#include <vector>

namespace dsp
{

/**
 * Owner of aligned float blocks that live as long as the object that uses them and are freed
 * together. Blocks are aligned to 64 bytes: that covers the 16 bytes the SSE loops need, and the
 * wider alignment an FFT plan may have assumed when it was made on another block of the pool.
 * Not for the audio thread: `allocate` calls the system allocator.
 */
class AlignedPool
{
public:
    static constexpr std::size_t alignment = 64;

    AlignedPool() = default;
    ~AlignedPool();
    AlignedPool(const AlignedPool&) = delete;
    AlignedPool& operator=(const AlignedPool&) = delete;

    /** A zeroed block of `count` floats (rounded up to a multiple of 16), or null when out of memory. */
    float* allocate(std::size_t count);

    /** Frees every block. */
    void release();

private:
    std::vector<void*> blocks_;
};

} // namespace dsp
