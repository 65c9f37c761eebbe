#pragma once

// Bitmap widgets loaded from layout text through the real loader and factory, with images written
// as PNG files into the resource folder and decoded by the GTK bitmap services (no display). A
// neutral window paints the tree into a bitmap that the test reads.

#include "epi/ui/epiBitmapSurface.h"
#include "epi/ui/gtk/epiBitmapGtk.h"
#include "tests/epi/ui/UiTestSupport.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <string>
#include <vector>

/** A surface that counts the bitmap copies reaching it. */
class CountingSurface : public epiBitmapSurface
{
public:
    using epiBitmapSurface::epiBitmapSurface;
    void blitStretched(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                       const epiRect& clip) override
    {
        ++blits;
        epiBitmapSurface::blitStretched(bitmap, source, dest, clip);
    }
    void blitAlpha(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                   const epiRect& clip) override
    {
        ++blits;
        epiBitmapSurface::blitAlpha(bitmap, source, dest, clip);
    }
    int blits = 0;
};

/** Counts the 'iHit' notifications of the widgets it listens to. */
class HitCounter : public epiApplicationObject
{
public:
    void onEvent(uint32_t code, epiApplicationObject*, intptr_t) override { hits += code == epiCode("iHit"); }
    void listen(epiUbo* widget) { widget->subscribe(epiCode("iHit"), this, 0); }
    int hits = 0;
};

class WidgetFixture : public UiFixture
{
protected:
    void SetUp() override
    {
        epiGtkInstallBitmapPlatform();
        UiFixture::SetUp();
    }

    /** images/`name`: opaque frames of `w` x `h` stacked downwards, one colour (0xRRGGBB) each. */
    void image(const std::string& name, int w, int h, const std::vector<uint32_t>& frames)
    {
        const std::string path = std::string(app.resources()->media()->rootPathRef()->cstr()) + "images/";
        g_mkdir_with_parents(path.c_str(), 0755);
        GdkPixbuf* film = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, w, h * int(frames.size()));
        int top = 0;
        for (const uint32_t colour : frames)
        {
            GdkPixbuf* part = gdk_pixbuf_new_subpixbuf(film, 0, top, w, h);
            gdk_pixbuf_fill(part, (colour << 8) | 0xFFu);
            g_object_unref(part);
            top += h;
        }
        ASSERT_TRUE(gdk_pixbuf_save(film, (path + name).c_str(), "png", nullptr, NULL));
        g_object_unref(film);
    }

    /** A neutral window of `w` x `h` loaded from `items`, painting into `back`. */
    epiUiWindowBase* window(int w, int h, const std::string& items)
    {
        layout("w.xml", "<name>wind</name><size>" + std::to_string(w) + "," + std::to_string(h) + "</size>",
               items);
        auto* root = dynamic_cast<epiUiWindowBase*>(load("w.xml", epiCode("iWin")));
        EXPECT_NE(root, nullptr);
        if (root == nullptr)
            return nullptr;
        root->setFrameXYWH(0, 0, w, h);
        back.create(w, h);
        fonts.setResources(app.resources());
        root->setSurface(&surface);
        return root;
    }

    /** Paints all of `root` over a black back buffer. */
    void paint(epiUbo* root)
    {
        back.fillRect(epiColour{0, 0, 0, 255}, nullptr);
        surface.blits = 0;
        root->draw(root->boundsRect());
    }

    /** The painted colour at (x, y) as 0xRRGGBB. */
    uint32_t pixel(int x, int y) const { return back.getPixel(x, y, nullptr) & 0xFFFFFFu; }

    epiBitmapDib back;
    epiFonts fonts;
    CountingSurface surface{&back, &fonts};
};

/** A `<position>` and `<size>` pair. */
inline std::string at(int x, int y, int w, int h)
{
    return "<position>" + std::to_string(x) + "," + std::to_string(y) + "</position><size>" +
           std::to_string(w) + "," + std::to_string(h) + "</size>";
}
