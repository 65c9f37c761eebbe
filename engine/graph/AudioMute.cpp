#include "engine/graph/AudioMute.h"

bool AudioMute::provide(AudioData& request)
{
    request.adopt(silent_);
    return true;
}

bool AudioMute::read(AudioData& into)
{
    into.silence();
    return true;
}

void AudioMute::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    silent_.alloc(blockSize, 2);
    silent_.frames = blockSize;
    silent_.silence();
}
