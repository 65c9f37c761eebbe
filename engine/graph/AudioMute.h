#pragma once

#include "engine/graph/AudioSource.h"

#include <cstdint>

/**
 * A source of silence: hands over a silent block of the prepared size by reference. Tracks feed it to
 * their effect when nothing else should reach it, so that a tail rings out.
 */
class AudioMute final : public AudioSource
{
public:
    /** Points the request at the silent block. The request's frames become the prepared block size. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Writes silence into the target. */
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return 2; }
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

private:
    AudioBuffer silent_;
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
};
