// The click sounds of the program's resource pack, for the commands that put the metronome in the mix.

#include "app/kv3/ClickSounds.h"

#include "engine/ClickChoice.h"
#include "epi/epiResourcePack.h"
#include "resources/EmbeddedPack.h"

bool kv3cli::loadClickSounds(Manager& manager)
{
    epiResourcePack pack;
    return EmbeddedPack::open(pack) && ClickChoice::choose(manager, pack, 0, true, false) == 2;
}
