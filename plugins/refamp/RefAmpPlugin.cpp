// "KV3 Reference Amp" as a VPA2 library: the tables around RefAmp. The host makes one instance
// per track; each owns its amp and the text of its last state handed out.

#include "plugin/VPA2.h"
#include "plugins/refamp/RefAmp.h"

#include <cstdint>
#include <new>
#include <string>

#define KV3_EXPORT extern "C" __attribute__((visibility("default")))

namespace
{

using namespace NV::VPA2;

struct Instance
{
    InstanceTable table; // first: the table's address is the instance's
    refamp::RefAmp amp;
    HostTable* host = nullptr;
    std::string state;
    float sampleRate = 0.0f;
    std::int32_t blockSize = 0;
    bool running = false;
};

Instance* instanceOf(InstanceTable* table)
{
    return reinterpret_cast<Instance*>(table);
}

void setChannelsThunk(InstanceTable*, std::int32_t)
{
    // Always two in and two out.
}

void initialiseThunk(InstanceTable*) {}

void terminateThunk(InstanceTable* table)
{
    instanceOf(table)->running = false;
}

void setBlockSizeThunk(InstanceTable* table, std::int32_t frames, std::int32_t)
{
    // The amp works in chunks of its own and takes blocks of any length.
    instanceOf(table)->blockSize = frames;
}

void setSampleRateThunk(InstanceTable* table, float hertz)
{
    Instance* self = instanceOf(table);
    if (hertz > 0.0f && hertz != self->sampleRate)
    {
        self->sampleRate = hertz;
        self->amp.setSampleRate(hertz);
    }
}

void startThunk(InstanceTable* table)
{
    Instance* self = instanceOf(table);
    if (!self->running)
    {
        self->amp.reset();
    }
    self->running = true;
}

void stopThunk(InstanceTable* table)
{
    instanceOf(table)->running = false;
}

void processThunk(InstanceTable* table, float* const* inputs, float* const* outputs, std::int32_t frames,
                  std::int32_t*)
{
    if (inputs == nullptr || outputs == nullptr || frames <= 0)
    {
        return;
    }
    instanceOf(table)->amp.process(inputs, outputs, frames);
}

void sendMidiThunk(InstanceTable* table, const MidiRecord* events, std::int32_t count)
{
    Instance* self = instanceOf(table);
    for (std::int32_t i = 0; events != nullptr && i < count; ++i)
    {
        self->amp.handleMidi(events[i].message);
    }
}

void setStateThunk(InstanceTable* table, const void* data, std::int32_t size)
{
    if (data != nullptr && size > 0)
    {
        instanceOf(table)->amp.setStateText(
            std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size)));
    }
}

std::int32_t getStateThunk(InstanceTable* table, void** data)
{
    Instance* self = instanceOf(table);
    self->state = self->amp.stateText();
    if (data != nullptr)
    {
        *data = self->state.data();
    }
    return static_cast<std::int32_t>(self->state.size());
}

void freeStateThunk(InstanceTable* table)
{
    Instance* self = instanceOf(table);
    self->state.clear();
    self->state.shrink_to_fit();
}

void prepareThunk(PluginTable*) {}

InstanceTable* createInstanceThunk(PluginTable*, HostTable* host, std::int32_t)
{
    auto* self = new (std::nothrow) Instance{};
    if (self == nullptr)
    {
        return nullptr;
    }
    self->host = host;
    InstanceTable& t = self->table;
    t.setInputChannels = setChannelsThunk;
    t.setOutputChannels = setChannelsThunk;
    t.initialise = initialiseThunk;
    t.terminate = terminateThunk;
    t.setBlockSize = setBlockSizeThunk;
    t.setSampleRate = setSampleRateThunk;
    t.start = startThunk;
    t.stop = stopThunk;
    t.process = processThunk;
    t.sendMidi = sendMidiThunk;
    t.setState = setStateThunk;
    t.getState = getStateThunk;
    t.freeState = freeStateThunk;
    return &self->table;
}

void releaseInstanceThunk(PluginTable*, InstanceTable* table)
{
    delete instanceOf(table);
}

EditorTable* createEditorThunk(PluginTable*, InstanceTable*)
{
    // The editor comes with the interface; until then the amp is played by programs and MIDI.
    return nullptr;
}

void audioSuspendedThunk(ServiceTable*) {}
void audioResumedThunk(ServiceTable*) {}

ServiceTable gService{audioSuspendedThunk, audioResumedThunk};

ServiceTable* getServiceThunk(PluginTable*)
{
    return &gService;
}

PluginTable gRoot{prepareThunk, createInstanceThunk, releaseInstanceThunk, createEditorThunk,
                  getServiceThunk};

} // namespace

/** The handshake: this library speaks version 13 and nothing else. */
KV3_EXPORT PluginTable* VPA2Acquire(std::int32_t hostVersion, std::int32_t* pluginVersion)
{
    if (pluginVersion != nullptr)
    {
        *pluginVersion = kVersion;
    }
    return hostVersion == kVersion ? &gRoot : nullptr;
}

KV3_EXPORT void VPA2Release()
{
    // Instances belong to the host, which releases each one; nothing else is held.
}
