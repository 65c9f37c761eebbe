#include "epi/ui/gtk/epiFastTimer.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>

void epiFastTimer::start(double seconds, epiApplicationObject* target)
{
    stop();
    if (target == nullptr || !(seconds > 0.0))
        return;
    const int64_t milliseconds = std::max<int64_t>(1, std::llround(seconds * 1000.0));
    stopping_.store(false, std::memory_order_relaxed);
    ticks_.store(0, std::memory_order_relaxed);
    thread_ = std::thread([this, milliseconds, target] { run(milliseconds * 1000000, target); });
}

void epiFastTimer::stop()
{
    if (!thread_.joinable())
        return;
    stopping_.store(true, std::memory_order_relaxed);
    thread_.join();
}

void epiFastTimer::run(int64_t periodNanoseconds, epiApplicationObject* target)
{
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    // Stop is noticed within this slice even for long periods.
    constexpr int64_t kSlice = 20 * 1000000;
    int64_t untilTick = periodNanoseconds;
    while (!stopping_.load(std::memory_order_relaxed))
    {
        const int64_t step = std::min(untilTick, kSlice);
        deadline.tv_nsec += long(step % 1000000000);
        deadline.tv_sec += time_t(step / 1000000000);
        if (deadline.tv_nsec >= 1000000000)
        {
            deadline.tv_nsec -= 1000000000;
            ++deadline.tv_sec;
        }
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR)
        {
        }
        untilTick -= step;
        if (untilTick > 0)
            continue;
        untilTick = periodNanoseconds;
        if (stopping_.load(std::memory_order_relaxed))
            break;
        target->onTimer();
        ticks_.fetch_add(1, std::memory_order_relaxed);
    }
}
