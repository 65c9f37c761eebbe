// Timers, deferred deletion, posted commands, the window list and the message loop, over a clock
// moved by hand. The road of a command is the menu tests'.

#include "tests/epi/ui/UiTestSupport.h"

#include <chrono>
#include <ctime>
#include <functional>

namespace
{

using Timers = UiFixture;

/** Records the clock at each tick; may remove its own timer from inside the tick. */
class Ticker : public epiApplicationObject
{
public:
    explicit Ticker(TestApp& app) : app_(app) { setOwner(&app); }
    void timerTick() override
    {
        ticks.push_back(app_.clock);
        if (removeInTick)
            app_.removeTimer(this);
    }
    intptr_t query(intptr_t a, intptr_t, intptr_t) override
    {
        queried.push_back({a, app_.clock});
        return 0;
    }
    std::vector<double> ticks;
    std::vector<std::pair<intptr_t, double>> queried;
    bool removeInTick = false;

private:
    TestApp& app_;
};

TEST_F(Timers, OneShotFiresOnceAndAnOwnRemovalEndsTheTimer)
{
    Ticker once(app), self(app);
    self.removeInTick = true;
    app.addTimer(&once, 0.5, true, false);
    app.addTimer(&self, 0.1, false, false);
    advance(2.0);
    EXPECT_EQ(once.ticks.size(), 1u);
    EXPECT_EQ(self.ticks.size(), 1u);
    EXPECT_FALSE(app.hasTimer(&once));
    EXPECT_FALSE(app.hasTimer(&self));
    EXPECT_EQ(app.timerEntryCount(), 0);
}

TEST_F(Timers, ALateExactTimerKeepsItsPhaseAndAnotherStartsFromThePump)
{
    Ticker exact(app), loose(app);
    app.addTimer(&exact, 1.0, false, true);
    app.addTimer(&loose, 1.0, false, false);
    const double start = app.clock;
    app.clock = start + 1.3; // both late
    app.pumpTimers();
    app.clock = start + 2.05;
    app.pumpTimers();
    EXPECT_EQ(exact.ticks.size(), 2u); // due at 2.0, on the old phase
    EXPECT_EQ(loose.ticks.size(), 1u); // due at 2.3, from the late pump
    app.clock = start + 5.5;           // several periods late: one tick per pump, never two in a row
    app.pumpTimers();
    EXPECT_EQ(exact.ticks.size(), 3u);
    app.removeTimer(&exact);
    app.removeTimer(&loose);
}

TEST_F(Timers, TwoEntriesForOneObjectAndRemoveMarksOnlyTheFirst)
{
    Ticker twice(app);
    app.addTimer(&twice, 0.1, false, false);
    app.addTimer(&twice, 0.1, false, false);
    app.removeTimer(&twice);
    EXPECT_TRUE(app.hasTimer(&twice));
    advance(0.15);
    EXPECT_EQ(twice.ticks.size(), 1u);
    EXPECT_EQ(app.timerEntryCount(), 1);
    app.removeTimer(&twice);
    EXPECT_FALSE(app.hasTimer(&twice));
}

TEST_F(Timers, PostedCommandsRunATenthApartInOrder)
{
    Ticker target(app);
    const double start = app.clock;
    app.postCommand(&target, 1, 0, 0);
    app.postCommand(&target, 2, 0, 0);
    advance(0.5);
    ASSERT_EQ(target.queried.size(), 2u);
    EXPECT_EQ(target.queried[0].first, 1);
    EXPECT_EQ(target.queried[1].first, 2);
    EXPECT_NEAR(target.queried[0].second - start, 0.11, 1e-6);
    EXPECT_NEAR(target.queried[1].second - target.queried[0].second, 0.1, 1e-6);
    EXPECT_EQ(app.timerEntryCount(), 0); // the empty queue ended its timer
}

TEST_F(Timers, ACommandForAClosedWindowDoesNoHarmAndWhatIsDisposedTwiceIsListedOnce)
{
    layout("w.xml", "<name>wind</name><size>100,100</size>", item("ubob", "aaaa"));
    epiUbo* window = app.openWindow(epiText("w.xml"));
    ASSERT_NE(window, nullptr);
    ASSERT_EQ(app.windowManager()->windowNamed(epiCode("wind")), window);
    app.postCommand(window, 7, 0, 0);
    window->onCommand(epiCode("clos"));
    EXPECT_EQ(app.windowManager()->windowNamed(epiCode("wind")), nullptr);
    EXPECT_EQ(window->refCount(), 1); // held by the command alone; its child is gone
    const int32_t disposed = app.disposedCount();
    advance(0.2);
    EXPECT_EQ(app.disposedCount(), disposed + 1);
    auto* object = new epiApplicationObject(); // disposed twice, listed once
    app.disposeChild(object);
    app.disposeChild(object);
    app.disposeChild(nullptr);
    EXPECT_EQ(app.disposedCount(), disposed + 2);
    app.purgeDisposed();
    EXPECT_EQ(app.disposedCount(), 0);
}

/** Runs the window manager's loop until it quits, `dispatch` giving each event it asks for. */
void runLoop(epiWindowManager* manager, std::function<bool()> dispatch)
{
    struct Events : epiEventSource
    {
        bool dispatchOne() override { return dispatch(); }
        std::function<bool()> dispatch;
    } events;
    events.dispatch = std::move(dispatch);
    manager->setEventSource(&events);
    manager->messageLoop();
    manager->setEventSource(nullptr);
}

TEST_F(Timers, AnIdleLoopSleepsAndStillRunsTheTimers)
{
    epiWindowManager* manager = app.windowManager();
    Ticker ticker(app);
    app.addTimer(&ticker, 0.1, true, false);
    app.clock += 1.0;
    // Nothing to dispatch, for 300 ms of real time.
    int calls = 0;
    const auto start = std::chrono::steady_clock::now();
    const std::clock_t cpuBefore = std::clock();
    runLoop(manager,
            [&]
            {
                if (++calls, std::chrono::steady_clock::now() - start > std::chrono::milliseconds(300))
                    manager->quit();
                return false;
            });
    const double cpu = double(std::clock() - cpuBefore) / CLOCKS_PER_SEC;
    EXPECT_EQ(ticker.ticks.size(), 1u);
    EXPECT_GT(calls, 20);  // about one per 2 ms
    EXPECT_LT(calls, 200); // and not a busy loop
    EXPECT_LT(cpu, 0.1);
}

TEST_F(Timers, WindowsOpenByInternalNameAndClosingTheLastQuitsTheLoopWhenAsked)
{
    layout("first.xml", "<name>one_</name><size>100,50</size>" + attrs({{"aupo", "1"}}),
           item("ubob", "aaaa"));
    layout("second.xml", "<name>two_</name><size>100,50</size>" + attrs({{"aupo", "1"}}), "");
    epiWindowManager* manager = app.windowManager();
    epiUbo* one = manager->openWindowByInternalName(epiCode("laya"), epiCode("one_"));
    epiUbo* two = manager->bringUp(epiCode("two_"));
    ASSERT_NE(one, nullptr);
    ASSERT_NE(two, nullptr);
    EXPECT_EQ(one->frame(), epiRect(64, 64, 164, 114));
    EXPECT_EQ(two->frame(), epiRect(96, 80, 196, 130));
    EXPECT_EQ(manager->topWindow(false), two);
    EXPECT_EQ(manager->bringUp(epiCode("one_")), one);
    EXPECT_EQ(manager->topWindow(false), one);
    EXPECT_EQ(manager->openWindowByInternalName(epiCode("laya"), epiCode("none")), nullptr);

    manager->setQuitWhenEmpty(true);
    // Each event closes one window; the loop must end after the last.
    int step = 0;
    runLoop(manager,
            [&]
            {
                if (step < 2)
                    manager->closeWindowNamed(step == 0 ? epiCode("one_") : epiCode("two_"));
                if (++step > 1000)
                    manager->quit(); // would mean quitWhenEmpty did nothing
                return true;
            });
    EXPECT_EQ(step, 2);
    EXPECT_TRUE(manager->windows().empty());
}

/** Captures the words that run() gets. */
class ArgsApp : public epiWindowApplication
{
public:
    int32_t mainLoop(int32_t argc, char** argv) override
    {
        for (int32_t i = 0; i < argc; ++i)
            words.emplace_back(argv[i]);
        return 5;
    }
    std::vector<std::string> words;
};

TEST(Application, CommandLineWordsKeepQuotedBlanksAndRunReturnsTheLoopsResult)
{
    ArgsApp app;
    EXPECT_EQ(app.runCommandLine(nullptr, "open \"/tmp/a b.kv3\" -x"), 5);
    ASSERT_EQ(app.words.size(), 4u);
    EXPECT_EQ(app.words[2], "/tmp/a b.kv3");
    EXPECT_EQ(app.words[3], "-x");
    EXPECT_EQ(app.appPathRef()->lastChar(), '/');
    EXPECT_EQ(epiApplication::current(), &app);
}

} // namespace
