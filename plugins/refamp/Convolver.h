#pragma once

#include "plugins/refamp/Dsp.h"

#include <complex>
#include <vector>

namespace refamp
{

/**
 * Stereo convolution with one impulse response, without latency: the first `kPartition` taps run
 * directly in time, the rest as uniform partitions of `kPartition` taps by FFT (overlap-save). Both
 * channels share one complex transform, the left channel as the real part and the right as the
 * imaginary part, since the response is real.
 *
 * The FFT work happens at partition boundaries; nothing allocates after `prepare`.
 */
class Convolver
{
public:
    static constexpr int kPartition = 64;

    /** Takes the response (any length) and sizes everything. */
    void prepare(const std::vector<float>& response);
    void reset();
    /** May run in place. */
    void process(const float* inL, const float* inR, float* outL, float* outR, int frames);

private:
    /** A partition of input is complete: transform it and compute the tail for the next one. */
    void finishPartition();

    static constexpr int kFftSize = 2 * kPartition;

    Fft fft_;
    std::vector<float> head_; // the first kPartition taps, reversed
    /** Spectra of the tail's partitions. */
    std::vector<std::complex<float>> tailSpectra_;
    int tailPartitions_ = 0;
    /** Spectra of past input pairs of partitions, a ring of tailPartitions_. */
    std::vector<std::complex<float>> inputSpectra_;
    int newest_ = 0;

    /** Input of the present partition, behind kPartition - 1 older samples for the direct head. */
    std::vector<float> historyL_, historyR_;
    /** The previous and the present partition, for the transform. */
    std::vector<float> previousL_, previousR_;
    /** Tail output for the present partition. */
    std::vector<float> tailL_, tailR_;
    std::vector<std::complex<float>> work_;
    int fill_ = 0;
};

} // namespace refamp
