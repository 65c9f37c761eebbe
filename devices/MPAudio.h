#pragma once

#include "devices/MPAudioBase.h"

#include <memory>

/**
 * The object clients use: it owns one backend at a time, chosen from the driver table
 * (0 "ALSA", 1 "JACK"), and forwards every operation to it. The backend's client is this object;
 * `process` and `notify` are what a subclass overrides to receive blocks and driver events.
 * With no backend, bool operations answer false, numbers 0 and the device lists are empty.
 */
class MPAudio : public MPAudioInterface
{
public:
    /** How many entries the driver table has. */
    static constexpr int kDriverCount = 2;

    MPAudio();
    ~MPAudio() override;

    MPAudio(const MPAudio&) = delete;
    MPAudio& operator=(const MPAudio&) = delete;

    bool open(const MPAudioConfig& config) override;
    bool open(int inputDevice, int outputDevice, std::uint32_t bufferSize, int inputLeft, int inputRight,
              int outputLeft, int outputRight, std::uint32_t sampleRate) override;
    bool open(const char* inputName, const char* outputName, std::uint32_t bufferSize, int inputLeft,
              int inputRight, int outputLeft, int outputRight, std::uint32_t sampleRate) override;
    bool open(const char* inputName, const char* outputName, MPAudioConfig& config) override;
    void close() override;
    bool start() override;
    void stop() override;
    bool isStarted() override;
    bool isOpen() override;
    // [any thread]
    std::uint32_t samplePosition() override;
    std::uint32_t blockSize() override;
    void enumerateDevices(bool force) override;
    const std::vector<MPAudioDevice>& outputDevices() override;
    const std::vector<MPAudioDevice>& inputDevices() override;
    bool findDevice(const char* name, bool isInput, int* index) override;
    bool queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                     std::vector<MPAudioChannelName>* channelNames, std::vector<std::uint32_t>* sampleRates,
                     bool* fixedBufferSize, std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                     std::uint32_t* latency) override;
    bool findChannel(int device, bool isInput, const char* name, int* index) override;
    bool hasControlPanel() override;
    bool showControlPanel(int device, bool isInput) override;
    /** A driver event; this class ignores it and answers 0. */
    // [any thread]
    int notify(int code) override;
    /** One block; this class plays silence. */
    // [audio thread]
    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t frames) override;

    /** The native handle of the window a driver is to bind to. */
    virtual void setWindow(void* handle);

    /**
     * Selects a backend by name, ignoring ASCII case: "ALSA" or "JACK", or the names of the same
     * roles on other systems, "DirectX" (ALSA) and "ASIO" (JACK). An unknown name returns false and
     * keeps the current backend.
     */
    bool selectDriver(const char* name);
    /**
     * Closes and deletes the current backend and creates the one of the table entry `index`.
     * @returns true if a backend exists afterwards (false for a bad index or a backend not built)
     */
    bool selectDriver(int index);

    /** The table entry of the current backend, -1 for none. */
    int backendIndex() const { return backendIndex_; }
    /** The table entry a name selects, ignoring ASCII case (see selectDriver), or -1. */
    static int driverIndex(const char* name);
    /** The name of a table entry ("ALSA", "JACK"), or null past the table. */
    static const char* driverName(int index);
    /** The current backend, null for none. */
    MPAudioBase* backend() const { return backend_.get(); }

private:
    std::unique_ptr<MPAudioBase> backend_;
    int backendIndex_ = -1;
    void* windowHandle_ = nullptr;
    const std::vector<MPAudioDevice> noDevices_{};
};
