#include "engine/graph/AudioCache.h"

bool AudioCache::provide(AudioData&)
{
    return false;
}

int32_t AudioCache::channels()
{
    return input_ != nullptr ? input_->channels() : 2;
}

void AudioCache::prepare(uint32_t, uint32_t blockSize)
{
    blockSize_ = blockSize;
    const int32_t channelCount = channels();
    for (AudioBuffer& b : buffers_)
    {
        b.alloc(2 * static_cast<int64_t>(blockSize), channelCount);
        b.position = 0;
        b.frames = 0;
    }
    next_ = 0;
}

bool AudioCache::read(AudioData& into)
{
    for (const AudioBuffer& b : buffers_)
    {
        if (b.position == into.position)
        {
            if (b.frames == into.frames)
            {
                into.copyFrom(b);
                return true;
            }
            if (b.frames > into.frames)
            {
                return false;
            }
        }
        if (b.position < into.position && b.position + b.frames >= into.position + into.frames)
        {
            return false;
        }
    }
    if (input_ == nullptr)
    {
        return false;
    }
    AudioBuffer& b = buffers_[next_];
    next_ = (next_ + 1) % kBuffers;
    if (into.frames > b.capacity())
    {
        return false;
    }
    b.adoptRange(into);
    if (!input_->read(b))
    {
        b.frames = 0; // remember nothing from a failed read
        return false;
    }
    into.copyFrom(b);
    return true;
}
