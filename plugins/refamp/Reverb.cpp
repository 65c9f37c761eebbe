#include "plugins/refamp/Reverb.h"

#include <algorithm>
#include <cmath>

namespace refamp
{

void Reverb::prepare(double rate)
{
    // Mutually prime-ish lengths, so that the echoes don't line up into a flutter.
    const double milliseconds[kLines] = {23.7, 31.3, 37.9, 44.1};
    const double decaySeconds = 0.7;
    for (int i = 0; i < kLines; ++i)
    {
        lengths_[i] = std::max(1, static_cast<int>(std::lround(milliseconds[i] * 0.001 * rate)));
        lines_[i].assign(static_cast<std::size_t>(lengths_[i]), 0.0f);
        // Each pass through a line loses its share of 60 dB over the decay time.
        feedback_[i] = static_cast<float>(std::pow(10.0, -3.0 * lengths_[i] / (decaySeconds * rate)));
    }
    // Damping: a one-pole low-pass near 6 kHz in each line.
    dampCoefficient_ = static_cast<float>(std::exp(-2.0 * 3.14159265358979 * 6000.0 / rate));
    reset();
}

void Reverb::reset()
{
    for (int i = 0; i < kLines; ++i)
    {
        std::fill(lines_[i].begin(), lines_[i].end(), 0.0f);
        positions_[i] = 0;
        damping_[i] = 0.0f;
    }
}

void Reverb::process(float* left, float* right, int frames, float mix)
{
    if (lengths_[0] == 0)
    {
        return;
    }
    for (int n = 0; n < frames; ++n)
    {
        float out[kLines];
        float sum = 0.0f;
        for (int i = 0; i < kLines; ++i)
        {
            const float delayed = lines_[i][static_cast<std::size_t>(positions_[i])];
            damping_[i] = delayed + dampCoefficient_ * (damping_[i] - delayed);
            out[i] = damping_[i];
            sum += out[i];
        }
        const float input = 0.25f * (left[n] + right[n]);
        const float householder = 0.5f * sum; // (I - 2/N 11^T) with N = 4
        for (int i = 0; i < kLines; ++i)
        {
            auto& line = lines_[i];
            line[static_cast<std::size_t>(positions_[i])] = input + feedback_[i] * (out[i] - householder);
            if (++positions_[i] == lengths_[i])
            {
                positions_[i] = 0;
            }
        }
        left[n] += mix * (out[0] + out[2]);
        right[n] += mix * (out[1] + out[3]);
    }
}

} // namespace refamp
