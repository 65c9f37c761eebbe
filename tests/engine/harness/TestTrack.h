#pragma once

#include "engine/graph/TrackSource.h"
#include "tests/engine/harness/TestNodes.h"

#include <atomic>
#include <cstdint>

namespace enginetest
{

/**
 * A stand-in track for driving the Manager and the mixer: while the transport runs it plays a timeline
 * staircase (channel 0 holds (t mod 32768) / 32768 at timeline position t, channel 1 its negative),
 * while stopped it delivers silence; armed, it passes the live input through and plays nothing. All
 * state the interface thread sets is atomic, so it can sit under ThreadSanitizer.
 */
class TestTrack : public TrackSource
{
public:
    explicit TestTrack(int64_t maxFrames = 8192);

    bool provide(AudioData& request) override;
    bool read(AudioData&) override { return false; }
    int32_t channels() override { return 2; }
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;
    bool processInput(AudioData& input, AudioData& output) override;
    void setPlaying(bool on) override { playing_.store(on, std::memory_order_relaxed); }
    int64_t length() override { return length_.load(std::memory_order_relaxed); }
    int64_t offset() override { return offset_.load(std::memory_order_relaxed); }
    void setOffset(int64_t frames) override { offset_.store(frames, std::memory_order_relaxed); }
    void setSpeedRatio(float ratio) override { speedRatio_.store(ratio, std::memory_order_relaxed); }

    /** The value channel 0 carries at timeline position t. */
    static float valueAt(int64_t t);

    void setLength(int64_t frames) { length_.store(frames, std::memory_order_relaxed); }
    void setArmed(bool on) { armed_.store(on, std::memory_order_relaxed); }
    void setLevel(float level) { level_.store(level, std::memory_order_relaxed); }
    bool isPlaying() const { return playing_.load(std::memory_order_relaxed); }
    float speedRatio() const { return speedRatio_.load(std::memory_order_relaxed); }

    std::atomic<int32_t> provides{0};
    std::atomic<int32_t> liveCalls{0};
    std::atomic<int64_t> lastPosition{-1};
    uint32_t preparedRate = 0;

private:
    AudioBuffer own_;
    std::atomic<int64_t> length_{0};
    std::atomic<int64_t> offset_{0};
    std::atomic<float> speedRatio_{1.0f};
    std::atomic<bool> playing_{false};
    std::atomic<bool> armed_{false};
    std::atomic<float> level_{1.0f};
};

} // namespace enginetest
