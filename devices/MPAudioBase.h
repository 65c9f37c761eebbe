#pragma once

#include "devices/MPAudioInterface.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

/**
 * The common logic of every backend: the Closed/Open/Started state, the routing of logical channels
 * to hardware channels, the float work buffers, input fan-out, output summing and limiting, and the
 * diagnostic signal played when no client is attached. A backend only adds the `LoLevel...`
 * operations: it brings its driver up, puts hardware samples into the input routes' `buffer`s,
 * calls `runBlock()` and takes hardware samples from the output routes' `buffer`s.
 *
 * Everything except `runBlock`, `process` and `notify` is for the interface thread.
 */
class MPAudioBase : public MPAudioInterface
{
public:
    MPAudioBase();
    ~MPAudioBase() override;

    MPAudioBase(const MPAudioBase&) = delete;
    MPAudioBase& operator=(const MPAudioBase&) = delete;

    bool open(const MPAudioConfig& config) override;
    bool open(int inputDevice, int outputDevice, std::uint32_t bufferSize, int inputLeft, int inputRight,
              int outputLeft, int outputRight, std::uint32_t sampleRate) override;
    bool open(const char* inputName, const char* outputName, std::uint32_t bufferSize, int inputLeft,
              int inputRight, int outputLeft, int outputRight, std::uint32_t sampleRate) override;
    bool open(const char* inputName, const char* outputName, MPAudioConfig& config) override;
    void close() override;
    bool start() override;
    void stop() override;
    bool isStarted() override { return started_; }
    bool isOpen() override { return open_; }
    // [any thread]
    std::uint32_t samplePosition() override { return samplePosition_.load(std::memory_order_relaxed); }
    std::uint32_t blockSize() override { return blockFrames_; }
    void enumerateDevices(bool force) override;
    const std::vector<MPAudioDevice>& outputDevices() override { return outputDevices_; }
    const std::vector<MPAudioDevice>& inputDevices() override { return inputDevices_; }
    bool findDevice(const char* name, bool isInput, int* index) override;
    /**
     * The default for a technology that tells nothing about its devices: sizes 128 to 65536, channels
     * "Left" and "Right", rates 22050 to 96000. Answers for any device index.
     */
    bool queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                     std::vector<MPAudioChannelName>* channelNames, std::vector<std::uint32_t>* sampleRates,
                     bool* fixedBufferSize, std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                     std::uint32_t* latency) override;
    bool findChannel(int device, bool isInput, const char* name, int* index) override;
    bool hasControlPanel() override { return false; }
    bool showControlPanel(int, bool) override { return true; }
    /** Passes the event on to the client, if any. */
    // [any thread]
    int notify(int code) override;
    /** Passes the block on to the client, or plays the diagnostic signal when there is none. */
    // [audio thread]
    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t frames) override;

    /** The native handle of the window a driver is to bind to; null for none. */
    virtual void setWindow(void* handle) { windowHandle_ = handle; }
    /** The object that gets `process` and `notify`; null plays the diagnostic signal. */
    // [ui thread, device stopped]
    virtual void setClient(MPAudioInterface* client) { client_ = client; }

    /** Whether, after close, a block of the driver's thread may still be running inside this object
        (a driver given up on): such a backend must never be freed. */
    virtual bool blockMayBeRunning() const { return false; }

    /** The routing state, for tests and diagnostics. */
    std::uint32_t logicalInputs() const { return logicalInputs_; }
    std::uint32_t logicalOutputs() const { return logicalOutputs_; }
    std::uint32_t inputRouteCount() const { return inputRouteCount_; }
    std::uint32_t outputRouteCount() const { return outputRouteCount_; }
    const MPAudioRoute& inputRoute(std::uint32_t i) const { return inputRoutes_[i]; }
    const MPAudioRoute& outputRoute(std::uint32_t i) const { return outputRoutes_[i]; }
    const MPAudioConfig& config() const { return config_; }

protected:
    /** Brings the driver up for `config_`; may correct `blockFrames_`. */
    virtual bool LoLevelOpen() = 0;
    virtual void LoLevelClose() = 0;
    virtual bool LoLevelStart() = 0;
    /** Returns only when the driver's thread has stopped calling `runBlock`, or was given up on. */
    virtual void LoLevelStop() = 0;
    /** Fills `inputDevices_` and `outputDevices_`. */
    virtual void LoLevelEnumerate() = 0;

    /**
     * The one-block path: fans inputs out, calls `process`, advances the position, sums and limits
     * the outputs. The caller has filled the input routes' buffers and reads the output routes'.
     */
    // [audio thread]
    void runBlock();

    /**
     * Converts planar float to interleaved 16-bit stereo: sample times 32767, truncated towards
     * zero, with no dither. A null channel is silence.
     */
    // [audio thread]
    static void floatToStereo16(const float* left, const float* right, std::int16_t* interleaved,
                                std::uint32_t frames);
    /** Converts interleaved 16-bit stereo to planar float, sample / 32767. A null target is skipped. */
    // [audio thread]
    static void stereo16ToFloat(const std::int16_t* interleaved, float* left, float* right,
                                std::uint32_t frames);

    /** Resolves a device index: -2 the first of the list, -1 or past the end none (-1). */
    int resolveDevice(int index, bool isInput) const;

    MPAudioConfig config_;
    std::vector<MPAudioDevice> outputDevices_;
    std::vector<MPAudioDevice> inputDevices_;
    bool open_ = false;
    bool started_ = false;
    std::uint32_t blockFrames_ = 0;
    bool outputNeedsFinish_ = false;
    bool inputFanOut_ = false;
    std::uint32_t logicalInputs_ = 0;
    std::uint32_t logicalOutputs_ = 0;
    float* inputBuffers_[kMPAudioMaxChannels + 1] = {};
    float* outputBuffers_[kMPAudioMaxChannels + 1] = {};
    std::uint32_t inputRouteCount_ = 0;
    std::uint32_t outputRouteCount_ = 0;
    MPAudioRoute inputRoutes_[kMPAudioMaxChannels];
    MPAudioRoute outputRoutes_[kMPAudioMaxChannels];
    /** Written by the audio thread after each block, read anywhere: relaxed, it is only a counter. */
    std::atomic<std::uint32_t> samplePosition_{0};
    bool enumerated_ = false;
    bool enumeratingInputs_ = false;
    MPAudioInterface* client_ = nullptr;
    void* windowHandle_ = nullptr;

private:
    void buildRoutes();
    bool allocateBuffers();
    void playDiagnosticSignal(float* const* outputs, std::uint32_t outputCount, std::uint32_t frames);

    /** Every float buffer of the current open: logical buffers, then the private sum buffers.
        Released at the next open or on destruction, never while a block may run. */
    std::vector<std::unique_ptr<float[]>> storage_;
};
