#include "epi/epiObject.h"

#include <stdexcept>

uint32_t epiObject::kind() const
{
    return epiCode("baob");
}

void epiObject::startRefCount()
{
    if (refCount_ == kNotCounted)
        refCount_ = 1;
}

int32_t epiObject::retain()
{
    if (refCount_ == kNotCounted)
        return refCount_;
    return ++refCount_;
}

int32_t epiObject::release()
{
    if (refCount_ == kNotCounted)
        return refCount_;
    const int32_t count = --refCount_;
    // Only the step from 1 to 0 disposes: an over-release goes negative and is left alone, so a
    // stray extra release can never delete the object twice.
    if (count == 0)
        dispose();
    return count;
}

void epiObject::dispose()
{
    delete this;
}

epiObject* epiObject::newObject(uint32_t, uint32_t, uint32_t)
{
    return nullptr;
}

epiApplicationObject::~epiApplicationObject() = default;

uint32_t epiApplicationObject::kind() const
{
    return epiCode("oApp");
}

void epiApplicationObject::dispose()
{
    // Objects under the application die through it, at a moment when nothing on the call stack
    // still uses them. An object outside any chain is left to whoever made it.
    if (owner_ != nullptr)
        owner_->disposeChild(this);
}

epiObject* epiApplicationObject::newObject(uint32_t family, uint32_t kind, uint32_t name)
{
    if (owner_ != nullptr && owner_ != this)
        return owner_->newObject(family, kind, name);
    return nullptr;
}

void epiApplicationObject::setOwner(epiApplicationObject* owner)
{
    owner_ = owner;
}

epiApplicationObject* epiApplicationObject::inheritOwner(epiApplicationObject* other)
{
    if (other != nullptr)
        owner_ = other->owner_;
    return other;
}

bool epiApplicationObject::start()
{
    return true;
}

void epiApplicationObject::stop()
{
    if (timerActive_ != 0 && owner_ != nullptr)
        owner_->removeTimer(this);
}

intptr_t epiApplicationObject::query(intptr_t, intptr_t, intptr_t)
{
    return 0;
}

void epiApplicationObject::timerTick()
{
    onTimer();
}

void epiApplicationObject::postCommand(epiApplicationObject* target, intptr_t a, intptr_t b, intptr_t c)
{
    if (owner_ != nullptr && owner_ != this)
        owner_->postCommand(target, a, b, c);
}

void epiApplicationObject::onEvent(uint32_t, epiApplicationObject*, intptr_t) {}

int32_t epiApplicationObject::addTimer(epiApplicationObject* object, double periodSeconds, bool once,
                                       bool exact)
{
    if (owner_ != nullptr && owner_ != this)
        return owner_->addTimer(object, periodSeconds, once, exact);
    return 0;
}

void epiApplicationObject::removeTimer(epiApplicationObject* object)
{
    if (owner_ != nullptr && owner_ != this)
        owner_->removeTimer(object);
}

void epiApplicationObject::disposeChild(epiApplicationObject* object)
{
    if (owner_ != nullptr && owner_ != this)
        owner_->disposeChild(object);
}

int32_t epiApplicationObject::startTimer(double periodSeconds, bool once, bool exact)
{
    if (owner_ == nullptr)
        return 0;
    return owner_->addTimer(this, periodSeconds, once, exact);
}

void epiApplicationObject::removeTimerNow()
{
    if (owner_ != nullptr)
        owner_->removeTimer(this);
}

void epiApplicationObject::subscribe(uint32_t code, epiApplicationObject* subscriber, intptr_t data)
{
    if (!listeners_)
        listeners_ = std::make_unique<std::vector<epiListener>>();
    for (epiListener& entry : *listeners_)
    {
        if (entry.code == 0)
        {
            entry = epiListener{code, subscriber, data};
            return;
        }
    }
    listeners_->push_back(epiListener{code, subscriber, data});
}

void epiApplicationObject::unsubscribe(uint32_t code, epiApplicationObject* subscriber)
{
    if (!listeners_)
        return;
    bool anyLeft = false;
    bool cleared = false;
    for (epiListener& entry : *listeners_)
    {
        // A notification may be running over this list: the slot is freed in place and not
        // erased, so positions stay valid and the slot is reused by the next subscribe().
        if (!cleared && entry.code == code && entry.subscriber == subscriber)
        {
            entry.code = 0;
            entry.subscriber = nullptr;
            entry.data = 0;
            cleared = true;
        }
        else if (entry.code != 0)
        {
            anyLeft = true;
        }
    }
    if (!anyLeft)
        listeners_.reset();
}

void epiApplicationObject::dropListeners()
{
    listeners_.reset();
}

int32_t epiApplicationObject::notifyListeners(uint32_t code, intptr_t argument)
{
    if (code == 0)
        return 0;
    int32_t told = 0;
    // Index walk: a subscriber may subscribe or unsubscribe from inside onEvent(), which can grow
    // the vector or delete the whole list.
    for (size_t i = 0; listeners_ && i < listeners_->size(); ++i)
    {
        const epiListener entry = (*listeners_)[i];
        if (entry.code != code || entry.subscriber == nullptr)
            continue;
        entry.subscriber->retain();
        entry.subscriber->onEvent(code, this, argument);
        entry.subscriber->release();
        ++told;
    }
    return told;
}

void epiObjectsList::append(epiObject* object)
{
    if (size() >= max_size())
        throw std::length_error("list<T> too long");
    push_back(object);
}

epiObject* epiObjectsList::at(int32_t index) const
{
    if (index < 0 || index >= count())
        return nullptr;
    auto it = begin();
    std::advance(it, index);
    return *it;
}
