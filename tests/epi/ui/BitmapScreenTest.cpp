// The back buffer on a real X screen: a window's draw handler copies it, and the screenshot must
// equal it pixel for pixel.

#include "epi/ui/epiBitmap.h"
#include "epi/ui/gtk/epiBitmapGtk.h"
#include "tests/epi/ui/LayoutText.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

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

using BitmapScreen = GtkAppTest<>;

TEST_F(BitmapScreen, WindowScreenshotEqualsItsBackBuffer)
{
    epiFactory::add(epiCode("GrUi"), epiCode("tPnt"),
                    [](uint32_t) -> epiObject* { return new TilePainter(); });
    epiBitmap tile;
    tile.create(8, 8);
    // Red rises along x, green along y; alpha covers 0..255 across the tile.
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            tile.pixels()[y * 8 + x] = (uint32_t(std::min(255, (y * 8 + x) * 4)) << 24) |
                                       (uint32_t(x * 36) << 16) | (uint32_t(y * 36) << 8) | 0x80u;
    epiWindow* window = open(
        layoutFile("<kind>iWin</kind><name>pixw</name><text>Pixels</text>" + place(60, 60, 120, 80), ""));
    ASSERT_NE(window, nullptr);
    auto* painter = dynamic_cast<TilePainter*>(
        window->createChild(true, epiCode("tPnt"), epiCode("pntr"), 10, 10, 60, 40, ""));
    ASSERT_NE(painter, nullptr);
    painter->tile = &tile;
    painter->invalidateAll();
    xvfb::settle(0.2);
    gdk_display_sync(gdk_display_get_default());

    const epiBitmapDib& back = window->backBuffer();
    const uint32_t background = back.getPixel(back.width() - 1, back.height() - 1, nullptr);
    GdkPixbuf* shot = gdk_pixbuf_get_from_window(gtk_widget_get_window(window->clientWidget()), 0, 0,
                                                 back.width(), back.height());
    ASSERT_NE(shot, nullptr);
    int differing = 0;
    int painted = 0;
    for (int y = 0; y < back.height(); ++y)
        for (int x = 0; x < back.width(); ++x)
        {
            const guchar* p = gdk_pixbuf_read_pixels(shot) + y * gdk_pixbuf_get_rowstride(shot) +
                              x * gdk_pixbuf_get_n_channels(shot);
            const uint32_t pixel = back.getPixel(x, y, nullptr) | 0xFF000000u;
            differing += ((uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2] | 0xFF000000u) != pixel;
            painted += pixel != background;
        }
    g_object_unref(shot);
    EXPECT_EQ(differing, 0);
    // All three copies reached the buffer (the tile's first pixel is fully transparent).
    EXPECT_GE(painted, 64 - 1 + 64 - 1 + 256 - 4);
}

} // namespace
