#include "dsp/stretch/PstsScratch.h"

namespace dsp::Stretch
{

void PstsScratch::grow(int32_t floats)
{
    if (floats <= capacity_)
    {
        return;
    }
    data_ = std::make_unique<float[]>(static_cast<size_t>(floats));
    capacity_ = floats;
}

} // namespace dsp::Stretch
