// The program's pack read as the program reads it: each layout holds the controls that the code
// looks up, with the kinds it expects, where the printed background expects them, and names only
// images and fonts that the pack holds.

#include "epi/epiResources.h"
#include "epi/ui/epiMenu.h"
#include "resources/lint/PackLint.h"
#include "tests/support/TempFolder.h"
#include "tools/artgen/PanelGeometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace
{

uint32_t code(const std::string& text)
{
    return epiText(text).code();
}

class Pack : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        app_ = new epiWindowApplication();
        ASSERT_TRUE(app_->start());
        ASSERT_TRUE(app_->resources()->openPack(epiPath(KV3_PACK))) << KV3_PACK;
        pack_ = new packlint::Pack(*app_);
    }
    static void TearDownTestSuite()
    {
        delete pack_;
        app_->stop();
        delete app_;
    }
    static const packlint::Layout* layout(const std::string& file)
    {
        std::string error;
        const packlint::Layout* loaded = pack_->layout(file, error);
        EXPECT_NE(loaded, nullptr) << error;
        return loaded;
    }

    static inline epiWindowApplication* app_ = nullptr;
    static inline packlint::Pack* pack_ = nullptr;
};

std::string joined(const std::vector<std::string>& lines)
{
    std::string all;
    for (const std::string& line : lines)
        all += line + "\n";
    return all;
}

TEST_F(Pack, LintFindsNoFault)
{
    EXPECT_EQ(joined(pack_->lint()), "");
}

/** A layout, the code of its window (empty for a panel), title, size, and its names: "kind: name...|". */
struct Names
{
    const char* file;
    const char* code;
    const char* title;
    int width, height;
    const char* names;
};

const Names kNames[] = {
    {"mainWindow.xml", "main", "Korvalind 3", 850, 747, "iBim: nofx fzfx | iBco: pane | iSco: plug"},
    {"mainPanel.xml", "", "", 850, 165,
     "iBfi: tkbk | iCon: drel list prvw ckpo | iBim: lscr blin levk levb mibl"
     "| iBbt: loaf emty expb scde scin zoin zoou | iBrd: tOn0 tOn1 tOn2 tOn3 rat0 rat1 rat2"
     "| iBck: tRc0 tRc1 tRc2 tRc3 tSo0 tSo1 tSo2 tSo3 tMu0 tMu1 tMu2 tMu3 telk tnPl tnRe tnLo tnAr fxLo fxEn "
     "tFrz"
     "  ckEn ckso | iBst: iSl0 iSl1 iSl2 iSl3 tabs curv gadi cpla cpdi haal"
     "| iBsc: zosc masv inga tVol tPan tPch tTpo | iBtr: meTe meVo meSn meSd"},
    {"docsElement.xml", "", "", 165, 24, "iBfi: msel | iBim: intr cutr | iBst: titl whre titS whrS"},
    {"dragElement.xml", "", "", 165, 24, "iBst: titl"},
    {"clickPopup.xml", "", "", 150, 124,
     "iBbt: clos | iBrd: selA selB selC selD selE | iBst: texA texB texC texD texE tacc | iBck: acce"},
    {"hardwareSettings.xml", "hrds", "Hardware Settings", 440, 380,
     "iSpu: Tech Inps inLc inRc Outs LCha RCha BufS midi | iSbt: CusP okay clos"},
    {"hardwareSettings_coreaudio.xml", "hrdc", "Hardware Settings", 440, 380,
     "iSpu: Tech Inps inLc inRc Outs LCha RCha BufS midi | iSbt: CusP okay clos"},
    {"hardwareConnecting.xml", "hwnc", "Warning", 500, 140, "iSst: txme | iSbt: okay | iBim: icon"},
    {"askDocNew.xml", "dnew", "New project", 440, 125, "iSet: name | iSpu: fasr | iSbt: okay clos"},
    {"askDocProperties.xml", "dpro", "Project Properties", 440, 105, "iSpu: fasr | iSbt: okay clos"},
    {"askDocSaveChanges.xml", "svch", "Save document", 440, 140,
     "iSst: txme | iSbt: save dont clos | iBim: icon"},
    {"hardwarenotsupports.xml", "noti", "Warning", 440, 80, "iSst: info | iSbt: okay"},
    {"askExportFile.xml", "expo", "Export File", 640, 230,
     "iSst: spat hwes sesr | iSbt: cpat okay clos | iSpu: fafo fasf | iSck: shs1"},
    {"freezeProgress.xml", "frez", "Freezing track", 400, 90, "iSst: line perc | iSpb: prog | iSbt: canc"},
};

class LayoutNames : public Pack, public ::testing::WithParamInterface<Names>
{
};

TEST_P(LayoutNames, EveryNameStandsWithItsKindAndTheWindowIsFoundByItsCode)
{
    const Names& row = GetParam();
    const packlint::Layout* loaded = layout(row.file);
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded->root->text(), epiText(row.title));
    EXPECT_EQ(loaded->root->frame(), epiRect(0, 0, row.width, row.height));
    if (*row.code != 0)
    {
        EXPECT_EQ(loaded->root->name(), code(row.code));
        epiText found;
        EXPECT_TRUE(app_->resources()->findByInternalName(epiCode("laya"), code(row.code), found));
        EXPECT_EQ(found, epiText(row.file));
    }
    std::istringstream words(row.names);
    std::set<uint32_t> named;
    uint32_t kind = 0;
    for (std::string word; words >> word;)
    {
        if (word == "|")
            continue;
        if (word.back() == ':')
        {
            kind = code(word);
            continue;
        }
        named.insert(code(word));
        const packlint::Item* item = loaded->find(word.c_str());
        ASSERT_NE(item, nullptr) << word;
        EXPECT_EQ(item->kind, kind) << word;
        // Until a kind is registered the loader gives a plain object; once it is, the class agrees.
        if (item->object->kind() != epiCode("ubob"))
        {
            EXPECT_EQ(item->object->kind(), kind) << word;
        }
    }
    for (const packlint::Item& item : loaded->items)
    {
        const bool control = named.count(item.object->name()) || std::string(row.file) != "mainPanel.xml";
        EXPECT_TRUE(control) << epiCodeText(item.object->name()) << " is not a control";
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, LayoutNames, ::testing::ValuesIn(kNames));

TEST_F(Pack, MainPanelPlacesEveryControlWhereTheBackgroundIsPrinted)
{
    const packlint::Layout* panel = layout("mainPanel.xml");
    ASSERT_NE(panel, nullptr);
    for (const panel::Control& c : panel::kControls)
    {
        const packlint::Item* item = panel->find(c.name);
        ASSERT_NE(item, nullptr) << c.name;
        EXPECT_EQ(item->object->frame(), epiRect(c.x, c.y, c.x + c.w, c.y + c.h)) << c.name;
    }
    // The film lies under everything and fills the panel; the popup lies over everything; the beat
    // lamp comes after the click key, so that it is drawn over the key's lamp.
    const auto& items = panel->items;
    EXPECT_EQ(items.front().object->name(), epiCode("tkbk"));
    EXPECT_EQ(items.front().object->frame(), epiRect(0, 0, panel::kWidth, panel::kHeight));
    EXPECT_EQ(items[1].object->name(), epiCode("drel"));
    EXPECT_EQ(items.back().object->name(), epiCode("ckpo"));
    EXPECT_EQ(panel->find("blin") - panel->find("ckEn"), 1);
}

/** An attribute an item must read as it is given ("text" is the caption). */
struct Wanted
{
    const char* file;
    const char* name;
    const char* code;
    const char* value;
};

TEST_F(Pack, ControlsReadTheValuesTheProgramCountsOn)
{
    const Wanted wanted[] = {
        {"mainPanel.xml", "haal", "visi", "0"},
        {"mainPanel.xml", "iSl2", "Clik", "1"},
        {"mainPanel.xml", "tOn3", "fagr", "2"},
        {"mainPanel.xml", "rat2", "fagr", "1"},
        {"mainPanel.xml", "cpla", "text", "CPU LOAD"},
        {"mainPanel.xml", "tkbk", "frms", "4"},
        {"mainPanel.xml", "ckpo", "chil", "clickPopup.xml"},
        {"mainPanel.xml", "drel", "chil", "dragElement.xml"},
        {"mainPanel.xml", "tVol", "irOf", "levelknob.png"},
        {"mainPanel.xml", "tTpo", "irDi", "levelknoboff.png"},
        {"mainPanel.xml", "levb", "irOf", "footmeterbar.png"},
        {"mainWindow.xml", "pane", "chil", "mainPanel.xml"},
        {"mainWindow.xml", "nofx", "irOf", "b/backs/fxdisabled.png"},
        {"mainWindow.xml", "fzfx", "irOf", "b/backs/fxfreezed.png"},
        {"docsElement.xml", "msel", "irOf", "docsel.png"},
        {"clickPopup.xml", "selD", "fagr", "3"},
        {"clickPopup.xml", "selD", "fain", "3"},
        {"clickPopup.xml", "texE", "Clik", "1"},
        {"clickPopup.xml", "tacc", "text", "Accent"},
        {"askDocProperties.xml", "okay", "text", "Ok"},
        {"hardwarenotsupports.xml", "okay", "text", "Ok"},
        {"hardwareConnecting.xml", "okay", "text", "OK"},
        {"askExportFile.xml", "okay", "text", "Export"},
        {"askExportFile.xml", "fasf", "text", "Sub format"},
    };
    for (const Wanted& w : wanted)
    {
        const packlint::Layout* loaded = layout(w.file);
        ASSERT_NE(loaded, nullptr);
        const packlint::Item* item = loaded->find(w.name);
        ASSERT_NE(item, nullptr) << w.file << " " << w.name;
        const std::string value = std::string(w.code) == "text" ? std::string(item->object->text())
                                                                : packlint::attribute(*item->object, w.code);
        EXPECT_EQ(value, w.value) << w.file << " " << w.name << " " << w.code;
    }
}

TEST_F(Pack, TheQuirksTheProgramExpectsAreKept)
{
    for (const char* file : {"hardwareSettings.xml", "hardwareSettings_coreaudio.xml"})
    {
        const packlint::Layout* loaded = layout(file);
        ASSERT_NE(loaded, nullptr);
        const std::vector<const packlint::Item*> sizes = loaded->all("BufS");
        ASSERT_EQ(sizes.size(), 2u) << file;
        EXPECT_NE(sizes[0]->object->frame().width(), 0) << file << ": the lookup must find the real one";
        EXPECT_EQ(sizes[1]->object->frame(), epiRect(0, 3, 0, 3)) << file;
        EXPECT_EQ(loaded->find("loqr"), nullptr) << file;
    }
    const packlint::Layout* properties = layout("askDocProperties.xml");
    ASSERT_NE(properties, nullptr);
    EXPECT_EQ(properties->find("bpmm"), nullptr);
    const std::vector<std::string> files = pack_->names("laya");
    EXPECT_TRUE(std::count(files.begin(), files.end(), "hardwarenotsupports.xml"));
    // The default button of every dialog answers Return, and its way out answers Escape.
    for (const Names& row : kNames)
        for (const packlint::Item& item : layout(row.file)->items)
        {
            const uint32_t name = item.object->name();
            const bool way =
                (name == epiCode("clos") && item.kind == epiCode("iSbt")) || name == epiCode("canc");
            const char* defa = name == epiCode("okay") || name == epiCode("save") ? "1" : way ? "2" : "";
            EXPECT_EQ(packlint::attribute(*item.object, "defa"), defa)
                << row.file << " " << epiCodeText(name);
        }
}

TEST_F(Pack, TheMenuBarHoldsTheCommandsWithTheirShortcuts)
{
    std::string text;
    ASSERT_TRUE(pack_->read("menu", "mainbar_win.xml", text));
    epiText found;
    EXPECT_TRUE(app_->resources()->findByInternalName(epiCode("menu"), epiCode("mawi"), found));
    EXPECT_EQ(found, epiText("mainbar_win.xml"));
    EXPECT_FALSE(app_->resources()->findByInternalName(epiCode("menu"), epiCode("main"), found));
    epiMenu menu;
    menu.loadText(epiText(text));
    std::string shown;
    for (const epiMenuItem& top : menu.barRef()->menus)
    {
        shown.append(top.text).append(":");
        for (const epiMenuItem& item : top.items)
        {
            if (item.separator)
                shown.append(" -");
            else
                shown.append(" ").append(item.shown).append("=").append(epiCodeText(item.code));
        }
        shown.append("\n");
    }
    EXPECT_EQ(shown, "File: New Project\tCtrl+N=newd Open Project...\tCtrl+O=oped Save Project\tCtrl+S=savd "
                     "Save Project As...\tCtrl+Shift+S=svsd - Project Properties...\tCtrl+Alt+P=prod - "
                     "Quit\tCtrl+Q=quit\nSettings: Audio MIDI Setup...=hrds\n");
}

TEST_F(Pack, ImagesTheCodeNamesAreThereAtTheirSizes)
{
    struct Size
    {
        const char* file;
        int width, height;
    };
    for (const Size& s :
         {Size{"tkbk.png", 850, 660}, Size{"b/backs/fxdisabled.png", 850, 582},
          Size{"b/backs/fxfreezed.png", 850, 582}, Size{"markercursor.png", 9, 47},
          Size{"markerleft.png", 9, 47}, Size{"markerright.png", 9, 47}, Size{"docsel.png", 165, 48},
          Size{"hiliteruler.png", 8, 13}, Size{"levelknob.png", 18, 10}, Size{"levelknoboff.png", 18, 10},
          Size{"footmeterbar.png", 52, 6}, Size{"kv3appicon.png", 48, 48}})
    {
        int w = 0, h = 0;
        ASSERT_TRUE(pack_->imageSize(s.file, w, h)) << s.file;
        EXPECT_EQ(w, s.width) << s.file;
        EXPECT_EQ(h, s.height) << s.file;
    }
    for (const std::string& font : pack_->names("fnts"))
        EXPECT_NE(font.rfind("fontsystem_", 0), 0u) << font << ": every text of the program is a bitmap font";
}

TEST_F(Pack, LintReportsEachKindOfFault)
{
    // The lint can fail: a small folder holds one of each fault it knows.
    testsupport::TempFolder folder;
    const std::string root = folder.file("res.frs/");
    std::filesystem::create_directories(root + "layouts");
    std::filesystem::create_directories(root + "images");
    std::ofstream(root + "epi.frs") << "";
    // A PNG's signature and header: 16 x 16.
    const char png[] = "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\0\x10\0\0\0\x10";
    std::ofstream(root + "images/k.png", std::ios::binary).write(png, sizeof png - 1);
    auto write = [&](const std::string& name, const std::string& items)
    {
        std::ofstream(root + "layouts/" + name) << "<epi>\n<content>\n<name>same</name>\n<itemslist>\n"
                                                << items << "</itemslist>\n</content>\n</epi>\n";
    };
    write("a.xml",
          "<item>\n<kind>iBbt</kind>\n<name>btn1</name>\n<size>20,16</size>\n<attributes>\n<attribute>\n"
          "<name>irOf</name>\n<value>k.png</value>\n</attribute>\n</attributes>\n</item>\n"
          "<item><kind>iBst</kind>\n<name>txt1</name>\n<text>A &amp; B</text>\n</item>\n");
    write("b.xml",
          "<item>\n<kind>iBim</kind>\n<name>img1</name>\n<attributes>\n<attribute>\n<name>irOf</name>\n"
          "<value>gone.png</value>\n</attribute>\n<attribute>\n<name>teFo</name>\n<value>zz99</value>\n"
          "</attribute>\n</attributes>\n</item>\n");
    ASSERT_TRUE(app_->resources()->openFolder(epiPath(root.c_str())));
    std::vector<std::string> faults;
    {
        packlint::Pack folderPack(*app_);
        faults = folderPack.lint();
    }
    ASSERT_TRUE(app_->resources()->openPack(epiPath(KV3_PACK)));
    const char* expected[] = {
        "a.xml:16: not one element",                    // two elements on a line
        "a.xml:18: not one element",                    // an entity, which the reader won't decode
        "btn1: irOf 'k.png' is 16x16, not the frame's", // a button's image is its frame
        "btn1: has no ipOf image",                      // a pressed button would draw nothing
        "b.xml: its root name 'same' is also that of a.xml",
        "img1: irOf names 'gone.png', which the pack lacks",
        "img1: font 'zz99' is not in the pack",
    };
    const std::string all = joined(faults);
    for (const char* fault : expected)
        EXPECT_NE(all.find(fault), std::string::npos) << fault << "\nin:\n" << all;
}

} // namespace
