// Linked in place of devices/alsa/ when ALSA wasn't found: the driver table's entry stays empty.
#include "devices/MPAudioBackends.h"
#include "devices/MPAudioBase.h"

std::unique_ptr<MPAudioBase> newAlsaBackend()
{
    return nullptr;
}
