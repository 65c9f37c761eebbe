#pragma once

#include "dsp/stretch/IRAPCMSource.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <numbers>
#include <vector>

namespace stretchtest
{

/**
 * A random-access source computed from a function of the frame index, with every fetch recorded.
 * Frames before 0 and past the length come out as silence, as a file's would.
 */
class FunctionSource : public dsp::Stretch::IRAPCMSource
{
public:
    struct Fetch
    {
        int64_t first;
        int64_t last;
    };

    FunctionSource(int32_t rate, int32_t channels, int64_t length, std::function<float(int64_t, int32_t)> f)
        : rate_(rate), channels_(channels), length_(length), f_(std::move(f))
    {
        fetches.reserve(1 << 16);
    }

    int64_t length() override { return length_; }
    int32_t rate() override { return rate_; }
    int32_t channels() override { return channels_; }
    int32_t fetch(float* destination, int64_t first, int64_t last) override
    {
        if (fetches.size() < fetches.capacity())
        {
            fetches.push_back({first, last});
        }
        for (int64_t i = first; i <= last; ++i)
        {
            for (int32_t c = 0; c < channels_; ++c)
            {
                const bool inside = i >= 0 && i < length_;
                destination[(i - first) * channels_ + c] = inside ? f_(i, c) : 0.0f;
            }
        }
        return 7;
    }

    std::vector<Fetch> fetches;

private:
    int32_t rate_;
    int32_t channels_;
    int64_t length_;
    std::function<float(int64_t, int32_t)> f_;
};

/** Sample i has value i (channel 0) and -i (channel 1): any offset, seek or loop error shows exactly. */
inline float staircase(int64_t i, int32_t channel)
{
    return channel == 0 ? static_cast<float>(i) : -static_cast<float>(i);
}

/**
 * The frequency of the strongest component between lo and hi Hz, by a scan of the Hann-windowed
 * spectrum refined to 0.01 Hz.
 */
inline double dominantFrequency(const float* x, int64_t n, double rate, double lo, double hi)
{
    std::vector<double> w(static_cast<size_t>(n));
    for (int64_t i = 0; i < n; ++i)
    {
        w[static_cast<size_t>(i)] =
            x[i] * (0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / n));
    }
    auto magnitude = [&](double f)
    {
        double re = 0.0;
        double im = 0.0;
        const double dphi = 2.0 * std::numbers::pi * f / rate;
        // Rotating phasor; accurate enough over a few hundred thousand samples in double.
        double c = 1.0;
        double s = 0.0;
        const double cd = std::cos(dphi);
        const double sd = std::sin(dphi);
        for (int64_t i = 0; i < n; ++i)
        {
            re += w[static_cast<size_t>(i)] * c;
            im -= w[static_cast<size_t>(i)] * s;
            const double nc = c * cd - s * sd;
            s = s * cd + c * sd;
            c = nc;
        }
        return re * re + im * im;
    };
    double best = lo;
    double bestMag = -1.0;
    for (double step : {1.0, 0.1, 0.01})
    {
        const double from = bestMag < 0.0 ? lo : best - 10.0 * step;
        const double to = bestMag < 0.0 ? hi : best + 10.0 * step;
        bestMag = -1.0;
        for (double f = from; f <= to; f += step)
        {
            const double m = magnitude(f);
            if (m > bestMag)
            {
                bestMag = m;
                best = f;
            }
        }
    }
    return best;
}

} // namespace stretchtest
