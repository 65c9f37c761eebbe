#include "audiofiles/AudioFileUtil.h"

#include "audiofiles/AudioFile.h"

#include <algorithm>

namespace audiofiles
{

int32_t durationUnits(int64_t frames, int32_t sampleRate)
{
    if (sampleRate <= 0)
        return 0;
    return static_cast<int32_t>(frames * 75 / sampleRate);
}

bool reserveFrames(Interleaver& interleaver, int64_t frames, int32_t channels)
{
    if (channels <= 0 || frames < 0)
        return false;
    if (interleaver.channels() != static_cast<uint32_t>(channels))
    {
        const int64_t past = static_cast<int64_t>(interleaver.capacity()) / channels + 1;
        frames = std::max(frames, past);
    }
    return interleaver.reserve(std::max<int64_t>(frames, 1), channels);
}

bool provideThroughRead(AudioFile& file, AudioBuffer& block, AudioData& request)
{
    int32_t wanted = request.channels != 0 ? request.channels : file.channels();
    wanted = std::clamp(wanted, 0, 2);
    // Grown only, so that steady reads of any size up to the largest so far never allocate.
    if (request.frames > block.capacity() || wanted != block.channels)
        block.alloc(request.frames, wanted);
    block.frames = request.frames;
    block.position = request.position;
    if (!file.read(block))
        return false;
    request.adopt(block);
    return true;
}

} // namespace audiofiles
