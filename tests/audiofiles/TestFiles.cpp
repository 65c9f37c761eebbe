#include "TestFiles.h"
#include "tests/support/Program.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sndfile.h>
#include <sstream>

namespace testfiles
{

static int32_t staircaseStep(int64_t frame, int32_t channel)
{
    return static_cast<int32_t>((frame * 7919 + channel * 104729) % 255) - 127;
}

float staircase(int64_t frame, int32_t channel)
{
    return static_cast<float>(staircaseStep(frame, channel)) / 128.0f;
}

int64_t wrongFrames(const AudioData& block, int32_t channels)
{
    int64_t wrong = 0;
    for (int32_t c = 0; c < channels; ++c)
        for (int64_t i = 0; i < block.frames; ++i)
            wrong += block.channel[c][i] != staircase(block.position + i, c);
    return wrong;
}

void fillWith(AudioBuffer& buffer, int64_t frames, int32_t channels, float value, int64_t position)
{
    buffer.alloc(frames, channels);
    buffer.frames = frames;
    buffer.position = position;
    for (int32_t c = 0; c < channels; ++c)
        std::fill(buffer.channel[c], buffer.channel[c] + frames, value);
}

namespace
{

/** Writes a file with libsndfile in blocks, sample(frame, channel) by sample, through `write`. */
template <typename Sample, typename Write>
bool writeBlocks(const std::string& path, int format, int32_t channels, int32_t rate, int64_t frames,
                 const std::function<Sample(int64_t, int32_t)>& sample, Write write)
{
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        return false;
    std::vector<Sample> block(static_cast<size_t>(4096 * channels));
    bool good = true;
    for (int64_t at = 0; at < frames && good; at += 4096)
    {
        const int64_t count = std::min<int64_t>(4096, frames - at);
        for (int64_t i = 0; i < count; ++i)
            for (int32_t c = 0; c < channels; ++c)
                block[static_cast<size_t>(i * channels + c)] = sample(at + i, c);
        good = write(file, block.data(), count) == count;
    }
    sf_close(file);
    return good;
}

} // namespace

bool writeStaircase(const std::string& path, int format, int32_t channels, int32_t rate, int64_t frames)
{
    // Integers for PCM, where libsndfile shifts them exactly; floats for the float formats, whose
    // integer path scales by a factor that is not a power of two.
    const int subformat = format & SF_FORMAT_SUBMASK;
    if (subformat == SF_FORMAT_FLOAT || subformat == SF_FORMAT_DOUBLE)
        return writeSignal(path, format, channels, rate, frames, staircase);
    return writeBlocks<int>(
        path, format, channels, rate, frames,
        [](int64_t i, int32_t c) { return staircaseStep(i, c) * (1 << 24); }, sf_writef_int);
}

bool writeSignal(const std::string& path, int format, int32_t channels, int32_t rate, int64_t frames,
                 const std::function<float(int64_t, int32_t)>& signal)
{
    return writeBlocks<float>(path, format, channels, rate, frames, signal, sf_writef_float);
}

float music(int64_t frame, int32_t channel, int32_t rate)
{
    const double t = static_cast<double>(frame) / rate;
    const double f1 = channel == 0 ? 440.0 : 554.37;
    const double f2 = channel == 0 ? 1318.5 : 987.77;
    // A slow amplitude swell makes every stretch of the signal different from its neighbours.
    const double swell = 0.6 + 0.3 * std::sin(2.0 * M_PI * 0.7 * t);
    return static_cast<float>(swell *
                              (0.5 * std::sin(2.0 * M_PI * f1 * t) + 0.25 * std::sin(2.0 * M_PI * f2 * t)));
}

bool writeMusic(const std::string& path, int format, int32_t channels, int32_t rate, int64_t frames)
{
    return writeSignal(path, format, channels, rate, frames,
                       [rate](int64_t i, int32_t c) { return music(i, c, rate); });
}

std::vector<float> musicChannel(int32_t channel, int32_t rate, int64_t frames)
{
    std::vector<float> samples(static_cast<size_t>(frames));
    for (int64_t i = 0; i < frames; ++i)
        samples[static_cast<size_t>(i)] = music(i, channel, rate);
    return samples;
}

bool encode(const std::string& wav, const std::string& out, const std::string& codec,
            const std::string& extra)
{
    return testsupport::runProgram("ffmpeg", "-nostdin -hide_banner -loglevel error -y -i '" + wav +
                                                 "' -c:a " + codec + " -b:a 192k " + extra + " '" + out + "'")
               .exit == 0;
}

bool writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    return static_cast<bool>(out);
}

std::string readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

} // namespace testfiles
