#pragma once

#include "epi/epiObject.h"
#include "epi/epiRect.h"
#include "epi/epiText.h"
#include "epi/epiXmlChunk.h"

#include <cstdarg>
#include <cstdint>
#include <list>
#include <utility>
#include <vector>

class epiApplication;
class epiResources;
class epiUbo;
class epiUiBehaviour;
class epiWindowManager;
class epiBitmap;

/** A colour: red, green, blue and alpha bytes. */
struct epiColour
{
    uint8_t r = 0;
    uint8_t g = 0;
    uint8_t b = 0;
    uint8_t a = 255;
    bool operator==(const epiColour&) const = default;
};

/** A shape request of drawShape(): 'ovaP', 'ovaF', 'recP' or 'ntxt'. */
struct epiShapeRequest
{
    uint32_t kind = 0;
    epiRect rect;
    epiRect clip;
    epiColour colour;
    int32_t thickness = 1;
    epiText text;
    epiText fontName;
    uint32_t flags = 0;
};

/**
 * What a window (or an off-screen view) draws on. The tree's drawing calls arrive here in the
 * window's own coordinates, each with the clip rectangle of the paint in progress.
 */
class epiUiSurface
{
public:
    virtual ~epiUiSurface() = default;
    virtual void fillRect(const epiRect& rect, const epiRect& clip, epiColour colour) = 0;
    virtual void frameRect(const epiRect& rect, const epiRect& clip, epiColour colour) = 0;
    virtual void drawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour) = 0;
    virtual void drawText(uint32_t fontName, int32_t alignment, const epiRect& rect, const epiRect& clip,
                          const epiText& text, epiColour colour) = 0;
    virtual int32_t textWidth(uint32_t fontName, const epiText& text) = 0;
    virtual void drawSystemText(const epiRect& rect, const epiRect& clip, const epiText& text,
                                int32_t pointSize, bool bold, int32_t alignment, epiColour colour) = 0;
    virtual void blitStretched(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                               const epiRect& clip) = 0;
    virtual void blitAlpha(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                           const epiRect& clip) = 0;
    virtual void drawShape(const epiShapeRequest& request) = 0;
};

/** An object that wants an animation tick from the window manager. */
class epiUiTimered : public epiApplicationObject
{
public:
    /** Enters the animation list; `restart` resets the start time and tick count when already there. */
    virtual void startAnimation(bool restart);
    virtual void restartAnimation();
    virtual void stopAnimation();
    /** Empty hook of animate(). */
    virtual void onAnimate() {}
    /** Each manager tick: seconds since the animation's start and a count from 1. Calls onAnimate(). */
    virtual void animate(double elapsed, int32_t tick);

    /** The window manager of the application above this object; null when none. */
    epiWindowManager* managerOfApplication() const;
};

/**
 * The interface's base object: a rectangle in a tree, with a name by which the host finds it, an
 * optional behaviour, mouse routing, drawing towards the window's surface and the layout reader.
 */
class epiUbo : public epiUiTimered
{
public:
    epiUbo();
    ~epiUbo() override;

    uint32_t kind() const override { return epiCode("ubob"); }
    /** Makes the behaviour (see newBehaviour()). */
    bool start() override;
    /** Takes the object out of its tree, stops its children, behaviour and null child, and releases it. */
    void stop() override;

    // 1. animation (epiUiTimered)
    // 2. state
    virtual bool setVisible(bool visible, bool redraw);
    virtual void setChildIndex(int32_t index) { childIndex_ = index; }
    virtual void notifyCreated();
    virtual void notifyDestroyed();
    /** Clears needsLayout here and on every visible child. */
    virtual void layoutDone();
    // 3. geometry
    virtual void setFrame(const epiRect& rect);
    virtual void moveTo(const epiPoint& point);
    virtual void moveToXY(int32_t x, int32_t y);
    virtual void invalidate(const epiRect& rect);
    virtual void invalidateAll();
    // 4. tree
    virtual bool vetoChild() { return false; }
    virtual bool addChild(epiUbo* child);
    virtual bool removeChild(epiUbo* child);
    virtual bool removeChildNamed(uint32_t name);
    virtual void removeAllChildren();
    // 5. behaviour forwarding and drawing
    virtual bool canDraw() { return true; }
    virtual void draw(const epiRect& rect);
    virtual void drawAll();
    virtual void onFrameChanged();
    // 6. hits
    virtual void onChildHit(int32_t index);
    virtual void hit();
    virtual void onCommand(uint32_t code);
    virtual int32_t hitChildIndex() { return hitChild_; }
    virtual epiUbo* hitChildObject();
    // 7. mouse in local coordinates
    virtual void mouseMoved(const epiPoint& point);
    virtual void mouseDragged(const epiPoint& point);
    virtual void mouseUp(const epiPoint& point);
    virtual void mouseDown(const epiPoint& point);
    virtual bool dropTarget(const epiPoint& point);
    virtual void mouseWheel(const epiPoint& point, int32_t delta);
    virtual void broadcastMove(const epiPoint& point);
    virtual void broadcastDrag(const epiPoint& point);
    virtual void broadcastUp(const epiPoint& point);
    virtual void broadcastDown(const epiPoint& point);
    // 8. capture
    virtual void setCapture(epiUbo* child);
    virtual void grabCapture();
    virtual void releaseCapture();
    virtual epiUbo* capture() { return captureChild_; }
    virtual bool isCapture(epiUbo* child) { return child != nullptr && captureChild_ == child; }
    // 9. keyboard
    virtual void keyDownEvent(int32_t key);
    virtual void keyRepeatEvent(int32_t key);
    virtual void keyUpEvent(int32_t key);
    virtual void keyDown(int32_t key);
    virtual void keyRepeat(int32_t key);
    virtual void keyUp(int32_t key);
    virtual void pushFocus(epiUbo* object);
    virtual void takeFocus();
    virtual void popFocus();
    virtual void dropFocus();
    virtual void switchFocus(epiUbo* object);
    virtual epiUbo* focusObject();
    virtual bool acceptsClose() { return true; }
    virtual void onTextChanged() {}
    virtual void onVisibilityChanged() {}
    // 10. text
    virtual void redrawRequest() { invalidateAll(); }
    virtual void setText(const epiText* text);
    virtual void setTextChars(const char* chars);
    /** A plain object has no title apart from its caption: the title becomes the text. */
    virtual void setTitleChars(const char* chars) { setTextChars(chars); }
    virtual void getText(epiText& dest) { dest = text_; }
    virtual const char* textChars() { return text_.cstr(); }
    // 11. value through the behaviour
    virtual void setValue(float value);
    virtual float getValue();
    virtual void setState(int32_t a, int32_t b);
    virtual int32_t getState();
    // 12. radio groups
    virtual void setGroup(int32_t groupId, int32_t groupIndex);
    virtual void selectInGroup(int32_t groupId, int32_t index, float value, bool notify);
    virtual bool isHittable() { return true; }
    /** Whether a click at `point` of the parent's coordinates lands here: within the frame. */
    virtual bool holdsPoint(const epiPoint& point) { return frame_.containsPoint(point); }
    virtual int32_t selectedInGroupOf(uint32_t name);
    virtual void selectInGroupOf(uint32_t name, float value, bool notify, int32_t flag);
    // 13. creation
    virtual void revealRect(const epiRect& rect);
    virtual epiUbo* createVisibleChild(uint32_t kind, uint32_t name);
    virtual epiUbo* createChild(bool show, uint32_t kind, uint32_t name, int32_t left, int32_t top,
                                int32_t right, int32_t bottom, const char* text);
    virtual bool addAndShow(epiUbo* child);
    virtual bool attachTo(epiUbo* newParent);
    // 14. layout reading
    virtual void readProperties(const epiXmlChunk& chunk);
    virtual void readItems(const epiXmlChunk& chunk);
    /** Makes the items of the layout `name` this object's children. @return false when it can't be read */
    virtual bool loadLayout(const epiText& name);
    /**
     * loadLayout for a 'chil' attribute: a layout already being loaded through 'chil' further out, or
     * one nested too deep, loads nothing, so that layouts naming each other can't recurse for ever.
     */
    bool loadChildLayout(const epiText& name);
    virtual void readAll(const epiXmlChunk& chunk);
    virtual bool loadLayoutNamed(const epiText& name);
    virtual bool loadLayoutText(const epiText& text);
    // 15. attributes
    virtual void setAttributeInt(uint32_t code, int32_t value);
    virtual void setAttribute(uint32_t code, const epiText* value);
    /** @return false, with `dest` cleared, for a code this class doesn't save */
    virtual bool getAttribute(uint32_t code, epiText& dest);
    virtual void afterItemRead() {}
    /** The zero-ended codes that the writer saves. */
    virtual const uint32_t* attributeCodes() const;
    virtual void writeAttributes(epiText& dest);
    virtual void writeHead(epiText& dest);
    virtual void writeItems(epiText& dest);
    // 16.
    virtual bool queryPair(int32_t& a, int32_t& b);
    // 17. behaviour
    virtual epiUiBehaviour* newBehaviour() { return nullptr; }
    virtual epiUiBehaviour* behaviourObject() { return behaviour_; }
    /** Offers the click to the behaviour, else hit(). */
    virtual void click();
    virtual void behaviourClick();
    // 18. geometry queries
    virtual epiRect frameRect() const { return frame_; }
    virtual epiRect boundsRect() const { return bounds_; }
    virtual int32_t width() const { return frame_.width(); }
    virtual int32_t height() const { return frame_.height(); }
    virtual epiPoint sizePoint() const { return frame_.size(); }
    virtual epiPoint positionPoint() const { return epiPoint(frame_.left_, frame_.top_); }
    virtual void setSizeKeepingPosition(const epiPoint& size);
    /** Gives the object `size` around the centre of its present frame. */
    virtual void setSizeFromFrame(const epiPoint& size);
    virtual void toLocal(const epiPoint& point, epiPoint& out);
    virtual int32_t childCount() const { return int32_t(children_.size()); }
    virtual int32_t childIndex() const { return childIndex_; }
    virtual bool acceptsParentKind(uint32_t kind);
    /** Kinds of parent that may hold this object, zero-ended; null (the default) allows any. */
    virtual const uint32_t* allowedParentKinds() const { return nullptr; }
    // 19. drawing primitives: local coordinates in, the window's surface at the end
    virtual void fillRect(const epiRect& rect, const epiRect& clip, epiColour colour);
    virtual void frameRectDraw(const epiRect& rect, const epiRect& clip, epiColour colour);
    virtual void drawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2, epiColour colour);
    virtual void drawText(uint32_t fontName, int32_t alignment, const epiRect& rect, const epiRect& clip,
                          const epiText& text, epiColour colour);
    virtual int32_t textWidth(uint32_t fontName, const epiText& text);
    virtual void drawSystemText(const epiRect& rect, const epiRect& clip, const epiText& text,
                                int32_t pointSize, bool bold, int32_t alignment, epiColour colour);
    virtual void blitStretched(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                               const epiRect& clip);
    virtual void blitAlpha(epiBitmap* bitmap, const epiRect& source, const epiRect& dest,
                           const epiRect& clip);
    /** The whole bitmap, stretched to `dest`; a null bitmap draws nothing. */
    virtual void blitBitmap(epiBitmap* bitmap, const epiRect& dest, const epiRect& clip, bool alpha);
    /** The part `source` of the bitmap (a film strip's frame), blended when the bitmap uses alpha. */
    virtual void blitPart(epiBitmap* bitmap, const epiRect& source, const epiRect& dest, const epiRect& clip);
    /** An empty `rect` at the origin of the request means this object's bounds. */
    virtual void drawShape(const epiShapeRequest& request);
    virtual void fillEllipse(const epiRect& rect, const epiRect& clip, epiColour colour);
    virtual void frameEllipse(const epiRect& rect, const epiRect& clip, epiColour colour, int32_t thickness);
    /** The surface that ends the drawing road here; null for all but windows and views. */
    virtual epiUiSurface* ownSurface() { return nullptr; }
    /**
     * The surface at the end of the drawing road from here, with `rect` and `clip` carried into its
     * coordinates; null when the road ends at an object without a parent, and the call is dropped.
     */
    epiUiSurface* drawingSurface(epiRect& rect, epiRect& clip);
    // 20. misc
    virtual epiUbo* rootForward();
    virtual intptr_t queryFlag(intptr_t a) { return query(a, 0, 0); }
    virtual intptr_t broadcastQuery(intptr_t a, intptr_t b, intptr_t c);
    virtual bool hasPressedImage() { return false; }
    virtual bool isVisible() { return visible_; }
    virtual void drawClipped(const epiRect& rect);
    // 21. mouse in parent coordinates, each passed on in local ones
    virtual void mouseUpAt(const epiPoint& point);
    virtual void mouseDownAt(const epiPoint& point);
    virtual void mouseMoveAt(const epiPoint& point);
    virtual void mouseDragAt(const epiPoint& point);
    virtual void broadcastDownAt(const epiPoint& point);
    virtual void broadcastUpAt(const epiPoint& point);
    virtual void broadcastMoveAt(const epiPoint& point);
    virtual void broadcastDragAt(const epiPoint& point);
    virtual void mouseWheelAt(const epiPoint& point, int32_t delta);
    // 22. services
    virtual epiUbo* nativeView(epiRect& rect);
    virtual epiWindowManager* windowManager();
    virtual epiApplicationObject* keyboard();
    /** The parent's resources first, so that a subtree may see another resource object. */
    virtual epiResources* resources();
    virtual epiApplicationObject* menu();
    /** Reads the layout `name`'s text: through resources(), else the application's layout seam. */
    virtual bool readLayoutText(const epiText& name, epiText& dest);
    // 23. children by name: each finds the child (the null child when there is none) and acts on it
    /** Sends `code` and `data` to the named child's onEvent() at once, with this object as sender. */
    virtual void childEventA(uint32_t name, uint32_t code, intptr_t data);
    /** The named child's answer to query(a, b, c); 0 from the null child. */
    virtual intptr_t childEventB(uint32_t name, intptr_t a, intptr_t b, intptr_t c);
    /** Posts query(a, b, c) to the named child, to run later on the interface thread. */
    virtual void childEventC(uint32_t name, intptr_t a, intptr_t b, intptr_t c);
    // 24. anchors
    virtual void setAnchors(int32_t topLeft, int32_t bottomRight);
    virtual void relayout();
    virtual void beforeChildrenRelayout() {}
    virtual void afterChildrenRelayout() {}
    // 25. clipping and coordinates
    virtual void clipToVisible(epiRect& rect);
    virtual void lockRedraw(bool lock);
    virtual void fitChild(uint32_t name, float ratio);
    virtual void rectToAncestor(epiRect& rect, epiUbo* ancestor);
    virtual void rectUpLevels(epiRect& rect, int32_t levels);
    virtual void pointToAncestor(epiPoint& point, epiUbo* ancestor);
    virtual void pointUpLevels(epiPoint& point, int32_t levels);
    virtual epiUbo* findAncestorKind(uint32_t kind);
    virtual epiUbo* findAncestorName(uint32_t name);
    virtual epiRect anchorRect() const;
    // 26. creation by code and conversions
    virtual epiUbo* newChildObject(uint32_t kind, uint32_t name);
    virtual int32_t defaultRate() { return 50; }
    virtual void pointToParent(const epiPoint& in, epiPoint& out);
    virtual void rectToParent(const epiRect& in, epiRect& out);
    virtual void pointFromParent(const epiPoint& in, epiPoint& out);
    virtual void rectFromParent(const epiRect& in, epiRect& out);
    virtual void removeAllChildrenHook() { removeAllChildren(); }

    // --- non-virtual helpers used everywhere ---
    /** The first child named `name`, or the null child. Never null. */
    epiUbo* childNamed(uint32_t name);
    epiUbo* childNamedIn(uint32_t a, uint32_t b, uint32_t c = 0);
    /** `point` of the parent's coordinates in this object's own. */
    epiPoint localPoint(const epiPoint& point);
    /** The child at `index`, or the null child when outside. Never null. */
    epiUbo* childAt(int32_t index);
    void setChildText(uint32_t name, const epiText* text);
    void setChildTextChars(uint32_t name, const char* chars);
    /** printf-style text for the named child, at most 999 bytes. */
    void setChildTextf(uint32_t name, const char* format, ...) __attribute__((format(printf, 3, 4)));
    float childValue(uint32_t name);
    void setChildValue(uint32_t name, float value);
    void showChild(uint32_t name, bool visible);
    void clickChild(uint32_t name);
    uint32_t name() const { return name_; }
    void setName(uint32_t code) { name_ = code; }
    void setFrameLTRB(int32_t l, int32_t t, int32_t r, int32_t b);
    void setFrameXYWH(int32_t x, int32_t y, int32_t w, int32_t h);
    void setPosition(int32_t x, int32_t y);
    void setSize(int32_t w, int32_t h);
    /** printf-style caption: the format's length plus 1000 bytes at most; then onTextChanged(). */
    void formatText(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void incBroadcast();
    void decBroadcast();

    epiUbo* parent() const { return parent_; }
    const std::vector<epiUbo*>& children() const { return children_; }
    const epiText& text() const { return text_; }
    const epiRect& frame() const { return frame_; }
    const epiRect& bounds() const { return bounds_; }
    const epiRect& designRect() const { return designRect_; }
    void setDesignRect(const epiRect& rect) { designRect_ = rect; }
    bool needsLayout() const { return needsLayout_; }
    bool exclusiveHitMode() const { return exclusiveHitMode_; }
    int32_t groupId() const { return groupId_; }
    int32_t groupIndex() const { return groupIndex_; }
    epiUbo* nullChildIfMade() const { return nullChild_; }
    int32_t broadcastCount() const { return broadcastCount_; }
    /** The attributes that the layout gave this object, in file order, as text. */
    const std::vector<std::pair<uint32_t, epiText>>& attributesRead() const { return attributesRead_; }

protected:
    epiUbo* nullChildObject();

    epiUbo* parent_ = nullptr;
    epiUiBehaviour* behaviour_ = nullptr;
    int32_t childIndex_ = 0;
    bool visible_ = true;
    epiRect frame_;
    epiRect bounds_;
    epiRect designRect_;
    int32_t groupId_ = 0;
    int32_t groupIndex_ = 0;
    uint32_t name_ = 0;
    epiText text_;
    epiUbo* nullChild_ = nullptr;
    int32_t hitChild_ = -1;
    bool needsLayout_ = true;
    bool notOnScreen_ = false;
    int32_t anchorTopLeft_ = -1;
    epiPoint anchorTopLeftOffset_;
    int32_t anchorBottomRight_ = -1;
    epiPoint anchorBottomRightOffset_;
    std::vector<epiUbo*> children_;
    epiUbo* captureChild_ = nullptr;
    int32_t broadcastCount_ = 0;
    bool exclusiveHitMode_ = false;
    std::list<epiUbo*> keyFocus_;
    bool stopped_ = false;
    std::vector<std::pair<uint32_t, epiText>> attributesRead_;
};

/**
 * A container: accepts children, and loads the items of another layout (attribute 'chil') as its
 * own children once it has been created, or at once when the attribute changes later.
 */
class epiUiContainer : public epiUbo
{
public:
    uint32_t kind() const override { return epiCode("iCon"); }
    bool vetoChild() override { return true; }
    const uint32_t* allowedParentKinds() const override;
    /** Marks the container created, sends 'uCrt' and loads the 'chil' layout. */
    void notifyCreated() override;
    void setAttribute(uint32_t code, const epiText* value) override;
    bool getAttribute(uint32_t code, epiText& dest) override;
    const uint32_t* attributeCodes() const override;
    bool loadLayout(const epiText& name) override;
    /** 'enab' 0 disables the container. */
    void setAttributeInt(uint32_t code, int32_t value) override;
    // A disabled container swallows the pointer: neither it nor its children take a press, release or
    // wheel, and nothing under it gets them either.
    void mouseDown(const epiPoint& point) override;
    void mouseUp(const epiPoint& point) override;
    void mouseWheel(const epiPoint& point, int32_t delta) override;
    /** Its frame, and wherever a visible child's frame reaches past it (a popup's close area). */
    bool holdsPoint(const epiPoint& point) override;

    const epiText& childLayout() const { return childLayout_; }
    bool isEnabled() const { return enabled_; }
    void setEnabled(bool enabled) { enabled_ = enabled; }

protected:
    epiText childLayout_;
    bool created_ = false;
    bool enabled_ = true;
};

/** A container whose content may be larger than itself and scrolled. */
class epiUiScrollableContainer : public epiUiContainer
{
public:
    uint32_t kind() const override { return epiCode("iCos"); }
    /** Moves the content so that (x, y) of it shows at the top left. */
    virtual void scrollTo(int32_t x, int32_t y);
    epiPoint scrollPosition() const { return scroll_; }
    void rectToParent(const epiRect& in, epiRect& out) override;
    void rectFromParent(const epiRect& in, epiRect& out) override;
    void pointToParent(const epiPoint& in, epiPoint& out) override;
    void pointFromParent(const epiPoint& in, epiPoint& out) override;
    /** What shows is the part of the content at the scroll position. */
    void clipToVisible(epiRect& rect) override;
    void invalidateAll() override;
    void drawAll() override;
    /** The content's rectangle that shows now. */
    epiRect visibleContent() const;

private:
    epiPoint scroll_;
};

/**
 * The neutral part of a top-level window: it joins the window manager when created, leaves it
 * when closed, and ends the drawing road at the surface the platform gives it. The platform's
 * window derives from it; without a platform it serves layouts and tests as it stands.
 */
class epiUiWindowBase : public epiUiContainer
{
public:
    uint32_t kind() const override { return epiCode("iWin"); }
    const uint32_t* allowedParentKinds() const override { return nullptr; }
    /** Joins the window manager, then the container's creation. */
    void notifyCreated() override;
    /** Leaves the window manager and sends 'uDsr' once. */
    void notifyDestroyed() override;
    /** The root of a window turns an invalidation into a repaint request of the platform. */
    void invalidate(const epiRect& rect) override;
    void setAttributeInt(uint32_t code, int32_t value) override;
    epiUiSurface* ownSurface() override { return surface_; }
    /** Drawing and invalidation stop at the window: it is the root of its own coordinates. */
    void clipToVisible(epiRect& rect) override;

    virtual void onActivate() {}
    virtual void onDeactivate() {}
    virtual void onClosing() {}
    /** Asks the platform for a repaint of `rect`; the neutral window collects the area. */
    virtual void requestRepaint(const epiRect& rect);
    virtual bool isModal() const { return modal_; }

    void setSurface(epiUiSurface* surface) { surface_ = surface; }
    /** The area asked for repaint since the last takeDirty(). */
    epiRect takeDirty();
    bool isClosed() const { return closed_; }

protected:
    epiUiSurface* surface_ = nullptr;
    epiRect dirty_;
    bool modal_ = false;
    bool autoPosition_ = false;
    bool inManager_ = false;
    bool closed_ = false;
};

/** The neutral classes of the factory for family 'GrUi': containers, windows, and a plain epiUbo for the
 * rest. */
epiUbo* epiUiNewNeutral(uint32_t kind);

/** The four characters of `code` for output, a zero byte as '_'. */
epiText epiCodeText(uint32_t code);

/** A name or kind as a layout reads it: the trimmed text's first four bytes, "____" being no name. */
uint32_t epiLayoutCode(const epiXmlChunk& element);

/**
 * A whole layout file for `root`: the header, the root's head and attributes, and its children
 * written flat (see writeItems()).
 */
void epiWriteLayoutFile(epiUbo& root, epiText& dest);
