// epi_drop_source PATH...: a small window of another process that offers its paths as
// text/uri-list when dragged, as a file manager does. Prints "ready X Y" (the window's centre on
// the screen) once it is shown, and "done" when a drop took its data.

#include <gtk/gtk.h>

#include <cstdio>
#include <string>
#include <vector>

namespace
{

std::vector<std::string> uris;

void giveUris(GtkWidget*, GdkDragContext*, GtkSelectionData* data, guint, guint, gpointer)
{
    std::vector<gchar*> list;
    for (std::string& uri : uris)
        list.push_back(uri.data());
    list.push_back(nullptr);
    gtk_selection_data_set_uris(data, list.data());
}

void dragEnded(GtkWidget*, GdkDragContext*, gpointer)
{
    std::puts("done");
    std::fflush(stdout);
}

gboolean drawn(GtkWidget* widget, cairo_t*, gpointer)
{
    static bool said = false;
    if (!said)
    {
        said = true;
        int x = 0;
        int y = 0;
        gdk_window_get_origin(gtk_widget_get_window(widget), &x, &y);
        std::printf("ready %d %d\n", x + 50, y + 50);
        std::fflush(stdout);
    }
    return FALSE;
}

} // namespace

int main(int argc, char** argv)
{
    gtk_init(&argc, &argv);
    for (int i = 1; i < argc; ++i)
        if (gchar* uri = g_filename_to_uri(argv[i], nullptr, nullptr))
        {
            uris.emplace_back(uri);
            g_free(uri);
        }
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* area = gtk_drawing_area_new();
    gtk_widget_set_size_request(area, 100, 100);
    gtk_container_add(GTK_CONTAINER(window), area);
    static GtkTargetEntry uriList{const_cast<gchar*>("text/uri-list"), 0, 0};
    gtk_drag_source_set(window, GDK_BUTTON1_MASK, &uriList, 1, GDK_ACTION_COPY);
    g_signal_connect(window, "drag-data-get", G_CALLBACK(giveUris), nullptr);
    g_signal_connect(window, "drag-end", G_CALLBACK(dragEnded), nullptr);
    g_signal_connect(area, "draw", G_CALLBACK(drawn), nullptr);
    g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
    gtk_window_move(GTK_WINDOW(window), 900, 700);
    gtk_widget_show_all(window);
    gtk_main();
    return 0;
}
