#include "tests/engine/tracks/TrackRig.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <filesystem>
#include <tuple>
#include <vector>

#include <unistd.h>

using namespace tracktest;

namespace
{

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 256;

enum class Part
{
    silence,
    input, // the device input, which reached file frame `start` at device frame `first`
    old,   // the old file's own frames at the same place
};

struct Segment
{
    Part part;
    int64_t frames;
};

/** The file is the segments in order; input 1 records the right side on both. */
void expectLayout(const FileAudio& audio, int64_t first, int64_t start, const std::vector<Segment>& parts,
                  int32_t input = 2)
{
    int64_t total = 0;
    for (const Segment& s : parts)
    {
        total += s.frames;
    }
    ASSERT_EQ(audio.frames(), total);
    int64_t at = 0;
    for (const Segment& s : parts)
    {
        for (int64_t i = at; i < at + s.frames; ++i)
        {
            const int64_t frame = first + i - start;
            float left = 0.0f, right = 0.0f;
            if (s.part == Part::input)
            {
                left = input == 1 ? stepValueRight(frame) : stepValue(frame);
                right = stepValueRight(frame);
            }
            else if (s.part == Part::old)
            {
                left = otherValue(i);
                right = otherValueRight(i);
            }
            ASSERT_FLOAT_EQ(audio.left[static_cast<size_t>(i)], left) << "frame " << i;
            ASSERT_FLOAT_EQ(audio.right[static_cast<size_t>(i)], right) << "frame " << i;
        }
        at += s.frames;
    }
}

bool writeOld(const std::string& path, int64_t frames, int32_t rate)
{
    return writeFile(path, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, rate, frames, otherValue, otherValueRight);
}

class TakeTest : public ::testing::Test
{
protected:
    TakeTest() : rig_(kRate, kBlock) {}

    /** Writes an old file of frames frames of otherValue and loads it into the track. */
    std::string loadOld(int64_t frames, int32_t rate = kRate)
    {
        const std::string path = folder_.file("old.wav");
        EXPECT_TRUE(writeOld(path, frames, rate));
        EXPECT_TRUE(rig_.track().load(epiPath(path)));
        return path;
    }

    TempFolder folder_;
    TrackRig rig_;
};

struct Layout
{
    const char* name;
    int64_t oldFrames, start, frames, punchIn, punchOut;
    int32_t input;
    int64_t takeStart;
    std::vector<Segment> want;
};

class TakeLayoutTest : public TakeTest, public ::testing::WithParamInterface<Layout>
{
};

} // namespace

TEST_P(TakeLayoutTest, NewFileJoinsTheTakeToTheOldAudio)
{
    const Layout& c = GetParam();
    if (c.oldFrames > 0)
    {
        loadOld(c.oldFrames);
    }
    rig_.track().setInput(c.input);
    const std::string path = folder_.file("Audio_T1_1.aif");
    const int64_t first = rig_.record(path, c.start, c.frames, c.punchIn, c.punchOut);
    EXPECT_TRUE(exists(folder_.file("Audio_T1_1_tmp.aif"))) << "the recorder writes the _tmp file";
    ASSERT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    EXPECT_EQ(rig_.track().takeStart(), c.takeStart);
    const FileAudio audio = readFile(path);
    EXPECT_EQ(audio.format, SF_FORMAT_AIFF | SF_FORMAT_PCM_24);
    expectLayout(audio, first, c.start, c.want, c.input);
    EXPECT_FALSE(exists(folder_.file("Audio_T1_1_tmp.aif"))) << "the _tmp file is gone afterwards";
    // The new file is what the track plays now.
    EXPECT_EQ(rig_.track().filePath().toNativeText(), path);
    EXPECT_EQ(rig_.track().length(), audio.frames());
}

constexpr Part kOld = Part::old, kInput = Part::input, kSilence = Part::silence;

Layout take(const char* name, int64_t oldFrames, int64_t start, int64_t frames, int64_t takeStart,
            std::vector<Segment> want, int64_t punchIn = 0, int64_t punchOut = 0, int32_t input = 2)
{
    return Layout{name, oldFrames, start, frames, punchIn, punchOut, input, takeStart, std::move(want)};
}

INSTANTIATE_TEST_SUITE_P(
    Takes, TakeLayoutTest,
    ::testing::Values(take("EmptyTrack", 0, 1000, 10240, 1000, {{kSilence, 1000}, {kInput, 10240}}),
                      take("PastTheOldEnd", 5000, 8000, 5120, 8000,
                           {{kOld, 5000}, {kSilence, 3000}, {kInput, 5120}}),
                      take("OverTheOldEnd", 25000, 20000, 10240, 20000, {{kOld, 20000}, {kInput, 10240}}),
                      // Blocks of 256 from 0: [768, 1024) holds the punch-in and is recorded whole; [2816,
                      // 3072) crosses the punch-out and is dropped whole, as is all that follows.
                      take("PunchPoints", 0, 0, 5000, 768, {{kSilence, 768}, {kInput, 2048}}, 1000, 3000),
                      take("RightInputOnBoth", 0, 0, 2048, 0, {{kInput, 2048}}, 0, 0, 1)),
    [](const ::testing::TestParamInfo<Layout>& info) { return std::string(info.param.name); });

TEST_F(TakeTest, OldFileAtAnotherRateIsJoinedAtTheSessionRate)
{
    // 44.1 kHz old file on a 48 kHz session: its part of the new file is resampled, not copied raw.
    loadOld(44100, 44100);
    const std::string path = folder_.file("rate.aif");
    rig_.record(path, 60000, 10 * kBlock);
    ASSERT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    const FileAudio audio = readFile(path);
    EXPECT_EQ(audio.rate, static_cast<int32_t>(kRate));
    ASSERT_EQ(audio.frames(), 60000 + 10 * kBlock);
    EXPECT_GT(audio.left[47000], 0.5f) << "the old audio was copied at its own rate";
    // One second of old audio at 48 kHz, then silence up to the take.
    for (size_t i = 48000 + 64; i < 60000; ++i)
    {
        ASSERT_EQ(audio.left[i], 0.0f) << i;
    }
}

TEST_F(TakeTest, ArmedWithTheTransportStoppedRecordsNothing)
{
    const std::string path = folder_.file("stopped.aif");
    rig_.track().setArmed(true);
    rig_.track().beginTake(epiPath(path), 0, 0);
    ASSERT_TRUE(rig_.track().setRecording(true));
    rig_.run(4 * kBlock);
    EXPECT_FALSE(rig_.track().setRecording(false));
    EXPECT_EQ(rig_.track().takeError(), Track::TakeError::takeEmpty);
    EXPECT_FALSE(exists(path));
    EXPECT_FALSE(exists(folder_.file("stopped_tmp.aif")));
}

// Bad cases: the old audio stays on disk, the track stays usable, the caller is told.

class TakeFailureTest : public TakeTest, public ::testing::WithParamInterface<Track::TakeError>
{
};

TEST_P(TakeFailureTest, KeepsTheTakeAndTheOldFileAndTheTrackUsable)
{
    const Track::TakeError error = GetParam();
    const std::string old = loadOld(30000);
    const std::string path = folder_.file("take.aif"), tmp = folder_.file("take_tmp.aif");
    if (error == Track::TakeError::newUnwritable)
    {
        std::filesystem::create_directory(path); // something that isn't a file stands at the new file's name
    }
    const int64_t first = rig_.record(path, 1000, 10 * kBlock);
    if (error != Track::TakeError::newUnwritable)
    {
        ASSERT_TRUE(std::filesystem::remove(error == Track::TakeError::takeUnreadable ? tmp : old));
    }
    EXPECT_FALSE(rig_.stopTake());
    EXPECT_EQ(rig_.track().takeError(), error);
    const std::string named = error == Track::TakeError::oldUnreadable ? "old.wav" : "take_tmp.aif";
    EXPECT_NE(rig_.track().takeErrorText().find(named), std::string::npos) << rig_.track().takeErrorText();
    EXPECT_FALSE(std::filesystem::is_regular_file(path)) << "nothing is written";
    if (error != Track::TakeError::takeUnreadable)
    {
        expectLayout(readFile(tmp), first, 0,
                     {{Part::input, 10 * kBlock}}); // whole, under its temporary name
    }
    if (error != Track::TakeError::oldUnreadable)
    {
        expectLayout(readFile(old), 0, 0, {{Part::old, 30000}});
        EXPECT_EQ(rig_.track().filePath().toNativeText(), old) << "the track still plays its old file";
    }
    EXPECT_EQ(rig_.track().isLoaded(), error != Track::TakeError::oldUnreadable);
    rig_.record(folder_.file("next.aif"), 0, 4 * kBlock);
    EXPECT_TRUE(rig_.stopTake()) << "the next take goes through: " << rig_.track().takeErrorText();
}

INSTANTIATE_TEST_SUITE_P(Joins, TakeFailureTest,
                         ::testing::Values(Track::TakeError::takeUnreadable, Track::TakeError::newUnwritable,
                                           Track::TakeError::oldUnreadable));

TEST_F(TakeTest, ReadOnlyFolderRefusesTheTakeAndLosesNothing)
{
    // The old file is only written here, not loaded: a loaded track's disk thread could hold a lock
    // at the fork, and the child then hung on it (seen once under AddressSanitizer).
    const std::string old = folder_.file("old.wav");
    ASSERT_TRUE(writeOld(old, 30000, kRate));
    const std::string ro = folder_.file("ro");
    std::filesystem::create_directory(ro);
    namespace fs = std::filesystem;
    fs::permissions(ro, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                            fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
    if (!testsupport::canForkThreaded() && ::geteuid() == 0)
    {
        GTEST_SKIP() << "the thread sanitizer can't follow a fork of a threaded process";
    }
    EXPECT_TRUE(testsupport::asUnprivileged(
        [&]
        {
            Track track;
            track.prepare(kRate, kBlock);
            const bool loaded = track.load(epiPath(old));
            track.setArmed(true);
            track.beginTake(epiPath(ro + "/take.aif"), 0, 0);
            const bool started = track.setRecording(true);
            const bool refused = !started && !track.isRecording() &&
                                 track.takeError() == Track::TakeError::recorderOpen &&
                                 !track.takeErrorText().empty();
            return loaded && refused && track.isLoaded() && !exists(ro + "/take_tmp.aif");
        }));
    expectLayout(readFile(old), 0, 0, {{Part::old, 30000}});
}

TEST_F(TakeTest, DiskThatFellBehindIsReportedAndTheTakeKept)
{
    // Offline, unpaced, the engine outruns the recorder's thread, which looks for work every 100 ms:
    // well over three buffers arrive before it first wakes.
    const std::string path = folder_.file("behind.aif");
    rig_.record(path, 0, 400000);
    const uint32_t dropped = rig_.track().recorder().overruns();
    const bool merged = rig_.stopTake();
    if (dropped == 0)
    {
        GTEST_SKIP() << "the recorder's thread kept up this time";
    }
    EXPECT_FALSE(merged);
    EXPECT_EQ(rig_.track().takeError(), Track::TakeError::incomplete);
    EXPECT_NE(rig_.track().takeErrorText().find(std::to_string(dropped) + " blocks"), std::string::npos);
    // What was recorded is kept and loaded.
    EXPECT_TRUE(rig_.track().isLoaded());
    EXPECT_EQ(readFile(path).frames(), rig_.track().recorder().framesAccepted());
}

class TakeMatrixTest : public ::testing::TestWithParam<std::tuple<uint32_t, uint32_t>>
{
};

TEST_P(TakeMatrixTest, RandomBlocksKeepTheOldAudioAroundTheTake)
{
    const auto [rate, block] = GetParam();
    TempFolder folder;
    TrackRig rig(rate, block);
    const int64_t oldFrames = 3 * static_cast<int64_t>(rate);
    const std::string old = folder.file("old.wav");
    ASSERT_TRUE(writeOld(old, oldFrames, static_cast<int32_t>(rate)));
    ASSERT_TRUE(rig.manager().loadTrack(0, epiPath(old)));
    const int64_t start = rate / 2 + 17;
    const std::string path = folder.file("take.aif");
    rig.track().setArmed(true);
    ASSERT_TRUE(rig.manager().startTake(0, epiPath(path)));
    rig.manager().locate(start);
    rig.manager().start();
    const int64_t first = rig.harness().deviceFrames();
    const int64_t length = rate;
    rig.harness().runSequence(enginetest::EngineHarness::randomBlocks(rate + block, length, block));
    ASSERT_TRUE(rig.stopTake()) << rig.track().takeErrorText();
    EXPECT_EQ(rig.track().takeStart(), start);
    expectLayout(readFile(path), first, start,
                 {{Part::old, start}, {Part::input, length}, {Part::old, oldFrames - start - length}});
    // The old file is never touched: a take always makes a new file.
    expectLayout(readFile(old), 0, 0, {{Part::old, oldFrames}});
}

INSTANTIATE_TEST_SUITE_P(RatesAndBlocks, TakeMatrixTest,
                         ::testing::Combine(::testing::Values(44100u, 48000u, 96000u),
                                            ::testing::Values(64u, 256u, 1024u)));
