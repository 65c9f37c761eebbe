#pragma once

#include "dsp/BiquadFilter.h"
#include "dsp/stretch/IRAPCMSource.h"
#include "dsp/stretch/PstsScratch.h"

#include <array>
#include <cstdint>
#include <memory>

namespace dsp::Stretch
{

/**
 * Reads one grain for a voice: fetches the source frames it spans into the shared scratch (after a
 * guard of fifty floats), resamples them by four-point Catmull-Rom interpolation at a fractional step,
 * and applies the Hann window. Nothing allocates after construction.
 */
class PstsGrainReader
{
public:
    /** Filters of the bank. */
    static constexpr int32_t kBankSize = 6;
    /** Rate the bank is set up at; it differs from the usual 44,100 and stays so, as nothing runs it. */
    static constexpr int32_t kBankRate = 41100;

    /** Leading floats of the scratch that the fetched frames don't use. */
    static constexpr int32_t kGuard = 50;

    /**
     * @param grainCapacity the most samples a grain can have
     * @param scratch shared work memory; grown here to at least grainCapacity + kGuard floats
     */
    PstsGrainReader(int32_t grainCapacity, PstsScratch& scratch);

    void setSource(IRAPCMSource* source) { source_ = source; }
    IRAPCMSource* source() const { return source_; }

    /**
     * Reads the grain of length source frames that starts at start, at step source frames per
     * sample, and windows it. A grain that starts before frame 0 is made of its opening half twice
     * over, so that the source's start doesn't fade in.
     * @param grain destination of grainCapacity floats
     * @param count out: samples written
     * @return the source's fetch status
     */
    // [audio thread]
    int32_t read(float* grain, double start, double length, double step, int32_t& count);

    /** The filter bank, for inspection. */
    const utils::BiquadFilter& bankFilter(int32_t i) const { return bank_[static_cast<size_t>(i)]; }

private:
    IRAPCMSource* source_ = nullptr;
    int32_t grainCapacity_;
    PstsScratch* scratch_;
    /** Makes window_ the window of a grain of m samples. */
    void prepareWindow(int32_t m);

    const float* hann_;
    /** The window for grains of windowCount_ samples. */
    std::unique_ptr<float[]> window_;
    int32_t windowCount_ = 0;
    // Mono filters that belong to the reader's state but that no reading path runs: grains are
    // resampled by interpolation alone, and the overlap-add low-passes the sum where the rate calls
    // for it.
    std::array<utils::BiquadFilter, kBankSize> bank_;
};

} // namespace dsp::Stretch
