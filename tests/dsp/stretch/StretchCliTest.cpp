// kv3 stretch run as a user runs it, on files written and read back with libsndfile.
#include "StretchTestNodes.h"
#include "StretchTestSources.h"
#include "tests/support/Signal.h"

#include "tests/support/Program.h"
#include "tests/support/SoundFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace
{

struct Audio
{
    int32_t rate = 0;
    std::vector<float> left;
    std::vector<float> right; // empty for mono
};

class StretchCli : public ::testing::Test
{
protected:
    // The engine comes from the settings when --quality doesn't name it: a store of the test's own.
    void SetUp() override { ::setenv("KV3_CONFIG_DIR", dir_.path().c_str(), 1); }
    void TearDown() override { ::unsetenv("KV3_CONFIG_DIR"); }

    std::string path(const std::string& name) const { return dir_.file(name); }

    // Writes a float WAVE of one or two channels.
    void write(const std::string& name, const Audio& a)
    {
        const int32_t channels = a.right.empty() ? 1 : 2;
        std::vector<float> interleaved;
        for (size_t i = 0; i < a.left.size(); ++i)
        {
            interleaved.push_back(a.left[i]);
            if (channels == 2)
            {
                interleaved.push_back(a.right[i]);
            }
        }
        ASSERT_TRUE(
            testsound::write(path(name), SF_FORMAT_WAV | SF_FORMAT_FLOAT, a.rate, channels, interleaved));
    }

    // Reads a file the program wrote.
    Audio read(const std::string& name, int32_t channels = 2)
    {
        const testsound::Sound sound = testsound::read(path(name));
        EXPECT_TRUE(sound.ok) << name;
        EXPECT_EQ(sound.channels, channels) << name;
        return Audio{sound.rate, sound.channel(0), sound.channel(channels - 1)};
    }

    // Runs kv3 with the arguments; returns its exit status.
    int kv3(const std::string& args)
    {
        const testsupport::ProgramResult result = testsupport::runProgram(KV3_EXE, args);
        stderr_ = result.err;
        return result.exit;
    }

    // Runs `kv3 stretch IN OUT` with further options.
    int stretch(const std::string& in, const std::string& out, const std::string& options = "")
    {
        return kv3("stretch " + path(in) + " " + path(out) + " " + options);
    }

    static Audio sine(double hz, int32_t rate, double seconds, double rightHz = 0.0)
    {
        Audio a;
        a.rate = rate;
        const auto n = static_cast<size_t>(seconds * rate);
        auto tone = [&](double f)
        {
            const auto g = stretchtest::sine(f, rate);
            std::vector<float> x(n);
            for (size_t i = 0; i < n; ++i)
            {
                x[i] = g(static_cast<int64_t>(i), 0);
            }
            return x;
        };
        a.left = tone(hz);
        if (rightHz > 0.0)
        {
            a.right = tone(rightHz);
        }
        return a;
    }

    // The pitch heard in the middle of a channel, away from the ends.
    static double pitchOf(const std::vector<float>& x, int32_t rate)
    {
        const auto skip = static_cast<int64_t>(x.size() / 5);
        return testsignal::medianPeriodFrequency(x.data() + skip, static_cast<int64_t>(x.size()) - 2 * skip,
                                                 rate);
    }

    testsupport::TempFolder dir_;
    std::string stderr_;
};

} // namespace

// Up an octave gives 880 Hz, down a fifth 293.7 Hz, with the length unchanged; a rate conversion
// comes first.
TEST_F(StretchCli, PitchUpAnOctaveGives880AndDownAFifthGives293Point7)
{
    write("in.wav", sine(440.0, 44100, 3.0));
    struct Case
    {
        const char* options;
        int32_t rate;
        size_t frames;
        double expect;
    };
    for (const Case& c : {Case{"--pitch 12 --depth float", 44100, 132300, 880.0},
                          Case{"--pitch -7", 44100, 132300, 440.0 * std::pow(2.0, -7.0 / 12.0)},
                          Case{"--rate 48000 --pitch 2", 48000, 144000, 440.0 * std::pow(2.0, 2.0 / 12.0)}})
    {
        ASSERT_EQ(stretch("in.wav", "out.wav", c.options), 0) << c.options << ": " << stderr_;
        const Audio out = read("out.wav");
        EXPECT_EQ(out.rate, c.rate) << c.options;
        EXPECT_EQ(out.left.size(), c.frames) << c.options;
        EXPECT_NEAR(pitchOf(out.left, out.rate), c.expect, c.expect * 0.005) << c.options;
        EXPECT_NEAR(pitchOf(out.right, out.rate), c.expect, c.expect * 0.005) << c.options;
    }
}

// A rate pair the resampler refuses is told as such, naming the file and both rates, not as a
// file without audio; nothing is left behind.
TEST_F(StretchCli, RefusedRatePairSaysWhy)
{
    // Every pair of common rates is served now; a file at 9 MHz still falls too far for 8 kHz.
    write("in.wav", sine(440.0, 9000000, 0.01));
    EXPECT_EQ(stretch("in.wav", "out.wav", "--rate 8000"), 1);
    EXPECT_NE(stderr_.find("can't resample"), std::string::npos) << stderr_;
    EXPECT_NE(stderr_.find("in.wav"), std::string::npos) << stderr_;
    EXPECT_NE(stderr_.find("9000000 Hz to 8000 Hz"), std::string::npos) << stderr_;
    EXPECT_NE(stderr_.find("input stage"), std::string::npos) << stderr_;
    EXPECT_EQ(stderr_.find("no audio"), std::string::npos) << stderr_;
    EXPECT_EQ(std::count(stderr_.begin(), stderr_.end(), '\n'), 1) << stderr_;
    for (const auto& entry : fs::directory_iterator(dir_.path()))
    {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "in.wav" || name == "stderr.txt") << name;
    }
}

TEST_F(StretchCli, MonoIsPlayedOnBothSidesAndStereoSidesStayApart)
{
    write("mono.wav", sine(440.0, 44100, 2.0));
    ASSERT_EQ(stretch("mono.wav", "m.wav", "--speed 0.75 --depth float"), 0) << stderr_;
    const Audio m = read("m.wav");
    EXPECT_EQ(m.left.size(), static_cast<size_t>(std::llround(88200 / 0.75)));
    EXPECT_EQ(m.left, m.right);

    write("stereo.wav", sine(440.0, 44100, 2.0, 330.0));
    ASSERT_EQ(stretch("stereo.wav", "s.wav", "--pitch 12 --depth float"), 0) << stderr_;
    const Audio s = read("s.wav");
    EXPECT_NEAR(pitchOf(s.left, s.rate), 880.0, 880.0 * 0.005);
    EXPECT_NEAR(pitchOf(s.right, s.rate), 660.0, 660.0 * 0.005);
}

TEST_F(StretchCli, BadInputIsAClearErrorAndLeavesNoFile)
{
    write("in.wav", sine(440.0, 44100, 0.5));
    EXPECT_EQ(stretch("missing.wav", "out.wav"), 1);
    EXPECT_NE(stderr_.find("missing.wav"), std::string::npos) << stderr_;
    {
        std::ofstream junk(path("junk.wav"));
        junk << "this is not audio at all";
    }
    EXPECT_EQ(stretch("junk.wav", "out.wav"), 1);
    EXPECT_NE(stderr_.find("not a valid audio file"), std::string::npos) << stderr_;
    EXPECT_EQ(stretch("in.wav", "out.wav", "--speed 0"), 2);
    EXPECT_NE(stderr_.find("--speed"), std::string::npos) << stderr_;
    EXPECT_EQ(stretch("in.wav", "out.wav", "--speed fast"), 2);
    EXPECT_EQ(stretch("in.wav", "out.wav", "--pitch 25"), 2);
    EXPECT_EQ(stretch("in.wav", "out.mp3"), 2);
    EXPECT_EQ(stretch("in.wav", "out.wav", "--depth 12"), 2);
    EXPECT_EQ(kv3("stretch " + path("in.wav")), 2);
    EXPECT_EQ(stretch("in.wav", "in.wav"), 2);
    // A folder that doesn't exist can't take the output.
    EXPECT_EQ(stretch("in.wav", "no/such/dir/out.wav"), 1);
    // Nothing was left behind, and the input is intact.
    for (const auto& entry : fs::directory_iterator(dir_.path()))
    {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "in.wav" || name == "junk.wav" || name == "stderr.txt") << name;
    }
    EXPECT_EQ(read("in.wav", 1).left.size(), 22050u);
}

// The high-quality engine at every speed: OUT lasts IN's length over the speed to the frame, and the
// tone plays to the end at its own pitch.
TEST_F(StretchCli, HighQualityLengthIsExactAtEverySpeed)
{
    write("in.wav", sine(440.0, 48000, 2.0));
    for (const char* speed : {"0.5", "0.75", "1.5", "0.3", "3.7"})
    {
        ASSERT_EQ(stretch("in.wav", "out.wav", std::string("--quality high --depth float --speed ") + speed),
                  0)
            << speed << ": " << stderr_;
        const Audio out = read("out.wav");
        EXPECT_EQ(static_cast<int64_t>(out.left.size()), std::llround(96000.0 / std::stod(speed))) << speed;
        EXPECT_NEAR(pitchOf(out.left, out.rate), 440.0, 440.0 * 0.005) << speed;
        float tail = 0.0f;
        for (size_t i = out.left.size() * 9 / 10; i < out.left.size() - 1200; ++i)
        {
            tail = std::max(tail, std::fabs(out.left[i]));
        }
        EXPECT_GT(tail, 0.3f) << speed;
    }
}

// The stored setting chooses the engine unless --quality says otherwise.
TEST_F(StretchCli, TheStoredSettingChoosesTheEngineUnlessQualitySays)
{
    write("in.wav", sine(440.0, 48000, 1.0));
    const std::string options = "--speed 0.75 --depth float";
    ASSERT_EQ(stretch("in.wav", "standard.wav", options + " --quality standard"), 0) << stderr_;
    ASSERT_EQ(stretch("in.wav", "high.wav", options + " --quality high"), 0) << stderr_;
    ASSERT_NE(read("standard.wav").left, read("high.wav").left);
    ASSERT_EQ(stretch("in.wav", "default.wav", options), 0) << stderr_;
    EXPECT_EQ(read("default.wav").left, read("standard.wav").left);
    std::ofstream(dir_.file("settings.conf")) << "Host.StretchQuality = sz:High quality\n";
    ASSERT_EQ(stretch("in.wav", "stored.wav", options), 0) << stderr_;
    EXPECT_EQ(read("stored.wav").left, read("high.wav").left);
    ASSERT_EQ(stretch("in.wav", "overridden.wav", options + " --quality standard"), 0) << stderr_;
    EXPECT_EQ(read("overridden.wav").left, read("standard.wav").left);
    EXPECT_EQ(stretch("in.wav", "bad.wav", "--quality best"), 2);
    EXPECT_NE(stderr_.find("--quality must be standard or high"), std::string::npos) << stderr_;
}
