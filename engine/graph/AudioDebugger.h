#pragma once

#include "engine/graph/AudioSource.h"

#include <cstdint>

/**
 * A diagnostic fitting that forwards everything to its input unchanged: a place to hang a breakpoint or
 * a probe in a chain. Each track holds one, connected to nothing.
 */
class AudioDebugger final : public AudioSource
{
public:
    /** Wires the input (not owned). */
    // [ui thread, device stopped]
    void setFirst(AudioSource* input) { input_ = input; }
    AudioSource* first() const { return input_; }

    // [audio thread]
    bool provide(AudioData& request) override { return input_ != nullptr && input_->provide(request); }
    // [audio thread]
    bool read(AudioData& into) override { return input_ != nullptr && input_->read(into); }
    /** Those of the input; 2 without one. */
    int32_t channels() override { return input_ != nullptr ? input_->channels() : 2; }
    /** Nothing: the owner of the chain prepares the input. */
    // [ui thread, device stopped]
    void prepare(uint32_t, uint32_t) override {}

private:
    AudioSource* input_ = nullptr;
};
