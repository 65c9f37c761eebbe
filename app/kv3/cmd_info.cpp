// kv3 info: opens audio files through the reader chain and prints what the program sees of them.

#include "app/kv3/Cli.h"
#include "app/kv3/Json.h"
#include "audiofiles/AudioFileGuess.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace
{

const char* const kUsage = "Usage: kv3 info [--json] FILE...\n"
                           "\n"
                           "Opens each FILE as the program does (libsndfile first, then FFmpeg) and prints\n"
                           "the reader that opened it (sndfile or ffmpeg), its channels, sample rate in\n"
                           "hertz and length in frames.\n"
                           "--json prints an array of {\"path\", \"reader\", \"channels\", \"sample_rate\",\n"
                           "\"frames\", \"seconds\"}.\n"
                           "A file that can't be opened gets one line on stderr, and the exit status is 1.\n";

/** The one line that says why a file can't be used. */
std::string whyNot(const std::string& path)
{
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    std::string line = path;
    if (!std::filesystem::exists(status))
        return line.append(": no such file");
    if (std::filesystem::is_directory(status))
        return line.append(" is a folder, not an audio file");
    return line.append(" is not a valid audio file or the file format is not supported.");
}

struct FileInfo
{
    std::string path;
    std::string reader;
    int32_t channels = 0;
    int32_t sampleRate = 0;
    int64_t frames = 0;
};

int runInfo(const std::vector<std::string>& argv)
{
    static const kv3cli::Command* self = &kv3cli::commands().at("info");
    kv3cli::Args args;
    if (!args.parse(argv, {}, {"json"}))
        return kv3cli::usageError("info", args.error());
    if (args.help())
        return kv3cli::printUsage(*self);
    if (args.positional().empty())
        return kv3cli::usageError("info", "no FILE given");

    std::vector<FileInfo> found;
    bool failed = false;
    for (const std::string& path : args.positional())
    {
        AudioFileGuess file;
        if (!file.open(path))
        {
            kv3cli::fail(whyNot(path));
            failed = true;
            continue;
        }
        found.push_back({path, file.readerName(), file.channels(), file.sampleRate(),
                         static_cast<int64_t>(file.frames())});
    }

    if (args.flag("json"))
    {
        kv3cli::JsonWriter json;
        json.beginArray();
        for (const FileInfo& info : found)
        {
            json.beginObject();
            json.key("path").value(info.path);
            json.key("reader").value(info.reader);
            json.key("channels").value(info.channels);
            json.key("sample_rate").value(info.sampleRate);
            json.key("frames").value(info.frames);
            json.key("seconds").value(info.sampleRate > 0 ? static_cast<double>(info.frames) / info.sampleRate
                                                          : 0.0);
            json.endObject();
        }
        json.endArray();
        std::cout << json.str() << '\n';
    }
    else
    {
        for (const FileInfo& info : found)
        {
            const double seconds =
                info.sampleRate > 0 ? static_cast<double>(info.frames) / info.sampleRate : 0.0;
            std::printf("%s: %s, %d channel%s, %d Hz, %lld frames (%.3f s)\n", info.path.c_str(),
                        info.reader.c_str(), info.channels, info.channels == 1 ? "" : "s", info.sampleRate,
                        static_cast<long long>(info.frames), seconds);
        }
    }
    return failed ? kv3cli::kFailure : kv3cli::kOk;
}

const kv3cli::Register reg{
    kv3cli::Command{"info", "print the reader, channels, rate and length of audio files", kUsage, runInfo}};

} // namespace
