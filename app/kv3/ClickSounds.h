#pragma once

class Manager;

namespace kv3cli
{

/**
 * Loads the program's default click pair (the accented sounds of the first set) from the resource pack
 * linked into the program into the Manager's metronome. Only with the metronome disabled and not being
 * pulled by a running device.
 * @returns false when the pack or its sounds can't be read
 */
bool loadClickSounds(Manager& manager);

} // namespace kv3cli
