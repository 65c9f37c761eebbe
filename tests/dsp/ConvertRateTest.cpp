// `kv3 convert --rate`, run as a user runs it: the output has the rate asked for, the length scaled
// by the ratio, and the signal of the input.
#include "tests/support/Program.h"
#include "tests/support/SoundFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

class ConvertRateTest : public ::testing::Test
{
protected:
    // A stereo float WAV: 1 kHz at 0.5 on the left, 3 kHz at 0.25 on the right.
    std::string writeInput(int rate, int frames)
    {
        const std::string path = dir_.file("in.wav");
        std::vector<float> x(static_cast<std::size_t>(frames) * 2, 0.0f);
        for (int i = 0; i < frames; ++i)
        {
            x[2 * static_cast<std::size_t>(i)] =
                static_cast<float>(0.5 * std::sin(2 * M_PI * 1000.0 * i / rate));
            x[2 * static_cast<std::size_t>(i) + 1] =
                static_cast<float>(0.25 * std::sin(2 * M_PI * 3000.0 * i / rate));
        }
        EXPECT_TRUE(testsound::write(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, 2, x));
        return path;
    }

    int run(const std::string& arguments)
    {
        const testsupport::ProgramResult result =
            testsupport::runProgram(testsupport::kv3Program(), arguments);
        err_ = result.err;
        return result.exit;
    }

    testsupport::TempFolder dir_;
    std::string err_;
};

// The output has the rate and the scaled length, and the tones of the input at the new rate. How the
// last frames end is the resampler node's test; the filters' start and stop are left out here.
TEST_F(ConvertRateTest, OtherRateGoesThroughTheQualityResampler)
{
    for (auto [in, out] : {std::pair{44100, 48000}, std::pair{48000, 44100}, std::pair{96000, 44100}})
    {
        const int frames = in; // one second
        const std::string input = writeInput(in, frames);
        const std::string output = dir_.file("out.wav");
        ASSERT_EQ(run("convert '" + input + "' '" + output + "' --depth float --rate " + std::to_string(out)),
                  0);
        const testsound::Sound converted = testsound::read(output);
        const std::vector<float>& y = converted.samples;
        EXPECT_EQ(converted.rate, out);
        EXPECT_EQ(converted.channels, 2);
        const int64_t frameCount = converted.frames();
        ASSERT_EQ(frameCount, static_cast<int64_t>(static_cast<double>(frames) * out / in));
        constexpr int64_t kEdge = 64;
        double worst = 0.0;
        for (int64_t i = kEdge; i < frameCount - kEdge; ++i)
        {
            const auto l = 2 * static_cast<std::size_t>(i);
            const double left = 0.5 * std::sin(2 * M_PI * 1000.0 * static_cast<double>(i) / out);
            const double right = 0.25 * std::sin(2 * M_PI * 3000.0 * static_cast<double>(i) / out);
            worst = std::max({worst, std::abs(y[l] - left), std::abs(y[l + 1] - right)});
        }
        EXPECT_LT(worst, 2e-4) << in << " -> " << out;
    }
}

TEST_F(ConvertRateTest, SameRateCopiesAndRefusedRatioFailsCleanly)
{
    const std::string input = writeInput(48000, 10000);
    const std::string output = dir_.file("same.wav");
    ASSERT_EQ(run("convert '" + input + "' '" + output + "' --depth float --rate 48000"), 0);
    const testsound::Sound x = testsound::read(input);
    const testsound::Sound y = testsound::read(output);
    ASSERT_TRUE(x.ok && y.ok);
    EXPECT_EQ(x.samples, y.samples);

    // 48000 to 47999 needs 47,999 filter phases: before it was refused, now a near fraction serves it.
    const std::string near = dir_.file("near.wav");
    ASSERT_EQ(run("convert '" + input + "' '" + near + "' --rate 47999"), 0);
    const testsound::Sound z = testsound::read(near);
    ASSERT_TRUE(z.ok);
    EXPECT_EQ(z.rate, 47999);
    EXPECT_EQ(z.frames(), 9999);
}

} // namespace
