// kv3 play and kv3 record, run as a user runs them, against a private JACK server with the dummy
// driver. Another program on the server (the peer) hears the program's first output and plays into its
// first input.

#include "tests/devices/JackPeer.h"
#include "tests/devices/JackTestServer.h"
#include "tests/devices/Kv3Process.h"
#include "tests/epi/TempFolder.h"
#include "tests/host/SettingsFolder.h"
#include "tests/support/SoundFile.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
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
// The input gain of a new project, 6 dB.
const double kInputGain = std::pow(10.0, 6.0 / 20.0);

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

/** A stereo 24-bit WAVE file of a sine. */
bool writeTone(const std::string& path, double seconds, double hz, double level)
{
    const auto frames = static_cast<std::size_t>(seconds * kRate);
    std::vector<float> data(frames * 2);
    for (std::size_t i = 0; i < frames; ++i)
    {
        const auto v = static_cast<float>(level * std::sin(2.0 * M_PI * hz * static_cast<double>(i) / kRate));
        data[2 * i] = v;
        data[2 * i + 1] = v;
    }
    return testsound::write(path, SF_FORMAT_WAV | SF_FORMAT_PCM_24, kRate, 2, data);
}

struct Audio
{
    int channels = 0;
    int rate = 0;
    std::vector<float> left;
    std::vector<float> right;
};

Audio readAudio(const std::string& path)
{
    const testsound::Sound sound = testsound::read(path);
    Audio audio;
    audio.channels = sound.channels;
    audio.rate = sound.rate;
    if (sound.channels == 2)
    {
        audio.left = sound.channel(0);
        audio.right = sound.channel(1);
    }
    return audio;
}

std::string readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

long lines(const std::string& text)
{
    return std::count(text.begin(), text.end(), '\n');
}

/** The root mean square around the mean: a steady level counts as nothing. */
double acLevel(const std::vector<float>& samples)
{
    if (samples.empty())
    {
        return 0.0;
    }
    double mean = 0.0;
    for (float s : samples)
    {
        mean += s;
    }
    mean /= static_cast<double>(samples.size());
    double sum = 0.0;
    for (float s : samples)
    {
        sum += (s - mean) * (s - mean);
    }
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

/** Rising zero crossings per second, around the mean. */
double frequency(const std::vector<float>& samples)
{
    double mean = 0.0;
    for (float s : samples)
    {
        mean += s;
    }
    mean /= static_cast<double>(std::max<std::size_t>(samples.size(), 1));
    int rising = 0;
    for (std::size_t i = 1; i < samples.size(); ++i)
    {
        rising += (samples[i - 1] - mean < 0.0 && samples[i] - mean >= 0.0) ? 1 : 0;
    }
    return static_cast<double>(rising) * kRate /
           static_cast<double>(std::max<std::size_t>(samples.size(), 1));
}

/**
 * The share of the signal's power (around its mean) that a sine of `hz` holds: 1 for a pure tone. It is
 * measured over windows of eleven periods of a 440 Hz tone and the median is taken, so that a period the
 * server skipped on a busy machine, which breaks the tone's phase once, doesn't count.
 */
double toneShare(const std::vector<float>& samples, double hz)
{
    constexpr std::size_t kWindow = kRate * 11 / 440;
    std::vector<double> shares;
    for (std::size_t at = 0; at + kWindow <= samples.size(); at += kWindow)
    {
        const std::vector<float> window(samples.begin() + static_cast<std::ptrdiff_t>(at),
                                        samples.begin() + static_cast<std::ptrdiff_t>(at + kWindow));
        const double level = acLevel(window);
        double c = 0.0;
        double s = 0.0;
        for (std::size_t i = 0; i < kWindow; ++i)
        {
            const double phase = 2.0 * M_PI * hz * static_cast<double>(i) / kRate;
            c += window[i] * std::cos(phase);
            s += window[i] * std::sin(phase);
        }
        const double amplitude = 2.0 * std::sqrt(c * c + s * s) / static_cast<double>(kWindow);
        shares.push_back(level > 0.0 ? amplitude * amplitude / 2.0 / (level * level) : 0.0);
    }
    if (shares.empty())
    {
        return 0.0;
    }
    std::nth_element(shares.begin(), shares.begin() + static_cast<std::ptrdiff_t>(shares.size() / 2),
                     shares.end());
    return shares[shares.size() / 2];
}

/** The longest run of samples within `tolerance` of `value`. */
std::size_t longestRun(const std::vector<float>& samples, double value, double tolerance)
{
    std::size_t best = 0;
    std::size_t run = 0;
    for (float s : samples)
    {
        run = std::abs(s - value) <= tolerance ? run + 1 : 0;
        best = std::max(best, run);
    }
    return best;
}

/** The object of track `index` in the "tracks" array of kv3 project show --json. */
std::string trackJson(const std::string& json, int index)
{
    std::size_t at = json.find("\"tracks\":[");
    for (int i = 0; at != std::string::npos && i <= index; ++i)
    {
        const std::size_t open = json.find('{', at);
        const std::size_t close = json.find('}', open);
        if (open == std::string::npos || close == std::string::npos)
        {
            return {};
        }
        if (i == index)
        {
            return json.substr(open, close - open + 1);
        }
        at = close;
    }
    return {};
}

/** A project with a five-second 440 Hz tone on track 1 (not armed, no effect), in a folder of its
    own, with settings of its own, beside a JACK server that each test starts or not. */
class Kv3Live : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(folder.path().empty());
        project = folder.path() + "song.kv3h";
        tone = folder.path() + "tone.wav";
        ASSERT_TRUE(writeTone(tone, 5.0, 440.0, 0.5));
        ASSERT_EQ(kv3({"project", "new", project, "--rate", std::to_string(kRate)}), 0);
        ASSERT_EQ(
            kv3({"project", "set", project, "--track", "1", "--file", tone, "--armed", "off", "--fx", "off"}),
            0);
    }

    /** The options that point the program at the test's server, at its period unless told. */
    std::vector<std::string> withDevice(std::vector<std::string> arguments) const
    {
        if (std::find(arguments.begin(), arguments.end(), "--buffer") == arguments.end())
        {
            arguments.insert(arguments.end(), {"--buffer", std::to_string(kPeriod)});
        }
        for (const char* word : {"--technology", "JACK", "--device"})
        {
            arguments.emplace_back(word);
        }
        arguments.push_back(server.name());
        return arguments;
    }

    /**
     * Half a second of what the peer heard from the program's first output, from a tenth of a second
     * after the first sound: the peer records from before its ports are connected, and connecting
     * takes a while on a busy machine. Empty when the peer heard too little.
     */
    std::vector<float> heard() const
    {
        const std::vector<float> all = JackPeer::readFloats(peerFile);
        const auto onset = std::find_if(all.begin(), all.end(), [](float s) { return s != 0.0f; });
        const auto skip = static_cast<std::ptrdiff_t>(kRate / 10);
        const auto length = static_cast<std::ptrdiff_t>(kRate / 2);
        if (all.end() - onset < skip + length)
        {
            return {};
        }
        return {onset + skip, onset + skip + length};
    }

    kv3test::SettingsFolder settings;
    TempFolder folder;
    JackTestServer server{kRate, kPeriod};
    std::string project;
    std::string tone;
    std::string peerFile = "/tmp/kv3livepeer_" + std::to_string(getpid()) + ".raw";

    void TearDown() override { std::remove(peerFile.c_str()); }
};

} // namespace

TEST_F(Kv3Live, PlaysTheProjectForTheSecondsAskedAndPrintsTheBusyLevel)
{
    ASSERT_TRUE(server.start());
    Kv3Process play(withDevice({"play", project, "--seconds", "3"}));
    ASSERT_TRUE(play.waitForOutput("device: running", 10s)) << play.out() << play.err();
    JackPeer peer({"audio", "Korvalind 3:in_1", "Korvalind 3:out_1", "48000", peerFile, "0"});
    EXPECT_EQ(peer.wait(), 0);
    ASSERT_EQ(play.wait(20s), 0) << play.out() << play.err();

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

    // The tone of track 1 came out of the program's first output.
    const std::vector<float> out = heard();
    ASSERT_FALSE(out.empty()) << "the peer heard too little";
    EXPECT_NEAR(frequency(out), 440.0, 10.0);
    EXPECT_GT(toneShare(out, 440.0), 0.999) << "the file's tone as it is";
    EXPECT_NEAR(acLevel(out), kToneLevel, 0.01) << "at its own level";
}

TEST_F(Kv3Live, WithoutSecondsItStopsAtTheEndOfTheSession)
{
    ASSERT_TRUE(server.start());
    const std::string shortTone = folder.path() + "short.wav";
    ASSERT_TRUE(writeTone(shortTone, 1.0, 440.0, 0.5));
    ASSERT_EQ(kv3({"project", "set", project, "--track", "1", "--file", shortTone}), 0);
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

TEST_F(Kv3Live, AnEffectThatCantBeLoadedIsNamedOnceAndTheTrackPlaysDry)
{
    ASSERT_TRUE(server.start());
    ASSERT_EQ(kv3({"project", "set", project, "--track", "1", "--fx", "on"}), 0);
    const std::string missing = folder.path() + "nowhere/kv3refamp.so";
    ::setenv("KV3_VPA2_PATH", missing.c_str(), 1);
    Kv3Process play(withDevice({"play", project, "--seconds", "2"}));
    ::unsetenv("KV3_VPA2_PATH");
    ASSERT_TRUE(play.waitForOutput("device: running", 10s)) << play.out() << play.err();
    JackPeer peer({"audio", "Korvalind 3:in_1", "Korvalind 3:out_1", "48000", peerFile, "0"});
    EXPECT_EQ(peer.wait(), 0);
    ASSERT_EQ(play.wait(20s), 0) << play.err();
    EXPECT_EQ(lines(play.err()), 1) << play.err();
    EXPECT_NE(play.err().find("can't be loaded"), std::string::npos) << play.err();
    EXPECT_NE(play.err().find(missing), std::string::npos) << play.err();
    EXPECT_NE(play.err().find("track 1 plays dry"), std::string::npos) << play.err();
    const std::vector<float> out = heard();
    ASSERT_FALSE(out.empty()) << "the peer heard too little";
    EXPECT_NEAR(frequency(out), 440.0, 10.0);
    EXPECT_GT(toneShare(out, 440.0), 0.999) << "the file's tone as it is";
    EXPECT_NEAR(acLevel(out), kToneLevel, 0.01) << "at its own level";
}

TEST_F(Kv3Live, TheProjectsEffectRunsWhenTheLibraryIsFound)
{
    ASSERT_TRUE(server.start());
    ASSERT_EQ(kv3({"project", "set", project, "--track", "1", "--fx", "on"}), 0);
    Kv3Process play(withDevice({"play", project, "--seconds", "2"}));
    ASSERT_TRUE(play.waitForOutput("device: running", 10s)) << play.out() << play.err();
    JackPeer peer({"audio", "Korvalind 3:in_1", "Korvalind 3:out_1", "48000", peerFile, "0"});
    EXPECT_EQ(peer.wait(), 0);
    ASSERT_EQ(play.wait(20s), 0) << play.err();
    EXPECT_EQ(play.err(), "") << "the amplifier of the build tree is found";
    const std::vector<float> out = heard();
    ASSERT_FALSE(out.empty()) << "the peer heard too little";
    EXPECT_GT(acLevel(out), 0.01) << "sound comes through the amplifier";
    // The amplifier shapes the tone: its harmonics take a share of what comes out, and the level is its.
    EXPECT_LT(toneShare(out, 440.0), 0.995);
    EXPECT_GT(std::abs(20.0 * std::log10(acLevel(out) / kToneLevel)), 1.0) << acLevel(out);
}

TEST_F(Kv3Live, WithNoServerItRetriesAndGivesUpWithinTheTimeAsked)
{
    // The server is named but never started. The fifth attempt tells that the device is lost.
    Kv3Process play(withDevice({"play", project, "--seconds", "4.5"}));
    EXPECT_EQ(play.wait(20s), 1);
    EXPECT_GE(play.seconds(), 4.5);
    EXPECT_LT(play.seconds(), 6.0);
    const std::string waiting = "device: waiting for JACK \"" + server.name() + "\"";
    long attempts = 0;
    for (std::size_t at = play.out().find(waiting); at != std::string::npos;
         at = play.out().find(waiting, at + 1))
    {
        ++attempts;
    }
    EXPECT_GE(attempts, 5) << "a new attempt every second: " << play.out();
    const std::size_t lost = play.out().find("device: lost");
    ASSERT_NE(lost, std::string::npos) << play.out();
    EXPECT_EQ(play.out().find("device: lost", lost + 1), std::string::npos) << "once in a run of failures";
    EXPECT_EQ(play.out().find("running"), std::string::npos);
    EXPECT_EQ(lines(play.err()), 1) << play.err();
    EXPECT_NE(play.err().find("no audio device came up within 4.5 s"), std::string::npos) << play.err();
    EXPECT_NE(play.err().find(server.name()), std::string::npos) << play.err();
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
    EXPECT_EQ(lines(record.err()), 1) << record.err();
    EXPECT_NE(record.err().find("was lost during the take; the project is unchanged"), std::string::npos)
        << record.err();
    EXPECT_EQ(readBytes(project), before);
}

TEST_F(Kv3Live, RecordsTheInputOnATrackWhileTheOthersPlay)
{
    ASSERT_TRUE(server.start());
    // Track 2 takes both inputs; the peer plays a steady 0.1 into the left one only.
    Kv3Process record(withDevice({"record", project, "--track", "2", "--seconds", "3"}));
    ASSERT_TRUE(record.waitForOutput("device: running", 10s)) << record.out() << record.err();
    JackPeer peer({"audio", "Korvalind 3:in_1", "Korvalind 3:out_1", "192000", peerFile, "0.1"});
    ASSERT_EQ(record.wait(20s), 0) << record.out() << record.err();
    const std::string take = folder.path() + "Audio_T2_1.aif";
    EXPECT_NE(record.out().find(take + "\n"), std::string::npos) << record.out();
    EXPECT_EQ(record.err(), "");
    EXPECT_EQ(peer.wait(), 0);

    const Audio audio = readAudio(take);
    ASSERT_EQ(audio.channels, 2);
    EXPECT_EQ(audio.rate, kRate);
    const auto frames = static_cast<long>(audio.left.size());
    EXPECT_GE(frames, 3 * kRate - kRoundTrip - kPeriod) << "three seconds, less the round trip";
    EXPECT_LE(frames, 3 * kRate - kRoundTrip + kRate / 10);
    // The left input after the project's input gain, as 24-bit samples; nothing on the right.
    EXPECT_GE(longestRun(audio.left, 0.1 * kInputGain, 1e-4), static_cast<std::size_t>(2 * kRate))
        << "the peer plays from soon after the device runs";
    float right = 0.0f;
    for (float s : audio.right)
    {
        right = std::max(right, std::abs(s));
    }
    EXPECT_LT(right, 1e-6f);
    // Meanwhile track 1 played its tone: the program's output carried it over the monitored input.
    const std::vector<float> out = heard();
    ASSERT_FALSE(out.empty()) << "the peer heard too little";
    EXPECT_NEAR(acLevel(out), kToneLevel, 0.01);
    EXPECT_GT(toneShare(out, 440.0), 0.999);

    std::string json;
    ASSERT_EQ(kv3({"project", "show", "--json", project}, &json), 0);
    EXPECT_NE(json.find("{\"id\":2,\"path\":\"" + take + "\",\"recorded\":true}"), std::string::npos) << json;
    const std::string track = trackJson(json, 1);
    EXPECT_NE(track.find("\"element\":2,\"file\":\"" + take + "\""), std::string::npos) << track;
    EXPECT_NE(track.find("\"armed\":false"), std::string::npos) << "disarmed after the take: " << track;
    EXPECT_NE(trackJson(json, 0).find("\"file\":\"" + tone + "\""), std::string::npos) << "track 1 kept";
}

TEST_F(Kv3Live, ATakeEndedWithCtrlCIsKept)
{
    ASSERT_TRUE(server.start());
    Kv3Process record(withDevice({"record", project, "--track", "2"}));
    ASSERT_TRUE(record.waitForOutput("recording 1 s", 10s)) << record.out() << record.err();
    record.signal(SIGINT);
    ASSERT_EQ(record.wait(20s), 0) << record.out() << record.err();
    const Audio audio = readAudio(folder.path() + "Audio_T2_1.aif");
    EXPECT_GT(audio.left.size(), static_cast<std::size_t>(kRate - kRoundTrip));
    EXPECT_LT(audio.left.size(), static_cast<std::size_t>(2 * kRate));
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
    EXPECT_EQ(lines(record.err()), 1) << record.err();
    EXPECT_NE(record.err().find(blocked), std::string::npos) << record.err();
    EXPECT_EQ(readBytes(project), before);
    EXPECT_FALSE(fs::exists(folder.path() + "Audio_T2_1.aif"));
}

TEST_F(Kv3Live, ATakeWithoutADeviceLeavesTheProjectAsItWas)
{
    const std::string before = readBytes(project);
    Kv3Process record(withDevice({"record", project, "--track", "2", "--seconds", "2"}));
    EXPECT_EQ(record.wait(20s), 1);
    EXPECT_LT(record.seconds(), 3.5);
    EXPECT_EQ(lines(record.err()), 1) << record.err();
    EXPECT_NE(record.err().find("no audio device came up"), std::string::npos) << record.err();
    EXPECT_EQ(readBytes(project), before);
    for (const auto& entry : fs::directory_iterator(folder.path()))
    {
        EXPECT_EQ(entry.path().filename().string().rfind("Audio_", 0), std::string::npos) << entry.path();
    }
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
    };
    for (const Case& c : cases)
    {
        Kv3Process program(c.arguments);
        EXPECT_EQ(program.wait(30s), c.status) << c.arguments.back();
        EXPECT_EQ(lines(program.err()), 1) << program.err();
        EXPECT_NE(program.err().find(c.says), std::string::npos) << program.err();
        EXPECT_EQ(program.out(), "") << program.out();
    }
    for (const char* command : {"play", "record"})
    {
        std::string usage;
        EXPECT_EQ(kv3({command, "--help"}, &usage), 0);
        EXPECT_EQ(usage.rfind(std::string("Usage: kv3 ") + command + " PROJECT", 0), 0u) << usage;
    }
    std::string help;
    EXPECT_EQ(kv3({"help"}, &help), 0);
    EXPECT_NE(help.find("  play "), std::string::npos);
    EXPECT_NE(help.find("  record "), std::string::npos);
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
        const Audio audio = readAudio(take);
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

/**
 * A PipeWire server with WirePlumber, a null sink and a null source, private to one test: a runtime
 * folder of its own, PipeWire's JACK layer for the programs the test starts, and both stopped (with
 * the session bus WirePlumber runs on) by the destructor.
 */
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
        pipewire_ = spawn({"/usr/bin/pipewire", "-c", conf});
        for (int i = 0; i < 100 && !fs::exists(folder_.path() + "pipewire-0"); ++i)
        {
            std::this_thread::sleep_for(50ms);
        }
        sessionManager_ = spawn({"/usr/bin/dbus-run-session", "--", "/usr/bin/wireplumber"});
        why = "PipeWire did not start";
        return fs::exists(folder_.path() + "pipewire-0");
    }
    ~PipeWireServer()
    {
        for (pid_t pid : {sessionManager_, pipewire_})
        {
            if (pid > 0)
            {
                kill(-pid, SIGTERM);
                waitpid(pid, nullptr, 0);
            }
        }
        setenv("LD_LIBRARY_PATH", savedLibraries_.c_str(), 1);
    }

private:
    /** Starts a program in a process group of its own, ended with the test's process. */
    static pid_t spawn(std::vector<std::string> arguments)
    {
        const pid_t pid = fork();
        if (pid == 0)
        {
            setpgid(0, 0);
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            const int devnull = open("/dev/null", O_WRONLY);
            dup2(devnull, 1);
            dup2(devnull, 2);
            std::vector<char*> argv;
            for (std::string& a : arguments)
            {
                argv.push_back(a.data());
            }
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        return pid;
    }

    TempFolder folder_;
    pid_t pipewire_ = 0;
    pid_t sessionManager_ = 0;
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
    std::vector<float> data(3 * 44100 * 2);
    for (std::size_t i = 0; i < data.size() / 2; ++i)
    {
        data[2 * i] = data[2 * i + 1] = static_cast<float>(0.5 * std::sin(2.0 * M_PI * 1000.0 * i / 44100.0));
    }
    ASSERT_TRUE(testsound::write(tone44, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 2, data));
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
        ASSERT_TRUE(play.waitForOutput("device: running", kChecked ? 6s : 3s)) << play.out() << play.err();
        JackPeer peer(
            {"audio", "Korvalind 3:in_1", "Korvalind 3:out_1", std::to_string(rate), peerFile, "0"});
        EXPECT_EQ(peer.wait(), 0);
        ASSERT_EQ(play.wait(20s), 0) << play.out() << play.err();
        const std::string warning = "Current project sample rate is not supported by the hardware.";
        const std::size_t at = play.out().find(warning);
        EXPECT_EQ(at != std::string::npos, rate == 48000u) << play.out();
        EXPECT_TRUE(at == std::string::npos || play.out().find(warning, at + 1) == std::string::npos)
            << "once";
        // What the peer heard, 24,000 frames at the server's rate: rising zero crossings count the
        // tone's periods, 500 at 1 kHz on a 48 kHz server.
        const std::vector<float> out = heard();
        ASSERT_FALSE(out.empty()) << "the peer heard too little";
        int periods = 0;
        for (std::size_t i = 1; i < out.size(); ++i)
        {
            periods += out[i - 1] < 0.0f && out[i] >= 0.0f;
        }
        EXPECT_NEAR(periods * rate / 48000.0, 500.0, 2.5) << "1 kHz within 0.5%";
    }
}
