// epiview RES CODE [--menu NAME]
// epiview --ask open|save|many|folder TITLE
//
// Opens the window layout whose root is named CODE (or the layout file CODE) from RES, a resource
// pack or a .frs folder, through the real framework, and prints one flushed line per event until the
// window closes:
//   cmd CODE VALUE    an object named CODE was hit; VALUE is its value
//   key D|R|U CODE    a key went down, repeated or up, in the framework's key codes
//   menu CODE         a menu command that no window took
//   drop X Y PATH     a file dropped at the client point (X, Y)
//   xid NAME 0x...    the X window of a native container, once, after opening
//   shown 0x...       the window's own X window, once its first frame is on the screen
// With --ask, shows that dialog and prints each chosen path on a line of its own.

#include "epi/epiResources.h"
#include "epi/ui/epiApplication.h"
#include "epi/ui/epiMenu.h"
#include "epi/ui/gtk/epiGtkDialogs.h"
#include "epi/ui/gtk/epiUiSystem.h"
#include "epi/ui/gtk/epiWindow.h"
#include "host/ui/StripWidgets.h"

#include <gtk/gtk.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

std::string codeText(uint32_t code)
{
    return std::string(epiCodeText(code));
}

void say(const std::string& line)
{
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

/** Prints the hits of every object it listens to. */
class HitPrinter : public epiApplicationObject
{
public:
    void onEvent(uint32_t code, epiApplicationObject* sender, intptr_t) override
    {
        auto* object = dynamic_cast<epiUbo*>(sender);
        if (code != epiCode("iHit") || object == nullptr)
            return;
        char value[32];
        std::snprintf(value, sizeof value, "%g", double(object->getValue()));
        say("cmd " + codeText(object->name()) + " " + value);
    }
    void listenTo(epiUbo& object)
    {
        object.subscribe(epiCode("iHit"), this, 0);
        for (epiUbo* child : object.children())
            listenTo(*child);
    }
};

class ViewWindow : public epiWindow
{
public:
    void keyDown(int32_t key) override
    {
        say("key D " + std::to_string(key));
        epiWindow::keyDown(key);
    }
    void keyRepeat(int32_t key) override
    {
        say("key R " + std::to_string(key));
        epiWindow::keyRepeat(key);
    }
    void keyUp(int32_t key) override
    {
        say("key U " + std::to_string(key));
        epiWindow::keyUp(key);
    }
    void fileDropped(const epiPoint& point, const epiText& path) override
    {
        say("drop " + std::to_string(point.x_) + " " + std::to_string(point.y_) + " " + std::string(path));
    }
};

class ViewApp : public epiWindowApplication
{
public:
    intptr_t handleCommandCode(uint32_t code) override
    {
        say("menu " + codeText(code));
        return 1;
    }
};

int usage()
{
    std::fputs("usage: epiview RES CODE [--menu NAME]\n       epiview --ask open|save|many|folder TITLE\n",
               stderr);
    return 2;
}

int ask(const std::string& what, const epiText& title)
{
    std::vector<epiText> paths;
    epiText path;
    bool chosen = false;
    if (what == "open")
        chosen = epiGtk::askOpen(title, path);
    else if (what == "save")
        chosen = epiGtk::askSave(title, epiText(""), path);
    else if (what == "folder")
        chosen = epiGtk::askFolder(title, path);
    else if (what == "many")
        chosen = epiGtk::askOpenMany(title, paths);
    else
        return usage();
    if (chosen && what != "many")
        paths.push_back(path);
    for (const epiText& p : paths)
        say(std::string(p));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    epiGtk::openDisplayOrExit(&argc, &argv);
    if (words.size() == 3 && words[0] == "--ask")
        return ask(words[1], epiText(words[2]));

    std::string menuName;
    if (words.size() == 4 && words[2] == "--menu")
        menuName = words[3];
    else if (words.size() != 2)
        return usage();

    epiFactory::add(epiCode("GrUi"), epiCode("iWin"),
                    [](uint32_t) -> epiObject* { return new ViewWindow(); });
    // The host's widgets by name (the CPU meter, the faders...), over the plain bitmap kinds.
    Korvalind3Host::registerStripWidgets();
    ViewApp app;
    if (!app.start() || app.resources() == nullptr)
    {
        std::fputs("epiview: cannot start the interface framework\n", stderr);
        return 1;
    }
    epiGtk::attach(app);
    std::error_code ec;
    const epiPath resPath(words[0].c_str());
    const bool opened = std::filesystem::is_directory(words[0], ec) ? app.resources()->openFolder(resPath)
                                                                    : app.resources()->openPack(resPath);
    if (!opened)
    {
        std::fprintf(stderr, "epiview: '%s' is neither a resource pack nor a resource folder\n",
                     words[0].c_str());
        app.stop();
        return 1;
    }
    // A menu file's name, else the name of a menu's root.
    if (!menuName.empty())
    {
        auto* menu = dynamic_cast<epiMenu*>(app.menu());
        epiText file(menuName);
        if (menu != nullptr && !menu->load(file) && menuName.size() == 4 &&
            app.resources()->findByInternalName(epiCode("menu"), epiText(menuName).code(), file))
            menu->load(file);
        if (menu == nullptr || menu->items().empty())
            std::fprintf(stderr, "epiview: no menu '%s'\n", menuName.c_str());
    }

    // A layout file's name, else the name of a layout's root.
    epiText name(words[1]);
    epiText text;
    if (!app.readLayoutText(name, text) && words[1].size() == 4)
        app.resources()->findByInternalName(epiCode("laya"), epiText(words[1]).code(), name);
    epiUbo* window = app.openWindow(name);
    if (window == nullptr)
    {
        std::fprintf(stderr, "epiview: no window layout '%s'\n", words[1].c_str());
        app.stop();
        return 1;
    }
    // Each native container tells its X window, for another program to draw in.
    for (epiUbo* child : window->children())
        if (auto* host = dynamic_cast<epiUiSystemContainer*>(child))
        {
            char line[64];
            std::snprintf(line, sizeof line, "xid %s 0x%lx", codeText(host->name()).c_str(),
                          host->nativeXid());
            say(line);
        }
    // The first frame reaches the X server before anyone is told the window is there.
    auto* shown = dynamic_cast<epiWindow*>(window);
    if (shown != nullptr && (shown->gtkWindow() == nullptr || !gtk_widget_get_visible(shown->gtkWindow())))
        shown = nullptr;
    while (shown != nullptr && shown->framesDrawn() == 0)
        g_main_context_iteration(nullptr, TRUE);
    if (shown != nullptr)
    {
        gdk_display_sync(gdk_display_get_default());
        char line[64];
        std::snprintf(line, sizeof line, "shown 0x%lx", shown->xid());
        say(line);
    }
    HitPrinter printer;
    printer.listenTo(*window);
    app.windowManager()->setQuitWhenEmpty(true);
    app.windowManager()->messageLoop();
    app.stop();
    return 0;
}
