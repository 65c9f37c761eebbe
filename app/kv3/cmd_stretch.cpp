// kv3 stretch: plays a file through a track's file chain (quality resampler to the rate, forced
// stereo, history reader, speed and pitch node of the chosen engine) offline and writes what comes out.

#include "app/kv3/AudioOutput.h"
#include "app/kv3/Cli.h"
#include "app/kv3/StretchQuality.h"
#include "audiofiles/AudioFileFormats.h"
#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileWriter.h"
#include "dsp/AudioResampler_DSP.h"
#include "dsp/stretchhq/AudioFxStretchChoice.h"
#include "engine/graph/AudioAlwaysStereo.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/ContiguousReader.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace
{

namespace fs = std::filesystem;

template <typename... Parts> std::string concat(const Parts&... parts)
{
    std::ostringstream out;
    (out << ... << parts);
    return out.str();
}

const char* const kUsage =
    "Usage: kv3 stretch IN OUT [--speed S] [--pitch SEMITONES] [--rate HZ]\n"
    "                          [--depth 16|24|32|float|double] [--quality standard|high]\n"
    "\n"
    "Plays IN through a track's file chain (resampler to the rate, stereo, history reader, speed\n"
    "and pitch) and writes what comes out to OUT, in two channels.\n"
    "--speed  playback speed as a ratio, 0.1 to 10 (0.5 is half speed); default 1. OUT lasts\n"
    "         IN's length divided by the speed\n"
    "--pitch  transposition in semitones, -24 to 24; default 0\n"
    "--rate   OUT's sample rate in hertz; by default IN's rate\n"
    "--depth  bits per sample, or float (32-bit) or double (64-bit); default 24\n"
    "--quality standard or high: the speed and pitch engine (high keeps sustained notes clean at\n"
    "         several times the CPU); by default the one the settings name\n"
    "The container comes from OUT's extension (.wav, .aif/.aiff, .caf). At speed 1 and pitch 0 the\n"
    "audio goes through untouched. OUT is written under a temporary name and renamed when complete.\n";

// Frames per block of the offline run: the size an audio device would ask for.
constexpr int64_t kBlock = 1024;
constexpr double kMinSpeed = 0.1;
constexpr double kMaxSpeed = 10.0;
constexpr double kMaxSemitones = 24.0;

struct StretchOptions
{
    std::string in;
    std::string out;
    int32_t container = -1;
    int32_t depth = AudioFileFormats::k24Bit;
    int32_t rate = 0; // 0: the input's
    double speed = 1.0;
    double semitones = 0.0;
    StretchQuality quality = StretchQuality::standard;
};

/** Fills options from the words after "stretch"; returns an exit code, or -1 to go on. */
int parseOptions(const std::vector<std::string>& argv, StretchOptions& options)
{
    kv3cli::Args args;
    if (!args.parse(argv, {"speed", "pitch", "rate", "depth", "quality"}, {}))
        return kv3cli::usageError("stretch", args.error());
    if (args.help())
        return kv3cli::printUsage(kv3cli::commands().at("stretch"));
    if (args.positional().size() != 2)
        return kv3cli::usageError("stretch", "needs IN and OUT");
    options.in = args.positional()[0];
    options.out = args.positional()[1];

    const std::string extension = fs::path(options.out).extension().string();
    options.container =
        extension.empty() ? -1 : AudioFileFormats::containerOfExtension(extension.c_str() + 1);
    if (options.container < AudioFileFormats::kWave || options.container > AudioFileFormats::kCaf)
        return kv3cli::usageError("stretch", concat("can't tell the container from '", options.out,
                                                    "'; name it .wav, .aif, .aiff or .caf"));
    if (auto speed = args.value("speed"))
    {
        const auto value = kv3cli::parseDouble(*speed);
        if (!value || !(*value >= kMinSpeed && *value <= kMaxSpeed))
            return kv3cli::usageError("stretch",
                                      concat("--speed must be a ratio from 0.1 to 10, not '", *speed, "'"));
        options.speed = *value;
    }
    if (auto pitch = args.value("pitch"))
    {
        const auto value = kv3cli::parseDouble(*pitch);
        if (!value || !(std::fabs(*value) <= kMaxSemitones))
            return kv3cli::usageError("stretch",
                                      concat("--pitch must be semitones from -24 to 24, not '", *pitch, "'"));
        options.semitones = *value;
    }
    if (auto rate = args.value("rate"))
    {
        const auto value = kv3cli::parseInt(*rate);
        if (!value || *value < 8000 || *value > 384000)
            return kv3cli::usageError("stretch",
                                      concat("--rate must be a sample rate in hertz, not '", *rate, "'"));
        options.rate = static_cast<int32_t>(*value);
    }
    if (auto depth = args.value("depth"))
    {
        const auto value = kv3cli::depthOf(*depth);
        if (!value)
            return kv3cli::usageError("stretch",
                                      concat("unknown depth '", *depth, "' (16, 24, 32, float or double)"));
        options.depth = *value;
    }
    if (std::string error; !kv3cli::chooseQuality(args, options.quality, error))
        return kv3cli::usageError("stretch", error);
    return -1;
}

/** Removes the temporary output unless the run completed. */
class TemporaryOutput
{
public:
    explicit TemporaryOutput(std::string path) : path_(std::move(path)) {}
    ~TemporaryOutput()
    {
        if (!kept_)
        {
            std::error_code ignored;
            fs::remove(path_, ignored);
        }
    }
    const std::string& path() const { return path_; }
    void keep() { kept_ = true; }

private:
    std::string path_;
    bool kept_ = false;
};

int runStretch(const std::vector<std::string>& argv)
{
    StretchOptions options;
    if (const int exit = parseOptions(argv, options); exit >= 0)
        return exit;

    std::error_code error;
    if (fs::exists(options.out, error) && fs::equivalent(options.in, options.out, error))
        return kv3cli::usageError("stretch",
                                  concat("OUT is IN: '", options.out, "' would be overwritten while read"));

    // Past its end the file gives silence, so the grains that reach beyond it read nothing stale.
    AudioFileGuessSafe file;
    if (!file.open(options.in))
    {
        if (!fs::exists(options.in, error))
            return kv3cli::fail(concat(options.in, ": no such file"));
        return kv3cli::fail(
            concat(options.in, " is not a valid audio file or the file format is not supported."));
    }
    const int32_t rate = options.rate != 0 ? options.rate : file.sampleRate();

    // The chain a track builds for a file, prepared the way a track prepares it.
    const auto block = static_cast<uint32_t>(kBlock);
    AudioResampler_DSP resampler;
    resampler.setProvider(&file);
    resampler.prepare(static_cast<uint32_t>(rate), block);
    resampler.sourceChanged();
    if (file.frames() > 0 && !resampler.ready())
        return kv3cli::fail(kv3cli::resampleRefusal(options.in, file.sampleRate(), rate, resampler));
    if (!resampler.ready() || resampler.frames() <= 0)
        return kv3cli::fail(concat(options.in, " holds no audio to play"));
    AudioAlwaysStereo stereo;
    stereo.setFirst(&resampler);
    stereo.prepare(static_cast<uint32_t>(rate), block);
    ContiguousReader reader;
    reader.setFirst(&stereo);
    reader.prepare(static_cast<uint32_t>(rate), block);
    reader.setActive(true);
    AudioFxStretchChoice node;
    node.setQuality(options.quality);
    node.setSource(&reader);
    node.prepare(static_cast<uint32_t>(rate), block);
    // As a track sets them: stretch is output time over source time, the pitch factor the source
    // step for a transposition, both in float.
    node.setStretch(1.0f / static_cast<float>(options.speed));
    node.setPitch(std::pow(2.0f, -static_cast<float>(options.semitones) / 12.0f));

    const auto length =
        static_cast<int64_t>(std::llround(static_cast<double>(resampler.frames()) / options.speed));
    TemporaryOutput temporary((fs::path(options.out).parent_path() /
                               concat(".", fs::path(options.out).filename().string(), ".kv3-partial"))
                                  .string());
    AudioFileWriter writer;
    if (!writer.open(temporary.path(), AudioFileFormat{2, rate, options.container, options.depth}))
        return kv3cli::fail(concat("can't write ", options.out, ": ", writer.error()));

    AudioBuffer out;
    out.alloc(kBlock, 2);
    kv3cli::ProgressBar progress("stretch");
    for (int64_t at = 0; at < length; at += kBlock)
    {
        out.position = at;
        out.frames = std::min(kBlock, length - at);
        if (!node.read(out))
            return kv3cli::fail(concat("playing ", options.in, " failed at frame ", at));
        // As written: an integer depth clips at full scale in the writer, a float depth keeps all.
        if (!writer.writeFloat(out))
            return kv3cli::fail(concat("writing ", options.out, " failed (disk full?)"));
        progress.update(static_cast<double>(at + out.frames) / static_cast<double>(length));
    }
    writer.close();
    progress.finish();
    fs::rename(temporary.path(), options.out, error);
    if (error)
        return kv3cli::fail(concat("can't rename the finished file to ", options.out, ": ", error.message()));
    temporary.keep();
    return kv3cli::kOk;
}

const kv3cli::Register reg{
    kv3cli::Command{"stretch", "change a file's speed and pitch as a track plays it", kUsage, runStretch}};

} // namespace
