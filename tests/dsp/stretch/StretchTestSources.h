#pragma once

#include "dsp/stretch/IRAPCMSource.h"
#include "dsp/stretch/PstsHannTable.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <numbers>
#include <vector>

namespace stretchtest
{

/** A mono random-access source computed from a function of the frame index; silence before 0. */
class FunctionSource : public dsp::Stretch::IRAPCMSource
{
public:
    FunctionSource(int32_t rate, std::function<float(int64_t)> f) : rate_(rate), f_(std::move(f)) {}

    int64_t length() override { return 1LL << 40; }
    int32_t rate() override { return rate_; }
    int32_t channels() override { return 1; }
    int32_t fetch(float* destination, int64_t first, int64_t last) override
    {
        for (int64_t i = first; i <= last; ++i)
            destination[i - first] = i >= 0 ? f_(i) : 0.0f;
        return 0;
    }

private:
    int32_t rate_;
    std::function<float(int64_t)> f_;
};

/** Sample i has value i (channel 0) and -i (channel 1): any offset, seek or loop error shows exactly. */
inline float staircase(int64_t i, int32_t channel)
{
    return channel == 0 ? static_cast<float>(i) : -static_cast<float>(i);
}

/** A grain of level windowed exactly as the grain reader windows a grain of m samples. */
inline std::vector<float> hannGrain(int32_t m, float level = 1.0f)
{
    const float* table = dsp::Stretch::PstsHannTable::values();
    const int32_t length = dsp::Stretch::PstsHannTable::kLength;
    std::vector<float> g(static_cast<size_t>(m));
    double acc = 0.0;
    for (int32_t j = 0; j < m; ++j)
    {
        acc += static_cast<double>(length) / m;
        g[static_cast<size_t>(j)] = level * table[std::min(static_cast<int32_t>(acc + 0.5), length)];
    }
    return g;
}

} // namespace stretchtest
