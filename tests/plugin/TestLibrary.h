#pragma once

// The plug-in tests' helpers: a test library's record of calls, a sink that keeps the messages, a
// private settings folder, state bytes, and switching a unit off as the running engine does.
#include "plugin/AudioFxKV3Messages.h"
#include "plugin/AudioFxKV3Unit.h"
#include "plugins/test/TestPluginLog.h"
#include "tests/host/SettingsFolder.h"

#include <atomic>
#include <chrono>
#include <dlfcn.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kv3test
{

/** Opens a test library beside the host, so that its record survives the host's loads, and clears it. */
class TestLibrary
{
public:
    explicit TestLibrary(const char* path) : handle_(::dlopen(path, RTLD_NOW | RTLD_LOCAL))
    {
        if (handle_ == nullptr)
        {
            return;
        }
        auto reset = reinterpret_cast<void (*)()>(::dlsym(handle_, "kv3TestPluginReset"));
        auto log = reinterpret_cast<TestPluginLog* (*)()>(::dlsym(handle_, "kv3TestPluginLog"));
        if (reset != nullptr && log != nullptr)
        {
            reset();
            log_ = log();
        }
    }
    TestLibrary(const TestLibrary&) = delete;
    TestLibrary& operator=(const TestLibrary&) = delete;
    ~TestLibrary()
    {
        if (handle_ != nullptr)
            ::dlclose(handle_);
    }

    TestPluginLog* log() const { return log_; }
    /** The calls so far as a string of call codes. */
    std::string calls() const
    {
        const int n = log_->callCount.load();
        return std::string(log_->calls, static_cast<std::size_t>(n < kMaxCalls ? n : kMaxCalls));
    }

private:
    void* handle_;
    TestPluginLog* log_ = nullptr;
};

/** Keeps every message it is shown. */
class RecordingSink : public AudioFxKV3MessageSink
{
public:
    void showMessage(const epiText& title, const epiText& text) override
    {
        messages.emplace_back(title, text);
    }
    std::vector<std::pair<std::string, std::string>> messages;
};

using ConfigFolder = SettingsFolder;

inline std::string bytesOf(const epiFileDump& dump)
{
    return dump.size() == 0 ? std::string()
                            : std::string(reinterpret_cast<const char*>(dump.data()), dump.size());
}

inline void fillDump(epiFileDump& dump, const std::string& bytes)
{
    dump.copyBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

/** Switches a unit off while another thread counts engine blocks, as the running engine does. */
inline void disableWhileTicking(AudioFxKV3Unit& unit)
{
    std::atomic<bool> running{true};
    std::thread engine(
        [&]
        {
            for (; running.load(); std::this_thread::sleep_for(std::chrono::milliseconds(1)))
                unit.noteTick();
        });
    unit.setEnabled(false);
    running.store(false);
    engine.join();
}

} // namespace kv3test
