#include "engine/graph/Interleaver.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

TEST(Interleaver, InterleaveAndDeinterleaveRoundTrip)
{
    std::vector<float> left{0, 1, 2, 3}, right{10, 11, 12, 13};
    AudioData src;
    src.channel[0] = left.data();
    src.channel[1] = right.data();
    src.channels = 2;
    src.frames = 4;
    src.spare = true;

    Interleaver il;
    ASSERT_TRUE(il.reserve(4, 2));
    il.interleave(src);
    EXPECT_TRUE(il.spare());
    const std::vector<float> stored(il.data(), il.data() + 8);
    EXPECT_EQ(stored, (std::vector<float>{0, 10, 1, 11, 2, 12, 3, 13}));

    std::vector<float> l2(4, -1.0f), r2(4, -1.0f);
    AudioData dst;
    dst.channel[0] = l2.data();
    dst.channel[1] = r2.data();
    dst.channels = 2;
    dst.frames = 4;
    il.deinterleave(dst);
    EXPECT_EQ(l2, left);
    EXPECT_EQ(r2, right);
}

TEST(Interleaver, NothingRunsForZeroOrNegativeFramesAndNothingPastCapacity)
{
    Interleaver il;
    ASSERT_TRUE(il.reserve(2, 2));
    std::vector<float> a{1, 2, 3, 4}, b{5, 6, 7, 8};
    AudioData src;
    src.channel[0] = a.data();
    src.channel[1] = b.data();
    src.channels = 2;
    src.frames = 0;
    il.interleave(src);
    EXPECT_EQ(std::vector<float>(il.data(), il.data() + 4), (std::vector<float>{0, 0, 0, 0}));
    src.frames = -3;
    il.interleave(src);
    EXPECT_EQ(std::vector<float>(il.data(), il.data() + 4), (std::vector<float>{0, 0, 0, 0}));

    // Four frames into a store of two: only two are written (the sanitizer run catches an overrun).
    src.frames = 4;
    il.interleave(src);
    EXPECT_EQ(std::vector<float>(il.data(), il.data() + 4), (std::vector<float>{1, 5, 2, 6}));
    std::vector<float> l(4, -1.0f), r(4, -1.0f);
    AudioData dst;
    dst.channel[0] = l.data();
    dst.channel[1] = r.data();
    dst.channels = 2;
    dst.frames = 4;
    il.deinterleave(dst);
    EXPECT_EQ(l, (std::vector<float>{1, 2, -1, -1}));
}

} // namespace
