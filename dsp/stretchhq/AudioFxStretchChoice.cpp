#include "dsp/stretchhq/AudioFxStretchChoice.h"

#include <cmath>

namespace
{

bool nearOne(float v)
{
    return std::fabs(static_cast<double>(v) - 1.0) <= 1e-4;
}

} // namespace

void AudioFxStretchChoice::setSource(AudioSource* upstream)
{
    standard_.setSource(upstream);
    high_.setSource(upstream);
}

void AudioFxStretchChoice::setStretch(float stretch)
{
    standard_.setStretch(stretch);
    high_.setStretch(stretch);
    stretch_.store(stretch, std::memory_order_relaxed);
    unity_.store(nearOne(stretch) && nearOne(pitch_.load(std::memory_order_relaxed)),
                 std::memory_order_relaxed);
}

void AudioFxStretchChoice::setPitch(float factor)
{
    standard_.setPitch(factor);
    high_.setPitch(factor);
    pitch_.store(factor, std::memory_order_relaxed);
    unity_.store(nearOne(factor) && nearOne(stretch_.load(std::memory_order_relaxed)),
                 std::memory_order_relaxed);
}

void AudioFxStretchChoice::setQuality(StretchQuality quality)
{
    if (quality == StretchQuality::high && sampleRate_ != 0 && !high_.isPrepared())
    {
        // Not in use by the audio thread: it reaches this engine only after the store below.
        high_.prepare(sampleRate_, blockSize_);
        high_.setStretch(stretch_.load(std::memory_order_relaxed));
        high_.setPitch(pitch_.load(std::memory_order_relaxed));
    }
    requested_.store(static_cast<int32_t>(quality), std::memory_order_release);
}

void AudioFxStretchChoice::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    standard_.prepare(sampleRate, blockSize);
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    if (quality() == StretchQuality::high)
    {
        high_.prepare(sampleRate, blockSize);
    }
    else
    {
        high_.release();
        playing_.store(static_cast<int32_t>(StretchQuality::standard), std::memory_order_relaxed);
    }
    stretch_.store(1.0f, std::memory_order_relaxed);
    pitch_.store(1.0f, std::memory_order_relaxed);
    unity_.store(true, std::memory_order_relaxed);
    expected_ = -1;
    standardEnd_ = -1;
}

AudioSource& AudioFxStretchChoice::engineFor(int64_t position, int64_t frames)
{
    const int32_t requested = requested_.load(std::memory_order_acquire);
    int32_t playing = playing_.load(std::memory_order_relaxed);
    if (requested != playing && (position != expected_ || unity_.load(std::memory_order_relaxed)))
    {
        playing = requested;
        playing_.store(playing, std::memory_order_relaxed);
        if (playing == static_cast<int32_t>(StretchQuality::high))
        {
            high_.restart();
        }
        else if (position == standardEnd_)
        {
            // The standard engine would take this for the continuation of what it played before the
            // switch; one frame just before makes it restart its grains here instead.
            float l = 0.0f;
            float r = 0.0f;
            AudioData one;
            one.channel[0] = &l;
            one.channel[1] = &r;
            one.channels = 2;
            one.frames = 1;
            one.position = position - 1;
            standard_.read(one);
        }
    }
    expected_ = position + frames;
    // Speeds beyond the high-quality engine's range are left to the standard one; a change of speed
    // restarts either engine, so this never cuts into a running stream.
    if (playing == static_cast<int32_t>(StretchQuality::high) &&
        AudioFxHQStretch::covers(stretch_.load(std::memory_order_relaxed)))
    {
        return high_;
    }
    standardEnd_ = position + frames;
    return standard_;
}

bool AudioFxStretchChoice::read(AudioData& into)
{
    return engineFor(into.position, into.frames).read(into);
}

bool AudioFxStretchChoice::provide(AudioData& request)
{
    return engineFor(request.position, request.frames).provide(request);
}
