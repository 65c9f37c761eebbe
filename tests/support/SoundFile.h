#pragma once

#include <cstdint>
#include <string>
#include <vector>

/** Test audio files written and read back with libsndfile itself, apart from the program's readers. */
namespace testsound
{

/** What libsndfile says of a file, and whether it read all of it. */
struct FileInfo
{
    bool ok = false;
    int32_t rate = 0;
    int32_t channels = 0;
    int32_t format = 0;
};

/** A file's content as libsndfile reads it, interleaved, with its format. */
struct Sound : FileInfo
{
    std::vector<float> samples;

    int64_t frames() const { return channels > 0 ? static_cast<int64_t>(samples.size()) / channels : 0; }
    /** One channel's samples; empty for a channel the file doesn't have. */
    std::vector<float> channel(int32_t index) const;
};

/** A file's two sides as libsndfile reads them; a mono file gives the same samples on both. */
struct Stereo : FileInfo
{
    std::vector<float> left;
    std::vector<float> right;

    int64_t frames() const { return static_cast<int64_t>(left.size()); }
};

/** Reads the whole file; `ok` is false when libsndfile can't open it or reads fewer frames than it has. */
Sound read(const std::string& path);

/** Writes `interleaved` as a file of the given libsndfile format. @return whether every frame was written */
bool write(const std::string& path, int32_t format, int32_t rate, int32_t channels,
           const std::vector<float>& interleaved);

/** Reads the whole file as two sides. */
Stereo readStereo(const std::string& path);

/** Writes two sides of equal length as a stereo file of the given format. */
bool writeStereo(const std::string& path, int32_t format, int32_t rate, const std::vector<float>& left,
                 const std::vector<float>& right);

} // namespace testsound
