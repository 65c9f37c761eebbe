#include "epi/ui/epiUbo.h"

#include "epi/epiResources.h"
#include "epi/ui/epiApplication.h"
#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiUiBehaviour.h"
#include "epi/ui/epiUiBitmapView.h"
#include "epi/ui/epiWindowManager.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

// ---------------------------------------------------------------------------------------------
// Animation

epiWindowManager* epiUiTimered::managerOfApplication() const
{
    epiApplication* app = epiApplicationOf(this);
    return app != nullptr ? app->windowManager() : nullptr;
}

void epiUiTimered::startAnimation(bool restart)
{
    if (epiWindowManager* manager = managerOfApplication())
        manager->addAnimation(this, restart);
}

void epiUiTimered::restartAnimation()
{
    if (epiWindowManager* manager = managerOfApplication())
        manager->restartAnimation(this);
}

void epiUiTimered::stopAnimation()
{
    if (epiWindowManager* manager = managerOfApplication())
        manager->removeAnimation(this);
}

void epiUiTimered::animate(double, int32_t)
{
    onAnimate();
}

// ---------------------------------------------------------------------------------------------
// Life

epiUbo::epiUbo() = default;

epiUbo::~epiUbo()
{
    // The null child dies with its object whatever count the lookups have left on it.
    if (nullChild_ != nullptr)
    {
        epiUbo* inert = nullChild_;
        nullChild_ = nullptr;
        inert->refCount_ = kNotCounted;
        inert->stop();
        delete inert;
    }
    if (behaviour_ != nullptr)
    {
        epiUiBehaviour* behaviour = behaviour_;
        behaviour_ = nullptr;
        behaviour->stop();
        behaviour->setOwner(nullptr);
        delete behaviour;
    }
    // Children still attached (an object deleted without stop()) lose their parent, not their life.
    for (epiUbo* child : children_)
        child->parent_ = nullptr;
    if (parent_ != nullptr)
        parent_->removeChild(this);
    stopAnimation();
}

bool epiUbo::start()
{
    stopped_ = false;
    if (behaviour_ == nullptr)
    {
        if (epiUiBehaviour* behaviour = newBehaviour())
        {
            behaviour_ = behaviour;
            behaviour->startRefCount();
            behaviour->setOwner(owner_);
            behaviour->setTarget(this);
            behaviour->start();
        }
    }
    return true;
}

void epiUbo::stop()
{
    // Stopping twice would release twice: the second call (a child stopped by its own code and
    // then by its parent's clean-up) does nothing.
    if (stopped_)
        return;
    stopped_ = true;
    retain(); // kept alive until the end of this function
    notifyDestroyed();
    if (behaviour_ != nullptr)
    {
        epiUiBehaviour* behaviour = behaviour_;
        behaviour_ = nullptr;
        behaviour->stop();
        behaviour->setTarget(nullptr);
        behaviour->release();
    }
    removeAllChildrenHook();
    if (nullChild_ != nullptr)
    {
        epiUbo* inert = nullChild_;
        nullChild_ = nullptr;
        inert->refCount_ = kNotCounted;
        inert->stop();
        delete inert;
    }
    stopAnimation();
    epiApplicationObject::stop();
    if (parent_ != nullptr)
        parent_->removeChild(this);
    release();
    release();
}

// ---------------------------------------------------------------------------------------------
// State and geometry

bool epiUbo::setVisible(bool visible, bool redraw)
{
    if (visible != visible_)
    {
        visible_ = visible;
        if (redraw)
        {
            onVisibilityChanged();
            invalidateAll();
        }
    }
    return visible_;
}

void epiUbo::notifyCreated()
{
    notifyListeners(epiCode("uCrt"), 0);
}

void epiUbo::notifyDestroyed()
{
    notifyListeners(epiCode("uDsr"), 0);
    dropListeners();
}

void epiUbo::layoutDone()
{
    needsLayout_ = false;
    for (size_t i = 0; i < children_.size(); ++i)
        if (children_[i]->isVisible())
            children_[i]->layoutDone();
}

void epiUbo::setFrame(const epiRect& rect)
{
    frame_ = rect;
    bounds_.set(0, 0, rect.width(), rect.height());
    invalidate(bounds_);
    notifyListeners(epiCode("boCh"), 0);
}

void epiUbo::moveTo(const epiPoint& point)
{
    moveToXY(point.x_, point.y_);
}

void epiUbo::moveToXY(int32_t x, int32_t y)
{
    if (x == frame_.left_ && y == frame_.top_)
        return;
    invalidateAll();
    epiRect moved = frame_;
    moved.moveTo(x, y);
    setFrame(moved);
}

void epiUbo::invalidate(const epiRect& rect)
{
    if (parent_ == nullptr)
        return;
    epiRect area = rect;
    clipToVisible(area);
    if (area.isEmpty())
        return;
    epiRect inParent;
    rectToParent(area, inParent);
    parent_->invalidate(inParent);
}

void epiUbo::invalidateAll()
{
    invalidate(bounds_);
}

// ---------------------------------------------------------------------------------------------
// Tree

bool epiUbo::acceptsParentKind(uint32_t kind)
{
    const uint32_t* kinds = allowedParentKinds();
    if (kinds == nullptr)
        return true;
    for (; *kinds != 0; ++kinds)
        if (*kinds == kind)
            return true;
    return false;
}

bool epiUbo::addChild(epiUbo* child)
{
    if (child == nullptr || child == this || !vetoChild())
        return false;
    if (!child->acceptsParentKind(kind()))
        return false;
    if (std::find(children_.begin(), children_.end(), child) != children_.end())
        return false;
    children_.push_back(child);
    const bool hadOwner = child->owner() != nullptr;
    child->setOwner(owner_);
    child->parent_ = this;
    child->setChildIndex(int32_t(children_.size()) - 1);
    if (!hadOwner)
        child->start();
    return true;
}

bool epiUbo::removeChild(epiUbo* child)
{
    const auto it = std::find(children_.begin(), children_.end(), child);
    if (it == children_.end())
        return false;
    int32_t index = int32_t(it - children_.begin());
    children_.erase(it);
    for (size_t i = size_t(index); i < children_.size(); ++i)
        children_[i]->setChildIndex(int32_t(i));
    if (captureChild_ == child)
        captureChild_ = nullptr;
    keyFocus_.remove(child);
    child->parent_ = nullptr;
    return true;
}

bool epiUbo::removeChildNamed(uint32_t name)
{
    for (epiUbo* child : children_)
        if (child->name() == name)
            return removeChild(child);
    return false;
}

void epiUbo::removeAllChildren()
{
    while (!children_.empty())
    {
        epiUbo* child = children_.back();
        child->stop();
        // A child whose stop() kept it in the array is taken out all the same.
        if (!children_.empty() && children_.back() == child)
            removeChild(child);
    }
}

// ---------------------------------------------------------------------------------------------
// Drawing

void epiUbo::draw(const epiRect& rect)
{
    for (size_t i = 0; i < children_.size(); ++i)
        if (children_[i]->isVisible())
            children_[i]->drawClipped(rect);
    notifyListeners(epiCode("upda"), reinterpret_cast<intptr_t>(&rect));
}

void epiUbo::drawAll()
{
    draw(bounds_);
}

void epiUbo::drawClipped(const epiRect& rect)
{
    epiRect area = rect;
    if (!area.intersect(frame_))
        return;
    epiRect local;
    rectFromParent(area, local);
    draw(local);
}

void epiUbo::onFrameChanged()
{
    notifyListeners(epiCode("boCh"), 0);
}

// ---------------------------------------------------------------------------------------------
// Hits and commands

void epiUbo::hit()
{
    notifyListeners(epiCode("iHit"), 0);
    if (parent_ == nullptr)
        return;
    epiUbo* parent = parent_;
    parent->retain();
    parent->hitChild_ = childIndex_;
    parent->onChildHit(childIndex_);
    parent->hitChild_ = -1;
    parent->release();
}

void epiUbo::onChildHit(int32_t index)
{
    if (index >= 0 && index < int32_t(children_.size()) && children_[size_t(index)]->name() != 0)
        onCommand(children_[size_t(index)]->name());
    if (parent_ != nullptr)
        hit();
}

void epiUbo::onCommand(uint32_t code)
{
    if (code == epiCode("clos"))
        notifyDestroyed();
    else if (code == epiCode("quit"))
    {
        if (epiWindowManager* manager = windowManager())
            manager->quit();
    }
}

epiUbo* epiUbo::hitChildObject()
{
    if (hitChild_ < 0 || hitChild_ >= int32_t(children_.size()))
        return nullptr;
    return children_[size_t(hitChild_)];
}

void epiUbo::click()
{
    if (behaviour_ != nullptr && behaviour_->handleClick())
        return;
    hit();
}

void epiUbo::behaviourClick()
{
    if (behaviour_ != nullptr)
        behaviour_->simulateClick();
}

// ---------------------------------------------------------------------------------------------
// Mouse

namespace
{

// The topmost visible, hittable child whose frame holds the point, edges included.
epiUbo* childUnder(const std::vector<epiUbo*>& children, const epiPoint& point)
{
    for (size_t i = children.size(); i-- > 0;)
    {
        epiUbo* child = children[i];
        if (child->isHittable() && child->isVisible() && child->holdsPoint(point))
            return child;
    }
    return nullptr;
}

} // namespace

void epiUbo::mouseDown(const epiPoint& point)
{
    if (behaviour_ != nullptr && behaviour_->onMouseDown(point))
        return;
    if (captureChild_ != nullptr)
    {
        captureChild_->mouseDownAt(point);
    }
    else if (!exclusiveHitMode_)
    {
        if (epiUbo* child = childUnder(children_, point))
            child->mouseDownAt(point);
    }
    else
    {
        // Offered down the stack until one of them takes the capture. The list is copied: a
        // child's press may change the tree.
        const std::vector<epiUbo*> stack(children_.begin(), children_.end());
        for (size_t i = stack.size(); i-- > 0;)
        {
            epiUbo* child = stack[i];
            if (std::find(children_.begin(), children_.end(), child) == children_.end())
                continue;
            if (!child->isHittable() || !child->isVisible() || !child->holdsPoint(point))
                continue;
            child->mouseDownAt(point);
            if (captureChild_ != nullptr)
                break;
        }
    }
    if (broadcastCount_ > 0)
        broadcastDown(point);
}

void epiUbo::mouseUp(const epiPoint& point)
{
    if (behaviour_ != nullptr && behaviour_->onMouseUp(point))
        return;
    if (captureChild_ != nullptr)
        captureChild_->mouseUpAt(point);
    else if (epiUbo* child = childUnder(children_, point))
        child->mouseUpAt(point);
    if (broadcastCount_ > 0)
        broadcastUp(point);
}

void epiUbo::mouseMoved(const epiPoint& point)
{
    if (behaviour_ != nullptr && behaviour_->onMouseMoved(point))
        return;
    if (captureChild_ != nullptr)
        captureChild_->mouseMoveAt(point);
    if (broadcastCount_ > 0)
        broadcastMove(point);
}

void epiUbo::mouseDragged(const epiPoint& point)
{
    if (behaviour_ != nullptr && behaviour_->onMouseDragged(point))
        return;
    if (captureChild_ != nullptr)
        captureChild_->mouseDragAt(point);
    if (broadcastCount_ > 0)
        broadcastDrag(point);
}

void epiUbo::mouseWheel(const epiPoint& point, int32_t delta)
{
    if (behaviour_ != nullptr && behaviour_->onWheel(point, delta))
        return;
    if (captureChild_ != nullptr)
        captureChild_->mouseWheelAt(point, delta);
    else if (epiUbo* child = childUnder(children_, point))
        child->mouseWheelAt(point, delta);
}

bool epiUbo::dropTarget(const epiPoint& point)
{
    if (!isVisible())
        return false;
    for (size_t i = children_.size(); i-- > 0;)
    {
        epiUbo* child = children_[i];
        if (!child->frame().containsPoint(point))
            continue;
        epiPoint local;
        child->pointFromParent(point, local);
        if (child->dropTarget(local))
            return true;
    }
    return false;
}

void epiUbo::broadcastMove(const epiPoint& point)
{
    if (broadcastCount_ > 0)
        for (size_t i = 0; i < children_.size(); ++i)
            children_[i]->broadcastMoveAt(point);
}

void epiUbo::broadcastDrag(const epiPoint& point)
{
    if (broadcastCount_ > 0)
        for (size_t i = 0; i < children_.size(); ++i)
            children_[i]->broadcastDragAt(point);
}

void epiUbo::broadcastUp(const epiPoint& point)
{
    if (broadcastCount_ > 0)
        for (size_t i = 0; i < children_.size(); ++i)
            children_[i]->broadcastUpAt(point);
}

void epiUbo::broadcastDown(const epiPoint& point)
{
    if (broadcastCount_ > 0)
        for (size_t i = 0; i < children_.size(); ++i)
            children_[i]->broadcastDownAt(point);
}

epiPoint epiUbo::localPoint(const epiPoint& point)
{
    epiPoint local;
    pointFromParent(point, local);
    return local;
}

void epiUbo::mouseUpAt(const epiPoint& point)
{
    mouseUp(localPoint(point));
}

void epiUbo::mouseDownAt(const epiPoint& point)
{
    mouseDown(localPoint(point));
}

void epiUbo::mouseMoveAt(const epiPoint& point)
{
    mouseMoved(localPoint(point));
}

void epiUbo::mouseDragAt(const epiPoint& point)
{
    mouseDragged(localPoint(point));
}

void epiUbo::broadcastDownAt(const epiPoint& point)
{
    broadcastDown(localPoint(point));
}

void epiUbo::broadcastUpAt(const epiPoint& point)
{
    broadcastUp(localPoint(point));
}

void epiUbo::broadcastMoveAt(const epiPoint& point)
{
    broadcastMove(localPoint(point));
}

void epiUbo::broadcastDragAt(const epiPoint& point)
{
    broadcastDrag(localPoint(point));
}

void epiUbo::mouseWheelAt(const epiPoint& point, int32_t delta)
{
    mouseWheel(localPoint(point), delta);
}

// ---------------------------------------------------------------------------------------------
// Capture and focus

void epiUbo::setCapture(epiUbo* child)
{
    if (child == nullptr)
    {
        releaseCapture();
        return;
    }
    grabCapture();
    if (std::find(children_.begin(), children_.end(), child) == children_.end())
        return;
    captureChild_ = child;
    child->notifyListeners(epiCode("sFoc"), 0);
}

void epiUbo::grabCapture()
{
    if (parent_ != nullptr)
        parent_->setCapture(this);
}

void epiUbo::releaseCapture()
{
    if (parent_ != nullptr)
        parent_->releaseCapture();
    captureChild_ = nullptr;
    notifyListeners(epiCode("rFoc"), 0);
}

void epiUbo::keyDownEvent(int32_t key)
{
    notifyListeners(epiCode("kedo"), key);
}

void epiUbo::keyRepeatEvent(int32_t key)
{
    notifyListeners(epiCode("kere"), key);
}

void epiUbo::keyUpEvent(int32_t key)
{
    notifyListeners(epiCode("keup"), key);
}

void epiUbo::keyDown(int32_t key)
{
    if (epiUbo* focus = focusObject())
        focus->keyDownEvent(key);
    else
        keyDownEvent(key);
}

void epiUbo::keyRepeat(int32_t key)
{
    if (epiUbo* focus = focusObject())
        focus->keyRepeatEvent(key);
    else
        keyRepeatEvent(key);
}

void epiUbo::keyUp(int32_t key)
{
    if (epiUbo* focus = focusObject())
        focus->keyUpEvent(key);
    else
        keyUpEvent(key);
}

void epiUbo::pushFocus(epiUbo* object)
{
    if (object == nullptr)
        return;
    keyFocus_.push_front(object);
    takeFocus();
}

void epiUbo::takeFocus()
{
    if (parent_ != nullptr && (parent_->keyFocus_.empty() || parent_->keyFocus_.front() != this))
        parent_->pushFocus(this);
}

void epiUbo::popFocus()
{
    if (keyFocus_.empty())
        return;
    keyFocus_.pop_front();
    dropFocus();
}

void epiUbo::dropFocus()
{
    if (keyFocus_.empty() && parent_ != nullptr && !parent_->keyFocus_.empty() &&
        parent_->keyFocus_.front() == this)
        parent_->popFocus();
}

void epiUbo::switchFocus(epiUbo* object)
{
    if (!keyFocus_.empty() && keyFocus_.front() == object)
        return;
    if (!keyFocus_.empty())
    {
        keyFocus_.pop_front();
    }
    pushFocus(object);
}

epiUbo* epiUbo::focusObject()
{
    if (keyFocus_.empty())
        return nullptr;
    epiUbo* front = keyFocus_.front();
    if (front == this)
        return nullptr;
    epiUbo* deeper = front->focusObject();
    return deeper != nullptr ? deeper : front;
}

// ---------------------------------------------------------------------------------------------
// Text and value

void epiUbo::setText(const epiText* text)
{
    if (text == nullptr)
        text_.clear();
    else
        text_.assign(*text);
    onTextChanged();
    invalidateAll();
}

void epiUbo::setTextChars(const char* chars)
{
    const epiText text(chars);
    setText(&text);
}

void epiUbo::setValue(float value)
{
    if (behaviour_ != nullptr && behaviour_->setUserValue(value))
        redrawRequest();
}

float epiUbo::getValue()
{
    return behaviour_ != nullptr ? behaviour_->userValue() : 0.0f;
}

void epiUbo::setState(int32_t a, int32_t b)
{
    if (behaviour_ == nullptr)
        return;
    behaviour_->setPressed(a != 0);
    behaviour_->setOn(b != 0);
}

int32_t epiUbo::getState()
{
    if (behaviour_ == nullptr)
        return 0;
    return (behaviour_->isPressed() ? 1 : 0) | (behaviour_->isOn() ? 2 : 0);
}

// ---------------------------------------------------------------------------------------------
// Radio groups

void epiUbo::setGroup(int32_t groupId, int32_t groupIndex)
{
    groupId_ = groupId;
    groupIndex_ = groupIndex;
}

void epiUbo::selectInGroup(int32_t groupId, int32_t index, float value, bool notify)
{
    epiUbo* first = nullptr;
    for (size_t i = 0; i < children_.size(); ++i)
    {
        epiUbo* child = children_[i];
        if (child->groupId() != groupId)
            continue;
        child->setValue(child->groupIndex() == index ? value : 0.0f);
        if (first == nullptr || child->groupIndex() < first->groupIndex())
            first = child;
    }
    if (notify && first != nullptr)
        first->hit();
}

int32_t epiUbo::selectedInGroupOf(uint32_t name)
{
    epiUbo* member = childNamed(name);
    if (member == nullptr || member->groupId() == 0)
        return 0;
    for (epiUbo* child : children_)
        if (child->groupId() == member->groupId() && child->getValue() != 0.0f)
            return child->groupIndex();
    return 0;
}

void epiUbo::selectInGroupOf(uint32_t name, float value, bool notify, int32_t)
{
    epiUbo* member = childNamed(name);
    if (member->groupId() != 0)
        selectInGroup(member->groupId(), member->groupIndex(), value, notify);
}

// ---------------------------------------------------------------------------------------------
// Creation

void epiUbo::revealRect(const epiRect& rect)
{
    if (parent_ == nullptr)
        return;
    epiRect inParent;
    rectToParent(rect, inParent);
    parent_->revealRect(inParent);
}

epiUbo* epiUbo::newChildObject(uint32_t kind, uint32_t name)
{
    epiObject* made = newObject(epiCode("GrUi"), kind, name);
    auto* object = dynamic_cast<epiUbo*>(made);
    if (object == nullptr)
        delete made;
    return object;
}

namespace
{

// A made object that never joined the tree: released through the application when there is
// one, deleted at once otherwise.
void discardUnadded(epiUbo* child, epiApplicationObject* owner)
{
    if (owner != nullptr && child->refCount() != epiObject::kNotCounted)
    {
        child->setOwner(owner);
        child->release();
    }
    else
    {
        delete child;
    }
}

} // namespace

epiUbo* epiUbo::createVisibleChild(uint32_t kind, uint32_t name)
{
    return createChild(true, kind, name, 0, 0, 0, 0, nullptr);
}

epiUbo* epiUbo::createChild(bool show, uint32_t kind, uint32_t name, int32_t left, int32_t top, int32_t right,
                            int32_t bottom, const char* text)
{
    epiUbo* child = newChildObject(kind, name);
    if (child == nullptr)
        return nullptr;
    child->startRefCount();
    child->setName(name);
    if (!addChild(child))
    {
        discardUnadded(child, owner_);
        return nullptr;
    }
    child->setFrame(epiRect(left, top, right, bottom));
    if (text != nullptr)
        child->setTextChars(text);
    child->setVisible(show, true);
    return child;
}

bool epiUbo::addAndShow(epiUbo* child)
{
    if (!addChild(child))
        return false;
    child->setVisible(true, true);
    return true;
}

bool epiUbo::attachTo(epiUbo* newParent)
{
    if (newParent == nullptr || newParent == parent_)
        return false;
    retain();
    if (parent_ != nullptr)
        parent_->removeChild(this);
    const bool added = newParent->addChild(this);
    release();
    return added;
}

// ---------------------------------------------------------------------------------------------
// Lookups

epiUbo* epiUbo::nullChildObject()
{
    if (nullChild_ == nullptr)
    {
        nullChild_ = new epiUbo();
        nullChild_->startRefCount();
        nullChild_->setOwner(owner_);
    }
    else
    {
        nullChild_->retain();
    }
    return nullChild_;
}

epiUbo* epiUbo::childNamed(uint32_t name)
{
    for (epiUbo* child : children_)
        if (child->name() == name)
            return child;
    return nullChildObject();
}

epiUbo* epiUbo::childNamedIn(uint32_t a, uint32_t b, uint32_t c)
{
    epiUbo* first = nullptr;
    for (epiUbo* child : children_)
        if (child->name() == a)
        {
            first = child;
            break;
        }
    if (first == nullptr)
        return nullChildObject();
    epiUbo* second = nullptr;
    for (epiUbo* child : first->children())
        if (child->name() == b)
        {
            second = child;
            break;
        }
    if (second == nullptr)
        return nullChildObject();
    if (c == 0)
        return second;
    for (epiUbo* child : second->children())
        if (child->name() == c)
            return child;
    return nullChildObject();
}

epiUbo* epiUbo::childAt(int32_t index)
{
    if (index < 0 || index >= int32_t(children_.size()))
        return nullChildObject();
    return children_[size_t(index)];
}

void epiUbo::setChildText(uint32_t name, const epiText* text)
{
    childNamed(name)->setText(text);
}

void epiUbo::setChildTextChars(uint32_t name, const char* chars)
{
    childNamed(name)->setTextChars(chars);
}

void epiUbo::setChildTextf(uint32_t name, const char* format, ...)
{
    if (format == nullptr)
        return;
    char buffer[1000];
    va_list args;
    va_start(args, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(buffer, sizeof buffer, format, args);
#pragma GCC diagnostic pop
    va_end(args);
    childNamed(name)->setTextChars(buffer);
}

void epiUbo::formatText(const char* format, ...)
{
    if (format == nullptr)
        return;
    std::vector<char> buffer(std::strlen(format) + 1000);
    va_list args;
    va_start(args, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(buffer.data(), buffer.size(), format, args);
#pragma GCC diagnostic pop
    va_end(args);
    text_.assign(buffer.data());
    onTextChanged();
}

float epiUbo::childValue(uint32_t name)
{
    return childNamed(name)->getValue();
}

void epiUbo::setChildValue(uint32_t name, float value)
{
    childNamed(name)->setValue(value);
}

void epiUbo::showChild(uint32_t name, bool visible)
{
    childNamed(name)->setVisible(visible, true);
}

void epiUbo::clickChild(uint32_t name)
{
    childNamed(name)->click();
}

void epiUbo::setFrameLTRB(int32_t l, int32_t t, int32_t r, int32_t b)
{
    setFrame(epiRect(l, t, r, b));
}

void epiUbo::setFrameXYWH(int32_t x, int32_t y, int32_t w, int32_t h)
{
    setFrame(epiRect(x, y, x + w, y + h));
}

void epiUbo::setPosition(int32_t x, int32_t y)
{
    epiRect moved = frame_;
    moved.moveTo(x, y);
    setFrame(moved);
}

void epiUbo::setSize(int32_t w, int32_t h)
{
    epiRect sized = frame_;
    sized.setSize(w, h);
    setFrame(sized);
}

void epiUbo::setSizeKeepingPosition(const epiPoint& size)
{
    setSize(size.x_, size.y_);
}

void epiUbo::setSizeFromFrame(const epiPoint& size)
{
    const epiPoint centre = frame_.corner(8);
    setFrame(epiRect(centre.x_ - size.x_ / 2, centre.y_ - size.y_ / 2, centre.x_ - size.x_ / 2 + size.x_,
                     centre.y_ - size.y_ / 2 + size.y_));
}

void epiUbo::childEventA(uint32_t name, uint32_t code, intptr_t data)
{
    childNamed(name)->onEvent(code, this, data);
}

intptr_t epiUbo::childEventB(uint32_t name, intptr_t a, intptr_t b, intptr_t c)
{
    return childNamed(name)->query(a, b, c);
}

void epiUbo::childEventC(uint32_t name, intptr_t a, intptr_t b, intptr_t c)
{
    postCommand(childNamed(name), a, b, c);
}

void epiUbo::incBroadcast()
{
    for (epiUbo* object = this; object != nullptr; object = object->parent_)
        ++object->broadcastCount_;
}

void epiUbo::decBroadcast()
{
    for (epiUbo* object = this; object != nullptr; object = object->parent_)
        --object->broadcastCount_;
}

// ---------------------------------------------------------------------------------------------
// Coordinates and clipping

void epiUbo::pointToParent(const epiPoint& in, epiPoint& out)
{
    out = epiPoint(in.x_ + frame_.left_, in.y_ + frame_.top_);
}

void epiUbo::rectToParent(const epiRect& in, epiRect& out)
{
    out = in;
    out.offset(frame_.left_, frame_.top_);
}

void epiUbo::pointFromParent(const epiPoint& in, epiPoint& out)
{
    out = epiPoint(in.x_ - frame_.left_, in.y_ - frame_.top_);
}

void epiUbo::rectFromParent(const epiRect& in, epiRect& out)
{
    out = in;
    out.offset(-frame_.left_, -frame_.top_);
}

void epiUbo::toLocal(const epiPoint& point, epiPoint& out)
{
    pointFromParent(point, out);
}

void epiUbo::clipToVisible(epiRect& rect)
{
    if (!rect.intersect(bounds_))
        return;
    if (parent_ == nullptr)
        return;
    epiRect inParent;
    rectToParent(rect, inParent);
    parent_->clipToVisible(inParent);
    rectFromParent(inParent, rect);
}

void epiUbo::lockRedraw(bool lock)
{
    if (parent_ != nullptr)
        parent_->lockRedraw(lock);
}

void epiUbo::rectToAncestor(epiRect& rect, epiUbo* ancestor)
{
    for (epiUbo* object = this; object != ancestor && object->parent_ != nullptr; object = object->parent_)
    {
        epiRect up;
        object->rectToParent(rect, up);
        rect = up;
    }
}

void epiUbo::rectUpLevels(epiRect& rect, int32_t levels)
{
    for (epiUbo* object = this; levels > 0 && object->parent_ != nullptr; object = object->parent_, --levels)
    {
        epiRect up;
        object->rectToParent(rect, up);
        rect = up;
    }
}

void epiUbo::pointToAncestor(epiPoint& point, epiUbo* ancestor)
{
    for (epiUbo* object = this; object != ancestor && object->parent_ != nullptr; object = object->parent_)
    {
        epiPoint up;
        object->pointToParent(point, up);
        point = up;
    }
}

void epiUbo::pointUpLevels(epiPoint& point, int32_t levels)
{
    for (epiUbo* object = this; levels > 0 && object->parent_ != nullptr; object = object->parent_, --levels)
    {
        epiPoint up;
        object->pointToParent(point, up);
        point = up;
    }
}

epiUbo* epiUbo::findAncestorKind(uint32_t kind)
{
    for (epiUbo* object = parent_; object != nullptr; object = object->parent_)
        if (object->kind() == kind)
            return object;
    return nullptr;
}

epiUbo* epiUbo::findAncestorName(uint32_t name)
{
    for (epiUbo* object = parent_; object != nullptr; object = object->parent_)
        if (object->name() == name)
            return object;
    return nullptr;
}

epiRect epiUbo::anchorRect() const
{
    return designRect_.isEmpty() ? bounds_ : designRect_;
}

epiUbo* epiUbo::nativeView(epiRect& rect)
{
    if (parent_ == nullptr || notOnScreen_)
    {
        rect = bounds_;
        return this;
    }
    epiUbo* view = parent_->nativeView(rect);
    epiRect local;
    rectFromParent(rect, local);
    rect = local;
    return view;
}

epiUbo* epiUbo::rootForward()
{
    epiUbo* object = this;
    while (object->parent_ != nullptr)
        object = object->parent_;
    return object;
}

intptr_t epiUbo::broadcastQuery(intptr_t a, intptr_t b, intptr_t c)
{
    if (intptr_t answer = query(a, b, c))
        return answer;
    for (size_t i = 0; i < children_.size(); ++i)
        if (intptr_t answer = children_[i]->broadcastQuery(a, b, c))
            return answer;
    return 0;
}

bool epiUbo::queryPair(int32_t& a, int32_t& b)
{
    a = 0;
    b = 0;
    return false;
}

// ---------------------------------------------------------------------------------------------
// Anchors

void epiUbo::setAnchors(int32_t topLeft, int32_t bottomRight)
{
    setAttributeInt(epiCode("mgTL"), topLeft);
    setAttributeInt(epiCode("mgBR"), bottomRight);
}

void epiUbo::relayout()
{
    if (parent_ != nullptr && (anchorTopLeft_ >= 0 || anchorBottomRight_ >= 0))
    {
        epiRect moved = frame_;
        const epiRect area = parent_->boundsRect();
        if (anchorTopLeft_ >= 0)
        {
            const epiPoint corner = area.corner(anchorTopLeft_);
            moved.left_ = corner.x_ + anchorTopLeftOffset_.x_;
            moved.top_ = corner.y_ + anchorTopLeftOffset_.y_;
        }
        if (anchorBottomRight_ >= 0)
        {
            const epiPoint corner = area.corner(anchorBottomRight_);
            moved.right_ = corner.x_ + anchorBottomRightOffset_.x_;
            moved.bottom_ = corner.y_ + anchorBottomRightOffset_.y_;
        }
        setFrame(moved);
    }
    beforeChildrenRelayout();
    for (size_t i = 0; i < children_.size(); ++i)
        children_[i]->relayout();
    afterChildrenRelayout();
}

void epiUbo::fitChild(uint32_t name, float ratio)
{
    epiUbo* child = childNamed(name);
    const epiRect old = child->frameRect();
    int32_t w = old.width();
    int32_t h = old.height();
    if (old.aspect() <= ratio)
        w = int32_t(float(h) * ratio);
    else
        h = int32_t(float(w) / ratio);
    const epiPoint centre = old.corner(8);
    child->setFrame(
        epiRect(centre.x_ - w / 2, centre.y_ - h / 2, centre.x_ - w / 2 + w, centre.y_ - h / 2 + h));
    child->relayout();
}

// ---------------------------------------------------------------------------------------------
// Services

epiWindowManager* epiUbo::windowManager()
{
    return managerOfApplication();
}

epiApplicationObject* epiUbo::keyboard()
{
    epiApplication* app = epiApplicationOf(this);
    return app != nullptr ? app->keyboard() : nullptr;
}

epiApplicationObject* epiUbo::menu()
{
    epiApplication* app = epiApplicationOf(this);
    return app != nullptr ? app->menu() : nullptr;
}

epiResources* epiUbo::resources()
{
    if (parent_ != nullptr)
        return parent_->resources();
    epiApplication* app = epiApplicationOf(this);
    return app != nullptr ? app->resources() : nullptr;
}

bool epiUbo::readLayoutText(const epiText& name, epiText& dest)
{
    dest.clear();
    if (name.empty())
        return false;
    if (epiResources* res = resources())
        return res->readText(&name, epiCode("laya"), dest);
    return false;
}

// ---------------------------------------------------------------------------------------------
// Drawing primitives: the road climbs parent by parent, converting to each parent's coordinates,
// until an object with a surface of its own (a window or a view) ends it.

epiUiSurface* epiUbo::drawingSurface(epiRect& rect, epiRect& clip)
{
    for (epiUbo* object = this;; object = object->parent_)
    {
        if (epiUiSurface* surface = object->ownSurface())
            return surface;
        if (object->parent_ == nullptr)
            return nullptr;
        object->rectToParent(rect, rect);
        object->rectToParent(clip, clip);
    }
}

void epiUbo::fillRect(const epiRect& rect, const epiRect& clip, epiColour colour)
{
    epiRect r = rect, c = clip;
    if (epiUiSurface* surface = drawingSurface(r, c))
        surface->fillRect(r, c, colour);
}

void epiUbo::frameRectDraw(const epiRect& rect, const epiRect& clip, epiColour colour)
{
    epiRect r = rect, c = clip;
    if (epiUiSurface* surface = drawingSurface(r, c))
        surface->frameRect(r, c, colour);
}

void epiUbo::drawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour)
{
    for (epiUbo* object = this;; object = object->parent_)
    {
        if (epiUiSurface* surface = object->ownSurface())
            return surface->drawLine(x1, y1, x2, y2, colour);
        if (object->parent_ == nullptr)
            return;
        // Horizontal and vertical lines stay inside each object on the way.
        const epiRect& b = object->bounds_;
        if (y1 == y2)
        {
            if (y1 < b.top_ || y1 >= b.bottom_ || std::max(x1, x2) < b.left_ || std::min(x1, x2) > b.right_)
                return;
            x1 = std::clamp(x1, b.left_, b.right_);
            x2 = std::clamp(x2, b.left_, b.right_);
        }
        else if (x1 == x2)
        {
            if (x1 < b.left_ || x1 >= b.right_ || std::max(y1, y2) < b.top_ || std::min(y1, y2) > b.bottom_)
                return;
            y1 = std::clamp(y1, b.top_, b.bottom_);
            y2 = std::clamp(y2, b.top_, b.bottom_);
        }
        epiPoint from, to;
        object->pointToParent(epiPoint(x1, y1), from);
        object->pointToParent(epiPoint(x2, y2), to);
        x1 = from.x_, y1 = from.y_, x2 = to.x_, y2 = to.y_;
    }
}

void epiUbo::drawText(uint32_t fontName, int32_t alignment, const epiRect& rect, const epiRect& clip,
                      const epiText& text, epiColour colour)
{
    epiRect r = rect, c = clip;
    if (epiUiSurface* surface = drawingSurface(r, c))
        surface->drawText(fontName, alignment, r, c, text, colour);
}

int32_t epiUbo::textWidth(uint32_t fontName, const epiText& text)
{
    epiRect r, c;
    epiUiSurface* surface = drawingSurface(r, c);
    return surface != nullptr ? surface->textWidth(fontName, text) : 0;
}

void epiUbo::drawSystemText(const epiRect& rect, const epiRect& clip, const epiText& text, int32_t pointSize,
                            bool bold, int32_t alignment, epiColour colour)
{
    epiRect r = rect, c = clip;
    if (epiUiSurface* surface = drawingSurface(r, c))
        surface->drawSystemText(r, c, text, pointSize, bold, alignment, colour);
}

void epiUbo::blitStretched(epiBitmap* bitmap, const epiRect& source, const epiRect& dest, const epiRect& clip)
{
    epiRect d = dest, c = clip;
    if (epiUiSurface* surface = drawingSurface(d, c))
        surface->blitStretched(bitmap, source, d, c);
}

void epiUbo::blitAlpha(epiBitmap* bitmap, const epiRect& source, const epiRect& dest, const epiRect& clip)
{
    epiRect d = dest, c = clip;
    if (epiUiSurface* surface = drawingSurface(d, c))
        surface->blitAlpha(bitmap, source, d, c);
}

void epiUbo::blitBitmap(epiBitmap* bitmap, const epiRect& dest, const epiRect& clip, bool alpha)
{
    if (bitmap == nullptr)
        return;
    const epiRect source(0, 0, bitmap->width(), bitmap->height());
    if (alpha)
        blitAlpha(bitmap, source, dest, clip);
    else
        blitStretched(bitmap, source, dest, clip);
}

void epiUbo::blitPart(epiBitmap* bitmap, const epiRect& source, const epiRect& dest, const epiRect& clip)
{
    if (bitmap == nullptr)
        return;
    if (bitmap->usesAlpha())
        blitAlpha(bitmap, source, dest, clip);
    else
        blitStretched(bitmap, source, dest, clip);
}

void epiUbo::drawShape(const epiShapeRequest& request)
{
    epiShapeRequest up = request;
    if (up.rect.isEmpty() && up.rect.left_ == 0 && up.rect.top_ == 0)
        up.rect = bounds_;
    if (epiUiSurface* surface = drawingSurface(up.rect, up.clip))
        surface->drawShape(up);
}

void epiUbo::fillEllipse(const epiRect& rect, const epiRect& clip, epiColour colour)
{
    epiShapeRequest request;
    request.kind = epiCode("ovaF");
    request.rect = rect;
    request.clip = clip;
    request.colour = colour;
    drawShape(request);
}

void epiUbo::frameEllipse(const epiRect& rect, const epiRect& clip, epiColour colour, int32_t thickness)
{
    epiShapeRequest request;
    request.kind = epiCode("ovaP");
    request.rect = rect;
    request.clip = clip;
    request.colour = colour;
    request.thickness = thickness;
    drawShape(request);
}

// ---------------------------------------------------------------------------------------------
// Neutral classes

epiText epiCodeText(uint32_t code)
{
    epiText text;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        const char c = char((code >> shift) & 0xFF);
        text.push_back(c == 0 ? '_' : c);
    }
    return text;
}

epiUbo* epiUiNewNeutral(uint32_t kind)
{
    if (epiUbo* widget = epiUiNewBitmapWidget(kind))
        return widget;
    if (kind == epiCode("iCon"))
        return new epiUiContainer();
    if (kind == epiCode("iCos"))
        return new epiUiScrollableContainer();
    if (kind == epiCode("iWin"))
        return new epiUiWindowBase();
    return new epiUbo();
}
