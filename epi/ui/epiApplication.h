#pragma once

#include "epi/epiObject.h"
#include "epi/epiPath.h"
#include "epi/epiText.h"

#include <cstdint>
#include <deque>
#include <list>

class epiResources;
class epiWindowManager;
class epiUbo;

/**
 * The kind table of the object factory. Each library enters the classes it brings under their
 * family and kind ('GrUi' widgets, 'Appl' services), so that the neutral factory makes a platform
 * window or a bitmap widget without naming its class. A later entry for the same pair replaces the
 * earlier one: the platform layer overrides the neutral fallbacks this way.
 */
namespace epiFactory
{

/** Makes a new object of one kind; `name` is the four-character name asked for (0 for none). */
using Maker = epiObject* (*)(uint32_t name);

/** Enters (or replaces) the maker for `kind` in `family`; a null maker removes the entry. */
// [ui thread]
void add(uint32_t family, uint32_t kind, Maker maker);

/** The maker for the pair, null when none is entered. */
Maker find(uint32_t family, uint32_t kind);

/** Makes an object through the table. @return null when no maker is entered for the pair */
epiObject* make(uint32_t family, uint32_t kind, uint32_t name);

} // namespace epiFactory

/** One element of the command queue: query(a, b, c) on `target`, which is retained meanwhile. */
struct comds_elem_data
{
    epiApplicationObject* target;
    intptr_t a;
    intptr_t b;
    intptr_t c;
};

/**
 * The queue of posted commands. The application runs it from a timer of 0.1 seconds: one command
 * per tick, in order, on the interface thread.
 */
class epiAppCommandsList : public epiApplicationObject, public std::deque<comds_elem_data>
{
public:
    epiAppCommandsList() = default;
    /** Releases the targets of commands that never ran. */
    ~epiAppCommandsList() override;

    /** Runs the command at the front and removes it; an empty queue ends the timer. */
    void timerTick() override;

    /** Drops every queued command, releasing its target. */
    void clearAll();
};

/** A clipboard service: only its place in the application; the platform fills it in. */
class epiClipboard : public epiApplicationObject
{
public:
    uint32_t kind() const override { return epiCode("Clip"); }
};

/**
 * The root of the owner chain: starts and stops the services, keeps the timers, defers the deletion
 * of objects, queues posted commands and answers the object factory. One per process.
 */
class epiApplication : public epiApplicationObject
{
public:
    epiApplication();
    ~epiApplication() override;

    /** The running application, null before run() or after the object is gone. */
    static epiApplication* current();

    // --- the application's own operations, in order ---
    /** Sets up, starts, runs the main loop and stops. @return the loop's result, -1 when a service fails */
    virtual int32_t run(int32_t argc, char** argv);
    virtual void mainBody(int32_t argc, char** argv);
    /** Calls mainBody(). @return 0 */
    virtual int32_t mainLoop(int32_t argc, char** argv);
    /**
     * Seconds since the process started, on the steady clock. A double keeps timers exact for
     * any run length; tests override it to drive time by hand.
     */
    virtual double now();
    /** Spins on now() until `seconds` have passed. */
    virtual void waitSeconds(double seconds);
    /** A menu command that no window took ends here. @return 0 */
    virtual intptr_t handleCommandCode(uint32_t code);
    /** The window manager's top window, after calling its activation hook. */
    virtual epiUbo* activeWindow();
    /** newObject(family, kind, 0). */
    virtual epiObject* create(uint32_t family, uint32_t kind);
    virtual void* instanceHandle() { return instance_; }
    virtual epiPath* appPathRef() { return &appPath_; }
    /** Whether the object's timer flag is set; false for null. */
    virtual bool hasTimer(epiApplicationObject* object);
    /** The folder of the executable, with a trailing '/'. */
    virtual void setAppPath(const char* argv0);
    virtual bool isRunningUI() { return true; }
    virtual intptr_t appHook1() { return 0; }
    virtual intptr_t appHook2() { return 0; }
    virtual intptr_t appHook3() { return 0; }
    virtual intptr_t windowAppHook() { return 0; }
    /** Deletes every object given up, each through its virtual destructor, first to last. */
    virtual void purgeDisposed();
    /** create('Appl', 'Wind'). */
    virtual epiObject* newWindowManager();
    /** Splits the command line into words (quotes keep blanks) and run()s with them. */
    virtual int32_t runCommandLine(void* instance, const char* commandLine);

    // --- overrides of the application object ---
    /** 'Appl' 'Rsrc' makes the resources; anything else a plain application object. */
    epiObject* newObject(uint32_t family, uint32_t kind, uint32_t name) override;
    bool start() override;
    void stop() override;
    int32_t addTimer(epiApplicationObject* object, double periodSeconds, bool once, bool exact) override;
    /** Marks the first entry of `object` as removed; it is unlinked on the next walk. */
    void removeTimer(epiApplicationObject* object) override;
    /** Takes a non-null object once into the list of objects to delete, then calls its onDisposing(). */
    void disposeChild(epiApplicationObject* object) override;
    /** Retains `target` and queues the command; the first element starts the queue's timer. */
    void postCommand(epiApplicationObject* target, intptr_t a, intptr_t b, intptr_t c) override;

    /** Starts the platform's drawing library; the neutral application has none. @return success */
    virtual bool startGraphics() { return true; }
    /** Shuts the drawing library down, last of all in stop(). */
    virtual void stopGraphics() {}

    /** Runs the due timers; called after each message and each idle pause. */
    void pumpTimers();

    epiWindowManager* windowManager() const { return windowManager_; }
    epiResources* resources() const { return resources_; }
    epiApplicationObject* keyboard() const { return keyboard_; }
    epiApplicationObject* menu() const { return menu_; }
    epiApplicationObject* clipboard() const { return clipboard_; }
    const epiAppCommandsList& commands() const { return commands_; }
    /** Entries still in the timer list, removed ones included until the next walk. */
    int32_t timerEntryCount() const { return int32_t(timers_.size()); }
    int32_t disposedCount() const { return objects_.count(); }

protected:
    struct timerEntry
    {
        epiApplicationObject* target;
        double period;
        double due;
        bool exact;
        bool removed;
    };

    /** Makes a service, gives it this owner and starts it; null (object deleted) on failure. */
    epiApplicationObject* startService(epiObject* made);
    static void stopService(epiApplicationObject*& service);

    void* instance_ = nullptr;
    epiPath appPath_;
    std::list<timerEntry> timers_;
    double nextTimerDue_ = 0;
    bool timersActive_ = false;
    epiObjectsList objects_;
    epiAppCommandsList commands_;
    epiWindowManager* windowManager_ = nullptr;
    epiResources* resources_ = nullptr;
    epiApplicationObject* keyboard_ = nullptr;
    epiApplicationObject* menu_ = nullptr;
    epiApplicationObject* clipboard_ = nullptr;
};

/** The application with windows. Its factory knows the widget kinds; kind 'oApp'. */
class epiWindowApplication : public epiApplication
{
public:
    epiWindowApplication();
    ~epiWindowApplication() override;

    /** Opens the layout `name` as a window: created, started, owned, named, loaded, laid out. */
    virtual epiUbo* openWindow(const epiText& name);
    /** Reads the layout's text and calls openWindowText(). */
    virtual epiUbo* openWindowLayout(const epiText& name);
    /** Makes a window from layout text: the root's name picks the window class. */
    virtual epiUbo* openWindowText(const epiText& text);
    virtual bool loadWindowInto(epiUbo* window, const epiText& name);
    /** Starts `window`, owns it and loads `text` into it; on failure deletes it. */
    virtual bool loadWindowIntoText(epiUbo* window, const epiText& text);
    virtual void beforeMainLoop() {}
    virtual void afterMainLoop() {}
    /** Stores the pair, calls windowAppHook(), then clears the pair. */
    virtual void runNested(intptr_t a, intptr_t b);
    /** newObject('GrUi', 'iWin', name). A host overrides this. */
    virtual epiUbo* newWindow(uint32_t name);
    /** The pair that runNested() stored. @return false when none */
    virtual bool nestedArgs(intptr_t& a, intptr_t& b);

    /** beforeMainLoop(), the window manager's message loop, afterMainLoop(). @return 0 */
    int32_t mainLoop(int32_t argc, char** argv) override;
    /** 'GrUi' kinds from the kind table (a plain epiUbo for the rest), then the base. */
    epiObject* newObject(uint32_t family, uint32_t kind, uint32_t name) override;

    /** Reads a resource's text: the layout seam shared by windows and widgets. */
    virtual bool readLayoutText(const epiText& name, epiText& dest);

private:
    bool hasNested_ = false;
    intptr_t nestedA_ = 0;
    intptr_t nestedB_ = 0;
};

/** The application that `object` lives under, found up its owner chain; null when none. */
epiApplication* epiApplicationOf(const epiApplicationObject* object);
