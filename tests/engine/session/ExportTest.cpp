// Export: the session rendered through the mixer into a file, a second per pump step.

#include "SessionRig.h"
#include "engine/ExporterJobs.h"
#include "tests/engine/harness/EngineHarness.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace sessiontest;

namespace
{

constexpr int32_t kRate = 44100;
constexpr uint32_t kBlock = 512;
// Three and a half seconds: four pump steps of one second each, the last a half.
constexpr int64_t kLong = kRate * 7 / 2;
constexpr int64_t kShort = kRate * 2 + 123;

class ExportRig : public ::testing::Test
{
protected:
    void SetUp() override
    {
        manager.setDelegate(&delegate);
        manager.setFormat(kRate, kBlock);
        manager.setMasterVolume(0.0f);
        first = makeSignal(kLong, kRate, 220.0, 0.4);
        second = makeSignal(kShort, kRate, 331.0, 0.3);
        ASSERT_TRUE(writeWave(folder.file("first.wav"), first));
        ASSERT_TRUE(writeWave(folder.file("second.wav"), second));
        ASSERT_TRUE(manager.loadTrack(0, epiPath(folder.file("first.wav"))));
        ASSERT_TRUE(manager.loadTrack(2, epiPath(folder.file("second.wav"))));
        manager.mixerInput(0).setVolume(-6.0f);
        manager.mixerInput(0).setPan(-0.5f);
        manager.mixerInput(2).setVolume(-1.5f);
        manager.mixerInput(2).setPan(0.25f);
    }

    /** The mix at session frame i as the pan law makes it, in the mixer's own float arithmetic. */
    float expected(int64_t i, int channel, bool withSecond)
    {
        float sum = 0.0f;
        for (int32_t strip : {0, 2})
        {
            const Stereo& audio = strip == 0 ? first : second;
            if (i < audio.frames() && (strip == 0 || withSecond))
            {
                const float gain = manager.mixer().strip(strip).gain(),
                            pan = manager.mixer().strip(strip).pan();
                const auto factor = static_cast<float>(gain * (channel == 0 ? 1.0f - pan : 1.0f + pan));
                sum += (channel == 0 ? audio.left : audio.right)[static_cast<size_t>(i)] * factor;
            }
        }
        return sum;
    }

    /** The largest difference of the file from the mix, from session frame from on. */
    double worstError(const std::string& path, int64_t frames, int64_t from = 0, bool withSecond = true)
    {
        const Stereo mix = readWave(path);
        EXPECT_EQ(mix.frames(), frames);
        double worst = mix.frames() == frames ? 0.0 : 1.0;
        for (size_t i = 0; i < std::min(mix.left.size(), static_cast<size_t>(frames)); ++i)
        {
            for (int c = 0; c < 2; ++c)
            {
                const float got = (c == 0 ? mix.left : mix.right)[i];
                worst = std::max(worst, std::fabs(double(got) - expected(from + int64_t(i), c, withSecond)));
            }
        }
        return worst;
    }

    /** Runs an export of the session (or its loop) to name in 32-bit float to its end; returns the path. */
    std::string exportTo(const char* name, bool loop = false)
    {
        const std::string out = folder.file(name);
        ManagerJobs::startExport(manager, epiPath(out), AudioFileFormats::kWave,
                                 AudioFileFormats::k32BitFloat, loop);
        pumpToEnd(manager);
        return out;
    }

    /** After a job that failed or was cancelled: no file, the tracks stream again and are stopped. */
    void expectTracksGivenBack(const std::string& out)
    {
        EXPECT_FALSE(manager.hasTask());
        EXPECT_FALSE(std::filesystem::exists(out));
        EXPECT_EQ(delegate.resumes, 1);
        EXPECT_EQ(delegate.finished, 0);
        EXPECT_FALSE(manager.trackNode(0).isDirectRead());
        EXPECT_FALSE(manager.trackNode(2).isPlaying());
    }

    Folder folder;
    RecordingDelegate delegate;
    Manager manager;
    Stereo first, second;
};

} // namespace

TEST_F(ExportRig, SessionRendersInFourStepsAndEqualsThePannedSumOfItsTracks)
{
    const std::string out = folder.file("mix.wav");
    manager.startExport(epiPath(out), AudioFileFormats::kWave, AudioFileFormats::k32BitFloat, false);
    EXPECT_EQ(delegate.suspends, 1);
    EXPECT_EQ(delegate.titles, std::vector<std::string>{"Rendering session"});
    EXPECT_EQ(delegate.messages, std::vector<std::string>{"Rendering session..."});
    // While the job runs the tracks read their files directly.
    EXPECT_TRUE(manager.trackNode(0).isDirectRead());

    EXPECT_EQ(pumpToEnd(manager), 4);
    EXPECT_EQ(delegate.progress.size(), 4u);
    EXPECT_FLOAT_EQ(delegate.progress.back(), 1.0f);
    EXPECT_EQ(delegate.finished, 1);
    EXPECT_TRUE(delegate.failures.empty());
    EXPECT_EQ(delegate.resumes, 1);
    EXPECT_FALSE(manager.trackNode(0).isDirectRead());
    EXPECT_FALSE(manager.trackNode(0).isPlaying());
    EXPECT_LT(worstError(out, kLong), 1e-6);
    EXPECT_EQ(manager.enginePosition(), 0) << "the transport wasn't moved by the job";
}

TEST_F(ExportRig, LoopExportHasTheLoopsFrames)
{
    manager.setLoopStart(kRate);
    manager.setLoopEnd(kRate + 70000);
    EXPECT_LT(worstError(exportTo("loop.wav", true), 70000, kRate), 1e-6);
}

TEST_F(ExportRig, ArmedTrackDeliversNothingToTheExport)
{
    manager.track(2).setArmed(true);
    EXPECT_LT(worstError(exportTo("armed.wav"), kLong, 0, false), 1e-6);
}

TEST_F(ExportRig, CancelLeavesNoFileAndGivesTheTracksBack)
{
    const std::string out = folder.file("cancelled.wav");
    ManagerJobs::startExport(manager, epiPath(out), AudioFileFormats::kWave, AudioFileFormats::k24Bit, false);
    manager.poll();
    EXPECT_TRUE(std::filesystem::exists(out));
    manager.cancelTask();
    expectTracksGivenBack(out);
    manager.start();
    EXPECT_TRUE(manager.trackNode(0).isPlaying()) << "the tracks play in the live path again";
}

TEST_F(ExportRig, UnwritableOutputRunsWithoutAFile)
{
    EXPECT_FALSE(std::filesystem::exists(exportTo("no/such/folder/mix.wav")));
    EXPECT_EQ(delegate.finished, 1);
}

class ExportFailure : public ExportRig, public ::testing::WithParamInterface<bool>
{
};

TEST_P(ExportFailure, GivesTheTracksBackAndLeavesNoFile)
{
    // Before, a failed job was dropped uncancelled: tracks kept reading directly and playing, the file
    // stayed.
    const bool emptySession = GetParam();
    if (emptySession)
    {
        manager.unloadTrack(0);
        manager.unloadTrack(2);
    }
    manager.setLoopStart(1000);
    manager.setLoopEnd(1000);
    const std::string out = exportTo("failed.wav", !emptySession);
    EXPECT_EQ(delegate.failures, std::vector<std::string>{"Unknown error"});
    EXPECT_TRUE(delegate.progress.empty());
    expectTracksGivenBack(out);
    // The transport is stopped: its blocks are silence, not one block of the file over and over.
    enginetest::EngineHarness harness(manager, kRate, kBlock, false);
    harness.run(20 * kBlock, kBlock);
    EXPECT_EQ(*std::max_element(harness.left.begin(), harness.left.end()), 0.0f);
}

INSTANTIATE_TEST_SUITE_P(EmptySessionOrLoop, ExportFailure, ::testing::Bool());
