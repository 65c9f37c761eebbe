#include "tests/engine/harness/TestTrack.h"

#include <algorithm>

namespace enginetest
{

TestTrack::TestTrack(int64_t maxFrames)
{
    own_.alloc(maxFrames, 2);
}

float TestTrack::valueAt(int64_t t)
{
    return static_cast<float>(((t % 32768) + 32768) % 32768) / 32768.0f;
}

void TestTrack::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    preparedRate = sampleRate;
    if (blockSize > own_.capacity())
    {
        own_.alloc(blockSize, 2);
    }
}

bool TestTrack::provide(AudioData& request)
{
    provides.fetch_add(1, std::memory_order_relaxed);
    lastPosition.store(request.position, std::memory_order_relaxed);
    if (armed_.load(std::memory_order_relaxed) || request.frames > own_.capacity())
    {
        return false;
    }
    own_.adoptRange(request);
    if (playing_.load(std::memory_order_relaxed))
    {
        const float level = level_.load(std::memory_order_relaxed);
        for (int64_t i = 0; i < own_.frames; ++i)
        {
            const float v = valueAt(request.position + i) * level;
            own_.channel[0][i] = v;
            own_.channel[1][i] = -v;
        }
    }
    else
    {
        own_.silence();
    }
    request.adopt(own_);
    return true;
}

bool TestTrack::processInput(AudioData& input, AudioData& output)
{
    liveCalls.fetch_add(1, std::memory_order_relaxed);
    if (!armed_.load(std::memory_order_relaxed) || input.frames > own_.capacity())
    {
        return false;
    }
    own_.adoptRange(input);
    own_.copyFrom(input);
    output.adopt(own_);
    return true;
}

} // namespace enginetest
