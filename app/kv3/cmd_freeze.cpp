// kv3 freeze and kv3 unfreeze: a track's effect rendered into its "_frozen" file, or the freeze
// cleared, with the project saved afterwards.

#include "app/kv3/Cli.h"
#include "engine/ExporterJobs.h"
#include "engine/Manager.h"
#include "engine/ManagerDelegate.h"
#include "project/Document.h"
#include "project/DocumentSession.h"

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

const char* const kFreezeUsage =
    "Usage: kv3 freeze PROJECT --track N\n"
    "\n"
    "Renders track N (1 to 4) through its effect, with its speed and pitch, into a 24-bit WAVE file\n"
    "beside the track's file with \"_TN_frozen\" added to the name, marks the track frozen (it then plays\n"
    "that file and holds no plug-in instance) and saves the project. A track that was frozen is\n"
    "rendered again; an armed track is rendered from its file as if it were not armed. A progress bar\n"
    "is shown when stderr is a terminal.\n";

const char* const kUnfreezeUsage =
    "Usage: kv3 unfreeze PROJECT --track N\n"
    "\n"
    "Clears the freeze of track N (1 to 4): the track plays its file through its\n"
    "effect again, its \"_frozen\" file is deleted, and the project is saved.\n";

class FreezeDelegate : public ManagerDelegate
{
public:
    FreezeDelegate() : bar_("freeze") {}
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

int run(const std::vector<std::string>& argv, bool freeze)
{
    const char* name = freeze ? "freeze" : "unfreeze";
    const kv3cli::Command& self = kv3cli::commands().at(name);
    kv3cli::Args args;
    if (!args.parse(argv, {"track"}, {}))
        return kv3cli::usageError(name, args.error());
    if (args.help())
        return kv3cli::printUsage(self);
    if (args.positional().size() != 1)
        return kv3cli::usageError(name, "give one PROJECT");
    const auto trackValue = args.value("track");
    const auto number = trackValue ? kv3cli::parseInt(*trackValue) : std::nullopt;
    if (!number || *number < 1 || *number > 4)
        return kv3cli::usageError(name, "--track must be 1 to 4");
    const auto track = static_cast<int32_t>(*number - 1);

    const std::string file = args.positional()[0];
    if (!fs::is_regular_file(file))
        return kv3cli::fail(file + ": no such file");
    Document doc;
    std::error_code error;
    if (!doc.load(epiPath(fs::absolute(file, error).lexically_normal().string())))
        return kv3cli::fail(file + " is not a readable Korvalind 3 project (version 4)");
    if (doc.sampleRate < 8000 || doc.sampleRate > 384000)
        return kv3cli::fail(file + ": the project's sample rate can't be rendered");
    doc.locateFiles(nullptr);
    epiPath audio;
    bool recorded = false;
    if (freeze)
    {
        if (!doc.trackFile(track, audio, recorded))
            return kv3cli::fail(file + ": track " + std::to_string(track + 1) + " has no file to freeze");
        if (!audio.exists())
            return kv3cli::fail(audio + ": missing, track " + std::to_string(track + 1) + " can't be frozen");
    }
    else if (!doc.tracks[static_cast<size_t>(track)]->frozen)
    {
        std::cout << "track " << track + 1 << " is not frozen\n";
        return kv3cli::kOk;
    }

    FreezeDelegate delegate;
    Manager manager;
    manager.setDelegate(&delegate);
    manager.setFormat(static_cast<uint32_t>(doc.sampleRate), 512);
    applyDocumentSession(doc, manager, nullptr);
    ManagerJobs::setTrackFrozen(manager, track, freeze);
    while (manager.hasTask())
        manager.poll();
    // The project file is left as it was.
    if (freeze && !delegate.finished)
        return kv3cli::fail(file + ": track " + std::to_string(track + 1) + " could not be frozen" +
                            (delegate.failure.empty() ? std::string() : ": " + delegate.failure));
    doc.captureTrack(track, manager);
    if (!freeze)
        doc.tracks[static_cast<size_t>(track)]->frozenPath.clear();
    if (!doc.save(doc.path))
        return kv3cli::fail(file + ": can't write the project file");
    if (freeze)
        std::cout << doc.tracks[static_cast<size_t>(track)]->frozenPath << "\n";
    return kv3cli::kOk;
}

const kv3cli::Register freezeReg{kv3cli::Command{"freeze", "renders a track's effect into its _frozen file",
                                                 kFreezeUsage,
                                                 [](const auto& argv) { return run(argv, true); }}};
const kv3cli::Register unfreezeReg{kv3cli::Command{"unfreeze", "clears a track's freeze and deletes its file",
                                                   kUnfreezeUsage,
                                                   [](const auto& argv) { return run(argv, false); }}};

} // namespace
