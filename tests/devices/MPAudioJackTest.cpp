#include "tests/devices/JackPeer.h"
#include "tests/devices/JackTestServer.h"
#include "tests/devices/ScriptedBackend.h"

#include "devices/MPAudio.h"
#include "devices/jack/JackClient.h"
#include "devices/jack/MPAudioJack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace
{

/** A client of the backend that copies logical input 0 to output 0 at half gain and counts. */
class PassThroughClient : public RecordingClient
{
public:
    /** Relaxed: counters read by the test thread only to wait and compare. */
    std::atomic<int> blocks{0};
    std::atomic<std::uint32_t> frames{0};
    std::atomic<int> resets{0};
    std::atomic<std::int64_t> firstResetUs{-1};

    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t n) override
    {
        for (std::uint32_t i = 0; i < n && inputCount > 0 && outputCount > 0; ++i)
        {
            outputs[0][i] = 0.5f * inputs[0][i];
        }
        frames.store(n, std::memory_order_relaxed);
        blocks.fetch_add(1, std::memory_order_relaxed);
    }
    int notify(int code) override
    {
        if (code == 1 && resets.fetch_add(1, std::memory_order_relaxed) == 0)
        {
            firstResetUs.store(
                std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch())
                    .count(),
                std::memory_order_relaxed);
        }
        return code - 1;
    }
};

/** The value the peer plays at a frame: a ramp that repeats every 4096 frames, never above 0.5. */
float played(std::size_t frame)
{
    return static_cast<float>(frame % 4096) / 8192.0f;
}

std::string tempFile(const char* stem)
{
    return "/tmp/" + std::string(stem) + "_" + std::to_string(getpid()) + ".raw";
}

MPAudioConfig stereoConfig(std::uint32_t rate = 48000, std::uint32_t frames = 0)
{
    MPAudioConfig config;
    config.inputDevice = 0;
    config.outputDevice = 0;
    config.sampleRate = rate;
    config.bufferSize = frames;
    config.inputChannels = 2;
    config.outputChannels = 2;
    config.inputRouting[0] = {true, 0};
    config.inputRouting[1] = {true, 1};
    config.outputRouting[0] = {true, 0};
    config.outputRouting[1] = {true, 1};
    return config;
}

template <typename Pred> bool waitFor(Pred pred, std::chrono::milliseconds limit)
{
    const auto deadline = Clock::now() + limit;
    while (Clock::now() < deadline)
    {
        if (pred())
        {
            return true;
        }
        std::this_thread::sleep_for(5ms);
    }
    return pred();
}

} // namespace

TEST(MPAudioJack, ListsTheServerAndItsPhysicalPorts)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MPAudioJack jack;
    jack.enumerateDevices(false);
    ASSERT_EQ(jack.inputDevices().size(), 1u);
    ASSERT_EQ(jack.outputDevices().size(), 1u);
    EXPECT_STREQ(jack.inputDevices()[0].name, server.name().c_str());
    EXPECT_EQ(jack.inputDevices()[0].channels, 2u);
    EXPECT_EQ(jack.outputDevices()[0].channels, 2u);
    EXPECT_EQ(jack.outputDevices()[0].minRate, 48000u);

    std::vector<std::uint32_t> sizes, rates;
    std::vector<MPAudioChannelName> names;
    bool fixed = false;
    std::uint32_t preferred = 0;
    ASSERT_TRUE(jack.queryDevice(0, true, &sizes, &names, &rates, &fixed, &preferred, nullptr, nullptr));
    EXPECT_NE(std::find(sizes.begin(), sizes.end(), 256u), sizes.end());
    EXPECT_NE(std::find(sizes.begin(), sizes.end(), 128u), sizes.end()) << "other sizes can be asked for";
    EXPECT_EQ(rates, std::vector<std::uint32_t>{48000});
    EXPECT_FALSE(fixed);
    EXPECT_EQ(preferred, 256u);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_STREQ(names[0].name, "system:capture_1");
    EXPECT_STREQ(names[1].name, "system:capture_2");
    ASSERT_TRUE(jack.queryDevice(0, false, nullptr, &names, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_STREQ(names[1].name, "system:playback_2");
    int channel = -5;
    EXPECT_TRUE(jack.findChannel(0, false, "system:playback_2", &channel));
    EXPECT_EQ(channel, 1);
    EXPECT_FALSE(jack.queryDevice(1, false, nullptr, &names, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_TRUE(names.empty());
}

TEST(MPAudioJack, WithoutAServerTheDeviceIsListedButRefuses)
{
    JackTestServer server; // named, never started
    MPAudioJack jack;
    const auto t0 = Clock::now();
    jack.enumerateDevices(false);
    ASSERT_EQ(jack.outputDevices().size(), 1u);
    EXPECT_EQ(jack.outputDevices()[0].channels, 0u);
    std::vector<std::uint32_t> rates{1};
    EXPECT_FALSE(jack.queryDevice(0, false, nullptr, nullptr, &rates, nullptr, nullptr, nullptr, nullptr));
    EXPECT_TRUE(rates.empty());
    EXPECT_FALSE(jack.open(stereoConfig()));
    EXPECT_NE(jack.lastError().find("no JACK server"), std::string::npos) << jack.lastError();
    EXPECT_LT(Clock::now() - t0, 3s);
}

TEST(MPAudioJack, BlocksArriveAtTheServersPeriod)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MPAudioJack jack;
    PassThroughClient client;
    jack.setClient(&client);
    ASSERT_TRUE(jack.open(stereoConfig(48000, 0))) << jack.lastError();
    EXPECT_EQ(jack.blockSize(), 256u) << "a size of 0 keeps the server's";
    ASSERT_TRUE(jack.start());
    ASSERT_TRUE(waitFor([&] { return client.blocks.load() > 0; }, 2s));
    const int before = client.blocks.load();
    const auto t0 = Clock::now();
    std::this_thread::sleep_for(1s);
    const int blocks = client.blocks.load() - before;
    const double seconds = std::chrono::duration<double>(Clock::now() - t0).count();
    jack.stop();
    // 187.5 periods a second; without realtime scheduling the dummy driver jitters, so only the order
    // of magnitude is checked, never the absence of a missed period.
    EXPECT_GT(blocks, 120 * seconds);
    EXPECT_LT(blocks, 260 * seconds);
    EXPECT_EQ(client.frames.load(), 256u);
    EXPECT_EQ(jack.samplePosition() % 256, 0u);
    EXPECT_GE(jack.samplePosition(), static_cast<std::uint32_t>(blocks) * 256u);

    // After stop the server no longer enters the block path.
    const int stopped = client.blocks.load();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(client.blocks.load(), stopped);
    EXPECT_TRUE(jack.start()) << "a stopped device starts again";
    EXPECT_TRUE(waitFor([&] { return client.blocks.load() > stopped + 5; }, 2s));
    jack.close();
    EXPECT_FALSE(jack.isOpen());
}

TEST(MPAudioJack, RefusesARateTheServerDoesNotRun)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MPAudioJack jack;
    EXPECT_FALSE(jack.open(stereoConfig(44100)));
    EXPECT_NE(jack.lastError().find("48000"), std::string::npos) << jack.lastError();
    MPAudioConfig config = stereoConfig();
    config.outputRouting[1] = {true, 7};
    EXPECT_FALSE(jack.open(config)) << "the server has no playback channel 8";
    EXPECT_FALSE(jack.isOpen());
    EXPECT_TRUE(jack.open(stereoConfig())) << jack.lastError();
}

TEST(MPAudioJack, AnotherClientsAudioComesBackThroughTheRouting)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MPAudioJack jack;
    PassThroughClient client;
    jack.setClient(&client);
    MPAudioConfig config = stereoConfig();
    // Logical output 0 goes to hardware channel 1 as well as output 1 there: the pass-through is
    // summed with the silent second output and so arrives unchanged on out_2.
    config.outputRouting[0] = {true, 1};
    ASSERT_TRUE(jack.open(config)) << jack.lastError();
    ASSERT_TRUE(jack.start());
    const std::string file = tempFile("kv3jackpeer");
    JackPeer peer({"audio", "Korvalind 3:in_1", "Korvalind 3:out_2", "48000", file, "ramp"});
    ASSERT_EQ(peer.wait(), 0);
    jack.stop();
    const std::vector<float> got = JackPeer::readFloats(file);
    std::remove(file.c_str());
    ASSERT_EQ(got.size(), 48000u);

    // Find the delay on a stretch well after the connections settled, then check every frame.
    const std::size_t from = 24000;
    std::size_t delay = 0;
    bool found = false;
    for (; delay < 8192; ++delay)
    {
        if (std::fabs(got[from] - 0.5f * played(from - delay)) < 1e-6f &&
            std::fabs(got[from + 1] - 0.5f * played(from + 1 - delay)) < 1e-6f &&
            std::fabs(got[from + 2000] - 0.5f * played(from + 2000 - delay)) < 1e-6f)
        {
            found = true;
            break;
        }
    }
    ASSERT_TRUE(found) << "the signal never came back at half gain";
    EXPECT_EQ(delay % 256, 0u) << "the delay is whole periods";
    int wrong = 0;
    for (std::size_t i = from; i < from + 16000; ++i)
    {
        wrong += std::fabs(got[i] - 0.5f * played(i - delay)) > 1e-6f;
    }
    // A missed period of the unscheduled dummy driver can shift a stretch; most frames must match.
    EXPECT_LT(wrong, 1024);
}

TEST(MPAudioJack, AKilledServerReachesNotifyAndARestartedOneOpensAgain)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MPAudioJack jack;
    PassThroughClient client;
    jack.setClient(&client);
    ASSERT_TRUE(jack.open(stereoConfig()));
    ASSERT_TRUE(jack.start());
    ASSERT_TRUE(waitFor([&] { return client.blocks.load() > 10; }, 2s));

    const auto killedAt = Clock::now();
    server.kill();
    ASSERT_TRUE(waitFor([&] { return client.resets.load() > 0; }, 3s));
    const auto firstReset = Clock::time_point(std::chrono::microseconds(client.firstResetUs.load()));
    EXPECT_LT(firstReset - killedAt, 1200ms);
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(client.resets.load(), 1) << "one reset request per start";

    const auto closeStart = Clock::now();
    jack.close();
    EXPECT_LT(Clock::now() - closeStart, 3s);

    ASSERT_TRUE(server.start());
    PassThroughClient again;
    jack.setClient(&again);
    ASSERT_TRUE(jack.open(stereoConfig())) << jack.lastError();
    ASSERT_TRUE(jack.start());
    EXPECT_TRUE(waitFor([&] { return again.blocks.load() > 10; }, 3s));
    jack.close();
}

TEST(MPAudioJack, ABufferSizeChangeAsksForAReset)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MPAudioJack jack;
    PassThroughClient client;
    jack.setClient(&client);
    ASSERT_TRUE(jack.open(stereoConfig()));
    ASSERT_TRUE(jack.start());
    ASSERT_TRUE(waitFor([&] { return client.blocks.load() > 5; }, 2s));
    JackPeer peer({"buffersize", "512"});
    ASSERT_EQ(peer.wait(), 0);
    EXPECT_TRUE(waitFor([&] { return client.resets.load() == 1; }, 2s));
    const int blocks = client.blocks.load();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(client.blocks.load(), blocks) << "a device waiting for its reset runs no blocks";
    jack.close();
}

TEST(MPAudioJack, AServerThatNeverAnswersDoesNotHang)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    server.freeze();
    auto t0 = Clock::now();
    {
        MPAudioJack jack;
        jack.enumerateDevices(false);
        EXPECT_FALSE(jack.open(stereoConfig()));
        EXPECT_NE(jack.lastError().find("does not answer"), std::string::npos) << jack.lastError();
        EXPECT_FALSE(jack.open(stereoConfig())) << "while the first attempt is stuck, the next fails at once";
    }
    EXPECT_LT(Clock::now() - t0, 4s);
    server.thaw();
    server.stop();
    // The calls given up on end once the server is gone; the next test starts without them.
    EXPECT_TRUE(waitFor([] { return kv3jack::pendingCalls() == 0; }, 10s));
}

TEST(MPAudioJack, StoppingWhenTheServerHangsMidRunReturns)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    PassThroughClient client;
    auto t0 = Clock::now();
    {
        MPAudioJack jack;
        jack.setClient(&client);
        ASSERT_TRUE(jack.open(stereoConfig()));
        ASSERT_TRUE(jack.start());
        ASSERT_TRUE(waitFor([&] { return client.blocks.load() > 5; }, 2s));
        server.freeze();
        EXPECT_TRUE(waitFor([&] { return client.resets.load() == 1; }, 2s)) << "a silent server is noticed";
        t0 = Clock::now();
        jack.close();
    }
    EXPECT_LT(Clock::now() - t0, 4s);
    server.thaw();
    server.stop();
    // The calls given up on end once the server is gone; the next test starts without them.
    EXPECT_TRUE(waitFor([] { return kv3jack::pendingCalls() == 0; }, 10s));
}

TEST(MPAudioJack, ThroughTheDriverTable)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MPAudio audio;
    ASSERT_TRUE(audio.selectDriver("ASIO"));
    int index = -1;
    EXPECT_TRUE(audio.findDevice(server.name().c_str(), false, &index));
    EXPECT_EQ(index, 0);
    ASSERT_TRUE(audio.open(server.name().c_str(), server.name().c_str(), 64, 0, 1, 0, 1, 48000));
    EXPECT_EQ(audio.blockSize(), 64u) << "the server takes the size asked for";
    ASSERT_TRUE(audio.start());
    EXPECT_TRUE(waitFor([&] { return audio.samplePosition() >= 64 * 10; }, 2s));
    audio.close();
}

namespace
{

/** A client of the driver table whose block can be made to stall once, as a hung plug-in does. */
class StallingAudio : public MPAudio
{
public:
    /** Relaxed: flags and counters read by the test thread only to wait and compare. */
    std::atomic<bool> stallNext{false};
    std::atomic<bool> stalling{false};
    std::atomic<int> blocks{0};
    std::atomic<int> resets{0};

    void process(const float* const*, std::uint32_t, float* const* outputs, std::uint32_t outputCount,
                 std::uint32_t frames) override
    {
        if (stallNext.exchange(false, std::memory_order_relaxed))
        {
            stalling.store(true, std::memory_order_relaxed);
            std::this_thread::sleep_for(1500ms);
            stalling.store(false, std::memory_order_relaxed);
        }
        for (std::uint32_t c = 0; c < outputCount; ++c)
        {
            std::fill(outputs[c], outputs[c] + frames, 0.25f);
        }
        blocks.fetch_add(1, std::memory_order_relaxed);
    }
    int notify(int code) override
    {
        resets.fetch_add(code == 1 ? 1 : 0, std::memory_order_relaxed);
        return code - 1;
    }
};

/** Opens and starts the JACK device through the table and waits for a few blocks. */
bool runs(StallingAudio& audio)
{
    const int before = audio.blocks.load();
    return audio.selectDriver("JACK") && audio.open(stereoConfig()) && audio.start() &&
           waitFor([&] { return audio.blocks.load() > before + 5; }, 3s);
}

} // namespace

// A stop that gave up on the server freed the buffers a stalled block was about to return into,
// and the watchdog took one slow block for a dead server.
TEST(MPAudioJack, ABlockStalledWhileTheServerDiesIsOutlivedAndARestartedServerComesBack)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    StallingAudio audio;
    ASSERT_TRUE(runs(audio));
    audio.stallNext.store(true);
    ASSERT_TRUE(waitFor([&] { return audio.stalling.load(); }, 1s));
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(audio.resets.load(), 0) << "a block in progress is not a dead server";
    server.kill();
    ASSERT_TRUE(waitFor([&] { return audio.resets.load() > 0; }, 2s));
    const auto t0 = Clock::now();
    audio.close();
    EXPECT_LT(Clock::now() - t0, 2s);
    EXPECT_FALSE(audio.stalling.load()) << "the stalled block has returned";

    ASSERT_TRUE(server.start());
    EXPECT_TRUE(runs(audio));
    audio.close();
}

TEST(MPAudioJack, AServerFrozenAfterTheOpenGivesControlBackAndComesBackWhenRestarted)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    StallingAudio audio;
    ASSERT_TRUE(audio.selectDriver("JACK"));
    ASSERT_TRUE(audio.open(stereoConfig()));
    server.freeze();
    const auto t0 = Clock::now();
    EXPECT_FALSE(audio.start());
    audio.close();
    EXPECT_LT(Clock::now() - t0, 2s);
    server.stop(1s);
    ASSERT_TRUE(waitFor([] { return kv3jack::pendingCalls() == 0; }, 20s));
    ASSERT_TRUE(server.start());
    EXPECT_TRUE(runs(audio));
    audio.close();
}
