#pragma once

#include "audiofiles/AudioFileWriter.h"
#include "engine/Exporter.h"
#include "engine/graph/AudioData.h"
#include "epi/epiPath.h"

#include <cstdint>

class Manager;

/**
 * Renders the whole session, or its loop, through the mixer into an audio file, one second of audio
 * for each call of render. The four tracks read their files directly (no streaming thread, no frame
 * lost) and play from the start of the range; armed tracks deliver nothing, and the metronome's strip
 * is part of the mix, so the interface turns the click off first when it wants none. The transport's
 * position isn't touched.
 *
 * Runs on the interface thread with the device suspended: it has the graph to itself.
 */
class AudioExporter : public Exporter
{
public:
    /**
     * Sets the job up: the tracks to direct reading and playing, the writer opened on path at the
     * Manager's rate, the range from 0 to the longest track (or the loop).
     * A writer that could not be opened isn't an error here: its writes fail without a word (see
     * isWriterOpen).
     * @param container a container value of AudioFileFormats (0 WAVE, 1 AIFF, 2 CAF)
     * @param bitDepth a depth value of AudioFileFormats (0 16 bit ... 3 float)
     * @param loopOnly render from the loop start to the loop end
     */
    // [ui thread, device stopped]
    AudioExporter(Manager& manager, const epiPath& path, int32_t container, int32_t bitDepth, bool loopOnly);
    ~AudioExporter() override;

    /**
     * Renders up to a second. False when nothing is left to render (a zero-length range fails here).
     * When finished the tracks go back to streaming and the file is closed.
     */
    // [ui thread, device stopped]
    bool render(float& progress, bool& finished) override;
    /** Puts the tracks back, closes the writer and deletes the file. */
    // [ui thread, device stopped]
    void cancel() override;

    bool isWriterOpen() const { return writer_.isOpen(); }
    /** Next frame to render, and the end of the range. */
    int64_t position() const { return position_; }
    int64_t end() const { return end_; }

private:
    void releaseTracks();

    Manager* manager_;
    AudioFileWriter writer_;
    int64_t position_ = 0;
    int64_t end_ = 0;
    epiPath path_;
    AudioBuffer block_;
    bool loopOnly_ = false;
};

/**
 * Renders one track with its effect, as it plays (speed and pitch included), into a WAVE file of 24
 * bit beside the track's file, with the track's number and "_frozen" added to the name; at the end the track
 * plays that file and releases its plug-in instance. One second of audio for each call of render. An armed
 * track is rendered from its file as if it were not armed, and stays armed. A file that can't be created or
 * written fails the job, naming the file.
 */
class TrackFreezer : public Exporter
{
public:
    /**
     * Sets the job up: the output path is derived and any file there deleted, the track reads directly
     * and plays, the writer opens at the Manager's rate.
     * @param track 0 to 3
     */
    // [ui thread, device stopped]
    TrackFreezer(Manager& manager, int32_t track);
    ~TrackFreezer() override;

    /**
     * Renders up to a second. When finished: the track goes back to streaming and stops, its effect is
     * flushed (100 silent blocks clear its state for the next use), the file is closed and the track
     * plays it, frozen.
     */
    // [ui thread, device stopped]
    bool render(float& progress, bool& finished) override;
    /** Puts the track back, closes the writer and deletes the file. */
    // [ui thread, device stopped]
    void cancel() override;
    /** The frozen file that could not be created or written, by name. */
    epiText failure() const override { return failure_; }

    /** The frozen file: the track's file with "_T", the track's number and "_frozen" added, and the
     * extension "wav" ("riff.wav" on track index 1 gives "riff_T2_frozen.wav"). */
    const epiPath& path() const { return path_; }
    int64_t end() const { return end_; }

    /** The frozen file's name for a track's file; track 0 to 3. */
    static epiPath frozenPathFor(const epiPath& file, int32_t track);

private:
    Manager* manager_;
    AudioFileWriter writer_;
    int64_t position_ = 0;
    int64_t end_ = 0;
    epiPath path_;
    int32_t track_;
    AudioBuffer block_;
    bool wasArmed_ = false;
    epiText failure_;
};

/** The Manager's offline jobs, run through its task: set up here, rendered a slice per poll. */
namespace ManagerJobs
{

/**
 * Suspends the device and starts rendering the session (or its loop) into path; the progress panel
 * gets "Rendering session".
 */
// [ui thread]
void startExport(Manager& manager, const epiPath& path, int32_t container, int32_t bitDepth, bool loopOnly);

/**
 * Off: the track plays its file through its effect again, and its frozen file is deleted. On: the
 * device is suspended and the track is rendered through its effect again into its "_frozen" file
 * (the progress panel gets "Freezing track"); the job freezes it at its end.
 */
// [ui thread]
void setTrackFrozen(Manager& manager, int32_t track, bool on);

} // namespace ManagerJobs
