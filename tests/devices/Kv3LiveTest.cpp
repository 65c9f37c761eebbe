// kv3 play and kv3 record, run as a user runs them, against a private JACK server with the dummy
// driver. Another program on the server (the peer) hears the program's first output and plays into its
// first input.

#include "tests/devices/JackPeer.h"
#include "tests/devices/JackTestServer.h"
#include "tests/devices/Kv3Process.h"
#include "tests/epi/TempFolder.h"
#include "tests/host/SettingsFolder.h"
#include "tests/support/Signal.h"
#include "tests/support/SoundFile.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>
#include <vector>

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

constexpr int kRate = 48000;
constexpr int kPeriod = 256;
#if defined(__has_feature)
constexpr bool kChecked = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kChecked = false;
#endif
// The round trip the program gives its recorders on this server: JACK's input latency (one period)
// and output latency (two periods). A take that starts at 0 loses that much.
constexpr int kRoundTrip = kPeriod + 2 * kPeriod;
// The level of the project's tone, a sine of amplitude 0.5, as a root mean square.
const double kToneLevel = 0.5 / std::sqrt(2.0);

/** Runs kv3 to its end. @returns its exit status */
int kv3(std::vector<std::string> arguments, std::string* out = nullptr)
{
    Kv3Process program(std::move(arguments));
    const int status = program.wait(60s);
    if (out != nullptr)
    {
        *out = program.out();
    }
    return status;
}

/** A stereo file of a sine of amplitude 0.5. */
bool writeTone(const std::string& path, double seconds, double hz, int rate = kRate)
{
    std::vector<float> data(static_cast<std::size_t>(seconds * rate) * 2);
    for (std::size_t i = 0; i < data.size(); ++i)
    {
        data[i] = static_cast<float>(0.5 * std::sin(2.0 * M_PI * hz * static_cast<double>(i / 2) / rate));
    }
    return testsound::write(path, SF_FORMAT_WAV | SF_FORMAT_PCM_24, rate, 2, data);
}

std::string readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/** How often `what` occurs in `text`. */
long count(const std::string& text, const std::string& what)
{
    long n = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    {
        ++n;
    }
    return n;
}

/** The root mean square around the mean: a steady level counts as nothing. */
double acLevel(const float* x, std::size_t n)
{
    double sum = 0.0;
    double squares = 0.0;
    for (std::size_t i = 0; i < n; ++i)
    {
        sum += x[i];
        squares += x[i] * x[i];
    }
    const double mean = sum / static_cast<double>(std::max<std::size_t>(n, 1));
    return std::sqrt(std::max(0.0, squares / static_cast<double>(std::max<std::size_t>(n, 1)) - mean * mean));
}

/** The share of the signal's power that a sine of `hz` holds, 1 for a pure tone: the median over
    windows of eleven 440 Hz periods, so that a period the server skipped doesn't count. */
double toneShare(const std::vector<float>& samples, double hz)
{
    constexpr std::size_t kWindow = kRate * 11 / 440;
    std::vector<double> shares{0.0};
    for (std::size_t at = 0; at + kWindow <= samples.size(); at += kWindow)
    {
        const double amplitude = testsignal::amplitudeAt(samples.data() + at, kWindow, hz, kRate);
        const double level = acLevel(samples.data() + at, kWindow);
        shares.push_back(level > 0.0 ? amplitude * amplitude / 2.0 / (level * level) : 0.0);
    }
    std::nth_element(shares.begin(), shares.begin() + static_cast<std::ptrdiff_t>(shares.size() / 2),
                     shares.end());
    return shares[shares.size() / 2];
}

/** A project with a five-second 440 Hz tone on track 1 (not armed, no effect), in a folder of its
    own, with settings of its own, beside a JACK server that each test starts or not. */
class Kv3Live : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(writeTone(tone, 5.0, 440.0));
        ASSERT_EQ(kv3({"project", "new", project, "--rate", std::to_string(kRate)}), 0);
        ASSERT_EQ(
            kv3({"project", "set", project, "--track", "1", "--file", tone, "--armed", "off", "--fx", "off"}),
            0);
    }
    void TearDown() override { std::remove(peerFile.c_str()); }

    /** The options that point the program at the test's server, at its period unless told. */
    std::vector<std::string> withDevice(std::vector<std::string> arguments) const
    {
        if (std::find(arguments.begin(), arguments.end(), "--buffer") == arguments.end())
        {
            arguments.insert(arguments.end(), {"--buffer", std::to_string(kPeriod)});
        }
        arguments.insert(arguments.end(), {"--technology", "JACK", "--device", server.name()});
        return arguments;
    }

    /** Once the program's device runs, the peer plays `value` into its first input and records `frames`
        of its first output; then the program is waited for, and must succeed. */
    void runWithPeer(Kv3Process& program, const std::string& frames = "48000", const std::string& value = "0",
                     std::chrono::milliseconds upWithin = 10s)
    {
        ASSERT_TRUE(program.waitForOutput("device: running", upWithin)) << program.out() << program.err();
        JackPeer peer({"audio", "Korvalind 3:in_1", "Korvalind 3:out_1", frames, peerFile, value});
        ASSERT_EQ(program.wait(20s), 0) << program.out() << program.err();
        EXPECT_EQ(peer.wait(), 0);
    }

    /** Half a second of what the peer heard, from a tenth of a second after the first sound (connecting
        takes a while on a busy machine); empty when the peer heard too little. */
    std::vector<float> heard() const
    {
        const std::vector<float> all = JackPeer::readFloats(peerFile);
        const auto onset = std::find_if(all.begin(), all.end(), [](float s) { return s != 0.0f; });
        if (all.end() - onset < kRate / 10 + kRate / 2)
        {
            return {};
        }
        return {onset + kRate / 10, onset + kRate / 10 + kRate / 2};
    }

    /** The peer heard the file's 440 Hz tone as it is, at its own level. */
    void expectTheTone() const
    {
        const std::vector<float> out = heard();
        ASSERT_FALSE(out.empty()) << "the peer heard too little";
        EXPECT_NEAR(testsignal::medianPeriodFrequency(out.data(), out.size(), kRate), 440.0, 10.0);
        EXPECT_GT(toneShare(out, 440.0), 0.999);
        EXPECT_NEAR(acLevel(out.data(), out.size()), kToneLevel, 0.01);
    }

    kv3test::SettingsFolder settings;
    TempFolder folder;
    JackTestServer server{kRate, kPeriod};
    std::string project = folder.path() + "song.kv3h";
    std::string tone = folder.path() + "tone.wav";
    std::string peerFile = "/tmp/kv3livepeer_" + std::to_string(getpid()) + ".raw";
};

} // namespace

TEST_F(Kv3Live, PlaysTheProjectForTheSecondsAskedAndPrintsTheBusyLevel)
{
    ASSERT_TRUE(server.start());
    Kv3Process play(withDevice({"play", project, "--seconds", "3"}));
    ASSERT_NO_FATAL_FAILURE(runWithPeer(play));
    EXPECT_NE(
        play.out().find("device: running, JACK \"" + server.name() + "\", 48000 Hz, 256 frames a block"),
        std::string::npos)
        << play.out();
    const std::regex busyLine("playing (\\d+) s, position (\\d+), busy (\\d+)%");
    std::vector<long> positions;
    for (auto it = std::sregex_iterator(play.out().begin(), play.out().end(), busyLine);
         it != std::sregex_iterator(); ++it)
    {
        positions.push_back(std::stol((*it)[2]));
        EXPECT_LE(std::stoi((*it)[3]), 100);
    }
    EXPECT_GE(positions.size(), 2u) << play.out();
    EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end())) << play.out();
    std::smatch end;
    ASSERT_TRUE(
        std::regex_search(play.out(), end, std::regex("played ([0-9.]+) s, stopped at session frame (\\d+)")))
        << play.out();
    EXPECT_GE(std::stod(end[1]), 3.0);
    EXPECT_LT(std::stod(end[1]), 3.5);
    // A few periods of slack: the dummy server, without realtime priority, can miss one under load.
    EXPECT_GE(std::stol(end[2]), 3 * kRate - 8 * kPeriod) << "the transport ran for the time asked";
    EXPECT_LT(std::stol(end[2]), 3.5 * kRate);
    EXPECT_NE(play.out().find("device: stopped"), std::string::npos);
    EXPECT_EQ(play.err(), "");
    EXPECT_FALSE(fs::exists(settings.file())) << "the user's settings are never written";
    expectTheTone();
}

TEST_F(Kv3Live, WithoutSecondsItStopsAtTheEndOfTheSession)
{
    ASSERT_TRUE(server.start());
    ASSERT_TRUE(writeTone(tone, 1.0, 440.0));
    // With only the technology named, its first device is taken: the server of the environment.
    Kv3Process play({"play", project, "--technology", "JACK"});
    ASSERT_EQ(play.wait(20s), 0) << play.out() << play.err();
    EXPECT_NE(play.out().find("device: running, JACK \"" + server.name() + "\""), std::string::npos)
        << play.out();
    std::smatch end;
    ASSERT_TRUE(
        std::regex_search(play.out(), end, std::regex("played ([0-9.]+) s, stopped at session frame (\\d+)")))
        << play.out();
    EXPECT_GE(std::stol(end[2]), kRate) << "not before the end";
    EXPECT_LT(std::stol(end[2]), kRate + kRate / 5) << "and soon after it";
    EXPECT_LT(std::stod(end[1]), 1.5);
}

TEST_F(Kv3Live, TheProjectsEffectRunsWhenFoundElseItIsNamedOnceAndTheTrackPlaysDry)
{
    ASSERT_TRUE(server.start());
    ASSERT_EQ(kv3({"project", "set", project, "--track", "1", "--fx", "on"}), 0);
    const std::string missing = folder.path() + "nowhere/kv3refamp.so";
    for (const bool found : {true, false})
    {
        SCOPED_TRACE(found ? "the amplifier of the build tree" : "a path to nothing");
        if (!found)
        {
            ::setenv("KV3_VPA2_PATH", missing.c_str(), 1);
        }
        Kv3Process play(withDevice({"play", project, "--seconds", "2"}));
        ::unsetenv("KV3_VPA2_PATH");
        ASSERT_NO_FATAL_FAILURE(runWithPeer(play));
        if (!found)
        {
            EXPECT_EQ(count(play.err(), "\n"), 1) << play.err();
            EXPECT_NE(play.err().find("can't be loaded"), std::string::npos) << play.err();
            EXPECT_NE(play.err().find(missing), std::string::npos) << play.err();
            EXPECT_NE(play.err().find("track 1 plays dry"), std::string::npos) << play.err();
            expectTheTone();
            continue;
        }
        EXPECT_EQ(play.err(), "");
        const std::vector<float> out = heard();
        ASSERT_FALSE(out.empty()) << "the peer heard too little";
        // The amplifier shapes the tone: its harmonics take a share of what comes out, and the level is its.
        EXPECT_LT(toneShare(out, 440.0), 0.995);
        const double level = acLevel(out.data(), out.size());
        EXPECT_GT(level, 0.01) << "sound comes through the amplifier";
        EXPECT_GT(std::abs(20.0 * std::log10(level / kToneLevel)), 1.0) << level;
    }
}

TEST_F(Kv3Live, WithNoServerItRetriesAndGivesUpWithinTheTimeAskedAndNoTakeIsMade)
{
    // The server is named but never started. The fifth attempt tells that the device is lost.
    const auto t0 = std::chrono::steady_clock::now();
    Kv3Process play(withDevice({"play", project, "--seconds", "4.5"}));
    EXPECT_EQ(play.wait(20s), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 4500ms);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, 6s);
    EXPECT_GE(count(play.out(), "device: waiting for JACK \"" + server.name() + "\""), 5)
        << "a new attempt every second: " << play.out();
    EXPECT_EQ(count(play.out(), "device: lost"), 1) << "once in a run of failures: " << play.out();
    EXPECT_EQ(play.out().find("running"), std::string::npos);
    EXPECT_EQ(count(play.err(), "\n"), 1) << play.err();
    EXPECT_NE(play.err().find("no audio device came up within 4.5 s"), std::string::npos) << play.err();
    EXPECT_NE(play.err().find(server.name()), std::string::npos) << play.err();

    const std::string before = readBytes(project);
    Kv3Process record(withDevice({"record", project, "--track", "2", "--seconds", "2"}));
    EXPECT_EQ(record.wait(20s), 1);
    EXPECT_EQ(count(record.err(), "\n"), 1) << record.err();
    EXPECT_NE(record.err().find("no audio device came up"), std::string::npos) << record.err();
    EXPECT_EQ(readBytes(project), before);
    for (const auto& entry : fs::directory_iterator(folder.path()))
    {
        EXPECT_EQ(entry.path().filename().string().rfind("Audio_", 0), std::string::npos) << entry.path();
    }
}

TEST_F(Kv3Live, AServerThatDiesDuringATakeLeavesTheProjectAsItWas)
{
    ASSERT_TRUE(server.start());
    const std::string before = readBytes(project);
    Kv3Process record(withDevice({"record", project, "--track", "2", "--seconds", "3"}));
    ASSERT_TRUE(record.waitForOutput("recording 1 s", 10s)) << record.out() << record.err();
    server.kill();
    // Retried for the take's three seconds, then given up.
    EXPECT_EQ(record.wait(20s), 1);
    EXPECT_NE(record.out().find("device: waiting"), std::string::npos) << record.out();
    EXPECT_EQ(count(record.err(), "\n"), 1) << record.err();
    EXPECT_NE(record.err().find("was lost during the take; the project is unchanged"), std::string::npos)
        << record.err();
    EXPECT_EQ(readBytes(project), before);
}

TEST_F(Kv3Live, RecordsTheInputOnATrackWhileTheOthersPlay)
{
    ASSERT_TRUE(server.start());
    // Track 2 takes both inputs; the peer plays a steady 0.1 into the left one only.
    Kv3Process record(withDevice({"record", project, "--track", "2", "--seconds", "3"}));
    ASSERT_NO_FATAL_FAILURE(runWithPeer(record, "192000", "0.1"));
    const std::string take = folder.path() + "Audio_T2_1.aif";
    EXPECT_NE(record.out().find(take + "\n"), std::string::npos) << record.out();
    EXPECT_EQ(record.err(), "");
    const testsound::Stereo audio = testsound::readStereo(take);
    ASSERT_EQ(audio.channels, 2);
    EXPECT_EQ(audio.rate, kRate);
    EXPECT_GE(audio.frames(), 3 * kRate - kRoundTrip - kPeriod) << "three seconds, less the round trip";
    EXPECT_LE(audio.frames(), 3 * kRate - kRoundTrip + kRate / 10);
    // The left input after the project's input gain of 6 dB, as 24-bit samples, from a second in (the
    // peer plays from soon after the device runs); nothing on the right.
    const float gained = static_cast<float>(0.1 * std::pow(10.0, 6.0 / 20.0));
    const auto far = std::find_if(audio.left.begin() + kRate, audio.left.end(),
                                  [&](float s) { return std::abs(s - gained) > 1e-4f; });
    EXPECT_GE(far - audio.left.begin(), 29 * kRate / 10) << "the gained input holds to the end";
    EXPECT_LT(testsignal::peak(audio.right.data(), audio.frames()), 1e-6);
    expectTheTone(); // meanwhile track 1 played its tone

    std::string json;
    ASSERT_EQ(kv3({"project", "show", "--json", project}, &json), 0);
    EXPECT_NE(json.find("{\"id\":2,\"path\":\"" + take + "\",\"recorded\":true}"), std::string::npos) << json;
    const std::size_t at = json.find("\"element\":2,\"file\":\"" + take + "\"");
    ASSERT_NE(at, std::string::npos) << json;
    EXPECT_NE(json.substr(at, json.find('}', at) - at).find("\"armed\":false"), std::string::npos)
        << "disarmed after the take: " << json;
    EXPECT_LT(json.find("\"file\":\"" + tone + "\""), at) << "track 1 kept";
}

TEST_F(Kv3Live, ATakeEndedWithCtrlCIsKept)
{
    ASSERT_TRUE(server.start());
    Kv3Process record(withDevice({"record", project, "--track", "2"}));
    ASSERT_TRUE(record.waitForOutput("recording 1 s", 10s)) << record.out() << record.err();
    record.signal(SIGINT);
    ASSERT_EQ(record.wait(20s), 0) << record.out() << record.err();
    const testsound::Stereo audio = testsound::readStereo(folder.path() + "Audio_T2_1.aif");
    EXPECT_GT(audio.frames(), kRate - kRoundTrip);
    EXPECT_LT(audio.frames(), 2 * kRate);
}

TEST_F(Kv3Live, ATakeThatCantBeWrittenLeavesTheProjectAsItWas)
{
    ASSERT_TRUE(server.start());
    // The take's working file can't be made where a folder has its name.
    const std::string blocked = folder.path() + "Audio_T2_1_tmp.aif";
    ASSERT_TRUE(fs::create_directory(blocked));
    const std::string before = readBytes(project);
    Kv3Process record(withDevice({"record", project, "--track", "2", "--seconds", "1"}));
    EXPECT_EQ(record.wait(20s), 1);
    EXPECT_EQ(count(record.err(), "\n"), 1) << record.err();
    EXPECT_NE(record.err().find(blocked), std::string::npos) << record.err();
    EXPECT_EQ(readBytes(project), before);
    EXPECT_FALSE(fs::exists(folder.path() + "Audio_T2_1.aif"));
}

TEST_F(Kv3Live, DevicesListsTheJackServerItsPortsAndTheMidiInputOrThatItIsNotAvailable)
{
    Kv3Process stopped({"devices", "--technology", "asio"});
    ASSERT_EQ(stopped.wait(20s), 0) << stopped.err();
    EXPECT_NE(stopped.out().find("JACK\n  output " + server.name() + ": 0 channels\n         not available"),
              std::string::npos)
        << stopped.out();
    EXPECT_NE(stopped.out().find("MIDI inputs\n  none"), std::string::npos) << stopped.out();
    ASSERT_TRUE(server.start());
    std::string json;
    ASSERT_EQ(kv3({"devices", "--json", "--technology", "JACK"}, &json), 0);
    const std::string device = "{\"name\":\"" + server.name() + "\",\"direction\":\"input\",\"channels\":2";
    EXPECT_NE(json.find(device), std::string::npos) << json;
    EXPECT_NE(json.find("\"channel_names\":[\"system:capture_1\",\"system:capture_2\"]"), std::string::npos);
    EXPECT_NE(json.find("\"sample_rates\":[48000],\"buffer_sizes\":[16,32,64,128,256,"), std::string::npos)
        << "the server is asked for the size chosen: " << json;
    // The dummy server's capture latency is one period, its playback latency two: 768 frames, 16 ms.
    EXPECT_NE(json.find("\"round_trip\":{\"frames\":768,\"ms\":16}"), std::string::npos) << json;
    EXPECT_NE(json.find("\"midi_inputs\":[\"JACK MIDI\"]"), std::string::npos) << json;
    EXPECT_EQ(json.find("\"name\":\"ALSA\""), std::string::npos) << "only the technology asked for";
}

TEST_F(Kv3Live, BadUsageIsOneLineAndExitTwoAMissingProjectExitOne)
{
    struct Case
    {
        std::vector<std::string> arguments;
        int status;
        const char* says;
    };
    const std::string missing = folder.path() + "missing.kv3h";
    const Case cases[] = {
        {{"record", project, "--track", "0"}, 2, "--track must be 1 to 4, not 0"},
        {{"record", project, "--track", "5"}, 2, "--track must be 1 to 4, not 5"},
        {{"record", project}, 2, "--track N"},
        {{"record", project, "--track", "1", "--seconds", "-2"}, 2, "--seconds"},
        {{"record", missing, "--track", "1"}, 1, "missing.kv3h: no such file"},
        {{"play"}, 2, "give one PROJECT"},
        {{"play", project, "--seconds", "soon"}, 2, "--seconds"},
        {{"play", project, "--technology", "Carrier pigeon"}, 2, "unknown technology"},
        {{"play", project, "--buffer", "3"}, 2, "--buffer"},
        {{"play", project, "--from", "-1"}, 2, "--from"},
        {{"play", project, "--from", "999999999"}, 2, "past the end of the session"},
        {{"play", missing}, 1, "missing.kv3h: no such file"},
        {{"devices", "--technology", "CoreAudio"}, 2, "unknown technology 'CoreAudio'"},
        {{"devices", "extra"}, 2, "extra"},
    };
    for (const Case& c : cases)
    {
        Kv3Process program(c.arguments);
        EXPECT_EQ(program.wait(30s), c.status) << c.arguments.back();
        EXPECT_EQ(count(program.err(), "\n"), 1) << program.err();
        EXPECT_NE(program.err().find(c.says), std::string::npos) << program.err();
        EXPECT_EQ(program.out(), "") << program.out();
    }
}

// Takes were placed by JACK's latencies plus two blocks, which the latencies already hold: a looped
// take landed a thousand frames early.
TEST_F(Kv3Live, ATakeOfTheOutputLoopedBackLandsWhereTheDelayAndJacksLatenciesSay)
{
    const std::string click = folder.path() + "click.wav";
    const int clickAt = kRate;
    std::vector<float> data(3 * kRate * 2, 0.0f);
    data[2 * clickAt] = data[2 * clickAt + 1] = 0.25f;
    ASSERT_TRUE(testsound::write(click, SF_FORMAT_WAV | SF_FORMAT_FLOAT, kRate, 2, data));
    ASSERT_EQ(kv3({"project", "set", project, "--track", "1", "--file", click}), 0);
    const int delay = 1000;
    for (const int period : {128, 256})
    {
        SCOPED_TRACE(period);
        JackTestServer looped(kRate, period);
        ASSERT_TRUE(looped.start());
        Kv3Process record({"record", project, "--track", "2", "--seconds", "2", "--technology", "JACK",
                           "--device", looped.name(), "--buffer", std::to_string(period)});
        ASSERT_TRUE(record.waitForOutput("device: running", 10s)) << record.out() << record.err();
        JackPeer peer({"loop", "Korvalind 3:in_1", "Korvalind 3:out_1", std::to_string(delay),
                       std::to_string(3 * kRate)});
        ASSERT_EQ(record.wait(20s), 0) << record.out() << record.err();
        const std::string take = folder.path() + "Audio_T2_" + (period == 128 ? "1" : "2") + ".aif";
        const testsound::Stereo audio = testsound::readStereo(take);
        const auto heardAt =
            std::find_if(audio.left.begin(), audio.left.end(), [](float s) { return std::abs(s) > 0.1f; });
        ASSERT_NE(heardAt, audio.left.end());
        // The loop through another client costs JACK one period; the dummy server reports one
        // period of capture latency and two of playback latency, which the take is moved back by.
        const long expected = clickAt + delay + period - 3 * period;
        EXPECT_NEAR(heardAt - audio.left.begin(), expected, 2);
    }
}

namespace
{

/** A PipeWire server with WirePlumber, a null sink and a null source, in a runtime folder of its own,
    with PipeWire's JACK layer for the programs the test starts. */
class PipeWireServer
{
public:
    static constexpr const char* kJackLayer = "/usr/lib/x86_64-linux-gnu/pipewire-0.3/jack";

    /** @returns false with `why` set when a part of PipeWire is not installed or didn't start */
    bool start(std::string& why)
    {
        for (const char* tool :
             {"/usr/bin/pipewire", "/usr/bin/wireplumber", "/usr/bin/dbus-run-session", kJackLayer})
        {
            if (!fs::exists(tool))
            {
                why = std::string(tool) + " is missing (Debian's pipewire, wireplumber and pipewire-jack)";
                return false;
            }
        }
        const std::string conf = folder_.path() + "pipewire.conf";
        std::ofstream(conf) << R"(context.properties = { core.daemon = true core.name = pipewire-0
  default.clock.rate = 48000 default.clock.quantum = 1024 default.clock.min-quantum = 32 support.dbus = false }
context.spa-libs = { audio.convert.* = audioconvert/libspa-audioconvert support.* = support/libspa-support }
context.modules = [ { name = libpipewire-module-protocol-native } { name = libpipewire-module-access }
  { name = libpipewire-module-profiler } { name = libpipewire-module-metadata }
  { name = libpipewire-module-spa-node-factory } { name = libpipewire-module-client-node }
  { name = libpipewire-module-client-device } { name = libpipewire-module-adapter }
  { name = libpipewire-module-link-factory } { name = libpipewire-module-session-manager } ]
context.objects = [
  { factory = spa-node-factory args = { factory.name = support.node.driver node.name = Dummy-Driver priority.driver = 8000 } }
  { factory = adapter args = { factory.name = support.null-audio-sink node.name = kv3-out media.class = Audio/Sink audio.position = [ FL FR ] } }
  { factory = adapter args = { factory.name = support.null-audio-sink node.name = kv3-in media.class = Audio/Source audio.position = [ FL FR ] } } ]
)";
        setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1);
        unsetenv("JACK_DEFAULT_SERVER");
        const char* libraries = std::getenv("LD_LIBRARY_PATH");
        savedLibraries_ = libraries ? libraries : "";
        setenv("LD_LIBRARY_PATH", kJackLayer, 1);
        pipewire_.emplace("/bin/sh", std::vector<std::string>{"-c", "exec /usr/bin/pipewire -c '" + conf +
                                                                        "' >/dev/null 2>&1"});
        for (int i = 0; i < 100 && !fs::exists(folder_.path() + "pipewire-0"); ++i)
        {
            std::this_thread::sleep_for(50ms);
        }
        sessionManager_.emplace("/bin/sh",
                                std::vector<std::string>{"-c", "exec /usr/bin/dbus-run-session -- "
                                                               "/usr/bin/wireplumber >/dev/null 2>&1"});
        why = "PipeWire did not start";
        return fs::exists(folder_.path() + "pipewire-0");
    }
    ~PipeWireServer()
    {
        sessionManager_.reset();
        pipewire_.reset();
        setenv("LD_LIBRARY_PATH", savedLibraries_.c_str(), 1);
    }

private:
    TempFolder folder_;
    std::optional<RunningProgram> pipewire_;
    std::optional<RunningProgram> sessionManager_;
    std::string savedLibraries_;
};

} // namespace

// PipeWire's JACK layer runs at the graph's quantum, 1024 frames, unless its client asks for its own.
TEST_F(Kv3Live, UnderPipeWireTheBufferChosenIsTheOneThatRuns)
{
    PipeWireServer pipewire;
    std::string why;
    if (!pipewire.start(why))
    {
        GTEST_SKIP() << why;
    }
    Kv3Process play({"play", project, "--seconds", "3", "--technology", "JACK", "--buffer", "128"});
    ASSERT_EQ(play.wait(30s), 0) << play.out() << play.err();
    EXPECT_NE(play.out().find("device: running, JACK \"JACK\", 48000 Hz, 128 frames a block"),
              std::string::npos)
        << play.out();
    EXPECT_TRUE(
        std::regex_search(play.out(), std::regex("playing 2 s, position \\d+, busy \\d+% at 128 frames")))
        << play.out();
}

// A server at another rate than the project's was retried for ever and never played.
TEST_F(Kv3Live, AProjectAtARateTheServerLacksPlaysAtTheServersRateWithOneWarning)
{
    const std::string tone44 = folder.path() + "tone44.wav";
    ASSERT_TRUE(writeTone(tone44, 3.0, 1000.0, 44100));
    const std::string project44 = folder.path() + "song44.kv3h";
    ASSERT_EQ(kv3({"project", "new", project44, "--rate", "44100"}), 0);
    ASSERT_EQ(
        kv3({"project", "set", project44, "--track", "1", "--file", tone44, "--armed", "off", "--fx", "off"}),
        0);
    for (const unsigned rate : {48000u, 44100u})
    {
        SCOPED_TRACE(rate);
        JackTestServer other(rate, kPeriod);
        ASSERT_TRUE(other.start());
        Kv3Process play({"play", project44, "--seconds", "2", "--technology", "JACK", "--buffer", "256"});
        // Up within 3 s: the first attempt comes a second after the start and takes a few tenths (more
        // under the checkers, which start the program slowly).
        ASSERT_NO_FATAL_FAILURE(runWithPeer(play, "48000", "0", kChecked ? 6s : 3s));
        EXPECT_EQ(count(play.out(), "Current project sample rate is not supported by the hardware."),
                  rate == 48000u ? 1 : 0)
            << play.out();
        const std::vector<float> out = heard();
        ASSERT_FALSE(out.empty()) << "the peer heard too little";
        EXPECT_NEAR(testsignal::medianPeriodFrequency(out.data(), out.size(), rate), 1000.0, 5.0)
            << "1 kHz within 0.5%";
    }
}
