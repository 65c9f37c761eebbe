#include "devices/jack/MPAudioJack.h"

#include "devices/MPAudioBackends.h"
#include "devices/jack/JackClient.h"

#include <chrono>
#include <cstring>

namespace kv3jack
{

/** What the server's threads may touch. The block path runs only while `muted` is false. */
struct CallbackState
{
    /** Null once the backend has given this state up; acquire/release so that a callback that
        sees the pointer sees the backend built. */
    std::atomic<MPAudioJack*> backend{nullptr};
    /** The backend's ports, kept here so that a muted callback can write silence without it. */
    std::vector<jack_port_t*> outputPorts;
    /** Set by stop, reset or an unexpected format; read at the head of each callback.
        Release on set and acquire on read, so that a callback seeing false also sees the buffers. */
    std::atomic<bool> muted{true};
    /** Relaxed counters: read by the watchdog and by tests, never to publish data. */
    std::atomic<std::uint32_t> callbacks{0};
    std::atomic<std::uint32_t> xruns{0};
    /** Callbacks that have returned: release at the end of each, acquire by the interface thread
        once the server has stopped calling, so that everything a callback did happens before what
        the interface thread does next (the server's own hand-off is in another process). */
    std::atomic<std::uint32_t> returned{0};
    /** The first reset request of a start wins; relaxed, it is a one-shot latch. */
    std::atomic<bool> resetSent{false};
    jack_nframes_t frames = 0;     ///< the block size the device was opened with
    jack_nframes_t sampleRate = 0; ///< the rate the device was opened with
};

} // namespace kv3jack

namespace
{

constexpr const char* kClientName = "Korvalind 3";
// A started server that hasn't called for this long is taken as gone: PipeWire's JACK layer dies
// without sending the shutdown callback.
constexpr std::chrono::milliseconds kSilenceLimit{1000};
constexpr std::chrono::milliseconds kWatchdogPeriod{50};

void requestReset(kv3jack::CallbackState* state)
{
    if (MPAudioJack* backend = state->backend.load(std::memory_order_acquire))
    {
        backend->requestReset();
    }
}

int processThunk(jack_nframes_t frames, void* arg)
{
    auto* state = static_cast<kv3jack::CallbackState*>(arg);
    state->callbacks.fetch_add(1, std::memory_order_relaxed);
    MPAudioJack* backend = state->backend.load(std::memory_order_acquire);
    if (backend && !state->muted.load(std::memory_order_acquire) && frames == state->frames)
    {
        backend->jackProcess(frames);
    }
    else
    {
        for (jack_port_t* port : state->outputPorts)
        {
            std::memset(jack_port_get_buffer(port, frames), 0, frames * sizeof(float));
        }
    }
    state->returned.fetch_add(1, std::memory_order_release);
    return 0;
}

int bufferSizeThunk(jack_nframes_t frames, void* arg)
{
    auto* state = static_cast<kv3jack::CallbackState*>(arg);
    if (frames != state->frames)
    {
        requestReset(state);
    }
    return 0;
}

int sampleRateThunk(jack_nframes_t rate, void* arg)
{
    auto* state = static_cast<kv3jack::CallbackState*>(arg);
    if (rate != state->sampleRate)
    {
        requestReset(state);
    }
    return 0;
}

int xrunThunk(void* arg)
{
    static_cast<kv3jack::CallbackState*>(arg)->xruns.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

void shutdownThunk(jack_status_t, const char*, void* arg)
{
    requestReset(static_cast<kv3jack::CallbackState*>(arg));
}

void deleteStateThunk(void* state)
{
    delete static_cast<kv3jack::CallbackState*>(state);
}

} // namespace

std::unique_ptr<MPAudioBase> newJackBackend()
{
    return std::make_unique<MPAudioJack>();
}

MPAudioJack::MPAudioJack() = default;

MPAudioJack::~MPAudioJack()
{
    close();
    dropClient();
}

std::uint32_t MPAudioJack::callbackCount() const
{
    return state_ ? state_->callbacks.load(std::memory_order_relaxed) : 0;
}

std::uint32_t MPAudioJack::xrunCount() const
{
    return state_ ? state_->xruns.load(std::memory_order_relaxed) : 0;
}

bool MPAudioJack::ensureClient()
{
    if (client_)
    {
        return true;
    }
    client_ = kv3jack::openClient(kClientName, &lastError_);
    if (!client_)
    {
        return false;
    }
    lastError_.clear();
    state_ = new kv3jack::CallbackState;
    state_->backend.store(this, std::memory_order_release);
    return true;
}

void MPAudioJack::dropClient()
{
    if (!client_)
    {
        return;
    }
    state_->muted.store(true, std::memory_order_release);
    // Cut off from this object before the close: if the server doesn't answer, its threads may
    // still call with `state_` until the close returns on the helper thread, which then deletes it.
    state_->backend.store(nullptr, std::memory_order_release);
    // Whatever the close's outcome, every callback that has returned happens before what follows.
    state_->returned.load(std::memory_order_acquire);
    if (kv3jack::closeClient(client_, false, deleteStateThunk, state_))
    {
        delete state_;
    }
    client_ = nullptr;
    state_ = nullptr;
    inputPorts_.clear();
    outputPorts_.clear();
}

std::vector<std::string> MPAudioJack::physicalPorts(bool capture) const
{
    std::vector<std::string> names;
    if (!client_)
    {
        return names;
    }
    // The server's capture ports are the ones that produce data: outputs, from a client's view.
    const char** ports = jack_get_ports(client_, nullptr, JACK_DEFAULT_AUDIO_TYPE,
                                        JackPortIsPhysical | (capture ? JackPortIsOutput : JackPortIsInput));
    if (ports)
    {
        for (const char** p = ports; *p; ++p)
        {
            names.emplace_back(*p);
        }
        jack_free(ports);
    }
    return names;
}

void MPAudioJack::LoLevelEnumerate()
{
    inputDevices_.clear();
    outputDevices_.clear();
    // The device is always listed, as an installed driver is; whether the server runs is found
    // out by querying and opening it.
    MPAudioDevice device;
    mpCopyName(device.name, kv3jack::deviceName().c_str());
    device.handle = 0;
    if (ensureClient())
    {
        device.minRate = device.maxRate = jack_get_sample_rate(client_);
    }
    MPAudioDevice input = device;
    input.channels = static_cast<std::uint32_t>(physicalPorts(true).size());
    MPAudioDevice output = device;
    output.channels = static_cast<std::uint32_t>(physicalPorts(false).size());
    inputDevices_.push_back(input);
    outputDevices_.push_back(output);
}

bool MPAudioJack::queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                              std::vector<MPAudioChannelName>* channelNames,
                              std::vector<std::uint32_t>* sampleRates, bool* fixedBufferSize,
                              std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                              std::uint32_t* latency)
{
    if (bufferSizes)
    {
        bufferSizes->clear();
    }
    if (channelNames)
    {
        channelNames->clear();
    }
    if (sampleRates)
    {
        sampleRates->clear();
    }
    if ((device != 0 && device != kMPAudioDefaultDevice) || !ensureClient())
    {
        return false;
    }
    const std::uint32_t frames = jack_get_buffer_size(client_);
    const std::vector<std::string> ports = physicalPorts(isInput);
    if (bufferSizes)
    {
        bufferSizes->push_back(frames);
    }
    if (channelNames)
    {
        for (const std::string& port : ports)
        {
            MPAudioChannelName name;
            mpCopyName(name.name, port.c_str());
            channelNames->push_back(name);
        }
    }
    if (sampleRates)
    {
        sampleRates->push_back(jack_get_sample_rate(client_));
    }
    if (fixedBufferSize)
    {
        *fixedBufferSize = true;
    }
    if (preferredBufferSize)
    {
        *preferredBufferSize = frames;
    }
    if (reserved)
    {
        *reserved = 0;
    }
    if (latency)
    {
        *latency = 0;
        if (!ports.empty())
        {
            if (jack_port_t* port = jack_port_by_name(client_, ports.front().c_str()))
            {
                jack_latency_range_t range{};
                jack_port_get_latency_range(port, isInput ? JackCaptureLatency : JackPlaybackLatency, &range);
                *latency = range.max;
            }
        }
    }
    return true;
}

bool MPAudioJack::LoLevelOpen()
{
    const int input = resolveDevice(config_.inputDevice, true);
    const int output = resolveDevice(config_.outputDevice, false);
    if (input < 0 && output < 0)
    {
        lastError_ = "no JACK device chosen";
        return false;
    }
    if (!ensureClient())
    {
        return false;
    }
    const jack_nframes_t rate = jack_get_sample_rate(client_);
    if (rate != config_.sampleRate)
    {
        lastError_ = "the JACK server runs at " + std::to_string(rate) + " Hz, not " +
                     std::to_string(config_.sampleRate) + " Hz";
        return false;
    }
    // Like any callback driver, the server decides the block size; the configuration's doesn't count.
    blockFrames_ = jack_get_buffer_size(client_);
    state_->frames = blockFrames_;
    state_->sampleRate = rate;
    state_->muted.store(true, std::memory_order_release);

    const std::vector<std::string> capture = physicalPorts(true);
    const std::vector<std::string> playback = physicalPorts(false);
    auto registerPorts = [&](const MPAudioRoute* routes, std::uint32_t count, bool isInput,
                             std::size_t physical, std::vector<jack_port_t*>& ports) -> bool
    {
        ports.clear();
        for (std::uint32_t r = 0; r < count; ++r)
        {
            if (routes[r].hardwareChannel >= physical)
            {
                lastError_ = "the JACK server has no " + std::string(isInput ? "capture" : "playback") +
                             " channel " + std::to_string(routes[r].hardwareChannel + 1);
                return false;
            }
            const std::string name =
                std::string(isInput ? "in_" : "out_") + std::to_string(routes[r].hardwareChannel + 1);
            jack_port_t* port = jack_port_register(client_, name.c_str(), JACK_DEFAULT_AUDIO_TYPE,
                                                   isInput ? JackPortIsInput : JackPortIsOutput, 0);
            if (!port)
            {
                lastError_ = "JACK refused the port " + name;
                return false;
            }
            ports.push_back(port);
        }
        return true;
    };
    const bool ok =
        registerPorts(inputRoutes_, input >= 0 ? inputRouteCount_ : 0, true, capture.size(), inputPorts_) &&
        registerPorts(outputRoutes_, output >= 0 ? outputRouteCount_ : 0, false, playback.size(),
                      outputPorts_);
    state_->outputPorts = outputPorts_;
    if (!ok || jack_set_process_callback(client_, processThunk, state_) != 0 ||
        jack_set_buffer_size_callback(client_, bufferSizeThunk, state_) != 0 ||
        jack_set_sample_rate_callback(client_, sampleRateThunk, state_) != 0 ||
        jack_set_xrun_callback(client_, xrunThunk, state_) != 0)
    {
        if (lastError_.empty())
        {
            lastError_ = "JACK refused the callbacks";
        }
        dropClient();
        return false;
    }
    jack_on_info_shutdown(client_, shutdownThunk, state_);
    return true;
}

void MPAudioJack::LoLevelClose()
{
    dropClient();
}

bool MPAudioJack::LoLevelStart()
{
    if (!client_)
    {
        return false;
    }
    state_->callbacks.store(0, std::memory_order_relaxed);
    state_->xruns.store(0, std::memory_order_relaxed);
    state_->resetSent.store(false, std::memory_order_relaxed);
    state_->muted.store(false, std::memory_order_release);
    if (jack_activate(client_) != 0)
    {
        state_->muted.store(true, std::memory_order_release);
        lastError_ = "the JACK server refused to activate the client";
        return false;
    }
    // Connections are made after activation, as JACK requires; a refused one leaves the channel
    // silent but the device running.
    const std::vector<std::string> capture = physicalPorts(true);
    const std::vector<std::string> playback = physicalPorts(false);
    for (std::size_t r = 0; r < inputPorts_.size(); ++r)
    {
        jack_connect(client_, capture[inputRoutes_[r].hardwareChannel].c_str(),
                     jack_port_name(inputPorts_[r]));
    }
    for (std::size_t r = 0; r < outputPorts_.size(); ++r)
    {
        jack_connect(client_, jack_port_name(outputPorts_[r]),
                     playback[outputRoutes_[r].hardwareChannel].c_str());
    }
    {
        std::lock_guard<std::mutex> lock(watchdogMutex_);
        watchdogQuit_ = false;
    }
    watchdog_ = std::thread([this] { watchdogLoop(); });
    return true;
}

void MPAudioJack::LoLevelStop()
{
    if (state_)
    {
        state_->muted.store(true, std::memory_order_release);
    }
    if (watchdog_.joinable())
    {
        {
            std::lock_guard<std::mutex> lock(watchdogMutex_);
            watchdogQuit_ = true;
        }
        watchdogWake_.notify_all();
        watchdog_.join();
    }
    if (!client_)
    {
        return;
    }
    // Cut off before the call: if the server doesn't answer, the client is given up to the helper
    // thread, whose late close deletes the state.
    state_->backend.store(nullptr, std::memory_order_release);
    // Callbacks that have already returned happen before this point even if the server never
    // answers below; later ones find no backend and touch nothing of this object.
    state_->returned.load(std::memory_order_acquire);
    if (!kv3jack::deactivateClient(client_, deleteStateThunk, state_))
    {
        // The server doesn't answer: the block path is muted and the client belongs to the helper
        // thread now; the next open connects afresh.
        // The state is the helper's too, and may be gone at any moment: it is not touched again.
        lastError_ = "the JACK server did not answer the stop";
        client_ = nullptr;
        state_ = nullptr;
        inputPorts_.clear();
        outputPorts_.clear();
        return;
    }
    state_->returned.load(std::memory_order_acquire);
    state_->backend.store(this, std::memory_order_release);
}

void MPAudioJack::watchdogLoop()
{
    using Clock = std::chrono::steady_clock;
    std::uint32_t seen = state_->callbacks.load(std::memory_order_relaxed);
    Clock::time_point lastChange = Clock::now();
    std::unique_lock<std::mutex> lock(watchdogMutex_);
    while (!watchdogWake_.wait_for(lock, kWatchdogPeriod, [this] { return watchdogQuit_; }))
    {
        const std::uint32_t now = state_->callbacks.load(std::memory_order_relaxed);
        if (now != seen)
        {
            seen = now;
            lastChange = Clock::now();
        }
        else if (Clock::now() - lastChange > kSilenceLimit)
        {
            requestReset();
            lastChange = Clock::now();
        }
    }
}

void MPAudioJack::requestReset()
{
    if (!state_->resetSent.exchange(true, std::memory_order_relaxed))
    {
        state_->muted.store(true, std::memory_order_release);
        notify(1);
    }
}

void MPAudioJack::jackProcess(jack_nframes_t frames)
{
    for (std::size_t r = 0; r < inputPorts_.size(); ++r)
    {
        const auto* in = static_cast<const float*>(jack_port_get_buffer(inputPorts_[r], frames));
        std::memcpy(inputRoutes_[r].buffer, in, frames * sizeof(float));
    }
    runBlock();
    for (std::size_t r = 0; r < outputPorts_.size(); ++r)
    {
        auto* out = static_cast<float*>(jack_port_get_buffer(outputPorts_[r], frames));
        std::memcpy(out, outputRoutes_[r].buffer, frames * sizeof(float));
    }
}
