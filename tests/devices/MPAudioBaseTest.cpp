#include "tests/devices/ScriptedBackend.h"

#include <gtest/gtest.h>

namespace
{

std::vector<float> ramp(std::uint32_t frames, float start, float step)
{
    std::vector<float> v(frames);
    for (std::uint32_t i = 0; i < frames; ++i)
    {
        v[i] = start + step * static_cast<float>(i);
    }
    return v;
}

MPAudioConfig configWith(std::uint32_t frames)
{
    MPAudioConfig config;
    config.inputDevice = 0;
    config.outputDevice = 0;
    config.bufferSize = frames;
    return config;
}

} // namespace

TEST(MPAudioBaseRouting, TwoOutputsOnOneChannelAreSummedThenLimited)
{
    ScriptedBackend backend;
    RecordingClient client;
    backend.setClient(&client);
    MPAudioConfig config = configWith(64);
    config.outputRouting[0] = {true, 1};
    config.outputRouting[1] = {true, 1};
    ASSERT_TRUE(backend.open(config));

    client.toWrite = {ramp(64, -0.5f, 0.02f), std::vector<float>(64, 0.4f)};
    auto out = backend.pump({});
    ASSERT_EQ(out.size(), 2u);
    for (std::uint32_t i = 0; i < 64; ++i)
    {
        const float sum = -0.5f + 0.02f * static_cast<float>(i) + 0.4f;
        EXPECT_FLOAT_EQ(out[1][i], std::min(sum, 1.0f)) << i;
    }
}

TEST(MPAudioBaseRouting, OneInputChannelFansOutToTwoLogicalInputs)
{
    ScriptedBackend backend;
    RecordingClient client;
    backend.setClient(&client);
    MPAudioConfig config = configWith(32);
    config.inputRouting[0] = {true, 3};
    config.inputRouting[1] = {true, 3};
    ASSERT_TRUE(backend.open(config));

    std::vector<std::vector<float>> hw(4);
    hw[3] = ramp(32, 0.0f, 1.0f);
    backend.pump(hw);
    ASSERT_EQ(client.lastInputCount, 2u);
    EXPECT_EQ(client.seenInputs[0], hw[3]);
    EXPECT_EQ(client.seenInputs[1], hw[3]);
    EXPECT_NE(client.inputPointers[0], client.inputPointers[1]);
}

TEST(MPAudioBaseRouting, EveryOutputIsLimitedAlsoWithoutSharing)
{
    ScriptedBackend backend;
    RecordingClient client;
    backend.setClient(&client);
    MPAudioConfig config = configWith(8);
    config.outputRouting[0] = {true, 0};
    config.outputRouting[1] = {true, 1};
    ASSERT_TRUE(backend.open(config));
    client.toWrite = {{2.5f, -3.0f, 0.25f, 1.0f, -1.0f, 1.0001f, -7.0f, 0.0f},
                      {0.5f, 0.5f, 0.5f, 0.5f, 9.0f, 9.0f, 9.0f, 9.0f}};
    auto out = backend.pump({});
    EXPECT_EQ(out[0], (std::vector<float>{1.0f, -1.0f, 0.25f, 1.0f, -1.0f, 1.0f, -1.0f, 0.0f}));
    EXPECT_EQ(out[1], (std::vector<float>{0.5f, 0.5f, 0.5f, 0.5f, 1.0f, 1.0f, 1.0f, 1.0f}));
}

TEST(MPAudioBaseState, OpenStartStopClose)
{
    ScriptedBackend backend;
    EXPECT_FALSE(backend.start()) << "start needs an open device";
    backend.failOpen = true;
    EXPECT_FALSE(backend.open(configWith(64)));
    EXPECT_FALSE(backend.isOpen()) << "a failed open leaves it closed";
    backend.failOpen = false;
    ASSERT_TRUE(backend.open(configWith(64)));
    EXPECT_FALSE(backend.open(configWith(64))) << "open while open is refused";
    EXPECT_EQ(backend.opens, 2) << "the failed open and the first";
    EXPECT_TRUE(backend.start());
    EXPECT_TRUE(backend.start());
    EXPECT_EQ(backend.starts, 1);
    backend.close();
    EXPECT_EQ(backend.stops, 1) << "close stops first";
    EXPECT_EQ(backend.closes, 1);
    EXPECT_FALSE(backend.isOpen());
    EXPECT_FALSE(backend.isStarted());
    backend.close();
    EXPECT_EQ(backend.closes, 1);
}

TEST(MPAudioBaseState, FailingLowLevelStartLeavesItOpenAndClosable)
{
    ScriptedBackend backend;
    backend.failStart = true;
    ASSERT_TRUE(backend.open(configWith(64)));
    EXPECT_FALSE(backend.start());
    EXPECT_TRUE(backend.isOpen());
    EXPECT_FALSE(backend.isStarted());
    backend.close();
    EXPECT_EQ(backend.stops, 0) << "a device that never started isn't stopped";
    EXPECT_EQ(backend.closes, 1);
}

TEST(MPAudioBaseDiagnostic, SquareWavesWithoutAClient)
{
    ScriptedBackend backend;
    MPAudioConfig config = configWith(1000);
    config.outputRouting[0] = {true, 0};
    config.outputRouting[1] = {true, 1};
    ASSERT_TRUE(backend.open(config));
    auto first = backend.pump({});
    for (std::uint32_t i = 0; i < 1000; ++i)
    {
        EXPECT_EQ(first[0][i], ((i / 200) % 2 == 0) ? -1.0f : 1.0f) << i;
        EXPECT_EQ(first[1][i], i < 500 ? (((i / 210) % 2 == 0) ? -1.0f : 1.0f) : 0.0f) << i;
    }
    // The phase runs on from the position: frame 1000 is in half-period 5, positive.
    auto second = backend.pump({});
    EXPECT_EQ(second[0][0], 1.0f);
    EXPECT_EQ(second[0][199], 1.0f);
    EXPECT_EQ(second[0][200], -1.0f);
    EXPECT_EQ(second[1][0], -1.0f) << "frame 1000 is in half-period 4 of 210";
    EXPECT_EQ(second[1][50], 1.0f);
}

namespace
{
class DeviceProbe : public ScriptedBackend
{
public:
    using MPAudioBase::resolveDevice;
};
} // namespace

// A stored index past the end of a list that has since shrunk names no device, rather than one past
// the list.
TEST(MPAudioBaseDevices, AnIndexPastTheListNamesNoDevice)
{
    DeviceProbe backend;
    backend.enumerateDevices(true);
    EXPECT_EQ(backend.resolveDevice(1, true), 1);
    EXPECT_EQ(backend.resolveDevice(2, true), -1);
    EXPECT_EQ(backend.resolveDevice(2, false), -1);
    EXPECT_EQ(backend.resolveDevice(kMPAudioDefaultDevice, false), 0);
}

TEST(MPAudioBaseDevices, OpenByNameFindsEachDirectionsDeviceAndNoNameMeansNone)
{
    ScriptedBackend backend;
    MPAudioConfig config = configWith(64);
    ASSERT_TRUE(backend.open("Beta", nullptr, config));
    EXPECT_EQ(backend.config().inputDevice, 1);
    EXPECT_EQ(backend.config().outputDevice, -1);
    backend.close();
    ASSERT_TRUE(backend.open(nullptr, "Beta", config));
    EXPECT_EQ(backend.config().inputDevice, -1);
    EXPECT_EQ(backend.config().outputDevice, 1);
}
