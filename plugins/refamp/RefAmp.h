#pragma once

#include "plugins/refamp/AmpState.h"
#include "plugins/refamp/Convolver.h"
#include "plugins/refamp/Dsp.h"
#include "plugins/refamp/Preamp.h"
#include "plugins/refamp/Reverb.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace refamp
{

/**
 * The whole amp for a stereo signal: noise gate, drive into the preamp stages (oversampled), the
 * three-band tone stack, presence, master, the cabinet by convolution and a small room.
 *
 * Threads: `setSampleRate`, `reset` and the state run on the interface thread, `process` and
 * `handleMidi` on the audio thread. The sound's values are atomics that either side may write
 * (the state from the interface, program changes and the master controller from MIDI); a version
 * count tells the audio thread to take them over at the start of its next chunk. `process` neither
 * allocates nor locks.
 */
class RefAmp
{
public:
    RefAmp();

    /** Sizes and designs everything for `rate`; the sound starts afresh. */
    // [ui thread]
    void setSampleRate(double rate);
    /** Clears every filter, delay and envelope. */
    // [ui thread]
    void reset();
    bool isPrepared() const { return rate_ > 0.0; }

    /**
     * Processes `frames` frames of two channels; input and output may be the same arrays. Before
     * `setSampleRate` the input is copied through.
     */
    // [audio thread]
    void process(const float* const* inputs, float* const* outputs, int frames);
    /** One short MIDI message, status byte lowest: program change selects a program, CC 7 the master. */
    // [audio thread]
    void handleMidi(std::uint32_t message);

    // [any thread]
    AmpParams params() const;
    // [any thread]
    void setParams(const AmpParams& params);
    // [any thread]
    void selectProgram(int index) { setParams(builtInProgram(index)); }

    // [ui thread]
    std::string stateText() const { return writeState(params()); }
    /** @returns false, changing nothing, when `text` is no state of this amp */
    // [ui thread]
    bool setStateText(std::string_view text);

private:
    /** Takes over the shared values when their version moved. */
    void takeParams();
    void processChunk(float* left, float* right, int frames);
    float gate(float left, float right);

    struct Shared
    {
        // Each value relaxed; the version is released after a write and acquired before a read.
        std::atomic<float> gate{0.0f}, drive{0.0f}, bass{0.0f}, mid{0.0f}, treble{0.0f}, presence{0.0f},
            master{0.0f}, reverb{0.0f};
        std::atomic<int> program{0};
        std::atomic<std::uint32_t> version{0};
    } shared_;

    double rate_ = 0.0;
    std::uint32_t seenVersion_ = ~0u;
    AmpParams active_;

    Biquad inputHighpass_[2];
    Preamp preamp_[2];
    Biquad bass_[2], mid_[2], treble_[2], presence_[2];
    Convolver cabinet_;
    Reverb room_;

    // Gate.
    float gateThreshold_ = 0.0f; // linear; 0 when off
    float envelope_ = 0.0f;
    float gateGain_ = 1.0f;
    int holdLeft_ = 0;
    int holdFrames_ = 0;
    float envelopeRelease_ = 0.0f;
    float gateAttack_ = 0.0f;
    float gateRelease_ = 0.0f;

    float master_ = 1.0f;       // present linear master
    float masterTarget_ = 1.0f; // where the ramp goes
    float reverbMix_ = 0.0f;

    float left_[Preamp::kMaxFrames] = {};
    float right_[Preamp::kMaxFrames] = {};
};

} // namespace refamp
