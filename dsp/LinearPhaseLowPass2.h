#pragma once

#include "dsp/AlignedPool.h"
#include "dsp/RandomAccessPCM.h"
#include "dsp/SegmentedConv.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace dsp
{

/**
 * A linear-phase FIR low-pass (Hann-windowed sinc of `taps` taps, delay taps/2 frames) run by
 * segmented convolution in blocks of 64 frames through the any-size adapter.
 */
class LinearPhaseLowPass2
{
public:
    LinearPhaseLowPass2() = default;
    ~LinearPhaseLowPass2();
    LinearPhaseLowPass2(const LinearPhaseLowPass2&) = delete;
    LinearPhaseLowPass2& operator=(const LinearPhaseLowPass2&) = delete;

    /**
     * The taps of the design for `taps` taps, cut-off `cutoff` Hz at `sampleRate` Hz, in double:
     * out[i] is the tap at k = i - taps/2, so the filter is symmetric about index taps/2.
     */
    static void designTaps(int taps, double cutoff, double sampleRate, double* out);

    /**
     * Designs the filter at `cutoff` Hz for the current taps and sample rate and builds a fresh
     * convolution (its history is cleared). Allocates and plans: not for the audio thread.
     */
    // [ui thread]
    bool design(double cutoff);

    /** Filters `frames` frames; output lags input by latency() frames. */
    // [audio thread]
    int filter(const float* in, float* out, int frames);

    /** Clears the convolution's history, as after design. */
    // [audio thread]
    void resetFilter();

    /** Takes effect at the next design. */
    void setTaps(int taps) { taps_ = std::max(2, taps); }
    int taps() const { return taps_; }
    /** Takes effect at the next design. */
    void setSampleRate(double rate) { sampleRate_ = rate; }
    double sampleRate() const { return sampleRate_; }
    double cutoff() const { return cutoff_; }
    int segment() const { return segment_; }
    /** Delay from input to output in frames: the filter's taps/2 plus the adapter's segment - 1. */
    int filterLatency() const { return taps_ / 2 - 1 + segment_; }
    bool designed() const { return adapter_ != nullptr && adapter_->ready(); }

private:
    int segment_ = 64;
    std::unique_ptr<FilterSpectrum> spectrum_;
    std::unique_ptr<Domain::Adapters::AnySizeAdapter2> adapter_;
    int taps_ = 256;
    double cutoff_ = 20600.0;
    double sampleRate_ = 44100.0;
};

/**
 * Makes a block filter into a RandomAccessEffect: reads of the source go through the filter, and
 * `latency` frames read ahead at a seek bring the output back in line with the position asked for.
 * Used as RandomAcessMaker<LinearPhaseLowPass2>.
 */
template <class Filter> class RandomAcessMaker : public Filter, public RandomAccessEffect
{
public:
    static constexpr int32_t capacity = 4096;
    static constexpr int32_t noSeekYet = static_cast<int32_t>(0x80000001u);

    RandomAcessMaker()
    {
        input_ = pool_.allocate(capacity);
        output_ = pool_.allocate(capacity);
    }

    // [ui thread]
    void setSource(RandomAccessPCM* source) override { source_ = source; }

    /** Frames by which the filter's output lags its input; 0 makes seek a plain seek of the source. */
    // [ui thread]
    void setLatency(int32_t frames) { latency_ = std::max<int32_t>(0, frames); }
    int32_t latency() const { return latency_; }
    /** Source frames consumed by the last seek before the first frame handed out. */
    int32_t skipped() const { return skipped_; }

    /**
     * Seeks the source and reads `latency` frames through the filter, thrown away, so that the next
     * read starts at `position`. The filter's history is cleared and refilled from up to `taps`
     * frames before the position first, so a seek gives the samples a sequential read would.
     */
    // [audio thread]
    void seek(int32_t position) override
    {
        if (source_ == nullptr)
            return;
        sourceLength_ = source_->length();
        if (latency_ < 1)
        {
            source_->seek(position);
            sourcePos_ = position;
            skipped_ = 0;
            return;
        }
        this->resetFilter();
        const int32_t history = std::clamp<int32_t>(position, 0, this->taps());
        source_->seek(position - history);
        sourcePos_ = position - history;
        int32_t remaining = history + latency_;
        while (remaining > 0)
        {
            const int32_t n = std::min(remaining, capacity);
            pull(n);
            this->filter(input_, output_, n);
            remaining -= n;
        }
        skipped_ = history + latency_;
    }

    // [audio thread]
    int32_t read(float* destination, int32_t count) override
    {
        if (source_ == nullptr || input_ == nullptr)
            return 0;
        int32_t delivered = 0;
        for (int32_t done = 0; done < count;)
        {
            const int32_t n = std::min(count - done, capacity);
            delivered += pull(n);
            this->filter(input_, destination + done, n);
            done += n;
        }
        return delivered;
    }

    int32_t length() override { return source_ != nullptr ? source_->length() : 0; }
    float rate() override { return source_ != nullptr ? source_->rate() : 0.0f; }

private:
    // Reads n source frames to the input buffer. The filter runs ahead of the output by `latency`,
    // so it asks for frames past the source's end near the end: those are silence, whatever the
    // source leaves in the buffer for them.
    int32_t pull(int32_t n)
    {
        const int32_t got = std::clamp<int32_t>(source_->read(input_, n), 0, n);
        std::fill(input_ + got, input_ + n, 0.0f);
        const int64_t end = static_cast<int64_t>(sourceLength_) - sourcePos_;
        if (end < n)
            std::fill(input_ + std::max<int64_t>(0, end), input_ + n, 0.0f);
        sourcePos_ += n;
        return got;
    }

    RandomAccessPCM* source_ = nullptr;
    float* input_ = nullptr;
    float* output_ = nullptr;
    int32_t latency_ = 0;
    int32_t skipped_ = noSeekYet;
    int64_t sourcePos_ = 0;
    int32_t sourceLength_ = 0;
    AlignedPool pool_;
};

} // namespace dsp
