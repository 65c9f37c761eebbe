#pragma once

#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace RubberBand
{
class RubberBandStretcher;
}

/**
 * The high-quality speed and pitch node: a phase-vocoder stretcher (Rubber Band's finer engine in its
 * real-time mode) with the contract of the standard node. Downstream positions are output frames,
 * upstream ones source frames; output position p is the source at p / stretch, the stretcher's delay
 * taken off. A jump in the requested positions (loop, locate) or a new stretch restarts the stretcher
 * there: it is primed with the source frames just before the new position and the frames it delays by
 * are dropped, so the first frame heard is the source at that position, not a fade-in from silence.
 *
 * With speed and pitch at unity the node is a straight line to the upstream node, bit-exact, with no
 * latency. The upstream node is read forward from a little before the play position (a history reader
 * in front of a streaming file serves that).
 *
 * Stretch and pitch may be set from the interface thread; each crosses in an atomic and is taken at the
 * head of the next block. A new stretch restarts the stretcher there; a new pitch is handed to the
 * running stretcher, which glides to it without a break. Nothing allocates on the audio thread: the
 * stretcher is told the largest feed it will get and has met every pitch scale and the extreme time
 * ratios when prepare makes it.
 */
class AudioFxHQStretch final : public AudioSource
{
public:
    AudioFxHQStretch();
    ~AudioFxHQStretch();
    AudioFxHQStretch(const AudioFxHQStretch&) = delete;
    AudioFxHQStretch& operator=(const AudioFxHQStretch&) = delete;

    /** Wires the upstream node, not owned; null reads silence. */
    // [ui thread, device stopped]
    void setSource(AudioSource* upstream) { upstream_ = upstream; }
    AudioSource* source() const { return upstream_; }

    /** @param stretch output time over source time, limited to 0.001 .. 10; a change restarts */
    // [ui thread]
    void setStretch(float stretch);
    /** @param factor 2 to the power of minus the semitones over 12, limited to 0.001 .. 10 */
    // [ui thread]
    void setPitch(float factor);

    /** Whether the stretcher handles a stretch (0.25 to 4); outside, the owner plays another engine. */
    static bool covers(float stretch);

    /** Forgets the stream it was playing: the next block restarts wherever it lies. */
    // [audio thread]
    void restart() { expected_ = -1; }

    /** Processes into the node's own buffer and hands it over; false for more frames than prepared. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Processes into the caller's two channels; false before prepare or with fewer than two. */
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return 2; }
    /**
     * Makes the stretcher for the rate and sizes the buffers for the block; takes some 50 to 200 ms.
     * Speed and pitch are back at unity afterwards: the owner sets them again.
     */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /** Frees the stretcher and the buffers; the node delivers nothing until the next prepare. */
    // [ui thread, device stopped]
    void release();
    bool isPrepared() const { return prepared_; }
    uint32_t sampleRate() const { return sampleRate_; }
    uint32_t blockSize() const { return blockSize_; }

    /** Source frames read before a restart's position to prime the stretcher (at the last stretch). */
    // [audio thread]
    int64_t primeFrames() const { return primed_; }

private:
    static bool isUnity(float v);
    /** The stretcher's pitch scale for a pitch factor, within its range. */
    static double pitchScale(float factor);
    /**
     * A stretcher at the rate and pitch scale, ready for the audio thread.
     * @param correction out: output frames its start delay leaves uncounted
     */
    static RubberBand::RubberBandStretcher* make(uint32_t sampleRate, double pitchScale, int64_t& correction);
    /** Fills count frames of both planes for output position position. */
    void process(float* left, float* right, int64_t position, int64_t count);
    void applyChanges();
    /** Restarts the stretcher so that output position lands on its source frame. */
    void seek(int64_t position, float stretch);
    /** Hands frames of the source from readPosition_ on to the stretcher, in pieces it accepts. */
    void feed(int64_t frames);
    /** Makes at least count output frames available, feeding as needed; false if it can't. */
    bool fill(int64_t count);
    void pull(float* left, float* right, int64_t position, int64_t count);

    AudioSource* upstream_ = nullptr;
    std::unique_ptr<RubberBand::RubberBandStretcher> stretcher_;
    AudioBuffer output_;
    AudioBuffer input_;
    AudioBuffer discard_;
    // Written by the interface thread, read at the head of each block. The value is stored relaxed
    // before its flag is set with release; the block takes the flags with acquire and then sees at
    // least that value.
    std::atomic<float> stretch_{1.0f};
    std::atomic<float> pitch_{1.0f};
    std::atomic<uint32_t> pending_{0};
    /** Output frames dropped after a restart beyond the stretcher's start delay, at pitch scale 1;
        set by prepare. */
    int64_t correction_ = 0;
    // Audio thread only: the output position the next block continues (-1 restarts), the next source
    // frame to feed, and the frames primed at the last restart.
    int64_t expected_ = -1;
    int64_t readPosition_ = 0;
    int64_t primed_ = 0;
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
    /** Interface thread's view: prepare has made a stretcher and release has not dropped it. */
    bool prepared_ = false;
};
