#pragma once

#include "tests/epi/TempFolder.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>

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
