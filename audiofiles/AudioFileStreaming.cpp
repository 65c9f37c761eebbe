#include "audiofiles/AudioFileStreaming.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace
{

/** One round of the disk thread: short enough that close and a jump are served promptly. */
constexpr auto kRound = std::chrono::milliseconds(10);

} // namespace

/**
 * One buffer of the ring. The position and frames of the AudioData base say which part of the file
 * it holds; they and the samples are written only by the disk thread, and only while valid is false
 * and no reader is marked.
 */
class AudioFileStreaming::QueueBuffer : public AudioBuffer
{
public:
    /** Whether the buffer holds what position and frames say. The disk thread publishes a refill with
     * a release store; clearing it and the reader mark below are sequentially consistent, so that of
     * a reader arriving and a refill starting, at least one sees the other. */
    std::atomic<bool> valid{false};
    /** Non-zero while the audio thread copies from this buffer. */
    std::atomic<int32_t> readers{0};

    bool holds(uint64_t at) const
    {
        return static_cast<uint64_t>(position) <= at && at < static_cast<uint64_t>(position + frames);
    }
};

AudioFileStreaming::AudioFileStreaming() : queue_(std::make_unique<QueueBuffer[]>(kQueueLength)) {}

AudioFileStreaming::~AudioFileStreaming()
{
    close();
}

bool AudioFileStreaming::open(const epiPath& path)
{
    close();
    if (!AudioFileGuess::open(path))
        return false;
    fileFrames_ = frames();
    // An empty file can't be streamed; the inner reader stays open until the next open or close.
    if (fileFrames_ == 0)
        return false;
    // Four seconds of audio per buffer, rounded to 4096 frames: about sixteen seconds in the ring,
    // and a decoder seek at most every four seconds of a sequential stream.
    const auto rate = static_cast<uint64_t>(std::max(sampleRate(), 1));
    blockFrames_ = (4 * rate / 4096 + 1) * 4096;
    const int32_t bufferChannels = std::clamp(channels(), 0, 2);
    for (uint32_t i = 0; i < queueLength_; ++i)
    {
        QueueBuffer& buffer = queue_[i];
        buffer.alloc(static_cast<int64_t>(blockFrames_), bufferChannels);
        buffer.frames = static_cast<int64_t>(blockFrames_);
        buffer.silence();
        buffer.position = 0;
        buffer.frames = 0;
        buffer.valid.store(false, std::memory_order_relaxed);
        buffer.readers.store(0, std::memory_order_relaxed);
    }
    lastIndex_.store(-1, std::memory_order_relaxed);
    readPosition_.store(0, std::memory_order_relaxed);
    underrun_.store(false, std::memory_order_relaxed);
    armed_.store(true, std::memory_order_relaxed);
    // Release: the ring and the lengths above are complete before a reader sees the file open.
    opened_.store(true, std::memory_order_release);
    return start();
}

void AudioFileStreaming::close()
{
    if (opened_.load(std::memory_order_relaxed))
    {
        stop();
        AudioFileGuess::close();
        opened_.store(false, std::memory_order_relaxed);
        return;
    }
    // An empty file may have left the inner reader open.
    AudioFileGuess::close();
}

void AudioFileStreaming::fill(uint32_t index, uint64_t position)
{
    QueueBuffer& buffer = queue_[index];
    buffer.valid.store(false, std::memory_order_seq_cst);
    // The audio thread holds a mark for the length of one block copy at most.
    while (buffer.readers.load(std::memory_order_seq_cst) != 0)
        std::this_thread::yield();
    buffer.position = static_cast<int64_t>(position);
    buffer.frames = static_cast<int64_t>(std::min(fileFrames_ - position, blockFrames_));
    const bool good = AudioFileGuess::read(buffer);
    buffer.valid.store(good, std::memory_order_release);
}

void AudioFileStreaming::run()
{
    while (running())
    {
        if (!armed_.load(std::memory_order_relaxed))
        {
            std::this_thread::sleep_for(kRound);
            continue;
        }
        const uint64_t position = readPosition_.load(std::memory_order_relaxed);
        int32_t current = -1;
        // The last buffer found in the scan wins: at the end of a short file both the buffer that
        // ends there and the wrapped one can hold the position.
        for (uint32_t i = 0; i < queueLength_; ++i)
            if (queue_[i].valid.load(std::memory_order_relaxed) && queue_[i].holds(position))
                current = static_cast<int32_t>(i);
        if (current < 0)
        {
            // A jump: the buffer after the last current one is refilled at the new position.
            const int32_t last = lastIndex_.load(std::memory_order_relaxed);
            current = static_cast<int32_t>((static_cast<uint32_t>(last + 1)) % queueLength_);
            fill(static_cast<uint32_t>(current), position);
        }
        lastIndex_.store(current, std::memory_order_relaxed);

        // The next buffer continues the current one; after the file's end it holds the beginning, so
        // that a loop back to the start is ready at once.
        const QueueBuffer& now = queue_[current];
        const uint64_t want = static_cast<uint64_t>(now.position + now.frames) % fileFrames_;
        const auto next = static_cast<uint32_t>(current + 1) % queueLength_;
        if (!(queue_[next].valid.load(std::memory_order_relaxed) && queue_[next].holds(want)))
            fill(next, want);
        std::this_thread::sleep_for(kRound);
    }
}

bool AudioFileStreaming::read(AudioData& into)
{
    // Acquire: pairs with the release in open, so the ring is seen complete.
    if (!opened_.load(std::memory_order_acquire))
        return false;
    AudioData view;
    view.adopt(into);
    view.position = into.position;
    view.frames = into.frames;
    armed_.store(true, std::memory_order_relaxed);

    if (lastIndex_.load(std::memory_order_relaxed) != -1)
    {
        // Two turns round the ring serve a block that spans two buffers in any order.
        for (uint32_t i = 0; i < 2 * queueLength_ && view.frames > 0; ++i)
        {
            QueueBuffer& buffer = queue_[i % queueLength_];
            buffer.readers.store(1, std::memory_order_seq_cst);
            int64_t count = 0;
            if (buffer.valid.load(std::memory_order_seq_cst) && view.position >= 0 &&
                buffer.available(view.position, view.frames, count) && count > 0)
            {
                view.copyRangeFrom(buffer, view.position - buffer.position, count);
                view.advance(count);
                view.position += count;
                view.frames -= count;
                if (underrun_.load(std::memory_order_relaxed))
                    underrun_.store(false, std::memory_order_relaxed);
            }
            // Release: the copy above is done before the disk thread may refill this buffer.
            buffer.readers.store(0, std::memory_order_release);
        }
    }
    if (view.frames > 0)
    {
        underrun_.store(true, std::memory_order_relaxed);
        view.silence();
    }
    const auto length = static_cast<int64_t>(fileFrames_);
    const int64_t end = into.position + into.frames;
    readPosition_.store(static_cast<uint64_t>(((end % length) + length) % length), std::memory_order_relaxed);
    return true;
}

void AudioFileStreaming::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    AudioFileGuess::prepare(sampleRate, blockSize);
    // Grown only, to two channels: an owner may have grown it beyond the block (a resampler's reads
    // reach further), and a smaller buffer would make the next such read allocate on the audio thread.
    if (static_cast<int64_t>(blockSize) > output_.capacity() || output_.channels != 2)
        output_.alloc(std::max(static_cast<int64_t>(blockSize), output_.capacity()), 2);
}

bool AudioFileStreaming::provide(AudioData& request)
{
    // Grown only, in frames and in channels: a smaller or narrower block reads into part of the buffer,
    // so that the next full-size block finds its room and nothing allocates on the audio thread.
    if (request.frames > output_.capacity() || request.channels > output_.channels)
        output_.alloc(std::max(request.frames, output_.capacity()),
                      std::max(request.channels, output_.channels));
    AudioData view;
    view.adopt(output_);
    view.channels = request.channels;
    view.frames = request.frames;
    view.position = request.position;
    if (!read(view))
        return false;
    request.adopt(view);
    return true;
}
