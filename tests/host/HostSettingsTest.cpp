// HostSettings over a real store: defaults, the first run, the load's strictness, the round trip,
// and a save that is killed halfway.

#include "host/settings/HostSettings.h"
#include "host/settings/SettingsStore.h"
#include "tests/host/SettingsFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using Korvalind3Host::HostSettings;
using Korvalind3Host::SettingsStore;
using kv3test::SettingsFolder;

namespace
{

/** Settings with a value other than the default in every stored field. */
HostSettings unusual()
{
    HostSettings s;
    s.technology_ = "JACK";
    s.inputDevice_ = "in dev";
    s.inputLeftChannel_ = "system:capture_1";
    s.inputRightChannel_ = "system:capture_2";
    s.outputDevice_ = "out dev";
    s.outputLeftChannel_ = "system:playback_1";
    s.outputRightChannel_ = "system:playback_2";
    s.midiInputDevice_ = "JACK MIDI";
    s.bufferSize_ = 256;
    s.loadFolders_[0] = "/home/player/takes/";
    s.loadFolders_[1] = "/media/usb stick/";
    s.loadFolders_[2] = "/tmp/odd\\name\nwith break/";
    s.hardwareForce44K_ = 1;
    s.loQualityResampler_ = 1;
    s.sampleRate_ = 96000;
    s.masterInputGain_ = -12.5f;
    s.stretchQuality_ = HostSettings::kHighQualityStretch;
    return s;
}

/** Every stored field as text, in one list, to compare settings whole. */
std::vector<std::string> storedFields(const HostSettings& s)
{
    std::vector<std::string> f = {s.technology_,         s.inputDevice_,    s.inputLeftChannel_,
                                  s.inputRightChannel_,  s.outputDevice_,   s.outputLeftChannel_,
                                  s.outputRightChannel_, s.midiInputDevice_};
    for (int i = 0; i < HostSettings::kLoadFolders; ++i)
        f.push_back(s.loadFolders_[i]);
    for (std::uint32_t n : {s.bufferSize_, s.hardwareForce44K_, s.loQualityResampler_, s.sampleRate_})
        f.push_back(std::to_string(n));
    f.push_back(std::to_string(s.masterInputGain_));
    f.push_back(s.stretchQuality_);
    return f;
}

} // namespace

TEST(HostSettings, SaveIfDirtyThenLoadRoundTripsEveryField)
{
    SettingsFolder folder;
    HostSettings written = unusual();
    written.saveIfDirty();
    EXPECT_FALSE(HostSettings().load()) << "nothing changed: nothing written";
    written.markDirty();
    written.firstRun_ = true;
    written.saveIfDirty();
    EXPECT_FALSE(written.dirty_);
    EXPECT_FALSE(written.isFirstRun());

    HostSettings read;
    ASSERT_TRUE(read.load());
    EXPECT_FALSE(read.isFirstRun());
    EXPECT_EQ(storedFields(read), storedFields(written));

    // The file begins with the version: it is written first.
    EXPECT_EQ(folder.contents().rfind("Host.SettingsVersion = dword:1\n", 0), 0u);
}

// Each change to a complete file that fails the whole load, leaving a first run on row 0 (whose
// buffer size is 128, not the constructor's 2048).
TEST(HostSettings, Version2OrAValueOfTheWrongTypeOrAMissingValueFailsTheWholeLoad)
{
    SettingsFolder folder;
    SettingsStore store;
    const std::function<void()> damages[] = {
        [&] { store.writeNumber("Host.SettingsVersion", 2); }, // though every value exists
        [&] { store.writeString("Host.AudioInterface.BufferSize", "256"); },
        [&] { store.writeNumber("Host.Midi.InputDevice", 3); },
        [&] { store.remove("Host.AudioInterface.SampleRate"); },
    };
    for (const auto& damage : damages)
    {
        unusual().save();
        damage();
        HostSettings s;
        EXPECT_FALSE(s.load());
        EXPECT_TRUE(s.isFirstRun());
        EXPECT_EQ(s.bufferSize_, 128u) << "row 0 applied";
    }
    // Older versions are read as they are.
    unusual().save();
    store.writeNumber("Host.SettingsVersion", 0);
    EXPECT_TRUE(HostSettings().load());
}

TEST(HostSettings, ASaveKilledHalfwayNeverLeavesATruncatedFile)
{
    SettingsFolder folder;
    unusual().save();
    std::mt19937 random(1234);
    for (int round = 0; round < 20; ++round)
    {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0)
        {
            // Save over and over with values of changing length, until killed.
            HostSettings s = unusual();
            for (std::uint32_t i = 0;; ++i)
            {
                s.inputDevice_ = std::string(i % 300, 'x');
                s.bufferSize_ = i;
                s.save();
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2000 + random() % 20000));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        HostSettings s;
        ASSERT_TRUE(s.load()) << "round " << round;
        EXPECT_EQ(s.technology_, "JACK");
        EXPECT_EQ(s.midiInputDevice_, "JACK MIDI"); // the last value of the file is there
        const std::string text = folder.contents();
        ASSERT_FALSE(text.empty());
        EXPECT_EQ(text.back(), '\n');
    }
}

// The engine choice is read apart from the rest: a store written before it existed still loads.
TEST(HostSettings, StretchQualityRoundTripsAndAnythingElseReadsAsStandard)
{
    SettingsFolder folder;
    SettingsStore store;
    struct Case
    {
        const char* stored; // null: missing
        bool high;
    };
    for (const Case& c :
         {Case{"High quality", true}, Case{"Standard", false}, Case{"high", false}, Case{nullptr, false}})
    {
        unusual().save();
        if (c.stored != nullptr)
            store.writeString("Host.StretchQuality", c.stored);
        else
            store.remove("Host.StretchQuality");
        HostSettings s;
        EXPECT_TRUE(s.load()) << (c.stored ? c.stored : "missing");
        EXPECT_EQ(s.highQualityStretch(), c.high) << (c.stored ? c.stored : "missing");
    }
}
