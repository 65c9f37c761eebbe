#include "tests/engine/tracks/TrackTestFiles.h"

#include "tests/support/SoundFile.h"

#include <cstdlib>
#include <filesystem>

namespace tracktest
{

bool writeFile(const std::string& path, int32_t format, int32_t channels, int32_t rate, int64_t frames,
               float (*left)(int64_t), float (*right)(int64_t))
{
    std::vector<float> interleaved(static_cast<size_t>(frames) * static_cast<size_t>(channels));
    for (int64_t i = 0; i < frames; ++i)
    {
        interleaved[static_cast<size_t>(i * channels)] = left(i);
        if (channels > 1)
        {
            interleaved[static_cast<size_t>(i * channels + 1)] = right(i);
        }
    }
    return testsound::write(path, format, rate, channels, interleaved);
}

float stepValue(int64_t i)
{
    // Multiples of 2^-16 are exact in 24 bits; the range stays inside +-0.5.
    return static_cast<float>((i % 32768) - 16384) / 32768.0f;
}

float stepValueRight(int64_t i)
{
    return -stepValue(i);
}

float otherValue(int64_t i)
{
    return 0.75f + static_cast<float>(i % 4096) / 65536.0f;
}

float otherValueRight(int64_t i)
{
    return -otherValue(i);
}

} // namespace tracktest
