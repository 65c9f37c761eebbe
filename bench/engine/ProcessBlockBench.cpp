// Cost of the engine's block entry: Manager::processBlock with all five mixer strips playing, at the
// block sizes devices commonly use. The strips hand over a ready block by reference, as a source
// serving from its buffers does, so the figure is that of the transport, the input gain and the mixer.

#include "engine/Manager.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>

namespace
{

class ReadyTrack final : public TrackSource
{
public:
    explicit ReadyTrack(float frequency) : frequency_(frequency) {}

    bool provide(AudioData& request) override
    {
        if (request.frames > block_.capacity())
        {
            return false;
        }
        block_.adoptRange(request);
        request.adopt(block_);
        return true;
    }
    bool read(AudioData&) override { return false; }
    void prepare(uint32_t sampleRate, uint32_t blockSize) override
    {
        block_.alloc(blockSize, 2);
        for (uint32_t i = 0; i < blockSize; ++i)
        {
            const float v = 0.2f * std::sin(6.2831853f * frequency_ * static_cast<float>(i) /
                                            static_cast<float>(sampleRate));
            block_.channel[0][i] = v;
            block_.channel[1][i] = -v;
        }
    }
    bool processInput(AudioData&, AudioData&) override { return false; }
    void setPlaying(bool) override {}
    int64_t length() override { return 441000; }
    int64_t offset() override { return 0; }
    void setOffset(int64_t) override {}
    void setSpeedRatio(float) override {}

private:
    float frequency_;
    AudioBuffer block_;
};

void BM_ProcessBlockFiveStrips(benchmark::State& state)
{
    const auto frames = static_cast<uint32_t>(state.range(0));
    ReadyTrack tracks[AudioMixer::kInputs] = {ReadyTrack(110.0f), ReadyTrack(220.0f), ReadyTrack(330.0f),
                                              ReadyTrack(440.0f), ReadyTrack(550.0f)};
    Manager manager;
    for (int i = 0; i < AudioMixer::kInputs; ++i)
    {
        manager.setTrackSource(i, &tracks[i]);
        manager.mixerInput(i).setPan(static_cast<float>(i - 2) / 4.0f);
    }
    manager.setFormat(48000, frames);
    manager.sessionLength();
    manager.setLoopStart(0);
    manager.setLoopEnd(48000 * 4);
    manager.setLoopEnabled(true);
    manager.start();

    AudioBuffer in, out;
    in.alloc(frames, 2);
    out.alloc(frames, 2);
    MidiEventBlock midi;
    for (auto _ : state)
    {
        AudioData input;
        input.channel[0] = in.channel[0];
        input.channel[1] = in.channel[1];
        input.channels = 2;
        input.frames = frames;
        AudioData output = input;
        output.channel[0] = out.channel[0];
        output.channel[1] = out.channel[1];
        manager.processBlock(input, output, midi);
        benchmark::DoNotOptimize(out.channel[0][frames - 1]);
        benchmark::ClobberMemory();
    }
    // Seconds per frame, shown by the library with an SI prefix (n for nanoseconds).
    state.counters["per_frame"] =
        benchmark::Counter(static_cast<double>(frames),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK(BM_ProcessBlockFiveStrips)->Arg(32)->Arg(64)->Arg(256)->Arg(1024);

} // namespace

BENCHMARK_MAIN();
