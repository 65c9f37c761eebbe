#pragma once

#include "epi/epiText.h"

#include <cstdint>

class Manager;
class epiResourcePack;

/**
 * The interface side of choosing the metronome's sound: which two resources a choice names, and the
 * sequence that swaps them in while the audio runs.
 */
namespace ClickChoice
{

/** Number of click sets. */
constexpr int32_t kSets = 5;

/** Name of set 0 to 4, in the order the interface lists them; null outside. */
const char* setName(int32_t set);

/**
 * The resources of a choice, as they lie in the pack ("aux/Classic_accent_lo.raw"). With the accent
 * on, the ordinary beat is the set's "_accent_lo" and the first beat its "_accent_hi"; with it off,
 * both are "_noaccent".
 * @return false for a set outside 0 to 4
 */
bool resourceNames(int32_t set, bool accent, epiText& beat, epiText& firstBeat);

/**
 * Loads the chosen clicks from the resource pack into the Manager's metronome (loadClick 0 for the
 * ordinary beat, 1 for the first beat of a bar). When the click is on, its strip is muted and the
 * metronome disabled around the change, with waitForBlocks on both sides, so that the audio thread
 * never reads a buffer being rebuilt. A resource the pack doesn't have keeps the click that was there.
 * @param clickOn whether the metronome is switched on (it is enabled again afterwards)
 * @return the number of clicks replaced, 0 to 2
 */
// [ui thread]
int32_t choose(Manager& manager, epiResourcePack& pack, int32_t set, bool accent, bool clickOn);

} // namespace ClickChoice
