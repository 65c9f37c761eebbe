// `kv3 convert --rate`, run as a user runs it: the output has the rate asked for, the length scaled
// by the ratio, and the signal of the input.
#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

class ConvertRateTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const char* binary = std::getenv("KV3_BINARY_DIR");
        ASSERT_NE(binary, nullptr);
        kv3_ = std::string(binary) + "/app/kv3/kv3";
        ASSERT_TRUE(fs::exists(kv3_)) << kv3_;
        dir_ = fs::path(binary) / "dsp_convert_rate_test";
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // A stereo float WAV: 1 kHz at 0.5 on the left, 3 kHz at 0.25 on the right, up to the last
    // frame, then `silence` frames of zeros.
    std::string writeInput(int rate, int frames, int silence = 0, const std::string& name = "in.wav")
    {
        const std::string path = (dir_ / name).string();
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
        EXPECT_NE(f, nullptr);
        std::vector<float> x(static_cast<std::size_t>(frames + silence) * 2, 0.0f);
        for (int i = 0; i < frames; ++i)
        {
            x[2 * static_cast<std::size_t>(i)] =
                static_cast<float>(0.5 * std::sin(2 * M_PI * 1000.0 * i / rate));
            x[2 * static_cast<std::size_t>(i) + 1] =
                static_cast<float>(0.25 * std::sin(2 * M_PI * 3000.0 * i / rate));
        }
        sf_writef_float(f, x.data(), frames + silence);
        sf_close(f);
        return path;
    }

    // The interleaved frames of a file the command wrote.
    static std::vector<float> readAll(const std::string& path, SF_INFO& info)
    {
        info = SF_INFO{};
        SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
        EXPECT_NE(f, nullptr) << path;
        if (f == nullptr)
            return {};
        std::vector<float> y(static_cast<std::size_t>(info.frames * info.channels));
        EXPECT_EQ(sf_readf_float(f, y.data(), info.frames), info.frames);
        sf_close(f);
        return y;
    }

    int run(const std::string& arguments)
    {
        const int status =
            std::system((kv3_ + " " + arguments + " 2>'" + (dir_ / "err.txt").string() + "'").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string kv3_;
    fs::path dir_;
};

// The output has the rate and the scaled length, and the tones of the input at the new rate, up
// to its last frames. The tones run to the input's last frame; the two filters spread their
// abrupt start and stop over a few dozen frames, which are all the comparison with the direct
// tone leaves out. The file followed by silence gives the reference for those: the same output up
// to the interpolator's reach (128 output frames and a group of four) from the end, and within
// it no more apart than the low-pass stage's ring-out past the end, which only the padded file
// passes on.
TEST_F(ConvertRateTest, OtherRateGoesThroughTheQualityResampler)
{
    for (auto [in, out] : {std::pair{44100, 48000}, std::pair{48000, 44100}, std::pair{96000, 44100}})
    {
        const int frames = in; // one second
        const std::string input = writeInput(in, frames);
        const std::string padded = writeInput(in, frames, in, "padded.wav");
        const std::string output = (dir_ / "out.wav").string();
        const std::string reference = (dir_ / "reference.wav").string();
        ASSERT_EQ(run("convert '" + input + "' '" + output + "' --depth float --rate " + std::to_string(out)),
                  0);
        ASSERT_EQ(
            run("convert '" + padded + "' '" + reference + "' --depth float --rate " + std::to_string(out)),
            0);
        SF_INFO info{}, referenceInfo{};
        const std::vector<float> y = readAll(output, info);
        const std::vector<float> z = readAll(reference, referenceInfo);
        EXPECT_EQ(info.samplerate, out);
        EXPECT_EQ(info.channels, 2);
        ASSERT_EQ(info.frames, static_cast<sf_count_t>(static_cast<double>(frames) * out / in));
        ASSERT_GT(referenceInfo.frames, info.frames);

        constexpr sf_count_t kEdge = 64;
        constexpr sf_count_t kReach = 132;
        double worst = 0.0;
        for (sf_count_t i = 0; i < info.frames; ++i)
        {
            const auto l = 2 * static_cast<std::size_t>(i);
            const float tolerance = i + kReach < info.frames ? 1e-6f : 0.015f;
            ASSERT_NEAR(y[l], z[l], tolerance)
                << in << " -> " << out << " frame " << i << " of " << info.frames;
            ASSERT_NEAR(y[l + 1], z[l + 1], tolerance) << in << " -> " << out << " frame " << i;
            if (i < kEdge || i >= info.frames - kEdge)
                continue;
            const double left = 0.5 * std::sin(2 * M_PI * 1000.0 * static_cast<double>(i) / out);
            const double right = 0.25 * std::sin(2 * M_PI * 3000.0 * static_cast<double>(i) / out);
            worst = std::max({worst, std::abs(y[l] - left), std::abs(y[l + 1] - right)});
        }
        EXPECT_LT(worst, 2e-4) << in << " -> " << out;
        fs::remove(output);
        fs::remove(reference);
    }
}

TEST_F(ConvertRateTest, SameRateCopiesAndRefusedRatioFailsCleanly)
{
    const std::string input = writeInput(48000, 10000);
    const std::string output = (dir_ / "same.wav").string();
    ASSERT_EQ(run("convert '" + input + "' '" + output + "' --depth float --rate 48000"), 0);
    SF_INFO a{}, b{};
    SNDFILE* fa = sf_open(input.c_str(), SFM_READ, &a);
    SNDFILE* fb = sf_open(output.c_str(), SFM_READ, &b);
    ASSERT_NE(fa, nullptr);
    ASSERT_NE(fb, nullptr);
    std::vector<float> x(20000), y(20000);
    EXPECT_EQ(sf_readf_float(fa, x.data(), 10000), 10000);
    EXPECT_EQ(sf_readf_float(fb, y.data(), 10000), 10000);
    sf_close(fa);
    sf_close(fb);
    EXPECT_EQ(x, y);

    // 48000 to 47999 needs 47,999 filter phases: before it was refused, now a near fraction serves it.
    const std::string near = (dir_ / "near.wav").string();
    ASSERT_EQ(run("convert '" + input + "' '" + near + "' --rate 47999"), 0);
    SF_INFO c{};
    SNDFILE* fc = sf_open(near.c_str(), SFM_READ, &c);
    ASSERT_NE(fc, nullptr);
    sf_close(fc);
    EXPECT_EQ(c.samplerate, 47999);
    EXPECT_EQ(c.frames, 9999);
}

} // namespace
