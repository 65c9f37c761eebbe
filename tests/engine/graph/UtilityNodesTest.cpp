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
    EXPECT_EQ(r.channel[0][0], 1000.0f);
    EXPECT_EQ(r.channel[1][63], -1063.0f);
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
    // Mode 2 (the default) passes both sides; 0 and 1 put one side on both without a copy.
    for (int32_t mode : {2, 0, 1})
    {
        selector.setMode(mode);
        AudioData r = request(64, 100);
        ASSERT_TRUE(selector.provide(r));
        EXPECT_EQ(r.channel[0][5], mode == 1 ? -105.0f : 105.0f) << mode;
        EXPECT_EQ(r.channel[1][5], mode == 0 ? 105.0f : -105.0f) << mode;
        EXPECT_EQ(r.channel[0] == r.channel[1], mode != 2) << mode;
    }
}

TEST(AudioSwitch, SelectsAndForwards)
{
    ConstantSource a(0.25f), b(-0.5f);
    StaircaseSource mono(1);
    AudioSwitch sw;
    AudioData r = request(32, 0);
    EXPECT_FALSE(sw.provide(r)) << "no input wired";
    sw.setFirst(&a);
    sw.setSecond(&b);
    ASSERT_TRUE(sw.provide(r));
    EXPECT_EQ(r.channel[0][0], 0.25f);

    sw.selectSecond(true);
    Target t(32, 0, 99.0f);
    ASSERT_TRUE(sw.read(t.data));
    EXPECT_EQ(t.left[31], -0.5f);
    EXPECT_EQ(a.pulls(), 1) << "the input not selected is not pulled";
    sw.setSecond(&mono);
    EXPECT_EQ(sw.channels(), 1) << "channels of the selected input";
}

// A switched-off unit is read on, and its output thrown away, until it has stayed quiet (at most 0.05) for
// half a second: reads counts the pulls it got once quiet.
TEST(AudioSwitchFeed, UnitDrainsUntilHalfASecondOfQuiet)
{
    struct Case
    {
        uint32_t rate, block;
        float level;
        bool failing; // its read delivers nothing: its stale buffer must not keep it draining
        int loudPulls;
        int reads;
    };
    const Case cases[] = {
        {44100, 64, 0.0f, false, 0, 22050 / 64 + 1},
        {48000, 1024, 0.0f, false, 0, 24000 / 1024 + 1},
        {44100, 1024, 0.9f, true, 0, 22050 / 1024 + 1},
        // The last loud block set the hold and took its own frames off it.
        {48000, 256, 0.05f, false, 1000, (24000 - 256) / 256 + 1},
    };
    for (const Case& c : cases)
    {
        ConstantSource unit(c.loudPulls > 0 ? 0.06f : c.level), dry(0.0f);
        unit.failing = c.failing;
        AudioSwitchFeed feed;
        feed.setFirst(&unit);
        feed.setSecond(&dry);
        feed.prepare(c.rate, c.block);
        auto pull = [&](int times)
        {
            for (int i = 0; i < times; ++i)
            {
                AudioData r = request(c.block, c.block * i);
                ASSERT_TRUE(feed.provide(r));
            }
        };
        AudioData selected = request(c.block, 0);
        feed.provide(selected); // effect selected: arms the hold
        feed.selectSecond(true);
        pull(c.loudPulls); // above 0.05: keeps draining
        unit.level = c.level;
        const int before = unit.pulls();
        pull(2 * c.reads + 20);
        EXPECT_EQ(unit.pulls() - before, c.reads) << c.rate << " Hz, block " << c.block;
        EXPECT_FALSE(feed.isDraining());
    }
}

TEST(AudioCache, AnswersRepeatsFromItsBuffers)
{
    StaircaseSource source;
    AudioCache cache;
    cache.setFirst(&source);
    cache.prepare(44100, 64);

    struct Step
    {
        int64_t frames, position;
        bool failing, ok;
        size_t fetches;
    };
    const Step steps[] = {
        {64, 128, false, true, 1},
        {64, 128, false, true, 1},  // the repeat is served from the cache
        {32, 128, false, false, 1}, // a held block at that position is longer
        {16, 140, false, false, 1}, // an earlier block covers the request
        {64, 1000, false, true, 2},
        {64, 2000, false, true, 3},
        {64, 3000, false, true, 4},
        {64, 128, false, true, 5}, // three new positions pushed the first out
        // A failed read once answered true and left the caller's old audio in place of silence.
        {64, 4000, true, false, 6},
        {64, 4000, false, true, 7}, // the failed read is not remembered
    };
    for (const Step& step : steps)
    {
        source.failing = step.failing;
        Target t(step.frames, step.position, 0.0f);
        EXPECT_EQ(cache.read(t.data), step.ok) << step.position;
        EXPECT_EQ(source.requests.size(), step.fetches) << step.position;
        EXPECT_EQ(t.left.back(), step.ok ? static_cast<float>(step.position + step.frames - 1) : 0.0f);
    }
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
        int64_t position = 5000;
        for (int64_t n : enginetest::EngineHarness::randomBlocks(9, 20000, 1024))
        {
            Target t(n, position, 0.5f);
            AudioData r = t.data;
            ASSERT_TRUE(byReference ? selector.provide(r) : selector.read(r));
            for (int64_t i = 0; i < n; ++i, ++position)
            {
                ASSERT_EQ(r.channel[0][i], static_cast<float>(position)) << i;
                ASSERT_EQ(r.channel[1][i], static_cast<float>(position)) << i;
            }
        }
    }
}

} // namespace
