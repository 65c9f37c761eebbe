#include "plugin/VPA2Host.h"

namespace NV::VPA2
{

namespace
{

/**
 * How one argument of a host operation crosses the boundary: `C` is the library's flat type, `get`
 * gives the host's. Plain values pass as they are.
 */
template <typename P> struct Arg
{
    using C = P;
    Arg(C c, const void*) : value(c) {}
    P get() { return value; }
    P value;
};

/** A narrow string in becomes a text; null reads as empty. */
template <> struct Arg<const epiText&>
{
    using C = const char*;
    Arg(C c, const void*) : text(c != nullptr ? epiText(c) : epiText()) {}
    const epiText& get() { return text; }
    epiText text;
};

/**
 * A text out is written into the next of the rotating buffers, whose characters are handed out
 * through the library's pointer after the call, when it gave one.
 */
template <> struct Arg<epiText&>
{
    using C = const char**;
    Arg(C c, HostAudio* audio) : out(c), buffer(audio->nextTextBuffer()) {}
    Arg(const Arg&) = delete;
    Arg& operator=(const Arg&) = delete;
    ~Arg()
    {
        if (out != nullptr)
        {
            *out = buffer.c_str();
        }
    }
    epiText& get() { return buffer; }
    C out;
    epiText& buffer;
};

/** A number out is copied back after the call, whatever the answer, when the pointer isn't null. */
template <> struct Arg<std::int32_t&>
{
    using C = std::int32_t*;
    Arg(C c, const void*) : out(c) {}
    Arg(const Arg&) = delete;
    Arg& operator=(const Arg&) = delete;
    ~Arg()
    {
        if (out != nullptr)
        {
            *out = value;
        }
    }
    std::int32_t& get() { return value; }
    C out;
    std::int32_t value = 0;
};

/**
 * The table function for one virtual operation: finds the object through the table's last word and
 * calls the operation with each argument converted. The arguments' conversions end (and hand their
 * results out) when the call has returned.
 */
template <typename Table, auto Method> struct Thunk;

template <typename Table, typename Object, typename R, typename... P, R (Object::*Method)(P...)>
struct Thunk<Table, Method>
{
    static R call(Table* table, typename Arg<P>::C... c)
    {
        Object* object = static_cast<Object*>(table->object);
        return (object->*Method)(Arg<P>(c, object).get()...);
    }
};

template <auto Method> constexpr auto hostThunk = &Thunk<HostTable, Method>::call;
template <auto Method> constexpr auto audioThunk = &Thunk<HostAudioTable, Method>::call;

std::int32_t versionThunk(HostTable*)
{
    return kVersion;
}

HostAudioTable* hostAudioThunk(HostTable* t)
{
    HostAudio* audio = static_cast<Host*>(t->object)->getHostAudio();
    return audio != nullptr ? audio->table() : nullptr;
}

} // namespace

Host::Host()
{
    table_.version = versionThunk;
    table_.getTimeInfo = hostThunk<&Host::getTimeInfo>;
    table_.spare3 = hostThunk<&Host::spare3>;
    table_.spare4 = hostThunk<&Host::spare4>;
    table_.spare5 = hostThunk<&Host::spare5>;
    table_.spare6 = hostThunk<&Host::spare6>;
    table_.spare7 = hostThunk<&Host::spare7>;
    table_.spare8 = hostThunk<&Host::spare8>;
    table_.spare9 = hostThunk<&Host::spare9>;
    table_.hostAudio = hostAudioThunk;
    table_.object = this;
}

Host::~Host() = default;

bool Host::spare3(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                  std::uint32_t)
{
    return false;
}

void Host::spare7(std::uint32_t, std::uint32_t) {}

HostAudio::HostAudio()
{
    HostAudioTable& t = table_;
    t.slot1 = audioThunk<&HostAudio::slot1>;
    t.slot2 = audioThunk<&HostAudio::slot2>;
    t.slot3 = audioThunk<&HostAudio::slot3>;
    t.slot4 = audioThunk<&HostAudio::slot4>;
    t.slot5 = audioThunk<&HostAudio::slot5>;
    t.slot6 = audioThunk<&HostAudio::slot6>;
    t.slot7 = audioThunk<&HostAudio::slot7>;
    t.slot8 = audioThunk<&HostAudio::slot8>;
    t.slot9 = audioThunk<&HostAudio::slot9>;
    t.slot10 = audioThunk<&HostAudio::slot10>;
    t.slot11 = audioThunk<&HostAudio::slot11>;
    t.slot12 = audioThunk<&HostAudio::slot12>;
    t.slot13 = audioThunk<&HostAudio::slot13>;
    t.slot14 = audioThunk<&HostAudio::slot14>;
    t.slot15 = audioThunk<&HostAudio::slot15>;
    t.slot16 = audioThunk<&HostAudio::slot16>;
    t.slot17 = audioThunk<&HostAudio::slot17>;
    t.slot18 = audioThunk<&HostAudio::slot18>;
    t.slot19 = audioThunk<&HostAudio::slot19>;
    t.slot20 = audioThunk<&HostAudio::slot20>;
    t.slot21 = audioThunk<&HostAudio::slot21>;
    t.slot22 = audioThunk<&HostAudio::slot22>;
    t.slot23 = audioThunk<&HostAudio::slot23>;
    t.slot24 = audioThunk<&HostAudio::slot24>;
    t.slot25 = audioThunk<&HostAudio::slot25>;
    t.slot26 = audioThunk<&HostAudio::slot26>;
    t.slot27 = audioThunk<&HostAudio::slot27>;
    t.slot28 = audioThunk<&HostAudio::slot28>;
    t.slot29 = audioThunk<&HostAudio::slot29>;
    t.slot30 = audioThunk<&HostAudio::slot30>;
    t.slot31 = audioThunk<&HostAudio::slot31>;
    t.slot32 = audioThunk<&HostAudio::slot32>;
    t.slot33 = audioThunk<&HostAudio::slot33>;
    t.slot34 = audioThunk<&HostAudio::slot34>;
    t.slot35 = audioThunk<&HostAudio::slot35>;
    t.slot36 = audioThunk<&HostAudio::slot36>;
    t.slot37 = audioThunk<&HostAudio::slot37>;
    t.slot38 = audioThunk<&HostAudio::slot38>;
    t.object = this;
}

HostAudio::~HostAudio() = default;

epiText& HostAudio::nextTextBuffer()
{
    epiText& buffer = texts_.text[texts_.next];
    texts_.next = (texts_.next + 1) % kTextBuffers;
    buffer.clear();
    return buffer;
}

} // namespace NV::VPA2
