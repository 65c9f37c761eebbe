#include "engine/Manager.h"
#include "tests/engine/harness/EngineHarness.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using enginetest::RecordingDelegate;

namespace
{

// A job of a given number of slices; it notes what was done to it.
class ScriptedJob : public Exporter
{
public:
    struct Log
    {
        int renders = 0;
        int cancels = 0;
        int destroyed = 0;
    };

    ScriptedJob(Log& log, int slices) : log_(log), slices_(slices) {}
    ~ScriptedJob() override { ++log_.destroyed; }

    bool render(float& progress, bool& finished) override
    {
        ++log_.renders;
        progress = static_cast<float>(log_.renders) / static_cast<float>(slices_);
        finished = log_.renders >= slices_;
        return true;
    }
    void cancel() override { ++log_.cancels; }

private:
    Log& log_;
    int slices_;
};

TEST(ManagerTask, JobRunsSliceBySliceThroughPoll)
{
    RecordingDelegate delegate;
    Manager m;
    m.setDelegate(&delegate);
    ScriptedJob::Log log;
    int suspendsWhenMade = -1;
    m.startTask(
        [&]
        {
            suspendsWhenMade = delegate.suspends;
            return std::make_unique<ScriptedJob>(log, 4);
        },
        epiText("Rendering session"), epiText("Rendering session..."));
    EXPECT_EQ(suspendsWhenMade, 1) << "the job is set up with the device already suspended";
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_TRUE(m.hasTask()) << i;
        m.poll();
    }
    EXPECT_FALSE(m.hasTask());
    EXPECT_EQ(log.destroyed, 1);
    EXPECT_EQ(delegate.progress, (std::vector<float>{0.25f, 0.5f, 0.75f, 1.0f}));
    EXPECT_EQ(std::vector<std::string>(delegate.order.begin(), delegate.order.end()),
              (std::vector<std::string>{"suspend", "title", "message", "progress", "progress", "progress",
                                        "progress", "finished", "resume"}));
    m.poll();
    EXPECT_EQ(log.renders, 4) << "nothing to pump once finished";
}

TEST(ManagerTask, CancelAndReplaceAndDestroy)
{
    RecordingDelegate delegate;
    ScriptedJob::Log first, second, third;
    {
        Manager m;
        m.setDelegate(&delegate);
        m.cancelTask(); // nothing running: nothing happens
        m.startTask([&] { return std::make_unique<ScriptedJob>(first, 10); }, epiText("a"), epiText("b"));
        m.poll();
        m.cancelTask();
        EXPECT_EQ(first.destroyed, 1);
        EXPECT_EQ(delegate.resumes, 1);

        m.startTask([&] { return std::make_unique<ScriptedJob>(second, 10); }, epiText("a"), epiText("b"));
        m.startTask([&] { return std::make_unique<ScriptedJob>(third, 10); }, epiText("a"), epiText("b"));
        EXPECT_EQ(second.cancels, 1) << "a new job replaces a running one";

        m.startTask([] { return std::unique_ptr<Exporter>(); }, epiText("a"), epiText("b"));
        EXPECT_EQ(third.cancels, 1);
        EXPECT_FALSE(m.hasTask()) << "nothing made: device resumed at once";
        EXPECT_EQ(delegate.suspends, delegate.resumes);

        m.startTask([&] { return std::make_unique<ScriptedJob>(first, 10); }, epiText("a"), epiText("b"));
    }
    EXPECT_EQ(first.cancels, 2) << "the destructor abandons a running job";
}

} // namespace
