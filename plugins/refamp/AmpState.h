#pragma once

#include <string>
#include <string_view>

namespace refamp
{

/** The sound of the amp: every value the player sets. Levels in dB, the room's mix from 0 to 1. */
struct AmpParams
{
    /** Gate threshold; at kGateOff or below the gate stays open. */
    float gate = -70.0f;
    float drive = 0.0f;
    float bass = 0.0f;
    float mid = 0.0f;
    float treble = 0.0f;
    float presence = 0.0f;
    float master = 0.0f;
    float reverb = 0.15f;
    /** Index of the built-in program it came from. */
    int program = 0;
};

constexpr float kGateOff = -96.0f;
constexpr float kDriveMax = 40.0f;
constexpr float kToneRange = 12.0f;
/** Master at this or below is silence. */
constexpr float kMasterMin = -60.0f;
constexpr float kMasterMax = 12.0f;

/** The built-in programs, chosen by MIDI program change (the number modulo the count). */
constexpr int kProgramCount = 3;
/** "clean", "crunch", "lead". */
const char* programName(int index);
AmpParams builtInProgram(int index);

/** Brings every value into its range; a value that isn't a number takes the default. */
AmpParams clampParams(const AmpParams& params);

/**
 * The state as XML text, one element a line, CR LF line ends and tab indents:
 * the root "KV3ReferenceAmp" holds "version" and "Program", and "Program" holds the values.
 */
std::string writeState(const AmpParams& params);

/**
 * Reads a state written by writeState. Values that are missing keep those of `params`; values out
 * of range are brought into it.
 * @returns false, leaving `params` alone, when the text holds no "Program" element
 */
bool readState(std::string_view text, AmpParams& params);

/** MIDI CC 7 (0 to 127) as the master level: 40 log10(v / 127) dB, 0 being silence. */
float masterFromController(int value);

} // namespace refamp
