#include "dsp/stretch/PstsGrainReader.h"

#include "dsp/stretch/PstsHannTable.h"
#include "dsp/stretch/PstsInterpolate.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace dsp::Stretch
{

namespace
{

// Frames fetched past the grain's end: the interpolation window reaches two frames beyond the last
// position, and a source that leaves its final frame alone must not cost a used one.
constexpr int64_t kTail = 4;

// How many positions x = from + k * step (k = 0, 1, ...) lie below `to`, at most room.
int32_t countSteps(double from, double to, double step, int32_t room)
{
    if (!(to > from) || room <= 0)
    {
        return 0;
    }
    const double span = std::ceil((to - from) / step);
    auto m = static_cast<int32_t>(std::min(span, static_cast<double>(room)));
    while (m > 0 && from + static_cast<double>(m - 1) * step >= to)
    {
        --m;
    }
    while (m < room && from + static_cast<double>(m) * step < to)
    {
        ++m;
    }
    return m;
}

// Writes m windowed samples at x = from + k * step, in frames of the source; buf holds the frames from
// `first` on. Each x is worked out from its own k rather than by adding up the steps, so that no sample
// waits for the one before.
void interpolate(const float* buf, int64_t first, double from, double step, float* out, int32_t m,
                 const float* window)
{
    if (step == 1.0 && from == std::floor(from))
    {
        // Whole frames at whole steps: the curve passes through the frames themselves.
        const float* src = buf + (static_cast<int64_t>(from) - first);
        for (int32_t k = 0; k < m; ++k)
        {
            out[k] = src[k] * window[k];
        }
        return;
    }
    interpolateRun(buf, from - static_cast<double>(first), step, out, m, 0.0f, window);
}

} // namespace

PstsGrainReader::PstsGrainReader(int32_t grainCapacity, PstsScratch& scratch)
    : grainCapacity_(std::max(grainCapacity, 1)), scratch_(&scratch), hann_(PstsHannTable::values()),
      window_(std::make_unique<float[]>(static_cast<size_t>(std::max(grainCapacity, 1))))
{
    scratch.grow(grainCapacity + kGuard);
    for (utils::BiquadFilter& f : bank_)
    {
        f.setup(1, kBankRate);
    }
}

void PstsGrainReader::prepareWindow(int32_t m)
{
    if (m == windowCount_)
    {
        return;
    }
    // The table is walked at 8,192 / m per sample, each sample taking the entry nearest to the
    // running sum; the result depends on m alone and is kept until the grain length changes.
    const double w = static_cast<double>(PstsHannTable::kLength) / m;
    double acc = 0.0;
    float* win = window_.get();
    for (int32_t j = 0; j < m; ++j)
    {
        acc += w;
        win[j] = hann_[std::min(static_cast<int32_t>(acc + 0.5), PstsHannTable::kLength)];
    }
    windowCount_ = m;
}

int32_t PstsGrainReader::read(float* grain, double start, double length, double step, int32_t& count)
{
    count = 0;
    if (source_ == nullptr || !(step > 0.0) || !(length > 0.0))
    {
        return 0;
    }
    float* buf = scratch_->data() + kGuard;
    const double a = std::max(start, 1.0);
    const int64_t first = std::max<int64_t>(static_cast<int64_t>(a) - 1, 0);
    int64_t last = static_cast<int64_t>(length + a) + kTail;
    // The scratch takes the interleaved frames of a two-channel source before they are compacted.
    const int64_t perFrame = std::max(source_->channels(), 1);
    const int64_t room = (scratch_->capacity() - kGuard) / perFrame;
    last = std::min(last, first + room - 1);
    const int32_t status = source_->fetch(buf, first, last);

    // Interpolation reads frames i - 1 .. i + 2, so x stops two frames short of the last one fetched.
    const double limit = static_cast<double>(last - 1);
    int32_t m = 0;
    if (start >= 0.0)
    {
        const double to = std::min(a + length, limit);
        m = countSteps(a, to, step, grainCapacity_);
        prepareWindow(m);
        interpolate(buf, first, a, step, grain, m, window_.get());
    }
    else
    {
        // Before the source's first frame there is nothing to read: the opening half is used twice.
        const double half = std::min(length * 0.5, limit);
        const int32_t once = countSteps(1.0, half, step, grainCapacity_);
        const int32_t again = countSteps(1.0, half, step, grainCapacity_ - once);
        m = once + again;
        prepareWindow(m);
        interpolate(buf, first, 1.0, step, grain, once, window_.get());
        interpolate(buf, first, 1.0, step, grain + once, again, window_.get() + once);
    }
    count = m;
    return status;
}

} // namespace dsp::Stretch
