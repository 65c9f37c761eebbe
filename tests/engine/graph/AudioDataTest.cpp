#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace
{

using Block = testsupport::StereoBlock;

// Staircase: sample i holds i (channel 0) and -i (channel 1), so any offset shows as a wrong value.
void fillStaircase(AudioData& d, float base = 0.0f)
{
    for (int64_t i = 0; i < d.frames; ++i)
    {
        d.channel[0][i] = base + static_cast<float>(i);
        if (d.channels > 1)
        {
            d.channel[1][i] = -(base + static_cast<float>(i));
        }
    }
}

TEST(AudioData, AdoptRangeCopiesOnlyFramesAndPosition)
{
    Block a(8);
    a.data.position = 1234;
    AudioData d;
    float x = 0.0f;
    d.channel[0] = &x;
    d.channels = 1;
    d.adoptRange(a.data);
    EXPECT_EQ(d.frames, 8);
    EXPECT_EQ(d.position, 1234);
    EXPECT_EQ(d.channel[0], &x);
    EXPECT_EQ(d.channel[1], nullptr);
    EXPECT_EQ(d.channels, 1);
}

TEST(AudioData, AdoptOfMonoWithDuplicateMonoAliasesBothChannels)
{
    std::vector<float> mono{0.25f, 0.5f};
    AudioData src;
    src.channel[0] = mono.data();
    src.channels = 1;
    src.frames = 2;
    src.position = 77;

    AudioData withFlag;
    withFlag.duplicateMono = true;
    withFlag.adopt(src);
    EXPECT_EQ(withFlag.channels, 2);
    EXPECT_EQ(withFlag.channel[0], mono.data());
    EXPECT_EQ(withFlag.channel[1], mono.data());
    EXPECT_EQ(withFlag.frames, 2);
    EXPECT_EQ(withFlag.position, 77);

    AudioData without;
    without.adopt(src);
    EXPECT_EQ(without.channels, 1);
    EXPECT_EQ(without.channel[1], nullptr);

    // A stereo source is adopted as it is, flag or not.
    Block stereo(4);
    withFlag.adopt(stereo.data);
    EXPECT_EQ(withFlag.channels, 2);
    EXPECT_EQ(withFlag.channel[1], stereo.right.data());
}

TEST(AudioData, CopyFromCopiesSourceFramesAndKeepsOwnFrames)
{
    Block src(5);
    fillStaircase(src.data, 100.0f);
    Block dst(8, 0, 9.0f);
    dst.data.copyFrom(src.data);
    EXPECT_EQ(dst.data.frames, 8);
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(dst.left[static_cast<size_t>(i)], 100.0f + static_cast<float>(i));
        EXPECT_EQ(dst.right[static_cast<size_t>(i)], -(100.0f + static_cast<float>(i)));
    }
    // Samples past src.frames are untouched.
    EXPECT_EQ(dst.left[5], 9.0f);
    EXPECT_EQ(dst.right[7], 9.0f);
}

TEST(AudioData, AvailableAnswersFromTheHeldStretch)
{
    AudioData held;
    held.position = 1000;
    held.frames = 100;
    int64_t count = -1;

    EXPECT_FALSE(held.available(999, 10, count)) << "before the stretch";
    EXPECT_EQ(count, -1) << "count untouched on false";

    EXPECT_TRUE(held.available(1000, 10, count));
    EXPECT_EQ(count, 10);
    EXPECT_TRUE(held.available(1050, 80, count));
    EXPECT_EQ(count, 50) << "limited by what remains";
    EXPECT_TRUE(held.available(1099, 80, count));
    EXPECT_EQ(count, 1);
    EXPECT_FALSE(held.available(1100, 1, count)) << "exactly one past the stretch";
    EXPECT_FALSE(held.available(5000, 1, count));
}

TEST(AudioData, SilenceScaleAndPeak)
{
    Block b(6);
    fillStaircase(b.data);
    EXPECT_EQ(b.data.peak(), 5.0f);
    b.data.scale(0.5f);
    EXPECT_EQ(b.left[4], 2.0f);
    EXPECT_EQ(b.right[4], -2.0f);
    EXPECT_EQ(b.data.peak(), 2.5f);
    b.data.silence();
    EXPECT_EQ(b.data.peak(), 0.0f);
    for (float v : b.right)
    {
        EXPECT_EQ(v, 0.0f);
    }
}

TEST(AudioData, MixFromLinearPanLaw)
{
    Block src(4, 0, 0.25f);
    struct Case
    {
        float gain, pan, left, right;
    };
    const Case cases[] = {
        {1.0f, 0.0f, 0.25f, 0.25f},      {1.0f, -1.0f, 0.5f, 0.0f}, {1.0f, 1.0f, 0.0f, 0.5f},
        {0.5f, -0.5f, 0.1875f, 0.0625f}, {2.0f, 0.0f, 0.5f, 0.5f},
    };
    for (const Case& c : cases)
    {
        Block dst(4);
        dst.data.mixFrom(src.data, c.gain, c.pan);
        for (size_t i = 0; i < 4; ++i)
        {
            EXPECT_FLOAT_EQ(dst.left[i], c.left) << "gain " << c.gain << " pan " << c.pan;
            EXPECT_FLOAT_EQ(dst.right[i], c.right) << "gain " << c.gain << " pan " << c.pan;
        }
    }
}

TEST(AudioData, MixFromAddsToWhatIsThere)
{
    Block src(3);
    fillStaircase(src.data);
    Block dst(3, 0, 1.0f);
    dst.data.mixFrom(src.data, 1.0f, -1.0f); // left doubled, right untouched
    EXPECT_EQ(dst.left, (std::vector<float>{1.0f, 3.0f, 5.0f}));
    EXPECT_EQ(dst.right, (std::vector<float>{1.0f, 1.0f, 1.0f}));
    // Over this descriptor's frames only.
    dst.data.frames = 1;
    dst.data.mixFrom(src.data, 1.0f, 0.0f);
    EXPECT_EQ(dst.left, (std::vector<float>{1.0f, 3.0f, 5.0f}));
    src.left[0] = 0.5f;
    dst.data.mixFrom(src.data, 1.0f, 0.0f);
    EXPECT_EQ(dst.left, (std::vector<float>{1.5f, 3.0f, 5.0f}));
}

TEST(AudioBuffer, FillFromInt16ConvertsInterleavedStereo)
{
    const int16_t samples[] = {32767, -32768, 0, 16384, -1, 1};
    AudioBuffer b;
    b.fillFromInt16(samples, 3);
    EXPECT_EQ(b.frames, 3);
    EXPECT_EQ(b.channels, 2);
    EXPECT_EQ(b.capacity(), 3);
    EXPECT_EQ(b.channel[0][0], 1.0f);
    EXPECT_LT(b.channel[1][0], -1.0f) << "-32768 is not clipped";
    EXPECT_FLOAT_EQ(b.channel[1][0], static_cast<float>(-32768 / 32767.0));
    EXPECT_EQ(b.channel[0][1], 0.0f);
    EXPECT_FLOAT_EQ(b.channel[1][1], static_cast<float>(16384 / 32767.0));
    EXPECT_FLOAT_EQ(b.channel[0][2], static_cast<float>(-1 / 32767.0));
    EXPECT_FLOAT_EQ(b.channel[1][2], static_cast<float>(1 / 32767.0));

    // A shorter fill reuses the arrays.
    float* const left = b.channel[0];
    b.fillFromInt16(samples, 1);
    EXPECT_EQ(b.frames, 1);
    EXPECT_EQ(b.channel[0], left);
}

// A minimal node to check the base's contract compiles as the other libraries use it.
class Constant final : public AudioSource
{
public:
    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        for (int32_t c = 0; c < into.channels; ++c)
        {
            for (int64_t i = 0; i < into.frames; ++i)
            {
                into.channel[c][i] = 0.5f;
            }
        }
        return true;
    }
    void prepare(uint32_t, uint32_t) override {}
};

} // namespace
