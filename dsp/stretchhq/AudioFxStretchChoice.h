#pragma once

#include "dsp/stretch/AudioFxPSTS.h"
#include "dsp/stretchhq/AudioFxHQStretch.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"

#include <atomic>
#include <cstdint>

/** Which speed and pitch engine plays a track. */
enum class StretchQuality : int32_t
{
    standard = 0, ///< the grain engine: tiny cost
    high = 1,     ///< the phase vocoder: clean sustained notes, more CPU
};

/**
 * A track's speed and pitch node: the standard engine and the high-quality one side by side, both fed
 * from the same upstream node and given the same speed and pitch, one of them playing.
 *
 * The quality may be changed from the interface thread while the node plays. It takes effect at the
 * next jump in the requested positions (a loop, a locate, the start of playback), where either engine
 * restarts anyway, so the change never cuts into a running stream. At unity speed and pitch both
 * engines are the same straight line, so the change takes effect at once there.
 *
 * Speeds the high-quality engine doesn't cover (below a quarter, above four times) play through the
 * standard one whichever is chosen.
 *
 * The high-quality engine costs memory and a good part of a second to make, so it is made only once it
 * is asked for: in prepare when it is already chosen, else by the first setQuality that chooses it. The
 * audio thread reaches it only after it has seen that choice, which is published after the making.
 */
class AudioFxStretchChoice final : public AudioSource
{
public:
    AudioFxStretchChoice() = default;
    AudioFxStretchChoice(const AudioFxStretchChoice&) = delete;
    AudioFxStretchChoice& operator=(const AudioFxStretchChoice&) = delete;

    /** Wires the upstream node of both engines, not owned. */
    // [ui thread, device stopped]
    void setSource(AudioSource* upstream);
    AudioSource* source() const { return standard_.source(); }

    /** @param stretch output time over source time: 1 / (speed times the session's rate factor) */
    // [ui thread]
    void setStretch(float stretch);
    /** @param factor 2 to the power of minus the semitones over 12 */
    // [ui thread]
    void setPitch(float factor);
    /**
     * Asks for an engine; it plays from the next position jump. Choosing the high-quality engine the
     * first time after prepare makes it here, on the calling thread.
     */
    // [ui thread]
    void setQuality(StretchQuality quality);
    /** The engine asked for. */
    StretchQuality quality() const
    {
        return static_cast<StretchQuality>(requested_.load(std::memory_order_relaxed));
    }
    /** The engine playing now. */
    // [any thread]
    StretchQuality playing() const
    {
        return static_cast<StretchQuality>(playing_.load(std::memory_order_relaxed));
    }

    // [audio thread]
    bool provide(AudioData& request) override;
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return 2; }
    /**
     * Prepares the standard engine, and the high-quality one when it is the engine asked for (else it is
     * released); speed and pitch are back at unity afterwards.
     */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    AudioFxPSTS& standard() { return standard_; }
    AudioFxHQStretch& high() { return high_; }

private:
    /** Takes the engine asked for when the block at position may switch. */
    AudioSource& engineFor(int64_t position, int64_t frames);

    AudioFxPSTS standard_;
    AudioFxHQStretch high_;
    // Written by the interface thread, read at the head of each block. Stored with release after the
    // engine it names has been made, loaded with acquire before that engine is used.
    std::atomic<int32_t> requested_{0};
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
    // Written by the audio thread when it switches, read by anyone; relaxed: a status.
    std::atomic<int32_t> playing_{0};
    // Unity as the interface last set it; relaxed: the engines order their own parameters.
    std::atomic<bool> unity_{true};
    std::atomic<float> stretch_{1.0f};
    std::atomic<float> pitch_{1.0f};
    // Audio thread only: where the next block continues, and where the standard engine stopped.
    int64_t expected_ = -1;
    int64_t standardEnd_ = -1;
};
