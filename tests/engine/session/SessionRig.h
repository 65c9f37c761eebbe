#pragma once

// A Manager at a fixed format with a delegate that records what the offline jobs report, and real
// float WAVE files made and read back with libsndfile.

#include "engine/Manager.h"
#include "engine/ManagerDelegate.h"

#include <sndfile.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace sessiontest
{

class Folder
{
public:
    explicit Folder(const std::string& name)
    {
        path_ = std::filesystem::temp_directory_path() /
                ("kv3-session-" + std::to_string(::getpid()) + "-" + name);
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    std::string path() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

struct Stereo
{
    std::vector<float> left, right;
    int32_t rate = 0;
    int64_t frames() const { return static_cast<int64_t>(left.size()); }
};

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

inline bool writeWave(const std::string& path, const Stereo& s, int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT)
{
    SF_INFO info{};
    info.samplerate = s.rate;
    info.channels = 2;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr)
    {
        return false;
    }
    std::vector<float> interleaved;
    for (int64_t i = 0; i < s.frames(); ++i)
    {
        interleaved.push_back(s.left[static_cast<size_t>(i)]);
        interleaved.push_back(s.right[static_cast<size_t>(i)]);
    }
    const sf_count_t written = sf_writef_float(file, interleaved.data(), s.frames());
    sf_close(file);
    return written == s.frames();
}

inline Stereo readWave(const std::string& path)
{
    Stereo s;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr)
    {
        return s;
    }
    std::vector<float> interleaved(static_cast<size_t>(info.frames * info.channels));
    sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    s.rate = info.samplerate;
    for (sf_count_t i = 0; i < info.frames; ++i)
    {
        s.left.push_back(interleaved[static_cast<size_t>(i * info.channels)]);
        s.right.push_back(interleaved[static_cast<size_t>(i * info.channels + (info.channels > 1 ? 1 : 0))]);
    }
    return s;
}

/** Records the calls of the offline jobs. */
class RecordingDelegate : public ManagerDelegate
{
public:
    void taskTitle(const epiText& title) override { titles.push_back(title); }
    void taskMessage(const epiText& message) override { messages.push_back(message); }
    void taskProgress(float fraction) override { progress.push_back(fraction); }
    void taskFinished() override { ++finished; }
    void taskFailed(const epiText& message) override { failures.push_back(message); }
    void audioSuspend() override { ++suspends; }
    void audioResume() override { ++resumes; }
    void endReached() override {}
    void autoRecordStarted() override {}
    void pluginChanged() override {}
    void metronomeBeat() override {}

    std::vector<std::string> titles, messages, failures;
    std::vector<float> progress;
    int finished = 0;
    int suspends = 0;
    int resumes = 0;
};

/** Polls until the job is gone; returns the number of polls that found one. */
inline int pumpToEnd(Manager& manager, int limit = 1000)
{
    int steps = 0;
    while (manager.hasTask() && steps < limit)
    {
        manager.poll();
        ++steps;
    }
    return steps;
}

} // namespace sessiontest
