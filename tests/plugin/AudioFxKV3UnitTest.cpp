// The effect unit against the real test library: processing, pass-through, the instance's life
// cycle and its warm-up, the wait when switching off, MIDI batches and the saved state.

#include "plugin/AudioFxKV3Unit.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"
#include "plugin/AudioFxKV3Manager.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

using kv3test::bytesOf;
using kv3test::disableWhileTicking;
using kv3test::fillDump;
using kv3test::RecordingSink;
using kv3test::TestLibrary;

namespace
{

/** Sample i of the timeline is i / 100000 on the left and its negative on the right. */
class Staircase : public AudioSource
{
public:
    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        ++reads;
        if (fail)
        {
            return false;
        }
        for (std::int64_t i = 0; i < into.frames; ++i)
        {
            const float v = static_cast<float>(into.position + i) / 100000.0f;
            into.channel[0][i] = v;
            into.channel[1][i] = -v;
        }
        return true;
    }
    void prepare(std::uint32_t, std::uint32_t) override {}

    bool fail = false;
    int reads = 0;
};

constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kBlock = 64;

AudioData requestAt(std::int64_t position)
{
    AudioData request;
    request.frames = kBlock;
    request.position = position;
    request.channels = 2;
    return request;
}

void blockAt(AudioBuffer& buffer, std::int64_t position, std::int64_t frames = kBlock)
{
    buffer.alloc(frames, 2);
    buffer.frames = frames;
    buffer.position = position;
}

/** A unit wired to a manager over the gain library, with its record of calls. */
struct Rig
{
    explicit Rig(const char* path = KV3_TEST_GAIN) : library(path), manager(&sink, path)
    {
        unit.setManager(&manager);
        unit.setSource(&source);
    }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;
    /** Switches off as the running engine does, rather than waiting out the stopped engine's delay. */
    ~Rig()
    {
        if (unit.isEnabled())
        {
            disableWhileTicking(unit);
        }
    }
    /** Prepares at the test's rate and block and switches on. */
    void start()
    {
        unit.prepare(kRate, kBlock);
        unit.setEnabled(true);
    }
    /** The last state the library was given. */
    std::string lastState() const
    {
        return std::string(reinterpret_cast<const char*>(library.log()->lastState),
                           static_cast<std::size_t>(library.log()->lastStateSize));
    }

    TestLibrary library;
    RecordingSink sink;
    AudioFxKV3Manager manager;
    Staircase source;
    AudioFxKV3Unit unit;
};

} // namespace

TEST(AudioFxKV3Unit, AnEnabledUnitProcessesThroughTheInstance)
{
    Rig rig;
    ASSERT_TRUE(rig.manager.isLoaded());
    rig.start();
    ASSERT_TRUE(rig.unit.isEnabled());

    AudioData request = requestAt(1000);
    ASSERT_TRUE(rig.unit.provide(request));
    for (std::int64_t i = 0; i < kBlock; ++i)
    {
        const float v = static_cast<float>(1000 + i) / 100000.0f;
        ASSERT_FLOAT_EQ(request.channel[0][i], 0.5f * v) << i;
        ASSERT_FLOAT_EQ(request.channel[1][i], -0.5f * v) << i;
    }
    EXPECT_EQ(rig.library.log()->lastFrames.load(), static_cast<std::int32_t>(kBlock));
    EXPECT_EQ(rig.library.log()->lastFlag.load(), 0);

    // read copies into the caller's arrays; a shorter last block is processed at its length.
    AudioBuffer into;
    blockAt(into, 5000, 40);
    ASSERT_TRUE(rig.unit.read(into));
    EXPECT_FLOAT_EQ(into.channel[0][39], 0.5f * 5039.0f / 100000.0f);
    EXPECT_EQ(rig.library.log()->lastFrames.load(), 40);
}

TEST(AudioFxKV3Unit, ADisabledUnitPassesAudioThrough)
{
    Rig rig;
    rig.unit.prepare(kRate, kBlock);
    AudioData request = requestAt(300);
    ASSERT_TRUE(rig.unit.provide(request));
    EXPECT_FLOAT_EQ(request.channel[0][10], 310.0f / 100000.0f);
    EXPECT_FLOAT_EQ(request.channel[1][10], -310.0f / 100000.0f);
    EXPECT_EQ(rig.library.log()->processCount.load(), 0);

    // Off again after having been on: the same.
    rig.unit.setEnabled(true);
    disableWhileTicking(rig.unit);
    const auto processed = rig.library.log()->processCount.load();
    AudioBuffer into;
    blockAt(into, 700);
    ASSERT_TRUE(rig.unit.read(into));
    EXPECT_FLOAT_EQ(into.channel[0][0], 700.0f / 100000.0f);
    EXPECT_EQ(rig.library.log()->processCount.load(), processed);
}

TEST(AudioFxKV3Unit, AFailedSourceReadIsSilenceInReadOnly)
{
    Rig rig;
    rig.unit.prepare(kRate, kBlock);
    AudioBuffer into;
    blockAt(into, 0);
    ASSERT_TRUE(rig.unit.read(into));
    rig.source.fail = true;
    AudioBuffer second;
    blockAt(second, 64);
    second.channel[0][5] = 0.7f;
    ASSERT_TRUE(rig.unit.read(second));
    EXPECT_EQ(second.channel[0][5], 0.0f);
    // provide does not look at the source's result: the unit still answers true.
    AudioData request = requestAt(0);
    EXPECT_TRUE(rig.unit.provide(request));
    // A request larger than the prepared block is refused rather than overrun, by both.
    AudioBuffer tooLong;
    blockAt(tooLong, 0, kBlock * 2);
    EXPECT_FALSE(rig.unit.read(tooLong));
    AudioData tooLongRequest = requestAt(0);
    tooLongRequest.frames = kBlock * 2;
    EXPECT_FALSE(rig.unit.provide(tooLongRequest));
}

TEST(AudioFxKV3Unit, TheLifeCycleCallsInOrderWithItsWarmUp)
{
    Rig rig;
    epiFileDump defaults;
    fillDump(defaults, "<S><Program>3</Program></S>");
    rig.unit.defaultState().copyFrom(defaults);
    rig.start();
    // prepare, createInstance, two channels each way, initialise, the default state (given twice:
    // once as the default, once as the user's state would be, but userState was empty so it is
    // only copied), block size, rate, channels again, start.
    EXPECT_EQ(rig.library.calls(), "aVpCioIWBRioS");
    EXPECT_EQ(rig.library.log()->blockSize, static_cast<std::int32_t>(kBlock));
    EXPECT_EQ(rig.library.log()->maxMidi, 1000);
    EXPECT_FLOAT_EQ(rig.library.log()->sampleRate, 48000.0f);
    EXPECT_EQ(rig.library.log()->inputChannels, 2);
    EXPECT_EQ(rig.library.log()->outputChannels, 2);
    // One warm-up block and a hundred more.
    EXPECT_EQ(rig.library.log()->processCount.load(), 101);
    EXPECT_EQ(bytesOf(rig.unit.userState()), bytesOf(defaults));

    disableWhileTicking(rig.unit);
    // State saved (get, free), stopped, then destroyed: stop again, terminate, release.
    EXPECT_EQ(rig.library.calls(), "aVpCioIWBRioSGFssTD");
    EXPECT_EQ(rig.library.log()->liveInstances, 0);
    EXPECT_FALSE(rig.unit.isEnabled());
}

TEST(AudioFxKV3Unit, AUserStateIsGivenAfterTheDefault)
{
    Rig rig;
    fillDump(rig.unit.defaultState(), "<S><Program>1</Program></S>");
    epiFileDump user;
    fillDump(user, "<S><Program>2</Program></S>");
    rig.unit.loadState(user);
    rig.start();
    EXPECT_EQ(rig.library.calls(), "aVpCioIWWBRioS");
    EXPECT_EQ(rig.lastState(), bytesOf(user));
}

TEST(AudioFxKV3Unit, BlockSizeZeroRunsNoProcessAndPrepareStartsAnew)
{
    Rig rig;
    rig.unit.setEnabled(true);
    EXPECT_EQ(rig.library.log()->processCount.load(), 0);
    EXPECT_EQ(rig.library.log()->blockSize, 0);
    rig.unit.prepare(44100, 256);
    EXPECT_EQ(rig.library.calls(), "aVpCioIBRioSsBRioS");
    EXPECT_EQ(rig.library.log()->blockSize, 256);
    EXPECT_FLOAT_EQ(rig.library.log()->sampleRate, 44100.0f);
    EXPECT_EQ(rig.library.log()->processCount.load(), 0);
}

TEST(AudioFxKV3Unit, DisablingWithTheEngineRunningWaitsForThreeBlocks)
{
    Rig rig;
    rig.start();

    // The engine: one block a millisecond, each pulling the unit and then counting the block.
    std::atomic<bool> running{true};
    std::atomic<int> blocks{0};
    std::thread engine(
        [&]
        {
            while (running.load(std::memory_order_relaxed))
            {
                AudioData request = requestAt(blocks.load(std::memory_order_relaxed) * kBlock);
                rig.unit.provide(request);
                rig.unit.noteTick();
                blocks.fetch_add(1, std::memory_order_relaxed);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    while (blocks.load() < 20)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto start = std::chrono::steady_clock::now();
    rig.unit.setEnabled(false);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // Switch on and off again while it runs: the audio thread must never see a dead instance.
    for (int i = 0; i < 3; ++i)
    {
        rig.unit.setEnabled(true);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        rig.unit.setEnabled(false);
    }
    running.store(false);
    engine.join();
    EXPECT_LT(seconds, 0.5);
    EXPECT_EQ(rig.library.log()->liveInstances, 0);
}

TEST(AudioFxKV3Unit, ANeverEnabledUnitKeepsItsStateByteForByte)
{
    Rig rig;
    std::string bytes = "<KV3>\r\n\t<Program>x</Program>\r\n</KV3>";
    bytes.push_back('\0');
    bytes += std::string("\xff\x00\x01 binary tail", 15);
    epiFileDump loaded;
    fillDump(loaded, bytes);
    rig.unit.loadState(loaded);
    rig.unit.prepare(kRate, kBlock);
    epiFileDump saved;
    rig.unit.saveState(saved);
    EXPECT_EQ(bytesOf(saved), bytes);
    EXPECT_FALSE(rig.unit.isStateChanged());
    EXPECT_EQ(rig.library.calls(), "aV"); // the library was never asked

    // An empty state stays empty.
    epiFileDump empty;
    rig.unit.loadState(empty);
    rig.unit.saveState(saved);
    EXPECT_EQ(saved.size(), 0u);
}

TEST(AudioFxKV3Unit, StateChangedFollowsAChangeOfProgram)
{
    Rig rig;
    rig.start();
    epiFileDump saved;
    rig.unit.saveState(saved);
    EXPECT_NE(bytesOf(saved).find("<Program>0</Program>"), std::string::npos);
    EXPECT_FALSE(rig.unit.isStateChanged());

    const std::uint32_t programChange[2] = {0, 0xC0u | (5u << 8)};
    rig.unit.forwardMidi(programChange, 1);
    EXPECT_TRUE(rig.unit.isStateChanged());
    rig.unit.saveState(saved);
    EXPECT_FALSE(rig.unit.isStateChanged());
    EXPECT_NE(bytesOf(rig.unit.userState()).find("<Program>5</Program>"), std::string::npos);

    // Loading a state with another program makes it the stored one.
    epiFileDump other;
    fillDump(other, "<TestState><Program>9</Program></TestState>");
    rig.unit.loadState(other);
    EXPECT_FALSE(rig.unit.isStateChanged());
    const std::uint32_t back[2] = {0, 0xC0u | (5u << 8)};
    rig.unit.forwardMidi(back, 1);
    EXPECT_TRUE(rig.unit.isStateChanged());
}

TEST(AudioFxKV3Unit, LoadingAnEmptyStateWithAnInstanceFallsBackToTheDefault)
{
    Rig rig;
    fillDump(rig.unit.defaultState(), "<S><Program>4</Program></S>");
    rig.start();
    epiFileDump empty;
    rig.unit.loadState(empty);
    EXPECT_EQ(bytesOf(rig.unit.userState()), "<S><Program>4</Program></S>");
    EXPECT_EQ(rig.lastState(), "<S><Program>4</Program></S>");
}

TEST(AudioFxKV3Unit, ANullInstanceKeepsTheUnitPassingThrough)
{
    Rig rig(KV3_TEST_NULLINSTANCE);
    ASSERT_TRUE(rig.manager.isLoaded());
    rig.start();
    EXPECT_TRUE(rig.unit.isEnabled());
    AudioBuffer into;
    blockAt(into, 100);
    ASSERT_TRUE(rig.unit.read(into));
    EXPECT_FLOAT_EQ(into.channel[0][0], 100.0f / 100000.0f);
    const std::uint32_t words[2] = {0, 0x90};
    rig.unit.forwardMidi(words, 1);
    EXPECT_FALSE(rig.unit.isStateChanged());
    // Only prepare and the attempt: nothing else reached a library that gave no instance.
    EXPECT_EQ(rig.library.calls(), "aVpC");
    disableWhileTicking(rig.unit);
    EXPECT_EQ(rig.library.calls(), "aVpC");
}

TEST(AudioFxKV3Unit, WithoutALibraryTheUnitNeverGetsAnInstance)
{
    RecordingSink sink;
    AudioFxKV3Manager manager(&sink, "/nonexistent.so");
    Staircase source;
    AudioFxKV3Unit unit;
    unit.setManager(&manager);
    unit.setSource(&source);
    unit.prepare(kRate, kBlock);
    unit.setEnabled(true);
    EXPECT_FALSE(unit.isEnabled());
    AudioBuffer into;
    blockAt(into, 10);
    ASSERT_TRUE(unit.read(into));
    EXPECT_FLOAT_EQ(into.channel[1][0], -10.0f / 100000.0f);
}
