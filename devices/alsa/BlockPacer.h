#pragma once

#include <cstdint>
#include <ctime>

/**
 * Keeps a device thread from running blocks faster than real time when its device has no clock
 * of its own (ALSA's null and file plug-ins answer every wait at once). A device that makes the
 * thread wait sets the pace itself: each such wait re-anchors the pacer, so a hardware clock that
 * drifts from the system's is never held back. Used by one thread only.
 */
class BlockPacer
{
public:
    /** @param frames block length in frames; @param rate hertz; @param lead blocks allowed ahead */
    void reset(std::uint32_t frames, std::uint32_t rate, std::uint32_t lead = 2);

    /**
     * Called once per block, before it runs.
     * @param deviceWaited whether the device made the thread wait for this block
     * @returns nanoseconds slept
     */
    // [audio thread]
    std::int64_t pace(bool deviceWaited);

    /** Monotonic nanoseconds. */
    static std::int64_t nowNs();

private:
    std::int64_t periodNs_ = 0;
    std::int64_t anchorNs_ = 0;
    std::int64_t blocks_ = 0;
    std::int64_t lead_ = 2;
};
