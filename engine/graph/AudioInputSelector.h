#pragma once

#include "engine/graph/AudioSource.h"

#include <atomic>
#include <cstdint>

/**
 * Chooses which input channel a track hears: mode 0 puts the left channel on both sides, 1 the right
 * one, 2 leaves the pair as it is. Handing over by reference, the choice costs no copy: only the
 * channel pointers are set.
 */
class AudioInputSelector final : public AudioSource
{
public:
    /** Wires the input (not owned). */
    // [ui thread, device stopped]
    void setFirst(AudioSource* input) { input_ = input; }
    AudioSource* first() const { return input_; }

    /** @param mode 0 left, 1 right, 2 both */
    // [ui thread]
    void setMode(int32_t mode) { mode_.store(mode, std::memory_order_relaxed); } // relaxed: a command
    int32_t mode() const { return mode_.load(std::memory_order_relaxed); }

    /** Asks the input with duplicateMono set, then points both channels at the chosen one. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Reads the input, then copies the chosen channel over the other. */
    // [audio thread]
    bool read(AudioData& into) override;
    /** Those of the input; 2 without one. */
    int32_t channels() override;
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

private:
    AudioSource* input_ = nullptr;
    // Written by the interface, read once a block by the audio thread; relaxed, it orders nothing else.
    std::atomic<int32_t> mode_{2};
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
};
