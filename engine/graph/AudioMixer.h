#pragma once

#include "engine/graph/MixerInputControls.h"
#include "engine/graph/TrackSource.h"
#include "epi/epiText.h"

#include <atomic>
#include <cstdint>

/**
 * One strip of the mixer: the source it sums, its level and pan, and the flags of the mute and solo
 * rule. The values the audio thread reads are atomics written by single relaxed stores: each is a
 * command on its own and orders nothing else.
 */
class MixerInput final : public MixerInputControls
{
public:
    void setMute(bool on) override { muted_.store(on, std::memory_order_relaxed); }
    bool isMuted() const override { return muted_.load(std::memory_order_relaxed); }
    bool isSolo() const override { return solo_.load(std::memory_order_relaxed); }
    void setVolume(float dB) override;
    float volume() const override { return volumeDb_; }
    const epiText& volumeText() override;
    void setPan(float pan) override { panValue_.store(pan, std::memory_order_relaxed); }
    float pan() const override { return panValue_.load(std::memory_order_relaxed); }
    const epiText& panText() override;
    void setSoloExempt(bool on) override { soloExempt_.store(on, std::memory_order_relaxed); }
    void setSolo(bool on) override { solo_.store(on, std::memory_order_relaxed); }
    void setSoloActive(bool on) override { soloActive_.store(on, std::memory_order_relaxed); }

    bool isSoloActive() const { return soloActive_.load(std::memory_order_relaxed); }
    bool isSoloExempt() const { return soloExempt_.load(std::memory_order_relaxed); }
    /** The linear factor derived from the level. */
    // [any thread]
    float gain() const { return gain_.load(std::memory_order_relaxed); }

    /**
     * The rule of mute and solo: without an active solo, or on an exempt strip, a strip plays unless
     * muted; with a solo active a strip plays exactly when it is soloed, muted or not.
     */
    // [audio thread]
    bool plays() const;

    /** The summed source (not owned); set while the device is stopped. */
    TrackSource* source() const { return source_; }
    // [ui thread, device stopped]
    void setSource(TrackSource* source) { source_ = source; }

private:
    TrackSource* source_ = nullptr;
    float volumeDb_ = 0.0f; // interface thread only
    std::atomic<float> panValue_{0.0f};
    std::atomic<bool> muted_{false};
    std::atomic<bool> solo_{false};
    std::atomic<bool> soloActive_{false};
    std::atomic<bool> soloExempt_{false};
    std::atomic<float> gain_{1.0f};
    epiText text_; // interface thread only: the last formatted text
};

/**
 * The summing point of the engine: five strips, the four tracks on inputs 0 to 3 and the metronome on
 * input 4, into one stereo output. It has two passes because a track reaches it one of two ways in each
 * block: an armed track through the live pass (mixLive), every other through read. It measures nothing.
 */
class AudioMixer final : public AudioSource
{
public:
    static constexpr int32_t kInputs = 5;
    /** The metronome's strip. */
    static constexpr int32_t kMetronomeInput = 4;

    /** Answers false: the mixer only adds into a block it is given. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /**
     * The playback pass: asks each strip's source by provide and adds what plays into output, then
     * clamps output. It does not clear output first: the caller does.
     */
    // [audio thread]
    bool read(AudioData& output) override;
    int32_t channels() override { return 2; }
    /** Stores the format. The sources are prepared by their owner. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /**
     * The live pass: gives input to each strip's processInput and adds what plays into output. It does
     * not clamp: read comes after it in the block and clamps the sum of both passes.
     */
    // [audio thread]
    virtual bool mixLive(AudioData& input, AudioData& output);

    /** Puts a source on a strip (not owned); null empties it. Out-of-range indexes are ignored. */
    // [ui thread, device stopped]
    void setSource(int32_t index, TrackSource* source);
    /** The strip's controls; an out-of-range index gives strip 0. */
    MixerInputControls& input(int32_t index);
    /** The strip itself; an out-of-range index gives strip 0. */
    MixerInput& strip(int32_t index);

    /** Sets the strip's solo and tells every strip whether any solo is now active. */
    // [ui thread]
    void setSolo(int32_t index, bool on);

    /** Stores the master level in dB and sets the master gain to 10^(dB/20). */
    // [ui thread]
    void setMaster(float dB);
    float master() const { return masterDb_; }
    /** The master level as text, e.g. "-6.0dB"; valid until the next call. */
    // [ui thread]
    const epiText& masterText();
    /** The linear master factor. */
    float masterGain() const { return masterGain_.load(std::memory_order_relaxed); }

    uint32_t sampleRate() const { return sampleRate_; }
    uint32_t blockSize() const { return blockSize_; }

private:
    void addStrip(const MixerInput& strip, const AudioData& block, AudioData& output, float master) const;

    MixerInput inputs_[kInputs];
    float masterDb_ = 0.0f; // interface thread only
    // Relaxed: a command read once per pass.
    std::atomic<float> masterGain_{1.0f};
    epiText masterText_;
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
};
