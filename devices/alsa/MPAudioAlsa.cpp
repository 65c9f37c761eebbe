#include "devices/alsa/MPAudioAlsa.h"

#include "devices/MPAudioBackends.h"

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace
{

// A device thread looks at its quit flag at least this often, which bounds how long a stop takes
// when the device is quiet.
constexpr int kWaitMs = 100;
// A stop gives its threads 100 looks of 100 ms, ten seconds, before giving up on them.
constexpr int kStopLooks = 100;
constexpr std::chrono::milliseconds kStopLook{100};
// The size taken when the configuration asks for none.
constexpr std::uint32_t kDefaultBlockFrames = 512;
constexpr std::uint32_t kBytesPerFrame = 4; // 16-bit stereo
constexpr std::uint32_t kRingBlocks = 4;

/** Asks for the highest realtime priority; a refusal leaves the thread at normal priority. */
void raisePriority()
{
    sched_param param{};
    param.sched_priority = sched_get_priority_max(SCHED_FIFO);
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
}

struct Hint
{
    std::string name;
    std::string description;
    bool input = true;
    bool output = true;
};

std::string hintText(void* hint, const char* id)
{
    char* text = snd_device_name_get_hint(hint, id);
    std::string result = text ? text : "";
    free(text);
    return result;
}

// The rates a device is asked whether it takes.
constexpr std::uint32_t kCommonRates[] = {22050, 44100, 48000, 88200, 96000};

} // namespace

std::atomic<MPAudioAlsa::Hook> MPAudioAlsa::hook_{nullptr};

namespace
{

/** What the test's hook says at a point, 0 without a hook. */
int hookSays(MPAudioAlsa::Hook hook, MPAudioAlsa::HookPoint point, bool capture)
{
    return hook ? hook(point, capture) : 0;
}

} // namespace

std::unique_ptr<MPAudioBase> newAlsaBackend()
{
    return std::make_unique<MPAudioAlsa>();
}

MPAudioAlsa::MPAudioAlsa() = default;

MPAudioAlsa::~MPAudioAlsa()
{
    close();
}

void MPAudioAlsa::LoLevelEnumerate()
{
    inputDevices_.clear();
    outputDevices_.clear();
    void** hints = nullptr;
    if (snd_device_name_hint(-1, "pcm", &hints) < 0 || hints == nullptr)
    {
        return;
    }
    std::vector<Hint> defaults, hardware, plugins;
    for (void** h = hints; *h != nullptr; ++h)
    {
        Hint hint;
        hint.name = hintText(*h, "NAME");
        hint.description = hintText(*h, "DESC");
        const std::string io = hintText(*h, "IOID");
        hint.input = io.empty() || io == "Input";
        hint.output = io.empty() || io == "Output";
        if (hint.name.empty())
        {
            continue;
        }
        if (hint.name == "default")
        {
            defaults.push_back(hint);
        }
        else if (hint.name.rfind("hw:", 0) == 0)
        {
            hardware.push_back(hint);
        }
        else
        {
            plugins.push_back(hint);
        }
    }
    snd_device_name_free_hint(hints);
    // The system's default device carries no hint where no sound card is described, yet it is
    // the one most users want: it comes first whenever the configuration defines it.
    snd_config_t* node = nullptr;
    if (defaults.empty() && snd_config_update() >= 0 && snd_config &&
        snd_config_search(snd_config, "pcm.default", &node) == 0)
    {
        Hint hint;
        hint.name = "default";
        defaults.push_back(hint);
    }
    for (const std::vector<Hint>* group : {&defaults, &hardware, &plugins})
    {
        for (const Hint& hint : *group)
        {
            MPAudioDevice device;
            // The PCM name, not the description: a hardware device's "hw:CARD=id,DEV=n" stays the
            // same when USB devices come and go, while card numbers don't.
            mpCopyName(device.name, hint.name.c_str());
            device.channels = 2;
            if (hint.input)
            {
                device.handle = static_cast<std::int32_t>(inputDevices_.size());
                inputDevices_.push_back(device);
            }
            if (hint.output)
            {
                device.handle = static_cast<std::int32_t>(outputDevices_.size());
                outputDevices_.push_back(device);
            }
        }
    }
}

std::string MPAudioAlsa::pcmName(int index, bool isInput) const
{
    const std::vector<MPAudioDevice>& list = isInput ? inputDevices_ : outputDevices_;
    if (index == kMPAudioDefaultDevice)
    {
        return list.empty() ? std::string("default") : std::string(list.front().name);
    }
    if (index >= 0 && static_cast<std::size_t>(index) < list.size())
    {
        return list[static_cast<std::size_t>(index)].name;
    }
    return {};
}

bool MPAudioAlsa::openPcm(const std::string& name, bool capture, Pcm& out)
{
    snd_pcm_t* raw = nullptr;
    // Non-blocking: a busy device fails the open instead of holding the interface thread, and the
    // device threads only ever block in snd_pcm_wait, with a time-out.
    const Hook hook = hook_.load(std::memory_order_acquire);
    int err = hookSays(hook, HookPoint::Open, capture);
    if (err == 0)
    {
        err = snd_pcm_open(&raw, name.c_str(), capture ? SND_PCM_STREAM_CAPTURE : SND_PCM_STREAM_PLAYBACK,
                           SND_PCM_NONBLOCK);
    }
    Pcm pcm(raw);
    auto fail = [&](const char* what)
    {
        lastError_ = name + ": " + what + ": " + snd_strerror(err);
        return false;
    };
    if (err < 0)
    {
        return fail("cannot open");
    }
    snd_pcm_hw_params_t* hw = nullptr;
    snd_pcm_hw_params_alloca(&hw);
    if ((err = snd_pcm_hw_params_any(pcm.get(), hw)) < 0 ||
        (err = snd_pcm_hw_params_set_access(pcm.get(), hw, SND_PCM_ACCESS_RW_INTERLEAVED)) < 0 ||
        (err = snd_pcm_hw_params_set_format(pcm.get(), hw, SND_PCM_FORMAT_S16_LE)) < 0 ||
        (err = snd_pcm_hw_params_set_channels(pcm.get(), hw, 2)) < 0)
    {
        return fail("16-bit stereo refused");
    }
    if ((err = snd_pcm_hw_params_set_rate(pcm.get(), hw, config_.sampleRate, 0)) < 0)
    {
        return fail(("the rate " + std::to_string(config_.sampleRate) + " Hz refused").c_str());
    }
    snd_pcm_uframes_t period = blockFrames_;
    if (const int granted = hookSays(hook, HookPoint::Period, capture); granted > 0)
    {
        period = static_cast<snd_pcm_uframes_t>(granted);
    }
    int dir = 0;
    if ((err = snd_pcm_hw_params_set_period_size_near(pcm.get(), hw, &period, &dir)) < 0)
    {
        return fail("period size refused");
    }
    // Two periods: the double buffer whose halves the thread fills in turn.
    snd_pcm_uframes_t buffer = period * 2;
    if ((err = snd_pcm_hw_params_set_buffer_size_near(pcm.get(), hw, &buffer)) < 0 ||
        (err = snd_pcm_hw_params(pcm.get(), hw)) < 0)
    {
        return fail("buffer size refused");
    }
    if (period != blockFrames_)
    {
        if (capture && playback_)
        {
            err = -EINVAL;
            return fail(
                ("the capture period of " + std::to_string(period) + " frames differs from playback's")
                    .c_str());
        }
        // The device's own period is what really runs; the buffers are sized after this.
        blockFrames_ = static_cast<std::uint32_t>(period);
    }
    if (!capture)
    {
        playbackBufferFrames_ = static_cast<std::uint32_t>(buffer);
    }
    snd_pcm_sw_params_t* sw = nullptr;
    snd_pcm_sw_params_alloca(&sw);
    if ((err = snd_pcm_sw_params_current(pcm.get(), sw)) < 0 ||
        (err = snd_pcm_sw_params_set_avail_min(pcm.get(), sw, period)) < 0 ||
        (err = snd_pcm_sw_params_set_start_threshold(pcm.get(), sw, capture ? 1 : buffer)) < 0 ||
        (err = snd_pcm_sw_params(pcm.get(), sw)) < 0)
    {
        return fail("software parameters refused");
    }
    out = std::move(pcm);
    return true;
}

bool MPAudioAlsa::LoLevelOpen()
{
    lastError_.clear();
    if (blockFrames_ == 0)
    {
        blockFrames_ = kDefaultBlockFrames;
    }
    playbackName_.clear();
    captureName_.clear();
    if (config_.outputDevice != kMPAudioNoDevice)
    {
        playbackName_ = pcmName(config_.outputDevice, false);
        if (playbackName_.empty())
        {
            lastError_ = "no playback device " + std::to_string(config_.outputDevice);
            return false;
        }
        if (!openPcm(playbackName_, false, playback_))
        {
            return false;
        }
    }
    if (config_.inputDevice != kMPAudioNoDevice)
    {
        captureName_ = pcmName(config_.inputDevice, true);
        if (captureName_.empty() || !openPcm(captureName_, true, capture_))
        {
            if (captureName_.empty())
            {
                lastError_ = "no capture device " + std::to_string(config_.inputDevice);
            }
            playback_.reset();
            return false;
        }
    }
    if (!playback_ && !capture_)
    {
        lastError_ = "no ALSA device chosen";
        return false;
    }
    halfBytes_ = blockFrames_ * kBytesPerFrame;
    ringBytes_ = halfBytes_ * kRingBlocks;
    ring_.assign(ringBytes_ / sizeof(std::int16_t), 0);
    playbackBlock_.assign(blockFrames_ * 2, 0);
    captureBlock_.assign(blockFrames_ * 2, 0);
    silence_.assign(blockFrames_ * 2, 0);
    abandoned_ = false;
    return true;
}

void MPAudioAlsa::LoLevelClose()
{
    if (abandoned_ && threadCount_.load(std::memory_order_acquire) > 0)
    {
        // A device thread that never ended may still be inside these devices: they are left to it.
        (void)playback_.release();
        (void)capture_.release();
        return;
    }
    playback_.reset();
    capture_.reset();
}

bool MPAudioAlsa::LoLevelStart()
{
    if (abandoned_ && threadCount_.load(std::memory_order_acquire) > 0)
    {
        lastError_ = "a device thread of the last run never ended";
        return false;
    }
    abandoned_ = false;
    ringRead_ = 0;
    ringWrite_ = 0;
    std::fill(ring_.begin(), ring_.end(), 0);
    blocksWritten_.store(0, std::memory_order_relaxed);
    blocksRead_.store(0, std::memory_order_relaxed);
    blocksRun_.store(0, std::memory_order_relaxed);
    dropped_.store(0, std::memory_order_relaxed);
    xruns_.store(0, std::memory_order_relaxed);
    quit_.store(false, std::memory_order_relaxed);
    lostSent_.store(false, std::memory_order_relaxed);

    int err = 0;
    if (playback_)
    {
        if ((err = snd_pcm_prepare(playback_.get())) < 0)
        {
            lastError_ = playbackName_ + ": cannot prepare: " + snd_strerror(err);
            return false;
        }
        // Both halves start silent; the device starts playing once they are full.
        std::fill(playbackBlock_.begin(), playbackBlock_.end(), 0);
        for (int half = 0; half < 2; ++half)
        {
            snd_pcm_writei(playback_.get(), playbackBlock_.data(), blockFrames_);
        }
    }
    if (capture_)
    {
        if ((err = snd_pcm_prepare(capture_.get())) < 0 || (err = snd_pcm_start(capture_.get())) < 0)
        {
            lastError_ = captureName_ + ": cannot start: " + snd_strerror(err);
            return false;
        }
    }
    // Counted before the threads exist, so that a stop can never see zero before they began.
    threadCount_.store((playback_ ? 1 : 0) + (capture_ ? 1 : 0), std::memory_order_release);
    if (playback_)
    {
        playbackThread_ = std::thread([this] { playbackLoop(); });
    }
    if (capture_)
    {
        captureThread_ = std::thread([this] { captureLoop(); });
    }
    return true;
}

void MPAudioAlsa::LoLevelStop()
{
    quit_.store(true, std::memory_order_relaxed);
    for (int look = 0; look < kStopLooks && threadCount_.load(std::memory_order_acquire) > 0; ++look)
    {
        std::this_thread::sleep_for(kStopLook);
    }
    if (threadCount_.load(std::memory_order_acquire) > 0)
    {
        abandoned_ = true;
        lastError_ = "a device thread did not end within ten seconds";
        if (playbackThread_.joinable())
        {
            playbackThread_.detach();
        }
        if (captureThread_.joinable())
        {
            captureThread_.detach();
        }
        return;
    }
    if (playbackThread_.joinable())
    {
        playbackThread_.join();
    }
    if (captureThread_.joinable())
    {
        captureThread_.join();
    }
    if (playback_)
    {
        snd_pcm_drop(playback_.get());
    }
    if (capture_)
    {
        snd_pcm_drop(capture_.get());
    }
}

snd_pcm_sframes_t MPAudioAlsa::waitDevice(snd_pcm_t* pcm, bool capture, bool& waited)
{
    const std::int64_t start = BlockPacer::nowNs();
    const int ready = snd_pcm_wait(pcm, kWaitMs);
    // A device with a clock of its own keeps the thread waiting for most of a period.
    const std::int64_t periodNs = static_cast<std::int64_t>(blockFrames_) * 1000000000LL / config_.sampleRate;
    waited = BlockPacer::nowNs() - start > periodNs / 8;
    snd_pcm_sframes_t avail = ready > 0 ? snd_pcm_avail_update(pcm) : ready;
    if (const int injected = hookSays(hook_.load(std::memory_order_acquire), HookPoint::Wait, capture);
        injected < 0)
    {
        avail = injected;
    }
    if (avail < 0)
    {
        recover(pcm, capture, static_cast<int>(avail));
        return 0;
    }
    return avail;
}

void MPAudioAlsa::recover(snd_pcm_t* pcm, bool capture, int error)
{
    xruns_.fetch_add(1, std::memory_order_relaxed);
    if (lostSent_.load(std::memory_order_relaxed))
    {
        // Reported already: the client is closing the device; the loop only waits for its quit.
        std::this_thread::sleep_for(std::chrono::milliseconds(kWaitMs));
        return;
    }
    // An xrun (-EPIPE) or a suspend (-ESTRPIPE) leaves the stream prepared but stopped.
    int err = error == -ENODEV ? error : snd_pcm_recover(pcm, error, 1);
    if (err >= 0 && capture)
    {
        err = snd_pcm_start(pcm);
    }
    else if (err >= 0)
    {
        // Playback starts again once its two halves are full.
        for (int half = 0; half < 2 && err >= 0; ++half)
        {
            const snd_pcm_sframes_t written = snd_pcm_writei(pcm, silence_.data(), blockFrames_);
            err = written < 0 ? static_cast<int>(written) : 0;
        }
    }
    if (err < 0 && !lostSent_.exchange(true, std::memory_order_relaxed))
    {
        // Unplugged, or failing for good: the client closes and retries, as for a lost server.
        notify(1);
    }
}

void MPAudioAlsa::playbackLoop()
{
    raisePriority();
    playbackPacer_.reset(blockFrames_, config_.sampleRate);
    while (!quit_.load(std::memory_order_relaxed))
    {
        bool waited = false;
        if (waitDevice(playback_.get(), false, waited) < static_cast<snd_pcm_sframes_t>(blockFrames_))
        {
            continue;
        }
        playbackPacer_.pace(waited);
        if (quit_.load(std::memory_order_relaxed))
        {
            break;
        }
        playbackHalf();
    }
    threadCount_.fetch_sub(1, std::memory_order_release);
}

void MPAudioAlsa::captureLoop()
{
    raisePriority();
    capturePacer_.reset(blockFrames_, config_.sampleRate);
    while (!quit_.load(std::memory_order_relaxed))
    {
        bool waited = false;
        if (waitDevice(capture_.get(), true, waited) < static_cast<snd_pcm_sframes_t>(blockFrames_))
        {
            continue;
        }
        capturePacer_.pace(waited);
        if (quit_.load(std::memory_order_relaxed))
        {
            break;
        }
        captureHalf();
    }
    threadCount_.fetch_sub(1, std::memory_order_release);
}

void MPAudioAlsa::inputFromCapture(const std::int16_t* interleaved)
{
    // Hardware channel 0 is the left sample of a frame, 1 the right one.
    float* targets[2] = {nullptr, nullptr};
    for (std::uint32_t r = 0; r < inputRouteCount_; ++r)
    {
        if (inputRoutes_[r].hardwareChannel < 2)
        {
            targets[inputRoutes_[r].hardwareChannel] = inputRoutes_[r].buffer;
        }
    }
    stereo16ToFloat(interleaved, targets[0], targets[1], blockFrames_);
}

void MPAudioAlsa::outputToPlayback()
{
    const float* sources[2] = {nullptr, nullptr};
    for (std::uint32_t r = 0; r < outputRouteCount_; ++r)
    {
        if (outputRoutes_[r].hardwareChannel < 2)
        {
            sources[outputRoutes_[r].hardwareChannel] = outputRoutes_[r].buffer;
        }
    }
    floatToStereo16(sources[0], sources[1], playbackBlock_.data(), blockFrames_);
    const snd_pcm_sframes_t written = snd_pcm_writei(playback_.get(), playbackBlock_.data(), blockFrames_);
    if (written < 0)
    {
        recover(playback_.get(), false, static_cast<int>(written));
    }
}

void MPAudioAlsa::playbackHalf()
{
    if (logicalInputs_ != 0 && capture_)
    {
        const std::uint32_t read = blocksRead_.load(std::memory_order_relaxed);
        if (read < blocksWritten_.load(std::memory_order_acquire))
        {
            inputFromCapture(ring_.data() + ringRead_ / sizeof(std::int16_t));
            ringRead_ = (ringRead_ + halfBytes_) % ringBytes_;
            blocksRead_.store(read + 1, std::memory_order_release);
        }
        else
        {
            // No block has come (capture late or restarting): silence, never the last block again,
            // which the input gain would otherwise amplify once more every period.
            inputFromCapture(silence_.data());
        }
    }
    runBlock();
    blocksRun_.fetch_add(1, std::memory_order_relaxed);
    outputToPlayback();
}

void MPAudioAlsa::captureHalf()
{
    const snd_pcm_sframes_t got = snd_pcm_readi(capture_.get(), captureBlock_.data(), blockFrames_);
    if (got < 0)
    {
        recover(capture_.get(), true, static_cast<int>(got));
        return;
    }
    if (static_cast<std::uint32_t>(got) < blockFrames_)
    {
        std::fill(captureBlock_.begin() + got * 2, captureBlock_.end(), 0);
    }
    if (playback_)
    {
        const std::uint32_t written = blocksWritten_.load(std::memory_order_relaxed);
        // The writer fills the slot after its last one; three blocks ahead it would reach the slot
        // the playback thread may be reading, so the block is dropped and counted.
        if (written - blocksRead_.load(std::memory_order_acquire) >= kRingBlocks - 1)
        {
            dropped_.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        // Into the slot the reader takes next after the ones already waiting.
        std::memcpy(reinterpret_cast<char*>(ring_.data()) + ringWrite_, captureBlock_.data(), halfBytes_);
        ringWrite_ = (ringWrite_ + halfBytes_) % ringBytes_;
        blocksWritten_.store(written + 1, std::memory_order_release);
    }
    else
    {
        // Capture only: this thread drives the block.
        inputFromCapture(captureBlock_.data());
        runBlock();
        blocksRun_.fetch_add(1, std::memory_order_relaxed);
    }
}

bool MPAudioAlsa::queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                              std::vector<MPAudioChannelName>* channelNames,
                              std::vector<std::uint32_t>* sampleRates, bool* fixedBufferSize,
                              std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                              std::uint32_t* latency)
{
    const bool common = MPAudioBase::queryDevice(device, isInput, bufferSizes, channelNames, sampleRates,
                                                 fixedBufferSize, preferredBufferSize, reserved, latency);
    enumerateDevices(false);
    const std::string name = pcmName(device, isInput);
    const bool opened = !name.empty() && name == (isInput ? captureName_ : playbackName_) && open_;
    if (sampleRates && !name.empty() && !opened)
    {
        // Asked of the device itself: a hardware device takes only its own rates; one that can't be
        // opened now (busy, gone) keeps the common list.
        snd_pcm_t* pcm = nullptr;
        if (snd_pcm_open(&pcm, name.c_str(), isInput ? SND_PCM_STREAM_CAPTURE : SND_PCM_STREAM_PLAYBACK,
                         SND_PCM_NONBLOCK) == 0)
        {
            snd_pcm_hw_params_t* hw = nullptr;
            snd_pcm_hw_params_alloca(&hw);
            if (snd_pcm_hw_params_any(pcm, hw) >= 0)
            {
                sampleRates->clear();
                for (std::uint32_t rate : kCommonRates)
                {
                    if (snd_pcm_hw_params_test_rate(pcm, hw, rate, 0) == 0)
                    {
                        sampleRates->push_back(rate);
                    }
                }
                unsigned int own = 0;
                int dir = 0;
                if (sampleRates->empty() && snd_pcm_hw_params_get_rate_min(hw, &own, &dir) == 0 && own > 0)
                {
                    sampleRates->push_back(own); // a card of one rate outside the common ones
                }
            }
            snd_pcm_close(pcm);
        }
    }
    if (latency && opened)
    {
        // What waits on the way: on capture the period being filled and, when a playback thread
        // takes the blocks, the ring's block; on playback the whole buffer the device holds.
        *latency = isInput ? blockFrames_ * (playback_ ? 2 : 1) : playbackBufferFrames_;
    }
    return common;
}
