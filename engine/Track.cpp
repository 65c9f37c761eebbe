#include "engine/Track.h"

#include "audiofiles/AudioFileWriter.h"
#include "epi/epiFileDump.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

namespace
{

/** Frames per piece when a take is merged: bounds the memory of long copies. */
constexpr int64_t kMergePiece = 65536;

/** Copies frames first to last of source into writer, as two channels; false when a read or write fails. */
bool copyFrames(AudioSource& source, int64_t first, int64_t last, AudioFileWriter& writer, AudioBuffer& piece)
{
    const bool mono = source.channels() == 1;
    for (int64_t position = first; position < last;)
    {
        const int64_t count = std::min(kMergePiece, last - position);
        AudioData block;
        block.adopt(piece);
        block.frames = count;
        block.position = position;
        block.channels = mono ? 1 : 2;
        if (!source.read(block))
        {
            return false;
        }
        if (mono)
        {
            std::copy(block.channel[0], block.channel[0] + count, piece.channel[1]);
        }
        block.channel[1] = piece.channel[1];
        block.channels = 2;
        if (!writer.writeFloat(block))
        {
            return false;
        }
        position += count;
    }
    return true;
}

std::string nativeOf(const epiPath& path)
{
    return path.toNativeText();
}

} // namespace

Track::Track()
{
    streamResampler_.setProvider(&streamFile_);
    memoryResampler_.setProvider(&memoryFile_);
    resamplerSwitch_.setFirst(&streamResampler_);
    resamplerSwitch_.setSecond(&memoryResampler_);
    fileStereo_.setFirst(&resamplerSwitch_);
    reader_.setFirst(&fileStereo_);
    stretch_.setSource(&reader_);
    inputSelector_.setFirst(&inputStore_);
    monitorSwitch_.setFirst(&inputSelector_);
    monitorSwitch_.setSecond(&mute_);
    sourceSwitch_.setFirst(&stretch_);
    sourceSwitch_.setSecond(&monitorSwitch_);
    effectInputSwitch_.setFirst(&sourceSwitch_);
    effectInputSwitch_.setSecond(&mute_);
    effect_.setSource(&effectInputSwitch_);
    effectFeed_.setFirst(&effect_);
    effectFeed_.setSecond(&sourceSwitch_);
    frozenStereo_.setFirst(&frozenFile_);
    outputSwitch_.setFirst(&effectFeed_);
    outputSwitch_.setSecond(&frozenStereo_);
    rewire();
}

Track::~Track()
{
    // A take still running is closed, not merged: its temporary file stays on disk.
    recording_.store(false, std::memory_order_relaxed);
    recorder_.close();
    recorder_.setPreview(nullptr);
}

bool Track::provide(AudioData& request)
{
    busy_.store(true, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    bool delivered = false;
    // Acquire: a file just opened by load() was published with the flag's release.
    if (!recording_.load(std::memory_order_relaxed) && !armed_.load(std::memory_order_relaxed) &&
        fileLoaded_.load(std::memory_order_acquire))
    {
        delivered = outputSwitch_.provide(request);
    }
    busy_.store(false, std::memory_order_release);
    return delivered;
}

bool Track::read(AudioData& into)
{
    static_cast<void>(into);
    return false;
}

void Track::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    effect_.prepare(sampleRate, blockSize);
    inputStore_.prepare(sampleRate, blockSize);
    recorder_.prepare(sampleRate, blockSize);
    stretch_.prepare(sampleRate, blockSize);
    effectFeed_.prepare(sampleRate, blockSize);
    streamFile_.prepare(sampleRate, blockSize);
    memoryFile_.prepare(sampleRate, blockSize);
    fileStereo_.prepare(sampleRate, blockSize);
    monitorSwitch_.prepare(sampleRate, blockSize);
    mute_.prepare(sampleRate, blockSize);
    effectInputSwitch_.prepare(sampleRate, blockSize);
    outputSwitch_.prepare(sampleRate, blockSize);
    frozenStereo_.prepare(sampleRate, blockSize);
    frozenFile_.prepare(sampleRate, blockSize);
    inputSelector_.prepare(sampleRate, blockSize);
    sourceSwitch_.prepare(sampleRate, blockSize);
    resamplerSwitch_.prepare(sampleRate, blockSize);
    reader_.prepare(sampleRate, blockSize);
    streamResampler_.prepare(sampleRate, blockSize);
    memoryResampler_.prepare(sampleRate, blockSize);
    streamResampler_.sourceChanged();
    memoryResampler_.sourceChanged();
    // A prepared stretch node starts at unity: the track's speed and pitch go back in.
    applySpeed();
    applyPitch();
}

bool Track::processInput(AudioData& input, AudioData& output)
{
    busy_.store(true, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (!armed_.load(std::memory_order_relaxed))
    {
        busy_.store(false, std::memory_order_release);
        return false;
    }
    inputStore_.store(input);
    if (recording_.load(std::memory_order_acquire) && playing_.load(std::memory_order_relaxed))
    {
        const int64_t p = input.position;
        const int64_t end = p + input.frames;
        const int64_t in = punchIn_.load(std::memory_order_relaxed);
        const int64_t out = punchOut_.load(std::memory_order_relaxed);
        // Whole blocks only: one that crosses the punch-in is recorded whole, one that crosses the
        // punch-out is dropped whole.
        const bool inside = !(in > end) && !(out != 0 && out < end);
        if (inside)
        {
            if (waitingFirstBlock_.load(std::memory_order_relaxed))
            {
                waitingFirstBlock_.store(false, std::memory_order_relaxed);
                takeStart_.store(p, std::memory_order_relaxed);
            }
            // The dry input, after the input gain and before the effect, with the chosen side on both.
            AudioData dry;
            dry.adopt(input);
            const int32_t choice = inputChoice_.load(std::memory_order_relaxed);
            if (choice == 0)
            {
                dry.channel[1] = dry.channel[0];
            }
            else if (choice == 1)
            {
                dry.channel[0] = dry.channel[1];
            }
            recorder_.write(dry);
        }
    }
    const bool delivered = outputSwitch_.provide(output);
    busy_.store(false, std::memory_order_release);
    return delivered;
}

void Track::setPlaying(bool playing)
{
    reader_.setActive(playing);
    playing_.store(playing, std::memory_order_relaxed);
    rewire();
}

int64_t Track::length()
{
    int64_t frames = 0;
    if (directRead_)
    {
        frames = memoryResampler_.frames();
    }
    else if (recording_.load(std::memory_order_relaxed))
    {
        frames = kRecordingLength;
    }
    else
    {
        frames = streamResampler_.frames();
    }
    return static_cast<int64_t>(static_cast<float>(frames) / (speedRatio_ * speedValue_));
}

void Track::setSpeedRatio(float ratio)
{
    speedRatio_ = ratio;
    applySpeed();
}

void Track::beginTake(const epiPath& path, int64_t punchIn, int64_t punchOut)
{
    punchIn_.store(punchIn, std::memory_order_relaxed);
    punchOut_.store(punchOut, std::memory_order_relaxed);
    takePath_ = path;
    recordPath_ = path;
    recordPath_.appendToBaseName("_tmp");
    waitingFirstBlock_.store(true, std::memory_order_relaxed);
    takeStart_.store(0, std::memory_order_relaxed);
}

bool Track::setRecording(bool on)
{
    if (on == recording_.load(std::memory_order_relaxed))
    {
        return true;
    }
    if (on)
    {
        takeError_ = TakeError::none;
        takeErrorText_.clear();
        recorder_.setPreview(&preview_);
        if (recordPath_.empty() || !recorder_.open(recordPath_))
        {
            recorder_.setPreview(nullptr);
            return failTake(TakeError::recorderOpen, "The take could not be recorded into \"" +
                                                         nativeOf(recordPath_) + "\": " + recorder_.error());
        }
        // The recorder is open before the audio thread can see the flag.
        recording_.store(true, std::memory_order_release);
        rewire();
        return true;
    }
    recording_.store(false, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    waitIdle();
    recorder_.close();
    recorder_.setPreview(nullptr);
    const epiPath oldPath = filePath_;
    const bool hadOld = fileLoaded_.load(std::memory_order_relaxed);
    const uint32_t dropped = recorder_.overruns();
    const uint32_t failedWrites = recorder_.writeFailures();
    const bool merged = merge();
    if (merged)
    {
        const epiPath made = takePath_;
        load(made);
        if (dropped != 0 || failedWrites != 0)
        {
            // The take is kept as it is, but the caller must know that it has holes.
            rewire();
            return failTake(TakeError::incomplete,
                            "The disk could not keep up while recording \"" + nativeOf(made) +
                                "\": " + std::to_string(dropped) + " blocks were lost and " +
                                std::to_string(failedWrites) + " buffers could not be written.");
        }
    }
    else if (hadOld)
    {
        // The take failed: the track keeps playing what it had.
        load(oldPath);
    }
    rewire();
    return merged;
}

bool Track::failTake(TakeError error, const std::string& text)
{
    takeError_ = error;
    takeErrorText_ = text;
    return false;
}

bool Track::merge()
{
    const int64_t start = takeStart_.load(std::memory_order_relaxed);
    AudioFileGuess take;
    if (!take.open(recordPath_))
    {
        return failTake(TakeError::takeUnreadable, "The recorded take \"" + nativeOf(recordPath_) +
                                                       "\" could not be read back; it was kept as it is.");
    }
    const int64_t takeLength = static_cast<int64_t>(take.frames());
    if (takeLength <= 0)
    {
        take.close();
        recordPath_.remove();
        return failTake(TakeError::takeEmpty, "Nothing was recorded.");
    }

    // The old file is read at the session's rate, as it was heard.
    AudioFileGuess oldFile;
    AudioResampler_DSP oldResampler;
    AudioSource* old = nullptr;
    int64_t oldLength = 0;
    if (fileLoaded_.load(std::memory_order_relaxed))
    {
        if (!oldFile.open(filePath_))
        {
            return failTake(TakeError::oldUnreadable,
                            "The track's file \"" + nativeOf(filePath_) +
                                "\" could not be opened to join the take to it; the take was kept in \"" +
                                nativeOf(recordPath_) + "\".");
        }
        old = &oldFile;
        oldLength = static_cast<int64_t>(oldFile.frames());
        if (oldFile.sampleRate() != static_cast<int32_t>(sampleRate_))
        {
            oldResampler.setProvider(&oldFile);
            oldResampler.prepare(sampleRate_, 0);
            oldResampler.sourceChanged();
            old = &oldResampler;
            oldLength = oldResampler.frames();
        }
    }

    AudioFileWriter writer;
    AudioFileFormat format;
    format.channels = 2;
    format.sampleRate = static_cast<int32_t>(sampleRate_);
    format.container = AudioFileFormats::kAiff;
    format.depth = 1; // 24 bit
    if (!writer.open(takePath_, format))
    {
        return failTake(TakeError::newUnwritable,
                        "The new file \"" + nativeOf(takePath_) + "\" could not be created (" +
                            writer.error() + "); the take was kept in \"" + nativeOf(recordPath_) + "\".");
    }
    AudioBuffer piece;
    piece.alloc(kMergePiece, 2);
    bool ok = true;
    if (old == nullptr)
    {
        if (start != 0)
        {
            ok = writer.writeSilence(start);
        }
        ok = ok && copyFrames(take, 0, takeLength, writer, piece);
    }
    else if (oldLength < start)
    {
        ok = copyFrames(*old, 0, oldLength, writer, piece) && writer.writeSilence(start - oldLength) &&
             copyFrames(take, 0, takeLength, writer, piece);
    }
    else if (oldLength < start + takeLength)
    {
        ok = copyFrames(*old, 0, start, writer, piece) && copyFrames(take, 0, takeLength, writer, piece);
    }
    else
    {
        ok = copyFrames(*old, 0, start, writer, piece) && copyFrames(take, 0, takeLength, writer, piece) &&
             copyFrames(*old, start + takeLength, oldLength, writer, piece);
    }
    writer.close();
    take.close();
    oldFile.close();
    if (!ok)
    {
        // A half-written file is worth nothing; the take and the old file are both still there.
        takePath_.remove();
        return failTake(TakeError::writeFailed, "Writing \"" + nativeOf(takePath_) +
                                                    "\" failed; the take was kept in \"" +
                                                    nativeOf(recordPath_) + "\".");
    }
    recordPath_.remove();
    takeError_ = TakeError::none;
    takeErrorText_.clear();
    return true;
}

void Track::setPitch(float semitones)
{
    pitchSemitones_ = semitones;
    applyPitch();
}

void Track::applyPitch()
{
    stretch_.setPitch(std::pow(2.0f, -pitchSemitones_ / 12.0f));
}

epiText Track::pitchText() const
{
    if (pitchSemitones_ == 0.0f)
    {
        return epiText("0");
    }
    char text[32];
    std::snprintf(text, sizeof text, "%+d", static_cast<int>(pitchSemitones_));
    return epiText(text);
}

void Track::setSpeed(float speed)
{
    speedValue_ = speed;
    applySpeed();
}

void Track::applySpeed()
{
    stretch_.setStretch(1.0f / (speedRatio_ * speedValue_));
}

epiText Track::speedText() const
{
    char text[32];
    std::snprintf(text, sizeof text, "%d%%", static_cast<int>(speedValue_ * 100.0f));
    return epiText(text);
}

void Track::setEffectLoaded(bool on)
{
    effectLoaded_ = on;
    const bool running = on && !frozen_;
    if (running != effectRunning_)
    {
        effectRunning_ = running;
        effect_.setEnabled(running);
    }
}

void Track::setEffectEnabled(bool on)
{
    if (on)
    {
        setEffectLoaded(true);
    }
    effectEnabled_ = on;
    rewire();
}

void Track::setFrozen(bool on)
{
    const bool wasFrozen = frozen_;
    frozen_ = on;
    const bool running = effectLoaded_ && !frozen_;
    if (running != effectRunning_)
    {
        effectRunning_ = running;
        effect_.setEnabled(running);
    }
    rewire();
    if (!on)
    {
        // The switch no longer reaches the frozen file; once the audio thread is out it can go.
        std::atomic_thread_fence(std::memory_order_seq_cst);
        waitIdle();
        frozenFile_.close();
        // Only a freeze of this track made the file. A path kept from before (a project's stale entry)
        // or one that something else plays is forgotten, not deleted.
        if (wasFrozen && !frozenPath_.empty() && frozenPath_ != filePath_ &&
            !(pathInUse_ && pathInUse_(frozenPath_)))
        {
            frozenPath_.remove();
        }
        frozenPath_ = epiPath();
    }
}

void Track::loadFrozen(const epiPath& path)
{
    frozenPath_ = path;
    frozenFile_.open(path);
}

void Track::setEffectState(epiFileDump& state)
{
    effect_.loadState(state);
}

void Track::effectState(epiFileDump& state)
{
    effect_.saveState(state);
}

void Track::setInput(int32_t choice)
{
    inputChoice_.store(choice, std::memory_order_relaxed);
    inputSelector_.setMode(choice);
    rewire();
}

void Track::setArmed(bool on)
{
    armed_.store(on, std::memory_order_relaxed);
    rewire();
}

bool Track::load(const epiPath& path)
{
    unload();
    const bool opened = streamFile_.open(path);
    filePath_ = path;
    streamResampler_.sourceChanged();
    memoryResampler_.sourceChanged();
    if (opened && streamFile_.sampleRate() != static_cast<int32_t>(sampleRate_))
    {
        // The resampler takes blocks from the file by reference, and the file grows its block buffer
        // to the largest asked for. Growing it here to more than any request of the chain (the
        // history's fetches are at most a second) keeps that allocation off the audio thread.
        const int64_t most = 4 * std::max<int64_t>(sampleRate_, streamFile_.sampleRate());
        AudioData warm;
        warm.frames = most;
        warm.channels = streamFile_.channels();
        streamFile_.provide(warm);
        // A one-frame read puts the disk thread's attention back at the start.
        warm.frames = 1;
        streamFile_.provide(warm);
    }
    frozenPath_ = epiPath();
    takePath_ = epiPath();
    reader_.forget();
    fileLoaded_.store(opened, std::memory_order_release);
    return opened;
}

const char* Track::playRefusal()
{
    if (!isLoaded() || directRead_ || streamFile_.sampleRate() == static_cast<int32_t>(sampleRate_))
    {
        return nullptr;
    }
    return streamResampler_.refusal();
}

void Track::unload()
{
    fileLoaded_.store(false, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    waitIdle();
    memoryFile_.close();
    streamFile_.close();
    frozenFile_.close();
    filePath_ = epiPath();
    streamResampler_.sourceChanged();
    memoryResampler_.sourceChanged();
    reader_.forget();
}

void Track::setDirectRead(bool on)
{
    fileLoaded_.store(false, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    waitIdle();
    streamFile_.close();
    memoryFile_.close();
    bool opened = false;
    if (!filePath_.empty())
    {
        opened = on ? memoryFile_.open(filePath_) : streamFile_.open(filePath_);
    }
    directRead_ = on;
    streamResampler_.sourceChanged();
    memoryResampler_.sourceChanged();
    fileLoaded_.store(opened, std::memory_order_release);
}

void Track::rewire()
{
    const bool effectInPath = effectEnabled_ && effectLoaded_ && !frozen_;
    const bool playing = playing_.load(std::memory_order_relaxed);
    const bool armed = armed_.load(std::memory_order_relaxed);
    effectInputSwitch_.selectFirst(effectInPath);
    effectFeed_.selectFirst(effectInPath);
    sourceSwitch_.selectFirst(playing && !armed);
    monitorSwitch_.selectFirst(armed);
    outputSwitch_.selectFirst(!(playing && frozen_));
    resamplerSwitch_.selectFirst(!directRead_);
}

void Track::waitIdle()
{
    // The audio thread leaves a track within one block; the bound only guards a thread that died there.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (busy_.load(std::memory_order_acquire) && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}
