#pragma once

#include "engine/graph/AudioData.h"

#include <cstdint>

/**
 * One store of interleaved 32-bit float samples, for the audio file back ends that read and write
 * interleaved frames. The store only ever grows.
 */
class Interleaver
{
public:
    Interleaver() = default;
    Interleaver(const Interleaver&) = delete;
    Interleaver& operator=(const Interleaver&) = delete;
    /** Frees the store. */
    virtual ~Interleaver();

    /**
     * Makes room for frames * channels samples. Only when that exceeds the capacity is the store
     * reallocated, and only then are capacity and channel count updated: a smaller request with another
     * channel count keeps the old channel count in force. Allocates: not for the audio thread.
     * @return false when the memory could not be had (the store is then empty)
     */
    bool reserve(int64_t frames, int32_t channels);

    /** The interleaved store; null before the first reserve. */
    float* data() { return store_; }
    const float* data() const { return store_; }

    /** Capacity in samples (not frames). */
    uint64_t capacity() const { return capacity_; }
    /** Channels of one interleaved frame. */
    uint32_t channels() const { return channels_; }
    /** The spare flag copied by the last interleave. */
    bool spare() const { return spare_; }

    /**
     * Copies the spare flag of src, then writes src.frames frames into the store, each of the store's
     * channels in order from the same channel of src. A channel that src lacks leaves its slot as it was.
     * Frames beyond the capacity are not written.
     */
    void interleave(const AudioData& src);

    /**
     * The mirror of interleave: reads dst.frames frames from the store and writes each store channel to
     * the same channel of dst, dropping those that dst lacks.
     */
    void deinterleave(AudioData& dst) const;

private:
    int64_t framesThatFit(int64_t frames) const;

    bool spare_ = false;
    float* store_ = nullptr;
    uint64_t capacity_ = 0;
    uint32_t channels_ = 0;
};
