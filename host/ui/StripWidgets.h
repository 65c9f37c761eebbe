#pragma once

#include "epi/ui/epiUiBitmapWidgets.h"

#include <cstdint>

namespace Korvalind3Host
{

/**
 * A check box that doesn't flip itself: a click only tells the owner (when enabled), and the owner
 * sets the state from the engine, so the button never shows a change the engine refused.
 */
class UiCheckboxSeparateStatus : public epiUiBitmapCheckBox
{
public:
    void click() override;
};

/** The record button: 0 off, 1 on, 2 blinking while armed for auto-record. */
class UiCheckboxRecording : public UiCheckboxSeparateStatus
{
public:
    static constexpr double kBlinkSeconds = 0.5;

    void setValue(float value) override;
    float getValue() override;
    /** Flips the shown state while blinking. */
    void onTimer() override;

private:
    int32_t state_ = 0;
};

/** A track's input, "i1", "i2" or "iS"; each click moves to the next. */
class UiInputSelector : public epiUiBitmapText
{
public:
    UiInputSelector();
    /** The caption is the input's, whatever text the layout gave. */
    void notifyCreated() override;
    void mouseDown(const epiPoint& point) override;
    void setValue(float value) override;
    float getValue() override { return float(input_); }
    void setEnabled(bool flag) { enabled_ = flag; }

    int32_t input() const { return input_; }

private:
    void showInput(int32_t input);

    int32_t input_ = 0;
    bool enabled_ = true;
};

/** The processor's busy level: "footmeterbar.png" cut from the left to the level in percent. */
class UiBusyLevelBar : public epiUiBitmapImage
{
public:
    /** Takes "footmeterbar.png" when the layout gave no image. */
    void notifyCreated() override;
    void setValue(float value) override;
    float getValue() override { return float(level_); }
    void draw(const epiRect& rect) override;

private:
    int32_t level_ = 0;
};

/** An image that takes no mouse: clicks reach what lies under it. */
class ImageNoClick : public epiUiBitmapImage
{
public:
    bool isHittable() override { return false; }
};

/**
 * The strip's knobs: a scroll with a default value ('defl') that a double-click returns to, and a
 * fine drag (a tenth of the speed) while Shift is held. Disabled it shows "levelknoboff.png".
 */
class BetterBitmapScroll : public epiUiBitmapScroll
{
public:
    /** Two presses this close in time and place are a double-click. */
    static constexpr double kDoubleClickSeconds = 0.4;
    static constexpr int32_t kDoubleClickPixels = 4;

    void setEnabled(bool flag) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    void mouseDown(const epiPoint& point) override;
    void mouseUp(const epiPoint& point) override;

    int32_t defaultValue() const { return defaultValue_; }

private:
    bool isDoubleClick(const epiPoint& point);

    int32_t defaultValue_ = 500;
    double lastPress_ = -1.0e9;
    epiPoint lastPoint_;
};

/**
 * The file list's scroll bar: the thumb image slides down the widget; the value runs from the
 * minimum to 'max_' over the thumb's travel.
 */
class UiScrollBar : public epiUiBitmapImage
{
public:
    void setFrame(const epiRect& rect) override;
    void imageChanged(int32_t index) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    void setValue(float value) override;
    float getValue() override { return float(value_); }
    void setEnabled(bool flag) override;
    void draw(const epiRect& rect) override;
    void mouseDown(const epiPoint& point) override;
    void mouseDragged(const epiPoint& point) override;
    void mouseUp(const epiPoint& point) override;
    void mouseWheel(const epiPoint& point, int32_t delta) override;

    int32_t thumb() const { return thumb_; }
    int32_t range() const { return range_; }

private:
    /** The travel: the height less the thumb's, 0 when the value has no range. */
    void computeRange();
    /** Puts the thumb at `position` and the value where it points; tells the owner of a change. */
    void moveThumb(int32_t position);

    int32_t value_ = 0;
    int32_t minimum_ = 0;
    int32_t maximum_ = 100;
    int32_t range_ = 0;
    int32_t thumb_ = 0;
    int32_t grabY_ = 0;
    int32_t grabThumb_ = 0;
    bool grabbed_ = false;
};

/**
 * The click popup: its first item, `clos`, is an imageless button whose frame reaches round the
 * popup over the whole panel, so that a click anywhere but on the popup's own items hides it.
 */
class UiClickPopup : public epiUiContainer
{
public:
    void onCommand(uint32_t code) override;
};

/** The host's widget for the control name `name`; null for a name the framework's classes serve. */
epiUbo* newStripWidget(uint32_t name);

/**
 * Enters the host's widgets in the factory over the bitmap kinds and containers: a control named for one of
 * them is made as it whatever its kind, every other one as the framework's class of its kind.
 */
void registerStripWidgets();

} // namespace Korvalind3Host
