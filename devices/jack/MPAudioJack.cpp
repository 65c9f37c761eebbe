#include "devices/jack/MPAudioJack.h"

#include "devices/MPAudioBackends.h"
#include "devices/jack/JackClient.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>

namespace kv3jack
{

/** What the server's threads may touch. The block path runs only while `muted` is false. */
struct CallbackState
{
    /** Null while the backend may not be entered (stopped, given up, or a bounded request in
        flight). Sequentially consistent with `entered`: a thread that nulls it and then reads
        `entered` either sees every callback that found the backend, or the callback finds null. */
    std::atomic<MPAudioJack*> backend{nullptr};
    /** The backend's ports, kept here so that a muted callback can write silence without it. */
    std::vector<jack_port_t*> outputPorts;
    /** Set by stop, reset or an unexpected format; read at the head of each callback.
        Release on set and acquire on read, so that a callback seeing false also sees the buffers. */
    std::atomic<bool> muted{true};
    /** Entries into any of the callbacks (sequentially consistent, see `backend`), and returns
        from them (release at the end of each, acquire by the interface thread, so that everything
        a callback did happens before what the interface thread does next). While they differ a
        callback is inside: not a dead server, and nothing it may touch can be freed. */
    std::atomic<std::uint32_t> entered{0};
    std::atomic<std::uint32_t> returned{0};
    /** Relaxed counters: read by tests, never to publish data. */
    std::atomic<std::uint32_t> blocks{0};
    std::atomic<std::uint32_t> xruns{0};
    /** The first reset request of a start wins; relaxed, it is a one-shot latch. */
    std::atomic<bool> resetSent{false};
    /** The block size and rate the device was opened with, set while the client is already
        active (muted). Relaxed: a callback acts on them only after seeing `muted` false, which the
        start stores with release after them. */
    std::atomic<jack_nframes_t> frames{0};
    std::atomic<jack_nframes_t> sampleRate{0};

    bool callbackInside() const
    {
        const std::uint32_t in = entered.load(std::memory_order_seq_cst);
        return in != returned.load(std::memory_order_acquire);
    }
};

} // namespace kv3jack

namespace
{

constexpr const char* kClientName = "Korvalind 3";
// A started server that hasn't called for this long is taken as gone: PipeWire's JACK layer dies
// without sending the shutdown callback. A block still in progress doesn't count as silence.
constexpr std::chrono::milliseconds kSilenceLimit{1000};
constexpr std::chrono::milliseconds kWatchdogPeriod{50};
// How long a stop waits for a callback still inside (a stalled plug-in) before giving it up.
constexpr std::chrono::milliseconds kBlockWait{1500};
// How long an open waits for a server to take up the buffer size asked for (PipeWire's JACK layer
// changes its quantum a moment after the request).
constexpr std::chrono::milliseconds kBufferSizeWait{400};

/** Counts a callback in and out, around everything it does with the state. */
class Inside
{
public:
    explicit Inside(kv3jack::CallbackState* state) : state_(state)
    {
        state_->entered.fetch_add(1, std::memory_order_seq_cst);
    }
    ~Inside() { state_->returned.fetch_add(1, std::memory_order_release); }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    MPAudioJack* backend() const { return state_->backend.load(std::memory_order_seq_cst); }

private:
    kv3jack::CallbackState* state_;
};

/** States that a callback may still be inside of when their client was given up: never freed,
    and still reachable so that a leak checker doesn't count them. Interface and helper threads. */
void keepState(kv3jack::CallbackState* state)
{
    static std::mutex mutex;
    static auto* kept = new std::vector<kv3jack::CallbackState*>;
    std::lock_guard<std::mutex> lock(mutex);
    kept->push_back(state);
}

void releaseState(kv3jack::CallbackState* state)
{
    if (state->callbackInside())
    {
        keepState(state);
    }
    else
    {
        delete state;
    }
}

int processThunk(jack_nframes_t frames, void* arg)
{
    auto* state = static_cast<kv3jack::CallbackState*>(arg);
    Inside inside(state);
    state->blocks.fetch_add(1, std::memory_order_relaxed);
    MPAudioJack* backend = inside.backend();
    if (backend && !state->muted.load(std::memory_order_acquire) &&
        frames == state->frames.load(std::memory_order_relaxed))
    {
        backend->jackProcess(frames, state);
    }
    else
    {
        for (jack_port_t* port : state->outputPorts)
        {
            std::memset(jack_port_get_buffer(port, frames), 0, frames * sizeof(float));
        }
    }
    return 0;
}

int bufferSizeThunk(jack_nframes_t frames, void* arg)
{
    auto* state = static_cast<kv3jack::CallbackState*>(arg);
    Inside inside(state);
    MPAudioJack* backend = inside.backend();
    if (backend && frames != state->frames.load(std::memory_order_relaxed))
    {
        backend->requestReset(state);
    }
    return 0;
}

int sampleRateThunk(jack_nframes_t rate, void* arg)
{
    auto* state = static_cast<kv3jack::CallbackState*>(arg);
    Inside inside(state);
    MPAudioJack* backend = inside.backend();
    if (backend && rate != state->sampleRate.load(std::memory_order_relaxed))
    {
        backend->requestReset(state);
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
    auto* state = static_cast<kv3jack::CallbackState*>(arg);
    Inside inside(state);
    if (MPAudioJack* backend = inside.backend())
    {
        backend->requestReset(state);
    }
}

void releaseStateThunk(void* state)
{
    releaseState(static_cast<kv3jack::CallbackState*>(state));
}

} // namespace

std::unique_ptr<MPAudioBase> newJackBackend()
{
    return std::make_unique<MPAudioJack>();
}

namespace
{

} // namespace

MPAudioJack::MPAudioJack() = default;

MPAudioJack::~MPAudioJack()
{
    close();
    dropClient();
}

std::uint32_t MPAudioJack::callbackCount() const
{
    return state_ ? state_->blocks.load(std::memory_order_relaxed) : 0;
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
    return true;
}

bool MPAudioJack::request(std::function<int(jack_client_t*)> work, int* result)
{
    // Nothing enters this object while the request is in flight, so that a client given up on
    // below can't call into it later; a callback that entered before the cut is waited for.
    state_->backend.store(nullptr, std::memory_order_seq_cst);
    if (!blockStuck_ && !waitForCallbacks())
    {
        blockStuck_ = true;
    }
    if (kv3jack::callClient(client_, std::move(work), result, releaseStateThunk, state_))
    {
        return true;
    }
    // The client and its state are the helper thread's now; the next open connects afresh.
    lastError_ = "the JACK server \"" + kv3jack::serverName() + "\" does not answer";
    active_ = false;
    client_ = nullptr;
    state_ = nullptr;
    inputPorts_.clear();
    outputPorts_.clear();
    return false;
}

bool MPAudioJack::waitForCallbacks()
{
    const auto deadline = std::chrono::steady_clock::now() + kBlockWait;
    while (state_->callbackInside())
    {
        if (std::chrono::steady_clock::now() >= deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void MPAudioJack::dropClient()
{
    if (!client_)
    {
        return;
    }
    state_->muted.store(true, std::memory_order_release);
    state_->backend.store(nullptr, std::memory_order_seq_cst);
    // A callback that found this object before the line above may still be inside it.
    if (!blockStuck_ && !waitForCallbacks())
    {
        blockStuck_ = true;
    }
    // If the server doesn't answer, its threads may still call with the state until the close
    // returns on the helper thread, which then releases it.
    if (kv3jack::closeClient(client_, false, releaseStateThunk, state_))
    {
        blockStuck_ = blockStuck_ || state_->callbackInside();
        releaseState(state_);
    }
    client_ = nullptr;
    state_ = nullptr;
    active_ = false;
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
        // The server is asked for the size chosen at the open; one that keeps its own runs at that.
        for (std::uint32_t size = kMinBufferSize; size <= kMaxBufferSize; size *= 2)
        {
            bufferSizes->push_back(size);
        }
        if (std::find(bufferSizes->begin(), bufferSizes->end(), frames) == bufferSizes->end())
        {
            bufferSizes->insert(bufferSizes->begin(), frames);
        }
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
        *fixedBufferSize = false;
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
        // The server's own figure for its physical ports, which holds its periods: the capture
        // latency of a capture port, the playback latency of a playback port.
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
    if (blockStuck_)
    {
        lastError_ = "a block of the last run never returned";
        return false;
    }
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
    state_->sampleRate.store(rate, std::memory_order_relaxed);
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
            // Shared with the request, which may outlive this frame on a time-out.
            auto port = std::make_shared<jack_port_t*>(nullptr);
            const unsigned long flags = isInput ? JackPortIsInput : JackPortIsOutput;
            if (!request(
                    [name, flags, port](jack_client_t* c)
                    {
                        *port = jack_port_register(c, name.c_str(), JACK_DEFAULT_AUDIO_TYPE, flags, 0);
                        return 0;
                    },
                    nullptr))
            {
                return false;
            }
            if (!*port)
            {
                lastError_ = "JACK refused the port " + name;
                return false;
            }
            ports.push_back(*port);
        }
        return true;
    };
    const bool ok =
        registerPorts(inputRoutes_, input >= 0 ? inputRouteCount_ : 0, true, capture.size(), inputPorts_) &&
        registerPorts(outputRoutes_, output >= 0 ? outputRouteCount_ : 0, false, playback.size(),
                      outputPorts_);
    if (!client_)
    {
        return false; // given up on inside a request
    }
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
    // Active from the open on, muted until the start: PipeWire's JACK layer takes the size asked
    // for as a quantum of this client's node, which counts only while the node runs.
    if (!activate())
    {
        return false;
    }
    // The size chosen is asked for (0 keeps the server's); a server that keeps its own, or that
    // other programs hold at theirs, runs at that, and the block size follows the server.
    const jack_nframes_t wanted = config_.bufferSize;
    if (wanted != 0 && wanted != jack_get_buffer_size(client_))
    {
        int refused = 0;
        if (!request([wanted](jack_client_t* c) { return jack_set_buffer_size(c, wanted); }, &refused))
        {
            return false;
        }
        const auto deadline = std::chrono::steady_clock::now() + kBufferSizeWait;
        while (refused == 0 && jack_get_buffer_size(client_) != wanted &&
               std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    blockFrames_ = jack_get_buffer_size(client_);
    state_->frames.store(blockFrames_, std::memory_order_relaxed);
    state_->backend.store(this, std::memory_order_seq_cst);
    return true;
}

bool MPAudioJack::activate()
{
    if (active_)
    {
        return true;
    }
    int refused = 0;
    if (!request([](jack_client_t* c) { return jack_activate(c); }, &refused))
    {
        return false;
    }
    if (refused != 0)
    {
        lastError_ = "the JACK server refused to activate the client";
        dropClient();
        return false;
    }
    active_ = true;
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
    state_->blocks.store(0, std::memory_order_relaxed);
    state_->xruns.store(0, std::memory_order_relaxed);
    state_->resetSent.store(false, std::memory_order_relaxed);
    state_->muted.store(true, std::memory_order_release);
    if (!activate())
    {
        return false;
    }
    if (jack_get_buffer_size(client_) != blockFrames_)
    {
        // Changed since the open (stopped and started again): the buffers are sized for the old one.
        lastError_ = "the JACK server's buffer size changed";
        return false;
    }
    // Connections are made after activation, as JACK requires, to the ports the server has now (a
    // profile change may have taken some away since the open); a refused or missing one leaves the
    // channel silent but the device running.
    const std::vector<std::string> capture = physicalPorts(true);
    const std::vector<std::string> playback = physicalPorts(false);
    std::vector<std::string> from;
    std::vector<std::string> to;
    for (std::size_t r = 0; r < inputPorts_.size(); ++r)
    {
        if (inputRoutes_[r].hardwareChannel < capture.size())
        {
            from.push_back(capture[inputRoutes_[r].hardwareChannel]);
            to.emplace_back(jack_port_name(inputPorts_[r]));
        }
    }
    for (std::size_t r = 0; r < outputPorts_.size(); ++r)
    {
        if (outputRoutes_[r].hardwareChannel < playback.size())
        {
            from.emplace_back(jack_port_name(outputPorts_[r]));
            to.push_back(playback[outputRoutes_[r].hardwareChannel]);
        }
    }
    for (std::size_t i = 0; i < from.size(); ++i)
    {
        if (!request([source = from[i], target = to[i]](jack_client_t* c)
                     { return jack_connect(c, source.c_str(), target.c_str()); },
                     nullptr))
        {
            return false;
        }
    }
    state_->muted.store(false, std::memory_order_release);
    state_->backend.store(this, std::memory_order_seq_cst);
    {
        std::lock_guard<std::mutex> lock(watchdogMutex_);
        watchdogQuit_ = false;
    }
    watchdog_ = std::thread([this, state = state_] { watchdogLoop(state); });
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
    // Cut off before anything else; then a callback that found this object before the cut (a
    // block stalled in a plug-in) is waited for, within a bound.
    state_->backend.store(nullptr, std::memory_order_seq_cst);
    if (!waitForCallbacks())
    {
        blockStuck_ = true;
    }
    if (!kv3jack::deactivateClient(client_, releaseStateThunk, state_))
    {
        // The server doesn't answer: the client and its state are the helper thread's now; the
        // state may be gone at any moment and is not touched again. The next open connects afresh.
        lastError_ = "the JACK server did not answer the stop";
        active_ = false;
        client_ = nullptr;
        state_ = nullptr;
        inputPorts_.clear();
        outputPorts_.clear();
        return;
    }
    active_ = false;
    if (!blockStuck_ && !state_->callbackInside())
    {
        // Stopped: the server's threads may tell of a shutdown again.
        state_->backend.store(this, std::memory_order_seq_cst);
    }
}

bool MPAudioJack::blockMayBeRunning() const
{
    return blockStuck_;
}

void MPAudioJack::watchdogLoop(kv3jack::CallbackState* state)
{
    using Clock = std::chrono::steady_clock;
    std::uint32_t seen = state->entered.load(std::memory_order_relaxed);
    Clock::time_point lastChange = Clock::now();
    std::unique_lock<std::mutex> lock(watchdogMutex_);
    while (!watchdogWake_.wait_for(lock, kWatchdogPeriod, [this] { return watchdogQuit_; }))
    {
        const std::uint32_t now = state->entered.load(std::memory_order_relaxed);
        // A block still in progress (a slow plug-in) is a live server, however long it takes.
        if (now != seen || state->callbackInside())
        {
            seen = now;
            lastChange = Clock::now();
        }
        else if (Clock::now() - lastChange > kSilenceLimit)
        {
            requestReset(state);
            lastChange = Clock::now();
        }
    }
}

void MPAudioJack::requestReset(kv3jack::CallbackState* state)
{
    if (!state->resetSent.exchange(true, std::memory_order_relaxed))
    {
        state->muted.store(true, std::memory_order_release);
        notify(1);
    }
}

void MPAudioJack::jackProcess(jack_nframes_t frames, kv3jack::CallbackState* state)
{
    for (std::size_t r = 0; r < inputPorts_.size(); ++r)
    {
        const auto* in = static_cast<const float*>(jack_port_get_buffer(inputPorts_[r], frames));
        std::memcpy(inputRoutes_[r].buffer, in, frames * sizeof(float));
    }
    runBlock();
    // A block that outlasted a stop finds its client given up on: its ports are left alone.
    if (state->backend.load(std::memory_order_seq_cst) != this)
    {
        return;
    }
    for (std::size_t r = 0; r < outputPorts_.size(); ++r)
    {
        auto* out = static_cast<float*>(jack_port_get_buffer(outputPorts_[r], frames));
        std::memcpy(out, outputRoutes_[r].buffer, frames * sizeof(float));
    }
}

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
// PipeWire's JACK layer hands the block its port buffers in shared memory that one of its own threads
// mapped; the handover runs through PipeWire's uninstrumented loop, so the thread checker takes the
// mapping for a write racing the block's copy. Only races against that mapping are left out.
extern "C" const char* __tsan_default_suppressions()
{
    return "race:pw_memblock_map\n";
}
#endif
#if __has_feature(address_sanitizer)
// PipeWire's JACK layer (Debian's 0.3.65) keeps each registered port's memory past jack_client_close; a
// client that does nothing but open, register a port and close shows the same report.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:pipewire-0.3/jack/libjack.so\nleak:libpipewire-0.3.so\n";
}
#endif
#endif
