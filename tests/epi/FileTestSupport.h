#pragma once

#include "tests/epi/TempFolder.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fstream>
#include <grp.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace epitest
{

inline std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeAll(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

inline int openDescriptors()
{
    int count = 0;
    if (DIR* dir = ::opendir("/proc/self/fd"))
    {
        while (::readdir(dir) != nullptr)
            ++count;
        ::closedir(dir);
    }
    return count;
}

/**
 * Runs `checks` where file permissions apply: directly for an ordinary user; for the superuser,
 * whom permissions don't bind, in a child process that has dropped to the user "nobody". `checks`
 * returns 0 when all held, otherwise the number of the first check that failed (it must not use
 * gtest's assertions, which a child can't report).
 * @return what `checks` returned, or 255 when the child couldn't drop its privileges
 */
template <typename Checks> int runWherePermissionsApply(Checks checks)
{
    if (::geteuid() != 0)
        return checks();
    const pid_t child = ::fork();
    if (child < 0)
        return 255;
    if (child == 0)
    {
        // 65534 is "nobody" on Debian.
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(255);
        ::_exit(checks());
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return 255;
    return WEXITSTATUS(status);
}

class FileTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(tmp_.path().empty());
        descriptorsBefore_ = openDescriptors();
    }
    void TearDown() override
    {
        // Every test closes what it opens: no handle may leak.
        EXPECT_EQ(openDescriptors(), descriptorsBefore_);
    }
    std::string at(const std::string& name) const { return tmp_.path() + name; }
    /**
     * A read-only file in a folder open to all, so that only the file's own protection stands in
     * the way.
     */
    std::string readOnlyFile(const std::string& name, const std::string& bytes)
    {
        const std::string path = at(name);
        writeAll(path, bytes);
        EXPECT_EQ(::chmod(path.c_str(), 0444), 0);
        EXPECT_EQ(::chmod(tmp_.path().c_str(), 0777), 0);
        return path;
    }

    TempFolder tmp_;
    int descriptorsBefore_ = 0;
};

} // namespace epitest
