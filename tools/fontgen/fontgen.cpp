// Renders the program's bitmap fonts from the DejaVu faces, read by path (never looked up through
// the system's font configuration), into OUTDIR:
//
//   fontstrip_<code>.png                          a strip font: the 256 glyphs side by side
//   fontmatrix_<code>.png, fontmatrix_<code>.xml  a matrix font: every glyph at four quarter-pixel
//                                                 offsets, and the table of where each one lies
//
// Both kinds index Latin-1 bytes and carry the glyphs of 32-126 and 160-255 (file names are shown in
// Latin-1). The output depends only on the font files and FreeType: no time, locale or randomness.
//
// Usage: fontgen [--fonts DIR] OUTDIR
//        fontgen --list          prints "strip|matrix CODE FACEFILE PIXELS" for each font

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/artkit/ArtKit.h"

#include FT_OUTLINE_H

namespace
{

/** A font of the pack: its code, the DejaVu file it is drawn from and its size in pixels per em. */
struct FontSpec
{
    const char* code;
    const char* face;
    int pixels;
};

// aa10 is laid out to exactly 1707 pixels, the width the widgets that use it were measured for.
constexpr int kAa10Width = 1707;

constexpr FontSpec kStrips[] = {
    {"aa10", "DejaVuSans.ttf", 10},      {"aa12", "DejaVuSans.ttf", 12},
    {"hnl7", "DejaVuSans.ttf", 7},       {"lc15", "DejaVuSansMono.ttf", 15},
    {"lc18", "DejaVuSansMono.ttf", 18},  {"lc28", "DejaVuSansMono.ttf", 28},
    {"th11", "DejaVuSans-Bold.ttf", 11},
};

constexpr FontSpec kMatrices[] = {
    {"hn08", "DejaVuSans.ttf", 8},           {"hn09", "DejaVuSans.ttf", 9},
    {"hn11", "DejaVuSans.ttf", 11},          {"hp11", "DejaVuSans-Bold.ttf", 11},
    {"ld18", "DejaVuSansMono-Bold.ttf", 18},
};

/** Quarter-pixel positions of a matrix glyph. */
constexpr int kOffsets = 4;
/** Empty columns and rows between matrix cells: the reader widens every copy area by two. */
constexpr int kCellGap = 2;
/** Glyphs in one row of a matrix picture. */
constexpr int kGlyphsPerRow = 16;

// Light hinting snaps vertical metrics only, so glyphs keep their shapes at every x offset.
constexpr FT_Int32 kLoadFlags = FT_LOAD_TARGET_LIGHT | FT_LOAD_NO_BITMAP;

/** Latin-1 codes that have a glyph: the C0 and C1 controls and DEL don't. */
bool drawable(int code)
{
    return (code >= 32 && code < 127) || code >= 160;
}

/** A rendered glyph: coverage bytes and their place relative to the pen on the baseline. */
struct Glyph
{
    int left = 0; // pixels right of the pen
    int top = 0;  // pixels above the baseline
    int width = 0;
    int rows = 0;
    std::vector<unsigned char> coverage;
    double linearAdvance = 0; // unrounded advance, pixels
    int advance = 0;          // advance rounded as the hinter gives it, pixels
};

bool render(FT_Face face, int code, int offset64, Glyph& glyph, std::string& error)
{
    glyph = Glyph();
    const FT_UInt index = FT_Get_Char_Index(face, static_cast<FT_ULong>(code));
    if (FT_Load_Glyph(face, index, kLoadFlags) != 0)
    {
        error = "glyph " + std::to_string(code) + " can't be loaded";
        return false;
    }
    FT_GlyphSlot slot = face->glyph;
    glyph.linearAdvance = static_cast<double>(slot->linearHoriAdvance) / 65536.0;
    glyph.advance = static_cast<int>((slot->advance.x + 32) >> 6);
    if (offset64 != 0)
        FT_Outline_Translate(&slot->outline, offset64, 0);
    if (FT_Render_Glyph(slot, FT_RENDER_MODE_NORMAL) != 0)
    {
        error = "glyph " + std::to_string(code) + " can't be rendered";
        return false;
    }
    const FT_Bitmap& bitmap = slot->bitmap;
    glyph.left = slot->bitmap_left;
    glyph.top = slot->bitmap_top;
    glyph.width = static_cast<int>(bitmap.width);
    glyph.rows = static_cast<int>(bitmap.rows);
    glyph.coverage.resize(static_cast<std::size_t>(glyph.width) * glyph.rows);
    for (int y = 0; y < glyph.rows; ++y)
        for (int x = 0; x < glyph.width; ++x)
            glyph.coverage[static_cast<std::size_t>(y) * glyph.width + x] =
                bitmap.buffer[y * bitmap.pitch + x];
    return true;
}

/** Puts coverage as white of that opacity; pixels outside [clipLeft, clipRight) are dropped. */
void stamp(artkit::Rgba& image, const Glyph& glyph, int penX, int baseline, int clipLeft, int clipRight,
           int clipBottom)
{
    for (int y = 0; y < glyph.rows; ++y)
    {
        const int py = baseline - glyph.top + y;
        if (py < 0 || py >= clipBottom)
            continue;
        for (int x = 0; x < glyph.width; ++x)
        {
            const int px = penX + glyph.left + x;
            const unsigned char c = glyph.coverage[static_cast<std::size_t>(y) * glyph.width + x];
            if (px < clipLeft || px >= clipRight || c == 0)
                continue;
            std::uint8_t* p = image.at(px, py);
            p[0] = p[1] = p[2] = 255;
            p[3] = std::max(p[3], c);
        }
    }
}

/**
 * A strip font is its picture. The glyphs stand in the top `height` rows, glyph i in columns
 * [mark(i) - 1, mark(i + 1) - 2); the row `height` + 2 is dark but for one white pixel at each of the
 * 257 marks, so a reader finds glyph i's width as mark(i + 1) - mark(i) - 1. A glyph is as wide as its
 * advance; codes without a glyph are one blank column, the least a mark pair can enclose.
 */
bool makeStrip(artkit::FontLibrary& fonts, const std::string& fontDir, const FontSpec& font,
               const std::string& outDir, std::string& error)
{
    FT_Face face = fonts.open(fontDir, font.face, font.pixels, error);
    if (!face)
        return false;
    const int ascent = static_cast<int>(face->size->metrics.ascender >> 6);
    const int height = ascent - static_cast<int>(face->size->metrics.descender >> 6);

    std::vector<Glyph> glyphs(256);
    std::vector<int> widths(256, 1);
    for (int code = 0; code < 256; ++code)
    {
        if (!drawable(code))
            continue;
        if (!render(face, code, 0, glyphs[static_cast<std::size_t>(code)], error))
            return false;
        widths[static_cast<std::size_t>(code)] = std::max(1, glyphs[static_cast<std::size_t>(code)].advance);
    }
    std::vector<int> marks(257);
    marks[0] = 1;
    for (int i = 0; i < 256; ++i)
        marks[static_cast<std::size_t>(i) + 1] =
            marks[static_cast<std::size_t>(i)] + widths[static_cast<std::size_t>(i)] + 1;
    int width = marks[256] + 1;
    if (std::string(font.code) == "aa10")
    {
        if (width > kAa10Width)
        {
            error =
                "aa10 needs " + std::to_string(width) + " columns, more than " + std::to_string(kAa10Width);
            return false;
        }
        width = kAa10Width;
    }

    artkit::Rgba image(width, height + 4);
    for (int i = 0; i < 256; ++i)
    {
        const int left = marks[static_cast<std::size_t>(i)] - 1;
        if (drawable(i))
            stamp(image, glyphs[static_cast<std::size_t>(i)], left, ascent, left,
                  left + widths[static_cast<std::size_t>(i)], height);
    }
    for (int m : marks)
    {
        std::uint8_t* p = image.at(m, height + 2);
        p[0] = p[1] = p[2] = p[3] = 255;
    }
    return artkit::writePng(outDir + "/fontstrip_" + font.code + ".png", image, error);
}

std::string fixed2(double v)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", v);
    return text;
}

/**
 * A matrix font: each glyph from 32 to 255 at the pen offsets 0, 1/4, 2/4 and 3/4 pixel, every one
 * in a cell of its own. Cells are kCellGap pixels apart, so the reader's widening of a copy area by
 * two never reaches into a neighbour. A glyph's "boxpos" is its pen position in the picture (x) and
 * the top of its line (y); its "copyarea" the ink's bounds, right and bottom exclusive. Advances are
 * stored less the half pixel that the reader adds to each glyph.
 */
bool makeMatrix(artkit::FontLibrary& fonts, const std::string& fontDir, const FontSpec& font,
                const std::string& outDir, std::string& error)
{
    FT_Face face = fonts.open(fontDir, font.face, font.pixels, error);
    if (!face)
        return false;
    const int ascent = static_cast<int>(face->size->metrics.ascender >> 6);
    const int descent = -static_cast<int>(face->size->metrics.descender >> 6);
    constexpr int first = 32;
    constexpr int last = 255;
    constexpr int count = last - first + 1;

    std::vector<Glyph> glyphs(static_cast<std::size_t>(count) * kOffsets);
    int minLeft = 0, maxRight = 1, minTop = -ascent, maxBottom = descent;
    for (int code = first; code <= last; ++code)
    {
        for (int o = 0; o < kOffsets; ++o)
        {
            Glyph& g = glyphs[static_cast<std::size_t>(code - first) * kOffsets + o];
            if (!drawable(code))
                continue;
            if (!render(face, code, o * 64 / kOffsets, g, error))
                return false;
            if (g.width == 0 || g.rows == 0)
                continue;
            minLeft = std::min(minLeft, g.left);
            maxRight = std::max(maxRight, g.left + g.width);
            minTop = std::min(minTop, -g.top);
            maxBottom = std::max(maxBottom, g.rows - g.top);
        }
    }
    const int cellW = maxRight - minLeft;
    const int cellH = maxBottom - minTop;
    const int pitchX = cellW + kCellGap;
    const int pitchY = cellH + kCellGap;
    const int rows = (count + kGlyphsPerRow - 1) / kGlyphsPerRow;
    artkit::Rgba image(kGlyphsPerRow * kOffsets * pitchX, rows * pitchY);

    std::string xml;
    xml += "<epi>\n\t<version>4</version>\n\t<signature>fontmatrix</signature>\n\t<content>\n";
    xml += "\t\t<version>1</version>\n";
    xml +=
        std::string("\t\t<systemfont>") + font.face + " " + std::to_string(font.pixels) + "px</systemfont>\n";
    xml += "\t\t<gliphsdisplacements>\n";
    xml += "\t\t\t<gliphcodestart>" + std::to_string(first) + "</gliphcodestart>\n";
    xml += "\t\t\t<gliphcodeend>" + std::to_string(last) + "</gliphcodeend>\n";
    xml += "\t\t\t<inpixeloffsets>" + std::to_string(kOffsets) + "</inpixeloffsets>\n";
    xml += "\t\t\t<gliphboxwidth>" + std::to_string(cellW) + "</gliphboxwidth>\n";
    xml += "\t\t\t<gliphboxheight>" + std::to_string(ascent + descent) + "</gliphboxheight>\n";
    xml += "\t\t\t<elemscount>" + std::to_string(count) + "</elemscount>\n";
    xml += "\t\t\t<elems>\n";
    for (int code = first; code <= last; ++code)
    {
        const int slot = code - first;
        const Glyph& plain = glyphs[static_cast<std::size_t>(slot) * kOffsets];
        xml += "\t\t\t\t<gliph>\n\t\t\t\t\t<code>" + std::to_string(code) + "</code>\n";
        xml +=
            "\t\t\t\t\t<advance>" + fixed2(drawable(code) ? plain.linearAdvance - 0.5 : 0.0) + "</advance>\n";
        for (int o = 0; o < kOffsets; ++o)
        {
            const Glyph& g = glyphs[static_cast<std::size_t>(slot) * kOffsets + o];
            const int cellX = ((slot % kGlyphsPerRow) * kOffsets + o) * pitchX;
            const int cellY = (slot / kGlyphsPerRow) * pitchY;
            const int penX = cellX - minLeft;
            const int baseline = cellY - minTop;
            stamp(image, g, penX, baseline, cellX, cellX + cellW, cellY + cellH);
            int l = cellX, t = cellY, r = cellX, b = cellY;
            if (g.width > 0 && g.rows > 0)
            {
                l = penX + g.left;
                t = baseline - g.top;
                r = l + g.width;
                b = t + g.rows;
            }
            xml += "\t\t\t\t\t<offset>\n";
            xml += "\t\t\t\t\t\t<index>" + std::to_string(o) + "</index>\n";
            xml += "\t\t\t\t\t\t<value>" + fixed2(static_cast<double>(o) / kOffsets) + "</value>\n";
            xml += "\t\t\t\t\t\t<boxpos>" + std::to_string(penX) + "," + std::to_string(baseline - ascent) +
                   "</boxpos>\n";
            xml += "\t\t\t\t\t\t<copyarea>" + std::to_string(l) + "," + std::to_string(t) + "," +
                   std::to_string(r) + "," + std::to_string(b) + "</copyarea>\n";
            xml += "\t\t\t\t\t</offset>\n";
        }
        xml += "\t\t\t\t</gliph>\n";
    }
    xml += "\t\t\t</elems>\n\t\t</gliphsdisplacements>\n\t</content>\n</epi>\n";

    const std::string base = outDir + "/fontmatrix_" + font.code;
    if (!artkit::writePng(base + ".png", image, error))
        return false;
    std::FILE* file = std::fopen((base + ".xml").c_str(), "wb");
    bool written = file && std::fwrite(xml.data(), 1, xml.size(), file) == xml.size();
    written = file && std::fclose(file) == 0 && written;
    if (!written)
    {
        error = base + ".xml: can't be written";
        return false;
    }
    return true;
}

int usage()
{
    std::fprintf(stderr, "usage: fontgen [--fonts DIR] OUTDIR\n       fontgen --list\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    std::string fontDir = artkit::defaultFontDir();
    std::string outDir;
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--list")
        {
            for (const FontSpec& s : kStrips)
                std::printf("strip %s %s %d\n", s.code, s.face, s.pixels);
            for (const FontSpec& s : kMatrices)
                std::printf("matrix %s %s %d\n", s.code, s.face, s.pixels);
            return 0;
        }
        if (arg == "--fonts" && i + 1 < argc)
            fontDir = argv[++i];
        else if (!arg.empty() && arg[0] != '-' && outDir.empty())
            outDir = arg;
        else
            return usage();
    }
    if (outDir.empty())
        return usage();

    std::string error;
    artkit::FontLibrary fonts;
    bool ok = artkit::makeFolders(outDir, error);
    for (const FontSpec& s : kStrips)
        ok = ok && makeStrip(fonts, fontDir, s, outDir, error);
    for (const FontSpec& s : kMatrices)
        ok = ok && makeMatrix(fonts, fontDir, s, outDir, error);
    if (!ok)
    {
        std::fprintf(stderr, "fontgen: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
