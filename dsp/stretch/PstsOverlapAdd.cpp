#include "dsp/stretch/PstsOverlapAdd.h"

#include "dsp/stretch/PstsInterpolate.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace dsp::Stretch
{

namespace
{

// Render stages its read window in the scratch; a block of any length the ring allows must fit.
constexpr int32_t kMinScratch = 4096;
// Frames of the interpolation window beyond the read position, plus one for the fraction.
constexpr int32_t kWindowSlack = 4;
// Frames written back after filtering: the next block's window starts at most this far before the
// last frame this block read, and these frames must not be filtered a second time.
constexpr int64_t kWriteBack = 5;
// Added to each frame of the window so that a decaying tail never turns into denormals.
constexpr float kAntiDenormal = 1e-20f;

// The curve on a window of four ring frames: between w[1] (u = 0) and w[2] (u = 1).
inline float windowCurve(const float* w, float u)
{
    return catmullRom(w[0] + kAntiDenormal, w[1] + kAntiDenormal, w[2] + kAntiDenormal, w[3] + kAntiDenormal,
                      u);
}

} // namespace

PstsOverlapAdd::PstsOverlapAdd(int32_t ringSize, PstsScratch& scratch)
    : ring_(std::make_unique<float[]>(static_cast<size_t>(std::max(ringSize, 8)))), scratch_(&scratch),
      ringSize_(std::max(ringSize, 8))
{
    scratch.grow(kMinScratch);
    reset();
}

void PstsOverlapAdd::reset()
{
    readIndex_ = 0;
    nextCentre_ = 0;
    clearFrom_ = 0;
    fraction_ = -1.0;
    filteredTo_ = -1;
    lastNeeded_ = 0;
    blockFirst_ = 0;
    std::memset(ring_.get(), 0, static_cast<size_t>(ringSize_) * sizeof(float));
    filter_.reset();
}

void PstsOverlapAdd::setHop(int32_t hop)
{
    hopInt_ = std::max(hop, 1);
}

void PstsOverlapAdd::setStep(float step)
{
    step_ = step;
}

void PstsOverlapAdd::setFilter(bool on, float cutoff)
{
    filterOn_ = on;
    if (on)
    {
        filter_.design(cutoff);
    }
}

int32_t PstsOverlapAdd::maxBlock(int32_t grainFrames) const
{
    const int32_t room = std::min(ringSize_ - grainFrames, scratch_->capacity()) - kWindowSlack - 1;
    const double frames = std::floor(static_cast<double>(room) / std::max(static_cast<double>(step_), 1e-6));
    return static_cast<int32_t>(std::clamp(frames, 1.0, 1048576.0));
}

void PstsOverlapAdd::beginBlock(float* output, int32_t count)
{
    output_ = output;
    outCount_ = count;
    const double last =
        static_cast<double>(static_cast<float>(count) * step_) + fraction_ + static_cast<double>(readIndex_);
    lastNeeded_ = static_cast<int64_t>(last) + 3;
}

bool PstsOverlapAdd::offerGrain(int32_t count)
{
    grainCount_ = count;
    return nextCentre_ - count / 2 <= lastNeeded_;
}

void PstsOverlapAdd::addGrain(const float* samples)
{
    const int64_t start = nextCentre_ - grainCount_ / 2;
    // Samples that would land before the read position are dropped: before frame 0 they belong to no
    // output, and below the read position the ring slot already serves a later frame.
    const int64_t from = std::max(start, readIndex_);
    const int64_t to = std::min(start + grainCount_, readIndex_ + ringSize_);
    const float* src = samples + (from - start);
    int64_t i = from;
    while (i < to)
    {
        const int64_t slot = i % ringSize_;
        const int64_t run = std::min(to - i, ringSize_ - slot);
        float* dst = ring_.get() + slot;
        for (int64_t j = 0; j < run; ++j)
        {
            dst[j] += src[j];
        }
        src += run;
        i += run;
    }
    nextCentre_ += hopInt_;
}

void PstsOverlapAdd::copyOut(int64_t from, int64_t to, float* dst) const
{
    int64_t i = from;
    while (i < to)
    {
        const int64_t slot = i % ringSize_;
        const int64_t run = std::min(to - i, ringSize_ - slot);
        std::memcpy(dst, ring_.get() + slot, static_cast<size_t>(run) * sizeof(float));
        dst += run;
        i += run;
    }
}

void PstsOverlapAdd::copyIn(int64_t from, int64_t to, const float* src)
{
    int64_t i = from;
    while (i < to)
    {
        const int64_t slot = i % ringSize_;
        const int64_t run = std::min(to - i, ringSize_ - slot);
        std::memcpy(ring_.get() + slot, src, static_cast<size_t>(run) * sizeof(float));
        src += run;
        i += run;
    }
}

void PstsOverlapAdd::zero(int64_t from, int64_t to)
{
    // Never more than one lap: anything older has already been cleared on its way out.
    from = std::max(from, to - ringSize_);
    int64_t i = from;
    while (i < to)
    {
        const int64_t slot = i % ringSize_;
        const int64_t run = std::min(to - i, ringSize_ - slot);
        std::memset(ring_.get() + slot, 0, static_cast<size_t>(run) * sizeof(float));
        i += run;
    }
}

void PstsOverlapAdd::render()
{
    float* scratch = scratch_->data();
    // The window can't be wider than the scratch; maxBlock keeps callers inside it.
    const int64_t last = std::min(lastNeeded_, readIndex_ + scratch_->capacity() - 1);
    copyOut(readIndex_, last + 1, scratch);

    if (filterOn_)
    {
        const int64_t from = std::max(filteredTo_ + 1, readIndex_);
        if (from <= last)
        {
            filter_.run(scratch + (from - readIndex_), static_cast<int32_t>(last - from + 1));
        }
        const int64_t back = std::max(last - (kWriteBack - 1), readIndex_);
        copyIn(back, last + 1, scratch + (back - readIndex_));
    }

    blockFirst_ = readIndex_;
    filteredTo_ = std::max(filteredTo_, last);

    const double step = static_cast<double>(step_);
    // The last window start that stays inside the staged frames; only a block longer than maxBlock()
    // reaches it, and its remaining frames come out silent rather than read from stale memory.
    const int64_t lastWindow = last - 3;
    int32_t n = 0;
    // Right after a reset the fraction is negative and the window holds still until it turns
    // positive: those first samples walk one by one.
    for (; n < outCount_ && readIndex_ <= lastWindow && fraction_ < 0.0; ++n)
    {
        output_[n] = windowCurve(scratch + (readIndex_ - blockFirst_), static_cast<float>(fraction_));
        fraction_ += step;
        const double whole = std::trunc(fraction_);
        readIndex_ += static_cast<int64_t>(whole);
        fraction_ -= whole;
    }
    if (n < outCount_ && fraction_ >= 0.0 && step > 0.0 && readIndex_ <= lastWindow)
    {
        // From here sample k reads at readIndex + fraction + k * step. Worked out for each sample on
        // its own, no sample waits for the one before, which is what makes this loop fast.
        const double f0 = fraction_;
        const float* base = scratch + (readIndex_ - blockFirst_);
        const auto room = static_cast<double>(lastWindow - readIndex_);
        auto fits = [&](int32_t k) { return std::trunc(f0 + static_cast<double>(k) * step) <= room; };
        int32_t count = outCount_ - n;
        const double estimate = std::floor((room + 1.0 - f0) / step) + 1.0;
        count = static_cast<int32_t>(std::clamp(estimate, 0.0, static_cast<double>(count)));
        while (count > 0 && !fits(count - 1))
        {
            --count;
        }
        while (count < outCount_ - n && fits(count))
        {
            ++count;
        }
        float* out = output_ + n;
        if (step == 1.0 && f0 == 0.0)
        {
            // On the frames themselves the curve gives the frame: a copy, but for the 1e-20.
            for (int32_t k = 0; k < count; ++k)
            {
                out[k] = base[k + 1] + kAntiDenormal;
            }
        }
        else if (step == 1.0)
        {
            const auto u = static_cast<float>(f0);
            for (int32_t k = 0; k < count; ++k)
            {
                out[k] = windowCurve(base + k, u);
            }
        }
        else
        {
            // The window of sample k starts at base + (f0 + k step) truncated; its second frame is
            // the curve's origin.
            interpolateRun(base + 1, f0, step, out, count, kAntiDenormal);
        }
        const double endAt = f0 + static_cast<double>(count) * step;
        const double whole = std::trunc(endAt);
        readIndex_ += static_cast<int64_t>(whole);
        fraction_ = endAt - whole;
        n += count;
    }
    for (; n < outCount_; ++n)
    {
        output_[n] = 0.0f;
    }

    zero(clearFrom_, readIndex_);
    clearFrom_ = std::max(clearFrom_, readIndex_);
}

} // namespace dsp::Stretch
