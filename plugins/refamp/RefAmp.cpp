#include "plugins/refamp/RefAmp.h"

#include "plugins/refamp/Cabinet.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace refamp
{

namespace
{

/** Flushes denormals to zero while a block runs: the room's tail decays into them. */
class DenormalGuard
{
public:
    DenormalGuard()
    {
#if defined(__SSE__)
        saved_ = _mm_getcsr();
        _mm_setcsr(saved_ | 0x8040); // flush to zero, denormals are zero
#endif
    }
    DenormalGuard(const DenormalGuard&) = delete;
    DenormalGuard& operator=(const DenormalGuard&) = delete;
    ~DenormalGuard()
    {
#if defined(__SSE__)
        _mm_setcsr(saved_);
#endif
    }

private:
    unsigned saved_ = 0;
};

float coefficient(double seconds, double rate)
{
    return static_cast<float>(std::exp(-1.0 / (seconds * rate)));
}

} // namespace

RefAmp::RefAmp()
{
    setParams(builtInProgram(0));
}

AmpParams RefAmp::params() const
{
    AmpParams p;
    p.gate = shared_.gate.load(std::memory_order_relaxed);
    p.drive = shared_.drive.load(std::memory_order_relaxed);
    p.bass = shared_.bass.load(std::memory_order_relaxed);
    p.mid = shared_.mid.load(std::memory_order_relaxed);
    p.treble = shared_.treble.load(std::memory_order_relaxed);
    p.presence = shared_.presence.load(std::memory_order_relaxed);
    p.master = shared_.master.load(std::memory_order_relaxed);
    p.reverb = shared_.reverb.load(std::memory_order_relaxed);
    p.program = shared_.program.load(std::memory_order_relaxed);
    return p;
}

void RefAmp::setParams(const AmpParams& in)
{
    const AmpParams p = clampParams(in);
    shared_.gate.store(p.gate, std::memory_order_relaxed);
    shared_.drive.store(p.drive, std::memory_order_relaxed);
    shared_.bass.store(p.bass, std::memory_order_relaxed);
    shared_.mid.store(p.mid, std::memory_order_relaxed);
    shared_.treble.store(p.treble, std::memory_order_relaxed);
    shared_.presence.store(p.presence, std::memory_order_relaxed);
    shared_.master.store(p.master, std::memory_order_relaxed);
    shared_.reverb.store(p.reverb, std::memory_order_relaxed);
    shared_.program.store(p.program, std::memory_order_relaxed);
    shared_.version.fetch_add(1, std::memory_order_release);
}

bool RefAmp::setStateText(std::string_view text)
{
    AmpParams p = params();
    if (!readState(text, p))
    {
        return false;
    }
    setParams(p);
    return true;
}

void RefAmp::handleMidi(std::uint32_t message)
{
    const std::uint32_t status = message & 0xF0u;
    const int data1 = static_cast<int>((message >> 8) & 0x7Fu);
    const int data2 = static_cast<int>((message >> 16) & 0x7Fu);
    if (status == 0xC0u)
    {
        selectProgram(data1);
    }
    else if (status == 0xB0u && data1 == 7)
    {
        shared_.master.store(masterFromController(data2), std::memory_order_relaxed);
        shared_.version.fetch_add(1, std::memory_order_release);
    }
}

void RefAmp::setSampleRate(double rate)
{
    rate_ = rate;
    for (int c = 0; c < 2; ++c)
    {
        preamp_[c].prepare(rate);
        // Tighten the low end before the drive, as a guitar amp's input coupling does.
        inputHighpass_[c].setHighpass(rate, 60.0, 0.707);
    }
    cabinet_.prepare(designCabinet(rate));
    room_.prepare(rate);
    holdFrames_ = static_cast<int>(0.05 * rate);
    envelopeRelease_ = coefficient(0.1, rate);
    gateAttack_ = coefficient(0.0005, rate);
    gateRelease_ = coefficient(0.04, rate);
    seenVersion_ = ~0u;
    takeParams();
    reset();
}

void RefAmp::reset()
{
    for (int c = 0; c < 2; ++c)
    {
        inputHighpass_[c].reset();
        preamp_[c].reset();
        bass_[c].reset();
        mid_[c].reset();
        treble_[c].reset();
        presence_[c].reset();
    }
    cabinet_.reset();
    room_.reset();
    envelope_ = 0.0f;
    gateGain_ = gateThreshold_ > 0.0f ? 0.0f : 1.0f;
    holdLeft_ = 0;
    master_ = masterTarget_;
}

void RefAmp::takeParams()
{
    const std::uint32_t version = shared_.version.load(std::memory_order_acquire);
    if (version == seenVersion_ || rate_ <= 0.0)
    {
        return;
    }
    seenVersion_ = version;
    const AmpParams p = params();
    active_ = p;
    for (int c = 0; c < 2; ++c)
    {
        preamp_[c].setDrive(p.drive);
        bass_[c].setLowShelf(rate_, 120.0, p.bass);
        mid_[c].setPeak(rate_, 750.0, 0.8, p.mid);
        treble_[c].setHighShelf(rate_, 3200.0, p.treble);
        presence_[c].setHighShelf(rate_, 5000.0, p.presence);
    }
    gateThreshold_ = p.gate <= kGateOff ? 0.0f : dbToGain(p.gate);
    masterTarget_ = p.master <= kMasterMin ? 0.0f : dbToGain(p.master);
    reverbMix_ = p.reverb;
}

float RefAmp::gate(float left, float right)
{
    if (gateThreshold_ <= 0.0f)
    {
        return 1.0f;
    }
    const float level = std::max(std::fabs(left), std::fabs(right));
    envelope_ = level > envelope_ ? level : envelope_ * envelopeRelease_;
    float target = gateGain_ > 0.5f ? 1.0f : 0.0f;
    if (envelope_ > gateThreshold_)
    {
        target = 1.0f;
        holdLeft_ = holdFrames_;
    }
    else if (holdLeft_ > 0)
    {
        --holdLeft_;
    }
    else if (envelope_ < 0.5f * gateThreshold_) // 6 dB of hysteresis
    {
        target = 0.0f;
    }
    const float c = target > gateGain_ ? gateAttack_ : gateRelease_;
    gateGain_ = target + c * (gateGain_ - target);
    return gateGain_;
}

void RefAmp::processChunk(float* left, float* right, int frames)
{
    for (int i = 0; i < frames; ++i)
    {
        const float g = gate(left[i], right[i]);
        left[i] = inputHighpass_[0].process(left[i] * g);
        right[i] = inputHighpass_[1].process(right[i] * g);
    }
    preamp_[0].process(left, frames);
    preamp_[1].process(right, frames);
    const float step = (masterTarget_ - master_) / static_cast<float>(frames);
    float master = master_;
    for (int i = 0; i < frames; ++i)
    {
        master += step;
        left[i] =
            master * presence_[0].process(treble_[0].process(mid_[0].process(bass_[0].process(left[i]))));
        right[i] =
            master * presence_[1].process(treble_[1].process(mid_[1].process(bass_[1].process(right[i]))));
    }
    master_ = masterTarget_;
    cabinet_.process(left, right, left, right, frames);
    room_.process(left, right, frames, reverbMix_);
}

void RefAmp::process(const float* const* inputs, float* const* outputs, int frames)
{
    if (!isPrepared())
    {
        for (int c = 0; c < 2; ++c)
        {
            if (outputs[c] != inputs[c])
            {
                std::memmove(outputs[c], inputs[c],
                             sizeof(float) * static_cast<std::size_t>(std::max(frames, 0)));
            }
        }
        return;
    }
    DenormalGuard guard;
    for (int done = 0; done < frames;)
    {
        const int n = std::min(Preamp::kMaxFrames, frames - done);
        takeParams();
        for (int i = 0; i < n; ++i)
        {
            // A value that isn't finite would poison every filter behind it: silence instead.
            const float l = inputs[0][done + i];
            const float r = inputs[1][done + i];
            left_[i] = std::isfinite(l) ? l : 0.0f;
            right_[i] = std::isfinite(r) ? r : 0.0f;
        }
        processChunk(left_, right_, n);
        for (int i = 0; i < n; ++i)
        {
            outputs[0][done + i] = std::isfinite(left_[i]) ? left_[i] : 0.0f;
            outputs[1][done + i] = std::isfinite(right_[i]) ? right_[i] : 0.0f;
        }
        done += n;
    }
}

} // namespace refamp
