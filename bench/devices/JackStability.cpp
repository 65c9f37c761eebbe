// bench_devices_jack: how steadily the device front runs a real session on a JACK server. It starts a
// private server with the dummy driver and realtime scheduling (jackd -R; it needs the right to ask for
// it, which root has), brings AudioHardware up on it exactly as the program does, and plays the demo
// session (resources/demo) on all four tracks, each through its own instance of the reference amp
// plug-in: the bass on tracks 1 and 3, the chords on tracks 2 and 4, at the server's rate (the 44.1 kHz
// bass is resampled), looping over the demo's bars 2 and 3 so that every track sounds all the time.
// It reports the periods run against those expected, the late periods JACK counted (xruns), the busy
// level, and whether the server's and the program's audio threads really got realtime scheduling.
//
//   bench_devices_jack [--seconds S] [--frames N] [--rate HZ] [--no-realtime]
//
// Defaults: 300 seconds, 64 frames, 48000 Hz, realtime.

#include "devices/AudioHardware.h"
#include "devices/jack/MPAudioJack.h"
#include "engine/Manager.h"
#include "host/settings/HostSettings.h"
#include "project/Document.h"
#include "project/DocumentSession.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
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

/** The device front with the peak of what it gives the device, so that the run shows the session sounds.
    The peak is taken after the engine's block, outside the time the busy meter measures. */
class MeteredHardware : public Korvalind3Host::AudioHardware
{
public:
    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t frames) override
    {
        AudioHardware::process(inputs, inputCount, outputs, outputCount, frames);
        float peak = peak_.load(std::memory_order_relaxed);
        for (int c = 0; c < 2; ++c)
        {
            for (std::uint32_t i = 0; i < frames; ++i)
            {
                peak = std::max(peak, std::abs(outputs[c][i]));
            }
        }
        peak_.store(peak, std::memory_order_relaxed);
    }
    float peak() const { return peak_.load(std::memory_order_relaxed); }

private:
    /** Written by the audio thread only, read by the main loop: relaxed, it is a meter. */
    std::atomic<float> peak_{0.0f};
};

/** How many threads of a process run under SCHED_FIFO or SCHED_RR, and how many it has. */
std::pair<int, int> realtimeThreads(const std::string& process)
{
    int realtime = 0;
    int threads = 0;
    const std::string tasks = "/proc/" + process + "/task";
    DIR* dir = opendir(tasks.c_str());
    if (dir == nullptr)
    {
        return {0, 0};
    }
    while (dirent* entry = readdir(dir))
    {
        if (entry->d_name[0] == '.')
        {
            continue;
        }
        std::ifstream stat(tasks + "/" + entry->d_name + "/stat");
        std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
        // The fields after the command's closing parenthesis; the policy is field 41 of the line.
        const std::size_t close = text.rfind(')');
        if (close == std::string::npos)
        {
            continue;
        }
        std::istringstream fields(text.substr(close + 2));
        std::string field;
        int policy = 0;
        for (int n = 3; n <= 41 && fields >> field; ++n)
        {
            if (n == 41)
            {
                policy = std::atoi(field.c_str());
            }
        }
        ++threads;
        realtime += (policy == SCHED_FIFO || policy == SCHED_RR) ? 1 : 0;
    }
    closedir(dir);
    return {realtime, threads};
}

/**
 * The demo session, on all four tracks through the amp, at the given rate. The demo project is only
 * read: its files are found beside it.
 */
bool loadDemo(Document& doc, unsigned rate, std::string& why)
{
    const std::string file = std::string(KV3_DEMO_DIR) + "/demo.kv3h";
    if (!doc.load(epiPath(file.c_str())))
    {
        why = file + " can't be read";
        return false;
    }
    doc.locateFiles(nullptr);
    if (doc.trackElementIndex(0) < 0 || doc.trackElementIndex(1) < 0)
    {
        why = file + " lacks its bass and chords tracks";
        return false;
    }
    for (const auto& element : doc.elements)
    {
        if (!element->exists())
        {
            why = std::string(element->c_str()) + " is missing";
            return false;
        }
    }
    // Tracks 3 and 4 double the bass and the chords.
    doc.tracks[2]->elementId = doc.tracks[0]->elementId;
    doc.tracks[3]->elementId = doc.tracks[1]->elementId;
    for (auto& track : doc.tracks)
    {
        track->armed = false;
        track->effectEnabled = true;
        track->effectLoaded = true;
    }
    // The demo's loop over bars 2 and 3, at the server's rate.
    const double scale = static_cast<double>(rate) / doc.sampleRate;
    doc.loopStart = static_cast<int64_t>(static_cast<double>(doc.loopStart) * scale);
    doc.loopEnd = static_cast<int64_t>(static_cast<double>(doc.loopEnd) * scale);
    doc.loopEnabled = doc.loopEnd > doc.loopStart;
    doc.sampleRate = static_cast<int32_t>(rate);
    return true;
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
    if (!(seconds > 0.0) || frames < 16 || frames > 8192 || rate < 8000 || rate > 384000)
    {
        std::fprintf(stderr,
                     "bench_devices_jack: --seconds must be above 0, --frames 16 to 8192, --rate 8000 "
                     "to 384000\n");
        return 2;
    }

    const std::string server = "kv3bench_" + std::to_string(getpid());
    setenv("JACK_DEFAULT_SERVER", server.c_str(), 1);
    setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
    char folder[] = "/tmp/kv3benchXXXXXX";
    setenv("KV3_CONFIG_DIR", mkdtemp(folder), 1);
    // The amp of this build, whatever the settings of the machine say.
    setenv("KV3_VPA2_PATH", KV3_REFAMP, 1);

    Document doc;
    std::string why;
    if (!loadDemo(doc, rate, why))
    {
        std::fprintf(stderr, "bench_devices_jack: %s\n", why.c_str());
        std::filesystem::remove_all(folder);
        return 1;
    }

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

    int result = 0;
    {
        MeteredHardware hardware;
        Manager manager;
        manager.setFormat(rate, frames);
        applyDocumentSession(doc, manager, &manager.metronomeNode());
        manager.sessionLength();
        int amps = 0;
        for (int32_t t = 0; t < Manager::kTracks; ++t)
        {
            amps += manager.trackNode(t).effect().hasInstance() ? 1 : 0;
        }
        if (amps != Manager::kTracks)
        {
            std::fprintf(stderr, "bench_devices_jack: only %d of 4 amps run (%s: %s)\n", amps,
                         manager.effects().plugin().lastTitle().c_str(),
                         manager.effects().plugin().lastText().c_str());
            stopServer(pid);
            std::filesystem::remove_all(folder);
            return 1;
        }

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
            std::filesystem::remove_all(folder);
            return 1;
        }
        manager.locate(0);
        manager.start();
        auto* jack = dynamic_cast<MPAudioJack*>(hardware.backend());
        const std::uint32_t blocksBefore = manager.blockCount();
        const auto start = std::chrono::steady_clock::now();
        int maxBusy = 0;
        double busySum = 0.0;
        long busyReadings = 0;
        int shown = 0;
        std::pair<int, int> serverThreads{0, 0};
        std::pair<int, int> ownThreads{0, 0};
        while (std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < seconds)
        {
            hardware.poll();
            manager.poll();
            hardware.readBusyLevel(&shown);
            const int busy = hardware.busyMeter().busyPercent();
            maxBusy = std::max(maxBusy, busy);
            busySum += busy;
            ++busyReadings;
            if (busyReadings == 30)
            {
                // Once the audio threads exist: the scheduling they got.
                serverThreads = realtimeThreads(std::to_string(pid));
                ownThreads = realtimeThreads("self");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(33));
        }
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const std::uint32_t blocks = manager.blockCount() - blocksBefore;
        const std::uint32_t xruns = jack ? jack->xrunCount() : 0;
        const bool running = hardware.isRunning();
        const std::uint32_t roundTrip = hardware.roundTripLatency();
        manager.stop();
        // The amps are switched off while blocks still come: each unit frees its instance after three
        // more of them, where a stopped device would make it wait a second or two.
        for (int32_t t = 0; t < Manager::kTracks; ++t)
        {
            manager.trackNode(t).effect().setEnabled(false);
        }
        hardware.stopHardware();

        const double expected = elapsed * rate / frames;
        std::printf(
            "server: dummy, %u frames at %u Hz, %s scheduling asked; realtime threads: server %d of %d, "
            "this program %d of %d\n",
            frames, rate, realtime ? "realtime" : "normal", serverThreads.first, serverThreads.second,
            ownThreads.first, ownThreads.second);
        std::printf("session: the demo on 4 tracks, %d reference amps, loop %lld-%lld, output peak %.2f\n",
                    amps, static_cast<long long>(doc.loopStart), static_cast<long long>(doc.loopEnd),
                    static_cast<double>(hardware.peak()));
        std::printf("ran %.1f s: %u periods of %.0f expected (%.3f%%), %u late periods reported by JACK, "
                    "still running: %s\n",
                    elapsed, blocks, expected, 100.0 * blocks / expected, xruns, running ? "yes" : "no");
        std::printf("busy: mean %.1f%%, peak %d%%, shown at the end %d%%\n",
                    busyReadings > 0 ? busySum / static_cast<double>(busyReadings) : 0.0, maxBusy, shown);
        std::printf("latency: %.2f ms per period, %u frames round trip as the device reports it\n",
                    1000.0 * frames / rate, roundTrip);
        result = running ? 0 : 1;
    }
    stopServer(pid);
    std::filesystem::remove_all(folder);
    return result;
}
