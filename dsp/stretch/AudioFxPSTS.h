#pragma once

#include "dsp/stretch/nvEfx.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"

#include <atomic>
#include <cstdint>
#include <memory>

/** Feeds the speed/pitch effect from an upstream node of the graph. */
class AudioFxPSTSSource final : public nvEfxSource
{
public:
    /** @param upstream the node read from, not owned; null reads silence */
    // [ui thread, device stopped]
    void setSource(AudioSource* upstream) { upstream_ = upstream; }
    AudioSource* source() const { return upstream_; }

    /**
     * Reads count frames at position from upstream into channels (two planes, or one when the second
     * pointer is null). Where upstream delivers nothing, the planes are silenced.
     * @return count
     */
    // [audio thread]
    int32_t read(float** channels, int64_t position, int32_t count) override;

private:
    AudioSource* upstream_ = nullptr;
};

/**
 * The speed and pitch node of a track. Downstream of it positions are output frames, upstream they are
 * source frames: at a stretch s, output position p reads the source around p / s. A jump in the
 * requested positions (loop, locate) restarts the grains at the matching source position.
 *
 * With speed and pitch at unity the node is a straight line: the request goes to the upstream node at
 * the same position, unprocessed, with no latency.
 *
 * The upstream node is read at positions that move back and forth around the play position; a history
 * reader in front of a streaming file turns that into forward reads.
 */
class AudioFxPSTS final : public AudioSource
{
public:
    AudioFxPSTS();
    ~AudioFxPSTS();
    AudioFxPSTS(const AudioFxPSTS&) = delete;
    AudioFxPSTS& operator=(const AudioFxPSTS&) = delete;

    /** Wires the upstream node, not owned. */
    // [ui thread, device stopped]
    void setSource(AudioSource* upstream);
    AudioSource* source() const { return upstream_; }

    /**
     * @param stretch output time over source time: 1 / (speed times the session's rate factor),
     *        limited to 0.001 .. 10
     */
    // [ui thread]
    void setStretch(float stretch);
    /** @param factor 2 to the power of minus the semitones over 12, limited to 0.001 .. 10 */
    // [ui thread]
    void setPitch(float factor);

    /** Processes into the node's own buffer and hands it over; false for more frames than prepared. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Processes into the caller's two channels; false before prepare or with fewer than two. */
    // [audio thread]
    bool read(AudioData& into) override;
    /** Always 2. */
    int32_t channels() override { return 2; }
    /**
     * Makes a new effect for the rate, stereo in and out, and sizes the output buffer for the block.
     * Speed and pitch are back at unity afterwards: the owner sets them again.
     */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    uint32_t sampleRate() const { return sampleRate_; }
    uint32_t blockSize() const { return blockSize_; }
    /** The effect, for inspection; null before prepare. */
    nvEfxPstsPoly* effect() const { return effect_.get(); }

private:
    AudioSource* upstream_ = nullptr;
    AudioBuffer output_;
    std::unique_ptr<AudioFxPSTSSource> feed_;
    std::unique_ptr<nvEfxPstsPoly> effect_;
    uint32_t sampleRate_ = 0;
    uint32_t blockSize_ = 0;
};
