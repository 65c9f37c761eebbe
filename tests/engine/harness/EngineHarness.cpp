#include "tests/engine/harness/EngineHarness.h"

#include <algorithm>
#include <random>

namespace enginetest
{

EngineHarness::EngineHarness(Manager& manager, uint32_t sampleRate, uint32_t maxBlock, bool tellFormat)
    : manager_(manager), maxBlock_(maxBlock)
{
    in_.alloc(maxBlock, 2);
    out_.alloc(maxBlock, 2);
    if (tellFormat)
    {
        manager_.setFormat(sampleRate, maxBlock);
    }
}

BlockRecord EngineHarness::runBlock(int64_t frames)
{
    frames = std::clamp<int64_t>(frames, 0, maxBlock_);
    // The device's buffers, wrapped for this block only, as the callback does.
    AudioData input = in_, output = out_;
    input.frames = output.frames = frames;
    input.position = output.position = 0;
    // A real device hands over whatever its buffers last held.
    for (int64_t i = 0; i < frames; ++i)
    {
        input.channel[0][i] = input.channel[1][i] = 0.0f;
        output.channel[0][i] = output.channel[1][i] = 0.5f;
    }
    if (fillInput)
    {
        fillInput(input, deviceFrames_);
    }

    manager_.processBlock(input, output, midi_);
    midi_.count = 0;

    BlockRecord record{output.position, frames};
    if (recordBlocks)
    {
        blocks.push_back(record);
    }
    if (recordOutput)
    {
        left.insert(left.end(), output.channel[0], output.channel[0] + frames);
        right.insert(right.end(), output.channel[1], output.channel[1] + frames);
    }
    deviceFrames_ += frames;
    return record;
}

void EngineHarness::run(int64_t total, int64_t blockSize)
{
    while (total > 0)
    {
        const int64_t n = std::min(total, blockSize);
        runBlock(n);
        total -= n;
    }
}

void EngineHarness::runSequence(const std::vector<int64_t>& sizes)
{
    for (int64_t n : sizes)
    {
        runBlock(n);
    }
}

std::vector<int64_t> EngineHarness::randomBlocks(uint32_t seed, int64_t total, int64_t maxBlock)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int64_t> size(1, std::max<int64_t>(maxBlock, 1));
    std::vector<int64_t> sizes;
    while (total > 0)
    {
        const int64_t n = std::min(total, size(rng));
        sizes.push_back(n);
        total -= n;
    }
    return sizes;
}

void EngineHarness::staircaseInput(AudioData& input, int64_t deviceFrame)
{
    for (int64_t i = 0; i < input.frames; ++i)
    {
        const float v = static_cast<float>((deviceFrame + i) % 32768) / 32768.0f;
        input.channel[0][i] = v;
        input.channel[1][i] = -v;
    }
}

} // namespace enginetest
