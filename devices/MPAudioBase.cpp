#include "devices/MPAudioBase.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace
{

// The diagnostic signal's half-periods, in frames: two different pitches tell the channels apart.
constexpr std::uint32_t kDiagnosticHalfPeriodLeft = 200;
constexpr std::uint32_t kDiagnosticHalfPeriodRight = 210;

/** Builds a default configuration from the flat arguments of the short open forms. */
MPAudioConfig flatConfig(int inputDevice, int outputDevice, std::uint32_t bufferSize, int inputLeft,
                         int inputRight, int outputLeft, int outputRight, std::uint32_t sampleRate)
{
    MPAudioConfig config;
    config.inputDevice = inputDevice;
    config.outputDevice = outputDevice;
    config.sampleRate = sampleRate;
    config.bufferSize = bufferSize;
    const int channels[4] = {inputLeft, inputRight, outputLeft, outputRight};
    MPAudioRouting* entries[4] = {&config.inputRouting[0], &config.inputRouting[1], &config.outputRouting[0],
                                  &config.outputRouting[1]};
    for (int i = 0; i < 4; ++i)
    {
        if (channels[i] != -1)
        {
            entries[i]->used = true;
            entries[i]->channel = static_cast<std::uint32_t>(channels[i]);
        }
    }
    return config;
}

} // namespace

MPAudioBase::MPAudioBase() = default;

MPAudioBase::~MPAudioBase()
{
    // A backend's destructor closes before this runs; nothing here may call its LoLevel operations.
}

bool MPAudioBase::open(const MPAudioConfig& config)
{
    if (open_)
    {
        return false;
    }
    config_ = config;
    blockFrames_ = config_.bufferSize;
    config_.inputChannels = std::min(config_.inputChannels, kMPAudioMaxChannels);
    config_.outputChannels = std::min(config_.outputChannels, kMPAudioMaxChannels);
    enumerateDevices(false);
    buildRoutes();
    if (LoLevelOpen())
    {
        if (allocateBuffers())
        {
            open_ = true;
        }
        else
        {
            LoLevelClose();
        }
    }
    return open_;
}

bool MPAudioBase::open(int inputDevice, int outputDevice, std::uint32_t bufferSize, int inputLeft,
                       int inputRight, int outputLeft, int outputRight, std::uint32_t sampleRate)
{
    return open(flatConfig(inputDevice, outputDevice, bufferSize, inputLeft, inputRight, outputLeft,
                           outputRight, sampleRate));
}

bool MPAudioBase::open(const char* inputName, const char* outputName, std::uint32_t bufferSize, int inputLeft,
                       int inputRight, int outputLeft, int outputRight, std::uint32_t sampleRate)
{
    MPAudioConfig config =
        flatConfig(-1, -1, bufferSize, inputLeft, inputRight, outputLeft, outputRight, sampleRate);
    return open(inputName, outputName, config);
}

bool MPAudioBase::open(const char* inputName, const char* outputName, MPAudioConfig& config)
{
    enumerateDevices(false);
    int index = -1;
    config.inputDevice = inputName == nullptr ? -1 : (findDevice(inputName, true, &index) ? index : -2);
    config.outputDevice = outputName == nullptr ? -1 : (findDevice(outputName, false, &index) ? index : -2);
    return open(config);
}

void MPAudioBase::close()
{
    if (!open_)
    {
        return;
    }
    stop();
    LoLevelClose();
    std::fill(std::begin(inputBuffers_), std::end(inputBuffers_), nullptr);
    std::fill(std::begin(outputBuffers_), std::end(outputBuffers_), nullptr);
    for (std::uint32_t i = 0; i < outputRouteCount_; ++i)
    {
        outputRoutes_[i].buffer = nullptr;
    }
    for (std::uint32_t i = 0; i < inputRouteCount_; ++i)
    {
        inputRoutes_[i].buffer = nullptr;
    }
    open_ = false;
}

bool MPAudioBase::start()
{
    if (open_ && !started_)
    {
        started_ = LoLevelStart();
    }
    return started_;
}

void MPAudioBase::stop()
{
    if (started_)
    {
        LoLevelStop();
        started_ = false;
    }
}

void MPAudioBase::enumerateDevices(bool force)
{
    if (!force && enumerated_)
    {
        return;
    }
    LoLevelEnumerate();
    enumerated_ = true;
}

bool MPAudioBase::findDevice(const char* name, bool isInput, int* index)
{
    enumerateDevices(false);
    const std::vector<MPAudioDevice>& list = isInput ? inputDevices_ : outputDevices_;
    int found = -1;
    if (name != nullptr)
    {
        for (std::size_t i = 0; i < list.size(); ++i)
        {
            if (std::strcmp(list[i].name, name) == 0)
            {
                found = static_cast<int>(i);
                break;
            }
        }
    }
    if (index)
    {
        *index = found;
    }
    return found != -1;
}

bool MPAudioBase::queryDevice(int, bool, std::vector<std::uint32_t>* bufferSizes,
                              std::vector<MPAudioChannelName>* channelNames,
                              std::vector<std::uint32_t>* sampleRates, bool* fixedBufferSize,
                              std::uint32_t* preferredBufferSize, std::uint32_t* reserved,
                              std::uint32_t* latency)
{
    if (bufferSizes)
    {
        bufferSizes->clear();
        for (std::uint32_t shift = 0; shift <= 9; ++shift)
        {
            bufferSizes->push_back(128u << shift);
        }
    }
    if (channelNames)
    {
        channelNames->clear();
        MPAudioChannelName name;
        mpCopyName(name.name, "Left");
        channelNames->push_back(name);
        mpCopyName(name.name, "Right");
        channelNames->push_back(name);
    }
    if (sampleRates)
    {
        *sampleRates = {22050, 44100, 48000, 88200, 96000};
    }
    if (fixedBufferSize)
    {
        *fixedBufferSize = false;
    }
    if (preferredBufferSize)
    {
        *preferredBufferSize = 0;
    }
    if (reserved)
    {
        *reserved = 0;
    }
    if (latency)
    {
        *latency = 0;
    }
    return true;
}

bool MPAudioBase::findChannel(int device, bool isInput, const char* name, int* index)
{
    std::vector<MPAudioChannelName> names;
    int found = -1;
    if (name != nullptr &&
        queryDevice(device, isInput, nullptr, &names, nullptr, nullptr, nullptr, nullptr, nullptr))
    {
        for (std::size_t i = 0; i < names.size(); ++i)
        {
            if (std::strcmp(names[i].name, name) == 0)
            {
                found = static_cast<int>(i);
                break;
            }
        }
    }
    if (index)
    {
        *index = found;
    }
    return found != -1;
}

int MPAudioBase::notify(int code)
{
    return client_ ? client_->notify(code) : 0;
}

void MPAudioBase::process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                          std::uint32_t outputCount, std::uint32_t frames)
{
    if (client_)
    {
        client_->process(inputs, inputCount, outputs, outputCount, frames);
    }
    else
    {
        playDiagnosticSignal(outputs, outputCount, frames);
    }
}

int MPAudioBase::resolveDevice(int index, bool isInput) const
{
    const std::size_t count = (isInput ? inputDevices_ : outputDevices_).size();
    if (index == kMPAudioDefaultDevice)
    {
        return count > 0 ? 0 : -1;
    }
    if (index < 0 || static_cast<std::size_t>(index) >= count)
    {
        return -1;
    }
    return index;
}

void MPAudioBase::runBlock()
{
    if (inputFanOut_)
    {
        for (std::uint32_t r = 0; r < inputRouteCount_; ++r)
        {
            const MPAudioRoute& route = inputRoutes_[r];
            for (std::uint32_t e = 0; e < route.extraCount; ++e)
            {
                std::memcpy(route.extraBuffers[e], route.buffer, blockFrames_ * sizeof(float));
            }
        }
    }

    process(inputBuffers_, logicalInputs_, outputBuffers_, logicalOutputs_, blockFrames_);
    // Relaxed: the position is a counter that other threads only display.
    samplePosition_.fetch_add(blockFrames_, std::memory_order_relaxed);

    if (outputNeedsFinish_)
    {
        for (std::uint32_t r = 0; r < outputRouteCount_; ++r)
        {
            MPAudioRoute& route = outputRoutes_[r];
            float* out = route.buffer;
            if (route.extraCount > 0)
            {
                const float* first = outputBuffers_[route.firstLogical];
                std::memcpy(out, first, blockFrames_ * sizeof(float));
                for (std::uint32_t e = 0; e < route.extraCount; ++e)
                {
                    const float* extra = route.extraBuffers[e];
                    for (std::uint32_t i = 0; i < blockFrames_; ++i)
                    {
                        out[i] += extra[i];
                    }
                }
            }
            for (std::uint32_t i = 0; i < blockFrames_; ++i)
            {
                out[i] = std::clamp(out[i], -1.0f, 1.0f);
            }
        }
    }
}

void MPAudioBase::buildRoutes()
{
    inputRouteCount_ = 0;
    outputRouteCount_ = 0;
    for (auto& route : inputRoutes_)
    {
        route = MPAudioRoute{};
    }
    for (auto& route : outputRoutes_)
    {
        route = MPAudioRoute{};
    }
    std::fill(std::begin(inputBuffers_), std::end(inputBuffers_), nullptr);
    std::fill(std::begin(outputBuffers_), std::end(outputBuffers_), nullptr);
    inputFanOut_ = false;
    logicalInputs_ = config_.inputChannels;
    logicalOutputs_ = config_.outputChannels;

    auto build = [](const MPAudioRouting* routing, MPAudioRoute* routes, std::uint32_t& routeCount,
                    std::uint32_t& logical) -> bool
    {
        bool shared = false;
        for (std::uint32_t i = 0; i < kMPAudioMaxChannels; ++i)
        {
            if (!routing[i].used)
            {
                continue;
            }
            MPAudioRoute* found = nullptr;
            for (std::uint32_t r = 0; r < routeCount; ++r)
            {
                if (routes[r].hardwareChannel == routing[i].channel)
                {
                    found = &routes[r];
                    break;
                }
            }
            if (found)
            {
                found->extraLogical[found->extraCount++] = i;
                shared = true;
            }
            else
            {
                MPAudioRoute& route = routes[routeCount++];
                route.hardwareChannel = routing[i].channel;
                route.firstLogical = i;
                route.extraCount = 0;
            }
            logical = std::max(logical, i + 1);
        }
        return shared;
    };
    inputFanOut_ = build(config_.inputRouting, inputRoutes_, inputRouteCount_, logicalInputs_);
    build(config_.outputRouting, outputRoutes_, outputRouteCount_, logicalOutputs_);
    // The last stage of the output path also limits, so it runs for every open, shared or not.
    outputNeedsFinish_ = true;
}

bool MPAudioBase::allocateBuffers()
{
    storage_.clear();
    const std::size_t frames = std::max<std::uint32_t>(blockFrames_, 1);
    auto make = [&]() -> float*
    {
        std::unique_ptr<float[]> buffer(new (std::nothrow) float[frames]());
        float* raw = buffer.get();
        if (raw)
        {
            storage_.push_back(std::move(buffer));
        }
        return raw;
    };
    for (std::uint32_t i = 0; i < logicalInputs_; ++i)
    {
        if (!(inputBuffers_[i] = make()))
        {
            return false;
        }
    }
    for (std::uint32_t i = 0; i < logicalOutputs_; ++i)
    {
        if (!(outputBuffers_[i] = make()))
        {
            return false;
        }
    }
    for (std::uint32_t r = 0; r < inputRouteCount_; ++r)
    {
        MPAudioRoute& route = inputRoutes_[r];
        route.buffer = inputBuffers_[route.firstLogical];
        for (std::uint32_t e = 0; e < route.extraCount; ++e)
        {
            route.extraBuffers[e] = inputBuffers_[route.extraLogical[e]];
        }
    }
    for (std::uint32_t r = 0; r < outputRouteCount_; ++r)
    {
        MPAudioRoute& route = outputRoutes_[r];
        route.buffer = outputBuffers_[route.firstLogical];
        for (std::uint32_t e = 0; e < route.extraCount; ++e)
        {
            route.extraBuffers[e] = outputBuffers_[route.extraLogical[e]];
        }
        if (route.extraCount > 0 && !(route.buffer = make()))
        {
            return false;
        }
    }
    return true;
}

void MPAudioBase::playDiagnosticSignal(float* const* outputs, std::uint32_t outputCount, std::uint32_t frames)
{
    const std::uint32_t position = samplePosition_.load(std::memory_order_relaxed);
    // Each half-period starts with the negative value, counted from the device's start.
    auto square = [](std::uint32_t frame, std::uint32_t halfPeriod)
    { return ((frame / halfPeriod) % 2 == 0) ? -1.0f : 1.0f; };
    if (outputCount > 0 && outputs[0])
    {
        for (std::uint32_t i = 0; i < frames; ++i)
        {
            outputs[0][i] = square(position + i, kDiagnosticHalfPeriodLeft);
        }
    }
    if (outputCount > 1 && outputs[1])
    {
        const std::uint32_t half = frames / 2;
        for (std::uint32_t i = 0; i < frames; ++i)
        {
            outputs[1][i] = i < half ? square(position + i, kDiagnosticHalfPeriodRight) : 0.0f;
        }
    }
}

void MPAudioBase::floatToStereo16(const float* left, const float* right, std::int16_t* interleaved,
                                  std::uint32_t frames)
{
    // The block path has limited every output already; the guard here only keeps a NaN or a
    // stray value from an unlimited caller out of the integer conversion.
    auto convert = [](float x) -> std::int16_t
    {
        if (!(x >= -1.0f))
        {
            x = (x == x) ? -1.0f : 0.0f;
        }
        else if (x > 1.0f)
        {
            x = 1.0f;
        }
        return static_cast<std::int16_t>(x * 32767.0f);
    };
    for (std::uint32_t i = 0; i < frames; ++i)
    {
        interleaved[2 * i] = left ? convert(left[i]) : 0;
        interleaved[2 * i + 1] = right ? convert(right[i]) : 0;
    }
}

void MPAudioBase::stereo16ToFloat(const std::int16_t* interleaved, float* left, float* right,
                                  std::uint32_t frames)
{
    for (std::uint32_t i = 0; i < frames; ++i)
    {
        if (left)
        {
            left[i] = static_cast<float>(interleaved[2 * i]) / 32767.0f;
        }
        if (right)
        {
            right[i] = static_cast<float>(interleaved[2 * i + 1]) / 32767.0f;
        }
    }
}
