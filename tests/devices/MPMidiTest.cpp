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

/** The MIDI front as the program uses it, collecting what reaches it in order; preallocated, so the
    MIDI thread never allocates. */
class MidiCollector : public MPMidi
{
public:
    static constexpr int kCapacity = 256;
    MidiMessage messages[kCapacity];
    /** Release by the MIDI thread after storing a message, acquire by the test before reading it. */
    std::atomic<int> count{0};

    void midiReceived(const MidiMessage* message) override
    {
        const int n = count.load(std::memory_order_relaxed);
        if (n < kCapacity)
        {
            messages[n] = *message;
            count.store(n + 1, std::memory_order_release);
        }
    }
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

TEST(MPMidiBase, OpenRules)
{
    ScriptedMidi midi;
    EXPECT_FALSE(midi.open(static_cast<const char*>(nullptr), nullptr)) << "no device named at all";
    EXPECT_EQ(midi.lowOpens, 0);
    ASSERT_TRUE(midi.open("Nothing by that name", nullptr));
    EXPECT_EQ(midi.inputDevice(), -2);
    EXPECT_EQ(midi.openedIndex, 0) << "an unknown name opens the first device";
    EXPECT_FALSE(midi.open("Pedal", nullptr)) << "open while open is refused";
    midi.close();
    EXPECT_EQ(midi.inputDevice(), -1);
    ASSERT_TRUE(midi.open("Pedal", nullptr));
    EXPECT_EQ(midi.openedIndex, 1);
    midi.close();
    midi.close();
    EXPECT_EQ(midi.lowCloses, 2) << "closing a closed device does nothing";
    ScriptedMidi none;
    none.names.clear();
    EXPECT_FALSE(none.open("Keys", nullptr)) << "device 0 is tried, and there is none";
    EXPECT_FALSE(none.isOpen());
}

TEST(MPMidiLinux, ShortMessagesKeepTheirShapeAndSystemExclusiveIsIgnored)
{
    MPMidiLinux midi;
    MidiCollector collector;
    midi.setClient(&collector);
    struct Case
    {
        std::vector<std::uint8_t> bytes;
        bool delivered;
    };
    const Case cases[] = {
        {{0x91, 60, 100}, true},
        {{0xC0, 5}, true},
        {{0xF8}, true},
        {{0xF0, 0x7E, 0xF7}, false},
        {{0x90, 1, 2, 3}, false},
        {{0x40, 0x40}, false}, // a message starts with a status byte
        {{}, false},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(midi.deliver(c.bytes.data(), c.bytes.size()), c.delivered) << int(c.bytes.size());
    }
    ASSERT_EQ(collector.count.load(), 3);
    EXPECT_EQ(collector.messages[0].length, 3);
    EXPECT_EQ(collector.messages[0].bytes[2], 100);
    EXPECT_EQ(collector.messages[1].length, 3) << "a two-byte message travels as three";
    EXPECT_EQ(collector.messages[1].bytes[1], 5);
    EXPECT_EQ(collector.messages[1].bytes[2], 0);
    EXPECT_EQ(collector.messages[2].length, 1);
    EXPECT_EQ(collector.messages[2].bytes[0], 0xF8);
}

TEST(MPMidiLinux, TheJackInputIsThereOnlyWithAServerAndFoundAtTheNextOpen)
{
    JackTestServer server(48000, 256);
    MPMidiLinux midi;
    midi.enumerateDevices(false);
    int index = 0;
    EXPECT_FALSE(midi.findDevice(MPMidiLinux::kJackInputName, true, &index));
    EXPECT_FALSE(midi.open("", nullptr)) << "the first device is tried, and there is none";
    ASSERT_TRUE(server.start());
    EXPECT_TRUE(midi.open(MPMidiLinux::kJackInputName, nullptr)) << midi.lastError();
    EXPECT_TRUE(midi.findDevice(MPMidiLinux::kJackInputName, true, &index));
    midi.close();
}

TEST(MPMidiLinux, JackMidiFromAnotherClientArrivesInOrder)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    MidiCollector midi;
    midi.enumerateDevices(false);
    int index = -1;
    ASSERT_TRUE(midi.findDevice(MPMidiLinux::kJackInputName, true, &index));
    EXPECT_EQ(index, static_cast<int>(midi.inputDevices().size()) - 1) << "JACK MIDI comes last";
    ASSERT_TRUE(midi.open(MPMidiLinux::kJackInputName, nullptr));
    JackPeer peer({"midi", "Korvalind 3 MIDI:midi_in", "40"});
    ASSERT_EQ(peer.wait(), 0);
    std::this_thread::sleep_for(50ms);
    midi.close();
    // The peer sends a clock byte before every seventh note and a system exclusive message, which
    // never arrives, before every eleventh: every short message once, in the order sent.
    const int got = midi.count.load(std::memory_order_acquire);
    int at = 0;
    for (int i = 0; i < 40; ++i)
    {
        ASSERT_LT(at + (i % 7 == 0 ? 1 : 0), got);
        if (i % 7 == 0)
        {
            EXPECT_EQ(midi.messages[at].length, 1);
            EXPECT_EQ(midi.messages[at++].bytes[0], 0xF8);
        }
        const MidiMessage& m = midi.messages[at++];
        EXPECT_EQ(m.length, 3);
        EXPECT_EQ(m.bytes[0], 0x90 | (i % 16)) << "note " << i;
        EXPECT_EQ(m.bytes[1], i);
    }
    EXPECT_EQ(got, at);
}
