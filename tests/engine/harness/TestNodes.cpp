#include "tests/engine/harness/TestNodes.h"

namespace enginetest
{

namespace
{
constexpr int64_t kDefaultFrames = 8192;
}

StaircaseSource::StaircaseSource(int32_t channels) : channels_(channels)
{
    own_.alloc(kDefaultFrames, channels_);
}

void StaircaseSource::fill(AudioData& d) const
{
    for (int64_t i = 0; i < d.frames; ++i)
    {
        const auto v = static_cast<float>(d.position + i);
        d.channel[0][i] = v;
        if (d.channels > 1 && d.channel[1] != d.channel[0] && d.channel[1] != nullptr)
        {
            d.channel[1][i] = -v;
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

ConstantSource::ConstantSource(float value, int64_t maxFrames) : level(value)
{
    own_.alloc(maxFrames, 2);
}

bool ConstantSource::provide(AudioData& request)
{
    ++provides;
    if (failing || request.frames > own_.capacity())
    {
        return false;
    }
    own_.adoptRange(request);
    for (int c = 0; c < 2; ++c)
    {
        for (int64_t i = 0; i < own_.frames; ++i)
        {
            own_.channel[c][i] = level;
        }
    }
    request.adopt(own_);
    return true;
}

bool ConstantSource::read(AudioData& into)
{
    ++reads;
    if (failing)
    {
        return false;
    }
    for (int32_t c = 0; c < into.channels; ++c)
    {
        for (int64_t i = 0; i < into.frames; ++i)
        {
            into.channel[c][i] = level;
        }
    }
    return true;
}

void ConstantSource::prepare(uint32_t, uint32_t blockSize)
{
    if (blockSize > own_.capacity())
    {
        own_.alloc(blockSize, 2);
    }
}

} // namespace enginetest
