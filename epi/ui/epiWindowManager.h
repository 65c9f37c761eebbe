#pragma once

#include "epi/ui/epiUbo.h"

#include <cstdint>
#include <vector>

class epiUiWindowBase;

/**
 * Where the message loop gets its events: the platform implements it (a GTK main context, a test's
 * scripted queue). dispatchOne() handles at most one pending event and says whether there was
 * one; the loop sleeps 2 ms when there wasn't.
 */
class epiEventSource
{
public:
    virtual ~epiEventSource() = default;
    /** Handles one pending event, key events through the menu's accelerators first. @return one was there */
    virtual bool dispatchOne() = 0;
    /** The loop is ending (quit()): a platform may wake a blocking wait here. */
    virtual void postQuit() {}
    /** The idle pause; a platform may wait on its own events instead of sleeping. */
    virtual void idleSleep();
};

/**
 * The parent of every window: the list of open windows, the message loop, the animation ticks, the
 * cascade of new windows and the lookups by name. The platform adds the event source and cursors.
 */
class epiWindowManager : public epiUbo
{
public:
    epiWindowManager();
    ~epiWindowManager() override;

    /** Holds windows of any kind. */
    bool vetoChild() override { return true; }
    /** Stops every window still open, then the animations. */
    void stop() override;
    /** The animation timer's tick. */
    void timerTick() override;
    /** Quits the loop when a window sends 'quit'; other codes as the base. */
    void onCommand(uint32_t code) override;

    virtual void beforeLoop() {}
    virtual void afterLoop() {}
    /** Dispatches events until quit(): one event, else 2 ms of sleep, and the timers after each. */
    virtual void messageLoop();
    virtual void quit();
    /** Moves `rect` to the cascade point (size kept) and steps the point on. */
    virtual void cascadeRect(epiRect& rect);
    /**
     * The top window: the system's active window when it is one of ours, else the newest in the
     * list (bringUp() moves a window to the end); with `modalOnly` the newest modal one. Null when none.
     */
    virtual epiUbo* topWindow(bool modalOnly);
    /** The window the platform reports as active; the neutral manager knows none. */
    virtual epiUbo* systemActiveWindow() { return nullptr; }
    virtual epiUbo* windowNamed(uint32_t name);
    virtual void setQuitWhenEmpty(bool flag) { quitWhenEmpty_ = flag; }
    virtual void addAnimation(epiUiTimered* object, bool restart);
    virtual void removeAnimation(epiUiTimered* object);
    /** The manager's restartAnimation(object) stands beside the one it has as an object itself. */
    using epiUbo::restartAnimation;
    virtual void restartAnimation(epiUiTimered* object);
    /** Gives every animating object animate(seconds since its start, count from 1). */
    virtual void animationTick();
    /** Opens the layout whose root is named `name` (of resource kind `kind`). */
    virtual epiUbo* openWindowByInternalName(uint32_t kind, uint32_t name);
    /** A known window to the front; otherwise opens it: by the factory when `name` is 0. */
    virtual epiUbo* bringUp(uint32_t name);
    virtual bool closeWindowNamed(uint32_t name);
    virtual bool quitWhenEmptyFlag() { return quitWhenEmpty_; }
    /** The pointer's shape: 0 to 15 the program's own, -2 the arrow, -3 busy; the platform draws it. */
    virtual void setCursor(int32_t) {}
    /** Shows the pointer, in shape `index` unless it is -1. */
    virtual void showBusyCursor(int32_t) {}
    /** Hides the pointer. */
    virtual void hideBusyCursor() {}

    /**
     * The road of a menu command: the top window's queryFlag(), the main window's when it is
     * another one, then the application's handleCommandCode(). @return the first non-zero answer
     */
    virtual intptr_t queryFlag(intptr_t code) override;

    /** Enters a window in the list. @return false when it was already there or refused */
    bool addWindow(epiUbo* window);
    /** Takes a window out of the list; an empty list with quitWhenEmpty set ends the loop. */
    void removeWindow(epiUbo* window);

    void setEventSource(epiEventSource* source) { source_ = source; }
    epiEventSource* eventSource() const { return source_; }
    bool running() const { return running_; }
    bool animationTimerOn() const { return animationTimerOn_; }
    int32_t animationCount() const { return int32_t(animations_.size()); }
    epiPoint cascadePoint() const { return cascadePoint_; }
    /** The windows, oldest first. */
    const std::vector<epiUbo*>& windows() const { return children_; }

    /** The main window: the one named 'main', else the first opened. */
    epiUbo* mainWindow();

private:
    struct animation
    {
        epiUiTimered* object;
        double startTime;
        int32_t tickCount;
    };

    double now() const;

    epiRect desktopRect_;
    epiPoint cascadePoint_{64, 64};
    std::vector<animation> animations_;
    bool animationTimerOn_ = false;
    bool running_ = false;
    bool quitWhenEmpty_ = false;
    int32_t classCounter_ = 0;
    epiEventSource* source_ = nullptr;
};
