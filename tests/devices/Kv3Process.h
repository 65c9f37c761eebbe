#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/**
 * A program run as a process of its own, with its stdout and stderr read apart while it runs, so that a
 * test can act on a line as soon as it comes (a peer connects once the program says its device runs)
 * and can count the lines of each stream. The program runs in a process group of its own, which the
 * destructor kills if the program still runs (with whatever it started).
 */
class RunningProgram
{
public:
    using Clock = std::chrono::steady_clock;

    RunningProgram(const std::string& program, std::vector<std::string> arguments)
    {
        int out[2] = {-1, -1};
        int err[2] = {-1, -1};
        if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        {
            return; // no program: every wait fails at once
        }
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0)
        {
            // Ended with the test's process, even one that crashed (SIGTERM: see JackTestServer).
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (getppid() != parent)
            {
                _exit(1);
            }
            setpgid(0, 0);
            dup2(out[1], 1);
            dup2(err[1], 2);
            std::vector<char*> argv;
            argv.push_back(const_cast<char*>(program.c_str()));
            for (std::string& a : arguments)
            {
                argv.push_back(a.data());
            }
            argv.push_back(nullptr);
            execv(program.c_str(), argv.data());
            _exit(127);
        }
        setpgid(pid_, pid_); // as the child does: whichever comes first
        ::close(out[1]);
        ::close(err[1]);
        fd_[0] = out[0];
        fd_[1] = err[0];
        for (int fd : fd_)
        {
            fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        }
    }
    ~RunningProgram()
    {
        if (pid_ > 0)
        {
            ::kill(-pid_, SIGKILL);
            ::kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        for (int fd : fd_)
        {
            ::close(fd);
        }
    }
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    /** Reads the output until stdout holds `text`; false when the program ended or `limit` passed first. */
    bool waitForOutput(const std::string& text, std::chrono::milliseconds limit)
    {
        const auto deadline = Clock::now() + limit;
        while (out_.find(text) == std::string::npos)
        {
            if (Clock::now() >= deadline || (fd_[0] < 0 && fd_[1] < 0))
            {
                return false;
            }
            pump(20);
        }
        return true;
    }

    /** Waits for the program to end, reading its output. @returns its exit status, or -1 when it had
        to be killed after `limit` or died of a signal */
    int wait(std::chrono::milliseconds limit)
    {
        const auto deadline = Clock::now() + limit;
        while (running())
        {
            if (Clock::now() >= deadline)
            {
                ::kill(pid_, SIGKILL); // reaped by the next running(), as a program a signal ended
            }
            pump(20);
        }
        // What was written before the end is still in the pipes.
        const auto drained = Clock::now() + std::chrono::seconds(2);
        while ((fd_[0] >= 0 || fd_[1] >= 0) && Clock::now() < drained)
        {
            pump(100);
        }
        return status_;
    }

    /** Whether the program still runs; one that ended is reaped. */
    bool running()
    {
        int status = 0;
        if (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == pid_)
        {
            pid_ = 0;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        return pid_ > 0;
    }

    /** Sends a signal to the running program. */
    void signal(int sig)
    {
        if (pid_ > 0)
        {
            ::kill(pid_, sig);
        }
    }

    const std::string& out() const { return out_; }
    const std::string& err() const { return err_; }

private:
    void pump(int timeoutMs)
    {
        pollfd fds[2] = {{fd_[0], POLLIN, 0}, {fd_[1], POLLIN, 0}};
        if (::poll(fds, 2, timeoutMs) <= 0)
        {
            return;
        }
        for (int i = 0; i < 2; ++i)
        {
            if (fd_[i] < 0 || fds[i].revents == 0)
            {
                continue;
            }
            char buffer[4096];
            const ssize_t n = ::read(fd_[i], buffer, sizeof buffer);
            if (n > 0)
            {
                (i == 0 ? out_ : err_).append(buffer, static_cast<std::size_t>(n));
            }
            else if (n == 0 || (errno != EAGAIN && errno != EINTR))
            {
                ::close(fd_[i]);
                fd_[i] = -1;
            }
        }
    }

    pid_t pid_ = 0;
    int fd_[2] = {-1, -1};
    std::string out_;
    std::string err_;
    int status_ = -1;
};

/** The kv3 program of this build, $KV3_BINARY_DIR/app/kv3/kv3. */
class Kv3Process : public RunningProgram
{
public:
    explicit Kv3Process(std::vector<std::string> arguments)
        : RunningProgram(std::string(std::getenv("KV3_BINARY_DIR") ? std::getenv("KV3_BINARY_DIR") : ".") +
                             "/app/kv3/kv3",
                         std::move(arguments))
    {
    }
};
