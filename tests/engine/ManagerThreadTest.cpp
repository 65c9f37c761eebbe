// One thread plays the device and runs processBlock in a loop; the other is the interface and drives
// every command the Manager offers. Under ThreadSanitizer any value that crosses without an atomic, and
// any lock or wait the audio side takes, shows up here.

#include "engine/Manager.h"
#include "tests/engine/harness/EngineHarness.h"
#include "tests/engine/harness/TestTrack.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>

using enginetest::EngineHarness;
using enginetest::RecordingDelegate;
using enginetest::TestTrack;

namespace
{

// A job that touches nothing of the graph: the offline path is exercised for its own threading only.
class CountingJob : public Exporter
{
public:
    bool render(float& progress, bool& finished) override
    {
        ++slices_;
        progress = static_cast<float>(slices_) / 3.0f;
        finished = slices_ >= 3;
        return true;
    }
    void cancel() override {}

private:
    int slices_ = 0;
};

TEST(ManagerThreads, InterfaceCommandsWhileTheAudioThreadRuns)
{
    TestTrack tracks[AudioMixer::kInputs];
    RecordingDelegate delegate;
    Manager manager;
    for (int i = 0; i < AudioMixer::kInputs; ++i)
    {
        manager.setTrackSource(i, &tracks[i]);
        tracks[i].setLength(20000 * (i + 1));
    }
    manager.setDelegate(&delegate);
    EngineHarness harness(manager, 48000, 512);
    harness.recordOutput = false;
    harness.recordBlocks = false;
    harness.fillInput = EngineHarness::staircaseInput;

    std::atomic<bool> running{true};
    std::atomic<int64_t> blocksRun{0};
    std::thread device(
        [&]
        {
            std::mt19937 rng(11);
            std::uniform_int_distribution<int64_t> size(1, 512);
            MidiEventBlock& midi = harness.midi();
            while (running.load(std::memory_order_relaxed))
            {
                midi.events[0] = MidiEvent{0, 0x00403C90u};
                midi.count = 1;
                harness.runBlock(size(rng));
                manager.beat(); // the metronome's report comes from this thread
                blocksRun.fetch_add(1, std::memory_order_relaxed);
            }
        });

    std::mt19937 rng(5);
    std::uniform_int_distribution<int64_t> frames(0, 200000);
    int64_t checksum = 0;
    for (int round = 0; round < 1500; ++round)
    {
        manager.start();
        manager.locate(frames(rng));
        checksum += manager.sessionPosition();
        manager.setLoopStart(frames(rng) / 4);
        manager.setLoopEnd(frames(rng));
        checksum += manager.loopStart() + manager.loopEnd();
        manager.setLoopEnabled(round % 3 != 0);
        manager.setRecording(round % 5 == 0);
        checksum += manager.isRecording() + manager.isLoopEnabled() + manager.isPlaying();
        manager.setSpeedRatio(round % 2 == 0 ? 2.0f : 0.5f);
        manager.setSpeedRatio(1.0f);
        checksum += manager.sessionLength();
        if (round % 7 == 0)
        {
            manager.clearEnd();
        }
        manager.setAutoRecord(round % 4 == 0);
        checksum += manager.isAutoRecord();
        manager.setTempo(60.0f + static_cast<float>(round % 180));
        manager.setInputGain(static_cast<float>(round % 25));
        checksum += static_cast<int64_t>(manager.inputGainText().size());
        for (int i = 0; i < AudioMixer::kInputs; ++i)
        {
            MixerInputControls& strip = manager.mixerInput(i);
            strip.setMute((round + i) % 3 == 0);
            strip.setVolume(-static_cast<float>((round + i) % 40));
            strip.setPan(static_cast<float>((round + i) % 21 - 10) / 10.0f);
            checksum += static_cast<int64_t>(strip.volumeText().size() + strip.panText().size());
            manager.setSolo(i, (round + i) % 4 == 0);
            tracks[i].setArmed(i == round % 4);
        }
        manager.setMasterVolume(-static_cast<float>(round % 12));
        checksum += static_cast<int64_t>(manager.masterVolumeText().size());
        checksum += manager.trackLength(round % 4) + manager.trackOffset(round % 4);
        manager.setTrackOffset(round % 4, round);
        manager.pluginChanged();
        if (round % 50 == 0)
        {
            manager.startTask([] { return std::make_unique<CountingJob>(); }, epiText("Rendering session"),
                              epiText("Rendering session..."));
        }
        if (round % 50 == 25)
        {
            manager.cancelTask();
        }
        manager.poll();
        if (round % 40 == 0)
        {
            manager.waitForBlocks();
        }
        if (round % 2 == 1)
        {
            manager.stop();
        }
        checksum += manager.enginePosition() >= 0;
    }
    // The interface waits for the audio thread to move on, as it does before changing a node.
    const uint32_t before = manager.blockCount();
    manager.waitForBlocks();
    const uint32_t after = manager.blockCount();

    running.store(false, std::memory_order_relaxed);
    device.join();

    EXPECT_GE(after - before, 3u);
    EXPECT_GT(blocksRun.load(), 100);
    RecordProperty("blocks", static_cast<int>(blocksRun.load()));
    EXPECT_GT(checksum, 0);
    EXPECT_GT(delegate.pluginChanges, 0);
    EXPECT_EQ(delegate.beats.load(), blocksRun.load());

    // With the device quiet again, the transport is exactly where the commands leave it.
    manager.stop();
    manager.setLoopEnabled(false);
    manager.setSpeedRatio(1.0f);
    manager.locate(4321);
    harness.recordBlocks = true;
    harness.runBlock(64);
    EXPECT_EQ(harness.blocks.back().position, 4321);
}

} // namespace
