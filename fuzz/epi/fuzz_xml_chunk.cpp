// Any bytes given to the XML chunk reader end in found or not found, with every chunk inside the
// bytes it was asked about, in bounded time.

#include "epi/epiXmlChunk.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace
{

// Every question is answered by scanning again, so a walk over every element of a deep file
// grows fast; the budget keeps one input's work bounded.
constexpr int kBudget = 3000;
constexpr int kMaxDepth = 8;

void require(bool condition)
{
    if (!condition)
        __builtin_trap();
}

// An empty chunk may stand anywhere; a non-empty one must lie inside `outer`.
void requireInside(const epiXmlChunk& outer, const epiXmlChunk& inner)
{
    if (inner.isEmpty())
        return;
    require(inner.begin() >= outer.begin() && inner.end() <= outer.end());
}

void walk(const epiXmlChunk& view, int depth, int& budget)
{
    if (depth > kMaxDepth || --budget < 0)
        return;

    epiXmlChunk tags(view);
    epiXmlChunk tag;
    for (int n = 0; n < 64 && tags.nextTag(tag); ++n)
    {
        require(tag.begin() <= tag.end() && tag.end() <= tag.tagEnd() && tag.tagEnd() < view.end());
        require(tag.begin() > tags.begin() && *tag.tagEnd() == '>');
        require(tag.tagKind() >= epiXmlChunk::kOpeningTag && tag.tagKind() <= epiXmlChunk::kSelfClosedTag);
        tags.setBytes(tag.tagEnd() + 1, view.end());
    }

    epiXmlChunkEnumerator all(view);
    epiXmlChunk content;
    epiXmlChunk inside;
    for (int n = 0; n < 64 && budget > 0 && all.next(&content, &inside); ++n)
    {
        requireInside(view, content);
        requireInside(view, inside);
        const epiText text = content.text();
        require(text.size() <= content.length());
        // The children of this one's name, by name, as the program's readers ask for them.
        std::string name(inside.begin(), inside.length());
        name = name.substr(0, name.find_first_of(std::string(" \0", 2)));
        epiXmlChunkEnumerator same(view);
        same.setName(name.c_str());
        epiXmlChunk sameContent;
        for (int m = 0; m < 64 && --budget > 0 && same.next(&sameContent, nullptr); ++m)
            requireInside(view, sameContent);
        requireInside(view, view.child(name.c_str()));
        walk(content, depth + 1, budget);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* begin = reinterpret_cast<const char*>(data);
    const epiXmlChunk root(begin, begin + size);
    int budget = kBudget;
    walk(root, 0, budget);

    // The lookups that the layout, menu and font readers make.
    const epiXmlChunk content = root.child("content");
    requireInside(root, content);
    for (const char* name : {"item", "name", "list", "kind", "rect", "menu"})
    {
        epiXmlChunk child = content.child(name);
        requireInside(root, child);
        epiText text;
        child.textInto(text);
        require(text.empty() || text.back() != ' ');
    }
    const epiText raw = root.rawText();
    require(raw.size() == size);
    return 0;
}
