// kv3 record: a take recorded on one track from the audio device while the others play, merged into
// the track's new file as the program's record button does, and the project saved.

#include "app/kv3/Cli.h"
#include "app/kv3/LiveSession.h"
#include "engine/Track.h"

#include <cmath>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace
{

const char* const kUsage =
    "Usage: kv3 record PROJECT --track N [--seconds S] [--technology T] [--device NAME] [--buffer N]\n"
    "                  [--quality standard|high]\n"
    "\n"
    "Arms track N (1 to 4) and records a take on it from the audio device while the other tracks play,\n"
    "from the start of the session. The device is brought up as kv3 play does. When the take ends it is\n"
    "merged with what the track held (the old audio before and after it stays) into a new file in the\n"
    "project's recording folder, \"Audio_T<N>_<n>.aif\", which becomes a recorded element on the track;\n"
    "the track is disarmed and the project saved. Prints the new file's path.\n"
    "The track records its input as the project sets it (left, right or both), after the project's\n"
    "input gain and before the effect. Another armed track on the same input is disarmed, as the\n"
    "program's record button does; a take on a frozen track is refused. With the project's loop on, the\n"
    "take is punched in at the loop start and ends at the loop end.\n"
    "--seconds     the take's length in seconds of the session; without it the take runs until Ctrl-C\n"
    "              (or the loop end). A device that doesn't come up within S seconds (10 without\n"
    "              --seconds) is given up on\n"
    "--technology, --device, --buffer  as for kv3 play: for this run only\n"
    "--quality     standard or high: the speed and pitch engine (high keeps sustained notes clean at\n"
    "              several times the CPU); by default the one the settings name\n"
    "A project whose folder moved records into the folder it now lies in. When the take fails (the\n"
    "device is missing or was lost during it, the file can't be written, nothing was recorded) the\n"
    "project file is left as it was and the exit status is 1. A take during which the disk fell behind\n"
    "is kept with its gaps and saved, and the exit status is 1 too.\n";

const char* const kInputNames[] = {"left", "right", "both"};

// Two armed tracks must not record the same input: arming one disarms the others that share a channel
// with it, as the track's record button does.
void arm(Manager& manager, int32_t track)
{
    const int32_t mine = manager.track(track).input();
    for (int32_t other = 0; other < Manager::kTracks; ++other)
    {
        if (other == track || !manager.track(other).isArmed())
            continue;
        const int32_t theirs = manager.track(other).input();
        if (mine == 2 || theirs == mine || theirs == 2)
        {
            manager.track(other).setArmed(false);
            std::cerr << "kv3: track " << other + 1 << " is disarmed: it was armed on the "
                      << kInputNames[theirs >= 0 && theirs <= 2 ? theirs : 2] << " input too\n";
        }
    }
    manager.track(track).setArmed(true);
}

int runRecord(const std::vector<std::string>& argv)
{
    kv3cli::Args args;
    if (!args.parse(argv, {"track", "seconds", "technology", "device", "buffer", "quality"}, {}))
        return kv3cli::usageError("record", args.error());
    if (args.help())
        return kv3cli::printUsage(kv3cli::commands().at("record"));
    if (args.positional().size() != 1)
        return kv3cli::usageError("record", "give one PROJECT");
    const auto trackText = args.value("track");
    const auto number = trackText ? kv3cli::parseInt(*trackText) : std::nullopt;
    if (!number || *number < 1 || *number > 4)
        return kv3cli::usageError("record", trackText
                                                ? "--track must be 1 to 4, not " + *trackText
                                                : std::string("give the track to record on: --track N"));
    const auto track = static_cast<int32_t>(*number - 1);
    const std::string trackName = "track " + std::to_string(track + 1);
    kv3cli::DeviceChoice choice;
    std::optional<double> seconds;
    std::string error;
    if (!kv3cli::parseDeviceChoice(args, choice, error) || !kv3cli::parseSeconds(args, seconds, error))
        return kv3cli::usageError("record", error);

    const std::string file = args.positional()[0];
    kv3cli::LiveSession session;
    if (const int loaded = session.load(file); loaded != kv3cli::kOk)
        return loaded;
    Document& doc = session.document();
    if (doc.tracks[static_cast<size_t>(track)]->frozen)
        return kv3cli::fail(file + ": " + trackName + " is frozen; unfreeze it before recording on it");
    if (doc.workFolder.empty())
        doc.workFolder = doc.path.folder(); // a project that moved records where it now lies
    session.prepare(choice);
    Manager& manager = session.manager();
    arm(manager, track);
    // A take runs at the normal speed whatever the session's speed ratio, as the program sets it.
    manager.track(track).setSpeed(1.0f / manager.speedRatio());

    const double waitLimit = seconds.value_or(kv3cli::LiveSession::kDefaultWaitSeconds);
    if (!session.bringUp(waitLimit))
        return kv3cli::kFailure;
    epiPath take;
    if (!doc.newTakeFile(track, take))
    {
        session.stop();
        return kv3cli::fail(std::string("no free name for a take of ") + trackName + " in " +
                            doc.workFolder.c_str());
    }
    if (!manager.startTake(track, take))
    {
        session.stop();
        return kv3cli::fail(manager.trackNode(track).takeErrorText());
    }
    manager.setRecording(true);
    session.startTransport(0);
    // Counted in engine frames, one per frame of the device: seconds of the session as it runs.
    const int64_t lastFrame =
        seconds ? static_cast<int64_t>(std::llround(*seconds * static_cast<double>(manager.sampleRate())))
                : -1;
    for (;;)
    {
        session.tick("recording");
        if (kv3cli::LiveSession::interrupted() || session.reachedEnd())
            break;
        if (lastFrame >= 0 && manager.enginePosition() >= lastFrame)
            break;
        if (session.secondsWithoutDevice() > waitLimit)
            break;
    }
    const bool lost = session.lossesSinceStart() > 0;
    manager.stop();
    manager.setRecording(false);
    Track& recorded = manager.trackNode(track);
    const bool kept = recorded.setRecording(false);
    session.stop();

    if (lost)
    {
        return kv3cli::fail(session.deviceName() + " was lost during the take; the project is unchanged" +
                            (kept ? std::string(", the take is left in ") + take.c_str() : std::string()));
    }
    if (!kept && recorded.takeError() != Track::TakeError::incomplete)
        return kv3cli::fail(trackName + ": " + recorded.takeErrorText());
    // The take is over: the track plays it back.
    manager.track(track).setArmed(false);
    doc.captureAll(manager);
    if (!doc.save(doc.path))
        return kv3cli::fail(file + ": can't write the project file; the take is left in " + take.c_str());
    if (!kept)
        return kv3cli::fail(trackName + ": " + recorded.takeErrorText() + " The project was saved with it.");
    std::cout << take << "\n";
    return kv3cli::kOk;
}

const kv3cli::Register reg{kv3cli::Command{
    "record", "records a take on a track from the audio device and saves the project", kUsage, runRecord}};

} // namespace
