#include "epi/epiObject.h"
#include "epi/epiRect.h"

#include <gtest/gtest.h>

namespace
{

// Counts dispose() calls instead of deleting, so that the count rules can be watched.
class Watched : public epiObject
{
public:
    void dispose() override { ++disposed; }
    int disposed = 0;
};

class Subscriber : public epiApplicationObject
{
public:
    void onEvent(uint32_t, epiApplicationObject* sender, intptr_t data) override
    {
        ++events;
        lastSender = sender;
        lastData = data;
        countDuringEvent = refCount();
    }
    int events = 0;
    epiApplicationObject* lastSender = nullptr;
    intptr_t lastData = 0;
    int32_t countDuringEvent = 0;
};

} // namespace

TEST(ObjectCount, RetainAndReleaseCountOnlyCountedObjectsAndDisposeOnce)
{
    Watched o;
    o.retain();
    EXPECT_EQ(o.release(), epiObject::kNotCounted);
    EXPECT_EQ(o.disposed, 0);
    o.startRefCount();
    o.startRefCount(); // a second start doesn't add
    o.retain();
    o.release();
    EXPECT_EQ(o.disposed, 0);
    EXPECT_EQ(o.release(), 0);
    EXPECT_EQ(o.release(), -1); // a further release must not dispose a second time
    EXPECT_EQ(o.disposed, 1);
}

TEST(Listeners, ListenersAreToldByCodeAndHeldWhileTold)
{
    epiApplicationObject button;
    Subscriber panel;
    Subscriber other;
    panel.startRefCount();
    button.subscribe(epiCode("iHit"), &panel, 7);
    button.subscribe(epiCode("boCh"), &other, 0);
    EXPECT_EQ(button.notifyListeners(epiCode("iHit"), 42), 1);
    EXPECT_EQ(panel.events, 1);
    EXPECT_EQ(panel.lastSender, &button);
    EXPECT_EQ(panel.lastData, 42);
    EXPECT_EQ(panel.countDuringEvent, 2);
    EXPECT_EQ(panel.refCount(), 1);
    EXPECT_EQ(other.events, 0);
    EXPECT_EQ(button.notifyListeners(0, 0), 0); // 0 marks a free slot, never a code
}

TEST(Listeners, UnsubscribeFreesSlotsAndDropsAnEmptyList)
{
    epiApplicationObject button;
    Subscriber a, b, c;
    button.subscribe(epiCode("iHit"), &a, 1);
    button.subscribe(epiCode("iHit"), &b, 2);
    button.unsubscribe(epiCode("iHit"), &a);
    EXPECT_EQ(button.notifyListeners(epiCode("iHit"), 0), 1);
    EXPECT_EQ(a.events, 0);
    // The freed slot is the one that the next subscription takes.
    button.subscribe(epiCode("kedo"), &c, 3);
    ASSERT_NE(button.listeners(), nullptr);
    EXPECT_EQ(button.listeners()->size(), 2u);
    // Unsubscribing what isn't there changes nothing.
    button.unsubscribe(epiCode("iHit"), &c);
    EXPECT_EQ(button.notifyListeners(epiCode("kedo"), 0), 1);
    button.unsubscribe(epiCode("kedo"), &c);
    button.unsubscribe(epiCode("iHit"), &b);
    EXPECT_EQ(button.listeners(), nullptr);
}

// Geometry.

TEST(Rect, TouchingEdgesDoNotIntersectButPointsOnAnySideAreInside)
{
    const epiRect a(0, 0, 10, 10);
    EXPECT_FALSE(a.intersects(epiRect(10, 0, 20, 10)));
    EXPECT_FALSE(a.intersects(epiRect(0, 10, 10, 20)));
    EXPECT_TRUE(a.intersects(epiRect(9, 9, 20, 20)));
    EXPECT_FALSE(a.intersects(epiRect(5, 5, 1, 1)));
    EXPECT_TRUE(a.containsPoint(epiPoint(10, 10)));
    EXPECT_FALSE(a.containsPoint(epiPoint(5, -1)));
    EXPECT_TRUE(a.containsRect(epiRect(0, 0, 10, 10)));
    EXPECT_FALSE(a.containsRect(epiRect(1, 1, 11, 5)));
    epiRect b = a;
    EXPECT_TRUE(b.intersect(epiRect(5, -5, 15, 5)));
    EXPECT_TRUE(b.equals(5, 0, 10, 5));
    EXPECT_FALSE(b.intersect(epiRect(50, 50, 60, 60)));
    EXPECT_TRUE(b.equals(0, 0, 0, 0));
    // Uniting with an empty rectangle changes nothing, either way round.
    b.unite(epiRect(5, 5, 10, 10));
    EXPECT_TRUE(b.equals(5, 5, 10, 10));
    b.unite(epiRect(0, 8, 6, 20));
    EXPECT_TRUE(b.equals(0, 5, 10, 20));
    b.unite(epiRect());
    EXPECT_TRUE(b.equals(0, 5, 10, 20));
}

TEST(Rect, ClipPairKeepsSourceAndDestAligned)
{
    const epiRect clip(0, 0, 100, 100);
    epiRect source(0, 0, 50, 40);
    epiRect dest(-10, 80, 40, 120);
    EXPECT_TRUE(clip.clipPair(source, dest));
    EXPECT_TRUE(dest.equals(0, 80, 40, 100));
    EXPECT_TRUE(source.equals(10, 0, 50, 20));

    epiRect srcOut, dstOut;
    const epiRect srcIn(0, 0, 30, 30);
    const epiRect dstIn(90, 90, 120, 120);
    EXPECT_TRUE(clip.clipPair(srcIn, dstIn, srcOut, dstOut));
    EXPECT_TRUE(dstOut.equals(90, 90, 100, 100));
    EXPECT_TRUE(srcOut.equals(0, 0, 10, 10));

    epiRect outside(0, 0, 10, 10);
    epiRect far(200, 200, 210, 210);
    EXPECT_FALSE(clip.clipPair(outside, far));
}
