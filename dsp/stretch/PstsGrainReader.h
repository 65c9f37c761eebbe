#pragma once

#include "dsp/stretch/IRAPCMSource.h"
#include "dsp/stretch/PstsScratch.h"

#include <cstdint>

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

private:
    IRAPCMSource* source_ = nullptr;
    int32_t grainCapacity_;
    PstsScratch* scratch_;
    const float* window_;
};

} // namespace dsp::Stretch
