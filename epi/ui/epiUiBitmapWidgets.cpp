#include "epi/ui/epiUiBitmapWidgets.h"

#include "epi/ui/epiBitmap.h"

#include <algorithm>
#include <cmath>

namespace
{

const uint32_t kImageCodes[epiUiBitmapImage::kSlots] = {epiCode("irOf"), epiCode("ipOf"), epiCode("irOn"),
                                                        epiCode("ipOn"), epiCode("irDi")};

// Image widgets and texts live in containers, decorations, views and windows.
const uint32_t kImageParents[] = {
    epiCode("iBde"), epiCode("iCos"), epiCode("iCon"), epiCode("iBco"), epiCode("iSco"), epiCode("iWin"), 0};

} // namespace

bool epiUiReadColour(const epiText& text, epiColour& dest)
{
    if (text.empty())
        return false;
    dest = epiColour{uint8_t(text.field(0, ',').toInt()), uint8_t(text.field(1, ',').toInt()),
                     uint8_t(text.field(2, ',').toInt()), 255};
    return true;
}

epiText epiUiColourText(epiColour colour)
{
    epiText text;
    text.printAssign("%d,%d,%d", colour.r, colour.g, colour.b);
    return text;
}

void epiUiReadLines(const epiText& text, epiTextsList& dest)
{
    // The indentation of a laid-out value and blank lines are not entries.
    dest.clear();
    size_t from = 0;
    while (from <= text.size())
    {
        size_t end = text.find('\n', from);
        if (end == std::string::npos)
            end = text.size();
        epiText entry(std::string_view(text).substr(from, end - from));
        const size_t first = entry.find_first_not_of(" \t\r");
        if (first != std::string::npos)
        {
            entry.erase(0, first);
            entry.erase(entry.find_last_not_of(" \t\r") + 1);
            dest.appendCopy(&entry);
        }
        from = end + 1;
    }
}

epiText epiUiJoinLines(const epiTextsList& lines)
{
    epiText joined;
    for (int32_t i = 0; i < int32_t(lines.size()); ++i)
    {
        if (i > 0)
            joined.push_back('\n');
        joined.appendText(lines.textAt(i));
    }
    return joined;
}

// ---------------------------------------------------------------------------------------------
// Image

const uint32_t* epiUiBitmapImage::allowedParentKinds() const
{
    return kImageParents;
}

int32_t epiUiBitmapImage::slotOf(uint32_t code)
{
    for (int32_t i = 0; i < kSlots; ++i)
        if (kImageCodes[i] == code)
            return i;
    return -1;
}

epiBitmap* epiUiBitmapImage::acquireImage(const epiText& name)
{
    epiBitmapCasts* casts = epiUiCastsFor(resources());
    return casts != nullptr ? casts->acquireImage(name.cstr()) : nullptr;
}

epiText epiUiBitmapImage::imageName(const epiBitmap* bitmap)
{
    epiText name;
    if (bitmap != nullptr)
        if (epiBitmapCasts* casts = epiUiCastsFor(resources()))
            casts->nameOf(bitmap, name);
    return name;
}

void epiUiBitmapImage::setAttribute(uint32_t code, const epiText* value)
{
    const int32_t slot = slotOf(code);
    if (slot >= 0)
    {
        // An empty name keeps the image there is; one that can't be loaded leaves the slot empty.
        if (value != nullptr && !value->empty())
            setImage(code, acquireImage(*value));
        return;
    }
    if (code == epiCode("autS"))
    {
        if (epiBitmap* first = images_[kOff])
            setSize(first->width(), first->height());
        return;
    }
    epiUbo::setAttribute(code, value);
}

bool epiUiBitmapImage::getAttribute(uint32_t code, epiText& dest)
{
    const int32_t slot = slotOf(code);
    if (slot < 0)
        return epiUbo::getAttribute(code, dest);
    dest = imageName(images_[size_t(slot)]);
    return !dest.empty();
}

const uint32_t* epiUiBitmapImage::attributeCodes() const
{
    static const uint32_t codes[] = {epiCode("visi"), epiCode("enab"), epiCode("irOf"), epiCode("ipOf"),
                                     epiCode("irOn"), epiCode("ipOn"), epiCode("irDi"), 0};
    return codes;
}

void epiUiBitmapImage::setImage(uint32_t code, epiBitmap* bitmap)
{
    const int32_t slot = slotOf(code);
    if (slot < 0)
        return;
    images_[size_t(slot)] = bitmap;
    imageChanged(slot);
    invalidateAll();
}

epiBitmap* epiUiBitmapImage::image(uint32_t code)
{
    return imageAt(slotOf(code));
}

bool epiUiBitmapImage::hasPressedImage()
{
    return images_[kPressedOff] != nullptr || images_[kPressedOn] != nullptr;
}

void epiUiBitmapImage::setEnabled(bool flag)
{
    enabled_ = flag;
    if (behaviour_ != nullptr)
        behaviour_->setEnabled(flag);
    invalidateAll();
}

intptr_t epiUiBitmapImage::query(intptr_t a, intptr_t b, intptr_t c)
{
    if (a != intptr_t(epiCode("ArOf")))
        return epiUbo::query(a, b, c);
    auto* bitmap = reinterpret_cast<epiBitmap*>(c);
    if (bitmap != nullptr)
        setImage(epiCode("irOf"), bitmap);
    if (b == 1 && images_[kOff] != nullptr)
    {
        const epiRect old = frame_;
        epiRect moved(0, 0, images_[kOff]->width(), images_[kOff]->height());
        moved.moveTo(old.centerX() - moved.width() / 2, old.centerY() - moved.height() / 2);
        invalidateAll();
        setFrame(moved);
    }
    return 1;
}

int32_t epiUiBitmapImage::stateIndex()
{
    if (behaviour_ == nullptr)
        return 0;
    return (behaviour_->isPressed() ? 1 : 0) + (behaviour_->isOn() ? 2 : 0);
}

void epiUiBitmapImage::drawPart(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                                const epiRect& rect)
{
    if (bitmap == nullptr)
        return;
    if (bitmap->usesAlpha())
        blitAlpha(bitmap, source, dest, rect);
    else
        blitStretched(bitmap, source, dest, rect);
}

void epiUiBitmapImage::draw(const epiRect& rect)
{
    // An image draws no children.
    drawWhole(imageAt(currentImage_), rect);
}

// ---------------------------------------------------------------------------------------------
// Film

void epiUiBitmapFilmImage::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("frms"))
    {
        frames_ = value;
        if (behaviour_ != nullptr)
        {
            behaviour_->setDisplayMin(0);
            behaviour_->setDisplayMax(value - 1);
        }
        invalidateAll();
        return;
    }
    epiUiBitmapImage::setAttributeInt(code, value);
}

bool epiUiBitmapFilmImage::getAttribute(uint32_t code, epiText& dest)
{
    if (code != epiCode("frms"))
        return epiUiBitmapImage::getAttribute(code, dest);
    dest.assignLong(frames_);
    return true;
}

const uint32_t* epiUiBitmapFilmImage::attributeCodes() const
{
    static const uint32_t codes[] = {epiCode("visi"), epiCode("enab"), epiCode("irOf"),
                                     epiCode("ipOf"), epiCode("irOn"), epiCode("ipOn"),
                                     epiCode("irDi"), epiCode("frms"), 0};
    return codes;
}

void epiUiBitmapFilmImage::showFrame(int32_t n)
{
    if (frames_ != 0)
    {
        n %= frames_;
        if (n < 0)
            n += std::abs(frames_);
    }
    if (n == filmFrame_)
        return;
    filmFrame_ = n;
    invalidateAll();
}

void epiUiBitmapFilmImage::setValue(float value)
{
    showFrame(int32_t(value));
}

void epiUiBitmapFilmImage::draw(const epiRect& rect)
{
    epiBitmap* film = filmImage();
    if (film == nullptr || film->isEmpty())
        return;
    const int32_t height = frames_ > 0 ? film->height() / frames_ : film->height();
    const int32_t top = filmFrame_ * height;
    if (height <= 0 || top < 0 || top + height > film->height())
        return;
    drawPart(film, epiRect(0, top, film->width(), top + height), bounds_, rect);
}

// ---------------------------------------------------------------------------------------------
// Rotary

void epiUiBitmapRotary::setAttribute(uint32_t code, const epiText* value)
{
    if (code == epiCode("disb"))
    {
        if (value != nullptr && !value->empty())
        {
            disabledImage_ = acquireImage(*value);
            invalidateAll();
        }
        return;
    }
    epiUiBitmapFilmImage::setAttribute(code, value);
}

void epiUiBitmapRotary::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("Sens"))
    {
        if (value != 0)
            sensitivity_ = float(value) / 100.0f;
        return;
    }
    epiUiBitmapFilmImage::setAttributeInt(code, value);
}

void epiUiBitmapRotary::mouseDown(const epiPoint& point)
{
    downPoint_ = point;
    startValue_ = behaviour_ != nullptr ? behaviour_->userValue() : 0.0f;
    grabCapture();
}

void epiUiBitmapRotary::dragTo(const epiPoint& point)
{
    if (behaviour_ != nullptr &&
        behaviour_->setUserValue(float(dragDelta(point)) * sensitivity_ + startValue_))
        hit();
}

void epiUiBitmapRotary::mouseDragged(const epiPoint& point)
{
    dragTo(point);
}

void epiUiBitmapRotary::mouseUp(const epiPoint& point)
{
    dragTo(point);
    releaseCapture();
}

void epiUiBitmapRotary::mouseWheel(const epiPoint&, int32_t delta)
{
    if (behaviour_ != nullptr && behaviour_->setUserValue(behaviour_->userValue() + float(delta)))
        hit();
}

void epiUiBitmapRotary::setValue(float value)
{
    epiUbo::setValue(value);
}

float epiUiBitmapRotary::getValue()
{
    return behaviour_ != nullptr ? float(behaviour_->intValue()) : 0.0f;
}

void epiUiBitmapRotary::redrawRequest()
{
    if (behaviour_ != nullptr)
        showFrame(int32_t(behaviour_->displayFloat()));
}

// ---------------------------------------------------------------------------------------------
// Buttons

void epiUiBitmapButton::draw(const epiRect& rect)
{
    // A missing state image draws nothing: the normal image doesn't stand in for it.
    if (enabled_ || images_[kDisabled] == nullptr)
        drawWhole(images_[size_t(stateIndex())], rect);
    else
        drawWhole(images_[kDisabled], rect);
}

const uint32_t* epiUiBitmapRadio::attributeCodes() const
{
    static const uint32_t codes[] = {
        epiCode("visi"), epiCode("enab"), epiCode("irOf"), epiCode("ipOf"), epiCode("irOn"),
        epiCode("ipOn"), epiCode("irDi"), epiCode("fagr"), epiCode("fain"), 0};
    return codes;
}

bool epiUiButtonCaption::read(uint32_t code, const epiText* value)
{
    const epiText text = value != nullptr ? *value : epiText();
    if (code == epiCode("teFo"))
        font = text.code();
    else if (code == epiCode("teFp"))
        pressedFont = text.code();
    else if (code == epiCode("teOx"))
        offset.x_ = text.toInt();
    else if (code == epiCode("teOy"))
        offset.y_ = text.toInt();
    else if (code == epiCode("tCon"))
        epiUiReadColour(text, on);
    else if (code == epiCode("tCof"))
        epiUiReadColour(text, off);
    else if (code == epiCode("tCdi"))
        epiUiReadColour(text, disabled);
    else if (code == epiCode("txAl"))
        alignment = text.toInt();
    else
        return false;
    return true;
}

bool epiUiButtonCaption::write(uint32_t code, epiText& dest) const
{
    if (code == epiCode("teFo"))
        dest = epiCodeText(font);
    else if (code == epiCode("txAl"))
        dest.assignLong(alignment);
    else
        return false;
    return true;
}

void epiUiButtonCaption::drawIn(epiUbo& widget, epiRect area, const epiRect& rect, const epiText& text,
                                int32_t index, bool enabled) const
{
    if (text.empty())
        return;
    area.offset(offset.x_, offset.y_);
    const epiColour colour = !enabled ? disabled : index == 0 ? off : on;
    const uint32_t face = (index & 1) != 0 && pressedFont != 0 ? pressedFont : font;
    widget.drawText(face, alignment, area, rect, text, colour);
}

void epiUiBitmapButtonWithIcon::setAttribute(uint32_t code, const epiText* value)
{
    const bool on = code == epiCode("IcOn");
    if (!on && code != epiCode("IcOf"))
    {
        epiUiBitmapButton::setAttribute(code, value);
        return;
    }
    if (value == nullptr || value->empty())
        return;
    (on ? iconOn_ : iconOff_) = acquireImage(*value);
    invalidateAll();
}

bool epiUiBitmapButtonWithIcon::getAttribute(uint32_t code, epiText& dest)
{
    if (code == epiCode("IcOn") || code == epiCode("IcOf"))
    {
        dest = imageName(code == epiCode("IcOn") ? iconOn_ : iconOff_);
        return !dest.empty();
    }
    return epiUiBitmapButton::getAttribute(code, dest);
}

epiBitmap* epiUiBitmapButtonWithIcon::iconFor(int32_t index, int32_t& lift)
{
    lift = 0;
    return (index & 1) != 0 ? iconOn_ : iconOff_;
}

epiBitmap* epiUiBitmapCheckWithIcon::iconFor(int32_t index, int32_t& lift)
{
    lift = 1;
    return index == 1 || index == 2 ? iconOn_ : iconOff_;
}

void epiUiBitmapButtonWithIcon::draw(const epiRect& rect)
{
    epiUiBitmapButton::draw(rect);
    int32_t lift = 0;
    epiBitmap* icon = iconFor(stateIndex(), lift);
    if (icon == nullptr || icon->isEmpty())
        return;
    epiRect place(0, 0, icon->width(), icon->height());
    place.moveTo(bounds_.centerX() - icon->width() / 2, bounds_.centerY() - icon->height() / 2 - lift);
    blitAlpha(icon, icon->rect(), place, rect);
}

// ---------------------------------------------------------------------------------------------
// Scroll

bool epiUiBitmapScroll::start()
{
    const bool started = epiUiBitmapImage::start();
    setUp();
    return started;
}

void epiUiBitmapScroll::setFrame(const epiRect& rect)
{
    epiUiBitmapImage::setFrame(rect);
    setUp();
}

void epiUiBitmapScroll::imageChanged(int32_t index)
{
    if (index == kOff)
        setUp();
}

void epiUiBitmapScroll::setUp()
{
    vertical_ = frame_.width() < frame_.height();
    const epiBitmap* thumb = images_[kOff];
    const int32_t thumbLength = thumb == nullptr ? 0 : vertical_ ? thumb->height() : thumb->width();
    const int32_t track = vertical_ ? frame_.height() : frame_.width();
    if (behaviour_ != nullptr)
    {
        behaviour_->setDisplayMin(0);
        behaviour_->setDisplayMax(std::max(0, track - thumbLength));
    }
}

void epiUiBitmapScroll::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("Sens"))
    {
        if (value != 0)
            sensitivity_ = float(value) / 100.0f;
        return;
    }
    epiUiBitmapImage::setAttributeInt(code, value);
}

epiRect epiUiBitmapScroll::thumbRect()
{
    epiBitmap* thumb = images_[pressed_ && images_[kPressedOff] != nullptr ? kPressedOff : kOff];
    if (thumb == nullptr)
        return epiRect();
    const int32_t offset = behaviour_ != nullptr ? int32_t(behaviour_->displayFloat()) : 0;
    epiRect place(0, 0, thumb->width(), thumb->height());
    if (vertical_)
        place.moveTo(0, (frame_.height() - thumb->height()) - offset);
    else
        place.moveTo(offset, 0);
    return place;
}

void epiUiBitmapScroll::draw(const epiRect& rect)
{
    epiBitmap* thumb = images_[pressed_ ? kPressedOff : kOff];
    if (thumb == nullptr)
        return;
    drawPart(thumb, thumb->rect(), thumbRect(), rect);
}

int32_t epiUiBitmapScroll::dragDelta(const epiPoint& point)
{
    return vertical_ ? downPoint_.y_ - point.y_ : point.x_ - downPoint_.x_;
}

void epiUiBitmapScroll::mouseDown(const epiPoint& point)
{
    if (!bounds_.containsPoint(point))
        return;
    downPoint_ = point;
    startValue_ = behaviour_ != nullptr ? behaviour_->displayFloat() : 0.0f;
    pressed_ = true;
    invalidateAll();
    grabCapture();
}

void epiUiBitmapScroll::mouseDragged(const epiPoint& point)
{
    if (!pressed_)
        return;
    // The scroll moves in display units (pixels), where a rotary moves in user units.
    if (behaviour_ != nullptr &&
        behaviour_->setDisplayFloat(float(dragDelta(point)) * sensitivity_ + startValue_))
        hit();
}

void epiUiBitmapScroll::mouseUp(const epiPoint&)
{
    pressed_ = false;
    releaseCapture();
    invalidateAll();
}

void epiUiBitmapScroll::mouseWheel(const epiPoint&, int32_t delta)
{
    if (behaviour_ != nullptr && behaviour_->setUserValue(behaviour_->userValue() + float(delta)))
        hit();
}

// ---------------------------------------------------------------------------------------------
// Text

const uint32_t* epiUiBitmapText::allowedParentKinds() const
{
    return kImageParents;
}

void epiUiBitmapText::draw(const epiRect& rect)
{
    drawText(font_, alignment_, bounds_, rect, text_, colour_);
}

void epiUiBitmapText::setAttribute(uint32_t code, const epiText* value)
{
    if (code == epiCode("teFo"))
        font_ = value != nullptr ? value->code() : 0;
    else if (code == epiCode("teCl"))
        epiUiReadColour(value != nullptr ? *value : epiText(), colour_);
    else
    {
        epiUbo::setAttribute(code, value);
        return;
    }
    invalidateAll();
}

void epiUiBitmapText::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("txAl"))
    {
        alignment_ = value;
        invalidateAll();
    }
    else if (code == epiCode("Clik"))
        clickable_ = value != 0;
    else
        epiUbo::setAttributeInt(code, value);
}

bool epiUiBitmapText::getAttribute(uint32_t code, epiText& dest)
{
    if (code == epiCode("teFo"))
        dest = epiCodeText(font_);
    else if (code == epiCode("teCl"))
        dest = epiUiColourText(colour_);
    else if (code == epiCode("txAl"))
        dest.assignLong(alignment_);
    else
        return epiUbo::getAttribute(code, dest);
    return true;
}

const uint32_t* epiUiBitmapText::attributeCodes() const
{
    static const uint32_t codes[] = {epiCode("visi"), epiCode("enab"), epiCode("teFo"),
                                     epiCode("teCl"), epiCode("txAl"), 0};
    return codes;
}

void epiUiBitmapText::mouseDown(const epiPoint&)
{
    hit();
}

// ---------------------------------------------------------------------------------------------
// Rolling text

void epiUiBitmapTextRolling::setAttribute(uint32_t code, const epiText* value)
{
    if (code != epiCode("cont"))
    {
        epiUiBitmapText::setAttribute(code, value);
        return;
    }
    epiUiReadLines(value != nullptr ? *value : epiText(), lines_);
    count_ = int32_t(lines_.size());
    index_ = std::clamp(index_, 0, std::max(0, count_ - 1));
    // A new list shows its entry at the index kept: the first one for a fresh widget.
    if (count_ > 0)
        setText(lines_.textAt(index_));
}

bool epiUiBitmapTextRolling::getAttribute(uint32_t code, epiText& dest)
{
    if (code != epiCode("cont"))
        return epiUiBitmapText::getAttribute(code, dest);
    dest = epiUiJoinLines(lines_);
    return count_ > 0;
}

void epiUiBitmapTextRolling::mouseDown(const epiPoint& point)
{
    grabCapture();
    lastPoint_ = point;
}

void epiUiBitmapTextRolling::mouseDragged(const epiPoint& point)
{
    // One step every two pixels; a smaller move leaves the last point where it was, so that a
    // slow drag adds up.
    const int32_t steps = (lastPoint_.y_ - point.y_) / 2;
    if (steps == 0 || count_ <= 0)
        return;
    lastPoint_ = point;
    const int32_t next = std::clamp(index_ + steps, 0, count_ - 1);
    if (next == index_)
        return;
    setValue(float(next));
    hit();
}

void epiUiBitmapTextRolling::mouseUp(const epiPoint&)
{
    releaseCapture();
}

void epiUiBitmapTextRolling::setValue(float value)
{
    const auto i = int32_t(value);
    if (i < 0 || i >= count_)
        return;
    index_ = i;
    setText(lines_.textAt(i));
}

// ---------------------------------------------------------------------------------------------
// Level meter

void epiUiBitmapLevMeter::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("min_"))
        minimum_ = float(value);
    else if (code == epiCode("max_"))
        maximum_ = float(value);
    else if (code == epiCode("lmSp"))
        fall_ = float(value);
    else if (code == epiCode("lmBx"))
        box_ = value;
    else
    {
        epiUiBitmapImage::setAttributeInt(code, value);
        return;
    }
    invalidateAll();
}

bool epiUiBitmapLevMeter::getAttribute(uint32_t code, epiText& dest)
{
    if (code == epiCode("min_"))
        dest.assignLong(int32_t(minimum_));
    else if (code == epiCode("max_"))
        dest.assignLong(int32_t(maximum_));
    else if (code == epiCode("lmSp"))
        dest.assignLong(int32_t(fall_));
    else if (code == epiCode("lmBx"))
        dest.assignLong(box_);
    else
        return epiUiBitmapImage::getAttribute(code, dest);
    return true;
}

const uint32_t* epiUiBitmapLevMeter::attributeCodes() const
{
    static const uint32_t codes[] = {epiCode("visi"), epiCode("enab"), epiCode("irOf"), epiCode("min_"),
                                     epiCode("max_"), epiCode("lmBx"), epiCode("lmSp"), 0};
    return codes;
}

void epiUiBitmapLevMeter::setValue(float value)
{
    value = std::min(value, maximum_);
    // Only a rise shows at once: the way down is the timer's.
    if (value <= shown_)
        return;
    if (shown_ <= minimum_ && !timerActive())
        startTimer(0.1, false, false);
    shown_ = value;
    invalidateAll();
}

void epiUiBitmapLevMeter::onTimer()
{
    if (shown_ > minimum_)
        shown_ -= fall_;
    if (shown_ <= minimum_)
    {
        shown_ = minimum_;
        removeTimerNow();
    }
    invalidateAll();
}

epiRect epiUiBitmapLevMeter::litRect() const
{
    const bool vertical = bounds_.height() > bounds_.width();
    const int32_t length = vertical ? bounds_.height() : bounds_.width();
    // A skin with no range shows nothing rather than dividing by zero.
    int32_t lit =
        maximum_ > minimum_ ? int32_t(float(length) * (shown_ - minimum_) / (maximum_ - minimum_)) : 0;
    lit = std::clamp(lit, 0, length);
    if (box_ > 1 && lit > 0)
        lit = std::max(0, lit / box_ * box_ - 1);
    if (vertical)
        return epiRect(0, length - lit, bounds_.width(), length);
    return epiRect(0, 0, lit, bounds_.height());
}

void epiUiBitmapLevMeter::draw(const epiRect& rect)
{
    epiBitmap* bar = images_[kOff];
    const epiRect lit = litRect();
    if (bar == nullptr || lit.isEmpty())
        return;
    drawPart(bar, lit, lit, rect);
}

// ---------------------------------------------------------------------------------------------
// Popups

void epiUiBitmapSubPopup::setAttribute(uint32_t code, const epiText* value)
{
    if (code != epiCode("cont"))
    {
        epiUiBitmapWithText::setAttribute(code, value);
        return;
    }
    epiUiReadLines(value != nullptr ? *value : epiText(), lines_);
    index_ = std::clamp(index_, 0, std::max(0, count() - 1));
    setText(count() > 0 ? lines_.textAt(index_) : nullptr);
}

bool epiUiBitmapSubPopup::getAttribute(uint32_t code, epiText& dest)
{
    if (code != epiCode("cont"))
        return epiUiBitmapWithText::getAttribute(code, dest);
    dest = epiUiJoinLines(lines_);
    return count() > 0;
}

const uint32_t* epiUiBitmapSubPopup::attributeCodes() const
{
    static const uint32_t codes[] = {epiCode("visi"),
                                     epiCode("enab"),
                                     epiCode("irOf"),
                                     epiCode("ipOf"),
                                     epiCode("irOn"),
                                     epiCode("ipOn"),
                                     epiCode("irDi"),
                                     epiCode("teFo"),
                                     epiCode("txAl"),
                                     epiCode("cont"),
                                     0};
    return codes;
}

void epiUiBitmapSubPopup::setValue(float value)
{
    const auto i = int32_t(value);
    if (i < 0 || i >= count())
        return;
    index_ = i;
    setText(lines_.textAt(i));
}

void epiUiBitmapSubPopup::choose(int32_t index)
{
    if (index == index_ || index < 0 || index >= count())
        return;
    setValue(float(index));
    hit();
}

void epiUiBitmapSubPopup::click()
{
    if (count() > 0)
        choose((index_ + 1) % count());
}

void epiUiBitmapSubPopup::mouseWheel(const epiPoint&, int32_t delta)
{
    if (enabled_ && count() > 0)
        choose(std::clamp(index_ + delta, 0, count() - 1));
}

void epiUiBitmapPopup::click()
{
    if (count() == 0)
        return;
    // The rows go in the window that holds the popup.
    epiUbo* top = this;
    while (top->parent() != nullptr && dynamic_cast<epiUiWindowBase*>(top) == nullptr)
        top = top->parent();
    if (list_ == nullptr)
    {
        list_ = new epiUiBitmapPopupList(this);
        list_->startRefCount();
        if (!top->addChild(list_))
        {
            list_->stop();
            list_ = nullptr;
            return;
        }
    }
    // Over everything else in the window, so that every click reaches it.
    list_->setFrame(top->boundsRect());
    if (list_->childIndex() + 1 < top->childCount())
    {
        top->removeChild(list_);
        top->addChild(list_);
    }
    list_->setVisible(true, true);
}

epiUiBitmapPopupList* epiUiBitmapPopup::openList() const
{
    return list_ != nullptr && list_->isVisible() ? list_ : nullptr;
}

void epiUiBitmapPopup::closeList()
{
    if (list_ != nullptr)
        list_->setVisible(false, true);
}

void epiUiBitmapPopup::stop()
{
    if (list_ != nullptr)
    {
        epiUiBitmapPopupList* list = list_;
        list_ = nullptr;
        list->popup_ = nullptr;
        list->stop();
    }
    epiUiBitmapSubPopup::stop();
}

epiRect epiUiBitmapPopup::rowRect(int32_t row)
{
    epiRect face = bounds_;
    rectToAncestor(face, nullptr);
    const int32_t height = face.height();
    epiRect place = face;
    place.offset(0, height * (row + 1));
    // No room below: the rows end over the face instead.
    const epiUbo* top = list_ != nullptr && list_->parent() != nullptr ? list_->parent() : nullptr;
    if (top != nullptr && face.bottom_ + height * count() > top->boundsRect().bottom_ &&
        face.top_ - height * count() >= top->boundsRect().top_)
        place.offset(0, -height * (count() + 1));
    return place;
}

void epiUiBitmapPopup::drawRow(epiUbo& list, int32_t row, const epiRect& area, const epiRect& rect)
{
    epiBitmap* back = row == index_ && images_[kOn] != nullptr ? images_[kOn] : images_[kOff];
    if (back != nullptr)
        list.blitBitmap(back, area, rect, back->usesAlpha());
    caption().drawIn(list, area, rect, *lines_.textAt(row), row == index_ ? 2 : 0, true);
}

void epiUiBitmapPopupList::draw(const epiRect& rect)
{
    if (popup_ == nullptr)
        return;
    for (int32_t row = 0; row < popup_->count(); ++row)
        popup_->drawRow(*this, row, popup_->rowRect(row), rect);
}

void epiUiBitmapPopupList::mouseDown(const epiPoint& point)
{
    if (popup_ == nullptr)
        return;
    epiUiBitmapPopup* popup = popup_;
    popup->closeList();
    for (int32_t row = 0; row < popup->count(); ++row)
        if (popup->rowRect(row).containsPoint(point))
        {
            popup->choose(row);
            return;
        }
}

void epiUiBitmapPopupList::mouseWheel(const epiPoint& point, int32_t delta)
{
    if (popup_ == nullptr)
        return;
    popup_->mouseWheel(point, delta);
    invalidateAll();
}

void epiUiBitmapPopupList::stop()
{
    if (popup_ != nullptr)
        popup_->list_ = nullptr;
    popup_ = nullptr;
    epiUbo::stop();
}
