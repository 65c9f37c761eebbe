#pragma once

#include "audiofiles/AudioResampler.h"
#include "dsp/RandomAccessPCM.h"
#include "dsp/SincInterpolator.h"

#include <cstdint>
#include <memory>
#include <vector>

/**
 * The quality rate converter of the graph: one HiQualityResampler for each channel of an AudioFile.
 * With equal rates a read goes to the file untouched. A sequential stream never seeks; a jump in
 * position costs one filter length of computation on each channel.
 *
 * setProvider, prepare, setOutputRate and sourceChanged run on the interface thread while the engine
 * isn't pulling the node (they design filters and allocate); read runs on the audio thread or an
 * offline job's thread and allocates nothing.
 */
class AudioResampler_DSP : public AudioResampler
{
public:
    /**
     * Joins the block world of AudioSource to the mono RandomAccessPCM world: one channel of the
     * provider, read by position. Each wrapper asks the provider by itself, so a stereo file is read
     * once for each channel.
     */
    class RAwrapperForAudioProvider : public dsp::RandomAccessPCM
    {
    public:
        void setProvider(AudioFile* provider, int32_t channel, int32_t providerChannels);
        // [audio thread]
        void seek(int32_t position) override { position_ = position; }
        /** Writes `count` frames from the position: this channel of the frames the provider
         * has there, which are all it is asked for, and silence before the file, past its end and
         * where a request fails. Always advances by and returns `count`. */
        // [audio thread]
        int32_t read(float* destination, int32_t count) override;
        int32_t length() override;
        float rate() override;

    private:
        AudioFile* provider_ = nullptr;
        int32_t channel_ = 0;
        int32_t position_ = 0;
        int32_t providerChannels_ = 0;
    };

    AudioResampler_DSP() = default;
    ~AudioResampler_DSP() override;

    /** Converts into.frames frames at into.position (output frames); false until sourceChanged
     * found a non-empty provider. */
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return channels_; }
    /** Stores the output rate; sourceChanged builds for it. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;
    // [ui thread, device stopped]
    void setProvider(AudioFile* provider) override { provider_ = provider; }
    /** Rebuilds the chain for the provider's length, rate and channels, designs and seeks to 0. */
    // [ui thread, device stopped]
    void sourceChanged() override;
    /** Length at the output rate. */
    int64_t frames() override { return framesOut_; }

    /** Sets the channel count the node answers with. */
    // [ui thread, device stopped]
    virtual void setChannels(int32_t channels) { channels_ = channels; }
    /** Designs every channel's resampler for `rate` and seeks them to 0. */
    // [ui thread, device stopped]
    virtual void setOutputRate(float rate);

    /**
     * Converts `count` frames from output frame `position` into channels[0..channels()).
     * @return true
     */
    // [audio thread]
    bool process(int64_t position, int64_t count, float* const* channels);

    bool ready() const { return ready_; }
    /** Why the last sourceChanged left the node not ready, in a few words for a message; null when
     * it is ready. */
    const char* refusal() const { return ready_ ? nullptr : refusal_; }
    int32_t nextPosition() const { return nextPosition_; }

private:
    std::vector<RAwrapperForAudioProvider> wrappers_;
    std::vector<std::unique_ptr<dsp::HiQualityResampler>> resamplers_;
    float outputRate_ = 0.0f;
    float inputRate_ = 0.0f;
    int32_t channels_ = 0;
    AudioFile* provider_ = nullptr;
    int64_t framesOut_ = 0;
    bool ready_ = false;
    int32_t nextPosition_ = 0;
    bool designed_ = false; // every channel's resampler accepted the last output rate
    const char* refusal_ = "no file was given";
};

/** A factory that makes AudioResampler_DSP, for owners that take an AudioResamplerFactory. */
AudioResamplerFactory qualityResamplerFactory();

/**
 * Makes the quality resampler the default of every waveform preview (AudioPreview,
 * PreviewCache), which the file library, below this one, can't make by itself. Every program
 * that shows or makes previews calls this once at start-up, before any preview opens.
 */
// [ui thread, start-up]
void useQualityResamplerForPreviews();
