#include "tests/engine/harness/TestNodes.h"

namespace enginetest
{

StaircaseSource::StaircaseSource(int32_t channels) : channels_(channels)
{
    own_.alloc(8192, channels_);
}

void StaircaseSource::fill(AudioData& d) const
{
    for (int64_t i = 0; i < d.frames; ++i)
    {
        const float v = value(d.position + i);
        d.channel[0][i] = v;
        if (d.channels > 1 && d.channel[1] != d.channel[0] && d.channel[1] != nullptr)
        {
            d.channel[1][i] = rightSign_ * v;
        }
    }
}

bool StaircaseSource::provide(AudioData& request)
{
    requests.push_back({request.position, request.frames});
    if (failing || request.frames > own_.capacity())
    {
        return false;
    }
    own_.adoptRange(request);
    fill(own_);
    request.adopt(own_);
    return true;
}

bool StaircaseSource::read(AudioData& into)
{
    requests.push_back({into.position, into.frames});
    if (failing)
    {
        return false;
    }
    fill(into);
    return true;
}

void StaircaseSource::prepare(uint32_t, uint32_t blockSize)
{
    if (blockSize > own_.capacity())
    {
        own_.alloc(blockSize, channels_);
    }
}

} // namespace enginetest
