#include "app/kv3/AudioOutput.h"

#include "audiofiles/AudioFileFormats.h"
#include "dsp/AudioResampler_DSP.h"
#include "engine/Manager.h"

#include <iostream>

namespace kv3cli
{

std::optional<int32_t> depthOf(const std::string& text)
{
    if (text == "16")
        return AudioFileFormats::k16Bit;
    if (text == "24")
        return AudioFileFormats::k24Bit;
    if (text == "32")
        return AudioFileFormats::k32Bit;
    if (text == "float")
        return AudioFileFormats::k32BitFloat;
    if (text == "double")
        return AudioFileFormats::k64BitFloat;
    return std::nullopt;
}

std::string resampleRefusal(const std::string& path, int32_t from, int32_t to,
                            const AudioResampler_DSP& resampler)
{
    const char* reason = resampler.refusal();
    return "can't resample " + path + " from " + std::to_string(from) + " Hz to " + std::to_string(to) +
           " Hz: " + (reason != nullptr ? reason : "the resampler refused");
}

void reportUnplayableTracks(Manager& manager)
{
    for (int32_t i = 0; i < Manager::kTracks; ++i)
    {
        Track& track = manager.trackNode(i);
        if (const char* why = track.playRefusal())
            std::cerr << "kv3: " << track.filePath() << " can't be played at " << manager.sampleRate()
                      << " Hz: " << why << "; its track stays silent\n";
    }
}

} // namespace kv3cli
