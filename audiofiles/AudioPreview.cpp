#include "audiofiles/AudioPreview.h"

#include <algorithm>
#include <filesystem>

namespace
{

AudioResamplerFactory& defaultFactory()
{
    static AudioResamplerFactory factory;
    return factory;
}

} // namespace

AudioPreview::AudioPreview() = default;

AudioPreview::~AudioPreview()
{
    reset();
}

float AudioPreview::shape(float x)
{
    if (x > 0.5f)
        return (x - 0.5f) * 0.375f + 0.625f;
    if (x < -0.5f)
        return -0.625f - (-x - 0.5f) * 0.375f;
    return 1.25f * x;
}

int32_t AudioPreview::rowFor(int32_t value, int32_t height)
{
    const int32_t centre = height / 2;
    return centre - (value * (centre - 1)) / 127;
}

void AudioPreview::freeStore()
{
    maxima_.reset();
    minima_.reset();
    scales_.clear();
    points_ = 0;
}

void AudioPreview::reset()
{
    stop();
    freeStore();
    file_.reset();
    resampler_.reset();
    ready_.store(false, std::memory_order_relaxed);
    finished_.store(false, std::memory_order_relaxed);
    progress_.store(0, std::memory_order_relaxed);
    lastNotified_ = 0;
    total_ = step_ = chunk_ = 0;
}

void AudioPreview::prepare(int64_t frames, int32_t rate)
{
    step_ = rate / kPointsPerSecond;
    if (step_ <= 0)
    {
        total_ = chunk_ = 0;
        return;
    }
    total_ = static_cast<int32_t>(frames / step_ * step_);
    chunk_ = rate / step_ * step_;
    const int32_t points = total_ / step_;
    progress_.store(0, std::memory_order_relaxed);
    lastNotified_ = 0;
    if (points == 0)
        return;
    freeStore();
    points_ = points;
    maxima_ = std::make_unique<std::atomic<int8_t>[]>(static_cast<size_t>(points));
    minima_ = std::make_unique<std::atomic<int8_t>[]>(static_cast<size_t>(points));
    finished_.store(false, std::memory_order_relaxed);
    running_.store(false, std::memory_order_relaxed);
    ready_.store(true, std::memory_order_release);
}

void AudioPreview::openMemory(int64_t frames, int32_t rate)
{
    reset();
    prepare(frames, rate);
}

void AudioPreview::setDefaultResamplerFactory(AudioResamplerFactory factory)
{
    defaultFactory() = std::move(factory);
}

const AudioResamplerFactory& AudioPreview::defaultResamplerFactory()
{
    return defaultFactory();
}

bool AudioPreview::open(const epiPath& path, int32_t rate, const AudioResamplerFactory& factory)
{
    reset();
    auto file = std::make_unique<AudioFileGuessSafe>();
    if (!file->open(path))
        return false;
    const int32_t fileRate = file->sampleRate();
    int64_t length = static_cast<int64_t>(file->frames());
    if (rate == 0)
        rate = fileRate;
    else if (rate != fileRate && fileRate > 0)
    {
        length = static_cast<int64_t>(static_cast<double>(length) * rate / fileRate);
        const AudioResamplerFactory& make = factory ? factory : defaultFactory();
        resampler_ = make ? make() : std::make_unique<AudioResampler_aliased>();
        resampler_->setProvider(file.get());
        resampler_->prepare(static_cast<uint32_t>(rate), 0);
        resampler_->sourceChanged();
    }
    file_ = std::move(file);
    prepare(length, rate);
    // Reads go through the resampler a chunk at a time: size it now, off the reduction thread.
    if (resampler_)
        resampler_->prepare(static_cast<uint32_t>(rate), static_cast<uint32_t>(std::max(chunk_, 0)));
    return true;
}

void AudioPreview::start()
{
    if (!ready() || finished() || running_.load(std::memory_order_relaxed) || !file_)
        return;
    running_.store(someThread::start(), std::memory_order_relaxed);
}

void AudioPreview::stop()
{
    someThread::stop();
    running_.store(false, std::memory_order_relaxed);
}

void AudioPreview::run()
{
    AudioBuffer buffer;
    const int32_t channels = resampler_ ? resampler_->channels() : file_->channels();
    buffer.alloc(chunk_, std::clamp(channels, 1, 2));
    while (running())
    {
        if (finished())
            break;
        const int32_t at = progress_.load(std::memory_order_relaxed);
        if (at < total_)
        {
            buffer.position = at;
            buffer.frames = std::min(chunk_, total_ - at);
            // A failed read leaves its points at zero; progress moves on all the same.
            buffer.silence();
            if (resampler_)
                resampler_->read(buffer);
            else
                file_->read(buffer);
        }
        addBlock(buffer, false);
    }
    // Once complete the overview stands alone: the decoder and its handle go at once. The
    // resampler, which points at the file, is left unused until reset.
    if (finished())
        file_.reset();
}

void AudioPreview::addBlock(const AudioData& data, bool absolute)
{
    if (!ready() || step_ <= 0)
        return;
    int32_t at = progress_.load(std::memory_order_relaxed);
    if (absolute || data.position > at)
        at = static_cast<int32_t>(data.position);
    const int64_t runs = data.frames / step_;
    const int32_t second = data.channels >= 2 ? 1 : 0;
    for (int64_t r = 0; r < runs; ++r)
    {
        const int64_t index = at / step_ + r;
        if (index < 0 || index >= points_)
            continue;
        float high = -2.0f;
        float low = 2.0f;
        for (int32_t c = 0; c <= second && c < data.channels; ++c)
        {
            const float* samples = data.channel[c];
            if (!samples)
                continue;
            for (int64_t i = r * step_; i < (r + 1) * step_; ++i)
            {
                const float shaped = shape(samples[i]);
                high = std::max(high, shaped);
                low = std::min(low, shaped);
            }
        }
        if (high < low)
            high = low = 0.0f;
        maxima_[index].store(static_cast<int8_t>(high * 127.0f), std::memory_order_relaxed);
        minima_[index].store(static_cast<int8_t>(low * 127.0f), std::memory_order_relaxed);
    }
    at += static_cast<int32_t>(data.frames);
    // Release: the points above are written before a reader sees the progress that covers them.
    progress_.store(at, std::memory_order_release);
    finished_.store(at >= total_, std::memory_order_release);
}

void AudioPreview::feedBlock(const AudioData& data)
{
    addBlock(data, true);
}

int8_t AudioPreview::maximum(int32_t i) const
{
    return i >= 0 && i < points_ ? maxima_[i].load(std::memory_order_relaxed) : 0;
}

int8_t AudioPreview::minimum(int32_t i) const
{
    return i >= 0 && i < points_ ? minima_[i].load(std::memory_order_relaxed) : 0;
}

const AudioPreviewPrivateWaveScale& AudioPreview::getScale(int64_t width)
{
    for (const auto& scale : scales_)
        if (scale->width == width && (width >> 32) == 0)
            return *scale;
    auto scale = std::make_unique<AudioPreviewPrivateWaveScale>();
    scale->width = width;
    const int64_t count = std::max<int64_t>(width, 0);
    scale->maxima.assign(static_cast<size_t>(count), 0);
    scale->minima.assign(static_cast<size_t>(count), 0);
    const int64_t points = points_;
    if (points > 0)
    {
        if (width >= points)
        {
            // Wider than the overview: points repeat.
            for (int64_t i = 0; i < count; ++i)
            {
                const auto source = static_cast<int32_t>(i * points / width);
                scale->maxima[i] = maximum(source);
                scale->minima[i] = minimum(source);
            }
        }
        else
        {
            // Narrower: each column takes the extremes of its span of points, both ends included.
            for (int64_t i = 0; i < count; ++i)
            {
                const int64_t from = i * points / width;
                const int64_t to = std::min((i + 1) * points / width, points - 1);
                int8_t high = maximum(static_cast<int32_t>(from));
                int8_t low = minimum(static_cast<int32_t>(from));
                for (int64_t p = from + 1; p <= to; ++p)
                {
                    high = std::max(high, maximum(static_cast<int32_t>(p)));
                    low = std::min(low, minimum(static_cast<int32_t>(p)));
                }
                scale->maxima[i] = high;
                scale->minima[i] = low;
            }
        }
    }
    scales_.push_back(std::move(scale));
    return *scales_.back();
}

bool AudioPreview::changed()
{
    const int32_t now = progress();
    if (!ready() || now == lastNotified_)
        return false;
    lastNotified_ = now;
    scales_.clear();
    return true;
}

PreviewCache::~PreviewCache()
{
    if (current_)
        current_->stop();
}

int32_t PreviewCache::find(const epiPath& path) const
{
    for (size_t i = 0; i < elements_.size(); ++i)
        if (static_cast<const std::string&>(elements_[i]->path) == static_cast<const std::string&>(path))
            return static_cast<int32_t>(i);
    return -1;
}

AudioPreview* PreviewCache::show(const epiPath& path)
{
    AudioPreview* found = nullptr;
    const int32_t index = find(path);
    if (index >= 0)
        found = elements_[static_cast<size_t>(index)].get();
    else if (path.exists())
    {
        auto element = std::make_unique<Element>();
        element->path = path;
        // An element that can't be opened stays, without an overview, so that it isn't retried.
        element->open(path, rate_, factory_);
        found = element.get();
        elements_.push_back(std::move(element));
    }
    if (found != current_)
    {
        if (current_)
            current_->stop();
        current_ = found;
        if (current_)
            current_->start();
    }
    return current_;
}

void PreviewCache::remove(const epiPath& path)
{
    if (current_)
        current_->stop();
    current_ = nullptr;
    const int32_t index = find(path);
    if (index >= 0)
        elements_.erase(elements_.begin() + index);
}
