#include "epi/ui/epiMenu.h"
#include "epi/ui/gtk/epiWindow.h"

#include <gtk/gtk.h>

#include <cctype>
#include <map>

namespace
{

struct Activation
{
    epiMenu* menu;
    int32_t id;
};

void activateThunk(GtkMenuItem*, gpointer data)
{
    const auto* activation = static_cast<Activation*>(data);
    activation->menu->retain();
    activation->menu->handleCommand(activation->id);
    activation->menu->release();
}

void freeActivation(gpointer data, GClosure*)
{
    delete static_cast<Activation*>(data);
}

/** A command's row: its text, and right-aligned the shortcut as the menu built it ("Ctrl+Shift+S"). */
GtkWidget* commandItem(const epiMenuItem& entry)
{
    const std::string shown = entry.shown;
    const size_t tab = shown.find('\t');
    GtkWidget* item = gtk_menu_item_new();
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 24);
    GtkWidget* text = gtk_label_new(epiGtk::nativeText(epiText(shown.substr(0, tab))).cstr());
    gtk_label_set_xalign(GTK_LABEL(text), 0.0f);
    gtk_box_pack_start(GTK_BOX(row), text, TRUE, TRUE, 0);
    if (tab != std::string::npos)
    {
        GtkWidget* keys = gtk_label_new(epiGtk::nativeText(epiText(shown.substr(tab + 1))).cstr());
        gtk_label_set_xalign(GTK_LABEL(keys), 1.0f);
        gtk_style_context_add_class(gtk_widget_get_style_context(keys), "accelerator");
        gtk_box_pack_end(GTK_BOX(row), keys, FALSE, FALSE, 0);
    }
    gtk_container_add(GTK_CONTAINER(item), row);
    return item;
}

void fillMenu(GtkWidget* shell, const std::vector<epiMenuItem>& items, epiMenu& menu,
              std::map<int32_t, GtkWidget*>& byId)
{
    for (const epiMenuItem& entry : items)
    {
        if (entry.separator)
        {
            gtk_menu_shell_append(GTK_MENU_SHELL(shell), gtk_separator_menu_item_new());
            continue;
        }
        GtkWidget* item = commandItem(entry);
        if (!entry.items.empty())
        {
            GtkWidget* submenu = gtk_menu_new();
            fillMenu(submenu, entry.items, menu, byId);
            gtk_menu_item_set_submenu(GTK_MENU_ITEM(item), submenu);
        }
        else if (entry.id != 0)
        {
            g_signal_connect_data(item, "activate", G_CALLBACK(activateThunk),
                                  new Activation{&menu, entry.id}, freeActivation, GConnectFlags(0));
            byId[entry.id] = item;
        }
        gtk_menu_shell_append(GTK_MENU_SHELL(shell), item);
    }
}

} // namespace

namespace epiGtk
{

/** The menu bar of `menu`'s model, its shortcuts entered in `accelerators`. */
GtkWidget* buildMenuBar(epiMenu& menu, GtkAccelGroup* accelerators)
{
    GtkWidget* bar = gtk_menu_bar_new();
    std::map<int32_t, GtkWidget*> byId;
    fillMenu(bar, menu.barRef()->menus, menu, byId);
    for (const epiAccelerator& accelerator : *menu.acceleratorsRef())
    {
        const auto item = byId.find(accelerator.id);
        if (item == byId.end())
            continue;
        // The key is a capital or a digit; GDK names the letter by its small form.
        const guint keyval = gdk_unicode_to_keyval(gunichar(std::tolower(accelerator.key)));
        guint modifiers = 0;
        if (accelerator.flags & epiMenu::kAccelControl)
            modifiers |= GDK_CONTROL_MASK;
        if (accelerator.flags & epiMenu::kAccelShift)
            modifiers |= GDK_SHIFT_MASK;
        if (accelerator.flags & epiMenu::kAccelAlt)
            modifiers |= GDK_MOD1_MASK;
        // Not shown by GTK: the row shows the shortcut as built.
        gtk_widget_add_accelerator(item->second, "activate", accelerators, keyval, GdkModifierType(modifiers),
                                   GtkAccelFlags(0));
    }
    return bar;
}

} // namespace epiGtk
