#pragma once

#include "engine/graph/AudioData.h"
#include "tests/support/TempFolder.h"

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace testfiles
{

using TempDir = testsupport::TempFolder;

/**
 * The test signal of PCM files: sample (frame, channel) is k / 128 with k in -127..127, spread so
 * that any offset, swap or seek error shows. Exact at every depth from 8 bits up.
 */
float staircase(int64_t frame, int32_t channel);
/** The samples of the first `channels` channels of a block that differ from the staircase at its position. */
int64_t wrongFrames(const AudioData& block, int32_t channels);

/** Sizes a block at a position, filled with a value no reader writes, to see what a read leaves alone. */
void fillWith(AudioBuffer& buffer, int64_t frames, int32_t channels, float value, int64_t position = 0);

/**
 * Writes a file with libsndfile itself: the staircase, through libsndfile's integer interface so
 * that every depth holds it exactly.
 * @return false when libsndfile refuses the format
 */
bool writeStaircase(const std::string& path, int format, int32_t channels, int32_t rate, int64_t frames);

/** Writes a file of floats from a generator (frame, channel) -> sample. */
bool writeSignal(const std::string& path, int format, int32_t channels, int32_t rate, int64_t frames,
                 const std::function<float(int64_t, int32_t)>& signal);

/** A signal with structure at every scale: two sines per channel, below full scale. */
float music(int64_t frame, int32_t channel, int32_t rate);
/** Writes `frames` of the music as a file of floats (or of the format's own samples). */
bool writeMusic(const std::string& path, int format, int32_t channels, int32_t rate, int64_t frames);
/** One channel of the music, frames [0, frames). */
std::vector<float> musicChannel(int32_t channel, int32_t rate, int64_t frames);

/** Encodes a WAV file with the ffmpeg command line; codec "libmp3lame" or "aac". */
bool encode(const std::string& wav, const std::string& out, const std::string& codec,
            const std::string& extra = "");

/** Joins the printed form of its arguments: a file name or a trace line. */
template <typename... Parts> std::string join(const Parts&... parts)
{
    std::ostringstream out;
    (out << ... << parts);
    return out.str();
}

/** Writes bytes to a file. */
bool writeBytes(const std::string& path, const std::string& bytes);
/** Reads a whole file's bytes. */
std::string readBytes(const std::string& path);

} // namespace testfiles
