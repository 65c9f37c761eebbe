#include "epi/epiXmlChunk.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

std::string str(const epiXmlChunk& chunk)
{
    return std::string(chunk.rawText());
}

// The tag records that nextTag() finds, one after the other, as "kind:name".
std::vector<std::string> tagsOf(const std::string& text)
{
    std::vector<std::string> found;
    epiXmlChunk view(text.data(), text.data() + text.size());
    epiXmlChunk tag;
    while (view.nextTag(tag))
    {
        found.push_back(std::to_string(tag.tagKind()) + ":" + std::string(tag.begin(), tag.end()));
        view.setBytes(tag.tagEnd() + 1, view.end());
    }
    return found;
}

TEST(XmlChunkTags, IncompleteAndInvalidTagsEndTheScan)
{
    EXPECT_TRUE(tagsOf("").empty());
    EXPECT_TRUE(tagsOf("plain text").empty());
    EXPECT_TRUE(tagsOf("text<").empty());                           // '<' as the last byte
    EXPECT_TRUE(tagsOf("<a b=\"1\"").empty());                      // no '>' at all
    EXPECT_TRUE(tagsOf("<a <b <c").empty());                        // nor for a later '<'
    EXPECT_EQ(tagsOf("<a <b>"), (std::vector<std::string>{"1:a"})); // the '>' is a's
    // "</a/>" is not valid, and nothing behind it is read.
    EXPECT_EQ(tagsOf("<a></a/><b/>"), (std::vector<std::string>{"1:a"}));
    EXPECT_TRUE(tagsOf("</>").empty());
    epiXmlChunk tag;
    EXPECT_FALSE(epiXmlChunk().nextTag(tag));
    EXPECT_EQ(tag.tagKind(), epiXmlChunk::kNoTag);
}

TEST(XmlChunkChild, ContentInsideAndAttributes)
{
    const epiText doc("<r><a b=\"1\">t</a></r>");
    const epiXmlChunk root(doc);
    epiXmlChunk content;
    epiXmlChunk inside;
    ASSERT_TRUE(root.child("r").findElementChars("a", &content, &inside));
    EXPECT_EQ(str(content), "t");
    EXPECT_EQ(str(inside), "a b=\"1\"");
    // Zero copy: the chunk points into the document's own bytes.
    EXPECT_EQ(content.begin(), doc.data() + doc.find('t'));
    // A self-closed hit: inside is the name, content an empty range at its end.
    const epiText self("<c k=\"v\"/>");
    ASSERT_TRUE(epiXmlChunk(self).findElementChars("c", &content, &inside));
    EXPECT_EQ(str(inside), "c");
    EXPECT_EQ(content.begin(), inside.end());
    EXPECT_TRUE(content.isEmpty());
}

TEST(XmlChunkChild, ChildrenByExactNameAndTheirClosingTags)
{
    // {document, the child path (names split by '/'), the raw text found, or null when not found}
    struct Row
    {
        const char* doc;
        std::vector<const char*> path;
        const char* want;
    };
    const Row rows[] = {
        {"<x/>", {"x"}, ""},
        {"<x />", {"x"}, ""},
        {"<x></x>", {"x"}, ""},
        {"<r><Item>1</Item><item>2</item></r>", {"r", "item"}, "2"},
        {"<r><Item>1</Item><item>2</item></r>", {"r", "Item"}, "1"},
        {"<r><Item>1</Item><item>2</item></r>", {"r", "ite"}, nullptr},
        {"<item>1</Item>", {"item"}, nullptr}, // a closing tag of another case does not close
        {"<a x=\"1\">t</a >", {"a"}, "t"},     // the closing name runs to the first blank
        {"<a\tb=\"1\">t</a>", {"a"}, nullptr}, // with a tab it runs to the '>'
        {"<a\tb=\"1\">t</a\tb=\"1\">", {"a\tb=\"1\""}, "t"},
        {"<a><a>x</a></a>", {"a"}, "<a>x</a>"}, // the same name nests
        {"<a><a>x</a></a>", {"a", "a"}, "x"},
        {"<a><b><a/></b>y</a>", {"a"}, "<b><a/></b>y"}, // a self-closed one doesn't
        {"<a><b></a></b>", {"a"}, "<b>"},               // badly nested others don't matter
        {"<list><!-- <item>old</item> --><item>new</item></list>", {"list", "item"}, "old"},
        // The close search goes on one byte behind a tag's name, into attribute text.
        {"<list><a x=\"</list>\">1</a></list>", {"list"}, "<a x=\""},
        {"</x><a>1</a>", {"a"}, "1"}, // a stray closing tag is passed over
    };
    for (const Row& row : rows)
    {
        const epiText doc(row.doc);
        epiXmlChunk at(doc);
        epiXmlChunk child(doc);
        epiXmlChunk content;
        bool found = true;
        for (const char* name : row.path)
        {
            found = at.findElementChars(name, &content, nullptr);
            at = content;
            child = child.child(name);
        }
        EXPECT_EQ(found, row.want != nullptr) << row.doc;
        EXPECT_EQ(str(content), row.want != nullptr ? row.want : "") << row.doc;
        EXPECT_EQ(str(child), str(content)) << row.doc;
    }
}

TEST(XmlChunkChild, MissingOrUnclosedElementsGiveEmptyChunksAtTheStart)
{
    const epiText doc("<r><a>1</a><b>unclosed</r>");
    const epiXmlChunk r = epiXmlChunk(doc).child("r");
    epiXmlChunk content;
    epiXmlChunk inside;
    EXPECT_FALSE(r.findElementChars("b", &content, &inside));
    EXPECT_TRUE(content.isEmpty());
    EXPECT_EQ(content.begin(), r.begin());
    EXPECT_EQ(inside.begin(), r.begin());
    // An unclosed sibling before the wanted one blocks it: the search can't step over it.
    EXPECT_FALSE(r.findElementChars("c", nullptr, nullptr));
    EXPECT_TRUE(epiXmlChunk().child("a").isEmpty());
    const epiText stray("</x><a>1</a>");
    EXPECT_EQ(epiXmlChunk(stray).child(nullptr).text(), "1"); // a null name: the first of any name
}

TEST(XmlChunkText, LinesFoldIntoOneAndNothingIsDecoded)
{
    auto textOf = [](const std::string& s)
    { return std::string(epiXmlChunk(s.data(), s.data() + s.size()).text()); };
    EXPECT_EQ(textOf("\r\n\t\t4\r\n\t"), "4");
    EXPECT_EQ(textOf("  one\r\n    two\r\n  three  "), "one two three");
    EXPECT_EQ(textOf("a\nb"), "a\nb");    // a lone LF stays
    EXPECT_EQ(textOf("a\r\r\rb"), "a b"); // the CRs behind the first are indentation
    EXPECT_EQ(textOf("a\t"), "a\t");      // only blanks are cut at the end
    EXPECT_EQ(textOf("a  b"), "a  b");    // blanks inside stay
    EXPECT_EQ(textOf("&amp;&lt;"), "&amp;&lt;");
    EXPECT_EQ(textOf(" \t\r\n "), "");
    EXPECT_EQ(textOf(""), "");

    const epiText doc("<v>\r\n\tx\r\n</v>");
    epiText dest("old contents");
    epiXmlChunk(doc).child("v").textInto(dest);
    EXPECT_EQ(dest, "x");
}

TEST(XmlChunkEnumerator, StepsThroughChildrenOfOneName)
{
    const epiText doc("<content><list>\r\n"
                      "  <item>1</item>\r\n"
                      "  <item><sub>2</sub></item>\r\n"
                      "  <item/>\r\n"
                      "  <item>4</item>\r\n"
                      "</list></content>");
    const epiXmlChunk list = epiXmlChunk(doc).child("content").child("list");
    epiXmlChunkEnumerator items(list);
    items.setName("item");
    std::vector<std::string> seen;
    epiXmlChunk item;
    while (items.next(&item, nullptr))
        seen.push_back(str(item));
    EXPECT_EQ(seen, (std::vector<std::string>{"1", "<sub>2</sub>", "", "4"}));
    EXPECT_TRUE(item.isEmpty());

    // setName() starts again from the first; a null name takes every child.
    items.setName(nullptr);
    int any = 0;
    while (items.next(nullptr, nullptr))
        ++any;
    EXPECT_EQ(any, 4);
    items.setName("other");
    EXPECT_FALSE(items.next(&item, nullptr));
}

TEST(XmlChunkSearch, IndexPassesChildrenFirst)
{
    const epiText doc("<a>1</a><b>2</b><c/><b>4</b>");
    // {name or any, index, the element found or null}. With a name: 'a' isn't b at index 0, so the
    // limit falls to -1 and the first b is found; at 2 it passes a and b, then c is not b, and it
    // goes on by name to the second b (so an enumerator over a mixed list gives that b twice).
    struct Row
    {
        const char* name;
        int32_t index;
        const char* found;
    };
    for (const Row& row : {Row{nullptr, 1, "b|2"}, Row{nullptr, 2, "c|"}, Row{nullptr, 4, nullptr},
                           Row{"b", 0, "b|2"}, Row{"b", 2, "b|4"}, Row{"b", -1, "b|2"}})
    {
        epiXmlChunk filter;
        if (row.name != nullptr)
            filter.setBytes(row.name, row.name + 1);
        filter.setIndex(row.index);
        epiXmlChunk content;
        epiXmlChunk inside;
        const bool found = epiXmlChunk(doc).findElement(&filter, &content, &inside);
        EXPECT_EQ(found, row.found != nullptr) << row.index;
        EXPECT_EQ(str(inside) + "|" + str(content), row.found ? row.found : "|") << row.index;
    }
    epiXmlChunk inside;
    ASSERT_TRUE(epiXmlChunk(doc).findElement(nullptr, nullptr, &inside));
    EXPECT_EQ(str(inside), "a");
}

} // namespace
