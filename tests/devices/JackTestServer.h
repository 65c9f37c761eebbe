#pragma once

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

/**
 * A real JACK server with the dummy driver, private to one test: a unique name, the process's
 * JACK_DEFAULT_SERVER pointed at it, and always stopped by the destructor. The server is also
 * killed by the kernel if the test process dies first, so a crashed test leaves no server behind.
 * It runs without realtime scheduling, so its periods jitter and may occasionally be missed.
 */
class JackTestServer
{
public:
    explicit JackTestServer(unsigned rate = 48000, unsigned period = 256) : rate_(rate), period_(period)
    {
        // Names come from a small pool, each held by a lock on a file for as long as this object
        // lives: two test processes never share a name, and a name is used again by later runs.
        // JACK's registry of servers holds only eight and reclaims an entry only for the same name,
        // so names that never repeat would fill it with the entries of killed servers.
        for (int slot = 0; slot < 64 && name_.empty(); ++slot)
        {
            const std::string lock = "/tmp/kv3-jack-test-" + std::to_string(slot) + ".lock";
            const int fd = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
            if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0)
            {
                lockFd_ = fd;
                name_ = "kv3test_" + std::to_string(slot);
            }
            else if (fd >= 0)
            {
                ::close(fd);
            }
        }
        setenv("JACK_DEFAULT_SERVER", name_.c_str(), 1);
        setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
    }
    ~JackTestServer()
    {
        stop();
        ::close(lockFd_);
    }
    JackTestServer(const JackTestServer&) = delete;
    JackTestServer& operator=(const JackTestServer&) = delete;

    const std::string& name() const { return name_; }

    /** Starts the server and waits until it accepts clients (at most ten seconds). */
    bool start()
    {
        stop();
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0)
        {
            // SIGTERM, not SIGKILL: a killed server leaves its entry in JACK's server registry,
            // which holds only eight, and a full registry refuses every later server.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (getppid() != parent)
            {
                _exit(1);
            }
            const int devnull = open("/dev/null", O_WRONLY);
            dup2(devnull, 1);
            dup2(devnull, 2);
            const std::string rate = std::to_string(rate_);
            const std::string period = std::to_string(period_);
            execlp("jackd", "jackd", "-r", "-t", "2000", "-n", name_.c_str(), "-d", "dummy", "-r",
                   rate.c_str(), "-p", period.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (pid_ > 0 && std::chrono::steady_clock::now() < deadline)
        {
            if (accepting())
            {
                // The socket comes up a moment before the server has finished starting.
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                return true;
            }
            if (waitpid(pid_, nullptr, WNOHANG) == pid_)
            {
                pid_ = 0;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    /**
     * Stops the server: SIGTERM, then SIGKILL after `grace`. A server that was frozen with a client
     * on it waits up to 20 seconds for that client before it exits; it is killed instead, and the
     * entry it leaves in JACK's registry is taken back by the next server of the same name.
     */
    void stop(std::chrono::seconds grace = std::chrono::seconds(5))
    {
        if (pid_ <= 0)
        {
            return;
        }
        ::kill(pid_, SIGCONT);
        ::kill(pid_, SIGTERM);
        const auto deadline = std::chrono::steady_clock::now() + grace;
        while (waitpid(pid_, nullptr, WNOHANG) != pid_)
        {
            if (std::chrono::steady_clock::now() >= deadline)
            {
                ::kill(pid_, SIGKILL);
                waitpid(pid_, nullptr, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        pid_ = 0;
    }
    /** Ends the server under its clients. */
    void kill() { stop(); }

    /** Freezes the server so that it accepts connections but never answers them. */
    void freeze() { ::kill(pid_, SIGSTOP); }
    void thaw() { ::kill(pid_, SIGCONT); }

private:
    /**
     * Whether the server's socket accepts a connection. Asked without libjack on purpose: a test's
     * own client would share libjack's process-wide state with the clients under test, some of
     * which the code under test may be closing on a helper thread at that moment.
     */
    bool accepting() const
    {
        const std::string path = "/dev/shm/jack_" + name_ + "_" + std::to_string(getuid()) + "_0";
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
        const bool ok = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        ::close(fd);
        return ok;
    }

    unsigned rate_;
    unsigned period_;
    std::string name_;
    pid_t pid_ = 0;
    int lockFd_ = -1;
};
