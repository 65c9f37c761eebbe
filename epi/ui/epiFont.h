#pragma once

#include "epi/epiObject.h"
#include "epi/epiRect.h"
#include "epi/epiText.h"
#include "epi/ui/epiBitmap.h"

#include <array>
#include <cstdint>
#include <vector>

class epiResources;

/**
 * A font named by a four-character code. Text is bytes: each byte indexes the glyph table directly.
 * Alignment: bit 0 centres in the rectangle, bit 1 aligns right, neither aligns left.
 */
class epiFont : public epiObject
{
public:
    /** Reads the font's files for `code` from `resources`. @return false when they aren't there */
    virtual bool load(epiResources& resources, uint32_t code) = 0;
    /** Draws `text` in `rect` of `target`, clipped to `clip`. */
    virtual void draw(epiBitmap& target, const epiText& text, const epiRect& rect, const epiRect& clip,
                      int32_t alignment, epiColour colour) = 0;
    /** Width of `text` in pixels. */
    virtual int32_t width(const epiText& text) = 0;
    /** Line height in pixels. */
    virtual int32_t height() = 0;
    virtual void setFixedAdvance(float value) = 0;
    virtual void setSpacing(float value) = 0;
};

/**
 * A strip font: one picture of the 256 glyphs side by side over a row of marks, two rows above the
 * bottom, whose bright pixels (blue 0x80 or more) bound the glyphs.
 */
class epiFont_FontStrip : public epiFont
{
public:
    bool load(epiResources& resources, uint32_t code) override;
    /** Takes the pixels of `image` (left empty) as the strip and scans its marks. @return false for an image
     * too small to hold any */
    bool loadImage(epiBitmap& image);
    void draw(epiBitmap& target, const epiText& text, const epiRect& rect, const epiRect& clip,
              int32_t alignment, epiColour colour) override;
    int32_t width(const epiText& text) override;
    int32_t height() override { return height_; }
    /**
     * 0: glyphs take their own widths plus the spacing; above 0: every glyph that many pixels;
     * below 0: "." keeps its own width and every other glyph takes -value, so a decimal point
     * never takes a digit's room.
     */
    void setFixedAdvance(float value) override { fixed_ = int32_t(value); }
    void setSpacing(float value) override { spacing_ = int32_t(value); }

    const epiRect& glyphRect(uint8_t c) const { return rects_[c]; }
    int32_t glyphWidth(uint8_t c) const;

private:
    epiBitmap image_;
    std::array<epiRect, 256> rects_{};
    std::array<int32_t, 256> widths_{};
    int32_t height_ = 0;
    int32_t fixed_ = 0;
    int32_t spacing_ = 0;
};

/**
 * A matrix font: each glyph stands in the picture once for each sub-pixel offset, with an XML table
 * of where; a text is placed at fractional x positions without any rendering at run time.
 */
class epiFont_FontMatrix : public epiFont
{
public:
    static constexpr int32_t kMaxOffsets = 16;
    struct Offset
    {
        epiPoint boxpos;
        epiRect copyarea;
    };

    bool load(epiResources& resources, uint32_t code) override;
    /** Takes the pixels of `image` (left empty) and reads the table from `xml`. @return false when the table
     * is unusable */
    bool loadParts(epiBitmap& image, const epiText& xml);
    void draw(epiBitmap& target, const epiText& text, const epiRect& rect, const epiRect& clip,
              int32_t alignment, epiColour colour) override;
    int32_t width(const epiText& text) override;
    int32_t height() override { return height_; }
    void setFixedAdvance(float value) override { advances_.fill(value); }
    void setSpacing(float value) override { tracking_ = int32_t(value); }

private:
    epiBitmap image_;
    int32_t height_ = 0;
    int32_t first_ = 0;
    int32_t last_ = -1;
    int32_t offsets_ = 1;
    std::array<float, 256> advances_{};
    int32_t tracking_ = 0;
    std::vector<std::array<Offset, kMaxOffsets>> table_ = std::vector<std::array<Offset, kMaxOffsets>>(256);
};

/** A font of the platform's text engine, described by a small XML file. */
class epiFont_FontSystem : public epiFont
{
public:
    bool load(epiResources& resources, uint32_t code) override;
    /**
     * Reads the description: "allplatforms" first, then "win32" over it; an empty family is passed over.
     * Prints the font found. @return false when the text holds no <content>
     */
    bool loadText(const epiText& xml, uint32_t code);
    void draw(epiBitmap& target, const epiText& text, const epiRect& rect, const epiRect& clip,
              int32_t alignment, epiColour colour) override;
    int32_t width(const epiText& text) override;
    int32_t height() override;
    void setFixedAdvance(float) override {}
    void setSpacing(float) override {}

    const epiSystemFontFace& face() const { return face_; }

private:
    epiSystemFontFace face_;
};

/**
 * The fonts of one resource set by code. A code is looked up once: a font that can't be loaded
 * stays in the list as a null entry, so a missing font costs no file access after the first.
 */
class epiFonts : public epiApplicationObject
{
public:
    ~epiFonts() override;
    void setResources(epiResources* resources) { resources_ = resources; }
    epiResources* resources() const { return resources_; }

    /** The font of `code` (0: the first entry of the list); null when it can't be loaded. */
    epiFont* find(uint32_t code);
    void draw(uint32_t code, epiBitmap& target, const epiText& text, const epiRect& rect, const epiRect& clip,
              int32_t alignment, epiColour colour);
    /** 0 when the font is missing. */
    int32_t width(uint32_t code, const epiText& text);
    int32_t height(uint32_t code);
    /** Drops every font. */
    void stop() override;

    int32_t count() const { return int32_t(list_.size()); }

private:
    struct Elem
    {
        uint32_t name = 0;
        epiFont* font = nullptr;
    };
    std::vector<Elem> list_;
    epiResources* resources_ = nullptr;
};
