#pragma once

#include "tests/support/TempFolder.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace kv3test
{

/** A fresh settings folder for one test, named by KV3_CONFIG_DIR while it lives. */
class SettingsFolder
{
public:
    SettingsFolder() { ::setenv("KV3_CONFIG_DIR", temp_.path().c_str(), 1); }
    SettingsFolder(const SettingsFolder&) = delete;
    SettingsFolder& operator=(const SettingsFolder&) = delete;
    ~SettingsFolder() { ::unsetenv("KV3_CONFIG_DIR"); }
    const std::string& path() const { return temp_.path(); }
    std::string file() const { return temp_.file("settings.conf"); }
    std::string contents() const
    {
        std::ifstream in(file(), std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

private:
    testsupport::TempFolder temp_;
};

} // namespace kv3test
