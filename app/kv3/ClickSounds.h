#pragma once

#include <filesystem>
#include <string>

class Metronome;

namespace kv3cli
{

/**
 * The folder of the program's loose resources: $KV3_RESOURCES, else a "resources" folder beside the
 * program or above it (a build tree lies inside the source tree). Empty when none is found.
 */
std::filesystem::path resourceFolder();

/**
 * Loads the program's default click pair (the accented "Classic" sounds) into the metronome. Only with
 * the metronome disabled and not being pulled by a running device.
 * @param searched receives the folder that was looked in, for the message when nothing was found
 * @returns false when the sounds can't be read
 */
bool loadClickSounds(Metronome& metronome, std::string& searched);

} // namespace kv3cli
