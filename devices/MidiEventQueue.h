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
 */
class MidiEventQueue
{
public:
    static constexpr std::int32_t kSize = 1000;

    MidiEventQueue() : events_(kSize) {}

    /** Stores an event unless kSize - 1 are already waiting; then the event is dropped and counted. */
    // [midi thread]
    bool push(const MidiEvent& event)
    {
        const std::int32_t write = writeCount_.load(std::memory_order_relaxed);
        if (write - readCount_.load(std::memory_order_acquire) >= kSize - 1)
        {
            dropped_.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        events_[static_cast<std::size_t>(write % kSize)] = event;
        // Release: the event stored above is visible to a reader that sees the new count.
        writeCount_.store(write + 1, std::memory_order_release);
        return true;
    }

    /** Takes the oldest event, if any. */
    // [audio thread]
    bool pop(MidiEvent& event)
    {
        const std::int32_t read = readCount_.load(std::memory_order_relaxed);
        if (read >= writeCount_.load(std::memory_order_acquire))
        {
            return false;
        }
        event = events_[static_cast<std::size_t>(read % kSize)];
        // Release: the slot is free for the writer only after it has been read.
        readCount_.store(read + 1, std::memory_order_release);
        return true;
    }

    // [any thread]
    bool empty() const
    {
        return readCount_.load(std::memory_order_acquire) >= writeCount_.load(std::memory_order_acquire);
    }
    /** Events dropped because the ring was full, since construction. */
    // [any thread]
    std::uint32_t dropped() const { return dropped_.load(std::memory_order_relaxed); }

private:
    std::vector<MidiEvent> events_;
    std::atomic<std::int32_t> readCount_{0};
    std::atomic<std::int32_t> writeCount_{0};
    /** Relaxed: only counted on the MIDI thread and reported by the interface thread. */
    std::atomic<std::uint32_t> dropped_{0};
};

} // namespace Korvalind3Host
