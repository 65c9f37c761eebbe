#include "engine/graph/AudioMixer.h"

#include <algorithm>
#include <cmath>

namespace
{

float linearFromDb(float dB)
{
    return std::pow(10.0f, dB / 20.0f);
}

} // namespace

void MixerInput::setVolume(float dB)
{
    volumeDb_ = dB;
    gain_.store(linearFromDb(dB), std::memory_order_relaxed);
}

const epiText& MixerInput::volumeText()
{
    text_.clear();
    text_.appendFormatFloat("%+2.1fdB", volumeDb_);
    return text_;
}

const epiText& MixerInput::panText()
{
    const float value = pan();
    text_.clear();
    if (value == 0.0f)
    {
        text_.assignChars("center");
    }
    else if (value > 0.0f)
    {
        // The factor 5 is a display scale only; the pan law itself is linear.
        text_.appendFormatFloat("R%2.1fdB", value * 5.0f);
    }
    else
    {
        text_.appendFormatFloat("L%2.1fdB", -value * 5.0f);
    }
    return text_;
}

bool MixerInput::plays() const
{
    if (!isSoloActive() || isSoloExempt())
    {
        return !isMuted();
    }
    return isSolo();
}

bool AudioMixer::provide(AudioData&)
{
    return false;
}

void AudioMixer::prepare(uint32_t sampleRate, uint32_t blockSize)
{
    sampleRate_ = sampleRate;
    blockSize_ = blockSize;
}

void AudioMixer::addStrip(const MixerInput& strip, const AudioData& block, AudioData& output,
                          float master) const
{
    // A muted source has been asked all the same, so that its effect and recording go on.
    if (!strip.plays())
    {
        return;
    }
    if (block.frames >= output.frames)
    {
        output.mixFrom(block, strip.gain() * master, strip.pan());
        return;
    }
    // A source that delivered fewer frames than asked is added over what it delivered only.
    AudioData part = output;
    part.frames = std::max<int64_t>(block.frames, 0);
    part.mixFrom(block, strip.gain() * master, strip.pan());
}

bool AudioMixer::read(AudioData& output)
{
    const float master = masterGain();
    AudioData block;
    for (const MixerInput& strip : inputs_)
    {
        TrackSource* source = strip.source();
        if (source == nullptr)
        {
            continue;
        }
        block.adoptRange(output);
        block.channels = 2;
        if (source->provide(block))
        {
            addStrip(strip, block, output, master);
        }
    }
    output.clamp();
    return true;
}

bool AudioMixer::mixLive(AudioData& input, AudioData& output)
{
    const float master = masterGain();
    AudioData block;
    for (const MixerInput& strip : inputs_)
    {
        TrackSource* source = strip.source();
        if (source == nullptr)
        {
            continue;
        }
        block.adoptRange(output);
        block.channels = 2;
        if (source->processInput(input, block))
        {
            addStrip(strip, block, output, master);
        }
    }
    return true;
}

void AudioMixer::setSource(int32_t index, TrackSource* source)
{
    if (index >= 0 && index < kInputs)
    {
        inputs_[index].setSource(source);
    }
}

MixerInput& AudioMixer::strip(int32_t index)
{
    return inputs_[(index >= 0 && index < kInputs) ? index : 0];
}

MixerInputControls& AudioMixer::input(int32_t index)
{
    return strip(index);
}

void AudioMixer::setSolo(int32_t index, bool on)
{
    if (index < 0 || index >= kInputs)
    {
        return;
    }
    inputs_[index].setSolo(on);
    const bool any =
        std::any_of(std::begin(inputs_), std::end(inputs_), [](const MixerInput& s) { return s.isSolo(); });
    for (MixerInput& s : inputs_)
    {
        s.setSoloActive(any);
    }
}

void AudioMixer::setMaster(float dB)
{
    masterDb_ = dB;
    masterGain_.store(linearFromDb(dB), std::memory_order_relaxed);
}

const epiText& AudioMixer::masterText()
{
    masterText_.clear();
    masterText_.appendFormatFloat("%+2.1fdB", masterDb_);
    return masterText_;
}
