#pragma once

#include <cstdint>

/** How many logical channels each way a device open can carry. */
inline constexpr std::uint32_t kMPAudioMaxChannels = 32;

/** Device index meaning "no device" in an `MPAudioConfig`. */
inline constexpr std::int32_t kMPAudioNoDevice = -1;
/** Device index meaning "the system's default (or first) device". */
inline constexpr std::int32_t kMPAudioDefaultDevice = -2;

/** One entry of a routing table: which hardware channel feeds (or takes) a logical channel. */
struct MPAudioRouting
{
    bool used = false;
    std::uint32_t channel = 0; ///< hardware channel index on the device
};

/**
 * The parameters of one device open, copied by value. Logical channel `i` of a direction is
 * connected to the hardware channel named by entry `i` of its routing table when that entry is used.
 */
struct MPAudioConfig
{
    std::int32_t inputDevice = kMPAudioNoDevice;  ///< index into the input list, -1 none, -2 default
    std::int32_t outputDevice = kMPAudioNoDevice; ///< index into the output list, -1 none, -2 default
    std::uint32_t sampleRate = 44100;             ///< hertz
    std::uint32_t bufferSize = 1024;              ///< frames per block
    std::uint32_t inputChannels = 0;              ///< logical input channels asked for
    std::uint32_t outputChannels = 0;             ///< logical output channels asked for
    MPAudioRouting inputRouting[kMPAudioMaxChannels] = {};
    MPAudioRouting outputRouting[kMPAudioMaxChannels] = {};
};

/** One entry of a device list. */
struct MPAudioDevice
{
    char name[512] = {};        ///< zero-terminated; what settings store and users pick
    std::uint32_t minRate = 0;  ///< hertz, 0 where the driver doesn't tell
    std::uint32_t maxRate = 0;  ///< hertz, 0 where the driver doesn't tell
    std::uint32_t channels = 0; ///< hardware channels of this direction
    std::int32_t handle = 0;    ///< what the backend needs to open the device (an index of its own)
};

/** A hardware channel's name, zero-terminated. */
struct MPAudioChannelName
{
    char name[512] = {};
};

/**
 * One hardware channel that is really in use, and the logical channels on it. The first logical
 * channel's buffer is the route's own buffer; further ones are copied (inputs) or summed (outputs).
 */
struct MPAudioRoute
{
    std::uint32_t hardwareChannel = 0;
    std::uint32_t firstLogical = 0;
    std::uint32_t extraCount = 0;
    std::uint32_t extraLogical[kMPAudioMaxChannels] = {};
    float* extraBuffers[kMPAudioMaxChannels] = {};
    /** The block buffer of the hardware channel: the first logical buffer, or for an output with
        extras the private buffer where the sum is formed. */
    float* buffer = nullptr;
};

/** Copies a text into a fixed zero-terminated field, cutting it to fit. */
template <std::size_t N> void mpCopyName(char (&field)[N], const char* text)
{
    std::size_t i = 0;
    if (text)
    {
        for (; i + 1 < N && text[i] != 0; ++i)
        {
            field[i] = text[i];
        }
    }
    field[i] = 0;
}
