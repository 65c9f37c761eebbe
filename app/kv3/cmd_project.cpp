// kv3 project: makes, changes and prints project files without the window.

#include "app/kv3/Cli.h"
#include "app/kv3/Json.h"
#include "project/Document.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace
{

const char* const kUsage =
    "Usage: kv3 project new OUT [--rate HZ]\n"
    "       kv3 project set PROJECT --track N [--file PATH] [--clear] [--volume DB] [--pan P]\n"
    "           [--speed S] [--pitch ST] [--mute on|off] [--solo on|off] [--fx on|off]\n"
    "           [--armed on|off] [--input left|right|both]\n"
    "       kv3 project set PROJECT [--loop START:END] [--loop-on on|off] [--ratio 0.5|1|2]\n"
    "           [--click on|off] [--tempo BPM] [--signature N/D] [--click-volume PCT] [--master DB]\n"
    "       kv3 project show [--json] PROJECT\n"
    "\n"
    "new writes a new project (extension .kv3h) with the defaults of a new project: four tracks, the\n"
    "first armed on the left input with its effect on. Its recordings go to its own folder.\n"
    "set changes one track (N from 1 to 4) or session values and saves. An armed track is not played\n"
    "back, so --armed off is how a script makes track 1 play. Loop points are session frames.\n"
    "show prints the whole project; --json prints one document with the keys version, sample_rate,\n"
    "speed_ratio, input_gain, master_slider, loop, click, elements and tracks.\n";

const char* const kInputNames[] = {"left", "right", "both"};

std::string absolute(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(path, error);
    return error ? path : full.lexically_normal().string();
}

int bad(const std::string& message)
{
    return kv3cli::usageError("project", message);
}

// Loads a project for set and show; a project that doesn't read completely is refused, so that
// saving it again can't lose what it held.
bool loadWhole(Document& doc, const std::string& file, std::string& why)
{
    if (!std::filesystem::exists(file))
    {
        why = file + ": no such file";
        return false;
    }
    if (!doc.load(epiPath(absolute(file))))
    {
        why = file + " is not a readable Korvalind 3 project (version 4)";
        return false;
    }
    // A project folder that was moved finds its files again; nobody can be asked about the others.
    doc.locateFiles(nullptr);
    return true;
}

int runNew(const kv3cli::Args& args)
{
    if (args.positional().size() != 2)
        return bad("new takes one OUT");
    Document doc;
    if (auto rate = args.value("rate"))
    {
        const auto hz = kv3cli::parseInt(*rate);
        if (!hz || *hz < 8000 || *hz > 384000)
            return bad("--rate must be a sample rate in hertz, 8000 to 384000, not " + *rate);
        doc.sampleRate = static_cast<int32_t>(*hz);
    }
    epiPath out(absolute(args.positional()[1]));
    out.replaceExtension(Document::kExtension);
    doc.workFolder = out.folder();
    if (!doc.save(out))
        return kv3cli::fail(out + ": can't write the project file");
    std::cout << doc.path << "\n";
    return kv3cli::kOk;
}

// Option values of set, checked before anything changes.
struct Setter
{
    const kv3cli::Args& args;
    std::string error;

    bool number(const char* name, double low, double high, float& target)
    {
        auto text = args.value(name);
        if (!text)
            return true;
        const auto v = kv3cli::parseDouble(*text);
        if (!v || !(*v >= low && *v <= high))
        {
            error = std::string("--") + name + " must be a number from " + trim(low) + " to " + trim(high) +
                    ", not " + *text;
            return false;
        }
        target = static_cast<float>(*v);
        return true;
    }
    bool integer(const char* name, int64_t low, int64_t high, int32_t& target)
    {
        auto text = args.value(name);
        if (!text)
            return true;
        const auto v = kv3cli::parseInt(*text);
        if (!v || *v < low || *v > high)
        {
            error = std::string("--") + name + " must be a whole number from " + std::to_string(low) +
                    " to " + std::to_string(high) + ", not " + *text;
            return false;
        }
        target = static_cast<int32_t>(*v);
        return true;
    }
    bool onOff(const char* name, bool& target)
    {
        auto text = args.value(name);
        if (!text)
            return true;
        const auto v = kv3cli::parseOnOff(*text);
        if (!v)
        {
            error = std::string("--") + name + " must be on or off, not " + *text;
            return false;
        }
        target = *v;
        return true;
    }
    static std::string trim(double v)
    {
        char text[32];
        std::snprintf(text, sizeof(text), "%g", v);
        return text;
    }
};

int runSet(const kv3cli::Args& args)
{
    if (args.positional().size() != 2)
        return bad("set takes one PROJECT");
    const std::string file = args.positional()[1];
    Document doc;
    std::string why;
    if (!loadWhole(doc, file, why))
        return kv3cli::fail(why);

    Setter set{args, {}};
    const bool trackOptions = args.has("file") || args.flag("clear") || args.has("volume") ||
                              args.has("pan") || args.has("speed") || args.has("pitch") || args.has("mute") ||
                              args.has("solo") || args.has("fx") || args.has("armed") || args.has("input");
    if (trackOptions && !args.has("track"))
        return bad("track options need --track N");
    if (args.has("track"))
    {
        int32_t n = 0;
        if (!set.integer("track", 1, 4, n))
            return bad(set.error);
        DocumentTrack& track = *doc.tracks[static_cast<size_t>(n - 1)];
        if (args.flag("clear"))
            doc.clearTrack(n - 1);
        if (auto path = args.value("file"))
        {
            const std::string full = absolute(*path);
            if (!std::filesystem::is_regular_file(full))
                return kv3cli::fail(*path + ": no such file");
            track.elementId = doc.addElement(epiPath(full));
        }
        bool fx = track.effectEnabled;
        if (!set.number("volume", -100.0, 24.0, track.volume) || !set.number("pan", -1.0, 1.0, track.pan) ||
            !set.number("speed", 0.25, 4.0, track.speed) || !set.number("pitch", -24.0, 24.0, track.pitch) ||
            !set.onOff("mute", track.mute) || !set.onOff("solo", track.solo) ||
            !set.onOff("armed", track.armed) || !set.onOff("fx", fx))
            return bad(set.error);
        if (args.has("fx"))
        {
            // Switching the effect on also makes its instance; off only bypasses it.
            track.effectEnabled = fx;
            track.effectLoaded = track.effectLoaded || fx;
        }
        if (auto input = args.value("input"))
        {
            int32_t choice = -1;
            for (int32_t i = 0; i < 3; ++i)
                if (*input == kInputNames[i])
                    choice = i;
            if (choice < 0)
                return bad("--input must be left, right or both, not " + *input);
            track.input = choice;
        }
    }
    if (auto loop = args.value("loop"))
    {
        const auto colon = loop->find(':');
        const auto start =
            colon == std::string::npos ? std::nullopt : kv3cli::parseInt(loop->substr(0, colon));
        const auto end =
            colon == std::string::npos ? std::nullopt : kv3cli::parseInt(loop->substr(colon + 1));
        if (!start || !end || *start < 0 || *end <= *start || *end > 0xFFFFFFFFll)
            return bad("--loop must be START:END in session frames with START < END, not " + *loop);
        doc.loopStart = *start;
        doc.loopEnd = *end;
    }
    if (auto ratio = args.value("ratio"))
    {
        const auto v = kv3cli::parseDouble(*ratio);
        if (!v || (*v != 0.5 && *v != 1.0 && *v != 2.0))
            return bad("--ratio must be 0.5, 1 or 2, not " + *ratio);
        doc.speedRatio = static_cast<float>(*v);
    }
    if (auto signature = args.value("signature"))
    {
        const auto slash = signature->find('/');
        const auto num =
            slash == std::string::npos ? std::nullopt : kv3cli::parseInt(signature->substr(0, slash));
        const auto den =
            slash == std::string::npos ? std::nullopt : kv3cli::parseInt(signature->substr(slash + 1));
        if (!num || !den || *num < 2 || *num > 8 || *den < 2 || *den > 8)
            return bad("--signature must be N/D with both from 2 to 8, not " + *signature);
        doc.clickNumerator = static_cast<int32_t>(*num);
        doc.clickDenominator = static_cast<int32_t>(*den);
    }
    float master = 0.0f;
    if (!set.onOff("loop-on", doc.loopEnabled) || !set.onOff("click", doc.clickEnabled) ||
        !set.number("tempo", 60.0, 240.0, doc.clickTempo) ||
        !set.integer("click-volume", 0, 100, doc.clickVolume) || !set.number("master", -40.0, 6.0, master))
        return bad(set.error);
    if (args.has("master"))
        doc.masterSlider = static_cast<int32_t>(std::lround((master + 40.0f) * 1000.0f / 46.0f));

    if (!doc.save(doc.path))
        return kv3cli::fail(file + ": can't write the project file");
    return kv3cli::kOk;
}

void showText(const Document& doc)
{
    std::printf("project       %s\n", doc.path.c_str());
    std::printf("sample rate   %d Hz\n", doc.sampleRate);
    std::printf("speed ratio   %g\n", static_cast<double>(doc.speedRatio));
    std::printf("input gain    %+.1f dB\n", static_cast<double>(doc.inputGain));
    std::printf("master        %d (%+.1f dB)\n", doc.masterSlider,
                static_cast<double>(Document::masterDb(doc.masterSlider)));
    std::printf("loop          %s %lld:%lld\n", doc.loopEnabled ? "on" : "off",
                static_cast<long long>(doc.loopStart), static_cast<long long>(doc.loopEnd));
    std::printf("click         %s %.1f bpm %d/%d volume %d%%\n", doc.clickEnabled ? "on" : "off",
                static_cast<double>(doc.clickTempo), doc.clickNumerator, doc.clickDenominator,
                doc.clickVolume);
    std::printf("work folder   %s\n", doc.workFolder.c_str());
    for (const auto& element : doc.elements)
        std::printf("element %-5d %s%s\n", element->id, element->c_str(),
                    element->recorded ? " (recorded)" : "");
    for (size_t i = 0; i < doc.tracks.size(); ++i)
    {
        const DocumentTrack& t = *doc.tracks[i];
        epiPath file;
        bool recorded = false;
        doc.trackFile(static_cast<int32_t>(i), file, recorded);
        std::printf("track %zu  %s\n", i + 1, file.empty() ? "(empty)" : file.c_str());
        std::printf("         volume %+.1f dB  pan %+.2f  speed %.2f  pitch %+.1f  input %s\n",
                    static_cast<double>(t.volume), static_cast<double>(t.pan), static_cast<double>(t.speed),
                    static_cast<double>(t.pitch), kInputNames[t.input >= 0 && t.input <= 2 ? t.input : 2]);
        std::printf("         mute %s  solo %s  armed %s  fx %s%s  frozen %s%s%s\n", t.mute ? "on" : "off",
                    t.solo ? "on" : "off", t.armed ? "on" : "off", t.effectEnabled ? "on" : "off",
                    t.effectLoaded ? "" : " (not loaded)", t.frozen ? "on" : "off", t.frozen ? " " : "",
                    t.frozen ? t.frozenPath.c_str() : "");
    }
}

void showJson(const Document& doc)
{
    kv3cli::JsonWriter json;
    json.beginObject();
    json.key("path").value(std::string(doc.path));
    json.key("version").value(Document::kVersion);
    json.key("sample_rate").value(doc.sampleRate);
    json.key("speed_ratio").value(static_cast<double>(doc.speedRatio));
    json.key("input_gain").value(static_cast<double>(doc.inputGain));
    json.key("master_slider").value(doc.masterSlider);
    json.key("loop").beginObject();
    json.key("enabled").value(doc.loopEnabled);
    json.key("start").value(static_cast<int64_t>(doc.loopStart));
    json.key("end").value(static_cast<int64_t>(doc.loopEnd));
    json.endObject();
    json.key("click").beginObject();
    json.key("enabled").value(doc.clickEnabled);
    json.key("tempo").value(static_cast<double>(doc.clickTempo));
    json.key("numerator").value(doc.clickNumerator);
    json.key("denominator").value(doc.clickDenominator);
    json.key("volume").value(doc.clickVolume);
    json.endObject();
    json.key("work_folder").value(std::string(doc.workFolder));
    json.key("elements").beginArray();
    for (const auto& element : doc.elements)
    {
        json.beginObject();
        json.key("id").value(element->id);
        json.key("path").value(std::string(*element));
        json.key("recorded").value(element->recorded);
        json.endObject();
    }
    json.endArray();
    json.key("tracks").beginArray();
    for (size_t i = 0; i < doc.tracks.size(); ++i)
    {
        const DocumentTrack& t = *doc.tracks[i];
        epiPath file;
        bool recorded = false;
        const bool hasFile = doc.trackFile(static_cast<int32_t>(i), file, recorded);
        json.beginObject();
        json.key("element").value(hasFile ? t.elementId : -1);
        json.key("file");
        if (hasFile)
            json.value(std::string(file));
        else
            json.null();
        json.key("volume").value(static_cast<double>(t.volume));
        json.key("pan").value(static_cast<double>(t.pan));
        json.key("speed").value(static_cast<double>(t.speed));
        json.key("pitch").value(static_cast<double>(t.pitch));
        json.key("mute").value(t.mute);
        json.key("solo").value(t.solo);
        json.key("armed").value(t.armed);
        json.key("fx_enabled").value(t.effectEnabled);
        json.key("fx_loaded").value(t.effectLoaded);
        json.key("frozen").value(t.frozen);
        json.key("frozen_path").value(std::string(t.frozenPath));
        json.key("input").value(kInputNames[t.input >= 0 && t.input <= 2 ? t.input : 2]);
        json.endObject();
    }
    json.endArray();
    json.endObject();
    std::cout << json.str() << "\n";
}

int runShow(const kv3cli::Args& args)
{
    if (args.positional().size() != 2)
        return bad("show takes one PROJECT");
    Document doc;
    std::string why;
    if (!loadWhole(doc, args.positional()[1], why))
        return kv3cli::fail(why);
    if (args.flag("json"))
        showJson(doc);
    else
        showText(doc);
    return kv3cli::kOk;
}

int runProject(const std::vector<std::string>& argv)
{
    static const kv3cli::Command* self = &kv3cli::commands().at("project");
    kv3cli::Args args;
    if (!args.parse(argv, {"rate",  "track", "file",  "volume",    "pan",          "speed", "pitch",
                           "mute",  "solo",  "fx",    "armed",     "input",        "loop",  "loop-on",
                           "ratio", "click", "tempo", "signature", "click-volume", "master"},
                    {"json", "clear"}))
        return bad(args.error());
    if (args.help())
        return kv3cli::printUsage(*self);
    if (args.positional().empty())
        return bad("say new, set or show");
    const std::string& what = args.positional()[0];
    if (what == "new")
        return runNew(args);
    if (what == "set")
        return runSet(args);
    if (what == "show")
        return runShow(args);
    return bad("unknown action " + what + "; say new, set or show");
}

const kv3cli::Register reg{
    kv3cli::Command{"project", "makes, changes and prints project files", kUsage, runProject}};

} // namespace
