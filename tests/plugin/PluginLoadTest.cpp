// The load sequence against real libraries: the handshake, and each failure with the exact title
// and text the user sees.

#include "host/settings/SettingsStore.h"
#include "plugin/AudioFxKV3Manager.h"
#include "plugin/AudioFxKV3Plugin.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

#include <filesystem>

using kv3test::ConfigFolder;
using kv3test::RecordingSink;
using kv3test::TestLibrary;

namespace
{

void expectOneMessage(const RecordingSink& sink, const char* title, const std::string& text)
{
    ASSERT_EQ(sink.messages.size(), 1u);
    EXPECT_EQ(sink.messages[0].first, title);
    EXPECT_EQ(sink.messages[0].second, text);
}

} // namespace

TEST(PluginLoad, HandshakeOnVersion13BothWays)
{
    TestLibrary library(KV3_TEST_GAIN);
    ASSERT_NE(library.log(), nullptr);
    RecordingSink sink;
    {
        AudioFxKV3Plugin plugin(&sink, KV3_TEST_GAIN);
        ASSERT_NE(plugin.plugin(), nullptr);
        EXPECT_TRUE(sink.messages.empty());
        EXPECT_EQ(plugin.pluginVersion(), 13);
        EXPECT_EQ(library.log()->hostVersionSeen, 13);
        EXPECT_NE(plugin.service(), nullptr);
        // Acquired, then the service asked for once.
        EXPECT_EQ(library.calls(), "aV");
    }
    // Unloading releases the library.
    EXPECT_EQ(library.calls(), "aVr");
}

// Each library that fails the load sequence: the message the user sees and the calls it got.
TEST(PluginLoad, EachFailureOfTheLoadSequence)
{
    struct Case
    {
        const char* path;
        const char* title;
        const char* text;
        const char* calls;
    };
    const Case cases[] = {
        // A version 12 library is released and rejected.
        {KV3_TEST_V12, "VPA compatibility error", "VPA Host rejected VPA PlugIn", "ar"},
        // A library that refuses the host gave nothing, so it is never released.
        {KV3_TEST_REJECT, "VPA compatibility error", "VPA PlugIn rejected VPA Host", "a"},
        // Without VPA2Release the library is never acquired.
        {KV3_TEST_NORELEASE, "DLL error", "Can't find VPA2Release function", ""},
        {KV3_TEST_NOACQUIRE, "DLL error", "Can't find VPA2Acquire function", ""},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.path);
        TestLibrary library(c.path);
        RecordingSink sink;
        AudioFxKV3Plugin plugin(&sink, c.path);
        EXPECT_EQ(plugin.plugin(), nullptr);
        EXPECT_EQ(plugin.service(), nullptr);
        expectOneMessage(sink, c.title, c.text);
        EXPECT_EQ(library.calls(), c.calls);
    }
}

TEST(PluginLoad, AFileThatCantBeLoadedIsNamed)
{
    RecordingSink sink;
    AudioFxKV3Plugin missing(&sink, "/nonexistent/kv3/amp.so");
    EXPECT_EQ(missing.plugin(), nullptr);
    expectOneMessage(sink, "DLL error", "Can't load /nonexistent/kv3/amp.so");
    EXPECT_FALSE(missing.lastDetail().empty());

    // A file that is there but isn't a library.
    ConfigFolder folder;
    const std::string notALibrary = folder.path() + "/text.so";
    {
        FILE* f = std::fopen(notALibrary.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs("not a library\n", f);
        std::fclose(f);
    }
    RecordingSink sink2;
    AudioFxKV3Plugin text(&sink2, notALibrary);
    EXPECT_EQ(text.plugin(), nullptr);
    expectOneMessage(sink2, "DLL error", "Can't load " + notALibrary);
}

TEST(PluginLoad, NothingFoundAnywhereIsARegistryError)
{
    ConfigFolder folder;
    ::unsetenv("KV3_VPA2_PATH");
    AudioFxKV3Plugin::setSearchFolders({});
    RecordingSink sink;
    AudioFxKV3Plugin plugin(&sink);
    EXPECT_EQ(plugin.plugin(), nullptr);
    expectOneMessage(sink, "Registry error", "Please ensure this product has been installed properly");
    AudioFxKV3Plugin::setSearchFolders(AudioFxKV3Plugin::defaultFolders());
}

TEST(PluginLoad, TheStoreNamesTheLibraryFirst)
{
    ConfigFolder folder;
    ::setenv("KV3_VPA2_PATH", KV3_TEST_V12, 1);
    Korvalind3Host::SettingsStore store;
    ASSERT_TRUE(store.writeString("VPA2Path", KV3_TEST_GAIN));
    TestLibrary library(KV3_TEST_GAIN);
    RecordingSink sink;
    AudioFxKV3Plugin plugin(&sink);
    ::unsetenv("KV3_VPA2_PATH");
    EXPECT_NE(plugin.plugin(), nullptr);
    EXPECT_EQ(plugin.path(), KV3_TEST_GAIN);
    EXPECT_TRUE(sink.messages.empty());

    // A value of the wrong type is no value: the environment is next.
    ASSERT_TRUE(store.writeNumber("VPA2Path", 5));
    ::setenv("KV3_VPA2_PATH", KV3_TEST_V12, 1);
    RecordingSink sink2;
    AudioFxKV3Plugin second(&sink2);
    ::unsetenv("KV3_VPA2_PATH");
    EXPECT_EQ(second.path(), KV3_TEST_V12);
    expectOneMessage(sink2, "VPA compatibility error", "VPA Host rejected VPA PlugIn");
}

TEST(PluginLoad, AStoredPathThatIsGoneIsNamedWithoutFallingBack)
{
    ConfigFolder folder;
    ::setenv("KV3_VPA2_PATH", KV3_TEST_GAIN, 1);
    Korvalind3Host::SettingsStore store;
    const std::string gone = folder.path() + "/uninstalled/amp.so";
    ASSERT_TRUE(store.writeString("VPA2Path", gone));
    RecordingSink sink;
    AudioFxKV3Plugin plugin(&sink);
    ::unsetenv("KV3_VPA2_PATH");
    EXPECT_EQ(plugin.plugin(), nullptr);
    expectOneMessage(sink, "DLL error", "Can't load " + gone);
}

TEST(PluginLoad, TheInstalledLibraryIsFoundInTheSearchFolders)
{
    ConfigFolder folder;
    ::unsetenv("KV3_VPA2_PATH");
    const std::string dir = folder.path() + "/lib/korvalind3";
    std::filesystem::create_directories(dir);
    std::filesystem::copy_file(KV3_TEST_GAIN, dir + "/" + AudioFxKV3Plugin::kLibraryName);
    AudioFxKV3Plugin::setSearchFolders({folder.path() + "/missing", dir});
    RecordingSink sink;
    {
        AudioFxKV3Plugin plugin(&sink);
        EXPECT_NE(plugin.plugin(), nullptr);
        EXPECT_EQ(std::filesystem::path(plugin.path().c_str()).filename(), AudioFxKV3Plugin::kLibraryName);
    }
    EXPECT_TRUE(sink.messages.empty());
    AudioFxKV3Plugin::setSearchFolders(AudioFxKV3Plugin::defaultFolders());
}

TEST(PluginLoad, TheManagerPassesSuspendAndResumeToTheService)
{
    TestLibrary library(KV3_TEST_GAIN);
    RecordingSink sink;
    {
        AudioFxKV3Manager manager(&sink, KV3_TEST_GAIN);
        ASSERT_TRUE(manager.isLoaded());
        manager.audioSuspended();
        manager.audioResumed();
        manager.setTransport(90.0f, 1.0, 2.0);
        float tempo = 0.0f;
        double a = 0.0;
        double b = 0.0;
        EXPECT_TRUE(manager.plugin().getTimeInfo(&tempo, &a, &b));
        EXPECT_FLOAT_EQ(tempo, 90.0f);
        EXPECT_DOUBLE_EQ(b, 2.0);
    }
    EXPECT_EQ(library.calls(), "aVuUr");

    // Without a library the same calls do nothing.
    RecordingSink sink2;
    AudioFxKV3Manager empty(&sink2, "/nonexistent.so");
    EXPECT_FALSE(empty.isLoaded());
    empty.audioSuspended();
    empty.audioResumed();
}
