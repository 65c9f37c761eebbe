#include "dsp/stretchhq/AudioFxHQStretch.h"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>

namespace
{

using RubberBand::RubberBandStretcher;

constexpr float kMinValue = 0.001f;
constexpr float kMaxValue = 10.0f;
// The most source frames handed to the stretcher at once; it is told so in prepare, which is what
// keeps its real-time path from growing buffers.
constexpr int64_t kFeedFrames = 1024;
// The least fed at once: asked for nothing more, the stretcher still needs a hop's worth of input
// before it makes its next output, and feeding it single frames would take a call per frame.
constexpr int64_t kMinFeedFrames = 256;
// Feeds per block before giving up on a stretcher that yields nothing (it never should).
constexpr int32_t kMaxFeeds = 64;

constexpr uint32_t kStretchChanged = 1u;
constexpr uint32_t kPitchChanged = 2u;

// Real time, so that ratios may change while it runs; the finer engine; pitch changes that stay
// smooth while they move; both channels analysed together, so the stereo image holds.
constexpr RubberBandStretcher::Options kOptions =
    RubberBandStretcher::OptionProcessRealTime | RubberBandStretcher::OptionEngineFiner |
    RubberBandStretcher::OptionPitchHighConsistency | RubberBandStretcher::OptionChannelsTogether |
    RubberBandStretcher::OptionThreadingNever;

// The source frame an output position stands for. A float stretch such as 1 / 0.75 leaves quotients a
// hair below the whole frame they stand for; those are snapped to it before truncating.
int64_t sourcePosition(int64_t position, float stretch)
{
    double q = static_cast<double>(position) / static_cast<double>(stretch);
    const double nearest = std::round(q);
    if (std::fabs(q - nearest) <= 6e-8 * std::fabs(q))
    {
        q = nearest;
    }
    return static_cast<int64_t>(std::trunc(q));
}

} // namespace

AudioFxHQStretch::AudioFxHQStretch() = default;

AudioFxHQStretch::~AudioFxHQStretch() = default;

bool AudioFxHQStretch::isUnity(float v)
{
    const double d = static_cast<double>(v);
    return d >= 0.9999 && d <= 1.0001;
}

void AudioFxHQStretch::setStretch(float stretch)
{
    if (std::isnan(stretch))
    {
        return;
    }
    const float v = std::clamp(stretch, kMinValue, kMaxValue);
    if (stretch_.load(std::memory_order_relaxed) != v)
    {
        stretch_.store(v, std::memory_order_relaxed);
        pending_.fetch_or(kStretchChanged, std::memory_order_release);
    }
}

void AudioFxHQStretch::setPitch(float factor)
{
    if (std::isnan(factor))
    {
        return;
    }
    const float v = std::clamp(factor, kMinValue, kMaxValue);
    if (pitch_.load(std::memory_order_relaxed) != v)
    {
        pitch_.store(v, std::memory_order_relaxed);
        pending_.fetch_or(kPitchChanged, std::memory_order_release);
    }
}

void AudioFxHQStretch::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    stretcher_ = std::make_unique<RubberBandStretcher>(sampleRate, 2, kOptions, 1.0, 1.0);
    stretcher_->setMaxProcessSize(kFeedFrames);
    output_.alloc(blockSize, 2);
    input_.alloc(kFeedFrames, 2);
    discard_.alloc(kFeedFrames, 2);
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    stretch_.store(1.0f, std::memory_order_relaxed);
    pitch_.store(1.0f, std::memory_order_relaxed);
    pending_.store(0, std::memory_order_relaxed);
    expected_ = -1;
}

void AudioFxHQStretch::applyChanges()
{
    const uint32_t changes = pending_.exchange(0, std::memory_order_acquire);
    if ((changes & kStretchChanged) != 0)
    {
        // The next block restarts, so that source and output positions agree under the new stretch.
        expected_ = -1;
    }
    if ((changes & kPitchChanged) != 0 && stretcher_ != nullptr)
    {
        // A pitch change keeps the stream going: the stretcher glides to it.
        stretcher_->setPitchScale(1.0 / static_cast<double>(pitch_.load(std::memory_order_relaxed)));
    }
}

void AudioFxHQStretch::pull(float* left, float* right, int64_t position, int64_t count)
{
    AudioData block;
    block.channel[0] = left;
    block.channel[1] = right;
    block.channels = 2;
    block.frames = count;
    block.position = position;
    if (upstream_ == nullptr || !upstream_->read(block))
    {
        block.silence();
    }
}

void AudioFxHQStretch::feed(int64_t frames)
{
    while (frames > 0)
    {
        const int64_t n = std::min(frames, kFeedFrames);
        pull(input_.channel[0], input_.channel[1], readPosition_, n);
        const float* planes[2] = {input_.channel[0], input_.channel[1]};
        stretcher_->process(planes, static_cast<size_t>(n), false);
        readPosition_ += n;
        frames -= n;
    }
}

bool AudioFxHQStretch::fill(int64_t count)
{
    for (int32_t i = 0; i < kMaxFeeds; ++i)
    {
        if (stretcher_->available() >= count)
        {
            return true;
        }
        feed(std::clamp<int64_t>(static_cast<int64_t>(stretcher_->getSamplesRequired()), kMinFeedFrames, kFeedFrames));
    }
    return stretcher_->available() >= count;
}

void AudioFxHQStretch::seek(int64_t position, float stretch)
{
    stretcher_->reset();
    stretcher_->setTimeRatio(static_cast<double>(stretch));
    stretcher_->setPitchScale(1.0 / static_cast<double>(pitch_.load(std::memory_order_relaxed)));
    // Primed with the source just before the position rather than silence, so the first frames heard
    // are the music's, not a fade-in; the stretcher's delay is then dropped from its output.
    primed_ = static_cast<int64_t>(stretcher_->getPreferredStartPad());
    readPosition_ = sourcePosition(position, stretch) - primed_;
    feed(primed_);
    auto delay = static_cast<int64_t>(stretcher_->getStartDelay());
    float* planes[2] = {discard_.channel[0], discard_.channel[1]};
    while (delay > 0)
    {
        const int64_t n = std::min(delay, kFeedFrames);
        if (!fill(n))
        {
            break;
        }
        stretcher_->retrieve(planes, static_cast<size_t>(n));
        delay -= n;
    }
    expected_ = position;
}

void AudioFxHQStretch::process(float* left, float* right, int64_t position, int64_t count)
{
    applyChanges();
    const float stretch = stretch_.load(std::memory_order_relaxed);
    if (isUnity(stretch) && isUnity(pitch_.load(std::memory_order_relaxed)))
    {
        // Straight from source to output: no latency, no processing. Leaving unity restarts.
        pull(left, right, position, count);
        expected_ = -1;
        return;
    }
    if (position != expected_)
    {
        seek(position, stretch);
    }
    if (!fill(count))
    {
        std::fill(left, left + count, 0.0f);
        std::fill(right, right + count, 0.0f);
        expected_ = -1;
        return;
    }
    float* planes[2] = {left, right};
    stretcher_->retrieve(planes, static_cast<size_t>(count));
    expected_ = position + count;
}

bool AudioFxHQStretch::read(AudioData& into)
{
    if (stretcher_ == nullptr || into.channels < 2 || into.channel[0] == nullptr ||
        into.channel[1] == nullptr || into.frames <= 0)
    {
        return false;
    }
    // Larger requests (offline work) go through in pieces of the prepared block.
    for (int64_t done = 0; done < into.frames;)
    {
        const int64_t n = std::min<int64_t>(into.frames - done, std::max<uint32_t>(blockSize_, 1));
        process(into.channel[0] + done, into.channel[1] + done, into.position + done, n);
        done += n;
    }
    return true;
}

bool AudioFxHQStretch::provide(AudioData& request)
{
    if (stretcher_ == nullptr || request.frames <= 0 || request.frames > output_.capacity())
    {
        return false;
    }
    output_.channels = 2;
    output_.frames = request.frames;
    output_.position = request.position;
    process(output_.channel[0], output_.channel[1], output_.position, output_.frames);
    request.adopt(output_);
    return true;
}
