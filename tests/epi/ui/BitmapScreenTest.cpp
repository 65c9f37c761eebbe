// The back buffer on a real X screen: a drawing area copies an epiBitmapDib with cairo the way a
// window's draw handler does, and the screenshot must equal the buffer pixel for pixel.

#include "epi/ui/epiApplication.h"
#include "epi/ui/epiBitmap.h"
#include "epi/ui/gtk/epiBitmapGtk.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <cmath>

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

namespace
{

/** Draws a tile three ways through the tree's surface: opaque, blended, and scaled to twice its size. */
class TilePainter : public epiUbo
{
public:
    void draw(const epiRect& rect) override
    {
        blitStretched(tile, tile->rect(), epiRect(0, 0, 8, 8), rect);
        blitAlpha(tile, tile->rect(), epiRect(10, 0, 18, 8), rect);
        blitAlpha(tile, tile->rect(), epiRect(20, 0, 36, 16), rect);
        epiUbo::draw(rect);
    }
    epiBitmap* tile = nullptr;
};

const char* const kPainterLayout =
    "<epi><version>4</version><signature>layout</signature><content><kind>iWin</kind><name>pixw</name>"
    "<text>Pixels</text><position>60,60</position><size>120,80</size><itemslist></itemslist></content></epi>";

uint32_t shotPixel(GdkPixbuf* shot, int x, int y)
{
    const guchar* p = gdk_pixbuf_read_pixels(shot) + y * gdk_pixbuf_get_rowstride(shot) +
                      x * gdk_pixbuf_get_n_channels(shot);
    return 0xFF000000u | (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2];
}

int channelOf(uint32_t p, int shift)
{
    return int((p >> shift) & 0xFF);
}

} // namespace

TEST(BitmapScreen, WindowScreenshotEqualsItsBackBufferAndTheComputedPixels)
{
    XVFB_REQUIRE();
    epiWindowApplication app;
    ASSERT_TRUE(app.start());
    epiGtk::attach(app);
    epiFactory::add(epiCode("GrUi"), epiCode("tPnt"),
                    [](uint32_t) -> epiObject* { return new TilePainter(); });
    epiBitmap tile;
    tile.create(8, 8);
    // Red rises along x, green along y; alpha covers 0..255 across the tile.
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            tile.pixels()[y * 8 + x] = (uint32_t(std::min(255, (y * 8 + x) * 4)) << 24) |
                                       (uint32_t(x * 36) << 16) | (uint32_t(y * 36) << 8) | 0x80u;

    epiUbo* window = app.openWindowText(epiText(kPainterLayout));
    auto* gtkWindow = dynamic_cast<epiWindow*>(window);
    ASSERT_NE(gtkWindow, nullptr);
    auto* painter = dynamic_cast<TilePainter*>(
        window->createChild(true, epiCode("tPnt"), epiCode("pntr"), 10, 10, 60, 40, ""));
    ASSERT_NE(painter, nullptr);
    painter->tile = &tile;
    painter->invalidateAll();
    ASSERT_TRUE(xvfb::pumpUntil([&] { return gtkWindow->lastCopiedPixels() > 0; }));
    xvfb::pumpUntil([] { return false; }, 0.2);
    gdk_display_sync(gdk_display_get_default());

    const epiBitmapDib& back = gtkWindow->backBuffer();
    const uint32_t background = back.getPixel(back.width() - 1, back.height() - 1, nullptr);
    GdkPixbuf* shot = gdk_pixbuf_get_from_window(gtk_widget_get_window(gtkWindow->clientWidget()), 0, 0,
                                                 back.width(), back.height());
    ASSERT_NE(shot, nullptr);
    int differing = 0;
    for (int y = 0; y < back.height(); ++y)
        for (int x = 0; x < back.width(); ++x)
            differing += shotPixel(shot, x, y) != (back.getPixel(x, y, nullptr) | 0xFF000000u);
    EXPECT_EQ(differing, 0) << "screenshot against back buffer";
    g_object_unref(shot);

    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
        {
            const uint32_t t = tile.pixels()[y * 8 + x];
            EXPECT_EQ(back.getPixel(10 + x, 10 + y, nullptr), t | 0xFF000000u) << "opaque " << x << "," << y;
            const double a = channelOf(t, 24) / 255.0;
            const uint32_t got = back.getPixel(20 + x, 10 + y, nullptr);
            for (int shift : {0, 8, 16})
                EXPECT_NEAR(channelOf(got, shift),
                            channelOf(t, shift) * a + channelOf(background, shift) * (1 - a), 1)
                    << "blended " << x << "," << y;
        }
    // The scaled copy against a bilinear sample of the tile over the background, at pixel centres.
    auto sample = [&](double sx, double sy, int shift)
    {
        sx = std::clamp(sx, 0.0, 7.0);
        sy = std::clamp(sy, 0.0, 7.0);
        const int x0 = int(sx), y0 = int(sy), x1 = std::min(7, x0 + 1), y1 = std::min(7, y0 + 1);
        const double fx = sx - x0, fy = sy - y0;
        auto premul = [&](int x, int y)
        {
            const uint32_t t = tile.pixels()[y * 8 + x];
            return shift == 24 ? channelOf(t, 24) : channelOf(t, shift) * channelOf(t, 24) / 255.0;
        };
        return (premul(x0, y0) * (1 - fx) + premul(x1, y0) * fx) * (1 - fy) +
               (premul(x0, y1) * (1 - fx) + premul(x1, y1) * fx) * fy;
    };
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
        {
            const double sx = (x + 0.5) / 2.0 - 0.5, sy = (y + 0.5) / 2.0 - 0.5;
            const double a = sample(sx, sy, 24) / 255.0;
            const uint32_t got = back.getPixel(30 + x, 10 + y, nullptr);
            for (int shift : {0, 8, 16})
                EXPECT_NEAR(channelOf(got, shift),
                            sample(sx, sy, shift) + channelOf(background, shift) * (1 - a), 2)
                    << "scaled " << x << "," << y;
        }
    window->notifyDestroyed();
    app.stop();
    EXPECT_EQ(xvfb::warningCount(), 0);
}
