#pragma once

#include "audiofiles/AudioFile.h"

#include <memory>

/**
 * The reader that the rest of the program uses: it tries libsndfile first and FFmpeg's libraries
 * second, whatever the file's extension, so that no caller ever chooses a format. libsndfile wins
 * for every file it can read.
 *
 * Every operation forwards to the reader that opened the file. Without one the bool and numeric
 * operations answer false or 0 and duration leaves its argument as it was.
 */
class AudioFileGuess : public AudioFile
{
public:
    AudioFileGuess();
    ~AudioFileGuess() override;

    bool provide(AudioData& request) override;
    bool read(AudioData& into) override;
    int32_t channels() override;
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    bool open(const epiPath& path) override;
    void close() override;
    bool isOpen() const override;
    uint64_t frames() const override;
    int32_t sampleRate() const override;
    void duration(AudioFileTime& time) const override;
    int64_t playableFrames() const override;
    bool isVariable() const override;

    /** Which library reads the open file: "sndfile", "ffmpeg", or "" when none is open. */
    const char* readerName() const;
    /** Why the last open failed, one line naming what each library said; empty after a good open. */
    const std::string& error() const { return error_; }

private:
    std::unique_ptr<AudioFile> file_;
    std::string error_;
};

/**
 * An AudioFileGuess with a hard end: reads that run past the length measured at open give the
 * frames that exist followed by silence instead of failing, and provide never cuts a block (all or
 * nothing).
 */
class AudioFileGuessSafe : public AudioFileGuess
{
public:
    bool open(const epiPath& path) override;
    /** Forwards when the whole block lies within the file; otherwise false, delivering nothing. */
    bool provide(AudioData& request) override;
    /** Forwards within the file; across its end, zeroes the output and reads what exists. */
    bool read(AudioData& into) override;

private:
    uint64_t limit_ = 0;
};
