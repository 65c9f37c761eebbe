#include "epi/ui/epiBitmapSurface.h"

void epiBitmapSurface::fillRect(const epiRect& rect, const epiRect& clip, epiColour colour)
{
    if (target_ != nullptr)
        target_->fillRectClipped(colour, &rect, clip);
}

void epiBitmapSurface::frameRect(const epiRect& rect, const epiRect& clip, epiColour colour)
{
    if (target_ != nullptr)
        target_->frameRectClipped(colour, rect, 1, clip);
}

void epiBitmapSurface::drawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour)
{
    if (target_ != nullptr)
        target_->drawLine(x1, y1, x2, y2, colour, 1);
}

void epiBitmapSurface::drawText(uint32_t fontName, int32_t alignment, const epiRect& rect,
                                const epiRect& clip, const epiText& text, epiColour colour)
{
    if (target_ != nullptr && fonts_ != nullptr)
        fonts_->draw(fontName, *target_, text, rect, clip, alignment, colour);
}

int32_t epiBitmapSurface::textWidth(uint32_t fontName, const epiText& text)
{
    return fonts_ != nullptr ? fonts_->width(fontName, text) : 0;
}

void epiBitmapSurface::drawSystemText(const epiRect& rect, const epiRect& clip, const epiText& text,
                                      int32_t pointSize, bool bold, int32_t alignment, epiColour colour)
{
    epiBitmapPlatform* platform = epiGetBitmapPlatform();
    if (target_ == nullptr || platform == nullptr)
        return;
    epiSystemFontFace font;
    font.family = "DejaVu Sans";
    font.size = float(pointSize);
    font.bold = bold;
    platform->drawText(*target_, font, text, rect, clip, alignment, true, colour);
}

void epiBitmapSurface::blitStretched(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                                     const epiRect& clip)
{
    transfer(bitmap, source, dest, clip, false);
}

void epiBitmapSurface::blitAlpha(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                                 const epiRect& clip)
{
    transfer(bitmap, source, dest, clip, true);
}

void epiBitmapSurface::transfer(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                                const epiRect& clip, bool alpha)
{
    if (target_ == nullptr || bitmap == nullptr || bitmap->isEmpty() || !dest.intersects(clip))
        return;
    const bool keptAlpha = bitmap->usesAlpha();
    bitmap->setUsesAlpha(alpha);
    if (source.width() == dest.width() && source.height() == dest.height())
    {
        epiRect s = source, d = dest;
        if (clip.containsRect(dest) || clip.clipPair(s, d))
            target_->blit(*bitmap, &s, &d);
    }
    else if (epiBitmapPlatform* platform = epiGetBitmapPlatform())
    {
        // A scaled copy keeps its whole geometry and is clipped on the way, so that it doesn't shift.
        platform->drawScaled(*target_, *bitmap, source, dest, clip);
    }
    bitmap->setUsesAlpha(keptAlpha);
}

void epiBitmapSurface::drawShape(const epiShapeRequest& request)
{
    if (target_ != nullptr)
        target_->drawShape(request);
}
