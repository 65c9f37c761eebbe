// Pixels and bitmap fonts without any platform: blits, masks, alpha, and the fonts' own tables.

#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiFont.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

namespace
{

epiBitmap filled(int32_t w, int32_t h, uint32_t argb)
{
    epiBitmap b;
    b.create(w, h);
    for (int32_t i = 0; i < w * h; ++i)
        b.pixels()[i] = argb;
    return b;
}

int channel(uint32_t p, int shift)
{
    return int((p >> shift) & 0xFF);
}

// Straight alpha over straight alpha, in doubles.
uint32_t expectedOver(uint32_t d, uint32_t s)
{
    const double sa = channel(s, 24) / 255.0, da = channel(d, 24) / 255.0;
    const double oa = sa + da * (1 - sa);
    uint32_t out = uint32_t(std::lround(oa * 255)) << 24;
    for (int shift : {0, 8, 16})
        out |= uint32_t(std::lround((channel(s, shift) * sa + channel(d, shift) * da * (1 - sa)) / oa))
               << shift;
    return out;
}

} // namespace

TEST(Bitmap, SameSizeBlitBlendsOrCopiesAsOpaque)
{
    struct Row
    {
        uint32_t dest, source;
        bool usesAlpha;
    };
    const Row rows[] = {
        {0xFF102030, 0x80C0A060, true},  // half over opaque
        {0x80FF0000, 0x400000FF, true},  // translucent over translucent
        {0x00000000, 0x80FFFFFF, true},  // over nothing: the source as it is
        {0xFF102030, 0x00FFFFFF, true},  // fully transparent: nothing changes
        {0x40102030, 0x10C0A060, false}, // no alpha: copied, alpha forced to 255
    };
    for (const Row& row : rows)
    {
        epiBitmap dest = filled(4, 3, row.dest);
        epiBitmap source = filled(2, 2, row.source);
        source.setUsesAlpha(row.usesAlpha);
        const epiRect to(1, 1, 3, 3);
        dest.blit(source, nullptr, &to);
        const uint32_t want = row.usesAlpha ? expectedOver(row.dest, row.source) : (row.source | 0xFF000000u);
        for (int shift : {0, 8, 16, 24})
            EXPECT_NEAR(channel(dest.getPixel(2, 2, nullptr), shift), channel(want, shift), 1)
                << std::hex << row.dest << " " << row.source << " bit " << std::dec << shift;
        EXPECT_EQ(dest.getPixel(0, 0, nullptr), row.dest) << "outside the destination rectangle";
    }
}

TEST(Bitmap, BlitPastTheEdgesKeepsSourceAndDestinationAligned)
{
    epiBitmap dest = filled(4, 4, 0xFF000000);
    epiBitmap source;
    source.create(4, 4);
    for (int32_t i = 0; i < 16; ++i)
        source.pixels()[i] = 0xFF000000u | uint32_t(i);
    source.setUsesAlpha(false);
    const epiRect to(-1, 2, 3, 6);
    dest.blit(source, nullptr, &to);
    // Destination (0, 2) is source (1, 0); destination (2, 3) is source (3, 1).
    EXPECT_EQ(dest.getPixel(0, 2, nullptr), 0xFF000001u);
    EXPECT_EQ(dest.getPixel(2, 3, nullptr), 0xFF000007u);
    EXPECT_EQ(dest.getPixel(3, 3, nullptr), 0xFF000000u);
}

TEST(Bitmap, DrawMaskedPaintsCoverageAndKeepsDestinationAlpha)
{
    const epiColour colour{200, 100, 50, 255};
    for (uint32_t coverage : {0u, 1u, 77u, 128u, 254u, 255u})
    {
        epiBitmap dest = filled(3, 3, 0x7F204060);
        epiBitmap mask = filled(1, 1, coverage << 24);
        const epiRect to(1, 1, 2, 2);
        dest.drawMasked(mask, nullptr, &to, colour);
        const float a = float(coverage) / 255.0f;
        auto mix = [&](int d, int c) { return uint32_t(float(d) * (1.0f - a) + float(c) * a); };
        const uint32_t want = 0x7F000000u | (mix(0x20, 200) << 16) | (mix(0x40, 100) << 8) | mix(0x60, 50);
        EXPECT_EQ(dest.getPixel(1, 1, nullptr), want) << "coverage " << coverage;
    }
}

TEST(Bitmap, DrawMaskedIsClippedWithTheSourceMovedAlong)
{
    epiBitmap dest = filled(4, 1, 0xFF000000);
    epiBitmap mask;
    mask.create(4, 1);
    mask.pixels()[1] = 0xFF000000;
    const epiRect clip(2, 0, 4, 1);
    const epiRect to(1, 0, 5, 1);
    dest.drawMaskedClipped(mask, nullptr, &to, clip, epiColour{255, 255, 255, 255});
    // Mask column 1 lands on x = 2, inside the clip.
    EXPECT_EQ(dest.getPixel(2, 0, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(dest.getPixel(1, 0, nullptr), 0xFF000000u);
}

TEST(Bitmap, SetAlphaRoundsAndStaysInItsRectangle)
{
    epiBitmap b = filled(3, 1, 0xFF123456);
    const epiRect middle(1, 0, 2, 1);
    b.setAlpha(0.5f, &middle);
    EXPECT_EQ(b.getPixel(1, 0, nullptr), 0x80123456u);
    EXPECT_EQ(b.getPixel(0, 0, nullptr), 0xFF123456u);
    b.setAlpha(0.0f, nullptr);
    EXPECT_EQ(b.getPixel(2, 0, nullptr), 0x00123456u);
}

TEST(Bitmap, ReadsOutsideGiveZeroAndEmptyBitmapsDrawNothing)
{
    epiBitmap b = filled(2, 2, 0xFFFFFFFF);
    epiColour c{1, 2, 3, 4};
    EXPECT_EQ(b.getPixel(2, 0, &c), 0u) << "one past the right edge";
    EXPECT_EQ(c, (epiColour{0, 0, 0, 0}));
    EXPECT_EQ(b.getPixel(0, -1, nullptr), 0u);

    epiBitmap empty;
    EXPECT_FALSE(empty.create(0, 5));
    empty.fillRect(epiColour{}, nullptr);
    empty.blit(b, nullptr, nullptr);
    b.blit(empty, nullptr, nullptr);
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_EQ(b.getPixel(1, 1, nullptr), 0xFFFFFFFFu);
}

// A strip: `widths` glyphs of height 3, each column of glyph i holding coverage i + 1, and a mark row
// with bright pixels at the boundaries.
epiBitmap makeStrip(const std::vector<int32_t>& widths, int32_t extraColumns)
{
    int32_t total = 1;
    for (int32_t w : widths)
        total += w + 1;
    epiBitmap b;
    b.create(total + 1 + extraColumns, 7);
    int32_t mark = 1;
    for (size_t i = 0; i <= widths.size(); ++i)
    {
        b.pixels()[5 * b.width() + mark] = 0xFFFFFFFF;
        if (i == widths.size())
            break;
        for (int32_t x = mark - 1; x < mark - 1 + widths[i]; ++x)
            for (int32_t y = 0; y < 3; ++y)
                b.pixels()[y * b.width() + x] = uint32_t(i + 1) << 24;
        mark += widths[i] + 1;
    }
    return b;
}

TEST(FontStrip, TooFewMarksEndTheScanAtTheImageWidth)
{
    epiBitmap image = makeStrip({3, 1, 2}, 4);
    const int32_t imageWidth = image.width();
    epiFont_FontStrip font;
    ASSERT_TRUE(font.loadImage(image));
    EXPECT_EQ(font.height(), 3);
    EXPECT_EQ(font.glyphWidth(0), 3);
    EXPECT_EQ(font.glyphWidth(2), 2);
    // Glyph 3 has no closing mark: it reaches the image's width; every later glyph is empty there.
    EXPECT_EQ(font.glyphRect(3).right_, imageWidth - 2);
    EXPECT_EQ(font.glyphRect(200).left_, imageWidth - 1);
    EXPECT_LE(font.glyphWidth(200), 0);
}

TEST(FontStrip, DrawsEachGlyphFromItsOwnColumnsAndANegativeFixedAdvanceKeepsThePointNarrow)
{
    std::vector<int32_t> widths(256, 1);
    widths['A'] = 2;
    widths['B'] = 3;
    widths['.'] = 2;
    epiBitmap image = makeStrip(widths, 0);
    epiFont_FontStrip font;
    ASSERT_TRUE(font.loadImage(image));
    epiBitmap target = filled(10, 4, 0xFF000000);
    font.draw(target, "AB", epiRect(1, 0, 10, 4), target.rect(), 0, epiColour{255, 255, 255, 255});
    // 'A' (coverage 'A' + 1) at x 1-2, 'B' at 3-5; white over black takes the coverage's share.
    auto share = [](int coverage) { return uint32_t(255.0f * (float(coverage) / 255.0f)); };
    EXPECT_EQ(target.getPixel(2, 1, nullptr) & 0xFF, share('A' + 1));
    EXPECT_EQ(target.getPixel(3, 1, nullptr) & 0xFF, share('B' + 1));
    EXPECT_EQ(target.getPixel(6, 1, nullptr), 0xFF000000u);
    font.setFixedAdvance(-7);
    EXPECT_EQ(font.width("1.5"), 7 + 2 + 7);
}

// A matrix font of 'A' (no ink) and 'B', four offsets of which 'B' has two: each is one pixel of its
// own coverage, so the pixel drawn tells which offset was taken. Copy areas grow by two on reading.
const char* kMatrixXml = R"(<epi><version>4</version><signature>fontmatrix</signature><content>
<version>1</version><gliphsdisplacements>
<gliphcodestart>65</gliphcodestart><gliphcodeend>66</gliphcodeend><inpixeloffsets>4</inpixeloffsets>
<gliphboxheight>1</gliphboxheight><elems>
<gliph><code>65</code><advance>0.75</advance>
<offset><index>0</index><boxpos>0,0</boxpos><copyarea>0,0,-2,-2</copyarea></offset></gliph>
<gliph><code>66</code><advance>1.00</advance>
<offset><index>0</index><boxpos>0,0</boxpos><copyarea>0,0,-1,-1</copyarea></offset>
<offset><index>1</index><boxpos>2,0</boxpos><copyarea>2,0,1,-1</copyarea></offset>
</gliph></elems></gliphsdisplacements></content></epi>)";

TEST(FontMatrix, AQuarterPixelTakesTheSecondOffset)
{
    epiBitmap picture;
    picture.create(4, 1);
    picture.pixels()[0] = 0x40000000; // 'B' offset 0
    picture.pixels()[2] = 0xFF000000; // 'B' offset 1
    epiFont_FontMatrix font;
    ASSERT_TRUE(font.loadParts(picture, kMatrixXml));
    EXPECT_EQ(font.width(""), 1) << "an empty text";
    EXPECT_EQ(font.width("AB"), int32_t(1.0f + 1.25f + 1.5f));
    epiBitmap target = filled(8, 1, 0xFF000000);
    // 'A' moves x from 4 to 5.25: 'B' is drawn at pixel 5 from its offset 1.
    font.draw(target, "AB", epiRect(4, 0, 8, 1), target.rect(), 0, epiColour{255, 255, 255, 255});
    EXPECT_EQ(target.getPixel(5, 0, nullptr), 0xFFFFFFFFu);
}

TEST(Fonts, NoFontDrawsNothingAndMeasuresZero)
{
    epiFonts fonts;
    epiBitmap target = filled(4, 4, 0xFF000000);
    EXPECT_EQ(fonts.find(0), nullptr) << "code 0 with an empty list";
    fonts.draw(0, target, "x", target.rect(), target.rect(), 0, epiColour{255, 255, 255, 255});
    EXPECT_EQ(fonts.width(epiCode("none"), "abc"), 0);
    EXPECT_EQ(target.getPixel(0, 0, nullptr), 0xFF000000u);
}
