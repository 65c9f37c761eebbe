#include "engine/Manager.h"
#include "tests/engine/harness/EngineHarness.h"
#include "tests/engine/harness/TestTrack.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

using enginetest::EngineHarness;
using enginetest::RecordingDelegate;
using enginetest::TestTrack;

namespace
{

// A Manager with a stand-in track on every strip and a delegate that counts.
struct Rig
{
    explicit Rig(uint32_t rate = 44100, uint32_t block = 1024) : harness((wire(), manager), rate, block) {}

    void wire()
    {
        for (int i = 0; i < AudioMixer::kInputs; ++i)
        {
            manager.setTrackSource(i, &tracks[i]);
        }
        manager.setDelegate(&delegate);
    }

    // Checks that every output frame came from the timeline position its block was stamped with.
    void expectOutputFollowsStamps(float level) const
    {
        size_t frame = 0;
        for (const auto& b : harness.blocks)
        {
            for (int64_t i = 0; i < b.frames; ++i, ++frame)
            {
                const float want = TestTrack::valueAt(b.position + i) * level;
                ASSERT_FLOAT_EQ(harness.left[frame], want) << "frame " << i << " of block at " << b.position;
            }
        }
    }

    TestTrack tracks[AudioMixer::kInputs];
    RecordingDelegate delegate;
    Manager manager;
    EngineHarness harness;
};

// Only track 0 plays a signal; the others stay silent so the output is that track alone.
void soloTrackZero(Rig& rig)
{
    for (int i = 1; i < AudioMixer::kInputs; ++i)
    {
        rig.tracks[i].setLevel(0.0f);
    }
}

TEST(ManagerTransport, PlayingAdvancesEngineFramesAtEverySpeedRatio)
{
    for (float ratio : {0.5f, 1.0f, 2.0f})
    {
        Rig rig(48000, 256);
        soloTrackZero(rig);
        rig.manager.setSpeedRatio(ratio);
        rig.manager.locate(8000);
        rig.manager.start();
        rig.harness.run(2560, 256);
        const auto start = static_cast<int64_t>(8000 / ratio);
        for (size_t k = 0; k < rig.harness.blocks.size(); ++k)
        {
            EXPECT_EQ(rig.harness.blocks[k].position, start + 256 * static_cast<int64_t>(k)) << ratio;
        }
        EXPECT_EQ(rig.manager.enginePosition(), start + 2560);
        EXPECT_EQ(rig.manager.sessionPosition(),
                  static_cast<int64_t>(static_cast<double>(start + 2560) * ratio));
        rig.expectOutputFollowsStamps(1.0f);
    }
}

TEST(ManagerTransport, StoppedTransportStillPullsArmedTracksAndMetronomeAtThePosition)
{
    Rig rig;
    rig.tracks[0].setArmed(true);
    rig.manager.setInputGain(0.0f);
    rig.harness.fillInput = EngineHarness::staircaseInput;
    rig.manager.locate(777);
    rig.harness.run(5 * 128, 128);
    for (const auto& b : rig.harness.blocks)
    {
        EXPECT_EQ(b.position, 777);
    }
    EXPECT_EQ(rig.tracks[0].liveCalls.load(), 5);
    EXPECT_EQ(rig.tracks[4].provides.load(), 5);
    EXPECT_EQ(rig.tracks[4].lastPosition.load(), 777);
    // The armed track monitors its input: the output is the device input, frame for frame.
    for (size_t i = 0; i < rig.harness.left.size(); ++i)
    {
        ASSERT_FLOAT_EQ(rig.harness.left[i], static_cast<float>(i % 32768) / 32768.0f);
        ASSERT_FLOAT_EQ(rig.harness.right[i], -static_cast<float>(i % 32768) / 32768.0f);
    }
}

// Simulates the transport over a block sequence: wrap at a block's head when at or past the loop end.
std::vector<int64_t> expectedLoopStamps(const std::vector<int64_t>& sizes, int64_t start, int64_t loopStart,
                                        int64_t loopEnd)
{
    std::vector<int64_t> stamps;
    int64_t p = start;
    for (int64_t n : sizes)
    {
        if (p >= loopEnd)
        {
            p = loopStart;
        }
        stamps.push_back(p);
        p += n;
    }
    return stamps;
}

TEST(ManagerTransport, LoopWrapsAtBlockGranularity)
{
    for (uint32_t rate : {44100u, 48000u, 96000u})
    {
        for (int64_t block : {64, 256, 1000, 1024, 0})
        {
            Rig rig(rate, 1024);
            soloTrackZero(rig);
            rig.manager.sessionLength();
            rig.manager.setLoopStart(1000);
            rig.manager.setLoopEnd(5000);
            rig.manager.setLoopEnabled(true);
            rig.manager.start();
            // Block 0 stands for a randomised sequence of sizes.
            const std::vector<int64_t> sizes =
                block != 0 ? std::vector<int64_t>(static_cast<size_t>(40000 / block), block)
                           : EngineHarness::randomBlocks(rate, 40000, 1024);
            rig.harness.runSequence(sizes);
            const auto want = expectedLoopStamps(sizes, 0, 1000, 5000);
            ASSERT_EQ(rig.harness.blocks.size(), want.size());
            int wraps = 0;
            for (size_t k = 0; k < want.size(); ++k)
            {
                ASSERT_EQ(rig.harness.blocks[k].position, want[k]) << "block " << k << " of " << block;
                if (k > 0 && want[k] == 1000 && want[k - 1] != 1000 - sizes[k - 1])
                {
                    ++wraps;
                    // The block before the wrap overshot the loop end by less than one block.
                    EXPECT_LT(want[k - 1], 5000);
                    EXPECT_GE(want[k - 1] + sizes[k - 1], 5000);
                }
            }
            EXPECT_GE(wraps, 6);
            rig.expectOutputFollowsStamps(1.0f);
            EXPECT_EQ(rig.delegate.ends, 0);
            rig.manager.poll();
            EXPECT_EQ(rig.delegate.ends, 0) << "a loop without a take never reaches the end";
        }
    }
}

TEST(ManagerTransport, StoppedTransportDoesNotWrap)
{
    Rig rig;
    rig.manager.sessionLength();
    rig.manager.setLoopStart(0);
    rig.manager.setLoopEnd(1000);
    rig.manager.setLoopEnabled(true);
    rig.manager.locate(2000);
    rig.harness.run(4096, 1024);
    EXPECT_EQ(rig.harness.blocks.back().position, 2000);
}

TEST(ManagerTransport, EndReachedOncePerBlockUntilPoll)
{
    Rig rig;
    for (auto& t : rig.tracks)
    {
        t.setLength(0);
    }
    EXPECT_EQ(rig.manager.sessionLength(), Manager::kEmptySessionLength);
    EXPECT_EQ(rig.manager.endPosition(), 441000);
    rig.manager.locate(441000 - 512);
    rig.manager.start();
    rig.harness.runBlock(256);
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 0) << "the end lies ahead";
    rig.harness.runBlock(256); // head exactly at the end
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 1);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 1) << "taken by poll";
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 2) << "set again by the next block";
    rig.harness.run(5 * 256, 256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 3) << "one report per poll, however many blocks";

    // The test ignores playing: the main panel's stop alone doesn't silence it, its relocate does.
    rig.manager.stop();
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 4);
    rig.manager.locate(0);
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 4);
}

TEST(ManagerTransport, TakeStopsAtLoopEndWithoutWrapping)
{
    Rig rig;
    rig.manager.sessionLength();
    rig.manager.setLoopStart(0);
    rig.manager.setLoopEnd(4096);
    rig.manager.setLoopEnabled(true);
    rig.manager.setRecording(true);
    rig.manager.start();
    rig.harness.run(8000, 1000);
    const std::vector<int64_t> want{0, 1000, 2000, 3000, 4000, 5000, 6000, 7000};
    for (size_t k = 0; k < want.size(); ++k)
    {
        EXPECT_EQ(rig.harness.blocks[k].position, want[k]) << "the position is not reset";
    }
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 1);

    // The same loop without a take wraps and reports nothing.
    rig.manager.setRecording(false);
    rig.harness.runBlock(1000);
    EXPECT_EQ(rig.harness.blocks.back().position, 0);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.ends, 1);
}

TEST(ManagerLoop, EnablingAnEmptyLoopTakesTheWholeSession)
{
    Rig rig;
    for (auto& t : rig.tracks)
    {
        t.setLength(0);
    }
    rig.manager.setLoopEnabled(true);
    EXPECT_EQ(rig.manager.loopStart(), 0);
    EXPECT_EQ(rig.manager.loopEnd(), 441000);

    rig.tracks[2].setLength(100000);
    rig.manager.setLoopEnabled(false);
    rig.manager.setLoopStart(5000);
    rig.manager.setLoopEnd(300000);
    rig.manager.setLoopEnabled(true);
    EXPECT_EQ(rig.manager.loopStart(), 5000);
    EXPECT_EQ(rig.manager.loopEnd(), 100000) << "cut to the session";

    // A reversed loop becomes the whole session too.
    rig.manager.setLoopStart(9000);
    rig.manager.setLoopEnd(8000);
    rig.manager.setLoopEnabled(true);
    EXPECT_EQ(rig.manager.loopStart(), 0);
    EXPECT_EQ(rig.manager.loopEnd(), 100000);
}

TEST(ManagerLoop, EnablingComparesEngineLoopEndWithSessionLengthAsItStands)
{
    // At half speed a 100000-frame track is 50000 session frames long. A loop end of 40000 session frames
    // is 80000 engine frames, which the unconverted comparison finds beyond the length and cuts to
    // 50000 engine frames, 25000 session frames.
    Rig rig;
    rig.tracks[0].setLength(100000);
    rig.manager.setSpeedRatio(0.5f);
    rig.manager.setLoopStart(1000);
    rig.manager.setLoopEnd(40000);
    rig.manager.setLoopEnabled(true);
    EXPECT_EQ(rig.manager.loopEndFrames(), 50000);
    EXPECT_EQ(rig.manager.loopEnd(), 25000);
}

TEST(ManagerLoop, SpeedRatioKeepsLoopPointsInSessionFrames)
{
    Rig rig;
    rig.manager.setLoopStart(1001);
    rig.manager.setLoopEnd(5001);
    rig.manager.setSpeedRatio(2.0f);
    EXPECT_EQ(rig.manager.loopStartFrames(), 500);
    EXPECT_EQ(rig.manager.loopEndFrames(), 2500);
    EXPECT_EQ(rig.manager.loopStart(), 1000) << "truncated on the way";
    EXPECT_EQ(rig.manager.loopEnd(), 5000);
    rig.manager.setSpeedRatio(0.5f);
    EXPECT_EQ(rig.manager.loopStartFrames(), 2000);
    EXPECT_EQ(rig.manager.loopStart(), 1000);
    for (int i = 0; i < Manager::kTracks; ++i)
    {
        EXPECT_FLOAT_EQ(rig.tracks[i].speedRatio(), 0.5f) << i;
    }
    EXPECT_FLOAT_EQ(rig.tracks[4].speedRatio(), 1.0f) << "the metronome keeps its ratio";

    rig.manager.setSpeedRatio(0.0f);
    rig.manager.setSpeedRatio(-1.0f);
    rig.manager.setSpeedRatio(NAN);
    EXPECT_FLOAT_EQ(rig.manager.speedRatio(), 0.5f) << "a ratio that is not positive is ignored";
}

TEST(ManagerLoop, SetFormatScalesLoopOnlyWhenEnabled)
{
    Rig rig(44100, 256);
    rig.tracks[0].setLength(441000);
    rig.manager.setLoopStart(44100);
    rig.manager.setLoopEnd(88200);
    rig.manager.setFormat(48000, 512);
    EXPECT_EQ(rig.manager.loopStart(), 44100) << "loop off: left unscaled";
    EXPECT_EQ(rig.manager.loopEnd(), 88200);
    EXPECT_EQ(rig.tracks[3].preparedRate, 48000u);
    EXPECT_EQ(rig.tracks[4].preparedBlock, 512u);
    EXPECT_EQ(rig.manager.mixer().sampleRate(), 48000u);

    rig.manager.setFormat(44100, 256);
    rig.manager.setLoopEnabled(true);
    rig.manager.setFormat(48000, 256);
    EXPECT_EQ(rig.manager.loopStart(), 48000);
    EXPECT_EQ(rig.manager.loopEnd(), 96000);
    rig.manager.setFormat(48000, 1024);
    EXPECT_EQ(rig.manager.loopEnd(), 96000) << "same rate: nothing scaled";
    rig.manager.setFormat(96000, 1024);
    EXPECT_EQ(rig.manager.loopEnd(), 192000);
}

TEST(ManagerSession, LengthIsTheLongestTrackInSessionFrames)
{
    Rig rig;
    rig.tracks[0].setLength(1000);
    rig.tracks[1].setLength(3001);
    rig.tracks[4].setLength(999999); // the metronome's length does not count
    EXPECT_EQ(rig.manager.sessionLength(), 3001);
    EXPECT_EQ(rig.manager.endPosition(), 3001);
    rig.manager.setSpeedRatio(2.0f);
    EXPECT_EQ(rig.manager.sessionLength(), 6002);
    EXPECT_EQ(rig.manager.endPosition(), 3001);
    EXPECT_EQ(rig.manager.trackLength(1), 6002);
    rig.manager.setSpeedRatio(0.5f);
    EXPECT_EQ(rig.manager.sessionLength(), 1500);
    EXPECT_EQ(rig.manager.endPosition(), 3000);
    EXPECT_EQ(rig.manager.trackLength(0), 500);
    EXPECT_EQ(rig.manager.trackLength(4), 0) << "not a track";
    EXPECT_EQ(rig.manager.trackLength(-1), 0);
    rig.manager.clearEnd();
    EXPECT_EQ(rig.manager.endPosition(), 0);
}

TEST(ManagerInput, GainIsAppliedInPlaceAndClamped)
{
    Rig rig;
    rig.tracks[0].setArmed(true);
    rig.harness.fillInput = [](AudioData& in, int64_t)
    {
        for (int64_t i = 0; i < in.frames; ++i)
        {
            in.channel[0][i] = 0.25f;
            in.channel[1][i] = -0.9f;
        }
    };
    rig.harness.runBlock(64);
    const float g = std::pow(10.0f, 0.3f);
    EXPECT_FLOAT_EQ(rig.harness.input().channel[0][10], 0.25f * g) << "in the device's own buffer";
    EXPECT_EQ(rig.harness.input().channel[1][10], -1.0f) << "clamped";
    EXPECT_FLOAT_EQ(rig.harness.left[10], 0.25f * g) << "what the armed track passes on";
    EXPECT_EQ(rig.harness.right[10], -1.0f);

    rig.manager.setInputGain(24.0f);
    rig.harness.runBlock(64);
    EXPECT_EQ(rig.harness.input().channel[0][0], 1.0f);
}

TEST(ManagerInput, AutoRecordFiresOncePerArming)
{
    Rig rig;
    float level = 0.0f;
    rig.harness.fillInput = [&level](AudioData& in, int64_t)
    {
        for (int64_t i = 0; i < in.frames; ++i)
        {
            in.channel[0][i] = (i == 7) ? level : 0.0f;
            in.channel[1][i] = 0.0f;
        }
    };
    rig.manager.setAutoRecord(true);
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 0);
    EXPECT_FALSE(rig.manager.isPlaying());

    // 0.06 is below the threshold of 0.1 but above it after the input gain of +6 dB.
    level = 0.06f;
    rig.harness.runBlock(256);
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 1);
    EXPECT_TRUE(rig.manager.isPlaying());
    EXPECT_TRUE(rig.tracks[0].isPlaying()) << "started as start does";
    EXPECT_FALSE(rig.manager.isAutoRecord());

    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 1) << "a second crossing does nothing";

    rig.manager.stop();
    rig.manager.setInputGain(0.0f);
    rig.manager.setAutoRecord(true);
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 1) << "0.06 alone is under the threshold";
    level = 0.5f;
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 2) << "a new arming fires again";
}

TEST(ManagerInput, DisarmingClearsATrippedStart)
{
    Rig rig;
    rig.harness.fillInput = [](AudioData& in, int64_t)
    {
        for (int64_t i = 0; i < in.frames; ++i)
        {
            in.channel[0][i] = in.channel[1][i] = 0.5f;
        }
    };
    rig.manager.setAutoRecord(true);
    rig.harness.runBlock(64);
    rig.manager.setAutoRecord(false);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 0);
    EXPECT_FALSE(rig.manager.isPlaying());
}

} // namespace
