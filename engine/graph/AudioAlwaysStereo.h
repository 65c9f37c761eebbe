#pragma once

#include "engine/graph/AudioSource.h"

#include <cstdint>

/**
 * Makes a mono input stereo by copying its channel: everything behind it can count on two channels.
 * A stereo input, or a failed mono read, is passed through unchanged.
 */
class AudioAlwaysStereo final : public AudioSource
{
public:
    /** Wires the input (not owned). */
    // [ui thread, device stopped]
    void setFirst(AudioSource* input) { input_ = input; }
    AudioSource* first() const { return input_; }

    // [audio thread]
    bool provide(AudioData& request) override;
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return 2; }
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

private:
    bool inputIsMono();

    AudioSource* input_ = nullptr;
    AudioBuffer work_;
};
