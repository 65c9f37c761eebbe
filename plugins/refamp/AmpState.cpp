#include "plugins/refamp/AmpState.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace refamp
{

namespace
{

const char* const kNames[kProgramCount] = {"clean", "crunch", "lead"};

/** One stored value: its element, where it lives and its range. */
struct Field
{
    const char* tag;
    float AmpParams::*value;
    float low;
    float high;
};

/** Every stored value in the order the state lists them. */
constexpr Field kFields[] = {
    {"gate", &AmpParams::gate, kGateOff, 0.0f},
    {"drive", &AmpParams::drive, 0.0f, kDriveMax},
    {"bass", &AmpParams::bass, -kToneRange, kToneRange},
    {"mid", &AmpParams::mid, -kToneRange, kToneRange},
    {"treble", &AmpParams::treble, -kToneRange, kToneRange},
    {"presence", &AmpParams::presence, -kToneRange, kToneRange},
    {"master", &AmpParams::master, kMasterMin, kMasterMax},
    {"reverb", &AmpParams::reverb, 0.0f, 1.0f},
};

/** The element `<tag>...</tag>` inside `text`, or an empty view with found false. */
std::string_view element(std::string_view text, std::string_view tag, bool& found)
{
    std::string open;
    open.append(1, '<').append(tag).append(1, '>');
    std::string close;
    close.append("</").append(tag).append(1, '>');
    const auto begin = text.find(open);
    found = false;
    if (begin == std::string_view::npos)
    {
        return {};
    }
    const auto start = begin + open.size();
    const auto end = text.find(close, start);
    if (end == std::string_view::npos)
    {
        return {};
    }
    found = true;
    return text.substr(start, end - start);
}

std::string_view trim(std::string_view s)
{
    while (!s.empty() && std::strchr(" \t\r\n", s.front()) != nullptr)
    {
        s.remove_prefix(1);
    }
    while (!s.empty() && std::strchr(" \t\r\n", s.back()) != nullptr)
    {
        s.remove_suffix(1);
    }
    return s;
}

void readFloat(std::string_view program, std::string_view tag, float& value)
{
    bool found = false;
    const std::string_view text = trim(element(program, tag, found));
    if (!found)
    {
        return;
    }
    float parsed = 0.0f;
    // from_chars reads the same in every locale, unlike strtof.
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
    if (error == std::errc() && end == text.data() + text.size() && std::isfinite(parsed))
    {
        value = parsed;
    }
}

float clampTo(float value, float low, float high, float fallback)
{
    if (!std::isfinite(value))
    {
        return fallback;
    }
    return std::clamp(value, low, high);
}

void appendValue(std::string& out, const char* tag, float value)
{
    char number[32];
    const auto result = std::to_chars(number, number + sizeof number, value, std::chars_format::fixed, 2);
    out += "\t\t<";
    out += tag;
    out += ">";
    out.append(number, result.ptr);
    out += "</";
    out += tag;
    out += ">\r\n";
}

} // namespace

const char* programName(int index)
{
    return kNames[((index % kProgramCount) + kProgramCount) % kProgramCount];
}

AmpParams builtInProgram(int index)
{
    AmpParams p;
    p.program = ((index % kProgramCount) + kProgramCount) % kProgramCount;
    switch (p.program)
    {
    case 0: // clean: no drive to speak of, open top, a little more room
        p.gate = -72.0f;
        p.drive = 2.0f;
        p.bass = 2.0f;
        p.mid = 0.0f;
        p.treble = 2.0f;
        p.presence = 1.0f;
        p.master = -3.0f;
        p.reverb = 0.18f;
        break;
    case 1: // crunch: a pushed amp, mids forward
        p.gate = -62.0f;
        p.drive = 20.0f;
        p.bass = 1.0f;
        p.mid = 2.0f;
        p.treble = 0.0f;
        p.presence = 2.0f;
        p.master = -8.0f;
        p.reverb = 0.12f;
        break;
    default: // lead: nearly all the drive, a tighter gate and more mids to sing
        p.gate = -56.0f;
        p.drive = 34.0f;
        p.bass = 0.0f;
        p.mid = 4.0f;
        p.treble = -1.0f;
        p.presence = 3.0f;
        p.master = -11.0f;
        p.reverb = 0.15f;
        break;
    }
    return p;
}

AmpParams clampParams(const AmpParams& in)
{
    const AmpParams defaults;
    AmpParams p = in;
    for (const Field& f : kFields)
    {
        p.*f.value = clampTo(in.*f.value, f.low, f.high, defaults.*f.value);
    }
    p.program = ((in.program % kProgramCount) + kProgramCount) % kProgramCount;
    return p;
}

std::string writeState(const AmpParams& params)
{
    std::string out =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<KV3ReferenceAmp>\r\n\t<version>1</version>\r\n"
        "\t<Program>\r\n\t\t<name>";
    out += programName(params.program);
    out += "</name>\r\n";
    for (const Field& f : kFields)
    {
        appendValue(out, f.tag, params.*f.value);
    }
    out += "\t</Program>\r\n</KV3ReferenceAmp>\r\n";
    return out;
}

bool readState(std::string_view text, AmpParams& params)
{
    bool found = false;
    const std::string_view program = element(text, "Program", found);
    if (!found)
    {
        return false;
    }
    AmpParams p = params;
    bool named = false;
    const std::string_view name = trim(element(program, "name", named));
    for (int i = 0; named && i < kProgramCount; ++i)
    {
        if (name == kNames[i])
        {
            p.program = i;
        }
    }
    for (const Field& f : kFields)
    {
        readFloat(program, f.tag, p.*f.value);
    }
    params = clampParams(p);
    return true;
}

float masterFromController(int value)
{
    if (value <= 0)
    {
        return kMasterMin;
    }
    return std::max(kMasterMin, 40.0f * std::log10(static_cast<float>(std::min(value, 127)) / 127.0f));
}

} // namespace refamp
