#pragma once

#include "epi/epiText.h"
#include "plugin/DynamicLibrary.h"
#include "plugin/VPA2.h"

#include <cstdint>
#include <memory>

namespace NV::VPA2
{

class HostAudio;

/**
 * An opened amplifier library: the module and its two functions of the handshake. The module
 * closes itself, so every early return of a load lets go of it.
 */
struct Library
{
    DynamicLibrary module;
    AcquireFunction acquire = nullptr;
    ReleaseFunction release = nullptr;
};

/**
 * The host's root object for a library. It publishes `HostTable`, whose functions find this object
 * through the table's last word and call the virtual operations below. The spares have no meaning in
 * this host; those without a default here are answered by the derived class.
 */
class Host
{
public:
    Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    virtual ~Host();

    /** Tempo in BPM and the two transport values. */
    // [any thread]
    virtual bool getTimeInfo(float* tempo, double* a, double* b) = 0;
    virtual bool spare3(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                        std::uint32_t, std::uint32_t);
    virtual std::int32_t spare4(std::uint32_t) = 0;
    virtual std::int32_t spare5(std::uint32_t) = 0;
    virtual std::int32_t spare6(std::uint32_t, float, float) = 0;
    virtual void spare7(std::uint32_t, std::uint32_t);
    virtual std::int32_t spare8(std::uint32_t, std::uint32_t, std::uint32_t) = 0;
    virtual std::int32_t spare9() = 0;
    /** The audio side that the library may talk to, or null. */
    // [any thread]
    virtual HostAudio* getHostAudio() = 0;

    /** The table handed to `createInstance`. */
    HostTable* table() { return &table_; }
    /** The library's root table; null when nothing is loaded. */
    PluginTable* plugin() const { return plugin_; }

protected:
    /** The library's root table, null when nothing is loaded. */
    PluginTable* plugin_ = nullptr;
    /** The table the library sees; `table_.object` is this object. */
    HostTable table_{};
    /** The opened library, null when none. */
    std::unique_ptr<Library> library_;
};

/**
 * The audio side's object. Its table converts between the flat types of the boundary and the host's:
 * narrow strings in become texts, texts out are handed over as characters that live in one of four
 * buffers (used in turn) until that buffer is used again, and result pointers are filled only when
 * they aren't null. There is no lock on the buffers: a library calls from one thread at a time.
 */
class HostAudio
{
public:
    /** Number of text buffers that results rotate through. */
    static constexpr int kTextBuffers = 4;

    HostAudio();
    HostAudio(const HostAudio&) = delete;
    HostAudio& operator=(const HostAudio&) = delete;
    virtual ~HostAudio();

    virtual bool slot1(const epiText& text, std::int32_t) = 0;
    virtual bool slot2(const epiText& text, std::int32_t) = 0;
    virtual bool slot3(std::int32_t) = 0;
    virtual bool slot4(std::int32_t) = 0;
    virtual bool slot5(const epiText& text, std::int32_t, std::int32_t) = 0;
    virtual bool slot6(const epiText& text, std::int32_t) = 0;
    virtual bool slot7() = 0;
    virtual bool slot8() = 0;
    virtual bool slot9() = 0;
    virtual void slot10() = 0;
    virtual void slot11(std::int32_t) = 0;
    virtual bool slot12() = 0;
    virtual void slot13() = 0;
    virtual std::int32_t slot14() = 0;
    virtual bool slot15(epiText& text, std::int32_t) = 0;
    virtual bool slot16() = 0;
    virtual std::int32_t slot17(std::int32_t) = 0;
    virtual bool slot18(std::int32_t, std::int32_t, epiText& text) = 0;
    virtual std::int32_t slot19(std::int32_t) = 0;
    virtual bool slot20(std::int32_t, std::int32_t, epiText& text) = 0;
    virtual std::int32_t slot21() = 0;
    virtual bool slot22(std::int32_t, std::int32_t& result) = 0;
    virtual std::int32_t slot23() = 0;
    virtual bool slot24(std::int32_t, std::int32_t& result) = 0;
    virtual std::int32_t slot25(std::int32_t) = 0;
    virtual bool slot26(std::int32_t, std::int32_t, epiText& text) = 0;
    virtual bool slot27(std::int32_t) = 0;
    virtual bool slot28(epiText& text) = 0;
    virtual bool slot29(std::int32_t, epiText& text) = 0;
    virtual bool slot30(std::int32_t& result) = 0;
    virtual bool slot31(std::int32_t& result) = 0;
    virtual bool slot32(std::int32_t, std::int32_t, epiText& text) = 0;
    virtual bool slot33(std::int32_t, epiText& text) = 0;
    virtual bool slot34() = 0;
    virtual bool slot35(std::int32_t, std::int32_t& result) = 0;
    virtual void slot36(std::int32_t) = 0;
    virtual float slot37() = 0;
    virtual void slot38(std::int32_t) = 0;

    /** The table that the library receives. */
    HostAudioTable* table() { return &table_; }

    /** The next text buffer in turn, emptied (used by the table's functions). */
    epiText& nextTextBuffer();

private:
    HostAudioTable table_{};
    struct TextBuffers
    {
        epiText text[kTextBuffers];
        int next = 0;
    } texts_;
};

} // namespace NV::VPA2
