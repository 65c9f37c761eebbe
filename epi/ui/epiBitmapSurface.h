#pragma once

#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiFont.h"
#include "epi/ui/epiUbo.h"

/**
 * The drawing family of a window or view over a bitmap: the tree's drawing calls, already in the
 * bitmap's coordinates, land in its pixels; framework texts go through `fonts`.
 */
class epiBitmapSurface : public epiUiSurface
{
public:
    epiBitmapSurface(epiBitmap* target, epiFonts* fonts) : target_(target), fonts_(fonts) {}
    void setTarget(epiBitmap* target) { target_ = target; }
    void setFonts(epiFonts* fonts) { fonts_ = fonts; }
    epiBitmap* target() const { return target_; }

    void fillRect(const epiRect& rect, const epiRect& clip, epiColour colour) override;
    void frameRect(const epiRect& rect, const epiRect& clip, epiColour colour) override;
    void drawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour) override;
    void drawText(uint32_t fontName, int32_t alignment, const epiRect& rect, const epiRect& clip,
                  const epiText& text, epiColour colour) override;
    int32_t textWidth(uint32_t fontName, const epiText& text) override;
    /** The interface's system face (DejaVu Sans), word-wrapped; alignment 0, 1, 2 is left, centre, right. */
    void drawSystemText(const epiRect& rect, const epiRect& clip, const epiText& text, int32_t pointSize,
                        bool bold, int32_t alignment, epiColour colour) override;
    /** Copies as opaque. */
    void blitStretched(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                       const epiRect& clip) override;
    /** Blends by the bitmap's alpha. */
    void blitAlpha(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                   const epiRect& clip) override;
    void drawShape(const epiShapeRequest& request) override;

private:
    void transfer(epiBitmap* bitmap, const epiRect& source, const epiRect& dest, const epiRect& clip,
                  bool alpha);

    epiBitmap* target_ = nullptr;
    epiFonts* fonts_ = nullptr;
};
