// The host's tables as a library sees them through its instance.

#include "plugin/AudioFxKV3Plugin.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

using namespace NV::VPA2;

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
