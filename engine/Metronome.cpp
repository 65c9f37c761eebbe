#include "engine/Metronome.h"

#include <algorithm>
#include <cmath>

Metronome::Metronome()
{
    // Room for a second at the clicks' rate until prepare sizes it for the device's block.
    output_.alloc(kClickRate, 2);
    accentStereo_.setFirst(&accentResampled_);
    beatStereo_.setFirst(&beatResampled_);
}

Metronome::~Metronome() = default;

void Metronome::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
    output_.alloc(blockSize, 2);
    accentResampled_.prepare(sampleRate, blockSize);
    beatResampled_.prepare(sampleRate, blockSize);
    accentStereo_.prepare(sampleRate, blockSize);
    beatStereo_.prepare(sampleRate, blockSize);
    recompute();
    reloadClicks();
}

void Metronome::setTempo(float bpm)
{
    tempoValue_ = bpm;
    recompute();
}

void Metronome::setTimeSignature(int32_t numerator, int32_t denominator)
{
    numerator_.store(numerator, std::memory_order_relaxed);
    denominator_.store(denominator, std::memory_order_relaxed);
    recompute();
}

void Metronome::setDelegate(MetronomeDelegate* delegate)
{
    delegate_.store(delegate, std::memory_order_release);
}

void Metronome::recompute()
{
    // The tempo counts quarter notes; the denominator only scales the beat: 6/8 at 120 is 11025 frames
    // a beat at 44.1 kHz. Values nobody should set (a zero tempo) give no beats rather than a fault.
    const double frames = (4.0 / static_cast<double>(denominator())) *
                          (static_cast<double>(sampleRate_) * 60.0) / static_cast<double>(tempoValue_);
    const int64_t perBeat =
        (std::isfinite(frames) && frames >= 1.0 && frames < 9.0e15) ? static_cast<int64_t>(frames) : 0;
    framesPerBeat_.store(perBeat, std::memory_order_relaxed);
}

void Metronome::reloadClicks()
{
    if (sampleRate_ == 0)
    {
        return;
    }
    accentResampled_.loadResampled(accentSample_);
    beatResampled_.loadResampled(beatSample_);
}

void Metronome::loadClick(bool accent, const AudioData& samples)
{
    (accent ? accentSample_ : beatSample_).loadFrom(samples);
    reloadClicks();
}

bool Metronome::provide(AudioData& request)
{
    if (!enabled_.load(std::memory_order_acquire))
    {
        return false;
    }
    output_.frames = std::min(request.frames, output_.capacity());
    output_.position = request.position;
    output_.silence();
    if (!isPlaying())
    {
        output_.position = freePosition_;
    }
    schedule(output_);
    // In both states, so that on a stop the click goes on from where it stood without a jump.
    freePosition_ = output_.position + output_.frames;
    request.adopt(output_);
    return true;
}

void Metronome::schedule(const AudioData& block)
{
    const int64_t perBeat = framesPerBeat_.load(std::memory_order_relaxed);
    const int64_t beatsInBar = std::max<int32_t>(1, numerator_.load(std::memory_order_relaxed));
    MetronomeDelegate* delegate = delegate_.load(std::memory_order_acquire);
    if (perBeat <= 0)
    {
        return;
    }
    // Each pass takes the stretch of the block up to the next beat, so every beat starts a stretch of
    // its own and is read from its own click.
    AudioData rest = block;
    while (rest.frames > 0)
    {
        int64_t beat = rest.position / perBeat;
        int64_t into = rest.position % perBeat;
        if (into < 0)
        {
            into += perBeat;
            --beat;
        }
        const int64_t stretch = std::min(rest.frames, perBeat - into);
        const bool accent = (beat % beatsInBar) == 0;
        // The click is read at the distance from its beat; one that ends early leaves silence behind.
        AudioData piece = rest;
        piece.frames = stretch;
        piece.position = into;
        (accent ? accentStereo_ : beatStereo_).read(piece);
        if (into == 0 && delegate != nullptr)
        {
            delegate->beat();
        }
        rest.advance(stretch);
        rest.frames -= stretch;
        rest.position += stretch;
    }
}
