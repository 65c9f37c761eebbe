#pragma once

#include "devices/MPAudioBase.h"

#include <jack/jack.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kv3jack
{
struct CallbackState;
}

/**
 * The JACK backend: a callback driver on the running server. There is one device, named after the
 * server ("JACK" for the default one); its channels are the server's physical ports, named by
 * their port names; buffer size and rate are the server's and can't be chosen. The client is
 * named "Korvalind 3" and never starts a server.
 *
 * Server shutdown, a change of buffer size or rate, and a server that stops calling for more than
 * a second while started each reach `notify(1)` once, as a driver's reset request does; the client
 * then closes and reopens the device from its interface thread.
 */
class MPAudioJack : public MPAudioBase
{
public:
    MPAudioJack();
    ~MPAudioJack() override;

    bool queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                     std::vector<MPAudioChannelName>* channelNames, std::vector<std::uint32_t>* sampleRates,
                     bool* fixedBufferSize, std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                     std::uint32_t* latency) override;
    bool hasControlPanel() override { return false; }
    /** JACK has no panel of its own to show. */
    bool showControlPanel(int, bool) override { return false; }

    /** Why the last connection, open or start failed; empty when nothing failed. */
    const std::string& lastError() const { return lastError_; }
    /** Blocks the server has asked for since the last start. */
    // [any thread]
    std::uint32_t callbackCount() const;
    /** Periods the server reported as late (xruns) since the last start. */
    // [any thread]
    std::uint32_t xrunCount() const;

    /** Sizes offered to the open, which asks the server for the one chosen. */
    static constexpr std::uint32_t kMinBufferSize = 16;
    static constexpr std::uint32_t kMaxBufferSize = 8192;

    /** A callback of the last run never returned (a block stalled past the stop's wait): nothing
        it may touch is freed, so this object must not be. */
    bool blockMayBeRunning() const override;

    /** The block path, called by the process thunk. */
    // [audio thread]
    void jackProcess(jack_nframes_t frames, kv3jack::CallbackState* state);
    /** Asks the client for a reset once per start: mutes the block path and calls `notify(1)`. */
    // [any thread]
    void requestReset(kv3jack::CallbackState* state);

protected:
    bool LoLevelOpen() override;
    void LoLevelClose() override;
    bool LoLevelStart() override;
    void LoLevelStop() override;
    void LoLevelEnumerate() override;

private:
    /** Connects if not connected; false (and `lastError_`) when no server answers. */
    bool ensureClient();
    /** Closes the connection within a bounded wait. */
    void dropClient();
    /**
     * One libjack request that can block, within the bounded wait. On a time-out the client and its
     * state are left to the helper thread and forgotten here. @returns false on a time-out
     */
    bool request(std::function<int(jack_client_t*)> work, int* result);
    /** Activates the client unless it is active; false (client dropped or given up) on refusal. */
    bool activate();
    /** Waits, within a bound, until no callback is inside. @returns false when one still is */
    bool waitForCallbacks();
    std::vector<std::string> physicalPorts(bool capture) const;
    void watchdogLoop(kv3jack::CallbackState* state);

    jack_client_t* client_ = nullptr;
    /** Shared with the server's threads; deleted with the client, or left behind if the server
        never answered the close (its threads may still hold it). */
    kv3jack::CallbackState* state_ = nullptr;
    std::vector<jack_port_t*> inputPorts_;  ///< one per input route, in route order
    std::vector<jack_port_t*> outputPorts_; ///< one per output route, in route order
    std::string lastError_;
    /** A callback was still inside when the client was let go: see blockMayBeRunning. */
    bool blockStuck_ = false;
    /** The client is active: from the open (muted) until a stop deactivates it. */
    bool active_ = false;

    std::thread watchdog_;
    std::mutex watchdogMutex_;
    std::condition_variable watchdogWake_;
    bool watchdogQuit_ = false;
};
