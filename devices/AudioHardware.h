#pragma once

#include "devices/AudioHardwareDelegate.h"
#include "devices/BusyMeter.h"
#include "devices/MPAudio.h"
#include "devices/MPMidi.h"
#include "devices/MidiEventQueue.h"
#include "engine/graph/MidiEvent.h"
#include "epi/epiObject.h"

#include <atomic>
#include <cstdint>
#include <vector>

class Manager;

namespace Korvalind3Host
{

class HostSettings;

/**
 * The one object through which the program touches audio and MIDI hardware. It brings a device up
 * from the stored settings, hands every device block to the `Manager`, retries a lost or refused
 * device once a second without ever blocking the interface, and carries MIDI bytes from the MIDI
 * thread to the audio thread through a lock-free ring.
 *
 * States, told by two flags: Stopped (neither), Running (`running_`), Waiting (`waiting_`). Only
 * `poll` moves between them, except `stopHardware` and `waitForHardware`.
 */
class AudioHardware : public MPAudio, public epiApplicationObject, public MPMidi
{
public:
    /** Entries into the retry state after which the user is told, once per run of failures. */
    static constexpr std::int32_t kLostAfterAttempts = 5;
    /** Seconds between two attempts. */
    static constexpr double kRetrySeconds = 1.0;

    AudioHardware();
    ~AudioHardware() override;

    /** The engine that gets every block; not owned. */
    // [ui thread, device stopped]
    void setManager(Manager* manager) { manager_ = manager; }
    /** The settings the start sequence reads and, for the buffer size, writes; not owned. */
    // [ui thread]
    void setSettings(HostSettings* settings) { settings_ = settings; }
    /** The rate the project wants, hertz. */
    void setProjectSampleRate(std::uint32_t rate) { projectSampleRate_ = rate; }
    std::uint32_t projectSampleRate() const { return projectSampleRate_; }
    /** Stores the delegate; a new one is told `hardwareStopped()` at once. */
    // [ui thread]
    void setDelegate(AudioHardwareDelegate* delegate);
    /** The native handle of the main window, handed to the driver at each start. */
    void setWindowHandle(void* handle) { windowHandle_ = handle; }

    /** The whole start sequence; only `poll` calls it. @returns whether the device runs */
    // [ui thread]
    virtual bool startHardware();
    /** Closes audio and MIDI, resets the busy meter, goes to Stopped and tells the delegate. */
    // [ui thread]
    void stopHardware();
    /** Starts a new run of attempts: the first comes from `poll` a second later. */
    // [ui thread]
    void waitForHardware();
    /** One step of the state machine; called 30 times a second. */
    // [ui thread]
    void poll();
    /** See BusyMeter::readBusyLevel. */
    // [ui thread]
    bool readBusyLevel(int* percent) { return busyMeter_.readBusyLevel(percent); }
    /** Whether a block carried MIDI since the last call; clears it. */
    // [ui thread]
    bool takeMidiActivity() { return midiActivity_.exchange(false, std::memory_order_relaxed); }

    bool isRunning() const { return running_; }
    bool isWaiting() const { return waiting_; }
    std::int32_t waitAttempts() const { return waitAttempts_; }
    /** The round trip of a take in frames, as the last start found it: the device's input plus
        output latency, which hold its periods. */
    std::uint32_t roundTripLatency() const { return roundTripLatency_; }
    BusyMeter& busyMeter() { return busyMeter_; }
    /** The MIDI handed to the Manager with the last block. */
    // [audio thread]
    const MidiEventBlock& midiBlock() const { return midiBlock_; }
    /** MIDI events dropped because the ring was full. */
    std::uint32_t midiDropped() const { return midiQueue_.dropped(); }

    /** The driver asks for a reset (code 1): only a flag is set here. @returns code - 1 */
    // [any thread]
    int notify(int code) override;
    /** The block callback: MIDI ring to `midiBlock_`, then `Manager::processBlock`, then the meter. */
    // [audio thread]
    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t frames) override;
    /** A short message from the MIDI input: the clock byte and anything of five bytes or more are
        dropped, the rest is queued as one 32-bit word. */
    // [midi thread]
    void midiReceived(const MidiMessage* message) override;

    /** The buffer size rule: the wanted size if listed; 2048 for an empty list or if listed; else
        the first entry. */
    static std::uint32_t pickBufferSize(const std::vector<std::uint32_t>& sizes, std::uint32_t wanted);

protected:
    /** The application's clock in seconds; the retry times are measured on it. */
    virtual double applicationTime() const;
    /** Where the developer's traces go ("Queue full!"). */
    virtual void debugPrint(const char* text);
    /** Writes the settings after the start sequence changed the buffer size: to the store, at once. */
    // [ui thread]
    virtual void saveSettings(HostSettings& settings);

private:
    void enterRetryState();
    /**
     * Points the settings at a device of a technology with its first two channels each way: the
     * named device, or the technology's first when `device` is null.
     * @returns false when the technology has no such device
     */
    bool pointAtSystemDevice(HostSettings& settings, const char* technology, const char* device);

    Manager* manager_ = nullptr;
    BusyMeter busyMeter_;
    MidiEventQueue midiQueue_;
    AudioHardwareDelegate* delegate_ = nullptr;
    double retryTime_ = 0.0;
    bool running_ = false;
    bool waiting_ = false;
    /** Set by the driver's thread, taken by `poll`: relaxed, it is a command flag. */
    std::atomic<bool> resetRequested_{false};
    std::uint32_t projectSampleRate_ = 44100;
    std::int32_t waitAttempts_ = 0;
    MidiEventBlock midiBlock_;
    /** Set by the audio thread, taken by the interface: relaxed, it is a meter. */
    std::atomic<bool> midiActivity_{false};

    HostSettings* settings_ = nullptr;
    void* windowHandle_ = nullptr;
    std::uint32_t roundTripLatency_ = 0;
    /** Dropped MIDI events already reported by `poll`. */
    std::uint32_t droppedReported_ = 0;
};

} // namespace Korvalind3Host
