#include "engine/graph/Interleaver.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using Block = testsupport::StereoBlock;

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
