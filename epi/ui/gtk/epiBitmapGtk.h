#pragma once

#include "epi/ui/epiBitmap.h"

/**
 * The bitmap services on GTK: gdk-pixbuf decodes images, cairo draws shapes and scaled copies, pango
 * draws the system's text. None of them needs a display. Cairo works on premultiplied pixels, so each
 * drawing copies the touched area into a premultiplied scratch surface and writes back, straight
 * again, only the pixels that the drawing changed.
 */
class epiGtkBitmapPlatform : public epiBitmapPlatform
{
public:
    bool decodeMemory(const void* data, size_t size, epiBitmap& dest) override;
    bool decodeFile(const char* path, epiBitmap& dest) override;
    void drawShape(epiBitmap& target, const epiBitmapShape& shape, const epiRect& clip) override;
    void drawScaled(epiBitmap& target, const epiBitmap& source, const epiRect& sourceRect,
                    const epiRect& destRect, const epiRect& clip) override;
    /** "Tahoma" is drawn in DejaVu Sans. Texts that aren't valid UTF-8 are read as Latin-1. */
    void drawText(epiBitmap& target, const epiSystemFontFace& font, const epiText& text, const epiRect& rect,
                  const epiRect& clip, int32_t alignment, bool wrap, epiColour colour) override;
    int32_t textWidth(const epiSystemFontFace& font, const epiText& text) override;
    int32_t textHeight(const epiSystemFontFace& font) override;
};

/** Installs the GTK bitmap services for the process (once; later calls do nothing). */
void epiGtkInstallBitmapPlatform();
