#pragma once

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/someThread.h"

#include <atomic>
#include <cstdint>
#include <memory>

/**
 * Plays a file of any length from disk without touching the disk on the audio thread. A disk thread
 * keeps a ring of four buffers of about four seconds each filled around the play position; the audio
 * thread only copies out of them. A miss is never waited for: it is silence, and underrun() says so
 * until the disk thread has caught up.
 *
 * Reader: the audio thread (read, provide). Writer of the ring: the disk thread, which is the only
 * user of the inner reader while the file is open. The disk thread refills only a buffer that the
 * audio thread is not reading: the audio thread marks a buffer while it copies from it, and the disk
 * thread clears a buffer's valid flag and waits for the mark to go before it writes.
 */
class AudioFileStreaming : public AudioFileGuess, public someThread
{
public:
    /** Buffers in the ring. */
    static constexpr uint32_t kQueueLength = 4;

    AudioFileStreaming();
    ~AudioFileStreaming() override;

    /**
     * Opens the file, sizes the ring and starts the disk thread. An empty file fails.
     */
    // [ui thread]
    bool open(const epiPath& path) override;
    /** Stops the disk thread (returning once it has gone) and closes the file. */
    // [ui thread]
    void close() override;

    /**
     * Copies the block at into.position from the ring. What the ring doesn't hold is silence, with
     * underrun() set. True whenever the file is open, silence included. A block that crosses the end
     * of the file is not wrapped: callers split reads at a loop's end.
     */
    // [audio thread]
    bool read(AudioData& into) override;
    /** Sizes the block buffer of provide for blockSize frames of two channels, keeping a larger one.
     * Allocates. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;
    /** read() into this node's own buffer, with the request's channels as they stand. Allocates
     * only for a block larger than any before (or than prepare's). */
    // [audio thread]
    bool provide(AudioData& request) override;

    /** Set by a read that had to give silence, cleared by the next read that finds data. */
    // [any thread]
    bool underrun() const { return underrun_.load(std::memory_order_relaxed); }
    /** Frames per ring buffer: four seconds of the file's rate, rounded to 4096. */
    uint64_t blockFrames() const { return blockFrames_; }
    /** True between a good open and close. */
    bool opened() const { return opened_.load(std::memory_order_relaxed); }

protected:
    /** The disk thread: fills the buffer holding the read position and the one after it. */
    // [disk thread]
    void run() override;

private:
    class QueueBuffer;

    /** Refills buffer index for position; the result of the read becomes its valid flag. */
    // [disk thread]
    void fill(uint32_t index, uint64_t position);

    const uint32_t queueLength_ = kQueueLength;
    uint64_t blockFrames_ = 0;
    std::unique_ptr<QueueBuffer[]> queue_;
    /** Frame the next read will need, wrapped into the file. Written by the audio thread, read by the
     * disk thread: relaxed, a stale value only delays a refill by one round. */
    std::atomic<uint64_t> readPosition_{0};
    /** Buffer the disk thread last made current, -1 for none. Relaxed: it only starts the scan. */
    std::atomic<int32_t> lastIndex_{-1};
    AudioBuffer output_;
    /** Written on the ui thread with the disk thread stopped; read by the audio thread. */
    std::atomic<bool> opened_{false};
    uint64_t fileFrames_ = 0;
    /** Set on the audio thread, polled by the owner: relaxed. */
    std::atomic<bool> underrun_{false};
    /** Set by the first read and by open; the disk thread idles until then. Relaxed. */
    std::atomic<bool> armed_{false};
};
