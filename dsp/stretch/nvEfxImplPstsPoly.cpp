#include "dsp/stretch/nvEfxImplPstsPoly.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using dsp::Stretch::CRANewPolyPSTS;
using dsp::Stretch::PstsScratch;
using dsp::Stretch::PstsVoice;

namespace
{

// The effect's stream counts as one hour long.
constexpr int64_t kStreamSeconds = 3600;
// The lattice runs at 25 grains a second: 40 ms periods, grains of 80 ms.
constexpr float kGrainFrequency = 25.0f;
constexpr float kMaxPitchFactor = 4.0f;
constexpr int32_t kRingExtra = 64;
constexpr int32_t kMinRate = 1000;
constexpr int32_t kMaxRate = 768000;

} // namespace

int64_t EfxPstsRAPCMSourcePoly::length()
{
    return static_cast<int64_t>(effect_->sampleRate_) * kStreamSeconds;
}

int32_t EfxPstsRAPCMSourcePoly::rate()
{
    return effect_->sampleRate_;
}

int32_t EfxPstsRAPCMSourcePoly::channels()
{
    return effect_->inChannels_;
}

int32_t EfxPstsRAPCMSourcePoly::fetch(float* destination, int64_t first, int64_t last)
{
    return effect_->fetchSource(destination, first, last);
}

bool EfxPstsRAPCMSourcePoly::fetchChannel(float* destination, int64_t first, int64_t last, int32_t channel,
                                          int32_t& status)
{
    status = 0;
    return effect_->fetchSourceChannel(destination, first, last, channel);
}

nvEfxImplPstsPoly::nvEfxImplPstsPoly() : source_(*this) {}

nvEfxImplPstsPoly::~nvEfxImplPstsPoly() = default;

bool nvEfxImplPstsPoly::isUnity(float v)
{
    const double d = static_cast<double>(v);
    return d >= 0.9999 && d <= 1.0001;
}

double nvEfxImplPstsPoly::sourcePosition(int64_t position, float stretch)
{
    double q = static_cast<double>(position) / static_cast<double>(stretch);
    // A float stretch such as 1 / 0.75 leaves quotients a hair below the whole frame they stand for;
    // those are snapped to it before truncating, as rounding the quotient to a float would, but
    // without losing whole frames far into a long file.
    const double nearest = std::round(q);
    if (std::fabs(q - nearest) <= 6e-8 * std::fabs(q))
    {
        q = nearest;
    }
    return std::trunc(q);
}

int32_t nvEfxImplPstsPoly::setParameter(int32_t id, float value)
{
    if (std::isnan(value))
    {
        return 0;
    }
    switch (id)
    {
    case kInChannels:
    case kOutChannels:
    {
        const auto n = static_cast<int32_t>(std::clamp(value, -1e6f, 1e6f));
        if (n < 1 || n > 2)
        {
            return 0;
        }
        (id == kInChannels ? inChannels_ : outChannels_) = n;
        return 1;
    }
    case kSampleRate:
    {
        const auto rate = static_cast<int32_t>(std::clamp(value, -1e7f, 1e7f));
        if (rate < kMinRate || rate > kMaxRate)
        {
            return 0;
        }
        sampleRate_ = rate;
        return 1;
    }
    case kStretch:
    case kPitchFactor:
    {
        const float v = std::clamp(value, kMinValue, kMaxValue);
        std::atomic<float>& stored = id == kStretch ? stretch_ : pitchFactor_;
        if (stored.load(std::memory_order_relaxed) == v)
        {
            return 1;
        }
        stored.store(v, std::memory_order_relaxed);
        pending_.fetch_or(id == kStretch ? kStretchChanged : kPitchChanged, std::memory_order_release);
        return 1;
    }
    default:
        return 0;
    }
}

int32_t nvEfxImplPstsPoly::getParameter(int32_t id, float* value)
{
    if (value == nullptr)
    {
        return 0;
    }
    switch (id)
    {
    case kInChannels:
        *value = static_cast<float>(inChannels_);
        return 1;
    case kOutChannels:
        *value = static_cast<float>(outChannels_);
        return 1;
    case kSampleRate:
        *value = static_cast<float>(sampleRate_);
        return 1;
    case kStretch:
        *value = stretch_.load(std::memory_order_relaxed);
        return 1;
    case kPitchFactor:
        *value = pitchFactor_.load(std::memory_order_relaxed);
        return 1;
    default:
        return 0;
    }
}

void nvEfxImplPstsPoly::applyChanges()
{
    const uint32_t changes = pending_.exchange(0, std::memory_order_acquire);
    if (changes == 0)
    {
        return;
    }
    if ((changes & kStretchChanged) != 0)
    {
        if (engine_ != nullptr)
        {
            engine_->setStretch(stretch_.load(std::memory_order_relaxed));
        }
        // The next block seeks, so that source and output positions agree under the new stretch.
        expected_ = -1;
    }
    if ((changes & kPitchChanged) != 0 && engine_ != nullptr)
    {
        engine_->setPitchFactor(pitchFactor_.load(std::memory_order_relaxed));
    }
}

int32_t nvEfxImplPstsPoly::process(int32_t, float** channels, int64_t position, int32_t count)
{
    if (channels == nullptr || channels[0] == nullptr || count <= 0)
    {
        return 1;
    }
    applyChanges();
    // The upstream may hold other frames at the same positions by the next block.
    stagedFrames_ = 0;
    const float stretch = stretch_.load(std::memory_order_relaxed);
    if (isUnity(stretch) && isUnity(pitchFactor_.load(std::memory_order_relaxed)))
    {
        // Straight from source to output: no latency, no processing.
        pull(channels, position, count);
        return 1;
    }
    const bool stereoOut = outChannels_ >= 2 && channels[1] != nullptr;
    if (engine_ == nullptr)
    {
        std::fill(channels[0], channels[0] + count, 0.0f);
        if (stereoOut)
        {
            std::fill(channels[1], channels[1] + count, 0.0f);
        }
        return 1;
    }
    if (position != expected_)
    {
        // A jump, a loop or a new stretch: restart the grains where this output position lies in the
        // source.
        engine_->seek(sourcePosition(position, stretch));
        expected_ = position;
    }
    if (engine_->channels() >= 2 && stereoOut)
    {
        engine_->process(channels[0], channels[1], count);
    }
    else if (engine_->channels() == 1)
    {
        engine_->process(channels[0], count);
        if (stereoOut)
        {
            std::memcpy(channels[1], channels[0], static_cast<size_t>(count) * sizeof(float));
        }
    }
    else
    {
        // A stereo source into one output channel: the engine's interleaved output would need twice
        // the room, so the left voice alone fills it.
        engine_->voice(0)->process(channels[0], count);
    }
    expected_ += count;
    return 1;
}

int32_t nvEfxImplPstsPoly::initialise()
{
    engine_.reset();
    voices_[0].reset();
    voices_[1].reset();
    scratch_ = std::make_unique<PstsScratch>();
    expected_ = -1;
    const auto rate = static_cast<float>(sampleRate_);
    for (auto& v : voices_)
    {
        v = std::make_unique<PstsVoice>(rate, kGrainFrequency, kMaxPitchFactor, kRingExtra, *scratch_);
    }
    // A fetch spans two of the longest lattice periods and a few frames of interpolation margin.
    stageFrames_ = std::max(kStageFrames, static_cast<int32_t>(4.0f * rate / kGrainFrequency) + 64);
    for (auto& s : stage_)
    {
        s = std::make_unique<float[]>(static_cast<size_t>(stageFrames_));
    }
    engine_ = std::make_unique<CRANewPolyPSTS>(false, scratch_.get());
    engine_->setVoices(voices_[0].get(), voices_[1].get());
    engine_->setSource(&source_);
    pending_.store(0, std::memory_order_relaxed);
    engine_->setOutputRate(rate);
    engine_->setGrainFrequency(kGrainFrequency);
    engine_->seek(0.0);
    engine_->setPitchFactor(pitchFactor_.load(std::memory_order_relaxed));
    engine_->setStretch(stretch_.load(std::memory_order_relaxed));
    initialised_ = true;
    return 1;
}

int32_t nvEfxImplPstsPoly::fetchSource(float* destination, int64_t first, int64_t last)
{
    const auto frames = static_cast<int32_t>(std::clamp<int64_t>(last - first, 0, stageFrames_));
    if (frames == 0)
    {
        return 0;
    }
    if (inChannels_ == 1)
    {
        float* planes[2] = {destination, nullptr};
        pull(planes, first, frames);
    }
    else if (inChannels_ == 2 && stage_[0] != nullptr)
    {
        pullStage(first, frames);
        const float* l = stage_[0].get();
        const float* r = stage_[1].get();
        for (int32_t i = 0; i < frames; ++i)
        {
            destination[2 * i] = l[i];
            destination[2 * i + 1] = r[i];
        }
    }
    return 0;
}

int32_t nvEfxImplPstsPoly::pullStage(int64_t first, int32_t frames)
{
    if (stagedFrames_ == frames && stagedFirst_ == first)
    {
        return frames;
    }
    float* planes[2] = {stage_[0].get(), stage_[1].get()};
    pull(planes, first, frames);
    stagedFirst_ = first;
    stagedFrames_ = frames;
    return frames;
}

bool nvEfxImplPstsPoly::fetchSourceChannel(float* destination, int64_t first, int64_t last, int32_t channel)
{
    if (inChannels_ != 2 || stage_[0] == nullptr || channel < 1 || channel > 2)
    {
        return false;
    }
    const auto frames = static_cast<int32_t>(std::clamp<int64_t>(last - first, 0, stageFrames_));
    if (frames > 0)
    {
        pullStage(first, frames);
        std::memcpy(destination, stage_[static_cast<size_t>(channel - 1)].get(),
                    static_cast<size_t>(frames) * sizeof(float));
    }
    return true;
}
