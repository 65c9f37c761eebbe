// Layouts read into trees through the real loader and factory.

#include "tests/epi/ui/UiTestSupport.h"

#include <tuple>

namespace
{

using Layouts = UiFixture;

struct GeometryCase
{
    std::string elements;
    epiRect expected;
};

// The second item carries the elements; the first sits at (10,20) with size 30x40. What an
// element doesn't give is kept from a new object's empty frame.
class GeometryTable : public UiFixture, public ::testing::WithParamInterface<GeometryCase>
{
};

TEST_P(GeometryTable, EachRowPlacesTheItem)
{
    epiUbo* root =
        loadText("<name>root</name><size>200,100</size>",
                 item("ubob", "aaaa", place(10, 20, 30, 40)) + item("ubob", "bbbb", GetParam().elements));
    const epiUbo* second = root->childAt(1);
    EXPECT_EQ(second->frame(), GetParam().expected);
    EXPECT_EQ(second->bounds(), epiRect(0, 0, GetParam().expected.width(), GetParam().expected.height()));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, GeometryTable,
    ::testing::Values(
        GeometryCase{place(5, 6, 7, 8), epiRect(5, 6, 12, 14)},
        // relative to the previous sibling's top left
        GeometryCase{"<relativeposition>5,6</relativeposition><size>7,8</size>", epiRect(15, 26, 22, 34)},
        // position wins over relativeposition
        GeometryCase{"<position>5,6</position><relativeposition>50,60</relativeposition><size>7,8</size>",
                     epiRect(5, 6, 12, 14)},
        GeometryCase{"<relativeposition>-5,6</relativeposition>", epiRect(5, 26, 5, 26)}));

TEST_F(Layouts, RelativePositionOfAFirstChildIsFromTheOrigin)
{
    epiUbo* root = loadText(place(100, 100, 200, 100),
                            item("ubob", "aaaa", "<relativeposition>3,4</relativeposition><size>1,1</size>"));
    EXPECT_EQ(root->childAt(0)->frame(), epiRect(3, 4, 4, 5));
}

TEST_F(Layouts, ItemsInsideAnItemAreIgnoredAndChilBringsAnotherFilesItems)
{
    layout("inner.xml",
           "<name>innr</name><size>60,30</size>" + attrs({{"visi", "0"}, {"text", "not applied"}}),
           item("ubob", "leaf", place(1, 1, 2, 2)));
    epiUbo* root =
        loadText("<size>200,100</size>", item("iCon", "box1",
                                              place(10, 10, 80, 40) + attrs({{"chil", "inner.xml"}}) +
                                                  "<itemslist>" + item("ubob", "lost") + "</itemslist>"));
    epiUbo* box = root->childNamed(epiCode("box1"));
    ASSERT_EQ(box->childCount(), 1);
    EXPECT_EQ(box->childAt(0)->name(), epiCode("leaf"));
    epiUbo* lost = box->childNamed(epiCode("lost"));
    EXPECT_EQ(lost, box->nullChildIfMade());
    // The other file's root gives its size as the design size, and nothing else.
    EXPECT_EQ(box->designRect(), epiRect(0, 0, 60, 30));
    EXPECT_EQ(box->frame(), epiRect(10, 10, 90, 50));
    EXPECT_TRUE(box->isVisible());
    EXPECT_TRUE(box->text().empty());
}

TEST_F(Layouts, ALaterChilReloadsAtOnce)
{
    layout("one.xml", "<size>10,10</size>", item("ubob", "oneA") + item("ubob", "oneB"));
    layout("two.xml", "<size>20,20</size>", item("ubob", "twoA"));
    epiUbo* root = loadText("<size>200,100</size>", item("iCon", "box1", attrs({{"chil", "one.xml"}})));
    epiUbo* box = root->childNamed(epiCode("box1"));
    ASSERT_EQ(box->childCount(), 2);
    const epiText two("two.xml");
    box->setAttribute(epiCode("chil"), &two);
    ASSERT_EQ(box->childCount(), 1);
    EXPECT_EQ(box->childAt(0)->name(), epiCode("twoA"));
    EXPECT_EQ(box->designRect(), epiRect(0, 0, 20, 20));
}

TEST_F(Layouts, ShortAndUnknownKindsGiveWorkingPlainObjects)
{
    epiUbo* root = loadText("<size>200,100</size>", item("iC", "shrt", "<size>5,5</size>") +
                                                        item("zzzz", "unkn", "<size>6,6</size>"));
    ASSERT_EQ(root->childCount(), 2);
    for (epiUbo* child : root->children())
    {
        EXPECT_EQ(child->kind(), epiCode("ubob"));
        EXPECT_FALSE(child->vetoChild());
        child->setVisible(false, true);
        child->setTextChars("works");
        EXPECT_EQ(child->text(), epiText("works"));
    }
}

TEST_F(Layouts, ValuesReadAsOneLineAndAttributesApplyInFileOrder)
{
    epiUbo* root = loadText(
        "<size>200,100</size>",
        item("ubob", "mult",
             attrs({{"text", "first"}, {"visi", "0"}, {"text", "two\r\n\t\tlines"}, {"visi", "1"}})) +
            item("ubob", "lone", "<text>a\nb</text>"));
    epiUbo* multi = root->childNamed(epiCode("mult"));
    EXPECT_EQ(multi->text(), epiText("two lines"));
    EXPECT_TRUE(multi->isVisible());
    ASSERT_EQ(multi->attributesRead().size(), 4u);
    EXPECT_EQ(multi->attributesRead()[2].second, epiText("two lines"));
    EXPECT_EQ(root->childNamed(epiCode("lone"))->text(), epiText("a\nb"));
}

TEST_F(Layouts, WriteThenReadGivesTheSameTree)
{
    layout("inner.xml", "<size>60,30</size>", item("ubob", "leaf"));
    epiUbo* root =
        loadText("<name>wrte</name><size>200,100</size>",
                 item("ubob", "aaaa", place(1, 2, 3, 4) + "<text>Hello</text>") +
                     item("iCon", "", place(5, 6, 70, 80) + attrs({{"visi", "0"}, {"chil", "inner.xml"}})));
    epiText written;
    epiWriteLayoutFile(*root, written);
    std::ofstream(std::string(app.resources()->media()->rootPathRef()->cstr()) + "layouts/back.xml")
        << written;
    epiUbo* back = load("back.xml");
    auto summary = [](epiUbo* o)
    {
        return std::tuple(o->name(), o->kind(), o->frame(), o->isVisible(), std::string(o->text().cstr()),
                          o->childCount());
    };
    EXPECT_EQ(summary(back), summary(root));
    for (int32_t i = 0; i < root->childCount() && i < back->childCount(); ++i)
        EXPECT_EQ(summary(back->childAt(i)), summary(root->childAt(i))) << i;
}

TEST_F(Layouts, ChilNamingItselfOrEachOtherEnds)
{
    layout("self.xml", "<size>10,10</size>", item("iCon", "loop", attrs({{"chil", "self.xml"}})));
    layout("a.xml", "<size>10,10</size>", item("iCon", "toB_", attrs({{"chil", "b.xml"}})));
    layout("b.xml", "<size>10,10</size>", item("iCon", "toA_", attrs({{"chil", "a.xml"}})));
    epiUbo* self = load("self.xml");
    ASSERT_EQ(self->childCount(), 1);
    EXPECT_LE(self->childAt(0)->childCount(), 1);
    epiUbo* pair = load("a.xml");
    int depth = 0;
    for (epiUbo* object = pair; object->childCount() > 0; object = object->childAt(0))
        ASSERT_LT(++depth, 8);
}

TEST_F(Layouts, ARefusedItemIsGivenBack)
{
    // A plain object takes no children: the item is released through the application, not leaked.
    epiUbo* root = loadText("<size>10,10</size>", item("ubob", "leaf"));
    epiUbo* leaf = root->childAt(0);
    const int32_t before = app.disposedCount();
    layout("refuse.xml", "<size>10,10</size>", item("iCon", "cont"));
    leaf->loadLayoutNamed(epiText("refuse.xml"));
    EXPECT_EQ(leaf->childCount(), 0);
    EXPECT_EQ(app.disposedCount(), before + 1);
}

} // namespace
