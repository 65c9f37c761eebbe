// No heap allocation on this thread while a block runs through the speed/pitch node: the audio
// thread must never allocate.
#include "StretchTestNodes.h"

#include "dsp/stretch/AudioFxPSTS.h"

#include "tests/support/CountedAllocations.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

TEST(StretchAllocation, NothingAllocatesInProcess)
{
    for (uint32_t rate : {44100u, 96000u})
    {
        stretchtest::SignalNode source(1LL << 40, stretchtest::sine(220.0, rate));
        AudioFxPSTS node;
        node.setSource(&source);
        node.prepare(rate, 1024);
        std::vector<float> l(1024);
        std::vector<float> r(1024);
        std::mt19937 rng(rate);

        const testsupport::CountedAllocations counting;
        int64_t pos = 0;
        const float stretches[] = {1.0f, 2.0f, 0.5f, 1.0f / 0.75f, 10.0f, 0.001f, 1.0f};
        const float pitches[] = {1.0f, 0.5f, 2.0f, 8.0f, 0.001f, 1.0f, 0.75f};
        for (int round = 0; round < 7; ++round)
        {
            // Parameter changes from the interface side are plain stores too.
            node.setStretch(stretches[round]);
            node.setPitch(pitches[round]);
            for (int b = 0; b < 60; ++b)
            {
                const auto frames = static_cast<int64_t>(1 + rng() % 1024);
                if (b % 20 == 19)
                {
                    pos = static_cast<int64_t>(rng() % 10000000); // loop or locate
                }
                AudioData d;
                d.channels = 2;
                d.frames = frames;
                d.position = pos;
                if (b % 2 == 0)
                {
                    d.channel[0] = l.data();
                    d.channel[1] = r.data();
                    ASSERT_TRUE(node.read(d));
                }
                else
                {
                    ASSERT_TRUE(node.provide(d));
                }
                pos += frames;
            }
        }
        EXPECT_EQ(counting.count(), 0) << rate;
    }
}
