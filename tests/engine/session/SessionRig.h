#pragma once

// A Manager at a fixed format with a delegate that records what the offline jobs report, and real
// float WAVE files made and read back with libsndfile.

#include "engine/Manager.h"
#include "engine/ManagerDelegate.h"
#include "tests/support/RecordingDelegate.h"
#include "tests/support/SoundFile.h"
#include "tests/support/TempFolder.h"

#include <sndfile.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

namespace sessiontest
{

using Folder = testsupport::TempFolder;
using testsupport::RecordingDelegate;

using testsound::Stereo;

/** Two different known signals, small enough that no sum reaches the clamp. */
inline Stereo makeSignal(int64_t frames, int32_t rate, double frequency, double level)
{
    Stereo s;
    s.rate = rate;
    for (int64_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / rate;
        s.left.push_back(static_cast<float>(level * std::sin(2.0 * M_PI * frequency * t)));
        s.right.push_back(static_cast<float>(level * 0.7 * std::cos(2.0 * M_PI * frequency * 1.5 * t)));
    }
    return s;
}

inline bool writeWave(const std::string& path, const Stereo& s)
{
    return testsound::writeStereo(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, s.rate, s.left, s.right);
}

constexpr auto readWave = testsound::readStereo;

/** Polls until the job is gone; returns the number of polls that found one. */
inline int pumpToEnd(Manager& manager)
{
    int steps = 0;
    for (; manager.hasTask() && steps < 1000; ++steps)
    {
        manager.poll();
    }
    return steps;
}

} // namespace sessiontest
