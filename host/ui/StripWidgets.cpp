#include "host/ui/StripWidgets.h"

#include "epi/ui/epiApplication.h"
#include "epi/ui/epiKeyboard.h"
#include "epi/ui/epiUiBitmapView.h"

#include <algorithm>
#include <cstdlib>

namespace Korvalind3Host
{

// ---------------------------------------------------------------------------------------------
// Check boxes

void UiCheckboxSeparateStatus::click()
{
    if (enabled_)
        hit();
}

void UiCheckboxRecording::setValue(float value)
{
    const auto state = int32_t(value);
    if (state == 2)
    {
        state_ = 2;
        if (behaviour_ != nullptr)
            behaviour_->setOn(true);
        if (!timerActive())
            startTimer(kBlinkSeconds, false, false);
        return;
    }
    if (timerActive())
        removeTimerNow();
    state_ = state;
    if (behaviour_ != nullptr)
        behaviour_->setOn(state != 0);
}

float UiCheckboxRecording::getValue()
{
    return float(state_);
}

void UiCheckboxRecording::onTimer()
{
    if (behaviour_ != nullptr)
        behaviour_->setOn(!behaviour_->isOn());
}

// ---------------------------------------------------------------------------------------------
// Input selector

namespace
{

const char* const kInputTexts[] = {"i1", "i2", "iS"};

} // namespace

UiInputSelector::UiInputSelector()
{
    text_ = kInputTexts[0];
}

void UiInputSelector::notifyCreated()
{
    showInput(input_);
    epiUiBitmapText::notifyCreated();
}

void UiInputSelector::showInput(int32_t input)
{
    input_ = input;
    setTextChars(kInputTexts[input]);
}

void UiInputSelector::mouseDown(const epiPoint&)
{
    if (!enabled_)
        return;
    showInput((input_ + 1) % 3);
    hit();
}

void UiInputSelector::setValue(float value)
{
    const auto input = int32_t(value);
    if (input >= 0 && input < 3)
        showInput(input);
}

// ---------------------------------------------------------------------------------------------
// Busy level

void UiBusyLevelBar::notifyCreated()
{
    if (images_[kOff] == nullptr)
        setImage(epiCode("irOf"), acquireImage(epiText("footmeterbar.png")));
    epiUiBitmapImage::notifyCreated();
}

void UiBusyLevelBar::setValue(float value)
{
    level_ = int32_t(value);
    invalidateAll();
}

void UiBusyLevelBar::draw(const epiRect& rect)
{
    epiBitmap* bar = images_[kOff];
    if (bar == nullptr)
        return;
    const int32_t cut = std::min(bar->width(), frame_.width() * std::clamp(level_, 0, 100) / 100);
    const epiRect part(0, 0, cut, std::min(bar->height(), frame_.height()));
    if (part.isEmpty())
        return;
    drawPart(bar, part, part, rect);
}

// ---------------------------------------------------------------------------------------------
// Knob

void BetterBitmapScroll::setEnabled(bool flag)
{
    if (epiBitmap* look = acquireImage(epiText(flag ? "levelknob.png" : "levelknoboff.png")))
        setImage(epiCode("irOf"), look);
    epiUiBitmapScroll::setEnabled(flag);
}

void BetterBitmapScroll::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("defl"))
        defaultValue_ = value;
    else
        epiUiBitmapScroll::setAttributeInt(code, value);
}

bool BetterBitmapScroll::isDoubleClick(const epiPoint& point)
{
    epiApplication* app = epiApplicationOf(this);
    const double now = app != nullptr ? app->now() : 0.0;
    const bool twice = now - lastPress_ <= kDoubleClickSeconds &&
                       std::abs(point.x_ - lastPoint_.x_) <= kDoubleClickPixels &&
                       std::abs(point.y_ - lastPoint_.y_) <= kDoubleClickPixels;
    // A third press starts a new pair.
    lastPress_ = twice ? -1.0e9 : now;
    lastPoint_ = point;
    return twice;
}

void BetterBitmapScroll::mouseDown(const epiPoint& point)
{
    if (!enabled_)
        return;
    if (isDoubleClick(point) && behaviour_ != nullptr)
    {
        behaviour_->setUserValue(float(defaultValue_));
        hit();
    }
    auto* keys = dynamic_cast<epiKeyboard*>(keyboard());
    if (keys != nullptr && keys->isShift())
        setAttributeInt(epiCode("Sens"), 10);
    epiUiBitmapScroll::mouseDown(point);
}

void BetterBitmapScroll::mouseUp(const epiPoint& point)
{
    setAttributeInt(epiCode("Sens"), 100);
    epiUiBitmapScroll::mouseUp(point);
}

// ---------------------------------------------------------------------------------------------
// File list's scroll bar

void UiScrollBar::computeRange()
{
    const epiBitmap* thumb = images_[kOff];
    range_ = maximum_ > minimum_ ? frame_.height() - (thumb != nullptr ? thumb->height() : 0) : 0;
    range_ = std::max(range_, 0);
    thumb_ = std::clamp(thumb_, 0, std::max(range_ - 1, 0));
}

void UiScrollBar::setFrame(const epiRect& rect)
{
    epiUiBitmapImage::setFrame(rect);
    computeRange();
}

void UiScrollBar::imageChanged(int32_t index)
{
    if (index == kOff)
        computeRange();
}

void UiScrollBar::setAttributeInt(uint32_t code, int32_t value)
{
    if (code != epiCode("max_"))
    {
        epiUiBitmapImage::setAttributeInt(code, value);
        return;
    }
    maximum_ = value;
    computeRange();
    invalidateAll();
}

void UiScrollBar::setEnabled(bool flag)
{
    grabbed_ = grabbed_ && flag;
    epiUiBitmapImage::setEnabled(flag);
}

void UiScrollBar::setValue(float value)
{
    value_ = std::clamp(int32_t(value), minimum_, std::max(minimum_, maximum_));
    if (range_ == 0)
        return;
    const int32_t thumb =
        std::clamp(int32_t(int64_t(value_ - minimum_) * (range_ - 1) / (maximum_ - minimum_)), 0, range_ - 1);
    if (thumb == thumb_)
        return;
    thumb_ = thumb;
    invalidateAll();
}

void UiScrollBar::moveThumb(int32_t position)
{
    const int32_t thumb = std::clamp(position, 0, std::max(range_ - 1, 0));
    if (thumb != thumb_)
    {
        thumb_ = thumb;
        invalidateAll();
    }
    const int32_t value =
        range_ > 1 ? int32_t(int64_t(maximum_ - minimum_) * thumb_ / (range_ - 1)) + minimum_ : minimum_;
    const int32_t limited = std::clamp(value, minimum_, std::max(minimum_, maximum_));
    if (limited == value_)
        return;
    value_ = limited;
    hit();
}

void UiScrollBar::draw(const epiRect& rect)
{
    epiBitmap* thumb = images_[kOff];
    if (thumb == nullptr)
        return;
    drawPart(thumb, thumb->rect(), epiRect(0, thumb_, thumb->width(), thumb_ + thumb->height()), rect);
}

void UiScrollBar::mouseDown(const epiPoint& point)
{
    if (range_ == 0 || !enabled_)
        return;
    grabCapture();
    grabbed_ = true;
    grabY_ = point.y_;
    grabThumb_ = thumb_;
}

void UiScrollBar::mouseDragged(const epiPoint& point)
{
    if (grabbed_ && range_ != 0)
        moveThumb(grabThumb_ - grabY_ + point.y_);
}

void UiScrollBar::mouseUp(const epiPoint&)
{
    if (!grabbed_)
        return;
    grabbed_ = false;
    releaseCapture();
}

void UiScrollBar::mouseWheel(const epiPoint&, int32_t delta)
{
    if (enabled_ && range_ != 0)
        moveThumb(thumb_ - delta);
}

// ---------------------------------------------------------------------------------------------
// Click popup

void UiClickPopup::onCommand(uint32_t code)
{
    // Hidden, not destroyed: the popup opens again with the choices it holds.
    if (code == epiCode("clos"))
        setVisible(false, true);
    else
        epiUiContainer::onCommand(code);
}

// ---------------------------------------------------------------------------------------------
// Factory

namespace
{

template <class Widget> epiUbo* make()
{
    return new Widget();
}

struct StripName
{
    uint32_t name;
    epiUbo* (*maker)();
};

const StripName kStripNames[] = {
    {epiCode("tnPl"), make<UiCheckboxSeparateStatus>},
    {epiCode("tnAr"), make<UiCheckboxSeparateStatus>},
    {epiCode("tnRe"), make<UiCheckboxRecording>},
    {epiCode("iSl0"), make<UiInputSelector>},
    {epiCode("iSl1"), make<UiInputSelector>},
    {epiCode("iSl2"), make<UiInputSelector>},
    {epiCode("iSl3"), make<UiInputSelector>},
    {epiCode("levb"), make<UiBusyLevelBar>},
    {epiCode("blin"), make<ImageNoClick>},
    {epiCode("tPch"), make<BetterBitmapScroll>},
    {epiCode("tTpo"), make<BetterBitmapScroll>},
    {epiCode("tVol"), make<BetterBitmapScroll>},
    {epiCode("tPan"), make<BetterBitmapScroll>},
    {epiCode("masv"), make<BetterBitmapScroll>},
    {epiCode("inga"), make<BetterBitmapScroll>},
    {epiCode("lscr"), make<UiScrollBar>},
    {epiCode("ckpo"), make<UiClickPopup>},
};

template <uint32_t Kind> epiObject* makeByName(uint32_t name)
{
    if (epiUbo* widget = newStripWidget(name))
        return widget;
    return epiUiNewNeutral(Kind);
}

} // namespace

epiUbo* newStripWidget(uint32_t name)
{
    for (const StripName& entry : kStripNames)
        if (entry.name == name)
            return entry.maker();
    return nullptr;
}

void registerStripWidgets()
{
    const uint32_t family = epiCode("GrUi");
    epiFactory::add(family, epiCode("iBim"), makeByName<epiCode("iBim")>);
    epiFactory::add(family, epiCode("iBfi"), makeByName<epiCode("iBfi")>);
    epiFactory::add(family, epiCode("iBbt"), makeByName<epiCode("iBbt")>);
    epiFactory::add(family, epiCode("iBck"), makeByName<epiCode("iBck")>);
    epiFactory::add(family, epiCode("iBst"), makeByName<epiCode("iBst")>);
    epiFactory::add(family, epiCode("iBtr"), makeByName<epiCode("iBtr")>);
    epiFactory::add(family, epiCode("iBsc"), makeByName<epiCode("iBsc")>);
    epiFactory::add(family, epiCode("iCon"), makeByName<epiCode("iCon")>);
}

} // namespace Korvalind3Host
