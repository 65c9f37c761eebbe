// A small library for the host's tests. One source is built into several libraries that differ
// by what they do wrong (see CMakeLists.txt); the well-behaved one multiplies its input by 0.5 and
// records every call it receives in a TestPluginLog that the tests read.

#include "plugin/VPA2.h"
#include "plugins/test/TestPluginLog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#ifndef KV3_TEST_VERSION
#define KV3_TEST_VERSION 13
#endif

#define KV3_EXPORT extern "C" __attribute__((visibility("default")))

namespace
{

using namespace NV::VPA2;

kv3test::TestPluginLog gLog;

void note(char code)
{
    const int n = gLog.callCount.fetch_add(1, std::memory_order_relaxed);
    if (n < kv3test::kMaxCalls)
    {
        gLog.calls[n] = code;
    }
}

/** The gain of the well-behaved library. */
constexpr float kGain = 0.5f;

struct TestInstance
{
    InstanceTable table; // first member: the table's address is the instance's
    int program = 0;
    std::string state;
};

TestInstance* fromTable(InstanceTable* table)
{
    return reinterpret_cast<TestInstance*>(table);
}

std::string stateText(int program)
{
    char text[160];
    std::snprintf(text, sizeof text,
                  "<?xml version=\"1.0\"?>\r\n<TestState>\r\n\t<Program>%d</Program>\r\n"
                  "\t<gain>0.5</gain>\r\n</TestState>\r\n",
                  program);
    return text;
}

void setInputChannelsThunk(InstanceTable*, std::int32_t channels)
{
    note('i');
    gLog.inputChannels = channels;
}

void setOutputChannelsThunk(InstanceTable*, std::int32_t channels)
{
    note('o');
    gLog.outputChannels = channels;
}

void initialiseThunk(InstanceTable*)
{
    note('I');
}

void terminateThunk(InstanceTable*)
{
    note('T');
}

void setBlockSizeThunk(InstanceTable*, std::int32_t frames, std::int32_t maxMidi)
{
    note('B');
    gLog.blockSize = frames;
    gLog.maxMidi = maxMidi;
}

void setSampleRateThunk(InstanceTable*, float hertz)
{
    note('R');
    gLog.sampleRate = hertz;
}

void startThunk(InstanceTable*)
{
    note('S');
}

void stopThunk(InstanceTable*)
{
    note('s');
}

void processThunk(InstanceTable*, float* const* inputs, float* const* outputs, std::int32_t frames,
                  std::int32_t* flags)
{
    for (int c = 0; c < 2; ++c)
    {
        for (std::int32_t i = 0; i < frames; ++i)
        {
            outputs[c][i] = inputs[c][i] * kGain;
        }
    }
    gLog.lastFlag.store(flags != nullptr ? *flags : -2, std::memory_order_relaxed);
    gLog.lastFrames.store(frames, std::memory_order_relaxed);
    gLog.processCount.fetch_add(1, std::memory_order_relaxed);
}

void sendMidiThunk(InstanceTable* table, const MidiRecord* events, std::int32_t count)
{
    note('M');
    if (gLog.midiBatchCount < kv3test::kMaxBatches)
    {
        gLog.midiBatches[gLog.midiBatchCount] = count;
    }
    ++gLog.midiBatchCount;
    if (count > 0)
    {
        if (gLog.midiEvents.load(std::memory_order_relaxed) == 0)
        {
            gLog.firstMessage = events[0].message;
        }
        gLog.lastMessage = events[count - 1].message;
        gLog.lastPosition = events[count - 1].position;
    }
    gLog.midiEvents.fetch_add(count, std::memory_order_relaxed);
    for (std::int32_t i = 0; i < count; ++i)
    {
        if ((events[i].message & 0xF0u) == 0xC0u)
        {
            fromTable(table)->program = static_cast<int>((events[i].message >> 8) & 0x7Fu);
        }
    }
}

void setStateThunk(InstanceTable* table, const void* data, std::int32_t size)
{
    note('W');
    gLog.lastStateSize = size;
    if (size > 0 && size <= kv3test::kMaxStateBytes)
    {
        std::memcpy(gLog.lastState, data, static_cast<std::size_t>(size));
        const std::string text(static_cast<const char*>(data), static_cast<std::size_t>(size));
        const auto at = text.find("<Program>");
        if (at != std::string::npos)
        {
            fromTable(table)->program = std::atoi(text.c_str() + at + 9);
        }
    }
}

std::int32_t getStateThunk(InstanceTable* table, void** data)
{
    note('G');
    TestInstance* self = fromTable(table);
    self->state = stateText(self->program);
    *data = self->state.data();
    return static_cast<std::int32_t>(self->state.size());
}

void freeStateThunk(InstanceTable* table)
{
    note('F');
    fromTable(table)->state.clear();
}

void prepareThunk(PluginTable*)
{
    note('p');
}

InstanceTable* createInstanceThunk(PluginTable*, HostTable* host, std::int32_t)
{
    note('C');
    gLog.hostTableVersion = host->version(host);
    gLog.timeInfoResult = host->getTimeInfo(host, &gLog.tempo, &gLog.timeA, &gLog.timeB);
    HostAudioTable* audio = host->hostAudio(host);
    if (audio != nullptr)
    {
        const char* text = nullptr;
        gLog.hostAudioResult = audio->slot15(audio, &text, 0);
        if (text != nullptr)
        {
            std::snprintf(gLog.hostAudioText, sizeof gLog.hostAudioText, "%s", text);
        }
    }
#ifdef KV3_TEST_NULL_INSTANCE
    constexpr bool kNullInstance = true;
#else
    constexpr bool kNullInstance = false;
#endif
    if (kNullInstance)
    {
        return nullptr;
    }
    auto* instance = new TestInstance{};
    InstanceTable& t = instance->table;
    t.setInputChannels = setInputChannelsThunk;
    t.setOutputChannels = setOutputChannelsThunk;
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
    ++gLog.liveInstances;
    return &instance->table;
}

void releaseInstanceThunk(PluginTable*, InstanceTable* instance)
{
    note('D');
    if (instance != nullptr)
    {
        --gLog.liveInstances;
        delete fromTable(instance);
    }
}

EditorTable* createEditorThunk(PluginTable*, InstanceTable*)
{
    note('E');
    return nullptr;
}

void audioSuspendedThunk(ServiceTable*)
{
    note('u');
}

void audioResumedThunk(ServiceTable*)
{
    note('U');
}

ServiceTable gService{audioSuspendedThunk, audioResumedThunk};

ServiceTable* getServiceThunk(PluginTable*)
{
    note('V');
    return &gService;
}

[[maybe_unused]] PluginTable gRoot{prepareThunk, createInstanceThunk, releaseInstanceThunk, createEditorThunk,
                                   getServiceThunk};

} // namespace

#ifndef KV3_TEST_NO_ACQUIRE
KV3_EXPORT PluginTable* VPA2Acquire(std::int32_t hostVersion, std::int32_t* pluginVersion)
{
    note('a');
    gLog.hostVersionSeen = hostVersion;
    *pluginVersion = KV3_TEST_VERSION;
#ifdef KV3_TEST_REJECT
    return nullptr;
#else
    return &gRoot;
#endif
}
#endif

#ifndef KV3_TEST_NO_RELEASE
KV3_EXPORT void VPA2Release()
{
    note('r');
}
#endif

/** Forgets every call so far (the library stays loaded between tests). */
KV3_EXPORT void kv3TestPluginReset()
{
    gLog.~TestPluginLog();
    new (&gLog) kv3test::TestPluginLog();
}

/** The record of calls, for the tests. */
KV3_EXPORT kv3test::TestPluginLog* kv3TestPluginLog()
{
    return &gLog;
}
