#include "devices/midi/MPMidiLinux.h"

#include "devices/jack/JackClient.h"

#include <jack/midiport.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace kv3midi
{

/** What JACK's process thread may touch. */
struct JackMidiState
{
    /** Null once the input has given this state up; acquire/release so that a callback that sees
        the pointer sees the object built. */
    std::atomic<MPMidiLinux*> owner{nullptr};
    jack_port_t* port = nullptr;
    /** Callbacks that have returned: release at the end of each, acquire once the server has
        stopped calling (its own hand-off happens in another process). */
    std::atomic<std::uint32_t> returned{0};
};

} // namespace kv3midi

namespace
{

constexpr const char* kClientName = "Korvalind 3 MIDI";
// The sequencer's handle for "JACK MIDI" in the list, which no sequencer address can take.
constexpr std::uint32_t kJackHandle = 0xFFFFFFFFu;
// The sequencer thread looks at its quit flag at least this often.
constexpr int kSequencerWaitMs = 100;

int jackMidiThunk(jack_nframes_t frames, void* arg)
{
    auto* state = static_cast<kv3midi::JackMidiState*>(arg);
    MPMidiLinux* owner = state->owner.load(std::memory_order_acquire);
    if (!owner)
    {
        return 0;
    }
    void* buffer = jack_port_get_buffer(state->port, frames);
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    // JACK hands the events of a period in time order, which is their order of arrival.
    for (std::uint32_t i = 0; i < count; ++i)
    {
        jack_midi_event_t event;
        if (jack_midi_event_get(&event, buffer, i) == 0)
        {
            owner->deliver(event.buffer, event.size);
        }
    }
    state->returned.fetch_add(1, std::memory_order_release);
    return 0;
}

void deleteStateThunk(void* state)
{
    delete static_cast<kv3midi::JackMidiState*>(state);
}

bool sequencerAvailable()
{
    return access("/dev/snd/seq", R_OK | W_OK) == 0;
}

} // namespace

std::unique_ptr<MPMidiBase> newMidiBackend()
{
    return std::make_unique<MPMidiLinux>();
}

MPMidiLinux::MPMidiLinux() = default;

MPMidiLinux::~MPMidiLinux()
{
    close();
}

bool MPMidiLinux::open(const char* inputName, const char* outputName)
{
    if (!isOpen())
    {
        enumerateDevices(true);
    }
    return MPMidiBase::open(inputName, outputName);
}

bool MPMidiLinux::deliver(const std::uint8_t* data, std::size_t size)
{
    // Only short messages: system exclusive and anything longer than three bytes is ignored.
    if (size == 0 || size > 3 || data[0] == 0xF0 || data[0] < 0x80)
    {
        return false;
    }
    MidiMessage message;
    // A real-time or other single-byte message keeps its length of 1, so that the clock byte can be
    // told apart and dropped later; every other short message has the three bytes of a channel message.
    message.length = size == 1 ? 1 : 3;
    std::memcpy(message.bytes, data, size);
    midiReceived(&message);
    return true;
}

void MPMidiLinux::LoLevelEnumerate()
{
    inputDevices_.clear();
    outputDevices_.clear();
    if (sequencerAvailable())
    {
        snd_seq_t* seq = nullptr;
        if (snd_seq_open(&seq, "default", SND_SEQ_OPEN_INPUT, SND_SEQ_NONBLOCK) == 0)
        {
            const int self = snd_seq_client_id(seq);
            snd_seq_client_info_t* client = nullptr;
            snd_seq_port_info_t* port = nullptr;
            snd_seq_client_info_alloca(&client);
            snd_seq_port_info_alloca(&port);
            snd_seq_client_info_set_client(client, -1);
            while (snd_seq_query_next_client(seq, client) >= 0)
            {
                const int id = snd_seq_client_info_get_client(client);
                // The system client (timer, announce) and this program's own ports are not inputs.
                if (id == SND_SEQ_CLIENT_SYSTEM || id == self)
                {
                    continue;
                }
                snd_seq_port_info_set_client(port, id);
                snd_seq_port_info_set_port(port, -1);
                while (snd_seq_query_next_port(seq, port) >= 0)
                {
                    const unsigned caps = snd_seq_port_info_get_capability(port);
                    const unsigned wanted = SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ;
                    if ((caps & wanted) != wanted || (caps & SND_SEQ_PORT_CAP_NO_EXPORT))
                    {
                        continue;
                    }
                    MPMidiDevice device;
                    const std::string name = std::string(snd_seq_client_info_get_name(client)) + ":" +
                                             snd_seq_port_info_get_name(port);
                    std::strncpy(device.name, name.c_str(), sizeof device.name - 1);
                    device.handle = static_cast<std::uint32_t>(id) << 8 |
                                    static_cast<std::uint32_t>(snd_seq_port_info_get_port(port));
                    inputDevices_.push_back(device);
                }
            }
            snd_seq_close(seq);
        }
    }
    std::string error;
    if (jack_client_t* probe = kv3jack::openClient(kClientName, &error))
    {
        kv3jack::closeClient(probe, false);
        MPMidiDevice device;
        std::strncpy(device.name, kJackInputName, sizeof device.name - 1);
        device.handle = kJackHandle;
        inputDevices_.push_back(device);
    }
}

bool MPMidiLinux::LoLevelOpen()
{
    lastError_.clear();
    enumerateDevices(false);
    if (outputDevice_ != -1)
    {
        lastError_ = "there are no MIDI output devices";
        return false;
    }
    if (inputDevice_ == -1)
    {
        return false;
    }
    // As the system does: -2, or an index past the end, is device 0, which fails if there is none.
    const int index = firstIfUnknown(inputDevice_, inputDevices_.size());
    if (static_cast<std::size_t>(index) >= inputDevices_.size())
    {
        lastError_ = "there is no MIDI input device";
        return false;
    }
    const std::uint32_t handle = inputDevices_[static_cast<std::size_t>(index)].handle;
    return handle == kJackHandle ? openJackInput() : openSequencerInput(handle);
}

bool MPMidiLinux::openJackInput()
{
    jack_ = kv3jack::openClient(kClientName, &lastError_);
    if (!jack_)
    {
        return false;
    }
    jackState_ = new kv3midi::JackMidiState;
    // Each request that can block runs within the bounded wait; a server that doesn't answer one
    // takes the client and the state with it to the helper thread, which closes and frees them.
    auto given = [this]
    {
        lastError_ = "the JACK server \"" + kv3jack::serverName() + "\" does not answer";
        jack_ = nullptr;
        jackState_ = nullptr;
        return false;
    };
    // The state is the helper's on a time-out, and freed only by it.
    if (!kv3jack::callClient(
            jack_,
            [state = jackState_](jack_client_t* c)
            {
                state->port = jack_port_register(c, "midi_in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
                return 0;
            },
            nullptr, deleteStateThunk, jackState_))
    {
        return given();
    }
    int refused = 0;
    if (!jackState_->port || jack_set_process_callback(jack_, jackMidiThunk, jackState_) != 0)
    {
        refused = 1;
    }
    else if (!kv3jack::callClient(
                 jack_, [](jack_client_t* c) { return jack_activate(c); }, &refused, deleteStateThunk,
                 jackState_))
    {
        return given();
    }
    if (refused != 0)
    {
        lastError_ = "the JACK server refused the MIDI input";
        LoLevelClose();
        return false;
    }
    // Every MIDI source the server has in hardware plays into the input; other programs connect
    // themselves.
    std::vector<std::string> sources;
    if (const char** ports =
            jack_get_ports(jack_, nullptr, JACK_DEFAULT_MIDI_TYPE, JackPortIsPhysical | JackPortIsOutput))
    {
        for (const char** p = ports; *p; ++p)
        {
            sources.emplace_back(*p);
        }
        jack_free(ports);
    }
    const std::string input = jack_port_name(jackState_->port);
    for (const std::string& source : sources)
    {
        if (!kv3jack::callClient(
                jack_,
                [source, input](jack_client_t* c) { return jack_connect(c, source.c_str(), input.c_str()); },
                nullptr, deleteStateThunk, jackState_))
        {
            return given();
        }
    }
    // Only now does the callback reach this object: a client given up on above never did.
    jackState_->owner.store(this, std::memory_order_release);
    return true;
}

bool MPMidiLinux::openSequencerInput(std::uint32_t handle)
{
    int err = snd_seq_open(&seq_, "default", SND_SEQ_OPEN_INPUT, SND_SEQ_NONBLOCK);
    if (err < 0)
    {
        lastError_ = std::string("the ALSA sequencer: ") + snd_strerror(err);
        seq_ = nullptr;
        return false;
    }
    snd_seq_set_client_name(seq_, "Korvalind 3");
    seqPort_ =
        snd_seq_create_simple_port(seq_, "MIDI in", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                   SND_SEQ_PORT_TYPE_APPLICATION | SND_SEQ_PORT_TYPE_MIDI_GENERIC);
    if (seqPort_ < 0 ||
        (err = snd_seq_connect_from(seq_, seqPort_, static_cast<int>(handle >> 8),
                                    static_cast<int>(handle & 0xFF))) < 0 ||
        snd_midi_event_new(256, &decoder_) < 0)
    {
        lastError_ = std::string("the ALSA sequencer refused the connection: ") + snd_strerror(err);
        LoLevelClose();
        return false;
    }
    // Every message carries its own status byte, as the system's short messages do.
    snd_midi_event_no_status(decoder_, 1);
    seqQuit_.store(false, std::memory_order_relaxed);
    seqThread_ = std::thread([this] { sequencerLoop(); });
    return true;
}

void MPMidiLinux::sequencerLoop()
{
    const int count = snd_seq_poll_descriptors_count(seq_, POLLIN);
    std::vector<pollfd> fds(static_cast<std::size_t>(count > 0 ? count : 0));
    snd_seq_poll_descriptors(seq_, fds.data(), static_cast<unsigned>(fds.size()), POLLIN);
    while (!seqQuit_.load(std::memory_order_relaxed))
    {
        if (poll(fds.data(), fds.size(), kSequencerWaitMs) <= 0)
        {
            continue;
        }
        snd_seq_event_t* event = nullptr;
        while (snd_seq_event_input(seq_, &event) >= 0 && event)
        {
            if (event->type == SND_SEQ_EVENT_SYSEX)
            {
                continue;
            }
            std::uint8_t bytes[16];
            const long size = snd_midi_event_decode(decoder_, bytes, sizeof bytes, event);
            if (size > 0)
            {
                deliver(bytes, static_cast<std::size_t>(size));
            }
        }
    }
}

void MPMidiLinux::LoLevelClose()
{
    if (seqThread_.joinable())
    {
        seqQuit_.store(true, std::memory_order_relaxed);
        seqThread_.join();
    }
    if (decoder_)
    {
        snd_midi_event_free(decoder_);
        decoder_ = nullptr;
    }
    if (seq_)
    {
        snd_seq_close(seq_);
        seq_ = nullptr;
        seqPort_ = -1;
    }
    if (jack_)
    {
        // Cut off from this object first: if the server doesn't answer, its thread may still call
        // with the state until the close returns on the helper thread, which then deletes it.
        if (jackState_)
        {
            jackState_->owner.store(nullptr, std::memory_order_release);
        }
        if (kv3jack::closeClient(jack_, true, deleteStateThunk, jackState_))
        {
            if (jackState_)
            {
                jackState_->returned.load(std::memory_order_acquire);
            }
            delete jackState_;
        }
        jack_ = nullptr;
        jackState_ = nullptr;
    }
}
