#include "epi/ui/epiApplication.h"
#include "epi/ui/epiWindowManager.h"
#include "epi/ui/gtk/epiBitmapGtk.h"
#include "epi/ui/gtk/epiUiSystem.h"
#include "epi/ui/gtk/epiWindow.h"

#include <X11/Xlib.h>
#include <gtk/gtk.h>

#include <cstdio>
#include <cstdlib>

bool epiGtkEventSource::dispatchOne()
{
    return g_main_context_iteration(nullptr, FALSE) != FALSE;
}

namespace
{

epiObject* makeWindow(uint32_t)
{
    return new epiWindow();
}

epiObject* makeModalWindow(uint32_t)
{
    return new epiModalWindow();
}

epiObject* makeWindowManager(uint32_t)
{
    return new epiGtkWindowManager();
}

constexpr const char* kCursorNames[16] = {"default",    "pointer",     "text",        "crosshair",
                                          "move",       "grab",        "grabbing",    "ew-resize",
                                          "ns-resize",  "nesw-resize", "nwse-resize", "col-resize",
                                          "row-resize", "not-allowed", "help",        "progress"};

} // namespace

void epiGtkWindowManager::setCursor(int32_t index)
{
    if (index >= 0 && index < 16)
        name_ = kCursorNames[index];
    else if (index == -2)
        name_ = "default";
    else if (index == -3)
        name_ = "wait";
    else
        return;
    applyCursor();
}

void epiGtkWindowManager::showBusyCursor(int32_t index)
{
    hidden_ = false;
    if (index != -1)
        setCursor(index);
    applyCursor();
}

void epiGtkWindowManager::hideBusyCursor()
{
    hidden_ = true;
    applyCursor();
}

void epiGtkWindowManager::applyCursor()
{
    GdkDisplay* display = gdk_display_get_default();
    if (display == nullptr)
        return;
    // A theme without the name gets the arrow rather than no change.
    GdkCursor* cursor = gdk_cursor_new_from_name(display, cursorName());
    if (cursor == nullptr)
        cursor = gdk_cursor_new_from_name(display, "default");
    for (epiUbo* window : windows())
        if (auto* native = dynamic_cast<epiWindow*>(window);
            native != nullptr && native->gtkWindow() != nullptr && gtk_widget_get_window(native->gtkWindow()))
            gdk_window_set_cursor(gtk_widget_get_window(native->gtkWindow()), cursor);
    if (cursor != nullptr)
        g_object_unref(cursor);
}

namespace epiGtk
{

epiGtkEventSource& eventSource()
{
    static epiGtkEventSource source;
    return source;
}

bool openDisplay(int* argc, char*** argv)
{
    // Plug-in editors draw from their own threads on X11 children of our windows.
    XInitThreads();
    gdk_set_allowed_backends("x11");
    if (!gtk_init_check(argc, argv))
        return false;
    epiFactory::add(epiCode("GrUi"), epiCode("iWin"), makeWindow);
    epiFactory::add(epiCode("GrUi"), epiCode("iMwn"), makeModalWindow);
    epiFactory::add(epiCode("Appl"), epiCode("Wind"), makeWindowManager);
    epiGtk::registerSystemWidgets();
    epiGtkInstallBitmapPlatform();
    return true;
}

void openDisplayOrExit(int* argc, char*** argv)
{
    if (openDisplay(argc, argv))
        return;
    const char* display = std::getenv("DISPLAY");
    std::fprintf(stderr, "cannot open the X display '%s'\n", display != nullptr ? display : "");
    std::exit(1);
}

void attach(epiApplication& application)
{
    if (epiWindowManager* manager = application.windowManager())
        manager->setEventSource(&eventSource());
}

epiText nativeText(const epiText& text)
{
    std::string joined;
    joined.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')
            continue;
        joined.push_back(text[i]);
    }
    gchar* valid = g_utf8_make_valid(joined.c_str(), gssize(joined.size()));
    epiText result(valid);
    g_free(valid);
    return result;
}

} // namespace epiGtk
