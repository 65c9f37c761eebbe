// Behaviours driven by mouse events through the tree, and the draggers' values and animation.

#include "tests/epi/ui/UiTestSupport.h"

namespace
{

using Behaviours = UiFixture;

TEST_F(Behaviours, PressDragOffDragOnReleaseGivesOneClickAndWithoutAPressedImageThePressDoes)
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

TEST_F(Behaviours, SimulatedClickFlashesThePressedState)
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

TEST_F(Behaviours, CheckBoxFlipsAndRadioSelectsWithinItsGroup)
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

TEST_F(Behaviours, DraggerValueLimitsAndUnchangedValues)
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

TEST_F(Behaviours, SmoothDraggerRunsTheRangeInATenthAndRestartsWhenReversedOrMovesAtOnceWithoutSmoothing)
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

TEST_F(Behaviours, TriggeredDraggerSnapsToItsSteps)
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
