#include "engine/graph/ContiguousReader.h"
#include "tests/engine/harness/TestNodes.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using enginetest::Request;
using enginetest::StaircaseSource;

namespace
{

struct Rig
{
    explicit Rig(uint32_t rate = 44100, uint32_t block = 256)
    {
        reader.setFirst(&source);
        reader.prepare(rate, block);
        reader.setActive(true);
    }

    // Reads frames at position; checks every sample against the staircase, or against silence.
    bool readAndCheck(int64_t position, int64_t frames, bool expectSilence = false)
    {
        std::vector<float> l(static_cast<size_t>(frames), 7.0f), r(static_cast<size_t>(frames), 7.0f);
        AudioData d;
        d.channel[0] = l.data();
        d.channel[1] = r.data();
        d.channels = 2;
        d.frames = frames;
        d.position = position;
        if (!reader.read(d))
        {
            return false;
        }
        for (int64_t i = 0; i < frames; ++i)
        {
            const float want = expectSilence ? 0.0f : static_cast<float>(position + i);
            if (l[static_cast<size_t>(i)] != want || r[static_cast<size_t>(i)] != -want)
            {
                ADD_FAILURE() << "frame " << i << " of a read at " << position << ": "
                              << l[static_cast<size_t>(i)] << " instead of " << want;
                return false;
            }
        }
        return true;
    }

    size_t fetches() const { return source.requests.size(); }
    const Request& lastFetch() const { return source.requests.back(); }

    StaircaseSource source;
    ContiguousReader reader;
};

TEST(ContiguousReader, ForwardPlayReadsInputContiguouslyAtEveryRateAndBlock)
{
    for (uint32_t rate : {44100u, 48000u, 96000u})
    {
        for (uint32_t block : {64u, 256u, 1024u})
        {
            Rig rig(rate, block);
            int64_t p = 12345;
            rig.readAndCheck(p, block);
            rig.source.requests.clear();
            for (int i = 0; i < 400; ++i)
            {
                p += block;
                ASSERT_TRUE(rig.readAndCheck(p, block)) << rate << "/" << block;
            }
            // Every fetch begins where the previous one ended.
            for (size_t i = 0; i < rig.source.requests.size(); ++i)
            {
                if (i > 0)
                {
                    EXPECT_EQ(rig.source.requests[i].position,
                              rig.source.requests[i - 1].position + rig.source.requests[i - 1].frames);
                }
            }
        }
    }
}

TEST(ContiguousReader, JitteringConsumerIsServedWithoutJumpsOfTheInput)
{
    // A stretch-like consumer: advances on average but steps back up to a few blocks at random.
    Rig rig(48000, 256);
    std::mt19937 rng(7);
    std::uniform_int_distribution<int64_t> jitter(-2048, 512);
    int64_t p = 0;
    for (int i = 0; i < 2000; ++i)
    {
        const int64_t at = std::max<int64_t>(0, p + jitter(rng));
        ASSERT_TRUE(rig.readAndCheck(at, 256));
        p += 256;
    }
    for (size_t i = 1; i < rig.source.requests.size(); ++i)
    {
        EXPECT_EQ(rig.source.requests[i].position,
                  rig.source.requests[i - 1].position + rig.source.requests[i - 1].frames);
    }
}

TEST(ContiguousReader, InactiveIsSilentAndForgetsHistory)
{
    Rig rig;
    ASSERT_TRUE(rig.readAndCheck(0, 4096));
    EXPECT_EQ(rig.reader.filledTo(), 4096);
    rig.reader.setActive(false);
    ASSERT_TRUE(rig.readAndCheck(0, 256, true));
    EXPECT_EQ(rig.reader.filledTo(), 0);
    const size_t before = rig.fetches();

    rig.reader.setActive(true);
    ASSERT_TRUE(rig.readAndCheck(0, 256));
    EXPECT_EQ(rig.fetches(), before + 1) << "what was held before is fetched again";
}

TEST(ContiguousReader, FailingInputGivesSilenceAndIsAskedAgain)
{
    Rig rig;
    rig.source.failing = true;
    ASSERT_TRUE(rig.readAndCheck(0, 256, true));
    EXPECT_EQ(rig.reader.filledTo(), 0);
    rig.source.failing = false;
    ASSERT_TRUE(rig.readAndCheck(256, 256));
    EXPECT_EQ(rig.lastFetch().position, 0);
}

TEST(ContiguousReader, UnpreparedReaderUsesItsInitialRing)
{
    StaircaseSource source;
    ContiguousReader reader;
    reader.setFirst(&source);
    reader.setActive(true);
    std::vector<float> l(64), r(64);
    AudioData d;
    d.channel[0] = l.data();
    d.channel[1] = r.data();
    d.channels = 2;
    d.frames = 64;
    d.position = 0;
    // No fetch buffer before prepare: silence, no crash.
    EXPECT_TRUE(reader.read(d));
    EXPECT_EQ(d.peak(), 0.0f);
}

} // namespace
