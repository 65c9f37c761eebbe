#include "engine/ClickChoice.h"

#include "engine/Manager.h"
#include "epi/epiFileDump.h"
#include "epi/epiResourcePack.h"

namespace
{

const char* const kSetNames[ClickChoice::kSets] = {"Classic", "Sidestick", "El_Sticks", "Perc_1", "Perc_2"};

// Auxiliary resources lie in the pack's "aux/" folder.
constexpr const char* kFolder = "aux/";

} // namespace

const char* ClickChoice::setName(int32_t set)
{
    return (set >= 0 && set < kSets) ? kSetNames[set] : nullptr;
}

bool ClickChoice::resourceNames(int32_t set, bool accent, epiText& beat, epiText& firstBeat)
{
    const char* name = setName(set);
    if (name == nullptr)
    {
        return false;
    }
    beat = kFolder;
    beat.appendChars(name);
    firstBeat = beat;
    beat.appendChars(accent ? "_accent_lo.raw" : "_noaccent.raw");
    firstBeat.appendChars(accent ? "_accent_hi.raw" : "_noaccent.raw");
    return true;
}

int32_t ClickChoice::choose(Manager& manager, epiResourcePack& pack, int32_t set, bool accent, bool clickOn)
{
    epiText names[2];
    if (!resourceNames(set, accent, names[0], names[1]))
    {
        return 0;
    }
    MixerInputControls& strip = manager.mixerInput(Manager::kMetronomeIndex);
    if (clickOn)
    {
        strip.setMute(true);
        manager.metronome().setEnabled(false);
        manager.waitForBlocks();
    }
    int32_t loaded = 0;
    for (int32_t index = 0; index < 2; ++index)
    {
        epiFileDump dump;
        if (!pack.load(names[index].c_str(), dump) || dump.size() < 4)
        {
            continue;
        }
        // Headerless 16-bit little-endian stereo: four bytes a frame. A stray odd byte at the end is
        // no frame.
        AudioBuffer samples;
        samples.fillFromInt16(reinterpret_cast<const int16_t*>(dump.data()), dump.size() / 4);
        manager.loadClick(index, samples);
        ++loaded;
    }
    if (clickOn)
    {
        manager.waitForBlocks();
        strip.setMute(false);
        manager.metronome().setEnabled(true);
    }
    return loaded;
}
