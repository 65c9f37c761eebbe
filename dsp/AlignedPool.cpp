#include "dsp/AlignedPool.h"

#include <cstdlib>
#include <cstring>

namespace dsp
{

AlignedPool::~AlignedPool()
{
    release();
}

float* AlignedPool::allocate(std::size_t count)
{
    // Rounding up keeps every vector loop free of a scalar tail inside the block.
    const std::size_t floats = (count + 15) / 16 * 16;
    const std::size_t bytes = (floats == 0 ? 16 : floats) * sizeof(float);
    void* block = std::aligned_alloc(alignment, bytes);
    if (block == nullptr)
        return nullptr;
    std::memset(block, 0, bytes);
    blocks_.push_back(block);
    return static_cast<float*>(block);
}

void AlignedPool::release()
{
    for (void* block : blocks_)
        std::free(block);
    blocks_.clear();
}

} // namespace dsp
