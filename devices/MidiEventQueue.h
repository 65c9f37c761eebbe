#pragma once

#include "engine/graph/MidiEvent.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace Korvalind3Host
{

/**
 * The MIDI ring between the MIDI thread (the only writer: `push`, which moves `writeCount`) and the
 * audio thread (the only reader: `pop`, which moves `readCount`). Storage is sized once; both counts
 * only grow, and the event of count n lives at n modulo the size. A full ring drops and counts.
 *
 * The counts run modulo kWrap, a multiple of the size that fits an unsigned 32-bit word, so that
 * they wrap after about four billion events without the slot sequence or the distance between
 * them jumping.
 */
class MidiEventQueue
{
public:
    static constexpr std::uint32_t kSize = 1000;
    static constexpr std::uint32_t kWrap = kSize * 4000000u;

    /** @param startCount where both counts begin (below kWrap); tests start near the wrap */
    explicit MidiEventQueue(std::uint32_t startCount = 0)
        : events_(kSize), readCount_(startCount % kWrap), writeCount_(startCount % kWrap)
    {
    }

    /** Stores an event unless kSize - 1 are already waiting; then the event is dropped and counted. */
    // [midi thread]
    bool push(const MidiEvent& event)
    {
        const std::uint32_t write = writeCount_.load(std::memory_order_relaxed);
        if (distance(readCount_.load(std::memory_order_acquire), write) >= kSize - 1)
        {
            dropped_.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        events_[write % kSize] = event;
        // Release: the event stored above is visible to a reader that sees the new count.
        writeCount_.store(next(write), std::memory_order_release);
        return true;
    }

    /** Takes the oldest event, if any. */
    // [audio thread]
    bool pop(MidiEvent& event)
    {
        const std::uint32_t read = readCount_.load(std::memory_order_relaxed);
        if (read == writeCount_.load(std::memory_order_acquire))
        {
            return false;
        }
        event = events_[read % kSize];
        // Release: the slot is free for the writer only after it has been read.
        readCount_.store(next(read), std::memory_order_release);
        return true;
    }

    // [any thread]
    bool empty() const
    {
        return readCount_.load(std::memory_order_acquire) == writeCount_.load(std::memory_order_acquire);
    }
    /** Events dropped because the ring was full, since construction. */
    // [any thread]
    std::uint32_t dropped() const { return dropped_.load(std::memory_order_relaxed); }

private:
    static std::uint32_t next(std::uint32_t count) { return count + 1 == kWrap ? 0 : count + 1; }
    /** Events waiting between the two counts, across a wrap too. */
    static std::uint32_t distance(std::uint32_t read, std::uint32_t write)
    {
        return write >= read ? write - read : kWrap - read + write;
    }

    std::vector<MidiEvent> events_;
    std::atomic<std::uint32_t> readCount_;
    std::atomic<std::uint32_t> writeCount_;
    /** Relaxed: only counted on the MIDI thread and reported by the interface thread. */
    std::atomic<std::uint32_t> dropped_{0};
};

} // namespace Korvalind3Host
