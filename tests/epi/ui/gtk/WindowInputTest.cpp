// A real GTK window under Xvfb, driven by xdotool through XTEST: clicks reach the deepest object in
// client coordinates, the release outside the window reaches the object that took the capture, the
// wheel gives one step per notch, keys arrive in the framework's codes, and a modal window blocks.
// The screenshot of a window equals its back buffer pixel for pixel. The menu bar's rows come from
// the framework's model (its shortcut runs end to end in epiview's test), and the editor's host is
// a native container whose X window another connection draws in at once, which gets the click and
// goes away with its container.

#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiKeyboard.h"
#include "epi/ui/epiMenu.h"
#include "epi/ui/gtk/epiUiSystem.h"
#include "tests/epi/ui/LayoutText.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

#include <X11/Xlib.h>

namespace
{

/** An object that records the mouse and takes the capture while a button is down. */
class Recorder : public epiUbo
{
public:
    void mouseDown(const epiPoint& point) override
    {
        downs.push_back(point);
        auto* keys = dynamic_cast<epiKeyboard*>(keyboard());
        doubles.push_back(keys != nullptr && keys->isDoubleClick());
        grabCapture();
    }
    void mouseUp(const epiPoint& point) override
    {
        ups.push_back(point);
        releaseCapture();
    }
    void mouseWheel(const epiPoint&, int32_t delta) override { wheels.push_back(delta); }
    std::vector<epiPoint> downs;
    std::vector<epiPoint> ups;
    std::vector<int32_t> wheels;
    std::vector<bool> doubles;
};

class KeyWindow : public epiWindow
{
public:
    void keyDown(int32_t key) override { downs.push_back(key); }
    void keyRepeat(int32_t key) override { repeats.push_back(key); }
    void keyUp(int32_t key) override { ups.push_back(key); }
    std::vector<int32_t> downs;
    std::vector<int32_t> repeats;
    std::vector<int32_t> ups;
};

/** A window with a recording leaf at (10, 20) of a pane at (20, 30): the leaf's (5, 7) is the client's (35,
 * 57). */
class GtkWindowInput : public GtkAppTest<>
{
protected:
    void SetUp() override
    {
        GtkAppTest::SetUp();
        epiFactory::add(epiCode("GrUi"), epiCode("iWin"),
                        [](uint32_t) -> epiObject* { return new KeyWindow(); });
        epiFactory::add(epiCode("GrUi"), epiCode("tRec"),
                        [](uint32_t) -> epiObject* { return new Recorder(); });
        window = open<KeyWindow>(
            layoutFile("<kind>iWin</kind><name>main</name><text>Input</text>" + place(40, 40, 300, 200),
                       item("iCon", "pane", place(20, 30, 200, 150))));
        ASSERT_NE(window, nullptr);
        leaf = dynamic_cast<Recorder*>(
            window->childNamed(epiCode("pane"))
                ->createChild(true, epiCode("tRec"), epiCode("leaf"), 10, 20, 70, 70, ""));
        ASSERT_NE(leaf, nullptr);
    }
    KeyWindow* window = nullptr;
    Recorder* leaf = nullptr;
};

TEST_F(GtkWindowInput, MouseWheelAndKeysReachTheTreeInTheFrameworksTerms)
{
    // A title with a Windows line end and a byte that isn't UTF-8.
    window->setTextChars("Two\r\nlines \xff");
    EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(window->gtkWindow())), "Two\nlines \xef\xbf\xbd");

    // The release lands outside the window.
    ASSERT_EQ(xvfb::xdotool("mousemove --sync " + onScreen(window, 35, 57) + " click 4 click 5 mousedown 1 " +
                            "mousemove --sync " + onScreen(window, 400, 300) + " mouseup 1"),
              0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return !leaf->ups.empty(); }));
    EXPECT_EQ(leaf->downs, std::vector<epiPoint>{epiPoint(5, 7)});
    EXPECT_EQ(leaf->ups[0], epiPoint(400 - 30, 300 - 50));
    EXPECT_EQ(leaf->wheels, (std::vector<int32_t>{1, -1}));

    // Three quick clicks: the second press is delivered once and flagged, the third begins anew.
    ASSERT_EQ(xvfb::xdotool("sleep 0.6 mousemove --sync " + onScreen(window, 35, 57) +
                            " click --repeat 3 --delay 60 1 mousemove 0 0"),
              0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return leaf->ups.size() == 4; }));
    EXPECT_EQ(leaf->doubles, (std::vector<bool>{false, false, true, false}));

    ASSERT_EQ(xvfb::xdotool("windowfocus --sync " + std::to_string(window->xid()) +
                            " key space a Prior Delete BackSpace ctrl+a"),
              0);
    const std::vector<int32_t> expected{32, 97, 0x10000, 8, 8, 1};
    ASSERT_TRUE(xvfb::pumpUntil([&] { return window->ups.size() >= expected.size(); }));
    EXPECT_EQ(window->downs, expected);
    EXPECT_EQ(window->ups, expected);
    EXPECT_TRUE(window->repeats.empty());
}

/** Counts its timer's ticks and closes the modal window at the 30th. */
class Closer : public epiApplicationObject
{
public:
    void timerTick() override
    {
        if (++ticks == 30)
            if (epiUbo* modal = app->windowManager()->windowNamed(epiCode("modl")))
                modal->notifyDestroyed();
    }
    epiApplication* app = nullptr;
    int ticks = 0;
};

TEST_F(GtkWindowInput, AModalWindowBlocksItsOwnerWhileTimersFire)
{
    Closer closer;
    closer.app = &app;
    closer.startRefCount();
    closer.setOwner(&app);
    closer.startTimer(0.02, false, false);
    // The click comes while the modal window's loop runs; opening returns once the timer closed it.
    xvfb::Program clicker(
        xvfb::words("xdotool sleep 0.2 mousemove --sync " + onScreen(window, 35, 57) + " click 1"));
    const std::string modal = layoutFile("<kind>iWin</kind><name>modl</name><text>Modal</text>" +
                                             place(500, 500, 200, 100) + attrs({{"Modl", "1"}}),
                                         "");
    EXPECT_NE(app.openWindowText(epiText(modal)), nullptr);
    EXPECT_GE(closer.ticks, 30);
    EXPECT_EQ(app.windowManager()->windowNamed(epiCode("modl")), nullptr);
    EXPECT_EQ(clicker.wait(), 0);
    xvfb::settle();
    EXPECT_TRUE(leaf->downs.empty());

    // Once it is gone the owner takes clicks again.
    ASSERT_EQ(xvfb::xdotool("click 1"), 0);
    EXPECT_TRUE(xvfb::pumpUntil([&] { return leaf->downs.size() == 1; }));
    closer.removeTimerNow();
}

/** Draws a tile three ways through the tree's surface: opaque, blended, and scaled to twice its size. */
class TilePainter : public epiUbo
{
public:
    void draw(const epiRect& rect) override
    {
        blitStretched(tile, tile->rect(), epiRect(0, 0, 8, 8), rect);
        blitAlpha(tile, tile->rect(), epiRect(10, 0, 18, 8), rect);
        blitAlpha(tile, tile->rect(), epiRect(20, 0, 36, 16), rect);
        epiUbo::draw(rect);
    }
    epiBitmap* tile = nullptr;
};

using BitmapScreen = GtkAppTest<>;

TEST_F(BitmapScreen, WindowScreenshotEqualsItsBackBuffer)
{
    epiFactory::add(epiCode("GrUi"), epiCode("tPnt"),
                    [](uint32_t) -> epiObject* { return new TilePainter(); });
    epiBitmap tile;
    tile.create(8, 8);
    // Red rises along x, green along y, alpha across the tile.
    for (int i = 0; i < 64; ++i)
        tile.pixels()[i] =
            (uint32_t(i * 4) << 24) | (uint32_t(i % 8 * 36) << 16) | (uint32_t(i / 8 * 36) << 8) | 0x80u;
    epiWindow* window = open(
        layoutFile("<kind>iWin</kind><name>pixw</name><text>Pixels</text>" + place(60, 60, 120, 80), ""));
    ASSERT_NE(window, nullptr);
    auto* painter = dynamic_cast<TilePainter*>(
        window->createChild(true, epiCode("tPnt"), epiCode("pntr"), 10, 10, 60, 40, ""));
    ASSERT_NE(painter, nullptr);
    painter->tile = &tile;
    painter->invalidateAll();
    xvfb::settle(0.2);
    gdk_display_sync(gdk_display_get_default());

    const epiBitmapDib& back = window->backBuffer();
    const uint32_t background = back.getPixel(back.width() - 1, back.height() - 1, nullptr);
    GdkPixbuf* shot = gdk_pixbuf_get_from_window(gtk_widget_get_window(window->clientWidget()), 0, 0,
                                                 back.width(), back.height());
    ASSERT_NE(shot, nullptr);
    int differing = 0;
    int painted = 0;
    for (int y = 0; y < back.height(); ++y)
        for (int x = 0; x < back.width(); ++x)
        {
            const guchar* p = gdk_pixbuf_read_pixels(shot) + y * gdk_pixbuf_get_rowstride(shot) +
                              x * gdk_pixbuf_get_n_channels(shot);
            const uint32_t pixel = back.getPixel(x, y, nullptr) | 0xFF000000u;
            differing += ((uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2] | 0xFF000000u) != pixel;
            painted += pixel != background;
        }
    g_object_unref(shot);
    EXPECT_EQ(differing, 0);
    // All three copies reached the buffer (the tile's first pixel is fully transparent).
    EXPECT_GE(painted, 64 - 1 + 64 - 1 + 256 - 4);
}

const char* const kBar = R"(<epi><content><name>MBar</name><menulist>
  <item><text>File</text><menulist>
    <item><text>Open...</text><name>Open</name><shortcut><char>o</char></shortcut></item>
    <item><isseparator>1</isseparator></item>
    <item><text>Save As...</text><name>SvAs</name>
      <shortcut><char>s</char><modifiers><shift>1</shift></modifiers></shortcut></item>
  </menulist></item>
</menulist></content></epi>)";

/** The texts of a menu row's labels, left to right. */
std::vector<std::string> rowTexts(GtkWidget* item)
{
    std::vector<std::string> texts;
    GtkWidget* row = gtk_bin_get_child(GTK_BIN(item));
    GList* children = gtk_container_get_children(GTK_CONTAINER(row));
    for (GList* child = children; child != nullptr; child = child->next)
        texts.emplace_back(gtk_label_get_text(GTK_LABEL(child->data)));
    g_list_free(children);
    return texts;
}

GtkWidget* nth(GtkWidget* shell, guint index)
{
    GList* children = gtk_container_get_children(GTK_CONTAINER(shell));
    auto* widget = static_cast<GtkWidget*>(g_list_nth_data(children, index));
    g_list_free(children);
    return widget;
}

int xErrors = 0;

using GtkMenuAndHost = GtkAppTest<>;

TEST_F(GtkMenuAndHost, MenuRowsAndAnEditorDrawnByAnotherConnection)
{
    auto* menu = dynamic_cast<epiMenu*>(app.menu());
    ASSERT_NE(menu, nullptr);
    menu->loadText(kBar);
    epiWindow* window = open(layoutFile("<kind>iWin</kind><name>main</name><text>Host</text>" +
                                            place(50, 50, 320, 240) + attrs({{"mBar", "1"}}),
                                        item("iSco", "plug", place(20, 20, 200, 150))));
    ASSERT_NE(window, nullptr);

    // The rows show the texts and the shortcuts as the menu built them.
    ASSERT_NE(window->menuBarWidget(), nullptr);
    GtkWidget* file = nth(window->menuBarWidget(), 0);
    EXPECT_EQ(rowTexts(file), (std::vector<std::string>{"File"}));
    GtkWidget* submenu = gtk_menu_item_get_submenu(GTK_MENU_ITEM(file));
    EXPECT_EQ(rowTexts(nth(submenu, 0)), (std::vector<std::string>{"Open...", "Ctrl+O"}));
    EXPECT_EQ(rowTexts(nth(submenu, 2)), (std::vector<std::string>{"Save As...", "Ctrl+Shift+S"}));

    // Another connection makes a red child of the host's window at once, without an error.
    auto* host = dynamic_cast<epiUiSystemContainer*>(window->childNamed(epiCode("plug")));
    ASSERT_NE(host, nullptr);
    const unsigned long parent = host->nativeXid();
    ASSERT_NE(parent, 0u);
    Display* other = XOpenDisplay(nullptr);
    ASSERT_NE(other, nullptr);
    XSetErrorHandler([](Display*, XErrorEvent*) { return ++xErrors, 0; });
    const Window editor = XCreateSimpleWindow(other, parent, 0, 0, 100, 80, 0, 0, 0xFF0000);
    XSelectInput(other, editor, ButtonPressMask);
    XMapWindow(other, editor);
    XSync(other, False);
    EXPECT_EQ(xErrors, 0);

    ASSERT_TRUE(xvfb::pumpUntil([&] { return pixel(window, 30, 30) == 0xFF0000; }));

    // The editor's own window gets the click.
    ASSERT_EQ(xvfb::xdotool("mousemove --sync " + onScreen(window, 40, 40) + " click 1"), 0);
    XEvent event;
    bool clicked = false;
    xvfb::pumpUntil([&] { return clicked = XCheckWindowEvent(other, editor, ButtonPressMask, &event); });
    EXPECT_TRUE(clicked);

    // Hidden with its container: the window's own drawing shows there again.
    host->setVisible(false, true);
    EXPECT_TRUE(xvfb::pumpUntil([&] { return pixel(window, 30, 30) == 0xFFFFFF; }));
    XDestroyWindow(other, editor);
    XSync(other, False);
    EXPECT_EQ(xErrors, 0);
    XCloseDisplay(other);
}

} // namespace
