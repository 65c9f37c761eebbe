#pragma once

#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <numbers>

namespace stretchtest
{

/**
 * A node that computes its samples from the timeline position, like a file that is already in
 * memory: sample at position p is f(p, channel), and silence outside 0 .. length.
 */
class SignalNode final : public AudioSource
{
public:
    SignalNode(int64_t length, std::function<float(int64_t, int32_t)> f) : length_(length), f_(std::move(f))
    {
    }

    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        for (int32_t c = 0; c < std::min(into.channels, 2); ++c)
        {
            for (int64_t i = 0; i < into.frames; ++i)
            {
                const int64_t p = into.position + i;
                into.channel[c][i] = p >= 0 && p < length_ ? f_(p, c) : 0.0f;
            }
        }
        return true;
    }
    void prepare(uint32_t, uint32_t) override {}

private:
    int64_t length_;
    std::function<float(int64_t, int32_t)> f_;
};

inline std::function<float(int64_t, int32_t)> sine(double frequency, double rate, float level = 0.5f)
{
    return [=](int64_t i, int32_t)
    {
        return level * static_cast<float>(
                           std::sin(2.0 * std::numbers::pi * frequency * static_cast<double>(i) / rate));
    };
}

} // namespace stretchtest
