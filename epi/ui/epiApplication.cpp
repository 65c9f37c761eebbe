#include "epi/ui/epiApplication.h"

#include "epi/epiResources.h"
#include "epi/epiXmlChunk.h"
#include "epi/ui/epiKeyboard.h"
#include "epi/ui/epiMenu.h"
#include "epi/ui/epiUbo.h"
#include "epi/ui/epiUiResources.h"
#include "epi/ui/epiWindowManager.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <map>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

// Taken when the program's static objects are built, which is as close to the process start as
// portable code gets.
const std::chrono::steady_clock::time_point processStart = std::chrono::steady_clock::now();

epiApplication* runningApplication = nullptr;

std::map<std::pair<uint32_t, uint32_t>, epiFactory::Maker>& kindTable()
{
    static std::map<std::pair<uint32_t, uint32_t>, epiFactory::Maker> table;
    return table;
}

} // namespace

void epiFactory::add(uint32_t family, uint32_t kind, Maker maker)
{
    if (maker == nullptr)
        kindTable().erase({family, kind});
    else
        kindTable()[{family, kind}] = maker;
}

epiFactory::Maker epiFactory::find(uint32_t family, uint32_t kind)
{
    const auto it = kindTable().find({family, kind});
    return it == kindTable().end() ? nullptr : it->second;
}

epiObject* epiFactory::make(uint32_t family, uint32_t kind, uint32_t name)
{
    const Maker maker = find(family, kind);
    return maker != nullptr ? maker(name) : nullptr;
}

epiApplication* epiApplicationOf(const epiApplicationObject* object)
{
    // Widgets are owned by the application directly; services and other objects may sit a few
    // owners further down.
    for (int32_t depth = 0; object != nullptr && depth < 64; ++depth)
    {
        if (auto* app = dynamic_cast<epiApplication*>(const_cast<epiApplicationObject*>(object)))
            return app;
        if (object->owner() == object)
            break;
        object = object->owner();
    }
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Posted commands

epiAppCommandsList::~epiAppCommandsList()
{
    clearAll();
}

void epiAppCommandsList::clearAll()
{
    while (!empty())
    {
        const comds_elem_data element = front();
        pop_front();
        if (element.target != nullptr)
            element.target->release();
    }
}

void epiAppCommandsList::timerTick()
{
    if (empty())
    {
        if (owner_ != nullptr)
            owner_->removeTimer(this);
        return;
    }
    // Taken off the queue before it runs, so that a command may post further ones.
    const comds_elem_data element = front();
    pop_front();
    if (element.target != nullptr)
    {
        element.target->query(element.a, element.b, element.c);
        // The reference taken at postCommand(): the target may go away here.
        element.target->release();
    }
}

// ---------------------------------------------------------------------------------------------
// Application

epiApplication::epiApplication()
{
    commands_.setOwner(this);
}

epiApplication::~epiApplication()
{
    // An application deleted while its services run stops them first, so nothing is left behind.
    if (windowManager_ != nullptr || resources_ != nullptr || keyboard_ != nullptr || menu_ != nullptr ||
        clipboard_ != nullptr)
        epiApplication::stop();
    commands_.clearAll();
    purgeDisposed();
    if (runningApplication == this)
        runningApplication = nullptr;
    if (epiPath::defaultBase() == &appPath_)
        epiPath::setDefaultBase(nullptr);
}

epiApplication* epiApplication::current()
{
    return runningApplication;
}

int32_t epiApplication::run(int32_t argc, char** argv)
{
    std::srand(unsigned(std::time(nullptr)));
    if (runningApplication != nullptr && runningApplication != this)
        std::exit(1);
    runningApplication = this;
    setAppPath(nullptr);
    if (!start())
        return -1;
    const int32_t result = mainLoop(argc, argv);
    stop();
    std::srand(unsigned(std::time(nullptr)));
    return result;
}

void epiApplication::mainBody(int32_t, char**) {}

int32_t epiApplication::mainLoop(int32_t argc, char** argv)
{
    mainBody(argc, argv);
    return 0;
}

double epiApplication::now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - processStart).count();
}

void epiApplication::waitSeconds(double seconds)
{
    const double until = now() + seconds;
    while (now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

intptr_t epiApplication::handleCommandCode(uint32_t)
{
    return 0;
}

epiUbo* epiApplication::activeWindow()
{
    epiWindowManager* manager = windowManager();
    if (manager == nullptr)
        return nullptr;
    epiUbo* top = manager->topWindow(false);
    if (auto* window = dynamic_cast<epiUiWindowBase*>(top))
        window->onActivate();
    return top;
}

epiObject* epiApplication::create(uint32_t family, uint32_t kind)
{
    return newObject(family, kind, 0);
}

bool epiApplication::hasTimer(epiApplicationObject* object)
{
    return object != nullptr && object->timerActive();
}

void epiApplication::setAppPath(const char* argv0)
{
    if (argv0 != nullptr && argv0[0] == '/')
    {
        appPath_.fromNative(argv0);
        appPath_.removeLast();
    }
    else if (argv0 != nullptr && argv0[0] == '.')
    {
        char folder[2048 + 1] = {};
        if (getcwd(folder, 2048) == nullptr)
            folder[0] = 0;
        std::string whole = folder;
        whole += argv0 + 1;
        appPath_.fromNative(whole.c_str());
        appPath_.removeLast();
    }
    else
    {
        // The executable itself stands for the module: its folder is the program's folder.
        char module[2048 + 1] = {};
        const ssize_t length = readlink("/proc/self/exe", module, 2048);
        module[length > 0 ? length : 0] = 0;
        appPath_.fromNative(module);
        appPath_.removeLast();
        appPath_.ensureTrailingSlash();
    }
    epiPath::setDefaultBase(&appPath_);
}

void epiApplication::purgeDisposed()
{
    // An object's destructor may give up further objects: those join the end and go too.
    while (!objects_.empty())
    {
        epiObject* object = objects_.front();
        objects_.pop_front();
        delete object;
    }
}

epiObject* epiApplication::newWindowManager()
{
    return create(epiCode("Appl"), epiCode("Wind"));
}

int32_t epiApplication::runCommandLine(void* instance, const char* commandLine)
{
    instance_ = instance;
    epiText line("kv3 ");
    line.appendChars(commandLine);
    // Words are fields between blanks, as quotedField() numbers them: a quoted word keeps its
    // blanks and counts once.
    int32_t argc = 0;
    for (size_t pos = 0;;)
    {
        ++argc;
        if (pos < line.size() && line[pos] == '"')
        {
            const size_t close = line.find('"', pos + 1);
            pos = close == std::string::npos ? close : line.find(' ', close + 1);
        }
        else
        {
            pos = line.find(' ', pos);
        }
        if (pos == std::string::npos)
            break;
        ++pos;
    }
    std::vector<std::string> words(static_cast<size_t>(argc));
    std::vector<char*> argv(size_t(argc) + 1, nullptr);
    for (int32_t i = 0; i < argc; ++i)
    {
        words[size_t(i)] = line.quotedField(i, ' ', '"');
        argv[size_t(i)] = words[size_t(i)].data();
    }
    return run(argc, argv.data());
}

epiObject* epiApplication::newObject(uint32_t family, uint32_t kind, uint32_t name)
{
    if (epiObject* made = epiFactory::make(family, kind, name))
        return made;
    if (family == epiCode("Appl"))
    {
        if (kind == epiCode("Rsrc"))
            return new epiUiResources();
        if (kind == epiCode("Keyb"))
            return new epiKeyboard();
        if (kind == epiCode("Menu"))
            return new epiMenu();
        if (kind == epiCode("Clip"))
            return new epiClipboard();
    }
    return new epiApplicationObject();
}

epiApplicationObject* epiApplication::startService(epiObject* made)
{
    auto* service = dynamic_cast<epiApplicationObject*>(made);
    if (service == nullptr)
    {
        delete made;
        return nullptr;
    }
    service->setOwner(this);
    if (!service->start())
    {
        delete service;
        return nullptr;
    }
    return service;
}

bool epiApplication::start()
{
    setOwner(this);
    if (!startGraphics())
        return false;
    resources_ = dynamic_cast<epiResources*>(startService(create(epiCode("Appl"), epiCode("Rsrc"))));
    if (resources_ == nullptr)
    {
        stop();
        return false;
    }
    windowManager_ = dynamic_cast<epiWindowManager*>(startService(newWindowManager()));
    if (windowManager_ == nullptr)
    {
        stop();
        return false;
    }
    epiApplicationObject** services[] = {&keyboard_, &menu_, &clipboard_};
    const uint32_t kinds[] = {epiCode("Keyb"), epiCode("Menu"), epiCode("Clip")};
    for (size_t i = 0; i < 3; ++i)
    {
        *services[i] = startService(create(epiCode("Appl"), kinds[i]));
        if (*services[i] == nullptr)
        {
            stop();
            return false;
        }
    }
    return true;
}

void epiApplication::stopService(epiApplicationObject*& service)
{
    epiApplicationObject* object = service;
    service = nullptr;
    if (object == nullptr)
        return;
    object->stop();
    delete object;
}

void epiApplication::stop()
{
    epiApplicationObject* manager = windowManager_;
    windowManager_ = nullptr;
    stopService(manager);
    stopService(keyboard_);
    stopService(menu_);
    stopService(clipboard_);
    epiApplicationObject* resources = resources_;
    resources_ = nullptr;
    stopService(resources);
    commands_.clearAll();
    purgeDisposed();
    stopGraphics();
}

int32_t epiApplication::addTimer(epiApplicationObject* object, double periodSeconds, bool once, bool exact)
{
    if (object == nullptr)
        return 0;
    // A one-shot entry has period 0 but is still due after the time asked for.
    const double period = once ? 0.0 : periodSeconds;
    timers_.push_back(timerEntry{object, period, now() + periodSeconds, exact, false});
    object->setTimerActive(true);
    nextTimerDue_ = 0;
    timersActive_ = true;
    return 1;
}

void epiApplication::removeTimer(epiApplicationObject* object)
{
    bool marked = false;
    bool othersLive = false;
    for (timerEntry& entry : timers_)
    {
        if (entry.target != object || entry.removed)
            continue;
        if (!marked)
        {
            entry.removed = true;
            marked = true;
        }
        else
        {
            othersLive = true;
        }
    }
    if (marked && !othersLive && object != nullptr)
        object->setTimerActive(false);
}

void epiApplication::pumpTimers()
{
    if (!timersActive_)
        return;
    const double t = now();
    if (nextTimerDue_ > t)
        return;
    double next = 0;
    bool any = false;
    // Entries already ticked in this pump: a walk that restarts notes them but never ticks them
    // again, so a late timer fires once per pump.
    std::vector<const timerEntry*> ticked;
    const auto wasTicked = [&ticked](const timerEntry* entry)
    {
        for (const timerEntry* e : ticked)
            if (e == entry)
                return true;
        return false;
    };
    auto it = timers_.begin();
    while (it != timers_.end())
    {
        if (it->removed)
        {
            for (auto& e : ticked)
                if (e == &*it)
                    e = nullptr;
            timers_.erase(it);
            it = timers_.begin();
            next = 0;
            any = false;
            continue;
        }
        any = true;
        if (t > it->due && !wasTicked(&*it))
        {
            ticked.push_back(&*it);
            epiApplicationObject* target = it->target;
            target->timerTick();
            if (it->removed)
                continue; // unlinked on the next round of the loop, which then starts over
            if (it->period != 0.0)
            {
                it->due = (it->exact ? it->due : t) + it->period;
            }
            else
            {
                it->removed = true;
                bool othersLive = false;
                for (const timerEntry& entry : timers_)
                    if (&entry != &*it && entry.target == target && !entry.removed)
                        othersLive = true;
                if (!othersLive)
                    target->setTimerActive(false);
                continue;
            }
        }
        if (next == 0 || it->due < next)
            next = it->due;
        ++it;
    }
    timersActive_ = any;
    nextTimerDue_ = next;
}

void epiApplication::disposeChild(epiApplicationObject* object)
{
    if (object == nullptr)
        return;
    for (const epiObject* listed : objects_)
        if (listed == object)
            return;
    objects_.append(object);
    object->onDisposing();
}

void epiApplication::postCommand(epiApplicationObject* target, intptr_t a, intptr_t b, intptr_t c)
{
    if (target != nullptr)
        target->retain();
    commands_.push_back(comds_elem_data{target, a, b, c});
    if (commands_.size() == 1 && !commands_.timerActive())
        addTimer(&commands_, 0.1, false, true);
}

// ---------------------------------------------------------------------------------------------
// Window application

epiWindowApplication::epiWindowApplication() = default;

epiWindowApplication::~epiWindowApplication() = default;

int32_t epiWindowApplication::mainLoop(int32_t, char**)
{
    beforeMainLoop();
    if (epiWindowManager* manager = windowManager())
        manager->messageLoop();
    afterMainLoop();
    return 0;
}

epiObject* epiWindowApplication::newObject(uint32_t family, uint32_t kind, uint32_t name)
{
    if (epiObject* made = epiFactory::make(family, kind, name))
        return made;
    if (family == epiCode("GrUi"))
        return epiUiNewNeutral(kind);
    if (family == epiCode("Appl") && kind == epiCode("Wind"))
        return new epiWindowManager();
    return epiApplication::newObject(family, kind, name);
}

bool epiWindowApplication::readLayoutText(const epiText& name, epiText& dest)
{
    dest.clear();
    if (resources_ == nullptr || name.empty())
        return false;
    return resources_->readText(&name, epiCode("laya"), dest);
}

epiUbo* epiWindowApplication::newWindow(uint32_t name)
{
    epiObject* made = newObject(epiCode("GrUi"), epiCode("iWin"), name);
    auto* window = dynamic_cast<epiUbo*>(made);
    if (window == nullptr)
        delete made;
    return window;
}

epiUbo* epiWindowApplication::openWindowText(const epiText& text)
{
    const epiXmlChunk content = epiXmlChunk(text).child("epi").child("content");
    if (content.isEmpty())
        return nullptr;
    const uint32_t code = content.child("name").text().code();
    epiUbo* window = newWindow(code);
    if (window == nullptr)
        return nullptr;
    window->startRefCount();
    window->start();
    window->setOwner(this);
    window->setName(code);
    window->readAll(content);
    return window;
}

epiUbo* epiWindowApplication::openWindowLayout(const epiText& name)
{
    epiText text;
    if (!readLayoutText(name, text))
        return nullptr;
    return openWindowText(text);
}

epiUbo* epiWindowApplication::openWindow(const epiText& name)
{
    epiUbo* window = openWindowLayout(name);
    if (window == nullptr)
        return nullptr;
    window->relayout();
    window->setVisible(true, true);
    return window;
}

bool epiWindowApplication::loadWindowInto(epiUbo* window, const epiText& name)
{
    epiText text;
    if (!readLayoutText(name, text))
    {
        delete window;
        return false;
    }
    return loadWindowIntoText(window, text);
}

bool epiWindowApplication::loadWindowIntoText(epiUbo* window, const epiText& text)
{
    if (window == nullptr)
        return false;
    window->start();
    window->setOwner(this);
    if (!window->loadLayoutText(text))
    {
        delete window;
        return false;
    }
    return true;
}

void epiWindowApplication::runNested(intptr_t a, intptr_t b)
{
    hasNested_ = true;
    nestedA_ = a;
    nestedB_ = b;
    windowAppHook();
    hasNested_ = false;
    nestedA_ = 0;
    nestedB_ = 0;
}

bool epiWindowApplication::nestedArgs(intptr_t& a, intptr_t& b)
{
    a = nestedA_;
    b = nestedB_;
    return hasNested_;
}
