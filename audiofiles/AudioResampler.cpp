#include "audiofiles/AudioResampler.h"

#include <algorithm>
#include <cmath>

AudioResampler::~AudioResampler() = default;

bool AudioResampler::provide(AudioData&)
{
    return false;
}

AudioResampler_aliased::~AudioResampler_aliased() = default;

void AudioResampler_aliased::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    outputRate_ = sampleRate;
    blockSize_ = blockSize;
    sourceChanged();
}

void AudioResampler_aliased::sourceChanged()
{
    if (!provider_)
        return;
    channels_ = std::clamp(provider_->channels(), 0, 2);
    inputRate_ = provider_->sampleRate();
    // Twice a block, or more when the input runs faster than twice the output: one block of output
    // spans block * input / output input frames.
    int64_t frames = 2 * static_cast<int64_t>(blockSize_);
    if (outputRate_ > 0 && inputRate_ > 0)
    {
        const double span = static_cast<double>(blockSize_) * inputRate_ / outputRate_;
        frames = std::max<int64_t>(frames, static_cast<int64_t>(std::ceil(span)) + 2);
    }
    input_.alloc(frames, channels_);
}

int64_t AudioResampler_aliased::frames()
{
    return provider_ ? static_cast<int64_t>(provider_->frames()) : 0;
}

bool AudioResampler_aliased::read(AudioData& into)
{
    float* output[2] = {into.channel[0], into.channels > 1 ? into.channel[1] : nullptr};
    return process(into.position, into.frames, output);
}

bool AudioResampler_aliased::process(int64_t position, int64_t count, float* const* output)
{
    if (!provider_ || outputRate_ == 0 || inputRate_ <= 0 || count <= 0 || position < 0)
        return true;
    const double ratio = static_cast<double>(inputRate_) / outputRate_;
    const auto first = static_cast<int64_t>(static_cast<double>(position) * ratio);
    const auto last = static_cast<int64_t>(static_cast<double>(position + count) * ratio);
    const int64_t span = last - first;
    if (span <= 0 || span > input_.capacity())
        return true;
    // Only the part that lies in the file is read: a block across the end gives what exists and
    // then silence, whatever the reader does with an overrun.
    const auto length = static_cast<int64_t>(provider_->frames());
    const int64_t inFile = std::clamp<int64_t>(length - first, 0, span);
    AudioData view;
    view.adopt(input_);
    view.channels = channels_;
    view.position = first;
    view.frames = span;
    view.silence();
    if (inFile > 0)
    {
        view.frames = inFile;
        if (!provider_->read(view))
            return true;
    }
    for (int32_t c = 0; c < channels_; ++c)
    {
        float* out = output[c];
        const float* in = input_.channel[c];
        if (!out || !in)
            continue;
        for (int64_t i = 0; i < count; ++i)
        {
            const auto index = std::min(static_cast<int64_t>(static_cast<double>(i) * ratio), span - 1);
            out[i] = in[index];
        }
    }
    return true;
}
