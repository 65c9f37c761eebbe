#include "devices/AudioHardware.h"

#include "engine/Manager.h"
#include "engine/graph/AudioData.h"
#include "host/settings/HostSettings.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace Korvalind3Host
{
namespace
{

// The size taken when a device lists no sizes, or lists this one among others.
constexpr std::uint32_t kFallbackBufferSize = 2048;
// The rate a device that lacks the project's and offers several is opened at.
constexpr std::uint32_t kFallbackSampleRate = 44100;
// The hardware rows a first run tries, in order.
constexpr int kFirstRunRows = 3;

bool contains(const std::vector<std::uint32_t>& list, std::uint32_t value)
{
    return std::find(list.begin(), list.end(), value) != list.end();
}

/** The rate a device is opened at when it lacks the project's: its own when it offers a single
    rate (a JACK server, a fixed-rate card), else 44,100 Hz. */
std::uint32_t replacementRate(const std::vector<std::uint32_t>& inputRates,
                              const std::vector<std::uint32_t>& outputRates)
{
    if (inputRates.size() == 1 && outputRates.size() == 1 && inputRates[0] == outputRates[0])
    {
        return inputRates[0];
    }
    return kFallbackSampleRate;
}

} // namespace

AudioHardware::AudioHardware() = default;

AudioHardware::~AudioHardware()
{
    // The device must stop calling before the members it reaches go away.
    MPAudio::close();
    MPMidi::close();
}

double AudioHardware::applicationTime() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void AudioHardware::debugPrint(const char* text)
{
    std::fputs(text, stderr);
}

void AudioHardware::saveSettings(HostSettings& settings)
{
    settings.save();
}

void AudioHardware::setDelegate(AudioHardwareDelegate* delegate)
{
    delegate_ = delegate;
    if (delegate_)
    {
        delegate_->hardwareStopped();
    }
}

std::uint32_t AudioHardware::pickBufferSize(const std::vector<std::uint32_t>& sizes, std::uint32_t wanted)
{
    if (contains(sizes, wanted))
    {
        return wanted;
    }
    if (sizes.empty() || contains(sizes, kFallbackBufferSize))
    {
        return kFallbackBufferSize;
    }
    return sizes.front();
}

bool AudioHardware::startHardware()
{
    MPAudioConfig config;
    bool started = false;
    if (settings_)
    {
        HostSettings& settings = *settings_;
        selectDriver(settings.technology_.c_str());
        MPAudio::setWindow(windowHandle_);
        MPAudio::enumerateDevices(false);

        // A name that isn't listed leaves -1: no device in that direction.
        int input = -1;
        int output = -1;
        MPAudio::findDevice(settings.inputDevice_.c_str(), true, &input);
        MPAudio::findDevice(settings.outputDevice_.c_str(), false, &output);
        config.inputDevice = input;
        config.outputDevice = output;

        std::vector<std::uint32_t> inputSizes, outputSizes, inputRates, outputRates;
        std::uint32_t inputLatency = 0, outputLatency = 0;
        queryDevice(input, true, &inputSizes, nullptr, &inputRates, nullptr, nullptr, nullptr, &inputLatency);
        queryDevice(output, false, &outputSizes, nullptr, &outputRates, nullptr, nullptr, nullptr,
                    &outputLatency);

        if (!inputRates.empty() && !outputRates.empty())
        {
            config.sampleRate = projectSampleRate_;
            bool rateReplaced = false;
            if (!contains(inputRates, projectSampleRate_) || !contains(outputRates, projectSampleRate_))
            {
                config.sampleRate = replacementRate(inputRates, outputRates);
                rateReplaced = true;
            }

            const std::uint32_t size =
                pickBufferSize(outputSizes, pickBufferSize(inputSizes, settings.bufferSize_));
            if (size != settings.bufferSize_)
            {
                settings.bufferSize_ = size;
                saveSettings(settings);
            }
            config.bufferSize = size;

            config.inputChannels = 2;
            config.outputChannels = 2;
            const char* channelNames[4] = {
                settings.inputLeftChannel_.c_str(), settings.inputRightChannel_.c_str(),
                settings.outputLeftChannel_.c_str(), settings.outputRightChannel_.c_str()};
            for (int i = 0; i < 4; ++i)
            {
                const bool isInput = i < 2;
                int channel = -1;
                if (findChannel(isInput ? input : output, isInput, channelNames[i], &channel))
                {
                    MPAudioRouting& entry = isInput ? config.inputRouting[i] : config.outputRouting[i - 2];
                    entry.used = true;
                    entry.channel = static_cast<std::uint32_t>(channel);
                }
            }

            if (MPAudio::open(config))
            {
                // The device may have granted another period than the one asked for (a server
                // keeping its own, a card with fixed periods): the engine runs at what it got, at
                // the rate it was opened at.
                const std::uint32_t granted = MPAudio::blockSize() != 0 ? MPAudio::blockSize() : size;
                if (manager_ &&
                    (manager_->sampleRate() != config.sampleRate || manager_->blockSize() != granted))
                {
                    manager_->setFormat(config.sampleRate, granted);
                }
                busyMeter_.setBlock(granted, config.sampleRate);
                // The round trip of a take, as the device tells it now that it runs at its period:
                // what its input and output latencies hold, nothing added.
                queryDevice(input, true, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &inputLatency);
                queryDevice(output, false, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            &outputLatency);
                roundTripLatency_ = inputLatency + outputLatency;
                if (manager_)
                {
                    manager_->setRecordLatency(roundTripLatency_, 0);
                }
                started = MPAudio::start();
            }
            if (started && rateReplaced && delegate_)
            {
                delegate_->hardwareRateNotSupported();
            }
        }
    }
    running_ = started;
    MPMidi::open(settings_ ? settings_->midiInputDevice_.c_str() : "", nullptr);
    return running_;
}

bool AudioHardware::pointAtSystemDevice(HostSettings& settings, const char* technology, const char* device)
{
    if (!selectDriver(technology))
    {
        return false;
    }
    MPAudio::enumerateDevices(false);
    const std::vector<MPAudioDevice>& outputs = MPAudio::outputDevices();
    const std::vector<MPAudioDevice>& inputs = MPAudio::inputDevices();
    int output = -1;
    int input = -1;
    if (device != nullptr)
    {
        MPAudio::findDevice(device, false, &output);
        MPAudio::findDevice(device, true, &input);
    }
    else
    {
        output = outputs.empty() ? -1 : 0;
        input = inputs.empty() ? -1 : 0;
    }
    if (output < 0)
    {
        return false;
    }
    settings.technology_ = technology;
    settings.outputDevice_ = outputs[static_cast<std::size_t>(output)].name;
    settings.inputDevice_ = input >= 0 ? inputs[static_cast<std::size_t>(input)].name : "";
    // The first two channels each way; a device with one channel takes it for both sides.
    auto firstTwo = [this](int index, bool isInput, epiText& left, epiText& right)
    {
        std::vector<MPAudioChannelName> names;
        left = right = "";
        if (index >= 0 &&
            queryDevice(index, isInput, nullptr, &names, nullptr, nullptr, nullptr, nullptr, nullptr) &&
            !names.empty())
        {
            left = names[0].name;
            right = names[names.size() > 1 ? 1 : 0].name;
        }
    };
    firstTwo(input, true, settings.inputLeftChannel_, settings.inputRightChannel_);
    firstTwo(output, false, settings.outputLeftChannel_, settings.outputRightChannel_);
    return true;
}

void AudioHardware::stopHardware()
{
    MPAudio::close();
    MPMidi::close();
    busyMeter_.reset();
    running_ = false;
    waiting_ = false;
    if (delegate_)
    {
        delegate_->hardwareStopped();
    }
}

void AudioHardware::waitForHardware()
{
    waitAttempts_ = 0;
    enterRetryState();
}

void AudioHardware::enterRetryState()
{
    waiting_ = true;
    retryTime_ = applicationTime() + kRetrySeconds;
    if (delegate_)
    {
        delegate_->hardwareWaiting();
    }
    // Only the attempt that reaches the count tells the user; later ones of the same run don't.
    if (++waitAttempts_ == kLostAfterAttempts && delegate_)
    {
        delegate_->hardwareLost();
    }
}

void AudioHardware::poll()
{
    const std::uint32_t dropped = midiQueue_.dropped();
    for (; droppedReported_ != dropped; ++droppedReported_)
    {
        debugPrint("Queue full!\n");
    }

    if (running_)
    {
        // A reset asked for by the driver: the device can't be closed from its own callback, so
        // it is done here.
        if (resetRequested_.load(std::memory_order_relaxed))
        {
            stopHardware();
            resetRequested_.store(false, std::memory_order_relaxed);
            waitAttempts_ = 0;
            enterRetryState();
        }
        return;
    }
    if (!waiting_ || !(applicationTime() > retryTime_))
    {
        return;
    }
    bool started = false;
    if (settings_ && settings_->isFirstRun())
    {
        // Never stored: the known interfaces are tried in turn, and row 0 is left for next time.
        for (int row = 0; row < kFirstRunRows && !started; ++row)
        {
            settings_->applyHardwareRow(row);
            started = startHardware();
        }
        // The rows name interfaces of another system; this one's own defaults come next: the JACK
        // server with its first ports, then ALSA's "default".
        for (int fallback = 0; fallback < 2 && !started; ++fallback)
        {
            started = pointAtSystemDevice(*settings_, fallback == 0 ? "JACK" : "ALSA",
                                          fallback == 0 ? nullptr : "default") &&
                      startHardware();
        }
        if (started)
        {
            // Stored by whoever saves the settings next, as a device chosen in the settings panel is.
            settings_->markDirty();
        }
        else
        {
            settings_->applyHardwareRow(0);
        }
    }
    else
    {
        started = startHardware();
    }
    if (started)
    {
        waiting_ = false;
        if (delegate_)
        {
            delegate_->hardwareResumed();
        }
    }
    else
    {
        enterRetryState();
    }
}

int AudioHardware::notify(int code)
{
    if (code == 1)
    {
        resetRequested_.store(true, std::memory_order_relaxed);
    }
    return code - 1;
}

void AudioHardware::process(const float* const* inputs, std::uint32_t, float* const* outputs, std::uint32_t,
                            std::uint32_t frames)
{
    midiBlock_.count = 0;
    MidiEvent event;
    bool any = false;
    while (midiBlock_.count < MidiEventBlock::kCapacity && midiQueue_.pop(event))
    {
        // Events carry no time within the block: they are numbered in order of arrival.
        event.position = midiBlock_.count;
        midiBlock_.events[midiBlock_.count++] = event;
        any = true;
    }
    if (any)
    {
        midiActivity_.store(true, std::memory_order_relaxed);
    }

    // Exactly two channels each way, whatever the counts: the start sequence opens two. The input
    // buffers are the driver layer's own and writable; the Manager scales them in place.
    AudioData input;
    input.channel[0] = const_cast<float*>(inputs[0]);
    input.channel[1] = const_cast<float*>(inputs[1]);
    input.frames = frames;
    input.channels = 2;
    AudioData output;
    output.channel[0] = outputs[0];
    output.channel[1] = outputs[1];
    output.frames = frames;
    output.channels = 2;

    busyMeter_.blockBegins();
    if (manager_)
    {
        manager_->processBlock(input, output, midiBlock_);
    }
    else
    {
        output.silence();
    }
    busyMeter_.blockEnds();
}

void AudioHardware::midiReceived(const MidiMessage* message)
{
    if (message == nullptr)
    {
        return;
    }
    if (message->length == 1 && message->bytes[0] == 0xF8)
    {
        return; // the timing clock would flood the ring
    }
    if (message->length >= 5)
    {
        return;
    }
    // The four bytes after the count, whatever the count: a shorter message carries whatever
    // the rest of its buffer holds, as the plug-in has always been given.
    MidiEvent queued;
    queued.position = 0;
    queued.message = static_cast<std::uint32_t>(message->bytes[0]) |
                     static_cast<std::uint32_t>(message->bytes[1]) << 8 |
                     static_cast<std::uint32_t>(message->bytes[2]) << 16 |
                     static_cast<std::uint32_t>(message->bytes[3]) << 24;
    midiQueue_.push(queued);
}

} // namespace Korvalind3Host
