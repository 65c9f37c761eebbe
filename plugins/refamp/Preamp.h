#pragma once

#include "plugins/refamp/Dsp.h"
#include "plugins/refamp/Oversampler.h"

#include <vector>

namespace refamp
{

/**
 * The amp's gain stages for one channel: the drive into two tube-like stages, each a soft
 * saturating curve (the hyperbolic tangent), biased off centre so that it clips one side earlier (which
 * gives the even harmonics of a triode), with a coupling network between them that blocks the DC
 * and rounds the edges of the first stage before the second sharpens them again.
 *
 * The stages run at four times the sample rate, between the oversampler's interpolator and
 * decimator, so that the harmonics they make above the audio band are filtered away instead of
 * folding back into it. A factor of 1 runs the very same stages at the base rate (for comparison).
 */
class Preamp
{
public:
    /** The largest chunk `process` takes. */
    static constexpr int kMaxFrames = 64;

    explicit Preamp(int factor = Oversampler::kFactor) : factor_(factor) {}

    void prepare(double rate);
    void reset();
    /** The drive in dB, reached by a ramp over the next chunk. */
    void setDrive(float db);
    /** In place, at most kMaxFrames frames. */
    void process(float* samples, int frames);

    int factor() const { return factor_; }

private:
    float stage1(float x, float gain) const;
    float stage2(float x, float gain);

    int factor_;
    Oversampler oversampler_;
    Biquad coupling_[2];            // interstage low-pass at the high rate
    double previous_ = 0.0;         // the second stage's last input, for its antialiasing
    double previousIntegral_ = 0.0; // log cosh of it
    float dcState_ = 0.0f;
    float dcCoefficient_ = 0.0f;
    float gain_ = 1.0f; // present gain of each stage (the square root of the drive)
    float target_ = 1.0f;
    std::vector<float> high_;
};

} // namespace refamp
