// kv3 stretch run as a user runs it, on files written and read back with libsndfile.
#include "StretchTestNodes.h"
#include "tests/support/Program.h"
#include "tests/support/Signal.h"
#include "tests/support/SoundFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{

std::vector<float> tone(double hz, int32_t rate, double seconds)
{
    std::vector<float> x(static_cast<size_t>(seconds * rate));
    const auto g = stretchtest::sine(hz, rate);
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = g(static_cast<int64_t>(i), 0);
    return x;
}

// The pitch heard in the middle of a channel, away from the ends.
double pitchOf(const std::vector<float>& x, int32_t rate)
{
    const auto skip = static_cast<int64_t>(x.size() / 5);
    return testsignal::medianPeriodFrequency(x.data() + skip, static_cast<int64_t>(x.size()) - 2 * skip,
                                             rate);
}

class StretchCli : public ::testing::Test
{
protected:
    // The engine comes from the settings when --quality doesn't name it: a store of the test's own.
    void SetUp() override
    {
        ::setenv("KV3_CONFIG_DIR", dir_.path().c_str(), 1);
        const int32_t format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        ASSERT_TRUE(testsound::write(dir_.file("mono44.wav"), format, 44100, 1, tone(440.0, 44100, 3.0)));
        ASSERT_TRUE(testsound::write(dir_.file("mono48.wav"), format, 48000, 1, tone(440.0, 48000, 2.0)));
        ASSERT_TRUE(testsound::writeStereo(dir_.file("stereo.wav"), format, 44100, tone(440.0, 44100, 2.0),
                                           tone(330.0, 44100, 2.0)));
    }
    void TearDown() override { ::unsetenv("KV3_CONFIG_DIR"); }

    // Runs `kv3 stretch IN OUT` with further options; returns its exit status.
    int stretch(const std::string& in, const std::string& out, const std::string& options = "")
    {
        const testsupport::ProgramResult result = testsupport::runProgram(
            KV3_EXE, "stretch " + dir_.file(in) + " " + dir_.file(out) + " " + options);
        stderr_ = result.err;
        return result.exit;
    }

    testsound::Stereo read(const std::string& name)
    {
        const testsound::Stereo sound = testsound::readStereo(dir_.file(name));
        EXPECT_TRUE(sound.ok) << name;
        EXPECT_EQ(sound.channels, 2) << name;
        return sound;
    }

    testsupport::TempFolder dir_;
    std::string stderr_;
};

} // namespace

// Pitch or length moves alone, on both engines, after a rate conversion too; mono plays on both
// sides and stereo sides stay apart.
TEST_F(StretchCli, PitchAndLengthOfEachSide)
{
    struct Case
    {
        const char* in;
        std::string options;
        int32_t rate;
        int64_t frames;
        double left, right;
    };
    const double fifthDown = 440.0 * std::pow(2.0, -7.0 / 12.0);
    std::vector<Case> cases = {
        {"mono44.wav", "--pitch 12", 44100, 132300, 880.0, 880.0},
        {"mono44.wav", "--pitch -7", 44100, 132300, fifthDown, fifthDown},
        {"mono44.wav", "--rate 48000 --pitch 2", 48000, 144000, 493.88, 493.88},
        {"mono44.wav", "--speed 0.75", 44100, 176400, 440.0, 440.0},
        {"stereo.wav", "--pitch 12", 44100, 88200, 880.0, 660.0},
    };
    // The high-quality engine at every speed: OUT lasts IN's length over the speed to the frame.
    for (const char* speed : {"0.5", "0.75", "1.5", "0.3", "3.7"})
        cases.push_back({"mono48.wav", std::string("--quality high --speed ") + speed, 48000,
                         std::llround(96000.0 / std::stod(speed)), 440.0, 440.0});
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.options);
        ASSERT_EQ(stretch(c.in, "out.wav", c.options + " --depth float"), 0) << stderr_;
        const testsound::Stereo out = read("out.wav");
        EXPECT_EQ(out.rate, c.rate);
        EXPECT_EQ(out.frames(), c.frames);
        EXPECT_NEAR(pitchOf(out.left, out.rate), c.left, c.left * 0.005);
        EXPECT_NEAR(pitchOf(out.right, out.rate), c.right, c.right * 0.005);
        if (c.left == c.right)
        {
            EXPECT_EQ(out.left, out.right);
        }
        // The tone plays to the end.
        const auto from = static_cast<int64_t>(out.left.size() * 9 / 10);
        EXPECT_GT(testsignal::peak(out.left.data() + from, c.frames - from - 1200), 0.3);
    }
}

// Bad input exits 1 and bad usage 2, leaving nothing behind; a refused rate pair is told in one line
// naming the file and both rates, not as a file without audio.
TEST_F(StretchCli, BadInputIsAClearErrorAndLeavesNoFile)
{
    std::ofstream(dir_.file("junk.wav")) << "this is not audio at all";
    ASSERT_TRUE(testsound::write(dir_.file("fast.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 9000000, 1,
                                 tone(440.0, 9000000, 0.01)));
    struct Case
    {
        const char* in;
        const char* out;
        const char* options;
        int exit;
        const char* says;
    };
    for (const Case& c :
         {Case{"missing.wav", "out.wav", "", 1, "missing.wav"},
          Case{"junk.wav", "out.wav", "", 1, "not a valid audio file"},
          Case{"fast.wav", "out.wav", "--rate 8000", 1, "can't resample"},
          Case{"mono44.wav", "out.wav", "--speed 0", 2, "--speed"},
          Case{"mono44.wav", "out.wav", "--speed fast", 2, ""},
          Case{"mono44.wav", "out.wav", "--pitch 25", 2, ""}, Case{"mono44.wav", "out.mp3", "", 2, ""},
          Case{"mono44.wav", "out.wav", "--depth 12", 2, ""},
          Case{"mono44.wav", "out.wav", "--quality best", 2, "--quality must be standard or high"},
          Case{"mono44.wav", "mono44.wav", "", 2, ""}, Case{"mono44.wav", "no/such/dir/out.wav", "", 1, ""}})
    {
        EXPECT_EQ(stretch(c.in, c.out, c.options), c.exit) << c.in << " " << c.options;
        EXPECT_NE(stderr_.find(c.says), std::string::npos) << stderr_;
    }
    ASSERT_EQ(stretch("fast.wav", "out.wav", "--rate 8000"), 1);
    for (const char* says : {"can't resample", "fast.wav", "9000000 Hz to 8000 Hz", "input stage"})
        EXPECT_NE(stderr_.find(says), std::string::npos) << stderr_;
    EXPECT_EQ(stderr_.find("no audio"), std::string::npos) << stderr_;
    EXPECT_EQ(std::count(stderr_.begin(), stderr_.end(), '\n'), 1) << stderr_;
    EXPECT_EQ(testsupport::runProgram(KV3_EXE, "stretch " + dir_.file("mono44.wav")).exit, 2);
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path()))
    {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE((name.ends_with(".wav") && name != "out.wav") || name == "stderr.txt") << name;
    }
    EXPECT_EQ(testsound::read(dir_.file("mono44.wav")).frames(), 132300);
}

// The stored setting chooses the engine unless --quality says otherwise.
TEST_F(StretchCli, TheStoredSettingChoosesTheEngineUnlessQualitySays)
{
    const std::string options = "--speed 0.75 --depth float";
    ASSERT_EQ(stretch("mono48.wav", "standard.wav", options + " --quality standard"), 0) << stderr_;
    ASSERT_EQ(stretch("mono48.wav", "high.wav", options + " --quality high"), 0) << stderr_;
    ASSERT_NE(read("standard.wav").left, read("high.wav").left);
    ASSERT_EQ(stretch("mono48.wav", "default.wav", options), 0) << stderr_;
    EXPECT_EQ(read("default.wav").left, read("standard.wav").left);
    std::ofstream(dir_.file("settings.conf")) << "Host.StretchQuality = sz:High quality\n";
    ASSERT_EQ(stretch("mono48.wav", "stored.wav", options), 0) << stderr_;
    EXPECT_EQ(read("stored.wav").left, read("high.wav").left);
    ASSERT_EQ(stretch("mono48.wav", "overridden.wav", options + " --quality standard"), 0) << stderr_;
    EXPECT_EQ(read("overridden.wav").left, read("standard.wav").left);
}
