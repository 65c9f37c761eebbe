// Freeze: a track rendered through its effect (the test library, which halves its input) into its
// "_frozen" file, which it then plays with its plug-in instance released.

#include "SessionRig.h"
#include "engine/ExporterJobs.h"
#include "tests/support/PluginEnv.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace sessiontest;

namespace
{

constexpr int32_t kRate = 48000;
constexpr uint32_t kBlock = 256;
constexpr int64_t kFrames = kRate * 5 / 2;

class FreezeRig : public ::testing::Test
{
protected:
    void SetUp() override
    {
        manager.setDelegate(&delegate);
        manager.setFormat(kRate, kBlock);
        audio = makeSignal(kFrames, kRate, 440.0, 0.5);
        ASSERT_TRUE(writeWave(folder.file("riff.wav"), audio));
        ASSERT_TRUE(manager.loadTrack(1, epiPath(folder.file("riff.wav"))));
        manager.track(1).setEffectLoaded(true);
        manager.track(1).setEffectEnabled(true);
    }

    Track& track() { return manager.trackNode(1); }

    int freeze(int32_t index)
    {
        ManagerJobs::setTrackFrozen(manager, index, true);
        return pumpToEnd(manager);
    }

    /** The frozen file is the track's audio through the effect, which halves it (24-bit: 2^-23 off at most).
     */
    void expectFrozenThroughTheEffect()
    {
        const Stereo out = readWave(folder.file("riff_T2_frozen.wav"));
        ASSERT_EQ(out.frames(), kFrames);
        double worst = 0.0;
        for (size_t i = 0; i < out.left.size(); ++i)
        {
            worst = std::max(worst, std::fabs(out.left[i] - 0.5 * audio.left[i]));
            worst = std::max(worst, std::fabs(out.right[i] - 0.5 * audio.right[i]));
        }
        EXPECT_LT(worst, 1.0e-6);
    }

    // Before the Manager: the host finds the library when it is made.
    testsupport::PluginEnv library{KV3_TEST_GAIN};
    Folder folder;
    RecordingDelegate delegate;
    Manager manager;
    Stereo audio;
};

} // namespace

TEST_F(FreezeRig, FrozenFileHoldsTheTrackThroughItsEffectAndTheInstanceIsReleased)
{
    ASSERT_TRUE(track().effect().hasInstance()) << "the test library did not load";
    manager.setTrackFrozen(1, true);
    EXPECT_EQ(delegate.titles, std::vector<std::string>{"Freezing track"});
    EXPECT_EQ(pumpToEnd(manager), 3) << "two and a half seconds: three steps";
    EXPECT_EQ(delegate.finished, 1);
    EXPECT_EQ(delegate.resumes, 1);

    const std::string frozen = folder.file("riff_T2_frozen.wav");
    EXPECT_EQ(track().frozenPathCopy(), frozen);
    expectFrozenThroughTheEffect();
    EXPECT_TRUE(track().isFrozen());
    EXPECT_FALSE(track().effect().hasInstance());
    // The file and the effect settings stay; only the instance is gone.
    EXPECT_EQ(track().filePath(), folder.file("riff.wav"));
    EXPECT_TRUE(track().isEffectEnabled());
    EXPECT_FALSE(track().isDirectRead());
    EXPECT_FALSE(track().isPlaying());

    // Freezing it again, armed now, renders its file through the effect again. Before, an armed track
    // gave nothing and its frozen file was silence.
    manager.track(1).setArmed(true);
    EXPECT_EQ(freeze(1), 3);
    expectFrozenThroughTheEffect();
    EXPECT_TRUE(track().isArmed());

    manager.setTrackFrozen(1, false);
    EXPECT_FALSE(manager.hasTask());
    EXPECT_FALSE(track().isFrozen());
    EXPECT_TRUE(track().effect().hasInstance());
    EXPECT_FALSE(std::filesystem::exists(frozen));
}

TEST_F(FreezeRig, FrozenFileFollowsTheTracksSpeed)
{
    manager.track(1).setSpeed(0.8f);
    const int64_t length = track().length();
    EXPECT_GT(length, kFrames);
    freeze(1);
    EXPECT_EQ(readWave(folder.file("riff_T2_frozen.wav")).frames(), length);
}

TEST_F(FreezeRig, CancelLeavesNoFileAndTheTrackAsItWas)
{
    ManagerJobs::setTrackFrozen(manager, 1, true);
    manager.poll();
    const std::string frozen = folder.file("riff_T2_frozen.wav");
    EXPECT_TRUE(std::filesystem::exists(frozen));
    manager.cancelTask();
    EXPECT_FALSE(std::filesystem::exists(frozen));
    EXPECT_FALSE(track().isFrozen());
    EXPECT_FALSE(track().isDirectRead());
    EXPECT_TRUE(track().effect().hasInstance());
    EXPECT_EQ(delegate.finished, 0);
    EXPECT_EQ(readWave(folder.file("riff.wav")).frames(), kFrames) << "the original file is untouched";
}

TEST_F(FreezeRig, EmptyTrackFailsAtItsFirstStep)
{
    EXPECT_EQ(freeze(3), 1);
    EXPECT_EQ(delegate.failures, std::vector<std::string>{"Unknown error"});
    EXPECT_FALSE(manager.track(3).isFrozen());
    // Out of range does nothing at all.
    ManagerJobs::setTrackFrozen(manager, 7, true);
    EXPECT_FALSE(manager.hasTask());
}

TEST_F(FreezeRig, TwoTracksOnOneFileKeepTheirOwnFrozenFiles)
{
    // Before, both froze into one file: the second freeze overwrote the first, one unfreeze deleted both.
    ASSERT_TRUE(manager.loadTrack(2, epiPath(folder.file("riff.wav"))));
    manager.track(2).setEffectLoaded(true);
    manager.track(2).setEffectEnabled(true);
    freeze(1);
    freeze(2);
    const std::string second = manager.track(1).frozenPathCopy(), third = manager.track(2).frozenPathCopy();
    EXPECT_NE(second, third);
    ManagerJobs::setTrackFrozen(manager, 2, false);
    EXPECT_TRUE(std::filesystem::exists(second));
    EXPECT_FALSE(std::filesystem::exists(third));
    EXPECT_TRUE(manager.track(2).frozenPathCopy().empty()) << "a stale frozen path is kept after unfreezing";
}

TEST_F(FreezeRig, UnfreezingNeverDeletesAFileAnotherTrackPlays)
{
    // Before, unfreezing deleted whatever file the frozen path named, another track's file included.
    ASSERT_TRUE(writeWave(folder.file("other.wav"), audio));
    ASSERT_TRUE(manager.loadTrack(0, epiPath(folder.file("other.wav"))));
    manager.track(1).loadFrozen(epiPath(folder.file("other.wav")));
    manager.track(1).setFrozen(true);
    manager.track(1).setFrozen(false);
    EXPECT_TRUE(std::filesystem::exists(folder.file("other.wav")));
}
