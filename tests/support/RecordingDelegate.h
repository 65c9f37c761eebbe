#pragma once

#include "engine/ManagerDelegate.h"

#include <atomic>
#include <string>
#include <vector>

namespace testsupport
{

/** A Manager delegate that records what the Manager reports, and in which order. */
class RecordingDelegate : public ManagerDelegate
{
public:
    void taskTitle(const epiText& title) override
    {
        titles.push_back(title);
        order.push_back("title");
    }
    void taskMessage(const epiText& message) override
    {
        messages.push_back(message);
        order.push_back("message");
    }
    void taskProgress(float fraction) override
    {
        progress.push_back(fraction);
        order.push_back("progress");
    }
    void taskFinished() override
    {
        ++finished;
        order.push_back("finished");
    }
    void taskFailed(const epiText& message) override
    {
        failures.push_back(message);
        order.push_back("failed");
    }
    void audioSuspend() override
    {
        ++suspends;
        order.push_back("suspend");
    }
    void audioResume() override
    {
        ++resumes;
        order.push_back("resume");
    }
    void endReached() override { ++ends; }
    void autoRecordStarted() override { ++autoRecords; }
    void pluginChanged() override { ++pluginChanges; }
    // Relaxed: the beat is counted from the audio thread and read after it has stopped.
    void metronomeBeat() override { beats.fetch_add(1, std::memory_order_relaxed); }

    std::vector<std::string> titles, messages, failures;
    std::vector<float> progress;
    std::vector<const char*> order;
    int finished = 0, suspends = 0, resumes = 0, ends = 0, autoRecords = 0, pluginChanges = 0;
    std::atomic<int> beats{0};
};

} // namespace testsupport
