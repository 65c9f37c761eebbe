// The exact timer's thread: ticks on absolute deadlines, so no tick comes before its time and a late
// one doesn't push the later ones back; none comes after stop().

#include "epi/ui/gtk/epiFastTimer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace
{

class Ticked : public epiApplicationObject
{
public:
    void onTimer() override
    {
        const auto now = std::chrono::steady_clock::now();
        std::lock_guard<std::mutex> lock(mutex);
        times.push_back(now);
        // One slow tick: the deadlines after it stay where they were.
        if (times.size() == 3)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    std::mutex mutex;
    std::vector<std::chrono::steady_clock::time_point> times;
};

} // namespace

TEST(FastTimer, TicksOnAbsoluteDeadlinesAndStopsAtOnce)
{
    Ticked target;
    epiFastTimer timer;
    const auto start = std::chrono::steady_clock::now();
    timer.start(0.01, &target);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    timer.stop();
    const auto stopped = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(target.mutex);
    const size_t count = target.times.size();
    ASSERT_GE(count, 10u);
    for (size_t i = 0; i < count; ++i)
        EXPECT_GE(target.times[i] - start, std::chrono::milliseconds(10 * (i + 1))) << i;
    // Catching up after the slow tick: about 30 ticks; a timer that drifts gives about 23.
    EXPECT_GE(count, 27u);
    EXPECT_LE(target.times.back(), stopped);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(target.times.size(), count);
    EXPECT_EQ(timer.ticks(), int64_t(count));
}
