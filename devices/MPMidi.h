#pragma once

#include <cstdint>
#include <memory>
#include <vector>

/** One entry of a MIDI device list. */
struct MPMidiDevice
{
    char name[512] = {};      ///< zero-terminated
    std::uint32_t handle = 0; ///< what the backend needs to open the device
};

/** A raw MIDI message: a byte count, then the bytes, status first. Nothing here parses MIDI. */
struct MidiMessage
{
    std::uint8_t length = 0;
    std::uint8_t bytes[255] = {};
};

/**
 * The contract of MIDI input and output. Messages arrive through `midiReceived` on the system's
 * MIDI thread, which must return quickly. Failures are false results.
 */
class MPMidiInterface
{
public:
    virtual ~MPMidiInterface() = default;
    /**
     * Opens devices by index (-1 none, -2 the first). Refused when already open; with both -1
     * nothing opens and the result is false.
     */
    virtual bool open(int inputDevice, int outputDevice) = 0;
    /** Opens by name: a null name is -1 (none), a name not in the list -2 (the first device). */
    virtual bool open(const char* inputName, const char* outputName) = 0;
    virtual void close() = 0;
    virtual bool isOpen() = 0;
    /** Fills both device lists; unless `force`, only once. */
    virtual void enumerateDevices(bool force) = 0;
    virtual const std::vector<MPMidiDevice>& outputDevices() = 0;
    virtual const std::vector<MPMidiDevice>& inputDevices() = 0;
    /** Finds a device by its exact name; writes its index, or -1 when not found. */
    virtual bool findDevice(const char* name, bool isInput, int* index) = 0;
    /** Sends a message to the open output device, if any. */
    virtual void send(const MidiMessage& message) = 0;
    /** A message from the open input device. */
    // [midi thread]
    virtual void midiReceived(const MidiMessage* message) = 0;
};

/**
 * Device lists and the open state, common to every MIDI backend. A backend adds the `LoLevel...`
 * operations and calls `midiReceived` with each short message; this class passes it to its client,
 * or with no client prints it as a developer's trace.
 */
class MPMidiBase : public MPMidiInterface
{
public:
    MPMidiBase() = default;
    ~MPMidiBase() override = default;
    MPMidiBase(const MPMidiBase&) = delete;
    MPMidiBase& operator=(const MPMidiBase&) = delete;

    bool open(int inputDevice, int outputDevice) override;
    bool open(const char* inputName, const char* outputName) override;
    void close() override;
    bool isOpen() override { return open_; }
    void enumerateDevices(bool force) override;
    const std::vector<MPMidiDevice>& outputDevices() override { return outputDevices_; }
    const std::vector<MPMidiDevice>& inputDevices() override { return inputDevices_; }
    bool findDevice(const char* name, bool isInput, int* index) override;
    /** This class has no output; a backend with one overrides it. */
    void send(const MidiMessage&) override {}
    // [midi thread]
    void midiReceived(const MidiMessage* message) override;

    /** The object that hears `midiReceived`; null prints the messages. */
    // [ui thread]
    void setClient(MPMidiInterface* client) { client_ = client; }
    int inputDevice() const { return inputDevice_; }
    int outputDevice() const { return outputDevice_; }

protected:
    virtual bool LoLevelOpen() = 0;
    virtual void LoLevelClose() = 0;
    virtual void LoLevelEnumerate() = 0;

    /** Resolves a stored index as the system does: -2 or past the end is 0. */
    static int firstIfUnknown(int index, std::size_t count)
    {
        return (index < 0 || static_cast<std::size_t>(index) >= count) ? 0 : index;
    }

    std::vector<MPMidiDevice> outputDevices_;
    std::vector<MPMidiDevice> inputDevices_;
    int inputDevice_ = -1;
    int outputDevice_ = -1;
    bool open_ = false;
    bool enumerated_ = false;
    MPMidiInterface* client_ = nullptr;
};

/**
 * The MIDI object clients use: it owns the system's MIDI backend, if one was built, and forwards
 * to it. The backend's client is this object; `midiReceived` is what a subclass overrides.
 */
class MPMidi : public MPMidiInterface
{
public:
    MPMidi();
    ~MPMidi() override;
    MPMidi(const MPMidi&) = delete;
    MPMidi& operator=(const MPMidi&) = delete;

    bool open(int inputDevice, int outputDevice) override;
    bool open(const char* inputName, const char* outputName) override;
    void close() override;
    bool isOpen() override;
    void enumerateDevices(bool force) override;
    const std::vector<MPMidiDevice>& outputDevices() override;
    const std::vector<MPMidiDevice>& inputDevices() override;
    bool findDevice(const char* name, bool isInput, int* index) override;
    void send(const MidiMessage& message) override;
    /** A message from the input; this class drops it. */
    // [midi thread]
    void midiReceived(const MidiMessage* message) override;

    /** The backend, null when none was built. */
    MPMidiBase* midiBackend() const { return backend_.get(); }

private:
    std::unique_ptr<MPMidiBase> backend_;
    const std::vector<MPMidiDevice> noDevices_{};
};

/** The system's MIDI backend, or null when it wasn't built. */
std::unique_ptr<MPMidiBase> newMidiBackend();
