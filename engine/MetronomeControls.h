#pragma once

#include <cstdint>

class MetronomeDelegate;

/** What the interface may do with the metronome. Every operation runs on the interface thread. */
class MetronomeControls
{
public:
    /** Quarter notes per minute; the interface passes the session tempo times the speed ratio. */
    // [ui thread]
    virtual void setTempo(float bpm) = 0;
    /**
     * Beats in a bar and the note value of a beat; a beat lasts 4 / denominator quarter notes.
     * Ranges are the interface's to keep (2 to 8 for both).
     */
    // [ui thread]
    virtual void setTimeSignature(int32_t numerator, int32_t denominator) = 0;
    virtual float tempo() const = 0;
    virtual int32_t numerator() const = 0;
    virtual int32_t denominator() const = 0;
    /** Told of every beat, on the audio thread. Not owned; null for none. */
    // [ui thread]
    virtual void setDelegate(MetronomeDelegate* delegate) = 0;
    /** A disabled metronome gives nothing to its strip. */
    // [ui thread]
    virtual void setEnabled(bool on) = 0;

protected:
    ~MetronomeControls() = default;
};
