// A real GTK window under Xvfb, driven by xdotool through XTEST: clicks reach the deepest object in
// client coordinates, the release outside the window reaches the object that took the capture, the
// wheel gives one step per notch, and keys arrive in the framework's codes.

#include "epi/ui/epiApplication.h"
#include "epi/ui/epiKeyboard.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

class GtkApp : public epiWindowApplication
{
};

const char* const kLayout =
    "<epi><version>4</version><signature>layout</signature><content><kind>iWin</kind><name>main</name>"
    "<text>Input</text><position>40,40</position><size>300,200</size><itemslist>"
    "<item><kind>iCon</kind><name>pane</name><position>20,30</position><size>200,150</size>"
    "</item></itemslist></content></epi>";

std::string number(int value)
{
    return std::to_string(value);
}

} // namespace

TEST(GtkWindowInput, MouseWheelAndKeysReachTheTreeInTheFrameworksTerms)
{
    XVFB_REQUIRE();
    GtkApp app;
    ASSERT_TRUE(app.start());
    epiGtk::attach(app);
    epiFactory::add(epiCode("GrUi"), epiCode("iWin"), [](uint32_t) -> epiObject* { return new KeyWindow(); });
    epiFactory::add(epiCode("GrUi"), epiCode("tRec"), [](uint32_t) -> epiObject* { return new Recorder(); });

    auto* window = dynamic_cast<KeyWindow*>(app.openWindowText(epiText(kLayout)));
    ASSERT_NE(window, nullptr);
    auto* leaf = dynamic_cast<Recorder*>(
        window->childNamed(epiCode("pane"))
            ->createChild(true, epiCode("tRec"), epiCode("leaf"), 10, 20, 70, 70, ""));
    ASSERT_NE(leaf, nullptr);
    ASSERT_NE(window->gtkWindow(), nullptr);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return window->lastCopiedPixels() > 0; }))
        << gtk_widget_get_mapped(window->gtkWindow()) << " " << window->isVisible();
    // A title with a Windows line end and a byte that isn't UTF-8.
    window->setTextChars("Two\r\nlines \xff");
    EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(window->gtkWindow())), "Two\nlines \xef\xbf\xbd");

    int x = 0;
    int y = 0;
    xvfb::screenOrigin(window->clientWidget(), x, y);
    // The leaf's (5, 7) is the client's (20 + 10 + 5, 30 + 20 + 7); the release lands outside the window.
    ASSERT_EQ(xvfb::run({"xdotool", "mousemove", "--sync", number(x + 35), number(y + 57), "click", "4",
                         "click", "5", "mousedown", "1", "mousemove", "--sync", number(x + 400),
                         number(y + 300), "mouseup", "1"}),
              0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return !leaf->ups.empty(); }));
    ASSERT_EQ(leaf->downs.size(), 1u);
    EXPECT_EQ(leaf->downs[0], epiPoint(5, 7));
    EXPECT_EQ(leaf->ups[0], epiPoint(400 - 30, 300 - 50));
    EXPECT_EQ(leaf->wheels, (std::vector<int32_t>{1, -1}));

    // Three quick clicks: the second press is delivered once and flagged, the third begins anew.
    ASSERT_EQ(xvfb::run({"xdotool", "sleep", "0.6", "mousemove", "--sync", number(x + 35), number(y + 57),
                         "click", "--repeat", "3", "--delay", "60", "1", "mousemove", "0", "0"}),
              0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return leaf->ups.size() == 4; }));
    EXPECT_EQ(leaf->doubles, (std::vector<bool>{false, false, true, false}));

    ASSERT_EQ(xvfb::run({"xdotool", "windowfocus", "--sync", number(int(window->xid())), "key", "space", "a",
                         "Prior", "Delete", "BackSpace", "ctrl+a"}),
              0);
    const std::vector<int32_t> expected{32, 97, 0x10000, 8, 8, 1};
    ASSERT_TRUE(xvfb::pumpUntil([&] { return window->ups.size() >= expected.size(); }));
    EXPECT_EQ(window->downs, expected);
    EXPECT_EQ(window->ups, expected);
    EXPECT_TRUE(window->repeats.empty());

    window->notifyDestroyed();
    app.stop();
    EXPECT_EQ(xvfb::warningCount(), 0);
}

namespace
{

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

const char* const kModal =
    "<epi><version>4</version><signature>layout</signature><content><kind>iWin</kind>"
    "<name>modl</name><text>Modal</text><position>500,500</position><size>200,100</size>"
    "<attributes><attribute><name>Modl</name><value>1</value></attribute></attributes>"
    "<itemslist></itemslist></content></epi>";

} // namespace

TEST(GtkWindowInput, AModalWindowBlocksItsOwnerWhileTimersFire)
{
    XVFB_REQUIRE();
    GtkApp app;
    ASSERT_TRUE(app.start());
    epiGtk::attach(app);
    epiFactory::add(epiCode("GrUi"), epiCode("iWin"), [](uint32_t) -> epiObject* { return new KeyWindow(); });
    epiFactory::add(epiCode("GrUi"), epiCode("tRec"), [](uint32_t) -> epiObject* { return new Recorder(); });
    auto* owner = dynamic_cast<KeyWindow*>(app.openWindowText(epiText(kLayout)));
    ASSERT_NE(owner, nullptr);
    owner->retain();
    auto* leaf = dynamic_cast<Recorder*>(
        owner->childNamed(epiCode("pane"))
            ->createChild(true, epiCode("tRec"), epiCode("leaf"), 10, 20, 70, 70, ""));
    ASSERT_TRUE(xvfb::pumpUntil([&] { return owner->lastCopiedPixels() > 0; }));
    int x = 0;
    int y = 0;
    xvfb::screenOrigin(owner->clientWidget(), x, y);

    Closer closer;
    closer.app = &app;
    closer.startRefCount();
    closer.setOwner(&app);
    closer.startTimer(0.02, false, false);
    // The click comes while the modal window's loop runs; opening returns once the timer closed it.
    const pid_t clicker = xvfb::spawn({"xdotool", "sleep", "0.2", "mousemove", "--sync",
                                       std::to_string(x + 35), std::to_string(y + 57), "click", "1"});
    ASSERT_GT(clicker, 0);
    epiUbo* modal = app.openWindowText(epiText(kModal));
    EXPECT_NE(modal, nullptr);
    EXPECT_GE(closer.ticks, 30);
    EXPECT_EQ(app.windowManager()->windowNamed(epiCode("modl")), nullptr);
    int status = 0;
    waitpid(clicker, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    xvfb::pumpUntil([] { return false; }, 0.1);
    EXPECT_TRUE(leaf->downs.empty());

    // Once it is gone the owner takes clicks again.
    ASSERT_EQ(xvfb::run({"xdotool", "click", "1"}), 0);
    EXPECT_TRUE(xvfb::pumpUntil([&] { return leaf->downs.size() == 1; }));

    closer.removeTimerNow();
    owner->notifyDestroyed();
    owner->release();
    app.stop();
    EXPECT_EQ(xvfb::warningCount(), 0);
}
