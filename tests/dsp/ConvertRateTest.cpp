// `kv3 convert --rate`, run as a user runs it: the output has the rate asked for, the length scaled
// by the ratio, and the signal of the input. How the last frames end is the resampler node's test.
#include "tests/support/Program.h"
#include "tests/support/SoundFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <string>
#include <vector>

namespace
{

// 1 kHz at 0.5 on the left and 3 kHz at 0.25 on the right, frame i at a rate.
double left(int64_t i, double rate)
{
    return 0.5 * std::sin(2 * M_PI * 1000.0 * static_cast<double>(i) / rate);
}
double right(int64_t i, double rate)
{
    return 0.25 * std::sin(2 * M_PI * 3000.0 * static_cast<double>(i) / rate);
}

} // namespace

// The same rate copies; another goes through the quality resampler, 48000 to 47999 too, which needs
// 47,999 filter phases: before it was refused, now a near fraction serves it (its rate and length
// are checked; its near pitch drifts the phase over the second).
TEST(ConvertRate, TheOutputHasTheRateTheLengthAndTheTones)
{
    testsupport::TempFolder dir;
    struct Case
    {
        int in, out;
        double tolerance;
    };
    for (auto [in, out, tolerance] :
         {Case{44100, 48000, 2e-4}, Case{48000, 44100, 2e-4}, Case{96000, 44100, 2e-4},
          Case{48000, 48000, 0.0}, Case{48000, 47999, -1.0}})
    {
        std::vector<float> x(2 * static_cast<std::size_t>(in));
        for (int i = 0; i < in; ++i)
        {
            x[2 * static_cast<std::size_t>(i)] = static_cast<float>(left(i, in));
            x[2 * static_cast<std::size_t>(i) + 1] = static_cast<float>(right(i, in));
        }
        ASSERT_TRUE(testsound::write(dir.file("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, in, 2, x));
        const testsupport::ProgramResult run = testsupport::runProgram(
            testsupport::kv3Program(), "convert '" + dir.file("in.wav") + "' '" + dir.file("out.wav") +
                                           "' --depth float --rate " + std::to_string(out));
        ASSERT_EQ(run.exit, 0) << run.err;
        const testsound::Sound y = testsound::read(dir.file("out.wav"));
        EXPECT_EQ(y.rate, out);
        EXPECT_EQ(y.channels, 2);
        ASSERT_EQ(y.frames(), static_cast<int64_t>(static_cast<double>(in) * out / in));
        if (in == out || tolerance < 0.0)
        {
            EXPECT_TRUE(in != out || y.samples == x);
            continue;
        }
        double worst = 0.0;
        for (int64_t i = 64; i < y.frames() - 64; ++i)
        {
            const auto l = 2 * static_cast<std::size_t>(i);
            worst = std::max(
                {worst, std::abs(y.samples[l] - left(i, out)), std::abs(y.samples[l + 1] - right(i, out))});
        }
        EXPECT_LT(worst, tolerance) << in << " -> " << out;
    }
}
