// A view container in a real GTK window under Xvfb: its widgets reach the screen through one copy
// of its bitmap, and a change of one widget repaints only that widget's rectangle.

#include "epi/ui/epiUiBitmapView.h"
#include "epi/ui/epiUiBitmapWidgets.h"
#include "tests/epi/ui/WidgetTestSupport.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

namespace
{

class BitmapWidgetsScreen : public WidgetFixture
{
protected:
    /** The screen's colour at (x, y) of the window's client area, as 0xRRGGBB. */
    static uint32_t onScreen(epiWindow* window, int x, int y)
    {
        GdkPixbuf* shot =
            gdk_pixbuf_get_from_window(gtk_widget_get_window(window->clientWidget()), x, y, 1, 1);
        if (shot == nullptr)
            return 0xFFFFFFFFu;
        const guchar* p = gdk_pixbuf_read_pixels(shot);
        const uint32_t colour = (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2];
        g_object_unref(shot);
        return colour;
    }
};

TEST_F(BitmapWidgetsScreen, ViewContainerShowsItsWidgetsAndRepaintsOnlyWhatChanged)
{
    XVFB_REQUIRE();
    epiGtk::attach(app);
    image("red.png", 10, 10, {0xFF0000});
    image("green.png", 10, 10, {0x00FF00});
    image("blue.png", 10, 10, {0x0000FF});
    layout("inner.xml", "<name>innr</name><size>40,40</size>",
           item("iBim", "left", at(0, 0, 10, 10) + attrs({{"irOf", "red.png"}})) +
               item("iBim", "rigt", at(20, 20, 10, 10) + attrs({{"irOf", "green.png"}})));
    layout(
        "screen.xml",
        "<kind>iWin</kind><name>scrn</name><text>Widgets</text><position>40,40</position><size>60,60</size>",
        item("iBco", "view", at(10, 10, 40, 40) + attrs({{"chil", "inner.xml"}})));
    auto* window = dynamic_cast<epiWindow*>(app.openWindowLayout(epiText("screen.xml")));
    ASSERT_NE(window, nullptr);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return onScreen(window, 35, 35) == 0x00FF00u; }));
    EXPECT_EQ(onScreen(window, 15, 15), 0xFF0000u);

    auto* right = dynamic_cast<epiUiBitmapImage*>(window->childNamedIn(epiCode("view"), epiCode("rigt")));
    ASSERT_NE(right, nullptr);
    right->setImage(epiCode("irOf"), right->acquireImage(epiText("blue.png")));
    ASSERT_TRUE(xvfb::pumpUntil([&] { return onScreen(window, 35, 35) == 0x0000FFu; }));
    EXPECT_EQ(window->lastCopiedPixels(), 10 * 10) << "only the changed widget is copied to the screen";
    EXPECT_EQ(onScreen(window, 15, 15), 0xFF0000u);
    window->notifyDestroyed();
    EXPECT_EQ(xvfb::warningCount(), 0);
}

} // namespace
