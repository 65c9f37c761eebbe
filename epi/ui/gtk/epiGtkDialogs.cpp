#include "epi/ui/gtk/epiGtkDialogs.h"

#include "epi/ui/gtk/epiWindow.h"

#include <gtk/gtk.h>

namespace epiGtk
{

namespace
{

/** Runs a file chooser and collects what it chose. */
bool runChooser(const epiText& title, GtkFileChooserAction action, bool many, const epiText* proposed,
                std::vector<epiText>& chosen)
{
    const bool save = action == GTK_FILE_CHOOSER_ACTION_SAVE;
    GtkWidget* dialog =
        gtk_file_chooser_dialog_new(nativeText(title).cstr(), nullptr, action, "_Cancel", GTK_RESPONSE_CANCEL,
                                    save ? "_Save" : "_Open", GTK_RESPONSE_ACCEPT, nullptr);
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    gtk_file_chooser_set_select_multiple(chooser, many ? TRUE : FALSE);
    gtk_file_chooser_set_local_only(chooser, TRUE);
    if (save)
    {
        gtk_file_chooser_set_do_overwrite_confirmation(chooser, TRUE);
        if (proposed != nullptr && !proposed->empty())
            gtk_file_chooser_set_current_name(chooser, nativeText(*proposed).cstr());
    }
    // A folder can't be chosen from the recent files, where GTK would start: begin at home.
    if (action == GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER)
        gtk_file_chooser_set_current_folder(chooser, g_get_home_dir());
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_ACCEPT);
    chosen.clear();
    if (gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_ACCEPT)
    {
        GSList* names = gtk_file_chooser_get_filenames(chooser);
        for (GSList* name = names; name != nullptr; name = name->next)
        {
            chosen.emplace_back(static_cast<const char*>(name->data));
            g_free(name->data);
        }
        g_slist_free(names);
    }
    gtk_widget_destroy(dialog);
    // Let the dialog's window go away before the caller goes on.
    while (gtk_events_pending())
        gtk_main_iteration_do(FALSE);
    return !chosen.empty();
}

} // namespace

bool askOpen(const epiText& title, epiText& path)
{
    std::vector<epiText> chosen;
    if (!runChooser(title, GTK_FILE_CHOOSER_ACTION_OPEN, false, nullptr, chosen))
        return false;
    path = chosen.front();
    return true;
}

bool askSave(const epiText& title, const epiText& proposed, epiText& path)
{
    std::vector<epiText> chosen;
    if (!runChooser(title, GTK_FILE_CHOOSER_ACTION_SAVE, false, &proposed, chosen))
        return false;
    path = chosen.front();
    return true;
}

bool askOpenMany(const epiText& title, std::vector<epiText>& paths)
{
    return runChooser(title, GTK_FILE_CHOOSER_ACTION_OPEN, true, nullptr, paths);
}

bool askFolder(const epiText& title, epiText& path)
{
    std::vector<epiText> chosen;
    if (!runChooser(title, GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER, false, nullptr, chosen))
        return false;
    path = chosen.front();
    return true;
}

void messageBox(const epiText& title, const epiText& text)
{
    GtkWidget* dialog = gtk_message_dialog_new(nullptr, GTK_DIALOG_MODAL, GTK_MESSAGE_OTHER, GTK_BUTTONS_OK,
                                               "%s", nativeText(text).cstr());
    gtk_window_set_title(GTK_WINDOW(dialog), nativeText(title).cstr());
    gtk_dialog_run(GTK_DIALOG(dialog));
    gtk_widget_destroy(dialog);
    while (gtk_events_pending())
        gtk_main_iteration_do(FALSE);
}

} // namespace epiGtk
