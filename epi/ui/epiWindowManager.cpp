#include "epi/ui/epiWindowManager.h"

#include "epi/epiResources.h"
#include "epi/ui/epiApplication.h"

#include <algorithm>
#include <chrono>
#include <thread>

void epiEventSource::idleSleep()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

epiWindowManager::epiWindowManager()
{
    desktopRect_.set(0, 0, 1920, 1080);
    // The manager has no native window: nothing may draw into it or hit it.
    notOnScreen_ = true;
}

epiWindowManager::~epiWindowManager() = default;

double epiWindowManager::now() const
{
    epiApplication* app = epiApplicationOf(this);
    return app != nullptr ? app->now() : 0.0;
}

void epiWindowManager::stop()
{
    animations_.clear();
    if (animationTimerOn_)
    {
        animationTimerOn_ = false;
        removeTimerNow();
    }
    // Windows first, newest first, each through its own close path.
    while (!children_.empty())
    {
        epiUbo* window = children_.back();
        window->notifyDestroyed();
        if (!children_.empty() && children_.back() == window)
            removeChild(window);
    }
    epiUbo::stop();
}

void epiWindowManager::messageLoop()
{
    beforeLoop();
    running_ = true;
    epiApplication* app = epiApplicationOf(this);
    while (running_)
    {
        const bool dispatched = source_ != nullptr && source_->dispatchOne();
        if (!dispatched)
        {
            if (source_ != nullptr)
                source_->idleSleep();
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        if (app != nullptr)
            app->pumpTimers();
    }
    afterLoop();
}

void epiWindowManager::quit()
{
    running_ = false;
    if (source_ != nullptr)
        source_->postQuit();
}

void epiWindowManager::onCommand(uint32_t code)
{
    if (code == epiCode("quit"))
        quit();
    else
        epiUbo::onCommand(code);
}

void epiWindowManager::cascadeRect(epiRect& rect)
{
    rect.moveTo(cascadePoint_.x_, cascadePoint_.y_);
    cascadePoint_.x_ += 32;
    cascadePoint_.y_ += 16;
    if (cascadePoint_.x_ > 640)
        cascadePoint_ = epiPoint(64, 64);
}

epiUbo* epiWindowManager::topWindow(bool modalOnly)
{
    if (!modalOnly)
        if (epiUbo* active = systemActiveWindow();
            active != nullptr && std::find(children_.begin(), children_.end(), active) != children_.end())
            return active;
    for (size_t i = children_.size(); i-- > 0;)
    {
        epiUbo* window = children_[i];
        if (!modalOnly)
            return window;
        if (auto* base = dynamic_cast<epiUiWindowBase*>(window); base != nullptr && base->isModal())
            return window;
    }
    return nullptr;
}

epiUbo* epiWindowManager::windowNamed(uint32_t name)
{
    for (epiUbo* window : children_)
        if (window->name() == name)
            return window;
    return nullptr;
}

epiUbo* epiWindowManager::mainWindow()
{
    if (epiUbo* window = windowNamed(epiCode("main")))
        return window;
    return children_.empty() ? nullptr : children_.front();
}

intptr_t epiWindowManager::queryFlag(intptr_t code)
{
    epiUbo* top = topWindow(false);
    if (top != nullptr)
        if (intptr_t answer = top->queryFlag(code))
            return answer;
    epiUbo* main = mainWindow();
    if (main != nullptr && main != top)
        if (intptr_t answer = main->queryFlag(code))
            return answer;
    if (epiApplication* app = epiApplicationOf(this))
        return app->handleCommandCode(uint32_t(code));
    return 0;
}

bool epiWindowManager::addWindow(epiUbo* window)
{
    if (window == nullptr || std::find(children_.begin(), children_.end(), window) != children_.end())
        return false;
    return addChild(window);
}

void epiWindowManager::removeWindow(epiUbo* window)
{
    if (!removeChild(window))
        return;
    if (children_.empty() && quitWhenEmpty_)
        quit();
}

void epiWindowManager::addAnimation(epiUiTimered* object, bool restart)
{
    if (object == nullptr)
        return;
    for (animation& entry : animations_)
    {
        if (entry.object == object)
        {
            if (restart)
            {
                entry.startTime = now();
                entry.tickCount = 0;
            }
            return;
        }
    }
    animations_.push_back(animation{object, now(), 0});
    if (!animationTimerOn_)
    {
        animationTimerOn_ = true;
        startTimer(0.04, false, true);
    }
}

void epiWindowManager::removeAnimation(epiUiTimered* object)
{
    const auto it = std::find_if(animations_.begin(), animations_.end(),
                                 [object](const animation& entry) { return entry.object == object; });
    if (it == animations_.end())
        return;
    animations_.erase(it);
    if (animations_.empty() && animationTimerOn_)
    {
        animationTimerOn_ = false;
        removeTimerNow();
    }
}

void epiWindowManager::restartAnimation(epiUiTimered* object)
{
    for (animation& entry : animations_)
    {
        if (entry.object == object)
        {
            entry.startTime = now();
            entry.tickCount = 0;
        }
    }
}

void epiWindowManager::timerTick()
{
    animationTick();
}

void epiWindowManager::animationTick()
{
    const double t = now();
    // An object may stop (or start) animations from inside animate(): each is looked up again
    // before its call, and one that left the list meanwhile is passed over.
    const std::vector<animation> snapshot = animations_;
    for (const animation& planned : snapshot)
    {
        const auto it =
            std::find_if(animations_.begin(), animations_.end(),
                         [&planned](const animation& entry) { return entry.object == planned.object; });
        if (it == animations_.end())
            continue;
        const int32_t tick = ++it->tickCount;
        const double elapsed = t - it->startTime;
        planned.object->animate(elapsed, tick);
    }
}

epiUbo* epiWindowManager::openWindowByInternalName(uint32_t kind, uint32_t name)
{
    epiResources* res = resources();
    auto* app = dynamic_cast<epiWindowApplication*>(epiApplicationOf(this));
    if (res == nullptr || app == nullptr)
        return nullptr;
    epiText file;
    if (!res->findByInternalName(kind, name, file))
        return nullptr;
    return app->openWindow(file);
}

epiUbo* epiWindowManager::bringUp(uint32_t name)
{
    auto* app = dynamic_cast<epiWindowApplication*>(epiApplicationOf(this));
    if (name != 0)
    {
        if (epiUbo* window = windowNamed(name))
        {
            // To the front: the end of the list is the top.
            const auto it = std::find(children_.begin(), children_.end(), window);
            children_.erase(it);
            children_.push_back(window);
            for (size_t i = 0; i < children_.size(); ++i)
                children_[i]->setChildIndex(int32_t(i));
            return window;
        }
        return openWindowByInternalName(epiCode("laya"), name);
    }
    if (app == nullptr)
        return nullptr;
    epiUbo* window = app->newWindow(0);
    if (window != nullptr)
    {
        window->startRefCount();
        window->start();
        window->setOwner(app);
        window->notifyCreated();
        window->layoutDone();
    }
    return window;
}

bool epiWindowManager::closeWindowNamed(uint32_t name)
{
    epiUbo* window = windowNamed(name);
    if (window == nullptr)
        return false;
    window->notifyDestroyed();
    return true;
}
