// The metronome's grid: frames per beat, beats split at their exact frame, accents counted from 0,
// several beats in a block, and the free-running click while the transport stands.

#include "engine/Metronome.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace
{

// Clicks that say where they are read: the accent sample at frame i holds +(i + 1) / 2^20, the ordinary
// one -(i + 1) / 2^20 (exact in float), on both channels.
constexpr float kStep = 1.0f / 1048576.0f;

void makeClick(AudioBuffer& buffer, int64_t frames, float sign)
{
    buffer.alloc(frames, 2);
    buffer.frames = frames;
    buffer.position = 0;
    for (int64_t i = 0; i < frames; ++i)
    {
        buffer.channel[0][i] = sign * static_cast<float>(i + 1) * kStep;
        buffer.channel[1][i] = sign * static_cast<float>(i + 1) * kStep;
    }
}

class BeatCounter : public MetronomeDelegate
{
public:
    void beat() override { ++beats; }
    int beats = 0;
};

class MetronomeRig : public ::testing::Test
{
protected:
    void setUpClicks(uint32_t rate, uint32_t block, int64_t clickFrames)
    {
        metronome.prepare(rate, block);
        AudioBuffer accent, beat;
        makeClick(accent, clickFrames, 1.0f);
        makeClick(beat, clickFrames, -1.0f);
        metronome.loadClick(true, accent);
        metronome.loadClick(false, beat);
        metronome.setDelegate(&counter);
        metronome.setEnabled(true);
    }

    /** One pull of the strip, as the mixer does: returns a copy of the block (empty when nothing). */
    std::vector<float> pull(int64_t position, int64_t frames, int channel = 0)
    {
        AudioData request;
        request.frames = frames;
        request.position = position;
        request.channels = 2;
        if (!metronome.provide(request))
        {
            return {};
        }
        EXPECT_EQ(request.frames, frames);
        return std::vector<float>(request.channel[channel], request.channel[channel] + request.frames);
    }

    Metronome metronome;
    BeatCounter counter;
};

// Which click a sample came from and at which frame of it: +n is the accent's frame n - 1, -n the
// ordinary click's, 0 silence.
long where(float sample)
{
    return std::lround(sample / kStep);
}

} // namespace

TEST_F(MetronomeRig, BlockStraddlingABeatSplitsAtTheExactFrame)
{
    // Clicks longer than a beat: the old one must be cut off where the next beat begins.
    setUpClicks(44100, 512, 30000);
    metronome.setPlaying(true);
    const std::vector<float> block = pull(22000, 512, 1);
    ASSERT_EQ(block.size(), 512u);
    // The first 50 frames go on with beat 0 (an accent) at frames 22000..22049 of its click.
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_EQ(where(block[static_cast<size_t>(i)]), 22001 + i) << i;
    }
    // Then beat 1, ordinary, from its first frame.
    for (int i = 50; i < 512; ++i)
    {
        ASSERT_EQ(where(block[static_cast<size_t>(i)]), -(i - 50 + 1)) << i;
    }
    EXPECT_EQ(counter.beats, 1);
}

TEST_F(MetronomeRig, AccentsFallEveryNumeratorBeatsFromPositionZero)
{
    setUpClicks(44100, 512, 200);
    metronome.setTimeSignature(3, 4);
    metronome.setPlaying(true);
    // Play from 0 across eight beats in blocks of an odd size, noting the click at each beat's frame.
    std::vector<long> atBeat;
    const int64_t perBeat = metronome.framesPerBeat();
    for (int64_t position = 0; position < perBeat * 8; position += 333)
    {
        const std::vector<float> block = pull(position, 333);
        for (int64_t i = 0; i < 333; ++i)
        {
            if ((position + i) % perBeat == 0)
            {
                atBeat.push_back(where(block[static_cast<size_t>(i)]));
            }
        }
    }
    // The last block reaches into beat 8.
    EXPECT_EQ(atBeat, (std::vector<long>{1, -1, -1, 1, -1, -1, 1, -1, -1}));
    EXPECT_EQ(counter.beats, 9);

    // A locate keeps the grid: beat 9 is the start of a bar wherever the transport came from.
    const std::vector<float> jumped = pull(perBeat * 9, 64);
    EXPECT_EQ(where(jumped[0]), 1);
}

TEST_F(MetronomeRig, SeveralBeatsInOneBlockEachLandAndEachCallBeat)
{
    setUpClicks(44100, 512, 30);
    // 44100 * 60 / 26460 = 100 frames a beat.
    metronome.setTempo(26460.0f);
    ASSERT_EQ(metronome.framesPerBeat(), 100);
    metronome.setPlaying(true);
    const std::vector<float> block = pull(0, 512);
    EXPECT_EQ(counter.beats, 6);
    for (int beat = 0; beat < 6; ++beat)
    {
        const size_t at = static_cast<size_t>(beat * 100);
        EXPECT_EQ(where(block[at]), beat % 4 == 0 ? 1 : -1) << beat;
        if (at + 30 < block.size())
        {
            EXPECT_EQ(where(block[at + 29]), beat % 4 == 0 ? 30 : -30) << beat;
            EXPECT_EQ(block[at + 30], 0.0f) << beat;
        }
    }
}

TEST_F(MetronomeRig, StoppedTransportRunsOnAtTheSameGrid)
{
    setUpClicks(44100, 512, 30000);
    metronome.setPlaying(true);
    pull(22000, 512);
    EXPECT_EQ(metronome.freePosition(), 22512);
    // Stopped, the Manager keeps asking at the position where it stood; the click goes on from 22512.
    metronome.setPlaying(false);
    std::vector<float> block = pull(22000, 512);
    EXPECT_EQ(where(block[0]), -463);
    EXPECT_EQ(metronome.freePosition(), 23024);
    // And beats keep coming at multiples of 22050, with the accent every fourth beat.
    int64_t free = metronome.freePosition();
    std::vector<long> atBeat;
    for (int n = 0; n < 400; ++n)
    {
        block = pull(22000, 512);
        for (int64_t i = 0; i < 512; ++i)
        {
            if ((free + i) % 22050 == 0)
            {
                atBeat.push_back(where(block[static_cast<size_t>(i)]));
            }
        }
        free += 512;
    }
    EXPECT_EQ(metronome.freePosition(), free);
    // 23024 + 400 * 512 = 227824: beats 2 to 10 (beat 4 and 8 start bars).
    EXPECT_EQ(atBeat, (std::vector<long>{-1, -1, 1, -1, -1, -1, 1, -1, -1}));
    EXPECT_EQ(counter.beats, 1 + 9);
}

TEST_F(MetronomeRig, ClicksFollowTheDeviceRate)
{
    // A click of 1000 frames at 44.1 kHz played at 48 kHz: the beat still begins exactly on its frame,
    // and the first frames of the click read its first samples.
    setUpClicks(48000, 256, 1000);
    metronome.setPlaying(true);
    const std::vector<float> block = pull(24000 - 100, 256);
    ASSERT_EQ(block.size(), 256u);
    EXPECT_EQ(block[99], 0.0f);
    // Beat 1: the ordinary click.
    EXPECT_LT(where(block[100]), 0);
    EXPECT_GE(where(block[100]), -2);
    EXPECT_EQ(counter.beats, 1);
}
