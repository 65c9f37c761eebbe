// bench_devices_jack: how steadily the device front runs the engine on a JACK server. It starts a
// private server with the dummy driver and realtime scheduling (jackd -R; it needs the right to
// ask for it, which root has), brings AudioHardware up on it exactly as the program does, lets it
// run, and reports the periods run, the late periods JACK counted (xruns) and the busy level.
//
//   bench_devices_jack [--seconds S] [--frames N] [--rate HZ] [--no-realtime]
//
// The engine here is a Manager with empty tracks: the figure is that of the device path. A full
// session through the amplifier plug-in on four tracks needs the tracks of the program.

#include "devices/AudioHardware.h"
#include "devices/jack/MPAudioJack.h"
#include "engine/Manager.h"
#include "host/settings/HostSettings.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

pid_t startServer(const std::string& name, unsigned rate, unsigned frames, bool realtime)
{
    const pid_t pid = fork();
    if (pid == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        const int devnull = open("/dev/null", O_WRONLY);
        dup2(devnull, 1);
        dup2(devnull, 2);
        const std::string r = std::to_string(rate);
        const std::string p = std::to_string(frames);
        execlp("jackd", "jackd", realtime ? "-R" : "-r", "-n", name.c_str(), "-d", "dummy", "-r", r.c_str(),
               "-p", p.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    return pid;
}

void stopServer(pid_t pid)
{
    kill(pid, SIGTERM);
    for (int i = 0; i < 250; ++i)
    {
        if (waitpid(pid, nullptr, WNOHANG) == pid)
        {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

} // namespace

int main(int argc, char** argv)
{
    double seconds = 300.0;
    unsigned frames = 64;
    unsigned rate = 48000;
    bool realtime = true;
    for (int i = 1; i < argc; ++i)
    {
        const std::string a = argv[i];
        if (a == "--seconds" && i + 1 < argc)
            seconds = std::atof(argv[++i]);
        else if (a == "--frames" && i + 1 < argc)
            frames = static_cast<unsigned>(std::atoi(argv[++i]));
        else if (a == "--rate" && i + 1 < argc)
            rate = static_cast<unsigned>(std::atoi(argv[++i]));
        else if (a == "--no-realtime")
            realtime = false;
        else
        {
            std::fprintf(
                stderr, "usage: bench_devices_jack [--seconds S] [--frames N] [--rate HZ] [--no-realtime]\n");
            return 2;
        }
    }

    const std::string server = "kv3bench_" + std::to_string(getpid());
    setenv("JACK_DEFAULT_SERVER", server.c_str(), 1);
    setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
    char folder[] = "/tmp/kv3benchXXXXXX";
    setenv("KV3_CONFIG_DIR", mkdtemp(folder), 1);

    const pid_t pid = startServer(server, rate, frames, realtime);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));

    Korvalind3Host::HostSettings settings;
    settings.technology_ = "JACK";
    settings.inputDevice_ = server.c_str();
    settings.outputDevice_ = server.c_str();
    settings.inputLeftChannel_ = "system:capture_1";
    settings.inputRightChannel_ = "system:capture_2";
    settings.outputLeftChannel_ = "system:playback_1";
    settings.outputRightChannel_ = "system:playback_2";
    settings.bufferSize_ = frames;
    settings.save();

    Korvalind3Host::AudioHardware hardware;
    Manager manager;
    manager.setFormat(rate, frames);
    hardware.setManager(&manager);
    hardware.setSettings(&settings);
    hardware.setProjectSampleRate(rate);
    hardware.waitForHardware();
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!hardware.isRunning() && std::chrono::steady_clock::now() < giveUp)
    {
        hardware.poll();
        std::this_thread::sleep_for(std::chrono::milliseconds(33));
    }
    if (!hardware.isRunning())
    {
        std::fprintf(stderr, "bench_devices_jack: the device did not come up\n");
        stopServer(pid);
        return 1;
    }
    manager.start();
    auto* jack = dynamic_cast<MPAudioJack*>(hardware.backend());
    const std::uint32_t blocksBefore = manager.blockCount();
    const auto start = std::chrono::steady_clock::now();
    int maxBusy = 0;
    while (std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < seconds)
    {
        hardware.poll();
        int busy = 0;
        hardware.readBusyLevel(&busy);
        maxBusy = std::max(maxBusy, hardware.busyMeter().busyPercent());
        std::this_thread::sleep_for(std::chrono::milliseconds(33));
    }
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const std::uint32_t blocks = manager.blockCount() - blocksBefore;
    const std::uint32_t xruns = jack ? jack->xrunCount() : 0;
    const bool running = hardware.isRunning();
    hardware.stopHardware();
    stopServer(pid);
    std::filesystem::remove_all(folder);

    const double expected = elapsed * rate / frames;
    std::printf("server: dummy, %u frames at %u Hz, %s scheduling\n", frames, rate,
                realtime ? "realtime" : "normal");
    std::printf("ran %.1f s: %u periods of %.0f expected (%.3f%%), %u late periods reported by JACK, "
                "busy peak %d%%, still running: %s\n",
                elapsed, blocks, expected, 100.0 * blocks / expected, xruns, maxBusy, running ? "yes" : "no");
    std::printf("latency: %.2f ms per period, %u frames round trip as the device reports it\n",
                1000.0 * frames / rate, hardware.roundTripLatency());
    return 0;
}
