#include "devices/MPAudio.h"

#include "devices/MPAudioBackends.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace
{

struct DriverName
{
    const char* name;
    int index;
};

// The table's own names first; the names of the same roles on Windows follow, so that settings
// written there ("ASIO", "DirectX") select the backend of the same kind here.
constexpr DriverName kDriverNames[] = {{"ALSA", 0}, {"JACK", 1}, {"DirectX", 0}, {"ASIO", 1}};

bool equalsIgnoringAsciiCase(const char* a, const char* b)
{
    for (; *a != 0 && *b != 0; ++a, ++b)
    {
        auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; };
        if (lower(*a) != lower(*b))
        {
            return false;
        }
    }
    return *a == *b;
}

} // namespace

MPAudio::MPAudio() {}

namespace
{

/** Backends that a driver thread may still be inside: never freed, and still reachable so that a
    leak checker doesn't count them. */
std::vector<std::unique_ptr<MPAudioBase>>& keptBackends()
{
    static auto* kept = new std::vector<std::unique_ptr<MPAudioBase>>;
    return *kept;
}

void dropBackend(std::unique_ptr<MPAudioBase>& backend)
{
    backend->close();
    if (backend->blockMayBeRunning())
    {
        // Freeing it would pull the memory from under a block that may still return into it.
        keptBackends().push_back(std::move(backend));
    }
    backend.reset();
}

} // namespace

MPAudio::~MPAudio()
{
    if (backend_)
    {
        dropBackend(backend_);
    }
}

const char* MPAudio::driverName(int index)
{
    return (index >= 0 && index < kDriverCount) ? kDriverNames[index].name : nullptr;
}

int MPAudio::driverIndex(const char* name)
{
    if (name == nullptr)
    {
        return -1;
    }
    for (const DriverName& entry : kDriverNames)
    {
        if (equalsIgnoringAsciiCase(entry.name, name))
        {
            return entry.index;
        }
    }
    return -1;
}

bool MPAudio::selectDriver(const char* name)
{
    const int index = driverIndex(name);
    return index >= 0 ? selectDriver(index) : false;
}

bool MPAudio::selectDriver(int index)
{
    if (backend_)
    {
        dropBackend(backend_);
    }
    backendIndex_ = -1;
    if (index >= 0 && index < kDriverCount)
    {
        backend_ = index == 0 ? newAlsaBackend() : newJackBackend();
        if (backend_)
        {
            backendIndex_ = index;
            backend_->setClient(this);
            backend_->setWindow(windowHandle_);
        }
    }
    return backend_ != nullptr;
}

bool MPAudio::open(const MPAudioConfig& config)
{
    return backend_ ? backend_->open(config) : false;
}

bool MPAudio::open(int inputDevice, int outputDevice, std::uint32_t bufferSize, int inputLeft, int inputRight,
                   int outputLeft, int outputRight, std::uint32_t sampleRate)
{
    return backend_ ? backend_->open(inputDevice, outputDevice, bufferSize, inputLeft, inputRight, outputLeft,
                                     outputRight, sampleRate)
                    : false;
}

bool MPAudio::open(const char* inputName, const char* outputName, std::uint32_t bufferSize, int inputLeft,
                   int inputRight, int outputLeft, int outputRight, std::uint32_t sampleRate)
{
    return backend_ ? backend_->open(inputName, outputName, bufferSize, inputLeft, inputRight, outputLeft,
                                     outputRight, sampleRate)
                    : false;
}

bool MPAudio::open(const char* inputName, const char* outputName, MPAudioConfig& config)
{
    return backend_ ? backend_->open(inputName, outputName, config) : false;
}

void MPAudio::close()
{
    if (backend_)
    {
        backend_->close();
    }
}

bool MPAudio::start()
{
    return backend_ ? backend_->start() : false;
}

void MPAudio::stop()
{
    if (backend_)
    {
        backend_->stop();
    }
}

bool MPAudio::isStarted()
{
    return backend_ ? backend_->isStarted() : false;
}

bool MPAudio::isOpen()
{
    return backend_ ? backend_->isOpen() : false;
}

std::uint32_t MPAudio::samplePosition()
{
    return backend_ ? backend_->samplePosition() : 0;
}

std::uint32_t MPAudio::blockSize()
{
    return backend_ ? backend_->blockSize() : 0;
}

void MPAudio::enumerateDevices(bool force)
{
    if (backend_)
    {
        backend_->enumerateDevices(force);
    }
}

const std::vector<MPAudioDevice>& MPAudio::outputDevices()
{
    return backend_ ? backend_->outputDevices() : noDevices_;
}

const std::vector<MPAudioDevice>& MPAudio::inputDevices()
{
    return backend_ ? backend_->inputDevices() : noDevices_;
}

bool MPAudio::findDevice(const char* name, bool isInput, int* index)
{
    if (backend_)
    {
        return backend_->findDevice(name, isInput, index);
    }
    return false;
}

bool MPAudio::queryDevice(int device, bool isInput, std::vector<std::uint32_t>* bufferSizes,
                          std::vector<MPAudioChannelName>* channelNames,
                          std::vector<std::uint32_t>* sampleRates, bool* fixedBufferSize,
                          std::uint32_t* preferredBufferSize, std::uint32_t* reserved, std::uint32_t* latency)
{
    return backend_ ? backend_->queryDevice(device, isInput, bufferSizes, channelNames, sampleRates,
                                            fixedBufferSize, preferredBufferSize, reserved, latency)
                    : false;
}

bool MPAudio::findChannel(int device, bool isInput, const char* name, int* index)
{
    return backend_ ? backend_->findChannel(device, isInput, name, index) : false;
}

bool MPAudio::hasControlPanel()
{
    return backend_ ? backend_->hasControlPanel() : false;
}

bool MPAudio::showControlPanel(int device, bool isInput)
{
    return backend_ ? backend_->showControlPanel(device, isInput) : false;
}

int MPAudio::notify(int)
{
    return 0;
}

void MPAudio::process(const float* const*, std::uint32_t, float* const* outputs, std::uint32_t outputCount,
                      std::uint32_t frames)
{
    for (std::uint32_t c = 0; c < outputCount; ++c)
    {
        if (outputs[c])
        {
            std::fill(outputs[c], outputs[c] + frames, 0.0f);
        }
    }
}

void MPAudio::setWindow(void* handle)
{
    windowHandle_ = handle;
    if (backend_)
    {
        backend_->setWindow(handle);
    }
}
