#include "epi/ui/epiUiBitmapView.h"

#include "epi/epiResources.h"
#include "epi/ui/epiApplication.h"
#include "epi/ui/epiUiBitmapWidgets.h"

#include <algorithm>
#include <string>
#include <vector>

namespace
{

const uint32_t kDecorateCodes[] = {epiCode("fdim"),
                                   epiCode("fdon"),
                                   epiCode("frof"),
                                   epiCode("fron"),
                                   epiCode("Fiof"),
                                   epiCode("Fion"),
                                   epiCode("frnd"),
                                   epiCode("frsd"),
                                   epiCode("fres"),
                                   epiCode("frov"),
                                   0};

// A bitmap table for each resource object. The table subscribes to its resources: a resource
// object made later at the same address has no such subscription, so a stale entry is known.
struct CastsEntry
{
    epiResources* resources;
    epiBitmapCasts* casts;
};

constexpr uint32_t kCastsToken = epiCode("bmCt");

std::vector<CastsEntry>& castsTable()
{
    // Kept for the whole run: the tables stay reachable until the process ends.
    static auto* table = new std::vector<CastsEntry>();
    return *table;
}

bool subscribed(epiResources* resources, epiBitmapCasts* casts)
{
    const std::vector<epiListener>* listeners = resources->listeners();
    if (listeners == nullptr)
        return false;
    return std::any_of(listeners->begin(), listeners->end(),
                       [&](const epiListener& entry)
                       { return entry.code == kCastsToken && entry.subscriber == casts; });
}

template <class Widget> epiObject* makeWidget(uint32_t)
{
    return new Widget();
}

struct BitmapKind
{
    uint32_t kind;
    epiFactory::Maker maker;
};

const BitmapKind kBitmapKinds[] = {
    {epiCode("iBim"), makeWidget<epiUiBitmapImage>},
    {epiCode("iBfi"), makeWidget<epiUiBitmapFilmImage>},
    {epiCode("iBrt"), makeWidget<epiUiBitmapRotary>},
    {epiCode("iBrr"), makeWidget<epiUiBitmapTriggeredRotary>},
    {epiCode("iBbt"), makeWidget<epiUiBitmapButton>},
    {epiCode("iBbi"), makeWidget<epiUiBitmapButtonWithIcon>},
    {epiCode("iBwt"), makeWidget<epiUiBitmapButtonWithText>},
    {epiCode("iBck"), makeWidget<epiUiBitmapCheckBox>},
    {epiCode("iBci"), makeWidget<epiUiBitmapCheckWithIcon>},
    {epiCode("iBct"), makeWidget<epiUiBitmapCheckBoxWithText>},
    {epiCode("iBrd"), makeWidget<epiUiBitmapRadio>},
    {epiCode("iBrs"), makeWidget<epiUiBitmapRadioWithText>},
    {epiCode("iBsc"), makeWidget<epiUiBitmapScroll>},
    {epiCode("iBst"), makeWidget<epiUiBitmapText>},
    {epiCode("iBtr"), makeWidget<epiUiBitmapTextRolling>},
    {epiCode("iBlm"), makeWidget<epiUiBitmapLevMeter>},
    {epiCode("iBpu"), makeWidget<epiUiBitmapPopup>},
    {epiCode("iBvw"), makeWidget<epiUiBitmapView>},
    {epiCode("iBco"), makeWidget<epiUiBitmapViewContainer>},
    {epiCode("iBde"), makeWidget<epiUiDecorate>},
};

// The kinds are in the factory from the start of the program, before any platform or host adds
// its own over them.
[[maybe_unused]] const bool registered = (epiUiRegisterBitmapWidgets(), true);

} // namespace

epiBitmapCasts* epiUiCastsFor(epiResources* resources)
{
    if (resources == nullptr)
        return nullptr;
    std::vector<CastsEntry>& table = castsTable();
    for (auto it = table.begin(); it != table.end(); ++it)
    {
        if (it->resources != resources)
            continue;
        if (subscribed(resources, it->casts))
            return it->casts;
        // The resources this table served are gone.
        it->casts->stop();
        delete it->casts;
        table.erase(it);
        break;
    }
    auto* casts = new epiBitmapCasts();
    casts->setResources(resources);
    resources->subscribe(kCastsToken, casts, 0);
    table.push_back(CastsEntry{resources, casts});
    return casts;
}

epiUbo* epiUiNewBitmapWidget(uint32_t kind)
{
    for (const BitmapKind& entry : kBitmapKinds)
        if (entry.kind == kind)
            return static_cast<epiUbo*>(entry.maker(0));
    return nullptr;
}

void epiUiRegisterBitmapWidgets()
{
    const uint32_t family = epiCode("GrUi");
    for (const BitmapKind& entry : kBitmapKinds)
        if (epiFactory::find(family, entry.kind) == nullptr)
            epiFactory::add(family, entry.kind, entry.maker);
    if (epiFactory::find(family, epiCode("iBmp")) == nullptr)
        epiFactory::add(family, epiCode("iBmp"), makeWidget<epiBitmap>);
    if (epiFactory::find(family, epiCode("iBmD")) == nullptr)
        epiFactory::add(family, epiCode("iBmD"), makeWidget<epiBitmapDib>);
}

// ---------------------------------------------------------------------------------------------
// View

epiUiBitmapView::epiUiBitmapView()
{
    // The draw road ends at this view's bitmap, not at the window.
    notOnScreen_ = true;
}

epiUiBitmapView::~epiUiBitmapView()
{
    delete surface_;
}

const uint32_t* epiUiBitmapView::allowedParentKinds() const
{
    static const uint32_t kinds[] = {epiCode("iCon"), epiCode("iBco"), epiCode("iSco"), epiCode("iWin"), 0};
    return kinds;
}

void epiUiBitmapView::makeSurface()
{
    const int32_t w = frame_.width(), h = frame_.height();
    if (surface_ != nullptr && surface_->width() == w && surface_->height() == h)
        return;
    delete surface_;
    surface_ = nullptr;
    drawing_.setTarget(nullptr);
    epiObject* made = newObject(epiCode("GrUi"), epiCode("iBmD"), 0);
    auto* dib = dynamic_cast<epiBitmapDib*>(made);
    if (dib == nullptr)
    {
        delete made;
        dib = new epiBitmapDib();
    }
    if (!dib->create(w, h))
    {
        delete dib;
        return;
    }
    surface_ = dib;
    drawing_.setTarget(surface_);
}

void epiUiBitmapView::notifyCreated()
{
    fonts_.setResources(resources());
    makeSurface();
    epiUbo::notifyCreated();
}

void epiUiBitmapView::setFrame(const epiRect& rect)
{
    const bool resized = rect.width() != frame_.width() || rect.height() != frame_.height();
    epiUbo::setFrame(rect);
    if (resized && surface_ != nullptr)
    {
        // The new bitmap starts blank: everything in it is painted again.
        makeSurface();
        invalidateAll();
    }
}

void epiUiBitmapView::stop()
{
    drawing_.setTarget(nullptr);
    delete surface_;
    surface_ = nullptr;
    fonts_.stop();
    epiUbo::stop();
}

void epiUiBitmapView::blitToParent(const epiRect& rect)
{
    if (parent_ == nullptr || surface_ == nullptr)
        return;
    epiRect area = rect;
    if (!area.intersect(bounds_))
        return;
    // The parent's own blit: this view's would land in its own bitmap.
    epiRect inParent;
    rectToParent(area, inParent);
    parent_->blitStretched(surface_, area, inParent, inParent);
}

void epiUiBitmapView::draw(const epiRect& rect)
{
    if (surface_ != nullptr)
        epiUbo::draw(rect);
    blitToParent(rect);
}

// ---------------------------------------------------------------------------------------------
// View container

void epiUiBitmapViewContainer::notifyCreated()
{
    lockCount_ = 0;
    dirty_ = false;
    firstDraw_ = true;
    epiUiBitmapView::notifyCreated();
    if (!childrenFile_.empty())
        loadLayout(childrenFile_);
}

void epiUiBitmapViewContainer::setAttribute(uint32_t code, const epiText* value)
{
    if (code != epiCode("chil"))
    {
        epiUiBitmapView::setAttribute(code, value);
        return;
    }
    childrenFile_ = value != nullptr ? *value : epiText();
    if (!needsLayout_)
    {
        removeAllChildren();
        loadLayout(childrenFile_);
        invalidateAll();
    }
}

bool epiUiBitmapViewContainer::getAttribute(uint32_t code, epiText& dest)
{
    if (code != epiCode("chil"))
        return epiUiBitmapView::getAttribute(code, dest);
    dest = childrenFile_;
    return !dest.empty();
}

const uint32_t* epiUiBitmapViewContainer::attributeCodes() const
{
    static const uint32_t codes[] = {epiCode("visi"), epiCode("enab"), epiCode("chil"), 0};
    return codes;
}

bool epiUiBitmapViewContainer::loadLayout(const epiText& name)
{
    return loadChildLayout(name);
}

void epiUiBitmapViewContainer::setBackground(epiColour colour)
{
    background_ = colour;
    invalidateAll();
}

void epiUiBitmapViewContainer::paintSurface(const epiRect& rect)
{
    if (surface_ == nullptr)
        return;
    epiRect area = rect;
    if (!area.intersect(bounds_))
        return;
    surface_->fillRectClipped(background_, &area, area);
    for (size_t i = 0; i < children_.size(); ++i)
        if (children_[i]->isVisible())
            children_[i]->drawClipped(area);
}

void epiUiBitmapViewContainer::draw(const epiRect& rect)
{
    if (lockCount_ > 0)
    {
        dirty_ = true;
        return;
    }
    if (firstDraw_)
    {
        firstDraw_ = false;
        paintSurface(bounds_);
    }
    blitToParent(rect);
}

void epiUiBitmapViewContainer::invalidate(const epiRect& rect)
{
    if (lockCount_ > 0)
    {
        dirtyRect_.unite(rect);
        dirty_ = true;
        return;
    }
    if (surface_ == nullptr)
    {
        epiUbo::invalidate(rect);
        return;
    }
    epiRect area = rect;
    if (!area.intersect(bounds_))
        return;
    paintSurface(area);
    // The window's next repaint of this area copies the fresh pixels: one blit.
    if (isVisible())
        epiUbo::invalidate(area);
}

void epiUiBitmapViewContainer::lockRedraw(bool lock)
{
    if (lock)
    {
        if (lockCount_ == 0)
        {
            dirty_ = false;
            dirtyRect_.clear();
        }
        ++lockCount_;
        return;
    }
    if (lockCount_ == 0)
        return;
    --lockCount_;
    if (lockCount_ == 0 && dirty_)
    {
        dirty_ = false;
        const epiRect area = dirtyRect_;
        dirtyRect_.clear();
        if (!area.isEmpty())
            invalidate(area);
        else
            invalidateAll();
    }
}

// ---------------------------------------------------------------------------------------------
// Decoration

bool epiUiDecorateHelper::read(uint32_t code, const epiText* value)
{
    const epiText text = value != nullptr ? *value : epiText();
    if (code == epiCode("fdim"))
        thickness_ = text.toInt();
    else if (code == epiCode("fdon"))
        thicknessOn_ = text.toInt();
    else if (code == epiCode("frof"))
        hasFrameOff_ = epiUiReadColour(text, frameOff_);
    else if (code == epiCode("fron"))
        hasFrameOn_ = epiUiReadColour(text, frameOn_);
    else if (code == epiCode("Fiof"))
        hasFillOff_ = epiUiReadColour(text, fillOff_);
    else if (code == epiCode("Fion"))
        hasFillOn_ = epiUiReadColour(text, fillOn_);
    else if (code == epiCode("frnd"))
        round_ = text.toInt() != 0;
    else if (code == epiCode("frsd"))
        shadow_ = text.toInt() != 0;
    else if (code == epiCode("fres"))
        etched_ = text.toInt() != 0;
    else if (code == epiCode("frov"))
        over_ = text.toInt() != 0;
    else
        return false;
    return true;
}

bool epiUiDecorateHelper::write(uint32_t code, epiText& dest) const
{
    if (code == epiCode("fdim"))
        dest.assignLong(thickness_);
    else if (code == epiCode("fdon"))
        dest.assignLong(thicknessOn_);
    else if (code == epiCode("frof") && hasFrameOff_)
        dest = epiUiColourText(frameOff_);
    else if (code == epiCode("fron") && hasFrameOn_)
        dest = epiUiColourText(frameOn_);
    else if (code == epiCode("frnd") || code == epiCode("frsd") || code == epiCode("fres") ||
             code == epiCode("frov"))
    {
        const bool flag = code == epiCode("frnd")   ? round_
                          : code == epiCode("frsd") ? shadow_
                          : code == epiCode("fres") ? etched_
                                                    : over_;
        dest.assignLong(flag ? 1 : 0);
    }
    else
        return false;
    return true;
}

void epiUiDecorateHelper::paintFill(epiUbo& widget, const epiRect& rect) const
{
    if (on ? hasFillOn_ : hasFillOff_)
        widget.fillRect(widget.boundsRect(), rect, on ? fillOn_ : fillOff_);
}

void epiUiDecorateHelper::paintFrame(epiUbo& widget, const epiRect& rect) const
{
    if (!(on ? hasFrameOn_ : hasFrameOff_))
        return;
    epiRect ring = widget.boundsRect();
    const int32_t thickness = on ? thicknessOn_ : thickness_;
    for (int32_t i = 0; i < thickness && !ring.isEmpty(); ++i)
    {
        widget.frameRectDraw(ring, rect, on ? frameOn_ : frameOff_);
        ring.inset(1);
    }
}

void epiUiDecorate::draw(const epiRect& rect)
{
    helper_.paintFill(*this, rect);
    epiUiContainer::draw(rect);
    helper_.paintFrame(*this, rect);
}

void epiUiDecorate::setAttribute(uint32_t code, const epiText* value)
{
    if (helper_.read(code, value))
        invalidateAll();
    else
        epiUiContainer::setAttribute(code, value);
}

bool epiUiDecorate::getAttribute(uint32_t code, epiText& dest)
{
    if (std::find(std::begin(kDecorateCodes), std::end(kDecorateCodes), code) != std::end(kDecorateCodes))
    {
        dest.clear();
        return helper_.write(code, dest);
    }
    return epiUiContainer::getAttribute(code, dest);
}

void epiUiDecorate::setValue(float value)
{
    const bool on = value != 0.0f;
    if (on == helper_.on)
        return;
    helper_.on = on;
    invalidateAll();
}
