#pragma once

#include "devices/MPAudioConfig.h"

#include <cstdint>
#include <vector>

/**
 * The contract of an audio device driver, whatever the technology. A client opens a device with an
 * `MPAudioConfig`, starts it, and is then called with blocks of 32-bit float samples through
 * `process` on the driver's thread until it stops. Every failure is a false result.
 *
 * Lifecycle: Closed -open-> Open -start-> Started -stop-> Open -close-> Closed.
 */
class MPAudioInterface
{
public:
    virtual ~MPAudioInterface() = default;

    /** Opens the devices of the configuration. Refused (false) when already open. */
    virtual bool open(const MPAudioConfig& config) = 0;
    /**
     * Opens with a default configuration, filling the devices, size and rate, and entries 0 and 1 of
     * the routing tables for each channel that isn't -1.
     */
    virtual bool open(int inputDevice, int outputDevice, std::uint32_t bufferSize, int inputLeft,
                      int inputRight, int outputLeft, int outputRight, std::uint32_t sampleRate) = 0;
    /** As above with devices by name: a null name is -1 (none), a name not in the list -2 (default). */
    virtual bool open(const char* inputName, const char* outputName, std::uint32_t bufferSize, int inputLeft,
                      int inputRight, int outputLeft, int outputRight, std::uint32_t sampleRate) = 0;
    /** Writes the devices named (same naming rule) into `config` and opens with it. */
    virtual bool open(const char* inputName, const char* outputName, MPAudioConfig& config) = 0;
    /** Stops if started and closes the devices. */
    virtual void close() = 0;
    /** Starts the block callbacks. */
    virtual bool start() = 0;
    /** Stops the block callbacks; returns when the driver's thread has left them (or was given up on). */
    virtual void stop() = 0;
    virtual bool isStarted() = 0;
    virtual bool isOpen() = 0;
    /** Frames delivered since start (wraps at 2^32). */
    virtual std::uint32_t samplePosition() = 0;
    /** The block size in force, in frames. */
    virtual std::uint32_t blockSize() = 0;
    /** Fills both device lists; unless `force`, only once per backend. */
    virtual void enumerateDevices(bool force) = 0;
    virtual const std::vector<MPAudioDevice>& outputDevices() = 0;
    virtual const std::vector<MPAudioDevice>& inputDevices() = 0;
    /** Finds a device by its exact name; writes its index, or -1 when not found. */
    virtual bool findDevice(const char* name, bool isInput, int* index) = 0;
    /**
     * Asks what a device allows. Each pointer may be null; each vector is emptied first.
     * @param bufferSizes frames; @param sampleRates hertz; @param latency frames
     */
    virtual bool queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                             std::vector<MPAudioChannelName>* channelNames,
                             std::vector<std::uint32_t>* sampleRates, bool* fixedBufferSize,
                             std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                             std::uint32_t* latency) = 0;
    /** Finds a hardware channel by name on a device; writes its index, or -1 when not found. */
    virtual bool findChannel(int device, bool isInput, const char* name, int* index) = 0;
    virtual bool hasControlPanel() = 0;
    virtual bool showControlPanel(int device, bool isInput) = 0;
    /**
     * The driver tells its client of an event; 1 means the driver asks to be reset. A client must
     * only set a flag here.
     */
    // [any thread]
    virtual int notify(int code) = 0;
    /**
     * One block: `inputCount` logical input buffers and `outputCount` logical output buffers of
     * `frames` frames each. Must not allocate, lock or wait.
     */
    // [audio thread]
    virtual void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                         std::uint32_t outputCount, std::uint32_t frames) = 0;
};
