#include "dsp/stretchhq/AudioFxHQStretch.h"

#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

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
// Full feeds at each extreme time ratio when a stretcher is made.
constexpr int kWarmUpFeeds = 4;
// Frames fed at each semitone of the sweep when a stretcher is made.
constexpr int64_t kSweepFrames = 64;
constexpr int kRangeSemitones = 36; // wider than the pitch range: it grows the tables far enough
// The click that times a new stretcher: a burst at a quarter of the rate, dying away.
constexpr int64_t kClickFrames = 64;
constexpr int64_t kClickPeak = 1;

float click(int64_t i)
{
    return static_cast<float>(std::sin(0.5 * std::numbers::pi * static_cast<double>(i)) *
                              std::exp(-static_cast<double>(i) / 8.0));
}
// Feeds per block before giving up on a stretcher that yields nothing (it never should).
constexpr int32_t kMaxFeeds = 64;

// The stretcher's ranges: speed 0.25 to 4 and 24 semitones either way. Beyond a quarter or four
// times the speed it has been seen reading past its buffers (under ThreadSanitizer, whose allocator
// leaves no slack after them); the choice node plays the standard engine there.
constexpr double kMinTimeRatio = 0.25;
constexpr double kMaxTimeRatio = 4.0;
constexpr double kMinPitchScale = 0.25;
constexpr double kMaxPitchScale = 4.0;

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

AudioFxHQStretch::~AudioFxHQStretch()
{
    release();
}

bool AudioFxHQStretch::covers(float stretch)
{
    const double d = static_cast<double>(stretch);
    return d >= kMinTimeRatio && d <= kMaxTimeRatio;
}

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

RubberBandStretcher* AudioFxHQStretch::make(uint32_t sampleRate, double pitchScale, int64_t& correction)
{
    auto stretcher = std::make_unique<RubberBandStretcher>(sampleRate, 2, kOptions, 1.0, pitchScale);
    stretcher->setMaxProcessSize(kFeedFrames);
    std::vector<float> feed(static_cast<size_t>(kFeedFrames));
    std::vector<float> sink(static_cast<size_t>(kFeedFrames));
    const float* in[2] = {feed.data(), feed.data()};
    float* out[2] = {sink.data(), sink.data()};
    std::vector<float> heard;
    auto play = [&](int64_t frames, bool keep)
    {
        stretcher->process(in, static_cast<size_t>(frames), false);
        while (stretcher->available() > 0)
        {
            const size_t n =
                stretcher->retrieve(out, std::min<size_t>(static_cast<size_t>(stretcher->available()),
                                                          static_cast<size_t>(kFeedFrames)));
            if (keep)
            {
                heard.insert(heard.end(), sink.begin(), sink.begin() + static_cast<std::ptrdiff_t>(n));
            }
        }
    };
    // Its resampler, in the path at every pitch, is steered around the nominal ratio to keep time and
    // allocates whenever a ratio needs a larger table than any before (seen with the allocation
    // counter). Every semitone of the range is played through on silence, twice (it keeps two tables
    // that take turns), and then every time ratio of the range: after that no ratio has made it allocate.
    for (int pass = 0; pass < 2; ++pass)
    {
        for (int semitones = -kRangeSemitones; semitones <= kRangeSemitones; ++semitones)
        {
            stretcher->setPitchScale(std::pow(2.0, semitones / 12.0));
            play(kSweepFrames, false);
        }
    }
    stretcher->setPitchScale(pitchScale);
    for (double ratio : {kMinTimeRatio, kMaxTimeRatio})
    {
        stretcher->reset();
        stretcher->setTimeRatio(ratio);
        for (int i = 0; i < kWarmUpFeeds; ++i)
        {
            play(kFeedFrames, false);
        }
    }
    // The sweep leaves the resampler with a delay that its start delay doesn't count, the same at every
    // time ratio: a click is timed through it at ratio 1 and the difference kept.
    stretcher->reset();
    stretcher->setTimeRatio(1.0);
    const auto pad = static_cast<int64_t>(stretcher->getPreferredStartPad());
    const auto delay = static_cast<int64_t>(stretcher->getStartDelay());
    for (int64_t left = pad; left > 0; left -= kFeedFrames)
    {
        play(std::min(left, kFeedFrames), true);
    }
    heard.clear();
    for (int64_t i = 0; i < kFeedFrames; ++i)
    {
        feed[static_cast<size_t>(i)] = i < kClickFrames ? click(i) : 0.0f;
    }
    play(kFeedFrames, true);
    std::fill(feed.begin(), feed.end(), 0.0f);
    for (int64_t fed = kFeedFrames; fed < delay + 4 * kFeedFrames; fed += kFeedFrames)
    {
        play(kFeedFrames, true);
    }
    const auto loudest = std::max_element(heard.begin(), heard.end(),
                                          [](float a, float b) { return std::fabs(a) < std::fabs(b); });
    correction = heard.empty() ? 0 : (loudest - heard.begin()) - delay - kClickPeak;
    stretcher->reset();
    stretcher->setTimeRatio(1.0);
    return stretcher.release();
}

void AudioFxHQStretch::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    release();
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    stretcher_.reset(make(sampleRate, 1.0, correction_));
    int64_t same = 0;
    spareStretcher_.reset(make(sampleRate, 1.0, same));
    spare_ = Restart{};
    spareReady_ = false;
    prepared_ = true;
    output_.alloc(blockSize, 2);
    input_.alloc(kFeedFrames, 2);
    discard_.alloc(kFeedFrames, 2);
    stretch_.store(1.0f, std::memory_order_relaxed);
    pitch_.store(1.0f, std::memory_order_relaxed);
    pending_.store(0, std::memory_order_relaxed);
    expected_ = -1;
}

void AudioFxHQStretch::release()
{
    prepared_ = false;
    stretcher_.reset();
    spareStretcher_.reset();
    output_.release();
    input_.release();
    discard_.release();
    expected_ = -1;
}

double AudioFxHQStretch::pitchScale(float factor)
{
    return std::clamp(1.0 / static_cast<double>(factor), kMinPitchScale, kMaxPitchScale);
}

void AudioFxHQStretch::applyChanges()
{
    const uint32_t changes = pending_.exchange(0, std::memory_order_acquire);
    if ((changes & kStretchChanged) != 0)
    {
        // The next block restarts, so that source and output positions agree under the new stretch.
        expected_ = -1;
    }
    if ((changes & kPitchChanged) != 0)
    {
        // The running stream glides to the new pitch: the stretcher has met every scale of the range
        // when it was made, so the change neither allocates nor moves its delay.
        stretcher_->setPitchScale(pitchScale(pitch_.load(std::memory_order_relaxed)));
        spareStretcher_->setPitchScale(pitchScale(pitch_.load(std::memory_order_relaxed)));
        // The spare's delay follows the pitch: it is primed again.
        if (spare_.position >= 0)
        {
            restart(*spareStretcher_, spare_, spare_.position, spare_.stretch);
        }
        spareReady_ = false;
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

void AudioFxHQStretch::feed(RubberBandStretcher& stretcher, int64_t& readPosition, int64_t frames)
{
    while (frames > 0)
    {
        const int64_t n = std::min(frames, kFeedFrames);
        pull(input_.channel[0], input_.channel[1], readPosition, n);
        const float* planes[2] = {input_.channel[0], input_.channel[1]};
        stretcher.process(planes, static_cast<size_t>(n), false);
        readPosition += n;
        frames -= n;
    }
}

int64_t AudioFxHQStretch::nextFeed(RubberBandStretcher& stretcher)
{
    return std::clamp<int64_t>(static_cast<int64_t>(stretcher.getSamplesRequired()), kMinFeedFrames,
                               kFeedFrames);
}

bool AudioFxHQStretch::fill(int64_t count)
{
    for (int32_t i = 0; i < kMaxFeeds; ++i)
    {
        if (stretcher_->available() >= count)
        {
            return true;
        }
        feed(*stretcher_, readPosition_, nextFeed(*stretcher_));
    }
    return stretcher_->available() >= count;
}

void AudioFxHQStretch::restart(RubberBandStretcher& stretcher, Restart& r, int64_t position, float stretch)
{
    stretcher.reset();
    stretcher.setTimeRatio(std::clamp(static_cast<double>(stretch), kMinTimeRatio, kMaxTimeRatio));
    // Primed with the source just before the position rather than silence, so the first frames heard
    // are the music's, not a fade-in; the stretcher's delay is then dropped from its output. The
    // resampler's delay beyond the start delay scales as the start delay does, with the inverse of the
    // pitch scale.
    r.position = position;
    r.stretch = stretch;
    r.pad = static_cast<int64_t>(stretcher.getPreferredStartPad());
    r.read = sourcePosition(position, stretch) - r.pad;
    const auto extra =
        std::llround(static_cast<double>(correction_) / pitchScale(pitch_.load(std::memory_order_relaxed)));
    r.discard = std::max<int64_t>(0, static_cast<int64_t>(stretcher.getStartDelay()) + extra);
}

bool AudioFxHQStretch::advance(RubberBandStretcher& stretcher, Restart& r, int64_t budget)
{
    float* planes[2] = {discard_.channel[0], discard_.channel[1]};
    // Each round feeds or drops; a restart at the fastest speed takes some sixty of each.
    for (int32_t i = 0; i < 4 * kMaxFeeds && (r.pad > 0 || r.discard > 0); ++i)
    {
        const auto available = static_cast<int64_t>(stretcher.available());
        if (r.pad == 0 && available > 0)
        {
            const int64_t n = std::min({available, r.discard, kFeedFrames});
            stretcher.retrieve(planes, static_cast<size_t>(n));
            r.discard -= n;
            continue;
        }
        if (budget <= 0)
        {
            break;
        }
        const int64_t n = std::min(budget, r.pad > 0 ? r.pad : nextFeed(stretcher));
        feed(stretcher, r.read, n);
        r.pad -= std::min(r.pad, n);
        budget -= n;
    }
    return r.pad == 0 && r.discard == 0;
}

void AudioFxHQStretch::seek(int64_t position, float stretch)
{
    if (spareReady_ && spare_.position == position && spare_.stretch == stretch)
    {
        // Back to where the last restart went (a loop): the spare has been primed there meanwhile.
        std::swap(stretcher_, spareStretcher_);
        readPosition_ = spare_.read;
    }
    else
    {
        Restart now;
        restart(*stretcher_, now, position, stretch);
        advance(*stretcher_, now, std::numeric_limits<int64_t>::max());
        readPosition_ = now.read;
    }
    // The spare is primed for the next jump here a little at each block.
    restart(*spareStretcher_, spare_, position, stretch);
    spareReady_ = false;
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
    if (!spareReady_ && spare_.position >= 0)
    {
        // Twice the block's frames at most: some 4,000 frames of priming spread over the next blocks.
        spareReady_ = advance(*spareStretcher_, spare_, std::clamp<int64_t>(2 * count, 128, kFeedFrames));
    }
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
