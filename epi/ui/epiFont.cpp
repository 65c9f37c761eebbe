#include "epi/ui/epiFont.h"

#include "epi/epiFileDump.h"
#include "epi/epiResources.h"
#include "epi/epiXmlChunk.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{

const uint32_t kFontsKind = epiCode("fnts");

/** The file name "<prefix><code><suffix>", the code as its four characters. */
epiText fontFileName(const char* prefix, uint32_t code, const char* suffix)
{
    epiText name(prefix);
    name.appendCode(code);
    name.appendChars(suffix);
    return name;
}

bool loadPicture(epiResources& resources, const epiText& name, epiBitmap& image)
{
    epiFileDump dump;
    return resources.readDump(&name, kFontsKind, dump) && image.loadMemory(dump, nullptr);
}

/** X where the left edge starts for a text `width` wide in `rect`. */
int32_t alignedLeft(const epiRect& rect, int32_t width, int32_t alignment)
{
    if ((alignment & 1) != 0)
        return (rect.left_ + rect.right_) / 2 - width / 2;
    if ((alignment & 2) != 0)
        return rect.right_ - width;
    return rect.left_;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Strip fonts

bool epiFont_FontStrip::load(epiResources& resources, uint32_t code)
{
    epiBitmap image;
    return loadPicture(resources, fontFileName("fontstrip_", code, ".png"), image) && loadImage(image);
}

bool epiFont_FontStrip::loadImage(epiBitmap& image)
{
    if (image.height() < 5)
        return false;
    image_.clear();
    image_.swap(image);
    height_ = image_.height() - 4;
    const int32_t markRow = image_.height() - 2;
    const int32_t w = image_.width();
    const uint32_t* marks = image_.pixels() + size_t(markRow) * w;
    auto bright = [&](int32_t x) { return (marks[x] & 0xFF) >= 0x80; };
    // A boundary is the next bright pixel after the present run; a row with too few of them ends
    // its scan at the image's width.
    auto nextBoundary = [&](int32_t x)
    {
        while (x < w && bright(x))
            ++x;
        while (x < w && !bright(x))
            ++x;
        return x;
    };
    int32_t prev = nextBoundary(0);
    for (int32_t i = 0; i < 256; ++i)
    {
        const int32_t v = nextBoundary(prev);
        rects_[i] = epiRect(prev - 1, 0, v - 2, height_);
        widths_[i] = v - prev - 1;
        prev = v;
    }
    return true;
}

int32_t epiFont_FontStrip::glyphWidth(uint8_t c) const
{
    if (fixed_ > 0)
        return fixed_;
    if (fixed_ < 0 && c != '.')
        return -fixed_;
    return spacing_ + widths_[c];
}

int32_t epiFont_FontStrip::width(const epiText& text)
{
    int32_t sum = 0;
    for (char c : text)
        sum += glyphWidth(uint8_t(c));
    return sum;
}

void epiFont_FontStrip::draw(epiBitmap& target, const epiText& text, const epiRect& rect, const epiRect& clip,
                             int32_t alignment, epiColour colour)
{
    if (image_.isEmpty())
        return;
    int32_t x = (alignment & 3) != 0 ? alignedLeft(rect, width(text), alignment) : rect.left_;
    for (char ch : text)
    {
        const uint8_t c = uint8_t(ch);
        const epiRect& source = rects_[c];
        if (source.width() > 0)
        {
            const epiRect dest(x, rect.top_, x + source.width(), rect.top_ + source.height());
            target.drawMaskedClipped(image_, &source, &dest, clip, colour);
        }
        x += glyphWidth(c);
    }
}

// ---------------------------------------------------------------------------------------------
// Matrix fonts

bool epiFont_FontMatrix::load(epiResources& resources, uint32_t code)
{
    epiBitmap image;
    if (!loadPicture(resources, fontFileName("fontmatrix_", code, ".png"), image))
        return false;
    epiText xml;
    const epiText name = fontFileName("fontmatrix_", code, ".xml");
    return resources.readText(&name, kFontsKind, xml) && loadParts(image, xml);
}

bool epiFont_FontMatrix::loadParts(epiBitmap& image, const epiText& xml)
{
    const epiXmlChunk root(xml);
    const epiXmlChunk table = root.child("epi").child("content").child("gliphsdisplacements");
    if (table.isEmpty())
        return false;
    first_ = table.child("gliphcodestart").text().toInt();
    last_ = table.child("gliphcodeend").text().toInt();
    offsets_ = table.child("inpixeloffsets").text().toInt();
    height_ = table.child("gliphboxheight").text().toInt();
    if (offsets_ < 1 || offsets_ > kMaxOffsets || first_ < 0 || last_ > 255 || first_ > last_)
        return false;
    advances_.fill(0.0f);
    for (auto& glyph : table_)
        glyph.fill(Offset{});

    epiXmlChunkEnumerator glyphs(table.child("elems"));
    glyphs.setName("gliph");
    epiXmlChunk glyph;
    while (glyphs.next(&glyph, nullptr))
    {
        const int32_t code = glyph.child("code").text().toInt();
        // A glyph outside the range keeps zero advance and an empty area.
        if (code < first_ || code > last_)
            continue;
        advances_[size_t(code)] = glyph.child("advance").text().toFloat();
        epiXmlChunkEnumerator offsets(glyph);
        offsets.setName("offset");
        epiXmlChunk offset;
        while (offsets.next(&offset, nullptr))
        {
            const int32_t index = offset.child("index").text().toInt();
            if (index < 0 || index >= offsets_)
                continue;
            Offset& o = table_[size_t(code)][size_t(index)];
            const epiText boxpos = offset.child("boxpos").text();
            o.boxpos =
                epiPoint(int32_t(boxpos.field(0, ',').toFloat()), int32_t(boxpos.field(1, ',').toFloat()));
            const epiText area = offset.child("copyarea").text();
            // The table's right and bottom are exclusive ink bounds; the copy takes two more pixels.
            o.copyarea =
                epiRect(int32_t(area.field(0, ',').toFloat()), int32_t(area.field(1, ',').toFloat()),
                        int32_t(area.field(2, ',').toFloat()) + 2, int32_t(area.field(3, ',').toFloat()) + 2);
        }
    }
    image_.clear();
    image_.swap(image);
    return true;
}

int32_t epiFont_FontMatrix::width(const epiText& text)
{
    float w = 1.0f;
    for (char c : text)
        w += advances_[uint8_t(c)] + 0.5f + float(tracking_);
    return int32_t(w);
}

void epiFont_FontMatrix::draw(epiBitmap& target, const epiText& text, const epiRect& rect,
                              const epiRect& clip, int32_t alignment, epiColour colour)
{
    if (image_.isEmpty())
        return;
    float x = float(rect.left_);
    if ((alignment & 1) != 0)
        x = float(rect.left_ + rect.right_) / 2.0f - float(width(text)) / 2.0f;
    else if ((alignment & 2) != 0)
        x = float(rect.right_ - width(text) - 1);
    for (char ch : text)
    {
        const uint8_t c = uint8_t(ch);
        const int32_t i = int32_t((x - std::floor(x)) * float(offsets_));
        const Offset& o = table_[c][size_t(std::min(i, offsets_ - 1))];
        if (o.copyarea.width() > 0 && o.copyarea.height() > 0)
        {
            const int32_t left = o.copyarea.left_ - o.boxpos.x_ + int32_t(std::floor(x));
            const int32_t top = o.copyarea.top_ - o.boxpos.y_ + rect.top_;
            const epiRect dest(left, top, left + o.copyarea.width(), top + o.copyarea.height());
            target.drawMaskedClipped(image_, &o.copyarea, &dest, clip, colour);
        }
        // Every glyph adds half a pixel of its own: the font files store their advances without it.
        x += advances_[c] + 0.5f + float(tracking_);
    }
}

// ---------------------------------------------------------------------------------------------
// System fonts

bool epiFont_FontSystem::load(epiResources& resources, uint32_t code)
{
    epiText xml;
    const epiText name = fontFileName("fontsystem_", code, ".xml");
    return resources.readText(&name, kFontsKind, xml) && loadText(xml, code);
}

bool epiFont_FontSystem::loadText(const epiText& xml, uint32_t code)
{
    const epiXmlChunk root(xml);
    const epiXmlChunk content = root.child("epi").child("content");
    if (content.isEmpty())
        return false;
    for (const char* platform : {"allplatforms", "win32"})
    {
        const epiXmlChunk part = content.child(platform);
        if (part.isEmpty())
            continue;
        const epiText family = part.child("family").text();
        if (!family.empty())
            face_.family = family;
        epiXmlChunk value;
        if (part.findElementChars("size", &value, nullptr))
            face_.size = value.text().toFloat();
        if (part.findElementChars("bold", &value, nullptr))
            face_.bold = value.text().toInt() != 0;
        if (part.findElementChars("italic", &value, nullptr))
            face_.italic = value.text().toInt() != 0;
        if (part.findElementChars("kerning", &value, nullptr))
            face_.kerning = value.text().toInt();
    }
    epiText codeText;
    codeText.assignCode(code);
    std::printf("Found font type 3 <%s> <%s> %d\n", face_.family.cstr(), codeText.cstr(), int(face_.size));
    std::fflush(stdout);
    return true;
}

void epiFont_FontSystem::draw(epiBitmap& target, const epiText& text, const epiRect& rect,
                              const epiRect& clip, int32_t alignment, epiColour colour)
{
    epiBitmapPlatform* platform = epiGetBitmapPlatform();
    if (platform == nullptr || target.isEmpty())
        return;
    const int32_t align = (alignment & 3) == 1 ? 1 : (alignment & 3) == 2 ? 2 : 0;
    platform->drawText(target, face_, text, rect, clip, align, false, colour);
}

int32_t epiFont_FontSystem::width(const epiText& text)
{
    epiBitmapPlatform* platform = epiGetBitmapPlatform();
    return platform != nullptr ? platform->textWidth(face_, text) : 0;
}

int32_t epiFont_FontSystem::height()
{
    epiBitmapPlatform* platform = epiGetBitmapPlatform();
    return platform != nullptr ? platform->textHeight(face_) : 0;
}

// ---------------------------------------------------------------------------------------------
// The font list

epiFonts::~epiFonts()
{
    for (Elem& e : list_)
        delete e.font;
}

epiFont* epiFonts::find(uint32_t code)
{
    if (code == 0)
        return list_.empty() ? nullptr : list_.front().font;
    for (const Elem& e : list_)
        if (e.name == code)
            return e.font;
    // The miss is remembered: a code that loads nothing stays as a null entry.
    Elem elem;
    elem.name = code;
    if (resources_ != nullptr)
    {
        epiFont* candidates[] = {new epiFont_FontStrip(), new epiFont_FontMatrix(), new epiFont_FontSystem()};
        for (epiFont*& candidate : candidates)
        {
            if (elem.font == nullptr && candidate->load(*resources_, code))
                elem.font = candidate;
            else
                delete candidate;
        }
    }
    list_.push_back(elem);
    return elem.font;
}

void epiFonts::draw(uint32_t code, epiBitmap& target, const epiText& text, const epiRect& rect,
                    const epiRect& clip, int32_t alignment, epiColour colour)
{
    if (epiFont* font = find(code))
        font->draw(target, text, rect, clip, alignment, colour);
}

int32_t epiFonts::width(uint32_t code, const epiText& text)
{
    epiFont* font = find(code);
    return font != nullptr ? font->width(text) : 0;
}

int32_t epiFonts::height(uint32_t code)
{
    epiFont* font = find(code);
    return font != nullptr ? font->height() : 0;
}

void epiFonts::stop()
{
    for (Elem& e : list_)
        delete e.font;
    list_.clear();
    epiApplicationObject::stop();
}
