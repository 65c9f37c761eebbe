#pragma once

#include "engine/graph/AudioData.h"
#include "engine/graph/Interleaver.h"

#include <cstdint>

class AudioFile;

/** Small helpers that the readers and the writer share. */
namespace audiofiles
{

/** A length in frames as seventy-fifths of a second, truncated to 32 bits; 0 for a rate of 0. */
int32_t durationUnits(int64_t frames, int32_t sampleRate);

/**
 * Makes room in an interleaver for frames of channels. The interleaver keeps its channel count when
 * a request fits in what it holds, so a request with another channel count is made large enough to
 * force a new store: the stride must always be the file's.
 */
bool reserveFrames(Interleaver& interleaver, int64_t frames, int32_t channels);

/**
 * provide() in terms of read(): sizes block for the request's frames and channels (the file's when
 * the request says 0, at most two), reads into it at the request's position and points the request
 * at it.
 */
bool provideThroughRead(AudioFile& file, AudioBuffer& block, AudioData& request);

} // namespace audiofiles
