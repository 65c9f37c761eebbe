// Pieces the resource generators share: PNG writing and FreeType faces opened by path.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <ft2build.h>
#include FT_FREETYPE_H

namespace artkit
{

/** An image of 8-bit RGBA pixels, not premultiplied, rows top to bottom. */
struct Rgba
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels; // width * height * 4

    Rgba() = default;
    Rgba(int w, int h) : width(w), height(h), pixels(static_cast<std::size_t>(w) * h * 4, 0) {}
    std::uint8_t* at(int x, int y) { return &pixels[(static_cast<std::size_t>(y) * width + x) * 4]; }
    const std::uint8_t* at(int x, int y) const
    {
        return &pixels[(static_cast<std::size_t>(y) * width + x) * 4];
    }
};

/**
 * Writes `image` as an 8-bit RGBA PNG. The encoder's settings are fixed and no time or text chunk
 * is written, so the same pixels always give the same bytes. Returns false with `error` set.
 */
bool writePng(const std::string& path, const Rgba& image, std::string& error);

/** Reads an 8-bit RGB or RGBA PNG (as `writePng` writes them) into RGBA. */
bool readPng(const std::string& path, Rgba& image, std::string& error);

/** The folder of the DejaVu fonts this build was configured with. */
std::string defaultFontDir();

/** Owns the FreeType library and the faces opened from it. */
class FontLibrary
{
public:
    FontLibrary();
    ~FontLibrary();
    FontLibrary(const FontLibrary&) = delete;
    FontLibrary& operator=(const FontLibrary&) = delete;

    /** Opens `dir`/`file` at a size of `pixels` per em; null with `error` set on failure. */
    FT_Face open(const std::string& dir, const std::string& file, int pixels, std::string& error);

private:
    FT_Library library_ = nullptr;
    std::vector<FT_Face> faces_;
};

/** Creates `path` and its parents. */
bool makeFolders(const std::string& path, std::string& error);

} // namespace artkit
