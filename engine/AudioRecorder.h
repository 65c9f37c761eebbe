#pragma once

#include "engine/graph/AudioSource.h"
#include "epi/epiPath.h"

#include <cstdint>

/**
 * The sink side of a track: blocks are pushed into it by write, the one place in the graph where a
 * node is pushed to rather than pulled. What it does with them (a file, a memory) is the subclass's.
 */
class AudioRecorder : public AudioSource
{
public:
    virtual ~AudioRecorder() = default;

    /**
     * Appends one block. Runs on the audio thread: copies, never blocks.
     * @param data the block; its position is the timeline position of its first frame (engine frames)
     */
    // [audio thread]
    virtual void write(AudioData& data) = 0;

    /**
     * Frames by which the recorded stream is shifted back: the device's round trip, so that what is
     * recorded lines up with what the player heard.
     */
    // [ui thread, device stopped]
    virtual void setLatency(int64_t frames) = 0;

    /** Starts a recording into path, closing one that runs. @return false, nothing changed, on failure */
    // [ui thread]
    virtual bool open(const epiPath& path) = 0;

    /** Finishes the recording: everything write accepted is in the file when this returns. */
    // [ui thread]
    virtual void close() = 0;
};
