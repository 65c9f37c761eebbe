// The effect unit against the real test library: processing, pass-through, the instance's life
// cycle and its warm-up, the wait when switching off, MIDI and the saved state.

#include "plugin/AudioFxKV3Unit.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"
#include "plugin/AudioFxKV3Manager.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using kv3test::bytesOf;
using kv3test::disableWhileTicking;
using kv3test::fillDump;

namespace
{

/** Sample i of the timeline is i / 100000 on the left and its negative on the right. */
class Staircase : public AudioSource
{
public:
    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        for (std::int64_t i = 0; i < into.frames && !fail; ++i)
        {
            into.channel[0][i] = at(into.position + i);
            into.channel[1][i] = -at(into.position + i);
        }
        return !fail;
    }
    void prepare(std::uint32_t, std::uint32_t) override {}
    static float at(std::int64_t position) { return static_cast<float>(position) / 100000.0f; }

    bool fail = false;
};

constexpr std::uint32_t kRate = 48000;
constexpr std::uint32_t kBlock = 64;

AudioData requestAt(std::int64_t position, std::int64_t frames = kBlock)
{
    AudioData request;
    request.frames = frames;
    request.position = position;
    request.channels = 2;
    return request;
}

/** A unit wired to a manager over a test library, with the library's record of calls. */
struct Rig
{
    explicit Rig(const char* path = KV3_TEST_GAIN) : library(path), manager(&sink, path)
    {
        unit.setManager(&manager);
        unit.setSource(&source);
    }
    /** Switches off as the running engine does, rather than waiting out the stopped engine's delay. */
    ~Rig()
    {
        if (unit.isEnabled())
            disableWhileTicking(unit);
    }
    void start()
    {
        unit.prepare(kRate, kBlock);
        unit.setEnabled(true);
    }
    /** One block read into arrays of the test's own, at a position: its left channel. */
    std::vector<float> read(std::int64_t position, std::int64_t frames = kBlock, bool ok = true)
    {
        AudioBuffer into;
        into.alloc(frames, 2);
        into.frames = frames;
        into.position = position;
        into.channel[0][5] = 0.7f;
        EXPECT_EQ(unit.read(into), ok);
        return std::vector<float>(into.channel[0], into.channel[0] + frames);
    }
    std::string lastState() const
    {
        return std::string(reinterpret_cast<const char*>(library.log()->lastState),
                           static_cast<std::size_t>(library.log()->lastStateSize));
    }
    int processed() const { return library.log()->processCount.load(); }

    kv3test::TestLibrary library;
    kv3test::RecordingSink sink;
    AudioFxKV3Manager manager;
    Staircase source;
    AudioFxKV3Unit unit;
};

} // namespace

TEST(AudioFxKV3Unit, AnEnabledUnitProcessesThroughTheInstance)
{
    Rig rig;
    rig.start();
    ASSERT_TRUE(rig.unit.isEnabled());
    AudioData request = requestAt(1000);
    ASSERT_TRUE(rig.unit.provide(request));
    for (std::int64_t i = 0; i < kBlock; ++i)
    {
        ASSERT_FLOAT_EQ(request.channel[0][i], 0.5f * Staircase::at(1000 + i)) << i;
        ASSERT_FLOAT_EQ(request.channel[1][i], -0.5f * Staircase::at(1000 + i)) << i;
    }
    EXPECT_EQ(rig.library.log()->lastFlag.load(), 0);
    // read copies into the caller's arrays; a shorter last block is processed at its length.
    EXPECT_FLOAT_EQ(rig.read(5000, 40)[39], 0.5f * Staircase::at(5039));
    EXPECT_EQ(rig.library.log()->lastFrames.load(), 40);
}

// Off after having been on, on without an instance, and without a library: the audio passes untouched.
TEST(AudioFxKV3Unit, AUnitWithoutARunningInstancePassesAudioThrough)
{
    for (const char* path : {KV3_TEST_GAIN, KV3_TEST_NULLINSTANCE, "/nonexistent.so"})
    {
        SCOPED_TRACE(path);
        Rig rig(path);
        rig.unit.prepare(kRate, kBlock);
        rig.unit.setEnabled(true);
        const bool instance = path == std::string(KV3_TEST_GAIN);
        if (instance)
            disableWhileTicking(rig.unit);
        else
            EXPECT_EQ(rig.unit.isEnabled(), path == std::string(KV3_TEST_NULLINSTANCE));
        const int before = rig.library.log() != nullptr ? rig.processed() : 0;
        AudioData request = requestAt(300);
        ASSERT_TRUE(rig.unit.provide(request));
        EXPECT_FLOAT_EQ(request.channel[0][10], Staircase::at(310));
        EXPECT_FLOAT_EQ(request.channel[1][10], -Staircase::at(310));
        EXPECT_FLOAT_EQ(rig.read(700)[0], Staircase::at(700));
        const std::uint32_t noteOn[2] = {0, 0x90};
        rig.unit.forwardMidi(noteOn, 1);
        EXPECT_FALSE(rig.unit.isStateChanged());
        if (rig.library.log() != nullptr)
        {
            EXPECT_EQ(rig.processed(), before);
        }
    }
    // Only prepare and the attempt reached a library that gave no instance, even when switched off.
    Rig rig(KV3_TEST_NULLINSTANCE);
    rig.start();
    disableWhileTicking(rig.unit);
    EXPECT_EQ(rig.library.calls(), "aVpC");
}

TEST(AudioFxKV3Unit, AFailedSourceReadIsSilenceAndTooLongARequestIsRefused)
{
    Rig rig;
    rig.unit.prepare(kRate, kBlock);
    rig.read(0);
    rig.source.fail = true;
    EXPECT_EQ(rig.read(64)[5], 0.0f);
    // provide does not look at the source's result: the unit still answers true.
    AudioData request = requestAt(0);
    EXPECT_TRUE(rig.unit.provide(request));
    rig.read(0, kBlock * 2, false);
    AudioData tooLong = requestAt(0, kBlock * 2);
    EXPECT_FALSE(rig.unit.provide(tooLong));
}

// Switching on: prepare, create, channels, initialise, the default state, then the user's if any,
// block size, rate, channels again, start, and a warm-up block.
TEST(AudioFxKV3Unit, TheLifeCycleCallsInOrderWithItsWarmUp)
{
    for (const bool userState : {false, true})
    {
        Rig rig;
        fillDump(rig.unit.defaultState(), "<S><Program>3</Program></S>");
        epiFileDump user;
        if (userState)
        {
            fillDump(user, "<S><Program>2</Program></S>");
            rig.unit.loadState(user);
        }
        rig.start();
        EXPECT_EQ(rig.library.calls(), userState ? "aVpCioIWWBRioS" : "aVpCioIWBRioS");
        EXPECT_EQ(rig.lastState(), userState ? bytesOf(user) : "<S><Program>3</Program></S>");
        EXPECT_EQ(rig.library.log()->blockSize, static_cast<std::int32_t>(kBlock));
        EXPECT_FLOAT_EQ(rig.library.log()->sampleRate, 48000.0f);
        EXPECT_EQ(rig.processed(), 101); // one warm-up block and a hundred more
        // An empty state loaded while the instance runs falls back to the default.
        epiFileDump empty;
        rig.unit.loadState(empty);
        EXPECT_EQ(bytesOf(rig.unit.userState()), "<S><Program>3</Program></S>");
        EXPECT_EQ(rig.lastState(), "<S><Program>3</Program></S>");
    }
    Rig rig;
    rig.start();
    disableWhileTicking(rig.unit);
    // State saved (get, free), stopped, then destroyed: stop again, terminate, release.
    EXPECT_EQ(rig.library.calls(), "aVpCioIBRioSGFssTD");
    EXPECT_EQ(rig.library.log()->liveInstances, 0);
}

TEST(AudioFxKV3Unit, BlockSizeZeroRunsNoProcessAndPrepareStartsAnew)
{
    Rig rig;
    rig.unit.setEnabled(true);
    EXPECT_EQ(rig.processed(), 0);
    rig.unit.prepare(44100, 256);
    EXPECT_EQ(rig.library.calls(), "aVpCioIBRioSsBRioS");
    EXPECT_EQ(rig.library.log()->blockSize, 256);
    EXPECT_FLOAT_EQ(rig.library.log()->sampleRate, 44100.0f);
    EXPECT_EQ(rig.processed(), 0);
}

TEST(AudioFxKV3Unit, DisablingWithTheEngineRunningWaitsForThreeBlocks)
{
    Rig rig;
    rig.start();
    // The engine: one block a millisecond, each pulling the unit and then counting the block.
    std::atomic<bool> running{true}; // relaxed: the join orders the rest
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
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
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
    bytes += std::string("\0\xff\x00\x01 binary tail", 16);
    for (const std::string& state : {bytes, std::string()})
    {
        epiFileDump loaded;
        fillDump(loaded, state);
        rig.unit.loadState(loaded);
        rig.unit.prepare(kRate, kBlock);
        epiFileDump saved;
        rig.unit.saveState(saved);
        EXPECT_EQ(bytesOf(saved), state);
        EXPECT_FALSE(rig.unit.isStateChanged());
    }
    EXPECT_EQ(rig.library.calls(), "aV"); // the library was never asked
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
    rig.unit.forwardMidi(programChange, 1);
    EXPECT_TRUE(rig.unit.isStateChanged());
}
