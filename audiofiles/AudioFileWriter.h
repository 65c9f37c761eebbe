#pragma once

#include "audiofiles/AudioFile.h"
#include "audiofiles/AudioFileFormats.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/Interleaver.h"

#include <memory>
#include <string>

/**
 * Writes uncompressed audio through libsndfile, for recording, freezing and export. A writer belongs
 * to one thread at a time.
 */
class AudioFileWriter : public AudioFileFormats
{
public:
    /** Frames per piece of append and writeSilence: bounds the memory of long copies. */
    static constexpr int64_t kPieceFrames = 100000;

    AudioFileWriter();
    ~AudioFileWriter() override;

    /**
     * Creates (or replaces) a file in the given format. A container or depth outside the tables
     * gives 16-bit WAVE.
     * @return false, the writer closed, when libsndfile refuses; error() says why
     */
    virtual bool open(const epiPath& path, const AudioFileFormat& format);
    /** Finishes the file (its header is written here). */
    virtual void close();
    virtual bool isOpen() const;
    /**
     * Copies frames first to last of a file, in pieces; last -1 means to the file's end. At least one
     * write is made, an empty one when there is nothing to copy. A failed write doesn't stop the copy.
     * @return the result of the last read
     */
    virtual bool append(AudioFile& file, int64_t first, int64_t last);
    /**
     * Writes data's frames from its channels. An integer depth clips samples beyond +-1 to full
     * scale; a float depth keeps them. @return true when all frames were written
     */
    virtual bool writeFloat(const AudioData& data);
    /**
     * Writes data's frames whose arrays hold 32-bit integer samples in the float slots (full scale
     * 2^31), as libsndfile's integer interface takes them.
     */
    virtual bool writeInt(const AudioData& data);
    /** Writes frames of silence in pieces; at least one write, an empty one for 0 frames. */
    virtual bool writeSilence(int64_t frames);
    virtual int32_t sampleRate() const { return sampleRate_; }

    /** Why the last open failed. */
    const std::string& error() const { return error_; }

private:
    struct Handle;

    std::unique_ptr<Handle> handle_;
    Interleaver interleaver_;
    int32_t sampleRate_ = 0;
    int32_t channels_ = 0;
    std::string error_;
};
