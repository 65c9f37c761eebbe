#pragma once

#include "epi/ui/epiBitmap.h"

#include <cstdint>

namespace benchpixels
{

/** A bitmap of scrambled colours, opaque or with alpha running 0..255 along its pixels. */
inline epiBitmap pattern(int32_t w, int32_t h, bool translucent)
{
    epiBitmap b;
    b.create(w, h);
    for (int32_t i = 0; i < w * h; ++i)
        b.pixels()[i] =
            (translucent ? uint32_t(i % 256) << 24 : 0xFF000000u) | uint32_t(i * 2654435761u >> 8);
    b.setUsesAlpha(translucent);
    return b;
}

} // namespace benchpixels
