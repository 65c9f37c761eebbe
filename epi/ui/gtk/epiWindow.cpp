#include "epi/ui/gtk/epiWindow.h"

#include "epi/ui/epiApplication.h"
#include "epi/ui/epiKeyboard.h"
#include "epi/ui/epiMenu.h"
#include "epi/ui/gtk/epiUiSystem.h"

#include <gdk/gdkkeysyms.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <cstdlib>

namespace
{

constexpr uint32_t kCodeMenuBar = epiCode("mBar");

gboolean drawThunk(GtkWidget*, cairo_t* cr, gpointer self)
{
    return static_cast<epiWindow*>(self)->onDraw(cr) ? TRUE : FALSE;
}

gboolean buttonThunk(GtkWidget*, GdkEventButton* event, gpointer self)
{
    return static_cast<epiWindow*>(self)->onButton(event) ? TRUE : FALSE;
}

gboolean motionThunk(GtkWidget*, GdkEventMotion* event, gpointer self)
{
    return static_cast<epiWindow*>(self)->onMotion(event) ? TRUE : FALSE;
}

gboolean scrollThunk(GtkWidget*, GdkEventScroll* event, gpointer self)
{
    return static_cast<epiWindow*>(self)->onScroll(event) ? TRUE : FALSE;
}

gboolean keyThunk(GtkWidget*, GdkEventKey* event, gpointer self)
{
    return static_cast<epiWindow*>(self)->onKey(event) ? TRUE : FALSE;
}

void dropThunk(GtkWidget* widget, GdkDragContext* context, gint x, gint y, GtkSelectionData* data, guint,
               guint time, gpointer self)
{
    auto* window = static_cast<epiWindow*>(self);
    gchar** uris = gtk_selection_data_get_uris(data);
    gtk_drag_finish(context, uris != nullptr, FALSE, time);
    if (uris == nullptr)
        return;
    // The point in client coordinates: below the menu bar when there is one.
    int clientX = x;
    int clientY = y;
    if (window->clientWidget() != nullptr)
        gtk_widget_translate_coordinates(widget, window->clientWidget(), x, y, &clientX, &clientY);
    window->retain();
    for (gchar** uri = uris; *uri != nullptr; ++uri)
        if (gchar* path = g_filename_from_uri(*uri, nullptr, nullptr))
        {
            window->fileDropped(epiPoint(clientX, clientY), epiText(path));
            g_free(path);
        }
    window->release();
    g_strfreev(uris);
}

gboolean deleteThunk(GtkWidget*, GdkEvent*, gpointer self)
{
    return static_cast<epiWindow*>(self)->onDelete() ? TRUE : FALSE;
}

epiKeyboard* keyboardOf(epiUbo* object)
{
    return dynamic_cast<epiKeyboard*>(object->keyboard());
}

uint32_t mouseBits(guint state)
{
    uint32_t bits = 0;
    if (state & GDK_BUTTON1_MASK)
        bits |= epiKeyboard::kMouseLeft;
    if (state & GDK_BUTTON3_MASK)
        bits |= epiKeyboard::kMouseRight;
    if (state & GDK_BUTTON2_MASK)
        bits |= epiKeyboard::kMouseMiddle;
    if (state & GDK_SHIFT_MASK)
        bits |= epiKeyboard::kMouseShift;
    if (state & GDK_CONTROL_MASK)
        bits |= epiKeyboard::kMouseControl;
    return bits;
}

/** The virtual key of the platform's key table for a GDK key; 0 for the others. */
uint32_t virtualKeyOf(guint keyval)
{
    switch (keyval)
    {
    case GDK_KEY_Page_Up:
    case GDK_KEY_KP_Page_Up:
        return epiKeyboard::kVkPageUp;
    case GDK_KEY_Page_Down:
    case GDK_KEY_KP_Page_Down:
        return epiKeyboard::kVkPageDown;
    case GDK_KEY_End:
    case GDK_KEY_KP_End:
        return epiKeyboard::kVkEnd;
    case GDK_KEY_Home:
    case GDK_KEY_KP_Home:
        return epiKeyboard::kVkHome;
    case GDK_KEY_Left:
    case GDK_KEY_KP_Left:
        return epiKeyboard::kVkLeft;
    case GDK_KEY_Up:
    case GDK_KEY_KP_Up:
        return epiKeyboard::kVkUp;
    case GDK_KEY_Right:
    case GDK_KEY_KP_Right:
        return epiKeyboard::kVkRight;
    case GDK_KEY_Down:
    case GDK_KEY_KP_Down:
        return epiKeyboard::kVkDown;
    case GDK_KEY_Delete:
    case GDK_KEY_KP_Delete:
        return epiKeyboard::kVkDelete;
    default:
        return 0;
    }
}

/** Offers Enter or Escape to the native buttons of the tree. @return one of them took it */
bool offerWindowKey(epiUbo& object, int32_t key)
{
    for (epiUbo* child : object.children())
    {
        if (!child->isVisible())
            continue;
        if (auto* button = dynamic_cast<epiUiSystemButton*>(child);
            button != nullptr && button->takeWindowKey(key))
            return true;
        if (offerWindowKey(*child, key))
            return true;
    }
    return false;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Window

epiWindow::epiWindow()
{
    // The tree draws into the back buffer; the draw handler copies it to the screen.
    setSurface(&surface_);
}

epiWindow::~epiWindow()
{
    fastTimer_.stop();
    if (window_ != nullptr)
    {
        g_signal_handlers_disconnect_by_data(window_, this);
        if (area_ != nullptr)
            g_signal_handlers_disconnect_by_data(area_, this);
        gtk_widget_destroy(window_);
        g_object_unref(window_);
        window_ = nullptr;
    }
    if (accelerators_ != nullptr)
        g_object_unref(accelerators_);
}

bool epiWindow::flag(uint32_t code) const
{
    for (const auto& [c, value] : flags_)
        if (c == code)
            return value != 0;
    return false;
}

void epiWindow::setAttributeInt(uint32_t code, int32_t value)
{
    // Every attribute of the window's creation is kept; those that GTK can show are applied when
    // the native window is made.
    auto found =
        std::find_if(flags_.begin(), flags_.end(), [code](const auto& p) { return p.first == code; });
    if (found != flags_.end())
        found->second = value;
    else
        flags_.emplace_back(code, value);
    epiUiWindowBase::setAttributeInt(code, value);
}

unsigned long epiWindow::xid() const
{
    if (window_ == nullptr || gtk_widget_get_window(window_) == nullptr)
        return 0;
    return GDK_WINDOW_XID(gtk_widget_get_window(window_));
}

void epiWindow::notifyCreated()
{
    epiUiWindowBase::notifyCreated();
    // Only a top-level window, one that joined the manager, gets a native window.
    if (window_ == nullptr && inManager_)
        createNative();
}

void epiWindow::createNative()
{
    fonts_.setResources(resources());
    window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    g_object_ref_sink(window_);
    const bool plain = flag(epiCode("Plai"));
    gtk_window_set_decorated(GTK_WINDOW(window_), !plain);
    gtk_window_set_resizable(GTK_WINDOW(window_), flag(epiCode("RszX")) || flag(epiCode("RszY")));
    gtk_window_set_deletable(GTK_WINDOW(window_), flag(epiCode("Clsa")));
    box_ = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(window_), box_);
    if (flag(kCodeMenuBar))
    {
        // The bar from the application's menu model; the window grows by its height.
        accelerators_ = gtk_accel_group_new();
        gtk_window_add_accel_group(GTK_WINDOW(window_), accelerators_);
        if (auto* model = dynamic_cast<epiMenu*>(menu()))
            menuBar_ = epiGtk::buildMenuBar(*model, accelerators_);
        else
            menuBar_ = gtk_menu_bar_new();
        gtk_box_pack_start(GTK_BOX(box_), menuBar_, FALSE, FALSE, 0);
    }
    fixed_ = gtk_fixed_new();
    gtk_box_pack_start(GTK_BOX(box_), fixed_, TRUE, TRUE, 0);
    // The tree's pixels and its mouse events live on a drawing area under the native controls.
    area_ = gtk_drawing_area_new();
    gtk_widget_add_events(area_, GDK_BUTTON_PRESS_MASK | GDK_BUTTON_RELEASE_MASK | GDK_POINTER_MOTION_MASK |
                                     GDK_SCROLL_MASK);
    gtk_fixed_put(GTK_FIXED(fixed_), area_, 0, 0);
    sizeClient();

    g_signal_connect(area_, "draw", G_CALLBACK(drawThunk), this);
    g_signal_connect(area_, "button-press-event", G_CALLBACK(buttonThunk), this);
    g_signal_connect(area_, "button-release-event", G_CALLBACK(buttonThunk), this);
    g_signal_connect(area_, "motion-notify-event", G_CALLBACK(motionThunk), this);
    g_signal_connect(area_, "scroll-event", G_CALLBACK(scrollThunk), this);
    g_signal_connect(window_, "key-press-event", G_CALLBACK(keyThunk), this);
    g_signal_connect(window_, "key-release-event", G_CALLBACK(keyThunk), this);
    g_signal_connect(window_, "delete-event", G_CALLBACK(deleteThunk), this);

    if (flag(epiCode("ReDr")))
    {
        // Files dropped from a file manager arrive as a list of URIs.
        static GtkTargetEntry uriList{const_cast<gchar*>("text/uri-list"), 0, 0};
        gtk_drag_dest_set(window_, GTK_DEST_DEFAULT_ALL, &uriList, 1, GDK_ACTION_COPY);
        g_signal_connect(window_, "drag-data-received", G_CALLBACK(dropThunk), this);
    }

    gtk_window_move(GTK_WINDOW(window_), frame_.left_, frame_.top_);
    applyTitle();
    gtk_widget_show_all(box_);
}

void epiWindow::sizeClient()
{
    const int32_t w = std::max(frame_.width(), 1);
    const int32_t h = std::max(frame_.height(), 1);
    if (back_.width() != w || back_.height() != h)
    {
        back_.create(w, h);
        back_.setUsesAlpha(false);
    }
    if (fixed_ == nullptr)
        return;
    gtk_widget_set_size_request(fixed_, w, h);
    gtk_widget_set_size_request(area_, w, h);
    // A window that may not be resized keeps the client's size; the others start at it.
    gtk_window_resize(GTK_WINDOW(window_), 1, 1);
}

void epiWindow::setFrame(const epiRect& rect)
{
    const epiRect before = frame_;
    epiUiWindowBase::setFrame(rect);
    if (window_ == nullptr)
        return;
    if (before.width() != frame_.width() || before.height() != frame_.height())
    {
        sizeClient();
        invalidateAll();
    }
    if (before.left_ != frame_.left_ || before.top_ != frame_.top_)
        gtk_window_move(GTK_WINDOW(window_), frame_.left_, frame_.top_);
}

void epiWindow::applyTitle()
{
    if (window_ != nullptr)
        gtk_window_set_title(GTK_WINDOW(window_), epiGtk::nativeText(text_).cstr());
}

void epiWindow::onTextChanged()
{
    applyTitle();
}

void epiWindow::onVisibilityChanged()
{
    if (window_ == nullptr)
        return;
    if (visible_)
        gtk_widget_show(window_);
    else
        gtk_widget_hide(window_);
}

void epiWindow::layoutDone()
{
    epiUiWindowBase::layoutDone();
    afterItemRead();
    if (window_ == nullptr)
        return;
    const bool sheet = flag(epiCode("Shet"));
    if (modal_ || sheet)
    {
        // Modal: transient over the window that was on top, and GTK gives the others no input.
        if (epiWindowManager* manager = windowManager())
        {
            for (auto it = manager->windows().rbegin(); it != manager->windows().rend(); ++it)
                if (auto* other = dynamic_cast<epiWindow*>(*it); other != nullptr && other != this)
                {
                    previousTop_ = other;
                    if (other->window_ != nullptr)
                        gtk_window_set_transient_for(GTK_WINDOW(window_), GTK_WINDOW(other->window_));
                    break;
                }
        }
        gtk_window_set_modal(GTK_WINDOW(window_), TRUE);
    }
    if (visible_)
    {
        gtk_widget_show(window_);
        invalidateAll();
    }
    // A sheet is modal over its opener without a loop of its own: the opener goes on at once.
    if (modal_ && !sheet)
        runModal();
}

void epiWindow::runModal()
{
    if (inModalLoop_)
        return;
    inModalLoop_ = true;
    retain();
    epiWindowManager* manager = windowManager();
    epiEventSource* source = manager != nullptr ? manager->eventSource() : nullptr;
    epiApplication* application = epiApplicationOf(this);
    while (!closed_ && source != nullptr)
    {
        if (!source->dispatchOne())
            source->idleSleep();
        if (application != nullptr)
            application->pumpTimers();
    }
    inModalLoop_ = false;
    release();
}

void epiWindow::notifyDestroyed()
{
    if (closed_)
        return;
    retain();
    fastTimer_.stop();
    GtkWidget* window = window_;
    window_ = nullptr;
    if (window != nullptr)
    {
        g_signal_handlers_disconnect_by_data(window, this);
        g_signal_handlers_disconnect_by_data(area_, this);
        gtk_widget_destroy(window);
        g_object_unref(window);
        fixed_ = area_ = box_ = menuBar_ = nullptr;
        if (accelerators_ != nullptr)
            g_object_unref(accelerators_);
        accelerators_ = nullptr;
    }
    // The window that was under a modal one comes back to the front.
    if (modal_ && previousTop_ != nullptr && windowManager() != nullptr)
    {
        const auto& open = windowManager()->windows();
        if (std::find(open.begin(), open.end(), previousTop_) != open.end())
            if (auto* under = dynamic_cast<epiWindow*>(previousTop_);
                under != nullptr && under->window_ != nullptr)
                gtk_window_present(GTK_WINDOW(under->window_));
    }
    previousTop_ = nullptr;
    epiUiWindowBase::notifyDestroyed();
    release();
}

bool epiWindow::onDelete()
{
    // The close box: the window closes itself when it agrees; GTK never destroys it on its own.
    if (acceptsClose())
        notifyDestroyed();
    return true;
}

void epiWindow::fileDropped(const epiPoint&, const epiText&) {}

void epiWindow::startFastTimer(double seconds, epiApplicationObject* target)
{
    fastTimer_.start(seconds, target != nullptr ? target : this);
}

void epiWindow::requestRepaint(const epiRect& rect)
{
    epiUiWindowBase::requestRepaint(rect);
    if (area_ != nullptr)
        gtk_widget_queue_draw_area(area_, rect.left_, rect.top_, rect.width(), rect.height());
}

epiColour epiWindow::background() const
{
    if (flag(epiCode("grBl")))
        return epiColour{0, 0, 0, 255};
    if (flag(epiCode("grBk")))
        return epiColour{0xF0, 0xF0, 0xF0, 255};
    return epiColour{0xFF, 0xFF, 0xFF, 255};
}

void epiWindow::paintBackBuffer(const epiRect& area)
{
    epiRect rect = area;
    if (!rect.intersect(epiRect(0, 0, back_.width(), back_.height())))
        return;
    if (!flag(epiCode("noBk")))
        back_.fillRectClipped(background(), &rect, rect);
    setSurface(&surface_);
    retain();
    draw(rect);
    release();
}

bool epiWindow::onDraw(cairo_t* cr)
{
    GdkRectangle clip;
    if (!gdk_cairo_get_clip_rectangle(cr, &clip))
        return true;
    takeDirty();
    const epiRect area(clip.x, clip.y, clip.x + clip.width, clip.y + clip.height);
    paintBackBuffer(area);
    // Only the rectangle being repainted is copied.
    cairo_surface_t* pixels = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(back_.pixels()), CAIRO_FORMAT_RGB24, back_.width(), back_.height(),
        back_.width() * 4);
    cairo_set_source_surface(cr, pixels, 0, 0);
    cairo_rectangle(cr, clip.x, clip.y, clip.width, clip.height);
    cairo_fill(cr);
    cairo_surface_destroy(pixels);
    lastCopied_ = int64_t(clip.width) * clip.height;
    ++frames_;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Input

bool epiWindow::onButton(GdkEventButton* event)
{
    const epiPoint point(int32_t(event->x), int32_t(event->y));
    if (event->type == GDK_2BUTTON_PRESS || event->type == GDK_3BUTTON_PRESS)
        return true; // the press before it was delivered already, flagged by the test below
    const bool down = event->type == GDK_BUTTON_PRESS;
    bool doubleClick = false;
    if (down)
    {
        // A second press of the same button within the desktop's time and distance is a
        // double-click; the press after it begins a new one.
        gint time = 400;
        gint distance = 5;
        g_object_get(gtk_widget_get_settings(area_), "gtk-double-click-time", &time,
                     "gtk-double-click-distance", &distance, nullptr);
        doubleClick = lastPressButton_ == event->button && event->time - lastPressTime_ <= uint32_t(time) &&
                      std::abs(point.x_ - lastPressPoint_.x_) <= distance &&
                      std::abs(point.y_ - lastPressPoint_.y_) <= distance;
        lastPressButton_ = doubleClick ? 0 : event->button;
        lastPressTime_ = event->time;
        lastPressPoint_ = point;
    }
    uint32_t action = 0;
    switch (event->button)
    {
    case 1:
        action = down ? epiCode("mLdn") : epiCode("mLup");
        break;
    case 2:
        action = down ? epiCode("mCdn") : epiCode("mCup");
        break;
    case 3:
        action = down ? epiCode("mRdn") : epiCode("mRup");
        break;
    default:
        return false;
    }
    // The state GDK gives is before this event: the button itself is added or taken out.
    guint state = event->state;
    const guint mask = event->button == 1   ? GDK_BUTTON1_MASK
                       : event->button == 2 ? GDK_BUTTON2_MASK
                                            : GDK_BUTTON3_MASK;
    state = down ? (state | mask) : (state & ~mask);
    if (epiKeyboard* keys = keyboardOf(this))
    {
        keys->mouseMessage(mouseBits(state), action);
        if (down)
            keys->setDoubleClick(doubleClick);
    }
    retain();
    // GTK's implicit grab is the capture: the release comes here wherever the pointer is.
    if (down)
    {
        ++buttonsDown_;
        mouseDown(point);
    }
    else
    {
        buttonsDown_ = std::max(buttonsDown_ - 1, 0);
        mouseUp(point);
    }
    release();
    return true;
}

bool epiWindow::onMotion(GdkEventMotion* event)
{
    const epiPoint point(int32_t(event->x), int32_t(event->y));
    if (epiKeyboard* keys = keyboardOf(this))
        keys->mouseMessage(mouseBits(event->state), 0);
    retain();
    if (event->state & (GDK_BUTTON1_MASK | GDK_BUTTON2_MASK | GDK_BUTTON3_MASK))
        mouseDragged(point);
    else
        mouseMoved(point);
    release();
    return true;
}

bool epiWindow::onScroll(GdkEventScroll* event)
{
    int32_t delta = 0;
    if (event->direction == GDK_SCROLL_UP)
        delta = 1;
    else if (event->direction == GDK_SCROLL_DOWN)
        delta = -1;
    if (delta == 0)
        return false;
    retain();
    mouseWheel(epiPoint(int32_t(event->x), int32_t(event->y)), delta);
    release();
    return true;
}

int32_t epiWindow::keyCodeOf(unsigned int keyval, bool control)
{
    if (const uint32_t virtualKey = virtualKeyOf(keyval))
        return epiKeyboard::keyOfVirtual(virtualKey);
    switch (keyval)
    {
    case GDK_KEY_BackSpace:
        return 8;
    case GDK_KEY_Tab:
    case GDK_KEY_ISO_Left_Tab:
        return 9;
    case GDK_KEY_Return:
    case GDK_KEY_KP_Enter:
        return 13;
    case GDK_KEY_Escape:
        return 27;
    default:
        break;
    }
    const gunichar character = gdk_keyval_to_unicode(keyval);
    if (control && ((character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z')))
        return int32_t((character | 0x20) - 'a' + 1);
    if (character == 0 || character > 255)
        return 0;
    return int32_t(character);
}

bool epiWindow::onKey(GdkEventKey* event)
{
    const bool press = event->type == GDK_KEY_PRESS;
    // Accelerators and mnemonics first, then a native control with the focus.
    if (press && gtk_window_activate_key(GTK_WINDOW(window_), event))
        return true;
    // Enter and Escape reach the window's default and cancel buttons, even from an edit field.
    if (press && (event->keyval == GDK_KEY_Return || event->keyval == GDK_KEY_KP_Enter ||
                  event->keyval == GDK_KEY_Escape))
    {
        const int32_t key = event->keyval == GDK_KEY_Escape ? 27 : 13;
        if (offerWindowKey(*this, key))
            return true;
    }
    GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(window_));
    if (focus != nullptr && focus != area_ && gtk_window_propagate_key_event(GTK_WINDOW(window_), event))
        return true;

    const bool control = (event->state & GDK_CONTROL_MASK) != 0;
    if (epiKeyboard* keys = keyboardOf(this))
        keys->setModifiers((event->state & GDK_SHIFT_MASK) != 0, (event->state & GDK_MOD1_MASK) != 0, false,
                           control);
    const uint16_t hardware = event->hardware_keycode & 0xFF;
    retain();
    if (press)
    {
        const int32_t code = keyCodeOf(event->keyval, control);
        if (code != 0)
        {
            // A press while the key is down is the keyboard's repeat.
            if (keysDown_[hardware] != 0)
                keyRepeat(code);
            else
                keyDown(code);
            keysDown_[hardware] = code;
        }
    }
    else if (keysDown_[hardware] != 0)
    {
        const int32_t code = keysDown_[hardware];
        keysDown_[hardware] = 0;
        keyUp(code);
    }
    release();
    return true;
}

void epiWindow::releaseCapture()
{
    epiUiWindowBase::releaseCapture();
}

epiModalWindow::epiModalWindow()
{
    epiWindow::setAttributeInt(epiCode("Modl"), 1);
}
