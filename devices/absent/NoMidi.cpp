// Linked in place of devices/midi/ when its libraries weren't found: there is no MIDI backend.
#include "devices/MPMidi.h"

std::unique_ptr<MPMidiBase> newMidiBackend()
{
    return nullptr;
}
