// The native controls as real GTK widgets under Xvfb: their lists, steps and filters, setters that
// never report, Enter and Escape on the default and cancel buttons, and frames kept under two themes.

#include "epi/ui/epiApplication.h"
#include "epi/ui/gtk/epiUiSystem.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

class CommandWindow : public epiWindow
{
public:
    void onCommand(uint32_t code) override
    {
        commands.push_back(code);
        epiWindow::onCommand(code);
    }
    std::vector<uint32_t> commands;
};

class GtkApp : public epiWindowApplication
{
};

std::string control(const char* kind, const char* name, const char* where, const std::string& attributes = "",
                    const char* text = "")
{
    return std::string("<item><kind>") + kind + "</kind><name>" + name + "</name>" + where + "<text>" + text +
           "</text><attributes>" + attributes + "</attributes></item>";
}

std::string attribute(const char* code, const char* value)
{
    return std::string("<attribute><name>") + code + "</name><value>" + value + "</value></attribute>";
}

std::string layout()
{
    return "<epi><version>4</version><signature>layout</signature><content><kind>iWin</kind><name>dlog</name>"
           "<text>Controls</text><position>30,30</position><size>400,300</size><itemslist>" +
           control("iSbt", "okay", "<position>10,10</position><size>75,23</size>",
                   attribute("defa", "1") + attribute("enab", "0"), "OK") +
           control("iSbt", "canc", "<position>90,10</position><size>75,23</size>", attribute("defa", "2"),
                   "Cancel") +
           control("iSpu", "list", "<position>10,40</position><size>120,21</size>",
                   attribute("cnth", "a|b/c|d")) +
           control("iSpu", "full", "<position>140,40</position><size>120,21</size>",
                   attribute("cont", "a|b/c|d"), "d") +
           control("iSsc", "bar1", "<position>10,70</position><size>16,100</size>",
                   attribute("min_", "0") + attribute("max_", "9")) +
           control("iSsc", "bar2", "<position>30,70</position><size>16,100</size>",
                   attribute("min_", "0") + attribute("max_", "100")) +
           control("iSet", "edit", "<position>60,70</position><size>100,20</size>",
                   attribute("filC", "0123456789") + attribute("maxC", "6")) +
           control("iSck", "chek", "<position>60,100</position><size>100,17</size>", "", "Check") +
           control("iSst", "stat", "<position>60,120</position><size>150,40</size>", attribute("teSi", "20"),
                   "A static text that wraps onto a second line") +
           control("iSbt", "empt", "<position>0,0</position><size>0,0</size>") +
           "</itemslist></content></epi>";
}

epiUiSystemButton* native(epiUbo* window, const char* name)
{
    return dynamic_cast<epiUiSystemButton*>(window->childNamed(epiText(name).code()));
}

std::vector<std::string> listed(GtkWidget* combo)
{
    std::vector<std::string> texts;
    GtkTreeModel* model = gtk_combo_box_get_model(GTK_COMBO_BOX(combo));
    GtkTreeIter row;
    for (bool more = gtk_tree_model_get_iter_first(model, &row); more;
         more = gtk_tree_model_iter_next(model, &row))
    {
        gchar* text = nullptr;
        gtk_tree_model_get(model, &row, 0, &text, -1);
        texts.emplace_back(text);
        g_free(text);
    }
    return texts;
}

} // namespace

TEST(GtkSystemWidgets, ListsStepsFiltersDefaultKeysAndFrames)
{
    XVFB_REQUIRE();
    GtkApp app;
    ASSERT_TRUE(app.start());
    epiGtk::attach(app);
    epiFactory::add(epiCode("GrUi"), epiCode("iWin"),
                    [](uint32_t) -> epiObject* { return new CommandWindow(); });
    auto* window = dynamic_cast<CommandWindow*>(app.openWindowText(epiText(layout())));
    ASSERT_NE(window, nullptr);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return window->lastCopiedPixels() > 0; }));

    auto* list = dynamic_cast<epiUiSystemPopup*>(native(window, "list"));
    auto* full = dynamic_cast<epiUiSystemPopup*>(native(window, "full"));
    auto* bar1 = dynamic_cast<epiUiSystemScroll*>(native(window, "bar1"));
    auto* bar2 = dynamic_cast<epiUiSystemScroll*>(native(window, "bar2"));
    auto* edit = dynamic_cast<epiUiSystemEditText*>(native(window, "edit"));
    ASSERT_TRUE(list && full && bar1 && bar2 && edit && native(window, "chek") && native(window, "empt"));

    // 'cnth' leaves out the entry with '/', 'cont' keeps it; the layout's text chose "d".
    EXPECT_EQ(listed(list->widget()), (std::vector<std::string>{"a", "d"}));
    EXPECT_EQ(listed(full->widget()), (std::vector<std::string>{"a", "b/c", "d"}));
    EXPECT_EQ(full->getValue(), 2.0f);
    EXPECT_EQ(gtk_combo_box_get_active(GTK_COMBO_BOX(full->widget())), 2);
    // A text the list doesn't hold changes neither the choice nor the text.
    const epiText missing("zz");
    full->setText(&missing);
    EXPECT_EQ(full->getValue(), 2.0f);
    EXPECT_STREQ(full->textChars(), "d");

    // Setters never report.
    list->setValue(1);
    native(window, "chek")->setValue(1);
    bar2->setValue(100);
    edit->setTextChars("42");
    EXPECT_STREQ(list->textChars(), "d");
    EXPECT_TRUE(gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(native(window, "chek")->widget())));
    EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(edit->widget())), "42");
    xvfb::pumpUntil([] { return false; }, 0.1);
    EXPECT_TRUE(window->commands.empty());

    // Page steps through the real bar: a tenth of 9 truncates to 0, a bar at its end doesn't move.
    g_signal_emit_by_name(bar1->widget(), "move-slider", GTK_SCROLL_PAGE_FORWARD);
    g_signal_emit_by_name(bar2->widget(), "move-slider", GTK_SCROLL_PAGE_FORWARD);
    EXPECT_TRUE(window->commands.empty());
    g_signal_emit_by_name(bar2->widget(), "move-slider", GTK_SCROLL_PAGE_BACKWARD);
    EXPECT_EQ(bar2->getValue(), 90.0f);
    EXPECT_EQ(window->commands, (std::vector<uint32_t>{epiCode("bar2")}));
    window->commands.clear();

    // An empty frame: made, never shown.
    EXPECT_FALSE(gtk_widget_get_visible(native(window, "empt")->widget()));

    // Typed text goes through the filter; Enter with the default button disabled does nothing,
    // Escape hits the cancel button, Enter the default one once it is enabled.
    gtk_window_present(GTK_WINDOW(window->gtkWindow()));
    gtk_widget_grab_focus(edit->widget());
    gtk_editable_set_position(GTK_EDITABLE(edit->widget()), -1);
    ASSERT_EQ(xvfb::run({"xdotool", "windowfocus", "--sync", std::to_string(window->xid()), "type", "1a2"}),
              0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return std::string(edit->textChars()) == "4212"; }))
        << edit->textChars();
    EXPECT_EQ(edit->getValue(), 4212.0f);
    window->commands.clear();
    ASSERT_EQ(xvfb::run({"xdotool", "key", "Return", "Escape"}), 0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return !window->commands.empty(); }));
    xvfb::pumpUntil([] { return false; }, 0.1);
    EXPECT_EQ(window->commands, (std::vector<uint32_t>{epiCode("canc")}));
    native(window, "okay")->setEnabled(true);
    ASSERT_EQ(xvfb::run({"xdotool", "key", "Return"}), 0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return window->commands.size() == 2; }));
    EXPECT_EQ(window->commands.back(), epiCode("okay"));

    // Every control keeps exactly its frame under the theme of the run (GTK_THEME: the default and
    // HighContrast runs).
    {
        const char* theme = std::getenv("GTK_THEME") != nullptr ? std::getenv("GTK_THEME") : "default";
        for (const char* name : {"okay", "list", "bar1", "edit", "chek", "stat"})
        {
            epiUiSystemButton* control = native(window, name);
            GtkAllocation box;
            gtk_widget_get_allocation(control->widget(), &box);
            EXPECT_EQ(epiRect(box.x, box.y, box.x + box.width, box.y + box.height), control->frame())
                << theme << " " << name;
        }
        // The theme really is the one asked for: HighContrast draws a button's edge much darker
        // against its face than the default theme does.
        int x = 0;
        int y = 0;
        xvfb::screenOrigin(native(window, "canc")->widget(), x, y);
        auto brightness = [](uint32_t rgb)
        { return int(rgb >> 16) + int((rgb >> 8) & 0xFF) + int(rgb & 0xFF); };
        const int contrast =
            brightness(xvfb::screenPixel(x + 5, y + 11)) - brightness(xvfb::screenPixel(x + 37, y));
        EXPECT_EQ(contrast > 250, std::string(theme) == "HighContrast") << theme << " " << contrast;
        if (const char* shots = std::getenv("EPI_SCREENSHOTS"))
        {
            GdkPixbuf* shot = gdk_pixbuf_get_from_window(gdk_get_default_root_window(), 0, 0, 460, 360);
            gdk_pixbuf_save(shot, (std::string(shots) + "/controls-" + theme + ".png").c_str(), "png",
                            nullptr, nullptr);
            g_object_unref(shot);
        }
    }

    window->notifyDestroyed();
    app.stop();
    EXPECT_EQ(xvfb::warningCount(), 0);
}
