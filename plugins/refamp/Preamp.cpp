#include "plugins/refamp/Preamp.h"

#include <cmath>

namespace refamp
{

namespace
{

/**
 * The saturating curve: slope 1 at 0, approaching +-1. The hyperbolic tangent is chosen over
 * cheaper curves for its spectrum: its nearest complex poles lie at +-i pi/2 (against +-i for
 * x / sqrt(1 + x^2)), so the harmonics of a driven sine die away about half again as fast, and
 * what folds back past four times the rate is far weaker.
 */
inline float saturate(float x)
{
    return std::tanh(x);
}

/** The antiderivative of tanh, log(cosh(x)), in a form that doesn't overflow for large x. */
inline double logCosh(double x)
{
    const double a = std::fabs(x);
    return a + std::log1p(std::exp(-2.0 * a)) - 0.69314718055994531;
}

// Operating points of the two stages: where on the curve silence sits.
constexpr float kBias1 = 0.2f;
constexpr float kBias2 = -0.12f;

} // namespace

void Preamp::prepare(double rate)
{
    if (factor_ == Oversampler::kFactor)
    {
        oversampler_.prepare(kMaxFrames);
    }
    const double highRate = rate * factor_;
    // Coupling: a fourth-order low-pass at 5 kHz rounds the first stage's edges, and a first-order
    // high-pass at 20 Hz takes away the DC that its bias leaves. The low-pass is what keeps the
    // second stage's edges slow enough that its harmonics have died away before they could fold.
    coupling_[0].setLowpass(highRate, 5000.0, 0.6);
    coupling_[1].setLowpass(highRate, 5000.0, 0.6);
    dcCoefficient_ = static_cast<float>(std::exp(-2.0 * kPi * 20.0 / highRate));
    high_.assign(static_cast<std::size_t>(kMaxFrames * factor_), 0.0f);
    reset();
}

void Preamp::reset()
{
    oversampler_.reset();
    coupling_[0].reset();
    coupling_[1].reset();
    dcState_ = 0.0f;
    previous_ = kBias2;
    previousIntegral_ = logCosh(kBias2);
    gain_ = target_;
}

void Preamp::setDrive(float db)
{
    target_ = std::sqrt(dbToGain(db));
}

float Preamp::stage1(float x, float gain) const
{
    return saturate(gain * x + kBias1) - saturate(kBias1);
}

float Preamp::stage2(float x, float gain)
{
    // The second stage is where the edges are steep, so it is also antialiased by its
    // antiderivative: the mean of tanh between the previous input and this one, which damps what
    // would fold back by a further 10 to 20 dB. In double: the difference of two large values.
    const double u = static_cast<double>(gain) * x + kBias2;
    const double du = u - previous_;
    const double integral = logCosh(u);
    const double y =
        std::fabs(du) < 1e-6 ? std::tanh(0.5 * (u + previous_)) : (integral - previousIntegral_) / du;
    previous_ = u;
    previousIntegral_ = integral;
    return static_cast<float>(y) - saturate(kBias2);
}

void Preamp::process(float* samples, int frames)
{
    const int count = frames * factor_;
    float* high = high_.data();
    if (factor_ == Oversampler::kFactor)
    {
        oversampler_.up(samples, high, frames);
    }
    else
    {
        for (int i = 0; i < count; ++i)
        {
            high[i] = samples[i];
        }
    }
    const float step = (target_ - gain_) / static_cast<float>(count);
    float gain = gain_;
    for (int i = 0; i < count; ++i)
    {
        gain += step;
        const float first = coupling_[1].process(coupling_[0].process(stage1(high[i], gain)));
        // DC blocker: subtract a slow average.
        dcState_ = first + dcCoefficient_ * (dcState_ - first);
        const float coupled = first - dcState_;
        high[i] = stage2(coupled, gain);
    }
    gain_ = target_;
    if (factor_ == Oversampler::kFactor)
    {
        oversampler_.down(high, samples, frames);
    }
    else
    {
        for (int i = 0; i < count; ++i)
        {
            samples[i] = high[i];
        }
    }
}

} // namespace refamp
