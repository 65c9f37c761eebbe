#pragma once

#include "dsp/AlignedPool.h"
#include "dsp/RealTransform.h"

#include <memory>

namespace dsp
{

/**
 * The spectra of a long FIR filter cut into pieces of F - S taps, ready for SegmentedConv.
 * Built in a design step (it plans a transform and allocates); read-only afterwards.
 */
class FilterSpectrum
{
public:
    /**
     * Cuts `taps` (count values) into pieces for input blocks of `segment` frames and transforms
     * each piece. A failed transform writes a debug line and leaves `valid()` false.
     */
    FilterSpectrum(int segment, const float* taps, int count);
    FilterSpectrum(const FilterSpectrum&) = delete;
    FilterSpectrum& operator=(const FilterSpectrum&) = delete;

    /**
     * Transform length F for input blocks of S frames and a filter of N taps. Sizes 16 to 256 have
     * lengths tuned for them; any other block size takes F = N. Where that is shorter than two
     * blocks, F becomes the whole blocks that hold the filter plus one.
     */
    static int chooseFftSize(int segment, int taps);

    /**
     * Taps in one piece: F - S where S divides F, as it does for every length of the table.
     * Otherwise the piece is cut down to whole blocks, (F / S - 1) S, since each piece is delayed
     * by a whole number of blocks.
     */
    static int pieceLength(int segment, int fftSize);

    int segment() const { return segment_; }
    int fftSize() const { return fftSize_; }
    int partitions() const { return partitions_; }
    int taps() const { return taps_; }
    /** Packed half spectrum of piece i, F + 2 floats (padded to a multiple of 4 with zeros). */
    const float* partition(int i) const { return spectra_[i]; }
    bool valid() const { return status_; }

private:
    int segment_ = 0;
    int fftSize_ = 0;
    int partitions_ = 0;
    float** spectra_ = nullptr;
    int taps_ = 0;
    std::unique_ptr<RealTransform> transform_;
    bool status_ = false;
    AlignedPool pool_;
};

/**
 * Uniformly partitioned convolution in the frequency domain: blocks of S frames in, S frames out,
 * with no latency beyond the block (a block's output already contains that block's input).
 * The delay of each filter piece comes from which accumulator its product lands in, so the input
 * spectrum is computed once per block and never kept.
 */
class SegmentedConv
{
public:
    SegmentedConv() = default;
    virtual ~SegmentedConv();
    SegmentedConv(const SegmentedConv&) = delete;
    SegmentedConv& operator=(const SegmentedConv&) = delete;

    /**
     * Takes the filter (not owned; it must outlive this object or the next attach), allocates the
     * accumulators and plans this object's own transform. Returns false, leaving `ready()` false,
     * when the spectrum is invalid or the plan fails.
     */
    // [ui thread]
    bool attach(const FilterSpectrum& spectrum);

    /** Clears the accumulators and the overlap ring, as after attach. */
    // [audio thread]
    void reset();

    /** Filters one block of `segment()` frames. `in` and `out` may be the same array. */
    // [audio thread]
    void processBlock(const float* in, float* out);

    bool ready() const { return ready_; }
    int segment() const { return segment_; }
    int fftSize() const { return fftSize_; }
    int partitions() const { return partitions_; }
    int accumulators() const { return accumulators_; }
    int step() const { return step_; }

private:
    bool ready_ = false;
    const FilterSpectrum* spectrum_ = nullptr;
    float* input_ = nullptr;
    const float* const* filter_ = nullptr;
    float** accumulator_ = nullptr;
    int segment_ = 0;
    int partitions_ = 0;
    int fftSize_ = 0;
    int accumulators_ = 0;
    int step_ = 0;
    int current_ = 0;
    std::unique_ptr<RealTransform> transform_;
    float* ring_ = nullptr;
    int ringPos_ = 0;
    int paddedSize_ = 0;
    float scale_ = 1.0f;
    AlignedPool pool_;
};

namespace Domain::Adapters
{

/**
 * SegmentedConv for any number of frames per call. Its latency is S - 1 frames (plus the extra
 * delay given at construction): the input stage starts S - 1 frames full, so the first frame in
 * completes a block and output keeps in step with input from then on.
 */
class AnySizeAdapter2 : public SegmentedConv
{
public:
    /** @param segment block size S of the convolution; @param extraDelay frames added to the latency */
    AnySizeAdapter2(int segment, int extraDelay);

    /** Filters `frames` frames; returns the frames written to `out` (equal to `frames` when E is 0). */
    // [audio thread]
    int process(const float* in, float* out, int frames);

    /** Clears the convolution and puts the stages back as at construction. */
    // [audio thread]
    void reset();

    /** Frames of delay from input to output: S - 1 + E. */
    int latency() const { return stageSegment_ - 1 + extraDelay_; }

private:
    int stageSegment_;
    int extraDelay_;
    float* inStage_ = nullptr;
    float* outStage_ = nullptr;
    int staged_ = 0;
    int pending_ = 0;
    AlignedPool stagePool_;
};

} // namespace Domain::Adapters

/** Debug trace of a transform failure; the object that hit it carries on. */
void traceTransformFailure(const char* line);

} // namespace dsp
