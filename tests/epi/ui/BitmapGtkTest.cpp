// Bitmaps and fonts through the GTK services (gdk-pixbuf, cairo, pango), over PNG files and a
// resource folder that the tests write. No display is needed.

#include "epi/epiResources.h"
#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiFont.h"
#include "epi/ui/gtk/epiBitmapGtk.h"
#include "tests/epi/TempFolder.h"
#include "tools/packer/PackBuilder.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace
{

/** Writes `pixels` (0xAARRGGBB, straight) as an RGBA PNG. */
bool writePng(const std::string& path, int w, int h, const std::vector<uint32_t>& pixels)
{
    GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, w, h);
    const int stride = gdk_pixbuf_get_rowstride(pixbuf);
    guchar* bytes = gdk_pixbuf_get_pixels(pixbuf);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
        {
            const uint32_t p = pixels[size_t(y * w + x)];
            guchar* o = bytes + y * stride + x * 4;
            o[0] = guchar(p >> 16);
            o[1] = guchar(p >> 8);
            o[2] = guchar(p);
            o[3] = guchar(p >> 24);
        }
    const bool ok = gdk_pixbuf_save(pixbuf, path.c_str(), "png", nullptr, NULL) != FALSE;
    g_object_unref(pixbuf);
    return ok;
}

class GtkBitmaps : public testing::Test
{
protected:
    void SetUp() override
    {
        epiGtkInstallBitmapPlatform();
        ASSERT_FALSE(folder_.path().empty());
        root_ = folder_.path() + "res.frs/";
        std::filesystem::create_directories(root_ + "images");
        std::filesystem::create_directories(root_ + "fonts");
        std::ofstream(root_ + "epi.frs") << "";
        ASSERT_TRUE(resources_.openPathChars(root_.c_str()));
    }
    void TearDown() override { resources_.stop(); }

    TempFolder folder_;
    std::string root_;
    epiResources resources_;
};

int channel(uint32_t p, int shift)
{
    return int((p >> shift) & 0xFF);
}

} // namespace

TEST_F(GtkBitmaps, PngKeepsTheColourOfHalfTransparentPixels)
{
    const std::vector<uint32_t> pixels = {0x800A141E, 0x01FF8040, 0xFFFFFFFF, 0x00000000};
    ASSERT_TRUE(writePng(root_ + "images/half.png", 2, 2, pixels));
    epiBitmap b;
    ASSERT_TRUE(b.loadFile(epiPath(root_ + "images/half.png"), nullptr));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(b.getPixel(i % 2, i / 2, nullptr), pixels[size_t(i)]) << "pixel " << i;
}

TEST_F(GtkBitmaps, CastsShareOneDecodeAndTakeAlphaFromTheCompanion)
{
    std::filesystem::create_directories(root_ + "images/b");
    ASSERT_TRUE(writePng(root_ + "images/b/knob.png", 2, 1, {0xFF102030, 0x80405060}));
    // The companion's red is the alpha: 0 at the first pixel whatever the image says.
    ASSERT_TRUE(writePng(root_ + "images/b/knob_alpha.png", 2, 1, {0xFF00FFFF, 0xFFC80000}));
    std::string error;
    const std::string pack = folder_.path() + "res.prs";
    ASSERT_TRUE(PackBuilder::build(root_, pack, error)) << error;
    // Files on disk from a folder, dumps read from a pack.
    for (const std::string& medium : {root_, pack})
    {
        epiResources resources;
        ASSERT_TRUE(resources.openPathChars(medium.c_str())) << medium;
        epiBitmapCasts casts;
        casts.setResources(&resources);
        epiBitmap* first = casts.acquireImage("b/knob.png");
        ASSERT_NE(first, nullptr) << medium;
        EXPECT_EQ(casts.acquireImage("b/knob.png"), first);
        EXPECT_EQ(casts.useCount("b/knob.png"), 2);
        EXPECT_EQ(first->getPixel(0, 0, nullptr), 0x00102030u) << medium;
        EXPECT_EQ(first->getPixel(1, 0, nullptr), 0xC8405060u) << medium;
        epiText name;
        EXPECT_TRUE(casts.nameOf(first, name));
        EXPECT_EQ(name, "b/knob.png");
        casts.stop();
        resources.stop();
    }
}

TEST_F(GtkBitmaps, AFailedLoadLeavesNoEntryAndIsTriedAgain)
{
    epiBitmapCasts casts;
    casts.setResources(&resources_);
    std::ofstream(root_ + "images/late.png") << "not a picture";
    EXPECT_EQ(casts.acquireImage("late.png"), nullptr);
    EXPECT_EQ(casts.count(), 0);
    ASSERT_TRUE(writePng(root_ + "images/late.png", 1, 1, {0xFF00FF00}));
    epiBitmap* b = casts.acquireImage("late.png");
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->getPixel(0, 0, nullptr), 0xFF00FF00u);
}

TEST_F(GtkBitmaps, ScaledBlitIsBilinear)
{
    // A 2 x 1 ramp scaled to 8 x 2: cairo samples at pixel centres, edges padded.
    epiBitmap source;
    source.create(2, 1);
    source.pixels()[0] = 0xFF000000;
    source.pixels()[1] = 0xFFC8C8C8;
    epiBitmap dest;
    dest.create(8, 2);
    const epiRect to(0, 0, 8, 2);
    dest.blit(source, nullptr, &to);
    for (int x = 0; x < 8; ++x)
    {
        const double sx = std::clamp((x + 0.5) * 2.0 / 8.0 - 0.5, 0.0, 1.0);
        const int want = int(std::lround(200.0 * sx));
        EXPECT_NEAR(channel(dest.getPixel(x, 1, nullptr), 8), want, 2) << "x " << x;
        EXPECT_EQ(channel(dest.getPixel(x, 1, nullptr), 24), 255);
    }
}

TEST_F(GtkBitmaps, LineWithoutSmoothingHasNoPartialPixels)
{
    struct Row
    {
        int32_t width;
        bool partialsExpected;
    };
    for (const Row row : {Row{-1, false}, Row{1, true}})
    {
        epiBitmap b;
        b.create(20, 20);
        b.fillRect(epiColour{0, 0, 0, 255}, nullptr);
        b.drawLine(1, 2, 17, 11, epiColour{255, 255, 255, 255}, row.width);
        int partial = 0, full = 0;
        for (int i = 0; i < 400; ++i)
        {
            const int g = channel(b.pixels()[i], 8);
            partial += g > 0 && g < 255;
            full += g == 255;
        }
        EXPECT_GT(full + partial, 10) << "width " << row.width;
        EXPECT_EQ(partial > 0, row.partialsExpected) << "width " << row.width;
    }
}

TEST_F(GtkBitmaps, FontMissIsRememberedAndStripLoadsFromItsPicture)
{
    epiFonts fonts;
    fonts.setResources(&resources_);
    EXPECT_EQ(fonts.find(epiCode("ab12")), nullptr);
    // Once missed, the code is never looked up again, even when the file appears later.
    std::vector<uint32_t> strip(size_t(300 * 7), 0xFF000000);
    for (int m = 1; m < 300; m += 2)
        strip[size_t(5 * 300 + m)] = 0xFFFFFFFF;
    ASSERT_TRUE(writePng(root_ + "fonts/fontstrip_ab12.png", 300, 7, strip));
    EXPECT_EQ(fonts.find(epiCode("ab12")), nullptr);
    EXPECT_EQ(fonts.count(), 1);

    epiFonts fresh;
    fresh.setResources(&resources_);
    ASSERT_NE(fresh.find(epiCode("ab12")), nullptr);
    EXPECT_EQ(fresh.height(epiCode("ab12")), 3);
    EXPECT_EQ(fresh.width(epiCode("ab12"), "abc"), 3);
    EXPECT_EQ(fresh.find(0), fresh.find(epiCode("ab12"))) << "code 0 takes the first of the list";
}

TEST_F(GtkBitmaps, SystemFontDrawsAtTheAskedSize)
{
    std::ofstream(root_ + "fonts/fontsystem_sy30.xml")
        << "<epi><content><allplatforms><family>Tahoma</family><size>30</size></allplatforms></content></"
           "epi>";
    epiFonts fonts;
    fonts.setResources(&resources_);
    testing::internal::CaptureStdout();
    epiFont* font = fonts.find(epiCode("sy30"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Found font type 3 <Tahoma> <sy30> 30\n");
    ASSERT_NE(font, nullptr);

    epiBitmap b;
    b.create(80, 80);
    b.fillRect(epiColour{255, 255, 255, 255}, nullptr);
    font->draw(b, "H", b.rect(), b.rect(), 0, epiColour{0, 0, 0, 255});
    int top = 80, bottom = -1;
    for (int y = 0; y < 80; ++y)
        for (int x = 0; x < 80; ++x)
            if (channel(b.getPixel(x, y, nullptr), 0) < 128)
            {
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
    // 30 pt at 96 dpi is 40 px; the capital height of the face is 0.729 of that.
    EXPECT_NEAR(bottom - top + 1, 0.729 * 40.0, 2.0);
    EXPECT_EQ(channel(b.getPixel(79, 79, nullptr), 24), 255) << "the alpha stays opaque";
    EXPECT_GT(font->width("H  "), font->width("H")) << "trailing blanks are counted";
}
