#include "engine/Manager.h"
#include "tests/engine/harness/EngineHarness.h"
#include "tests/engine/harness/TestTrack.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

using enginetest::EngineHarness;
using enginetest::RecordingDelegate;
using enginetest::TestTrack;

namespace
{

// A Manager with a stand-in track on every strip and a delegate that counts; only track 0 is heard.
struct Rig
{
    explicit Rig(uint32_t rate = 44100, uint32_t block = 1024) : harness((wire(), manager), rate, block) {}

    void wire()
    {
        for (int i = 0; i < AudioMixer::kInputs; ++i)
        {
            manager.setTrackSource(i, &tracks[i]);
            tracks[i].setLevel(i == 0 ? 1.0f : 0.0f);
        }
        manager.setDelegate(&delegate);
    }

    void loop(int64_t start, int64_t end)
    {
        manager.sessionLength(); // sets the end the loop is cut to
        manager.setLoopStart(start);
        manager.setLoopEnd(end);
        manager.setLoopEnabled(true);
    }

    int ends()
    {
        manager.poll();
        return delegate.ends;
    }

    // Checks that every output frame came from the timeline position its block was stamped with.
    void expectOutputFollowsStamps() const
    {
        size_t frame = 0;
        for (const auto& b : harness.blocks)
        {
            for (int64_t i = 0; i < b.frames; ++i, ++frame)
            {
                ASSERT_FLOAT_EQ(harness.left[frame], TestTrack::valueAt(b.position + i))
                    << "block at " << b.position;
            }
        }
    }

    TestTrack tracks[AudioMixer::kInputs];
    RecordingDelegate delegate;
    Manager manager;
    EngineHarness harness;
};

TEST(ManagerTransport, PlayingAdvancesEngineFramesAtEverySpeedRatio)
{
    for (float ratio : {0.5f, 1.0f, 2.0f})
    {
        Rig rig(48000, 256);
        rig.manager.setSpeedRatio(ratio);
        rig.manager.locate(8000);
        rig.manager.start();
        rig.harness.run(2560, 256);
        const auto start = static_cast<int64_t>(8000 / ratio);
        for (size_t k = 0; k < rig.harness.blocks.size(); ++k)
        {
            EXPECT_EQ(rig.harness.blocks[k].position, start + 256 * static_cast<int64_t>(k)) << ratio;
        }
        EXPECT_EQ(rig.manager.sessionPosition(),
                  static_cast<int64_t>(static_cast<double>(start + 2560) * ratio));
        rig.expectOutputFollowsStamps();
    }
}

TEST(ManagerTransport, StoppedTransportPullsArmedTracksAndMetronomeAtThePositionWithoutWrapping)
{
    Rig rig;
    rig.tracks[0].setArmed(true);
    rig.manager.setInputGain(0.0f);
    rig.harness.fillInput = EngineHarness::staircaseInput;
    rig.loop(0, 1000);
    rig.manager.locate(2000);
    rig.harness.run(5 * 128, 128);
    for (const auto& b : rig.harness.blocks)
    {
        EXPECT_EQ(b.position, 2000);
    }
    EXPECT_EQ(rig.tracks[0].liveCalls.load(), 5);
    EXPECT_EQ(rig.tracks[4].lastPosition.load(), 2000);
    // The armed track monitors its input: the output is the device input, frame for frame.
    for (size_t i = 0; i < rig.harness.left.size(); ++i)
    {
        ASSERT_FLOAT_EQ(rig.harness.left[i], static_cast<float>(i % 32768) / 32768.0f);
        ASSERT_FLOAT_EQ(rig.harness.right[i], -static_cast<float>(i % 32768) / 32768.0f);
    }
}

TEST(ManagerTransport, LoopWrapsAtTheHeadOfTheBlockAtOrPastItsEnd)
{
    // Block 0 stands for a randomised sequence of sizes.
    for (int64_t block : {64, 1000, 0})
    {
        Rig rig(48000, 1024);
        rig.loop(1000, 5000);
        rig.manager.start();
        const std::vector<int64_t> sizes =
            block != 0 ? std::vector<int64_t>(static_cast<size_t>(40000 / block), block)
                       : EngineHarness::randomBlocks(48000, 40000, 1024);
        rig.harness.runSequence(sizes);
        int64_t p = 0;
        for (size_t k = 0; k < sizes.size(); ++k)
        {
            p = p >= 5000 ? 1000 : p;
            ASSERT_EQ(rig.harness.blocks[k].position, p) << "block " << k << " of " << block;
            p += sizes[k];
        }
        rig.expectOutputFollowsStamps();
        EXPECT_EQ(rig.ends(), 0) << "a loop without a take never reaches the end";
    }
}

TEST(ManagerTransport, EndReachedOncePerBlockUntilPoll)
{
    Rig rig;
    rig.manager.sessionLength();
    rig.manager.locate(Manager::kEmptySessionLength - 512);
    rig.manager.start();
    rig.harness.runBlock(256);
    rig.harness.runBlock(256);
    EXPECT_EQ(rig.ends(), 0) << "the end lies ahead";
    rig.harness.runBlock(256); // head exactly at the end
    EXPECT_EQ(rig.ends(), 1);
    EXPECT_EQ(rig.ends(), 1) << "taken by poll";
    rig.harness.run(5 * 256, 256);
    EXPECT_EQ(rig.ends(), 2) << "one report per poll, however many blocks";

    // The test ignores playing: the main panel's stop alone doesn't silence it, its relocate does.
    rig.manager.stop();
    rig.harness.runBlock(256);
    EXPECT_EQ(rig.ends(), 3);
    rig.manager.locate(0);
    rig.harness.runBlock(256);
    EXPECT_EQ(rig.ends(), 3);
}

TEST(ManagerTransport, TakeStopsAtLoopEndWithoutWrapping)
{
    Rig rig;
    rig.loop(0, 4096);
    rig.manager.setRecording(true);
    rig.manager.start();
    rig.harness.run(8000, 1000);
    EXPECT_EQ(rig.harness.blocks.back().position, 7000) << "the position is not reset";
    EXPECT_EQ(rig.ends(), 1);

    // The same loop without a take wraps and reports nothing.
    rig.manager.setRecording(false);
    rig.harness.runBlock(1000);
    EXPECT_EQ(rig.harness.blocks.back().position, 0);
    EXPECT_EQ(rig.ends(), 1);
}

TEST(ManagerLoop, EnablingCutsTheLoopToTheSession)
{
    struct Case
    {
        int64_t trackLength;
        float ratio;
        int64_t start, end, wantStart, wantEnd;
    };
    const Case cases[] = {
        {0, 1.0f, 0, 0, 0, Manager::kEmptySessionLength}, // an empty loop takes the whole session
        {100000, 1.0f, 5000, 300000, 5000, 100000},
        {100000, 1.0f, 9000, 8000, 0, 100000}, // reversed: the whole session
        // The engine loop end (80000) is compared with the session length as it stands (50000 at half
        // speed) and cut to 50000 engine frames.
        {100000, 0.5f, 1000, 40000, 1000, 25000},
    };
    for (const Case& c : cases)
    {
        Rig rig;
        rig.tracks[0].setLength(c.trackLength);
        rig.manager.setSpeedRatio(c.ratio);
        rig.manager.setLoopStart(c.start);
        rig.manager.setLoopEnd(c.end);
        rig.manager.setLoopEnabled(true);
        EXPECT_EQ(rig.manager.loopStart(), c.wantStart) << c.start << ".." << c.end;
        EXPECT_EQ(rig.manager.loopEnd(), c.wantEnd) << c.start << ".." << c.end;
    }
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
    rig.manager.setSpeedRatio(0.5f);
    EXPECT_EQ(rig.manager.loopStartFrames(), 2000);
    EXPECT_FLOAT_EQ(rig.tracks[3].speedRatio(), 0.5f);
    EXPECT_FLOAT_EQ(rig.tracks[4].speedRatio(), 1.0f) << "the metronome keeps its ratio";
    for (float bad : {0.0f, -1.0f, NAN})
    {
        rig.manager.setSpeedRatio(bad);
    }
    EXPECT_FLOAT_EQ(rig.manager.speedRatio(), 0.5f) << "a ratio that is not positive is ignored";
}

TEST(ManagerLoop, SetFormatScalesLoopOnlyWhenEnabled)
{
    Rig rig(44100, 256);
    rig.tracks[0].setLength(441000);
    rig.manager.setLoopStart(44100);
    rig.manager.setLoopEnd(88200);
    rig.manager.setFormat(48000, 512);
    EXPECT_EQ(rig.manager.loopEnd(), 88200) << "loop off: left unscaled";
    EXPECT_EQ(rig.tracks[3].preparedRate, 48000u);

    rig.manager.setFormat(44100, 256);
    rig.manager.setLoopEnabled(true);
    rig.manager.setFormat(48000, 256);
    EXPECT_EQ(rig.manager.loopStart(), 48000);
    EXPECT_EQ(rig.manager.loopEnd(), 96000);
    rig.manager.setFormat(48000, 1024);
    EXPECT_EQ(rig.manager.loopEnd(), 96000) << "same rate: nothing scaled";
}

TEST(ManagerSession, LengthIsTheLongestTrackInSessionFrames)
{
    Rig rig;
    rig.tracks[0].setLength(1000);
    rig.tracks[1].setLength(3001);
    rig.tracks[4].setLength(999999); // the metronome's length does not count
    EXPECT_EQ(rig.manager.sessionLength(), 3001);
    rig.manager.setSpeedRatio(2.0f);
    EXPECT_EQ(rig.manager.sessionLength(), 6002);
    EXPECT_EQ(rig.manager.endPosition(), 3001);
    rig.manager.setSpeedRatio(0.5f);
    EXPECT_EQ(rig.manager.sessionLength(), 1500);
    EXPECT_EQ(rig.manager.trackLength(0), 500);
    EXPECT_EQ(rig.manager.trackLength(4), 0) << "not a track";
}

// The device input: frame 7 of each block at *left on the left side, the right side at right throughout.
auto spikeInput(const float* left, float right)
{
    return [=](AudioData& in, int64_t)
    {
        for (int64_t i = 0; i < in.frames; ++i)
        {
            in.channel[0][i] = i == 7 ? *left : 0.0f;
            in.channel[1][i] = right;
        }
    };
}

TEST(ManagerInput, GainIsAppliedInPlaceAndClamped)
{
    Rig rig;
    rig.tracks[0].setArmed(true);
    const float level = 0.25f, g = std::pow(10.0f, 0.3f);
    rig.harness.fillInput = spikeInput(&level, -0.9f);
    rig.harness.runBlock(64);
    EXPECT_FLOAT_EQ(rig.harness.input().channel[0][7], 0.25f * g) << "in the device's own buffer";
    EXPECT_EQ(rig.harness.input().channel[1][7], -1.0f) << "clamped";
    EXPECT_FLOAT_EQ(rig.harness.left[7], 0.25f * g) << "what the armed track passes on";
}

TEST(ManagerInput, AutoRecordFiresOncePerArming)
{
    Rig rig;
    float level = 0.0f;
    rig.harness.fillInput = spikeInput(&level, 0.0f);
    rig.manager.setAutoRecord(true);
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 0);

    // 0.06 is below the threshold of 0.1 but above it after the input gain of +6 dB.
    level = 0.06f;
    rig.harness.runBlock(256);
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 1);
    EXPECT_TRUE(rig.tracks[0].isPlaying()) << "started as start does";
    EXPECT_FALSE(rig.manager.isAutoRecord());
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 1) << "a second crossing does nothing";

    rig.manager.stop();
    rig.manager.setInputGain(0.0f);
    level = 0.5f;
    rig.manager.setAutoRecord(true);
    rig.harness.runBlock(256);
    rig.manager.setAutoRecord(false);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 1) << "disarming clears a tripped start";
    EXPECT_FALSE(rig.manager.isPlaying());

    level = 0.06f;
    rig.manager.setAutoRecord(true);
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 1) << "0.06 alone is under the threshold";
    level = 0.5f;
    rig.harness.runBlock(256);
    rig.manager.poll();
    EXPECT_EQ(rig.delegate.autoRecords, 2) << "a new arming fires again";
}

// A job of a given number of slices; it notes what was done to it.
class ScriptedJob : public Exporter
{
public:
    struct Log
    {
        int renders = 0;
        int cancels = 0;
        int destroyed = 0;
    };

    ScriptedJob(Log& log, int slices) : log_(log), slices_(slices) {}
    ~ScriptedJob() override { ++log_.destroyed; }

    bool render(float& progress, bool& finished) override
    {
        ++log_.renders;
        progress = static_cast<float>(log_.renders) / static_cast<float>(slices_);
        finished = log_.renders >= slices_;
        return true;
    }
    void cancel() override { ++log_.cancels; }

private:
    Log& log_;
    int slices_;
};

TEST(ManagerTask, JobRunsSliceBySliceThroughPoll)
{
    RecordingDelegate delegate;
    Manager m;
    m.setDelegate(&delegate);
    ScriptedJob::Log log;
    int suspendsWhenMade = -1;
    m.startTask(
        [&]
        {
            suspendsWhenMade = delegate.suspends;
            return std::make_unique<ScriptedJob>(log, 4);
        },
        epiText("Rendering session"), epiText("Rendering session..."));
    EXPECT_EQ(suspendsWhenMade, 1) << "the job is set up with the device already suspended";
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_TRUE(m.hasTask()) << i;
        m.poll();
    }
    EXPECT_FALSE(m.hasTask());
    EXPECT_EQ(log.destroyed, 1);
    EXPECT_EQ(delegate.progress, (std::vector<float>{0.25f, 0.5f, 0.75f, 1.0f}));
    EXPECT_EQ(std::vector<std::string>(delegate.order.begin(), delegate.order.end()),
              (std::vector<std::string>{"suspend", "title", "message", "progress", "progress", "progress",
                                        "progress", "finished", "resume"}));
}

TEST(ManagerTask, CancelAndReplaceAndDestroy)
{
    RecordingDelegate delegate;
    ScriptedJob::Log first, second, third;
    {
        Manager m;
        m.setDelegate(&delegate);
        m.cancelTask(); // nothing running: nothing happens
        m.startTask([&] { return std::make_unique<ScriptedJob>(first, 10); }, epiText("a"), epiText("b"));
        m.poll();
        m.cancelTask();
        EXPECT_EQ(first.destroyed, 1);
        EXPECT_EQ(delegate.resumes, 1);

        m.startTask([&] { return std::make_unique<ScriptedJob>(second, 10); }, epiText("a"), epiText("b"));
        m.startTask([&] { return std::make_unique<ScriptedJob>(third, 10); }, epiText("a"), epiText("b"));
        EXPECT_EQ(second.cancels, 1) << "a new job replaces a running one";

        m.startTask([] { return std::unique_ptr<Exporter>(); }, epiText("a"), epiText("b"));
        EXPECT_EQ(third.cancels, 1);
        EXPECT_FALSE(m.hasTask()) << "nothing made: device resumed at once";
        EXPECT_EQ(delegate.suspends, delegate.resumes);

        m.startTask([&] { return std::make_unique<ScriptedJob>(first, 10); }, epiText("a"), epiText("b"));
    }
    EXPECT_EQ(first.cancels, 2) << "the destructor abandons a running job";
}

} // namespace
