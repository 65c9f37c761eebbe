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

// Which click a sample came from and at which frame of it: +n is the accent's frame n - 1, -n the
// ordinary click's, 0 silence.
long where(float sample)
{
    return std::lround(sample / kStep);
}

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

    /**
     * Pulls blocks of frames with the metronome's clock at clock (at the fixed position at when given,
     * as the Manager asks while stopped) and notes the click heard at every beat's frame.
     */
    std::vector<long> atBeats(int64_t clock, int blocks, int64_t frames, int64_t at = -1)
    {
        std::vector<long> heard;
        const int64_t perBeat = metronome.framesPerBeat();
        for (int n = 0; n < blocks; ++n, clock += frames)
        {
            const std::vector<float> block = pull(at < 0 ? clock : at, frames);
            for (int64_t i = 0; i < frames; ++i)
            {
                if ((clock + i) % perBeat == 0)
                {
                    heard.push_back(where(block.at(static_cast<size_t>(i))));
                }
            }
        }
        return heard;
    }

    Metronome metronome;
    BeatCounter counter;
};

} // namespace

TEST_F(MetronomeRig, BlockStraddlingABeatSplitsAtTheExactFrame)
{
    // Clicks longer than a beat: the old one must be cut off where the next beat begins.
    setUpClicks(44100, 512, 30000);
    metronome.setPlaying(true);
    const std::vector<float> block = pull(22000, 512, 1);
    // The first 50 frames go on with beat 0 (an accent) at frames 22000..22049 of its click, then beat 1,
    // ordinary, from its first frame.
    for (int i = 0; i < 512; ++i)
    {
        ASSERT_EQ(where(block.at(static_cast<size_t>(i))), i < 50 ? 22001 + i : -(i - 50 + 1)) << i;
    }
    EXPECT_EQ(counter.beats, 1);
}

TEST_F(MetronomeRig, AccentsFallEveryNumeratorBeatsFromPositionZero)
{
    setUpClicks(44100, 512, 200);
    metronome.setTimeSignature(3, 4);
    metronome.setPlaying(true);
    // Play from 0 across eight beats in blocks of an odd size; the last block reaches into beat 8.
    EXPECT_EQ(atBeats(0, 530, 333), (std::vector<long>{1, -1, -1, 1, -1, -1, 1, -1, -1}));
    EXPECT_EQ(counter.beats, 9);

    // A locate keeps the grid: beat 9 is the start of a bar wherever the transport came from.
    EXPECT_EQ(where(pull(metronome.framesPerBeat() * 9, 64).at(0)), 1);
}

TEST_F(MetronomeRig, SeveralBeatsInOneBlockEachLandAndEachCallBeat)
{
    setUpClicks(44100, 512, 30);
    metronome.setTempo(26460.0f); // 44100 * 60 / 26460 = 100 frames a beat
    metronome.setPlaying(true);
    EXPECT_EQ(atBeats(0, 1, 512), (std::vector<long>{1, -1, -1, -1, 1, -1}));
    EXPECT_EQ(counter.beats, 6);
    // Each click plays out its 30 frames, then silence until the next beat.
    const std::vector<float> beat = pull(200, 100);
    EXPECT_EQ(where(beat.at(29)), -30);
    EXPECT_EQ(beat.at(30), 0.0f);
}

TEST_F(MetronomeRig, StoppedTransportRunsOnAtTheSameGrid)
{
    setUpClicks(44100, 512, 30000);
    metronome.setPlaying(true);
    pull(22000, 512);
    EXPECT_EQ(metronome.freePosition(), 22512);
    // Stopped, the Manager keeps asking at the position where it stood; the click goes on from 22512.
    metronome.setPlaying(false);
    EXPECT_EQ(where(pull(22000, 512).at(0)), -463);
    // And beats keep coming at multiples of 22050, with the accent every fourth beat: beats 2 to 10.
    EXPECT_EQ(atBeats(23024, 400, 512, 22000), (std::vector<long>{-1, -1, 1, -1, -1, -1, 1, -1, -1}));
    EXPECT_EQ(counter.beats, 1 + 9);
}

TEST_F(MetronomeRig, ClicksFollowTheDeviceRate)
{
    // A click of 1000 frames at 44.1 kHz played at 48 kHz: the beat still begins exactly on its frame,
    // and the first frames of the click read its first samples.
    setUpClicks(48000, 256, 1000);
    metronome.setPlaying(true);
    const std::vector<float> block = pull(24000 - 100, 256);
    EXPECT_EQ(block.at(99), 0.0f);
    EXPECT_LT(where(block[100]), 0) << "beat 1: the ordinary click";
    EXPECT_GE(where(block[100]), -2);
    EXPECT_EQ(counter.beats, 1);
}
