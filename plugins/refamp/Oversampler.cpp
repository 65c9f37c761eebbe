#include "plugins/refamp/Oversampler.h"

#include "plugins/refamp/Dsp.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace refamp
{

namespace
{

/** Zeroth-order modified Bessel function of the first kind, by its series. */
double besselI0(double x)
{
    double sum = 1.0;
    double term = 1.0;
    for (int k = 1; k < 50; ++k)
    {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
        if (term < 1e-12 * sum)
        {
            break;
        }
    }
    return sum;
}

} // namespace

void Oversampler::prepare(int maxFrames)
{
    maxFrames_ = maxFrames;
    taps_.assign(kTaps, 0.0f);
    // Cut-off at the base rate's Nyquist frequency, a quarter of the high rate's. Kaiser beta 9
    // puts the side lobes near -90 dB with a transition about 0.09 of the base rate wide.
    const double cutoff = 0.5 / kFactor;
    const double beta = 9.0;
    const double centre = (kTaps - 1) / 2.0;
    double sum = 0.0;
    std::vector<double> h(kTaps);
    for (int i = 0; i < kTaps; ++i)
    {
        const double t = i - centre;
        const double sinc = t == 0.0 ? 2.0 * cutoff : std::sin(2.0 * kPi * cutoff * t) / (kPi * t);
        const double r = t / centre;
        const double window = besselI0(beta * std::sqrt(std::max(0.0, 1.0 - r * r))) / besselI0(beta);
        h[static_cast<std::size_t>(i)] = sinc * window;
        sum += h[static_cast<std::size_t>(i)];
    }
    for (int i = 0; i < kTaps; ++i)
    {
        taps_[static_cast<std::size_t>(i)] = static_cast<float>(h[static_cast<std::size_t>(i)] / sum);
    }
    // Phase p of the interpolator produces out[4n + p] = 4 * sum_t h[4t + p] x[n - t]; stored
    // reversed so that it runs forward over the history.
    phases_.assign(kTaps, 0.0f);
    for (int p = 0; p < kFactor; ++p)
    {
        for (int t = 0; t < kTapsPerPhase; ++t)
        {
            phases_[static_cast<std::size_t>(p * kTapsPerPhase + (kTapsPerPhase - 1 - t))] =
                kFactor * taps_[static_cast<std::size_t>(kFactor * t + p)];
        }
    }
    reversed_.assign(taps_.rbegin(), taps_.rend());
    upHistory_.assign(static_cast<std::size_t>(kTapsPerPhase - 1 + maxFrames), 0.0f);
    downHistory_.assign(static_cast<std::size_t>(kTaps - 1 + kFactor * maxFrames), 0.0f);
}

void Oversampler::reset()
{
    std::fill(upHistory_.begin(), upHistory_.end(), 0.0f);
    std::fill(downHistory_.begin(), downHistory_.end(), 0.0f);
}

void Oversampler::up(const float* in, float* out, int frames)
{
    constexpr int keep = kTapsPerPhase - 1;
    float* history = upHistory_.data();
    std::memcpy(history + keep, in, sizeof(float) * static_cast<std::size_t>(frames));
    for (int n = 0; n < frames; ++n)
    {
        const float* x = history + n; // x[0 .. keep] ends with the present sample
        for (int p = 0; p < kFactor; ++p)
        {
            const float* h = phases_.data() + p * kTapsPerPhase;
            float acc = 0.0f;
            for (int t = 0; t < kTapsPerPhase; ++t)
            {
                acc += h[t] * x[t];
            }
            out[kFactor * n + p] = acc;
        }
    }
    std::memmove(history, history + frames, sizeof(float) * keep);
}

void Oversampler::down(const float* in, float* out, int frames)
{
    constexpr int keep = kTaps - 1;
    float* history = downHistory_.data();
    const int count = kFactor * frames;
    std::memcpy(history + keep, in, sizeof(float) * static_cast<std::size_t>(count));
    for (int n = 0; n < frames; ++n)
    {
        // The newest high-rate sample of base frame n is index kFactor * n + kFactor - 1.
        const float* x = history + kFactor * n + kFactor - 1 + keep - (kTaps - 1);
        float acc = 0.0f;
        for (int k = 0; k < kTaps; ++k)
        {
            acc += reversed_[static_cast<std::size_t>(k)] * x[k];
        }
        out[n] = acc;
    }
    std::memmove(history, history + count, sizeof(float) * keep);
}

} // namespace refamp
