#include "epi/ui/epiBitmap.h"

#include "epi/epiFileDump.h"
#include "epi/epiResources.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace
{

epiBitmapPlatform* gPlatform = nullptr;

// Larger than any screen or film strip; keeps width * height * 4 far from overflowing.
constexpr int64_t kMaxPixels = int64_t(1) << 28;

/** Straight-alpha "source over": the result is straight again, rounded to the nearest byte. */
uint32_t blendOver(uint32_t dest, uint32_t source)
{
    const uint32_t sa = source >> 24;
    if (sa == 255)
        return source;
    if (sa == 0)
        return dest;
    const uint32_t da = dest >> 24;
    if (da == 255)
    {
        // Over an opaque pixel, the common case in a back buffer: the same rounding, cheaper.
        uint32_t out = 0xFF000000u;
        for (int shift = 0; shift <= 16; shift += 8)
        {
            const uint32_t sc = (source >> shift) & 0xFF;
            const uint32_t dc = (dest >> shift) & 0xFF;
            out |= ((sc * sa + dc * (255 - sa) + 127) / 255) << shift;
        }
        return out;
    }
    // Alpha and colours scaled by 255 * 255 to stay in integers until the one division.
    const uint32_t outA255 = sa * 255 + da * (255 - sa);
    uint32_t out = ((outA255 + 127) / 255) << 24;
    for (int shift = 0; shift <= 16; shift += 8)
    {
        const uint32_t sc = (source >> shift) & 0xFF;
        const uint32_t dc = (dest >> shift) & 0xFF;
        const uint32_t num = sc * sa * 255 + dc * da * (255 - sa);
        out |= ((num + outA255 / 2) / outA255) << shift;
    }
    return out;
}

} // namespace

void epiSetBitmapPlatform(epiBitmapPlatform* platform)
{
    gPlatform = platform;
}

epiBitmapPlatform* epiGetBitmapPlatform()
{
    return gPlatform;
}

// ---------------------------------------------------------------------------------------------
// epiBitmap

bool epiBitmap::copyFrom(const epiBitmap& source)
{
    clear();
    if (!create(source.width(), source.height()))
        return false;
    blit(source, nullptr, nullptr);
    return true;
}

bool epiBitmap::create(int32_t width, int32_t height)
{
    clear();
    usesAlpha_ = true;
    if (width <= 0 || height <= 0 || int64_t(width) * height > kMaxPixels)
        return false;
    pixels_.assign(size_t(width) * size_t(height), 0u);
    size_ = epiPoint(width, height);
    rect_ = epiRect(0, 0, width, height);
    return true;
}

void epiBitmap::clear()
{
    std::vector<uint32_t>().swap(pixels_);
    size_ = epiPoint();
    rect_ = epiRect();
    locked_ = false;
}

bool epiBitmap::loadMemory(const epiFileDump& dump, const epiFileDump* alphaDump)
{
    if (gPlatform == nullptr || dump.data() == nullptr || dump.size() == 0)
        return false;
    epiBitmap decoded;
    if (!gPlatform->decodeMemory(dump.data(), dump.size(), decoded))
        return false;
    epiBitmap alpha;
    const bool hasAlpha = alphaDump != nullptr && alphaDump->data() != nullptr &&
                          gPlatform->decodeMemory(alphaDump->data(), alphaDump->size(), alpha);
    if (hasAlpha)
    {
        // Only the main image's range is visited; outside the companion reads as alpha 0.
        for (int32_t x = 0; x < decoded.width(); ++x)
            for (int32_t y = 0; y < decoded.height(); ++y)
            {
                uint32_t& p = decoded.pixels_[size_t(y) * decoded.width() + x];
                const uint32_t red = (alpha.getPixel(x, y, nullptr) >> 16) & 0xFF;
                p = (p & 0x00FFFFFFu) | (red << 24);
            }
    }
    if (isEmpty())
    {
        swap(decoded);
        usesAlpha_ = true;
        return true;
    }
    // An existing image keeps its size: the picture goes in at the origin, unscaled.
    copyRect(decoded, decoded.rect(), decoded.rect(), false);
    return true;
}

bool epiBitmap::loadFile(const epiPath& path, const epiPath* alphaPath)
{
    epiFileDump dump;
    if (!dump.loadFile(path))
        return false;
    epiFileDump alphaDump;
    const bool hasAlpha = alphaPath != nullptr && alphaDump.loadFile(*alphaPath);
    return loadMemory(dump, hasAlpha ? &alphaDump : nullptr);
}

void epiBitmap::blit(const epiBitmap& source, const epiRect* sourceRect, const epiRect* destRect)
{
    if (isEmpty() || source.isEmpty())
        return;
    const epiRect src = sourceRect != nullptr ? *sourceRect : source.rect();
    const epiRect dst = destRect != nullptr ? *destRect : rect_;
    if (src.width() == dst.width() && src.height() == dst.height())
    {
        copyRect(source, src, dst, source.usesAlpha_);
        return;
    }
    if (gPlatform != nullptr && !src.isEmpty() && !dst.isEmpty())
        gPlatform->drawScaled(*this, source, src, dst, rect_);
}

void epiBitmap::copyRect(const epiBitmap& source, const epiRect& sourceRect, const epiRect& destRect,
                         bool blend)
{
    epiRect src = sourceRect;
    epiRect dst = destRect;
    // Clip against the source, then the destination, moving the other rectangle along.
    const int32_t l = std::max({0, -src.left_, -dst.left_});
    const int32_t t = std::max({0, -src.top_, -dst.top_});
    const int32_t r = std::max(src.right_ - source.width(), dst.right_ - width());
    const int32_t b = std::max(src.bottom_ - source.height(), dst.bottom_ - height());
    const int32_t w = src.width() - l - std::max(0, r);
    const int32_t h = src.height() - t - std::max(0, b);
    if (w <= 0 || h <= 0)
        return;
    src.left_ += l;
    src.top_ += t;
    dst.left_ += l;
    dst.top_ += t;
    for (int32_t y = 0; y < h; ++y)
    {
        const uint32_t* in = source.pixels() + size_t(src.top_ + y) * source.width() + src.left_;
        uint32_t* out = pixels_.data() + size_t(dst.top_ + y) * width() + dst.left_;
        if (blend)
            for (int32_t x = 0; x < w; ++x)
                out[x] = blendOver(out[x], in[x]);
        else
            for (int32_t x = 0; x < w; ++x)
                out[x] = in[x] | 0xFF000000u;
    }
}

void epiBitmap::swap(epiBitmap& other)
{
    std::swap(pixels_, other.pixels_);
    std::swap(size_, other.size_);
    std::swap(rect_, other.rect_);
    std::swap(usesAlpha_, other.usesAlpha_);
}

uint32_t epiBitmap::getPixel(int32_t x, int32_t y, epiColour* colour) const
{
    const bool inside = x >= 0 && y >= 0 && x < width() && y < height();
    const uint32_t argb = inside ? pixels_[size_t(y) * width() + x] : 0u;
    if (colour != nullptr)
        *colour = unpack(argb);
    return argb;
}

void epiBitmap::setPixel(int32_t x, int32_t y, epiColour colour)
{
    if (x >= 0 && y >= 0 && x < width() && y < height())
        pixels_[size_t(y) * width() + x] = pack(colour);
}

void epiBitmap::drawShape(const epiShapeRequest& request)
{
    if (isEmpty())
        return;
    const epiRect rect = request.rect.isEmpty() ? rect_ : request.rect;
    const epiRect clip = request.clip.isEmpty() ? rect_ : request.clip;
    if (request.kind == epiCode("recP"))
    {
        frameRectClipped(request.colour, rect, std::max(1, request.thickness), clip);
        return;
    }
    if (request.kind == epiCode("ntxt"))
    {
        drawTextA(request.text, request.fontName.cstr(), float(request.thickness), request.flags, rect, clip,
                  0, request.colour);
        return;
    }
    if (gPlatform == nullptr)
        return;
    epiBitmapShape shape;
    shape.rect = rect;
    shape.colour = request.colour;
    shape.width = float(std::max(1, request.thickness));
    if (request.kind == epiCode("ovaP"))
        shape.stroke = epiBitmapStroke::ellipse;
    else if (request.kind == epiCode("ovaF"))
        shape.stroke = epiBitmapStroke::filledEllipse;
    else
        return;
    gPlatform->drawShape(*this, shape, clip);
}

void epiBitmap::drawShapeA(uint32_t kind, const epiRect& rect, epiColour colour)
{
    epiShapeRequest request;
    request.kind = kind;
    request.rect = rect;
    request.colour = colour;
    drawShape(request);
}

void epiBitmap::drawShapeB(uint32_t kind, const epiRect& rect)
{
    drawShapeA(kind, rect, epiColour{});
}

epiRect epiBitmap::clipped(const epiRect& wanted, const epiRect& clip) const
{
    epiRect r = wanted;
    if (!r.intersect(rect_) || !r.intersect(clip))
        return epiRect();
    return r;
}

void epiBitmap::fillRectClipped(epiColour colour, const epiRect* rect, const epiRect& clip)
{
    const epiRect r = clipped(rect != nullptr ? *rect : rect_, clip);
    if (r.isEmpty())
        return;
    const uint32_t argb = pack(colour);
    for (int32_t y = r.top_; y < r.bottom_; ++y)
    {
        uint32_t* row = pixels_.data() + size_t(y) * width();
        for (int32_t x = r.left_; x < r.right_; ++x)
            row[x] = blendOver(row[x], argb);
    }
}

void epiBitmap::fillRect(epiColour colour, const epiRect* rect)
{
    fillRectClipped(colour, rect, rect_);
}

void epiBitmap::frameRectClipped(epiColour colour, const epiRect& rect, int32_t thickness,
                                 const epiRect& clip)
{
    const int32_t t = std::max(1, std::min({thickness, rect.width() / 2 + 1, rect.height() / 2 + 1}));
    const epiRect top(rect.left_, rect.top_, rect.right_, rect.top_ + t);
    const epiRect bottom(rect.left_, std::max(rect.top_ + t, rect.bottom_ - t), rect.right_, rect.bottom_);
    const epiRect left(rect.left_, rect.top_ + t, rect.left_ + t, rect.bottom_ - t);
    const epiRect right(std::max(rect.left_ + t, rect.right_ - t), rect.top_ + t, rect.right_,
                        rect.bottom_ - t);
    for (const epiRect& side : {top, bottom, left, right})
        if (!side.isEmpty())
            fillRectClipped(colour, &side, clip);
}

void epiBitmap::frameRect(epiColour colour, const epiRect& rect, int32_t thickness)
{
    frameRectClipped(colour, rect, thickness, rect_);
}

void epiBitmap::drawLineClipped(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour,
                                int32_t width, const epiRect& clip)
{
    if (isEmpty() || gPlatform == nullptr || width == 0)
        return;
    epiBitmapShape shape;
    shape.stroke = epiBitmapStroke::line;
    shape.x1 = x1;
    shape.y1 = y1;
    shape.x2 = x2;
    shape.y2 = y2;
    shape.width = float(std::abs(width));
    shape.smooth = width > 0;
    shape.colour = colour;
    gPlatform->drawShape(*this, shape, clip);
}

void epiBitmap::drawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour, int32_t width)
{
    drawLineClipped(x1, y1, x2, y2, colour, width, rect_);
}

void epiBitmap::drawArc(epiColour colour, const epiRect& rect, float start, float sweep)
{
    if (isEmpty() || gPlatform == nullptr)
        return;
    epiBitmapShape shape;
    shape.stroke = epiBitmapStroke::arc;
    shape.rect = rect;
    shape.start = start;
    shape.sweep = sweep;
    shape.colour = colour;
    gPlatform->drawShape(*this, shape, rect_);
}

void epiBitmap::fillPie(epiColour colour, const epiRect& rect, float start, float sweep)
{
    if (isEmpty() || gPlatform == nullptr)
        return;
    epiBitmapShape shape;
    shape.stroke = epiBitmapStroke::pie;
    shape.rect = rect;
    shape.start = start;
    shape.sweep = sweep;
    shape.colour = colour;
    gPlatform->drawShape(*this, shape, rect_);
}

void epiBitmap::drawTextA(const epiText& text, const char* family, float size, uint32_t flags,
                          const epiRect& rect, const epiRect& clip, int32_t alignment, epiColour colour)
{
    if (isEmpty() || gPlatform == nullptr || text.empty())
        return;
    epiSystemFontFace font;
    if (family != nullptr && *family != 0)
        font.family = family;
    if (size > 0)
        font.size = size;
    font.bold = (flags & 1) != 0;
    font.italic = (flags & 2) != 0;
    const int32_t align = (alignment & 1) != 0 ? 1 : (alignment & 2) != 0 ? 2 : 0;
    gPlatform->drawText(*this, font, text, rect, clip, align, false, colour);
}

void epiBitmap::drawMaskedClipped(const epiBitmap& source, const epiRect* sourceRect, const epiRect* destRect,
                                  const epiRect& clip, epiColour colour)
{
    if (isEmpty() || source.isEmpty())
        return;
    epiRect src = sourceRect != nullptr ? *sourceRect : source.rect();
    epiRect dst = destRect != nullptr ? *destRect : source.rect();
    // The destination is clipped by `clip` and the bitmap; the source moves along.
    epiRect visible = dst;
    if (!visible.intersect(clip) || !visible.intersect(rect_))
        return;
    src.left_ += visible.left_ - dst.left_;
    src.top_ += visible.top_ - dst.top_;
    // Neither past the source rectangle nor past the source bitmap.
    const int32_t w = std::min({visible.width(), src.right_ - src.left_, source.width() - src.left_});
    const int32_t h = std::min({visible.height(), src.bottom_ - src.top_, source.height() - src.top_});
    const float colourRgb[3] = {float(colour.b), float(colour.g), float(colour.r)};
    for (int32_t y = 0; y < h; ++y)
    {
        const int32_t sy = src.top_ + y;
        if (sy < 0)
            continue;
        const uint32_t* in = source.pixels() + size_t(sy) * source.width();
        uint32_t* out = pixels_.data() + size_t(visible.top_ + y) * width() + visible.left_;
        for (int32_t x = 0; x < w; ++x)
        {
            const int32_t sx = src.left_ + x;
            if (sx < 0)
                continue;
            const float a = float(in[sx] >> 24) / 255.0f;
            if (a == 0.0f)
                continue;
            uint32_t d = out[x];
            uint32_t result = d & 0xFF000000u;
            for (int c = 0; c < 3; ++c)
            {
                const float dc = float((d >> (8 * c)) & 0xFF);
                const float v = dc * (1.0f - a) + colourRgb[c] * a;
                result |= uint32_t(std::clamp(v, 0.0f, 255.0f)) << (8 * c);
            }
            out[x] = result;
        }
    }
}

void epiBitmap::drawMasked(const epiBitmap& source, const epiRect* sourceRect, const epiRect* destRect,
                           epiColour colour)
{
    drawMaskedClipped(source, sourceRect, destRect, rect_, colour);
}

void epiBitmap::setAlpha(float value, const epiRect* rect)
{
    const epiRect r = clipped(rect != nullptr ? *rect : rect_, rect_);
    const uint32_t alpha = uint32_t(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f)) << 24;
    for (int32_t y = r.top_; y < r.bottom_; ++y)
    {
        uint32_t* row = pixels_.data() + size_t(y) * width();
        for (int32_t x = r.left_; x < r.right_; ++x)
            row[x] = (row[x] & 0x00FFFFFFu) | alpha;
    }
}

bool epiBitmap::lock(uint32_t** pixels, int32_t* stride)
{
    if (isEmpty() || locked_)
        return false;
    locked_ = true;
    *pixels = pixels_.data();
    *stride = width() * 4;
    return true;
}

void epiBitmap::unlock()
{
    locked_ = false;
}

// ---------------------------------------------------------------------------------------------
// epiBitmapDib

bool epiBitmapDib::create(int32_t width, int32_t height)
{
    if (!epiBitmap::create(width, height))
        return false;
    stride_ = width * 4;
    header_ = Header();
    header_.width = width;
    header_.height = height;
    header_.imageSize = uint32_t(stride_) * uint32_t(height);
    return true;
}

void epiBitmapDib::clear()
{
    epiBitmap::clear();
    stride_ = 0;
    header_ = Header();
}

// ---------------------------------------------------------------------------------------------
// epiBitmapCasts

epiBitmapCasts::~epiBitmapCasts()
{
    for (epiBitmapCast* cast : casts_)
        delete cast;
}

epiBitmap* epiBitmapCasts::acquire(const char* name, uint32_t kind)
{
    if (name == nullptr)
        return nullptr;
    for (epiBitmapCast* cast : casts_)
        if (cast->name_ == name)
        {
            ++cast->useCount_;
            return cast->bitmap_;
        }
    epiBitmapCast* cast = newCast();
    if (cast == nullptr)
        return nullptr;
    cast->bitmap_ = customBitmap(name, kind);
    if (cast->bitmap_ == nullptr)
    {
        cast->bitmap_ = newBitmap();
        if (cast->bitmap_ == nullptr || !load(*cast->bitmap_, name, kind))
        {
            delete cast;
            return nullptr;
        }
    }
    cast->name_ = name;
    cast->useCount_ = 1;
    casts_.push_back(cast);
    return cast->bitmap_;
}

bool epiBitmapCasts::load(epiBitmap& bitmap, const char* name, uint32_t kind)
{
    if (resources_ == nullptr)
        return false;
    const epiText text(name);
    epiText alphaName(name);
    {
        epiPath p(name);
        p.appendToBaseName("_alpha");
        alphaName = p;
    }
    epiPath path;
    if (resources_->isFolderMedia() && resources_->fullPath(&text, kind, path))
    {
        epiPath alphaPath(path);
        alphaPath.appendToBaseName("_alpha");
        return bitmap.loadFile(path, alphaPath.exists() ? &alphaPath : nullptr);
    }
    epiFileDump dump;
    if (!resources_->readDump(&text, kind, dump))
        return false;
    epiFileDump alphaDump;
    const bool hasAlpha = resources_->readDump(&alphaName, kind, alphaDump);
    return bitmap.loadMemory(dump, hasAlpha ? &alphaDump : nullptr);
}

bool epiBitmapCasts::nameOf(const epiBitmap* bitmap, epiText& dest) const
{
    for (const epiBitmapCast* cast : casts_)
        if (cast->bitmap_ == bitmap)
        {
            dest = cast->name_;
            return true;
        }
    dest.clear();
    return false;
}

int32_t epiBitmapCasts::useCount(const char* name) const
{
    for (const epiBitmapCast* cast : casts_)
        if (cast->name_ == name)
            return cast->useCount_;
    return 0;
}

epiBitmap* epiBitmapCasts::newBitmap()
{
    epiBitmap* bitmap = resources_ != nullptr ? resources_->newBitmap() : nullptr;
    return bitmap != nullptr ? bitmap : new epiBitmap();
}

void epiBitmapCasts::purge(const char* name)
{
    for (auto it = casts_.begin(); it != casts_.end(); ++it)
        if ((*it)->name_ == name)
        {
            delete *it;
            casts_.erase(it);
            return;
        }
}

void epiBitmapCasts::purgeAll()
{
    while (!casts_.empty())
    {
        delete casts_.front();
        casts_.erase(casts_.begin());
    }
}

void epiBitmapCasts::stop()
{
    flush();
    purgeAll();
    if (timerActive())
        removeTimerNow();
    epiApplicationObject::stop();
}
