#pragma once

#include "epi/ui/epiUbo.h"

#include <cstdint>
#include <vector>

typedef struct _GtkWidget GtkWidget;
class epiWindow;

/**
 * A platform control placed in the window's client at its frame: it follows the object's frame,
 * text, value, visibility and enabled state, and turns the control's own changes into hit().
 * Setters never cause hit(). An empty frame makes a control that is never shown.
 */
class epiUiSystemButton : public epiUbo
{
public:
    epiUiSystemButton();
    ~epiUiSystemButton() override;

    uint32_t kind() const override { return epiCode("iSbt"); }
    void notifyCreated() override;
    void notifyDestroyed() override;
    void setFrame(const epiRect& rect) override;
    void onVisibilityChanged() override;
    void redrawRequest() override;
    /** A new text goes to the control at once. */
    void onTextChanged() override { redrawRequest(); }
    void setAttributeInt(uint32_t code, int32_t value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;

    virtual void setEnabled(bool enabled);
    virtual bool isEnabled() const { return enabled_; }
    /** Enter (13) or Escape (27) anywhere in the window: hits this control when it is the enabled default or
     * cancel one. */
    bool takeWindowKey(int32_t key);

    GtkWidget* widget() const { return widget_; }
    /** The control's native signal: hit() unless a setter of ours is under way. */
    virtual void onNativeChange();

protected:
    /** Makes the control and connects its signals. */
    virtual GtkWidget* makeWidget();
    /** Gives the object's text to the control. */
    virtual void pushText();
    /** The size the control gets: the frame's, but a popup's list wants its own. */
    void placeWidget();
    bool shown() const;

    GtkWidget* widget_ = nullptr;
    epiWindow* window_ = nullptr;
    bool defaultKey_ = false;
    bool cancelKey_ = false;
    bool enabled_ = true;
    // Raised while this object changes its own control, so that the control's signal doesn't report.
    int32_t setting_ = 0;
};

/** A radio button that only selectInGroup() switches: a click reports and the group decides. */
class epiUiSystemRadio : public epiUiSystemButton
{
public:
    uint32_t kind() const override { return epiCode("iSrd"); }
    void setValue(float value) override;
    float getValue() override { return value_ ? 1.0f : 0.0f; }
    void onNativeChange() override;

protected:
    GtkWidget* makeWidget() override;
    void showValue();
    bool value_ = false;
    GtkWidget* partner_ = nullptr;
};

/** A check box: a click switches it and reports. */
class epiUiSystemCheckBox : public epiUiSystemRadio
{
public:
    uint32_t kind() const override { return epiCode("iSck"); }
    void setValue(float value) override;
    void onNativeChange() override;

protected:
    GtkWidget* makeWidget() override;
};

/** A static text: wrapped, aligned by 'txAl', bold by 'teBo', in the native 8-point font. */
class epiUiSystemStaticText : public epiUiSystemButton
{
public:
    uint32_t kind() const override { return epiCode("iSst"); }
    void setAttributeInt(uint32_t code, int32_t value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;

protected:
    GtkWidget* makeWidget() override;
    void pushText() override;
    void applyStyle();
    int32_t alignment_ = 0;
    int32_t size_ = 0;
    bool bold_ = false;
};

/** A one-line edit: typed characters filtered by 'filC', length limited by 'maxC', Tab to the next edit. */
class epiUiSystemEditText : public epiUiSystemStaticText
{
public:
    uint32_t kind() const override { return epiCode("iSet"); }
    void setAttribute(uint32_t code, const epiText* value) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    float getValue() override;
    void onNativeChange() override;
    /** Whether the filter lets a typed character through. */
    bool accepts(uint32_t character) const;
    /** Moves the focus to the next edit of the parent, circularly, its text selected. */
    void focusNextEdit();

protected:
    GtkWidget* makeWidget() override;
    void pushText() override;
    epiText filter_;
    int32_t maxChars_ = 0;
};

/** A drop-down list filled by 'cont' (or 'cnth', which leaves out entries holding '/'). */
class epiUiSystemPopup : public epiUiSystemButton
{
public:
    uint32_t kind() const override { return epiCode("iSpu"); }
    void setAttribute(uint32_t code, const epiText* value) override;
    void setText(const epiText* text) override;
    void setValue(float value) override;
    float getValue() override;
    void layoutDone() override;
    void onNativeChange() override;
    /** The entries as listed. */
    const std::vector<epiText>& entries() const { return entries_; }

protected:
    GtkWidget* makeWidget() override;
    void pushText() override {}
    void fill();
    epiText content_;
    bool hiding_ = true;
    std::vector<epiText> entries_;
    int32_t chosen_ = -1;
};

/** A scroll bar with its own step arithmetic: a line is 1, a page a tenth of the range, truncated. */
class epiUiSystemScroll : public epiUiSystemButton
{
public:
    enum class Step
    {
        LineBack,
        LineOn,
        PageBack,
        PageOn,
        Jump,
        Start,
        End
    };
    uint32_t kind() const override { return epiCode("iSsc"); }
    void setAttributeInt(uint32_t code, int32_t value) override;
    void setValue(float value) override;
    float getValue() override { return float(position_); }
    /** A step of the bar: clamps, and only a change sets the value and hits. */
    void step(Step kind, int32_t jumpTo = 0);
    /** The wheel: the position minus ten times the steps. */
    void wheel(int32_t steps);

protected:
    GtkWidget* makeWidget() override;
    void pushText() override {}
    void showRange();
    int32_t minimum_ = 0;
    int32_t maximum_ = 0;
    int32_t position_ = 1;
};

/** A progress bar from 1 to 100. */
class epiUiSystemProgressBar : public epiUiSystemButton
{
public:
    uint32_t kind() const override { return epiCode("iSpb"); }
    void setValue(float value) override;
    float getValue() override { return value_; }

protected:
    GtkWidget* makeWidget() override;
    void pushText() override {}
    float value_ = 0;
};

/**
 * A container with an X window of its own, where another program's window (a plug-in's editor) is
 * made a child. Hidden, it is unmapped, so that the drawing beneath shows.
 */
class epiUiSystemContainer : public epiUiSystemButton
{
public:
    uint32_t kind() const override { return epiCode("iSco"); }
    bool vetoChild() override { return true; }
    /** The X window id, created and synced with the server before it is given out; 0 when none. */
    unsigned long nativeXid();

protected:
    GtkWidget* makeWidget() override;
    void pushText() override {}
};

namespace epiGtk
{

/** Enters the native controls' kinds in the factory and installs the controls' stylesheet. */
void registerSystemWidgets();

} // namespace epiGtk
