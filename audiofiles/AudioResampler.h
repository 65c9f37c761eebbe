#pragma once

#include "audiofiles/AudioFile.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"

#include <cstdint>
#include <functional>
#include <memory>

/**
 * Base of the rate converters: an AudioSource that reads an AudioFile at its own rate and delivers
 * it at the rate given to prepare. Positions and frame counts of requests are frames at the output
 * rate. These nodes are pulled by read alone: provide answers false.
 *
 * setProvider and sourceChanged run on the interface thread while nothing pulls the node; read runs
 * on the audio thread or an offline job's thread.
 */
class AudioResampler : public AudioSource
{
public:
    AudioResampler() = default;
    AudioResampler(const AudioResampler&) = delete;
    AudioResampler& operator=(const AudioResampler&) = delete;
    virtual ~AudioResampler();

    /** Resamplers hand out no blocks of their own. */
    // [audio thread]
    bool provide(AudioData& request) override;

    /** The input file, not owned; it must outlive its use here. */
    // [ui thread, device stopped]
    virtual void setProvider(AudioFile* provider) = 0;
    /** Re-reads the input's length, rate and channels and rebuilds what depends on them. */
    // [ui thread, device stopped]
    virtual void sourceChanged() = 0;
    /** Length of the output in frames. */
    virtual int64_t frames() = 0;
};

/** Makes a resampler; how an owner is handed the quality resampler without depending on it. */
using AudioResamplerFactory = std::function<std::unique_ptr<AudioResampler>()>;

/**
 * The drop-sample converter: output frame i of a block is input frame i * input rate / output rate,
 * truncated. No filtering of any kind: it aliases by design, and serves one-time conversions of short
 * sounds. With equal rates it is an exact copy.
 */
class AudioResampler_aliased : public AudioResampler
{
public:
    AudioResampler_aliased() = default;
    ~AudioResampler_aliased() override;

    /** Converts the block at into.position (output frames) into into's channels. */
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return channels_; }
    /** Stores the output rate and block size and rebuilds from the provider. Allocates. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    void setProvider(AudioFile* provider) override { provider_ = provider; }
    /** Takes channels and rate from the provider and sizes the input buffer for one block. */
    void sourceChanged() override;
    /** The provider's frame count as it stands, without conversion (what a one-pass load uses). */
    int64_t frames() override;

    /**
     * The drop-sample copy of count output frames from position on. Reads the input frames that the
     * block spans from the provider; frames past the provider's end are silence.
     * @param output channel pointers, channels() of them
     * @return true; on a failed input read the output stays as it was
     */
    // [audio thread]
    virtual bool process(int64_t position, int64_t count, float* const* output);

private:
    AudioFile* provider_ = nullptr;
    int32_t channels_ = 0;
    uint32_t outputRate_ = 0;
    int32_t inputRate_ = 0;
    AudioBuffer input_;
    uint32_t blockSize_ = 0;
};
