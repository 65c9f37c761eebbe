#include "tests/engine/tracks/TrackRig.h"
#include "tests/support/Signal.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

using namespace tracktest;

namespace
{

constexpr double kPi = 3.14159265358979323846;
constexpr double kToneHz = 441.0;

template <int Rate> float tone(int64_t i)
{
    return static_cast<float>(0.5 * std::sin(2.0 * kPi * kToneHz * static_cast<double>(i) / Rate));
}

/** The pitch heard in x[from, to). */
double frequencyOf(const std::vector<float>& x, size_t from, size_t to, double rate)
{
    to = std::min(to, x.size());
    return testsignal::medianPeriodFrequency(x.data() + from, static_cast<int64_t>(to - from), rate);
}

/** The last frame whose level is above -40 dB, plus one; 0 for silence. */
size_t soundEnd(const std::vector<float>& x)
{
    for (size_t i = x.size(); i > 0; --i)
    {
        if (std::fabs(x[i - 1]) > 0.01f)
        {
            return i;
        }
    }
    return 0;
}

class PlayTest : public ::testing::Test
{
protected:
    PlayTest() : rig_(48000, 256) {}

    /** Loads two seconds of 441 Hz at rate, read by the calling thread, and starts the transport. */
    void play(int32_t rate)
    {
        const std::string path = folder_.file("tone.wav");
        const auto wave = rate == 44100 ? tone<44100> : tone<48000>;
        ASSERT_TRUE(writeFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, rate, 2 * rate, wave, wave));
        ASSERT_TRUE(rig_.track().load(epiPath(path)));
        rig_.track().setDirectRead(true);
        rig_.track().rewire();
        rig_.harness().recordOutput = true;
        rig_.manager().start();
    }

    TempFolder folder_;
    TrackRig rig_;
};

} // namespace

TEST_F(PlayTest, SpeedAndPitchChangeLengthAndPitchIndependently)
{
    // A 44.1 kHz file on a 48 kHz session, changed while loaded: not the 480 Hz of a raw copy; the length
    // follows the speed alone, the pitch the semitones alone.
    struct Case
    {
        float speed, semitones;
        int64_t length, endTolerance;
        double frequencyTolerance;
    };
    const double up = kToneHz * std::pow(2.0, 2.0 / 12.0);
    play(44100);
    for (const Case& c : {Case{1.0f, 0.0f, 96000, 200, 0.5}, Case{0.8f, 2.0f, 120000, 2500, up * 0.01},
                          Case{1.25f, 2.0f, 76800, 2500, up * 0.01}})
    {
        rig_.manager().stop();
        rig_.track().setSpeed(c.speed);
        rig_.track().setPitch(c.semitones);
        EXPECT_EQ(rig_.track().length(), c.length);
        rig_.harness().left.clear();
        rig_.harness().right.clear();
        rig_.manager().locate(0);
        rig_.manager().start();
        rig_.run(c.length + 14000);
        const auto& out = rig_.harness().left;
        const auto to = static_cast<size_t>(c.length * 9 / 10);
        EXPECT_NEAR(frequencyOf(out, 9600, to, 48000.0), c.semitones == 0.0f ? kToneHz : up,
                    c.frequencyTolerance);
        EXPECT_NEAR(frequencyOf(rig_.harness().right, 9600, to, 48000.0), c.semitones == 0.0f ? kToneHz : up,
                    c.frequencyTolerance);
        EXPECT_NEAR(static_cast<double>(soundEnd(out)), static_cast<double>(c.length), c.endTolerance);
    }
    rig_.track().setPitch(0.0f);
    EXPECT_EQ(rig_.track().length(), 76800) << "changing the pitch back doesn't touch the length";
}

TEST_F(PlayTest, StreamedFileArrivesFromTheDiskThread)
{
    const std::string path = folder_.file("tone.wav");
    ASSERT_TRUE(writeFile(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 44100, 88200, tone<44100>, tone<44100>));
    ASSERT_TRUE(rig_.track().load(epiPath(path)));
    EXPECT_FALSE(rig_.track().isDirectRead());
    EXPECT_EQ(rig_.track().length(), 96000);
    rig_.harness().recordOutput = true;
    rig_.manager().start();
    // The first reads find an empty ring and give silence; paced like a device, the disk catches up.
    for (int b = 0; b < 100; ++b)
    {
        rig_.run(256);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    rig_.run(48000);
    const auto& out = rig_.harness().left;
    EXPECT_NEAR(frequencyOf(out, out.size() - 40000, out.size(), 48000.0), kToneHz, 0.5);
}

TEST_F(PlayTest, UnloadedTrackIsSilentAndFailedLoadLeavesItEmpty)
{
    EXPECT_FALSE(rig_.track().load(epiPath(folder_.file("nothing-here.wav"))));
    EXPECT_EQ(rig_.track().length(), 0);
    AudioBuffer block;
    block.alloc(256, 2);
    block.frames = 256;
    EXPECT_FALSE(rig_.track().provide(block));
    play(48000);
    rig_.track().unload();
    EXPECT_FALSE(rig_.track().isLoaded());
    EXPECT_FALSE(rig_.track().provide(block));
    EXPECT_EQ(rig_.track().length(), 0);
}

TEST_F(PlayTest, AFileLoadedAfterStopPlaysWithNoneOfTheOldOne)
{
    // Before, the history kept the old file after a stop, and the next play began with it.
    play(48000);
    rig_.run(24000);
    rig_.manager().stop();
    rig_.run(1024);
    const std::string silent = folder_.file("silent.wav");
    ASSERT_TRUE(writeFile(
        silent, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000, 48000, [](int64_t) { return 0.0f; },
        [](int64_t) { return 0.0f; }));
    ASSERT_TRUE(rig_.manager().loadTrack(0, epiPath(silent)));
    rig_.track().setDirectRead(true);
    rig_.harness().left.clear();
    rig_.manager().start();
    rig_.run(24000);
    const auto& out = rig_.harness().left;
    EXPECT_EQ(*std::max_element(out.begin(), out.end()), 0.0f);
}
