#pragma once

#include "epi/epiPath.h"

#include <cstdint>
#include <vector>

/** The format with which a file is written: all fields are values of AudioFileFormats' tables. */
struct AudioFileFormat
{
    int32_t channels = 2;
    int32_t sampleRate = 44100;
    /** A container value: 0 WAVE, 1 AIFF, 2 CAF, 3 SD2. */
    int32_t container = 0;
    /** A depth value: 0 16 bit, 1 24 bit, 2 32 bit, 3 32 bit float, 4 64 bit float. */
    int32_t depth = 1;
};

/**
 * The vocabulary of written files: the containers, bit depths and sample rates that the dialogs
 * offer, the extension of each container, and the libsndfile format code of each combination.
 */
class AudioFileFormats
{
public:
    /** One entry of a list that a dialog shows. */
    struct Choice
    {
        int32_t value;
        const char* label;
    };

    enum Container : int32_t
    {
        kWave = 0,
        kAiff = 1,
        kCaf = 2,
        /** Written when asked for, never offered to the user. */
        kSd2 = 3,
    };
    enum Depth : int32_t
    {
        k16Bit = 0,
        k24Bit = 1,
        k32Bit = 2,
        k32BitFloat = 3,
        k64BitFloat = 4,
    };

    AudioFileFormats() = default;
    virtual ~AudioFileFormats() = default;

    /** The containers the user may choose: WAVE, AIFF, CAF. */
    static std::vector<Choice> containers();
    /** The bit depths a container can hold; floats are not offered for SD2. */
    static std::vector<Choice> depths(int32_t container);
    /** The sample rates offered, 44.1 to 192 kHz; the value is the rate in hertz. */
    static std::vector<Choice> sampleRates();
    /**
     * Gives path the extension of a container: "raw" first, replaced by the table's extension, so a
     * value outside the table leaves "raw".
     */
    static void extension(int32_t container, epiPath& path);
    /** The extension of a container without the dot; "raw" outside the table. */
    static const char* extensionOf(int32_t container);
    /**
     * The libsndfile format code of a container and depth. Outside the tables, or a float depth in
     * SD2, gives 16-bit WAVE.
     */
    static int32_t formatCode(int32_t container, int32_t depth);
    /** The container value of an extension ("wav", "aif", "aiff", "caf", "sd2"), -1 for none. */
    static int32_t containerOfExtension(const char* extension);
};
