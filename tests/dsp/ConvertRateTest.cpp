// `kv3 convert --rate`, run as a user runs it: the output has the rate asked for, the length scaled
// by the ratio, and the signal of the input.
#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
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

    // A stereo float WAV: 1 kHz at 0.5 on the left, 3 kHz at 0.25 on the right.
    std::string writeInput(int rate, int frames)
    {
        const std::string path = (dir_ / "in.wav").string();
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
        EXPECT_NE(f, nullptr);
        std::vector<float> x(static_cast<std::size_t>(frames) * 2);
        for (int i = 0; i < frames; ++i)
        {
            x[2 * static_cast<std::size_t>(i)] =
                static_cast<float>(0.5 * std::sin(2 * M_PI * 1000.0 * i / rate));
            x[2 * static_cast<std::size_t>(i) + 1] =
                static_cast<float>(0.25 * std::sin(2 * M_PI * 3000.0 * i / rate));
        }
        sf_writef_float(f, x.data(), frames);
        sf_close(f);
        return path;
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

TEST_F(ConvertRateTest, OtherRateGoesThroughTheQualityResampler)
{
    for (auto [in, out] : {std::pair{44100, 48000}, std::pair{96000, 44100}})
    {
        const int frames = in; // one second
        const std::string input = writeInput(in, frames);
        const std::string output = (dir_ / "out.wav").string();
        ASSERT_EQ(run("convert '" + input + "' '" + output + "' --depth float --rate " + std::to_string(out)),
                  0);
        SF_INFO info{};
        SNDFILE* f = sf_open(output.c_str(), SFM_READ, &info);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(info.samplerate, out);
        EXPECT_EQ(info.channels, 2);
        EXPECT_EQ(info.frames, static_cast<sf_count_t>(static_cast<double>(frames) * out / in));
        std::vector<float> y(static_cast<std::size_t>(info.frames) * 2);
        sf_readf_float(f, y.data(), info.frames);
        sf_close(f);
        double worst = 0.0;
        for (sf_count_t i = 1000; i < info.frames - 1000; ++i)
        {
            const double l = 0.5 * std::sin(2 * M_PI * 1000.0 * static_cast<double>(i) / out);
            const double r = 0.25 * std::sin(2 * M_PI * 3000.0 * static_cast<double>(i) / out);
            worst = std::max({worst, std::abs(y[2 * static_cast<std::size_t>(i)] - l),
                              std::abs(y[2 * static_cast<std::size_t>(i) + 1] - r)});
        }
        EXPECT_LT(worst, 2e-4) << in << " -> " << out;
        fs::remove(output);
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

    // 48000 to 47999 would need 47,999 filter phases: refused, exit 1, and no output left behind.
    const std::string refused = (dir_ / "refused.wav").string();
    EXPECT_EQ(run("convert '" + input + "' '" + refused + "' --rate 47999"), 1);
    EXPECT_FALSE(fs::exists(refused));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator{}), 3); // in, same, err
}

} // namespace
