#pragma once

#include "epi/ui/epiUbo.h"

#include <cstdint>
#include <vector>

/**
 * Turns raw mouse gestures on a widget into a state: pressed or not, on or off, a number in a
 * range. The widget offers its mouse events to its behaviour first; true ends the event.
 */
class epiUiBehaviour : public epiUiTimered
{
public:
    virtual void setTarget(epiUbo* widget) { target_ = widget; }
    virtual bool handleClick() { return false; }
    virtual bool onMouseMoved(const epiPoint&) { return false; }
    /** Presses inside, grabs the capture for the target and calls onPress(). */
    virtual bool onMouseDown(const epiPoint& point);
    /** Tracks the pointer in and out of the target (only with a pressed image). */
    virtual bool onMouseDragged(const epiPoint& point);
    /** Releases the capture, then onReleaseInside() or onReleaseOutside(). */
    virtual bool onMouseUp(const epiPoint& point);
    virtual bool onWheel(const epiPoint&, int32_t) { return false; }
    virtual bool onPress(const epiPoint&) { return false; }
    virtual bool onEnter() { return false; }
    virtual bool onLeave() { return false; }
    virtual bool onReleaseOutside(const epiPoint&) { return false; }
    virtual bool onReleaseInside() { return false; }
    virtual bool isPressed() { return false; }
    virtual bool isOn() { return false; }
    virtual void setPressed(bool) {}
    virtual void setOn(bool) {}
    virtual void simulateClick() {}
    virtual bool setEnabled(bool) { return false; }
    virtual float displayFloat() { return 0; }
    virtual bool setDisplayFloat(float) { return false; }
    virtual void setDisplayMin(int32_t) {}
    virtual void setDisplayMax(int32_t) {}
    virtual float userValue() { return 0; }
    virtual bool setUserValue(float) { return false; }
    /** userValue() rounded to nearest. */
    virtual int32_t intValue();
    virtual bool setIntValue(int32_t value) { return setUserValue(float(value)); }
    virtual void setUserMin(float) {}
    virtual void setUserMax(float) {}
    /** Numeric layout attributes that reach the behaviour through its widget. @return known */
    virtual bool attributeInt(uint32_t, int32_t) { return false; }
    virtual bool behaviourAttribute(uint32_t, const epiText*) { return false; }

    epiUbo* target() const { return target_; }
    bool pressedInside() const { return pressedInside_; }

protected:
    void redrawTarget();

    bool pressedInside_ = false;
    epiUbo* target_ = nullptr;
};

/** A push button: pressed while held inside, a click on release inside (or on press without a pressed image).
 */
class epiUiBehave_button : public epiUiBehaviour
{
public:
    bool onPress(const epiPoint& point) override;
    bool onEnter() override;
    bool onLeave() override;
    bool onReleaseInside() override;
    bool isPressed() override { return pressed_; }
    bool isOn() override { return on_; }
    void setPressed(bool flag) override;
    void setOn(bool flag) override;
    /** Flashes the button: pressed, click, and released again 0.2 seconds later. */
    void simulateClick() override;
    bool setEnabled(bool flag) override;
    /** A button's value is its on state. */
    float userValue() override { return on_ ? 1.0f : 0.0f; }
    bool setUserValue(float value) override;
    /** The end of the flash of simulateClick(). */
    void timerTick() override;

    bool enabled() const { return enabled_; }

protected:
    bool on_ = false;
    bool pressed_ = false;
    bool enabled_ = true;
};

/** A check box: each click flips the widget's value. */
class epiUiBehave_checkBox : public epiUiBehave_button
{
public:
    bool onReleaseInside() override;
    bool handleClick() override;
};

/** A radio: a click selects the widget in its group. */
class epiUiBehave_radio : public epiUiBehave_button
{
public:
    bool handleClick() override;
};

/** A value in a user range shown in a display range (a film frame, a pixel offset). */
class epiUiBehaviourDragger : public epiUiBehaviour
{
public:
    bool setUserValue(float value) override;
    float userValue() override { return value_; }
    float displayFloat() override { return float(display_); }
    bool setDisplayFloat(float value) override;
    void setDisplayMin(int32_t value) override { displayMin_ = value; }
    void setDisplayMax(int32_t value) override { displayMax_ = value; }
    void setUserMin(float value) override { userMin_ = value; }
    void setUserMax(float value) override { userMax_ = value; }
    bool attributeInt(uint32_t code, int32_t value) override;
    /** The display value changed: asks the target for a redraw. */
    virtual void onDisplayChanged();

    int32_t display() const { return display_; }
    float userMin() const { return userMin_; }
    float userMax() const { return userMax_; }

protected:
    float value_ = 0;
    int32_t display_ = 0;
    float userMin_ = 0;
    float userMax_ = 100;
    int32_t displayMin_ = 0;
    int32_t displayMax_ = 100;
    bool hasLowLimit_ = false;
    float lowLimit_ = 0;
    bool hasHighLimit_ = false;
    float highLimit_ = 100;
};

/** A dragger whose shown position follows the value at a limited speed, animated by the window manager. */
class epiUiBehaviourSmoothDragger : public epiUiBehaviourDragger
{
public:
    float displayFloat() override { return float(shown_); }
    bool attributeInt(uint32_t code, int32_t value) override;
    void onDisplayChanged() override;
    void animate(double elapsed, int32_t tick) override;
    void stop() override;

    int32_t shown() const { return shown_; }
    int32_t goal() const { return goal_; }
    bool animating() const { return animating_; }
    float rate() const { return rate_; }

protected:
    bool animating_ = false;
    float animationStart_ = 0;
    int32_t shown_ = 0;
    int32_t goal_ = 0;
    float rate_ = 1.0f;
};

/** A smooth dragger whose display snaps to a list of steps; its user value is the step's index. */
class epiUiBehaviourTriggeredDragger : public epiUiBehaviourSmoothDragger
{
public:
    epiUiBehaviourTriggeredDragger() { rate_ = 2.0f; }
    bool setUserValue(float value) override;
    float userValue() override { return float(stepIndex_); }
    bool attributeInt(uint32_t code, int32_t value) override;
    virtual void setStep(int32_t index, int32_t value);

    const std::vector<int32_t>& steps() const { return steps_; }

protected:
    int32_t stepIndex_ = 0;
    std::vector<int32_t> steps_;
};
