// The main panel's own widgets and the metronome's value lists, made by control name through the
// real loader and factory from layout text.

#include "host/ui/StripWidgets.h"
#include "epi/ui/epiKeyboard.h"
#include "host/ui/ValueLookup.h"
#include "tests/epi/ui/WidgetTestSupport.h"

#include <filesystem>

using namespace Korvalind3Host;

namespace
{

constexpr uint32_t kRed = 0xFF0000;

class StripWidgets : public WidgetFixture
{
protected:
    void SetUp() override
    {
        WidgetFixture::SetUp();
        registerStripWidgets();
        image("off.png", 10, 10, {kRed});
        image("on.png", 10, 10, {0x0000FF});
    }
    /** Presses and releases at `point` of the window. */
    static void click(epiUbo* root, epiPoint point)
    {
        root->mouseDown(point);
        root->mouseUp(point);
    }
    static void drag(epiUbo* root, epiPoint from, int up)
    {
        root->mouseDown(from);
        root->mouseDragged(epiPoint(from.x_, from.y_ - up));
        root->mouseUp(epiPoint(from.x_, from.y_ - up));
    }
    epiKeyboard* keys() { return dynamic_cast<epiKeyboard*>(app.keyboard()); }
};

TEST_F(StripWidgets, TempoRollingTextCarriesTheWholeList)
{
    ValueLookupTextLinear tempo;
    fillMetronomeList(tempo, *metronomeList(epiCode("meTe")));
    epiUbo* root = window(40, 20, item("iBtr", "meTe", at(0, 0, 40, 20) + attrs({{"Clik", "1"}})));
    epiUbo* roll = root->childNamed(epiCode("meTe"));
    const epiText content = tempo.joined();
    roll->setAttribute(epiCode("cont"), &content);
    EXPECT_EQ(roll->text(), "60.0") << "a bound list starts on its first entry";
    roll->setValue(1800);
    EXPECT_EQ(roll->text(), "240.0");
    roll->setValue(0);
    drag(root, epiPoint(5, 10), 4);
    EXPECT_FLOAT_EQ(tempo.numberAt(int32_t(roll->getValue())), 60.2f);
}

TEST_F(StripWidgets, RecordButtonBlinksEveryHalfSecondUntilSetOtherwise)
{
    epiUbo* root = window(
        10, 10, item("iBck", "tnRe", at(0, 0, 10, 10) + attrs({{"irOf", "off.png"}, {"irOn", "on.png"}})));
    auto* record = dynamic_cast<UiCheckboxRecording*>(root->childNamed(epiCode("tnRe")));
    ASSERT_NE(record, nullptr);
    record->setValue(2);
    advance(0.25, 0.001);
    for (const bool on : {true, false, true, false}) // at 0.25, 0.75, 1.25 and 1.75 seconds
    {
        EXPECT_EQ(record->behaviourObject()->isOn(), on);
        advance(0.5, 0.001);
    }
    EXPECT_EQ(record->getValue(), 2.0f);
    record->setValue(0);
    advance(1.0);
    EXPECT_FALSE(record->behaviourObject()->isOn());
    EXPECT_FALSE(record->timerActive());
    paint(root);
    EXPECT_EQ(pixel(5, 5), kRed);
}

TEST_F(StripWidgets, SeparateStatusOnlyNotifiesAndOnlyWhenEnabled)
{
    for (const bool enabled : {true, false})
    {
        epiUbo* root =
            window(10, 10,
                   item("iBck", "tnPl", at(0, 0, 10, 10) + attrs({{"irOf", "off.png"}, {"ipOf", "on.png"}})));
        auto* play = dynamic_cast<UiCheckboxSeparateStatus*>(root->childNamed(epiCode("tnPl")));
        ASSERT_NE(play, nullptr);
        play->setEnabled(enabled);
        HitCounter counter;
        counter.listen(play);
        click(root, epiPoint(5, 5));
        EXPECT_EQ(counter.hits, enabled ? 1 : 0);
        EXPECT_EQ(play->getValue(), 0.0f) << "the owner sets the state, not the click";
    }
}

TEST_F(StripWidgets, InputSelectorCyclesThroughItsThreeInputs)
{
    epiUbo* root =
        window(20, 10, item("iBst", "iSl0", "<text>in</text>" + at(0, 0, 20, 10) + attrs({{"Clik", "1"}})));
    auto* input = dynamic_cast<UiInputSelector*>(root->childNamed(epiCode("iSl0")));
    ASSERT_NE(input, nullptr);
    EXPECT_EQ(input->text(), "i1") << "the input's name, not the layout's text";
    for (const char* expected : {"i2", "iS", "i1"})
    {
        click(root, epiPoint(5, 5));
        EXPECT_EQ(input->text(), expected);
    }
    input->setEnabled(false);
    click(root, epiPoint(5, 5));
    EXPECT_EQ(input->text(), "i1");
}

TEST_F(StripWidgets, ClicksGoThroughTheBlinkImageToTheButtonUnderIt)
{
    epiUbo* root = window(20, 20,
                          item("iBck", "ckEn", at(0, 0, 20, 20) + attrs({{"irOf", "off.png"}})) +
                              item("iBim", "blin", at(5, 5, 10, 10) + attrs({{"irOf", "on.png"}})));
    HitCounter counter;
    counter.listen(root->childNamed(epiCode("ckEn")));
    click(root, epiPoint(10, 10));
    EXPECT_EQ(counter.hits, 1);
    EXPECT_EQ(root->childValue(epiCode("ckEn")), 1.0f);
}

TEST_F(StripWidgets, BusyBarShowsItsLevelFromTheLeft)
{
    image("footmeterbar.png", 40, 4, {kRed});
    epiUbo* root = window(40, 4, item("iBim", "levb", at(0, 0, 40, 4)));
    root->setChildValue(epiCode("levb"), 50);
    paint(root);
    EXPECT_EQ(pixel(19, 2), kRed);
    EXPECT_EQ(pixel(21, 2), 0x000000u);
}

TEST_F(StripWidgets, KnobResetsOnDoubleClickAndDragsFinelyWithShift)
{
    image("levelknob.png", 10, 10, {kRed});
    image("levelknoboff.png", 10, 10, {0x0000FF});
    epiUbo* root = window(10, 60,
                          item("iBsc", "tVol",
                               at(0, 0, 10, 60) + attrs({{"irOf", "levelknob.png"},
                                                         {"uMin", "0"},
                                                         {"uMax", "100000"},
                                                         {"Smoo", "0"},
                                                         {"defl", "300"}})));
    auto* knob = dynamic_cast<BetterBitmapScroll*>(root->childNamed(epiCode("tVol")));
    ASSERT_NE(knob, nullptr);
    HitCounter counter;
    counter.listen(knob);
    struct Row
    {
        bool shift;
        int up;
        float value; // 50 pixels of travel for 0..1000
    } rows[] = {{false, 20, 400}, {true, 20, 440}, {false, -10, 240}};
    for (const Row& row : rows)
    {
        keys()->setModifiers(row.shift, false, false, false);
        const epiPoint thumb = knob->thumbRect().corner(8);
        drag(root, thumb, row.up);
        EXPECT_FLOAT_EQ(knob->getValue(), row.value) << "shift " << row.shift;
        EXPECT_FLOAT_EQ(knob->sensitivity(), 1.0f) << "released: full speed again";
        app.clock += 1.0;
    }
    keys()->setModifiers(false, false, false, false);
    counter.hits = 0;
    const epiPoint thumb = knob->thumbRect().corner(8);
    click(root, thumb);
    app.clock += 0.2;
    click(root, thumb);
    EXPECT_FLOAT_EQ(knob->getValue(), 300);
    EXPECT_EQ(counter.hits, 1);

    knob->setEnabled(false);
    epiText look;
    knob->getAttribute(epiCode("irOf"), look);
    EXPECT_EQ(look, "levelknoboff.png");
    drag(root, knob->thumbRect().corner(8), 20);
    EXPECT_FLOAT_EQ(knob->getValue(), 300);
}

TEST_F(StripWidgets, FileListScrollBarMapsItsThumbToTheValue)
{
    image("thumb.png", 10, 20, {kRed});
    struct Row
    {
        const char* maximum;
        int down;  // pixels dragged down
        int wheel; // then a wheel turn
        int32_t thumb;
        float value;
        int hits;
    } rows[] = {
        {"100", 40, 0, 40, 50, 1},   // 100 * 40 / 79
        {"100", 200, 0, 79, 100, 1}, // held at the end of the travel
        {"100", 0, -3, 3, 3, 1},     // the wheel moves the thumb against its turn
        {"0", 40, -3, 0, 0, 0},      // no range: the thumb stays
    };
    for (const Row& row : rows)
    {
        epiUbo* root = window(
            10, 100,
            item("iBim", "lscr", at(0, 0, 10, 100) + attrs({{"irOf", "thumb.png"}, {"max_", row.maximum}})));
        auto* bar = dynamic_cast<UiScrollBar*>(root->childNamed(epiCode("lscr")));
        ASSERT_NE(bar, nullptr);
        HitCounter counter;
        counter.listen(bar);
        drag(root, epiPoint(5, 10), -row.down);
        root->mouseWheel(epiPoint(5, 50), row.wheel);
        EXPECT_EQ(bar->thumb(), row.thumb) << "max " << row.maximum << " down " << row.down;
        EXPECT_FLOAT_EQ(bar->getValue(), row.value);
        EXPECT_EQ(counter.hits, row.hits);
    }
}

TEST_F(StripWidgets, ClickPopupClosesOnAClickRoundItsItemsOnly)
{
    const std::string folder(app.resources()->media()->rootPathRef()->cstr());
    std::filesystem::copy_file(KV3_SOURCE_DIR "/resources/layouts/clickPopup.xml",
                               folder + "layouts/clickPopup.xml");
    struct Row
    {
        epiPoint click;
        bool open;
    } rows[] = {{epiPoint(10, 10), false},
                {epiPoint(800, 150), false},
                {epiPoint(711, 52), true},
                {epiPoint(800, 120), true}};
    for (const Row& row : rows)
    {
        epiUbo* root = window(
            850, 165, item("iCon", "ckpo", at(694, 8, 150, 124) + attrs({{"chil", "clickPopup.xml"}})));
        auto* popup = dynamic_cast<UiClickPopup*>(root->childNamed(epiCode("ckpo")));
        ASSERT_NE(popup, nullptr);
        click(root, row.click);
        EXPECT_EQ(popup->isVisible(), row.open) << row.click.x_ << "," << row.click.y_;
    }
}

} // namespace
