#include "dsp/stretch/CRAPSTS.h"

#include <algorithm>
#include <cmath>

namespace dsp::Stretch
{

namespace
{

// Voices made by the engine itself serve any source up to this rate.
constexpr float kOwnMaxRate = 96000.0f;
constexpr float kMinGrainFrequency = 25.0f;
constexpr float kMaxPitchFactor = 4.0f;
constexpr int32_t kExtra = 64;

} // namespace

CRAPSTS::CRAPSTS(bool ownsVoices, PstsScratch* scratch) : ownsVoices_(ownsVoices)
{
    if (ownsVoices)
    {
        PstsScratch& s = scratch != nullptr ? *scratch : ownScratch_;
        for (size_t i = 0; i < 2; ++i)
        {
            ownVoices_[i] =
                std::make_unique<PstsVoice>(kOwnMaxRate, kMinGrainFrequency, kMaxPitchFactor, kExtra, s);
            voices_[i] = ownVoices_[i].get();
        }
    }
}

CRAPSTS::~CRAPSTS() = default;

void CRAPSTS::setVoices(PstsVoice* first, PstsVoice* second)
{
    voices_[0] = first;
    voices_[1] = second;
}

void CRAPSTS::setSource(IRAPCMSource* source)
{
    source_ = source;
    channels_ = source != nullptr ? std::clamp(source->channels(), 0, 2) : 0;
    if (channels_ == 1)
    {
        if (voices_[0] != nullptr)
        {
            voices_[0]->setSource(source);
        }
        return;
    }
    for (size_t i = 0; i < 2; ++i)
    {
        adapters_[i].setSource(source, static_cast<int32_t>(i) + 1);
        if (voices_[i] != nullptr)
        {
            voices_[i]->setSource(channels_ == 2 ? &adapters_[i] : nullptr);
        }
    }
}

void CRAPSTS::setOutputRate(float rate)
{
    if (source_ == nullptr || !(rate > 0.0f))
    {
        return;
    }
    const float ratio = static_cast<float>(source_->rate()) / rate;
    forEachVoice([ratio](PstsVoice& v) { v.setRateRatio(ratio); });
}

void CRAPSTS::setStretch(float stretch)
{
    stretch_ = stretch;
    forEachVoice([stretch](PstsVoice& v) { v.setStretch(stretch); });
}

void CRAPSTS::seek(double position)
{
    if (voices_[0] != nullptr)
    {
        voices_[0]->seek(position);
    }
    if (channels_ >= 2 && voices_[1] != nullptr)
    {
        voices_[1]->seek(position);
    }
}

int32_t CRAPSTS::process(float* left, float* right, int32_t count)
{
    if (channels_ < 2 || voices_[0] == nullptr || voices_[1] == nullptr)
    {
        return count;
    }
    voices_[0]->process(left, count);
    return voices_[1]->process(right, count);
}

int32_t CRAPSTS::process(float* interleaved, int32_t count)
{
    if (voices_[0] == nullptr)
    {
        return 0;
    }
    if (channels_ < 2)
    {
        return voices_[0]->process(interleaved, count);
    }
    if (voices_[1] == nullptr)
    {
        return 0;
    }
    int32_t status = 0;
    for (int32_t done = 0; done < count; done += kStageFrames)
    {
        const int32_t n = std::min(kStageFrames, count - done);
        voices_[0]->process(stage_[0], n);
        status = voices_[1]->process(stage_[1], n);
        float* out = interleaved + 2 * done;
        for (int32_t i = 0; i < n; ++i)
        {
            out[2 * i] = stage_[0][i];
            out[2 * i + 1] = stage_[1][i];
        }
    }
    return status;
}

CRANewPolyPSTS::CRANewPolyPSTS(bool ownsVoices, PstsScratch* scratch) : CRAPSTS(ownsVoices, scratch) {}

void CRANewPolyPSTS::setPitchFactor(float factor)
{
    pitchFactor_ = factor;
    // Both voices, also one a mono source leaves idle, so that a later stereo source finds them agreed.
    forEachVoice([factor](PstsVoice& v) { v.setPitchFactor(factor); });
}

void CRANewPolyPSTS::setGrainFrequency(float frequency)
{
    if (source_ == nullptr || !(frequency > 0.0f))
    {
        return;
    }
    const float period = static_cast<float>(source_->rate()) / frequency;
    const float factor = pitchFactor_;
    forEachVoice([period, factor](PstsVoice& v) { v.setGrain(period, factor); });
}

} // namespace dsp::Stretch
