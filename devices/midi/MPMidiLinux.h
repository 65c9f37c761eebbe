#pragma once

#include "devices/MPMidi.h"

#include <alsa/asoundlib.h>
#include <jack/jack.h>

#include <atomic>
#include <string>
#include <thread>

namespace kv3midi
{
struct JackMidiState;
}

/**
 * The Linux MIDI input. Its input devices are the readable ports of the ALSA sequencer, when the
 * system has one (/dev/snd/seq), followed by one "JACK MIDI" input when a JACK server runs. There
 * are no output devices: the program only listens.
 *
 * Messages reach `midiReceived` as short messages: channel and system common messages with a
 * length of 3 (unused bytes zero, running status resolved), single-byte real-time messages with a
 * length of 1. System exclusive is ignored.
 */
class MPMidiLinux : public MPMidiBase
{
public:
    /** The name of the JACK input in the device list. */
    static constexpr const char* kJackInputName = "JACK MIDI";

    MPMidiLinux();
    ~MPMidiLinux() override;

    /**
     * Opens by name as the common layer does, after listing the devices afresh: the JACK input
     * exists only while a server runs, which may have changed since the last open.
     */
    bool open(const char* inputName, const char* outputName) override;
    using MPMidiBase::open;

    /** Why the last open failed; empty when nothing failed. */
    const std::string& lastError() const { return lastError_; }

    /** Turns raw bytes of one event into a message and passes it on; returns false if ignored. */
    // [midi thread]
    bool deliver(const std::uint8_t* data, std::size_t size);

protected:
    bool LoLevelOpen() override;
    void LoLevelClose() override;
    void LoLevelEnumerate() override;

private:
    bool openSequencerInput(std::uint32_t handle);
    bool openJackInput();
    void sequencerLoop();

    // The sequencer side.
    snd_seq_t* seq_ = nullptr;
    int seqPort_ = -1;
    snd_midi_event_t* decoder_ = nullptr;
    std::thread seqThread_;
    /** Set by the interface thread to end the sequencer thread; relaxed, polled after each wait. */
    std::atomic<bool> seqQuit_{false};

    // The JACK side.
    jack_client_t* jack_ = nullptr;
    kv3midi::JackMidiState* jackState_ = nullptr;

    std::string lastError_;
};
