// kv3_jack_peer: another program on the JACK server, in a process of its own as a user's other programs
// are. Each mode gives up with exit status 1 after ten seconds.
//   audio TO FROM FRAMES OUTFILE ramp|VALUE  plays a ramp (frame % 4096 / 8192) or a constant into TO
//                                            and records FRAMES frames of FROM as raw 32-bit floats
//   midi TO COUNT                            sends COUNT notes (0x90 | i % 16, i, 64), a clock byte before
//                                            every 7th, a system exclusive before every 11th, 3 a period
//   loop TO FROM DELAY FRAMES                plays FROM into TO, DELAY frames later, for FRAMES frames
//   buffersize FRAMES                        asks the server for a new buffer size

#include <jack/jack.h>
#include <jack/midiport.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace
{

struct Peer
{
    jack_client_t* client = nullptr;
    jack_port_t* out = nullptr;
    jack_port_t* in = nullptr;
    bool ramp = true;
    float value = 0.0f;
    std::size_t frame = 0;
    std::vector<float> recorded;
    /** The loop mode's delay line; empty in the other modes. */
    std::vector<float> line;
    std::size_t linePos = 0;
    std::atomic<std::size_t> recordedCount{0};
    std::vector<std::vector<std::uint8_t>> script;
    std::atomic<std::size_t> sent{0};
    /** Set once the port is connected: events sent before would be lost. */
    std::atomic<bool> connected{false};
};

int audioThunk(jack_nframes_t n, void* arg)
{
    auto* peer = static_cast<Peer*>(arg);
    auto* out = static_cast<float*>(jack_port_get_buffer(peer->out, n));
    const auto* in = static_cast<const float*>(jack_port_get_buffer(peer->in, n));
    std::size_t w = peer->recordedCount.load(std::memory_order_relaxed);
    for (jack_nframes_t i = 0; i < n; ++i)
    {
        out[i] = peer->ramp ? static_cast<float>((peer->frame + i) % 4096) / 8192.0f : peer->value;
        if (!peer->line.empty())
        {
            out[i] = peer->line[peer->linePos];
            peer->line[peer->linePos] = in[i];
            peer->linePos = (peer->linePos + 1) % peer->line.size();
        }
        if (w < peer->recorded.size())
        {
            peer->recorded[w++] = in[i];
        }
    }
    peer->frame += n;
    peer->recordedCount.store(w, std::memory_order_release);
    return 0;
}

int midiThunk(jack_nframes_t n, void* arg)
{
    auto* peer = static_cast<Peer*>(arg);
    void* buffer = jack_port_get_buffer(peer->out, n);
    jack_midi_clear_buffer(buffer);
    if (!peer->connected.load(std::memory_order_acquire))
    {
        return 0;
    }
    std::size_t next = peer->sent.load(std::memory_order_relaxed);
    for (jack_nframes_t slot = 0; slot < 3 && next < peer->script.size(); ++slot, ++next)
    {
        const auto& bytes = peer->script[next];
        jack_midi_event_write(buffer, slot * (n / 3), bytes.data(), bytes.size());
    }
    peer->sent.store(next, std::memory_order_release);
    return 0;
}

template <typename Pred> bool waitFor(Pred pred)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline)
    {
        if (pred())
        {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    const bool loop = mode == "loop" && argc == 6;
    const bool audio = (mode == "audio" && argc == 7) || loop;
    const bool midi = mode == "midi" && argc == 4;
    if (!audio && !midi && !(mode == "buffersize" && argc == 3))
    {
        std::fprintf(stderr, "kv3_jack_peer: bad arguments\n");
        return 2;
    }
    jack_status_t status;
    Peer peer;
    peer.client = jack_client_open("kv3 peer", JackNoStartServer, &status);
    if (!peer.client)
    {
        std::fprintf(stderr, "kv3_jack_peer: no server\n");
        return 1;
    }
    bool ok = false;
    if (audio)
    {
        peer.recorded.assign(std::strtoul(argv[loop ? 5 : 4], nullptr, 10), 0.0f);
        peer.ramp = !loop && std::string(argv[6]) == "ramp";
        peer.value = peer.ramp || loop ? 0.0f : std::strtof(argv[6], nullptr);
        peer.line.assign(loop ? std::max(1ul, std::strtoul(argv[4], nullptr, 10)) : 0, 0.0f);
        peer.out = jack_port_register(peer.client, "out", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
        peer.in = jack_port_register(peer.client, "in", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
        jack_set_process_callback(peer.client, audioThunk, &peer);
        ok = jack_activate(peer.client) == 0 &&
             jack_connect(peer.client, jack_port_name(peer.out), argv[2]) == 0 &&
             jack_connect(peer.client, argv[3], jack_port_name(peer.in)) == 0 &&
             waitFor([&]
                     { return peer.recordedCount.load(std::memory_order_acquire) >= peer.recorded.size(); });
        jack_deactivate(peer.client);
        if (ok && !loop)
        {
            FILE* f = std::fopen(argv[5], "wb");
            ok = f != nullptr && std::fwrite(peer.recorded.data(), sizeof(float), peer.recorded.size(), f) ==
                                     peer.recorded.size();
            ok = f != nullptr && std::fclose(f) == 0 && ok;
        }
    }
    else if (midi)
    {
        for (int i = 0; i < std::atoi(argv[3]); ++i)
        {
            if (i % 7 == 0)
            {
                peer.script.push_back({0xF8});
            }
            if (i % 11 == 0)
            {
                peer.script.push_back({0xF0, 0x01, 0x02, 0xF7});
            }
            peer.script.push_back(
                {static_cast<std::uint8_t>(0x90 | (i % 16)), static_cast<std::uint8_t>(i), 64});
        }
        peer.out = jack_port_register(peer.client, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
        jack_set_process_callback(peer.client, midiThunk, &peer);
        ok = jack_activate(peer.client) == 0 &&
             jack_connect(peer.client, jack_port_name(peer.out), argv[2]) == 0;
        peer.connected.store(ok, std::memory_order_release);
        ok = ok && waitFor([&] { return peer.sent.load(std::memory_order_acquire) >= peer.script.size(); });
        // A few more periods, so that the last events leave the server before the port goes.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        jack_deactivate(peer.client);
    }
    else
    {
        ok = jack_set_buffer_size(peer.client, static_cast<jack_nframes_t>(std::atoi(argv[2]))) == 0;
    }
    jack_client_close(peer.client);
    return ok ? 0 : 1;
}
