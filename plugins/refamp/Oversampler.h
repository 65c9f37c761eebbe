#pragma once

#include <vector>

namespace refamp
{

/**
 * Four times oversampling for one channel: a polyphase interpolator up and a decimator down, both
 * with the same linear-phase low-pass (a Kaiser-windowed sinc, about 90 dB of stop band, cutting at
 * the base rate's Nyquist frequency). Passband to 0.4535 of the base rate (20 kHz at 44.1 kHz).
 * The round trip delays by `latency()` base frames (63): the decimator takes the newest of each
 * group of four high-rate samples.
 */
class Oversampler
{
public:
    static constexpr int kFactor = 4;
    /** Taps per phase; the prototype has kFactor times as many. */
    static constexpr int kTapsPerPhase = 64;
    static constexpr int kTaps = kFactor * kTapsPerPhase;

    /** Designs the filter and sizes the histories for chunks of up to `maxFrames` base frames. */
    void prepare(int maxFrames);
    void reset();

    /** `frames` base samples in, kFactor times as many out. */
    void up(const float* in, float* out, int frames);
    /** kFactor * `frames` samples in, `frames` base samples out. */
    void down(const float* in, float* out, int frames);

    /** Base frames of delay of an up and down round trip. */
    static double latency() { return (kTaps - kFactor) / static_cast<double>(kFactor); }

    /** The prototype filter (for tests). */
    const std::vector<float>& taps() const { return taps_; }

private:
    std::vector<float> taps_;
    /** taps_ split by phase and reversed, so that each phase is a forward dot product. */
    std::vector<float> phases_;
    /** Reversed prototype for the decimator's dot product. */
    std::vector<float> reversed_;
    /** Base-rate history of the interpolator: kTapsPerPhase - 1 old samples, then the chunk. */
    std::vector<float> upHistory_;
    /** High-rate history of the decimator: kTaps - 1 old samples, then the chunk. */
    std::vector<float> downHistory_;
    int maxFrames_ = 0;
};

} // namespace refamp
