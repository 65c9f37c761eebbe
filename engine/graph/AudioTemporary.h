#pragma once

#include "engine/graph/AudioSource.h"

#include <cstdint>

/**
 * Holds one block that was stored into it, and serves it. A track's live input enters its chain here:
 * the mixer's live pass stores the input block, and the chain behind pulls it in the same block.
 */
class AudioTemporary : public AudioSource
{
public:
    virtual ~AudioTemporary() = default;

    /** Points the request at the stored block (its frames and position come with it). */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Copies the stored block; false unless the target's position is the stored block's. */
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return 2; }
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /**
     * Takes a copy of block: its range and its samples. A block larger than the prepared size is cut to
     * it.
     * @return true once stored
     */
    // [audio thread]
    virtual bool store(const AudioData& block);

private:
    AudioBuffer store_;
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
};
