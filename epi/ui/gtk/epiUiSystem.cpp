#include "epi/ui/gtk/epiUiSystem.h"

#include "epi/ui/epiApplication.h"
#include "epi/ui/gtk/epiWindow.h"

#include <gdk/gdkkeysyms.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <cstdlib>

namespace
{

void changedThunk(GtkWidget*, gpointer self)
{
    static_cast<epiUiSystemButton*>(self)->onNativeChange();
}

gboolean scrollChangeThunk(GtkRange*, GtkScrollType scroll, gdouble value, gpointer self)
{
    auto* bar = static_cast<epiUiSystemScroll*>(self);
    using Step = epiUiSystemScroll::Step;
    switch (scroll)
    {
    case GTK_SCROLL_STEP_BACKWARD:
    case GTK_SCROLL_STEP_UP:
    case GTK_SCROLL_STEP_LEFT:
        bar->step(Step::LineBack);
        break;
    case GTK_SCROLL_STEP_FORWARD:
    case GTK_SCROLL_STEP_DOWN:
    case GTK_SCROLL_STEP_RIGHT:
        bar->step(Step::LineOn);
        break;
    case GTK_SCROLL_PAGE_BACKWARD:
    case GTK_SCROLL_PAGE_UP:
    case GTK_SCROLL_PAGE_LEFT:
        bar->step(Step::PageBack);
        break;
    case GTK_SCROLL_PAGE_FORWARD:
    case GTK_SCROLL_PAGE_DOWN:
    case GTK_SCROLL_PAGE_RIGHT:
        bar->step(Step::PageOn);
        break;
    case GTK_SCROLL_START:
        bar->step(Step::Start);
        break;
    case GTK_SCROLL_END:
        bar->step(Step::End);
        break;
    default:
        bar->step(Step::Jump, int32_t(value));
        break;
    }
    // The bar's own arithmetic is never used.
    return TRUE;
}

gboolean scrollWheelThunk(GtkWidget*, GdkEventScroll* event, gpointer self)
{
    if (event->direction == GDK_SCROLL_UP)
        static_cast<epiUiSystemScroll*>(self)->wheel(1);
    else if (event->direction == GDK_SCROLL_DOWN)
        static_cast<epiUiSystemScroll*>(self)->wheel(-1);
    return TRUE;
}

void insertTextThunk(GtkEditable* editable, gchar* text, gint length, gint*, gpointer self)
{
    auto* edit = static_cast<epiUiSystemEditText*>(self);
    const gchar* end = length < 0 ? nullptr : text + length;
    for (const gchar* p = text; *p != '\0' && (end == nullptr || p < end); p = g_utf8_next_char(p))
        if (!edit->accepts(g_utf8_get_char(p)))
        {
            g_signal_stop_emission_by_name(editable, "insert-text");
            return;
        }
}

gboolean editKeyThunk(GtkWidget*, GdkEventKey* event, gpointer self)
{
    if (event->keyval == GDK_KEY_Tab || event->keyval == GDK_KEY_ISO_Left_Tab)
    {
        static_cast<epiUiSystemEditText*>(self)->focusNextEdit();
        return TRUE;
    }
    return FALSE;
}

epiWindow* windowAbove(epiUbo* object)
{
    for (epiUbo* p = object->parent(); p != nullptr; p = p->parent())
        if (auto* window = dynamic_cast<epiWindow*>(p))
            return window;
    return nullptr;
}

// Controls keep the sizes of their Windows-sized frames under any theme: a 23-pixel button, a
// 21-pixel list, a 20-pixel edit, in the 8-point native font.
const char* const kStyleSheet = R"css(
.epi-native, .epi-native * { font-family: "DejaVu Sans"; font-size: 8pt; }
button.epi-native { min-height: 0; min-width: 0; padding: 0 4px; }
combobox.epi-native button, combobox.epi-native box { min-height: 0; min-width: 0; padding-top: 0; padding-bottom: 0; }
combobox.epi-native arrow { min-height: 0; min-width: 10px; }
entry.epi-native { min-height: 0; min-width: 0; padding: 0 3px; }
checkbutton.epi-native, radiobutton.epi-native { min-height: 0; padding: 0; }
checkbutton.epi-native check, radiobutton.epi-native radio { min-width: 12px; min-height: 12px; }
scrollbar.epi-native slider { min-width: 6px; min-height: 6px; }
progressbar.epi-native trough, progressbar.epi-native progress { min-height: 0; min-width: 0; }
.epi-bold { font-weight: bold; }
)css";

template <class T> epiObject* make(uint32_t)
{
    return new T();
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Button, the base of all

epiUiSystemButton::epiUiSystemButton()
{
    frame_.set(10, 10, 100, 35);
}

epiUiSystemButton::~epiUiSystemButton()
{
    if (widget_ != nullptr)
    {
        g_signal_handlers_disconnect_by_data(widget_, this);
        gtk_widget_destroy(widget_);
        g_object_unref(widget_);
    }
}

bool epiUiSystemButton::shown() const
{
    return visible_ && frame_.width() > 0 && frame_.height() > 0;
}

GtkWidget* epiUiSystemButton::makeWidget()
{
    GtkWidget* button = gtk_button_new_with_label("");
    g_signal_connect(button, "clicked", G_CALLBACK(changedThunk), this);
    return button;
}

void epiUiSystemButton::notifyCreated()
{
    epiUbo::notifyCreated();
    if (widget_ != nullptr)
        return;
    window_ = windowAbove(this);
    if (window_ == nullptr || window_->clientWidget() == nullptr)
        return;
    ++setting_;
    widget_ = makeWidget();
    g_object_ref_sink(widget_);
    gtk_style_context_add_class(gtk_widget_get_style_context(widget_), "epi-native");
    epiRect place = frame_;
    parent_->rectToAncestor(place, window_);
    gtk_fixed_put(GTK_FIXED(window_->clientWidget()), widget_, place.left_, place.top_);
    placeWidget();
    gtk_widget_set_sensitive(widget_, enabled_);
    pushText();
    --setting_;
    if (shown())
        gtk_widget_show_all(widget_);
}

void epiUiSystemButton::placeWidget()
{
    if (widget_ == nullptr || window_ == nullptr)
        return;
    epiRect place = frame_;
    parent_->rectToAncestor(place, window_);
    gtk_fixed_move(GTK_FIXED(window_->clientWidget()), widget_, place.left_, place.top_);
    gtk_widget_set_size_request(widget_, std::max(place.width(), 1), std::max(place.height(), 1));
}

void epiUiSystemButton::notifyDestroyed()
{
    if (widget_ != nullptr)
    {
        g_signal_handlers_disconnect_by_data(widget_, this);
        gtk_widget_destroy(widget_);
        g_object_unref(widget_);
        widget_ = nullptr;
    }
    epiUbo::notifyDestroyed();
}

void epiUiSystemButton::setFrame(const epiRect& rect)
{
    epiUbo::setFrame(rect);
    placeWidget();
    onVisibilityChanged();
}

void epiUiSystemButton::onVisibilityChanged()
{
    if (widget_ == nullptr)
        return;
    if (shown())
        gtk_widget_show_all(widget_);
    else
        gtk_widget_hide(widget_);
}

void epiUiSystemButton::redrawRequest()
{
    ++setting_;
    pushText();
    --setting_;
}

void epiUiSystemButton::pushText()
{
    if (widget_ != nullptr)
        gtk_button_set_label(GTK_BUTTON(widget_), epiGtk::nativeText(text_).cstr());
}

void epiUiSystemButton::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("defa"))
    {
        defaultKey_ = value == 1;
        cancelKey_ = value == 2;
    }
    else if (code == epiCode("enab"))
        setEnabled(value != 0);
    epiUbo::setAttributeInt(code, value);
}

bool epiUiSystemButton::getAttribute(uint32_t code, epiText& dest)
{
    if (code == epiCode("defa"))
    {
        dest = epiText(defaultKey_ ? "1" : cancelKey_ ? "2" : "0");
        return true;
    }
    return epiUbo::getAttribute(code, dest);
}

void epiUiSystemButton::setEnabled(bool enabled)
{
    enabled_ = enabled;
    if (widget_ != nullptr)
        gtk_widget_set_sensitive(widget_, enabled);
}

bool epiUiSystemButton::takeWindowKey(int32_t key)
{
    if (!enabled_ || !((key == 13 && defaultKey_) || (key == 27 && cancelKey_)))
        return false;
    retain();
    hit();
    release();
    return true;
}

void epiUiSystemButton::onNativeChange()
{
    if (setting_ > 0)
        return;
    retain();
    hit();
    release();
}

// ---------------------------------------------------------------------------------------------
// Radio and check box

GtkWidget* epiUiSystemRadio::makeWidget()
{
    // A hidden partner holds the group's other state, so that the visible button can be switched off.
    partner_ = gtk_radio_button_new(nullptr);
    g_object_ref_sink(partner_);
    GtkWidget* radio = gtk_radio_button_new_with_label_from_widget(GTK_RADIO_BUTTON(partner_), "");
    showValue();
    g_signal_connect(radio, "clicked", G_CALLBACK(changedThunk), this);
    return radio;
}

void epiUiSystemRadio::showValue()
{
    if (partner_ == nullptr)
        return;
    ++setting_;
    if (widget_ != nullptr && value_)
        gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(widget_), TRUE);
    else
        gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(partner_), TRUE);
    --setting_;
}

void epiUiSystemRadio::setValue(float value)
{
    value_ = value != 0.0f;
    showValue();
}

void epiUiSystemRadio::onNativeChange()
{
    if (setting_ > 0)
        return;
    // The click only reports: the group logic sets the value through selectInGroup().
    showValue();
    retain();
    hit();
    release();
}

GtkWidget* epiUiSystemCheckBox::makeWidget()
{
    GtkWidget* check = gtk_check_button_new_with_label("");
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(check), value_);
    g_signal_connect(check, "toggled", G_CALLBACK(changedThunk), this);
    return check;
}

void epiUiSystemCheckBox::setValue(float value)
{
    value_ = value != 0.0f;
    if (widget_ == nullptr)
        return;
    ++setting_;
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(widget_), value_);
    --setting_;
}

void epiUiSystemCheckBox::onNativeChange()
{
    if (setting_ > 0 || widget_ == nullptr)
        return;
    value_ = gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(widget_));
    retain();
    hit();
    release();
}

// ---------------------------------------------------------------------------------------------
// Static text

GtkWidget* epiUiSystemStaticText::makeWidget()
{
    GtkWidget* label = gtk_label_new("");
    gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    gtk_label_set_yalign(GTK_LABEL(label), 0.0f);
    widget_ = label;
    applyStyle();
    return label;
}

void epiUiSystemStaticText::applyStyle()
{
    if (widget_ == nullptr || !GTK_IS_LABEL(widget_))
        return;
    const float xalign = alignment_ == 1 ? 0.5f : alignment_ == 2 ? 1.0f : 0.0f;
    gtk_label_set_xalign(GTK_LABEL(widget_), xalign);
    gtk_label_set_justify(GTK_LABEL(widget_), alignment_ == 1   ? GTK_JUSTIFY_CENTER
                                              : alignment_ == 2 ? GTK_JUSTIFY_RIGHT
                                                                : GTK_JUSTIFY_LEFT);
    // The size stays 8 points whatever 'teSi' says.
    GtkStyleContext* style = gtk_widget_get_style_context(widget_);
    if (bold_)
        gtk_style_context_add_class(style, "epi-bold");
    else
        gtk_style_context_remove_class(style, "epi-bold");
}

void epiUiSystemStaticText::pushText()
{
    if (widget_ != nullptr && GTK_IS_LABEL(widget_))
        gtk_label_set_text(GTK_LABEL(widget_), epiGtk::nativeText(text_).cstr());
}

void epiUiSystemStaticText::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("txAl"))
        alignment_ = value & 3;
    else if (code == epiCode("teSi"))
        size_ = value;
    else if (code == epiCode("teBo"))
        bold_ = value != 0;
    else
    {
        epiUiSystemButton::setAttributeInt(code, value);
        return;
    }
    applyStyle();
}

bool epiUiSystemStaticText::getAttribute(uint32_t code, epiText& dest)
{
    if (code == epiCode("txAl") || code == epiCode("teSi") || code == epiCode("teBo"))
    {
        const int32_t value = code == epiCode("txAl") ? alignment_ : code == epiCode("teSi") ? size_ : bold_;
        dest = epiText(std::to_string(value));
        return true;
    }
    return epiUiSystemButton::getAttribute(code, dest);
}

// ---------------------------------------------------------------------------------------------
// Edit

GtkWidget* epiUiSystemEditText::makeWidget()
{
    GtkWidget* entry = gtk_entry_new();
    // The frame sets the width: no minimum of characters.
    gtk_entry_set_width_chars(GTK_ENTRY(entry), 1);
    gtk_entry_set_max_length(GTK_ENTRY(entry), std::max(maxChars_, 0));
    g_signal_connect(entry, "insert-text", G_CALLBACK(insertTextThunk), this);
    g_signal_connect(entry, "changed", G_CALLBACK(changedThunk), this);
    g_signal_connect(entry, "key-press-event", G_CALLBACK(editKeyThunk), this);
    return entry;
}

void epiUiSystemEditText::pushText()
{
    if (widget_ != nullptr)
        gtk_entry_set_text(GTK_ENTRY(widget_), epiGtk::nativeText(text_).cstr());
}

void epiUiSystemEditText::setAttribute(uint32_t code, const epiText* value)
{
    if (code == epiCode("filC"))
    {
        filter_ = value != nullptr ? *value : epiText();
        return;
    }
    epiUiSystemStaticText::setAttribute(code, value);
}

void epiUiSystemEditText::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("maxC"))
    {
        maxChars_ = std::max(value, 0);
        if (widget_ != nullptr)
            gtk_entry_set_max_length(GTK_ENTRY(widget_), maxChars_);
        return;
    }
    epiUiSystemStaticText::setAttributeInt(code, value);
}

bool epiUiSystemEditText::accepts(uint32_t character) const
{
    // Only typed characters from 32 to 128 and Enter are filtered; the rest always pass.
    if (filter_.empty() || !((character >= 32 && character <= 128) || character == 13))
        return true;
    return filter_.find(char(character)) != std::string::npos;
}

float epiUiSystemEditText::getValue()
{
    return float(std::atof(text_.cstr()));
}

void epiUiSystemEditText::onNativeChange()
{
    if (setting_ > 0 || widget_ == nullptr)
        return;
    text_ = epiText(gtk_entry_get_text(GTK_ENTRY(widget_)));
    retain();
    hit();
    release();
}

void epiUiSystemEditText::focusNextEdit()
{
    if (parent_ == nullptr)
        return;
    const auto& siblings = parent_->children();
    const auto self = std::find(siblings.begin(), siblings.end(), this);
    if (self == siblings.end())
        return;
    const size_t start = size_t(self - siblings.begin());
    for (size_t i = 1; i <= siblings.size(); ++i)
    {
        auto* next = dynamic_cast<epiUiSystemEditText*>(siblings[(start + i) % siblings.size()]);
        if (next != nullptr && next->widget_ != nullptr)
        {
            gtk_widget_grab_focus(next->widget_);
            gtk_editable_select_region(GTK_EDITABLE(next->widget_), 0, -1);
            return;
        }
    }
}

// ---------------------------------------------------------------------------------------------
// Popup

GtkWidget* epiUiSystemPopup::makeWidget()
{
    GtkWidget* combo = gtk_combo_box_text_new();
    widget_ = combo;
    fill();
    g_signal_connect(combo, "changed", G_CALLBACK(changedThunk), this);
    return combo;
}

void epiUiSystemPopup::fill()
{
    entries_.clear();
    size_t start = 0;
    while (!content_.empty() && start <= content_.size())
    {
        size_t bar = content_.find('|', start);
        if (bar == std::string::npos)
            bar = content_.size();
        epiText entry(content_.substr(start, bar - start));
        if (!(hiding_ && entry.find('/') != std::string::npos))
            entries_.push_back(entry);
        start = bar + 1;
    }
    chosen_ = -1;
    if (widget_ == nullptr)
        return;
    ++setting_;
    gtk_combo_box_text_remove_all(GTK_COMBO_BOX_TEXT(widget_));
    for (const epiText& entry : entries_)
        gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(widget_), epiGtk::nativeText(entry).cstr());
    --setting_;
}

void epiUiSystemPopup::setAttribute(uint32_t code, const epiText* value)
{
    if (code == epiCode("cont") || code == epiCode("cnth"))
    {
        content_ = value != nullptr ? *value : epiText();
        hiding_ = code == epiCode("cnth");
        fill();
        return;
    }
    epiUiSystemButton::setAttribute(code, value);
}

void epiUiSystemPopup::setText(const epiText* text)
{
    // Only a text the list holds exactly is chosen; any other changes nothing.
    if (text == nullptr)
        return;
    // Before the control exists the layout's text is kept; layoutDone() chooses by it.
    if (widget_ == nullptr)
    {
        text_ = *text;
        return;
    }
    const auto found = std::find(entries_.begin(), entries_.end(), *text);
    if (found == entries_.end())
        return;
    chosen_ = int32_t(found - entries_.begin());
    text_ = *text;
    if (widget_ != nullptr)
    {
        ++setting_;
        gtk_combo_box_set_active(GTK_COMBO_BOX(widget_), chosen_);
        --setting_;
    }
}

void epiUiSystemPopup::setValue(float value)
{
    const int32_t index = int32_t(value);
    chosen_ = index >= 0 && index < int32_t(entries_.size()) ? index : -1;
    if (widget_ != nullptr)
    {
        ++setting_;
        gtk_combo_box_set_active(GTK_COMBO_BOX(widget_), chosen_);
        --setting_;
    }
    text_ = chosen_ >= 0 ? entries_[size_t(chosen_)] : epiText();
}

float epiUiSystemPopup::getValue()
{
    if (widget_ == nullptr)
        return 0.0f;
    return float(chosen_);
}

void epiUiSystemPopup::layoutDone()
{
    epiUiSystemButton::layoutDone();
    if (!text_.empty())
    {
        const epiText text = text_;
        setText(&text);
    }
}

void epiUiSystemPopup::onNativeChange()
{
    if (setting_ > 0 || widget_ == nullptr)
        return;
    // The text is stored before anyone hears of the hit.
    chosen_ = gtk_combo_box_get_active(GTK_COMBO_BOX(widget_));
    text_ = chosen_ >= 0 && chosen_ < int32_t(entries_.size()) ? entries_[size_t(chosen_)] : epiText();
    retain();
    hit();
    release();
}

// ---------------------------------------------------------------------------------------------
// Scroll bar

GtkWidget* epiUiSystemScroll::makeWidget()
{
    const bool horizontal = frame_.width() > frame_.height();
    GtkAdjustment* range = gtk_adjustment_new(position_, minimum_, maximum_ + 1, 1, 1, 1);
    GtkWidget* bar =
        gtk_scrollbar_new(horizontal ? GTK_ORIENTATION_HORIZONTAL : GTK_ORIENTATION_VERTICAL, range);
    g_signal_connect(bar, "change-value", G_CALLBACK(scrollChangeThunk), this);
    g_signal_connect(bar, "scroll-event", G_CALLBACK(scrollWheelThunk), this);
    return bar;
}

void epiUiSystemScroll::showRange()
{
    if (widget_ == nullptr)
        return;
    ++setting_;
    GtkAdjustment* range = gtk_range_get_adjustment(GTK_RANGE(widget_));
    gtk_adjustment_configure(range, position_, minimum_, maximum_ + 1, 1, 1, 1);
    --setting_;
}

void epiUiSystemScroll::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("min_"))
        minimum_ = value;
    else if (code == epiCode("max_"))
        maximum_ = value;
    else
    {
        epiUiSystemButton::setAttributeInt(code, value);
        return;
    }
    showRange();
}

void epiUiSystemScroll::setValue(float value)
{
    position_ = int32_t(value);
    showRange();
}

void epiUiSystemScroll::step(Step kind, int32_t jumpTo)
{
    const int32_t page = (maximum_ - minimum_) / 10;
    int32_t next = position_;
    switch (kind)
    {
    case Step::LineBack:
        next = position_ - 1;
        break;
    case Step::LineOn:
        next = position_ + 1;
        break;
    case Step::PageBack:
        next = position_ - page;
        break;
    case Step::PageOn:
        next = position_ + page;
        break;
    case Step::Jump:
        next = jumpTo;
        break;
    case Step::Start:
        next = minimum_;
        break;
    case Step::End:
        next = maximum_;
        break;
    }
    next = std::clamp(next, std::min(minimum_, maximum_), std::max(minimum_, maximum_));
    if (next == position_)
        return;
    setValue(float(next));
    retain();
    hit();
    release();
}

void epiUiSystemScroll::wheel(int32_t steps)
{
    step(Step::Jump, position_ - 10 * steps);
}

// ---------------------------------------------------------------------------------------------
// Progress bar

GtkWidget* epiUiSystemProgressBar::makeWidget()
{
    return gtk_progress_bar_new();
}

void epiUiSystemProgressBar::setValue(float value)
{
    value_ = value;
    if (widget_ != nullptr)
        gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(widget_), std::clamp((value - 1.0) / 99.0, 0.0, 1.0));
}

// ---------------------------------------------------------------------------------------------
// Container with its own X window

GtkWidget* epiUiSystemContainer::makeWidget()
{
    GtkWidget* area = gtk_drawing_area_new();
    return area;
}

unsigned long epiUiSystemContainer::nativeXid()
{
    if (widget_ == nullptr)
        return 0;
    gtk_widget_realize(widget_);
    GdkWindow* own = gtk_widget_get_window(widget_);
    if (own == nullptr || !gdk_window_ensure_native(own))
        return 0;
    // Another connection may make a child of it at once: the server must know the window first.
    gdk_display_sync(gdk_window_get_display(own));
    return GDK_WINDOW_XID(own);
}

namespace epiGtk
{

void registerSystemWidgets()
{
    const uint32_t family = epiCode("GrUi");
    epiFactory::add(family, epiCode("iSbt"), make<epiUiSystemButton>);
    epiFactory::add(family, epiCode("iSck"), make<epiUiSystemCheckBox>);
    epiFactory::add(family, epiCode("iSrd"), make<epiUiSystemRadio>);
    epiFactory::add(family, epiCode("iSst"), make<epiUiSystemStaticText>);
    epiFactory::add(family, epiCode("iSet"), make<epiUiSystemEditText>);
    epiFactory::add(family, epiCode("iSpu"), make<epiUiSystemPopup>);
    epiFactory::add(family, epiCode("iSsc"), make<epiUiSystemScroll>);
    epiFactory::add(family, epiCode("iSpb"), make<epiUiSystemProgressBar>);
    epiFactory::add(family, epiCode("iSco"), make<epiUiSystemContainer>);

    GtkCssProvider* css = gtk_css_provider_new();
    gtk_css_provider_load_from_data(css, kStyleSheet, -1, nullptr);
    gtk_style_context_add_provider_for_screen(gdk_screen_get_default(), GTK_STYLE_PROVIDER(css),
                                              GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(css);
}

} // namespace epiGtk
