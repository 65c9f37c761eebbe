#include "host/settings/HostSettings.h"

#include "host/settings/SettingsStore.h"

#include <string>

namespace Korvalind3Host
{

namespace
{

constexpr const char* kTechnology = "Host.AudioInterface.Technology";
constexpr const char* kInputDevice = "Host.AudioInterface.InputDevice";
constexpr const char* kInputLeftChannel = "Host.AudioInterface.InputLeftChannel";
constexpr const char* kInputRightChannel = "Host.AudioInterface.InputRightChannel";
constexpr const char* kOutputDevice = "Host.AudioInterface.OutputDevice";
constexpr const char* kOutputLeftChannel = "Host.AudioInterface.OutputLeftChannel";
constexpr const char* kOutputRightChannel = "Host.AudioInterface.OutputRightChannel";
constexpr const char* kMidiInputDevice = "Host.Midi.InputDevice";
constexpr const char* kBufferSize = "Host.AudioInterface.BufferSize";
constexpr const char* kLoadFolder[HostSettings::kLoadFolders] = {
    "Host.LoadFileCurrentFolderA", "Host.LoadFileCurrentFolderB", "Host.LoadFileCurrentFolderC"};
constexpr const char* kHardwareForce44K = "Host.AudioInterface.HardwareForce44K";
constexpr const char* kLoQualityResampler = "Host.LoQualityResampler";
constexpr const char* kSettingsVersion = "Host.SettingsVersion";
constexpr const char* kSampleRate = "Host.AudioInterface.SampleRate";
constexpr const char* kMasterInputGain = "Host.AudioInterface.MasterInputGain";
constexpr const char* kStretchQuality = "Host.StretchQuality";

/** The interfaces a first run tries, in order. */
struct HardwareRow
{
    const char* device;
    const char* inputLeft;
    const char* inputRight;
    const char* outputLeft;
    const char* outputRight;
};

// Rows 1 and 2 name the devices' outputs as inputs and the other way round. It is kept that way:
// the stored settings of existing installations hold exactly these names.
constexpr HardwareRow kRows[] = {
    {"NV TreadBox-1 ASIO Driver", "NV TreadBox-1 Input 1", "NV TreadBox-1 Input 2", "NV TreadBox-1 Output 1",
     "NV TreadBox-1 Output 2"},
    {"NV HushPedal ASIO Driver", "NV HushPedal Output 1", "NV HushPedal Output 2", "NV HushPedal Input 1",
     "NV HushPedal Input 2"},
    {"NV HushCable ASIO Driver", "NV HushCable Output 1", "NV HushCable Output 2", "NV HushCable Input 1",
     "NV HushCable Input 2"},
};

bool readText(const SettingsStore& store, const char* name, epiText& field)
{
    std::string value;
    if (!store.readString(name, value))
    {
        return false;
    }
    field = value;
    return true;
}

bool readNumber(const SettingsStore& store, const char* name, std::uint32_t& field)
{
    return store.readNumber(name, field);
}

} // namespace

HostSettings::HostSettings()
{
    applyHardwareRow(0);
    bufferSize_ = 2048;
}

void HostSettings::applyHardwareRow(int row)
{
    sampleRate_ = 44100;
    masterInputGain_ = 6.0f;
    bufferSize_ = 128;
    if (row < 0 || row >= static_cast<int>(std::size(kRows)))
    {
        return;
    }
    const HardwareRow& r = kRows[row];
    technology_ = "Asio";
    inputDevice_ = r.device;
    outputDevice_ = r.device;
    inputLeftChannel_ = r.inputLeft;
    inputRightChannel_ = r.inputRight;
    outputLeftChannel_ = r.outputLeft;
    outputRightChannel_ = r.outputRight;
}

bool HostSettings::load()
{
    return load(SettingsStore());
}

bool HostSettings::load(const SettingsStore& store)
{
    bool ok = readNumber(store, kSettingsVersion, settingsVersion_) && settingsVersion_ <= kVersion;
    // The reads follow the order in which save writes the values. The first missing value ends the
    // load, so the order decides what a partial store still gives: the values read before the gap stay
    // (hardware row 0 then replaces the devices, buffer, rate and gain). There is no migration: a
    // partial store counts as a first run.
    ok = ok && readText(store, kTechnology, technology_);
    ok = ok && readText(store, kInputDevice, inputDevice_);
    ok = ok && readText(store, kOutputDevice, outputDevice_);
    ok = ok && readText(store, kInputLeftChannel, inputLeftChannel_);
    ok = ok && readText(store, kInputRightChannel, inputRightChannel_);
    ok = ok && readText(store, kOutputLeftChannel, outputLeftChannel_);
    ok = ok && readText(store, kOutputRightChannel, outputRightChannel_);
    ok = ok && readNumber(store, kBufferSize, bufferSize_);
    ok = ok && readNumber(store, kHardwareForce44K, hardwareForce44K_);
    ok = ok && readNumber(store, kLoQualityResampler, loQualityResampler_);
    for (int i = 0; i < kLoadFolders; ++i)
    {
        ok = ok && readText(store, kLoadFolder[i], loadFolders_[i]);
    }
    ok = ok && readText(store, kMidiInputDevice, midiInputDevice_);
    ok = ok && readNumber(store, kSampleRate, sampleRate_);
    std::uint32_t gain = 0;
    ok = ok && readNumber(store, kMasterInputGain, gain);
    if (ok)
    {
        // Stored as a signed value in the 32 bits: gains below 0 dB are negative.
        masterInputGain_ = static_cast<float>(static_cast<std::int32_t>(gain) / 1000.0);
    }
    else
    {
        applyHardwareRow(0);
    }
    firstRun_ = !ok;
    // Not part of the set above: a store from before the choice existed keeps its devices.
    std::string quality;
    const bool high = store.readString(kStretchQuality, quality) && quality == kHighQualityStretch;
    stretchQuality_ = high ? kHighQualityStretch : kStandardStretch;
    return ok;
}

void HostSettings::save()
{
    SettingsStore store;
    save(store);
}

void HostSettings::save(SettingsStore& store)
{
    // The results of the writes are not checked: a store that can't be written leaves a first run
    // next time, which is what an unreadable store means anyway.
    store.writeNumber(kSettingsVersion, kVersion);
    store.writeString(kTechnology, technology_);
    store.writeString(kInputDevice, inputDevice_);
    store.writeString(kOutputDevice, outputDevice_);
    store.writeString(kInputLeftChannel, inputLeftChannel_);
    store.writeString(kInputRightChannel, inputRightChannel_);
    store.writeString(kOutputLeftChannel, outputLeftChannel_);
    store.writeString(kOutputRightChannel, outputRightChannel_);
    store.writeNumber(kBufferSize, bufferSize_);
    store.writeNumber(kHardwareForce44K, hardwareForce44K_);
    store.writeNumber(kLoQualityResampler, loQualityResampler_);
    for (int i = 0; i < kLoadFolders; ++i)
    {
        store.writeString(kLoadFolder[i], loadFolders_[i]);
    }
    store.writeNumber(kSampleRate, sampleRate_);
    store.writeNumber(kMasterInputGain,
                      static_cast<std::uint32_t>(static_cast<std::int32_t>(masterInputGain_ * 1000.0f)));
    store.writeString(kMidiInputDevice, midiInputDevice_);
    store.writeString(kStretchQuality, stretchQuality_);
    firstRun_ = false;
    dirty_ = false;
}

void HostSettings::saveIfDirty()
{
    if (dirty_)
    {
        save();
        dirty_ = false;
    }
}

} // namespace Korvalind3Host
