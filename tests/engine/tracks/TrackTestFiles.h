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

/**
 * Writes a file of the given libsndfile format from two functions of the frame index (right is
 * ignored for one channel). @return false when libsndfile refuses
 */
bool writeFile(const std::string& path, int32_t format, int32_t channels, int32_t rate, int64_t frames,
               float (*left)(int64_t), float (*right)(int64_t));

/** A staircase that is exact in 24-bit files: a distinct value for each of 2^15 frames. */
float stepValue(int64_t i);
/** The staircase's negative, a second channel that tells the sides apart. */
float stepValueRight(int64_t i);
/** A second staircase with an offset, for audio that must be told apart from stepValue. */
float otherValue(int64_t i);
float otherValueRight(int64_t i);

} // namespace tracktest
