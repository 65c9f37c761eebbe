#pragma once

#include "engine/graph/AudioData.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace testsupport
{

/** Two channels of frames in vectors of their own, and a descriptor over them at a position. */
struct StereoBlock
{
    explicit StereoBlock(int64_t frames, int64_t position = 0, float fill = 0.0f)
        : left(static_cast<std::size_t>(frames), fill), right(static_cast<std::size_t>(frames), fill)
    {
        data.channel[0] = left.data();
        data.channel[1] = right.data();
        data.channels = 2;
        data.frames = frames;
        data.position = position;
    }
    StereoBlock(const StereoBlock&) = delete;
    StereoBlock& operator=(const StereoBlock&) = delete;

    std::vector<float> left;
    std::vector<float> right;
    AudioData data;
};

} // namespace testsupport
