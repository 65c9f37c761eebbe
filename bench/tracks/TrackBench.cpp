// processBlock with four tracks playing 48 kHz stereo files at speed 0.8 and pitch +2, each through its
// own instance of the reference amp, block 64 (argument 1; argument 0 leaves the amps out). One iteration is
// one second of audio, so the CPU time of an iteration is the CPU time per second of audio.

#include "engine/Manager.h"
#include "engine/graph/MidiEvent.h"

#include <benchmark/benchmark.h>
#include <sndfile.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 64;
constexpr int64_t kFileSeconds = 20;

/** Twenty seconds of a guitar-like chord with a little noise, so that no stage sees silence. */
bool writeMusic(const std::string& path)
{
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr)
    {
        return false;
    }
    const int64_t frames = kFileSeconds * kRate;
    std::vector<float> data(static_cast<size_t>(frames) * 2);
    uint32_t noise = 12345;
    for (int64_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / kRate;
        const double decay = std::exp(-std::fmod(t, 2.0) * 1.5);
        double v = 0.0;
        for (double f : {110.0, 164.8, 220.0, 277.2, 329.6})
        {
            v += std::sin(2.0 * M_PI * f * t) * 0.12 * decay;
        }
        noise = noise * 1664525u + 1013904223u;
        const double n = (static_cast<double>(noise >> 8) / 16777216.0 - 0.5) * 0.01;
        data[static_cast<size_t>(2 * i)] = static_cast<float>(v + n);
        data[static_cast<size_t>(2 * i + 1)] = static_cast<float>(v * 0.9 - n);
    }
    const bool ok = sf_writef_float(file, data.data(), frames) == frames;
    sf_close(file);
    return ok;
}

void FourTracksSpeedPitchAmp(benchmark::State& state)
{
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "kv3-track-bench";
    std::filesystem::create_directories(folder);
    ::setenv("KV3_CONFIG_DIR", folder.c_str(), 1);
    ::setenv("KV3_VPA2_PATH", KV3_REFAMP, 1);
    const std::string path = (folder / "music.wav").string();
    if (!writeMusic(path))
    {
        state.SkipWithError("could not write the test file");
        return;
    }
    Manager manager;
    if (!manager.effects().isLoaded())
    {
        state.SkipWithError("the reference amp did not load");
        return;
    }
    manager.setFormat(kRate, kBlock);
    for (int32_t t = 0; t < Manager::kTracks; ++t)
    {
        manager.loadTrack(t, epiPath(path));
        Track& track = manager.trackNode(t);
        // Read by the calling thread: every block carries the file, and its decoding is in the figure.
        track.setDirectRead(true);
        track.setSpeed(0.8f);
        track.setPitch(2.0f);
        track.setEffectEnabled(state.range(0) != 0);
        track.rewire();
    }
    int running = 0;
    for (int32_t t = 0; t < Manager::kTracks; ++t)
    {
        running += manager.trackNode(t).effect().isEnabled() ? 1 : 0;
    }
    manager.sessionLength();
    manager.start();

    AudioBuffer in;
    AudioBuffer out;
    in.alloc(kBlock, 2);
    out.alloc(kBlock, 2);
    MidiEventBlock midi;
    AudioData input;
    AudioData output;
    input.adopt(in);
    output.adopt(out);
    input.frames = output.frames = kBlock;
    input.channels = output.channels = 2;
    const int64_t blocksPerSecond = kRate / kBlock;
    float peak = 0.0f;
    for (auto _ : state)
    {
        // Back to the start once a second of audio, as a loop would; the file lasts 25 s at speed 0.8.
        manager.locate(0);
        for (int64_t b = 0; b < blocksPerSecond; ++b)
        {
            in.silence();
            manager.processBlock(input, output, midi);
            peak = std::max(peak, output.peak());
        }
        benchmark::DoNotOptimize(peak);
    }
    state.counters["peak"] = peak;
    state.counters["amps"] = running;
    state.counters["x_realtime"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    manager.stop();
    std::filesystem::remove_all(folder);
}

} // namespace

// Argument 1: through the amp, as asked; 0: speed and pitch alone, for comparison.
BENCHMARK(FourTracksSpeedPitchAmp)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->MinTime(5.0);

BENCHMARK_MAIN();
