#pragma once

#include "audiofiles/AudioFile.h"
#include "engine/graph/Interleaver.h"

#include <memory>

class libSoundFilePrivate_av;

/**
 * The fall-back reader for the compressed containers that libsndfile can't open (AAC in M4A, and
 * whatever else FFmpeg's libraries decode). It decodes straight into the output's planar channels.
 * Frame 0 is the first sample of the music: the codec's start delay is removed. Seeking is
 * frame-accurate, so a read at any position gives the samples a sequential read would.
 *
 * Unlike AudioFile_sf, a block that runs past the end of the stream succeeds: what exists is
 * delivered and the rest is silence.
 */
class AudioFile_av : public AudioFile
{
public:
    AudioFile_av();
    ~AudioFile_av() override;

    bool provide(AudioData& request) override;
    /**
     * Fills into at its position, frames and channels; channels of into beyond the file's stay as
     * they were. False when the position can't be reached.
     */
    bool read(AudioData& into) override;
    int32_t channels() override;

    bool open(const epiPath& path) override;
    void close() override;
    bool isOpen() const override { return private_ != nullptr; }
    uint64_t frames() const override;
    int32_t sampleRate() const override;
    void duration(AudioFileTime& time) const override;

    /** Why the last open failed; empty after a good open. */
    const std::string& error() const { return error_; }

private:
    int64_t length_ = 0;
    /** The frame that the decoder delivers next. */
    uint64_t cursor_ = 0;
    /** Kept for the shape shared with AudioFile_sf; decoding needs no interleaved store. */
    Interleaver interleaver_;
    AudioBuffer block_;
    std::unique_ptr<libSoundFilePrivate_av> private_;
    std::string error_;
};
