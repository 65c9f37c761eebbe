// kv3 stretch run as a user runs it, on files written and read back with the program's own file
// writer and reader chain.
#include "StretchTestSources.h"

#include "audiofiles/AudioFileFormats.h"
#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileWriter.h"
#include "engine/AudioData.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

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
    void SetUp() override
    {
        dir_ = fs::temp_directory_path() / ("kv3-stretch-test-" + std::to_string(::getpid()) + "-" +
                                            ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir_);
    }
    void TearDown() override
    {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    // Writes a float WAVE of one or two channels.
    void write(const std::string& name, const Audio& a)
    {
        const int32_t channels = a.right.empty() ? 1 : 2;
        AudioFileWriter w;
        ASSERT_TRUE(
            w.open(epiPath(path(name).c_str()),
                   AudioFileFormat{channels, a.rate, AudioFileFormats::kWave, AudioFileFormats::k32BitFloat}))
            << w.error();
        AudioData d;
        d.channel[0] = const_cast<float*>(a.left.data());
        d.channel[1] = channels == 2 ? const_cast<float*>(a.right.data()) : nullptr;
        d.channels = channels;
        d.frames = static_cast<int64_t>(a.left.size());
        ASSERT_TRUE(w.writeFloat(d));
        w.close();
    }

    // Reads a file the program wrote: always two channels.
    Audio read(const std::string& name, int32_t channels = 2)
    {
        Audio a;
        AudioFileGuess f;
        EXPECT_TRUE(f.open(epiPath(path(name).c_str()))) << name;
        if (!f.isOpen())
        {
            return a;
        }
        a.rate = f.sampleRate();
        const auto frames = static_cast<int64_t>(f.frames());
        EXPECT_EQ(f.channels(), channels) << name;
        a.left.resize(static_cast<size_t>(frames));
        a.right.resize(static_cast<size_t>(frames));
        AudioData d;
        d.channel[0] = a.left.data();
        d.channel[1] = a.right.data();
        d.channels = 2;
        d.frames = frames;
        d.position = 0;
        EXPECT_TRUE(f.read(d));
        return a;
    }

    // Runs kv3 with the arguments; returns its exit status.
    int kv3(const std::string& args)
    {
        const std::string command =
            std::string("'") + KV3_EXE + "' " + args + " 2>'" + path("stderr.txt") + "'";
        const int status = std::system(command.c_str());
        std::ifstream err(path("stderr.txt"));
        stderr_.assign(std::istreambuf_iterator<char>(err), std::istreambuf_iterator<char>());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static Audio sine(double hz, int32_t rate, double seconds, double rightHz = 0.0)
    {
        Audio a;
        a.rate = rate;
        const auto n = static_cast<size_t>(seconds * rate);
        a.left.resize(n);
        for (size_t i = 0; i < n; ++i)
        {
            a.left[i] = 0.5f * static_cast<float>(
                                   std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(i) / rate));
        }
        if (rightHz > 0.0)
        {
            a.right.resize(n);
            for (size_t i = 0; i < n; ++i)
            {
                a.right[i] = 0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * rightHz *
                                                                static_cast<double>(i) / rate));
            }
        }
        return a;
    }

    // The pitch heard in the middle of a channel, away from the ends.
    static double pitchOf(const std::vector<float>& x, int32_t rate)
    {
        const auto skip = static_cast<int64_t>(x.size() / 5);
        return stretchtest::medianPeriodFrequency(x.data() + skip, static_cast<int64_t>(x.size()) - 2 * skip,
                                                  rate);
    }

    fs::path dir_;
    std::string stderr_;
};

} // namespace

TEST_F(StretchCli, PitchUpAnOctaveGives880WithTheLengthUnchanged)
{
    write("in.wav", sine(440.0, 44100, 3.0));
    ASSERT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.wav") + " --pitch 12 --depth float"), 0)
        << stderr_;
    const Audio out = read("out.wav");
    EXPECT_EQ(out.rate, 44100);
    EXPECT_EQ(out.left.size(), 132300u);
    EXPECT_NEAR(pitchOf(out.left, out.rate), 880.0, 880.0 * 0.005);
    EXPECT_NEAR(pitchOf(out.right, out.rate), 880.0, 880.0 * 0.005);
}

TEST_F(StretchCli, PitchDownAFifthGives293Point7)
{
    write("in.wav", sine(440.0, 44100, 3.0));
    ASSERT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.wav") + " --pitch -7"), 0) << stderr_;
    const Audio out = read("out.wav");
    EXPECT_EQ(out.left.size(), 132300u);
    const double expect = 440.0 * std::pow(2.0, -7.0 / 12.0); // 293.66
    EXPECT_NEAR(pitchOf(out.left, out.rate), expect, expect * 0.005);
}

TEST_F(StretchCli, HalfSpeedDoublesTheLengthAndKeepsThePitch)
{
    write("in.wav", sine(440.0, 44100, 3.0));
    ASSERT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.aif") + " --speed 0.5"), 0) << stderr_;
    const Audio out = read("out.aif");
    EXPECT_EQ(out.left.size(), 264600u);
    EXPECT_NEAR(pitchOf(out.left, out.rate), 440.0, 440.0 * 0.005);
    // The tone lasts to the end: the source is played through, not cut at half way.
    float tail = 0.0f;
    for (size_t i = out.left.size() - 20000; i < out.left.size() - 5000; ++i)
    {
        tail = std::max(tail, std::fabs(out.left[i]));
    }
    EXPECT_GT(tail, 0.3f);
}

TEST_F(StretchCli, SpeedOnePitchZeroIsTheInputSampleForSample)
{
    Audio in = sine(440.0, 48000, 1.0, 330.0);
    // Full scale edges and odd values: nothing may be touched on the way.
    in.left[10] = 1.0f;
    in.right[11] = -1.0f;
    in.left[12] = 1e-30f;
    write("in.wav", in);
    ASSERT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.caf") + " --depth float --speed 1 --pitch 0"),
              0)
        << stderr_;
    const Audio out = read("out.caf");
    ASSERT_EQ(out.left.size(), in.left.size());
    for (size_t i = 0; i < in.left.size(); ++i)
    {
        ASSERT_EQ(out.left[i], in.left[i]) << i;
        ASSERT_EQ(out.right[i], in.right[i]) << i;
    }
}

TEST_F(StretchCli, MonoIsPlayedOnBothSidesAndStereoSidesStayApart)
{
    write("mono.wav", sine(440.0, 44100, 2.0));
    ASSERT_EQ(kv3("stretch " + path("mono.wav") + " " + path("m.wav") + " --speed 0.75 --depth float"), 0)
        << stderr_;
    const Audio m = read("m.wav");
    EXPECT_EQ(m.left.size(), static_cast<size_t>(std::llround(88200 / 0.75)));
    EXPECT_EQ(m.left, m.right);

    write("stereo.wav", sine(440.0, 44100, 2.0, 330.0));
    ASSERT_EQ(kv3("stretch " + path("stereo.wav") + " " + path("s.wav") + " --pitch 12 --depth float"), 0)
        << stderr_;
    const Audio s = read("s.wav");
    EXPECT_NEAR(pitchOf(s.left, s.rate), 880.0, 880.0 * 0.005);
    EXPECT_NEAR(pitchOf(s.right, s.rate), 660.0, 660.0 * 0.005);
}

TEST_F(StretchCli, RateConvertsFirst)
{
    write("in.wav", sine(440.0, 44100, 2.0));
    ASSERT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.wav") + " --rate 48000 --pitch 2"), 0)
        << stderr_;
    const Audio out = read("out.wav");
    EXPECT_EQ(out.rate, 48000);
    EXPECT_EQ(out.left.size(), 96000u);
    const double expect = 440.0 * std::pow(2.0, 2.0 / 12.0);
    EXPECT_NEAR(pitchOf(out.left, out.rate), expect, expect * 0.005);
}

TEST_F(StretchCli, BadInputIsAClearErrorAndLeavesNoFile)
{
    write("in.wav", sine(440.0, 44100, 0.5));
    EXPECT_EQ(kv3("stretch " + path("missing.wav") + " " + path("out.wav")), 1);
    EXPECT_NE(stderr_.find("missing.wav"), std::string::npos) << stderr_;
    {
        std::ofstream junk(path("junk.wav"));
        junk << "this is not audio at all";
    }
    EXPECT_EQ(kv3("stretch " + path("junk.wav") + " " + path("out.wav")), 1);
    EXPECT_NE(stderr_.find("not a valid audio file"), std::string::npos) << stderr_;
    EXPECT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.wav") + " --speed 0"), 2);
    EXPECT_NE(stderr_.find("--speed"), std::string::npos) << stderr_;
    EXPECT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.wav") + " --speed fast"), 2);
    EXPECT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.wav") + " --pitch 25"), 2);
    EXPECT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.mp3")), 2);
    EXPECT_EQ(kv3("stretch " + path("in.wav") + " " + path("out.wav") + " --depth 12"), 2);
    EXPECT_EQ(kv3("stretch " + path("in.wav")), 2);
    EXPECT_EQ(kv3("stretch " + path("in.wav") + " " + path("in.wav")), 2);
    // A folder that doesn't exist can't take the output.
    EXPECT_EQ(kv3("stretch " + path("in.wav") + " " + path("no/such/dir/out.wav")), 1);
    // Nothing was left behind, and the input is intact.
    for (const auto& entry : fs::directory_iterator(dir_))
    {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "in.wav" || name == "junk.wav" || name == "stderr.txt") << name;
    }
    EXPECT_EQ(read("in.wav", 1).left.size(), 22050u);
}
