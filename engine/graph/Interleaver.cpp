#include "engine/graph/Interleaver.h"

#include <algorithm>
#include <new>

Interleaver::~Interleaver()
{
    delete[] store_;
}

bool Interleaver::reserve(int64_t frames, int32_t channels)
{
    const uint64_t needed =
        (frames > 0 && channels > 0) ? static_cast<uint64_t>(frames) * static_cast<uint64_t>(channels) : 0;
    if (needed <= capacity_)
    {
        return true;
    }
    delete[] store_;
    store_ = new (std::nothrow) float[needed]();
    if (store_ == nullptr)
    {
        capacity_ = 0;
        channels_ = 0;
        return false;
    }
    capacity_ = needed;
    channels_ = static_cast<uint32_t>(channels);
    return true;
}

int64_t Interleaver::framesThatFit(int64_t frames) const
{
    if (frames <= 0 || channels_ == 0 || store_ == nullptr)
    {
        return 0;
    }
    return std::min<int64_t>(frames, static_cast<int64_t>(capacity_ / channels_));
}

void Interleaver::interleave(const AudioData& src)
{
    spare_ = src.spare;
    const int64_t frames = framesThatFit(src.frames);
    float* slot = store_;
    for (int64_t i = 0; i < frames; ++i)
    {
        for (uint32_t c = 0; c < channels_; ++c, ++slot)
        {
            if (c < 2 && static_cast<int32_t>(c) < src.channels && src.channel[c] != nullptr)
            {
                *slot = src.channel[c][i];
            }
        }
    }
}

void Interleaver::deinterleave(AudioData& dst) const
{
    const int64_t frames = framesThatFit(dst.frames);
    const float* slot = store_;
    for (int64_t i = 0; i < frames; ++i)
    {
        for (uint32_t c = 0; c < channels_; ++c, ++slot)
        {
            if (c < 2 && static_cast<int32_t>(c) < dst.channels && dst.channel[c] != nullptr)
            {
                dst.channel[c][i] = *slot;
            }
        }
    }
}
