#include "audiofiles/AudioFileFormats.h"

#include <sndfile.h>
#include <strings.h>

namespace
{

struct ContainerRow
{
    const char* label;
    const char* extension;
    int32_t major;
};

constexpr ContainerRow kContainers[] = {
    {"WAVE", "wav", SF_FORMAT_WAV},
    {"AIFF", "aiff", SF_FORMAT_AIFF},
    {"CAF", "caf", SF_FORMAT_CAF},
    {nullptr, "sd2", SF_FORMAT_SD2},
};
constexpr int32_t kContainerCount = 4;

struct DepthRow
{
    const char* label;
    int32_t subformat;
};

constexpr DepthRow kDepths[] = {
    {"16 bit", SF_FORMAT_PCM_16},      {"24 bit", SF_FORMAT_PCM_24},       {"32 bit", SF_FORMAT_PCM_32},
    {"32 bit float", SF_FORMAT_FLOAT}, {"64 bit float", SF_FORMAT_DOUBLE},
};
constexpr int32_t kDepthCount = 5;

bool depthAllowed(int32_t container, int32_t depth)
{
    if (container < 0 || container >= kContainerCount || depth < 0 || depth >= kDepthCount)
        return false;
    return container != AudioFileFormats::kSd2 || depth <= AudioFileFormats::k32Bit;
}

} // namespace

std::vector<AudioFileFormats::Choice> AudioFileFormats::containers()
{
    return {{kWave, kContainers[0].label}, {kAiff, kContainers[1].label}, {kCaf, kContainers[2].label}};
}

std::vector<AudioFileFormats::Choice> AudioFileFormats::depths(int32_t container)
{
    std::vector<Choice> list;
    for (int32_t depth = 0; depth < kDepthCount; ++depth)
        if (depthAllowed(container, depth))
            list.push_back({depth, kDepths[depth].label});
    return list;
}

std::vector<AudioFileFormats::Choice> AudioFileFormats::sampleRates()
{
    return {{44100, "44.1 kHz"}, {48000, "48 kHz"},     {88200, "88.2 kHz"},
            {96000, "96 kHz"},   {176400, "176.4 kHz"}, {192000, "192 kHz"}};
}

const char* AudioFileFormats::extensionOf(int32_t container)
{
    if (container < 0 || container >= kContainerCount)
        return "raw";
    return kContainers[container].extension;
}

void AudioFileFormats::extension(int32_t container, epiPath& path)
{
    path.replaceExtension("raw");
    if (container >= 0 && container < kContainerCount)
        path.replaceExtension(kContainers[container].extension);
}

int32_t AudioFileFormats::formatCode(int32_t container, int32_t depth)
{
    if (!depthAllowed(container, depth))
        return SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    return kContainers[container].major | kDepths[depth].subformat;
}

int32_t AudioFileFormats::containerOfExtension(const char* extension)
{
    if (!extension)
        return -1;
    if (strcasecmp(extension, "wav") == 0 || strcasecmp(extension, "wave") == 0)
        return kWave;
    if (strcasecmp(extension, "aif") == 0 || strcasecmp(extension, "aiff") == 0)
        return kAiff;
    if (strcasecmp(extension, "caf") == 0)
        return kCaf;
    if (strcasecmp(extension, "sd2") == 0)
        return kSd2;
    return -1;
}
