#include "tests/devices/JackTestServer.h"
#include "tests/support/Program.h"

#include <gtest/gtest.h>

#include <string>

using testsupport::kv3Program;
using testsupport::runProgram;

TEST(Kv3Devices, ListsTheJackServerItsPortsAndTheMidiInput)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    const auto run = runProgram(kv3Program(), "devices --json --technology JACK");
    ASSERT_EQ(run.exit, 0) << run.err;
    const std::string device = "{\"name\":\"" + server.name() + "\",\"direction\":\"input\",\"channels\":2";
    EXPECT_NE(run.out.find(device), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\"channel_names\":[\"system:capture_1\",\"system:capture_2\"]"),
              std::string::npos);
    EXPECT_NE(run.out.find("\"sample_rates\":[48000],\"buffer_sizes\":[16,32,64,128,256,"), std::string::npos)
        << "the server is asked for the size chosen: " << run.out;
    // The dummy server's capture latency is one period, its playback latency two: 768 frames, 16 ms.
    EXPECT_NE(run.out.find("\"round_trip\":{\"frames\":768,\"ms\":16}"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\"midi_inputs\":[\"JACK MIDI\"]"), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("\"name\":\"ALSA\""), std::string::npos) << "only the technology asked for";
}

TEST(Kv3Devices, AStoppedServerIsShownAsNotAvailableAndAnUnknownTechnologyIsAUsageError)
{
    JackTestServer server; // named, never started
    const auto run = runProgram(kv3Program(), "devices --technology asio");
    ASSERT_EQ(run.exit, 0) << run.err;
    EXPECT_NE(run.out.find("JACK\n  output " + server.name() + ": 0 channels\n         not available"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("MIDI inputs\n  none"), std::string::npos) << run.out;
    const auto unknown = runProgram(kv3Program(), "devices --technology CoreAudio");
    EXPECT_EQ(unknown.exit, 2);
    EXPECT_NE(unknown.err.find("unknown technology 'CoreAudio'"), std::string::npos) << unknown.err;
    EXPECT_EQ(runProgram(kv3Program(), "devices extra").exit, 2);
}
