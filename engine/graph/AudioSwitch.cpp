#include "engine/graph/AudioSwitch.h"

bool AudioSwitch::provide(AudioData& request)
{
    AudioSource* source = selected();
    return source != nullptr && source->provide(request);
}

bool AudioSwitch::read(AudioData& into)
{
    AudioSource* source = selected();
    return source != nullptr && source->read(into);
}

int32_t AudioSwitch::channels()
{
    AudioSource* source = selected();
    return source != nullptr ? source->channels() : 2;
}

void AudioSwitch::prepare(uint32_t, uint32_t) {}

void AudioSwitchFeed::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    drain_.alloc(blockSize, 2);
}

AudioSource* AudioSwitchFeed::beforeForward(const AudioData& request)
{
    // One reading of the selection serves the whole call.
    const bool firstSelected = isFirstSelected();
    if (firstSelected)
    {
        draining_ = true;
        holdFrames_ = static_cast<int32_t>(sampleRate_ * kHoldSeconds);
    }
    else if (draining_)
    {
        drainStep(request);
    }
    return firstSelected ? first_ : second_;
}

void AudioSwitchFeed::drainStep(const AudioData& request)
{
    drain_.adoptRange(request);
    bool heard = false;
    if (first_ != nullptr && drain_.channels == 2 && request.frames <= drain_.capacity())
    {
        if (first_->read(drain_))
        {
            heard = drain_.peak() > kQuietPeak;
        }
    }
    if (heard)
    {
        holdFrames_ = static_cast<int32_t>(sampleRate_ * kHoldSeconds);
    }
    holdFrames_ -= static_cast<int32_t>(request.frames);
    if (holdFrames_ < 0)
    {
        draining_ = false;
    }
}

bool AudioSwitchFeed::provide(AudioData& request)
{
    AudioSource* source = beforeForward(request);
    return source != nullptr && source->provide(request);
}

bool AudioSwitchFeed::read(AudioData& into)
{
    AudioSource* source = beforeForward(into);
    return source != nullptr && source->read(into);
}
