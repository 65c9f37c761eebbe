#pragma once

#include "epi/epiText.h"

/**
 * An offline job that drives the graph from the interface thread while the device is suspended, a
 * slice at a time, so that the interface stays alive and shows progress.
 */
class Exporter
{
public:
    virtual ~Exporter() = default;

    /**
     * Renders the next slice.
     * @param progress out: 0.0 .. 1.0
     * @param finished out: true when the job is complete
     * @return false when the job failed
     */
    // [ui thread, device stopped]
    virtual bool render(float& progress, bool& finished) = 0;

    /** Abandons the job and removes what it wrote. */
    // [ui thread, device stopped]
    virtual void cancel() = 0;

    /** Why render failed, for the user; empty when the job has nothing to say. */
    virtual epiText failure() const { return epiText(); }
};
