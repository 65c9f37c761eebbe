#pragma once

#include "tests/devices/Kv3Process.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

/**
 * A real JACK server with the dummy driver, private to one test: a unique name, the process's
 * JACK_DEFAULT_SERVER pointed at it, and always stopped by the destructor (or, when the test process
 * crashes, by the kernel).
 * It runs without realtime scheduling, so its periods jitter and may occasionally be missed.
 */
class JackTestServer
{
public:
    explicit JackTestServer(unsigned rate = 48000, unsigned period = 256) : rate_(rate), period_(period)
    {
        // Names come from a small pool, each held by a file lock while this object lives: JACK's registry
        // of servers holds eight and takes an entry back only for the same name.
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
        jackd_.emplace("/bin/sh",
                       std::vector<std::string>{"-c", "exec jackd -r -t 2000 -n " + name_ + " -d dummy -r " +
                                                          std::to_string(rate_) + " -p " +
                                                          std::to_string(period_) + " >/dev/null 2>&1"});
        for (int i = 0; i < 200 && jackd_->running(); ++i)
        {
            if (accepting())
            {
                // The socket comes up a moment before the server has finished starting.
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    /**
     * Stops the server: SIGTERM, then SIGKILL after `grace`. SIGTERM first: a killed server leaves its
     * entry in JACK's registry of servers, which holds only eight, and a full registry refuses every
     * later server. A server that was frozen with a client on it waits up to 20 seconds for that client
     * before it exits; it is killed instead, and its entry is taken back by the next server of the name.
     */
    void stop(std::chrono::seconds grace = std::chrono::seconds(5))
    {
        if (jackd_)
        {
            jackd_->signal(SIGCONT);
            jackd_->signal(SIGTERM);
            jackd_->wait(grace);
            jackd_.reset();
        }
    }
    /** Ends the server under its clients. */
    void kill() { stop(); }

    /** Freezes the server so that it accepts connections but never answers them. */
    void freeze() { jackd_->signal(SIGSTOP); }
    void thaw() { jackd_->signal(SIGCONT); }

private:
    /** Whether the server's socket accepts a connection; not through libjack, whose process-wide state
        a test's own client would share with the clients under test. */
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
    std::optional<RunningProgram> jackd_;
    int lockFd_ = -1;
};
