#include "engine/graph/AudioTemporary.h"

#include <algorithm>

bool AudioTemporary::provide(AudioData& request)
{
    request.adopt(store_);
    return true;
}

bool AudioTemporary::read(AudioData& into)
{
    if (into.position != store_.position)
    {
        return false;
    }
    // Never more than the target holds, should it ask for fewer frames than were stored.
    into.copyRangeFrom(store_, 0, std::min(into.frames, store_.frames));
    return true;
}

void AudioTemporary::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    store_.alloc(blockSize, 2);
}

bool AudioTemporary::store(const AudioData& block)
{
    store_.adoptRange(block);
    // The arrays hold the prepared block size; never write past them.
    store_.frames = std::clamp<int64_t>(store_.frames, 0, store_.capacity());
    AudioData cut = block;
    cut.frames = store_.frames;
    store_.copyFrom(cut);
    return true;
}
