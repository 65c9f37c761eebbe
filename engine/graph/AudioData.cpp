#include "engine/graph/AudioData.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace
{

constexpr std::align_val_t kAlignment{16};

float* allocateZeroed(int64_t frames)
{
    // At least one element, so that a zero-frame buffer still has a distinct array to point at.
    const size_t count = static_cast<size_t>(std::max<int64_t>(frames, 1));
    auto* p = static_cast<float*>(::operator new[](count * sizeof(float), kAlignment, std::nothrow));
    if (p != nullptr)
    {
        std::memset(p, 0, count * sizeof(float));
    }
    return p;
}

void freeArray(float* p)
{
    if (p != nullptr)
    {
        ::operator delete[](p, kAlignment);
    }
}

// The two pointers of a duplicated mono descriptor reach the same samples; operations that are not
// idempotent must touch them once.
int32_t distinctChannels(const AudioData& d)
{
    if (d.channels >= 2 && d.channel[1] == d.channel[0])
    {
        return 1;
    }
    return std::clamp(d.channels, 0, 2);
}

int32_t validChannels(const AudioData& d)
{
    return std::clamp(d.channels, 0, 2);
}

} // namespace

void AudioData::adoptRange(const AudioData& other)
{
    frames = other.frames;
    position = other.position;
}

void AudioData::adopt(const AudioData& other)
{
    channel[0] = other.channel[0];
    channel[1] = other.channel[1];
    frames = other.frames;
    position = other.position;
    channels = other.channels;
    if (duplicateMono && channels == 1)
    {
        channels = 2;
        channel[1] = channel[0];
    }
}

void AudioData::advance(int64_t count)
{
    const int32_t n = validChannels(*this);
    for (int32_t c = 0; c < n; ++c)
    {
        if (channel[c] != nullptr)
        {
            channel[c] += count;
        }
    }
}

void AudioData::clamp()
{
    const int32_t n = distinctChannels(*this);
    for (int32_t c = 0; c < n; ++c)
    {
        float* p = channel[c];
        if (p == nullptr)
        {
            continue;
        }
        for (int64_t i = 0; i < frames; ++i)
        {
            p[i] = std::clamp(p[i], -1.0f, 1.0f);
        }
    }
}

void AudioData::copyFrom(const AudioData& src)
{
    copyRangeFrom(src, 0, src.frames);
}

void AudioData::copyRangeFrom(const AudioData& src, int64_t offset, int64_t count)
{
    if (count <= 0)
    {
        return;
    }
    const int32_t n = validChannels(*this);
    for (int32_t c = 0; c < n; ++c)
    {
        if (channel[c] == nullptr || c >= src.channels || src.channel[c] == nullptr)
        {
            continue;
        }
        const float* from = src.channel[c] + offset;
        if (from != channel[c])
        {
            // memmove: a descriptor may be copied onto an overlapping stretch of the same array.
            std::memmove(channel[c], from, static_cast<size_t>(count) * sizeof(float));
        }
    }
}

bool AudioData::available(int64_t at, int64_t wanted, int64_t& count) const
{
    if (at < position)
    {
        return false;
    }
    // The remainder is deliberately taken in 32 bits: a held stretch never approaches 2^31 frames.
    const auto remaining = static_cast<int32_t>(frames - at + position);
    if (remaining <= 0)
    {
        return false;
    }
    count = std::min<int64_t>(wanted, remaining);
    return true;
}

void AudioData::silence()
{
    if (frames <= 0)
    {
        return;
    }
    const int32_t n = distinctChannels(*this);
    for (int32_t c = 0; c < n; ++c)
    {
        if (channel[c] != nullptr)
        {
            std::memset(channel[c], 0, static_cast<size_t>(frames) * sizeof(float));
        }
    }
}

void AudioData::scale(float factor)
{
    const int32_t n = distinctChannels(*this);
    for (int32_t c = 0; c < n; ++c)
    {
        float* p = channel[c];
        if (p == nullptr)
        {
            continue;
        }
        for (int64_t i = 0; i < frames; ++i)
        {
            p[i] *= factor;
        }
    }
}

float AudioData::peak() const
{
    float result = 0.0f;
    const int32_t n = distinctChannels(*this);
    for (int32_t c = 0; c < n; ++c)
    {
        const float* p = channel[c];
        if (p == nullptr)
        {
            continue;
        }
        for (int64_t i = 0; i < frames; ++i)
        {
            result = std::max(result, std::fabs(p[i]));
        }
    }
    return result;
}

void AudioData::mixFrom(const AudioData& src, float gain, float pan)
{
    const int32_t n = validChannels(*this);
    for (int32_t c = 0; c < n; ++c)
    {
        float* to = channel[c];
        if (to == nullptr || c >= src.channels || src.channel[c] == nullptr)
        {
            continue;
        }
        const float* from = src.channel[c];
        // One factor per channel, rounded to float before the loop.
        const auto factor = static_cast<float>(gain * (c == 0 ? 1.0f - pan : 1.0f + pan));
        for (int64_t i = 0; i < frames; ++i)
        {
            to[i] += from[i] * factor;
        }
    }
}

AudioBuffer::~AudioBuffer()
{
    release();
    freeStore();
}

void AudioBuffer::freeStore()
{
    freeArray(store_[0]);
    freeArray(store_[1]);
    store_[0] = nullptr;
    store_[1] = nullptr;
}

void AudioBuffer::alloc(int64_t count, int32_t channelCount)
{
    if (count <= capacity_ && channelCount == channels)
    {
        // Deliberate: a smaller request keeps the arrays and their samples but lowers capacity.
        capacity_ = count;
        spare = false;
        for (int32_t c = 0; c < 2; ++c)
        {
            channel[c] = store_[c];
        }
        return;
    }
    release();
    // release does nothing at capacity 0, yet arrays of a zero-capacity buffer may still be held.
    freeStore();
    capacity_ = std::max<int64_t>(count, 0);
    channels = std::clamp(channelCount, 0, 2);
    spare = false;
    for (int32_t c = 0; c < 2; ++c)
    {
        if (c < channels)
        {
            store_[c] = allocateZeroed(capacity_);
            if (store_[c] == nullptr)
            {
                // Out of memory: present a buffer with no channels rather than a null channel.
                freeStore();
                channel[0] = channel[1] = nullptr;
                channels = 0;
                capacity_ = 0;
                return;
            }
        }
        channel[c] = store_[c];
    }
}

void AudioBuffer::release()
{
    if (capacity_ == 0)
    {
        return;
    }
    freeStore();
    channel[0] = channel[1] = nullptr;
    capacity_ = 0;
    channels = 0;
}

void AudioBuffer::fillFromInt16(const int16_t* samples, int64_t count)
{
    alloc(count, 2);
    if (channels < 2 || samples == nullptr)
    {
        frames = 0;
        return;
    }
    frames = count;
    for (int64_t i = 0; i < count; ++i)
    {
        channel[0][i] = static_cast<float>(samples[2 * i] / 32767.0);
        channel[1][i] = static_cast<float>(samples[2 * i + 1] / 32767.0);
    }
}
