#pragma once

#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

/**
 * Runs kv3_jack_peer (JackPeer.cpp) as a process of its own and waits for it. The peer plays the
 * part of the user's other programs; keeping it out of the test's process keeps JACK's
 * cross-process hand-offs, which a race detector can't see, out of the analysis.
 */
class JackPeer
{
public:
    explicit JackPeer(std::vector<std::string> arguments)
    {
        pid_ = fork();
        if (pid_ == 0)
        {
            std::vector<char*> argv;
            argv.push_back(const_cast<char*>(KV3_JACK_PEER));
            for (std::string& a : arguments)
            {
                argv.push_back(a.data());
            }
            argv.push_back(nullptr);
            execv(KV3_JACK_PEER, argv.data());
            _exit(127);
        }
    }
    ~JackPeer()
    {
        if (pid_ > 0)
        {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    JackPeer(const JackPeer&) = delete;
    JackPeer& operator=(const JackPeer&) = delete;

    /** The peer's exit status, or -1 if it didn't end within `limit` (it is then killed). */
    int wait(std::chrono::milliseconds limit = std::chrono::seconds(15))
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (pid_ > 0 && std::chrono::steady_clock::now() < deadline)
        {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_)
            {
                pid_ = 0;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
    }

    /** Reads a file of raw 32-bit floats the peer wrote. */
    static std::vector<float> readFloats(const std::string& path)
    {
        std::vector<float> samples;
        if (FILE* f = std::fopen(path.c_str(), "rb"))
        {
            float buffer[4096];
            std::size_t n;
            while ((n = std::fread(buffer, sizeof(float), 4096, f)) > 0)
            {
                samples.insert(samples.end(), buffer, buffer + n);
            }
            std::fclose(f);
        }
        return samples;
    }

private:
    pid_t pid_ = 0;
};
