#include "engine/graph/ContiguousReader.h"
#include "tests/engine/harness/TestNodes.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

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
        testsupport::StereoBlock d(frames, position, 7.0f);
        if (!reader.read(d.data))
        {
            return false;
        }
        for (int64_t i = 0; i < frames; ++i)
        {
            const float want = expectSilence ? 0.0f : static_cast<float>(position + i);
            if (d.left[static_cast<size_t>(i)] != want || d.right[static_cast<size_t>(i)] != -want)
            {
                ADD_FAILURE() << "frame " << i << " of a read at " << position << ": "
                              << d.left[static_cast<size_t>(i)] << " instead of " << want;
                return false;
            }
        }
        return true;
    }

    size_t fetches() const { return source.requests.size(); }

    // Every fetch began where the previous one ended.
    void expectContiguousFetches() const
    {
        for (size_t i = 1; i < source.requests.size(); ++i)
        {
            ASSERT_EQ(source.requests[i].position,
                      source.requests[i - 1].position + source.requests[i - 1].frames);
        }
    }

    StaircaseSource source;
    ContiguousReader reader;
};

TEST(ContiguousReader, ForwardPlayReadsInputContiguouslyAtEveryBlock)
{
    for (uint32_t block : {64u, 256u, 1024u})
    {
        Rig rig(48000, block);
        for (int i = 0; i < 400; ++i)
        {
            ASSERT_TRUE(rig.readAndCheck(12345 + i * block, block)) << block;
        }
        rig.expectContiguousFetches();
    }
}

TEST(ContiguousReader, JitteringConsumerIsServedWithoutJumpsOfTheInput)
{
    // A stretch-like consumer: advances on average but steps back up to a few blocks at random.
    Rig rig(48000, 256);
    std::mt19937 rng(7);
    std::uniform_int_distribution<int64_t> jitter(-2048, 512);
    for (int64_t p = 0; p < 2000 * 256; p += 256)
    {
        ASSERT_TRUE(rig.readAndCheck(std::max<int64_t>(0, p + jitter(rng)), 256));
    }
    rig.expectContiguousFetches();
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
    rig.source.failing = false;
    ASSERT_TRUE(rig.readAndCheck(256, 256));
    EXPECT_EQ(rig.source.requests.back().position, 0);
}

TEST(ContiguousReader, UnpreparedReaderGivesSilence)
{
    StaircaseSource source;
    ContiguousReader reader;
    reader.setFirst(&source);
    reader.setActive(true);
    testsupport::StereoBlock d(64, 0, 0.5f);
    EXPECT_TRUE(reader.read(d.data)) << "no fetch buffer before prepare: silence, no crash";
    EXPECT_EQ(d.data.peak(), 0.0f);
}

} // namespace
