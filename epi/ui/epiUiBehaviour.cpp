#include "epi/ui/epiUiBehaviour.h"

#include <algorithm>
#include <cmath>

// ---------------------------------------------------------------------------------------------
// The base gesture

void epiUiBehaviour::redrawTarget()
{
    if (target_ != nullptr)
        target_->redrawRequest();
}

int32_t epiUiBehaviour::intValue()
{
    return int32_t(std::lround(userValue()));
}

bool epiUiBehaviour::onMouseDown(const epiPoint& point)
{
    pressedInside_ = true;
    if (target_ != nullptr)
        target_->grabCapture();
    return onPress(point);
}

bool epiUiBehaviour::onMouseDragged(const epiPoint& point)
{
    if (target_ == nullptr || !target_->hasPressedImage())
        return true;
    // The point is in the target's own coordinates; its frame is in its parent's.
    const bool inside = target_->boundsRect().containsPoint(point);
    if (inside == pressedInside_)
        return false;
    pressedInside_ = inside;
    return inside ? onEnter() : onLeave();
}

bool epiUiBehaviour::onMouseUp(const epiPoint& point)
{
    if (target_ != nullptr)
        target_->releaseCapture();
    if (target_ == nullptr || !target_->hasPressedImage())
    {
        pressedInside_ = false;
        return true;
    }
    const bool result = pressedInside_ ? onReleaseInside() : onReleaseOutside(point);
    pressedInside_ = false;
    return result;
}

// ---------------------------------------------------------------------------------------------
// Button

bool epiUiBehave_button::onPress(const epiPoint&)
{
    if (!enabled_)
        return false;
    if (target_ != nullptr && target_->hasPressedImage())
    {
        pressed_ = true;
        redrawTarget();
    }
    else if (target_ != nullptr)
    {
        target_->click();
    }
    return true;
}

bool epiUiBehave_button::onEnter()
{
    if (!enabled_)
        return false;
    pressed_ = true;
    redrawTarget();
    return true;
}

bool epiUiBehave_button::onLeave()
{
    if (!enabled_)
        return false;
    pressed_ = false;
    redrawTarget();
    return true;
}

bool epiUiBehave_button::onReleaseInside()
{
    if (!enabled_)
        return false;
    pressed_ = false;
    redrawTarget();
    if (target_ != nullptr)
        target_->click();
    return true;
}

void epiUiBehave_button::setPressed(bool flag)
{
    if (flag == pressed_)
        return;
    pressed_ = flag;
    redrawTarget();
}

void epiUiBehave_button::setOn(bool flag)
{
    if (flag == on_)
        return;
    on_ = flag;
    redrawTarget();
}

bool epiUiBehave_button::setUserValue(float value)
{
    const bool on = value != 0.0f;
    if (on == on_)
        return false;
    on_ = on;
    redrawTarget();
    return true;
}

void epiUiBehave_button::simulateClick()
{
    pressed_ = true;
    redrawTarget();
    if (target_ != nullptr)
        target_->click();
    startTimer(0.2, true, true);
}

void epiUiBehave_button::timerTick()
{
    pressed_ = false;
    redrawTarget();
}

bool epiUiBehave_button::setEnabled(bool flag)
{
    enabled_ = flag;
    return true;
}

bool epiUiBehave_checkBox::onReleaseInside()
{
    pressed_ = false;
    if (target_ != nullptr)
        target_->click();
    return true;
}

bool epiUiBehave_checkBox::handleClick()
{
    if (!enabled_ || target_ == nullptr)
        return false;
    target_->setValue(target_->getValue() == 0.0f ? 1.0f : 0.0f);
    redrawTarget();
    target_->hit();
    return true;
}

bool epiUiBehave_radio::handleClick()
{
    if (!enabled_)
        return false;
    if (target_ != nullptr && target_->parent() != nullptr && target_->groupId() != 0)
        target_->parent()->selectInGroup(target_->groupId(), target_->groupIndex(), 1.0f, true);
    return true;
}

// ---------------------------------------------------------------------------------------------
// Dragger

bool epiUiBehaviourDragger::setUserValue(float v)
{
    if (v > userMax_)
        v = userMax_;
    if (v < userMin_)
        v = userMin_;
    // The extra limits come after the range, so a limit outside the range wins.
    if (hasLowLimit_ && v < lowLimit_)
        v = lowLimit_;
    if (hasHighLimit_ && v > highLimit_)
        v = highLimit_;
    if (v == value_)
        return false;
    value_ = v;
    const double scaled =
        (double(v) - userMin_) * double(displayMax_ - displayMin_) / (double(userMax_) - userMin_);
    // An empty user range divides by zero; the clamp below bounds whatever that gives.
    int32_t d =
        std::isfinite(scaled) ? int32_t(std::clamp(scaled, -2.0e9, 2.0e9)) + displayMin_ : displayMin_;
    d = std::clamp(d, std::min(displayMin_, displayMax_), std::max(displayMin_, displayMax_));
    if (d != display_)
    {
        display_ = d;
        onDisplayChanged();
    }
    return true;
}

bool epiUiBehaviourDragger::setDisplayFloat(float x)
{
    return setUserValue(
        float((double(userMax_) - userMin_) * (double(x) - displayMin_) / double(displayMax_ - displayMin_) +
              userMin_));
}

bool epiUiBehaviourDragger::attributeInt(uint32_t code, int32_t value)
{
    const float hundredths = float(value) / 100.0f;
    if (code == epiCode("uMin"))
        userMin_ = hundredths;
    else if (code == epiCode("uMax"))
        userMax_ = hundredths;
    else if (code == epiCode("lMin"))
    {
        lowLimit_ = hundredths;
        hasLowLimit_ = true;
    }
    else if (code == epiCode("lMax"))
    {
        highLimit_ = hundredths;
        hasHighLimit_ = true;
    }
    else if (code == epiCode("dMin"))
        displayMin_ = value;
    else if (code == epiCode("dMax"))
        displayMax_ = value;
    else
        return false;
    return true;
}

void epiUiBehaviourDragger::onDisplayChanged()
{
    redrawTarget();
}

// ---------------------------------------------------------------------------------------------
// Smooth dragger

bool epiUiBehaviourSmoothDragger::attributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("Smoo"))
    {
        rate_ = float(value) / 100.0f;
        return true;
    }
    return epiUiBehaviourDragger::attributeInt(code, value);
}

void epiUiBehaviourSmoothDragger::onDisplayChanged()
{
    const int32_t oldGoal = goal_;
    const int32_t d = display_;
    if (oldGoal == d)
        return;
    if (rate_ == 0.0f)
    {
        if (animating_)
        {
            animating_ = false;
            stopAnimation();
        }
        shown_ = d;
        goal_ = d;
        redrawTarget();
        return;
    }
    goal_ = d;
    if (!animating_)
    {
        animationStart_ = float(shown_);
        animating_ = true;
        startAnimation(false);
    }
    else if ((oldGoal > shown_) != (d > shown_))
    {
        // The direction turned: run again from where the knob is shown now.
        animationStart_ = float(shown_);
        restartAnimation();
    }
}

void epiUiBehaviourSmoothDragger::animate(double elapsed, int32_t)
{
    const double s = double(displayMax_ - displayMin_) * elapsed * double(rate_);
    int32_t position = shown_;
    if (shown_ < goal_)
        position = std::min(goal_, int32_t(std::min(double(animationStart_) + s, 2.0e9)));
    else if (shown_ > goal_)
        position = std::max(goal_, int32_t(std::max(double(animationStart_) - s, -2.0e9)));
    if (position == goal_)
    {
        stopAnimation();
        animating_ = false;
    }
    if (position != shown_)
    {
        shown_ = position;
        redrawTarget();
    }
}

void epiUiBehaviourSmoothDragger::stop()
{
    if (animating_)
    {
        animating_ = false;
        stopAnimation();
    }
    epiUiBehaviourDragger::stop();
}

// ---------------------------------------------------------------------------------------------
// Triggered dragger

void epiUiBehaviourTriggeredDragger::setStep(int32_t index, int32_t value)
{
    if (index < 0)
        return;
    if (index == 0)
        steps_.clear();
    if (value == 0 && size_t(index) < steps_.size())
        steps_.resize(size_t(index));
    else
    {
        if (steps_.size() <= size_t(index))
            steps_.resize(size_t(index) + 1, 0);
        steps_[size_t(index)] = value;
    }
    userMin_ = 0;
    userMax_ = float(steps_.size()) - 1.0f;
}

bool epiUiBehaviourTriggeredDragger::setUserValue(float value)
{
    if (steps_.empty())
        return false;
    const int32_t last = int32_t(steps_.size()) - 1;
    int32_t index = std::isfinite(value) ? int32_t(std::clamp(value, -1.0e9f, 1.0e9f)) : 0;
    index = std::clamp(index, 0, last);
    if (index == stepIndex_)
        return false;
    stepIndex_ = index;
    display_ = steps_[size_t(index)];
    onDisplayChanged();
    return true;
}

bool epiUiBehaviourTriggeredDragger::attributeInt(uint32_t code, int32_t value)
{
    const uint32_t prefix = epiCode("FrP0") & 0xFFFFFF00u;
    if ((code & 0xFFFFFF00u) == prefix && (code & 0xFF) >= '0' && (code & 0xFF) <= '9')
    {
        setStep(int32_t((code & 0xFF) - '0'), value);
        return true;
    }
    return epiUiBehaviourSmoothDragger::attributeInt(code, value);
}
