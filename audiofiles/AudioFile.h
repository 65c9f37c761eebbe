#pragma once

#include "engine/graph/AudioSource.h"

#include "epi/epiPath.h"
#include <cstdint>

#include <string>

/** A length handed back by AudioFile::duration, in units of one seventy-fifth of a second. */
struct AudioFileTime
{
    int32_t value = 0;
};

/**
 * A source that reads a file on disk: an AudioSource with the file operations added. Positions in
 * requests are frames of the file; a reader delivers 32-bit float samples normalised to +-1.0.
 *
 * A reader is used by one thread at a time.
 */
class AudioFile : public AudioSource
{
public:
    AudioFile() = default;
    AudioFile(const AudioFile&) = delete;
    AudioFile& operator=(const AudioFile&) = delete;
    virtual ~AudioFile();

    /** Announces the stream format; a plain reader needs nothing from it. */
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /**
     * Opens a file for reading, closing what was open before.
     * @param path the file; its native form is what the libraries get
     * @return true when the file is open and its format known
     */
    virtual bool open(const epiPath& path) = 0;
    /** Closes the file; nothing happens when none is open. */
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    /** Length in frames; 0 without a file. */
    virtual uint64_t frames() const = 0;
    /** Frames per second; 0 without a file. */
    virtual int32_t sampleRate() const = 0;
    /** Writes the length in seventy-fifths of a second into time.value. */
    virtual void duration(AudioFileTime& time) const = 0;
    /** Frames that can be played; the length unless a reader knows better. */
    virtual int64_t playableFrames() const { return static_cast<int64_t>(frames()); }
    /** Whether the length may change while open; no reader says so. */
    virtual bool isVariable() const { return false; }
    /** Reserved for later readers. */
    virtual void spare1() {}
    /** Reserved for later readers. */
    virtual void spare2() {}
};
