// Transforms and filters are designed on whatever thread builds a node (the interface thread, an
// offline job, the preview thread). FFTW's planner is not thread-safe; our transform serialises it.
#include "dsp/RealTransform.h"
#include "dsp/SegmentedConv.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

TEST(RealTransform, ConcurrentDesignsFromSeveralThreads)
{
    std::atomic<int> failures{0}; // relaxed: read after the joins
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [t, &failures]
            {
                for (int round = 0; round < 20; ++round)
                {
                    const int size = 64 << ((t + round) % 4);
                    auto transform = dsp::makeRealTransform(size + (round % 3)); // powers of two and others
                    std::vector<float> taps(static_cast<std::size_t>(100 + 37 * t), 0.01f);
                    dsp::FilterSpectrum spectrum(64, taps.data(), static_cast<int>(taps.size()));
                    dsp::Domain::Adapters::AnySizeAdapter2 adapter(64, 0);
                    const bool made = transform && spectrum.valid() && adapter.attach(spectrum);
                    // A step through the filter settles at the sum of the taps.
                    std::vector<float> x(1024, 1.0f), y(1024);
                    adapter.reset();
                    adapter.process(x.data(), y.data(), 1024);
                    if (!made || std::abs(y[1023] - 0.01f * static_cast<float>(taps.size())) > 1e-4f)
                        failures.fetch_add(1, std::memory_order_relaxed);
                }
            });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(std::memory_order_relaxed), 0);
}
