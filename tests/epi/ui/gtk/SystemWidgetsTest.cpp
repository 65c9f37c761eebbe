// The native controls as real GTK widgets under Xvfb: their lists, steps and filters, setters that
// never report, Enter and Escape on the default and cancel buttons, and frames kept under two themes.

#include "epi/ui/gtk/epiUiSystem.h"
#include "tests/epi/ui/LayoutText.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

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

std::string layout()
{
    return layoutFile(
        "<kind>iWin</kind><name>dlog</name><text>Controls</text>" + place(30, 30, 400, 300),
        item("iSbt", "okay",
             place(10, 10, 75, 23) + "<text>OK</text>" + attrs({{"defa", "1"}, {"enab", "0"}})) +
            item("iSbt", "canc", place(90, 10, 75, 23) + "<text>Cancel</text>" + attrs({{"defa", "2"}})) +
            item("iSpu", "list", place(10, 40, 120, 21) + attrs({{"cnth", "a|b/c|d"}})) +
            item("iSpu", "full", place(140, 40, 120, 21) + "<text>d</text>" + attrs({{"cont", "a|b/c|d"}})) +
            item("iSsc", "bar1", place(10, 70, 16, 100) + attrs({{"min_", "0"}, {"max_", "9"}})) +
            item("iSsc", "bar2", place(30, 70, 16, 100) + attrs({{"min_", "0"}, {"max_", "100"}})) +
            item("iSet", "edit", place(60, 70, 100, 20) + attrs({{"filC", "0123456789"}, {"maxC", "6"}})) +
            item("iSck", "chek", place(60, 100, 100, 17) + "<text>Check</text>") +
            item("iSst", "stat",
                 place(60, 120, 150, 40) + "<text>A static text that wraps onto a second line</text>" +
                     attrs({{"teSi", "20"}})) +
            item("iSbt", "empt", place(0, 0, 0, 0)));
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

using GtkSystemWidgets = GtkAppTest<>;

TEST_F(GtkSystemWidgets, ListsStepsFiltersDefaultKeysAndFrames)
{
    epiFactory::add(epiCode("GrUi"), epiCode("iWin"),
                    [](uint32_t) -> epiObject* { return new CommandWindow(); });
    auto* window = open<CommandWindow>(layout());
    ASSERT_NE(window, nullptr);

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
    xvfb::settle();
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
    ASSERT_EQ(xvfb::xdotool("windowfocus --sync " + std::to_string(window->xid()) + " type 1a2"), 0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return std::string(edit->textChars()) == "4212"; }))
        << edit->textChars();
    EXPECT_EQ(edit->getValue(), 4212.0f);
    window->commands.clear();
    ASSERT_EQ(xvfb::xdotool("key Return Escape"), 0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return !window->commands.empty(); }));
    xvfb::settle();
    EXPECT_EQ(window->commands, (std::vector<uint32_t>{epiCode("canc")}));
    native(window, "okay")->setEnabled(true);
    ASSERT_EQ(xvfb::xdotool("key Return"), 0);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return window->commands.size() == 2; }));
    EXPECT_EQ(window->commands.back(), epiCode("okay"));

    // Every control keeps exactly its frame under the theme of the run (GTK_THEME: the default and
    // HighContrast runs).
    for (const char* name : {"okay", "list", "bar1", "edit", "chek", "stat"})
    {
        epiUiSystemButton* control = native(window, name);
        GtkAllocation box;
        gtk_widget_get_allocation(control->widget(), &box);
        EXPECT_EQ(epiRect(box.x, box.y, box.x + box.width, box.y + box.height), control->frame()) << name;
    }
}
