#pragma once

#include "epi/epiObject.h"
#include "epi/epiPath.h"
#include "epi/epiRect.h"
#include "epi/epiText.h"
#include "epi/ui/epiUbo.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class epiBitmap;
class epiFileDump;
class epiResources;

/** A system font as the platform's text engine needs it. `size` is in points. */
struct epiSystemFontFace
{
    epiText family = "Arial";
    float size = 12.0f;
    bool bold = false;
    bool italic = false;
    int32_t kerning = 0;
};

/** The anti-aliased shapes that a bitmap leaves to the platform. */
enum class epiBitmapStroke
{
    line,
    arc,
    pie,
    ellipse,
    filledEllipse,
    frame,
};

/** One anti-aliased shape: `rect` bounds an ellipse, arc or pie; a line runs (x1, y1) to (x2, y2). */
struct epiBitmapShape
{
    epiBitmapStroke stroke = epiBitmapStroke::line;
    epiRect rect;
    int32_t x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    /** Degrees clockwise from the x axis, as for an arc or a pie. */
    float start = 0.0f;
    float sweep = 0.0f;
    /** Pen width in pixels; a line without smoothing when `smooth` is false. */
    float width = 1.0f;
    bool smooth = true;
    epiColour colour;
};

/**
 * What a bitmap needs from the platform: decoding of encoded images, anti-aliased shapes, scaled
 * drawing and the system's text. Every call works on the bitmap's own pixels, which stay straight
 * (not premultiplied) ARGB before and after. One implementation is installed per process by the
 * platform layer; without one, loads fail and these drawings do nothing.
 */
class epiBitmapPlatform
{
public:
    virtual ~epiBitmapPlatform() = default;
    /** Decodes `size` bytes into `dest`, which is created at the image's size. */
    virtual bool decodeMemory(const void* data, size_t size, epiBitmap& dest) = 0;
    /** Decodes the file `path` into `dest`, which is created at the image's size. */
    virtual bool decodeFile(const char* path, epiBitmap& dest) = 0;
    virtual void drawShape(epiBitmap& target, const epiBitmapShape& shape, const epiRect& clip) = 0;
    /** Draws `sourceRect` of `source` scaled into `destRect`, blending by the source's alpha, bilinear. */
    virtual void drawScaled(epiBitmap& target, const epiBitmap& source, const epiRect& sourceRect,
                            const epiRect& destRect, const epiRect& clip) = 0;
    /** Text in `rect`; alignment 1 centres, 2 aligns right; `wrap` breaks lines at words. */
    virtual void drawText(epiBitmap& target, const epiSystemFontFace& font, const epiText& text,
                          const epiRect& rect, const epiRect& clip, int32_t alignment, bool wrap,
                          epiColour colour) = 0;
    /** Width of the text in pixels, trailing blanks counted. */
    virtual int32_t textWidth(const epiSystemFontFace& font, const epiText& text) = 0;
    /** Height of one line of the font in pixels. */
    virtual int32_t textHeight(const epiSystemFontFace& font) = 0;
};

/** Installs the platform's services (null removes them); the caller keeps ownership. */
void epiSetBitmapPlatform(epiBitmapPlatform* platform);
epiBitmapPlatform* epiGetBitmapPlatform();

/**
 * One bitmap: 32-bit ARGB pixels with straight (not premultiplied) alpha, stored as 0xAARRGGBB
 * words row after row. Drawing operations clip to the bitmap and do nothing while it is empty.
 */
class epiBitmap : public epiObject
{
public:
    epiBitmap() = default;
    epiBitmap(const epiBitmap&) = delete;
    epiBitmap& operator=(const epiBitmap&) = delete;
    /** Takes the pixels of `other`, which is left empty. */
    epiBitmap(epiBitmap&& other) noexcept { swap(other); }
    epiBitmap& operator=(epiBitmap&& other) noexcept
    {
        clear();
        swap(other);
        return *this;
    }
    ~epiBitmap() override = default;

    uint32_t kind() const override { return epiCode("obit"); }

    /** clear(), create at the source's size and blit all of it. */
    virtual bool copyFrom(const epiBitmap& source);
    /** clear(), `usesAlpha` true, zero pixels. @return false when the size is empty or too large */
    virtual bool create(int32_t width, int32_t height);
    bool createRect(const epiRect& rect) { return create(rect.width(), rect.height()); }
    bool createSize(const epiPoint& size) { return create(size.x_, size.y_); }
    /** Frees the pixels. */
    virtual void clear();
    /** Decodes `dump` and takes the red of `alphaDump` (when not null) as the alpha. */
    virtual bool loadMemory(const epiFileDump& dump, const epiFileDump* alphaDump);
    /** loadMemory() from files; `alphaPath` may be null. */
    virtual bool loadFile(const epiPath& path, const epiPath* alphaPath);
    /**
     * Copies `sourceRect` of `source` (null: all) to `destRect` (null: all of this bitmap). Same size:
     * copied as opaque when the source doesn't use alpha, else blended; other sizes are scaled.
     */
    virtual void blit(const epiBitmap& source, const epiRect* sourceRect, const epiRect* destRect);
    /** The pixel as 0xAARRGGBB, and as bytes into `colour` when not null; 0 outside. */
    virtual uint32_t getPixel(int32_t x, int32_t y, epiColour* colour) const;
    /** Writes the colour as it is, alpha included; ignored outside. */
    virtual void setPixel(int32_t x, int32_t y, epiColour colour);
    /** A framework shape request: 'ovaP', 'ovaF', 'recP' and 'ntxt' (thickness is the point size). */
    virtual void drawShape(const epiShapeRequest& request);
    void drawShapeA(uint32_t kind, const epiRect& rect, epiColour colour);
    void drawShapeB(uint32_t kind, const epiRect& rect);
    /** Fills `rect` (null: all) clipped to `clip`, blending by the colour's alpha. */
    virtual void fillRectClipped(epiColour colour, const epiRect* rect, const epiRect& clip);
    void fillRect(epiColour colour, const epiRect* rect);
    /** A frame `thickness` pixels wide inside `rect`. */
    virtual void frameRectClipped(epiColour colour, const epiRect& rect, int32_t thickness,
                                  const epiRect& clip);
    void frameRect(epiColour colour, const epiRect& rect, int32_t thickness);
    /** A line; a negative width draws the same line without smoothing. */
    virtual void drawLineClipped(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour,
                                 int32_t width, const epiRect& clip);
    void drawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour, int32_t width);
    /** An arc with a 1-pixel pen; angles in degrees, clockwise from the x axis. */
    virtual void drawArc(epiColour colour, const epiRect& rect, float start, float sweep);
    virtual void fillPie(epiColour colour, const epiRect& rect, float start, float sweep);
    /** System text: `flags` bit 0 bold, bit 1 italic; `alignment` bit 0 centre, bit 1 right. */
    virtual void drawTextA(const epiText& text, const char* family, float size, uint32_t flags,
                           const epiRect& rect, const epiRect& clip, int32_t alignment, epiColour colour);
    /**
     * Paints the coverage of `source` (its alpha) in `colour`: each channel becomes
     * dest * (1 - a) + colour * a, the destination's alpha kept. Rectangles default to all of the source.
     */
    virtual void drawMaskedClipped(const epiBitmap& source, const epiRect* sourceRect,
                                   const epiRect* destRect, const epiRect& clip, epiColour colour);
    void drawMasked(const epiBitmap& source, const epiRect* sourceRect, const epiRect* destRect,
                    epiColour colour);
    /** Sets the alpha of every pixel in `rect` (null: all) to round(value * 255), value in 0..1. */
    virtual void setAlpha(float value, const epiRect* rect);
    void setUsesAlpha(bool flag) { usesAlpha_ = flag; }
    bool usesAlpha() const { return usesAlpha_; }
    /** Direct access to the pixels for reading and writing, `stride` in bytes; not nestable.
     * @return false when empty or already locked */
    virtual bool lock(uint32_t** pixels, int32_t* stride);
    virtual void unlock();

    /** Exchanges pixels, size and `usesAlpha` with `other`. */
    void swap(epiBitmap& other);
    bool isEmpty() const { return pixels_.empty(); }
    const epiPoint& size() const { return size_; }
    const epiRect& rect() const { return rect_; }
    int32_t width() const { return size_.x_; }
    int32_t height() const { return size_.y_; }
    /** The pixel words, row after row; empty when the bitmap is. Stride is width() words. */
    uint32_t* pixels() { return pixels_.data(); }
    const uint32_t* pixels() const { return pixels_.data(); }

    static uint32_t pack(epiColour colour)
    {
        return (uint32_t(colour.a) << 24) | (uint32_t(colour.r) << 16) | (uint32_t(colour.g) << 8) | colour.b;
    }
    static epiColour unpack(uint32_t argb)
    {
        return epiColour{uint8_t(argb >> 16), uint8_t(argb >> 8), uint8_t(argb), uint8_t(argb >> 24)};
    }

protected:
    /** The part of `wanted` inside the bitmap and `clip`. */
    epiRect clipped(const epiRect& wanted, const epiRect& clip) const;
    /** Same-size copy of `sourceRect` to `destRect`, clipped to this bitmap with the source moved along. */
    void copyRect(const epiBitmap& source, const epiRect& sourceRect, const epiRect& destRect, bool blend);

    epiPoint size_;
    epiRect rect_;
    std::vector<uint32_t> pixels_;
    bool usesAlpha_ = true;
    bool locked_ = false;
};

/**
 * The off-screen bitmap that a window's pixels come from: its rows are one block of memory that the
 * platform copies to the screen in one call. The words are 0xAARRGGBB in native order: cairo's RGB24
 * layout on every little-endian machine (RGB24 ignores the alpha byte, which is straight, not
 * premultiplied, and so must never be handed to cairo as ARGB32).
 */
class epiBitmapDib : public epiBitmap
{
public:
    bool create(int32_t width, int32_t height) override;
    void clear() override;
    /** Bytes per row. */
    int32_t stride() const { return stride_; }
    /** The 40-byte header the platform's row copy wants: 32 bits a pixel, bit-field masks. */
    struct Header
    {
        uint32_t size = 40;
        int32_t width = 0;
        int32_t height = 0;
        uint16_t planes = 1;
        uint16_t bitCount = 32;
        uint32_t compression = 3;
        uint32_t imageSize = 0;
        int32_t xPelsPerMeter = 0;
        int32_t yPelsPerMeter = 0;
        uint32_t clrUsed = 0;
        uint32_t clrImportant = 0;
        uint32_t masks[3] = {0xFF0000, 0xFF00, 0xFF};
    };
    const Header& header() const { return header_; }

private:
    int32_t stride_ = 0;
    Header header_;
};

/** One entry of the bitmap table: a name and the bitmap loaded under it. */
class epiBitmapCast : public epiBitmap
{
public:
    ~epiBitmapCast() override { delete bitmap_; }
    epiText name_;
    int32_t useCount_ = 0;
    epiBitmap* bitmap_ = nullptr;
};

/**
 * The shared table of bitmaps loaded from resources: widgets hold pointers into it and never own their
 * images, so one name is decoded once however many widgets show it.
 */
class epiBitmapCasts : public epiApplicationObject
{
public:
    ~epiBitmapCasts() override;
    virtual void flush() {}
    virtual void setResources(epiResources* resources) { resources_ = resources; }
    /**
     * The bitmap loaded under `name` of `kind`; the first call loads it (with the companion
     * "<base>_alpha" image's red as alpha when there is one). @return null when it can't be loaded;
     * a failure leaves no entry, so the next call tries again
     */
    virtual epiBitmap* acquire(const char* name, uint32_t kind);
    epiBitmap* acquireImage(const char* name) { return acquire(name, epiCode("imag")); }
    using epiApplicationObject::release;
    /** Casts stay until stop(). */
    virtual void release(epiBitmap*) {}
    /** @return false, with `dest` cleared, when `bitmap` isn't in the table */
    virtual bool nameOf(const epiBitmap* bitmap, epiText& dest) const;
    virtual epiBitmapCast* newCast() { return new epiBitmapCast(); }
    /** The resources' new bitmap, a plain one without them. */
    virtual epiBitmap* newBitmap();
    /** A hook for generated images; null. */
    virtual epiBitmap* customBitmap(const char*, uint32_t) { return nullptr; }
    /** Deletes every cast. */
    void stop() override;
    /** Deletes the cast named `name` with its bitmap: only for an image that no widget shows any more. */
    virtual void purge(const char* name);
    /** Deletes every cast, as stop() does, keeping the table in service. */
    virtual void purgeAll();

    /** The use count of the cast named `name`; 0 when there is none. */
    int32_t useCount(const char* name) const;
    int32_t count() const { return int32_t(casts_.size()); }
    epiResources* resources() const { return resources_; }

private:
    bool load(epiBitmap& bitmap, const char* name, uint32_t kind);

    std::vector<epiBitmapCast*> casts_;
    epiResources* resources_ = nullptr;
};
