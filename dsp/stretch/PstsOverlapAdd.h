#pragma once

#include "dsp/stretch/PstsButterworth.h"
#include "dsp/stretch/PstsScratch.h"

#include <cstdint>
#include <memory>

namespace dsp::Stretch
{

/**
 * The accumulator of the stretch voices. Windowed grains are summed into a ring at a whole-frame hop,
 * the sum is optionally low-passed, and it is read out with a fractional step. The step hides the
 * rounding of the hop to whole frames and, for a source at another rate, the change of rate.
 *
 * Ring frames are addressed by an absolute index that only grows between resets; each access takes it
 * modulo the ring's size. A block is: beginBlock, then offerGrain/addGrain for as long as the block
 * needs grains, then render.
 *
 * The ring must hold every frame from the read position up to the end of the latest grain, and render
 * stages the frames a block reads in the shared scratch; maxBlock() says how long a block can be for a
 * given grain length. Nothing allocates after construction.
 */
class PstsOverlapAdd
{
public:
    /**
     * @param ringSize frames of the ring
     * @param scratch shared work memory; grown here to at least 4,096 floats
     */
    PstsOverlapAdd(int32_t ringSize, PstsScratch& scratch);
    PstsOverlapAdd(const PstsOverlapAdd&) = delete;
    PstsOverlapAdd& operator=(const PstsOverlapAdd&) = delete;

    /** Back to silence at absolute frame 0: the next grain's middle lands on the first output frame. */
    // [audio thread]
    void reset();

    /** @param hop distance between grain centres in ring frames, at least 1 */
    void setHop(int32_t hop);
    /** @param step ring frames per output frame */
    void setStep(float step);
    /**
     * Switches the low-pass on or off; designs it when on.
     * @param cutoff normalised cut-off, 1.0 being the Nyquist frequency
     */
    void setFilter(bool on, float cutoff);

    /**
     * Starts a block of count output frames into output, and works out the last ring frame it reads.
     * @param count frames; at most maxBlock() of the longest grain that will be added
     */
    // [audio thread]
    void beginBlock(float* output, int32_t count);

    /**
     * Offers a grain of count samples.
     * @return true when the block still needs it: the grain's first frame is not past the last frame
     *         the block reads. Then addGrain must follow.
     */
    // [audio thread]
    bool offerGrain(int32_t count);

    /** Adds the grain last offered, centred on the next centre, and moves that on by the hop. */
    // [audio thread]
    void addGrain(const float* samples);

    /** Writes the block's output frames and frees the ring frames it consumed. */
    // [audio thread]
    void render();

    /**
     * The longest block that keeps the read window and a grain of grainFrames in the ring at the
     * present step, and the read window in the scratch. At least 1.
     */
    int32_t maxBlock(int32_t grainFrames) const;

    int32_t ringSize() const { return ringSize_; }
    int32_t hopInt() const { return hopInt_; }
    float step() const { return step_; }
    bool filterOn() const { return filterOn_; }
    int64_t readIndex() const { return readIndex_; }
    double fraction() const { return fraction_; }
    int64_t nextCentre() const { return nextCentre_; }
    int64_t lastNeeded() const { return lastNeeded_; }
    int64_t filteredTo() const { return filteredTo_; }
    /** The ring frame at an absolute index, for tests. */
    float ringAt(int64_t index) const { return ring_[static_cast<size_t>(index % ringSize_)]; }

private:
    void copyOut(int64_t from, int64_t to, float* dst) const;
    void copyIn(int64_t from, int64_t to, const float* src);
    void zero(int64_t from, int64_t to);

    /** Ring frame of the next output sample's interpolation window. */
    int64_t readIndex_ = 0;
    /** Position between frames, -1 .. 1; -1 after a reset. */
    double fraction_ = -1.0;
    int32_t outCount_ = 0;
    /** The highest ring frame this block reads. */
    int64_t lastNeeded_ = 0;
    /** readIndex_ at the start of the block: frame 0 of the staged copy in the scratch. */
    int64_t blockFirst_ = 0;
    /** Last ring frame that has been through the filter; -1 after a reset. */
    int64_t filteredTo_ = -1;
    /** Ring frames below this are zero. */
    int64_t clearFrom_ = 0;
    /** Ring frame on which the next grain's middle lands. */
    int64_t nextCentre_ = 0;
    int32_t grainCount_ = 0;
    int32_t hopInt_ = 200;
    float step_ = 1.0f;
    float* output_ = nullptr;
    std::unique_ptr<float[]> ring_;
    PstsScratch* scratch_;
    int32_t ringSize_;
    bool filterOn_ = false;
    PstsButterworth filter_;
};

} // namespace dsp::Stretch
