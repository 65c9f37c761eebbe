#pragma once

#include "epi/epiText.h"
#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiUbo.h"
#include "epi/ui/epiUiBehaviour.h"

#include <array>
#include <cstdint>

class epiBitmapCasts;

/** The bitmap table that serves `resources`, made at first need and kept while they live. */
epiBitmapCasts* epiUiCastsFor(epiResources* resources);

/** A layout colour: "r,g,b" as bytes, opaque. @return false, leaving `dest` alone, for an empty text */
bool epiUiReadColour(const epiText& text, epiColour& dest);

/** "r,g,b" of a colour, as a layout writes it. */
epiText epiUiColourText(epiColour colour);

/** Fills `dest` with the entries of a 'cont' value, one a line: blank lines and indentation are no entries.
 */
void epiUiReadLines(const epiText& text, epiTextsList& dest);

/** The entries of `lines` as a 'cont' value, one a line. */
epiText epiUiJoinLines(const epiTextsList& lines);

/**
 * A widget drawn from up to five images of the bitmap table: released and pressed, each off and
 * on, and disabled. The plain image shows the first; buttons pick one by their state.
 */
class epiUiBitmapImage : public epiUbo
{
public:
    enum Slot
    {
        kOff = 0,        ///< 'irOf'
        kPressedOff = 1, ///< 'ipOf'
        kOn = 2,         ///< 'irOn'
        kPressedOn = 3,  ///< 'ipOn'
        kDisabled = 4,   ///< 'irDi'
        kSlots = 5
    };

    uint32_t kind() const override { return epiCode("iBim"); }
    const uint32_t* allowedParentKinds() const override;
    void draw(const epiRect& rect) override;
    void setAttribute(uint32_t code, const epiText* value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    const uint32_t* attributeCodes() const override;
    bool hasPressedImage() override;
    /** 'ArOf': `c` (an epiBitmap*) becomes image 0; with `b` 1 the frame takes its size around the old
     * centre. */
    intptr_t query(intptr_t a, intptr_t b, intptr_t c) override;

    /** Stores the flag, hands it to the behaviour and redraws. */
    virtual void setEnabled(bool flag);
    /** Puts `bitmap` (null clears) in the slot of the image attribute `code`. */
    virtual void setImage(uint32_t code, epiBitmap* bitmap);
    /** The image of the attribute `code`; null when none. */
    virtual epiBitmap* image(uint32_t code);
    /** An image slot was set; empty. */
    virtual void imageChanged(int32_t) {}

    /** The slot of an image attribute code, -1 for any other code. */
    static int32_t slotOf(uint32_t code);
    /** Acquires `name` from this widget's bitmap table; null when it can't be loaded. */
    epiBitmap* acquireImage(const epiText& name);
    /** The name the table knows `bitmap` by; empty when none. */
    epiText imageName(const epiBitmap* bitmap);
    epiBitmap* imageAt(int32_t slot) const
    {
        return slot >= 0 && slot < kSlots ? images_[size_t(slot)] : nullptr;
    }
    bool enabled() const { return enabled_; }

protected:
    /** Draws all of `bitmap` over the bounds, blended when it has alpha. */
    void drawWhole(epiBitmap* bitmap, const epiRect& rect)
    {
        drawPart(bitmap, bitmap != nullptr ? bitmap->rect() : epiRect(), bounds_, rect);
    }
    /** Draws `source` of `bitmap` at `dest`, blended when it has alpha; nothing for a null bitmap. */
    void drawPart(epiBitmap* bitmap, const epiRect& source, const epiRect& dest, const epiRect& rect);
    /** pressed + 2 * on, from the behaviour. */
    int32_t stateIndex();

    std::array<epiBitmap*, kSlots> images_{};
    bool enabled_ = true;
    int32_t currentImage_ = 0;
};

/** A vertical strip of equal frames, one shown at a time. */
class epiUiBitmapFilmImage : public epiUiBitmapImage
{
public:
    uint32_t kind() const override { return epiCode("iBfi"); }
    void draw(const epiRect& rect) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    const uint32_t* attributeCodes() const override;
    /** Shows frame `value` modulo the frame count. */
    void setValue(float value) override;
    float getValue() override { return float(filmFrame_); }

    int32_t filmFrame() const { return filmFrame_; }
    int32_t frames() const { return frames_; }

protected:
    /** Stores and redraws frame `n` (modulo the count) when it differs. */
    void showFrame(int32_t n);
    /** The image the film is cut from now. */
    virtual epiBitmap* filmImage() { return images_[kOff]; }

    int32_t filmFrame_ = 0;
    int32_t frames_ = 1;
};

/** A knob: a film whose frame follows a smooth dragger; an upward drag raises the value. */
class epiUiBitmapRotary : public epiUiBitmapFilmImage
{
public:
    uint32_t kind() const override { return epiCode("iBrt"); }
    epiUiBehaviour* newBehaviour() override { return new epiUiBehaviourSmoothDragger(); }
    void setAttribute(uint32_t code, const epiText* value) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    void mouseDown(const epiPoint& point) override;
    void mouseDragged(const epiPoint& point) override;
    void mouseUp(const epiPoint& point) override;
    void mouseWheel(const epiPoint& point, int32_t delta) override;
    void setValue(float value) override;
    float getValue() override;
    /** The film takes the behaviour's shown position. */
    void redrawRequest() override;
    bool isHittable() override { return enabled_; }
    /** How far the pointer went up since the press. */
    virtual int32_t dragDelta(const epiPoint& point) { return downPoint_.y_ - point.y_; }

    float sensitivity() const { return sensitivity_; }

protected:
    epiBitmap* filmImage() override { return enabled_ ? images_[kOff] : disabledImage_; }
    void dragTo(const epiPoint& point);

    epiPoint downPoint_;
    float startValue_ = 0;
    float sensitivity_ = 1.0f;
    epiBitmap* disabledImage_ = nullptr;
};

/** A rotary that snaps to a list of trigger points. */
class epiUiBitmapTriggeredRotary : public epiUiBitmapRotary
{
public:
    uint32_t kind() const override { return epiCode("iBrr"); }
    epiUiBehaviour* newBehaviour() override { return new epiUiBehaviourTriggeredDragger(); }
};

/** A push button: the image of pressed + 2 * on, or 'irDi' while disabled. */
class epiUiBitmapButton : public epiUiBitmapImage
{
public:
    uint32_t kind() const override { return epiCode("iBbt"); }
    epiUiBehaviour* newBehaviour() override { return new epiUiBehave_button(); }
    void draw(const epiRect& rect) override;
};

/** A button whose click flips its value. */
class epiUiBitmapCheckBox : public epiUiBitmapButton
{
public:
    uint32_t kind() const override { return epiCode("iBck"); }
    epiUiBehaviour* newBehaviour() override { return new epiUiBehave_checkBox(); }
};

/** A button whose click selects it in its group ('fagr', 'fain'). */
class epiUiBitmapRadio : public epiUiBitmapButton
{
public:
    uint32_t kind() const override { return epiCode("iBrd"); }
    epiUiBehaviour* newBehaviour() override { return new epiUiBehave_radio(); }
    const uint32_t* attributeCodes() const override;
};

/** The caption of a text button: fonts, colours by state, offset and alignment. */
struct epiUiButtonCaption
{
    uint32_t font = 0;        ///< 'teFo'
    uint32_t pressedFont = 0; ///< 'teFp'
    epiPoint offset;          ///< 'teOx', 'teOy'
    epiColour on;             ///< 'tCon'
    epiColour off;            ///< 'tCof'
    epiColour disabled;       ///< 'tCdi'
    int32_t alignment = 0;    ///< 'txAl'

    /** @return false for a code that isn't a caption attribute */
    bool read(uint32_t code, const epiText* value);
    bool write(uint32_t code, epiText& dest) const;
    /** Draws `text` over the widget's bounds for the state index `index` (pressed + 2 * on). */
    void draw(epiUbo& widget, const epiRect& rect, const epiText& text, int32_t index, bool enabled) const
    {
        drawIn(widget, widget.boundsRect(), rect, text, index, enabled);
    }
    /** The same over `area` of the widget's coordinates. */
    void drawIn(epiUbo& widget, epiRect area, const epiRect& rect, const epiText& text, int32_t index,
                bool enabled) const;
};

/** A button type with its caption drawn over the image. */
template <class Button, uint32_t Kind> class epiUiBitmapWithText : public Button
{
public:
    uint32_t kind() const override { return Kind; }
    void draw(const epiRect& rect) override
    {
        Button::draw(rect);
        caption_.draw(*this, rect, this->text_, this->stateIndex(), this->enabled_);
    }
    void setAttribute(uint32_t code, const epiText* value) override
    {
        if (caption_.read(code, value))
            this->invalidateAll();
        else
            Button::setAttribute(code, value);
    }
    bool getAttribute(uint32_t code, epiText& dest) override
    {
        return caption_.write(code, dest) || Button::getAttribute(code, dest);
    }
    void onTextChanged() override { this->invalidateAll(); }

    const epiUiButtonCaption& caption() const { return caption_; }

private:
    epiUiButtonCaption caption_;
};

using epiUiBitmapButtonWithText = epiUiBitmapWithText<epiUiBitmapButton, epiCode("iBwt")>;
using epiUiBitmapCheckBoxWithText = epiUiBitmapWithText<epiUiBitmapCheckBox, epiCode("iBct")>;
using epiUiBitmapRadioWithText = epiUiBitmapWithText<epiUiBitmapRadio, epiCode("iBrs")>;

/** A button with an icon ('IcOn', 'IcOf') centred over its image. */
class epiUiBitmapButtonWithIcon : public epiUiBitmapButton
{
public:
    uint32_t kind() const override { return epiCode("iBbi"); }
    void draw(const epiRect& rect) override;
    void setAttribute(uint32_t code, const epiText* value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;

protected:
    /** The icon for the state index and how far it moves up. */
    virtual epiBitmap* iconFor(int32_t index, int32_t& lift);

    epiBitmap* iconOn_ = nullptr;
    epiBitmap* iconOff_ = nullptr;
};

/** A check box with an icon: 'IcOn' at index 1 and 2, 'IcOf' at 0 and 3, a pixel higher. */
class epiUiBitmapCheckWithIcon : public epiUiBitmapButtonWithIcon
{
public:
    uint32_t kind() const override { return epiCode("iBci"); }
    epiUiBehaviour* newBehaviour() override { return new epiUiBehave_checkBox(); }

protected:
    epiBitmap* iconFor(int32_t index, int32_t& lift) override;
};

/**
 * A scroll bar or fader: the thumb image slides along the widget, vertical when it is taller than
 * wide; its offset is the smooth dragger's display value, growing upward or rightward.
 */
class epiUiBitmapScroll : public epiUiBitmapImage
{
public:
    uint32_t kind() const override { return epiCode("iBsc"); }
    epiUiBehaviour* newBehaviour() override { return new epiUiBehaviourSmoothDragger(); }
    bool start() override;
    void setFrame(const epiRect& rect) override;
    void imageChanged(int32_t index) override;
    void draw(const epiRect& rect) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    void mouseDown(const epiPoint& point) override;
    void mouseDragged(const epiPoint& point) override;
    void mouseUp(const epiPoint& point) override;
    void mouseWheel(const epiPoint& point, int32_t delta) override;
    bool isHittable() override { return enabled_; }
    /** Along the bar: up for a vertical one, right for a horizontal one. */
    virtual int32_t dragDelta(const epiPoint& point);

    /** Where the thumb stands now, in local coordinates; empty without an image. */
    epiRect thumbRect();
    bool vertical() const { return vertical_; }
    float sensitivity() const { return sensitivity_; }

protected:
    /** Orientation, thumb length and the behaviour's display range from the frame and image 0. */
    void setUp();

    epiPoint downPoint_;
    float startValue_ = 0;
    float sensitivity_ = 1.0f;
    bool pressed_ = false;
    bool vertical_ = true;
};

/** A line of text in a bitmap font ('teFo'), colour 'teCl', alignment 'txAl'; 'Clik' makes it take clicks. */
class epiUiBitmapText : public epiUbo
{
public:
    uint32_t kind() const override { return epiCode("iBst"); }
    const uint32_t* allowedParentKinds() const override;
    void draw(const epiRect& rect) override;
    void setAttribute(uint32_t code, const epiText* value) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    const uint32_t* attributeCodes() const override;
    void onTextChanged() override { invalidateAll(); }
    bool isHittable() override { return clickable_; }
    /** A click is a hit. */
    void mouseDown(const epiPoint& point) override;

    uint32_t font() const { return font_; }
    epiColour colour() const { return colour_; }

protected:
    uint32_t font_ = 0;
    epiColour colour_;
    int32_t alignment_ = 0;
    bool clickable_ = false;
};

/** A text that the user drags through a list of values ('cont', one a line), a step each two pixels. */
class epiUiBitmapTextRolling : public epiUiBitmapText
{
public:
    uint32_t kind() const override { return epiCode("iBtr"); }
    void setAttribute(uint32_t code, const epiText* value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    void mouseDown(const epiPoint& point) override;
    void mouseDragged(const epiPoint& point) override;
    void mouseUp(const epiPoint& point) override;
    /** Shows line `value` when there is one. */
    void setValue(float value) override;
    float getValue() override { return float(index_); }

    int32_t count() const { return count_; }
    const epiTextsList& lines() const { return lines_; }

protected:
    epiTextsList lines_;
    int32_t count_ = -1;
    int32_t index_ = 0;
    epiPoint lastPoint_;
};

/** A level bar of image 0: rises at once, falls by 'lmSp' every 0.1 seconds. */
class epiUiBitmapLevMeter : public epiUiBitmapImage
{
public:
    uint32_t kind() const override { return epiCode("iBlm"); }
    void draw(const epiRect& rect) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    const uint32_t* attributeCodes() const override;
    /** A higher value shows at once; a lower one is left to the fall. */
    void setValue(float value) override;
    float getValue() override { return shown_; }
    void onTimer() override;

    /** The lit part in local coordinates for the value shown now. */
    epiRect litRect() const;

protected:
    float minimum_ = 0;
    float maximum_ = 100;
    float shown_ = 0;
    float fall_ = 10;
    int32_t box_ = 0;
};

class epiUiBitmapPopupList;

/**
 * The face of a choice among the entries of 'cont' (one a line): a button with the chosen entry as
 * its caption. The wheel steps through the entries; a click moves to the next one, round to the
 * first, unless a derived class opens a list instead.
 */
class epiUiBitmapSubPopup : public epiUiBitmapWithText<epiUiBitmapButton, epiCode("iBpu")>
{
public:
    void setAttribute(uint32_t code, const epiText* value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    const uint32_t* attributeCodes() const override;
    void click() override;
    void mouseWheel(const epiPoint& point, int32_t delta) override;
    /** Chooses entry `value` when there is one; anything else changes nothing. */
    void setValue(float value) override;
    float getValue() override { return float(index_); }

    int32_t count() const { return int32_t(lines_.size()); }
    const epiTextsList& lines() const { return lines_; }
    /** Chooses entry `index` as the user does: with a hit when it differs. */
    void choose(int32_t index);

protected:
    epiTextsList lines_;
    int32_t index_ = 0;
};

/**
 * A popup that opens its entries as a list of rows under itself (over it when there is no room
 * below), each row drawn with image 'irOf' and the chosen one with 'irOn', in the caption's font.
 * The open list lies over the whole window: a click on a row chooses it, a click anywhere else
 * closes it.
 */
class epiUiBitmapPopup : public epiUiBitmapSubPopup
{
public:
    void click() override;
    void stop() override;

    /** The list while it is open; null when closed. */
    epiUiBitmapPopupList* openList() const;
    /** The rows in the window's coordinates, one per entry, as the list places them. */
    epiRect rowRect(int32_t row);
    void closeList();
    /** Draws the row of entry `row` within `area` of `list`. */
    void drawRow(epiUbo& list, int32_t row, const epiRect& area, const epiRect& rect);

private:
    friend class epiUiBitmapPopupList;
    epiUiBitmapPopupList* list_ = nullptr;
};

/** The open rows of an epiUiBitmapPopup, over the whole window; only the popup makes one. */
class epiUiBitmapPopupList : public epiUbo
{
public:
    explicit epiUiBitmapPopupList(epiUiBitmapPopup* popup) : popup_(popup) {}
    void draw(const epiRect& rect) override;
    void mouseDown(const epiPoint& point) override;
    void mouseUp(const epiPoint&) override {}
    /** Steps the choice as the wheel over the popup does, the rows staying open. */
    void mouseWheel(const epiPoint& point, int32_t delta) override;
    void stop() override;

private:
    friend class epiUiBitmapPopup;
    epiUiBitmapPopup* popup_;
};
