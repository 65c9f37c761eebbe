#include "tests/support/TempFolder.h"

#include "tests/support/Unprivileged.h"

#include <filesystem>
#include <stdexcept>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace testsupport
{

TempFolder::TempFolder()
{
    // /tmp rather than TMPDIR: the unprivileged user must be able to reach it.
    std::string pattern = "/tmp/kv3-test-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (::mkdtemp(name.data()) == nullptr)
    {
        throw std::runtime_error("cannot make a folder under /tmp");
    }
    path_ = name.data();
    if (::geteuid() == 0 && ::chown(path_.c_str(), kUnprivilegedUser, kUnprivilegedGroup) != 0)
    {
        throw std::runtime_error("cannot give " + path_ + " to the unprivileged user");
    }
}

TempFolder::~TempFolder()
{
    std::error_code ec;
    // A test may leave a folder it made read-only behind.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
    {
        if (it->is_directory(ec))
        {
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ec);
        }
    }
    std::filesystem::remove_all(path_, ec);
}

bool exists(const std::string& path)
{
    struct stat st
    {
    };
    return ::stat(path.c_str(), &st) == 0;
}

} // namespace testsupport
