// The engine, speed and pitch chosen from another thread while blocks play: the values cross as
// atomics into both engines, and the choice of engine takes effect only where the stream jumps, never
// in the middle of a running stream. Run under ThreadSanitizer.
#include "tests/dsp/stretch/StretchTestNodes.h"

#include "dsp/stretchhq/AudioFxStretchChoice.h"
#include "tests/support/Signal.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

TEST(StretchChoiceThreads, TheEngineChangesAtTheNextJumpOnly)
{
    stretchtest::SignalNode source(1LL << 40, stretchtest::sine(330.0, 48000.0));
    AudioFxStretchChoice node;
    node.setSource(&source);
    node.prepare(48000, 256);
    node.setStretch(1.0f / 0.75f);

    std::atomic<bool> done{false}; // the join orders everything after it
    std::thread ui(
        [&]
        {
            for (int i = 0; !done.load(std::memory_order_acquire); ++i)
            {
                node.setQuality(i % 2 == 0 ? StretchQuality::high : StretchQuality::standard);
                node.setPitch(i % 40 < 20 ? 0.9f : 1.0f);           // reaches the running stretcher
                node.setStretch(i % 60 < 30 ? 1.0f / 0.75f : 1.5f); // never unity, which may switch at once
                std::this_thread::sleep_for(std::chrono::microseconds(300));
            }
        });

    testsupport::StereoBlock block(256);
    double peak = 0.0;
    int switches = 0;
    // Until both ways have been seen a few times: making the first stretcher takes a while.
    for (int b = 0; b < 1500 || (switches < 6 && b < 400000); ++b)
    {
        const bool jump = b == 0 || b % 25 == 24; // the first block starts a stream
        block.data.position = jump ? 48000 + (b % 4) * 12345 : block.data.position + 256; // a loop back
        const StretchQuality before = node.playing();
        ASSERT_TRUE(node.read(block.data));
        if (node.playing() != before)
        {
            // Switching while the stream runs on would cut one engine's sound off for the other's.
            ASSERT_TRUE(jump) << "block " << b;
            ++switches;
        }
        ASSERT_TRUE(
            std::all_of(block.left.begin(), block.left.end(), [](float v) { return std::isfinite(v); }));
        peak = std::max(peak, testsignal::peak(block.left.data(), 256));
    }
    done.store(true, std::memory_order_release);
    ui.join();
    EXPECT_GT(switches, 0);
    // Whatever the interleaving, the output stays a bounded version of the tone.
    EXPECT_GT(peak, 0.1);
    EXPECT_LT(peak, 1.0);

    // The last choice is in force after the next jump.
    node.setQuality(StretchQuality::high);
    block.data.position = 0;
    ASSERT_TRUE(node.read(block.data));
    EXPECT_EQ(node.playing(), StretchQuality::high);
}
