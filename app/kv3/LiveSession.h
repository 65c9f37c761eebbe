#pragma once

#include "app/kv3/Cli.h"
#include "app/kv3/StretchQuality.h"
#include "devices/AudioHardware.h"
#include "devices/AudioHardwareDelegate.h"
#include "engine/Manager.h"
#include "engine/ManagerDelegate.h"
#include "host/settings/HostSettings.h"
#include "project/Document.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace kv3cli
{

/** What the command line says about the audio device. A value given replaces the stored one for this
    run only; the settings file is never written. */
struct DeviceChoice
{
    std::optional<std::string> technology;
    std::optional<std::string> device;
    std::optional<std::uint32_t> bufferSize;
    /** The speed and pitch engine: --quality, else the stored setting. Not part of any(). */
    StretchQuality quality = StretchQuality::standard;

    bool any() const { return technology || device || bufferSize; }
};

/** Reads --technology, --device, --buffer and --quality. @returns false with `error` set for a bad value */
bool parseDeviceChoice(const Args& args, DeviceChoice& choice, std::string& error);
/** Reads --seconds: a positive number of seconds, at most a day. @returns false with `error` set */
bool parseSeconds(const Args& args, std::optional<double>& seconds, std::string& error);

/**
 * The device front of the commands that play a project live. It answers the driver's start sequence
 * from a copy of the settings that it never writes back, and when the command line named the device it
 * fits that copy to the device at each attempt: the technology's first device when only the technology
 * was named, and the device's first two channels for channels that the stored names don't find on it.
 */
class LiveHardware : public Korvalind3Host::AudioHardware
{
public:
    explicit LiveHardware(Korvalind3Host::HostSettings& settings) : settings_(settings) {}

    /** @param deviceFromList take the technology's first device; @param channels fit the channels */
    void fitToDevice(bool deviceFromList, bool channels)
    {
        deviceFromList_ = deviceFromList;
        fitChannels_ = channels;
    }

    bool startHardware() override;
    /** Fits the settings to the device as described above; each start does it first. */
    void fitSettings();

protected:
    /** The corrected buffer size stays in the copy: the command line doesn't change the user's settings. */
    void saveSettings(Korvalind3Host::HostSettings&) override {}

private:
    Korvalind3Host::HostSettings& settings_;
    bool deviceFromList_ = false;
    bool fitChannels_ = false;
};

/**
 * A project played on the audio device as the program's window plays it: the project is pushed into a
 * Manager, the device is brought up by the AudioHardware start sequence and its retry state machine,
 * polled 30 times a second, and the device's state changes and the busy level are printed on stdout as
 * they come. The command drives the transport and decides when to stop; Ctrl-C (or SIGTERM) asks it to.
 *
 * Everything here runs on the command's one thread, which plays the part of the interface thread.
 */
class LiveSession : private ManagerDelegate, private Korvalind3Host::AudioHardwareDelegate
{
public:
    /** How long a device may stay missing when the command line gives no time, in seconds. */
    static constexpr double kDefaultWaitSeconds = 10.0;
    /** The interface's tick: 30 times a second. */
    static constexpr std::chrono::microseconds kTick{33333};

    /** Catches Ctrl-C and SIGTERM for the life of the session. */
    LiveSession();
    ~LiveSession() override;
    LiveSession(const LiveSession&) = delete;
    LiveSession& operator=(const LiveSession&) = delete;

    /**
     * Reads the project whole and finds its files; files still missing are named on stderr and their
     * tracks stay silent.
     * @returns kOk, or kFailure with its line printed
     */
    int load(const std::string& file);
    Document& document() { return document_; }
    Manager& manager() { return manager_; }

    /**
     * Reads the stored settings and puts the command line's choice over them, then gives the engine the
     * project: its format (the project's rate, the settings' buffer size), its tracks and session values
     * and, when the project has it on, the click. Says on stderr when an effect the project wants can't
     * run, in which case that track plays dry.
     */
    void prepare(const DeviceChoice& choice);

    /**
     * Starts a run of attempts and polls until the device runs.
     * @param limit seconds after which the device is given up on
     * @returns false, with its line printed, when it didn't come up in time or the run was interrupted
     */
    bool bringUp(double limit);
    /** Locates to a session position and starts the transport; the once-a-second line counts from here. */
    void startTransport(std::int64_t sessionFrom);
    /** One tick of the interface: the device's state machine, the engine's flags, the busy line once a
        second while the device runs (`activity` begins it); then sleeps until the next tick. */
    void tick(const char* activity);
    /** Stops the transport and the device. */
    void stop();

    bool deviceRunning() const { return hardware_.isRunning(); }
    /** Seconds since the device was last running (or since bringUp began), 0 while it runs. */
    double secondsWithoutDevice() const;
    /** How many times a running device was lost since the transport started. */
    int lossesSinceStart() const { return losses_; }
    /** Seconds since startTransport. */
    double secondsPlayed() const;
    /** The transport ran into the end of the session, or into the loop end during a take. */
    bool reachedEnd() const { return endReached_; }
    /** Ctrl-C or SIGTERM came. */
    static bool interrupted();

    /** Why the device doesn't run, as far as a fresh look at it can tell, for the line that gives up. */
    std::string deviceTrouble();
    /** The technology and device the settings name, quoted, for messages. */
    std::string deviceName() const;

private:
    // ManagerDelegate
    void taskTitle(const epiText&) override {}
    void taskMessage(const epiText&) override {}
    void taskProgress(float) override {}
    void taskFinished() override {}
    void taskFailed(const epiText&) override {}
    void audioSuspend() override {}
    void audioResume() override {}
    void endReached() override { endReached_ = true; }
    void autoRecordStarted() override {}
    void pluginChanged() override {}
    void metronomeBeat() override {}

    // AudioHardwareDelegate
    void hardwareStopped() override;
    void hardwareResumed() override;
    void hardwareWaiting() override;
    void hardwareRateNotSupported() override;
    void hardwareLost() override;

    void reportEffects();
    void releaseEffects();
    void enableClick();
    void say(const std::string& line);

    using Clock = std::chrono::steady_clock;

    Document document_;
    Korvalind3Host::HostSettings settings_;
    Manager manager_;
    // After the Manager, so that it is gone, and the device closed, before the engine it feeds.
    LiveHardware hardware_{settings_};
    bool endReached_ = false;
    bool wasRunning_ = false;
    bool stoppedShown_ = true;
    int losses_ = 0;
    int busyShown_ = 0;
    bool transportStarted_ = false;
    Clock::time_point startedAt_{};
    Clock::time_point nextReport_{};
    Clock::time_point nextTick_{};
    Clock::time_point withoutDeviceSince_{};
};

} // namespace kv3cli
