// The window manager's neutral half: the window list, lookups, the cascade, quitting when empty
// and the road of a command.

#include "tests/epi/ui/UiTestSupport.h"

namespace
{

using Windows = UiFixture;

/** A window that takes one command code, and an application that takes another. */
class CommandWindow : public epiUiWindowBase
{
public:
    intptr_t query(intptr_t a, intptr_t, intptr_t) override
    {
        seen.push_back(uint32_t(a));
        return uint32_t(a) == takes ? 1 : 0;
    }
    uint32_t takes = 0;
    std::vector<uint32_t> seen;
};

class RoadApp : public TestApp
{
public:
    intptr_t handleCommandCode(uint32_t code) override
    {
        reached.push_back(code);
        return 0;
    }
    std::vector<uint32_t> reached;
};

TEST_F(Windows, OpensByInternalNameAndClosingTheLastQuitsWhenAsked)
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
    struct Source : epiEventSource
    {
        epiWindowManager* manager;
        int step = 0;
        bool dispatchOne() override
        {
            // Each event closes one window; the loop must end after the last.
            const uint32_t names[] = {epiCode("one_"), epiCode("two_")};
            if (step < 2)
                manager->closeWindowNamed(names[step++]);
            else if (++step > 1000)
                manager->quit(); // would mean quitWhenEmpty did nothing
            return true;
        }
    } source;
    source.manager = manager;
    manager->setEventSource(&source);
    manager->messageLoop();
    manager->setEventSource(nullptr);
    EXPECT_EQ(source.step, 2);
    EXPECT_TRUE(manager->windows().empty());
}

TEST_F(Windows, TheCascadeComesBackToItsStart)
{
    epiWindowManager* manager = app.windowManager();
    epiRect rect(0, 0, 10, 10);
    std::vector<epiPoint> places;
    for (int i = 0; i < 20; ++i)
    {
        manager->cascadeRect(rect);
        places.emplace_back(rect.left_, rect.top_);
        EXPECT_EQ(rect.width(), 10);
    }
    EXPECT_EQ(places[1], epiPoint(96, 80));
    const auto back = std::find(places.begin() + 1, places.end(), epiPoint(64, 64));
    ASSERT_NE(back, places.end());
    EXPECT_LE(back[-1].x_, 640);
}

TEST(WindowRoad, ACommandGoesToTheTopWindowThenTheMainWindowThenTheApplication)
{
    RoadApp app;
    ASSERT_TRUE(app.start());
    epiWindowManager* manager = app.windowManager();
    CommandWindow* windows[2];
    const uint32_t names[2] = {epiCode("main"), epiCode("dlog")};
    for (int i = 0; i < 2; ++i)
    {
        windows[i] = new CommandWindow();
        windows[i]->startRefCount();
        windows[i]->setOwner(&app);
        windows[i]->start();
        windows[i]->setName(names[i]);
        windows[i]->notifyCreated();
    }
    windows[0]->takes = epiCode("open");
    EXPECT_EQ(manager->queryFlag(epiCode("open")), 1);
    EXPECT_EQ(manager->queryFlag(epiCode("none")), 0);
    EXPECT_EQ(windows[1]->seen, (std::vector<uint32_t>{epiCode("open"), epiCode("none")}));
    EXPECT_EQ(windows[0]->seen, (std::vector<uint32_t>{epiCode("open"), epiCode("none")}));
    EXPECT_EQ(app.reached, std::vector<uint32_t>{epiCode("none")});
    app.stop();
}

} // namespace
