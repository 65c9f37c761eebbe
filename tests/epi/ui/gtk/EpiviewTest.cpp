// epiview as its user sees it, run as a program of its own on the test's Xvfb: its four file
// dialogs take a typed path or Escape, and a window's menu shortcut, default button, keys and a
// drop of two files dragged from another program's window each print their line.

#include "tests/epi/ui/LayoutText.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"
#include "tests/support/TempFolder.h"

#include <filesystem>
#include <fstream>

namespace
{

struct DialogCase
{
    const char* what;
    const char* title;
    const char* typed; // under the temporary folder, and printed; null: Escape, and nothing printed
};

const DialogCase kDialogs[] = {
    {"open", "Open a take", "/take one.wav"}, {"save", "Save the mix as", "/mix.wav"},
    {"many", "Add takes", "/take one.wav"},   {"folder", "Choose the session folder", "/sessions"},
    {"open", "Open a take", nullptr},
};

class EpiviewDialogs : public testing::TestWithParam<DialogCase>
{
};

} // namespace

TEST_P(EpiviewDialogs, TakeATypedPathOrEscape)
{
    XVFB_REQUIRE();
    const DialogCase& c = GetParam();
    testsupport::TempFolder folder;
    std::ofstream(folder.file("take one.wav")) << "RIFF";
    std::filesystem::create_directory(folder.file("sessions"));

    xvfb::Program view({EPIVIEW_PATH, "--ask", c.what, c.title});
    ASSERT_TRUE(view.started());
    // Found by its exact title once it is on the screen; focusing a window that is still being
    // mapped may fail, so that step is tried again.
    const std::vector<std::string> focus = xvfb::words("xdotool search --sync --onlyvisible --name '^" +
                                                       std::string(c.title) + "$' windowfocus --sync %1");
    int focused = -1;
    for (int attempt = 0; attempt < 4 && focused != 0; ++attempt)
        focused = xvfb::run(focus, 20.0);
    ASSERT_EQ(focused, 0);
    // Ctrl+L's keys are let go only once the location entry it opens is realised: released at
    // once, they reach the entry before it has a window, and GTK complains.
    ASSERT_EQ(xvfb::xdotool(c.typed != nullptr ? "sleep 0.2 keydown ctrl+l sleep 0.3 keyup ctrl+l"
                                               : "sleep 0.2 key Escape"),
              0);
    // "type" takes every word after it as text: the path and Enter go in runs of their own.
    if (c.typed != nullptr)
    {
        ASSERT_EQ(xvfb::xdotool("sleep 0.2 type --delay 5 '" + folder.path() + c.typed + "'"), 0);
        ASSERT_EQ(xvfb::xdotool("sleep 0.3 key Return"), 0);
    }
    ASSERT_EQ(view.wait(30.0), 0) << view.output();
    EXPECT_EQ(view.output(), c.typed != nullptr ? folder.path() + c.typed + "\n" : std::string());
}

INSTANTIATE_TEST_SUITE_P(AllFour, EpiviewDialogs, testing::ValuesIn(kDialogs));

namespace
{

const char* const kBar = "<epi><content><name>bar </name><menulist><item><text>File</text><menulist>"
                         "<item><text>Save As...</text><name>SvAs</name>"
                         "<shortcut><char>s</char><modifiers><shift>1</shift></modifiers></shortcut></item>"
                         "</menulist></item></menulist></content></epi>";

/** The line after `word` in `text`. */
std::string lineAfter(const std::string& text, const std::string& word)
{
    const size_t at = text.find(word) + word.size();
    return text.substr(at, text.find('\n', at) - at);
}

/** A window of the test's own that offers `paths` as text/uri-list when dragged, as a file manager does. */
class DragSource
{
public:
    explicit DragSource(const std::vector<std::string>& paths)
    {
        for (const std::string& path : paths)
        {
            gchar* uri = g_filename_to_uri(path.c_str(), nullptr, nullptr);
            uris_.emplace_back(uri);
            g_free(uri);
        }
        static GtkTargetEntry uriList{const_cast<gchar*>("text/uri-list"), 0, 0};
        gtk_drag_source_set(window_, GDK_BUTTON1_MASK, &uriList, 1, GDK_ACTION_COPY);
        g_signal_connect(window_, "drag-data-get",
                         G_CALLBACK(+[](GtkWidget*, GdkDragContext*, GtkSelectionData* data, guint, guint,
                                        DragSource* self)
                                    {
                                        std::vector<gchar*> list;
                                        for (std::string& uri : self->uris_)
                                            list.push_back(uri.data());
                                        list.push_back(nullptr);
                                        gtk_selection_data_set_uris(data, list.data());
                                    }),
                         this);
        g_signal_connect(
            window_, "drag-end",
            G_CALLBACK(+[](GtkWidget*, GdkDragContext*, DragSource* self) { self->done = true; }), this);
        gtk_widget_set_size_request(window_, 100, 100);
        gtk_window_move(GTK_WINDOW(window_), 900, 700);
        gtk_widget_show_all(window_);
    }
    ~DragSource() { gtk_widget_destroy(window_); }
    /** Its centre on the screen once it is shown, as xdotool takes it: "X Y". */
    std::string centre()
    {
        int x = 0;
        int y = 0;
        EXPECT_TRUE(xvfb::pumpUntil([&] { return gtk_widget_get_mapped(window_); }));
        xvfb::settle();
        gdk_window_get_origin(gtk_widget_get_window(window_), &x, &y);
        return std::to_string(x + 50) + " " + std::to_string(y + 50);
    }
    bool done = false; // a drop took its data

private:
    std::vector<std::string> uris_;
    GtkWidget* window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
};

} // namespace
TEST(Epiview, PrintsMenuCommandKeyAndADropFromAnotherProcess)
{
    XVFB_REQUIRE();
    testsupport::TempFolder folder;
    const std::filesystem::path res = folder.file("view.frs");
    std::filesystem::create_directories(res / "layouts");
    std::filesystem::create_directories(res / "menus");
    std::ofstream(res / "epi.frs") << "";
    std::ofstream(res / "layouts" / "main.xml") << layoutFile(
        "<kind>iWin</kind><name>main</name><text>Drops</text>" + place(100, 100, 300, 200) +
            attrs({{"mBar", "1"}, {"ReDr", "1"}}),
        item("iSbt", "okay", place(10, 10, 75, 23) + "<text>OK</text>" + attrs({{"defa", "1"}})));
    std::ofstream(res / "menus" / "bar.xml") << kBar;
    const std::string first = folder.file("first take.wav");
    const std::string second = folder.file("second.wav");
    std::ofstream(first) << "RIFF";
    std::ofstream(second) << "RIFF";

    xvfb::Program view({EPIVIEW_PATH, res.string(), "main", "--menu", "bar.xml"});
    ASSERT_TRUE(view.waitFor("shown 0x")) << view.output();
    const std::string id = std::to_string(std::stoul(lineAfter(view.output(), "shown 0x"), nullptr, 16));
    ASSERT_EQ(xvfb::xdotool("windowfocus --sync " + id + " key ctrl+shift+s a Return"), 0);
    ASSERT_TRUE(view.waitFor("cmd okay")) << view.output();
    EXPECT_NE(view.output().find("menu SvAs\n"), std::string::npos) << view.output();
    EXPECT_NE(view.output().find("key D 97\nkey U 97\n"), std::string::npos) << view.output();

    // Dragged from the test's window to (150, 150) of the screen, 50 pixels into epiview's.
    DragSource source({first, second});
    ASSERT_EQ(
        xvfb::xdotool("mousemove --sync " + source.centre() +
                      " mousedown 1 sleep 0.1 mousemove_relative --sync -- -20 -20 sleep 0.2 "
                      "mousemove --sync 150 150 sleep 0.3 mousemove --sync 151 151 sleep 0.3 mouseup 1"),
        0);
    ASSERT_TRUE(view.waitFor(second + "\n")) << view.output();
    const std::string out = view.output();
    const size_t drop = out.find("drop 51 ");
    ASSERT_NE(drop, std::string::npos) << out;
    const std::string point = out.substr(drop, out.find(' ', drop + 8) - drop);
    EXPECT_NE(out.find(point + " " + first + "\n" + point + " " + second + "\n"), std::string::npos) << out;
    EXPECT_TRUE(xvfb::pumpUntil([&] { return source.done; }));
}
