// The window manager's neutral half: the window list, lookups, the cascade and quitting when
// empty. The road of a command is the menu tests'.

#include "tests/epi/ui/UiTestSupport.h"

namespace
{

using Windows = UiFixture;

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

} // namespace
