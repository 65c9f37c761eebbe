#pragma once

#include <cmath>
#include <ctime>
#include <vector>

namespace dspbench
{

/** CPU seconds used by this thread. */
inline double cpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

inline std::vector<float> sine(double hz, double rate, long frames, double amplitude)
{
    std::vector<float> v(static_cast<std::size_t>(frames));
    for (long i = 0; i < frames; ++i)
        v[static_cast<std::size_t>(i)] = static_cast<float>(amplitude * std::sin(2.0 * M_PI * hz * i / rate));
    return v;
}

} // namespace dspbench
