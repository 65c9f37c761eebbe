#pragma once

#include "epi/epiResources.h"
#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiFont.h"

/**
 * The resources of an interface: the core resources plus the table of loaded bitmaps and the fonts,
 * which live as long as this object. The application makes these for 'Appl', 'Rsrc'.
 */
class epiUiResources : public epiResources
{
public:
    epiUiResources() = default;
    ~epiUiResources() override;

    /** The base, then the fonts and the bitmap table, both handed this object. */
    bool start() override;
    /** Closes the medium and empties the bitmap table and the fonts, then the base. */
    void stop() override;

    epiBitmapCasts* castsRef() override { return casts_; }
    epiFonts* fontsRef() override { return &fonts_; }
    /** A bitmap from the factory ('GrUi', 'iBmp'), so that the platform may give its own kind. */
    epiBitmap* newBitmap() override;
    void purgeCast(const epiText* name) override;
    void purgeAllCasts() override;
    void castsIdle() override;

private:
    epiBitmapCasts* casts_ = nullptr;
    epiFonts fonts_;
};
