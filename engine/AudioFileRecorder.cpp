#include "engine/AudioFileRecorder.h"

#include "audiofiles/AudioPreview.h"

#include <chrono>
#include <thread>

AudioFileRecorder::AudioFileRecorder()
{
    for (Slot& slot : slots_)
    {
        slot.audio.alloc(bufferFrames_, 2);
        slot.audio.frames = 0;
    }
}

AudioFileRecorder::~AudioFileRecorder()
{
    close();
}

bool AudioFileRecorder::provide(AudioData& request)
{
    static_cast<void>(request);
    return false;
}

bool AudioFileRecorder::read(AudioData& into)
{
    static_cast<void>(into);
    return false;
}

void AudioFileRecorder::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
}

bool AudioFileRecorder::open(const epiPath& path)
{
    close();
    AudioFileFormat format;
    format.channels = 2;
    format.sampleRate = static_cast<int32_t>(sampleRate_);
    format.container = AudioFileFormats::kAiff;
    format.depth = 1; // 24 bit
    if (!writer_.open(path, format))
    {
        error_ = writer_.error();
        return false;
    }
    error_.clear();
    for (Slot& slot : slots_)
    {
        slot.filled.store(0, std::memory_order_relaxed);
    }
    // The thread is not running: these plain resets are published to it by its start.
    writeIndex_.store(0, std::memory_order_relaxed);
    readIndex_.store(0, std::memory_order_relaxed);
    overruns_.store(0, std::memory_order_relaxed);
    writeFailures_.store(0, std::memory_order_relaxed);
    framesAccepted_.store(0, std::memory_order_relaxed);
    closing_.store(false, std::memory_order_relaxed);
    isOpen_ = true;
    if (preview_ != nullptr)
    {
        // Room for an hour: a take grows while the overview is drawn.
        preview_->openMemory(static_cast<int64_t>(sampleRate_) * 3600, static_cast<int32_t>(sampleRate_));
    }
    if (!start())
    {
        isOpen_ = false;
        writer_.close();
        path.remove();
        error_ = "the recorder's thread could not be started";
        return false;
    }
    return isOpen_;
}

void AudioFileRecorder::close()
{
    if (!isOpen_)
    {
        return;
    }
    // write no longer runs (the track guarantees it), so this thread may act as the producer here.
    const int32_t w = writeIndex_.load(std::memory_order_relaxed);
    if (slotOf(w).filled.load(std::memory_order_relaxed) > 0)
    {
        writeIndex_.store(w + 1, std::memory_order_release);
    }
    closing_.store(true, std::memory_order_release);
    isOpen_ = false;
    // The thread drains every published buffer before it ends.
    stop();
    writer_.close();
}

int32_t AudioFileRecorder::pendingBuffers() const
{
    return writeIndex_.load(std::memory_order_acquire) - readIndex_.load(std::memory_order_acquire);
}

void AudioFileRecorder::write(AudioData& data)
{
    // The shift is done in 32 bits, as positions of a take are.
    const int32_t s = static_cast<int32_t>(data.position - latency_.load(std::memory_order_relaxed));
    AudioData d;
    d.adopt(data);
    if (s < 0)
    {
        if (d.frames + s <= 0)
        {
            return;
        }
        d.advance(-s);
        d.frames -= -s;
        d.position = 0;
    }
    else
    {
        d.position = s;
    }
    append(d);
}

void AudioFileRecorder::append(AudioData& d)
{
    if (d.frames <= 0 || d.frames > bufferFrames_)
    {
        return;
    }
    int32_t w = writeIndex_.load(std::memory_order_relaxed);
    int64_t filled = slotOf(w).filled.load(std::memory_order_acquire);
    int32_t handedOver = 0;
    if (bufferFrames_ - filled < d.frames)
    {
        // The next slot must have been written and handed back; otherwise the disk is behind and the
        // block is dropped rather than written over audio that isn't on disk yet.
        if (w + 1 - readIndex_.load(std::memory_order_acquire) >= bufferCount_)
        {
            overruns_.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        // The rest of the full slot stays unused: a block is never split.
        writeIndex_.store(w + 1, std::memory_order_release);
        ++w;
        filled = slotOf(w).filled.load(std::memory_order_acquire);
        handedOver = 1;
    }
    Slot& slot = slotOf(w);
    AudioData target;
    target.adopt(slot.audio);
    target.advance(filled);
    target.frames = d.frames;
    target.channels = 2;
    AudioData source;
    source.adopt(d);
    if (source.channels == 1 || source.channel[1] == nullptr)
    {
        source.channel[1] = source.channel[0];
        source.channels = 2;
    }
    target.copyFrom(source);
    slot.filled.store(filled + d.frames, std::memory_order_relaxed);
    framesAccepted_.fetch_add(d.frames, std::memory_order_relaxed);
    if (preview_ != nullptr)
    {
        // At a change of buffer the overview takes the block twice, a few milliseconds of waveform
        // every two seconds; harmless, and kept as the overview has always been fed.
        for (int32_t i = 0; i <= handedOver; ++i)
        {
            preview_->feedBlock(d);
        }
    }
}

void AudioFileRecorder::run()
{
    for (;;)
    {
        const int32_t r = readIndex_.load(std::memory_order_relaxed);
        const int32_t w = writeIndex_.load(std::memory_order_acquire);
        if (r == w)
        {
            if (closing_.load(std::memory_order_acquire) || !running())
            {
                // close's last hand-over was released before closing_: a second look at the counter
                // sees it, and nothing is left behind.
                if (writeIndex_.load(std::memory_order_acquire) == r)
                {
                    return;
                }
                continue;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(kIdleSleepMs));
            continue;
        }
        Slot& slot = slotOf(r);
        AudioData block;
        block.adopt(slot.audio);
        block.frames = slot.filled.load(std::memory_order_relaxed);
        block.channels = 2;
        if (block.frames > 0 && !writer_.writeFloat(block))
        {
            writeFailures_.fetch_add(1, std::memory_order_relaxed);
        }
        slot.filled.store(0, std::memory_order_relaxed);
        readIndex_.store(r + 1, std::memory_order_release);
    }
}
