#pragma once

#include "engine/graph/AudioSource.h"

#include <cstdint>

/**
 * A diagnostic fitting: remembers the last three blocks read from its input and answers a repeated
 * request from them. Each track holds one, connected to nothing.
 */
class AudioCache final : public AudioSource
{
public:
    static constexpr int32_t kBuffers = 3;

    /** Wires the input (not owned). */
    // [ui thread, device stopped]
    void setFirst(AudioSource* input) { input_ = input; }
    AudioSource* first() const { return input_; }

    /** Answers false: blocks are served by copy only. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /**
     * Copies a remembered block of the same position and frames. Answers false when a remembered block
     * at that position is longer than asked, or one that starts earlier could cover the request;
     * otherwise reads the input into the next buffer in turn and copies that.
     */
    // [audio thread]
    bool read(AudioData& into) override;
    /** Those of the input; 2 without one. */
    int32_t channels() override;
    /** Sizes the three buffers for twice the block size with the input's channels. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

private:
    uint32_t blockSize_ = 0;
    AudioSource* input_ = nullptr;
    AudioBuffer buffers_[kBuffers];
    int32_t next_ = 0;
};
