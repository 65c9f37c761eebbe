#pragma once

#include "engine/graph/AudioSource.h"

#include <atomic>
#include <cstdint>

/**
 * Forwards every call to one of two inputs. The selection is a single value the interface writes and
 * the audio thread reads once per call, so a track changes its routing without a lock; the node that is
 * not selected is not pulled.
 */
class AudioSwitch : public AudioSource
{
public:
    virtual ~AudioSwitch() = default;

    /** Wires the inputs (not owned). */
    // [ui thread, device stopped]
    void setFirst(AudioSource* source) { first_ = source; }
    // [ui thread, device stopped]
    void setSecond(AudioSource* source) { second_ = source; }
    AudioSource* first() const { return first_; }
    AudioSource* second() const { return second_; }

    /** Selects the first input when on, the second when off. */
    // [ui thread]
    void selectFirst(bool on)
    {
        selector_.store(on ? 0 : 1, std::memory_order_relaxed);
    } // relaxed: a command
    /** Selects the second input when on, the first when off. */
    // [ui thread]
    void selectSecond(bool on)
    {
        selector_.store(on ? 1 : 0, std::memory_order_relaxed);
    } // relaxed: a command
    /** True while the first input is selected. */
    // [any thread]
    bool isFirstSelected() const { return selector_.load(std::memory_order_relaxed) == 0; }

    // [audio thread]
    bool provide(AudioData& request) override;
    // [audio thread]
    bool read(AudioData& into) override;
    /** Those of the selected input; 2 without one. */
    int32_t channels() override;
    /** Nothing: the owner of the chain prepares the inputs. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

protected:
    AudioSource* selected() const { return isFirstSelected() ? first_ : second_; }

    AudioSource* first_ = nullptr;
    AudioSource* second_ = nullptr;

private:
    // 0 selects first_, anything else second_. Relaxed: the inputs it picks between are wired before the
    // stream starts, so the value publishes nothing.
    std::atomic<int32_t> selector_{0};
};

/**
 * A switch between an effect (first) and the dry path (second) that keeps a switched-off effect running
 * until its output has stayed below 0.05 for half a second. The drained audio is thrown away; the point
 * is that no stale reverb or delay tail comes back when the effect is switched on again.
 */
class AudioSwitchFeed final : public AudioSwitch
{
public:
    /** Frames the effect keeps being pulled once quiet: half a second. */
    static constexpr double kHoldSeconds = 0.5;
    /** Peak below which the effect counts as quiet. */
    static constexpr float kQuietPeak = 0.05f;

    // [audio thread]
    bool provide(AudioData& request) override;
    // [audio thread]
    bool read(AudioData& into) override;
    /** Stores the rate and sizes the drain buffer. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /** True while a switched-off first input is still being drained. */
    // [audio thread]
    bool isDraining() const { return draining_; }

private:
    AudioSource* beforeForward(const AudioData& request);
    void drainStep(const AudioData& request);

    AudioBuffer drain_;
    // Audio thread only: both are touched by provide and read alone.
    bool draining_ = true;
    uint32_t sampleRate_ = 0;
    int32_t holdFrames_ = 0;
};
