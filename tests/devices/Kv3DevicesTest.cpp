#include "tests/devices/JackTestServer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>

namespace
{

struct Kv3Run
{
    int status = -1;
    std::string out;
};

/** Runs the kv3 program of this build with its stderr folded into the output. */
Kv3Run kv3(const std::string& arguments)
{
    const char* binary = std::getenv("KV3_BINARY_DIR");
    Kv3Run run;
    if (!binary)
    {
        return run;
    }
    const std::string command = std::string(binary) + "/app/kv3/kv3 " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
    {
        return run;
    }
    char buffer[4096];
    std::size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
    {
        run.out.append(buffer, n);
    }
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

} // namespace

TEST(Kv3Devices, ListsTheJackServerItsPortsAndTheMidiInput)
{
    JackTestServer server(48000, 256);
    ASSERT_TRUE(server.start());
    const Kv3Run run = kv3("devices --json --technology JACK");
    ASSERT_EQ(run.status, 0) << run.out;
    const std::string device = "{\"name\":\"" + server.name() + "\",\"direction\":\"input\",\"channels\":2";
    EXPECT_NE(run.out.find(device), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\"channel_names\":[\"system:capture_1\",\"system:capture_2\"]"),
              std::string::npos);
    EXPECT_NE(run.out.find("\"sample_rates\":[48000],\"buffer_sizes\":[16,32,64,128,256,"), std::string::npos)
        << "the server is asked for the size chosen: " << run.out;
    EXPECT_NE(run.out.find("\"fixed_buffer_size\":false"), std::string::npos);
    // The dummy server's capture latency is one period, its playback latency two: 768 frames, 16 ms.
    EXPECT_NE(run.out.find("\"round_trip\":{\"frames\":768,\"ms\":16}"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\"midi_inputs\":[\"JACK MIDI\"]"), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("\"name\":\"ALSA\""), std::string::npos) << "only the technology asked for";
}

TEST(Kv3Devices, AStoppedServerIsShownAsNotAvailable)
{
    JackTestServer server; // named, never started
    const Kv3Run run = kv3("devices --technology asio");
    ASSERT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find("JACK\n  output " + server.name() + ": 0 channels\n         not available"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("MIDI inputs\n  none"), std::string::npos) << run.out;
}

TEST(Kv3Devices, AnUnknownTechnologyIsAUsageError)
{
    const Kv3Run run = kv3("devices --technology CoreAudio");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.out.find("unknown technology 'CoreAudio'"), std::string::npos) << run.out;
    EXPECT_EQ(kv3("devices extra").status, 2);
}
