// Atomic replacement of a file on POSIX systems: write, fsync, rename.

#include "host/settings/ReplaceFile.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Korvalind3Host
{

namespace
{

bool writeAll(int fd, const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size())
    {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace

bool replaceFile(const std::string& path, const std::string& bytes)
{
    // One temporary name per process, so that two programs saving at once don't share one.
    const std::string temporary = path + ".tmp." + std::to_string(::getpid());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
    {
        return false;
    }
    const bool ok = writeAll(fd, bytes) && ::fsync(fd) == 0;
    ::close(fd);
    if (!ok || ::rename(temporary.c_str(), path.c_str()) != 0)
    {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

} // namespace Korvalind3Host
