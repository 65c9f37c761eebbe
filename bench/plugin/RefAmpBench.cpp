// CPU time the reference amp takes for one second of stereo audio at 48 kHz, in blocks of 64
// frames (the smallest block a player is likely to run). The CPU time per iteration is the time
// for one second: 10 ms would be 1% of one core.

#include "plugins/refamp/RefAmp.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace
{

void processSecond(benchmark::State& state)
{
    constexpr int kRate = 48000;
    const int block = static_cast<int>(state.range(0));
    const int program = static_cast<int>(state.range(1));
    refamp::RefAmp amp;
    amp.setSampleRate(kRate);
    amp.selectProgram(program);
    amp.reset();
    // A guitar-like input: a decaying chord of three partials, repeated.
    std::vector<float> left(kRate), right(kRate);
    for (int i = 0; i < kRate; ++i)
    {
        const double t = static_cast<double>(i % 24000) / kRate;
        const double v = std::exp(-3.0 * t) * (0.2 * std::sin(2 * 3.14159265 * 110.0 * t) +
                                               0.1 * std::sin(2 * 3.14159265 * 165.0 * t) +
                                               0.05 * std::sin(2 * 3.14159265 * 220.5 * t));
        left[static_cast<std::size_t>(i)] = right[static_cast<std::size_t>(i)] = static_cast<float>(v);
    }
    std::vector<float> outL(kRate), outR(kRate);
    for (auto _ : state)
    {
        for (int done = 0; done < kRate; done += block)
        {
            const float* in[2] = {left.data() + done, right.data() + done};
            float* out[2] = {outL.data() + done, outR.data() + done};
            amp.process(in, out, std::min(block, kRate - done));
        }
        benchmark::DoNotOptimize(outL.data());
        benchmark::ClobberMemory();
    }
    state.SetLabel(refamp::programName(program));
}

} // namespace

// Block 64 with each program; then the lead at larger blocks.
BENCHMARK(processSecond)
    ->Args({64, 0})
    ->Args({64, 1})
    ->Args({64, 2})
    ->Args({256, 2})
    ->Args({1024, 2})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

BENCHMARK_MAIN();
