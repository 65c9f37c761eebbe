#pragma once

#include <cstdint>

namespace dsp
{

/**
 * One mono channel that can be asked for any position and then read forwards. Positions and
 * lengths are in frames of this source's own rate.
 */
class RandomAccessPCM
{
public:
    /** Moves the read position to `position` frames (may cost computation, never allocates). */
    // [audio thread]
    virtual void seek(int32_t position) = 0;

    /** Reads `count` frames to `destination` from the read position onwards; returns frames delivered. */
    // [audio thread]
    virtual int32_t read(float* destination, int32_t count) = 0;

    /** Length in frames. */
    virtual int32_t length() = 0;

    /** Samples per second. */
    virtual float rate() = 0;

    virtual ~RandomAccessPCM() = default;
};

/** A RandomAccessPCM that computes its samples from another one. */
class RandomAccessEffect : public RandomAccessPCM
{
public:
    /** The input; not owned. */
    // [ui thread]
    virtual void setSource(RandomAccessPCM* source) = 0;
};

} // namespace dsp
