#pragma once

#include "tests/support/SoundFile.h"
#include "tests/support/TempFolder.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tracktest
{

using testsupport::exists;
using testsupport::TempFolder;

using FileAudio = testsound::Stereo;

/** Reads a whole file; a mono file gives the same samples on both sides. */
inline FileAudio readFile(const std::string& path)
{
    return testsound::readStereo(path);
}

/** Writes a file of a libsndfile format from two functions of the frame index (right unused for mono). */
inline bool writeFile(const std::string& path, int32_t format, int32_t channels, int32_t rate, int64_t frames,
                      float (*left)(int64_t), float (*right)(int64_t))
{
    std::vector<float> interleaved;
    for (int64_t i = 0; i < frames; ++i)
    {
        interleaved.push_back(left(i));
        if (channels > 1)
        {
            interleaved.push_back(right(i));
        }
    }
    return testsound::write(path, format, rate, channels, interleaved);
}

/** A staircase exact in 24-bit files (multiples of 2^-16 inside +-0.5): a distinct value for each of 2^15
 * frames. */
inline float stepValue(int64_t i)
{
    return static_cast<float>((i % 32768) - 16384) / 32768.0f;
}
/** The staircase's negative, a second channel that tells the sides apart. */
inline float stepValueRight(int64_t i)
{
    return -stepValue(i);
}
/** A second staircase with an offset, for audio that must be told apart from stepValue. */
inline float otherValue(int64_t i)
{
    return 0.75f + static_cast<float>(i % 4096) / 65536.0f;
}
inline float otherValueRight(int64_t i)
{
    return -otherValue(i);
}

} // namespace tracktest
