#include "engine/Manager.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

// The audio thread may not wait: every value it shares with the interface must be a plain atomic word.
static_assert(std::atomic<int64_t>::is_always_lock_free, "64-bit positions must be lock-free");
static_assert(std::atomic<float>::is_always_lock_free, "gains must be lock-free");
static_assert(std::atomic<bool>::is_always_lock_free, "flags must be lock-free");

namespace
{

float linearFromDb(float dB)
{
    return std::pow(10.0f, dB / 20.0f);
}

} // namespace

Manager::Manager() : inputGain_(linearFromDb(kDefaultInputGainDb))
{
    effects_.setDelegate(this);
    for (int32_t i = 0; i < kTracks; ++i)
    {
        tracks_[i].effect().setManager(&effects_);
        tracks_[i].setPathInUse(
            [this, i](const epiPath& path)
            {
                for (int32_t j = 0; j < kTracks; ++j)
                {
                    if (j != i && (tracks_[j].filePath() == path || tracks_[j].frozenPathCopy() == path))
                    {
                        return true;
                    }
                }
                return false;
            });
        setTrackSource(i, &tracks_[i]);
    }
    setTrackSource(kMetronomeIndex, &metronome_);
    metronome_.setDelegate(this);
    mixer_.strip(kMetronomeIndex).setSoloExempt(true);
    mixer_.strip(kMetronomeIndex).setVolume(0.0f);
}

Manager::~Manager()
{
    // A job still running when the panel goes away is abandoned, its partial file removed.
    if (task_ != nullptr)
    {
        task_->cancel();
        task_.reset();
    }
}

void Manager::setTrackSource(int32_t index, TrackSource* source)
{
    if (index < 0 || index >= AudioMixer::kInputs)
    {
        return;
    }
    sources_[index] = source;
    mixer_.setSource(index, source);
    if (source != nullptr)
    {
        source->setPlaying(isPlaying());
        if (index < kTracks)
        {
            // The metronome keeps its own ratio: its tempo is set by the interface.
            source->setSpeedRatio(speedRatio());
        }
        if (sampleRate_ != 0)
        {
            source->prepare(sampleRate_, blockSize_);
        }
    }
}

TrackSource* Manager::trackSource(int32_t index) const
{
    return (index >= 0 && index < AudioMixer::kInputs) ? sources_[index] : nullptr;
}

void Manager::processBlock(AudioData& input, AudioData& output, MidiEventBlock& midi)
{
    blockCount_.fetch_add(1, std::memory_order_release);

    const int64_t locate = pendingLocate_.exchange(-1, std::memory_order_relaxed);
    int64_t position = position_.load(std::memory_order_relaxed);
    if (locate != -1)
    {
        position = locate;
    }

    // End and loop, decided once per block: a block that straddles the loop end plays to its end and
    // the jump comes at the head of the next one, which keeps the loop start exact.
    const bool playing = playing_.load(std::memory_order_relaxed);
    const bool recording = recording_.load(std::memory_order_relaxed);
    if (!loopEnabled_.load(std::memory_order_relaxed))
    {
        if (position >= endPosition_.load(std::memory_order_relaxed) && !recording)
        {
            endReached_.store(true, std::memory_order_relaxed);
        }
    }
    else if (position >= loopEnd_.load(std::memory_order_relaxed))
    {
        if (recording)
        {
            // A take stops at the loop end; it does not wrap.
            endReached_.store(true, std::memory_order_relaxed);
        }
        else if (playing)
        {
            position = loopStart_.load(std::memory_order_relaxed);
        }
    }

    // Host time for the plug-ins: the tempo they hear is the session's at the present speed, and the beat
    // position counts the metronome's beats at that tempo: the tempo counts quarter notes, and a beat
    // lasts 4 / denominator of them (an eighth in 6/8).
    const float tempo = tempo_.load(std::memory_order_relaxed) * speedRatio_.load(std::memory_order_relaxed);
    const int32_t denominator = metronome_.denominator();
    const double framesPerBeat = tempo > 0.0f && denominator > 0 ? (4.0 / static_cast<double>(denominator)) *
                                                                       static_cast<double>(sampleRate_) *
                                                                       60.0 / static_cast<double>(tempo)
                                                                 : 0.0;
    effects_.setTransport(tempo, static_cast<double>(position),
                          framesPerBeat > 0.0 ? static_cast<double>(position) / framesPerBeat : 0.0);
    // Every unit gets the same MIDI; one without a running instance drops it.
    for (Track& t : tracks_)
    {
        t.effect().forwardMidi(midi);
    }
    // The count that switching an effect off waits on.
    for (Track& t : tracks_)
    {
        t.effect().noteTick();
    }

    input.position = position;
    output.position = position;
    output.silence();
    // Nothing further down sees the raw input: the gain is applied in the device's own buffer.
    input.scale(inputGain_.load(std::memory_order_relaxed));
    input.clamp();

    mixer_.mixLive(input, output);
    mixer_.read(output);

    if (playing)
    {
        position += output.frames;
    }
    position_.store(position, std::memory_order_relaxed);

    if (autoRecordArmed_.load(std::memory_order_relaxed) &&
        !autoRecordTripped_.load(std::memory_order_relaxed))
    {
        if (input.peak() > autoRecordThreshold_)
        {
            autoRecordStart_.store(true, std::memory_order_relaxed);
            autoRecordTripped_.store(true, std::memory_order_relaxed);
        }
    }
}

void Manager::setFormat(uint32_t sampleRate, uint32_t blockSize)
{
    if (loopEnabled_.load(std::memory_order_relaxed) && sampleRate != sampleRate_ && sampleRate_ != 0)
    {
        const double factor = static_cast<double>(sampleRate) / static_cast<double>(sampleRate_);
        loopStart_.store(static_cast<int64_t>(static_cast<double>(loopStartFrames()) * factor),
                         std::memory_order_relaxed);
        loopEnd_.store(static_cast<int64_t>(static_cast<double>(loopEndFrames()) * factor),
                       std::memory_order_relaxed);
    }
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    for (TrackSource* source : sources_)
    {
        if (source != nullptr)
        {
            source->prepare(sampleRate, blockSize);
        }
    }
    mixer_.prepare(sampleRate, blockSize);
}

void Manager::propagatePlaying(bool playing)
{
    playing_.store(playing, std::memory_order_relaxed);
    // Tracks first, then the metronome.
    for (TrackSource* source : sources_)
    {
        if (source != nullptr)
        {
            source->setPlaying(playing);
        }
    }
}

void Manager::start()
{
    propagatePlaying(true);
}

void Manager::stop()
{
    propagatePlaying(false);
}

int64_t Manager::toEngine(int64_t sessionFrames) const
{
    return static_cast<int64_t>(static_cast<double>(sessionFrames) /
                                static_cast<double>(positionRatio_.load(std::memory_order_relaxed)));
}

int64_t Manager::toSession(int64_t engineFrames) const
{
    return static_cast<int64_t>(static_cast<double>(engineFrames) *
                                static_cast<double>(positionRatio_.load(std::memory_order_relaxed)));
}

void Manager::locate(int64_t sessionFrames)
{
    pendingLocate_.store(toEngine(std::max<int64_t>(sessionFrames, 0)), std::memory_order_relaxed);
}

int64_t Manager::sessionPosition() const
{
    const int64_t pending = pendingLocate_.load(std::memory_order_relaxed);
    return toSession(pending != -1 ? pending : position_.load(std::memory_order_relaxed));
}

void Manager::setLoopStart(int64_t sessionFrames)
{
    loopStart_.store(toEngine(sessionFrames), std::memory_order_relaxed);
}

int64_t Manager::loopStart() const
{
    return toSession(loopStartFrames());
}

void Manager::setLoopEnd(int64_t sessionFrames)
{
    loopEnd_.store(toEngine(sessionFrames), std::memory_order_relaxed);
}

int64_t Manager::loopEnd() const
{
    return toSession(loopEndFrames());
}

void Manager::setLoopEnabled(bool on)
{
    if (on)
    {
        const int64_t length = sessionLength();
        // Deliberate: the engine-frame loop end is compared with and set to the session-frame length,
        // without conversion; at a speed ratio of 1 the two agree, and the main panel sets the loop
        // afresh after every change of ratio.
        if (loopEndFrames() <= loopStartFrames())
        {
            loopStart_.store(0, std::memory_order_relaxed);
            loopEnd_.store(length, std::memory_order_relaxed);
        }
        if (loopEndFrames() > length)
        {
            loopEnd_.store(length, std::memory_order_relaxed);
        }
    }
    // Stored last, so the audio thread never loops over points that are still being set.
    loopEnabled_.store(on, std::memory_order_relaxed);
}

void Manager::setSpeedRatio(float ratio)
{
    if (!(ratio > 0.0f) || !std::isfinite(ratio))
    {
        return;
    }
    const int64_t start = loopStart();
    const int64_t end = loopEnd();
    speedRatio_.store(ratio, std::memory_order_relaxed);
    positionRatio_.store(ratio, std::memory_order_relaxed);
    loopStart_.store(toEngine(start), std::memory_order_relaxed);
    loopEnd_.store(toEngine(end), std::memory_order_relaxed);
    for (int32_t i = 0; i < kTracks; ++i)
    {
        if (sources_[i] != nullptr)
        {
            sources_[i]->setSpeedRatio(ratio);
        }
    }
}

int64_t Manager::sessionLength()
{
    const double ratio = speedRatio();
    int64_t longest = 0;
    for (int32_t i = 0; i < kTracks; ++i)
    {
        if (sources_[i] != nullptr)
        {
            longest =
                std::max(longest, static_cast<int64_t>(static_cast<double>(sources_[i]->length()) * ratio));
        }
    }
    if (longest == 0)
    {
        longest = kEmptySessionLength;
    }
    endPosition_.store(static_cast<int64_t>(static_cast<double>(longest) / ratio), std::memory_order_relaxed);
    return longest;
}

void Manager::clearEnd()
{
    endPosition_.store(0, std::memory_order_relaxed);
}

void Manager::setAutoRecord(bool on)
{
    autoRecordTripped_.store(false, std::memory_order_relaxed);
    autoRecordStart_.store(false, std::memory_order_relaxed);
    autoRecordArmed_.store(on, std::memory_order_relaxed);
}

void Manager::waitForBlocks()
{
    using Clock = std::chrono::steady_clock;
    const uint32_t start = blockCount();
    const auto startSecond =
        std::chrono::duration_cast<std::chrono::seconds>(Clock::now().time_since_epoch());
    for (;;)
    {
        // Unsigned difference: the count may wrap.
        if (blockCount() - start >= kWaitBlocks)
        {
            return;
        }
        const auto nowSecond =
            std::chrono::duration_cast<std::chrono::seconds>(Clock::now().time_since_epoch());
        if (nowSecond > startSecond + std::chrono::seconds(1))
        {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

bool Manager::loadTrack(int32_t track, const epiPath& path)
{
    const bool opened = tracks_[clampTrack(track)].load(path);
    pendingLocate_.store(0, std::memory_order_relaxed);
    return opened;
}

void Manager::unloadTrack(int32_t track)
{
    tracks_[clampTrack(track)].unload();
}

bool Manager::startTake(int32_t track, const epiPath& path)
{
    Track& t = tracks_[clampTrack(track)];
    if (isLoopEnabled())
    {
        t.beginTake(path, loopStartFrames(), loopEndFrames());
    }
    else
    {
        t.beginTake(path, 0, 0);
    }
    return t.setRecording(true);
}

void Manager::setRecordLatency(int64_t frames, int32_t unused)
{
    static_cast<void>(unused);
    for (Track& t : tracks_)
    {
        t.recorder().setLatency(frames);
    }
}

void Manager::showEditor(int32_t track)
{
    hideEditor();
    editorTrack_ = clampTrack(track);
    tracks_[editorTrack_].effect().setEditorParent(editorParent_);
}

void Manager::hideEditor()
{
    if (editorTrack_ >= 0)
    {
        tracks_[editorTrack_].effect().closeEditor();
    }
    editorTrack_ = -1;
}

bool Manager::anyEffectChanged()
{
    for (Track& t : tracks_)
    {
        if (t.effect().isStateChanged())
        {
            return true;
        }
    }
    return false;
}

int64_t Manager::trackLength(int32_t track)
{
    TrackSource* source = (track >= 0 && track < kTracks) ? sources_[track] : nullptr;
    return source != nullptr ? toSession(source->length()) : 0;
}

int64_t Manager::trackOffset(int32_t track)
{
    TrackSource* source = (track >= 0 && track < kTracks) ? sources_[track] : nullptr;
    return source != nullptr ? toSession(source->offset()) : 0;
}

void Manager::setTrackOffset(int32_t track, int64_t sessionFrames)
{
    TrackSource* source = (track >= 0 && track < kTracks) ? sources_[track] : nullptr;
    if (source != nullptr)
    {
        source->setOffset(toEngine(sessionFrames));
    }
}

void Manager::setInputGain(float dB)
{
    inputGainDb_ = dB;
    inputGain_.store(linearFromDb(dB), std::memory_order_relaxed);
}

const epiText& Manager::inputGainText()
{
    inputGainText_.clear();
    inputGainText_.appendFormatFloat("%+2.1f dB", inputGainDb_);
    return inputGainText_;
}

void Manager::startTask(const std::function<std::unique_ptr<Exporter>()>& makeJob, const epiText& title,
                        const epiText& message)
{
    cancelTask();
    ManagerDelegate* d = delegate();
    if (d != nullptr)
    {
        d->audioSuspend();
    }
    task_ = makeJob ? makeJob() : nullptr;
    if (task_ == nullptr)
    {
        if (d != nullptr)
        {
            d->audioResume();
        }
        return;
    }
    if (d != nullptr)
    {
        d->taskTitle(title);
        d->taskMessage(message);
    }
}

void Manager::finishTask()
{
    task_.reset();
    if (ManagerDelegate* d = delegate())
    {
        d->audioResume();
    }
}

void Manager::cancelTask()
{
    if (task_ == nullptr)
    {
        return;
    }
    task_->cancel();
    finishTask();
}

void Manager::pumpTask()
{
    ManagerDelegate* d = delegate();
    float progress = 0.0f;
    bool finished = false;
    if (task_->render(progress, finished))
    {
        if (d != nullptr)
        {
            d->taskProgress(progress);
        }
        if (finished)
        {
            if (d != nullptr)
            {
                d->taskFinished();
            }
            finishTask();
        }
        return;
    }
    if (d != nullptr)
    {
        const epiText why = task_->failure();
        d->taskFailed(why.empty() ? epiText("Unknown error") : why);
    }
    // A failed job is undone as a cancelled one is: the tracks stream again, with the transport's
    // playing state, and its half-made file goes.
    task_->cancel();
    finishTask();
}

void Manager::poll()
{
    ManagerDelegate* d = delegate();
    if (pluginChanged_.exchange(false, std::memory_order_relaxed) && d != nullptr)
    {
        d->pluginChanged();
    }
    if (task_ != nullptr)
    {
        pumpTask();
    }
    if (endReached_.exchange(false, std::memory_order_relaxed) && d != nullptr)
    {
        d->endReached();
    }
    if (autoRecordStart_.exchange(false, std::memory_order_relaxed))
    {
        if (!isPlaying())
        {
            propagatePlaying(true);
        }
        autoRecordArmed_.store(false, std::memory_order_relaxed);
        if (d != nullptr)
        {
            d->autoRecordStarted();
        }
    }
}

void Manager::beat()
{
    if (ManagerDelegate* d = delegate())
    {
        d->metronomeBeat();
    }
}
