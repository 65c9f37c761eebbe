#include "devices/alsa/BlockPacer.h"

#include <cerrno>

void BlockPacer::reset(std::uint32_t frames, std::uint32_t rate, std::uint32_t lead)
{
    periodNs_ = rate ? static_cast<std::int64_t>(frames) * 1000000000LL / rate : 0;
    anchorNs_ = nowNs();
    blocks_ = 0;
    lead_ = lead;
}

std::int64_t BlockPacer::pace(bool deviceWaited)
{
    const std::int64_t now = nowNs();
    std::int64_t slept = 0;
    if (deviceWaited)
    {
        anchorNs_ = now - blocks_ * periodNs_;
    }
    else
    {
        const std::int64_t due = anchorNs_ + (blocks_ - lead_) * periodNs_;
        if (due > now)
        {
            timespec until{static_cast<time_t>(due / 1000000000LL), static_cast<long>(due % 1000000000LL)};
            while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR)
            {
            }
            slept = due - now;
        }
    }
    ++blocks_;
    return slept;
}

std::int64_t BlockPacer::nowNs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<std::int64_t>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}
