#include "plugin/VPA2Host.h"

namespace NV::VPA2
{

namespace
{

Host* hostOf(HostTable* table)
{
    return static_cast<Host*>(table->object);
}

std::int32_t versionThunk(HostTable*)
{
    return kVersion;
}

bool getTimeInfoThunk(HostTable* t, float* tempo, double* a, double* b)
{
    return hostOf(t)->getTimeInfo(tempo, a, b);
}

bool spare3Thunk(HostTable* t, std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                 std::uint32_t e, std::uint32_t f, std::uint32_t g)
{
    return hostOf(t)->spare3(a, b, c, d, e, f, g);
}

std::int32_t spare4Thunk(HostTable* t, std::uint32_t a)
{
    return hostOf(t)->spare4(a);
}

std::int32_t spare5Thunk(HostTable* t, std::uint32_t a)
{
    return hostOf(t)->spare5(a);
}

std::int32_t spare6Thunk(HostTable* t, std::uint32_t a, float x, float y)
{
    return hostOf(t)->spare6(a, x, y);
}

void spare7Thunk(HostTable* t, std::uint32_t a, std::uint32_t b)
{
    hostOf(t)->spare7(a, b);
}

std::int32_t spare8Thunk(HostTable* t, std::uint32_t a, std::uint32_t b, std::uint32_t c)
{
    return hostOf(t)->spare8(a, b, c);
}

std::int32_t spare9Thunk(HostTable* t)
{
    return hostOf(t)->spare9();
}

HostAudioTable* hostAudioThunk(HostTable* t)
{
    HostAudio* audio = hostOf(t)->getHostAudio();
    return audio != nullptr ? audio->table() : nullptr;
}

HostAudio* audioOf(HostAudioTable* table)
{
    return static_cast<HostAudio*>(table->object);
}

/** A narrow string from the library as a host text; null reads as empty. */
epiText textOf(const char* chars)
{
    return chars != nullptr ? epiText(chars) : epiText();
}

/** Hands out a buffer's characters through the library's pointer, when it gave one. */
void handOut(const char** out, const epiText& buffer)
{
    if (out != nullptr)
    {
        *out = buffer.c_str();
    }
}

void copyBack(std::int32_t* out, std::int32_t value)
{
    if (out != nullptr)
    {
        *out = value;
    }
}

bool slot1Thunk(HostAudioTable* t, const char* s, std::int32_t a)
{
    return audioOf(t)->slot1(textOf(s), a);
}
bool slot2Thunk(HostAudioTable* t, const char* s, std::int32_t a)
{
    return audioOf(t)->slot2(textOf(s), a);
}
bool slot3Thunk(HostAudioTable* t, std::int32_t a)
{
    return audioOf(t)->slot3(a);
}
bool slot4Thunk(HostAudioTable* t, std::int32_t a)
{
    return audioOf(t)->slot4(a);
}
bool slot5Thunk(HostAudioTable* t, const char* s, std::int32_t a, std::int32_t b)
{
    return audioOf(t)->slot5(textOf(s), a, b);
}
bool slot6Thunk(HostAudioTable* t, const char* s, std::int32_t a)
{
    return audioOf(t)->slot6(textOf(s), a);
}
bool slot7Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot7();
}
bool slot8Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot8();
}
bool slot9Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot9();
}
void slot10Thunk(HostAudioTable* t)
{
    audioOf(t)->slot10();
}
void slot11Thunk(HostAudioTable* t, std::int32_t a)
{
    audioOf(t)->slot11(a);
}
bool slot12Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot12();
}
void slot13Thunk(HostAudioTable* t)
{
    audioOf(t)->slot13();
}
std::int32_t slot14Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot14();
}
bool slot15Thunk(HostAudioTable* t, const char** out, std::int32_t a)
{
    epiText& buffer = audioOf(t)->nextTextBuffer();
    const bool result = audioOf(t)->slot15(buffer, a);
    handOut(out, buffer);
    return result;
}
bool slot16Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot16();
}
std::int32_t slot17Thunk(HostAudioTable* t, std::int32_t a)
{
    return audioOf(t)->slot17(a);
}
bool slot18Thunk(HostAudioTable* t, std::int32_t a, std::int32_t b, const char** out)
{
    epiText& buffer = audioOf(t)->nextTextBuffer();
    const bool result = audioOf(t)->slot18(a, b, buffer);
    handOut(out, buffer);
    return result;
}
std::int32_t slot19Thunk(HostAudioTable* t, std::int32_t a)
{
    return audioOf(t)->slot19(a);
}
bool slot20Thunk(HostAudioTable* t, std::int32_t a, std::int32_t b, const char** out)
{
    epiText& buffer = audioOf(t)->nextTextBuffer();
    const bool result = audioOf(t)->slot20(a, b, buffer);
    handOut(out, buffer);
    return result;
}
std::int32_t slot21Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot21();
}
bool slot22Thunk(HostAudioTable* t, std::int32_t a, std::int32_t* out)
{
    std::int32_t value = 0;
    const bool result = audioOf(t)->slot22(a, value);
    copyBack(out, value);
    return result;
}
std::int32_t slot23Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot23();
}
bool slot24Thunk(HostAudioTable* t, std::int32_t a, std::int32_t* out)
{
    std::int32_t value = 0;
    const bool result = audioOf(t)->slot24(a, value);
    copyBack(out, value);
    return result;
}
std::int32_t slot25Thunk(HostAudioTable* t, std::int32_t a)
{
    return audioOf(t)->slot25(a);
}
bool slot26Thunk(HostAudioTable* t, std::int32_t a, std::int32_t b, const char** out)
{
    epiText& buffer = audioOf(t)->nextTextBuffer();
    const bool result = audioOf(t)->slot26(a, b, buffer);
    handOut(out, buffer);
    return result;
}
bool slot27Thunk(HostAudioTable* t, std::int32_t a)
{
    return audioOf(t)->slot27(a);
}
bool slot28Thunk(HostAudioTable* t, const char** out)
{
    epiText& buffer = audioOf(t)->nextTextBuffer();
    const bool result = audioOf(t)->slot28(buffer);
    handOut(out, buffer);
    return result;
}
bool slot29Thunk(HostAudioTable* t, std::int32_t a, const char** out)
{
    epiText& buffer = audioOf(t)->nextTextBuffer();
    const bool result = audioOf(t)->slot29(a, buffer);
    handOut(out, buffer);
    return result;
}
bool slot30Thunk(HostAudioTable* t, std::int32_t* out)
{
    std::int32_t value = 0;
    const bool result = audioOf(t)->slot30(value);
    copyBack(out, value);
    return result;
}
bool slot31Thunk(HostAudioTable* t, std::int32_t* out)
{
    std::int32_t value = 0;
    const bool result = audioOf(t)->slot31(value);
    copyBack(out, value);
    return result;
}
bool slot32Thunk(HostAudioTable* t, std::int32_t a, std::int32_t b, const char** out)
{
    epiText& buffer = audioOf(t)->nextTextBuffer();
    const bool result = audioOf(t)->slot32(a, b, buffer);
    handOut(out, buffer);
    return result;
}
bool slot33Thunk(HostAudioTable* t, std::int32_t a, const char** out)
{
    epiText& buffer = audioOf(t)->nextTextBuffer();
    const bool result = audioOf(t)->slot33(a, buffer);
    handOut(out, buffer);
    return result;
}
bool slot34Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot34();
}
bool slot35Thunk(HostAudioTable* t, std::int32_t a, std::int32_t* out)
{
    std::int32_t value = 0;
    const bool result = audioOf(t)->slot35(a, value);
    copyBack(out, value);
    return result;
}
void slot36Thunk(HostAudioTable* t, std::int32_t a)
{
    audioOf(t)->slot36(a);
}
float slot37Thunk(HostAudioTable* t)
{
    return audioOf(t)->slot37();
}
void slot38Thunk(HostAudioTable* t, std::int32_t a)
{
    audioOf(t)->slot38(a);
}

} // namespace

Host::Host()
{
    table_.version = versionThunk;
    table_.getTimeInfo = getTimeInfoThunk;
    table_.spare3 = spare3Thunk;
    table_.spare4 = spare4Thunk;
    table_.spare5 = spare5Thunk;
    table_.spare6 = spare6Thunk;
    table_.spare7 = spare7Thunk;
    table_.spare8 = spare8Thunk;
    table_.spare9 = spare9Thunk;
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
    t.slot1 = slot1Thunk;
    t.slot2 = slot2Thunk;
    t.slot3 = slot3Thunk;
    t.slot4 = slot4Thunk;
    t.slot5 = slot5Thunk;
    t.slot6 = slot6Thunk;
    t.slot7 = slot7Thunk;
    t.slot8 = slot8Thunk;
    t.slot9 = slot9Thunk;
    t.slot10 = slot10Thunk;
    t.slot11 = slot11Thunk;
    t.slot12 = slot12Thunk;
    t.slot13 = slot13Thunk;
    t.slot14 = slot14Thunk;
    t.slot15 = slot15Thunk;
    t.slot16 = slot16Thunk;
    t.slot17 = slot17Thunk;
    t.slot18 = slot18Thunk;
    t.slot19 = slot19Thunk;
    t.slot20 = slot20Thunk;
    t.slot21 = slot21Thunk;
    t.slot22 = slot22Thunk;
    t.slot23 = slot23Thunk;
    t.slot24 = slot24Thunk;
    t.slot25 = slot25Thunk;
    t.slot26 = slot26Thunk;
    t.slot27 = slot27Thunk;
    t.slot28 = slot28Thunk;
    t.slot29 = slot29Thunk;
    t.slot30 = slot30Thunk;
    t.slot31 = slot31Thunk;
    t.slot32 = slot32Thunk;
    t.slot33 = slot33Thunk;
    t.slot34 = slot34Thunk;
    t.slot35 = slot35Thunk;
    t.slot36 = slot36Thunk;
    t.slot37 = slot37Thunk;
    t.slot38 = slot38Thunk;
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
