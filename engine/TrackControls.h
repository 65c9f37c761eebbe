#pragma once

#include "epi/epiPath.h"
#include "epi/epiText.h"

#include <cstdint>

class AudioPreview;
class epiFileDump;

/**
 * What the interface and the project code may do with a track. Every operation runs on the interface
 * thread; none of them blocks the audio thread.
 */
class TrackControls
{
public:
    /**
     * Prepares a take: stores the punch points and the final name, and derives the temporary name
     * (path with "_tmp" before the extension) that the recorder writes.
     * @param path where the merged take will be written
     * @param punchIn, punchOut engine frames; punchOut 0 means none
     */
    // [ui thread]
    virtual void beginTake(const epiPath& path, int64_t punchIn, int64_t punchOut) = 0;
    /**
     * Starts or ends the take prepared by beginTake. Ending it merges the old file and the take into
     * the new file and loads that.
     * @return false when the recorder could not start or the take could not be merged; takeError()
     *         says why, and no audio was deleted
     */
    // [ui thread]
    virtual bool setRecording(bool on) = 0;
    virtual bool isRecording() const = 0;
    /** Transposition in semitones, applied without changing the speed. */
    // [ui thread]
    virtual void setPitch(float semitones) = 0;
    virtual float pitch() const = 0;
    /** The pitch as "%+d" of its whole semitones; exactly 0 gives "0". */
    virtual epiText pitchText() const = 0;
    /** Playing speed, 1.0 normal; the pitch stays. */
    // [ui thread]
    virtual void setSpeed(float speed) = 0;
    virtual float speed() const = 0;
    /** The speed as a whole percentage, "75%". */
    virtual epiText speedText() const = 0;
    /** Makes or destroys the effect's plug-in instance (never while frozen). */
    // [ui thread]
    virtual void setEffectLoaded(bool on) = 0;
    virtual bool isEffectLoaded() const = 0;
    /** Puts the effect in the path or bypasses it; enabling also loads it. */
    // [ui thread]
    virtual void setEffectEnabled(bool on) = 0;
    virtual bool isEffectEnabled() const = 0;
    /** A frozen track plays its frozen file while the transport runs and holds no plug-in instance. */
    // [ui thread]
    virtual void setFrozen(bool on) = 0;
    virtual bool isFrozen() const = 0;
    /** Opens the frozen rendering of the track. */
    // [ui thread]
    virtual void loadFrozen(const epiPath& path) = 0;
    virtual epiPath frozenPathCopy() const = 0;
    /** Hands a saved plug-in state to the effect. */
    // [ui thread]
    virtual void setEffectState(epiFileDump& state) = 0;
    /** Fetches the effect's present state. */
    // [ui thread]
    virtual void effectState(epiFileDump& state) = 0;
    /** Which input channel is recorded and monitored: 0 left, 1 right, 2 both. */
    // [ui thread]
    virtual void setInput(int32_t choice) = 0;
    virtual int32_t input() const = 0;
    /** An armed track monitors the live input through its effect, whether the transport runs or not. */
    // [ui thread]
    virtual void setArmed(bool on) = 0;
    virtual bool isArmed() const = 0;
    /** The overview of the track's audio, fed while a take runs. */
    virtual AudioPreview& audioPreview() = 0;

protected:
    ~TrackControls() = default;
};
