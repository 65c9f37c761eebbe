#pragma once

#include "epi/epiObject.h"
#include "epi/epiText.h"

#include <cstddef>
#include <cstdint>

/**
 * A zero-copy view of a piece of XML text: two pointers into bytes that somebody else owns.
 *
 * This is not a general XML parser. It reads the one simple shape that the layouts, menus, fonts
 * and resource headers are written in: it finds a child element by name, steps through children of
 * one name, and gives an element's text. It has no tree, reads no attribute, decodes no entity and
 * validates nothing; every question scans the bytes again. Whatever the bytes hold, a question ends
 * with false or an empty chunk, and a broken file reads as a file with less in it.
 *
 * The same class serves three roles: a view (begin, end), a tag record filled by nextTag() (begin
 * and end around the tag's name, tagEnd at its '>', tagKind), and a search filter for findElement()
 * (begin and end around the wanted name, index the number of children to pass first).
 *
 * The text that a chunk looks into must outlive the chunk and must not change.
 */
class epiXmlChunk : public epiObject
{
public:
    /** tagKind of a tag record. */
    static constexpr int32_t kNoTag = 0;
    static constexpr int32_t kOpeningTag = 1;
    static constexpr int32_t kClosingTag = 2;
    static constexpr int32_t kSelfClosedTag = 3;

    epiXmlChunk() = default;
    /** A view of the bytes from `begin` up to, not including, `end`. */
    epiXmlChunk(const char* begin, const char* end) : begin_(begin), end_(end) {}
    /** A view of the whole of `text`. */
    explicit epiXmlChunk(const epiText& text) { setText(text); }

    /** Views the whole of `text`. */
    void setText(const epiText& text);
    /** Takes over `other`'s begin and end. */
    void setRange(const epiXmlChunk& other);
    /** Views the bytes from `begin` up to, not including, `end`. */
    void setBytes(const char* begin, const char* end);
    /** begin >= end: nothing to look into (also true for a chunk that was never set). */
    bool isEmpty() const { return begin_ >= end_; }

    /**
     * Finds the first tag in the view and describes it in `tag`: its name range, its '>' and its
     * kind. "<!" and "<?" are passed over one byte at a time, so a tag inside a comment still
     * counts as a tag. Only a blank (0x20) ends a name before the '>'.
     * @return false when the view holds no further complete tag. A closing tag written "</a/>"
     *         is not valid input, and the scan stops there: false.
     */
    bool nextTag(epiXmlChunk& tag) const;

    /** Byte-exact, case-sensitive comparison of this chunk's range with `other`'s. */
    bool nameEquals(const epiXmlChunk& other) const;

    /**
     * With the view starting just behind an opening tag named `tagName`, finds the closing tag
     * that balances it: same-named opening tags nest, other names and self-closed tags don't
     * count. The scan continues one byte behind each tag's name, so it also looks into attribute
     * text. @param closeTag when given receives the closing tag's record (its name range, its '>')
     */
    bool findClose(const epiXmlChunk& tagName, epiXmlChunk* closeTag) const;

    /**
     * Searches the view for a child element.
     * @param filter the name to look for (any name when null or when its begin is null) and in its
     *        index the number of children to pass first; -1 searches by name alone. A null filter
     *        means any name with -1. Passing counts every child whatever its name, and a count that
     *        reaches 0 at a child of another name falls to -1 and goes on by name.
     * @param content when given receives the element's content (empty for a self-closed tag)
     * @param inside when given receives the opening tag from its name up to its '>' (the name
     *        alone for a self-closed tag)
     * @return whether an element was found. Either output is an empty range at the view's begin
     *         when nothing was found.
     */
    bool findElement(const epiXmlChunk* filter, epiXmlChunk* content, epiXmlChunk* inside) const;

    /** findElement() by name alone; a null name finds the first child of any name. */
    bool findElementChars(const char* name, epiXmlChunk* content, epiXmlChunk* inside) const;

    /** The content of the first child named `name`; an empty chunk when there is none. */
    epiXmlChunk child(const char* name) const;

    /**
     * The view's text as one line: leading tabs, line ends and blanks dropped; each CR becomes one
     * blank and the line end and indentation behind it are dropped; a lone LF stays; trailing
     * blanks are cut. Entities stay as they are. `dest` is replaced.
     */
    void textInto(epiText& dest) const;
    /** textInto() as a new text. */
    epiText text() const;
    /** The bytes of the view unchanged. */
    epiText rawText() const;

    /** First byte of the view; for a tag record, first byte of the name. */
    const char* begin() const { return begin_; }
    /** One past the last byte of the view; for a tag record, one past the name. */
    const char* end() const { return end_; }
    /** Length of the view in bytes, 0 when empty. */
    size_t length() const { return isEmpty() ? 0 : size_t(end_ - begin_); }
    /** Tag records: the closing '>'. */
    const char* tagEnd() const { return tagEnd_; }
    /** Tag records: kOpeningTag, kClosingTag, kSelfClosedTag, or kNoTag when unset. */
    int32_t tagKind() const { return tagKind_; }
    /** Search filters: children to pass first, -1 for search by name alone. */
    int32_t index() const { return index_; }
    void setIndex(int32_t index) { index_ = index; }

protected:
    const char* begin_ = nullptr;
    const char* end_ = nullptr;
    const char* tagEnd_ = nullptr;
    int32_t tagKind_ = kNoTag;
    int32_t index_ = 0;
};

/**
 * Steps through the children of one element that share a name:
 *
 *     epiXmlChunkEnumerator items(list);
 *     items.setName("item");
 *     epiXmlChunk item;
 *     while (items.next(&item, nullptr)) ...
 *
 * Each next() searches from the start of the view and passes as many children as it has already
 * returned, so a list of N items costs time in the square of N; the lists here are short. Because
 * passing counts children of every name, a list that mixes names can give one element twice: that
 * is how the search is defined, and the files it reads don't mix names in a list.
 */
class epiXmlChunkEnumerator : public epiXmlChunk
{
public:
    epiXmlChunkEnumerator() = default;
    /** Enumerates the children in `parent`'s view; without setName() it returns children of any name. */
    explicit epiXmlChunkEnumerator(const epiXmlChunk& parent) { setRange(parent); }

    /**
     * Looks for children named `name` from the first one on. The characters are not copied and
     * must outlive the enumerator; null means any name.
     */
    void setName(const char* name);
    /** The next child of the name. @return false when there is none (the outputs are then empty) */
    bool next(epiXmlChunk* content, epiXmlChunk* inside);

    /** The name filter; its index() is the number of children returned so far. */
    const epiXmlChunk& filter() const { return filter_; }

private:
    epiXmlChunk filter_;
};
