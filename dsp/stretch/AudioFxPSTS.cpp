#include "dsp/stretch/AudioFxPSTS.h"

#include "dsp/stretch/nvEfxImplPstsPoly.h"

#include <algorithm>

int32_t AudioFxPSTSSource::read(float** channels, int64_t position, int32_t count)
{
    AudioData block;
    block.channel[0] = channels[0];
    block.channel[1] = channels[1];
    block.channels = channels[1] != nullptr ? 2 : 1;
    block.frames = count;
    block.position = position;
    if (upstream_ == nullptr || !upstream_->read(block))
    {
        // Nothing delivered: the planes must not keep the last pull's frames.
        block.silence();
    }
    return count;
}

AudioFxPSTS::AudioFxPSTS() : feed_(std::make_unique<AudioFxPSTSSource>()) {}

AudioFxPSTS::~AudioFxPSTS() = default;

void AudioFxPSTS::setSource(AudioSource* upstream)
{
    upstream_ = upstream;
    feed_->setSource(upstream);
}

void AudioFxPSTS::setStretch(float stretch)
{
    if (effect_ != nullptr)
    {
        effect_->setStretch(stretch);
    }
}

void AudioFxPSTS::setPitch(float factor)
{
    if (effect_ != nullptr)
    {
        effect_->setPitch(factor);
    }
}

void AudioFxPSTS::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    effect_.reset();
    auto effect = std::make_unique<nvEfxPstsPoly>();
    effect->createPsts(feed_.get());
    effect->setParameter(nvEfxImplPstsPoly::kInChannels, 2.0f);
    effect->setParameter(nvEfxImplPstsPoly::kOutChannels, 2.0f);
    effect->setParameter(nvEfxImplPstsPoly::kSampleRate, static_cast<float>(sampleRate));
    output_.alloc(blockSize, 2);
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    effect->initialise();
    effect_ = std::move(effect);
}

bool AudioFxPSTS::read(AudioData& into)
{
    if (effect_ == nullptr || into.channels < 2 || into.channel[0] == nullptr || into.channel[1] == nullptr ||
        into.frames <= 0)
    {
        return false;
    }
    effect_->processBlock(into.channel, into.position, static_cast<int32_t>(into.frames));
    return true;
}

bool AudioFxPSTS::provide(AudioData& request)
{
    if (effect_ == nullptr || request.frames <= 0 || request.frames > output_.capacity())
    {
        return false;
    }
    output_.channels = 2;
    output_.frames = request.frames;
    output_.position = request.position;
    effect_->processBlock(output_.channel, output_.position, static_cast<int32_t>(output_.frames));
    request.adopt(output_);
    return true;
}
