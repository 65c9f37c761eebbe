#include "tests/support/Program.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testsupport
{

namespace
{

/** An unnamed file the child writes into and the parent reads back. */
int scratchFile()
{
    char name[] = "/tmp/kv3-program-XXXXXX";
    const int fd = ::mkstemp(name);
    if (fd >= 0)
    {
        ::unlink(name);
    }
    return fd;
}

std::string readBack(int fd)
{
    std::string text;
    char buffer[4096];
    ::lseek(fd, 0, SEEK_SET);
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
    {
        text.append(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    return text;
}

int exitOf(pid_t child)
{
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status))
    {
        return -1;
    }
    return WEXITSTATUS(status);
}

void runInChild(const std::string& command)
{
    ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
}

} // namespace

ProgramResult runProgram(const std::string& program, const std::string& arguments, bool terminal)
{
    ProgramResult result;
    const std::string command = "exec '" + program + "' " + arguments;
    if (terminal)
    {
        int master = -1;
        const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
        if (child < 0)
        {
            return result;
        }
        if (child == 0)
        {
            runInChild(command);
        }
        char buffer[4096];
        // The read fails with EIO once the program has closed its side.
        for (ssize_t n; (n = ::read(master, buffer, sizeof buffer)) > 0;)
        {
            result.out.append(buffer, static_cast<size_t>(n));
        }
        ::close(master);
        result.exit = exitOf(child);
        return result;
    }
    const int out = scratchFile();
    const int err = scratchFile();
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        runInChild(command);
    }
    result.exit = child < 0 ? -1 : exitOf(child);
    result.out = readBack(out);
    result.err = readBack(err);
    return result;
}

std::string kv3Program()
{
    const char* binary = std::getenv("KV3_BINARY_DIR");
    return std::string(binary != nullptr ? binary : ".") + "/app/kv3/kv3";
}

} // namespace testsupport
