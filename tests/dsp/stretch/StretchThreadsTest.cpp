// Speed and pitch set from another thread while the node plays: the values cross as atomics and
// reach the engine at the head of a block. Run under ThreadSanitizer.
#include "StretchTestNodes.h"

#include "dsp/stretch/AudioFxPSTS.h"
#include "tests/support/Signal.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

TEST(StretchThreads, ParametersChangeWhileBlocksRun)
{
    stretchtest::SignalNode source(1LL << 40, stretchtest::sine(330.0, 44100.0));
    AudioFxPSTS node;
    node.setSource(&source);
    node.prepare(44100, 256);

    std::atomic<bool> done{false}; // relaxed would do; the join orders everything after it
    std::thread ui(
        [&]
        {
            const float stretches[] = {1.0f, 1.5f, 0.5f, 2.0f, 1.0f};
            const float pitches[] = {1.0f, 0.75f, 1.25f, 1.0f, 0.5f};
            for (int i = 0; !done.load(std::memory_order_acquire); ++i)
            {
                node.setStretch(stretches[i % 5]);
                node.setPitch(pitches[(i / 3) % 5]);
                std::this_thread::yield();
            }
        });

    testsupport::StereoBlock block(256);
    double peak = 0.0;
    for (int b = 0; b < 3000; ++b, block.data.position += 256)
    {
        ASSERT_TRUE(node.read(block.data));
        ASSERT_TRUE(
            std::all_of(block.left.begin(), block.left.end(), [](float v) { return std::isfinite(v); }));
        peak = std::max(peak, testsignal::peak(block.left.data(), 256));
    }
    done.store(true, std::memory_order_release);
    ui.join();
    // Whatever the interleaving, the output stays a bounded version of the tone.
    EXPECT_GT(peak, 0.1);
    EXPECT_LT(peak, 1.0);
}
