#pragma once

#include "epi/ui/epiBitmap.h"
#include "epi/ui/epiBitmapSurface.h"
#include "epi/ui/epiFont.h"
#include "epi/ui/epiUbo.h"

#include <cstdint>

/**
 * A widget with a bitmap of its own: everything its children draw lands in that bitmap, and the
 * view copies the bitmap to its parent when it is drawn.
 */
class epiUiBitmapView : public epiUbo
{
public:
    epiUiBitmapView();
    ~epiUiBitmapView() override;

    uint32_t kind() const override { return epiCode("iBvw"); }
    const uint32_t* allowedParentKinds() const override;
    bool vetoChild() override { return true; }
    /** Makes the bitmap at the frame's size. */
    void notifyCreated() override;
    /** A new bitmap when the size changes. */
    void setFrame(const epiRect& rect) override;
    /** Deletes the bitmap first. */
    void stop() override;
    /** Paints the children into the bitmap over `rect`, then copies that part to the parent. */
    void draw(const epiRect& rect) override;
    epiUiSurface* ownSurface() override { return surface_ != nullptr ? &drawing_ : nullptr; }

    epiBitmapDib* surface() const { return surface_; }

protected:
    /** Makes (or remakes) the bitmap at the frame's size through the factory. */
    void makeSurface();
    /** Copies `rect` (local) of the bitmap to the parent, clipped to `clip` (local). */
    void blitToParent(const epiRect& rect);

    epiBitmapDib* surface_ = nullptr;
    epiFonts fonts_;
    epiBitmapSurface drawing_{nullptr, &fonts_};
};

/**
 * The buffer of a whole panel: a change repaints only its rectangle inside the view's bitmap, and a
 * repaint of the window costs one copy of the bitmap. lockRedraw() gathers many changes into one.
 */
class epiUiBitmapViewContainer : public epiUiBitmapView
{
public:
    uint32_t kind() const override { return epiCode("iBco"); }
    void notifyCreated() override;
    void setAttribute(uint32_t code, const epiText* value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    const uint32_t* attributeCodes() const override;
    bool loadLayout(const epiText& name) override;
    /** One copy of the bitmap; the children aren't visited. */
    void draw(const epiRect& rect) override;
    /** Repaints `rect` in the bitmap at once and asks the window for that area. */
    void invalidate(const epiRect& rect) override;
    /** Counted: only the last unlock repaints what changed meanwhile. */
    void lockRedraw(bool lock) override;
    virtual void setBackground(epiColour colour);

    int32_t lockCount() const { return lockCount_; }
    bool dirty() const { return dirty_; }
    const epiRect& dirtyRect() const { return dirtyRect_; }

protected:
    /** Fills `rect` with the background and paints the visible children over it, in the bitmap. */
    void paintSurface(const epiRect& rect);

    epiText childrenFile_;
    int32_t lockCount_ = 0;
    bool dirty_ = false;
    bool firstDraw_ = true;
    epiColour background_;
    epiRect dirtyRect_;
};

/**
 * The frame that a decorated container paints over its children: thickness and colours for off
 * and on, a fill under the children, and style flags kept for the skin.
 */
class epiUiDecorateHelper
{
public:
    /** @return false for a code that isn't the helper's */
    bool read(uint32_t code, const epiText* value);
    bool write(uint32_t code, epiText& dest) const;
    /** The fill of the present state, under the children. */
    void paintFill(epiUbo& widget, const epiRect& rect) const;
    /** The frame of the present state, over the children. */
    void paintFrame(epiUbo& widget, const epiRect& rect) const;

    bool on = false;

private:
    int32_t thickness_ = 1;   ///< 'fdim'
    int32_t thicknessOn_ = 1; ///< 'fdon'
    epiColour frameOff_, frameOn_, fillOff_, fillOn_;
    bool hasFrameOff_ = false, hasFrameOn_ = false, hasFillOff_ = false, hasFillOn_ = false;
    bool round_ = false;  ///< 'frnd'
    bool shadow_ = false; ///< 'frsd'
    bool etched_ = false; ///< 'fres'
    bool over_ = false;   ///< 'frov'
};

/** A container with a frame painted around its children; its value turns the frame on. */
class epiUiDecorate : public epiUiContainer
{
public:
    uint32_t kind() const override { return epiCode("iBde"); }
    void draw(const epiRect& rect) override;
    void setAttribute(uint32_t code, const epiText* value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    void setValue(float value) override;
    float getValue() override { return helper_.on ? 1.0f : 0.0f; }

private:
    epiUiDecorateHelper helper_;
};

/** The bitmap widget of `kind`, null for a kind that isn't one. */
epiUbo* epiUiNewBitmapWidget(uint32_t kind);

/** Enters every bitmap widget kind, and 'iBmp' and 'iBmD', in the factory where the pair is free. */
void epiUiRegisterBitmapWidgets();
