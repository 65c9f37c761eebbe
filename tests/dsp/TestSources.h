#pragma once

#include "audiofiles/AudioFileLoaded.h"
#include "dsp/RandomAccessPCM.h"

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace dsptest
{

/** A mono signal held in memory, read as a RandomAccessPCM; counts the frames asked for outside it. */
class MemorySource : public dsp::RandomAccessPCM
{
public:
    MemorySource(std::vector<float> samples, float rate) : samples_(std::move(samples)), rate_(rate) {}

    void seek(int32_t position) override { position_ = position; }

    int32_t read(float* destination, int32_t count) override
    {
        for (int32_t j = 0; j < count; ++j)
        {
            const int64_t i = position_ + j;
            if (i < 0 || i >= static_cast<int64_t>(samples_.size()))
            {
                destination[j] = 0.0f;
                ++framesOutside_;
            }
            else
                destination[j] = samples_[static_cast<std::size_t>(i)];
        }
        position_ += count;
        return count;
    }

    int32_t length() override { return static_cast<int32_t>(samples_.size()); }
    float rate() override { return rate_; }

    int64_t framesOutside() const { return framesOutside_; }

private:
    std::vector<float> samples_;
    float rate_;
    int64_t position_ = 0;
    int64_t framesOutside_ = 0;
};

/** Uniform noise within +-amplitude, the same for the same seed. */
inline std::vector<float> noise(std::size_t n, unsigned seed, float amplitude = 1.0f)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-amplitude, amplitude);
    std::vector<float> v(n);
    for (float& x : v)
        x = dist(rng);
    return v;
}

inline std::vector<float> sine(double hz, double rate, int frames, double amplitude = 0.5, double phase = 0.0)
{
    std::vector<float> v(static_cast<std::size_t>(frames));
    for (int i = 0; i < frames; ++i)
        v[static_cast<std::size_t>(i)] =
            static_cast<float>(amplitude * std::sin(2.0 * M_PI * hz * i / rate + phase));
    return v;
}

/** A sine in memory at a stated rate, 0.5 on the left and 0.25 on the right: the loaded-file reader. */
class RatedSound : public AudioFileLoaded
{
public:
    RatedSound(int32_t rate, int32_t channels, int64_t frames, double hz) : rate_(rate)
    {
        AudioBuffer b;
        b.alloc(frames, channels);
        b.frames = frames;
        for (int32_t c = 0; c < channels; ++c)
            for (int64_t i = 0; i < frames; ++i)
                b.channel[c][i] =
                    static_cast<float>((c == 0 ? 0.5 : 0.25) * std::sin(2.0 * M_PI * hz * i / rate));
        loadFrom(b);
    }
    int32_t sampleRate() const override { return rate_; }

private:
    int32_t rate_;
};

} // namespace dsptest
