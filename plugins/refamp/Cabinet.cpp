#include "plugins/refamp/Cabinet.h"

#include "plugins/refamp/Dsp.h"

#include <cmath>
#include <complex>

namespace refamp
{

std::vector<float> designCabinet(double rate)
{
    int length = static_cast<int>(std::lround(0.0213 * rate / 64.0)) * 64;
    if (length < 256)
    {
        length = 256;
    }
    Biquad stages[9];
    stages[0].setHighpass(rate, 75.0, 0.707);   // sealed box: nothing below the resonance
    stages[1].setPeak(rate, 110.0, 1.4, 5.0);   // the cabinet's resonance
    stages[2].setPeak(rate, 450.0, 1.0, -4.0);  // less box
    stages[3].setPeak(rate, 2200.0, 1.2, 4.0);  // the speaker's presence
    stages[4].setPeak(rate, 3800.0, 3.0, -6.0); // cone break-up notch
    stages[5].setPeak(rate, 5000.0, 2.0, 3.0);  // last bite before the roll-off
    stages[6].setLowpass(rate, 5500.0, 0.54);   // fourth-order roll-off, in two sections
    stages[7].setLowpass(rate, 5500.0, 1.31);
    stages[8].setLowpass(rate, 7000.0, 0.71); // and the cone's mass above that

    std::vector<double> response(static_cast<std::size_t>(length), 0.0);
    for (int n = 0; n < length; ++n)
    {
        float x = n == 0 ? 1.0f : 0.0f;
        for (auto& stage : stages)
        {
            x = stage.process(x);
        }
        response[static_cast<std::size_t>(n)] = x;
    }
    // Two reflections of the back wall, 0.6 and 1.3 ms behind, at -10 and -14 dB.
    const std::vector<double> direct = response;
    const struct
    {
        double seconds;
        double gain;
    } reflections[] = {{0.0006, std::pow(10.0, -10.0 / 20.0)}, {0.0013, -std::pow(10.0, -14.0 / 20.0)}};
    for (const auto& r : reflections)
    {
        const auto delay = static_cast<std::size_t>(std::lround(r.seconds * rate));
        for (std::size_t n = delay; n < response.size(); ++n)
        {
            response[n] += r.gain * direct[n - delay];
        }
    }
    // Fade the last quarter with half a cosine, so that the end is no step.
    const int fade = length / 4;
    for (int i = 0; i < fade; ++i)
    {
        const double w = 0.5 * (1.0 + std::cos(kPi * (i + 1) / fade));
        response[static_cast<std::size_t>(length - fade + i)] *= w;
    }
    // 0 dB at 1 kHz.
    std::complex<double> sum;
    for (int n = 0; n < length; ++n)
    {
        sum += response[static_cast<std::size_t>(n)] * std::polar(1.0, -2.0 * kPi * 1000.0 * n / rate);
    }
    const double scale = std::abs(sum) > 0.0 ? 1.0 / std::abs(sum) : 1.0;
    std::vector<float> out(static_cast<std::size_t>(length));
    for (int n = 0; n < length; ++n)
    {
        out[static_cast<std::size_t>(n)] = static_cast<float>(response[static_cast<std::size_t>(n)] * scale);
    }
    return out;
}

} // namespace refamp
