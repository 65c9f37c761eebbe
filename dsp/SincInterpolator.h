#pragma once

#include "dsp/AlignedPool.h"
#include "dsp/LinearPhaseLowPass2.h"
#include "dsp/RandomAccessPCM.h"

#include <cstdint>
#include <vector>

namespace dsp
{

/**
 * Changes the sample rate by a rational ratio with a Hann-windowed sinc whose zeros fall at whole
 * input samples (cut-off at the input's Nyquist frequency), 128 output samples long on each side.
 * The ratio is the rates' own when it needs at most 4096 phases; otherwise the nearest fraction that
 * does (within a millionth, a 600th of a cent, for nearly every pair; ratioFor).
 *
 * It works in transposed (scatter) form: each input sample is added once, weighted by the filter
 * for its fractional position, into a ring of output accumulators, and outputs leave the ring four
 * at a time when complete. The filter is held four times for every phase, shifted by 0 to 3
 * samples, so that every addition is an aligned four-wide vector operation.
 *
 * Design (setOutputRate) allocates; seek and read never do. Reads past the source's end fade out
 * through the filter's tail and then give zeros, without reading the source past its end.
 */
class SincInterpolator : public RandomAccessEffect
{
public:
    static constexpr int32_t ringSize = (128 * 2 + 4096) / 4 * 4;
    static constexpr int32_t stageSize = 4096;
    static constexpr int32_t maxPiece = 512;
    static constexpr int32_t noSourcePosition = static_cast<int32_t>(0x80000001u);

    SincInterpolator() = default;
    ~SincInterpolator() override = default;
    SincInterpolator(const SincInterpolator&) = delete;
    SincInterpolator& operator=(const SincInterpolator&) = delete;

    /** Stores the source (not owned) and takes the input rate from it. */
    // [ui thread]
    void setSource(RandomAccessPCM* source) override;

    /**
     * Designs the filter for the source's rate to `rate` and seeks to 0. Returns false (and reads
     * give silence) when there is no source, a rate is below 1 Hz or the ratio is too large for
     * the input stage.
     */
    // [ui thread]
    virtual bool setOutputRate(float rate);

    /** Moves to output frame `position`; costs about one filter length of computation. */
    // [audio thread]
    void seek(int32_t position) override;
    // [audio thread]
    int32_t read(float* destination, int32_t count) override;
    /** The source's length at the output rate, truncated. */
    int32_t length() override;
    float rate() override { return outRate_; }

    uint32_t up() const { return up_; }
    uint32_t down() const { return down_; }
    uint32_t halfLength() const { return halfLength_; }
    uint32_t crossings() const { return crossings_; }
    int32_t phaseBlocks() const { return phaseBlocks_; }
    bool designed() const { return designed_; }
    /** Filter value at t filter units from the centre, as the banks hold it (0 outside the filter). */
    float tap(int64_t t) const;
    /** Greatest common divisor by the extended form of Euclid's algorithm. */
    static uint32_t greatestCommonDivisor(uint32_t a, uint32_t b);
    /**
     * The ratio the filter is built for, as input step `up` over output step `down` (up phases): in
     * and out over their common divisor when up is at most 4096, else the fraction with the fewest
     * phases within a relative error of 1e-6 of in / out, or failing that the closest with at most
     * 4096 phases (worst about 1.2e-4, for two rates closer than one part in 8192).
     */
    static void ratioFor(uint32_t in, uint32_t out, uint32_t& up, uint32_t& down);
    /**
     * Why a filter of `crossings` can't be designed from `inRate` to `outRate`, in a few words for a
     * message; null when it can. setOutputRate refuses exactly these pairs (and a missing source).
     */
    static const char* refusal(float inRate, float outRate, uint32_t crossings = 128);

protected:
    /** Builds the half filter and the banks for inRate_ and outRate_; false leaves designed() false. */
    bool design();
    void setCrossings(uint32_t crossings) { crossings_ = crossings; }
    RandomAccessPCM* source() const { return source_; }

private:
    void produce(float* out, int32_t count);
    void scatter(int64_t o, float* groupRing);

    uint32_t down_ = 1;
    uint32_t up_ = 1;
    uint32_t halfLength_ = 0;
    uint32_t crossings_ = 128;
    std::vector<float*> banks_; // entry of phase p at alignment a: banks_[4 p + a], 4 phaseBlocks floats
    int64_t nextOut_ = 0;
    int64_t ringPos_ = 0;
    int64_t nextIn_ = 0;
    float inRate_ = 0.0f;
    float outRate_ = 0.0f;
    float* ring_ = nullptr;
    float* halfFilter_ = nullptr;
    int32_t phaseBlocks_ = 0;
    AlignedPool pool_;
    float remainder_[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    int32_t remainderCount_ = 0;
    RandomAccessPCM* source_ = nullptr;
    float* stage_ = nullptr;
    int64_t stageFirst_ = 0;
    int64_t sourceNext_ = noSourcePosition;
    float* discard_ = nullptr;
    int32_t sourceLength_ = 0;
    int32_t piece_ = maxPiece;
    int32_t stageLength_ = stageSize;
    bool designed_ = false;
};

/**
 * The quality resampler of one channel: the sinc interpolator, with a linear-phase low-pass in
 * front when the rate falls (cut at 0.93424 of the new Nyquist frequency, its delay taken back
 * at seek), and a bypass that hands the source through untouched when the rates are equal.
 */
class HiQualityResampler : public SincInterpolator
{
public:
    HiQualityResampler() = default;

    /** Stores the real source; the next setOutputRate decides the path. */
    // [ui thread]
    void setSource(RandomAccessPCM* source) override;
    /** Chooses the path (bypass, direct, low-pass) for the source's rate and designs. */
    // [ui thread]
    bool setOutputRate(float rate) override;
    // [audio thread]
    void seek(int32_t position) override;
    // [audio thread]
    int32_t read(float* destination, int32_t count) override;

    bool bypass() const { return bypass_; }
    /** True when the low-pass stage is in the path. */
    bool lowPassActive() const { return lowPassActive_; }
    const RandomAcessMaker<LinearPhaseLowPass2>& lowPass() const { return lowPass_; }

private:
    RandomAcessMaker<LinearPhaseLowPass2> lowPass_;
    RandomAccessPCM* realSource_ = nullptr;
    uint32_t crossingsSetting_ = 128;
    int32_t lowPassTapsAt44k_ = 256;
    double cutoffFraction_ = 0.93424;
    bool bypass_ = false;
    bool lowPassActive_ = false;
};

} // namespace dsp
