#include "engine/graph/AudioAlwaysStereo.h"
#include "engine/graph/AudioCache.h"
#include "engine/graph/AudioDebugger.h"
#include "engine/graph/AudioInputSelector.h"
#include "engine/graph/AudioMute.h"
#include "engine/graph/AudioSwitch.h"
#include "engine/graph/AudioTemporary.h"
#include "tests/engine/harness/EngineHarness.h"
#include "tests/engine/harness/TestNodes.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <vector>

using enginetest::ConstantSource;
using enginetest::StaircaseSource;

namespace
{

using Target = testsupport::StereoBlock;

AudioData request(int64_t frames, int64_t position)
{
    AudioData r;
    r.frames = frames;
    r.position = position;
    r.channels = 2;
    return r;
}

TEST(AudioTemporary, StoresAndServesOneBlock)
{
    StaircaseSource stairs;
    Target in(64, 1000, 99.0f);
    stairs.read(in.data);

    AudioTemporary temp;
    temp.prepare(44100, 64);
    ASSERT_TRUE(temp.store(in.data));
    in.left[0] = -5.0f; // the store is a copy

    AudioData r = request(64, 0);
    ASSERT_TRUE(temp.provide(r));
    EXPECT_EQ(r.position, 1000);
    EXPECT_EQ(r.frames, 64);
    EXPECT_EQ(r.channel[0][0], 1000.0f);
    EXPECT_EQ(r.channel[1][63], -1063.0f);

    Target same(64, 1000, 0.0f);
    EXPECT_TRUE(temp.read(same.data));
    EXPECT_EQ(same.left[10], 1010.0f);

    Target other(64, 1064, 0.5f);
    EXPECT_FALSE(temp.read(other.data)) << "another position answers false";
    EXPECT_EQ(other.left[0], 0.5f) << "and touches nothing";
}

TEST(AudioInputSelector, ModesByReferenceCostNoCopy)
{
    StaircaseSource source(2);
    source.prepare(44100, 64);
    AudioInputSelector selector;
    selector.setFirst(&source);
    EXPECT_EQ(selector.mode(), 2) << "both channels by default";

    AudioData both = request(64, 100);
    ASSERT_TRUE(selector.provide(both));
    EXPECT_EQ(both.channel[0][0], 100.0f);
    EXPECT_EQ(both.channel[1][0], -100.0f);

    selector.setMode(0);
    AudioData left = request(64, 100);
    ASSERT_TRUE(selector.provide(left));
    EXPECT_EQ(left.channel[0], left.channel[1]);
    EXPECT_EQ(left.channel[1][5], 105.0f);

    selector.setMode(1);
    AudioData right = request(64, 100);
    ASSERT_TRUE(selector.provide(right));
    EXPECT_EQ(right.channel[0], right.channel[1]);
    EXPECT_EQ(right.channel[0][5], -105.0f);
}

TEST(AudioSwitch, SelectsAndForwards)
{
    ConstantSource a(0.25f), b(-0.5f);
    StaircaseSource mono(1);
    AudioSwitch sw;
    EXPECT_TRUE(sw.isFirstSelected());
    AudioData r = request(32, 0);
    EXPECT_FALSE(sw.provide(r)) << "no input wired";
    EXPECT_EQ(sw.channels(), 2);

    sw.setFirst(&a);
    sw.setSecond(&b);
    ASSERT_TRUE(sw.provide(r));
    EXPECT_EQ(r.channel[0][0], 0.25f);

    sw.selectSecond(true);
    EXPECT_FALSE(sw.isFirstSelected());
    Target t(32, 0, 99.0f);
    ASSERT_TRUE(sw.read(t.data));
    EXPECT_EQ(t.left[31], -0.5f);
    EXPECT_EQ(a.reads, 0) << "the input not selected is not pulled";

    sw.setSecond(&mono);
    sw.selectSecond(true);
    EXPECT_EQ(sw.channels(), 1) << "channels of the selected input";
}

// Counts the reads a switched-off unit gets while it drains.
struct FeedRig
{
    FeedRig(uint32_t rate, uint32_t block) : unit(0.0f), dry(0.0f), blockSize(block)
    {
        feed.setFirst(&unit);
        feed.setSecond(&dry);
        feed.prepare(rate, block);
    }
    bool pull(int64_t position)
    {
        AudioData r = request(blockSize, position);
        return feed.provide(r);
    }
    ConstantSource unit;
    ConstantSource dry;
    AudioSwitchFeed feed;
    uint32_t blockSize;
};

TEST(AudioSwitchFeed, SilentUnitStopsDrainingAfterHalfASecond)
{
    for (uint32_t rate : {44100u, 48000u, 96000u})
    {
        for (uint32_t block : {64u, 256u, 1024u})
        {
            FeedRig rig(rate, block);
            rig.pull(0); // effect selected: arms the hold
            EXPECT_EQ(rig.unit.provides, 1);
            rig.feed.selectSecond(true);

            const int32_t hold = static_cast<int32_t>(rate * 0.5);
            const int32_t expectedDrainReads = hold / static_cast<int32_t>(block) + 1;
            for (int i = 0; i < expectedDrainReads + 20; ++i)
            {
                ASSERT_TRUE(rig.pull(block * (i + 1)));
            }
            EXPECT_EQ(rig.unit.reads, expectedDrainReads) << rate << " Hz, block " << block;
            EXPECT_FALSE(rig.feed.isDraining());
            EXPECT_EQ(rig.dry.provides, expectedDrainReads + 20) << "the dry path is what is heard";
        }
    }
}

TEST(AudioSwitchFeed, LoudTailRestartsTheHold)
{
    FeedRig rig(48000, 256);
    rig.pull(0);
    rig.feed.selectSecond(true);
    rig.unit.level = 0.06f; // above 0.05: keeps draining
    for (int i = 0; i < 1000; ++i)
    {
        rig.pull(256 * i);
    }
    EXPECT_TRUE(rig.feed.isDraining());
    EXPECT_EQ(rig.unit.reads, 1000);

    rig.unit.level = 0.05f; // not above the threshold: quiet from here
    const int before = rig.unit.reads;
    for (int i = 0; i < 200; ++i)
    {
        rig.pull(256 * i);
    }
    // The last loud block set the hold and took its own frames off it.
    EXPECT_EQ(rig.unit.reads - before, (24000 - 256) / 256 + 1);
    EXPECT_FALSE(rig.feed.isDraining());
}

TEST(AudioSwitchFeed, FailingUnitCountsAsQuiet)
{
    FeedRig rig(44100, 1024);
    rig.unit.level = 0.9f;
    rig.unit.failing = true; // its read delivers nothing: its stale buffer must not keep it draining
    rig.pull(0);
    rig.feed.selectSecond(true);
    for (int i = 0; i < 100; ++i)
    {
        rig.pull(1024 * i);
    }
    EXPECT_EQ(rig.unit.reads, 22050 / 1024 + 1);
}

TEST(AudioCache, AnswersRepeatsFromItsBuffers)
{
    StaircaseSource source;
    AudioCache cache;
    cache.setFirst(&source);
    cache.prepare(44100, 64);

    AudioData r = request(64, 0);
    EXPECT_FALSE(cache.provide(r));

    Target first(64, 128, 0.0f);
    ASSERT_TRUE(cache.read(first.data));
    EXPECT_EQ(first.left[0], 128.0f);
    EXPECT_EQ(source.requests.size(), 1u);

    Target again(64, 128, 0.0f);
    ASSERT_TRUE(cache.read(again.data));
    EXPECT_EQ(again.left[63], 191.0f);
    EXPECT_EQ(source.requests.size(), 1u) << "served from the cache";

    Target shorter(32, 128, 0.0f);
    EXPECT_FALSE(cache.read(shorter.data)) << "a held block at that position is longer";

    Target inside(16, 140, 0.0f);
    EXPECT_FALSE(cache.read(inside.data)) << "an earlier block covers the request";

    // Three new positions push the first out.
    for (int64_t p : {1000, 2000, 3000})
    {
        Target t(64, p, 0.0f);
        ASSERT_TRUE(cache.read(t.data));
        EXPECT_EQ(t.left[0], static_cast<float>(p));
    }
    Target back(64, 128, 0.0f);
    ASSERT_TRUE(cache.read(back.data));
    EXPECT_EQ(source.requests.size(), 5u);

    // A failed read once answered true and left the caller's old audio in place of silence.
    source.failing = true;
    Target failed(64, 4000, 0.0f);
    EXPECT_FALSE(cache.read(failed.data));
    source.failing = false;
    Target retried(64, 4000, 0.0f);
    ASSERT_TRUE(cache.read(retried.data));
    EXPECT_EQ(retried.left[0], 4000.0f) << "the failed read is not remembered";
}

TEST(NodeChain, MonoFileWayThroughStereoAndSelectorKeepsTheTimelineAtAnyBlocks)
{
    // A mono source behind forced stereo and a right-channel selector, pulled by both transfers over a
    // randomised block sequence: every frame must carry its own timeline position.
    for (bool byReference : {true, false})
    {
        StaircaseSource mono(1);
        AudioAlwaysStereo stereo;
        stereo.setFirst(&mono);
        AudioInputSelector selector;
        selector.setFirst(&stereo);
        selector.setMode(1);
        stereo.prepare(48000, 1024);
        mono.prepare(48000, 1024);
        const auto sizes = enginetest::EngineHarness::randomBlocks(9, 20000, 1024);
        const auto pulled = enginetest::pullNode(selector, 5000, sizes, byReference);
        EXPECT_EQ(pulled.refusals, 0);
        ASSERT_EQ(pulled.left.size(), 20000u);
        for (size_t i = 0; i < pulled.left.size(); ++i)
        {
            ASSERT_EQ(pulled.left[i], static_cast<float>(5000 + i)) << i;
            ASSERT_EQ(pulled.right[i], static_cast<float>(5000 + i)) << i;
        }
    }
}

} // namespace
