#pragma once

#include "engine/Manager.h"
#include "engine/Track.h"
#include "tests/engine/harness/EngineHarness.h"
#include "tests/engine/tracks/TrackTestFiles.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace tracktest
{

/**
 * A Manager, whose own track 0 the tests use, driven by the offline harness. The device input is the
 * staircase stepValue on the left and its negative on the right, counted in device frames, and the input gain
 * is 0 dB so that what is recorded can be compared with it sample by sample.
 */
class TrackRig
{
public:
    TrackRig(uint32_t sampleRate, uint32_t block) : block_(block)
    {
        manager_.setInputGain(0.0f);
        harness_ = std::make_unique<enginetest::EngineHarness>(manager_, sampleRate, block);
        harness_->recordOutput = false;
        harness_->fillInput = [](AudioData& input, int64_t deviceFrame)
        {
            for (int64_t i = 0; i < input.frames; ++i)
            {
                input.channel[0][i] = stepValue(deviceFrame + i);
                input.channel[1][i] = stepValueRight(deviceFrame + i);
            }
        };
    }

    Manager& manager() { return manager_; }
    Track& track() { return manager_.trackNode(0); }
    enginetest::EngineHarness& harness() { return *harness_; }

    void run(int64_t frames) { harness_->run(frames, block_); }

    /**
     * Arms the track, prepares a take into path with the punch points, starts it and the transport at
     * position start, and runs frames. Returns the device frame at which the first block ran.
     */
    int64_t record(const std::string& path, int64_t start, int64_t frames, int64_t punchIn = 0,
                   int64_t punchOut = 0)
    {
        track().setArmed(true);
        track().beginTake(epiPath(path), punchIn, punchOut);
        track().setRecording(true);
        manager_.locate(start);
        manager_.start();
        const int64_t first = harness_->deviceFrames();
        run(frames);
        return first;
    }

    /** Stops the transport, ends the take and disarms, as the main panel does. */
    bool stopTake()
    {
        manager_.stop();
        const bool merged = track().setRecording(false);
        track().setArmed(false);
        return merged;
    }

    uint32_t block() const { return block_; }

private:
    uint32_t block_;
    Manager manager_;
    std::unique_ptr<enginetest::EngineHarness> harness_;
};

/**
 * A device thread: runs the rig's blocks, each with one MIDI note-on, about five times faster than a real
 * device (the disk threads still have to keep up), until it is destroyed.
 */
class DeviceThread
{
public:
    explicit DeviceThread(TrackRig& rig)
        : thread_(
              [this, &rig]
              {
                  while (!stop_.load(std::memory_order_acquire))
                  {
                      rig.harness().midi().events[0] = MidiEvent{0, 0x00643C90u};
                      rig.harness().midi().count = 1;
                      rig.harness().runBlock(rig.block());
                      blocks_.fetch_add(1, std::memory_order_relaxed);
                      std::this_thread::sleep_for(std::chrono::microseconds(1000));
                  }
              })
    {
    }
    ~DeviceThread()
    {
        stop_.store(true, std::memory_order_release);
        thread_.join();
    }
    int64_t blocks() const { return blocks_.load(std::memory_order_relaxed); }
    void waitBlocks(int64_t count) const
    {
        for (const int64_t until = blocks() + count; blocks() < until;)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    std::atomic<bool> stop_{false};
    std::atomic<int64_t> blocks_{0};
    std::thread thread_; // last: it starts once the counters are made
};

} // namespace tracktest
