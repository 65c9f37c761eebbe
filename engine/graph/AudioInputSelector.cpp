#include "engine/graph/AudioInputSelector.h"

#include <cstring>

bool AudioInputSelector::provide(AudioData& request)
{
    if (input_ == nullptr)
    {
        return false;
    }
    request.duplicateMono = true;
    if (!input_->provide(request))
    {
        return false;
    }
    if (request.channels < 2 || request.channel[1] == nullptr)
    {
        // A source that set its pointers by hand rather than by adopt still comes out as two channels.
        request.channel[1] = request.channel[0];
        request.channels = 2;
    }
    switch (mode_.load(std::memory_order_relaxed))
    {
    case 0:
        request.channel[1] = request.channel[0];
        break;
    case 1:
        request.channel[0] = request.channel[1];
        break;
    default:
        break;
    }
    return true;
}

bool AudioInputSelector::read(AudioData& into)
{
    if (input_ == nullptr || !input_->read(into))
    {
        return false;
    }
    if (into.channels < 2 || into.channel[0] == nullptr || into.channel[1] == nullptr ||
        into.channel[0] == into.channel[1] || into.frames <= 0)
    {
        return true;
    }
    const auto bytes = static_cast<size_t>(into.frames) * sizeof(float);
    switch (mode_.load(std::memory_order_relaxed))
    {
    case 0:
        std::memcpy(into.channel[1], into.channel[0], bytes);
        break;
    case 1:
        std::memcpy(into.channel[0], into.channel[1], bytes);
        break;
    default:
        break;
    }
    return true;
}

int32_t AudioInputSelector::channels()
{
    return input_ != nullptr ? input_->channels() : 2;
}

void AudioInputSelector::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
}
