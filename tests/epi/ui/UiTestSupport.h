#pragma once

// A started window application over a folder of layouts written by the test, a clock the test
// moves by hand, and widgets with a button or dragger behaviour that the factory makes by kind.

#include "epi/epiResources.h"
#include "epi/ui/epiApplication.h"
#include "epi/ui/epiUbo.h"
#include "epi/ui/epiUiBehaviour.h"
#include "epi/ui/epiWindowManager.h"
#include "tests/epi/TempFolder.h"
#include "tests/epi/ui/LayoutText.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

/** A widget with a behaviour chosen by its kind: 'tBtn' button, 'tChk' check box, 'tRad' radio, 'tDrg'
 * dragger, 'tSmo' smooth dragger, 'tTrg' triggered dragger; 'tBtP' a button with a pressed image (the check
 * box has one too). */
class TestWidget : public epiUbo
{
public:
    explicit TestWidget(uint32_t kind) : kind_(kind) {}
    uint32_t kind() const override { return kind_; }
    bool hasPressedImage() override { return kind_ == epiCode("tBtP") || kind_ == epiCode("tChk"); }
    epiUiBehaviour* newBehaviour() override
    {
        if (kind_ == epiCode("tBtn") || kind_ == epiCode("tBtP"))
            return new epiUiBehave_button();
        if (kind_ == epiCode("tChk"))
            return new epiUiBehave_checkBox();
        if (kind_ == epiCode("tRad"))
            return new epiUiBehave_radio();
        if (kind_ == epiCode("tDrg"))
            return new epiUiBehaviourDragger();
        if (kind_ == epiCode("tSmo"))
            return new epiUiBehaviourSmoothDragger();
        if (kind_ == epiCode("tTrg"))
            return new epiUiBehaviourTriggeredDragger();
        return nullptr;
    }
    void redrawRequest() override
    {
        ++redraws;
        epiUbo::redrawRequest();
    }
    void hit() override
    {
        ++hits;
        epiUbo::hit();
    }
    bool pressed() { return behaviourObject() != nullptr && behaviourObject()->isPressed(); }
    void onEvent(uint32_t code, epiApplicationObject* sender, intptr_t data) override
    {
        heard.push_back(intptr_t(code));
        epiUbo::onEvent(code, sender, data);
    }
    intptr_t query(intptr_t a, intptr_t b, intptr_t c) override
    {
        heard.push_back(a);
        return a + b + c;
    }

    int redraws = 0;
    int hits = 0;
    std::vector<intptr_t> heard; // codes of onEvent() and first arguments of query(), in order

private:
    uint32_t kind_;
};

/** A container that records the commands that climb to it. */
class CommandPanel : public epiUiContainer
{
public:
    void onCommand(uint32_t code) override
    {
        commands.push_back(code);
        epiUiContainer::onCommand(code);
    }
    std::vector<uint32_t> commands;
};

template <uint32_t... Kinds> void registerTestKinds()
{
    (epiFactory::add(epiCode("GrUi"), Kinds, [](uint32_t) -> epiObject* { return new TestWidget(Kinds); }),
     ...);
}

inline void registerTestKinds()
{
    registerTestKinds<epiCode("tBtn"), epiCode("tBtP"), epiCode("tChk"), epiCode("tRad"), epiCode("tDrg"),
                      epiCode("tSmo"), epiCode("tTrg")>();
    epiFactory::add(epiCode("GrUi"), epiCode("tPan"),
                    [](uint32_t) -> epiObject* { return new CommandPanel(); });
}

/** The application with a hand-moved clock. */
class TestApp : public epiWindowApplication
{
public:
    double now() override { return clock; }
    double clock = 1000.0;
};

/**
 * One started application over a fresh resource folder. layout() writes a layout file; load()
 * builds a tree from one through the real loader and factory, under a container root.
 */
class UiFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        registerTestKinds();
        folder_ = folderRoot_.path() + "res.frs/";
        std::filesystem::create_directories(folder_ + "layouts");
        std::ofstream(folder_ + "epi.frs") << "";
        ASSERT_TRUE(app.start());
        ASSERT_TRUE(app.resources()->openPathChars(folder_.c_str()));
    }
    void TearDown() override
    {
        for (epiUbo* root : roots_)
            root->stop();
        app.stop();
    }

    /** Writes layouts/`name`: a root of `rootBody` (name, size, attributes...) with the given items. */
    void layout(const std::string& name, const std::string& rootBody, const std::string& items)
    {
        std::ofstream(folder_ + "layouts/" + name) << layoutFile(rootBody, items);
    }

    /** A root container (made by the factory as kind `kind`) with the layout `name` loaded into it. */
    epiUbo* load(const std::string& name, uint32_t kind = epiCode("iCon"))
    {
        auto* root = dynamic_cast<epiUbo*>(app.newObject(epiCode("GrUi"), kind, 0));
        root->startRefCount();
        root->setOwner(&app);
        root->start();
        root->loadLayoutNamed(epiText(name));
        roots_.push_back(root);
        return root;
    }
    epiUbo* loadText(const std::string& rootBody, const std::string& items)
    {
        layout("t.xml", rootBody, items);
        return load("t.xml");
    }

    /** A press and a release at (`x`, `y`) of `root`. */
    static void click(epiUbo* root, int x, int y)
    {
        root->mouseDown(epiPoint(x, y));
        root->mouseUp(epiPoint(x, y));
    }

    /** Moves the clock on by `seconds` in steps of `step`, pumping the timers after each. */
    void advance(double seconds, double step = 0.01)
    {
        const double end = app.clock + seconds;
        while (app.clock < end - 1e-9)
        {
            app.clock += step;
            app.pumpTimers();
        }
    }

    TestApp app;

private:
    TempFolder folderRoot_;
    std::string folder_;
    std::vector<epiUbo*> roots_;
};
