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

} // namespace
