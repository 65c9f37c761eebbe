#include "dsp/stretch/PstsVoice.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace dsp::Stretch
{

namespace
{

int32_t capacityFor(float maxGrain, float maxPitchFactor)
{
    // A grain spans two periods of source and is stretched by up to the largest pitch factor.
    return static_cast<int32_t>(maxGrain * maxPitchFactor * 2.0f + 1.0f);
}

} // namespace

PstsVoice::PstsVoice(float maxRate, float minGrainFrequency, float maxPitchFactor, int32_t extra,
                     PstsScratch& scratch)
    : maxPitchFactor_(std::max(maxPitchFactor, 1.0f)), maxGrain_(std::max(maxRate / minGrainFrequency, 1.0f)),
      overlapAdd_(capacityFor(maxGrain_, maxPitchFactor_) + extra, scratch),
      reader_(capacityFor(maxGrain_, maxPitchFactor_), scratch),
      grainBuffer_(std::make_unique<float[]>(static_cast<size_t>(capacityFor(maxGrain_, maxPitchFactor_)))),
      grainCapacity_(capacityFor(maxGrain_, maxPitchFactor_)), lastStart_(-std::numeric_limits<float>::max()),
      lastPitchFactor_(-std::numeric_limits<float>::max())
{
    updateHop();
}

void PstsVoice::setSource(IRAPCMSource* source)
{
    source_ = source;
    reader_.setSource(source);
    if (source != nullptr && state_ < kHasSource)
    {
        state_ = kHasSource;
    }
}

void PstsVoice::updateHop()
{
    overlapAdd_.setHop(std::max(static_cast<int32_t>(std::lround(hop_)), 1));
    const float hopInt = static_cast<float>(overlapAdd_.hopInt());
    overlapAdd_.setStep(hop_ > 0.0f ? hopInt / hop_ * rateRatio_ : rateRatio_);
}

void PstsVoice::setStretch(float stretch)
{
    if (stretch > 0.0f && std::isfinite(stretch))
    {
        stretch_ = stretch;
    }
}

void PstsVoice::setPitchFactor(float factor)
{
    // A factor that isn't a positive number would run the read step or the ring backwards.
    if (!(factor > 0.0f) || !std::isfinite(factor))
    {
        return;
    }
    pitchFactor_ = std::min(factor, maxPitchFactor_);
    hop_ = grain_ * factor;
    updateHop();
}

void PstsVoice::setGrain(float period, float pitchFactor)
{
    if (!(period > 0.0f) || !(pitchFactor > 0.0f) || !std::isfinite(pitchFactor))
    {
        return;
    }
    // The grain buffer and the ring are sized for the longest period.
    period = std::clamp(period, 1.0f, maxGrain_);
    if (period != grain_)
    {
        previousGrain_ = grain_;
        anchor_ = furthest_;
        grain_ = period;
    }
    hop_ = pitchFactor * period;
    updateHop();
    if (state_ == kHasSource)
    {
        state_ = kSetUp;
    }
}

void PstsVoice::setRateRatio(float ratio)
{
    rateRatio_ = ratio;
    if (ratio > 1.0f)
    {
        overlapAdd_.setFilter(true, 1.0f / ratio);
    }
    else
    {
        overlapAdd_.setFilter(false, 1.0f);
    }
    updateHop();
}

void PstsVoice::seek(double position)
{
    analysisTime_ = position;
    anchor_ = position;
    furthest_ = position;
    previousGrain_ = grain_;
    lastStart_ = -std::numeric_limits<float>::max();
    lastPitchFactor_ = -std::numeric_limits<float>::max();
    overlapAdd_.reset();
    std::memset(grainBuffer_.get(), 0, static_cast<size_t>(grainCapacity_) * sizeof(float));
    grainCount_ = 0;
    state_ = kSought;
}

void PstsVoice::chooseGrain(double& start, double& length) const
{
    const double previous = previousGrain_;
    const double current = grain_;
    if (analysisTime_ <= anchor_)
    {
        // Below the anchor the old lattice is still in force.
        const double k = std::trunc(std::round((anchor_ - analysisTime_) / previous));
        const double s = anchor_ - k * previous;
        if (s != anchor_)
        {
            start = s - previous;
            length = 2.0 * previous;
        }
        else
        {
            // The grain on the anchor bridges the two lattices.
            start = s - previous;
            length = current + previous;
        }
        return;
    }
    const double k = std::trunc(std::round((analysisTime_ - anchor_) / current));
    const double s = k * current + anchor_;
    if (s == anchor_)
    {
        start = s - previous;
        length = previous + current;
    }
    else
    {
        start = s - current;
        length = 2.0 * current;
    }
}

int32_t PstsVoice::process(float* output, int32_t count)
{
    if (state_ != kSought || source_ == nullptr)
    {
        std::fill(output, output + std::max(count, 0), 0.0f);
        return 0;
    }
    // Blocks are cut so that the read window and the longest grain always fit in the ring together.
    // The pitch factor holds for the whole call, which bounds the grains it can make: a span of at
    // most two periods, read at a step of 1 / pitchFactor.
    const double longest = std::ceil(static_cast<double>(grain_ + previousGrain_) * pitchFactor_) + 2.0;
    const int32_t chunk =
        overlapAdd_.maxBlock(static_cast<int32_t>(std::min(longest, static_cast<double>(grainCapacity_))));
    int32_t done = 0;
    while (done < count)
    {
        const int32_t n = std::min(chunk, count - done);
        overlapAdd_.beginBlock(output + done, n);
        for (;;)
        {
            double start = 0.0;
            double length = 0.0;
            chooseGrain(start, length);
            furthest_ = std::max(furthest_, start + length);
            if (lastStart_ != start)
            {
                // A grain with the same start stays in the buffer: repeated grains cost nothing.
                fetchStatus_ =
                    reader_.read(grainBuffer_.get(), start, length, 1.0 / pitchFactor_, grainCount_);
                lastPitchFactor_ = pitchFactor_;
                lastStart_ = start;
            }
            if (!overlapAdd_.offerGrain(grainCount_))
            {
                break;
            }
            overlapAdd_.addGrain(grainBuffer_.get());
            analysisTime_ += static_cast<double>(hop_ / stretch_);
        }
        overlapAdd_.render();
        done += n;
    }
    return fetchStatus_;
}

} // namespace dsp::Stretch
