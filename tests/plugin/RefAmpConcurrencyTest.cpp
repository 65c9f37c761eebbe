// Our amp under a running engine: blocks, MIDI program changes and the master controller on one
// thread while the interface asks for, saves and loads the state and switches the effect on and
// off. Meant for the ThreadSanitizer run; it also checks that the audio stays finite throughout.

#include "plugin/AudioFxKV3Manager.h"
#include "plugin/AudioFxKV3Unit.h"
#include "tests/dsp/stretch/StretchTestNodes.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

TEST(RefAmpConcurrency, StateAndSwitchingWhileTheEngineRuns)
{
    kv3test::RecordingSink sink;
    AudioFxKV3Manager manager(&sink, KV3_REFAMP);
    ASSERT_TRUE(manager.isLoaded());
    // A noise of the position, so that blocks differ.
    stretchtest::SignalNode noise(
        1LL << 40, [](int64_t p, int32_t)
        { return static_cast<float>((p * 1664525 + 1013904223) % 65536) / 65536.0f - 0.5f; });
    AudioFxKV3Unit unit;
    unit.setManager(&manager);
    unit.setSource(&noise);
    unit.prepare(48000, 64);
    unit.setEnabled(true);

    std::atomic<bool> running{true}; // relaxed: the join orders the rest
    std::atomic<bool> finite{true};
    std::atomic<int> blocks{0};
    std::thread engine(
        [&]
        {
            for (std::uint32_t n = 0; running.load(std::memory_order_relaxed); ++n)
            {
                MidiEventBlock midi;
                midi.count = 2;
                midi.events[0] = MidiEvent{0, 0xC0u | ((n % 3) << 8)};
                midi.events[1] = MidiEvent{1, 0xB0u | (7u << 8) | ((n % 128) << 16)};
                unit.forwardMidi(midi);
                AudioData request;
                request.frames = 64;
                request.channels = 2;
                request.position = static_cast<std::int64_t>(n) * 64;
                unit.provide(request);
                for (int i = 0; i < 64; ++i)
                    if (!std::isfinite(request.channel[0][i]) || !std::isfinite(request.channel[1][i]))
                        finite.store(false, std::memory_order_relaxed);
                unit.noteTick();
                blocks.fetch_add(1, std::memory_order_relaxed);
                std::this_thread::sleep_for(std::chrono::microseconds(300));
            }
        });

    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(600);
    for (int rounds = 1; std::chrono::steady_clock::now() < end; ++rounds)
    {
        epiFileDump saved;
        unit.saveState(saved);
        EXPECT_GT(saved.size(), 0u);
        unit.isStateChanged();
        unit.loadState(saved);
        if (rounds % 20 == 0)
        {
            unit.setEnabled(false);
            unit.setEnabled(true);
        }
    }
    running.store(false);
    engine.join();
    EXPECT_TRUE(finite.load());
    EXPECT_GT(blocks.load(), 10);
    // Switch off with blocks still counted.
    kv3test::disableWhileTicking(unit);
}
