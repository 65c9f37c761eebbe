#pragma once

#include <cstdint>
#include <memory>

namespace utils
{

/**
 * A second-order IIR section (Direct Form I) for one or two interleaved channels, with designs
 * from analog prototypes by the bilinear transform (k = 2 fs, no prewarping).
 * Coefficients follow y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2.
 */
class BiquadFilter
{
public:
    BiquadFilter() = default;
    virtual ~BiquadFilter() = default;

    /** @param channels 1, or 2 for interleaved stereo; @param sampleRate in Hz. Clears the state. */
    // [ui thread]
    virtual void setup(int32_t channels, int32_t sampleRate);
    /** Clears the history of both channels; the coefficients stay. */
    virtual void reset();
    /** Does nothing; kept so that the operations keep their order. */
    virtual void spare() {}
    virtual void setCoefficients(float b0, float b1, float b2, float a1, float a2);
    /** Maps (n2 s^2 + n1 s + n0) / (d2 s^2 + d1 s + d0). */
    virtual void designBilinear(float n2, float n1, float n0, float d2, float d1, float d0);
    /** Low-pass w0^2 / (s^2 + d w0 s + w0^2); w0 in radians per second, d the damping (1/Q). */
    virtual void designLowPass(float w0, float damping);
    /** High-pass s^2 / (s^2 + d w0 s + w0^2). */
    virtual void designHighPass(float w0, float damping);
    /** Band-pass d w0 s / (s^2 + d w0 s + w0^2), unity gain at w0. */
    virtual void designBandPass(float w0, float damping);
    /**
     * Shelf with zeros at -z1, -z2 and poles at -p1, -p2 (radians per second), scaled to a gain
     * of 1 at zero frequency.
     */
    virtual void designShelf(float z1, float z2, float p1, float p2);
    /**
     * Filters `frames` frames (interleaved when there are two channels), at least 2. The sum runs
     * in double; `output` may be `input`.
     */
    // [audio thread]
    virtual void processBlock(float* output, const float* input, int32_t frames);
    /** Filters one frame (one value per channel). */
    // [audio thread]
    virtual void processSample(float* output, const float* input);

    int32_t channels() const { return channels_; }
    float sampleRate() const { return sampleRate_; }
    float b0() const { return b0_; }
    float b1() const { return b1_; }
    float b2() const { return b2_; }
    float a1() const { return a1_; }
    float a2() const { return a2_; }

protected:
    /** Zero for any value whose exponent bits are all 0 (denormals and zeros), else the value. */
    static float flushDenormal(float value);

    int32_t channels_ = 1;
    float sampleRate_ = 44100.0f;
    // History of each channel: last two inputs and outputs.
    float x1_[2] = {0.0f, 0.0f};
    float x2_[2] = {0.0f, 0.0f};
    float y1_[2] = {0.0f, 0.0f};
    float y2_[2] = {0.0f, 0.0f};
    float b0_ = 1.0f;
    float b1_ = 0.0f;
    float b2_ = 0.0f;
    float a1_ = 0.0f;
    float a2_ = 0.0f;
};

/**
 * The same filter with two channels side by side in one SSE vector, summing in float: results
 * may differ from BiquadFilter in the last bits. With one channel it runs the plain code.
 */
class alignas(16) BiquadFilterKATMAI : public BiquadFilter
{
public:
    // [audio thread]
    void processBlock(float* output, const float* input, int32_t frames) override;
};

/** Bit 7 set: the processor has the vector unit BiquadFilterKATMAI needs. Set by a CPU test at start-up. */
extern uint8_t cpuFeatures;
constexpr uint8_t cpuFeatureSse = 0x80;

/** A BiquadFilterKATMAI when `cpuFeatures` has its vector bit, else a plain BiquadFilter. */
std::unique_ptr<BiquadFilter> newBiquadFilter();

} // namespace utils
