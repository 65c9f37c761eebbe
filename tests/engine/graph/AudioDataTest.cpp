#include "engine/graph/AudioData.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using Block = testsupport::StereoBlock;

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

} // namespace
