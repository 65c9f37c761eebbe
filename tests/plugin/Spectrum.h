#pragma once

// Spectral measurement for the amp's tests: how far the strongest component that is no harmonic
// of the test tone (an alias) lies below the tone.

#include "plugins/refamp/Dsp.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

namespace kv3test
{

constexpr int kSpectrumSize = 65536;

struct AliasReport
{
    /** Strongest non-harmonic component below 20 kHz, dB relative to the fundamental. */
    double worstAliasDb = 0.0;
    /** Third harmonic, dB relative to the fundamental. */
    double thirdHarmonicDb = 0.0;
};

/**
 * Windows kSpectrumSize samples (four-term Blackman-Harris, side lobes below -92 dB) and compares
 * the strongest bin further than 10 bins from every harmonic of `hz` with the fundamental.
 */
inline AliasReport measureAliasing(const float* samples, double rate, double hz)
{
    using refamp::kPi;
    std::vector<std::complex<float>> data(kSpectrumSize);
    for (int i = 0; i < kSpectrumSize; ++i)
    {
        const double t = 2.0 * kPi * i / (kSpectrumSize - 1);
        const double w =
            0.35875 - 0.48829 * std::cos(t) + 0.14128 * std::cos(2 * t) - 0.01168 * std::cos(3 * t);
        data[static_cast<std::size_t>(i)] = static_cast<float>(samples[i] * w);
    }
    refamp::Fft fft;
    fft.setSize(kSpectrumSize);
    fft.forward(data.data());
    const double binHz = rate / kSpectrumSize;
    auto peakNear = [&](double f)
    {
        const int centre = static_cast<int>(std::lround(f / binHz));
        double peak = 0.0;
        for (int k = std::max(1, centre - 4); k <= centre + 4 && k < kSpectrumSize / 2; ++k)
        {
            peak = std::max(peak, double(std::abs(data[static_cast<std::size_t>(k)])));
        }
        return peak;
    };
    const double fundamental = peakNear(hz);
    AliasReport report;
    report.thirdHarmonicDb = 20.0 * std::log10(peakNear(3.0 * hz) / fundamental);
    double worst = 1e-30;
    for (int k = 5; k * binHz < 20000.0; ++k)
    {
        const double f = k * binHz;
        const double harmonic = std::round(f / hz) * hz;
        if (std::fabs(f - harmonic) / binHz <= 10.0)
        {
            continue;
        }
        worst = std::max(worst, double(std::abs(data[static_cast<std::size_t>(k)])));
    }
    report.worstAliasDb = 20.0 * std::log10(worst / fundamental);
    return report;
}

} // namespace kv3test
