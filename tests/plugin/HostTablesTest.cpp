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
