#pragma once

#include <atomic>
#include <cstdint>

namespace Korvalind3Host
{

/**
 * How much of each block's time the engine takes, in percent, as a running mean over the last
 * blocks; and the value to show, which rises at once and falls slowly.
 *
 * `blockBegins`/`blockEnds` (or `addBlock`) run on the audio thread; `readBusyLevel`, `setBlock`
 * and `reset` on the interface thread, the last two only while the device is stopped.
 */
class BusyMeter
{
public:
    static constexpr std::uint32_t kHistory = 32;
    /** Blocks the shown value holds before it falls further. */
    static constexpr std::uint32_t kHoldBlocks = 5;
    /** Calls a one-point difference must last before it is shown. */
    static constexpr std::uint32_t kSettleCalls = 200;

    BusyMeter();

    /** The block length: `frames` at `sampleRate` hertz. Clears the history and the shown state. */
    // [ui thread, device stopped]
    void setBlock(std::uint32_t frames, std::uint32_t sampleRate);
    /** As `setBlock`, with a block length of one microsecond: the state of a stopped device. */
    // [ui thread, device stopped]
    void reset();

    /** Notes the start of a block. */
    // [audio thread]
    void blockBegins() { blockStart_ = nowMicroseconds(); }
    /** Adds the block that began at the last `blockBegins`. */
    // [audio thread]
    void blockEnds() { addBlock(static_cast<float>(nowMicroseconds() - blockStart_)); }
    /** Adds one block that took `elapsedMicroseconds`. */
    // [audio thread]
    void addBlock(float elapsedMicroseconds);

    /** The current mean, in percent. */
    // [any thread]
    int busyPercent() const { return busyPercent_.load(std::memory_order_relaxed); }

    /**
     * The value to show. It rises at once; a one-point difference waits 200 calls; a larger fall
     * waits five calls, then comes down in growing steps.
     * @param percent receives the value to show; may be null
     * @returns true when the shown value has to change
     */
    // [ui thread]
    bool readBusyLevel(int* percent);

    float blockMicroseconds() const { return blockMicroseconds_; }

    /** A monotonic clock in microseconds. */
    static std::int64_t nowMicroseconds();

private:
    void clear();

    /** Written by the audio thread, read by the interface: relaxed, it is a meter. */
    std::atomic<int> busyPercent_{0};
    int shownPercent_ = 0;
    std::uint32_t holdBlocks_ = 0;
    int fallStep_ = 1;
    float blockMicroseconds_ = 1.0f;
    float history_[kHistory] = {};
    std::uint32_t historyIndex_ = 0;
    float historySum_ = 0.0f;
    std::uint32_t settleCount_ = 0;
    std::int64_t blockStart_ = 0;
    bool forceRefresh_ = false;
};

} // namespace Korvalind3Host
