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
#include <array>
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

/** The device front with a clock the test moves, its loudest output kept, and the
    devices each start looked for written down. */
class TestHardware : public AudioHardware
{
public:
    double now = 1000.0;
    std::vector<std::string> startsWithDevice;
    HostSettings* settingsForTest = nullptr;
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
    /** A rate the device's list leaves out in one direction (input if `lacksOnInput`), 0 for none. */
    std::uint32_t lackedRate = 0;
    bool lacksOnInput = false;
    bool queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                     std::vector<MPAudioChannelName>* channelNames, std::vector<std::uint32_t>* sampleRates,
                     bool* fixedBufferSize, std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                     std::uint32_t* latency) override
    {
        const bool found =
            AudioHardware::queryDevice(device, isInput, bufferSizes, channelNames, sampleRates,
                                       fixedBufferSize, preferredBufferSize, reserved, latency);
        if (sampleRates && isInput == lacksOnInput)
        {
            std::erase(*sampleRates, lackedRate);
        }
        return found;
    }
    /** One second and a bit later, a poll: the next retry is due. */
    void nextSecond()
    {
        now += 1.01;
        poll();
    }

protected:
    double applicationTime() const override { return now; }
};

/** Stored settings naming one device for both directions and its channels (in left, in right, out
    left, out right). */
HostSettings storedSettings(const std::string& technology, const std::string& device,
                            std::uint32_t bufferSize,
                            const std::array<const char*, 4>& channels = {"Left", "Right", "Left", "Right"})
{
    HostSettings settings;
    settings.technology_ = technology.c_str();
    settings.inputDevice_ = device.c_str();
    settings.outputDevice_ = device.c_str();
    settings.inputLeftChannel_ = channels[0];
    settings.inputRightChannel_ = channels[1];
    settings.outputLeftChannel_ = channels[2];
    settings.outputRightChannel_ = channels[3];
    settings.bufferSize_ = bufferSize;
    settings.save();
    return settings;
}

HostSettings jackSettings(const JackTestServer& server, std::uint32_t bufferSize = 2048)
{
    return storedSettings("Asio", server.name(), bufferSize,
                          {"system:capture_1", "system:capture_2", "system:playback_1", "system:playback_2"});
}

/** A settings folder of the test's own, ALSA's null plug-in as the only device (or `conf` as the
    configuration), and the device front with its engine and delegate. */
class Rig : public ::testing::Test
{
protected:
    void useAlsa(const std::string& conf = "pcm.kvnull { type null hint { show on description \"Null\" } }\n")
    {
        const fs::path file = fs::path(folder.path()) / "asound.conf";
        std::ofstream(file) << conf;
        setenv("ALSA_CONFIG_PATH", file.c_str(), 1);
    }
    /** Wires the engine at `rate` and `block`, the settings and the delegate into the front. */
    void attach(std::uint32_t rate, std::uint32_t block)
    {
        manager.setFormat(rate, block);
        hardware.setManager(&manager);
        hardware.setSettings(&settings);
        hardware.setProjectSampleRate(rate);
        hardware.setDelegate(&log);
    }
    /** Polls at the main panel's 30 Hz, the test's clock moved with the real one, until `pred` holds or
        `limit` passes. */
    template <typename Pred> bool pollUntil(Pred pred, std::chrono::milliseconds limit)
    {
        const auto deadline = Clock::now() + limit;
        while (Clock::now() < deadline && !pred())
        {
            hardware.now += 0.033;
            hardware.poll();
            std::this_thread::sleep_for(33ms);
        }
        return pred();
    }

    kv3test::SettingsFolder folder;
    HostSettings settings;
    TestHardware hardware;
    Manager manager;
    DelegateLog log;
};

} // namespace

TEST(AudioHardwareBusyMeter, RisesAtOnceAndFallsSlowly)
{
    BusyMeter meter;
    meter.setBlock(480, 48000);
    int shown = -1;
    EXPECT_TRUE(meter.readBusyLevel(&shown)) << "a new block length forces a refresh";
    EXPECT_FALSE(meter.readBusyLevel(&shown));
    auto blocks = [&](float microseconds)
    {
        for (int i = 0; i < 64; ++i)
        {
            meter.addBlock(microseconds);
        }
    };
    blocks(5000.0f);
    ASSERT_TRUE(meter.readBusyLevel(&shown));
    EXPECT_EQ(shown, 48) << "a rise shows at once";
    blocks(1000.0f);
    // Each step holds for five calls, then falls by a growing step, and ends on the value itself.
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
        MidiMessage{3, {0x90, 60, 100}},
        MidiMessage{1, {0xF8}},
        MidiMessage{1, {0xFE}},
        MidiMessage{3, {0xF8, 1, 2}},
        MidiMessage{5, {0x90, 1, 2, 3}},
        MidiMessage{4, {0xB0, 7, 99, 0x55}},
        MidiMessage{2, {0xC0, 5, 0xAA, 0xBB}},
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

TEST_F(Rig, RetriesOnceASecondAndTellsTheUserOnceAtTheFifthAttempt)
{
    JackTestServer server; // named, never started: every start fails
    settings = jackSettings(server);
    hardware.setSettings(&settings);
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
        hardware.nextSecond();
        EXPECT_EQ(hardware.startsWithDevice.size(), static_cast<std::size_t>(attempt));
        EXPECT_TRUE(hardware.isWaiting());
        EXPECT_FALSE(hardware.isRunning());
    }
    EXPECT_EQ(hardware.waitAttempts(), 10);
    EXPECT_EQ(log.calls.substr(0, 7), "SWWWWWL");
    EXPECT_EQ(log.count('L'), 1) << "once per run of failures";
    hardware.stopHardware();
    hardware.waitForHardware();
    for (int attempt = 0; attempt < 4; ++attempt)
    {
        hardware.nextSecond();
    }
    EXPECT_EQ(log.count('L'), 2) << "waitForHardware starts a new run";
}

TEST_F(Rig, ARateTheDeviceLacksOpensAt44100AndSaysSo)
{
    useAlsa();
    settings = storedSettings("DirectX", "kvnull", 333);
    attach(32000, 2048);
    ASSERT_TRUE(hardware.startHardware());
    EXPECT_EQ(log.calls, "SN") << "told after the device has started";
    EXPECT_EQ(hardware.backend()->config().sampleRate, 44100u);
    // The common list of a technology that tells nothing holds 2048 but not 333.
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
    // A rate one direction lacks is no rate for the pair, whichever direction it is.
    hardware.lackedRate = 48000;
    for (const bool onInput : {true, false})
    {
        SCOPED_TRACE(onInput ? "input" : "output");
        hardware.lacksOnInput = onInput;
        log.calls.clear();
        ASSERT_TRUE(hardware.startHardware());
        EXPECT_EQ(log.calls, "N");
        EXPECT_EQ(hardware.backend()->config().sampleRate, 44100u);
        hardware.stopHardware();
    }
}

TEST_F(Rig, AResetAskedForWhileWaitingRestartsOnceMore)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    settings = jackSettings(server, 256);
    attach(48000, 256);
    hardware.waitForHardware();
    EXPECT_EQ(hardware.notify(1), 0);
    hardware.nextSecond();
    ASSERT_TRUE(hardware.isRunning());
    hardware.poll(); // Running with the old request: stop and wait once more
    EXPECT_TRUE(hardware.isWaiting());
    EXPECT_EQ(log.calls, "SWRSW");
    hardware.nextSecond();
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
TEST_F(Rig, AFirstRunTriesTheRowsThenTheJackServerThenAlsaDefault)
{
    useAlsa("pcm.!default { type null }\n");
    JackTestServer server(48000, 256);
    std::vector<std::string> tried;
    for (int row : {0, 1, 2})
    {
        HostSettings applied;
        applied.applyHardwareRow(row);
        tried.emplace_back(applied.inputDevice_.c_str());
    }
    tried.push_back(server.name());
    hardware.settingsForTest = &settings;
    for (const bool withServer : {true, false})
    {
        SCOPED_TRACE(withServer ? "with a JACK server" : "without one");
        if (withServer)
        {
            ASSERT_TRUE(server.start());
        }
        else
        {
            hardware.stopHardware();
            server.stop();
            settings = HostSettings();
            hardware.startsWithDevice.clear();
            tried.push_back("default");
        }
        ASSERT_FALSE(settings.load());
        ASSERT_TRUE(settings.isFirstRun());
        attach(44100, 128);
        const auto t0 = Clock::now();
        hardware.waitForHardware();
        ASSERT_TRUE(pollUntil([&] { return hardware.isRunning(); }, 3s));
        EXPECT_LT(Clock::now() - t0, 3s);
        EXPECT_EQ(hardware.startsWithDevice, tried);
        EXPECT_EQ(MPAudio::driverIndex(settings.technology_.c_str()), withServer ? 1 : 0);
        EXPECT_STREQ(settings.outputLeftChannel_.c_str(), withServer ? "system:playback_1" : "Left");
        EXPECT_STREQ(settings.outputDevice_.c_str(), withServer ? server.name().c_str() : "default");
        EXPECT_EQ(manager.sampleRate(), withServer ? 48000u : 44100u) << "at the server's own rate";
    }
    hardware.stopHardware();
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
TEST_F(Rig, AnUnpluggedAlsaCardIsRetriedAndLostOnceAndAGrantedPeriodRunsTheEngine)
{
    useAlsa();
    settings = storedSettings("ALSA", "kvnull", 128);
    gGrantedPeriod = 512;
    gUnplugged = false;
    MPAudioAlsa::setHook(fakeCard);
    attach(48000, 128);
    hardware.waitForHardware();
    hardware.nextSecond();
    ASSERT_TRUE(hardware.isRunning());
    EXPECT_EQ(manager.blockSize(), 512u) << "the engine runs at the period granted";
    const std::string tone = (fs::path(folder.path()) / "tone.wav").string();
    ASSERT_TRUE(
        testsound::write(tone, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, std::vector<float>(96000, 0.5f)));
    for (int32_t t = 0; t < Manager::kTracks; ++t)
    {
        ASSERT_TRUE(manager.loadTrack(t, epiPath(tone.c_str())));
    }
    manager.start();
    std::this_thread::sleep_for(100ms);
    hardware.peak = 0.0f;
    std::this_thread::sleep_for(50ms);
    EXPECT_GT(hardware.peak.load(), 0.1f) << "the tracks are heard at the period granted";
    manager.stop();

    gUnplugged = true;
    ASSERT_TRUE(pollUntil([&] { return hardware.isWaiting(); }, 2s));
    for (int attempt = 0; attempt < 6; ++attempt)
    {
        hardware.nextSecond();
    }
    EXPECT_FALSE(hardware.isRunning());
    EXPECT_EQ(log.count('L'), 1) << log.calls;
    gUnplugged = false;
    hardware.nextSecond();
    EXPECT_TRUE(hardware.isRunning()) << "plugged in again, it comes back";
    hardware.stopHardware();
    MPAudioAlsa::setHook(nullptr);
}
