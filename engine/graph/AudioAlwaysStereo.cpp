#include "engine/graph/AudioAlwaysStereo.h"

#include <cstring>

namespace
{

void copyChannel0To1(AudioData& d)
{
    if (d.channels < 2 || d.channel[0] == nullptr || d.channel[1] == nullptr ||
        d.channel[0] == d.channel[1] || d.frames <= 0)
    {
        return;
    }
    std::memcpy(d.channel[1], d.channel[0], static_cast<size_t>(d.frames) * sizeof(float));
}

} // namespace

bool AudioAlwaysStereo::inputIsMono()
{
    return input_ != nullptr && input_->channels() == 1;
}

bool AudioAlwaysStereo::provide(AudioData& request)
{
    if (input_ == nullptr)
    {
        return false;
    }
    if (inputIsMono() && request.frames <= work_.capacity() && work_.channels == 2)
    {
        work_.adoptRange(request);
        AudioData mono;
        mono.channel[0] = work_.channel[0];
        mono.channels = 1;
        mono.adoptRange(request);
        if (input_->read(mono))
        {
            copyChannel0To1(work_);
            request.adopt(work_);
            return true;
        }
    }
    return input_->provide(request);
}

bool AudioAlwaysStereo::read(AudioData& into)
{
    if (input_ == nullptr)
    {
        return false;
    }
    if (inputIsMono())
    {
        AudioData mono;
        mono.channel[0] = into.channel[0];
        mono.channels = 1;
        mono.adoptRange(into);
        if (input_->read(mono))
        {
            copyChannel0To1(into);
            return true;
        }
    }
    return input_->read(into);
}

void AudioAlwaysStereo::prepare(uint32_t, uint32_t blockSize)
{
    work_.alloc(blockSize, 2);
}
