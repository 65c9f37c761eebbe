// The back buffer on a real X screen: a drawing area copies an epiBitmapDib with cairo the way a
// window's draw handler does, and the screenshot must equal the buffer pixel for pixel.

#include "epi/ui/epiBitmap.h"
#include "epi/ui/gtk/epiBitmapGtk.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

namespace
{

struct Shown
{
    epiBitmapDib* dib = nullptr;
    bool drawn = false;
};

gboolean drawDib(GtkWidget*, cairo_t* cr, gpointer data)
{
    auto* shown = static_cast<Shown*>(data);
    epiBitmapDib* dib = shown->dib;
    cairo_surface_t* pixels =
        cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(dib->pixels()),
                                            CAIRO_FORMAT_RGB24, dib->width(), dib->height(), dib->stride());
    cairo_set_source_surface(cr, pixels, 0, 0);
    cairo_paint(cr);
    cairo_surface_destroy(pixels);
    shown->drawn = true;
    return TRUE;
}

} // namespace

TEST(BitmapScreen, ScreenshotEqualsTheBackBuffer)
{
    XVFB_REQUIRE();
    epiGtkInstallBitmapPlatform();
    epiBitmapDib dib;
    ASSERT_TRUE(dib.create(96, 64));
    dib.fillRect(epiColour{240, 240, 240, 255}, nullptr);
    // Every path into the buffer: opaque and blended blits, a scaled copy, a mask and a shape.
    epiBitmap tile;
    tile.create(8, 8);
    for (int i = 0; i < 64; ++i)
        tile.pixels()[i] = (uint32_t(i * 4) << 24) | (uint32_t(i * 3) << 16) | 0x0040C0u;
    const epiRect opaque(4, 4, 12, 12), blended(16, 4, 24, 12), scaled(28, 4, 60, 36), masked(64, 4, 72, 12);
    tile.setUsesAlpha(false);
    dib.blit(tile, nullptr, &opaque);
    tile.setUsesAlpha(true);
    dib.blit(tile, nullptr, &blended);
    dib.blit(tile, nullptr, &scaled);
    dib.drawMasked(tile, nullptr, &masked, epiColour{10, 120, 60, 255});
    dib.drawShapeA(epiCode("ovaF"), epiRect(4, 40, 24, 60), epiColour{200, 30, 30, 255});
    // Alpha below 255 left in the buffer must not reach the screen: its colours show as they are.
    const epiRect translucent(64, 40, 90, 60);
    dib.fillRect(epiColour{90, 160, 220, 255}, &translucent);
    dib.setAlpha(0.25f, &translucent);

    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* area = gtk_drawing_area_new();
    gtk_widget_set_size_request(area, dib.width(), dib.height());
    gtk_container_add(GTK_CONTAINER(window), area);
    Shown shown{&dib};
    g_signal_connect(area, "draw", G_CALLBACK(drawDib), &shown);
    gtk_widget_show_all(window);
    ASSERT_TRUE(xvfb::pumpUntil([&] { return shown.drawn; }));
    gdk_display_sync(gdk_display_get_default());
    xvfb::pumpUntil([] { return false; }, 0.1);

    GdkPixbuf* shot =
        gdk_pixbuf_get_from_window(gtk_widget_get_window(area), 0, 0, dib.width(), dib.height());
    ASSERT_NE(shot, nullptr);
    const int channels = gdk_pixbuf_get_n_channels(shot);
    const int stride = gdk_pixbuf_get_rowstride(shot);
    const guchar* bytes = gdk_pixbuf_read_pixels(shot);
    int differing = 0;
    for (int y = 0; y < dib.height(); ++y)
        for (int x = 0; x < dib.width(); ++x)
        {
            const guchar* p = bytes + y * stride + x * channels;
            const uint32_t onScreen = (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2];
            differing += onScreen != (dib.getPixel(x, y, nullptr) & 0xFFFFFFu);
        }
    EXPECT_EQ(differing, 0);
    // The scaled and masked areas really hold the tile, so the comparison covers them.
    EXPECT_NE(dib.getPixel(44, 20, nullptr), 0xFFF0F0F0u);
    EXPECT_NE(dib.getPixel(70, 10, nullptr), 0xFFF0F0F0u);
    g_object_unref(shot);
    gtk_widget_destroy(window);
    EXPECT_EQ(xvfb::warningCount(), 0);
}
