#pragma once

#include "audiofiles/AudioFile.h"
#include "audiofiles/AudioResampler.h"

/**
 * A sound held in memory, for short sounds such as the metronome's clicks. After loading it has no
 * file of its own: open fails and close does nothing. A mono sound stays mono.
 *
 * Loading happens on the interface thread while nothing pulls the node; reads need no lock since the
 * samples don't change afterwards.
 */
class AudioFileLoaded : public AudioFile
{
public:
    AudioFileLoaded() = default;
    ~AudioFileLoaded() override;

    /** Points the request at the held samples from its position on, its frames limited to what is
     * there; no sample moves. False when the position lies outside the sound. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Copies from the position on, at most what is left; frames past the end stay as they were.
     * False at or after the end. */
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return buffer_.channels; }
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    bool open(const epiPath& path) override;
    void close() override {}
    bool isOpen() const override { return true; }
    uint64_t frames() const override;
    /** 44,100 whatever the rate of the samples: the engine plays these sounds at their own pace. */
    int32_t sampleRate() const override { return 44100; }
    void duration(AudioFileTime&) const override {}

    /** Takes a copy of data's frames and channels. */
    // [ui thread]
    virtual void loadFrom(const AudioData& data);
    /** Reads a whole file; when it can't be opened everything stays as it was. */
    // [ui thread]
    virtual bool load(const epiPath& path);

    /** The held samples. */
    const AudioBuffer& buffer() const { return buffer_; }

protected:
    AudioBuffer buffer_;
};

/**
 * A loaded sound converted once to the engine's rate with the drop-sample resampler (or, when the
 * owner hands one in, another resampler). The buffer keeps as many frames as the file has: a file of
 * lower rate comes out with its end cut off, and one of higher rate reads past its end, which gives
 * silence there.
 */
class AudioFileLoadedResampled : public AudioFileLoaded
{
public:
    /** Stores the engine's rate and block size for the next loadResampled. */
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /**
     * Loads the whole of an open file at the rate given to prepare.
     * @return false when the file can't be read
     */
    // [ui thread]
    virtual bool loadResampled(AudioFile& file);

    /** Replaces the drop-sample resampler for conversions; null restores it. */
    void setResamplerFactory(AudioResamplerFactory factory) { factory_ = std::move(factory); }

    uint32_t targetRate() const { return targetRate_; }

private:
    uint32_t targetRate_ = 0;
    uint32_t blockSize_ = 0;
    AudioResamplerFactory factory_;
};
