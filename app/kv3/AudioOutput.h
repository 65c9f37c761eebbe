#pragma once

// What the commands that write or play audio files (convert, stretch, render, play) share: the depth
// option and the reason a rate conversion is refused.

#include <cstdint>
#include <optional>
#include <string>

class AudioResampler_DSP;
class Manager;

namespace kv3cli
{

/** The depth value of a --depth option: 16, 24, 32, float or double. */
std::optional<int32_t> depthOf(const std::string& text);

/**
 * The message for a resampler that sourceChanged left not ready: "can't resample PATH from A Hz to
 * B Hz: " and the resampler's own reason.
 */
std::string resampleRefusal(const std::string& path, int32_t from, int32_t to,
                            const AudioResampler_DSP& resampler);

/**
 * Says on stderr, for each of the Manager's tracks whose file opened but can't be played at the
 * Manager's rate, which file and why: "kv3: PATH can't be played at N Hz: REASON; its track stays
 * silent".
 */
void reportUnplayableTracks(Manager& manager);

} // namespace kv3cli
