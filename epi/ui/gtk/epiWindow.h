#pragma once

#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiBitmapSurface.h"
#include "epi/ui/epiFont.h"
#include "epi/ui/epiUbo.h"
#include "epi/ui/epiWindowManager.h"
#include "epi/ui/gtk/epiFastTimer.h"

#include <array>
#include <cstdint>
#include <vector>

typedef struct _GtkWidget GtkWidget;
typedef struct _GdkEventButton GdkEventButton;
typedef struct _GdkEventMotion GdkEventMotion;
typedef struct _GdkEventScroll GdkEventScroll;
typedef struct _GdkEventKey GdkEventKey;
typedef struct _cairo cairo_t;
typedef struct _GtkAccelGroup GtkAccelGroup;
class epiMenu;

/**
 * A top-level window on GTK: a GtkWindow holding a menu bar when 'mBar' is set and a GtkFixed of
 * exactly the layout's size. The tree draws into the back buffer; the client's draw handler paints
 * the tree over the dirty rectangle and copies that rectangle to the screen. Mouse events arrive
 * in client coordinates, keys through the menu's accelerators first.
 */
class epiWindow : public epiUiWindowBase
{
public:
    epiWindow();
    ~epiWindow() override;

    // --- the tree ---
    void notifyCreated() override;
    void notifyDestroyed() override;
    void layoutDone() override;
    void setFrame(const epiRect& rect) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    void onTextChanged() override;
    void onVisibilityChanged() override;
    void requestRepaint(const epiRect& rect) override;
    void grabCapture() override {}
    void releaseCapture() override;

    /** Runs a nested loop until this window closes; timers go on meanwhile. */
    virtual void runModal();
    /** The exact timer: `target`'s onTimer() (this window's when null) every `seconds`, on its own thread. */
    virtual void startFastTimer(double seconds, epiApplicationObject* target);
    virtual void stopFastTimer() { fastTimer_.stop(); }
    /** A file dropped on a window that accepts drops ('ReDr'), in client coordinates. */
    virtual void fileDropped(const epiPoint& point, const epiText& path);

    // --- the platform's side ---
    GtkWidget* gtkWindow() const { return window_; }
    /** The menu bar, null without 'mBar'. */
    GtkWidget* menuBarWidget() const { return menuBar_; }
    /** The GtkFixed of the client area, where native controls go. */
    GtkWidget* clientWidget() const { return fixed_; }
    /** The X window id of the top-level window, 0 before it is made. */
    unsigned long xid() const;
    const epiBitmapDib& backBuffer() const { return back_; }
    /** Paints the tree over `area` of the back buffer, as the draw handler does. */
    void paintBackBuffer(const epiRect& area);
    /** Whether the layout set `code` (a flag attribute) to non-zero. */
    bool flag(uint32_t code) const;
    /** How many pixels the last draw handler copied to the screen. */
    int64_t lastCopiedPixels() const { return lastCopied_; }
    /** How many times the draw handler has copied to the screen. */
    int64_t framesDrawn() const { return frames_; }

    // Event handlers, called from the GTK signals.
    bool onDraw(cairo_t* cr);
    bool onButton(GdkEventButton* event);
    bool onMotion(GdkEventMotion* event);
    bool onScroll(GdkEventScroll* event);
    bool onKey(GdkEventKey* event);
    bool onDelete();

    /** The framework's key code of a GDK key, 0 for a key that gives none. */
    static int32_t keyCodeOf(unsigned int keyval, bool control);

private:
    void createNative();
    void sizeClient();
    void applyTitle();
    epiColour background() const;

    GtkWidget* window_ = nullptr;
    GtkWidget* box_ = nullptr;
    GtkWidget* menuBar_ = nullptr;
    GtkAccelGroup* accelerators_ = nullptr;
    GtkWidget* fixed_ = nullptr;
    GtkWidget* area_ = nullptr;
    epiBitmapDib back_;
    epiFonts fonts_;
    epiBitmapSurface surface_{&back_, &fonts_};
    epiFastTimer fastTimer_;
    std::vector<std::pair<uint32_t, int32_t>> flags_;
    // The key code of each hardware key that is down, so that its release reports the press's code.
    std::array<int32_t, 256> keysDown_{};
    bool inModalLoop_ = false;
    int32_t buttonsDown_ = 0;
    int64_t lastCopied_ = 0;
    int64_t frames_ = 0;
    // The last press that could begin a double-click: its button, time and place.
    uint32_t lastPressButton_ = 0;
    uint32_t lastPressTime_ = 0;
    epiPoint lastPressPoint_;
    epiUbo* previousTop_ = nullptr;
};

/** The modal window: its constructor sets 'Modl'. */
class epiModalWindow : public epiWindow
{
public:
    epiModalWindow();
};

/**
 * The window manager on GTK: the pointer's shapes are GDK's named cursors, set on every open
 * window. Indices 0 to 15 name, in order: default, pointer, text, crosshair, move, grab, grabbing,
 * ew-resize, ns-resize, nesw-resize, nwse-resize, col-resize, row-resize, not-allowed, help, progress.
 */
class epiGtkWindowManager : public epiWindowManager
{
public:
    void setCursor(int32_t index) override;
    void showBusyCursor(int32_t index) override;
    void hideBusyCursor() override;
    /** The GDK name of the shape shown, "none" while hidden. */
    const char* cursorName() const { return hidden_ ? "none" : name_; }

private:
    void applyCursor();
    const char* name_ = "default";
    bool hidden_ = false;
};

/** The event source over GTK's main context: one non-blocking iteration per call. */
class epiGtkEventSource : public epiEventSource
{
public:
    bool dispatchOne() override;
};

namespace epiGtk
{

/**
 * Opens the X display for GTK (X11 only, threads enabled for Xlib) and enters the platform's
 * makers in the factory's kind table. @return false when no display can be opened
 */
bool openDisplay(int* argc, char*** argv);

/** openDisplay(), or one line on stderr and exit status 1 without a display. */
void openDisplayOrExit(int* argc, char*** argv);

/** Gives the application's window manager the GTK event source. */
void attach(epiApplication& application);

/** The event source all windows share. */
epiGtkEventSource& eventSource();

/** The menu bar of `menu`'s model, its shortcuts entered in `accelerators`. */
GtkWidget* buildMenuBar(epiMenu& menu, GtkAccelGroup* accelerators);

/** `text` as valid UTF-8 for GTK, "\r\n" made one line break. */
epiText nativeText(const epiText& text);

} // namespace epiGtk
