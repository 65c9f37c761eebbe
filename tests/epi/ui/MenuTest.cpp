#include "epi/ui/epiKeyboard.h"
#include "epi/ui/epiMenu.h"

#include "epi/epiResources.h"
#include "epi/ui/epiApplication.h"
#include "epi/ui/epiUbo.h"
#include "epi/ui/epiWindowManager.h"
#include "tests/epi/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{

// Seven commands, two separators: one command opens a submenu of its own, one has no shortcut,
// and Cut's text keeps its blanks and line end as written.
const char* const kBar = R"(<epi><content><name>MBar</name><menulist>
  <item><text>File</text><menulist>
    <item><text>New</text><name>New </name><shortcut><char>n</char></shortcut></item>
    <item><text>Open...</text><name>Open</name>
      <shortcut><ascii>79</ascii><char>x</char><modifiers><shift>1</shift></modifiers></shortcut></item>
    <item><isseparator>1</isseparator><text>-</text></item>
    <item><text>Recent</text><name>Rcnt</name><menulist>
      <item><text>Last</text><name>Last</name></item>
    </menulist></item>
    <item><text>Quit</text><name>Quit</name>
      <shortcut><char>q</char><modifiers><shift>1</shift><option>2</option></modifiers></shortcut></item>
  </menulist></item>
  <item><text>Edit</text><menulist>
    <item><text>Undo</text><name>Undo</name><isseparator>0</isseparator></item>
    <item><isseparator>1</isseparator></item>
    <item><text> Cut
</text><name>Cut </name><shortcut><char>X</char><modifiers><shift>0</shift></modifiers></shortcut></item>
  </menulist></item>
</menulist></content></epi>)";

std::vector<const epiMenuItem*> flatten(const std::vector<epiMenuItem>& items)
{
    std::vector<const epiMenuItem*> out;
    for (const epiMenuItem& item : items)
    {
        out.push_back(&item);
        const std::vector<const epiMenuItem*> below = flatten(item.items);
        out.insert(out.end(), below.begin(), below.end());
    }
    return out;
}

TEST(Menu, CommandsTakeIdsInFileOrderAndSeparatorsTakeNone)
{
    epiMenu menu;
    menu.loadText(kBar);
    ASSERT_EQ(menu.barRef()->menus.size(), 2u);
    EXPECT_EQ(menu.barRef()->menus[0].id, 0);

    struct Row
    {
        const char* text;
        int32_t id;
        uint32_t code;
        bool separator;
    };
    const std::vector<Row> expected = {
        {"File", 0, 0, false},
        {"New", 10000, epiCode("New "), false},
        {"Open...", 10001, epiCode("Open"), false},
        {"-", 0, 0, true},
        {"Recent", 10002, epiCode("Rcnt"), false},
        {"Last", 10003, epiCode("Last"), false},
        {"Quit", 10004, epiCode("Quit"), false},
        {"Edit", 0, 0, false},
        {"Undo", 10005, epiCode("Undo"), false},
        {"", 0, 0, true},
        {" Cut\n", 10006, epiCode("Cut "), false},
    };
    const std::vector<const epiMenuItem*> items = flatten(menu.barRef()->menus);
    ASSERT_EQ(items.size(), expected.size());
    for (size_t i = 0; i < items.size(); ++i)
    {
        EXPECT_EQ(items[i]->text, expected[i].text) << i;
        EXPECT_EQ(items[i]->id, expected[i].id) << i;
        EXPECT_EQ(items[i]->code, expected[i].code) << i;
        EXPECT_EQ(items[i]->separator, expected[i].separator) << i;
        uint32_t code = 0;
        if (expected[i].id != 0)
        {
            ASSERT_TRUE(menu.codeOfId(expected[i].id, &code));
            EXPECT_EQ(code, expected[i].code);
        }
    }
    EXPECT_FALSE(menu.codeOfId(10007, nullptr));
    EXPECT_FALSE(menu.codeOfId(9999, nullptr));
}

TEST(Menu, ShortcutsAlwaysHoldCtrlAndShowTheCapital)
{
    epiMenu menu;
    menu.loadText(kBar);
    const std::vector<const epiMenuItem*> items = flatten(menu.barRef()->menus);
    struct Row
    {
        size_t index;
        const char* shown;
    };
    // <ascii> wins over <char>; a lower-case <char> shows as a capital; no shortcut, no tab.
    for (const Row& row :
         {Row{1, "New\tCtrl+N"}, Row{2, "Open...\tCtrl+Shift+O"}, Row{6, "Quit\tCtrl+Shift+Alt+Q"},
          Row{8, "Undo"}, Row{10, " Cut\n\tCtrl+X"}, Row{5, "Last"}})
        EXPECT_EQ(items[row.index]->shown, row.shown) << row.index;

    const std::vector<epiAccelerator>& keys = *menu.acceleratorsRef();
    ASSERT_EQ(keys.size(), 4u);
    const epiAccelerator expected[] = {{9, 'N', 10000}, {13, 'O', 10001}, {29, 'Q', 10004}, {9, 'X', 10006}};
    for (size_t i = 0; i < keys.size(); ++i)
    {
        EXPECT_EQ(keys[i].flags, expected[i].flags) << i;
        EXPECT_EQ(keys[i].key, expected[i].key) << i;
        EXPECT_EQ(keys[i].id, expected[i].id) << i;
    }
}

TEST(Menu, AMissingMenuGivesAnEmptyBar)
{
    TempFolder temp;
    const std::string root = temp.path() + "res.frs/";
    std::filesystem::create_directories(root + "menus");
    std::ofstream(root + "epi.frs") << "<epi/>";
    std::ofstream(root + "menus/bar.xml") << kBar;
    epiResources resources;
    ASSERT_TRUE(resources.openPathChars(root.c_str()));

    epiMenu menu;
    ASSERT_TRUE(menu.load(&resources, epiText("bar.xml")));
    ASSERT_FALSE(menu.items().empty());
    for (epiResources* from : {&resources, static_cast<epiResources*>(nullptr)})
    {
        menu.load(&resources, epiText("bar.xml"));
        EXPECT_FALSE(menu.load(from, epiText("none.xml")));
        EXPECT_TRUE(menu.barRef()->menus.empty());
        EXPECT_TRUE(menu.items().empty());
        EXPECT_TRUE(menu.acceleratorsRef()->empty());
    }
    // Text that isn't a menu is an empty bar too.
    for (const char* text :
         {"", "<epi><content></content></epi>", "<menulist><item><text>A</text></item></menulist>"})
    {
        menu.loadText(text);
        EXPECT_TRUE(menu.barRef()->menus.empty()) << text;
    }
}

// A window that answers commands with a number of its own, 0 for "not mine".
class Window : public epiUbo
{
public:
    Window(intptr_t answer, uint32_t name) : answer_(answer) { setName(name); }
    intptr_t query(intptr_t a, intptr_t, intptr_t) override
    {
        asked.push_back(uint32_t(a));
        return answer_;
    }
    std::vector<uint32_t> asked;

private:
    intptr_t answer_;
};

class RoadApp : public epiWindowApplication
{
public:
    intptr_t handleCommandCode(uint32_t code) override
    {
        asked.push_back(code);
        return 7;
    }
    std::vector<uint32_t> asked;
};

TEST(Menu, ACommandGoesToTheTopWindowThenTheMainWindowThenTheApplication)
{
    struct Row
    {
        std::vector<intptr_t> windows; // oldest first; the last is on top, the first is the main one
        intptr_t result;
        std::vector<size_t> windowAsked;
        size_t appAsked;
    };
    for (const Row& row : {Row{{4, 3}, 3, {0, 1}, 0}, Row{{4, 0}, 4, {1, 1}, 0}, Row{{0, 0}, 7, {1, 1}, 1},
                           Row{{0, 5, 0}, 7, {1, 0, 1}, 1}, Row{{0}, 7, {1}, 1}, Row{{}, 7, {}, 1}})
    {
        RoadApp app;
        ASSERT_TRUE(app.start());
        auto* menu = dynamic_cast<epiMenu*>(app.menu());
        ASSERT_NE(menu, nullptr);
        menu->loadText(kBar);
        std::vector<Window*> windows;
        for (intptr_t answer : row.windows)
        {
            windows.push_back(new Window(answer, epiCode("wind")));
            windows.back()->startRefCount();
            windows.back()->setOwner(&app);
            app.windowManager()->addWindow(windows.back());
        }
        EXPECT_EQ(menu->handleCommand(10004), row.result);
        for (size_t i = 0; i < windows.size(); ++i)
        {
            EXPECT_EQ(windows[i]->asked.size(), row.windowAsked[i]) << i;
            for (uint32_t code : windows[i]->asked)
                EXPECT_EQ(code, epiCode("Quit"));
        }
        EXPECT_EQ(app.asked, std::vector<uint32_t>(row.appAsked, epiCode("Quit")));
        // An id that no command has goes nowhere.
        EXPECT_EQ(menu->handleCommand(10007), 0);
        EXPECT_EQ(app.asked.size(), row.appAsked);
        for (Window* window : windows)
        {
            app.windowManager()->removeWindow(window);
            window->release();
        }
        app.stop();
    }
}

TEST(Keyboard, ReleasesReportThePressedKey)
{
    epiKeyboard keyboard;
    using Phase = epiKeyboard::KeyPhase;
    struct Row
    {
        uint32_t scan;
        uint32_t virtualKey;
        Phase phase;
        int32_t code;
    };
    // The arrow pad's keys under scan codes 75 and 77; 300 is past the memory and not remembered.
    for (const Row& row :
         {Row{75, 0x25, Phase::Down, 0x1C}, Row{75, 0x25, Phase::Repeat, 0x1C},
          Row{77, 0x27, Phase::Down, 0x1D}, Row{75, 0x64, Phase::Up, 0x1C}, Row{75, 0x64, Phase::Up, 0},
          Row{77, 0x22, Phase::Up, 0x1D}, Row{80, 0x41, Phase::Down, 0}, Row{80, 0x2E, Phase::Up, 0},
          Row{300, 0x21, Phase::Down, 0x10000}, Row{300, 0x22, Phase::Up, 0x10001},
          Row{10, 0x24, Phase::Down, 0x10002}, Row{11, 0x23, Phase::Down, 0x10003},
          Row{12, 0x26, Phase::Down, 0x1E}, Row{13, 0x28, Phase::Down, 0x1F}, Row{14, 0x2E, Phase::Down, 8},
          Row{15, 0x1000, Phase::Down, 0}})
        EXPECT_EQ(keyboard.keyMessage(row.scan, row.virtualKey, row.phase), row.code)
            << row.scan << " " << row.virtualKey;
}

} // namespace
