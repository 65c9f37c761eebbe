#include "dsp/stretch/PstsGrainReader.h"

#include "dsp/stretch/PstsHannTable.h"

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

// Runs x from `from` while below `to` by `step`, one interpolated sample each, relative to frame
// `first` of buf; stops at `room` samples. Returns the samples written.
int32_t interpolate(const float* buf, int64_t first, double from, double to, double step, float* out,
                    int32_t room)
{
    int32_t m = 0;
    for (double x = from; x < to && m < room; x += step)
    {
        const auto i = static_cast<int64_t>(x);
        const float u = static_cast<float>(x - static_cast<double>(i));
        const float* w = buf + (i - first);
        const float p = w[-1];
        const float q = w[0];
        const float r = w[1];
        const float t = w[2];
        out[m++] = ((((q - r) * 1.5f + (t - p) * 0.5f) * u + (p - 2.5f * q + 2.0f * r - 0.5f * t)) * u +
                    (r - p) * 0.5f) *
                       u +
                   q;
    }
    return m;
}

} // namespace

PstsGrainReader::PstsGrainReader(int32_t grainCapacity, PstsScratch& scratch)
    : grainCapacity_(grainCapacity), scratch_(&scratch), window_(PstsHannTable::values())
{
    scratch.grow(grainCapacity + kGuard);
    for (utils::BiquadFilter& f : bank_)
    {
        f.setup(1, kBankRate);
    }
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
        m = interpolate(buf, first, a, std::min(a + length, limit), step, grain, grainCapacity_);
    }
    else
    {
        // Before the source's first frame there is nothing to read: the opening half is used twice.
        const double half = std::min(length * 0.5, limit);
        m = interpolate(buf, first, 1.0, half, step, grain, grainCapacity_);
        m += interpolate(buf, first, 1.0, half, step, grain + m, grainCapacity_ - m);
    }

    if (m > 0)
    {
        const double w = static_cast<double>(PstsHannTable::kLength) / m;
        double acc = 0.0;
        for (int32_t j = 0; j < m; ++j)
        {
            acc += w;
            const auto idx = std::min(static_cast<int32_t>(acc + 0.5), PstsHannTable::kLength);
            grain[j] *= window_[idx];
        }
    }
    count = m;
    return status;
}

} // namespace dsp::Stretch
