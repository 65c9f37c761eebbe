#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

/**
 * Four-character code of a literal: epiCode("oApp") is 0x6F417070, the first character in the most
 * significant byte. Kinds, attributes, notifications and file atoms are all written this way, which
 * keeps multi-character literals (and their compiler warnings) out of the tree.
 */
constexpr uint32_t epiCode(const char (&text)[5])
{
    return (uint32_t(uint8_t(text[0])) << 24) | (uint32_t(uint8_t(text[1])) << 16) |
           (uint32_t(uint8_t(text[2])) << 8) | uint32_t(uint8_t(text[3]));
}

/**
 * Root of every framework class: a class code and an optional reference count.
 *
 * An object starts uncounted (the count holds kNotCounted) and is deleted by whoever owns it.
 * startRefCount() switches counting on; from then on retain() and release() decide its life.
 * The count is a plain integer: an object belongs to one thread at a time.
 */
class epiObject
{
public:
    /** The count of an object that is not reference counted. */
    static constexpr int32_t kNotCounted = -1000000;

    epiObject() = default;
    epiObject(const epiObject&) = default;
    epiObject& operator=(const epiObject&) = default;
    virtual ~epiObject() = default;

    /** The class code: 'baob' here; application objects answer 'oApp', widgets their own code. */
    virtual uint32_t kind() const;

    /** Turns reference counting on with a count of 1; does nothing when counting is already on. */
    virtual void startRefCount();

    /** Adds one to the count and returns it; an uncounted object returns kNotCounted unchanged. */
    virtual int32_t retain();

    /**
     * Takes one from the count and calls dispose() when it reaches exactly 0. An uncounted object
     * is left alone, and a count that goes below 0 never disposes a second time.
     * @return the new count (kNotCounted for an uncounted object)
     */
    virtual int32_t release();

    /** Ends the object's life; by default it deletes itself through the virtual destructor. */
    virtual void dispose();

    /** Called by the application on an object that it has taken for later deletion. */
    virtual void onDisposing() {}

    /**
     * The object factory: makes an object of `kind` in `family` (both four-character codes), with
     * the optional four-character `name`. The root answers null; application objects ask their owner.
     */
    virtual epiObject* newObject(uint32_t family, uint32_t kind, uint32_t name);

    /** The present count, kNotCounted when the object isn't counted. */
    int32_t refCount() const { return refCount_; }

protected:
    int32_t refCount_ = kNotCounted;
};

class epiApplicationObject;

/** One subscription: `subscriber` hears `code` from the object it subscribed to. Code 0 is a free slot. */
struct epiListener
{
    uint32_t code;
    epiApplicationObject* subscriber;
    intptr_t data;
};

/**
 * Base of everything that lives under the application: the owner chain up to the application,
 * the timer and command hooks that the application serves, and the list of subscribers.
 *
 * The application object at the top of the chain overrides addTimer(), removeTimer(),
 * disposeChild() and postCommand(); every other object passes these calls up to its owner.
 */
class epiApplicationObject : public epiObject
{
public:
    epiApplicationObject() = default;
    epiApplicationObject(const epiApplicationObject&) = delete;
    epiApplicationObject& operator=(const epiApplicationObject&) = delete;
    ~epiApplicationObject() override;

    /** 'oApp'. */
    uint32_t kind() const override;

    /** Hands the object to its owner's disposeChild(); without an owner it does nothing at all. */
    void dispose() override;

    /** Asks the owner (unless the owner is this object) and returns its answer; null at the top. */
    epiObject* newObject(uint32_t family, uint32_t kind, uint32_t name) override;

    /** Stores the owner; the object does not own it. */
    virtual void setOwner(epiApplicationObject* owner);

    /** Takes `other`'s owner as this object's owner. @return `other` */
    virtual epiApplicationObject* inheritOwner(epiApplicationObject* other);

    /** Prepares the object after its owner was set. @return true on success (the default) */
    virtual bool start();

    /** The reverse of start(): removes this object's timer from its owner when one runs. */
    virtual void stop();

    /** A general channel, also used by posted commands. @return 0 by default */
    virtual intptr_t query(intptr_t a, intptr_t b, intptr_t c);

    /** Called by the application on each tick of this object's timer; calls onTimer(). */
    virtual void timerTick();

    /** Hook of timerTick(); empty. */
    virtual void onTimer() {}

    /** Hook for slow periodic work; empty. */
    virtual void onSlowEvent() {}

    /**
     * Queues query(a, b, c) on `target` for later, on the interface thread. Passed up the owner
     * chain unchanged; the application queues it. Without an owner nothing happens.
     */
    virtual void postCommand(epiApplicationObject* target, intptr_t a, intptr_t b, intptr_t c);

    /** Receives a notification `code` from `sender`; empty by default. */
    virtual void onEvent(uint32_t code, epiApplicationObject* sender, intptr_t data);

    /**
     * Hook served by the application: runs `object`'s timerTick() every `periodSeconds`, or once
     * when `once` is true; `exact` asks for the precise timer. Other objects pass it up the chain.
     * @return non-zero when a timer was added; 0 when no application answered
     */
    virtual int32_t addTimer(epiApplicationObject* object, double periodSeconds, bool once, bool exact);

    /** Hook served by the application: removes `object`'s timer. Other objects pass it up. */
    virtual void removeTimer(epiApplicationObject* object);

    /**
     * Hook served by the application: takes `object` for deletion at a safe moment. Other objects
     * pass it up; when no application is found the object is left alone.
     */
    virtual void disposeChild(epiApplicationObject* object);

    /** Starts this object's timer through the owner. @return the owner's answer, 0 with no owner */
    int32_t startTimer(double periodSeconds, bool once, bool exact);

    /** Removes this object's timer through the owner at once. */
    void removeTimerNow();

    /** Adds a subscription of `subscriber` to `code` of this object, reusing a free slot. */
    void subscribe(uint32_t code, epiApplicationObject* subscriber, intptr_t data);

    /**
     * Frees the slot of `subscriber`'s subscription to `code` (its code becomes 0, so the slot can
     * be reused); the list goes away once no subscription is left.
     */
    void unsubscribe(uint32_t code, epiApplicationObject* subscriber);

    /** Drops every subscription to this object. */
    void dropListeners();

    /**
     * Delivers `code` to every subscriber of it: retain(), onEvent(code, this, argument), release().
     * @return how many subscribers were told
     */
    int32_t notifyListeners(uint32_t code, intptr_t argument);

    /** The subscriptions, free slots included; null while nobody has subscribed. */
    const std::vector<epiListener>* listeners() const { return listeners_.get(); }

    /** The next object up the chain; null or this object at the top. */
    epiApplicationObject* owner() const { return owner_; }

    /** True while the application runs a timer for this object. */
    bool timerActive() const { return timerActive_ != 0; }

    /** Set by the application when it adds or ends this object's timer. */
    void setTimerActive(bool active) { timerActive_ = active ? 1u : 0u; }

protected:
    epiApplicationObject* owner_ = nullptr;
    uint32_t timerActive_ = 0;
    // Spare words that derived classes may use; zero at construction.
    uint32_t words_[7] = {};

private:
    std::unique_ptr<std::vector<epiListener>> listeners_;
};

/**
 * A growing list of object pointers. It does not own what it points to: destroying the list frees
 * the nodes only.
 */
class epiObjectsList : public epiObject, public std::list<epiObject*>
{
public:
    epiObjectsList() = default;

    /** Appends `object` at the end; past the largest size a list can hold it throws length_error. */
    void append(epiObject* object);

    /** The element at `index`, null when out of range. Walks the list. */
    epiObject* at(int32_t index) const;

    /** The number of elements. */
    int32_t count() const { return int32_t(size()); }
};
