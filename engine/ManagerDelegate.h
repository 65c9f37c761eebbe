#pragma once

#include "epi/epiText.h"

/**
 * How the engine reports upwards. The main panel implements it. All calls but metronomeBeat come on
 * the interface thread, from the Manager's operations and its poll.
 */
class ManagerDelegate
{
public:
    virtual ~ManagerDelegate() = default;

    /** A job starts: the title of its progress panel. */
    // [ui thread]
    virtual void taskTitle(const epiText& title) = 0;
    /** A line of text for the progress panel. */
    // [ui thread]
    virtual void taskMessage(const epiText& message) = 0;
    /** @param fraction 0.0 .. 1.0 */
    // [ui thread]
    virtual void taskProgress(float fraction) = 0;
    /** The job ended well: close the panel. */
    // [ui thread]
    virtual void taskFinished() = 0;
    /** The job broke with this message. */
    // [ui thread]
    virtual void taskFailed(const epiText& message) = 0;
    /** Stop the device before an offline job. */
    // [ui thread]
    virtual void audioSuspend() = 0;
    /** Start the device again after the job. */
    // [ui thread]
    virtual void audioResume() = 0;
    /** The transport ran into the end, or into the loop end while a take runs. */
    // [ui thread]
    virtual void endReached() = 0;
    /** The input crossed the auto-record threshold and the transport was started. */
    // [ui thread]
    virtual void autoRecordStarted() = 0;
    /** A plug-in changed its state: the project is dirty. */
    // [ui thread]
    virtual void pluginChanged() = 0;
    /** A beat started. Must do no more than store a value. */
    // [audio thread]
    virtual void metronomeBeat() = 0;
};
