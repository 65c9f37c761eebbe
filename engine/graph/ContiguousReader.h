#pragma once

#include "engine/graph/AudioSource.h"

#include <atomic>
#include <cstdint>

/**
 * Turns a consumer that jumps back and forth around the play position (the stretch node) into reads of
 * its input that go forward in large regular steps, which is the access a streaming file is made for.
 * It keeps one second of history in a ring and fetches from the input only what the ring lacks,
 * rounded up to whole steps of kFetchStep frames.
 */
class ContiguousReader final : public AudioSource
{
public:
    /** Fetches are rounded up to a multiple of this many frames. */
    static constexpr int64_t kFetchStep = 1024;
    /** Ring length before the first prepare: one second at 44.1 kHz. */
    static constexpr int64_t kInitialRingFrames = 44100;

    /** Allocates the ring at its initial length. */
    ContiguousReader();

    /** Wires the input (not owned). */
    // [ui thread, device stopped]
    void setFirst(AudioSource* input) { input_ = input; }
    AudioSource* first() const { return input_; }

    /** While inactive every read is silence. Switching it off forgets the history. */
    // [ui thread]
    void setActive(bool on);
    bool isActive() const { return active_.load(std::memory_order_relaxed); }
    /**
     * Forgets the history at the head of the next read, so that nothing held reaches a later read: for
     * a stop, or an input that changes its audio.
     */
    // [ui thread]
    void forget() { forget_.store(true, std::memory_order_relaxed); } // relaxed: a command

    /** Answers false: blocks are served by copy only. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Serves the block from the ring, fetching what the ring lacks first. Silence where it can't. */
    // [audio thread]
    bool read(AudioData& into) override;
    /** Those of the input; 2 without one. */
    int32_t channels() override;
    /** Sizes the ring and the fetch buffer to one second at sampleRate and forgets the history. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /** Timeline position after the last frame held. */
    // [audio thread]
    int64_t filledTo() const { return ring_.filledTo; }
    /** Frames of history the ring holds. */
    int64_t ringLength() const { return ring_.frames; }

private:
    /** The history: frames holds the ring's length, filledTo the position after its last frame. */
    struct Ring : AudioBuffer
    {
        int64_t filledTo = 0;
    };

    void fetchInto(int64_t position, int64_t count);
    int64_t slot(int64_t position) const;

    AudioSource* input_ = nullptr;
    Ring ring_;
    AudioBuffer fetch_;
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
    // Written by the interface (Track::setPlaying), read at the head of each read; relaxed: a command.
    std::atomic<bool> active_{false};
    // Set by the interface, taken at the head of a read; relaxed: a command, and the read that takes it
    // decides alone what it serves.
    std::atomic<bool> forget_{false};
};
