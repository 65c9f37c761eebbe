#pragma once

// The flat tables that cross the boundary between the host and an amplifier library. Both sides
// include this header and nothing else of each other: a library never links the host. Every
// table is a plain structure of function pointers; each function takes the address of its own
// table first, so that a side can find its object behind the table.

#include <cstdint>

namespace NV::VPA2
{

/** The one version both sides state in the handshake; the comparison is for equality. */
constexpr std::int32_t kVersion = 13;

/** The largest number of MIDI events the host sends in one `sendMidi` call. */
constexpr std::int32_t kMaxMidiBatch = 1000;

/** A slot of a table that this host neither fills nor calls. */
using Reserved = void (*)();

/**
 * One MIDI event as `sendMidi` delivers it: the host's two words (frame position, then up to four
 * raw bytes with the status byte lowest), followed by eight bytes the host leaves as they were.
 */
struct MidiRecord
{
    std::uint32_t position;
    std::uint32_t message;
    std::uint32_t reserved[2];
};
static_assert(sizeof(MidiRecord) == 16, "a MIDI record is 16 bytes on both sides");

struct HostTable;
struct HostAudioTable;

/**
 * The host's root table as the library sees it. Ten functions, then the address of the host
 * object behind them (the table's last word).
 */
struct HostTable
{
    /** Returns 13. */
    std::int32_t (*version)(HostTable* self);
    /** Tempo in beats per minute and the two transport values; true when they were filled. */
    bool (*getTimeInfo)(HostTable* self, float* tempo, double* a, double* b);
    bool (*spare3)(HostTable* self, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                   std::uint32_t, std::uint32_t);
    std::int32_t (*spare4)(HostTable* self, std::uint32_t);
    std::int32_t (*spare5)(HostTable* self, std::uint32_t);
    std::int32_t (*spare6)(HostTable* self, std::uint32_t, float, float);
    void (*spare7)(HostTable* self, std::uint32_t, std::uint32_t);
    std::int32_t (*spare8)(HostTable* self, std::uint32_t, std::uint32_t, std::uint32_t);
    std::int32_t (*spare9)(HostTable* self);
    /** The audio side's table, or null when the host has none. */
    HostAudioTable* (*hostAudio)(HostTable* self);
    /** The host object that owns this table. */
    void* object;
};

/**
 * The host's audio table: 38 functions, then the address of the host object behind them. Texts go
 * in as narrow strings and come out through a `const char**` that stays valid until the host next
 * uses the same text buffer (it has four, used in turn).
 */
struct HostAudioTable
{
    bool (*slot1)(HostAudioTable* self, const char* text, std::int32_t);
    bool (*slot2)(HostAudioTable* self, const char* text, std::int32_t);
    bool (*slot3)(HostAudioTable* self, std::int32_t);
    bool (*slot4)(HostAudioTable* self, std::int32_t);
    bool (*slot5)(HostAudioTable* self, const char* text, std::int32_t, std::int32_t);
    bool (*slot6)(HostAudioTable* self, const char* text, std::int32_t);
    bool (*slot7)(HostAudioTable* self);
    bool (*slot8)(HostAudioTable* self);
    bool (*slot9)(HostAudioTable* self);
    void (*slot10)(HostAudioTable* self);
    void (*slot11)(HostAudioTable* self, std::int32_t);
    bool (*slot12)(HostAudioTable* self);
    void (*slot13)(HostAudioTable* self);
    std::int32_t (*slot14)(HostAudioTable* self);
    bool (*slot15)(HostAudioTable* self, const char** text, std::int32_t);
    bool (*slot16)(HostAudioTable* self);
    std::int32_t (*slot17)(HostAudioTable* self, std::int32_t);
    bool (*slot18)(HostAudioTable* self, std::int32_t, std::int32_t, const char** text);
    std::int32_t (*slot19)(HostAudioTable* self, std::int32_t);
    bool (*slot20)(HostAudioTable* self, std::int32_t, std::int32_t, const char** text);
    std::int32_t (*slot21)(HostAudioTable* self);
    bool (*slot22)(HostAudioTable* self, std::int32_t, std::int32_t* result);
    std::int32_t (*slot23)(HostAudioTable* self);
    bool (*slot24)(HostAudioTable* self, std::int32_t, std::int32_t* result);
    std::int32_t (*slot25)(HostAudioTable* self, std::int32_t);
    bool (*slot26)(HostAudioTable* self, std::int32_t, std::int32_t, const char** text);
    bool (*slot27)(HostAudioTable* self, std::int32_t);
    bool (*slot28)(HostAudioTable* self, const char** text);
    bool (*slot29)(HostAudioTable* self, std::int32_t, const char** text);
    bool (*slot30)(HostAudioTable* self, std::int32_t* result);
    bool (*slot31)(HostAudioTable* self, std::int32_t* result);
    bool (*slot32)(HostAudioTable* self, std::int32_t, std::int32_t, const char** text);
    bool (*slot33)(HostAudioTable* self, std::int32_t, const char** text);
    bool (*slot34)(HostAudioTable* self);
    bool (*slot35)(HostAudioTable* self, std::int32_t, std::int32_t* result);
    void (*slot36)(HostAudioTable* self, std::int32_t);
    float (*slot37)(HostAudioTable* self);
    void (*slot38)(HostAudioTable* self, std::int32_t);
    /** The host object that owns this table. */
    void* object;
};

struct InstanceTable;
struct EditorTable;

/** Kept by the host for the life of the library: told when the audio device stops and resumes. */
struct ServiceTable
{
    void (*audioSuspended)(ServiceTable* self);
    void (*audioResumed)(ServiceTable* self);
};

/** The library's root table, returned by `VPA2Acquire`. */
struct PluginTable
{
    void (*prepare)(PluginTable* self);
    /** A new instance that talks back through `host`; null when none can be made. */
    InstanceTable* (*createInstance)(PluginTable* self, HostTable* host, std::int32_t reserved);
    void (*releaseInstance)(PluginTable* self, InstanceTable* instance);
    /** The instance's editor, or null when it has none. */
    EditorTable* (*createEditor)(PluginTable* self, InstanceTable* instance);
    ServiceTable* (*getService)(PluginTable* self);
};

/**
 * One instance of the library. The positions of the functions are fixed (counting from 1); the
 * host uses only those named here. `process` and `sendMidi` are called on the audio thread, the
 * others on the interface thread.
 */
struct InstanceTable
{
    Reserved reserved1;
    Reserved reserved2;
    Reserved reserved3;
    Reserved reserved4;
    Reserved reserved5;
    void (*setInputChannels)(InstanceTable* self, std::int32_t channels);
    void (*setOutputChannels)(InstanceTable* self, std::int32_t channels);
    void (*initialise)(InstanceTable* self);
    void (*terminate)(InstanceTable* self);
    /** The largest block in frames and the largest MIDI batch the host will send. */
    void (*setBlockSize)(InstanceTable* self, std::int32_t frames, std::int32_t maxMidiEvents);
    void (*setSampleRate)(InstanceTable* self, float hertz);
    void (*start)(InstanceTable* self);
    void (*stop)(InstanceTable* self);
    Reserved reserved14;
    Reserved reserved15;
    /** Two input and two output channel pointers of `frames` samples; `flags` points at a 0. */
    void (*process)(InstanceTable* self, float* const* inputs, float* const* outputs, std::int32_t frames,
                    std::int32_t* flags);
    void (*sendMidi)(InstanceTable* self, const MidiRecord* events, std::int32_t count);
    Reserved reserved18;
    Reserved reserved19;
    Reserved reserved20;
    Reserved reserved21;
    Reserved reserved22;
    Reserved reserved23;
    Reserved reserved24;
    Reserved reserved25;
    Reserved reserved26;
    Reserved reserved27;
    Reserved reserved28;
    Reserved reserved29;
    /** Restores a state the library gave out before. */
    void (*setState)(InstanceTable* self, const void* data, std::int32_t size);
    /** Points `data` at the present state and returns its size in bytes; valid until `freeState`. */
    std::int32_t (*getState)(InstanceTable* self, void** data);
    void (*freeState)(InstanceTable* self);
};

/** The editor of one instance; it draws itself into a window the host gives it. */
struct EditorTable
{
    Reserved reserved1;
    void (*getSize)(EditorTable* self, std::int32_t* width, std::int32_t* height);
    void (*setPosition)(EditorTable* self, std::int32_t x, std::int32_t y);
    Reserved reserved4;
    Reserved reserved5;
    /** `parent` points at the native handle of the window to draw into. */
    void (*open)(EditorTable* self, void* parent);
    void (*close)(EditorTable* self);
};

/** `VPA2Acquire(hostVersion, &pluginVersion)`: the root table, or null when the library refuses. */
using AcquireFunction = PluginTable* (*)(std::int32_t hostVersion, std::int32_t* pluginVersion);
/** `VPA2Release()`: the library lets go of everything `VPA2Acquire` gave out. */
using ReleaseFunction = void (*)();

} // namespace NV::VPA2
