// Sequential streaming and random jumps through the reader chain and the streaming reader, for WAV,
// FLAC, MP3 (all read by libsndfile) and M4A (read by FFmpeg). A plain program: it prints one table.
//
//   audiofiles_streaming_bench [SECONDS]    length of the test files, 120 by default

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileStreaming.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sndfile.h>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;
constexpr int32_t kRate = 44100;

double since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

bool writeSource(const std::string& path, int format, int64_t frames)
{
    SF_INFO info{};
    info.channels = 2;
    info.samplerate = kRate;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        return false;
    std::vector<float> block(8192 * 2);
    for (int64_t at = 0; at < frames; at += 8192)
    {
        const int64_t count = std::min<int64_t>(8192, frames - at);
        for (int64_t i = 0; i < count; ++i)
        {
            const double t = static_cast<double>(at + i) / kRate;
            block[static_cast<size_t>(i * 2)] = static_cast<float>(0.4 * std::sin(2 * M_PI * 220 * t));
            block[static_cast<size_t>(i * 2 + 1)] = static_cast<float>(0.3 * std::sin(2 * M_PI * 330 * t));
        }
        sf_writef_float(file, block.data(), count);
    }
    sf_close(file);
    return true;
}

struct Figures
{
    double decodeRealtime = 0; // sequential reads of 4-second blocks, times real time
    double seekBlockMs = 0;    // a 4-second block read after a random seek, median
    int64_t underruns50 = 0;   // silent blocks in a minute of audio streamed at 50 times real time
    int64_t underruns200 = 0;  // and at 200 times
    double firstBlockMedianMs = 0;
    double firstBlockMaxMs = 0;
};

Figures measure(const std::string& path)
{
    Figures figures;
    AudioFileGuess file;
    if (!file.open(path))
        return figures;
    const auto length = static_cast<int64_t>(file.frames());
    const int64_t block = (4 * kRate / 4096 + 1) * 4096;
    AudioBuffer buffer;
    buffer.alloc(block, 2);

    auto start = Clock::now();
    for (int64_t at = 0; at + block <= length; at += block)
    {
        buffer.position = at;
        buffer.frames = block;
        file.read(buffer);
    }
    figures.decodeRealtime = static_cast<double>(length / block * block) / kRate / since(start);

    std::mt19937 random(11);
    std::vector<double> seeks;
    for (int i = 0; i < 20; ++i)
    {
        buffer.position = static_cast<int64_t>(random() % static_cast<uint64_t>(length - block));
        buffer.frames = block;
        start = Clock::now();
        file.read(buffer);
        seeks.push_back(since(start) * 1000);
    }
    std::sort(seeks.begin(), seeks.end());
    figures.seekBlockMs = seeks[seeks.size() / 2];
    file.close();

    AudioFileStreaming stream;
    if (!stream.open(path))
        return figures;
    AudioBuffer out;
    out.alloc(512, 2);
    // Sequential play at a fixed multiple of real time, as an offline render would pull: the
    // blocks that come back silent are counted (after the first refill). A block that underruns is
    // lost, as on the audio thread; the stream carries on after it.
    for (const double pace : {50.0, 200.0})
    {
        int64_t at = 0;
        const Clock::time_point deadline = Clock::now() + std::chrono::seconds(5);
        while (Clock::now() < deadline)
        {
            out.position = at;
            out.frames = 512;
            stream.read(out);
            if (!stream.underrun())
                break;
            at += 512;
            std::this_thread::sleep_for(std::chrono::microseconds(250));
        }
        int64_t underruns = 0;
        const int64_t from = at + 512;
        const int64_t until = std::min(length, from + 60 * static_cast<int64_t>(kRate));
        start = Clock::now();
        for (at = from; at + 512 <= until; at += 512)
        {
            std::this_thread::sleep_until(
                start + std::chrono::duration<double>(static_cast<double>(at - from) / (kRate * pace)));
            out.position = at;
            out.frames = 512;
            stream.read(out);
            underruns += stream.underrun() ? 1 : 0;
        }
        (pace < 100 ? figures.underruns50 : figures.underruns200) = underruns;
    }

    // Jumps: time from the first read at a new place to the first block that comes with data, the
    // audio side reading on at a fast pace meanwhile.
    std::vector<double> firsts;
    for (int i = 0; i < 30; ++i)
    {
        int64_t position = static_cast<int64_t>(random() % static_cast<uint64_t>(length - 10 * kRate));
        start = Clock::now();
        while (since(start) < 5.0)
        {
            out.position = position;
            out.frames = 512;
            stream.read(out);
            if (!stream.underrun())
                break;
            position += 512;
            std::this_thread::sleep_for(std::chrono::microseconds(250));
        }
        firsts.push_back(since(start) * 1000);
    }
    std::sort(firsts.begin(), firsts.end());
    figures.firstBlockMedianMs = firsts[firsts.size() / 2];
    figures.firstBlockMaxMs = firsts.back();
    return figures;
}

} // namespace

int main(int argc, char** argv)
{
    const int64_t seconds = argc > 1 ? std::max(30L, std::atol(argv[1])) : 120;
    char folderName[] = "/tmp/kv3-streaming-bench-XXXXXX";
    if (!mkdtemp(folderName))
        return 1;
    const std::string folder = folderName;
    const std::string wav = folder + "/a.wav";
    const std::string flac = folder + "/a.flac";
    const std::string mp3 = folder + "/a.mp3";
    const int64_t frames = seconds * kRate;
    bool good = writeSource(wav, SF_FORMAT_WAV | SF_FORMAT_PCM_16, frames) &&
                writeSource(flac, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, frames);
    const std::string encode = "ffmpeg -nostdin -hide_banner -loglevel error -y -i '" + wav +
                               "' -c:a libmp3lame -b:a 192k '" + mp3 + "'";
    good = good && std::system(encode.c_str()) == 0;
    // AAC in MP4 is read by the fall-back reader: its figures show FFmpeg's side of the chain.
    const std::string m4a = folder + "/a.m4a";
    const std::string encodeAac =
        "ffmpeg -nostdin -hide_banner -loglevel error -y -i '" + wav + "' -c:a aac -b:a 192k '" + m4a + "'";
    good = good && std::system(encodeAac.c_str()) == 0;
    if (!good)
    {
        std::fprintf(stderr, "could not make the test files in %s\n", folder.c_str());
        std::filesystem::remove_all(folder);
        return 1;
    }
    std::printf("%lld s of 44.1 kHz stereo; 4-second disk blocks (180,224 frames)\n",
                static_cast<long long>(seconds));
    std::printf("%-5s %14s %14s %16s %17s %18s %16s\n", "file", "decode x real", "seek+block ms",
                "underruns @50x", "underruns @200x", "first block ms med", "first block max");
    for (const auto& [name, path] :
         {std::pair{"WAV", wav}, std::pair{"FLAC", flac}, std::pair{"MP3", mp3}, std::pair{"M4A", m4a}})
    {
        const Figures f = measure(path);
        std::printf("%-5s %14.0f %14.2f %16lld %17lld %18.1f %16.1f\n", name, f.decodeRealtime, f.seekBlockMs,
                    static_cast<long long>(f.underruns50), static_cast<long long>(f.underruns200),
                    f.firstBlockMedianMs, f.firstBlockMaxMs);
        std::fflush(stdout);
    }
    std::filesystem::remove_all(folder);
    return 0;
}
