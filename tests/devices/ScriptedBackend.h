#pragma once

#include "devices/MPAudio.h"

#include <cstring>
#include <string>
#include <vector>

/** A backend with no hardware behind it: two devices, LoLevel operations that count their calls and
    fail on request, and `pump`, which runs one block on the calling thread as a driver thread would. */
class ScriptedBackend : public MPAudioBase
{
public:
    ~ScriptedBackend() override { close(); }

    bool failOpen = false;
    bool failStart = false;
    int opens = 0, closes = 0, starts = 0, stops = 0;

    /** Puts hardware samples into the input routes, runs the block, and returns the output routes'
        hardware samples indexed by hardware channel (missing channels stay empty). */
    std::vector<std::vector<float>> pump(const std::vector<std::vector<float>>& hardwareInputs)
    {
        for (std::uint32_t r = 0; r < inputRouteCount_; ++r)
        {
            const MPAudioRoute& route = inputRoutes_[r];
            if (route.hardwareChannel < hardwareInputs.size())
            {
                std::memcpy(route.buffer, hardwareInputs[route.hardwareChannel].data(),
                            blockFrames_ * sizeof(float));
            }
        }
        runBlock();
        std::vector<std::vector<float>> out;
        for (std::uint32_t r = 0; r < outputRouteCount_; ++r)
        {
            const MPAudioRoute& route = outputRoutes_[r];
            if (out.size() <= route.hardwareChannel)
            {
                out.resize(route.hardwareChannel + 1);
            }
            out[route.hardwareChannel].assign(route.buffer, route.buffer + blockFrames_);
        }
        return out;
    }

protected:
    bool LoLevelOpen() override
    {
        ++opens;
        return !failOpen;
    }
    void LoLevelClose() override { ++closes; }
    bool LoLevelStart() override
    {
        ++starts;
        return !failStart;
    }
    void LoLevelStop() override { ++stops; }
    void LoLevelEnumerate() override
    {
        inputDevices_.clear();
        outputDevices_.clear();
        for (std::size_t i = 0; i < names_.size(); ++i)
        {
            MPAudioDevice device;
            mpCopyName(device.name, names_[i].c_str());
            device.channels = 2;
            device.handle = static_cast<std::int32_t>(i);
            inputDevices_.push_back(device);
            outputDevices_.push_back(device);
        }
    }

private:
    std::vector<std::string> names_{"Alpha", "Beta"};
};

/** A client that records what it was given and writes what the test asks for; the MPAudio base
    answers the rest of the interface as a device-less front does. */
class RecordingClient : public MPAudio
{
public:
    std::uint32_t lastInputCount = 0;
    std::vector<std::vector<float>> seenInputs;
    std::vector<const float*> inputPointers;
    std::vector<std::vector<float>> toWrite; ///< per logical output; missing ones are left alone
    void process(const float* const* inputs, std::uint32_t inputCount, float* const* outputs,
                 std::uint32_t outputCount, std::uint32_t frames) override
    {
        lastInputCount = inputCount;
        seenInputs.assign(inputCount, {});
        inputPointers.assign(inputCount, nullptr);
        for (std::uint32_t c = 0; c < inputCount; ++c)
        {
            inputPointers[c] = inputs[c];
            seenInputs[c].assign(inputs[c], inputs[c] + frames);
        }
        for (std::uint32_t c = 0; c < outputCount && c < toWrite.size(); ++c)
        {
            for (std::uint32_t i = 0; i < frames && i < toWrite[c].size(); ++i)
            {
                outputs[c][i] = toWrite[c][i];
            }
        }
    }
};
