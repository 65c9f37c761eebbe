#pragma once

#include "app/kv3/Cli.h"
#include "dsp/stretchhq/AudioFxStretchChoice.h"

#include <optional>
#include <string>

class Manager;

namespace kv3cli
{

/**
 * The speed and pitch engine for this run: --quality standard|high when given, else the stored
 * setting (Standard when none is stored). The settings file is never written.
 * @returns false with `error` set for another value
 */
bool chooseQuality(const Args& args, StretchQuality& quality, std::string& error);

/** Gives every track of the manager the engine. */
// [ui thread]
void applyQuality(Manager& manager, StretchQuality quality);

} // namespace kv3cli
