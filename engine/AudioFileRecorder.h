#pragma once

#include "audiofiles/AudioFileWriter.h"
#include "audiofiles/someThread.h"
#include "engine/AudioRecorder.h"

#include <atomic>
#include <cstdint>
#include <string>

class AudioPreview;

/**
 * Carries audio from the audio thread to a file without the audio thread ever touching the disk.
 * write appends each block to one of three large buffers; a full buffer is handed to this object's own
 * thread, which writes it with an AudioFileWriter (AIFF, 24 bit, two channels at the prepared rate).
 *
 * A single-producer single-consumer ring of buffers: the writer is the audio thread (write), the reader
 * the recorder thread (run). They share the two buffer counters and the fill of each buffer, nothing
 * else. A block is never split over two buffers; when the buffer after the current one is still
 * waiting for the disk (about four seconds behind at 44.1 kHz) the block is dropped and counted rather
 * than written over audio that isn't saved yet.
 */
class AudioFileRecorder : public AudioRecorder, public someThread
{
public:
    /** Capacity of one buffer: two seconds at 44.1 kHz, the unit of disk traffic. */
    static constexpr int32_t kBufferFrames = 88200;
    /** Buffers in the ring. */
    static constexpr int32_t kBufferCount = 3;
    /** How long the thread sleeps when nothing waits for the disk. */
    static constexpr int32_t kIdleSleepMs = 100;

    /** Allocates the three buffers. */
    AudioFileRecorder();
    /** Closes a running recording. */
    ~AudioFileRecorder() override;
    AudioFileRecorder(const AudioFileRecorder&) = delete;
    AudioFileRecorder& operator=(const AudioFileRecorder&) = delete;

    /** Answers false: a recorder delivers nothing. */
    // [audio thread]
    bool provide(AudioData& request) override;
    /** Answers false. */
    // [audio thread]
    bool read(AudioData& into) override;
    int32_t channels() override { return 2; }
    /** Stores the rate the file is written at. */
    // [ui thread, device stopped]
    void prepare(uint32_t sampleRate, uint32_t blockSize) override;

    /**
     * Shifts the block back by the latency and appends it. At the start of the timeline the first
     * latency frames are dropped, which lines a take at position 0 up with what was heard; later blocks
     * keep every frame (only the start of the timeline is compensated, and that is deliberate: the
     * track places a take by the unshifted position of its first block).
     */
    // [audio thread]
    void write(AudioData& data) override;
    // [ui thread, device stopped]
    void setLatency(int64_t frames) override { latency_.store(frames, std::memory_order_relaxed); }
    int64_t latency() const { return latency_.load(std::memory_order_relaxed); }
    /**
     * Closes a running recording, then creates path as AIFF 24 bit, two channels at the prepared rate,
     * resets the buffers, gives the preview its size for one hour and starts the thread.
     * @return false, nothing changed, when the file can't be created (error() says why)
     */
    // [ui thread]
    bool open(const epiPath& path) override;
    /**
     * Hands a partly filled buffer to the thread, stops the thread once it has written everything that
     * was handed to it, and closes the file. The caller has made sure write no longer runs.
     */
    // [ui thread]
    void close() override;
    /** The overview that is fed with every block written; not owned; null for none. */
    // [ui thread]
    void setPreview(AudioPreview* preview) { preview_ = preview; }
    AudioPreview* preview() const { return preview_; }

    bool isOpen() const { return isOpen_; }
    /** Why the last open failed. */
    const std::string& error() const { return error_; }
    /** Blocks dropped because the disk was behind, since the last open. */
    // [any thread]
    uint32_t overruns() const { return overruns_.load(std::memory_order_relaxed); }
    /** Buffers the disk failed to take, since the last open. */
    // [any thread]
    uint32_t writeFailures() const { return writeFailures_.load(std::memory_order_relaxed); }
    /** Frames accepted by write since the last open (after the latency cut). */
    // [any thread]
    int64_t framesAccepted() const { return framesAccepted_.load(std::memory_order_relaxed); }
    /** Buffers handed to the thread since the last open. */
    // [any thread]
    int32_t buffersHandedOver() const { return writeIndex_.load(std::memory_order_acquire); }
    /** Buffers handed to the thread and not yet written. */
    // [any thread]
    int32_t pendingBuffers() const;

protected:
    /** Writes every published buffer; sleeps when there is none; ends once stopped and drained. */
    // [disk thread]
    void run() override;

private:
    struct Slot
    {
        AudioBuffer audio;
        // Frames filled. The audio thread writes it while the slot is current; the disk thread reads it
        // after acquiring the write counter, and resets it to 0 before its release of the read counter.
        std::atomic<int64_t> filled{0};
    };

    // [audio thread]
    void append(AudioData& d);
    Slot& slotOf(int32_t index) { return slots_[index % kBufferCount]; }

    std::atomic<int64_t> latency_{0}; // relaxed: set with the device stopped
    const int32_t bufferFrames_ = kBufferFrames;
    const int32_t bufferCount_ = kBufferCount;
    Slot slots_[kBufferCount];
    // Counters that only grow; a slot is the counter modulo kBufferCount. writeIndex_ is moved by the
    // audio thread alone (release: publishes the full slot), readIndex_ by the disk thread alone
    // (release: hands the emptied slot back). Each reads the other's with acquire.
    std::atomic<int32_t> writeIndex_{0};
    std::atomic<int32_t> readIndex_{0};
    // Set by close after its last hand-over; release/acquire, so the thread that sees it sees that too.
    std::atomic<bool> closing_{false};
    AudioFileWriter writer_; // disk thread while open, ui thread otherwise
    bool isOpen_ = false;    // ui thread only
    AudioPreview* preview_ = nullptr;
    uint32_t sampleRate_ = 44100;
    uint32_t blockSize_ = 0;
    std::string error_;
    // Counters for the interface; relaxed, they carry no data.
    std::atomic<uint32_t> overruns_{0};
    std::atomic<uint32_t> writeFailures_{0};
    std::atomic<int64_t> framesAccepted_{0};
};
