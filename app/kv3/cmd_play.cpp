// kv3 play: a project played on the audio device, as the program's window plays it.

#include "app/kv3/Cli.h"
#include "app/kv3/LiveSession.h"

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace
{

const char* const kUsage =
    "Usage: kv3 play PROJECT [--technology T] [--device NAME] [--buffer N] [--seconds S] [--from FRAME]\n"
    "                [--quality standard|high]\n"
    "\n"
    "Brings the audio device up as the program does, from the stored settings: its start sequence, and\n"
    "a new attempt once a second while the device is missing or refuses. Then plays the project from\n"
    "session frame FRAME (default 0): every track with its volume, pan, speed, pitch and effect, and the\n"
    "loop and the click as the project has them; armed tracks give their live input instead. Prints each\n"
    "change of the device's state (running, waiting, stopped, lost, rate not supported) and, once a\n"
    "second, the time played, the session position and the busy level.\n"
    "--seconds     stops after S seconds of playing; without it, at the end of the session (a project\n"
    "              whose loop is on plays until Ctrl-C). A device that doesn't come up, or is lost and\n"
    "              doesn't come back, within S seconds (10 without --seconds) is given up on: exit 1\n"
    "--from        the session frame to start at; at most the session's length\n"
    "--technology  ALSA or JACK (DirectX and ASIO name the same two) instead of the stored one\n"
    "--device      the device for input and output, by the name kv3 devices lists; with --technology\n"
    "              alone, that technology's first device. Channels the settings name that the device\n"
    "              lacks are replaced by its first two\n"
    "--buffer      frames per block to ask for (a device may give another size)\n"
    "These three count for this run only: the settings file is never written. With any of them the\n"
    "first run's search through the known interfaces is skipped.\n"
    "--quality     standard or high: the speed and pitch engine (high keeps sustained notes clean at\n"
    "              several times the CPU); by default the one the settings name\n"
    "An effect that can't be loaded is named on stderr and its track plays dry. Ctrl-C stops.\n";

int runPlay(const std::vector<std::string>& argv)
{
    kv3cli::Args args;
    if (!args.parse(argv, {"technology", "device", "buffer", "seconds", "from", "quality"}, {}))
        return kv3cli::usageError("play", args.error());
    if (args.help())
        return kv3cli::printUsage(kv3cli::commands().at("play"));
    if (args.positional().size() != 1)
        return kv3cli::usageError("play", "give one PROJECT");
    kv3cli::DeviceChoice choice;
    std::optional<double> seconds;
    std::string error;
    if (!kv3cli::parseDeviceChoice(args, choice, error) || !kv3cli::parseSeconds(args, seconds, error))
        return kv3cli::usageError("play", error);
    int64_t from = 0;
    if (auto text = args.value("from"))
    {
        const auto frame = kv3cli::parseInt(*text);
        if (!frame || *frame < 0)
            return kv3cli::usageError("play", "--from must be a session frame, 0 or more, not " + *text);
        from = *frame;
    }

    kv3cli::LiveSession session;
    if (const int loaded = session.load(args.positional()[0]); loaded != kv3cli::kOk)
        return loaded;
    session.prepare(choice);
    const int64_t length = session.manager().sessionLength();
    if (from > length)
        return kv3cli::usageError("play", "--from " + std::to_string(from) +
                                              " lies past the end of the session (" + std::to_string(length) +
                                              " frames)");

    const double waitLimit = seconds.value_or(kv3cli::LiveSession::kDefaultWaitSeconds);
    if (!session.bringUp(waitLimit))
        return kv3cli::kFailure;
    session.startTransport(from);
    int result = kv3cli::kOk;
    for (;;)
    {
        session.tick("playing");
        if (kv3cli::LiveSession::interrupted() || session.reachedEnd())
            break;
        if (session.secondsWithoutDevice() > waitLimit)
        {
            char limit[32];
            std::snprintf(limit, sizeof limit, "%g", waitLimit);
            result = kv3cli::fail(session.deviceName() + " was lost and didn't come back within " + limit +
                                  " s: " + session.deviceTrouble());
            break;
        }
        if (seconds && session.secondsPlayed() >= *seconds)
            break;
    }
    if (result == kv3cli::kOk && !session.deviceRunning() && !kv3cli::LiveSession::interrupted())
        result = kv3cli::fail(session.deviceName() + " was lost and hadn't come back when the time was up");
    const double played = session.secondsPlayed();
    const int64_t position = session.manager().sessionPosition();
    session.stop();
    if (result == kv3cli::kOk)
        std::printf("played %.1f s, stopped at session frame %lld\n", played,
                    static_cast<long long>(position));
    return result;
}

const kv3cli::Register reg{kv3cli::Command{"play", "plays a project on the audio device", kUsage, runPlay}};

} // namespace
