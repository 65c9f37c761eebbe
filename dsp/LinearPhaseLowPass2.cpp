#include "dsp/LinearPhaseLowPass2.h"

#include <cmath>
#include <numbers>
#include <vector>

namespace dsp
{

LinearPhaseLowPass2::~LinearPhaseLowPass2() = default;

void LinearPhaseLowPass2::designTaps(int taps, double cutoff, double sampleRate, double* out)
{
    const double pi = std::numbers::pi;
    const double w = pi * cutoff / (sampleRate / 2.0);
    for (int i = 0; i < taps; ++i)
    {
        const int k = i - taps / 2;
        const double value = k == 0 ? cutoff / (sampleRate / 2.0) : std::sin(w * k) / (pi * k);
        out[i] = value * (0.5 + 0.5 * std::cos(2.0 * pi * k / taps));
    }
}

bool LinearPhaseLowPass2::design(double cutoff)
{
    cutoff_ = cutoff;
    std::vector<double> exact(static_cast<std::size_t>(taps_));
    designTaps(taps_, cutoff_, sampleRate_, exact.data());
    std::vector<float> h(exact.begin(), exact.end());

    adapter_.reset();
    spectrum_ = std::make_unique<FilterSpectrum>(segment_, h.data(), taps_);
    adapter_ = std::make_unique<Domain::Adapters::AnySizeAdapter2>(segment_, 0);
    if (!adapter_->attach(*spectrum_))
        return false;
    adapter_->reset();
    return true;
}

int LinearPhaseLowPass2::filter(const float* in, float* out, int frames)
{
    if (!designed())
    {
        std::fill(out, out + frames, 0.0f);
        return frames;
    }
    return adapter_->process(in, out, frames);
}

void LinearPhaseLowPass2::resetFilter()
{
    if (adapter_)
        adapter_->reset();
}

} // namespace dsp
