#include "tests/engine/tracks/TrackTestFiles.h"

#include <sndfile.h>

#include <cstdlib>
#include <filesystem>

namespace tracktest
{

TempFolder::TempFolder(const std::string& name)
{
    const char* binary = std::getenv("KV3_BINARY_DIR");
    std::filesystem::path base = binary != nullptr ? binary : std::filesystem::temp_directory_path().string();
    base /= "tracktest";
    base /= name;
    std::error_code error;
    std::filesystem::remove_all(base, error);
    std::filesystem::create_directories(base, error);
    path_ = base.string();
}

TempFolder::~TempFolder()
{
    std::error_code error;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, error);
    std::filesystem::remove_all(path_, error);
}

FileAudio readFile(const std::string& path)
{
    FileAudio audio;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr)
    {
        return audio;
    }
    audio.rate = info.samplerate;
    audio.channels = info.channels;
    audio.format = info.format;
    std::vector<float> interleaved(static_cast<size_t>(info.frames) * static_cast<size_t>(info.channels));
    const sf_count_t got = sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    audio.left.resize(static_cast<size_t>(got));
    audio.right.resize(static_cast<size_t>(got));
    for (sf_count_t i = 0; i < got; ++i)
    {
        const size_t at = static_cast<size_t>(i) * static_cast<size_t>(info.channels);
        audio.left[static_cast<size_t>(i)] = interleaved[at];
        audio.right[static_cast<size_t>(i)] = interleaved[at + (info.channels > 1 ? 1 : 0)];
    }
    audio.ok = got == info.frames;
    return audio;
}

bool writeFile(const std::string& path, int32_t format, int32_t channels, int32_t rate, int64_t frames,
               float (*left)(int64_t), float (*right)(int64_t))
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr)
    {
        return false;
    }
    std::vector<float> interleaved(static_cast<size_t>(frames) * static_cast<size_t>(channels));
    for (int64_t i = 0; i < frames; ++i)
    {
        interleaved[static_cast<size_t>(i * channels)] = left(i);
        if (channels > 1)
        {
            interleaved[static_cast<size_t>(i * channels + 1)] = right(i);
        }
    }
    const bool written = sf_writef_float(file, interleaved.data(), frames) == frames;
    sf_close(file);
    return written;
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

bool exists(const std::string& path)
{
    std::error_code error;
    return std::filesystem::exists(path, error);
}

} // namespace tracktest
