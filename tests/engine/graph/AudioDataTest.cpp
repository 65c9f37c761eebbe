#include "engine/graph/AudioData.h"
#include "engine/graph/Interleaver.h"
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

    AudioData withFlag;
    withFlag.duplicateMono = true;
    withFlag.adopt(src);
    EXPECT_EQ(withFlag.channels, 2);
    EXPECT_EQ(withFlag.channel[1], mono.data());
    AudioData without;
    without.adopt(src);
    EXPECT_EQ(without.channels, 1);
    EXPECT_EQ(without.channel[1], nullptr);

    // A stereo source is adopted as it is, flag or not.
    Block stereo(4);
    withFlag.adopt(stereo.data);
    EXPECT_EQ(withFlag.channel[1], stereo.right.data());
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
        EXPECT_FLOAT_EQ(dst.left[3], c.left) << "gain " << c.gain << " pan " << c.pan;
        EXPECT_FLOAT_EQ(dst.right[3], c.right) << "gain " << c.gain << " pan " << c.pan;
    }
}

std::vector<float> stored(const Interleaver& il, size_t count)
{
    return std::vector<float>(il.data(), il.data() + count);
}

TEST(Interleaver, RoundTripsAndWritesNothingForNoFramesNorPastCapacity)
{
    Block src(4);
    src.left = {0, 1, 2, 3};
    src.right = {10, 11, 12, 13};
    src.data.spare = true;
    Interleaver il;
    ASSERT_TRUE(il.reserve(4, 2));
    il.interleave(src.data);
    EXPECT_TRUE(il.spare());
    EXPECT_EQ(stored(il, 8), (std::vector<float>{0, 10, 1, 11, 2, 12, 3, 13}));
    Block dst(4, 0, -1.0f);
    il.deinterleave(dst.data);
    EXPECT_EQ(dst.left, src.left);
    EXPECT_EQ(dst.right, src.right);

    // Four frames into a store of two: only two are written (the sanitizer run catches an overrun).
    Interleaver small;
    ASSERT_TRUE(small.reserve(2, 2));
    for (int64_t frames : {0, -3})
    {
        src.data.frames = frames;
        small.interleave(src.data);
        EXPECT_EQ(stored(small, 4), (std::vector<float>{0, 0, 0, 0})) << frames;
    }
    src.data.frames = 4;
    small.interleave(src.data);
    EXPECT_EQ(stored(small, 4), (std::vector<float>{0, 10, 1, 11}));
    Block back(4, 0, -1.0f);
    small.deinterleave(back.data);
    EXPECT_EQ(back.left, (std::vector<float>{0, 1, -1, -1}));
}

} // namespace
