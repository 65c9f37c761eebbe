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
 * That priming costs some 4,000 source frames of work; a second stretcher is primed for the same
 * position a little at each following block, so that the next jump there (a loop) is only a swap.
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
     * Makes the two stretchers for the rate and sizes the buffers for the block; takes some 100 to 400 ms.
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
    /** Where a restart stands: output position and stretch it is for, source frames still to prime
        with, the next source frame to feed, output frames still to drop. */
    struct Restart
    {
        int64_t position = -1;
        float stretch = 0.0f;
        int64_t pad = 0;
        int64_t read = 0;
        int64_t discard = 0;
    };
    /** Resets a stretcher for output position position at stretch stretch; nothing is fed yet. */
    void restart(RubberBand::RubberBandStretcher& stretcher, Restart& r, int64_t position, float stretch);
    /** Primes and drops for a restart, feeding at most budget source frames; true once it is done. */
    bool advance(RubberBand::RubberBandStretcher& stretcher, Restart& r, int64_t budget);
    /** Restarts so that output position lands on its source frame: the spare if it is primed there. */
    void seek(int64_t position, float stretch);
    /** Hands frames of the source from readPosition on to a stretcher, in pieces it accepts. */
    void feed(RubberBand::RubberBandStretcher& stretcher, int64_t& readPosition, int64_t frames);
    /** The feed a stretcher asks for next, within the sizes it is given. */
    static int64_t nextFeed(RubberBand::RubberBandStretcher& stretcher);
    /** Makes at least count output frames available, feeding as needed; false if it can't. */
    bool fill(int64_t count);
    void pull(float* left, float* right, int64_t position, int64_t count);

    AudioSource* upstream_ = nullptr;
    std::unique_ptr<RubberBand::RubberBandStretcher> stretcher_;
    /** Audio thread: the second stretcher, the restart it is being primed for, and whether it is. */
    std::unique_ptr<RubberBand::RubberBandStretcher> spareStretcher_;
    Restart spare_;
    bool spareReady_ = false;
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
    // Audio thread only: the output position the next block continues (-1 restarts), and the next
    // source frame to feed.
    int64_t expected_ = -1;
    int64_t readPosition_ = 0;
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
    /** Interface thread's view: prepare has made a stretcher and release has not dropped it. */
    bool prepared_ = false;
};
