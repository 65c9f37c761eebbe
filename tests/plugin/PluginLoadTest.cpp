// The load sequence against real libraries: the handshake, the host's tables, where the library is
// looked for, and each failure with the exact title and text the user sees.

#include "host/settings/SettingsStore.h"
#include "plugin/AudioFxKV3Manager.h"
#include "plugin/AudioFxKV3Plugin.h"
#include "tests/plugin/TestLibrary.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>

using kv3test::ConfigFolder;
using kv3test::RecordingSink;
using kv3test::TestLibrary;
using namespace NV::VPA2;

namespace
{

void expectOneMessage(const RecordingSink& sink, const char* title, const std::string& text)
{
    ASSERT_EQ(sink.messages.size(), 1u);
    EXPECT_EQ(sink.messages[0].first, title);
    EXPECT_EQ(sink.messages[0].second, text);
}

// Loads with no path given, KV3_VPA2_PATH set to `env` (or unset) while the host looks.
std::unique_ptr<AudioFxKV3Plugin> loadFound(RecordingSink& sink, const char* env)
{
    if (env != nullptr)
        ::setenv("KV3_VPA2_PATH", env, 1);
    else
        ::unsetenv("KV3_VPA2_PATH");
    auto plugin = std::make_unique<AudioFxKV3Plugin>(&sink);
    ::unsetenv("KV3_VPA2_PATH");
    return plugin;
}

} // namespace

TEST(PluginLoad, HandshakeOnVersion13AndTheTablesThroughAnInstance)
{
    TestLibrary library(KV3_TEST_GAIN);
    ASSERT_NE(library.log(), nullptr);
    const kv3test::TestPluginLog& log = *library.log();
    RecordingSink sink;
    {
        AudioFxKV3Plugin host(&sink, KV3_TEST_GAIN);
        ASSERT_NE(host.plugin(), nullptr);
        EXPECT_TRUE(sink.messages.empty());
        EXPECT_EQ(host.pluginVersion(), 13);
        EXPECT_EQ(log.hostVersionSeen, 13);
        EXPECT_NE(host.service(), nullptr);
        EXPECT_EQ(library.calls(), "aV"); // acquired, then the service asked for once

        host.setTransport(133.0f, 4.0, 8.0);
        PluginTable* root = host.plugin();
        InstanceTable* instance = root->createInstance(root, host.table(), 0);
        ASSERT_NE(instance, nullptr);
        EXPECT_EQ(log.hostTableVersion, 13);
        EXPECT_TRUE(log.timeInfoResult);
        EXPECT_FLOAT_EQ(log.tempo, 133.0f);
        EXPECT_DOUBLE_EQ(log.timeA, 4.0);
        EXPECT_DOUBLE_EQ(log.timeB, 8.0);
        root->releaseInstance(root, instance);
        EXPECT_EQ(log.liveInstances, 0);
    }
    EXPECT_EQ(library.calls().back(), 'r'); // unloading releases the library
}

// Each library or file that fails the load sequence: the message the user sees and the calls it got.
TEST(PluginLoad, EachFailureOfTheLoadSequence)
{
    ConfigFolder folder;
    const std::string text = folder.path() + "/text.so";
    std::ofstream(text) << "not a library\n";
    struct Case
    {
        std::string path;
        const char* title;
        std::string text;
        const char* calls; // null: not a test library
    };
    const Case cases[] = {
        // A version 12 library is released and rejected.
        {KV3_TEST_V12, "VPA compatibility error", "VPA Host rejected VPA PlugIn", "ar"},
        // A library that refuses the host gave nothing, so it is never released.
        {KV3_TEST_REJECT, "VPA compatibility error", "VPA PlugIn rejected VPA Host", "a"},
        // Without VPA2Release the library is never acquired.
        {KV3_TEST_NORELEASE, "DLL error", "Can't find VPA2Release function", ""},
        {KV3_TEST_NOACQUIRE, "DLL error", "Can't find VPA2Acquire function", ""},
        {"/nonexistent/kv3/amp.so", "DLL error", "Can't load /nonexistent/kv3/amp.so", nullptr},
        {text, "DLL error", "Can't load " + text, nullptr},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.path);
        TestLibrary library(c.path.c_str());
        RecordingSink sink;
        AudioFxKV3Plugin plugin(&sink, c.path);
        EXPECT_EQ(plugin.plugin(), nullptr);
        EXPECT_EQ(plugin.service(), nullptr);
        expectOneMessage(sink, c.title, c.text);
        if (c.calls != nullptr)
        {
            EXPECT_EQ(library.calls(), c.calls);
        }
        else
        {
            EXPECT_FALSE(plugin.lastDetail().empty());
        }
    }
}

// The stored path first, then KV3_VPA2_PATH, then the search folders; nothing is a registry error.
TEST(PluginLoad, TheStoreThenTheEnvironmentThenTheSearchFolders)
{
    ConfigFolder folder;
    Korvalind3Host::SettingsStore store;
    ASSERT_TRUE(store.writeString("VPA2Path", KV3_TEST_GAIN));
    {
        RecordingSink sink;
        EXPECT_EQ(loadFound(sink, KV3_TEST_V12)->path(), KV3_TEST_GAIN);
        EXPECT_TRUE(sink.messages.empty());
    }
    // A value of the wrong type is no value: the environment is next.
    ASSERT_TRUE(store.writeNumber("VPA2Path", 5));
    {
        RecordingSink sink;
        EXPECT_EQ(loadFound(sink, KV3_TEST_V12)->path(), KV3_TEST_V12);
        expectOneMessage(sink, "VPA compatibility error", "VPA Host rejected VPA PlugIn");
    }
    // A stored path that is gone is named, without falling back on the environment.
    const std::string gone = folder.path() + "/uninstalled/amp.so";
    ASSERT_TRUE(store.writeString("VPA2Path", gone));
    {
        RecordingSink sink;
        EXPECT_EQ(loadFound(sink, KV3_TEST_GAIN)->plugin(), nullptr);
        expectOneMessage(sink, "DLL error", "Can't load " + gone);
    }
    ASSERT_TRUE(store.remove("VPA2Path"));
    const std::string dir = folder.path() + "/lib/korvalind3";
    std::filesystem::create_directories(dir);
    std::filesystem::copy_file(KV3_TEST_GAIN, dir + "/" + AudioFxKV3Plugin::kLibraryName);
    AudioFxKV3Plugin::setSearchFolders({folder.path() + "/missing", dir});
    {
        RecordingSink sink;
        const auto plugin = loadFound(sink, nullptr);
        EXPECT_NE(plugin->plugin(), nullptr);
        EXPECT_EQ(std::filesystem::path(plugin->path().c_str()).filename(), AudioFxKV3Plugin::kLibraryName);
        EXPECT_TRUE(sink.messages.empty());
    }
    AudioFxKV3Plugin::setSearchFolders({});
    {
        RecordingSink sink;
        EXPECT_EQ(loadFound(sink, nullptr)->plugin(), nullptr);
        expectOneMessage(sink, "Registry error", "Please ensure this product has been installed properly");
    }
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
