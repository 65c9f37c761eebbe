#pragma once

#include "tests/devices/Kv3Process.h"

#include <cstring>
#include <fstream>
#include <iterator>

/**
 * kv3_jack_peer (JackPeer.cpp) run as a process of its own. The peer plays the part of the user's other
 * programs; keeping it out of the test's process keeps JACK's cross-process hand-offs, which a race
 * detector can't see, out of the analysis.
 */
class JackPeer : public RunningProgram
{
public:
    explicit JackPeer(std::vector<std::string> arguments)
        : RunningProgram(KV3_JACK_PEER, std::move(arguments))
    {
    }

    /** The peer's exit status, or -1 if it didn't end within `limit` (it is then killed). */
    int wait(std::chrono::milliseconds limit = std::chrono::seconds(15))
    {
        return RunningProgram::wait(limit);
    }

    /** Reads a file of raw 32-bit floats the peer wrote. */
    static std::vector<float> readFloats(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        std::vector<float> samples(bytes.size() / sizeof(float));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
        return samples;
    }
};
