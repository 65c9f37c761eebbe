// kv3 render: a project's mixdown, made offline by the same export job as the program's.

#include "app/kv3/AudioOutput.h"
#include "app/kv3/Cli.h"
#include "app/kv3/ClickSounds.h"
#include "app/kv3/StretchQuality.h"
#include "audiofiles/AudioFileFormats.h"
#include "engine/ExporterJobs.h"
#include "engine/Manager.h"
#include "engine/ManagerDelegate.h"
#include "engine/Metronome.h"
#include "project/Document.h"
#include "project/DocumentSession.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

const char* const kUsage =
    "Usage: kv3 render PROJECT OUT [--container wav|aiff|caf] [--depth 16|24|32|float|double] [--loop]\n"
    "                  [--with-click] [--block N] [--quality standard|high]\n"
    "\n"
    "Renders the session of PROJECT offline through the engine's mixer, exactly as the program's\n"
    "export does, into OUT at the project's sample rate, two channels: every track with its volume,\n"
    "pan, speed, pitch and effect, from the start to the end of the longest track.\n"
    "--loop        renders only the project's loop\n"
    "--with-click  puts the metronome in the mix at the project's tempo, signature and volume, with\n"
    "              the accented clicks of the first set (the program's export turns it off)\n"
    "--container   the file type; by default the one of OUT's extension (.wav, .aif/.aiff, .caf)\n"
    "--depth       bits per sample, or float (32-bit) or double (64-bit); default 24\n"
    "--block       frames per block of the graph; default 512\n"
    "--quality     standard or high: the speed and pitch engine (high keeps sustained notes clean at\n"
    "              several times the CPU); by default the one the settings name\n"
    "Armed tracks deliver nothing, as in the program. Files of the project that are missing are named\n"
    "on stderr and their tracks stay silent. OUT is written under a temporary name and renamed when\n"
    "complete. A progress bar is shown when stderr is a terminal.\n";

// Reports the job's progress to the bar and keeps its outcome.
class RenderDelegate : public ManagerDelegate
{
public:
    explicit RenderDelegate(const std::string& label) : bar_(label) {}
    void taskTitle(const epiText&) override {}
    void taskMessage(const epiText&) override {}
    void taskProgress(float fraction) override { bar_.update(fraction); }
    void taskFinished() override
    {
        finished = true;
        bar_.finish();
    }
    void taskFailed(const epiText& message) override { failure = message; }
    void audioSuspend() override {}
    void audioResume() override {}
    void endReached() override {}
    void autoRecordStarted() override {}
    void pluginChanged() override {}
    void metronomeBeat() override {}

    bool finished = false;
    std::string failure;

private:
    kv3cli::ProgressBar bar_;
};

int runRender(const std::vector<std::string>& argv)
{
    static const kv3cli::Command* self = &kv3cli::commands().at("render");
    kv3cli::Args args;
    if (!args.parse(argv, {"container", "depth", "block", "quality"}, {"loop", "with-click"}))
        return kv3cli::usageError("render", args.error());
    if (args.help())
        return kv3cli::printUsage(*self);
    if (args.positional().size() != 2)
        return kv3cli::usageError("render", "give PROJECT and OUT");
    const std::string projectFile = args.positional()[0];
    const std::string out = args.positional()[1];

    int32_t container = -1;
    if (auto value = args.value("container"))
    {
        container = AudioFileFormats::containerOfExtension(value->c_str());
        if (container < AudioFileFormats::kWave || container > AudioFileFormats::kCaf)
            return kv3cli::usageError("render", "unknown container '" + *value + "' (wav, aiff or caf)");
    }
    else
    {
        const std::string extension = fs::path(out).extension().string();
        container = extension.empty() ? -1 : AudioFileFormats::containerOfExtension(extension.c_str() + 1);
        if (container < AudioFileFormats::kWave || container > AudioFileFormats::kCaf)
            return kv3cli::usageError("render", "can't tell the container from '" + out +
                                                    "'; give --container wav, aiff or caf");
    }
    int32_t depth = AudioFileFormats::k24Bit;
    if (auto value = args.value("depth"))
    {
        const auto parsed = kv3cli::depthOf(*value);
        if (!parsed)
            return kv3cli::usageError("render",
                                      "unknown depth '" + *value + "' (16, 24, 32, float or double)");
        depth = *parsed;
    }
    uint32_t block = 512;
    if (auto value = args.value("block"))
    {
        const auto parsed = kv3cli::parseInt(*value);
        if (!parsed || *parsed < 16 || *parsed > 8192)
            return kv3cli::usageError("render", "--block must be 16 to 8192 frames, not " + *value);
        block = static_cast<uint32_t>(*parsed);
    }

    StretchQuality quality = StretchQuality::standard;
    if (std::string why; !kv3cli::chooseQuality(args, quality, why))
        return kv3cli::usageError("render", why);

    if (!fs::is_regular_file(projectFile))
        return kv3cli::fail(projectFile + ": no such file");
    Document doc;
    std::error_code error;
    const std::string fullProject = fs::absolute(projectFile, error).lexically_normal().string();
    if (!doc.load(epiPath(fullProject)))
        return kv3cli::fail(projectFile + " is not a readable Korvalind 3 project (version 4)");
    if (doc.sampleRate < 8000 || doc.sampleRate > 384000)
        return kv3cli::fail(projectFile + ": the project's sample rate " + std::to_string(doc.sampleRate) +
                            " Hz can't be rendered");
    // Without a window nobody can be asked: a file that is still missing leaves its track silent.
    doc.locateFiles(nullptr);
    for (const auto& element : doc.elements)
        if (!element->exists())
            std::cerr << "kv3: " << *element << ": missing, its track stays silent\n";

    const fs::path target = fs::absolute(out, error);
    std::string hidden = target.filename().string();
    hidden.insert(0, 1, '.');
    hidden.append(".part-").append(std::to_string(::getpid()));
    const fs::path temporary = target.parent_path() / hidden;

    RenderDelegate delegate("render");
    Manager manager;
    Metronome& metronome = manager.metronomeNode();
    manager.setDelegate(&delegate);
    manager.setFormat(static_cast<uint32_t>(doc.sampleRate), block);
    applyDocumentSession(doc, manager, &metronome);
    kv3cli::applyQuality(manager, quality);
    kv3cli::reportUnplayableTracks(manager);
    if (args.flag("with-click"))
    {
        // The first set's accented clicks, from the pack linked into the program.
        if (!kv3cli::loadClickSounds(manager))
            return kv3cli::fail("the click sounds in the program's resource pack can't be read");
        // The click follows the session's grid from the start of what is rendered.
        metronome.setPlaying(true);
        metronome.setEnabled(true);
    }

    ManagerJobs::startExport(manager, epiPath(temporary.string()), container, depth, args.flag("loop"));
    while (manager.hasTask())
        manager.poll();
    metronome.setEnabled(false);
    if (!delegate.finished)
    {
        fs::remove(temporary, error);
        return kv3cli::fail(projectFile +
                            (args.flag("loop") ? ": the loop is empty" : ": the session is empty") +
                            ", nothing to render");
    }
    if (!fs::is_regular_file(temporary))
        return kv3cli::fail("can't write " + out);
    fs::rename(temporary, target, error);
    if (error)
    {
        fs::remove(temporary, error);
        return kv3cli::fail("can't rename the finished file to " + out);
    }
    std::cout << target.string() << "\n";
    return kv3cli::kOk;
}

const kv3cli::Register reg{
    kv3cli::Command{"render", "renders a project's session or loop to an audio file", kUsage, runRender}};

} // namespace
