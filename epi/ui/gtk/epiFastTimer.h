#pragma once

#include "epi/epiObject.h"

#include <atomic>
#include <cstdint>
#include <thread>

/**
 * The exact timer of a window or control: a thread that wakes on absolute deadlines of the
 * monotonic clock, one period apart from the start, so that its rate never drifts, and calls the
 * target's onTimer() there. onTimer() runs on that thread: it must not touch the tree.
 */
class epiFastTimer
{
public:
    epiFastTimer() = default;
    ~epiFastTimer() { stop(); }
    epiFastTimer(const epiFastTimer&) = delete;
    epiFastTimer& operator=(const epiFastTimer&) = delete;

    /** Starts (or restarts) ticking every `seconds`, rounded to whole milliseconds, at least one. */
    void start(double seconds, epiApplicationObject* target);
    /** Stops and waits for the thread; no onTimer() comes after it returns. */
    void stop();
    bool running() const { return thread_.joinable(); }
    /** Ticks delivered since start(). */
    int64_t ticks() const { return ticks_.load(std::memory_order_relaxed); }

private:
    void run(int64_t periodNanoseconds, epiApplicationObject* target);

    std::thread thread_;
    // Set by stop(), read by the thread before each tick: relaxed is enough, the join orders the rest.
    std::atomic<bool> stopping_{false};
    // Counted by the thread, read by anyone for statistics only.
    std::atomic<int64_t> ticks_{0};
};
