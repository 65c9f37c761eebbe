#pragma once

#include "audiofiles/AudioFile.h"
#include "engine/graph/Interleaver.h"

#include <memory>

class libSoundFilePrivate_sf;

/**
 * Reader over libsndfile: WAV, AIFF, CAF, FLAC, Ogg and whatever else the library knows. Samples
 * come as floats normalised to +-1.0 whatever the file's format.
 *
 * A read continues from the decoder's position without seeking when the request follows the last
 * one; a read at position 0 always seeks, to restart a decoder left anywhere. A read that runs past
 * the end fails as a whole (AudioFileGuessSafe turns that into samples and silence).
 */
class AudioFile_sf : public AudioFile
{
public:
    AudioFile_sf();
    ~AudioFile_sf() override;

    /** Hands out a block of this reader's own buffer, with the request's channels (the file's if
     * the request says 0). */
    bool provide(AudioData& request) override;
    /**
     * Fills into at its position, frames and channels. File channels beyond those of into are
     * dropped; channels of into beyond the file's stay as they were.
     * @return false when the position can't be reached or the file ends before the block does; the
     * output is then untouched
     */
    bool read(AudioData& into) override;
    int32_t channels() override;

    bool open(const epiPath& path) override;
    void close() override;
    bool isOpen() const override { return private_ != nullptr; }
    uint64_t frames() const override;
    int32_t sampleRate() const override;
    void duration(AudioFileTime& time) const override;

    /** Why the last open failed, as libsndfile put it; empty after a good open. */
    const std::string& error() const { return error_; }

private:
    /** Moves the decoder to a frame; the frame reached, or -1. */
    int64_t seekDecoder(int64_t position);

    int64_t length_ = 0;
    /** The frame that the decoder delivers next. */
    uint64_t cursor_ = 0;
    Interleaver interleaver_;
    AudioBuffer block_;
    std::unique_ptr<libSoundFilePrivate_sf> private_;
    std::string error_;
};
