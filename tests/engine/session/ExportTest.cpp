// Export: the session rendered through the mixer into a file, a second per pump step.

#include "SessionRig.h"
#include "engine/ExporterJobs.h"

#include <gtest/gtest.h>

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
    float expected(int64_t i, int channel)
    {
        float sum = 0.0f;
        struct Part
        {
            int32_t strip;
            const Stereo* audio;
        } parts[] = {{0, &first}, {2, &second}};
        for (const Part& part : parts)
        {
            if (i >= part.audio->frames())
            {
                continue;
            }
            const float gain = manager.mixer().strip(part.strip).gain();
            const float pan = manager.mixer().strip(part.strip).pan();
            const auto factor = static_cast<float>(gain * (channel == 0 ? 1.0f - pan : 1.0f + pan));
            const std::vector<float>& samples = channel == 0 ? part.audio->left : part.audio->right;
            sum += samples[static_cast<size_t>(i)] * factor;
        }
        return sum;
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
    ASSERT_EQ(delegate.progress.size(), 4u);
    for (size_t i = 1; i < 4; ++i)
    {
        EXPECT_GT(delegate.progress[i], delegate.progress[i - 1]);
    }
    EXPECT_FLOAT_EQ(delegate.progress[3], 1.0f);
    EXPECT_EQ(delegate.finished, 1);
    EXPECT_TRUE(delegate.failures.empty());
    EXPECT_EQ(delegate.resumes, 1);
    EXPECT_FALSE(manager.trackNode(0).isDirectRead());
    EXPECT_FALSE(manager.trackNode(0).isPlaying());

    const Stereo mix = readWave(out);
    ASSERT_EQ(mix.frames(), kLong);
    EXPECT_EQ(mix.rate, kRate);
    double worst = 0.0;
    for (int64_t i = 0; i < kLong; ++i)
    {
        worst = std::max(worst, std::fabs(double(mix.left[size_t(i)]) - expected(i, 0)));
        worst = std::max(worst, std::fabs(double(mix.right[size_t(i)]) - expected(i, 1)));
    }
    EXPECT_LT(worst, 1e-6);
    // The transport wasn't moved by the job.
    EXPECT_EQ(manager.enginePosition(), 0);
}

TEST_F(ExportRig, LoopExportHasTheLoopsFrames)
{
    manager.setLoopStart(kRate);
    manager.setLoopEnd(kRate + 70000);
    const std::string out = folder.file("loop.aiff");
    ManagerJobs::startExport(manager, epiPath(out), AudioFileFormats::kAiff, AudioFileFormats::k32BitFloat,
                             true);
    pumpToEnd(manager);
    EXPECT_EQ(delegate.finished, 1);
    const Stereo mix = readWave(out);
    ASSERT_EQ(mix.frames(), 70000);
    double worst = 0.0;
    for (int64_t i = 0; i < 70000; ++i)
    {
        worst = std::max(worst, std::fabs(double(mix.left[size_t(i)]) - expected(kRate + i, 0)));
    }
    EXPECT_LT(worst, 1e-6);
}

TEST_F(ExportRig, CancelLeavesNoFileAndGivesTheTracksBack)
{
    const std::string out = folder.file("cancelled.wav");
    ManagerJobs::startExport(manager, epiPath(out), AudioFileFormats::kWave, AudioFileFormats::k24Bit, false);
    manager.poll();
    EXPECT_TRUE(std::filesystem::exists(out));
    manager.cancelTask();
    EXPECT_FALSE(manager.hasTask());
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(delegate.resumes, 1);
    EXPECT_EQ(delegate.finished, 0);
    EXPECT_FALSE(manager.trackNode(0).isDirectRead());
    EXPECT_FALSE(manager.trackNode(2).isPlaying());
    // The tracks stream again and play in the live path.
    manager.start();
    EXPECT_TRUE(manager.trackNode(0).isPlaying());
}

TEST_F(ExportRig, EmptySessionFailsWithUnknownError)
{
    manager.unloadTrack(0);
    manager.unloadTrack(2);
    const std::string out = folder.file("empty.wav");
    ManagerJobs::startExport(manager, epiPath(out), AudioFileFormats::kWave, AudioFileFormats::k16Bit, false);
    EXPECT_EQ(pumpToEnd(manager), 1);
    EXPECT_EQ(delegate.failures, std::vector<std::string>{"Unknown error"});
    EXPECT_EQ(delegate.resumes, 1);
    EXPECT_TRUE(delegate.progress.empty());
}

TEST_F(ExportRig, ArmedTrackDeliversNothingToTheExport)
{
    manager.track(2).setArmed(true);
    const std::string out = folder.file("armed.wav");
    ManagerJobs::startExport(manager, epiPath(out), AudioFileFormats::kWave, AudioFileFormats::k32BitFloat,
                             false);
    pumpToEnd(manager);
    const Stereo mix = readWave(out);
    ASSERT_EQ(mix.frames(), kLong);
    const float gain = manager.mixer().strip(0).gain();
    const auto factor = static_cast<float>(gain * 1.5f);
    double worst = 0.0;
    for (int64_t i = 0; i < kLong; ++i)
    {
        worst = std::max(worst, std::fabs(double(mix.left[size_t(i)]) - first.left[size_t(i)] * factor));
    }
    EXPECT_LT(worst, 1e-6);
}

TEST_F(ExportRig, UnwritableOutputRunsWithoutAFile)
{
    const std::string out = folder.file("no/such/folder/mix.wav");
    ManagerJobs::startExport(manager, epiPath(out), AudioFileFormats::kWave, AudioFileFormats::k24Bit, false);
    EXPECT_EQ(pumpToEnd(manager), 4);
    EXPECT_EQ(delegate.finished, 1);
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(ExportRig, FailedExportGivesTheTracksBackAndLeavesNoFile)
{
    // Before, a failed job was dropped uncancelled: tracks kept reading directly and playing, the file
    // stayed.
    manager.setLoopStart(1000);
    manager.setLoopEnd(1000);
    const std::string out = folder.file("empty-loop.wav");
    ManagerJobs::startExport(manager, epiPath(out), AudioFileFormats::kWave, AudioFileFormats::k24Bit, true);
    pumpToEnd(manager);
    EXPECT_EQ(delegate.failures.size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_FALSE(manager.trackNode(0).isDirectRead());
    EXPECT_FALSE(manager.trackNode(0).isPlaying());
    // The transport is stopped: its blocks are silence, not one block of the file over and over.
    AudioBuffer input, output;
    input.alloc(kBlock, 2);
    output.alloc(kBlock, 2);
    auto midi = std::make_unique<MidiEventBlock>();
    float peak = 0.0f;
    for (int b = 0; b < 20; ++b)
    {
        manager.processBlock(input, output, *midi);
        peak = std::max(peak, output.peak());
    }
    EXPECT_EQ(peak, 0.0f);
}
