#pragma once

#include <memory>

namespace dsp
{

/**
 * A real single-precision FFT of one length, in place, on the packed half spectrum: a buffer of
 * size()+2 floats holds the real and imaginary parts of bins 0 to size()/2 in turn (the imaginary
 * parts of the first and last bin are 0). The forward scale is 1 and the backward scale 1/size(),
 * so forward then backward gives the input back.
 *
 * Buffers passed to forward and backward must be 64-byte aligned (dsp::AlignedPool gives such).
 * The object is made in a design step, off the audio thread; forward and backward don't allocate,
 * lock or call the system and may run on the audio thread.
 */
class RealTransform
{
public:
    virtual ~RealTransform() = default;

    /** Transform length in real samples. */
    virtual int size() const = 0;

    /** Time to packed half spectrum, in place. Returns false when the library reported a failure. */
    // [audio thread]
    virtual bool forward(float* data) = 0;

    /** Packed half spectrum to time, in place, scaled by 1/size(). */
    // [audio thread]
    virtual bool backward(float* data) = 0;

    /**
     * The same as backward without the 1/size() scale, for callers that fold the scale into the
     * pass that follows (the convolution's overlap add).
     */
    // [audio thread]
    virtual bool backwardUnscaled(float* data) = 0;
};

/**
 * Makes the transform of `size` real samples with the library this build uses, or null when the
 * library can't plan it. Plan creation is serialised inside, so any thread may call this.
 */
// [any thread]
std::unique_ptr<RealTransform> makeRealTransform(int size);

} // namespace dsp
