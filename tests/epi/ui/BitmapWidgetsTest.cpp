// The bitmap widgets as layouts make them: images by state, films, rotaries, scrolls, texts, meters,
// decorations and the buffering view container, painted through a neutral window's surface.

#include "epi/ui/epiUiBitmapView.h"
#include "epi/ui/epiUiBitmapWidgets.h"
#include "tests/epi/ui/WidgetTestSupport.h"

#include <filesystem>
#include <fstream>

namespace
{

constexpr uint32_t kRed = 0xFF0000, kGreen = 0x00FF00, kBlue = 0x0000FF, kYellow = 0xFFFF00, kGrey = 0x808080;

class BitmapWidgets : public WidgetFixture
{
protected:
    void SetUp() override
    {
        WidgetFixture::SetUp();
        for (const auto& [name, colour] : {std::pair{"off.png", kRed},
                                           {"poff.png", kGreen},
                                           {"on.png", kBlue},
                                           {"pon.png", kYellow},
                                           {"dis.png", kGrey}})
            image(name, 10, 10, {colour});
    }
    template <class Widget = epiUbo> Widget* child(epiUbo* root, const char (&name)[5])
    {
        return dynamic_cast<Widget*>(root->childNamed(epiCode(name)));
    }
};

TEST_F(BitmapWidgets, ButtonDrawsTheImageOfItsStateAndNeverFallsBackToTheNormalOne)
{
    const std::string all = attrs({{"irOf", "off.png"},
                                   {"ipOf", "poff.png"},
                                   {"irOn", "on.png"},
                                   {"ipOn", "pon.png"},
                                   {"irDi", "dis.png"}});
    const std::string some = attrs({{"irOf", "off.png"}, {"ipOf", "poff.png"}, {"irOn", "on.png"}});
    // Captions over the plain red of "full": a full block in a system font, and a small icon.
    const std::string fonts = std::string(app.resources()->media()->rootPathRef()->cstr()) + "fonts/";
    std::filesystem::create_directories(fonts);
    std::ofstream(fonts + "fontsystem_sy12.xml")
        << "<epi><content><allplatforms><family>DejaVu "
           "Sans</family><size>12</size></allplatforms></content></epi>";
    image("icon.png", 4, 4, {kYellow});
    epiUbo* root = window(
        50, 10,
        item("iBbt", "full", at(0, 0, 10, 10) + all) + item("iBck", "part", at(20, 0, 10, 10) + some) +
            item("iBwt", "text",
                 "<text>\u2588</text>" + at(30, 0, 10, 10) +
                     attrs({{"irOf", "off.png"}, {"teFo", "sy12"}, {"tCof", "255,255,255"}})) +
            item("iBbi", "icon", at(40, 0, 10, 10) + attrs({{"irOf", "off.png"}, {"IcOf", "icon.png"}})));
    struct Row
    {
        const char* name;
        bool enabled, pressed, on;
        uint32_t shown;
    } rows[] = {
        {"full", true, false, false, kRed},     {"full", true, true, false, kGreen},
        {"full", true, false, true, kBlue},     {"full", true, true, true, kYellow},
        {"full", false, false, true, kGrey},    {"full", false, true, false, kGrey},
        {"part", true, true, true, 0x000000}, // no 'ipOn': a blank, not 'irOn'
        {"part", false, false, true, kBlue},  // no 'irDi': the state's own image
        {"text", true, false, false, 0xFFFFFF}, {"icon", true, false, false, kYellow},
    };
    for (const Row& row : rows)
    {
        auto* button = dynamic_cast<epiUiBitmapImage*>(root->childNamed(epiText(row.name).code()));
        ASSERT_NE(button, nullptr);
        button->setEnabled(row.enabled);
        button->setState(row.pressed, row.on);
        paint(root);
        EXPECT_EQ(pixel(button->frame().left_ + 5, 5), row.shown)
            << row.name << " enabled " << row.enabled << " pressed " << row.pressed << " on " << row.on;
    }
}

TEST_F(BitmapWidgets, FilmShowsTheFrameModuloItsCount)
{
    std::vector<uint32_t> colours;
    for (uint32_t i = 0; i < 12; ++i)
        colours.push_back(0x101010 * (i + 1));
    image("film.png", 10, 4, colours);
    struct Row
    {
        const char* frames;
        float value;
        int32_t frame;
    } rows[] = {{"12", 13, 1}, {"12", 24, 0}, {"12", 11, 11}, {"0", 13, 13}};
    for (const Row& row : rows)
    {
        epiUbo* root = window(
            10, 4,
            item("iBfi", "film", at(0, 0, 10, 4) + attrs({{"irOf", "film.png"}, {"frms", row.frames}})));
        auto* film = child<epiUiBitmapFilmImage>(root, "film");
        film->setValue(row.value);
        EXPECT_EQ(film->filmFrame(), row.frame) << row.frames << " frames, value " << row.value;
        paint(root);
        if (row.frame < 12)
        {
            EXPECT_EQ(pixel(5, 2), colours[size_t(row.frame)]);
        }
    }
}

TEST_F(BitmapWidgets, RotaryFollowsAnUpwardDragTimesItsSensitivity)
{
    struct Row
    {
        const char* sens;
        int32_t up;
        float value;
        int hits; // the half-way drag and the release each change the value
    } rows[] = {
        {"0", 20, 20, 2}, {"50", 20, 10, 2}, {"200", 20, 40, 2}, {"100", -20, 0, 0}, {"100", 500, 100, 1}};
    for (const Row& row : rows)
    {
        epiUbo* root = window(20, 40,
                              item("iBrt", "knob",
                                   at(0, 0, 20, 40) + attrs({{"uMin", "0"},
                                                             {"uMax", "10000"},
                                                             {"frms", "11"},
                                                             {"Smoo", "0"},
                                                             {"Sens", row.sens}})));
        auto* knob = child<epiUiBitmapRotary>(root, "knob");
        HitCounter counter;
        counter.listen(knob);
        root->mouseDown(epiPoint(10, 20));
        root->mouseDragged(epiPoint(10, 20 - row.up / 2));
        root->mouseUp(epiPoint(10, 20 - row.up));
        EXPECT_FLOAT_EQ(knob->getValue(), row.value) << "Sens " << row.sens << ", " << row.up << " up";
        EXPECT_EQ(counter.hits, row.hits);
        // The film shows the dragger's display value: frames 0..10 over the user range.
        EXPECT_EQ(knob->filmFrame(), int32_t(row.value * 10 / 100));
    }
}

TEST_F(BitmapWidgets, ScrollThumbStartsAtTheBottomOrLeftAndFollowsTheDrag)
{
    struct Row
    {
        int w, h;
        epiPoint drag;
        epiRect atZero, afterDrag;
    } rows[] = {
        {10, 60, epiPoint(0, -20), epiRect(0, 50, 10, 60), epiRect(0, 30, 10, 40)},
        {60, 10, epiPoint(20, 0), epiRect(0, 0, 10, 10), epiRect(20, 0, 30, 10)},
        {10, 60, epiPoint(0, 80), epiRect(0, 50, 10, 60), epiRect(0, 50, 10, 60)},
    };
    for (const Row& row : rows)
    {
        epiUbo* root = window(
            row.w, row.h,
            item("iBsc", "fadr", at(0, 0, row.w, row.h) + attrs({{"irOf", "off.png"}, {"Smoo", "0"}})));
        auto* fader = child<epiUiBitmapScroll>(root, "fadr");
        EXPECT_EQ(fader->thumbRect(), row.atZero);
        const epiPoint down = row.atZero.corner(8);
        root->mouseDown(down);
        root->mouseDragged(epiPoint(down.x_ + row.drag.x_, down.y_ + row.drag.y_));
        root->mouseUp(epiPoint(down.x_ + row.drag.x_, down.y_ + row.drag.y_));
        EXPECT_EQ(fader->thumbRect(), row.afterDrag) << row.w << "x" << row.h;
        paint(root);
        const epiPoint centre = row.afterDrag.corner(8);
        EXPECT_EQ(pixel(centre.x_, centre.y_), kRed);
    }
}

TEST_F(BitmapWidgets, RollingTextStepsOnceEveryTwoPixelsWithinItsLines)
{
    struct Row
    {
        const char* lines;
        std::vector<int> moves; // upward pixels of each drag event
        int32_t index;
        int hits;
    } rows[] = {
        {"only", {10}, 0, 0},
        {"a\nb\nc\nd\ne", {1, 1, 1, 1, 1, 1}, 3, 3},
        {"a\nb\nc\nd\ne", {40}, 4, 1},
        {"a\nb\nc\nd\ne", {3, 3}, 2, 2},
    };
    for (const Row& row : rows)
    {
        epiUbo* root = window(
            40, 20, item("iBtr", "roll", at(0, 0, 40, 20) + attrs({{"Clik", "1"}, {"cont", row.lines}})));
        auto* roll = child<epiUiBitmapTextRolling>(root, "roll");
        HitCounter counter;
        counter.listen(roll);
        epiPoint point(5, 10);
        root->mouseDown(point);
        for (int up : row.moves)
        {
            point.y_ -= up;
            root->mouseDragged(point);
        }
        root->mouseUp(point);
        EXPECT_EQ(roll->getValue(), float(row.index)) << row.lines;
        EXPECT_EQ(counter.hits, row.hits) << row.lines;
    }
    epiUbo* root = loadText("<name>root</name>", item("iBtr", "roll", attrs({{"cont", "a\n  b\n\nc\n"}})));
    auto* roll = child<epiUiBitmapTextRolling>(root, "roll");
    EXPECT_EQ(roll->count(), 3);
    roll->setValue(1);
    roll->setValue(3); // past the end: nothing
    EXPECT_EQ(roll->text(), "b");
    EXPECT_EQ(roll->getValue(), 1.0f);
}

TEST_F(BitmapWidgets, LevelMeterFallsByItsTimerWhateverLowerValuesArrive)
{
    epiUbo* root =
        loadText("<name>root</name>", item("iBlm", "metr", at(0, 0, 4, 50) + attrs({{"lmSp", "10"}})));
    auto* meter = child<epiUiBitmapLevMeter>(root, "metr");
    meter->setValue(100);
    advance(0.05);
    for (int tick = 1; tick <= 10; ++tick)
    {
        meter->setValue(95 - 10 * tick); // below what is shown: changes nothing
        advance(0.1, 0.001);
        EXPECT_FLOAT_EQ(meter->getValue(), float(100 - 10 * tick)) << "tick " << tick;
    }
    EXPECT_FALSE(meter->timerActive());
}

TEST_F(BitmapWidgets, LevelMeterLightsWholeBoxesLessOneRow)
{
    struct Row
    {
        const char* box;
        const char* maximum;
        float value;
        epiRect lit;
    } rows[] = {
        {"0", "100", 50, epiRect(0, 25, 4, 50)},
        {"5", "100", 50, epiRect(0, 26, 4, 50)},
        {"4", "100", 50, epiRect(0, 27, 4, 50)},
        {"0", "0", 50, epiRect(0, 50, 4, 50)}, // no range: nothing lit
    };
    for (const Row& row : rows)
    {
        epiUbo* root = window(
            4, 50,
            item("iBlm", "metr",
                 at(0, 0, 4, 50) + attrs({{"irOf", "on.png"}, {"lmBx", row.box}, {"max_", row.maximum}})));
        auto* meter = child<epiUiBitmapLevMeter>(root, "metr");
        meter->setValue(row.value);
        EXPECT_EQ(meter->litRect(), row.lit) << "box " << row.box << " max " << row.maximum;
    }
}

TEST_F(BitmapWidgets, ViewContainerRepaintsInOneBlitAndHoldsChangesWhileLocked)
{
    layout("inner.xml", "<name>innr</name><size>40,40</size>",
           item("iBim", "left", at(0, 0, 10, 10) + attrs({{"irOf", "off.png"}})) +
               item("iBim", "rigt", at(20, 20, 10, 10) + attrs({{"irOf", "poff.png"}})));
    epiUiWindowBase* root =
        window(60, 60, item("iBco", "view", at(10, 10, 40, 40) + attrs({{"chil", "inner.xml"}})));
    auto* view = child<epiUiBitmapViewContainer>(root, "view");
    ASSERT_EQ(view->childCount(), 2);
    paint(root);
    EXPECT_EQ(surface.blits, 1);
    EXPECT_EQ(pixel(15, 15), kRed);
    EXPECT_EQ(pixel(35, 35), kGreen);

    root->takeDirty();
    view->childAt(0)->invalidateAll();
    EXPECT_EQ(root->takeDirty(), epiRect(10, 10, 20, 20)) << "a change repaints its widget's rectangle alone";
    view->lockRedraw(true);
    view->lockRedraw(true);
    dynamic_cast<epiUiBitmapImage*>(view->childAt(1))->setImage(epiCode("irOf"), nullptr);
    view->childAt(0)->setVisible(false, true);
    view->lockRedraw(false);
    EXPECT_TRUE(root->takeDirty().isEmpty()) << "one unlock of two repaints nothing";
    view->lockRedraw(false);
    EXPECT_EQ(root->takeDirty(), epiRect(10, 10, 40, 40)) << "both changes in one repaint";
    paint(root);
    EXPECT_EQ(surface.blits, 1);
    EXPECT_EQ(pixel(15, 15), 0x000000u);
    EXPECT_EQ(pixel(35, 35), 0x000000u);
}

TEST_F(BitmapWidgets, DecorationFramesItsChildrenInTheColoursOfItsState)
{
    layout("deco.xml", "<name>deco</name>",
           item("iBim", "fill", at(0, 0, 10, 10) + attrs({{"irOf", "poff.png"}})));
    epiUbo* root = window(10, 10,
                          item("iBde", "deco",
                               at(0, 0, 10, 10) + attrs({{"chil", "deco.xml"},
                                                         {"fdim", "2"},
                                                         {"fdon", "1"},
                                                         {"frof", "255,0,0"},
                                                         {"fron", "0,0,255"}})));
    struct Row
    {
        float value;
        uint32_t edge, inside, centre;
    } rows[] = {{0, kRed, kRed, kGreen}, {1, kBlue, kGreen, kGreen}};
    for (const Row& row : rows)
    {
        root->childNamed(epiCode("deco"))->setValue(row.value);
        paint(root);
        EXPECT_EQ(pixel(0, 0), row.edge);
        EXPECT_EQ(pixel(1, 1), row.inside);
        EXPECT_EQ(pixel(5, 5), row.centre);
    }
}

TEST_F(BitmapWidgets, PopupOpensItsRowsAndAClickChoosesOneOrClosesThem)
{
    layout("pop.xml", "<name>pops</name>",
           item("iBpu", "popu",
                at(0, 0, 20, 10) + attrs({{"irOf", "off.png"}, {"irOn", "on.png"}, {"cont", "a\nb\nc"}})));
    struct Row
    {
        const char* enab;
        epiPoint press; // after the click that opens the rows
        int32_t wheel;
        float value;
        int hits;
    } rows[] = {
        {"1", epiPoint(5, 35), 0, 2, 1}, {"1", epiPoint(5, 45), 0, 0, 0},  // under the rows: closes them
        {"1", epiPoint(5, 15), 0, 0, 0}, {"1", epiPoint(-1, -1), 5, 2, 1}, // the wheel stops at the last
        {"0", epiPoint(5, 35), 1, 0, 0}, // a disabled container's children took input before
    };
    for (const Row& row : rows)
    {
        epiUbo* root =
            window(20, 50,
                   item("iCon", "cbox", at(0, 0, 20, 50) + attrs({{"chil", "pop.xml"}, {"enab", row.enab}})));
        auto* popup =
            dynamic_cast<epiUiBitmapPopup*>(root->childNamed(epiCode("cbox"))->childNamed(epiCode("popu")));
        ASSERT_NE(popup, nullptr);
        HitCounter counter;
        counter.listen(popup);
        root->mouseDown(epiPoint(5, 5));
        root->mouseUp(epiPoint(5, 5));
        paint(root);
        EXPECT_EQ(popup->openList() != nullptr, *row.enab == '1') << "enab " << row.enab;
        if (popup->openList() != nullptr)
        {
            EXPECT_EQ(std::pair(pixel(5, 15), pixel(5, 25)), std::pair(kBlue, kRed)) << "the chosen row lit";
        }
        if (row.press.x_ >= 0)
            root->mouseDown(row.press);
        root->mouseWheel(epiPoint(5, 5), row.wheel);
        EXPECT_EQ(popup->getValue(), row.value) << row.press.y_;
        EXPECT_EQ(counter.hits, row.hits) << row.press.y_;
        EXPECT_EQ(popup->openList() == nullptr, row.press.x_ >= 0 || *row.enab == '0');
    }
    // The face without rows of its own: a click moves to the next entry, round to the first.
    epiUiBitmapSubPopup face;
    const epiText entries("x\ny");
    face.setAttribute(epiCode("cont"), &entries);
    face.click();
    face.click();
    EXPECT_EQ(std::pair(face.getValue(), face.kind()), std::pair(0.0f, epiCode("iBpu")));
}

} // namespace
