// The metronome pulled on one thread while the interface changes its tempo, signature, delegate and
// switch on another: every value crosses as one atomic word, and every block stays whole.

#include "engine/Metronome.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace
{

class CountingDelegate : public MetronomeDelegate
{
public:
    void beat() override { beats.fetch_add(1, std::memory_order_relaxed); }
    std::atomic<int> beats{0};
};

} // namespace

TEST(MetronomeThreads, PulledWhileTheInterfaceChangesIt)
{
    Metronome metronome;
    metronome.prepare(44100, 256);
    AudioBuffer click;
    click.alloc(300, 2);
    click.frames = 300;
    for (int64_t i = 0; i < 300; ++i)
    {
        click.channel[0][i] = click.channel[1][i] = 0.5f;
    }
    metronome.loadClick(true, click);
    metronome.loadClick(false, click);
    CountingDelegate delegate;
    metronome.setDelegate(&delegate);
    metronome.setEnabled(true);
    metronome.setPlaying(true);

    std::atomic<bool> stop{false};
    std::atomic<int64_t> blocks{0};
    std::atomic<bool> broken{false};
    std::thread audio(
        [&]
        {
            int64_t position = 0;
            while (!stop.load(std::memory_order_relaxed))
            {
                AudioData request;
                request.frames = 256;
                request.position = position;
                request.channels = 2;
                if (metronome.provide(request))
                {
                    for (int64_t i = 0; i < request.frames; ++i)
                    {
                        // Only silence or the click: never a torn or foreign sample.
                        const float v = request.channel[0][i];
                        if (v != 0.0f && v != 0.5f)
                        {
                            broken.store(true, std::memory_order_relaxed);
                        }
                    }
                }
                position += 256;
                blocks.fetch_add(1, std::memory_order_relaxed);
            }
        });
    for (int round = 0; round < 2000; ++round)
    {
        metronome.setTempo(60.0f + static_cast<float>(round % 180));
        metronome.setTimeSignature(2 + round % 7, (round % 2) != 0 ? 4 : 8);
        metronome.setEnabled(round % 5 != 0);
        metronome.setDelegate((round % 3) != 0 ? &delegate : nullptr);
    }
    metronome.setEnabled(true);
    metronome.setDelegate(&delegate);
    while (blocks.load(std::memory_order_relaxed) < 2000)
    {
        std::this_thread::yield();
    }
    stop.store(true, std::memory_order_relaxed);
    audio.join();
    EXPECT_FALSE(broken.load());
    EXPECT_GT(delegate.beats.load(), 0);
}
