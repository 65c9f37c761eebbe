#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

/** Measures of a test signal: its level, the pitch heard in it, the strength of one frequency. */
namespace testsignal
{

/** The largest magnitude of x[0, n). */
inline double peak(const float* x, int64_t n)
{
    double top = 0.0;
    for (int64_t i = 0; i < n; ++i)
    {
        top = std::max(top, static_cast<double>(std::fabs(x[i])));
    }
    return top;
}

/** Upward zero crossings, linearly interpolated, in fractional frames. */
inline std::vector<double> upwardCrossings(const float* x, int64_t n)
{
    std::vector<double> c;
    for (int64_t i = 1; i < n; ++i)
    {
        if (x[i - 1] < 0.0f && x[i] >= 0.0f)
        {
            c.push_back(static_cast<double>(i - 1) + x[i - 1] / (x[i - 1] - x[i]));
        }
    }
    return c;
}

/**
 * The pitch of a tone as heard: the median over its periods of rate / period length. Grains that are
 * not phase-aligned put a phase step at each crossfade; the median looks past those few periods.
 */
inline double medianPeriodFrequency(const float* x, int64_t n, double rate)
{
    const std::vector<double> c = upwardCrossings(x, n);
    std::vector<double> f;
    for (size_t i = 1; i < c.size(); ++i)
    {
        f.push_back(rate / (c[i] - c[i - 1]));
    }
    if (f.empty())
    {
        return 0.0;
    }
    std::nth_element(f.begin(), f.begin() + static_cast<std::ptrdiff_t>(f.size() / 2), f.end());
    return f[f.size() / 2];
}

/** The mean frequency: crossings counted over the whole stretch, phase steps included. */
inline double meanFrequency(const float* x, int64_t n, double rate)
{
    const std::vector<double> c = upwardCrossings(x, n);
    if (c.size() < 2)
    {
        return 0.0;
    }
    return static_cast<double>(c.size() - 1) * rate / (c.back() - c.front());
}

/**
 * The amplitude of the component at hz in x[0, n), sampled at rate, whose first frame is frame
 * `first` of the signal: a projection under a Hann window, so that a strong tone a few hundred hertz
 * away doesn't leak into a weak one.
 */
inline double amplitudeAt(const float* x, int64_t n, double hz, double rate, int64_t first = 0)
{
    double s = 0.0;
    double c = 0.0;
    double weight = 0.0;
    for (int64_t i = 0; i < n; ++i)
    {
        const double w =
            0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n));
        const double phase = 2.0 * std::numbers::pi * hz * static_cast<double>(first + i) / rate;
        s += w * x[i] * std::sin(phase);
        c += w * x[i] * std::cos(phase);
        weight += w;
    }
    return 2.0 * std::hypot(s, c) / weight;
}

} // namespace testsignal
