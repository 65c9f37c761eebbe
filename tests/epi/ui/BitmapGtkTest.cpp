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
    std::vector<guchar> bytes;
    for (const uint32_t p : pixels)
        bytes.insert(bytes.end(), {guchar(p >> 16), guchar(p >> 8), guchar(p), guchar(p >> 24)});
    GdkPixbuf* pixbuf =
        gdk_pixbuf_new_from_data(bytes.data(), GDK_COLORSPACE_RGB, TRUE, 8, w, h, w * 4, nullptr, nullptr);
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

TEST_F(GtkBitmaps, CastsReadFoldersAndPacksAndTakeAlphaFromTheCompanion)
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

TEST_F(GtkBitmaps, ScaledBlitIsBilinearOverPremultipliedAlpha)
{
    // An 8 x 8 tile, red along x, green along y, alpha rising across it, scaled to 16 x 16 over grey:
    // cairo samples at pixel centres, edges padded.
    epiBitmap tile;
    tile.create(8, 8);
    tile.setUsesAlpha(true);
    for (int i = 0; i < 64; ++i)
        tile.pixels()[i] =
            (uint32_t(i * 4) << 24) | (uint32_t(i % 8 * 36) << 16) | (uint32_t(i / 8 * 36) << 8) | 0x80u;
    epiBitmap dest;
    dest.create(16, 16);
    dest.fillRect(epiColour{90, 90, 90, 255}, nullptr);
    const epiRect to(0, 0, 16, 16);
    dest.blit(tile, nullptr, &to);
    auto premultiplied = [&](int x, int y, int shift)
    {
        const uint32_t t = tile.pixels()[std::clamp(y, 0, 7) * 8 + std::clamp(x, 0, 7)];
        return shift == 24 ? channel(t, 24) : channel(t, shift) * channel(t, 24) / 255.0;
    };
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
        {
            const double sx = (x + 0.5) / 2.0 - 0.5, sy = (y + 0.5) / 2.0 - 0.5;
            const int x0 = int(std::floor(sx)), y0 = int(std::floor(sy));
            const double fx = sx - x0, fy = sy - y0;
            auto sample = [&](int shift)
            {
                return (premultiplied(x0, y0, shift) * (1 - fx) + premultiplied(x0 + 1, y0, shift) * fx) *
                           (1 - fy) +
                       (premultiplied(x0, y0 + 1, shift) * (1 - fx) +
                        premultiplied(x0 + 1, y0 + 1, shift) * fx) *
                           fy;
            };
            const double a = sample(24) / 255.0;
            for (int shift : {0, 8, 16})
                EXPECT_NEAR(channel(dest.getPixel(x, y, nullptr), shift), sample(shift) + 90 * (1 - a), 2)
                    << x << "," << y << " bit " << shift;
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
    epiFont* font = fonts.find(epiCode("sy30"));
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
