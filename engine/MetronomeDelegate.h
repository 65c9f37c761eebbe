#pragma once

/** What the metronome reports as it plays. */
class MetronomeDelegate
{
public:
    virtual ~MetronomeDelegate() = default;

    /** A beat starts in the block being rendered. May do no more than note the fact. */
    // [audio thread]
    virtual void beat() = 0;
};
