#include "engine/graph/ContiguousReader.h"

#include <algorithm>
#include <cstring>

ContiguousReader::ContiguousReader()
{
    ring_.alloc(kInitialRingFrames, 2);
    ring_.frames = kInitialRingFrames;
}

bool ContiguousReader::provide(AudioData&)
{
    return false;
}

void ContiguousReader::setActive(bool on)
{
    if (!on)
    {
        // A stopped track is not read, so the history would otherwise outlive whatever happens next.
        forget();
    }
    active_.store(on, std::memory_order_relaxed); // relaxed: a command
}

int32_t ContiguousReader::channels()
{
    return input_ != nullptr ? input_->channels() : 2;
}

void ContiguousReader::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    fetch_.alloc(sampleRate, 2);
    ring_.alloc(sampleRate, 2);
    ring_.frames = sampleRate;
    ring_.filledTo = 0;
}

int64_t ContiguousReader::slot(int64_t position) const
{
    const int64_t r = position % ring_.frames;
    return r < 0 ? r + ring_.frames : r;
}

void ContiguousReader::fetchInto(int64_t position, int64_t count)
{
    // Whole steps, so that the input is asked in large regular reads.
    count = (count + kFetchStep - 1) / kFetchStep * kFetchStep;
    if (count > fetch_.capacity())
    {
        // Rounding can overshoot a fetch buffer of one second; keep the end, which is what was asked for.
        position += count - fetch_.capacity();
        count = fetch_.capacity();
    }
    if (count <= 0 || input_ == nullptr || fetch_.channels != 2)
    {
        return;
    }
    fetch_.position = position;
    fetch_.frames = count;
    if (!input_->read(fetch_))
    {
        // Nothing delivered: the ring keeps what it had and the next read asks again.
        return;
    }
    ring_.filledTo = position;
    int64_t done = 0;
    while (done < count)
    {
        const int64_t at = slot(ring_.filledTo);
        const int64_t run = std::min(count - done, ring_.frames - at);
        for (int c = 0; c < 2; ++c)
        {
            std::memcpy(ring_.channel[c] + at, fetch_.channel[c] + done,
                        static_cast<size_t>(run) * sizeof(float));
        }
        done += run;
        ring_.filledTo += run;
    }
}

bool ContiguousReader::read(AudioData& into)
{
    if (forget_.load(std::memory_order_relaxed))
    {
        forget_.store(false, std::memory_order_relaxed);
        ring_.filledTo = 0;
    }
    if (!active_.load(std::memory_order_relaxed) || ring_.frames <= 0 || ring_.channels != 2)
    {
        ring_.filledTo = 0;
        into.silence();
        return true;
    }
    const int64_t length = ring_.frames;
    const int64_t p = into.position;
    const int64_t f = into.frames;

    int64_t oldest = std::max<int64_t>(ring_.filledTo - length, 0);
    if (p < oldest)
    {
        fetchInto(p, f); // a jump back out of the history
    }
    else if (p + f <= ring_.filledTo)
    {
        // all of it is held
    }
    else if (p <= ring_.filledTo || p + f - length <= ring_.filledTo)
    {
        fetchInto(ring_.filledTo, p + f - ring_.filledTo); // the stream goes on, maybe over a short gap
    }
    else
    {
        fetchInto(p, f); // a jump forward
    }

    oldest = std::max<int64_t>(ring_.filledTo - length, 0);
    if (p < oldest || p + f > ring_.filledTo)
    {
        into.silence();
        return true;
    }
    int64_t done = 0;
    while (done < f)
    {
        const int64_t at = slot(p + done);
        const int64_t run = std::min(f - done, length - at);
        for (int32_t c = 0; c < std::min(into.channels, 2); ++c)
        {
            if (into.channel[c] != nullptr)
            {
                std::memcpy(into.channel[c] + done, ring_.channel[c] + at,
                            static_cast<size_t>(run) * sizeof(float));
            }
        }
        done += run;
    }
    return true;
}
