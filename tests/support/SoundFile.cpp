#include "tests/support/SoundFile.h"

#include <sndfile.h>

namespace testsound
{

std::vector<float> Sound::channel(int32_t index) const
{
    std::vector<float> out;
    if (index < 0 || index >= channels)
    {
        return out;
    }
    out.reserve(static_cast<size_t>(frames()));
    for (size_t i = static_cast<size_t>(index); i < samples.size(); i += static_cast<size_t>(channels))
    {
        out.push_back(samples[i]);
    }
    return out;
}

Sound read(const std::string& path)
{
    Sound sound;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr)
    {
        return sound;
    }
    sound.rate = info.samplerate;
    sound.channels = info.channels;
    sound.format = info.format;
    sound.samples.resize(static_cast<size_t>(info.frames * info.channels));
    const sf_count_t got = sf_readf_float(file, sound.samples.data(), info.frames);
    sound.samples.resize(static_cast<size_t>(got * info.channels));
    sf_close(file);
    sound.ok = got == info.frames;
    return sound;
}

bool write(const std::string& path, int32_t format, int32_t rate, int32_t channels,
           const std::vector<float>& interleaved)
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
    const auto frames = static_cast<sf_count_t>(interleaved.size() / static_cast<size_t>(channels));
    const bool ok = sf_writef_float(file, interleaved.data(), frames) == frames;
    sf_close(file);
    return ok;
}

Stereo readStereo(const std::string& path)
{
    const Sound sound = read(path);
    Stereo stereo;
    static_cast<FileInfo&>(stereo) = sound;
    stereo.left = sound.channel(0);
    stereo.right = sound.channel(sound.channels > 1 ? 1 : 0);
    return stereo;
}

bool writeStereo(const std::string& path, int32_t format, int32_t rate, const std::vector<float>& left,
                 const std::vector<float>& right)
{
    std::vector<float> interleaved;
    interleaved.reserve(2 * left.size());
    for (size_t i = 0; i < left.size(); ++i)
    {
        interleaved.push_back(left[i]);
        interleaved.push_back(right[i]);
    }
    return write(path, format, rate, 2, interleaved);
}

} // namespace testsound
