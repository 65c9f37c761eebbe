#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

/** A fresh folder under $TMPDIR (or /tmp) for one test, removed with everything in it afterwards. */
class TempFolder
{
public:
    TempFolder()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern =
            std::string(base != nullptr && base[0] == '/' ? base : "/tmp") + "/kv3epi.XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr)
            path_ = pattern + "/";
    }
    ~TempFolder()
    {
        if (path_.empty())
            return;
        std::error_code error;
        // Folders made read-only by a test must be writable again before they can be emptied.
        for (auto it = std::filesystem::recursive_directory_iterator(path_, error);
             !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
        {
            if (it->is_directory(error))
                std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                             std::filesystem::perm_options::add, error);
        }
        std::filesystem::remove_all(path_, error);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /** The folder, with a trailing '/'; empty when it couldn't be made. */
    const std::string& path() const { return path_; }

private:
    std::string path_;
};
