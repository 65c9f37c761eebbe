// The project on the audio device, for kv3 play and kv3 record.

#include "app/kv3/LiveSession.h"

#include "app/kv3/AudioOutput.h"
#include "app/kv3/ClickSounds.h"
#include "devices/MPAudio.h"
#include "engine/Metronome.h"
#include "project/DocumentSession.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace kv3cli
{
namespace
{

// Set by the signal handler, read by the command's loop.
std::atomic<bool> gInterrupted{false};

extern "C" void onStopSignal(int)
{
    gInterrupted.store(true, std::memory_order_relaxed);
}

std::string quoted(const epiText& text)
{
    std::string result = "\"";
    result += text.c_str();
    result += '"';
    return result;
}

bool contains(const std::vector<std::uint32_t>& list, std::uint32_t value)
{
    return std::find(list.begin(), list.end(), value) != list.end();
}

// Replaces channel names the device doesn't have with its first two channels.
void fitChannels(MPAudio& probe, bool input, const epiText& device, epiText& left, epiText& right)
{
    int index = -1;
    if (!probe.findDevice(device.c_str(), input, &index))
    {
        return;
    }
    std::vector<MPAudioChannelName> names;
    if (!probe.queryDevice(index, input, nullptr, &names, nullptr, nullptr, nullptr, nullptr, nullptr) ||
        names.empty())
    {
        return;
    }
    int channel = -1;
    if (!probe.findChannel(index, input, left.c_str(), &channel))
    {
        left = names[0].name;
    }
    if (!probe.findChannel(index, input, right.c_str(), &channel))
    {
        right = names[names.size() > 1 ? 1 : 0].name;
    }
}

} // namespace

bool parseDeviceChoice(const Args& args, DeviceChoice& choice, std::string& error)
{
    if (auto technology = args.value("technology"))
    {
        if (MPAudio::driverIndex(technology->c_str()) < 0)
        {
            error = "unknown technology '" + *technology + "' (ALSA, JACK, DirectX or ASIO)";
            return false;
        }
        choice.technology = *technology;
    }
    if (auto device = args.value("device"))
    {
        if (device->empty())
        {
            error = "--device needs a device name (see kv3 devices)";
            return false;
        }
        choice.device = *device;
    }
    if (auto buffer = args.value("buffer"))
    {
        const auto frames = parseInt(*buffer);
        if (!frames || *frames < 16 || *frames > 16384)
        {
            error = "--buffer must be 16 to 16384 frames, not " + *buffer;
            return false;
        }
        choice.bufferSize = static_cast<std::uint32_t>(*frames);
    }
    return chooseQuality(args, choice.quality, error);
}

bool parseSeconds(const Args& args, std::optional<double>& seconds, std::string& error)
{
    if (auto text = args.value("seconds"))
    {
        const auto value = parseDouble(*text);
        if (!value || !(*value > 0.0 && *value <= 86400.0))
        {
            error = "--seconds must be a number of seconds above 0 and at most 86400, not " + *text;
            return false;
        }
        seconds = *value;
    }
    return true;
}

bool LiveHardware::startHardware()
{
    fitSettings();
    return AudioHardware::startHardware();
}

void LiveHardware::fitSettings()
{
    if (deviceFromList_ || fitChannels_)
    {
        // A look of its own at the device, so that the start sequence itself stays the program's.
        MPAudio probe;
        if (probe.selectDriver(settings_.technology_.c_str()))
        {
            probe.enumerateDevices(false);
            if (deviceFromList_)
            {
                if (!probe.outputDevices().empty())
                {
                    settings_.outputDevice_ = probe.outputDevices().front().name;
                }
                if (!probe.inputDevices().empty())
                {
                    settings_.inputDevice_ = probe.inputDevices().front().name;
                }
            }
            if (fitChannels_)
            {
                fitChannels(probe, true, settings_.inputDevice_, settings_.inputLeftChannel_,
                            settings_.inputRightChannel_);
                fitChannels(probe, false, settings_.outputDevice_, settings_.outputLeftChannel_,
                            settings_.outputRightChannel_);
            }
        }
    }
}

LiveSession::LiveSession()
{
    gInterrupted.store(false, std::memory_order_relaxed);
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // A reader of stdout that goes away must not end the run before the device is closed.
    std::signal(SIGPIPE, SIG_IGN);
}

LiveSession::~LiveSession()
{
    hardware_.setDelegate(nullptr);
    hardware_.stopHardware();
    releaseEffects();
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

void LiveSession::releaseEffects()
{
    bool any = false;
    for (int32_t i = 0; i < Manager::kTracks; ++i)
    {
        any = any || manager_.trackNode(i).effect().isEnabled();
    }
    if (!any)
    {
        return;
    }
    // An effect unit frees its instance only once the engine has run three more blocks, or after a
    // second or two when none come. The device is closed now, so no block is inside an instance:
    // silent blocks are run here in its place, and each unit lets go at once instead of waiting.
    const std::uint32_t frames = manager_.blockSize();
    AudioBuffer in;
    AudioBuffer out;
    in.alloc(frames, 2);
    out.alloc(frames, 2);
    std::atomic<bool> done{false};
    std::thread standIn(
        [&]
        {
            AudioData input;
            AudioData output;
            input.adopt(in);
            output.adopt(out);
            input.frames = output.frames = frames;
            input.channels = output.channels = 2;
            MidiEventBlock midi;
            while (!done.load(std::memory_order_acquire))
            {
                in.silence();
                manager_.processBlock(input, output, midi);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    for (int32_t i = 0; i < Manager::kTracks; ++i)
    {
        manager_.trackNode(i).effect().setEnabled(false);
    }
    done.store(true, std::memory_order_release);
    standIn.join();
}

bool LiveSession::interrupted()
{
    return gInterrupted.load(std::memory_order_relaxed);
}

int LiveSession::load(const std::string& file)
{
    if (!fs::is_regular_file(file))
    {
        return fail(file + ": no such file");
    }
    std::error_code error;
    const std::string full = fs::absolute(file, error).lexically_normal().string();
    if (!document_.load(epiPath(full)))
    {
        return fail(file + " is not a readable Korvalind 3 project (version 4)");
    }
    if (document_.sampleRate < 8000 || document_.sampleRate > 384000)
    {
        return fail(file + ": the project's sample rate " + std::to_string(document_.sampleRate) +
                    " Hz can't be played");
    }
    // Nobody can be asked where a missing file went: its track stays silent.
    document_.locateFiles(nullptr);
    for (const auto& element : document_.elements)
    {
        if (!element->exists())
        {
            std::cerr << "kv3: " << *element << ": missing, its track stays silent\n";
        }
    }
    return kOk;
}

void LiveSession::prepare(const DeviceChoice& choice)
{
    settings_.load();
    if (choice.technology)
    {
        settings_.technology_ = choice.technology->c_str();
    }
    if (choice.device)
    {
        settings_.inputDevice_ = choice.device->c_str();
        settings_.outputDevice_ = choice.device->c_str();
    }
    if (choice.bufferSize)
    {
        settings_.bufferSize_ = *choice.bufferSize;
    }
    if (choice.any())
    {
        // The command line has chosen: the first run's search through the known interfaces would
        // replace that choice.
        settings_.firstRun_ = false;
    }
    hardware_.fitToDevice(choice.technology && !choice.device, choice.technology || choice.device);
    // Once now as well, so that the first messages name the device that will be tried.
    hardware_.fitSettings();

    manager_.setDelegate(this);
    manager_.setFormat(static_cast<std::uint32_t>(document_.sampleRate), settings_.bufferSize_);
    applyDocumentSession(document_, manager_, &manager_.metronomeNode());
    applyQuality(manager_, choice.quality);
    kv3cli::reportUnplayableTracks(manager_);
    manager_.sessionLength();
    enableClick();
    reportEffects();

    hardware_.setManager(&manager_);
    hardware_.setSettings(&settings_);
    hardware_.setProjectSampleRate(static_cast<std::uint32_t>(document_.sampleRate));
    hardware_.setDelegate(this);
}

void LiveSession::enableClick()
{
    Metronome& metronome = manager_.metronomeNode();
    metronome.setEnabled(false);
    manager_.mixerInput(Manager::kMetronomeIndex).setMute(!document_.clickEnabled);
    if (!document_.clickEnabled)
    {
        return;
    }
    if (!loadClickSounds(manager_))
    {
        std::cerr << "kv3: the click sounds in the program's resource pack can't be read; playing without "
                     "the click\n";
        manager_.mixerInput(Manager::kMetronomeIndex).setMute(true);
        return;
    }
    metronome.setEnabled(true);
}

void LiveSession::reportEffects()
{
    std::string dry;
    for (int32_t i = 0; i < Manager::kTracks; ++i)
    {
        const DocumentTrack& record = *document_.tracks[static_cast<size_t>(i)];
        if (record.effectLoaded && !record.frozen && !manager_.trackNode(i).effect().hasInstance())
        {
            dry += (dry.empty() ? "" : ", ") + std::to_string(i + 1);
        }
    }
    if (dry.empty())
    {
        return;
    }
    const AudioFxKV3Plugin& plugin = manager_.effects().plugin();
    const bool several = dry.find(',') != std::string::npos;
    std::string why = manager_.effects().isLoaded()
                          ? std::string("the effect could not make an instance")
                          : "the effect can't be loaded (" + std::string(plugin.lastTitle().c_str()) + ": " +
                                plugin.lastText().c_str() + ")";
    std::cerr << "kv3: " << why << "; track" << (several ? "s " : " ") << dry
              << (several ? " play" : " plays") << " dry\n";
}

void LiveSession::say(const std::string& line)
{
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string LiveSession::deviceName() const
{
    std::string name = std::string(settings_.technology_.c_str()) + " " + quoted(settings_.outputDevice_);
    if (settings_.inputDevice_ != settings_.outputDevice_)
    {
        name += " and " + quoted(settings_.inputDevice_);
    }
    return name;
}

void LiveSession::hardwareStopped()
{
    if (wasRunning_ || !stoppedShown_)
    {
        say("device: stopped");
    }
    stoppedShown_ = true;
    if (wasRunning_)
    {
        withoutDeviceSince_ = Clock::now();
        if (transportStarted_)
        {
            ++losses_;
        }
    }
    wasRunning_ = false;
}

void LiveSession::hardwareResumed()
{
    wasRunning_ = true;
    stoppedShown_ = false;
    const MPAudioBase* backend = hardware_.backend();
    const std::uint32_t rate = backend ? backend->config().sampleRate : 0;
    say("device: running, " + deviceName() + ", " + std::to_string(rate) + " Hz, " +
        std::to_string(manager_.blockSize()) + " frames a block");
}

void LiveSession::hardwareWaiting()
{
    stoppedShown_ = false;
    if (wasRunning_)
    {
        withoutDeviceSince_ = Clock::now();
        if (transportStarted_)
        {
            ++losses_;
        }
        wasRunning_ = false;
    }
    say("device: waiting for " + deviceName() + ", attempt " + std::to_string(hardware_.waitAttempts() + 1) +
        " in a second");
}

void LiveSession::hardwareRateNotSupported()
{
    const MPAudioBase* backend = hardware_.backend();
    const std::uint32_t rate = backend ? backend->config().sampleRate : 0;
    say("device: Current project sample rate is not supported by the hardware. (the project's " +
        std::to_string(document_.sampleRate) + " Hz, the device's " + std::to_string(rate) + " Hz)");
}

void LiveSession::hardwareLost()
{
    say("device: lost, still trying once a second");
}

bool LiveSession::bringUp(double limit)
{
    withoutDeviceSince_ = Clock::now();
    nextTick_ = Clock::now();
    hardware_.waitForHardware();
    for (;;)
    {
        tick(nullptr);
        if (hardware_.isRunning())
        {
            return true;
        }
        if (interrupted())
        {
            fail("interrupted while waiting for " + deviceName());
            return false;
        }
        // The first attempt comes a second after the wait began; it is always made.
        if (secondsWithoutDevice() > limit && hardware_.waitAttempts() > 1)
        {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%g", limit);
            fail(std::string("no audio device came up within ") + seconds + " s: " + deviceTrouble());
            return false;
        }
    }
}

void LiveSession::startTransport(std::int64_t sessionFrom)
{
    manager_.locate(sessionFrom);
    manager_.start();
    transportStarted_ = true;
    losses_ = 0;
    startedAt_ = Clock::now();
    nextReport_ = startedAt_ + std::chrono::seconds(1);
}

void LiveSession::tick(const char* activity)
{
    hardware_.poll();
    manager_.poll();
    // Read at every tick, as the window does: the shown value's slow fall counts these calls.
    hardware_.readBusyLevel(&busyShown_);
    const Clock::time_point now = Clock::now();
    if (activity != nullptr && transportStarted_ && now >= nextReport_)
    {
        nextReport_ += std::chrono::seconds(1);
        if (hardware_.isRunning())
        {
            char line[160];
            std::snprintf(line, sizeof line, "%s %.0f s, position %lld, busy %d%% at %u frames", activity,
                          secondsPlayed(), static_cast<long long>(manager_.sessionPosition()), busyShown_,
                          static_cast<unsigned>(manager_.blockSize()));
            say(line);
        }
    }
    nextTick_ += kTick;
    if (nextTick_ < now)
    {
        nextTick_ = now; // a slow tick isn't made up for
    }
    std::this_thread::sleep_until(nextTick_);
}

void LiveSession::stop()
{
    // Stopping on purpose is no loss of the device.
    transportStarted_ = false;
    manager_.stop();
    hardware_.stopHardware();
}

double LiveSession::secondsWithoutDevice() const
{
    if (hardware_.isRunning())
    {
        return 0.0;
    }
    return std::chrono::duration<double>(Clock::now() - withoutDeviceSince_).count();
}

double LiveSession::secondsPlayed() const
{
    return transportStarted_ ? std::chrono::duration<double>(Clock::now() - startedAt_).count() : 0.0;
}

std::string LiveSession::deviceTrouble()
{
    MPAudio probe;
    const std::string technology = settings_.technology_.c_str();
    if (!probe.selectDriver(technology.c_str()))
    {
        return "the technology '" + technology + "' isn't available in this build";
    }
    probe.enumerateDevices(true);
    int input = -1;
    int output = -1;
    const bool hasInput = probe.findDevice(settings_.inputDevice_.c_str(), true, &input);
    const bool hasOutput = probe.findDevice(settings_.outputDevice_.c_str(), false, &output);
    if (!hasInput && !hasOutput)
    {
        std::string listed;
        for (const MPAudioDevice& device : probe.outputDevices())
        {
            listed += (listed.empty() ? "" : ", ") + std::string(device.name);
        }
        return std::string(probe.driverName(probe.backendIndex())) + " has no device " +
               quoted(settings_.outputDevice_) + " (" +
               (listed.empty() ? "it lists none" : "it lists " + listed) + ")";
    }
    const int device = hasOutput ? output : input;
    std::vector<std::uint32_t> rates;
    if (!probe.queryDevice(device, !hasOutput, nullptr, nullptr, &rates, nullptr, nullptr, nullptr,
                           nullptr) ||
        rates.empty())
    {
        return deviceName() + " doesn't answer (is it on, is its server running?)";
    }
    // A device without the project's rate is opened at its own single rate, else at 44100 Hz; only
    // one that offers several, none of them either, fails for it.
    const auto rate = static_cast<std::uint32_t>(document_.sampleRate);
    if (rates.size() > 1 && !contains(rates, rate) && !contains(rates, 44100))
    {
        std::string offered;
        for (std::uint32_t r : rates)
        {
            offered += (offered.empty() ? "" : ", ") + std::to_string(r);
        }
        return deviceName() + " offers " + offered + " Hz, not the project's " + std::to_string(rate) +
               " Hz" + (rate == 44100 ? "" : " nor 44100 Hz");
    }
    return deviceName() + " refused to start";
}

} // namespace kv3cli
