#include "tests/devices/ScriptedBackend.h"

#include "devices/MPAudio.h"
#include "devices/alsa/MPAudioAlsa.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

namespace
{

constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kBlock = 256;
// The staircase capture file: left = frame % 30000, right = frame / 30000, so every frame (and so
// every block) of it can be told apart.
constexpr std::uint32_t kCaptureFrames = kRate;

std::int16_t stairLeft(std::uint32_t frame)
{
    return static_cast<std::int16_t>(frame % 30000);
}
std::int16_t stairRight(std::uint32_t frame)
{
    return static_cast<std::int16_t>(frame / 30000);
}

/** ALSA's user-space plug-ins stand in for hardware: a configuration of our own, given to the
    library through ALSA_CONFIG_PATH before its first use in this process. */
class AlsaPlugins : public ::testing::Test
{
public:
    static fs::path dir;

    static void SetUpTestSuite()
    {
        char templ[] = "/tmp/kv3alsaXXXXXX";
        dir = mkdtemp(templ);
        {
            std::ofstream in(dir / "in.raw", std::ios::binary);
            for (std::uint32_t i = 0; i < kCaptureFrames; ++i)
            {
                const std::int16_t frame[2] = {stairLeft(i), stairRight(i)};
                in.write(reinterpret_cast<const char*>(frame), sizeof frame);
            }
        }
        std::ofstream conf(dir / "asound.conf");
        conf << "pcm.kvnull { type null hint { show on description \"Null playback\" } }\n"
             << "pcm.kvplay { type file slave { pcm { type null } } file \"" << (dir / "out.raw").string()
             << "\" format \"raw\" hint { show on description \"File playback\" } }\n"
             << "pcm.kvcap { type file slave { pcm { type null } } file \"/dev/null\" infile \""
             << (dir / "in.raw").string()
             << "\" format \"raw\" hint { show on description \"File capture\" } }\n"
             << "pcm.kvbroken { type hw card 57 hint { show on description \"A card that isn't there\" } }\n"
             << "pcm.hiddenpcm { type null }\n";
        conf.close();
        setenv("ALSA_CONFIG_PATH", (dir / "asound.conf").c_str(), 1);
    }
    static void TearDownTestSuite() { fs::remove_all(dir); }

    void SetUp() override { fs::remove(dir / "out.raw"); }

    static std::vector<std::int16_t> played()
    {
        std::ifstream f(dir / "out.raw", std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
        std::vector<std::int16_t> samples(bytes.size() / 2);
        std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
        return samples;
    }

    static int indexOf(MPAudioAlsa& alsa, const char* name, bool input)
    {
        int index = -1;
        alsa.findDevice(name, input, &index);
        return index;
    }
};
fs::path AlsaPlugins::dir;

/** Copies each logical input to the same logical output and remembers the first frame of every
    block it saw on input 0, in order. */
class EchoClient : public RecordingClient
{
public:
    static constexpr int kMaxBlocks = 4096;
    std::atomic<int> blocks{0};
    float firstLeft[kMaxBlocks] = {};
    float firstRight[kMaxBlocks] = {};
    std::atomic<int> sleepMsPerBlock{0};
    std::atomic<bool> hang{false};
    std::atomic<bool> hanging{false};

    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t frames) override
    {
        const int b = blocks.load(std::memory_order_relaxed);
        if (inputCount >= 2 && b < kMaxBlocks)
        {
            firstLeft[b] = inputs[0][0];
            firstRight[b] = inputs[1][0];
        }
        for (std::uint32_t c = 0; c < outputCount; ++c)
        {
            for (std::uint32_t i = 0; i < frames; ++i)
            {
                outputs[c][i] = c < inputCount ? inputs[c][i] : 0.25f;
            }
        }
        if (sleepMsPerBlock.load(std::memory_order_relaxed) > 0)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(sleepMsPerBlock.load()));
        }
        while (hang.load(std::memory_order_relaxed))
        {
            hanging.store(true, std::memory_order_relaxed);
            std::this_thread::sleep_for(5ms);
        }
        // Release: the block's first frames above are visible to a reader of the count.
        blocks.store(b + 1, std::memory_order_release);
    }
};

MPAudioConfig alsaConfig(int input, int output)
{
    MPAudioConfig config;
    config.inputDevice = input;
    config.outputDevice = output;
    config.sampleRate = kRate;
    config.bufferSize = kBlock;
    config.inputChannels = input == -1 ? 0 : 2;
    config.outputChannels = output == -1 ? 0 : 2;
    config.inputRouting[0] = {input != -1, 0};
    config.inputRouting[1] = {input != -1, 1};
    config.outputRouting[0] = {output != -1, 0};
    config.outputRouting[1] = {output != -1, 1};
    return config;
}

std::uint32_t stairFrame(std::int16_t left, std::int16_t right)
{
    return static_cast<std::uint32_t>(right) * 30000u + static_cast<std::uint32_t>(left);
}

} // namespace

TEST_F(AlsaPlugins, ListsTheConfiguredDevicesByTheirPcmNames)
{
    MPAudioAlsa alsa;
    alsa.enumerateDevices(false);
    EXPECT_GE(indexOf(alsa, "kvnull", false), 0);
    EXPECT_GE(indexOf(alsa, "kvcap", true), 0);
    EXPECT_GE(indexOf(alsa, "kvplay", false), 0);
    EXPECT_EQ(indexOf(alsa, "hiddenpcm", false), -1) << "only devices the system lists";
    for (const MPAudioDevice& device : alsa.outputDevices())
    {
        EXPECT_EQ(device.channels, 2u);
    }
    std::vector<std::uint32_t> sizes;
    ASSERT_TRUE(alsa.queryDevice(0, false, &sizes, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(sizes.front(), 128u) << "a technology that tells nothing gets the common default";
}

TEST_F(AlsaPlugins, TheDefaultDeviceComesFirstWhenTheConfigurationDefinesOne)
{
    MPAudioAlsa alsa;
    alsa.enumerateDevices(false);
    EXPECT_EQ(indexOf(alsa, "default", false), -1) << "this configuration has no default device";
    const fs::path conf = dir / "with-default.conf";
    std::ifstream original(dir / "asound.conf");
    std::ofstream(conf) << original.rdbuf() << "pcm.!default { type null }\n";
    setenv("ALSA_CONFIG_PATH", conf.c_str(), 1);
    alsa.enumerateDevices(true);
    setenv("ALSA_CONFIG_PATH", (dir / "asound.conf").c_str(), 1);
    EXPECT_EQ(indexOf(alsa, "default", false), 0);
    EXPECT_EQ(indexOf(alsa, "default", true), 0);
    EXPECT_GT(indexOf(alsa, "kvnull", false), 0);
    snd_config_update_free_global(); // the next test reads the suite's own configuration again
}

TEST(BlockPacer, HoldsAClocklessDeviceToRealTimeAndLetsAClockedOneLead)
{
    BlockPacer pacer;
    pacer.reset(48, 48000, 2); // 1 ms blocks, two allowed ahead
    const auto t0 = Clock::now();
    for (int i = 0; i < 22; ++i)
    {
        pacer.pace(false);
    }
    EXPECT_GE(Clock::now() - t0, 19ms) << "22 blocks, two of them ahead: at least 20 ms";
    const auto t1 = Clock::now();
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_EQ(pacer.pace(true), 0) << "a device that waits sets the pace itself";
    }
    EXPECT_LT(Clock::now() - t1, 40ms);
}

TEST_F(AlsaPlugins, PlaybackOnlyRunsAtTheDevicesPaceAndWritesTheOutput)
{
    MPAudioAlsa alsa;
    EchoClient client;
    alsa.setClient(&client);
    const int play = indexOf(alsa, "kvplay", false);
    ASSERT_GE(play, 0);
    ASSERT_TRUE(alsa.open(alsaConfig(-1, play))) << alsa.lastError();
    EXPECT_EQ(alsa.blockSize(), kBlock);
    ASSERT_TRUE(alsa.start()) << alsa.lastError();
    const auto t0 = Clock::now();
    std::this_thread::sleep_for(500ms);
    const int blocks = client.blocks.load();
    const double seconds = std::chrono::duration<double>(Clock::now() - t0).count();
    EXPECT_EQ(alsa.threadCount(), 1) << "playback only: one thread";
    alsa.close();
    EXPECT_EQ(alsa.threadCount(), 0);
    // A device without a clock is paced to real time: 187.5 blocks a second, plus the lead.
    EXPECT_GT(blocks, 100 * seconds);
    EXPECT_LT(blocks, 200 * seconds + 8);

    const std::vector<std::int16_t> out = played();
    ASSERT_GE(out.size(), 2u * kBlock * 4);
    for (std::uint32_t i = 0; i < 2 * kBlock * 2; ++i)
    {
        ASSERT_EQ(out[i], 0) << "the two halves start silent, sample " << i;
    }
    const std::int16_t quarter = static_cast<std::int16_t>(0.25f * 32767.0f);
    for (std::size_t i = 2 * kBlock * 2; i < out.size(); ++i)
    {
        ASSERT_EQ(out[i], quarter) << i;
    }
    EXPECT_EQ(out.size() / 2, static_cast<std::size_t>(client.blocks.load() + 2) * kBlock);
}

TEST_F(AlsaPlugins, CaptureOnlyDrivesTheBlockFromTheCaptureThread)
{
    MPAudioAlsa alsa;
    EchoClient client;
    alsa.setClient(&client);
    const int cap = indexOf(alsa, "kvcap", true);
    ASSERT_GE(cap, 0);
    ASSERT_TRUE(alsa.open(alsaConfig(cap, -1))) << alsa.lastError();
    ASSERT_TRUE(alsa.start());
    std::this_thread::sleep_for(600ms);
    EXPECT_EQ(alsa.threadCount(), 1);
    alsa.stop();
    const int blocks = client.blocks.load(std::memory_order_acquire);
    ASSERT_GT(blocks, 50);
    const int whole = std::min<int>(blocks, kCaptureFrames / kBlock);
    for (int b = 0; b < whole; ++b)
    {
        const auto left = static_cast<std::int16_t>(std::lround(client.firstLeft[b] * 32767.0f));
        const auto right = static_cast<std::int16_t>(std::lround(client.firstRight[b] * 32767.0f));
        ASSERT_EQ(stairFrame(left, right), static_cast<std::uint32_t>(b) * kBlock)
            << "capture only: every block in order, none lost, block " << b;
    }
    EXPECT_FALSE(fs::exists(dir / "out.raw"));
}

/**
 * Checks that each played block is silence or a whole captured block (within one step of the 16-bit
 * round trip), and that the captured blocks come in order: a late ring gives silence, a full one
 * drops a block, nothing else. @returns how many captured blocks were played, 0 on a fault
 */
std::size_t capturedBlocksInOrder(const std::vector<std::int16_t>& out)
{
    const std::size_t blocks = out.size() / (2 * kBlock);
    long last = -1;
    std::size_t distinct = 0;
    for (std::size_t b = 0; b < blocks; ++b)
    {
        const std::int16_t* block = out.data() + b * 2 * kBlock;
        if (std::all_of(block, block + 2 * kBlock, [](std::int16_t v) { return v == 0; }))
        {
            continue;
        }
        const std::uint32_t first = stairFrame(block[0], block[1]);
        const std::uint32_t firstUp = stairFrame(static_cast<std::int16_t>(block[0] + 1), block[1]);
        const std::uint32_t start = (first % kBlock == 0) ? first : firstUp;
        if (start + kBlock > kCaptureFrames)
        {
            break; // the capture file has ended: the plug-in repeats stale frames from here
        }
        for (std::uint32_t i = 0; i < kBlock; ++i)
        {
            if (start % kBlock != 0 || std::abs(block[2 * i] - stairLeft(start + i)) > 1 ||
                block[2 * i + 1] != stairRight(start + i))
            {
                ADD_FAILURE() << "block " << b << " isn't a captured block (frame " << i << ")";
                return 0;
            }
        }
        if (static_cast<long>(start) <= last)
        {
            ADD_FAILURE() << "block " << b << " goes back or is played twice";
            return 0;
        }
        ++distinct;
        last = static_cast<long>(start);
    }
    return distinct;
}

TEST_F(AlsaPlugins, CaptureThroughTheRingReachesPlaybackInOrder)
{
    MPAudioAlsa alsa;
    EchoClient client;
    alsa.setClient(&client);
    const int cap = indexOf(alsa, "kvcap", true);
    const int play = indexOf(alsa, "kvplay", false);
    ASSERT_TRUE(alsa.open(alsaConfig(cap, play))) << alsa.lastError();
    ASSERT_TRUE(alsa.start());
    EXPECT_EQ(alsa.threadCount(), 2);
    std::this_thread::sleep_for(1200ms);
    alsa.close();
    const std::vector<std::int16_t> out = played();
    ASSERT_GT(out.size() / (2 * kBlock), 150u);
    EXPECT_GT(capturedBlocksInOrder(out), 100u);
    EXPECT_LE(alsa.droppedBlocks(), 3u);
}

TEST_F(AlsaPlugins, ADeviceThatRefusesGivesAFalseResultWithTheReason)
{
    MPAudioAlsa alsa;
    const int broken = indexOf(alsa, "kvbroken", false);
    ASSERT_GE(broken, 0);
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        EXPECT_FALSE(alsa.open(alsaConfig(-1, broken)));
        EXPECT_FALSE(alsa.isOpen());
        EXPECT_NE(alsa.lastError().find("kvbroken"), std::string::npos) << alsa.lastError();
    }
    EXPECT_FALSE(alsa.open(alsaConfig(-1, 999))) << "past the end of the list is no device";
    MPAudioConfig wrong = alsaConfig(indexOf(alsa, "kvcap", true), broken);
    EXPECT_FALSE(alsa.open(wrong));
    EXPECT_TRUE(alsa.open(alsaConfig(-1, indexOf(alsa, "kvnull", false))));
}

TEST_F(AlsaPlugins, StopWaitsForASlowBlockButNeverLongerThanTenSeconds)
{
    MPAudioAlsa alsa;
    EchoClient client;
    alsa.setClient(&client);
    ASSERT_TRUE(alsa.open(alsaConfig(-1, indexOf(alsa, "kvnull", false))));
    client.sleepMsPerBlock = 300;
    ASSERT_TRUE(alsa.start());
    std::this_thread::sleep_for(100ms);
    auto t0 = Clock::now();
    alsa.stop();
    EXPECT_LT(Clock::now() - t0, 1s);
    EXPECT_EQ(alsa.threadCount(), 0);

    client.sleepMsPerBlock = 0;
    client.hang = true;
    ASSERT_TRUE(alsa.start());
    for (int i = 0; i < 200 && !client.hanging.load(); ++i)
    {
        std::this_thread::sleep_for(5ms);
    }
    ASSERT_TRUE(client.hanging.load());
    t0 = Clock::now();
    alsa.stop();
    const auto took = Clock::now() - t0;
    EXPECT_GE(took, 9s);
    EXPECT_LT(took, 12s);
    EXPECT_EQ(alsa.threadCount(), 1) << "the hung thread was given up on";
    EXPECT_FALSE(alsa.start()) << "no new run while a thread of the last one lives";
    client.hang = false;
    for (int i = 0; i < 200 && alsa.threadCount() > 0; ++i)
    {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(alsa.threadCount(), 0);
}

TEST_F(AlsaPlugins, ThroughTheDriverTable)
{
    MPAudio audio;
    ASSERT_TRUE(audio.selectDriver("DirectX"));
    EXPECT_EQ(audio.backendIndex(), 0);
    ASSERT_TRUE(audio.open("kvcap", "kvnull", 128, 0, 1, 0, 1, 44100));
    EXPECT_EQ(audio.blockSize(), 128u);
    ASSERT_TRUE(audio.start());
    const auto deadline = Clock::now() + 2s;
    while (audio.samplePosition() < 128 * 20 && Clock::now() < deadline)
    {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_GE(audio.samplePosition(), 128u * 20);
    audio.close();
}

namespace
{

// What the hook injects: `error` at the capture wait numbered `at`, and `period` as the period granted.
std::atomic<int> gWaits{0};
std::atomic<int> gInjectAt{-1};
std::atomic<int> gError{0};

int injectAtWait(MPAudioAlsa::HookPoint point, bool capture)
{
    if (point != MPAudioAlsa::HookPoint::Wait || !capture)
    {
        return 0;
    }
    return gWaits.fetch_add(1) == gInjectAt.load() ? gError.load() : 0;
}

} // namespace

// After an overrun capture was only prepared, never started again, and an empty ring played the last
// captured block again every period.
TEST_F(AlsaPlugins, AnOverrunRestartsCaptureAndTheGapIsSilence)
{
    gWaits = 0;
    gInjectAt = 40;
    gError = -EPIPE;
    MPAudioAlsa::setHook(injectAtWait);
    MPAudioAlsa alsa;
    EchoClient client;
    alsa.setClient(&client);
    ASSERT_TRUE(alsa.open(alsaConfig(indexOf(alsa, "kvcap", true), indexOf(alsa, "kvplay", false))));
    ASSERT_TRUE(alsa.start());
    std::this_thread::sleep_for(1200ms);
    alsa.close();
    MPAudioAlsa::setHook(nullptr);
    EXPECT_GE(alsa.xruns(), 1u);
    EXPECT_GT(capturedBlocksInOrder(played()), 100u) << "capture goes on after the overrun";
}
