#include "epi/epiXmlChunk.h"

#include <cstring>
#include <string_view>

void epiXmlChunk::setText(const epiText& text)
{
    begin_ = text.data();
    end_ = text.data() + text.size();
}

void epiXmlChunk::setRange(const epiXmlChunk& other)
{
    begin_ = other.begin_;
    end_ = other.end_;
}

void epiXmlChunk::setBytes(const char* begin, const char* end)
{
    begin_ = begin;
    end_ = end;
}

bool epiXmlChunk::nextTag(epiXmlChunk& tag) const
{
    tag.end_ = nullptr;
    tag.tagEnd_ = nullptr;
    tag.tagKind_ = kNoTag;
    if (isEmpty())
        return false;

    for (const char* p = begin_; p < end_; ++p)
    {
        if (*p != '<')
            continue;
        if (p + 1 == end_)
            return false;
        // "<!--", "<!DOCTYPE" and "<?xml" are not constructs here: the scan simply moves on, so the
        // head is passed over while a tag inside a comment is still found.
        if (p[1] == '!' || p[1] == '?')
            continue;

        const char* q = p + 1;
        const bool closing = *q == '/';
        if (closing)
            ++q;
        tag.begin_ = q;
        const char* nameEnd = nullptr;
        for (; q < end_; ++q)
        {
            if (*q == ' ')
            {
                if (nameEnd == nullptr)
                    nameEnd = q;
                continue;
            }
            if (*q != '>')
                continue;
            // q > p + 1 here, or q == p + 1 with q[-1] == '<': q[-1] is always inside the view.
            if (q[-1] != '/')
            {
                tag.tagKind_ = closing ? kClosingTag : kOpeningTag;
                tag.end_ = nameEnd != nullptr ? nameEnd : q;
                tag.tagEnd_ = q;
                return true;
            }
            if (!closing)
            {
                tag.tagKind_ = kSelfClosedTag;
                tag.end_ = nameEnd != nullptr ? nameEnd : q - 1;
                tag.tagEnd_ = q;
                return true;
            }
            // "</a/>" is not valid input. Reading stops here rather than guessing what was meant,
            // so a search over it ends in failure instead of running on.
            return false;
        }
        // No '>' up to the end of the view: no later '<' can complete a tag either.
        return false;
    }
    return false;
}

bool epiXmlChunk::nameEquals(const epiXmlChunk& other) const
{
    const size_t n = length();
    if (n != other.length())
        return false;
    return n == 0 || std::memcmp(begin_, other.begin_, n) == 0;
}

bool epiXmlChunk::findClose(const epiXmlChunk& tagName, epiXmlChunk* closeTag) const
{
    epiXmlChunk view(begin_, end_);
    epiXmlChunk tag;
    int32_t depth = 0;
    while (view.nextTag(tag))
    {
        if (tag.nameEquals(tagName))
        {
            if (tag.tagKind_ == kOpeningTag)
            {
                ++depth;
            }
            else if (tag.tagKind_ == kClosingTag)
            {
                if (depth == 0)
                {
                    if (closeTag != nullptr)
                        *closeTag = tag;
                    return true;
                }
                --depth;
            }
        }
        // One byte behind the name: the scan may look into attribute text. The name's end lies
        // behind the '<', so the view shrinks on every turn.
        view.begin_ = tag.end_ + 1;
    }
    return false;
}

bool epiXmlChunk::findElement(const epiXmlChunk* filter, epiXmlChunk* content, epiXmlChunk* inside) const
{
    if (content != nullptr)
        content->setBytes(begin_, begin_);
    if (inside != nullptr)
        inside->setBytes(begin_, begin_);

    int32_t limit = filter != nullptr ? filter->index_ : -1;
    const bool anyName = filter == nullptr || filter->begin_ == nullptr;

    epiXmlChunk view(begin_, end_);
    epiXmlChunk tag;
    while (view.nextTag(tag))
    {
        if (tag.tagKind_ == kClosingTag)
        {
            // A stray closing tag at this level: passed over.
            view.begin_ = tag.tagEnd_ + 1;
            continue;
        }

        const bool hit = (limit == -1 || limit == 0) && (anyName || tag.nameEquals(*filter));
        if (tag.tagKind_ == kSelfClosedTag)
        {
            if (hit)
            {
                if (inside != nullptr)
                    inside->setBytes(tag.begin_, tag.end_);
                if (content != nullptr)
                    content->setBytes(tag.end_, tag.end_);
                return true;
            }
            view.begin_ = tag.tagEnd_ + 1;
        }
        else
        {
            epiXmlChunk rest(tag.tagEnd_ + 1, end_);
            epiXmlChunk close;
            if (!rest.findClose(tag, &close))
                return false;
            if (hit)
            {
                if (inside != nullptr)
                    inside->setBytes(tag.begin_, tag.tagEnd_);
                if (content != nullptr)
                    content->setBytes(tag.tagEnd_ + 1, close.begin_ - 2); // the '<' of "</name"
                return true;
            }
            view.begin_ = close.tagEnd_ + 1;
        }
        if (limit != -1)
            --limit;
    }
    return false;
}

bool epiXmlChunk::findElementChars(const char* name, epiXmlChunk* content, epiXmlChunk* inside) const
{
    epiXmlChunk filter;
    if (name != nullptr)
        filter.setBytes(name, name + std::strlen(name));
    filter.index_ = -1;
    return findElement(&filter, content, inside);
}

epiXmlChunk epiXmlChunk::child(const char* name) const
{
    epiXmlChunk content;
    findElementChars(name, &content, nullptr);
    return content;
}

void epiXmlChunk::textInto(epiText& dest) const
{
    dest.clear();
    if (isEmpty())
        return;
    dest.reserve(length() + 1);
    // A value laid out over indented lines reads as one line: each CR stands for one blank, and
    // what follows it up to the next real byte is indentation.
    bool atStart = true;
    for (const char* p = begin_; p < end_; ++p)
    {
        const char c = *p;
        if (atStart)
        {
            if (c == '\t' || c == '\n' || c == '\r' || c == ' ')
                continue;
            atStart = false;
            dest.push_back(c);
        }
        else if (c == '\r')
        {
            dest.push_back(' ');
            atStart = true;
        }
        else
        {
            dest.push_back(c);
        }
    }
    while (!dest.empty() && dest.back() == ' ')
        dest.pop_back();
}

epiText epiXmlChunk::text() const
{
    epiText result;
    textInto(result);
    return result;
}

epiText epiXmlChunk::rawText() const
{
    if (isEmpty())
        return epiText();
    return epiText(std::string_view(begin_, length()));
}

void epiXmlChunkEnumerator::setName(const char* name)
{
    if (name != nullptr)
        filter_.setBytes(name, name + std::strlen(name));
    else
        filter_.setBytes(nullptr, nullptr);
    filter_.setIndex(0);
}

bool epiXmlChunkEnumerator::next(epiXmlChunk* content, epiXmlChunk* inside)
{
    if (!findElement(&filter_, content, inside))
        return false;
    filter_.setIndex(filter_.index() + 1);
    return true;
}
