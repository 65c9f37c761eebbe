// Speed and pitch set from another thread while the node plays: the values cross as atomics and
// reach the engine at the head of a block. Run under ThreadSanitizer.
#include "StretchTestNodes.h"

#include "dsp/stretch/AudioFxPSTS.h"

#include <gtest/gtest.h>

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

    std::vector<float> l(256);
    std::vector<float> r(256);
    int64_t pos = 0;
    float peak = 0.0f;
    for (int b = 0; b < 3000; ++b)
    {
        AudioData d;
        d.channel[0] = l.data();
        d.channel[1] = r.data();
        d.channels = 2;
        d.frames = 256;
        d.position = pos;
        ASSERT_TRUE(node.read(d));
        for (int i = 0; i < 256; ++i)
        {
            ASSERT_TRUE(std::isfinite(l[static_cast<size_t>(i)]));
            peak = std::max(peak, std::fabs(l[static_cast<size_t>(i)]));
        }
        pos += 256;
    }
    done.store(true, std::memory_order_release);
    ui.join();
    // Whatever the interleaving, the output stays a bounded version of the tone.
    EXPECT_GT(peak, 0.1f);
    EXPECT_LT(peak, 1.0f);
}
