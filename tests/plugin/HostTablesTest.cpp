// The host's two tables as a library calls them: entries, conversions and the text buffers.

#include "plugin/AudioFxKV3HostAudioDummy.h"
#include "plugin/AudioFxKV3Plugin.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace NV::VPA2;

namespace
{

/** A host with nothing loaded, to call the tables without a library. */
AudioFxKV3Plugin& unloadedHost()
{
    static kv3test::RecordingSink sink;
    static AudioFxKV3Plugin host(&sink, "/nonexistent/library.so");
    return host;
}

/** A host whose audio side is missing. */
class HostWithoutAudio : public Host
{
public:
    bool getTimeInfo(float*, double*, double*) override { return false; }
    std::int32_t spare4(std::uint32_t) override { return 4; }
    std::int32_t spare5(std::uint32_t) override { return 5; }
    std::int32_t spare6(std::uint32_t a, float x, float y) override
    {
        lastA = a;
        lastX = x;
        lastY = y;
        return 6;
    }
    std::int32_t spare8(std::uint32_t, std::uint32_t, std::uint32_t) override { return 8; }
    std::int32_t spare9() override { return 9; }
    HostAudio* getHostAudio() override { return nullptr; }

    std::uint32_t lastA = 0;
    float lastX = 0.0f;
    float lastY = 0.0f;
};

/** The dummy, recording what its string entries were given. */
class RecordingAudio : public AudioFxKV3HostAudioDummy
{
public:
    bool slot1(const epiText& text, std::int32_t a) override
    {
        seen = text;
        seenNumber = a;
        return false;
    }
    bool slot5(const epiText& text, std::int32_t a, std::int32_t b) override
    {
        seen = text;
        seenNumber = a + b;
        return false;
    }
    bool slot22(std::int32_t, std::int32_t& result) override
    {
        result = 77;
        return true;
    }
    bool slot28(epiText& text) override
    {
        text = "twenty-eight";
        return true;
    }
    std::string seen = "unset";
    std::int32_t seenNumber = 0;
};

} // namespace

TEST(HostTable, TimeInfoGivesTheStoredTransport)
{
    AudioFxKV3Plugin& host = unloadedHost();
    HostTable* table = host.table();
    float tempo = 0.0f;
    double a = -1.0;
    double b = -1.0;
    host.setTransport(120.0f, 0.0, 0.0);
    EXPECT_TRUE(table->getTimeInfo(table, &tempo, &a, &b));
    EXPECT_FLOAT_EQ(tempo, 120.0f);
    host.setTransport(97.5f, 12345.0, 0.25);
    EXPECT_TRUE(table->getTimeInfo(table, &tempo, &a, &b));
    EXPECT_FLOAT_EQ(tempo, 97.5f);
    EXPECT_DOUBLE_EQ(a, 12345.0);
    EXPECT_DOUBLE_EQ(b, 0.25);
}

TEST(HostAudioTable, NullPointersAreAcceptedAndStringsConverted)
{
    RecordingAudio audio;
    HostAudioTable* t = audio.table();
    EXPECT_FALSE(t->slot1(t, nullptr, 3));
    EXPECT_EQ(audio.seen, "");
    EXPECT_EQ(audio.seenNumber, 3);
    EXPECT_FALSE(t->slot5(t, "amp", 2, 5));
    EXPECT_EQ(audio.seen, "amp");
    EXPECT_EQ(audio.seenNumber, 7);

    EXPECT_TRUE(t->slot22(t, 0, nullptr)); // the result is dropped, not written through null
    std::int32_t result = 0;
    EXPECT_TRUE(t->slot22(t, 0, &result));
    EXPECT_EQ(result, 77);
    EXPECT_TRUE(t->slot28(t, nullptr));
    const char* text = nullptr;
    EXPECT_TRUE(t->slot28(t, &text));
    EXPECT_STREQ(text, "twenty-eight");
}

TEST(HostTable, ALibrarySeesTheTablesThroughItsInstance)
{
    kv3test::TestLibrary library(KV3_TEST_GAIN);
    ASSERT_NE(library.log(), nullptr);
    kv3test::RecordingSink sink;
    AudioFxKV3Plugin host(&sink, KV3_TEST_GAIN);
    ASSERT_NE(host.plugin(), nullptr);
    host.setTransport(133.0f, 4.0, 8.0);
    PluginTable* root = host.plugin();
    InstanceTable* instance = root->createInstance(root, host.table(), 0);
    ASSERT_NE(instance, nullptr);
    const kv3test::TestPluginLog& log = *library.log();
    EXPECT_EQ(log.hostTableVersion, 13);
    EXPECT_TRUE(log.timeInfoResult);
    EXPECT_FLOAT_EQ(log.tempo, 133.0f);
    EXPECT_DOUBLE_EQ(log.timeA, 4.0);
    EXPECT_DOUBLE_EQ(log.timeB, 8.0);
    EXPECT_TRUE(log.hostAudioResult);
    EXPECT_STREQ(log.hostAudioText, "KV3HOST_HOSTAUDIO_DUMMY");
    root->releaseInstance(root, instance);
    EXPECT_EQ(log.liveInstances, 0);
}
