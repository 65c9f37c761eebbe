// The menu bar's rows from the framework's model (its shortcut runs end to end in epiview's test),
// and the editor's host: a native
// container whose X window another connection draws in at once, which gets the click and goes
// away with its container. Screenshots come from the X server itself.

#include "epi/ui/epiMenu.h"
#include "epi/ui/gtk/epiUiSystem.h"
#include "tests/epi/ui/LayoutText.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

#include <X11/Xlib.h>

namespace
{

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

} // namespace

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
