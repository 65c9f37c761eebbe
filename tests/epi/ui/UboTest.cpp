// The UI object: lookups, the tree, hits climbing to the panel, mouse routing, anchors, and the
// behaviours driven by mouse events through the tree, with the draggers' values and animation.

#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiUiResources.h"
#include "tests/epi/ui/UiTestSupport.h"

#include <cstdio>
#include <functional>

namespace
{

using Ubo = UiFixture;

TEST_F(Ubo, UnknownNamesAndIndicesGiveOneInertObject)
{
    epiUbo* root = loadText("<size>100,100</size>", item("ubob", "aaaa"));
    epiUbo* first = root->childNamed(epiCode("none"));
    ASSERT_NE(first, nullptr);
    first->setVisible(true, true);
    first->setTextChars("x");
    first->click();
    EXPECT_EQ(root->childAt(7), first);
    EXPECT_EQ(root->childAt(-1), first);
    EXPECT_EQ(root->childCount(), 1);
}

TEST_F(Ubo, TreeEdits)
{
    epiUbo* root =
        loadText("<size>100,100</size>", item("ubob", "aaaa") + item("ubob", "bbbb") + item("ubob", "cccc"));
    epiUbo* a = root->childAt(0);
    EXPECT_FALSE(root->addChild(a)); // already there
    epiUbo* b = root->childAt(1);
    b->retain();
    ASSERT_TRUE(root->removeChild(b));
    for (int32_t i = 0; i < root->childCount(); ++i)
        EXPECT_EQ(root->childAt(i)->childIndex(), i);
    EXPECT_EQ(b->parent(), nullptr);
    EXPECT_TRUE(root->addChild(b));
    EXPECT_EQ(b->childIndex(), 2);
    b->release();
}

TEST_F(Ubo, HitsClimbToEveryPanelWithTheNameTheyCameThrough)
{
    layout("inner.xml", "<size>10,10</size>", item("ubob", "") + item("ubob", "leaf"));
    layout("outer.xml", "<size>100,100</size>",
           item("tPan", "midl", attrs({{"chil", "inner.xml"}})) + item("tPan", "", ""));
    auto* top = dynamic_cast<CommandPanel*>(load("outer.xml", epiCode("tPan")));
    ASSERT_NE(top, nullptr);
    auto* mid = dynamic_cast<CommandPanel*>(top->childNamed(epiCode("midl")));
    ASSERT_NE(mid, nullptr);

    mid->childAt(0)->hit(); // unnamed: no command at this level, but the hit still climbs
    EXPECT_TRUE(mid->commands.empty());
    EXPECT_EQ(top->commands, std::vector<uint32_t>{epiCode("midl")});
    mid->childAt(1)->hit();
    EXPECT_EQ(mid->commands, std::vector<uint32_t>{epiCode("leaf")});
    // Out-of-range indices name nothing; a panel with a parent still climbs.
    mid->onChildHit(-1);
    mid->onChildHit(99);
    EXPECT_EQ(mid->commands.size(), 1u);
    EXPECT_EQ(top->commands.size(), 4u);
    auto* unnamed = dynamic_cast<CommandPanel*>(top->childAt(1));
    unnamed->onChildHit(0);
    EXPECT_TRUE(unnamed->commands.empty());
    EXPECT_EQ(top->commands.size(), 4u); // a hit of an unnamed panel names nothing above it
}

TEST_F(Ubo, PressGoesToTheTopmostVisibleHittableChildEdgesIncluded)
{
    epiUbo* root =
        loadText("<size>100,100</size>",
                 item("tBtn", "undr", place(0, 0, 50, 50)) + item("tBtn", "over", place(20, 20, 30, 30)) +
                     item("tBtn", "hide", place(0, 0, 100, 100) + attrs({{"visi", "0"}})));
    auto* under = dynamic_cast<TestWidget*>(root->childAt(0));
    auto* over = dynamic_cast<TestWidget*>(root->childAt(1));
    click(root, 50, 50); // the bottom right edge of "over"
    EXPECT_EQ(over->hits, 1);
    EXPECT_EQ(under->hits, 0);
    click(root, 19, 19);
    EXPECT_EQ(under->hits, 1);
}

TEST_F(Ubo, ExclusiveHitModeOffersThePressDownTheStackUntilOneCaptures)
{
    epiUbo* root =
        loadText("<size>100,100</size>" + attrs({{"exhm", "1"}}),
                 item("tBtP", "base", "<size>100,100</size>") + item("ubob", "glas", "<size>100,100</size>"));
    auto* button = dynamic_cast<TestWidget*>(root->childAt(0));
    root->mouseDown(epiPoint(5, 5));
    EXPECT_EQ(root->capture(), button);
    root->mouseUp(epiPoint(5, 5));
    EXPECT_EQ(button->hits, 1);
}

TEST_F(Ubo, TwoAnchorsStretchAgainstTheDesignSize)
{
    epiUbo* root =
        loadText("<size>100,80</size>",
                 item("ubob", "strt", place(10, 10, 80, 60) + attrs({{"mgTL", "1"}, {"mgBR", "3"}})) +
                     item("ubob", "corn", place(90, 70, 5, 5) + attrs({{"mgTL", "3"}})));
    root->setSize(200, 100);
    root->relayout();
    EXPECT_EQ(root->childAt(0)->frame(), epiRect(10, 10, 190, 90));
    // Only its top left follows the corner: the bottom right stays where it was.
    EXPECT_EQ(root->childAt(1)->frame(), epiRect(190, 90, 95, 75));
}

class Unsubscriber : public epiApplicationObject
{
public:
    void onEvent(uint32_t code, epiApplicationObject* sender, intptr_t) override
    {
        ++heard;
        sender->unsubscribe(code, this);
        if (releaseSelf)
            release();
    }
    int heard = 0;
    bool releaseSelf = false;
};

TEST_F(Ubo, ASubscriberThatLeavesOrReleasesItselfInOnEventIsSafe)
{
    epiUbo* root = loadText("<size>100,100</size>", item("ubob", "aaaa"));
    epiUbo* child = root->childAt(0);
    Unsubscriber staying;
    auto* leaving = new Unsubscriber();
    leaving->startRefCount();
    leaving->setOwner(&app);
    leaving->releaseSelf = true;
    child->subscribe(epiCode("iHit"), &staying, 0);
    child->subscribe(epiCode("iHit"), leaving, 0);
    child->hit();
    child->hit();
    EXPECT_EQ(staying.heard, 1);
    EXPECT_EQ(app.disposedCount(), 1);
    app.purgeDisposed();
}

/** Records each call that reaches the window's surface as "name rect clip". */
class RecordingSurface : public epiUiSurface
{
public:
    void fillRect(const epiRect& r, const epiRect& c, epiColour) override { log("fill", r, c); }
    void frameRect(const epiRect& r, const epiRect& c, epiColour) override { log("frame", r, c); }
    void drawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour) override
    {
        log("line", epiRect(x1, y1, x2, y2), epiRect());
    }
    void drawText(uint32_t, int32_t, const epiRect& r, const epiRect& c, const epiText&, epiColour) override
    {
        log("text", r, c);
    }
    int32_t textWidth(uint32_t, const epiText& text) override { return int32_t(text.size()); }
    void drawSystemText(const epiRect& r, const epiRect& c, const epiText&, int32_t, bool, int32_t,
                        epiColour) override
    {
        log("system", r, c);
    }
    void blitStretched(epiBitmap*, const epiRect&, const epiRect& d, const epiRect& c) override
    {
        log("copy", d, c);
    }
    void blitAlpha(epiBitmap*, const epiRect&, const epiRect& d, const epiRect& c) override
    {
        log("blend", d, c);
    }
    void drawShape(const epiShapeRequest& q) override { log(epiCodeText(q.kind).c_str(), q.rect, q.clip); }

    void log(const char* name, const epiRect& r, const epiRect& c)
    {
        char line[120];
        std::snprintf(line, sizeof line, "%s %d,%d,%d,%d %d,%d,%d,%d", name, r.left_, r.top_, r.right_,
                      r.bottom_, c.left_, c.top_, c.right_, c.bottom_);
        calls.push_back(line);
    }
    std::vector<std::string> calls;
};

TEST_F(Ubo, EveryDrawingCallOfALeafReachesTheWindowsSurfaceInTheWindowsCoordinates)
{
    layout("inner.xml", "<size>50,50</size>", item("ubob", "leaf", place(5, 5, 10, 10)));
    layout("w.xml", "<size>200,100</size>",
           item("iCon", "box1", place(10, 20, 50, 50) + attrs({{"chil", "inner.xml"}})));
    auto* window = dynamic_cast<epiUiWindowBase*>(load("w.xml", epiCode("iWin")));
    ASSERT_NE(window, nullptr);
    RecordingSurface surface;
    window->setSurface(&surface);
    epiUbo* leaf = window->childNamedIn(epiCode("box1"), epiCode("leaf"));
    ASSERT_EQ(leaf->name(), epiCode("leaf"));
    epiBitmap opaque, blended;
    opaque.setUsesAlpha(false);
    blended.setUsesAlpha(true);
    const epiRect r(0, 0, 4, 4), clip(0, 0, 10, 10);
    epiShapeRequest rectangleOutline; // no rectangle: the leaf's bounds
    rectangleOutline.kind = epiCode("recP");
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] { leaf->fillRect(r, clip, {}); }, "fill 15,25,19,29 15,25,25,35"},
        {[&] { leaf->frameRectDraw(r, clip, {}); }, "frame 15,25,19,29 15,25,25,35"},
        {[&] { leaf->drawText(0, 0, r, clip, epiText("a"), {}); }, "text 15,25,19,29 15,25,25,35"},
        {[&] { leaf->drawSystemText(r, clip, epiText("a"), 9, false, 0, {}); },
         "system 15,25,19,29 15,25,25,35"},
        {[&] { leaf->blitStretched(&opaque, r, r, clip); }, "copy 15,25,19,29 15,25,25,35"},
        {[&] { leaf->blitAlpha(&opaque, r, r, clip); }, "blend 15,25,19,29 15,25,25,35"},
        {[&] { leaf->blitBitmap(&opaque, r, clip, true); }, "blend 15,25,19,29 15,25,25,35"},
        {[&] { leaf->blitPart(&opaque, r, r, clip); }, "copy 15,25,19,29 15,25,25,35"},
        {[&] { leaf->blitPart(&blended, r, r, clip); }, "blend 15,25,19,29 15,25,25,35"},
        {[&] { leaf->drawShape(rectangleOutline); }, "recP 15,25,25,35 15,25,15,25"},
        {[&] { leaf->fillEllipse(r, clip, {}); }, "ovaF 15,25,19,29 15,25,25,35"},
        {[&] { leaf->frameEllipse(r, clip, {}, 2); }, "ovaP 15,25,19,29 15,25,25,35"},
        // A horizontal line stays inside the leaf; a vertical one below it is dropped.
        {[&] { leaf->drawLine(-100, 1, 100, 1, {}); }, "line 15,26,25,26 0,0,0,0"},
        {[&] { leaf->drawLine(3, 50, 3, 60, {}); }, ""},
        {[&] { leaf->blitBitmap(nullptr, r, clip, false); }, ""},
    };
    for (const auto& [call, expected] : rows)
    {
        surface.calls.clear();
        call();
        EXPECT_EQ(surface.calls, *expected ? std::vector<std::string>{expected} : std::vector<std::string>{})
            << expected;
    }
    EXPECT_EQ(leaf->textWidth(0, epiText("abc")), 3);
    window->setSurface(nullptr);
    surface.calls.clear();
    leaf->fillRect(r, clip, {}); // no surface: dropped at the window
    EXPECT_TRUE(surface.calls.empty());
}

TEST_F(Ubo, TheKeyboardFocusChainsUpTheTreeAndKeysGoToTheDeepestFocus)
{
    layout("inner.xml", "<size>50,50</size>", item("tBtn", "leaf") + item("tBtn", "othr"));
    epiUbo* root = loadText("<size>100,100</size>",
                            item("iCon", "box1", attrs({{"chil", "inner.xml"}})) + item("tBtn", "side"));
    epiUbo* box = root->childNamed(epiCode("box1"));
    auto* leaf = dynamic_cast<TestWidget*>(box->childNamed(epiCode("leaf")));
    auto* other = dynamic_cast<TestWidget*>(box->childNamed(epiCode("othr")));
    auto* side = dynamic_cast<TestWidget*>(root->childNamed(epiCode("side")));
    ASSERT_TRUE(leaf && other && side);
    box->pushFocus(leaf);
    EXPECT_EQ(root->focusObject(), leaf); // the box took the root's focus in turn
    box->switchFocus(leaf);               // the same object: still one entry
    box->switchFocus(other);
    EXPECT_EQ(root->focusObject(), other);
    box->popFocus(); // the box's stack is empty: it leaves the root's too
    EXPECT_EQ(root->focusObject(), nullptr);
    EXPECT_EQ(box->focusObject(), nullptr);
    root->switchFocus(side);
    side->subscribe(epiCode("kedo"), leaf, 0);
    leaf->heard.clear();
    root->keyDown(65); // reaches the focus's subscribers, not the root's
    EXPECT_EQ(leaf->heard, std::vector<intptr_t>{intptr_t(epiCode("kedo"))});
}

TEST_F(Ubo, SizesChangeAroundTheCentreForFitChildAndSetSizeFromFrame)
{
    epiUbo* root = loadText("<size>400,400</size>", item("ubob", "wide", place(0, 0, 100, 50)));
    epiUbo* wide = root->childNamed(epiCode("wide"));
    root->fitChild(epiCode("wide"), 1.0f); // wider than 1: the width stays
    EXPECT_EQ(wide->frame(), epiRect(0, -25, 100, 75));
    root->fitChild(epiCode("wide"), 4.0f); // narrower than 4: the height stays
    EXPECT_EQ(wide->frame(), epiRect(-150, -25, 250, 75));
    root->fitChild(epiCode("none"), 2.0f); // no such child: nothing happens
    wide->setSizeFromFrame(epiPoint(40, 20));
    EXPECT_EQ(wide->frame(), epiRect(30, 15, 70, 35));
}

TEST_F(Ubo, ChildEventsReachTheNamedChildAtOnceOrWhenPosted)
{
    epiUbo* root = loadText("<size>100,100</size>", item("tBtn", "butn"));
    auto* button = dynamic_cast<TestWidget*>(root->childAt(0));
    root->childEventA(epiCode("butn"), epiCode("ping"), 0);
    EXPECT_EQ(root->childEventB(epiCode("butn"), 5, 6, 7), 18);
    root->childEventC(epiCode("butn"), 9, 0, 0);
    EXPECT_EQ(button->heard, (std::vector<intptr_t>{intptr_t(epiCode("ping")), 5}));
    advance(0.2);
    EXPECT_EQ(button->heard.back(), 9);
    EXPECT_EQ(root->childEventB(epiCode("none"), 5, 6, 7), 0); // the null child answers nothing
    root->childEventA(epiCode("none"), epiCode("ping"), 0);
}

/** A bitmap table whose "gen/" names are generated, so that no decoder is needed. */
class GeneratingCasts : public epiBitmapCasts
{
public:
    epiBitmap* customBitmap(const char* name, uint32_t) override
    {
        return std::string(name).starts_with("gen/") ? new epiBitmap() : nullptr;
    }
};

TEST_F(Ubo, ThePlatformsBitmapTableSharesAndPurgesItsEntries)
{
    epiFactory::add(epiCode("Appl"), epiCode("Cast"),
                    [](uint32_t) -> epiObject* { return new GeneratingCasts(); });
    epiUiResources resources;
    resources.setOwner(&app);
    ASSERT_TRUE(resources.start());
    epiBitmapCasts* casts = resources.castsRef();
    ASSERT_NE(dynamic_cast<GeneratingCasts*>(casts), nullptr);
    epiBitmap* first = casts->acquireImage("gen/a");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(casts->acquireImage("gen/a"), first); // one entry, used twice
    EXPECT_EQ(casts->useCount("gen/a"), 2);
    const epiText name("gen/a");
    resources.purgeCast(&name); // the next acquire makes a new entry
    EXPECT_EQ(casts->useCount("gen/a"), 0);
    ASSERT_NE(casts->acquireImage("gen/a"), nullptr);
    casts->acquireImage("gen/b");
    resources.purgeAllCasts();
    EXPECT_EQ(casts->count(), 0);
    resources.stop();
    epiFactory::add(epiCode("Appl"), epiCode("Cast"), nullptr);
}

TEST_F(Ubo, FormattedTextsStayWithinTheirBuffers)
{
    epiUbo* root = loadText("<size>100,100</size>", item("ubob", "aaaa"));
    const std::string longWord(3000, 'x');
    root->setChildTextf(epiCode("aaaa"), "%s-%d", longWord.c_str(), 7);
    EXPECT_EQ(root->childAt(0)->text().size(), 999u);
    root->formatText("%s", longWord.c_str()); // the format's length plus 1000 bytes, less the end
    EXPECT_EQ(root->text().size(), 1001u);
    root->formatText("<%d>", 42);
    EXPECT_EQ(root->text(), epiText("<42>"));
}

TEST_F(Ubo, AScrolledContainerHitsAndRepaintsItsContentWhereItShows)
{
    layout("list.xml", "<size>50,200</size>",
           item("tBtn", "row0", place(0, 0, 50, 20)) + item("tBtn", "row5", place(0, 100, 50, 20)));
    layout("w.xml", "<size>200,100</size>",
           item("iCos", "list", place(10, 10, 50, 40) + attrs({{"chil", "list.xml"}})));
    auto* window = dynamic_cast<epiUiWindowBase*>(load("w.xml", epiCode("iWin")));
    auto* list = dynamic_cast<epiUiScrollableContainer*>(window->childAt(0));
    ASSERT_NE(list, nullptr);
    list->scrollTo(0, 95);
    window->takeDirty();
    click(window, 20, 20); // content (10, 105): the sixth row
    EXPECT_EQ(dynamic_cast<TestWidget*>(list->childAt(1))->hits, 1);
    EXPECT_EQ(dynamic_cast<TestWidget*>(list->childAt(0))->hits, 0);
    list->childAt(1)->invalidateAll(); // content y 100 to 120 shows at y 15 to 35 of the window
    EXPECT_EQ(window->takeDirty(), epiRect(10, 15, 60, 35));
    list->childAt(0)->invalidateAll(); // scrolled away: nothing to repaint
    EXPECT_TRUE(window->takeDirty().isEmpty());
}

TEST_F(Ubo, PressDragOffDragOnReleaseGivesOneClickAndWithoutAPressedImageThePressDoes)
{
    epiUbo* root = loadText("<size>100,100</size>", item("tBtP", "butn", place(10, 10, 20, 20)) +
                                                        item("tBtn", "othr", place(60, 60, 20, 20)));
    auto* button = dynamic_cast<TestWidget*>(root->childAt(0));
    auto* other = dynamic_cast<TestWidget*>(root->childAt(1));
    std::vector<bool> pressed;
    root->mouseDown(epiPoint(15, 15));
    EXPECT_EQ(root->capture(), button);
    pressed.push_back(button->pressed());
    root->mouseDragged(epiPoint(60, 60));
    pressed.push_back(button->pressed());
    root->mouseDragged(epiPoint(20, 20));
    pressed.push_back(button->pressed());
    root->mouseUp(epiPoint(20, 20));
    pressed.push_back(button->pressed());
    EXPECT_EQ(pressed, (std::vector<bool>{true, false, true, false}));
    EXPECT_EQ(button->hits, 1);

    // Released off the button, over another: the captured button has the release, and no one a click.
    root->mouseDown(epiPoint(15, 15));
    root->mouseDragged(epiPoint(70, 70));
    root->mouseUp(epiPoint(70, 70));
    EXPECT_EQ(root->capture(), nullptr);
    EXPECT_EQ(button->hits, 1);
    EXPECT_EQ(other->hits, 0);

    // Without a pressed image the press is the click, and nothing after it counts.
    root->mouseDown(epiPoint(65, 65));
    EXPECT_EQ(other->hits, 1);
    EXPECT_FALSE(other->pressed());
    root->mouseDragged(epiPoint(15, 15));
    root->mouseUp(epiPoint(65, 65));
    EXPECT_EQ(other->hits, 1);
}

TEST_F(Ubo, SimulatedClickFlashesThePressedState)
{
    epiUbo* root = loadText("<size>100,100</size>", item("tBtP", "butn", "<size>20,20</size>"));
    auto* button = dynamic_cast<TestWidget*>(root->childAt(0));
    button->behaviourClick();
    EXPECT_TRUE(button->pressed());
    EXPECT_EQ(button->hits, 1);
    advance(0.15);
    EXPECT_TRUE(button->pressed());
    advance(0.1);
    EXPECT_FALSE(button->pressed());
}

TEST_F(Ubo, CheckBoxFlipsAndRadioSelectsWithinItsGroup)
{
    epiUbo* root =
        loadText("<size>100,100</size>",
                 item("tChk", "chek", place(0, 0, 10, 10)) +
                     item("tRad", "radA", place(20, 0, 10, 10) + attrs({{"fagr", "5"}, {"fain", "0"}})) +
                     item("tRad", "radB", place(40, 0, 10, 10) + attrs({{"fagr", "5"}, {"fain", "1"}})));
    click(root, 5, 5);
    EXPECT_EQ(root->childAt(0)->getValue(), 1.0f);
    click(root, 5, 5);
    EXPECT_EQ(root->childAt(0)->getValue(), 0.0f);

    click(root, 45, 5);
    EXPECT_EQ(root->selectedInGroupOf(epiCode("radA")), 1);
    EXPECT_EQ(root->childAt(1)->getValue(), 0.0f);
    click(root, 25, 5);
    EXPECT_EQ(root->selectedInGroupOf(epiCode("radB")), 0);
    EXPECT_EQ(root->childAt(2)->getValue(), 0.0f);
}

TEST_F(Ubo, DraggerValueLimitsAndUnchangedValues)
{
    epiUbo* root =
        loadText("<size>100,100</size>",
                 item("tDrg", "drag",
                      "<size>10,10</size>" +
                          attrs({{"uMin", "0"}, {"uMax", "1000"}, {"lMax", "800"}, {"dMax", "50"}})));
    auto* widget = dynamic_cast<TestWidget*>(root->childAt(0));
    epiUiBehaviour* dragger = widget->behaviourObject();
    EXPECT_TRUE(dragger->setUserValue(9.5f));
    EXPECT_FLOAT_EQ(dragger->userValue(), 8.0f); // the high limit wins over the range
    EXPECT_EQ(dragger->displayFloat(), 40.0f);
    const int redraws = widget->redraws;
    EXPECT_FALSE(dragger->setUserValue(8.0f));
    EXPECT_EQ(widget->redraws, redraws);
    // A change too small to move the display still counts, without a redraw.
    EXPECT_TRUE(dragger->setUserValue(7.0f));
    const int moved = widget->redraws;
    EXPECT_GT(moved, redraws);
    EXPECT_TRUE(dragger->setUserValue(7.01f));
    EXPECT_EQ(widget->redraws, moved);
}

TEST_F(Ubo, SmoothDraggerRunsTheRangeInATenthAndRestartsWhenReversedOrMovesAtOnceWithoutSmoothing)
{
    epiUbo* root = loadText("<size>100,100</size>", item("tSmo", "knob", attrs({{"Smoo", "1000"}})) +
                                                        item("tSmo", "inst", attrs({{"Smoo", "0"}})));
    auto* dragger = dynamic_cast<epiUiBehaviourSmoothDragger*>(root->childAt(0)->behaviourObject());
    ASSERT_NE(dragger, nullptr);
    root->childAt(1)->behaviourObject()->setUserValue(60.0f); // without smoothing: at once
    EXPECT_EQ(root->childAt(1)->behaviourObject()->displayFloat(), 60.0f);
    EXPECT_EQ(app.windowManager()->animationCount(), 0);
    dragger->setUserValue(100.0f);
    EXPECT_TRUE(app.windowManager()->animationTimerOn());
    advance(0.09);
    EXPECT_GT(dragger->shown(), 0);
    EXPECT_LT(dragger->shown(), 100);
    advance(0.05); // the first tick of the animation timer after 0.1 seconds
    EXPECT_EQ(dragger->shown(), 100);
    EXPECT_FALSE(dragger->animating());
    EXPECT_FALSE(app.windowManager()->animationTimerOn());

    dragger->setUserValue(0.0f);
    advance(0.05);
    const int32_t midway = dragger->shown();
    ASSERT_GT(midway, 0);
    ASSERT_LT(midway, 100);
    dragger->setUserValue(100.0f); // reversed mid-flight
    advance(0.045);
    EXPECT_GT(dragger->shown(), midway);
    EXPECT_LT(dragger->shown(), 100);
    advance(0.1);
    EXPECT_EQ(dragger->shown(), 100);
}

TEST_F(Ubo, TriggeredDraggerSnapsToItsSteps)
{
    epiUbo* root =
        loadText("<size>100,100</size>",
                 item("tTrg", "trig", attrs({{"Smoo", "0"}, {"FrP0", "5"}, {"FrP1", "20"}, {"FrP2", "70"}})));
    auto* dragger = dynamic_cast<epiUiBehaviourTriggeredDragger*>(root->childAt(0)->behaviourObject());
    ASSERT_NE(dragger, nullptr);
    EXPECT_TRUE(dragger->setUserValue(1.7f));
    EXPECT_EQ(dragger->displayFloat(), 20.0f);
    EXPECT_TRUE(dragger->setUserValue(9.0f));
    EXPECT_EQ(dragger->userValue(), 2.0f);
    EXPECT_FALSE(dragger->setUserValue(2.0f));
    dragger->setStep(0, 9); // a new list
    EXPECT_EQ(dragger->steps(), std::vector<int32_t>{9});
    dragger->setStep(3, 1);
    dragger->setStep(1, 0); // cut at index 1
    EXPECT_EQ(dragger->steps(), std::vector<int32_t>{9});
}

} // namespace
