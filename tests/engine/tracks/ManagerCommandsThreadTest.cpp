// The whole Manager, with its own four tracks, their effect units on the test library, the metronome
// and the offline jobs, while a device thread runs blocks with MIDI: the interface thread drives every
// command the main panel gives, in a shuffled order. Run under the thread sanitizer, where any value
// that crosses without an atomic, or any lock or wait the audio side takes, shows up.

#include "engine/ClickChoice.h"
#include "epi/epiResourcePack.h"
#include "resources/EmbeddedPack.h"
#include "tests/engine/tracks/TrackRig.h"
#include "tests/support/PluginEnv.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <random>

using namespace tracktest;

namespace
{

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 256;

// A job that touches nothing of the graph: the offline path is exercised for its own threading only.
class CountingJob : public Exporter
{
public:
    bool render(float& progress, bool& finished) override
    {
        progress = static_cast<float>(++slices_) / 3.0f;
        finished = slices_ >= 3;
        return true;
    }
    void cancel() override {}

private:
    int slices_ = 0;
};

TEST(ManagerCommandsThreads, EveryTrackCommandWhileTheDeviceRuns)
{
    testsupport::PluginEnv env(KV3_TEST_GAIN);
    TempFolder folder;
    const std::string same = folder.file("same_rate.wav");
    const std::string other = folder.file("other_rate.wav");
    ASSERT_TRUE(writeFile(same, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, kRate, kRate, stepValue, stepValueRight));
    ASSERT_TRUE(writeFile(other, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 44100, 30000, otherValue, nullptr));
    epiResourcePack pack;
    ASSERT_TRUE(EmbeddedPack::open(pack));

    TrackRig rig(kRate, kBlock);
    rig.harness().recordOutput = false;
    rig.harness().recordBlocks = false;
    Manager& manager = rig.manager();
    enginetest::RecordingDelegate delegate;
    manager.setDelegate(&delegate);
    kv3test::TestPluginLog* log = env.log();
    ASSERT_NE(log, nullptr) << "the test library did not load";
    const int midiBefore = log->midiEvents.load();

    int takes = 0;
    int64_t checksum = 0;
    int64_t blocks = 0;
    {
        DeviceThread device(rig);
        std::mt19937 rng(17);
        for (int round = 0; round < 200; ++round)
        {
            const int32_t t = static_cast<int32_t>(rng() % Manager::kTracks);
            TrackControls& track = manager.track(t);
            switch (rng() % 12)
            {
            case 0:
                checksum += manager.loadTrack(t, epiPath(round % 2 == 0 ? same : other));
                break;
            case 1:
                manager.unloadTrack(t);
                break;
            case 2:
                track.setSpeed(0.5f + static_cast<float>(rng() % 100) / 100.0f);
                track.setPitch(static_cast<float>(static_cast<int>(rng() % 13) - 6));
                checksum += static_cast<int64_t>(track.speedText().size() + track.pitchText().size());
                break;
            case 3:
                track.setEffectEnabled(rng() % 2 == 0);
                break;
            case 4:
                track.setInput(static_cast<int32_t>(rng() % 3));
                manager.setSolo(t, rng() % 4 == 0);
                manager.mixerInput(t).setMute(rng() % 5 == 0);
                manager.mixerInput(t).setVolume(-static_cast<float>(rng() % 40));
                manager.mixerInput(t).setPan(static_cast<float>(rng() % 21) / 10.0f - 1.0f);
                checksum += static_cast<int64_t>(manager.mixerInput(t).volumeText().size());
                break;
            case 5:
                manager.metronome().setEnabled(rng() % 2 == 0);
                manager.setTempo(60.0f + static_cast<float>(rng() % 120));
                manager.metronome().setTimeSignature(2 + static_cast<int32_t>(rng() % 7), 4);
                checksum += ClickChoice::choose(
                    manager, pack, static_cast<int32_t>(rng() % ClickChoice::kSets), rng() % 2 == 0, true);
                break;
            case 6:
                manager.setEditorParent(0);
                manager.showEditor(t);
                checksum += manager.anyEffectChanged();
                manager.hideEditor();
                break;
            case 7:
            {
                // A short take on the track, merged while the device goes on.
                track.setArmed(true);
                const std::string path = folder.file("take_" + std::to_string(round) + ".aif");
                if (manager.startTake(t, epiPath(path)))
                {
                    manager.setRecording(true);
                    manager.start();
                    device.waitBlocks(20);
                    manager.stop();
                    manager.setRecording(false);
                    takes += track.setRecording(false);
                }
                track.setArmed(false);
                break;
            }
            case 8:
                manager.setLoopStart(static_cast<int64_t>(rng() % 20000));
                manager.setLoopEnd(static_cast<int64_t>(rng() % 80000));
                manager.setLoopEnabled(rng() % 2 == 0);
                manager.setSpeedRatio(rng() % 2 == 0 ? 2.0f : 0.5f);
                checksum += manager.loopStart() + manager.loopEnd() + manager.sessionLength();
                break;
            case 9:
                manager.setInputGain(static_cast<float>(rng() % 25));
                manager.setMasterVolume(-static_cast<float>(rng() % 12));
                manager.setAutoRecord(rng() % 4 == 0);
                checksum += static_cast<int64_t>(manager.inputGainText().size()) + manager.isAutoRecord();
                break;
            case 10:
                manager.startTask([] { return std::make_unique<CountingJob>(); },
                                  epiText("Rendering session"), epiText("Rendering session..."));
                manager.poll();
                manager.cancelTask();
                manager.waitForBlocks();
                break;
            default:
                manager.setSpeedRatio(1.0f);
                if (manager.isPlaying())
                    manager.stop();
                else
                    manager.start();
                manager.locate(static_cast<int64_t>(rng() % 60000));
                break;
            }
            checksum += manager.trackLength(t) > 0;
            manager.poll();
        }
        manager.stop();
        device.waitBlocks(10);
        blocks = device.blocks();
    }
    for (int32_t t = 0; t < Manager::kTracks; ++t)
        manager.track(t).setEffectEnabled(false);

    EXPECT_GT(takes, 0) << "no take was recorded";
    EXPECT_GT(checksum, 0);
    // Every event went to every running effect; at least some blocks had one running.
    EXPECT_GT(log->midiEvents.load(), midiBefore);
    EXPECT_GT(blocks, 100);
}

} // namespace
