#pragma once

#include "plugins/test/TestPluginLog.h"
#include "tests/support/TempFolder.h"

#include <dlfcn.h>

#include <cstdlib>
#include <string>

namespace testsupport
{

/**
 * Points the plug-in host at a library before a Manager is made: an empty settings folder, so that
 * no stored VPA2Path wins, and the library in KV3_VPA2_PATH.
 */
class PluginEnv
{
public:
    explicit PluginEnv(const std::string& library)
    {
        ::setenv("KV3_CONFIG_DIR", settings_.path().c_str(), 1);
        ::setenv("KV3_VPA2_PATH", library.c_str(), 1);
        library_ = library;
    }
    ~PluginEnv() { ::unsetenv("KV3_VPA2_PATH"); }

    /** The test library's log, once a Manager has loaded it; null otherwise. */
    kv3test::TestPluginLog* log() const
    {
        void* handle = ::dlopen(library_.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle == nullptr)
        {
            return nullptr;
        }
        using LogFunction = kv3test::TestPluginLog* (*)();
        auto function = reinterpret_cast<LogFunction>(::dlsym(handle, "kv3TestPluginLog"));
        kv3test::TestPluginLog* log = function != nullptr ? function() : nullptr;
        ::dlclose(handle);
        return log;
    }

private:
    TempFolder settings_;
    std::string library_;
};

} // namespace testsupport
