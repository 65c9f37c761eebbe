#include "devices/MPMidi.h"

#include <cstdio>
#include <cstring>

bool MPMidiBase::open(int inputDevice, int outputDevice)
{
    if (open_)
    {
        return false;
    }
    inputDevice_ = inputDevice;
    outputDevice_ = outputDevice;
    if (inputDevice == -1 && outputDevice == -1)
    {
        return false;
    }
    open_ = LoLevelOpen();
    return open_;
}

bool MPMidiBase::open(const char* inputName, const char* outputName)
{
    enumerateDevices(false);
    int input = -1;
    int output = -1;
    if (inputName != nullptr && !findDevice(inputName, true, &input))
    {
        input = -2;
    }
    if (outputName != nullptr && !findDevice(outputName, false, &output))
    {
        output = -2;
    }
    return open(input, output);
}

void MPMidiBase::close()
{
    if (open_)
    {
        LoLevelClose();
    }
    open_ = false;
    inputDevice_ = -1;
    outputDevice_ = -1;
}

void MPMidiBase::enumerateDevices(bool force)
{
    if (!force && enumerated_)
    {
        return;
    }
    LoLevelEnumerate();
    enumerated_ = true;
}

bool MPMidiBase::findDevice(const char* name, bool isInput, int* index)
{
    const std::vector<MPMidiDevice>& list = isInput ? inputDevices_ : outputDevices_;
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

void MPMidiBase::midiReceived(const MidiMessage* message)
{
    if (client_)
    {
        client_->midiReceived(message);
        return;
    }
    // A developer's trace when nobody listens; the clock byte would flood it.
    if (message && message->bytes[0] != 0xF8)
    {
        std::fprintf(stderr, "some midi data % 2d %02X %02X %02X\n", message->length, message->bytes[0],
                     message->bytes[1], message->bytes[2]);
    }
}

MPMidi::MPMidi() : backend_(newMidiBackend())
{
    if (backend_)
    {
        backend_->setClient(this);
    }
}

MPMidi::~MPMidi()
{
    if (backend_)
    {
        backend_->close();
    }
}

bool MPMidi::open(int inputDevice, int outputDevice)
{
    return backend_ ? backend_->open(inputDevice, outputDevice) : false;
}

bool MPMidi::open(const char* inputName, const char* outputName)
{
    return backend_ ? backend_->open(inputName, outputName) : false;
}

void MPMidi::close()
{
    if (backend_)
    {
        backend_->close();
    }
}

bool MPMidi::isOpen()
{
    return backend_ ? backend_->isOpen() : false;
}

void MPMidi::enumerateDevices(bool force)
{
    if (backend_)
    {
        backend_->enumerateDevices(force);
    }
}

const std::vector<MPMidiDevice>& MPMidi::outputDevices()
{
    return backend_ ? backend_->outputDevices() : noDevices_;
}

const std::vector<MPMidiDevice>& MPMidi::inputDevices()
{
    return backend_ ? backend_->inputDevices() : noDevices_;
}

bool MPMidi::findDevice(const char* name, bool isInput, int* index)
{
    if (backend_)
    {
        return backend_->findDevice(name, isInput, index);
    }
    if (index)
    {
        *index = -1;
    }
    return false;
}

void MPMidi::send(const MidiMessage& message)
{
    if (backend_)
    {
        backend_->send(message);
    }
}

void MPMidi::midiReceived(const MidiMessage*) {}
