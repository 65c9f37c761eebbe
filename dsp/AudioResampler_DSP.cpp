#include "dsp/AudioResampler_DSP.h"

#include "audiofiles/AudioPreview.h"

#include <algorithm>
#include <cstring>

void AudioResampler_DSP::RAwrapperForAudioProvider::setProvider(AudioFile* provider, int32_t channel,
                                                                int32_t providerChannels)
{
    provider_ = provider;
    channel_ = channel;
    providerChannels_ = providerChannels;
    position_ = 0;
}

int32_t AudioResampler_DSP::RAwrapperForAudioProvider::read(float* destination, int32_t count)
{
    if (count <= 0)
        return 0;
    // Only the frames that lie in the file are asked for. The low-pass stage reads ahead of its
    // output, so near the end its reads run past the file, and a reader may refuse such a block
    // as a whole: everything outside the file is silence instead.
    const int64_t start = position_;
    const int64_t first = std::min<int64_t>(std::max<int64_t>(start, 0), start + count);
    const int64_t last = std::clamp<int64_t>(length(), first, start + count);
    int64_t delivered = 0;
    if (provider_ != nullptr && last > first)
    {
        AudioData request;
        request.frames = last - first;
        request.position = first;
        request.channels = providerChannels_;
        if (provider_->provide(request) && channel_ < request.channels &&
            request.channel[channel_] != nullptr)
        {
            delivered = std::clamp<int64_t>(request.frames, 0, last - first);
            std::memcpy(destination + (first - start), request.channel[channel_],
                        static_cast<std::size_t>(delivered) * sizeof(float));
        }
    }
    // Before the file, past its end, and whatever a failed or short request didn't give.
    std::fill(destination, destination + (first - start), 0.0f);
    std::fill(destination + (first - start) + delivered, destination + count, 0.0f);
    position_ += count;
    return count;
}

int32_t AudioResampler_DSP::RAwrapperForAudioProvider::length()
{
    if (provider_ == nullptr)
        return 0;
    return static_cast<int32_t>(std::min<uint64_t>(provider_->frames(), INT32_MAX));
}

float AudioResampler_DSP::RAwrapperForAudioProvider::rate()
{
    return provider_ != nullptr ? static_cast<float>(provider_->sampleRate()) : 0.0f;
}

AudioResampler_DSP::~AudioResampler_DSP() = default;

void AudioResampler_DSP::prepare(uint32_t sampleRate, uint32_t)
{
    outputRate_ = static_cast<float>(sampleRate);
}

void AudioResampler_DSP::sourceChanged()
{
    ready_ = false;
    if (provider_ == nullptr || provider_->frames() == 0 || provider_->sampleRate() <= 0)
    {
        refusal_ = provider_ == nullptr ? "no file was given" : "the file holds no audio";
        framesOut_ = 0;
        return;
    }
    const auto providerFrames = static_cast<double>(provider_->frames());
    framesOut_ = static_cast<int64_t>(providerFrames * outputRate_ / provider_->sampleRate());
    inputRate_ = static_cast<float>(provider_->sampleRate());
    channels_ = std::clamp(provider_->channels(), 1, 2);

    resamplers_.clear();
    wrappers_.assign(static_cast<std::size_t>(channels_), RAwrapperForAudioProvider{});
    for (int32_t c = 0; c < channels_; ++c)
    {
        resamplers_.push_back(std::make_unique<dsp::HiQualityResampler>());
        wrappers_[static_cast<std::size_t>(c)].setProvider(provider_, c, channels_);
        resamplers_.back()->setSource(&wrappers_[static_cast<std::size_t>(c)]);
    }
    setOutputRate(static_cast<float>(static_cast<int64_t>(outputRate_)));
    // A ratio the interpolator refuses (too many phases) leaves the node silent and not ready.
    ready_ = designed_;
    refusal_ = dsp::SincInterpolator::refusal(inputRate_, outputRate_);
    if (refusal_ == nullptr)
        refusal_ = "the filters could not be built";
}

void AudioResampler_DSP::setOutputRate(float rate)
{
    outputRate_ = rate;
    designed_ = !resamplers_.empty();
    for (auto& resampler : resamplers_)
    {
        designed_ = resampler->setOutputRate(rate) && designed_;
        resampler->seek(0);
    }
    nextPosition_ = 0;
}

bool AudioResampler_DSP::read(AudioData& into)
{
    if (!ready_)
        return false;
    if (outputRate_ == inputRate_)
        return provider_->read(into);
    return process(into.position, into.frames, into.channel);
}

bool AudioResampler_DSP::process(int64_t position, int64_t count, float* const* channels)
{
    if (position != nextPosition_)
    {
        for (auto& resampler : resamplers_)
            resampler->seek(static_cast<int32_t>(position));
        nextPosition_ = static_cast<int32_t>(position);
    }
    for (std::size_t c = 0; c < resamplers_.size(); ++c)
        if (channels[c] != nullptr)
            resamplers_[c]->read(channels[c], static_cast<int32_t>(count));
    nextPosition_ += static_cast<int32_t>(count);
    return true;
}

AudioResamplerFactory qualityResamplerFactory()
{
    return [] { return std::make_unique<AudioResampler_DSP>(); };
}

void useQualityResamplerForPreviews()
{
    AudioPreview::setDefaultResamplerFactory(qualityResamplerFactory());
}
