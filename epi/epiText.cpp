#include "epi/epiText.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

bool isLineEnd(char c)
{
    return c == '\r' || c == '\n';
}

// Steps over one line end at `pos` (CR LF counts once). `pos` must be at a line end.
size_t stepLineEnd(const std::string& s, size_t pos)
{
    if (s[pos] == '\r' && pos + 1 < s.size() && s[pos + 1] == '\n')
        return pos + 2;
    return pos + 1;
}

// Position of the next line end at or after `pos`, or the length.
size_t findLineEnd(const std::string& s, size_t pos)
{
    while (pos < s.size() && !isLineEnd(s[pos]))
        ++pos;
    return pos;
}

char foldAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

bool equalNoCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
    {
        if (foldAscii(a[i]) != foldAscii(b[i]))
            return false;
    }
    return true;
}

// C printf of one argument, as a string of any length. The program's formats are short, but a
// caller's long argument must never overrun a fixed buffer.
template <typename... Args> std::string printOne(const char* format, Args... args)
{
    char local[256];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    const int n = std::snprintf(local, sizeof local, format, args...);
    if (n < 0)
        return std::string();
    if (size_t(n) < sizeof local)
        return std::string(local, size_t(n));
    std::string big(size_t(n) + 1, '\0');
    std::snprintf(big.data(), big.size(), format, args...);
#pragma GCC diagnostic pop
    big.resize(size_t(n));
    return big;
}

std::string vprint(const char* format, va_list args)
{
    char local[256];
    va_list copy;
    va_copy(copy, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int n = std::vsnprintf(local, sizeof local, format, copy);
    va_end(copy);
    if (n < 0)
        return std::string();
    if (size_t(n) < sizeof local)
        return std::string(local, size_t(n));
    std::string big(size_t(n) + 1, '\0');
    std::vsnprintf(big.data(), big.size(), format, args);
#pragma GCC diagnostic pop
    big.resize(size_t(n));
    return big;
}

void appendUnsigned(std::string& out, uint64_t value, unsigned base, bool upper)
{
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char tmp[32];
    int n = 0;
    do
    {
        tmp[n++] = digits[value % base];
        value /= base;
    } while (value != 0);
    while (n > 0)
        out.push_back(tmp[--n]);
}

// Pads a number to `width`: blanks go before the sign, zeros after it, as C does.
void appendPaddedNumber(std::string& out, const std::string& digits, bool negative, int width, char pad)
{
    const int length = int(digits.size()) + (negative ? 1 : 0);
    const int fill = width > length ? width - length : 0;
    if (pad == '0')
    {
        if (negative)
            out.push_back('-');
        out.append(size_t(fill), '0');
    }
    else
    {
        out.append(size_t(fill), ' ');
        if (negative)
            out.push_back('-');
    }
    out += digits;
}

void appendPaddedText(std::string& out, std::string_view text, int width, bool leftJustify)
{
    const int fill = width > int(text.size()) ? width - int(text.size()) : 0;
    if (!leftJustify)
        out.append(size_t(fill), ' ');
    out += text;
    if (leftJustify)
        out.append(size_t(fill), ' ');
}

// The framework's own formatter: see epiText::formatAssign() for the directives. Every numeric
// argument is one 32-bit word; %s, %t and %p take pointers.
void formatInto(std::string& out, const char* format, va_list args)
{
    if (format == nullptr)
        return;
    const char* p = format;
    while (*p != '\0')
    {
        if (*p != '%')
        {
            out.push_back(*p++);
            continue;
        }
        ++p;
        bool leftJustify = false;
        if (*p == '-')
        {
            leftJustify = true;
            ++p;
        }
        char pad = ' ';
        int width = 0;
        if (*p == '*')
        {
            width = va_arg(args, int);
            if (width < 0)
            {
                leftJustify = true;
                width = width == INT32_MIN ? 0 : -width;
            }
            ++p;
        }
        else
        {
            if (*p == '0')
                pad = '0';
            while (*p >= '0' && *p <= '9')
            {
                // Widths past a few thousand bytes are nonsense; keep the arithmetic in range.
                if (width < 100000)
                    width = width * 10 + (*p - '0');
                ++p;
            }
        }
        if (*p == 'l' || *p == 'L')
            ++p;
        const char conversion = *p;
        if (conversion == '\0')
            break;
        ++p;

        std::string digits;
        switch (conversion)
        {
        case '%':
            out.push_back('%');
            break;
        case 'c':
            out.push_back(char(va_arg(args, int)));
            break;
        case 'd':
        {
            const int32_t value = int32_t(va_arg(args, int));
            const int64_t wide = value;
            appendUnsigned(digits, uint64_t(wide < 0 ? -wide : wide), 10, false);
            appendPaddedNumber(out, digits, value < 0, width, pad);
            break;
        }
        case 'X':
        case 'x':
        case 'o':
        {
            const uint32_t value = va_arg(args, unsigned int);
            appendUnsigned(digits, value, conversion == 'o' ? 8 : 16, conversion == 'X');
            appendPaddedNumber(out, digits, false, width, pad);
            break;
        }
        case 'p':
        {
            const uintptr_t value = reinterpret_cast<uintptr_t>(va_arg(args, void*));
            appendUnsigned(digits, value, 16, true);
            appendPaddedNumber(out, digits, false, width > 8 ? width : 8, '0');
            break;
        }
        case 's':
        {
            const char* chars = va_arg(args, const char*);
            appendPaddedText(out, chars != nullptr ? std::string_view(chars) : std::string_view(), width,
                             leftJustify);
            break;
        }
        case 't':
        {
            const epiText* text = va_arg(args, const epiText*);
            appendPaddedText(out, text != nullptr ? std::string_view(*text) : std::string_view(), width,
                             leftJustify);
            break;
        }
        case 'k':
        {
            const uint32_t code = va_arg(args, unsigned int);
            for (int shift = 24; shift >= 0; shift -= 8)
            {
                const char c = char((code >> shift) & 0xFF);
                out.push_back(c == '\0' ? '_' : c);
            }
            break;
        }
        case 'I':
        {
            const uint32_t address = va_arg(args, unsigned int);
            for (int shift = 24; shift >= 0; shift -= 8)
            {
                appendUnsigned(out, (address >> shift) & 0xFF, 10, false);
                if (shift != 0)
                    out.push_back('.');
            }
            break;
        }
        case 'f':
        {
            // Floats aren't formatted here: a caller learns it from the text itself. The one word
            // taken keeps the arguments after it in step.
            const uint32_t word = va_arg(args, unsigned int);
            if (word != 0)
                appendUnsigned(out, word, 10, false);
            out += "epitext_float_unsupported";
            break;
        }
        default:
            if ((conversion >= 'a' && conversion <= 'z') || (conversion >= 'A' && conversion <= 'Z'))
            {
                const uint32_t value = va_arg(args, unsigned int);
                appendUnsigned(digits, value, 10, false);
                appendPaddedNumber(out, digits, false, width, pad);
            }
            else
            {
                // Not a conversion: the byte stands for itself and takes no argument.
                out.push_back(conversion);
            }
            break;
        }
    }
}

size_t utf16FromUtf8(std::string_view in, char16_t* out, size_t capacity)
{
    // Returns the units written, or SIZE_MAX for invalid UTF-8. Stops at capacity - 1 units without
    // splitting a pair.
    size_t n = 0;
    size_t i = 0;
    while (i < in.size())
    {
        const uint8_t c = uint8_t(in[i]);
        uint32_t cp;
        size_t extra;
        if (c < 0x80)
        {
            cp = c;
            extra = 0;
        }
        else if ((c & 0xE0) == 0xC0)
        {
            cp = c & 0x1F;
            extra = 1;
        }
        else if ((c & 0xF0) == 0xE0)
        {
            cp = c & 0x0F;
            extra = 2;
        }
        else if ((c & 0xF8) == 0xF0)
        {
            cp = c & 0x07;
            extra = 3;
        }
        else
        {
            return SIZE_MAX;
        }
        if (i + extra >= in.size())
            return SIZE_MAX;
        for (size_t k = 1; k <= extra; ++k)
        {
            const uint8_t cc = uint8_t(in[i + k]);
            if ((cc & 0xC0) != 0x80)
                return SIZE_MAX;
            cp = (cp << 6) | (cc & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
        static const uint32_t minimum[4] = {0, 0x80, 0x800, 0x10000};
        if (cp < minimum[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return SIZE_MAX;
        const size_t units = cp >= 0x10000 ? 2 : 1;
        if (out != nullptr)
        {
            if (n + units > capacity - 1)
                break;
            if (units == 2)
            {
                const uint32_t v = cp - 0x10000;
                out[n] = char16_t(0xD800 + (v >> 10));
                out[n + 1] = char16_t(0xDC00 + (v & 0x3FF));
            }
            else
            {
                out[n] = char16_t(cp);
            }
        }
        n += units;
        i += extra + 1;
    }
    return n;
}

void appendUtf8(std::string& out, uint32_t cp)
{
    if (cp < 0x80)
    {
        out.push_back(char(cp));
    }
    else if (cp < 0x800)
    {
        out.push_back(char(0xC0 | (cp >> 6)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    }
    else if (cp < 0x10000)
    {
        out.push_back(char(0xE0 | (cp >> 12)));
        out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    }
    else
    {
        out.push_back(char(0xF0 | (cp >> 18)));
        out.push_back(char(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    }
}

} // namespace

epiText::epiText(const char* chars) : std::string(chars != nullptr ? chars : "") {}

epiText::epiText(std::string_view bytes) : std::string(bytes) {}

epiText::epiText(const std::string& bytes) : std::string(bytes) {}

epiText::epiText(std::string&& bytes) noexcept : std::string(std::move(bytes)) {}

epiText& epiText::operator=(const epiText& other)
{
    std::string::operator=(other);
    return *this;
}

epiText& epiText::operator=(epiText&& other) noexcept
{
    std::string::operator=(std::move(static_cast<std::string&>(other)));
    return *this;
}

epiText& epiText::operator=(const char* chars)
{
    assignChars(chars);
    return *this;
}

epiText& epiText::operator=(std::string_view bytes)
{
    std::string::assign(bytes);
    return *this;
}

epiText& epiText::operator=(const std::string& bytes)
{
    std::string::assign(bytes);
    return *this;
}

void epiText::assignText(const epiText* other)
{
    if (other != nullptr && other != this)
        std::string::assign(*other);
}

void epiText::assignTextValue(epiText other)
{
    std::string::assign(other);
}

void epiText::assignFloat(float value)
{
    std::string::assign(printOne("%f", double(value)));
}

void epiText::assignLong(int32_t value)
{
    std::string::assign(std::to_string(value));
}

void epiText::assignShort(int16_t value)
{
    std::string::assign(std::to_string(value));
}

void epiText::assignChars(const char* chars)
{
    if (chars == nullptr)
        std::string::clear();
    else
        std::string::assign(chars);
}

void epiText::appendChars(const char* chars)
{
    if (chars != nullptr)
        std::string::append(chars);
}

void epiText::appendText(const epiText* other)
{
    if (other != nullptr)
        std::string::append(std::string(*other));
}

void epiText::appendShort(int16_t value)
{
    std::string::append(std::to_string(value));
}

void epiText::appendLong(int32_t value)
{
    std::string::append(std::to_string(value));
}

void epiText::appendFloat(float value, const char* format)
{
    if (format != nullptr)
        std::string::append(printOne(format, double(value)));
}

void epiText::appendTextValue(epiText other)
{
    std::string::append(other);
}

void epiText::appendFormatChars(const char* format, const char* chars)
{
    if (format != nullptr && chars != nullptr)
        std::string::append(printOne(format, chars));
}

void epiText::appendFormatText(const char* format, const epiText* text)
{
    if (format != nullptr && text != nullptr)
        std::string::append(printOne(format, text->c_str()));
}

void epiText::appendFormatShort(const char* format, int16_t value)
{
    if (format != nullptr)
        std::string::append(printOne(format, int(value)));
}

void epiText::appendFormatLong(const char* format, int32_t value)
{
    if (format != nullptr)
        std::string::append(printOne(format, int(value)));
}

void epiText::appendFormatFloat(const char* format, float value)
{
    if (format != nullptr)
        std::string::append(printOne(format, double(value)));
}

void epiText::assignCode(uint32_t code, int32_t)
{
    std::string::clear();
    appendCode(code, 1);
}

void epiText::appendCode(uint32_t code, int32_t)
{
    push_back(char((code >> 24) & 0xFF));
    push_back(char((code >> 16) & 0xFF));
    push_back(char((code >> 8) & 0xFF));
    push_back(char(code & 0xFF));
}

uint32_t epiText::toCode(int32_t) const
{
    uint32_t code = 0;
    for (size_t i = 0; i < 4; ++i)
    {
        const uint32_t byte = i < size() ? uint8_t((*this)[i]) : 0u;
        code |= byte << (24 - 8 * i);
    }
    return code;
}

void epiText::assignBytes(size_t length, const void* bytes)
{
    if (bytes != nullptr)
        std::string::assign(static_cast<const char*>(bytes), length);
}

void epiText::appendBytes(size_t length, const void* bytes)
{
    if (bytes != nullptr)
        std::string::append(static_cast<const char*>(bytes), length);
}

void epiText::assignChar(char c)
{
    std::string::assign(1, c);
}

void epiText::appendChar(char c)
{
    push_back(c);
}

void epiText::assignRepeated(char c, size_t count)
{
    std::string::clear();
    std::string::append(count, c);
}

void epiText::removeChar(char c)
{
    std::erase(static_cast<std::string&>(*this), c);
}

void epiText::truncate(size_t length)
{
    if (size() > length)
        resize(length);
}

void epiText::appendNewline()
{
    std::string::append("\r\n");
}

void epiText::assignHex(const void* bytes, size_t length)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string::clear();
    if (bytes == nullptr)
        return;
    const uint8_t* p = static_cast<const uint8_t*>(bytes);
    reserve(length * 2);
    for (size_t i = 0; i < length; ++i)
    {
        push_back(digits[p[i] >> 4]);
        push_back(digits[p[i] & 0x0F]);
    }
}

epiText epiText::left(size_t count) const
{
    return epiText(std::string_view(*this).substr(0, count));
}

epiText epiText::right(size_t count) const
{
    // substr() throws std::out_of_range when count exceeds the length: the byte string's own failure.
    return epiText(substr(size() - count));
}

epiText epiText::mid(size_t start, size_t count) const
{
    if (start >= size())
        return epiText();
    return epiText(std::string_view(*this).substr(start, count));
}

char epiText::lastChar() const
{
    return std::string::empty() ? '\0' : back();
}

size_t epiText::length() const
{
    return size();
}

void epiText::dropLastChar()
{
    if (!std::string::empty())
        pop_back();
}

void epiText::linesInto(int32_t first, int32_t count, epiText* dest) const
{
    if (dest == nullptr)
        return;
    dest->std::string::clear();
    size_t pos = 0;
    for (int32_t i = 0; i < first; ++i)
    {
        pos = findLineEnd(*this, pos);
        if (pos >= size())
            return;
        pos = stepLineEnd(*this, pos);
    }
    if (count <= 0 || pos >= size())
        return;
    const size_t start = pos;
    size_t end = pos;
    for (int32_t i = 0; i < count; ++i)
    {
        end = findLineEnd(*this, pos);
        if (end >= size() || i + 1 == count)
            break;
        pos = stepLineEnd(*this, end);
        if (pos >= size())
            break;
    }
    dest->std::string::assign(*this, start, end - start);
}

epiText epiText::lines(int32_t first, int32_t count) const
{
    epiText result;
    linesInto(first, count, &result);
    return result;
}

void epiText::lineInto(int32_t index, epiText* dest) const
{
    linesInto(index, 1, dest);
}

epiText epiText::line(int32_t index) const
{
    epiText result;
    lineInto(index, &result);
    return result;
}

bool epiText::equalsChars(const char* chars) const
{
    if (chars == nullptr)
        return false;
    return std::strcmp(c_str(), chars) == 0;
}

bool epiText::equalsText(const epiText* other) const
{
    if (other == nullptr)
        return false;
    return static_cast<const std::string&>(*this) == static_cast<const std::string&>(*other);
}

bool epiText::isInList(const epiText* list, int32_t* index) const
{
    if (index != nullptr)
        *index = 0;
    if (list == nullptr)
        return false;
    const int32_t count = list->fieldCount(',');
    for (int32_t i = count - 1; i >= 0; --i)
    {
        const epiText candidate = list->field(i, ',');
        if (equalsNoCase(&candidate))
        {
            if (index != nullptr)
                *index = i;
            return true;
        }
    }
    return false;
}

bool epiText::isInChars(const char* list, int32_t* index) const
{
    const epiText text(list);
    return isInList(&text, index);
}

void epiText::replaceChar(char from, char to)
{
    for (char& c : static_cast<std::string&>(*this))
    {
        if (c == from)
            c = to;
    }
}

int32_t epiText::lineCount() const
{
    if (std::string::empty())
        return 0;
    int32_t count = 0;
    size_t pos = 0;
    while (pos < size())
    {
        pos = findLineEnd(*this, pos);
        ++count;
        if (pos >= size())
            break;
        pos = stepLineEnd(*this, pos);
    }
    return count;
}

int32_t epiText::fieldCount(char separator) const
{
    if (std::string::empty())
        return 0;
    int32_t count = 1;
    for (char c : static_cast<const std::string&>(*this))
    {
        if (c == separator)
            ++count;
    }
    return count;
}

void epiText::fieldsInto(int32_t first, int32_t count, char separator, epiText* dest) const
{
    if (dest == nullptr)
        return;
    dest->std::string::clear();
    size_t pos = 0;
    // Skipping steps over exactly one separator per field, so empty fields count.
    for (int32_t i = 0; i < first; ++i)
    {
        const size_t next = find(separator, pos);
        if (next == npos)
            return;
        pos = next + 1;
    }
    if (count <= 0)
        return;
    // Copying: between copied fields a whole run of separators is stepped over as one, and kept.
    size_t end = find(separator, pos);
    if (end == npos)
        end = size();
    for (int32_t i = 1; i < count && end < size(); ++i)
    {
        while (end < size() && (*this)[end] == separator)
            ++end;
        const size_t next = find(separator, end);
        end = next == npos ? size() : next;
    }
    dest->std::string::assign(*this, pos, end - pos);
}

epiText epiText::fields(int32_t first, int32_t count, char separator) const
{
    epiText result;
    fieldsInto(first, count, separator, &result);
    return result;
}

epiText epiText::field(int32_t index, char separator) const
{
    return fields(index, 1, separator);
}

int32_t epiText::toInt() const
{
    // strtol rather than atoi: the same parse, without undefined behaviour on overflow.
    return int32_t(std::strtol(c_str(), nullptr, 10));
}

int32_t epiText::toLong() const
{
    return int32_t(std::strtol(c_str(), nullptr, 10));
}

float epiText::toFloat() const
{
    return float(std::atof(c_str()));
}

void epiText::copyTo(char* dest, size_t maxLength) const
{
    if (dest == nullptr)
        return;
    if (maxLength == 0)
        maxLength = 256;
    const size_t n = size() < maxLength ? size() : maxLength;
    std::memcpy(dest, data(), n);
    dest[n] = '\0';
}

void epiText::reserved(intptr_t) {}

int32_t epiText::wordCount() const
{
    return fieldCount(' ');
}

epiText epiText::words(int32_t first, int32_t count) const
{
    return fields(first, count, ' ');
}

epiText epiText::word(int32_t index) const
{
    return words(index, 1);
}

void epiText::clear()
{
    std::string::clear();
}

void epiText::appendComma()
{
    push_back(',');
}

bool epiText::isEmpty() const
{
    return std::string::empty();
}

uint32_t epiText::code() const
{
    return toCode(1);
}

void epiText::setCode(uint32_t code)
{
    assignCode(code, 1);
}

void epiText::formatAssign(const char* format, ...)
{
    std::string out;
    va_list args;
    va_start(args, format);
    formatInto(out, format, args);
    va_end(args);
    std::string::assign(out);
}

void epiText::formatAppend(const char* format, ...)
{
    std::string out;
    va_list args;
    va_start(args, format);
    formatInto(out, format, args);
    va_end(args);
    std::string::append(out);
}

void epiText::printAssign(const char* format, ...)
{
    if (format == nullptr)
        return;
    va_list args;
    va_start(args, format);
    std::string out = vprint(format, args);
    va_end(args);
    std::string::assign(out);
}

void epiText::appendElement(const char* tag, const epiText* value, bool newline)
{
    formatAppend("<%s>%t</%s>", tag, value, tag);
    if (newline)
        appendNewline();
}

bool epiText::equalsNoCase(const char* chars) const
{
    if (chars == nullptr)
        return true;
    return equalNoCase(*this, chars);
}

bool epiText::equalsNoCase(const epiText* other) const
{
    if (other == nullptr)
        return true;
    return equalNoCase(*this, *other);
}

bool epiText::contains(const char* chars) const
{
    if (chars == nullptr || std::string::empty())
        return false;
    return find(chars) != npos;
}

bool epiText::containsChar(char c) const
{
    return find(c) != npos;
}

bool epiText::startsWith(const char* prefix) const
{
    if (prefix == nullptr)
        return false;
    return std::string_view(*this).starts_with(prefix);
}

bool epiText::startsWith(const epiText* prefix) const
{
    if (prefix == nullptr)
        return false;
    return std::string_view(*this).starts_with(std::string_view(*prefix));
}

void epiText::toUpper()
{
    for (char& c : static_cast<std::string&>(*this))
    {
        if (c >= 'a' && c <= 'z')
            c = char(c - 'a' + 'A');
    }
}

epiText epiText::lastField(char separator) const
{
    const int32_t count = fieldCount(separator);
    if (count == 0)
        return epiText();
    return field(count - 1, separator);
}

void epiText::keepChars(const epiText* set)
{
    if (set == nullptr || set->std::string::empty())
        return;
    std::erase_if(static_cast<std::string&>(*this), [set](char c) { return set->find(c) == npos; });
}

epiText epiText::quotedField(int32_t index, char separator, char quote) const
{
    size_t pos = 0;
    for (int32_t i = 0;; ++i)
    {
        size_t start = pos;
        size_t end;
        size_t next;
        if (pos < size() && (*this)[pos] == quote)
        {
            // A quoted field runs to the closing quote whatever it holds; what follows the quote up
            // to the separator belongs to no field.
            start = pos + 1;
            const size_t close = find(quote, start);
            end = close == npos ? size() : close;
            next = close == npos ? npos : find(separator, close + 1);
        }
        else
        {
            next = find(separator, pos);
            end = next == npos ? size() : next;
        }
        if (i == index)
            return epiText(std::string_view(*this).substr(start, end - start));
        if (next == npos || i >= index)
            return epiText();
        pos = next + 1;
    }
}

void epiText::insertChar(char c, size_t position)
{
    insert(position, 1, c);
}

size_t epiText::toWide(char16_t* buffer, size_t capacity) const
{
    if (buffer == nullptr || capacity == 0)
        return 0;
    buffer[0] = 0;
    if (std::string::empty())
        return 0;
    const size_t n = utf16FromUtf8(*this, buffer, capacity);
    if (n == SIZE_MAX)
    {
        buffer[0] = 0;
        return 0;
    }
    buffer[n] = 0;
    return n;
}

const char16_t* epiText::toWideStatic() const
{
    static char16_t shared[1000];
    toWide(shared, 1000);
    return shared;
}

void epiText::fromWide(const char16_t* wide)
{
    std::string out;
    if (wide != nullptr)
    {
        for (size_t i = 0; wide[i] != 0; ++i)
        {
            uint32_t cp = wide[i];
            if (cp >= 0xD800 && cp <= 0xDBFF && wide[i + 1] >= 0xDC00 && wide[i + 1] <= 0xDFFF)
            {
                cp = 0x10000 + ((cp - 0xD800) << 10) + (uint32_t(wide[i + 1]) - 0xDC00);
                ++i;
            }
            else if (cp >= 0xD800 && cp <= 0xDFFF)
            {
                cp = 0xFFFD;
            }
            appendUtf8(out, cp);
        }
    }
    std::string::assign(out);
}

epiTextsList::~epiTextsList()
{
    clear();
}

void epiTextsList::clear()
{
    while (!empty())
    {
        epiObject* element = front();
        pop_front();
        delete static_cast<epiText*>(element);
    }
}

void epiTextsList::appendCopy(const epiText* text)
{
    append(text != nullptr ? new epiText(*text) : new epiText());
}

void epiTextsList::appendChars(const char* chars)
{
    auto* text = new epiText();
    text->assignChars(chars);
    append(text);
}

epiText* epiTextsList::textAt(int32_t index) const
{
    return static_cast<epiText*>(at(index));
}
