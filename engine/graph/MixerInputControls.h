#pragma once

#include "epi/epiText.h"

/**
 * The controls of one mixer strip as the interface and the project see them. Everything here runs on
 * the interface thread; a change reaches the audio thread at the next block, unsmoothed.
 */
class MixerInputControls
{
public:
    virtual ~MixerInputControls() = default;

    // [ui thread]
    virtual void setMute(bool on) = 0;
    virtual bool isMuted() const = 0;
    virtual bool isSolo() const = 0;
    /** Stores the level in dB and sets the linear gain to 10^(dB/20). */
    // [ui thread]
    virtual void setVolume(float dB) = 0;
    /** The stored level in dB. */
    virtual float volume() const = 0;
    /** The level as text, e.g. "+0.0dB"; valid until the next text call on this strip. */
    // [ui thread]
    virtual const epiText& volumeText() = 0;
    /** @param pan -1.0 left .. +1.0 right */
    // [ui thread]
    virtual void setPan(float pan) = 0;
    virtual float pan() const = 0;
    /** The pan as text: "center", "L2.5dB", "R5.0dB"; valid until the next text call on this strip. */
    // [ui thread]
    virtual const epiText& panText() = 0;
    /** An exempt strip ignores solo (the metronome's). */
    // [ui thread]
    virtual void setSoloExempt(bool on) = 0;
    /** The strip's own solo flag; the mixer's setSolo is what the interface calls. */
    // [ui thread]
    virtual void setSolo(bool on) = 0;
    /** Whether some strip of the mixer is soloed. */
    // [ui thread]
    virtual void setSoloActive(bool on) = 0;
};
