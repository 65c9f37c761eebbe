#pragma once

#include "epi/epiPath.h"
#include "epi/epiText.h"

#include <cstdint>

namespace Korvalind3Host
{

class SettingsStore;

/**
 * The program's persisted settings: one field per stored value, kept in the settings store under
 * "Norvane Audio", "Korvalind 3". A value type: the settings panel edits a copy and assigns it
 * back. The device front reads and writes the fields directly.
 *
 * Texts are stored as strings, numbers as 32-bit values; `masterInputGain_` is stored as the gain
 * in dB times 1000, truncated. A load that fails at any value counts as a first run.
 */
class HostSettings
{
public:
    /** Number of remembered load folders. */
    static constexpr int kLoadFolders = 3;
    /** The version `save` writes; a stored version of this + 1 or more fails the load. */
    static constexpr std::uint32_t kVersion = 1;

    /** All texts empty, then hardware row 0, then a buffer of 2048 frames. */
    HostSettings();

    /**
     * Reads every value from the program's store. On failure the fields read so far stay, the
     * hardware row 0 is applied and `firstRun_` is set.
     * @returns true when every value was read
     */
    // [ui thread]
    bool load();
    /** The same from another store (tests). */
    bool load(const SettingsStore& store);
    /** Writes every value, the version first, then clears `firstRun_` and `dirty_`. */
    // [ui thread]
    void save();
    void save(SettingsStore& store);
    /** `save` when something has changed since the last one. */
    // [ui thread]
    void saveIfDirty();

    bool isFirstRun() const { return firstRun_; }
    /**
     * Sets the sample rate to 44100, the input gain to 6 dB and the buffer to 128 frames and, for
     * rows 0 to 2, one of the known interfaces with its devices and channels. Other rows change only
     * those three values. The device front tries the rows in turn on a first run.
     */
    void applyHardwareRow(int row);
    void markDirty() { dirty_ = true; }
    std::uint32_t bufferSize() const { return bufferSize_; }

    epiText technology_;
    epiText inputDevice_;
    epiText inputLeftChannel_;
    epiText inputRightChannel_;
    epiText outputDevice_;
    epiText outputLeftChannel_;
    epiText outputRightChannel_;
    epiText midiInputDevice_;
    /** Frames per device buffer. */
    std::uint32_t bufferSize_ = 0;
    /** The last folder of each of the three file lists. */
    epiPath loadFolders_[kLoadFolders];
    /** 0 or 1; kept and stored, consulted by nothing. */
    std::uint32_t hardwareForce44K_ = 0;
    /** 0 or 1; kept and stored, consulted by nothing. */
    std::uint32_t loQualityResampler_ = 0;
    std::uint32_t settingsVersion_ = 0;
    /** Not stored: true from a failed load until the next save. */
    bool firstRun_ = false;
    /** Hertz. */
    std::uint32_t sampleRate_ = 0;
    /** Decibels. */
    float masterInputGain_ = 0.0f;
    /** Not stored: true from markDirty until the next save. */
    bool dirty_ = false;
    /**
     * The speed and pitch engine of every track: kStandardStretch or kHighQualityStretch. Read apart
     * from the values above, so that a store written before it existed still loads; missing or
     * unknown, it reads as kStandardStretch.
     */
    epiText stretchQuality_ = kStandardStretch;
    static constexpr const char* kStandardStretch = "Standard";
    static constexpr const char* kHighQualityStretch = "High quality";
    bool highQualityStretch() const { return stretchQuality_ == kHighQualityStretch; }
};

} // namespace Korvalind3Host
