#pragma once

#include "epi/epiObject.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/**
 * The string type of the whole program: a byte string with a length, number parsing and printing,
 * line and field access and the framework's own formatter.
 *
 * It holds bytes and nothing more: text meant for people or the system is UTF-8, but nothing here
 * checks it, and hexadecimal dumps and four-character codes live in it as well. Lengths and
 * positions are counted in bytes. Failures of the underlying byte string are the standard ones
 * (std::length_error, std::out_of_range); apart from them nothing here reports errors.
 *
 * Line ends are CR, LF or CR LF, each counting once. Fields are parts between separator bytes.
 */
class epiText : public epiObject, public std::string
{
public:
    epiText() = default;
    /** Copies the bytes and, deliberately, the reference count of `other` as it stands. */
    epiText(const epiText& other) = default;
    epiText(epiText&& other) noexcept = default;
    /** The bytes up to the NUL; null gives an empty text. */
    epiText(const char* chars);
    epiText(std::string_view bytes);
    epiText(const std::string& bytes);
    epiText(std::string&& bytes) noexcept;
    ~epiText() override = default;

    /** Assignment copies the bytes only; this object's own count is kept. */
    epiText& operator=(const epiText& other);
    epiText& operator=(epiText&& other) noexcept;
    epiText& operator=(const char* chars);
    epiText& operator=(std::string_view bytes);
    epiText& operator=(const std::string& bytes);

    /** Copies `other`'s bytes; null leaves this text unchanged. */
    virtual void assignText(const epiText* other);
    /** Copies `other`'s bytes. */
    virtual void assignTextValue(epiText other);
    /** The value printed with "%f". */
    virtual void assignFloat(float value);
    /** The value in decimal. */
    virtual void assignLong(int32_t value);
    /** The value in decimal. */
    virtual void assignShort(int16_t value);
    /** The bytes up to the NUL; null clears the text. */
    virtual void assignChars(const char* chars);
    /** Appends the bytes up to the NUL; null appends nothing. */
    virtual void appendChars(const char* chars);
    /** Appends `other`'s bytes; null appends nothing. */
    virtual void appendText(const epiText* other);
    /** Appends the value in decimal. */
    virtual void appendShort(int16_t value);
    /** Appends the value in decimal. */
    virtual void appendLong(int32_t value);
    /** Appends the value printed with the C library's `format` (one float conversion). */
    virtual void appendFloat(float value, const char* format);
    /** Appends `other`'s bytes. */
    virtual void appendTextValue(epiText other);
    /** Appends C's printf of `format` with one string argument; a null string appends nothing. */
    virtual void appendFormatChars(const char* format, const char* chars);
    /** The same with the bytes of `text` (up to a NUL); null appends nothing. */
    virtual void appendFormatText(const char* format, const epiText* text);
    /** Appends C's printf of `format` with one integer argument. */
    virtual void appendFormatShort(const char* format, int16_t value);
    /** Appends C's printf of `format` with one integer argument. */
    virtual void appendFormatLong(const char* format, int32_t value);
    /** Appends C's printf of `format` with one floating-point argument. */
    virtual void appendFormatFloat(const char* format, float value);
    /** The text becomes exactly four bytes, the most significant byte of `code` first. */
    virtual void assignCode(uint32_t code, int32_t flag = 1);
    /** Appends the four bytes of `code`, the most significant first. */
    virtual void appendCode(uint32_t code, int32_t flag = 1);
    /**
     * The first four bytes packed into a code, the first byte most significant; missing bytes are
     * zero, so "ab" gives 0x61620000 and an empty text 0. `flag` is ignored.
     */
    virtual uint32_t toCode(int32_t flag = 1) const;
    /** Copies `length` bytes; a null pointer leaves the text unchanged. */
    virtual void assignBytes(size_t length, const void* bytes);
    /** Appends `length` bytes; a null pointer appends nothing. */
    virtual void appendBytes(size_t length, const void* bytes);
    /** The text becomes this one byte. */
    virtual void assignChar(char c);
    /** Appends one byte. */
    virtual void appendChar(char c);
    /** The text becomes `count` copies of `c`. */
    virtual void assignRepeated(char c, size_t count);
    /** Removes every occurrence of `c`. */
    virtual void removeChar(char c);
    /** Cuts the text to `length` bytes when it is longer. */
    virtual void truncate(size_t length);
    /** Appends CR LF. */
    virtual void appendNewline();
    /** Two upper-case hexadecimal digits per byte, high nibble first; length 0 gives empty. */
    virtual void assignHex(const void* bytes, size_t length);
    /** The first `count` bytes, fewer when the text is shorter. */
    virtual epiText left(size_t count) const;
    /**
     * The last `count` bytes. A `count` above the length throws std::out_of_range, as the byte
     * string does for any position past its end: callers check the length first.
     */
    virtual epiText right(size_t count) const;
    /** `count` bytes from `start`, clipped to the end; empty when `start` is at or past the end. */
    virtual epiText mid(size_t start, size_t count) const;
    /** The last byte, 0 when empty. */
    virtual char lastChar() const;
    /** The length in bytes. */
    virtual size_t length() const;
    /** Removes the last byte; nothing when empty. */
    virtual void dropLastChar();
    /**
     * `count` lines from line `first`, as one piece with the line ends between them and without
     * the last one. `dest` is cleared first.
     */
    virtual void linesInto(int32_t first, int32_t count, epiText* dest) const;
    /** linesInto() as a new text. */
    virtual epiText lines(int32_t first, int32_t count) const;
    /** Line `index` without its line end; `dest` stays empty when the text has fewer lines. */
    virtual void lineInto(int32_t index, epiText* dest) const;
    /** lineInto() as a new text. */
    virtual epiText line(int32_t index) const;
    /** True when the text up to its first NUL equals `chars`; null equals nothing. */
    virtual bool equalsChars(const char* chars) const;
    /** Exact comparison of all bytes; null equals nothing. */
    virtual bool equalsText(const epiText* other) const;
    /**
     * Looks this text up in the comma-separated `list`, ignoring ASCII case, from the last field
     * to the first. @param index receives the matching field's index, 0 when none (may be null)
     */
    virtual bool isInList(const epiText* list, int32_t* index) const;
    /** isInList() with the list given as characters; null is the empty list. */
    virtual bool isInChars(const char* list, int32_t* index) const;
    /** Replaces every `from` by `to`. */
    virtual void replaceChar(char from, char to);
    /** Number of lines: 0 when empty; a line end at the very end opens no further line. */
    virtual int32_t lineCount() const;
    /** Number of separators plus one; 0 for an empty text. */
    virtual int32_t fieldCount(char separator) const;
    /**
     * `count` fields from field `first` into `dest` (cleared first). Skipping steps over exactly
     * one separator per field, so empty fields count; between copied fields a whole run of
     * separators is stepped over as one and kept, so fields(0, 2, ',') of "a,,b,c" is "a,,b".
     */
    virtual void fieldsInto(int32_t first, int32_t count, char separator, epiText* dest) const;
    /** fieldsInto() as a new text. */
    virtual epiText fields(int32_t first, int32_t count, char separator) const;
    /** fields(index, 1, separator). */
    virtual epiText field(int32_t index, char separator) const;
    /** C's atoi. */
    virtual int32_t toInt() const;
    /** C's atol, as 32 bits. */
    virtual int32_t toLong() const;
    /** C's atof rounded to float. */
    virtual float toFloat() const;
    /**
     * Copies min(length, maxLength) bytes and a NUL to `dest`, which holds maxLength + 1 bytes;
     * maxLength 0 means 256.
     */
    virtual void copyTo(char* dest, size_t maxLength) const;
    /** Takes one argument and does nothing. */
    virtual void reserved(intptr_t value);
    /** fieldCount(' '). */
    virtual int32_t wordCount() const;
    /** fields(first, count, ' '). */
    virtual epiText words(int32_t first, int32_t count) const;
    /** words(index, 1). */
    virtual epiText word(int32_t index) const;
    /** The text becomes empty. */
    virtual void clear();
    /** Appends ','. */
    virtual void appendComma();
    /** Length 0. */
    virtual bool isEmpty() const;
    /** toCode(1). */
    virtual uint32_t code() const;
    /** assignCode(code, 1). */
    virtual void setCode(uint32_t code);

    /** The bytes, NUL-terminated. */
    const char* cstr() const { return c_str(); }

    /**
     * The framework's own formatter, result assigned. A directive is '%', an optional '-' (left
     * justification of %s and %t), a width as digits or '*' (an int argument; a leading '0' pads
     * numbers with '0'), an optional 'l' or 'L' that changes nothing, then the conversion:
     *   %%  one '%'            %c  one byte (int)         %d  signed decimal (int32)
     *   %X  upper-case hex     %x  lower-case hex         %o  octal (uint32 each)
     *   %p  a pointer in upper-case hex, at least 8 digits, zero-padded
     *   %s  a NUL-terminated string (const char*)   %t  the bytes of an epiText (const epiText*)
     *   %k  a four-character code (uint32), a zero byte printed as '_'
     *   %I  an IPv4 address (uint32), most significant byte first
     *   %f  unsupported: the word (uint32) in decimal unless it is 0, then
     *       "epitext_float_unsupported"; never pass a double to it
     *   any other letter: the word (uint32) in unsigned decimal.
     * Numbers are right-justified; %s and %t pad with blanks. Null %s and %t print as empty.
     */
    void formatAssign(const char* format, ...);
    /** formatAssign(), result appended. */
    void formatAppend(const char* format, ...);
    /** C's vsprintf, result assigned. */
    void printAssign(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /** Appends "<tag>value</tag>", then CR LF when `newline` is true. */
    void appendElement(const char* tag, const epiText* value, bool newline);
    /** Equality in which only ASCII letters fold; null compares as equal. */
    bool equalsNoCase(const char* chars) const;
    /** Equality in which only ASCII letters fold; null compares as equal. */
    bool equalsNoCase(const epiText* other) const;
    /** Substring test: an empty text contains nothing, a non-empty one contains "". Null is false. */
    bool contains(const char* chars) const;
    /** Byte test; false for an empty text. */
    bool containsChar(char c) const;
    /** Exact prefix test; a null prefix is false, the empty prefix true. */
    bool startsWith(const char* prefix) const;
    /** Exact prefix test; a null prefix is false, the empty prefix true. */
    bool startsWith(const epiText* prefix) const;
    /** 'a' to 'z' become upper case, in place; other bytes stay. */
    void toUpper();
    /** The last field; without a separator the whole text. */
    epiText lastField(char separator) const;
    /** Removes every byte that isn't in `set`; an empty or null set removes nothing. */
    void keepChars(const epiText* set);
    /**
     * Field `index` of a list in which a field that opens with `quote` runs to the next `quote`,
     * separators included, and comes back without its quotes.
     */
    epiText quotedField(int32_t index, char separator, char quote) const;
    /** Inserts `c` before byte `position`; past the end throws std::out_of_range. */
    void insertChar(char c, size_t position);
    /**
     * The UTF-8 bytes as UTF-16: at most capacity - 1 units (never half a surrogate pair) and a
     * terminating zero. An empty text or invalid UTF-8 gives an empty string.
     * @return the number of units written, without the terminator
     */
    size_t toWide(char16_t* buffer, size_t capacity) const;
    /**
     * toWide() into one shared buffer of 1000 units, valid until the next call.
     */
    // [ui thread]
    const char16_t* toWideStatic() const;
    /** Assigns the UTF-8 form of a zero-terminated UTF-16 string; lone surrogates become U+FFFD. */
    void fromWide(const char16_t* wide);
};

/** A growing list that owns its elements, all of them epiText. */
class epiTextsList : public epiObjectsList
{
public:
    epiTextsList() = default;
    epiTextsList(const epiTextsList&) = delete;
    epiTextsList& operator=(const epiTextsList&) = delete;
    /** Deletes every element, from the front. */
    ~epiTextsList() override;

    /** Deletes every element, from the front. */
    void clear();
    /** Appends a new copy of `text`; null appends an empty text. */
    void appendCopy(const epiText* text);
    /** Appends a new text holding `chars`. */
    void appendChars(const char* chars);
    /** The element at `index`, null when out of range. */
    epiText* textAt(int32_t index) const;
};
