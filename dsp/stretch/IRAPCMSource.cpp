#include "dsp/stretch/IRAPCMSource.h"

#include <algorithm>

namespace dsp::Stretch
{

void CRAPCMMonoAdapter::setSource(IRAPCMSource* inner, int32_t channel)
{
    inner_ = inner;
    channel_ = std::clamp(channel, 1, 2);
}

int64_t CRAPCMMonoAdapter::length()
{
    return inner_ != nullptr ? inner_->length() : 0;
}

int32_t CRAPCMMonoAdapter::rate()
{
    return inner_ != nullptr ? inner_->rate() : 0;
}

int32_t CRAPCMMonoAdapter::channels()
{
    return inner_ != nullptr ? inner_->channels() : 0;
}

int32_t CRAPCMMonoAdapter::fetch(float* destination, int64_t first, int64_t last)
{
    if (inner_ == nullptr)
    {
        return 0;
    }
    int32_t status = 0;
    if (inner_->channels() >= 2 && inner_->fetchChannel(destination, first, last, channel_, status))
    {
        return status;
    }
    status = inner_->fetch(destination, first, last);
    if (inner_->channels() < 2)
    {
        return status;
    }
    // Element 2i (or 2i + 1) moves to element i; reading always runs ahead of writing, so in place is
    // safe.
    const int64_t frames = last - first + 1;
    const float* src = destination + (channel_ - 1);
    for (int64_t i = 0; i < frames; ++i)
    {
        destination[i] = src[2 * i];
    }
    return status;
}

} // namespace dsp::Stretch
