#pragma once

#include "devices/MPAudioBase.h"
#include "devices/alsa/BlockPacer.h"

#include <alsa/asoundlib.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

/**
 * The ALSA backend: exactly two channels each way in 16-bit interleaved stereo, over the PCM
 * devices the system lists ("default" first, then hardware devices by their stable names, then
 * plug-in devices). Two threads of the highest priority the system grants wait on the devices:
 * the capture thread fills a ring of four blocks, the playback thread takes a block from it, runs
 * the block and writes the result. With no playback device the capture thread runs the block
 * itself. An xrun or a suspend restarts the stream and goes on; an unplugged device is reported
 * lost through `notify(1)`.
 *
 * The ring's writer is the capture thread and its reader the playback thread; when the reader
 * falls behind, captured blocks are dropped and counted; when the ring is empty, the block gets
 * silence as its input.
 */
class MPAudioAlsa : public MPAudioBase
{
public:
    /** Where a test can stand in for the device: its open, each wait on it, the period it grants. */
    enum class HookPoint
    {
        Open,
        Wait,
        Period,
    };
    /**
     * A test's stand-in for what a device does: for Open and Wait, 0 or a negative error to act as
     * if ALSA had returned it; for Period, 0 or a period in frames to take as the one the device
     * granted. Called on the interface and device threads; it must not block.
     */
    using Hook = int (*)(HookPoint point, bool capture);

    MPAudioAlsa();
    ~MPAudioAlsa() override;

    /** Installs the hook for every ALSA device of the process; null removes it. */
    // [any thread]
    static void setHook(Hook hook) { hook_.store(hook, std::memory_order_release); }

    /** The common rates that the device really takes (a hardware device lists only its own); the
        latency of the open device: on capture the period it may hold plus the ring's block, on
        playback its buffer. */
    bool queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                     std::vector<MPAudioChannelName>* channelNames, std::vector<std::uint32_t>* sampleRates,
                     bool* fixedBufferSize, std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                     std::uint32_t* latency) override;

    /** Why the last open or start failed, with ALSA's own text; empty when nothing failed. */
    const std::string& lastError() const { return lastError_; }
    /** Blocks run since the last start. */
    // [any thread]
    std::uint32_t blocksRun() const { return blocksRun_.load(std::memory_order_relaxed); }
    /** Captured blocks the ring had no room for, and device under- or overruns, since the last start. */
    // [any thread]
    std::uint32_t droppedBlocks() const { return dropped_.load(std::memory_order_relaxed); }
    // [any thread]
    std::uint32_t xruns() const { return xruns_.load(std::memory_order_relaxed); }
    /** The number of device threads alive. */
    // [any thread]
    int threadCount() const { return threadCount_.load(std::memory_order_acquire); }
    /** A device thread given up on by a stop may still come back into this object. */
    bool blockMayBeRunning() const override
    {
        return abandoned_ && threadCount_.load(std::memory_order_acquire) > 0;
    }
    /** The name of the PCM opened in a direction, empty when none. */
    const std::string& openedName(bool isInput) const { return isInput ? captureName_ : playbackName_; }

protected:
    bool LoLevelOpen() override;
    void LoLevelClose() override;
    bool LoLevelStart() override;
    void LoLevelStop() override;
    void LoLevelEnumerate() override;

private:
    struct PcmCloser
    {
        void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
    };
    using Pcm = std::unique_ptr<snd_pcm_t, PcmCloser>;

    bool openPcm(const std::string& name, bool capture, Pcm& out);
    std::string pcmName(int index, bool isInput) const;
    void playbackLoop();
    void captureLoop();
    // [audio thread]
    void playbackHalf();
    // [audio thread]
    void captureHalf();
    // [audio thread]
    void inputFromCapture(const std::int16_t* interleaved);
    // [audio thread]
    void outputToPlayback();
    /** Waits on a device for at most 100 ms; recovers from an xrun. Returns frames available to
        transfer (0 on time-out or error) and whether the device made the thread wait. */
    // [audio thread]
    snd_pcm_sframes_t waitDevice(snd_pcm_t* pcm, bool capture, bool& waited);
    /** After an error of a stream: an xrun or a suspend restarts it (a capture stream is started
        again, a playback stream gets its two silent halves); anything else, an unplugged device
        above all, reports the device lost once. */
    // [audio thread]
    void recover(snd_pcm_t* pcm, bool capture, int error);

    Pcm playback_;
    Pcm capture_;
    std::string playbackName_;
    std::string captureName_;
    std::uint32_t halfBytes_ = 0; ///< one block of 16-bit stereo frames, in bytes
    std::uint32_t ringBytes_ = 0; ///< four blocks
    std::vector<std::int16_t> ring_;
    std::vector<std::int16_t> playbackBlock_; ///< the playback thread's transfer block
    std::vector<std::int16_t> captureBlock_;  ///< the capture thread's transfer block
    std::vector<std::int16_t> silence_;       ///< one block of silence, the input when the ring is empty
    std::uint32_t playbackBufferFrames_ = 0;  ///< the playback buffer the device granted
    std::uint32_t ringRead_ = 0;              ///< bytes; the playback thread's own
    std::uint32_t ringWrite_ = 0;             ///< bytes; the capture thread's own
    /** Written by the capture thread with release after filling a block, read by the playback
        thread with acquire before reading it. */
    std::atomic<std::uint32_t> blocksWritten_{0};
    /** Written by the playback thread with release after taking a block, read by the capture thread
        with acquire to know the block's room is free again. */
    std::atomic<std::uint32_t> blocksRead_{0};
    /** Relaxed counters, read by the interface thread only to report. */
    std::atomic<std::uint32_t> blocksRun_{0};
    std::atomic<std::uint32_t> dropped_{0};
    std::atomic<std::uint32_t> xruns_{0};
    /** Set by the interface thread to end the loops; relaxed, the loops poll it after each wait. */
    std::atomic<bool> quit_{false};
    /** The device was reported lost in this run; relaxed, a one-shot latch between the two threads. */
    std::atomic<bool> lostSent_{false};
    static std::atomic<Hook> hook_;
    /** Live device threads: release on exit so that a stop that sees 0 sees everything they did. */
    std::atomic<int> threadCount_{0};
    std::thread playbackThread_;
    std::thread captureThread_;
    /** A stop gave up on a thread that never ended: its devices are left open for it. */
    bool abandoned_ = false;
    BlockPacer playbackPacer_;
    BlockPacer capturePacer_;
    std::string lastError_;
};
