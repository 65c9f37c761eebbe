// Reading a layout into a tree of objects, the attributes, and the flat writer.

#include "epi/ui/epiApplication.h"
#include "epi/ui/epiUbo.h"
#include "epi/ui/epiUiBehaviour.h"
#include "epi/ui/epiWindowManager.h"

#include <algorithm>
#include <string>
#include <vector>

namespace
{

constexpr uint32_t kNoName = 0x5F5F5F5F; // "____"

// The layouts being loaded through 'chil' right now, outermost first. A 'chil' that names one of
// them would load itself again without end: it loads nothing instead.
std::vector<std::string>& loadingLayouts()
{
    static std::vector<std::string> names;
    return names;
}

// Nested 'chil' loads past this depth are refused, whatever their names.
constexpr size_t kMaxChildLayoutDepth = 32;

bool readPair(const epiXmlChunk& element, int32_t& a, int32_t& b)
{
    const epiText text = element.text();
    a = text.field(0, ',').toInt();
    b = text.field(1, ',').toInt();
    return true;
}

} // namespace

uint32_t epiLayoutCode(const epiXmlChunk& element)
{
    const uint32_t code = element.text().code();
    return code == kNoName ? 0 : code;
}

// ---------------------------------------------------------------------------------------------
// Reading

void epiUbo::readProperties(const epiXmlChunk& chunk)
{
    epiXmlChunk element;
    if (chunk.findElementChars("text", &element, nullptr))
    {
        const epiText caption = element.text();
        setText(&caption);
    }

    epiXmlChunk position, size, relative;
    const bool hasP = chunk.findElementChars("position", &position, nullptr);
    const bool hasS = chunk.findElementChars("size", &size, nullptr);
    const bool hasR = !hasP && chunk.findElementChars("relativeposition", &relative, nullptr);
    if (hasP || hasS || hasR)
    {
        epiRect moved = frame_;
        if (hasP)
        {
            int32_t x = 0, y = 0;
            readPair(position, x, y);
            moved.moveTo(x, y);
        }
        else if (hasR)
        {
            // From the previous sibling's top left, or from the origin for a first child.
            int32_t x = 0, y = 0;
            readPair(relative, x, y);
            epiPoint base;
            if (parent_ != nullptr && childIndex_ > 0 && size_t(childIndex_) <= parent_->children_.size())
            {
                const epiRect& previous = parent_->children_[size_t(childIndex_) - 1]->frameRect();
                base = epiPoint(previous.left_, previous.top_);
            }
            moved.moveTo(base.x_ + x, base.y_ + y);
        }
        if (hasS)
        {
            int32_t w = 0, h = 0;
            readPair(size, w, h);
            moved.setSize(w, h);
        }
        setFrame(moved);
    }

    epiXmlChunkEnumerator attributes(chunk.child("attributes"));
    attributes.setName("attribute");
    epiXmlChunk attribute;
    while (attributes.next(&attribute, nullptr))
    {
        const uint32_t code = attribute.child("name").text().code();
        const epiText value = attribute.child("value").text();
        attributesRead_.emplace_back(code, value);
        setAttribute(code, &value);
    }
}

void epiUbo::readItems(const epiXmlChunk& chunk)
{
    epiXmlChunk size;
    if (chunk.findElementChars("size", &size, nullptr))
    {
        int32_t w = 0, h = 0;
        readPair(size, w, h);
        designRect_.set(0, 0, w, h);
    }
    epiXmlChunkEnumerator items(chunk.child("itemslist"));
    items.setName("item");
    epiXmlChunk item;
    while (items.next(&item, nullptr))
    {
        const uint32_t name = epiLayoutCode(item.child("name"));
        const uint32_t kind = item.child("kind").text().code();
        epiUbo* child = newChildObject(kind, name);
        if (child == nullptr)
            continue;
        child->startRefCount();
        child->setName(name);
        if (!addChild(child))
        {
            // Refused (wrong parent kind): given back rather than left unowned.
            if (owner_ != nullptr)
            {
                child->setOwner(owner_);
                child->release();
            }
            else
            {
                delete child;
            }
            continue;
        }
        child->readProperties(item);
        child->notifyCreated();
        child->layoutDone();
        afterItemRead();
    }
}

bool epiUbo::loadLayout(const epiText& name)
{
    if (name.empty())
        return false;
    epiText text;
    if (!readLayoutText(name, text))
        return false;
    const epiXmlChunk content = epiXmlChunk(text).child("epi").child("content");
    // Only the other file's items come: its root's properties stay with that file.
    readItems(content);
    return true;
}

void epiUbo::readAll(const epiXmlChunk& chunk)
{
    readProperties(chunk);
    notifyCreated();
    readItems(chunk);
    layoutDone();
}

bool epiUbo::loadLayoutNamed(const epiText& name)
{
    epiText text;
    if (!readLayoutText(name, text))
        return false;
    return loadLayoutText(text);
}

bool epiUbo::loadLayoutText(const epiText& text)
{
    const epiXmlChunk content = epiXmlChunk(text).child("epi").child("content");
    if (content.isEmpty())
        return false;
    name_ = epiLayoutCode(content.child("name"));
    readAll(content);
    return true;
}

// ---------------------------------------------------------------------------------------------
// Attributes

void epiUbo::setAttribute(uint32_t code, const epiText* value)
{
    if (code == epiCode("text"))
    {
        setText(value);
        return;
    }
    if (code == epiCode("titl"))
    {
        setTitleChars(value != nullptr ? value->cstr() : "");
        return;
    }
    if (behaviour_ != nullptr && behaviour_->behaviourAttribute(code, value))
        return;
    setAttributeInt(code, value != nullptr ? value->toInt() : 0);
}

void epiUbo::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("visi"))
        setVisible(value != 0, true);
    else if (code == epiCode("fagr"))
        groupId_ = value;
    else if (code == epiCode("fain"))
        groupIndex_ = value;
    else if (code == epiCode("exhm"))
        exclusiveHitMode_ = value != 0;
    else if (code == epiCode("mgTL") || code == epiCode("mgBR"))
    {
        const bool topLeft = code == epiCode("mgTL");
        int32_t& anchor = topLeft ? anchorTopLeft_ : anchorBottomRight_;
        epiPoint& offset = topLeft ? anchorTopLeftOffset_ : anchorBottomRightOffset_;
        if (value == 0)
        {
            anchor = -1;
        }
        else
        {
            anchor = value - 1;
            const epiRect area = parent_ != nullptr ? parent_->anchorRect() : epiRect();
            const epiPoint corner = area.corner(anchor);
            const epiPoint own =
                topLeft ? epiPoint(frame_.left_, frame_.top_) : epiPoint(frame_.right_, frame_.bottom_);
            offset = epiPoint(own.x_ - corner.x_, own.y_ - corner.y_);
        }
    }
    if (behaviour_ != nullptr)
        behaviour_->attributeInt(code, value);
}

bool epiUbo::getAttribute(uint32_t code, epiText& dest)
{
    dest.clear();
    if (code == epiCode("visi"))
    {
        dest.assignLong(visible_ ? 1 : 0);
        return true;
    }
    if (code == epiCode("fagr"))
    {
        dest.assignLong(groupId_);
        return true;
    }
    if (code == epiCode("fain"))
    {
        dest.assignLong(groupIndex_);
        return true;
    }
    return false;
}

const uint32_t* epiUbo::attributeCodes() const
{
    static const uint32_t codes[] = {epiCode("visi"), epiCode("enab"), 0};
    return codes;
}

void epiUbo::writeAttributes(epiText& dest)
{
    dest.appendChars("<attributes>");
    dest.appendNewline();
    epiText value;
    for (const uint32_t* code = attributeCodes(); code != nullptr && *code != 0; ++code)
    {
        if (!getAttribute(*code, value))
            continue;
        const epiText name = epiCodeText(*code);
        dest.formatAppend("<attribute><name>%t</name><value>%t</value></attribute>", &name, &value);
        dest.appendNewline();
    }
    dest.appendChars("</attributes>");
    dest.appendNewline();
}

void epiUbo::writeHead(epiText& dest)
{
    const epiText nameText = epiCodeText(name_);
    const epiText kindText = epiCodeText(kind());
    epiText position;
    position.formatAssign("%d,%d", frame_.left_, frame_.top_);
    epiText size;
    size.formatAssign("%d,%d", frame_.width(), frame_.height());
    dest.appendElement("name", &nameText, true);
    dest.appendElement("kind", &kindText, true);
    dest.appendElement("position", &position, true);
    dest.appendElement("size", &size, true);
    dest.appendElement("text", &text_, true);
}

void epiUbo::writeItems(epiText& dest)
{
    dest.appendChars("<itemslist>");
    dest.appendNewline();
    for (size_t i = 0; i < children_.size(); ++i)
    {
        dest.appendChars("<item>");
        dest.appendNewline();
        children_[i]->writeHead(dest);
        children_[i]->writeAttributes(dest);
        dest.appendChars("</item>");
        dest.appendNewline();
    }
    dest.appendChars("</itemslist>");
    dest.appendNewline();
}

void epiWriteLayoutFile(epiUbo& root, epiText& dest)
{
    dest.appendChars("<?xml version=\"1.0\"?>");
    dest.appendNewline();
    dest.appendChars("<epi>");
    dest.appendNewline();
    dest.appendChars("<version>4</version>");
    dest.appendNewline();
    dest.appendChars("<signature>layout</signature>");
    dest.appendNewline();
    dest.appendChars("<content>");
    dest.appendNewline();
    dest.appendChars("<version>1</version>");
    dest.appendNewline();
    root.writeHead(dest);
    root.writeAttributes(dest);
    root.writeItems(dest);
    dest.appendChars("</content>");
    dest.appendNewline();
    dest.appendChars("</epi>");
    dest.appendNewline();
}

// ---------------------------------------------------------------------------------------------
// Containers

const uint32_t* epiUiContainer::allowedParentKinds() const
{
    static const uint32_t kinds[] = {epiCode("iBde"), epiCode("iBco"), epiCode("iSco"),
                                     epiCode("iCon"), epiCode("iWin"), 0};
    return kinds;
}

void epiUiContainer::notifyCreated()
{
    created_ = true;
    notifyListeners(epiCode("uCrt"), 0);
    if (!childLayout_.empty())
        loadLayout(childLayout_);
}

void epiUiContainer::setAttribute(uint32_t code, const epiText* value)
{
    if (code != epiCode("chil"))
    {
        epiUbo::setAttribute(code, value);
        return;
    }
    childLayout_.assignText(value);
    if (value == nullptr)
        childLayout_.clear();
    if (!needsLayout_)
    {
        // A later change replaces what the previous file brought.
        removeAllChildren();
        loadLayout(childLayout_);
    }
}

bool epiUiContainer::getAttribute(uint32_t code, epiText& dest)
{
    if (code == epiCode("chil"))
    {
        dest = childLayout_;
        return !childLayout_.empty();
    }
    // Written only when it differs from the default, so that a disabled container stays so.
    if (code == epiCode("enab") && !enabled_)
    {
        dest.assignLong(0);
        return true;
    }
    return epiUbo::getAttribute(code, dest);
}

void epiUiContainer::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("enab"))
        enabled_ = value != 0;
    else
        epiUbo::setAttributeInt(code, value);
}

bool epiUiContainer::holdsPoint(const epiPoint& point)
{
    if (frame_.containsPoint(point))
        return true;
    epiPoint local;
    pointFromParent(point, local);
    return std::any_of(children_.begin(), children_.end(),
                       [&](epiUbo* child)
                       { return child->isHittable() && child->isVisible() && child->holdsPoint(local); });
}

void epiUiContainer::mouseDown(const epiPoint& point)
{
    if (enabled_)
        epiUbo::mouseDown(point);
}

void epiUiContainer::mouseUp(const epiPoint& point)
{
    if (enabled_)
        epiUbo::mouseUp(point);
}

void epiUiContainer::mouseWheel(const epiPoint& point, int32_t delta)
{
    if (enabled_)
        epiUbo::mouseWheel(point, delta);
}

const uint32_t* epiUiContainer::attributeCodes() const
{
    static const uint32_t codes[] = {epiCode("visi"), epiCode("enab"), epiCode("chil"), 0};
    return codes;
}

bool epiUbo::loadChildLayout(const epiText& name)
{
    if (name.empty())
        return false;
    std::vector<std::string>& loading = loadingLayouts();
    if (loading.size() >= kMaxChildLayoutDepth ||
        std::find(loading.begin(), loading.end(), std::string(name)) != loading.end())
        return false;
    loading.push_back(name);
    const bool loaded = epiUbo::loadLayout(name);
    loading.pop_back();
    return loaded;
}

bool epiUiContainer::loadLayout(const epiText& name)
{
    return loadChildLayout(name);
}

// ---------------------------------------------------------------------------------------------
// Scrollable container: its own coordinates are those of the content.

void epiUiScrollableContainer::scrollTo(int32_t x, int32_t y)
{
    if (scroll_ == epiPoint(x, y))
        return;
    scroll_ = epiPoint(x, y);
    invalidateAll();
}

void epiUiScrollableContainer::rectToParent(const epiRect& in, epiRect& out)
{
    out = in;
    out.offset(frame_.left_ - scroll_.x_, frame_.top_ - scroll_.y_);
}

void epiUiScrollableContainer::rectFromParent(const epiRect& in, epiRect& out)
{
    out = in;
    out.offset(scroll_.x_ - frame_.left_, scroll_.y_ - frame_.top_);
}

void epiUiScrollableContainer::pointToParent(const epiPoint& in, epiPoint& out)
{
    out = epiPoint(in.x_ + frame_.left_ - scroll_.x_, in.y_ + frame_.top_ - scroll_.y_);
}

void epiUiScrollableContainer::pointFromParent(const epiPoint& in, epiPoint& out)
{
    out = epiPoint(in.x_ - frame_.left_ + scroll_.x_, in.y_ - frame_.top_ + scroll_.y_);
}

epiRect epiUiScrollableContainer::visibleContent() const
{
    epiRect visible = bounds_;
    visible.offset(scroll_.x_, scroll_.y_);
    return visible;
}

void epiUiScrollableContainer::clipToVisible(epiRect& rect)
{
    if (!rect.intersect(visibleContent()) || parent_ == nullptr)
        return;
    epiRect inParent;
    rectToParent(rect, inParent);
    parent_->clipToVisible(inParent);
    rectFromParent(inParent, rect);
}

void epiUiScrollableContainer::invalidateAll()
{
    invalidate(visibleContent());
}

void epiUiScrollableContainer::drawAll()
{
    draw(visibleContent());
}

// ---------------------------------------------------------------------------------------------
// Window, neutral part

void epiUiWindowBase::notifyCreated()
{
    // Only a top-level window joins the manager: one that a layout placed inside another object
    // stays where it is.
    if (!inManager_ && parent_ == nullptr)
    {
        if (epiWindowManager* manager = windowManager())
        {
            if (autoPosition_)
            {
                epiRect placed = frame_;
                manager->cascadeRect(placed);
                setFrame(placed);
            }
            inManager_ = manager->addWindow(this);
        }
    }
    epiUiContainer::notifyCreated();
}

void epiUiWindowBase::notifyDestroyed()
{
    if (closed_)
        return;
    closed_ = true;
    retain();
    onClosing();
    epiUbo::notifyDestroyed();
    if (inManager_)
    {
        inManager_ = false;
        if (epiWindowManager* manager = windowManager())
            manager->removeWindow(this);
    }
    // A closed window leaves through the stop path, which releases the reference that opened it.
    stop();
    release();
}

void epiUiWindowBase::invalidate(const epiRect& rect)
{
    epiRect area = rect;
    if (!area.intersect(bounds_))
        return;
    requestRepaint(area);
}

void epiUiWindowBase::requestRepaint(const epiRect& rect)
{
    dirty_.unite(rect);
}

epiRect epiUiWindowBase::takeDirty()
{
    const epiRect area = dirty_;
    dirty_.clear();
    return area;
}

void epiUiWindowBase::clipToVisible(epiRect& rect)
{
    rect.intersect(bounds_);
}

void epiUiWindowBase::setAttributeInt(uint32_t code, int32_t value)
{
    if (code == epiCode("Modl"))
        modal_ = value != 0;
    else if (code == epiCode("aupo"))
        autoPosition_ = value != 0;
    epiUiContainer::setAttributeInt(code, value);
}
