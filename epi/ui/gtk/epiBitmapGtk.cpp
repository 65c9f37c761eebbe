#include "epi/ui/gtk/epiBitmapGtk.h"

#include <cairo.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr double kPi = 3.14159265358979323846;

struct PixbufUnref
{
    void operator()(GdkPixbuf* p) const { g_object_unref(p); }
};
struct LayoutUnref
{
    void operator()(PangoLayout* p) const { g_object_unref(p); }
};
struct FontDescFree
{
    void operator()(PangoFontDescription* p) const { pango_font_description_free(p); }
};
using PixbufPtr = std::unique_ptr<GdkPixbuf, PixbufUnref>;
using LayoutPtr = std::unique_ptr<PangoLayout, LayoutUnref>;
using FontDescPtr = std::unique_ptr<PangoFontDescription, FontDescFree>;

/** gdk-pixbuf gives straight RGB(A) bytes; the words take them as they are. */
bool fromPixbuf(GdkPixbuf* pixbuf, epiBitmap& dest)
{
    if (pixbuf == nullptr || gdk_pixbuf_get_bits_per_sample(pixbuf) != 8)
        return false;
    const int w = gdk_pixbuf_get_width(pixbuf);
    const int h = gdk_pixbuf_get_height(pixbuf);
    const int channels = gdk_pixbuf_get_n_channels(pixbuf);
    const bool alpha = gdk_pixbuf_get_has_alpha(pixbuf);
    const int stride = gdk_pixbuf_get_rowstride(pixbuf);
    const guchar* bytes = gdk_pixbuf_read_pixels(pixbuf);
    if (channels < 3 || !dest.create(w, h))
        return false;
    for (int y = 0; y < h; ++y)
    {
        const guchar* in = bytes + size_t(y) * size_t(stride);
        uint32_t* out = dest.pixels() + size_t(y) * size_t(w);
        for (int x = 0; x < w; ++x, in += channels)
        {
            const uint32_t a = alpha ? in[3] : 255u;
            out[x] = (a << 24) | (uint32_t(in[0]) << 16) | (uint32_t(in[1]) << 8) | in[2];
        }
    }
    return true;
}

uint32_t premultiply(uint32_t p)
{
    const uint32_t a = p >> 24;
    if (a == 255)
        return p;
    if (a == 0)
        return 0;
    uint32_t out = a << 24;
    for (int shift = 0; shift <= 16; shift += 8)
        out |= ((((p >> shift) & 0xFF) * a + 127) / 255) << shift;
    return out;
}

uint32_t unpremultiply(uint32_t p)
{
    const uint32_t a = p >> 24;
    if (a == 255)
        return p;
    if (a == 0)
        return 0;
    uint32_t out = a << 24;
    for (int shift = 0; shift <= 16; shift += 8)
        out |= std::min(255u, (((p >> shift) & 0xFF) * 255 + a / 2) / a) << shift;
    return out;
}

/** The pixels of `area` (within the bitmap) premultiplied for cairo, or made opaque with `opaque`. */
std::vector<uint32_t> premultipliedCopy(const epiBitmap& bitmap, const epiRect& area, bool opaque)
{
    const int w = area.width(), h = area.height();
    std::vector<uint32_t> copy(size_t(w) * size_t(h));
    for (int y = 0; y < h; ++y)
    {
        const uint32_t* row = bitmap.pixels() + size_t(area.top_ + y) * bitmap.width() + area.left_;
        for (int x = 0; x < w; ++x)
            copy[size_t(y) * w + x] = opaque ? (row[x] | 0xFF000000u) : premultiply(row[x]);
    }
    return copy;
}

/**
 * A premultiplied copy of one area of a bitmap for cairo to draw on. commit() writes back, straight,
 * only the pixels that differ from the copy, so untouched pixels keep their exact bytes.
 */
class Scratch
{
public:
    Scratch(epiBitmap& target, const epiRect& area) : target_(target), area_(area)
    {
        const int w = area.width(), h = area.height();
        before_ = premultipliedCopy(target, area, false);
        drawn_ = before_;
        surface_ = cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(drawn_.data()),
                                                       CAIRO_FORMAT_ARGB32, w, h, w * 4);
        cr_ = cairo_create(surface_);
        // Drawing happens in the bitmap's coordinates, held to the area.
        cairo_translate(cr_, -area.left_, -area.top_);
        cairo_rectangle(cr_, area.left_, area.top_, area.width(), area.height());
        cairo_clip(cr_);
    }
    ~Scratch()
    {
        cairo_destroy(cr_);
        cairo_surface_destroy(surface_);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    cairo_t* cr() const { return cr_; }

    void commit()
    {
        cairo_surface_flush(surface_);
        const int w = area_.width(), h = area_.height();
        for (int y = 0; y < h; ++y)
        {
            uint32_t* row = target_.pixels() + size_t(area_.top_ + y) * target_.width() + area_.left_;
            for (int x = 0; x < w; ++x)
            {
                const size_t i = size_t(y) * w + x;
                if (drawn_[i] != before_[i])
                    row[x] = unpremultiply(drawn_[i]);
            }
        }
    }

private:
    epiBitmap& target_;
    epiRect area_;
    std::vector<uint32_t> before_;
    std::vector<uint32_t> drawn_;
    cairo_surface_t* surface_ = nullptr;
    cairo_t* cr_ = nullptr;
};

/** `bounds` within the bitmap and `clip`; empty when nothing is left. */
epiRect drawArea(const epiBitmap& target, epiRect bounds, const epiRect& clip)
{
    if (!bounds.intersect(target.rect()) || !bounds.intersect(clip))
        return epiRect();
    return bounds;
}

void setColour(cairo_t* cr, epiColour c)
{
    cairo_set_source_rgba(cr, c.r / 255.0, c.g / 255.0, c.b / 255.0, c.a / 255.0);
}

/** An elliptic path of `rect` from `start` through `sweep` degrees; with `pie` through the centre. */
void ellipsePath(cairo_t* cr, const epiRect& rect, double start, double sweep, bool pie)
{
    const double cx = (rect.left_ + rect.right_) / 2.0, cy = (rect.top_ + rect.bottom_) / 2.0;
    const double rx = std::max(0.5, rect.widthF() / 2.0), ry = std::max(0.5, rect.heightF() / 2.0);
    cairo_save(cr);
    cairo_translate(cr, cx, cy);
    cairo_scale(cr, rx, ry);
    if (pie)
        cairo_move_to(cr, 0, 0);
    const double a0 = start * kPi / 180.0, a1 = (start + sweep) * kPi / 180.0;
    if (sweep >= 0)
        cairo_arc(cr, 0, 0, 1, a0, a1);
    else
        cairo_arc_negative(cr, 0, 0, 1, a0, a1);
    if (pie)
        cairo_close_path(cr);
    cairo_restore(cr);
}

/** Bitmap fonts' texts are Latin-1; pango wants UTF-8. "\r\n" is one line break. */
std::string toUtf8(const epiText& text)
{
    std::string in;
    in.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
        if (!(text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n'))
            in.push_back(text[i]);
    if (g_utf8_validate(in.data(), gssize(in.size()), nullptr))
        return in;
    std::string out;
    for (char c : in)
    {
        const auto b = uint8_t(c);
        if (b < 0x80)
            out.push_back(c);
        else
        {
            out.push_back(char(0xC0 | (b >> 6)));
            out.push_back(char(0x80 | (b & 0x3F)));
        }
    }
    return out;
}

FontDescPtr fontDescription(const epiSystemFontFace& font)
{
    FontDescPtr desc(pango_font_description_new());
    const bool tahoma = g_ascii_strcasecmp(font.family.cstr(), "Tahoma") == 0;
    pango_font_description_set_family(desc.get(), tahoma ? "DejaVu Sans" : font.family.cstr());
    pango_font_description_set_size(desc.get(), int(std::lround(std::max(1.0f, font.size) * PANGO_SCALE)));
    pango_font_description_set_weight(desc.get(), font.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_font_description_set_style(desc.get(), font.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
    return desc;
}

/** A layout for measuring, on a context of its own that nothing draws on. */
LayoutPtr measuringLayout(const epiSystemFontFace& font, const epiText& text)
{
    static cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
    static cairo_t* cr = cairo_create(surface);
    LayoutPtr layout(pango_cairo_create_layout(cr));
    FontDescPtr desc = fontDescription(font);
    pango_layout_set_font_description(layout.get(), desc.get());
    const std::string utf8 = toUtf8(text);
    pango_layout_set_text(layout.get(), utf8.data(), int(utf8.size()));
    return layout;
}

} // namespace

bool epiGtkBitmapPlatform::decodeMemory(const void* data, size_t size, epiBitmap& dest)
{
    GdkPixbufLoader* loader = gdk_pixbuf_loader_new();
    bool ok = gdk_pixbuf_loader_write(loader, static_cast<const guchar*>(data), size, nullptr) != FALSE;
    ok = gdk_pixbuf_loader_close(loader, nullptr) != FALSE && ok;
    ok = ok && fromPixbuf(gdk_pixbuf_loader_get_pixbuf(loader), dest);
    g_object_unref(loader);
    return ok;
}

bool epiGtkBitmapPlatform::decodeFile(const char* path, epiBitmap& dest)
{
    PixbufPtr pixbuf(gdk_pixbuf_new_from_file(path, nullptr));
    return pixbuf != nullptr && fromPixbuf(pixbuf.get(), dest);
}

void epiGtkBitmapPlatform::drawShape(epiBitmap& target, const epiBitmapShape& shape, const epiRect& clip)
{
    if (target.isEmpty())
        return;
    const int32_t reach = int32_t(std::ceil(shape.width)) + 2;
    epiRect bounds = shape.rect;
    if (shape.stroke == epiBitmapStroke::line)
        bounds = epiRect(std::min(shape.x1, shape.x2), std::min(shape.y1, shape.y2),
                         std::max(shape.x1, shape.x2) + 1, std::max(shape.y1, shape.y2) + 1);
    bounds.inset(-reach);
    const epiRect area = drawArea(target, bounds, clip);
    if (area.isEmpty())
        return;
    Scratch scratch(target, area);
    cairo_t* cr = scratch.cr();
    // Whole coordinates name pixels, so a 1-pixel line at y covers row y exactly.
    cairo_translate(cr, 0.5, 0.5);
    setColour(cr, shape.colour);
    cairo_set_line_width(cr, shape.width);
    cairo_set_antialias(cr, shape.smooth ? CAIRO_ANTIALIAS_DEFAULT : CAIRO_ANTIALIAS_NONE);
    switch (shape.stroke)
    {
    case epiBitmapStroke::line:
        cairo_set_line_cap(cr, CAIRO_LINE_CAP_SQUARE);
        cairo_move_to(cr, shape.x1, shape.y1);
        cairo_line_to(cr, shape.x2, shape.y2);
        cairo_stroke(cr);
        break;
    case epiBitmapStroke::arc:
        ellipsePath(cr, shape.rect, shape.start, shape.sweep, false);
        cairo_stroke(cr);
        break;
    case epiBitmapStroke::pie:
        ellipsePath(cr, shape.rect, shape.start, shape.sweep, true);
        cairo_fill(cr);
        break;
    case epiBitmapStroke::ellipse:
        ellipsePath(cr, shape.rect, 0, 360, false);
        cairo_stroke(cr);
        break;
    case epiBitmapStroke::filledEllipse:
        ellipsePath(cr, shape.rect, 0, 360, false);
        cairo_fill(cr);
        break;
    case epiBitmapStroke::frame:
        cairo_rectangle(cr, shape.rect.left_, shape.rect.top_, shape.rect.width() - 1,
                        shape.rect.height() - 1);
        cairo_stroke(cr);
        break;
    }
    scratch.commit();
}

void epiGtkBitmapPlatform::drawScaled(epiBitmap& target, const epiBitmap& source, const epiRect& sourceRect,
                                      const epiRect& destRect, const epiRect& clip)
{
    epiRect src = sourceRect;
    if (target.isEmpty() || source.isEmpty() || !src.intersect(source.rect()) || src.isEmpty() ||
        destRect.isEmpty() || sourceRect.isEmpty())
        return;
    const epiRect area = drawArea(target, destRect, clip);
    if (area.isEmpty())
        return;
    // The source part, premultiplied, or opaque when the source doesn't use alpha.
    const int sw = src.width(), sh = src.height();
    std::vector<uint32_t> pixels = premultipliedCopy(source, src, !source.usesAlpha());
    cairo_surface_t* image = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(pixels.data()), CAIRO_FORMAT_ARGB32, sw, sh, sw * 4);
    Scratch scratch(target, area);
    cairo_t* cr = scratch.cr();
    cairo_translate(cr, destRect.left_, destRect.top_);
    cairo_scale(cr, destRect.widthF() / sourceRect.widthF(), destRect.heightF() / sourceRect.heightF());
    cairo_set_source_surface(cr, image, src.left_ - sourceRect.left_, src.top_ - sourceRect.top_);
    cairo_pattern_t* pattern = cairo_get_source(cr);
    cairo_pattern_set_filter(pattern, CAIRO_FILTER_BILINEAR);
    // Edge pixels repeat outwards, so the border of the picture doesn't fade to nothing.
    cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
    cairo_rectangle(cr, src.left_ - sourceRect.left_, src.top_ - sourceRect.top_, sw, sh);
    cairo_fill(cr);
    scratch.commit();
    cairo_surface_destroy(image);
}

void epiGtkBitmapPlatform::drawText(epiBitmap& target, const epiSystemFontFace& font, const epiText& text,
                                    const epiRect& rect, const epiRect& clip, int32_t alignment, bool wrap,
                                    epiColour colour)
{
    if (target.isEmpty() || text.empty())
        return;
    const epiRect area = drawArea(target, rect, clip);
    if (area.isEmpty())
        return;
    Scratch scratch(target, area);
    cairo_t* cr = scratch.cr();
    LayoutPtr layout(pango_cairo_create_layout(cr));
    FontDescPtr desc = fontDescription(font);
    pango_layout_set_font_description(layout.get(), desc.get());
    const std::string utf8 = toUtf8(text);
    pango_layout_set_text(layout.get(), utf8.data(), int(utf8.size()));
    pango_layout_set_width(layout.get(), rect.width() * PANGO_SCALE);
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD);
    if (!wrap)
        pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_NONE);
    pango_layout_set_alignment(layout.get(), alignment == 1   ? PANGO_ALIGN_CENTER
                                             : alignment == 2 ? PANGO_ALIGN_RIGHT
                                                              : PANGO_ALIGN_LEFT);
    if (!wrap)
    {
        // One line: no width, so nothing breaks; the alignment is done by hand.
        pango_layout_set_width(layout.get(), -1);
        int w = 0, h = 0;
        pango_layout_get_pixel_size(layout.get(), &w, &h);
        const double left = alignment == 1   ? (rect.left_ + rect.right_ - w) / 2.0
                            : alignment == 2 ? double(rect.right_ - w)
                                             : double(rect.left_);
        cairo_move_to(cr, std::floor(left), rect.top_);
    }
    else
        cairo_move_to(cr, rect.left_, rect.top_);
    setColour(cr, colour);
    pango_cairo_show_layout(cr, layout.get());
    scratch.commit();
}

int32_t epiGtkBitmapPlatform::textWidth(const epiSystemFontFace& font, const epiText& text)
{
    if (text.empty())
        return 0;
    LayoutPtr layout = measuringLayout(font, text);
    // The logical extents count trailing blanks, as a measure for placing what follows must.
    PangoRectangle logical;
    pango_layout_get_pixel_extents(layout.get(), nullptr, &logical);
    return logical.width;
}

int32_t epiGtkBitmapPlatform::textHeight(const epiSystemFontFace& font)
{
    LayoutPtr layout = measuringLayout(font, epiText("Ag"));
    int w = 0, h = 0;
    pango_layout_get_pixel_size(layout.get(), &w, &h);
    return h;
}

void epiGtkInstallBitmapPlatform()
{
    static epiGtkBitmapPlatform platform;
    if (epiGetBitmapPlatform() == nullptr)
        epiSetBitmapPlatform(&platform);
}
