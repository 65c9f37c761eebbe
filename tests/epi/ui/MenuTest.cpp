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
#include <tuple>
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

TEST(Menu, CommandsTakeIdsInFileOrderAndShortcutsAlwaysHoldCtrl)
{
    epiMenu menu;
    menu.loadText(kBar);
    // Top menus and separators take no id; <ascii> wins over <char>; a lower-case <char> shows as a
    // capital; no shortcut, no tab.
    const std::vector<std::tuple<std::string, uint32_t, int32_t, bool>> expected = {
        {"File", 0, 0, false},
        {"New\tCtrl+N", epiCode("New "), 10000, false},
        {"Open...\tCtrl+Shift+O", epiCode("Open"), 10001, false},
        {"-", 0, 0, true},
        {"Recent", epiCode("Rcnt"), 10002, false},
        {"Last", epiCode("Last"), 10003, false},
        {"Quit\tCtrl+Shift+Alt+Q", epiCode("Quit"), 10004, false},
        {"Edit", 0, 0, false},
        {"Undo", epiCode("Undo"), 10005, false},
        {"", 0, 0, true},
        {" Cut\n\tCtrl+X", epiCode("Cut "), 10006, false},
    };
    std::vector<std::tuple<std::string, uint32_t, int32_t, bool>> items;
    for (const epiMenuItem* item : flatten(menu.barRef()->menus))
    {
        items.emplace_back(item->shown.cstr(), item->code, item->id, item->separator);
        uint32_t code = 0;
        EXPECT_EQ(menu.codeOfId(item->id, &code), item->id != 0);
        EXPECT_EQ(code, item->code);
    }
    EXPECT_EQ(items, expected);
    EXPECT_FALSE(menu.codeOfId(10007, nullptr));

    using M = epiMenu;
    const uint8_t ctrl = M::kAccelVirtualKey | M::kAccelControl;
    std::vector<std::tuple<int, int, int32_t>> keys;
    for (const epiAccelerator& key : *menu.acceleratorsRef())
        keys.emplace_back(key.flags, key.key, key.id);
    EXPECT_EQ(keys,
              (std::vector<std::tuple<int, int, int32_t>>{{ctrl, 'N', 10000},
                                                          {ctrl | M::kAccelShift, 'O', 10001},
                                                          {ctrl | M::kAccelShift | M::kAccelAlt, 'Q', 10004},
                                                          {ctrl, 'X', 10006}}));
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
    for (epiResources* from : {&resources, static_cast<epiResources*>(nullptr)})
    {
        ASSERT_TRUE(menu.load(&resources, epiText("bar.xml")));
        ASSERT_FALSE(menu.items().empty());
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

/** Writes who was asked for a command, in order: a window its mark, the application 'a'. */
class RoadApp : public epiWindowApplication
{
public:
    intptr_t handleCommandCode(uint32_t code) override
    {
        EXPECT_EQ(code, epiCode("Quit"));
        asked += 'a';
        return 7;
    }
    std::string asked;
};

/** A window that answers commands with a number of its own, 0 for "not mine". */
class Window : public epiUbo
{
public:
    Window(intptr_t answer, char mark, RoadApp& app) : answer_(answer), mark_(mark), app_(app) {}
    intptr_t query(intptr_t a, intptr_t, intptr_t) override
    {
        EXPECT_EQ(uint32_t(a), epiCode("Quit"));
        app_.asked += mark_;
        return answer_;
    }

private:
    intptr_t answer_;
    char mark_;
    RoadApp& app_;
};

TEST(Menu, ACommandGoesToTheTopWindowThenTheMainWindowThenTheApplication)
{
    struct Row
    {
        std::vector<intptr_t>
            windows; // oldest first, marked '0', '1'...: the last is on top, the first the main one
        intptr_t result;
        std::string asked;
    };
    for (const Row& row : {Row{{4, 3}, 3, "1"}, Row{{4, 0}, 4, "10"}, Row{{0, 0}, 7, "10a"},
                           Row{{0, 5, 0}, 7, "20a"}, Row{{0}, 7, "0a"}, Row{{}, 7, "a"}})
    {
        RoadApp app;
        ASSERT_TRUE(app.start());
        auto* menu = dynamic_cast<epiMenu*>(app.menu());
        ASSERT_NE(menu, nullptr);
        menu->loadText(kBar);
        std::vector<Window*> windows;
        for (intptr_t answer : row.windows)
        {
            windows.push_back(new Window(answer, char('0' + windows.size()), app));
            windows.back()->startRefCount();
            windows.back()->setOwner(&app);
            app.windowManager()->addWindow(windows.back());
        }
        EXPECT_EQ(menu->handleCommand(10004), row.result);
        EXPECT_EQ(app.asked, row.asked);
        EXPECT_EQ(menu->handleCommand(10007), 0); // an id that no command has goes nowhere
        EXPECT_EQ(app.asked, row.asked);
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
    for (const Row& row : {Row{75, 0x25, Phase::Down, 0x1C}, Row{75, 0x25, Phase::Repeat, 0x1C},
                           Row{77, 0x27, Phase::Down, 0x1D}, Row{75, 0x64, Phase::Up, 0x1C},
                           Row{75, 0x64, Phase::Up, 0}, Row{77, 0x22, Phase::Up, 0x1D},
                           Row{300, 0x21, Phase::Down, 0x10000}, Row{300, 0x22, Phase::Up, 0x10001}})
        EXPECT_EQ(keyboard.keyMessage(row.scan, row.virtualKey, row.phase), row.code)
            << row.scan << " " << row.virtualKey;
}

} // namespace
