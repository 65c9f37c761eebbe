#include "tests/devices/JackPeer.h"
#include "tests/devices/JackTestServer.h"

#include "devices/MPMidi.h"
#include "devices/midi/MPMidiLinux.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace
{

/** Collects what reaches it, in order; preallocated, so the MIDI thread never allocates. */
class MidiCollector : public MPMidiInterface
{
public:
    static constexpr int kCapacity = 256;
    MidiMessage messages[kCapacity];
    /** Release by the MIDI thread after storing a message, acquire by the test before reading it. */
    std::atomic<int> count{0};

    bool open(int, int) override { return false; }
    bool open(const char*, const char*) override { return false; }
    void close() override {}
    bool isOpen() override { return false; }
    void enumerateDevices(bool) override {}
    const std::vector<MPMidiDevice>& outputDevices() override { return none_; }
    const std::vector<MPMidiDevice>& inputDevices() override { return none_; }
    bool findDevice(const char*, bool, int*) override { return false; }
    void send(const MidiMessage&) override {}
    void midiReceived(const MidiMessage* message) override
    {
        const int n = count.load(std::memory_order_relaxed);
        if (n < kCapacity)
        {
            messages[n] = *message;
            count.store(n + 1, std::memory_order_release);
        }
    }

private:
    std::vector<MPMidiDevice> none_;
};

/** A MIDI backend without a system behind it, for the open rules of the common layer. */
class ScriptedMidi : public MPMidiBase
{
public:
    std::vector<std::string> names{"Keys", "Pedal"};
    int lowOpens = 0, lowCloses = 0;
    int openedIndex = -99;

protected:
    bool LoLevelOpen() override
    {
        ++lowOpens;
        openedIndex = firstIfUnknown(inputDevice_, inputDevices_.size());
        return static_cast<std::size_t>(openedIndex) < inputDevices_.size();
    }
    void LoLevelClose() override { ++lowCloses; }
    void LoLevelEnumerate() override
    {
        inputDevices_.clear();
        for (std::size_t i = 0; i < names.size(); ++i)
        {
            MPMidiDevice device;
            std::strncpy(device.name, names[i].c_str(), sizeof device.name - 1);
            device.handle = static_cast<std::uint32_t>(i);
            inputDevices_.push_back(device);
        }
    }
};

} // namespace

TEST(MPMidiBase, OpenWithNoDevicesAtAllIsFalseAndOpensNothing)
{
    ScriptedMidi midi;
    EXPECT_FALSE(midi.open(static_cast<const char*>(nullptr), nullptr));
    EXPECT_FALSE(midi.isOpen());
    EXPECT_EQ(midi.lowOpens, 0);
}

TEST(MPMidiBase, AnUnknownOrEmptyNameOpensTheFirstDevice)
{
    ScriptedMidi midi;
    ASSERT_TRUE(midi.open("Nothing by that name", nullptr));
    EXPECT_EQ(midi.inputDevice(), -2);
    EXPECT_EQ(midi.openedIndex, 0);
    EXPECT_FALSE(midi.open("Pedal", nullptr)) << "open while open is refused";
    midi.close();
    EXPECT_EQ(midi.lowCloses, 1);
    EXPECT_EQ(midi.inputDevice(), -1);
    ASSERT_TRUE(midi.open("", nullptr));
    EXPECT_EQ(midi.openedIndex, 0);
    midi.close();
    ASSERT_TRUE(midi.open("Pedal", nullptr));
    EXPECT_EQ(midi.openedIndex, 1);
    midi.close();
    midi.close();
    EXPECT_EQ(midi.lowCloses, 3) << "closing a closed device does nothing";
}

TEST(MPMidiBase, AnUnknownNameWithAnEmptyListFails)
{
    ScriptedMidi midi;
    midi.names.clear();
    EXPECT_FALSE(midi.open("Keys", nullptr));
    EXPECT_EQ(midi.openedIndex, 0) << "device 0 is tried, and there is none";
    EXPECT_FALSE(midi.isOpen());
}

TEST(MPMidiLinux, ShortMessagesKeepTheirShapeAndSystemExclusiveIsIgnored)
{
    MPMidiLinux midi;
    MidiCollector collector;
    midi.setClient(&collector);
    const std::uint8_t noteOn[] = {0x91, 60, 100};
    const std::uint8_t program[] = {0xC0, 5};
    const std::uint8_t clock[] = {0xF8};
    const std::uint8_t sense[] = {0xFE};
    const std::uint8_t sysex[] = {0xF0, 0x7E, 0xF7};
    const std::uint8_t longer[] = {0x90, 1, 2, 3};
    const std::uint8_t data[] = {0x40, 0x40};
    EXPECT_TRUE(midi.deliver(noteOn, 3));
    EXPECT_TRUE(midi.deliver(program, 2));
    EXPECT_TRUE(midi.deliver(clock, 1));
    EXPECT_TRUE(midi.deliver(sense, 1));
    EXPECT_FALSE(midi.deliver(sysex, 3));
    EXPECT_FALSE(midi.deliver(longer, 4));
    EXPECT_FALSE(midi.deliver(data, 2)) << "a message starts with a status byte";
    EXPECT_FALSE(midi.deliver(noteOn, 0));
    ASSERT_EQ(collector.count.load(), 4);
    EXPECT_EQ(collector.messages[0].length, 3);
    EXPECT_EQ(collector.messages[0].bytes[2], 100);
    EXPECT_EQ(collector.messages[1].length, 3) << "a two-byte message travels as three";
    EXPECT_EQ(collector.messages[1].bytes[1], 5);
    EXPECT_EQ(collector.messages[1].bytes[2], 0);
    EXPECT_EQ(collector.messages[2].length, 1);
    EXPECT_EQ(collector.messages[2].bytes[0], 0xF8);
    EXPECT_EQ(collector.messages[3].bytes[0], 0xFE);
}

TEST(MPMidiLinux, WithoutAServerThereIsNoJackInput)
{
    JackTestServer server; // named, never started
    MPMidiLinux midi;
    midi.enumerateDevices(false);
    int index = 0;
    EXPECT_FALSE(midi.findDevice(MPMidiLinux::kJackInputName, true, &index));
    EXPECT_FALSE(midi.open("", nullptr)) << "the first device is tried, and there is none";
    EXPECT_FALSE(midi.isOpen());
}

TEST(MPMidiLinux, AServerStartedLaterIsFoundAtTheNextOpen)
{
    JackTestServer server(48000, 256);
    MPMidiLinux midi;
    midi.enumerateDevices(false);
    int index = 0;
    EXPECT_FALSE(midi.findDevice(MPMidiLinux::kJackInputName, true, &index));
    ASSERT_TRUE(server.start());
    EXPECT_TRUE(midi.open(MPMidiLinux::kJackInputName, nullptr)) << midi.lastError();
    EXPECT_TRUE(midi.findDevice(MPMidiLinux::kJackInputName, true, &index));
    midi.close();
}

TEST(MPMidiLinux, JackMidiFromAnotherClientArrivesInOrder)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MPMidi midi; // through the front, as the program uses it
    MidiCollector collector;
    ASSERT_NE(midi.midiBackend(), nullptr);
    midi.midiBackend()->setClient(&collector);
    midi.enumerateDevices(false);
    int index = -1;
    ASSERT_TRUE(midi.findDevice(MPMidiLinux::kJackInputName, true, &index));
    EXPECT_EQ(index, static_cast<int>(midi.inputDevices().size()) - 1) << "JACK MIDI comes last";
    ASSERT_TRUE(midi.open(MPMidiLinux::kJackInputName, nullptr));

    JackPeer peer({"midi", "Korvalind 3 MIDI:midi_in", "40"});
    ASSERT_EQ(peer.wait(), 0);
    std::this_thread::sleep_for(50ms);
    midi.close();
    // The peer's script: before note i a clock byte when i % 7 == 0 and a system exclusive message
    // when i % 11 == 0.
    struct Event
    {
        std::vector<std::uint8_t> bytes;
    };
    std::vector<Event> script;
    for (int i = 0; i < 40; ++i)
    {
        if (i % 7 == 0)
        {
            script.push_back({{0xF8}});
        }
        if (i % 11 == 0)
        {
            script.push_back({{0xF0, 0x01, 0x02, 0xF7}});
        }
        script.push_back({{static_cast<std::uint8_t>(0x90 | (i % 16)), static_cast<std::uint8_t>(i), 64}});
    }

    // Every short message once, in the order sent; system exclusive never.
    const int got = collector.count.load(std::memory_order_acquire);
    std::size_t expected = 0;
    int note = 0;
    for (const auto& event : script)
    {
        if (event.bytes[0] == 0xF0)
        {
            continue;
        }
        ASSERT_LT(static_cast<int>(expected), got);
        const MidiMessage& m = collector.messages[expected++];
        ASSERT_EQ(m.bytes[0], event.bytes[0]) << "message " << expected - 1;
        if (event.bytes[0] == 0xF8)
        {
            EXPECT_EQ(m.length, 1);
        }
        else
        {
            EXPECT_EQ(m.length, 3);
            EXPECT_EQ(m.bytes[1], note++);
        }
    }
    EXPECT_EQ(static_cast<std::size_t>(got), expected);
}
