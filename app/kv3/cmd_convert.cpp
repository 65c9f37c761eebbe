// kv3 convert: reads a file through the reader chain and writes it with the file writer.

#include "app/kv3/AudioOutput.h"
#include "app/kv3/Cli.h"
#include "audiofiles/AudioFileFormats.h"
#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileWriter.h"
#include "dsp/AudioResampler_DSP.h"
#include "engine/graph/AudioData.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace
{

namespace fs = std::filesystem;

/** Joins the printed form of its parts into one message. */
template <typename... Parts> std::string concat(const Parts&... parts)
{
    std::ostringstream out;
    (out << ... << parts);
    return out.str();
}

const char* const kUsage =
    "Usage: kv3 convert IN OUT [--container wav|aiff|caf] [--depth 16|24|32|float|double]\n"
    "                          [--rate HZ]\n"
    "\n"
    "Reads IN as the program does (any file the reader chain opens) and writes OUT, uncompressed.\n"
    "--container  the file type; by default the one of OUT's extension (.wav, .aif/.aiff, .caf)\n"
    "--depth      bits per sample, or float (32-bit) or double (64-bit); default 24\n"
    "--rate       the output's sample rate in hertz; by default IN's rate\n"
    "OUT has IN's channels (at most two). It is written under a temporary name and renamed when\n"
    "complete, so a failed run leaves no partial file.\n";

/** What the command line asks for, checked. */
struct ConvertOptions
{
    std::string in;
    std::string out;
    int32_t container = -1;
    int32_t depth = AudioFileFormats::k24Bit;
    /** The output rate; 0 for the input's. */
    int32_t rate = 0;
};

/** Fills options from the words after "convert"; returns an exit code, or -1 to go on. */
int parseOptions(const std::vector<std::string>& argv, ConvertOptions& options)
{
    kv3cli::Args args;
    if (!args.parse(argv, {"container", "depth", "rate"}, {}))
        return kv3cli::usageError("convert", args.error());
    if (args.help())
        return kv3cli::printUsage(kv3cli::commands().at("convert"));
    if (args.positional().size() != 2)
        return kv3cli::usageError("convert", "needs IN and OUT");
    options.in = args.positional()[0];
    options.out = args.positional()[1];

    if (auto container = args.value("container"))
    {
        const int32_t value = AudioFileFormats::containerOfExtension(container->c_str());
        if (value < AudioFileFormats::kWave || value > AudioFileFormats::kCaf)
            return kv3cli::usageError("convert",
                                      concat("unknown container '", *container, "' (wav, aiff or caf)"));
        options.container = value;
    }
    else
    {
        const std::string extension = fs::path(options.out).extension().string();
        const int32_t value =
            extension.empty() ? -1 : AudioFileFormats::containerOfExtension(extension.c_str() + 1);
        if (value < AudioFileFormats::kWave || value > AudioFileFormats::kCaf)
            return kv3cli::usageError("convert", concat("can't tell the container from '", options.out,
                                                        "'; give --container wav, aiff or caf"));
        options.container = value;
    }
    if (auto depth = args.value("depth"))
    {
        const auto value = kv3cli::depthOf(*depth);
        if (!value)
            return kv3cli::usageError("convert",
                                      concat("unknown depth '", *depth, "' (16, 24, 32, float or double)"));
        options.depth = *value;
    }
    if (auto rate = args.value("rate"))
    {
        const auto value = kv3cli::parseInt(*rate);
        if (!value || *value < 1000 || *value > 768000)
            return kv3cli::usageError("convert",
                                      concat("--rate must be a sample rate in hertz, not '", *rate, "'"));
        options.rate = static_cast<int32_t>(*value);
    }
    return -1;
}

/** Removes the temporary output unless the conversion completed. */
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

int runConvert(const std::vector<std::string>& argv)
{
    ConvertOptions options;
    if (const int exit = parseOptions(argv, options); exit >= 0)
        return exit;

    std::error_code error;
    if (fs::exists(options.out, error) && fs::equivalent(options.in, options.out, error))
        return kv3cli::usageError("convert",
                                  concat("OUT is IN: '", options.out, "' would be overwritten while read"));

    AudioFileGuessSafe file;
    if (!file.open(options.in))
    {
        if (!fs::exists(options.in, error))
            return kv3cli::fail(concat(options.in, ": no such file"));
        return kv3cli::fail(
            concat(options.in, " is not a valid audio file or the file format is not supported."));
    }
    const int32_t rate = options.rate != 0 ? options.rate : file.sampleRate();
    constexpr int64_t kBlock = 65536;
    // At another rate the frames come through the quality resampler the tracks use; at the same
    // rate straight from the file.
    AudioResampler_DSP resampler;
    AudioSource* source = &file;
    int64_t length = static_cast<int64_t>(file.frames());
    if (rate != file.sampleRate() && length > 0)
    {
        resampler.setProvider(&file);
        resampler.prepare(static_cast<uint32_t>(rate), kBlock);
        resampler.sourceChanged();
        if (!resampler.ready())
            return kv3cli::fail(kv3cli::resampleRefusal(options.in, file.sampleRate(), rate, resampler));
        source = &resampler;
        length = resampler.frames();
    }

    const int32_t channels = std::clamp(file.channels(), 1, 2);
    TemporaryOutput temporary((fs::path(options.out).parent_path() /
                               concat(".", fs::path(options.out).filename().string(), ".kv3-partial"))
                                  .string());
    AudioFileWriter writer;
    if (!writer.open(temporary.path(), AudioFileFormat{channels, rate, options.container, options.depth}))
        return kv3cli::fail(concat("can't write ", options.out, ": ", writer.error()));

    AudioBuffer block;
    block.alloc(kBlock, channels);
    kv3cli::ProgressBar progress("convert");
    for (int64_t at = 0; at < length; at += kBlock)
    {
        block.position = at;
        block.frames = std::min(kBlock, length - at);
        if (!source->read(block))
            return kv3cli::fail(concat("reading ", options.in, " failed at frame ", at));
        if (!writer.writeFloat(block))
            return kv3cli::fail(concat("writing ", options.out, " failed (disk full?)"));
        progress.update(static_cast<double>(at + block.frames) / static_cast<double>(length));
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
    kv3cli::Command{"convert", "convert an audio file to WAVE, AIFF or CAF", kUsage, runConvert}};

} // namespace
