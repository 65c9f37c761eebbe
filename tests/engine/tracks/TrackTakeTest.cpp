#include "tests/engine/tracks/TrackRig.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <filesystem>

#include <unistd.h>

using namespace tracktest;

namespace
{

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 256;

/** Frames file[at, at + count) are the device input from device frame first on. */
void expectInput(const FileAudio& audio, int64_t at, int64_t first, int64_t count)
{
    ASSERT_LE(at + count, audio.frames());
    for (int64_t i = 0; i < count; ++i)
    {
        const size_t k = static_cast<size_t>(at + i);
        ASSERT_FLOAT_EQ(audio.left[k], stepValue(first + i)) << "frame " << at + i;
        ASSERT_FLOAT_EQ(audio.right[k], stepValueRight(first + i)) << "frame " << at + i;
    }
}

/** Frames file[at, at + count) are the old file's from frame from on. */
void expectOld(const FileAudio& audio, int64_t at, int64_t from, int64_t count)
{
    ASSERT_LE(at + count, audio.frames());
    for (int64_t i = 0; i < count; ++i)
    {
        const size_t k = static_cast<size_t>(at + i);
        ASSERT_FLOAT_EQ(audio.left[k], otherValue(from + i)) << "frame " << at + i;
        ASSERT_FLOAT_EQ(audio.right[k], otherValueRight(from + i)) << "frame " << at + i;
    }
}

void expectSilence(const FileAudio& audio, int64_t at, int64_t count)
{
    ASSERT_LE(at + count, audio.frames());
    for (int64_t i = 0; i < count; ++i)
    {
        const size_t k = static_cast<size_t>(at + i);
        ASSERT_EQ(audio.left[k], 0.0f) << "frame " << at + i;
        ASSERT_EQ(audio.right[k], 0.0f) << "frame " << at + i;
    }
}

class TakeTest : public ::testing::Test
{
protected:
    TakeTest() : rig_(kRate, kBlock) {}

    /** Writes an old file of frames frames of otherValue and loads it into the track. */
    std::string loadOld(int64_t frames, int32_t rate = kRate)
    {
        const std::string path = folder_.file("old.wav");
        EXPECT_TRUE(
            writeFile(path, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, rate, frames, otherValue, otherValueRight));
        EXPECT_TRUE(rig_.track().load(epiPath(path)));
        return path;
    }

    TempFolder folder_;
    TrackRig rig_;
};

} // namespace

TEST_F(TakeTest, OnAnEmptyTrackStartsWithSilenceUpToItsPosition)
{
    const std::string path = folder_.file("Audio_T1_1.aif");
    const int64_t first = rig_.record(path, 1000, 40 * kBlock);
    ASSERT_TRUE(rig_.takeStarted());
    EXPECT_TRUE(rig_.track().isRecording());
    EXPECT_TRUE(exists(folder_.file("Audio_T1_1_tmp.aif"))) << "the recorder writes the _tmp file";
    ASSERT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    EXPECT_EQ(rig_.track().takeStart(), 1000);

    const FileAudio audio = readFile(path);
    ASSERT_TRUE(audio.ok);
    EXPECT_EQ(audio.format, SF_FORMAT_AIFF | SF_FORMAT_PCM_24);
    EXPECT_EQ(audio.channels, 2);
    EXPECT_EQ(audio.rate, static_cast<int32_t>(kRate));
    ASSERT_EQ(audio.frames(), 1000 + 40 * kBlock);
    expectSilence(audio, 0, 1000);
    expectInput(audio, 1000, first, 40 * kBlock);
    EXPECT_FALSE(exists(folder_.file("Audio_T1_1_tmp.aif"))) << "the _tmp file is gone afterwards";
    // The new file is what the track plays now.
    EXPECT_TRUE(rig_.track().isLoaded());
    EXPECT_EQ(rig_.track().filePath().toNativeText(), path);
    EXPECT_EQ(rig_.track().length(), 1000 + 40 * kBlock);
}

TEST_F(TakeTest, PastTheOldFilesEndFillsTheGapWithSilence)
{
    loadOld(5000);
    const std::string path = folder_.file("past.aif");
    const int64_t first = rig_.record(path, 8000, 20 * kBlock);
    ASSERT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    const FileAudio audio = readFile(path);
    ASSERT_EQ(audio.frames(), 8000 + 20 * kBlock);
    expectOld(audio, 0, 0, 5000);
    expectSilence(audio, 5000, 3000);
    expectInput(audio, 8000, first, 20 * kBlock);
}

TEST_F(TakeTest, OverTheOldFilesEndReplacesItsTail)
{
    loadOld(25000);
    const std::string path = folder_.file("over.aif");
    const int64_t first = rig_.record(path, 20000, 40 * kBlock);
    ASSERT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    const FileAudio audio = readFile(path);
    ASSERT_EQ(audio.frames(), 20000 + 40 * kBlock);
    expectOld(audio, 0, 0, 20000);
    expectInput(audio, 20000, first, 40 * kBlock);
}

TEST_F(TakeTest, OldFileAtAnotherRateIsJoinedAtTheSessionRate)
{
    // 44.1 kHz old file on a 48 kHz session: its part of the new file is resampled, not copied raw.
    loadOld(44100, 44100);
    const std::string path = folder_.file("rate.aif");
    rig_.record(path, 60000, 10 * kBlock);
    ASSERT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    const FileAudio audio = readFile(path);
    EXPECT_EQ(audio.rate, static_cast<int32_t>(kRate));
    // One second of old audio at 48 kHz, then silence up to the take.
    ASSERT_EQ(audio.frames(), 60000 + 10 * kBlock);
    EXPECT_GT(audio.left[47000], 0.5f) << "the old audio was copied at its own rate";
    expectSilence(audio, 48000 + 64, 60000 - 48000 - 64);
}

TEST_F(TakeTest, PunchPointsDropAndKeepWholeBlocks)
{
    const std::string path = folder_.file("punch.aif");
    // Blocks of 256 from 0: [768, 1024) holds the punch-in and is recorded whole; [2816, 3072) crosses
    // the punch-out and is dropped whole, as is all that follows.
    const int64_t first = rig_.record(path, 0, 5000, 1000, 3000);
    ASSERT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    EXPECT_EQ(rig_.track().takeStart(), 768) << "the take starts at the block that holds the punch-in";
    const FileAudio audio = readFile(path);
    ASSERT_EQ(audio.frames(), 2816);
    expectSilence(audio, 0, 768);
    expectInput(audio, 768, first + 768, 2816 - 768);
}

TEST_F(TakeTest, InputChoiceRecordsOneSideOnBoth)
{
    rig_.track().setInput(1);
    const std::string path = folder_.file("right.aif");
    const int64_t first = rig_.record(path, 0, 8 * kBlock);
    ASSERT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    const FileAudio audio = readFile(path);
    ASSERT_EQ(audio.frames(), 8 * kBlock);
    for (int64_t i = 0; i < audio.frames(); ++i)
    {
        ASSERT_FLOAT_EQ(audio.left[static_cast<size_t>(i)], stepValueRight(first + i));
        ASSERT_FLOAT_EQ(audio.right[static_cast<size_t>(i)], stepValueRight(first + i));
    }
}

TEST_F(TakeTest, ArmedWithTheTransportStoppedMonitorsAndRecordsNothing)
{
    rig_.harness().recordOutput = true;
    const std::string path = folder_.file("stopped.aif");
    rig_.track().setArmed(true);
    rig_.track().beginTake(epiPath(path), 0, 0);
    ASSERT_TRUE(rig_.track().setRecording(true));
    const int64_t first = rig_.harness().deviceFrames();
    rig_.run(4 * kBlock);
    // The input is heard (no effect loaded: straight through) ...
    ASSERT_EQ(rig_.harness().left.size(), static_cast<size_t>(4 * kBlock));
    for (int64_t i = 0; i < 4 * kBlock; ++i)
    {
        ASSERT_FLOAT_EQ(rig_.harness().left[static_cast<size_t>(i)], stepValue(first + i));
    }
    // ... and nothing is recorded: there is no take to keep.
    EXPECT_FALSE(rig_.track().setRecording(false));
    EXPECT_EQ(rig_.track().takeError(), Track::TakeError::takeEmpty);
    EXPECT_FALSE(exists(path));
    EXPECT_FALSE(exists(folder_.file("stopped_tmp.aif")));
}

// Bad cases: the old audio stays on disk, the track stays usable, the caller is told.

TEST_F(TakeTest, TemporaryFileThatCantBeReadBackKeepsTheOldFile)
{
    const std::string old = loadOld(30000);
    const std::string path = folder_.file("lost.aif");
    rig_.record(path, 1000, 10 * kBlock);
    // The temporary file vanishes under the recorder.
    ASSERT_TRUE(std::filesystem::remove(folder_.file("lost_tmp.aif")));
    EXPECT_FALSE(rig_.stopTake());
    EXPECT_EQ(rig_.track().takeError(), Track::TakeError::takeUnreadable);
    EXPECT_NE(rig_.track().takeErrorText().find("lost_tmp.aif"), std::string::npos);
    EXPECT_FALSE(exists(path)) << "nothing is written";
    EXPECT_EQ(readFile(old).frames(), 30000);
    EXPECT_TRUE(rig_.track().isLoaded()) << "the track still plays its old file";
    EXPECT_EQ(rig_.track().filePath().toNativeText(), old);
}

TEST_F(TakeTest, NewFileThatCantBeCreatedKeepsTakeAndOldFile)
{
    const std::string old = loadOld(30000);
    const std::string path = folder_.file("blocked.aif");
    // Something that isn't a file already stands at the new file's name.
    std::filesystem::create_directory(path);
    const int64_t first = rig_.record(path, 1000, 10 * kBlock);
    EXPECT_FALSE(rig_.stopTake());
    EXPECT_EQ(rig_.track().takeError(), Track::TakeError::newUnwritable);
    EXPECT_NE(rig_.track().takeErrorText().find("blocked_tmp.aif"), std::string::npos);
    // The take is still on disk, whole, under its temporary name, and the old file is untouched.
    const FileAudio take = readFile(folder_.file("blocked_tmp.aif"));
    ASSERT_EQ(take.frames(), 10 * kBlock);
    expectInput(take, 0, first, 10 * kBlock);
    expectOld(readFile(old), 0, 0, 30000);
    EXPECT_TRUE(rig_.track().isLoaded());
    EXPECT_EQ(rig_.track().filePath().toNativeText(), old);
    // The track stays usable: the next take goes through.
    const std::string next = folder_.file("next.aif");
    rig_.record(next, 0, 4 * kBlock);
    EXPECT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    EXPECT_EQ(readFile(next).frames(), 30000);
}

TEST_F(TakeTest, OldFileThatVanishedKeepsTheTake)
{
    const std::string old = loadOld(30000);
    const std::string path = folder_.file("orphan.aif");
    const int64_t first = rig_.record(path, 1000, 10 * kBlock);
    ASSERT_TRUE(std::filesystem::remove(old));
    EXPECT_FALSE(rig_.stopTake());
    EXPECT_EQ(rig_.track().takeError(), Track::TakeError::oldUnreadable);
    EXPECT_NE(rig_.track().takeErrorText().find("old.wav"), std::string::npos);
    EXPECT_FALSE(exists(path));
    const FileAudio take = readFile(folder_.file("orphan_tmp.aif"));
    ASSERT_EQ(take.frames(), 10 * kBlock);
    expectInput(take, 0, first, 10 * kBlock);
    // The track is empty now, and still usable.
    EXPECT_FALSE(rig_.track().isLoaded());
    const std::string next = folder_.file("fresh.aif");
    rig_.record(next, 0, 4 * kBlock);
    EXPECT_TRUE(rig_.stopTake()) << rig_.track().takeErrorText();
    EXPECT_TRUE(rig_.track().isLoaded());
}

TEST_F(TakeTest, RecorderThatCantOpenIsReportedAndTheTrackPlaysOn)
{
    const std::string old = loadOld(30000);
    const std::string path = folder_.file("missing/folder/take.aif");
    rig_.track().setArmed(true);
    rig_.track().beginTake(epiPath(path), 0, 0);
    EXPECT_FALSE(rig_.track().setRecording(true));
    EXPECT_FALSE(rig_.track().isRecording());
    EXPECT_EQ(rig_.track().takeError(), Track::TakeError::recorderOpen);
    EXPECT_FALSE(rig_.track().takeErrorText().empty());
    rig_.track().setArmed(false);
    EXPECT_TRUE(rig_.track().isLoaded());
    expectOld(readFile(old), 0, 0, 30000);
}

TEST_F(TakeTest, ReadOnlyFolderRefusesTheTakeAndLosesNothing)
{
    const std::string old = loadOld(30000);
    const std::string ro = folder_.file("ro");
    std::filesystem::create_directory(ro);
    std::filesystem::permissions(
        ro, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec |
                std::filesystem::perms::group_read | std::filesystem::perms::group_exec |
                std::filesystem::perms::others_read | std::filesystem::perms::others_exec);
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
    expectOld(readFile(old), 0, 0, 30000);
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
    EXPECT_TRUE(exists(path));
    EXPECT_TRUE(rig_.track().isLoaded());
    EXPECT_EQ(readFile(path).frames(), rig_.track().recorder().framesAccepted());
}

namespace
{

struct Format
{
    uint32_t rate;
    uint32_t block;
};

class TakeMatrixTest : public ::testing::TestWithParam<Format>
{
};

} // namespace

TEST_P(TakeMatrixTest, RandomBlocksKeepTheOldAudioAroundTheTake)
{
    const Format format = GetParam();
    TempFolder folder;
    TrackRig rig(format.rate, format.block);
    const int64_t oldFrames = 3 * static_cast<int64_t>(format.rate);
    const std::string old = folder.file("old.wav");
    ASSERT_TRUE(writeFile(old, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, static_cast<int32_t>(format.rate),
                          oldFrames, otherValue, otherValueRight));
    ASSERT_TRUE(rig.manager().loadTrack(0, epiPath(old)));
    const int64_t start = format.rate / 2 + 17;
    const std::string path = folder.file("take.aif");
    rig.track().setArmed(true);
    ASSERT_TRUE(rig.manager().startTake(0, epiPath(path)));
    rig.manager().locate(start);
    rig.manager().start();
    const int64_t first = rig.harness().deviceFrames();
    const int64_t length = format.rate;
    rig.harness().runSequence(
        enginetest::EngineHarness::randomBlocks(format.rate + format.block, length, format.block));
    ASSERT_TRUE(rig.stopTake()) << rig.track().takeErrorText();
    EXPECT_EQ(rig.track().takeStart(), start);
    const FileAudio audio = readFile(path);
    ASSERT_EQ(audio.frames(), oldFrames);
    expectOld(audio, 0, 0, start);
    expectInput(audio, start, first, length);
    expectOld(audio, start + length, start + length, oldFrames - start - length);
    // The old file is never touched: a take always makes a new file.
    expectOld(readFile(old), 0, 0, oldFrames);
}

INSTANTIATE_TEST_SUITE_P(RatesAndBlocks, TakeMatrixTest,
                         ::testing::Values(Format{44100, 64}, Format{44100, 256}, Format{44100, 1024},
                                           Format{48000, 64}, Format{48000, 256}, Format{48000, 1024},
                                           Format{96000, 64}, Format{96000, 256}, Format{96000, 1024}),
                         [](const ::testing::TestParamInfo<Format>& info) {
                             return std::to_string(info.param.rate) + "_" + std::to_string(info.param.block);
                         });
