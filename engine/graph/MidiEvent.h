#pragma once

#include <cstdint>

/**
 * One raw MIDI event on its way from the device to the plug-in. A plain structure that crosses the
 * plug-in boundary as two 32-bit words, so its fields keep bare names and this exact layout.
 */
struct MidiEvent
{
    /** Order of arrival within the block (events carry no time inside a block). */
    uint32_t position;
    /** Up to four raw MIDI bytes, the status byte in the low eight bits. */
    uint32_t message;
};

static_assert(sizeof(MidiEvent) == 8, "two 32-bit words, as the plug-in boundary reads them");

/**
 * The MIDI of one engine block: a fixed array, so that filling it on the audio thread never
 * allocates. The device front fills it; the Manager hands it to the effect units.
 */
struct MidiEventBlock
{
    /** Events a block holds; later ones wait for the next block. */
    static constexpr uint32_t kCapacity = 1000;

    MidiEvent events[kCapacity];
    /** Valid events at the start of events. */
    uint32_t count = 0;
};
