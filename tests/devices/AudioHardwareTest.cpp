#include "tests/devices/JackPeer.h"
#include "tests/devices/JackTestServer.h"
#include "tests/host/SettingsFolder.h"
#include "tests/support/SoundFile.h"

#include "devices/AudioHardware.h"
#include "devices/alsa/MPAudioAlsa.h"
#include "engine/Manager.h"
#include "host/settings/HostSettings.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Korvalind3Host::AudioHardware;
using Korvalind3Host::AudioHardwareDelegate;
using Korvalind3Host::BusyMeter;
using Korvalind3Host::HostSettings;
using kv3test::SettingsFolder;
namespace fs = std::filesystem;

namespace
{

/** Records the delegate's calls in order, as letters: S stopped, R resumed, W waiting,
    N rate not supported, L lost. */
class DelegateLog : public AudioHardwareDelegate
{
public:
    std::string calls;
    void hardwareStopped() override { calls += 'S'; }
    void hardwareResumed() override { calls += 'R'; }
    void hardwareWaiting() override { calls += 'W'; }
    void hardwareRateNotSupported() override { calls += 'N'; }
    void hardwareLost() override { calls += 'L'; }
    int count(char c) const { return static_cast<int>(std::count(calls.begin(), calls.end(), c)); }
};

/** The device front with a clock the test moves, the traces kept, and the devices each start
    looked for written down. */
class TestHardware : public AudioHardware
{
public:
    double now = 1000.0;
    std::string traces;
    std::vector<std::string> startsWithDevice;
    /** The loudest output sample since the test last cleared it; relaxed, it is a meter. */
    std::atomic<float> peak{0.0f};

    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t frames) override
    {
        AudioHardware::process(inputs, inputCount, outputs, outputCount, frames);
        for (std::uint32_t i = 0; outputCount > 0 && i < frames; ++i)
        {
            peak.store(std::max(peak.load(std::memory_order_relaxed), std::abs(outputs[0][i])),
                       std::memory_order_relaxed);
        }
    }

    bool startHardware() override
    {
        startsWithDevice.push_back(settingsForTest ? settingsForTest->inputDevice_.c_str() : "");
        return AudioHardware::startHardware();
    }
    HostSettings* settingsForTest = nullptr;

protected:
    double applicationTime() const override { return now; }
    void debugPrint(const char* text) override { traces += text; }
};

/** Stored settings naming one device for both directions and its first two channels. */
HostSettings storedSettings(const std::string& technology, const std::string& device,
                            const std::string& inLeft, const std::string& inRight, const std::string& outLeft,
                            const std::string& outRight, std::uint32_t bufferSize)
{
    HostSettings settings;
    settings.technology_ = technology.c_str();
    settings.inputDevice_ = device.c_str();
    settings.outputDevice_ = device.c_str();
    settings.inputLeftChannel_ = inLeft.c_str();
    settings.inputRightChannel_ = inRight.c_str();
    settings.outputLeftChannel_ = outLeft.c_str();
    settings.outputRightChannel_ = outRight.c_str();
    settings.bufferSize_ = bufferSize;
    settings.save();
    return settings;
}

HostSettings jackSettings(const JackTestServer& server, std::uint32_t bufferSize = 2048)
{
    return storedSettings("Asio", server.name(), "system:capture_1", "system:capture_2", "system:playback_1",
                          "system:playback_2", bufferSize);
}

/** ALSA's null plug-in as the only device, through a configuration of the test's own. */
class AlsaNullConfig
{
public:
    explicit AlsaNullConfig(const fs::path& dir)
    {
        const fs::path conf = dir / "asound.conf";
        std::ofstream(conf) << "pcm.kvnull { type null hint { show on description \"Null\" } }\n";
        setenv("ALSA_CONFIG_PATH", conf.c_str(), 1);
    }
};

/** Keeps a copy of every MIDI event the Manager is given, written by the audio thread alone. */
class MidiSpy : public AudioHardware
{
public:
    static constexpr int kCapacity = 64;
    MidiEvent events[kCapacity] = {};
    /** Release by the audio thread after copying, acquire by the test before reading. */
    std::atomic<int> seen{0};

    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t frames) override
    {
        AudioHardware::process(inputs, inputCount, outputs, outputCount, frames);
        int n = seen.load(std::memory_order_relaxed);
        for (std::uint32_t i = 0; i < midiBlock().count && n < kCapacity; ++i)
        {
            events[n++] = midiBlock().events[i];
        }
        seen.store(n, std::memory_order_release);
    }
};

template <typename Pred> bool pollUntil(AudioHardware& hardware, Pred pred, std::chrono::milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    while (Clock::now() < deadline)
    {
        hardware.poll();
        if (pred())
        {
            return true;
        }
        std::this_thread::sleep_for(33ms); // the main panel's 30 Hz tick
    }
    return pred();
}

MidiMessage shortMessage(std::uint8_t length, std::uint8_t b0, std::uint8_t b1 = 0, std::uint8_t b2 = 0,
                         std::uint8_t b3 = 0)
{
    MidiMessage m;
    m.length = length;
    m.bytes[0] = b0;
    m.bytes[1] = b1;
    m.bytes[2] = b2;
    m.bytes[3] = b3;
    return m;
}

} // namespace

TEST(AudioHardwareBusyMeter, RisesAtOnceAndFallsSlowly)
{
    BusyMeter meter;
    meter.setBlock(480, 48000);
    int shown = -1;
    EXPECT_TRUE(meter.readBusyLevel(&shown)) << "a new block length forces a refresh";
    EXPECT_EQ(shown, 0);
    EXPECT_FALSE(meter.readBusyLevel(&shown));

    for (int i = 0; i < 64; ++i)
    {
        meter.addBlock(5000.0f);
    }
    ASSERT_TRUE(meter.readBusyLevel(&shown));
    EXPECT_EQ(shown, 48) << "a rise shows at once";

    for (int i = 0; i < 64; ++i)
    {
        meter.addBlock(1000.0f);
    }
    ASSERT_EQ(meter.busyPercent(), 9);
    // Each step holds for five calls, then falls by a growing step: 47, 45, 42, 38, 33, 27, 20, 12,
    // and then the value itself, since the next step would pass below it.
    std::vector<int> steps;
    for (int call = 0; call < 200 && shown != 9; ++call)
    {
        if (meter.readBusyLevel(&shown))
        {
            steps.push_back(shown);
            EXPECT_EQ(call % 6, 5) << "five quiet calls before each step";
        }
    }
    EXPECT_EQ(steps, (std::vector<int>{47, 45, 42, 38, 33, 27, 20, 12, 9}));
}

TEST(AudioHardwareMidi, TheClockByteAndLongMessagesAreDroppedTheRestQueued)
{
    AudioHardware hardware;
    Manager manager;
    manager.setFormat(48000, 64);
    hardware.setManager(&manager);
    const MidiMessage messages[] = {
        shortMessage(3, 0x90, 60, 100),
        shortMessage(1, 0xF8),
        shortMessage(1, 0xFE),
        shortMessage(3, 0xF8, 1, 2),
        shortMessage(5, 0x90, 1, 2, 3),
        shortMessage(4, 0xB0, 7, 99, 0x55),
        shortMessage(2, 0xC0, 5, 0xAA, 0xBB),
    };
    for (const MidiMessage& m : messages)
    {
        hardware.midiReceived(&m);
    }
    std::vector<float> in(128, 0.0f), out(128, 0.0f);
    const float* inputs[2] = {in.data(), in.data() + 64};
    float* outputs[2] = {out.data(), out.data() + 64};
    EXPECT_FALSE(hardware.takeMidiActivity());
    hardware.process(inputs, 2, outputs, 2, 64);
    const MidiEventBlock& block = hardware.midiBlock();
    ASSERT_EQ(block.count, 5u);
    const std::uint32_t expected[] = {0x00643C90u, 0x000000FEu, 0x000201F8u, 0x556307B0u, 0xBBAA05C0u};
    for (std::uint32_t i = 0; i < 5; ++i)
    {
        EXPECT_EQ(block.events[i].position, i) << "numbered in order of arrival";
        EXPECT_EQ(block.events[i].message, expected[i]) << i;
    }
    EXPECT_TRUE(hardware.takeMidiActivity());
    EXPECT_FALSE(hardware.takeMidiActivity());
    hardware.process(inputs, 2, outputs, 2, 64);
    EXPECT_EQ(hardware.midiBlock().count, 0u) << "each event is delivered once";
    EXPECT_FALSE(hardware.takeMidiActivity()) << "a block without events leaves the flag alone";
}

TEST(AudioHardwareStates, RetriesOnceASecondAndTellsTheUserOnceAtTheFifthAttempt)
{
    SettingsFolder folder;
    JackTestServer server; // named, never started: every start fails
    HostSettings settings = jackSettings(server);
    TestHardware hardware;
    hardware.setSettings(&settings);
    DelegateLog log;
    hardware.setDelegate(&log);
    EXPECT_EQ(log.calls, "S") << "a new delegate starts from the stopped picture";

    hardware.poll();
    EXPECT_TRUE(hardware.startsWithDevice.empty()) << "Stopped: nothing happens";
    hardware.waitForHardware();
    EXPECT_EQ(log.calls, "SW");
    hardware.now += 0.5;
    hardware.poll();
    hardware.now += 0.5;
    hardware.poll();
    EXPECT_TRUE(hardware.startsWithDevice.empty()) << "not before a full second has passed";
    for (int attempt = 1; attempt <= 9; ++attempt)
    {
        hardware.now += 1.01;
        hardware.poll();
        EXPECT_EQ(hardware.startsWithDevice.size(), static_cast<std::size_t>(attempt));
        EXPECT_TRUE(hardware.isWaiting());
        EXPECT_FALSE(hardware.isRunning());
    }
    EXPECT_EQ(hardware.waitAttempts(), 10);
    EXPECT_EQ(log.count('L'), 1) << "once per run of failures";
    EXPECT_EQ(log.calls.substr(0, 7), "SWWWWWL");

    hardware.stopHardware();
    hardware.waitForHardware();
    for (int attempt = 0; attempt < 4; ++attempt)
    {
        hardware.now += 1.01;
        hardware.poll();
    }
    EXPECT_EQ(log.count('L'), 2) << "waitForHardware starts a new run";
}

TEST(AudioHardwareStates, FirstRunTriesTheThreeRowsAndTheSystemsDevicesThenLeavesRowZero)
{
    SettingsFolder folder;
    AlsaNullConfig alsa(fs::path(folder.path())); // no "default" device
    JackTestServer server;                        // no server: none of the rows can start, nor JACK
    HostSettings settings;
    ASSERT_FALSE(settings.load()) << "nothing stored yet";
    ASSERT_TRUE(settings.isFirstRun());
    HostSettings row;
    row.applyHardwareRow(1);
    const std::string row1 = row.inputDevice_.c_str();
    row.applyHardwareRow(2);
    const std::string row2 = row.inputDevice_.c_str();
    row.applyHardwareRow(0);
    const std::string row0 = row.inputDevice_.c_str();
    ASSERT_NE(row0, row1);

    TestHardware hardware;
    hardware.settingsForTest = &settings;
    hardware.setSettings(&settings);
    hardware.waitForHardware();
    hardware.now += 1.01;
    hardware.poll();
    EXPECT_EQ(hardware.startsWithDevice, (std::vector<std::string>{row0, row1, row2, server.name()}))
        << "then the JACK server";
    EXPECT_EQ(std::string(settings.inputDevice_.c_str()), row0) << "row 0 is left in the settings";
    EXPECT_TRUE(settings.isFirstRun());
    hardware.now += 1.01;
    hardware.poll();
    EXPECT_EQ(hardware.startsWithDevice.size(), 8u) << "and all is tried again a second later";
}

TEST(AudioHardwareStart, ARateTheDeviceLacksOpensAt44100AndSaysSo)
{
    SettingsFolder folder;
    AlsaNullConfig alsa(fs::path(folder.path()));
    HostSettings settings = storedSettings("DirectX", "kvnull", "Left", "Right", "Left", "Right", 333);
    TestHardware hardware;
    Manager manager;
    hardware.setManager(&manager);
    hardware.setSettings(&settings);
    DelegateLog log;
    hardware.setDelegate(&log);
    hardware.setProjectSampleRate(32000);
    ASSERT_TRUE(hardware.startHardware());
    EXPECT_EQ(log.calls, "SN") << "told after the device has started";
    EXPECT_EQ(hardware.backend()->config().sampleRate, 44100u);
    // The common list of a technology that tells nothing holds 2048 but not 333.
    EXPECT_EQ(settings.bufferSize_, 2048u);
    EXPECT_EQ(manager.blockSize(), 2048u) << "the Manager hears of the new size";
    EXPECT_EQ(manager.sampleRate(), 44100u) << "the engine runs at the device's rate";
    HostSettings reloaded;
    ASSERT_TRUE(reloaded.load());
    EXPECT_EQ(reloaded.bufferSize_, 2048u) << "the new size is stored at once";
    hardware.stopHardware();

    hardware.setProjectSampleRate(48000);
    log.calls.clear();
    ASSERT_TRUE(hardware.startHardware());
    EXPECT_EQ(log.calls, "") << "a listed rate is no news";
    EXPECT_EQ(hardware.backend()->config().sampleRate, 48000u);
    hardware.stopHardware();
}

TEST(AudioHardwareJack, BringsTheEngineUpAndBlocksArriveAtTheSizeAsked)
{
    SettingsFolder folder;
    JackTestServer server(48000, 512);
    ASSERT_TRUE(server.start());
    HostSettings settings = jackSettings(server, 256);
    AudioHardware hardware;
    Manager manager;
    manager.setFormat(48000, 2048);
    hardware.setManager(&manager);
    hardware.setSettings(&settings);
    hardware.setProjectSampleRate(48000);
    DelegateLog log;
    hardware.setDelegate(&log);
    hardware.waitForHardware();
    ASSERT_TRUE(pollUntil(
        hardware, [&] { return hardware.isRunning(); }, 3s))
        << log.calls;
    EXPECT_EQ(log.calls, "SWR");
    EXPECT_EQ(settings.bufferSize_, 256u);
    EXPECT_EQ(manager.blockSize(), 256u) << "the server is asked for the stored size";
    // The dummy driver's capture latency is one period, its playback latency two.
    EXPECT_EQ(hardware.roundTripLatency(), 3u * 256u) << "JACK's own latencies, nothing added";

    const std::uint32_t before = manager.blockCount();
    const auto t0 = Clock::now();
    std::this_thread::sleep_for(1s);
    const double blocks = manager.blockCount() - before;
    const double seconds = std::chrono::duration<double>(Clock::now() - t0).count();
    EXPECT_GT(blocks, 120 * seconds);
    EXPECT_LT(blocks, 260 * seconds);
    int busy = -1;
    hardware.readBusyLevel(&busy);
    EXPECT_GE(busy, 0);
    EXPECT_LT(busy, 100);
    hardware.stopHardware();
    EXPECT_EQ(log.calls.back(), 'S');
}

TEST(AudioHardwareJack, InputComesOutThroughAnArmedTrackWithTheInputGain)
{
    SettingsFolder folder;
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    HostSettings settings = jackSettings(server, 256);
    AudioHardware hardware;
    Manager manager;
    manager.setFormat(48000, 256);
    manager.track(0).setArmed(true); // an armed track plays its live input
    manager.setInputGain(0.0f);
    hardware.setManager(&manager);
    hardware.setSettings(&settings);
    hardware.setProjectSampleRate(48000);
    hardware.waitForHardware();
    ASSERT_TRUE(pollUntil(
        hardware, [&] { return hardware.isRunning(); }, 3s));

    // Another program plays a steady 0.1 into the program's first input and records its first
    // output for two seconds; halfway the input gain goes from 0 to 12 dB.
    const std::string file = "/tmp/kv3hwpeer_" + std::to_string(getpid()) + ".raw";
    JackPeer peer({"audio", "Korvalind 3:in_1", "Korvalind 3:out_1", "96000", file, "0.1"});
    std::this_thread::sleep_for(1000ms);
    manager.setInputGain(12.0f);
    ASSERT_EQ(peer.wait(), 0);
    const std::vector<float> heard = JackPeer::readFloats(file);
    std::remove(file.c_str());
    ASSERT_EQ(heard.size(), 96000u);
    // The first and the last level that held for a tenth of a second.
    auto steadyLevel = [&](bool fromEnd)
    {
        for (std::size_t k = 0; k + 4800 < heard.size(); ++k)
        {
            const std::size_t i = fromEnd ? heard.size() - 4800 - k : k;
            if (heard[i] > 0.0f && heard[i + 4799] == heard[i])
            {
                return heard[i];
            }
        }
        return 0.0f;
    };
    const float unity = steadyLevel(false);
    const float louder = steadyLevel(true);
    ASSERT_GT(unity, 0.01f) << "the input never came out";
    EXPECT_NEAR(louder / unity, std::pow(10.0f, 12.0f / 20.0f), 0.02f) << unity << " " << louder;
    hardware.stopHardware();
}

TEST(AudioHardwareJack, AKilledServerIsRetriedLostOnceAndResumedWhenItReturns)
{
    SettingsFolder folder;
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    HostSettings settings = jackSettings(server, 256);
    AudioHardware hardware;
    Manager manager;
    manager.setFormat(48000, 256);
    hardware.setManager(&manager);
    hardware.setSettings(&settings);
    hardware.setProjectSampleRate(48000);
    DelegateLog log;
    hardware.setDelegate(&log);
    hardware.waitForHardware();
    ASSERT_TRUE(pollUntil(
        hardware, [&] { return hardware.isRunning(); }, 3s));
    log.calls.clear();

    const auto killed = Clock::now();
    server.kill();
    ASSERT_TRUE(pollUntil(
        hardware, [&] { return hardware.isWaiting(); }, 3s));
    EXPECT_LT(Clock::now() - killed, 1200ms) << "the retry state within a second";
    EXPECT_EQ(log.calls, "SW");

    ASSERT_TRUE(pollUntil(
        hardware, [&] { return log.count('L') > 0; }, 8s))
        << log.calls;
    EXPECT_EQ(hardware.waitAttempts(), 5);
    pollUntil(
        hardware, [&] { return hardware.waitAttempts() >= 7; }, 4s);
    EXPECT_EQ(log.count('L'), 1);

    ASSERT_TRUE(server.start());
    ASSERT_TRUE(pollUntil(
        hardware, [&] { return hardware.isRunning(); }, 4s))
        << log.calls;
    EXPECT_EQ(log.calls.back(), 'R');
    const std::uint32_t blocks = manager.blockCount();
    std::this_thread::sleep_for(300ms);
    EXPECT_GT(manager.blockCount(), blocks + 20) << "running again, in the same process";
    hardware.stopHardware();
}

TEST(AudioHardwareJack, AResetAskedForWhileWaitingRestartsOnceMore)
{
    SettingsFolder folder;
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    HostSettings settings = jackSettings(server, 256);
    TestHardware hardware;
    Manager manager;
    manager.setFormat(48000, 256);
    hardware.setManager(&manager);
    hardware.setSettings(&settings);
    hardware.setProjectSampleRate(48000);
    DelegateLog log;
    hardware.setDelegate(&log);
    hardware.waitForHardware();
    EXPECT_EQ(hardware.notify(1), 0);
    hardware.now += 1.01;
    hardware.poll();
    ASSERT_TRUE(hardware.isRunning());
    hardware.poll(); // Running with the old request: stop and wait once more
    EXPECT_TRUE(hardware.isWaiting());
    EXPECT_EQ(log.calls, "SWRSW");
    hardware.now += 1.01;
    hardware.poll();
    EXPECT_TRUE(hardware.isRunning());
    hardware.poll();
    EXPECT_TRUE(hardware.isRunning()) << "the request was taken once";
    hardware.stopHardware();
}

// The counts were signed and ran past their limit after 2^31 events.
TEST(AudioHardwareMidi, CountsStartedNearTheirLimitKeepOrderAndLoseNothing)
{
    Korvalind3Host::MidiEventQueue queue(Korvalind3Host::MidiEventQueue::kWrap - 1500);
    std::uint32_t sent = 0;
    std::uint32_t received = 0;
    for (int round = 0; round < 4; ++round)
    {
        while (queue.push(MidiEvent{0, sent}))
        {
            ++sent;
        }
        MidiEvent event;
        while (queue.pop(event))
        {
            ASSERT_EQ(event.message, received++);
        }
    }
    EXPECT_EQ(sent, 4u * (Korvalind3Host::MidiEventQueue::kSize - 1))
        << "a full ring every round, across the wrap";
    EXPECT_EQ(received, sent);
    EXPECT_EQ(queue.dropped(), 4u);
}

// A first run tried only the rows, which name interfaces of another system, and never found a device.
TEST(AudioHardwareStates, AFirstRunFindsTheJackServerElseAlsaDefault)
{
    SettingsFolder folder;
    const fs::path conf = fs::path(folder.path()) / "asound.conf";
    std::ofstream(conf) << "pcm.!default { type null }\n";
    setenv("ALSA_CONFIG_PATH", conf.c_str(), 1);
    JackTestServer server(48000, 256);
    for (const bool withServer : {true, false})
    {
        SCOPED_TRACE(withServer ? "with a JACK server" : "without one");
        if (withServer)
        {
            ASSERT_TRUE(server.start());
        }
        else
        {
            server.stop();
        }
        HostSettings settings;
        ASSERT_FALSE(settings.load());
        AudioHardware hardware;
        Manager manager;
        manager.setFormat(44100, 128);
        hardware.setManager(&manager);
        hardware.setSettings(&settings);
        hardware.setProjectSampleRate(44100);
        const auto t0 = Clock::now();
        hardware.waitForHardware();
        ASSERT_TRUE(pollUntil(
            hardware, [&] { return hardware.isRunning(); }, 3s));
        EXPECT_LT(Clock::now() - t0, 3s);
        EXPECT_EQ(MPAudio::driverIndex(settings.technology_.c_str()), withServer ? 1 : 0);
        EXPECT_STREQ(settings.outputLeftChannel_.c_str(), withServer ? "system:playback_1" : "Left");
        EXPECT_STREQ(settings.outputDevice_.c_str(), withServer ? server.name().c_str() : "default");
        EXPECT_EQ(manager.sampleRate(), withServer ? 48000u : 44100u) << "at the server's own rate";
        hardware.stopHardware();
    }
}

namespace
{

// The hook's device: unplugged (every open and wait fails with -ENODEV) while set; the period it grants.
std::atomic<bool> gUnplugged{false};
std::atomic<int> gGrantedPeriod{0};

int fakeCard(MPAudioAlsa::HookPoint point, bool)
{
    if (point == MPAudioAlsa::HookPoint::Period)
    {
        return gGrantedPeriod.load();
    }
    return gUnplugged.load() ? -ENODEV : 0;
}

} // namespace

// An unplugged card looped on -ENODEV for ever with no retry and no warning, and a period the card
// imposed never reached the engine.
TEST(AudioHardwareAlsa, AnUnpluggedCardIsRetriedAndLostOnceAndAGrantedPeriodRunsTheEngine)
{
    SettingsFolder folder;
    AlsaNullConfig alsa(fs::path(folder.path()));
    HostSettings settings = storedSettings("ALSA", "kvnull", "Left", "Right", "Left", "Right", 128);
    gGrantedPeriod = 512;
    gUnplugged = false;
    MPAudioAlsa::setHook(fakeCard);
    TestHardware hardware;
    Manager manager;
    manager.setFormat(48000, 128);
    hardware.setManager(&manager);
    hardware.setSettings(&settings);
    hardware.setProjectSampleRate(48000);
    DelegateLog log;
    hardware.setDelegate(&log);
    hardware.waitForHardware();
    hardware.now += 1.01;
    hardware.poll();
    ASSERT_TRUE(hardware.isRunning());
    EXPECT_EQ(manager.blockSize(), 512u) << "the engine runs at the period granted";
    const std::uint32_t before = manager.blockCount();
    std::this_thread::sleep_for(200ms);
    EXPECT_GT(manager.blockCount(), before + 5);
    const std::string tone = (fs::path(folder.path()) / "tone.wav").string();
    ASSERT_TRUE(
        testsound::write(tone, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, std::vector<float>(96000, 0.5f)));
    for (int32_t t = 0; t < Manager::kTracks; ++t)
    {
        ASSERT_TRUE(manager.loadTrack(t, epiPath(tone.c_str())));
    }
    manager.start();
    for (int32_t t = 0; t < Manager::kTracks; ++t)
    {
        manager.setSolo(t, true);
        std::this_thread::sleep_for(100ms);
        hardware.peak = 0.0f;
        std::this_thread::sleep_for(50ms);
        EXPECT_GT(hardware.peak.load(), 0.1f) << "track " << t + 1 << " is heard at the period granted";
        manager.setSolo(t, false);
    }
    manager.stop();

    gUnplugged = true;
    ASSERT_TRUE(pollUntil(
        hardware, [&] { return hardware.isWaiting(); }, 2s));
    for (int attempt = 0; attempt < 6; ++attempt)
    {
        hardware.now += 1.01;
        hardware.poll();
    }
    EXPECT_FALSE(hardware.isRunning());
    EXPECT_EQ(std::count(log.calls.begin(), log.calls.end(), 'L'), 1) << log.calls;
    gUnplugged = false;
    hardware.now += 1.01;
    hardware.poll();
    EXPECT_TRUE(hardware.isRunning()) << "plugged in again, it comes back";
    hardware.stopHardware();
    MPAudioAlsa::setHook(nullptr);
}
