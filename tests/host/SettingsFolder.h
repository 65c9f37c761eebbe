#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace kv3test
{

/** A fresh settings folder for one test, named by KV3_CONFIG_DIR while it lives. */
class SettingsFolder
{
public:
    SettingsFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kv3settings-XXXXXX").string();
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        path_ = ::mkdtemp(name.data());
        ::setenv("KV3_CONFIG_DIR", path_.c_str(), 1);
    }
    SettingsFolder(const SettingsFolder&) = delete;
    SettingsFolder& operator=(const SettingsFolder&) = delete;
    ~SettingsFolder()
    {
        ::unsetenv("KV3_CONFIG_DIR");
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::string& path() const { return path_; }
    std::string file() const { return path_ + "/settings.conf"; }
    std::string contents() const
    {
        std::ifstream in(file(), std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

private:
    std::string path_;
};

} // namespace kv3test
