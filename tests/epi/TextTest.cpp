#include "epi/epiText.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

// The framework's own formatter, directive by directive.

namespace
{

template <typename... Args> epiText fmt(const char* format, Args... args)
{
    epiText t("stale");
    t.formatAssign(format, args...);
    return t;
}

} // namespace

TEST(TextFormatter, PlainTextAndPercent)
{
    EXPECT_EQ(fmt("no directives"), "no directives");
    EXPECT_EQ(fmt("100%% sure"), "100% sure");
    EXPECT_TRUE(fmt("").isEmpty());
    // A '%' at the very end prints nothing and ends the format.
    EXPECT_EQ(fmt("end%"), "end");
}

TEST(TextFormatter, SignedDecimalWidthAndPadding)
{
    EXPECT_EQ(fmt("%d|%d|%d", 0, 42, -42), "0|42|-42");
    EXPECT_EQ(fmt("[%5d][%05d][%5d][%05d]", 42, 42, -42, -42), "[   42][00042][  -42][-0042]");
    // Numbers are always right-justified: '-' doesn't move them.
    EXPECT_EQ(fmt("[%-5d]", 7), "[    7]");
    EXPECT_EQ(fmt("%d", INT32_MIN), "-2147483648");
    // A width narrower than the number never cuts it.
    EXPECT_EQ(fmt("%2d", 12345), "12345");
}

TEST(TextFormatter, HexOctalAndLengthModifiers)
{
    EXPECT_EQ(fmt("%X %x %o", 0xBEEFu, 0xBEEFu, 8u), "BEEF beef 10");
    EXPECT_EQ(fmt("%08X|%4x", 0xABCu, 0xFu), "00000ABC|   f");
    // The words are unsigned: -1 prints as all ones.
    EXPECT_EQ(fmt("%X", -1), "FFFFFFFF");
    // 'l' and 'L' change nothing.
    EXPECT_EQ(fmt("%ld %lX %Ld", 5, 255u, -3), "5 FF -3");
    // Other letters print unsigned decimal.
    EXPECT_EQ(fmt("%u %q %5u", 7u, -1, 3u), "7 4294967295     3");
}

TEST(TextFormatter, StringsAndTextsPadWithBlanks)
{
    const epiText word("word");
    EXPECT_EQ(fmt("[%s][%6s][%-6s][%2s]", "ab", "ab", "ab", "long"), "[ab][    ab][ab    ][long]");
    EXPECT_EQ(fmt("[%t][%7t][%-7t]", &word, &word, &word), "[word][   word][word   ]");
    // Null strings print as nothing instead of crashing.
    EXPECT_EQ(fmt("[%s][%3t]", static_cast<const char*>(nullptr), static_cast<const epiText*>(nullptr)),
              "[][   ]");
    // %t takes every byte of the text, a NUL inside included.
    epiText withNul;
    withNul.assignBytes(3, "a\0b");
    const epiText t = fmt("%t", &withNul);
    EXPECT_EQ(t.size(), 3u);
    EXPECT_EQ(t, withNul);
}

TEST(TextFormatter, StarWidthComesFromTheArguments)
{
    EXPECT_EQ(fmt("[%*d][%*s][%-*s]", 4, 7, 3, "x", 3, "y"), "[   7][  x][y  ]");
    // A negative '*' width justifies left, as C does.
    EXPECT_EQ(fmt("[%*s]", -3, "z"), "[z  ]");
}

TEST(TextFormatter, CharCodesAndAddresses)
{
    EXPECT_EQ(fmt("%c%c%c", 'a', 'b', 'c'), "abc");
    EXPECT_EQ(fmt("%k", 0x61620000u), "ab__");
    EXPECT_EQ(fmt("%k|%k", epiCode("oApp"), 0u), "oApp|____");
    EXPECT_EQ(fmt("%I", 0xC0A80001u), "192.168.0.1");
    EXPECT_EQ(fmt("%I", 0xFFFFFFFFu), "255.255.255.255");
}

TEST(TextFormatter, AppendKeepsWhatIsThereAndLongResultsAreWhole)
{
    epiText t("x=");
    t.formatAppend("%d", 5);
    EXPECT_EQ(t, "x=5");
    const std::string big(600, 'q');
    t.formatAssign("<%s>", big.c_str());
    EXPECT_EQ(t.size(), 602u);
    EXPECT_EQ(t, "<" + big + ">");
}

TEST(TextFormatter, AppendElement)
{
    epiText value("4");
    epiText t;
    t.appendElement("vers", &value, true);
    t.appendElement("name", &value, false);
    EXPECT_EQ(t, "<vers>4</vers>\r\n<name>4</name>");
}

TEST(TextFormatter, CLibraryFormats)
{
    epiText t;
    t.printAssign("%.2f|%s|%04d", 1.25, "z", 7);
    EXPECT_EQ(t, "1.25|z|0007");
    t.clear();
    t.appendFormatChars("<%s>", "in");
    t.appendFormatChars("<%s>", nullptr);
    const epiText in("tx");
    t.appendFormatText("[%s]", &in);
    t.appendFormatText("[%s]", nullptr);
    t.appendFormatShort("%+d", int16_t(-3));
    t.appendFormatLong("%x", 255);
    t.appendFormatFloat("%.1f", 2.5f);
    t.appendFloat(0.5f, "%.3f");
    EXPECT_EQ(t, "<in>[tx]-3ff2.50.500");
}

// Numbers, codes and bytes.

TEST(TextNumbers, AssignAndAppendNumbers)
{
    epiText t;
    t.assignFloat(1.5f);
    EXPECT_EQ(t, "1.500000");
    t.assignLong(-2147483647 - 1);
    EXPECT_EQ(t, "-2147483648");
    t.assignShort(int16_t(-32768));
    EXPECT_EQ(t, "-32768");
    t.appendShort(int16_t(1));
    t.appendLong(23);
    EXPECT_EQ(t, "-32768123");
}

TEST(TextNumbers, Parsing)
{
    EXPECT_EQ(epiText("  42abc").toInt(), 42);
    EXPECT_EQ(epiText("-17").toLong(), -17);
    EXPECT_EQ(epiText("x").toInt(), 0);
    EXPECT_EQ(epiText("").toInt(), 0);
    EXPECT_FLOAT_EQ(epiText("2.5e1").toFloat(), 25.0f);
    EXPECT_FLOAT_EQ(epiText("junk").toFloat(), 0.0f);
}

TEST(TextCodes, ShortTextsPadWithZeroBytes)
{
    EXPECT_EQ(epiText("ab").toCode(), 0x61620000u);
    EXPECT_EQ(epiText("").toCode(), 0u);
    EXPECT_EQ(epiText("oAppX").code(), 0x6F417070u);
    // Bytes above 0x7F must not sign-extend into the higher positions.
    EXPECT_EQ(epiText("\xFF\x80").toCode(), 0xFF800000u);

    epiText t("previous");
    t.assignCode(0x61620000u, 0);
    ASSERT_EQ(t.length(), 4u);
    EXPECT_EQ(t[0], 'a');
    EXPECT_EQ(t[1], 'b');
    EXPECT_EQ(t[2], '\0');
    EXPECT_EQ(t[3], '\0');
    EXPECT_EQ(t.toCode(), 0x61620000u);

    t.setCode(epiCode("kpRe"));
    t.appendCode(epiCode("tnCs"));
    EXPECT_EQ(t, "kpRetnCs");
    EXPECT_EQ(epiCode("oApp"), 0x6F417070u);
    EXPECT_EQ(epiCode("baob"), 0x62616F62u);
}

TEST(TextBytes, AssignAppendAndHex)
{
    epiText t("keep");
    t.assignBytes(2, nullptr);
    EXPECT_EQ(t, "keep");
    t.assignBytes(3, "x\0y");
    EXPECT_EQ(t.size(), 3u);
    t.appendBytes(1, nullptr);
    t.appendBytes(1, "z");
    EXPECT_EQ(t, std::string("x\0yz", 4));

    const uint8_t bytes[] = {0x00, 0x0F, 0xA5, 0xFF};
    t.assignHex(bytes, sizeof bytes);
    EXPECT_EQ(t, "000FA5FF");
    t.assignHex(bytes, 0);
    EXPECT_TRUE(t.isEmpty());
}

TEST(TextBytes, CharOperations)
{
    epiText t;
    t.assignChar('a');
    t.appendChar('b');
    t.appendComma();
    EXPECT_EQ(t, "ab,");
    EXPECT_EQ(t.lastChar(), ',');
    t.dropLastChar();
    EXPECT_EQ(t, "ab");
    t.assignRepeated('-', 3);
    EXPECT_EQ(t, "---");
    t.assignRepeated('-', 0);
    EXPECT_TRUE(t.isEmpty());
    EXPECT_EQ(t.lastChar(), '\0');
    t.dropLastChar();
    EXPECT_TRUE(t.isEmpty());

    t = "a-b-c";
    t.removeChar('-');
    EXPECT_EQ(t, "abc");
    t.replaceChar('b', '/');
    EXPECT_EQ(t, "a/c");
    t.insertChar('X', 0);
    t.insertChar('Y', t.size());
    EXPECT_EQ(t, "Xa/cY");
    EXPECT_THROW(t.insertChar('Z', 99), std::out_of_range);
    t.truncate(10);
    EXPECT_EQ(t, "Xa/cY");
    t.truncate(2);
    EXPECT_EQ(t, "Xa");
    t.appendNewline();
    EXPECT_EQ(t, "Xa\r\n");
}

TEST(TextBytes, UpperAndKeepChars)
{
    epiText t("abz\xC3\xA9-Q");
    t.toUpper();
    // Only 'a' to 'z' change: the bytes of a UTF-8 letter stay as they are.
    EXPECT_EQ(t, "ABZ\xC3\xA9-Q");

    t = "a1b2c3";
    const epiText digits("0123456789");
    t.keepChars(&digits);
    EXPECT_EQ(t, "123");
    const epiText none;
    t.keepChars(&none);
    EXPECT_EQ(t, "123");
    t.keepChars(nullptr);
    EXPECT_EQ(t, "123");
}

TEST(TextBytes, CopyToHonoursTheLimit)
{
    const epiText big(std::string(300, 'k'));
    char dest[300 + 8];
    std::memset(dest, '#', sizeof dest);
    big.copyTo(dest, 0);
    EXPECT_EQ(std::strlen(dest), 256u);
    EXPECT_EQ(dest[257], '#');

    std::memset(dest, '#', sizeof dest);
    epiText("hello").copyTo(dest, 3);
    EXPECT_STREQ(dest, "hel");
    EXPECT_EQ(dest[4], '#');

    epiText("hi").copyTo(dest, 10);
    EXPECT_STREQ(dest, "hi");
}

TEST(TextParts, LeftRightMid)
{
    const epiText t("abcdef");
    EXPECT_EQ(t.left(2), "ab");
    EXPECT_EQ(t.left(99), "abcdef");
    EXPECT_EQ(t.right(2), "ef");
    EXPECT_EQ(t.right(6), "abcdef");
    EXPECT_THROW(t.right(7), std::out_of_range);
    EXPECT_EQ(t.mid(2, 3), "cde");
    EXPECT_EQ(t.mid(4, 99), "ef");
    EXPECT_EQ(t.mid(6, 1), "");
    EXPECT_EQ(t.mid(60, 1), "");
}

// Lines: CR, LF and CR LF each end one line.

TEST(TextLines, Count)
{
    EXPECT_EQ(epiText("").lineCount(), 0);
    EXPECT_EQ(epiText("a").lineCount(), 1);
    EXPECT_EQ(epiText("a\r\n").lineCount(), 1);
    EXPECT_EQ(epiText("a\r\nb").lineCount(), 2);
    EXPECT_EQ(epiText("\n").lineCount(), 1);
    EXPECT_EQ(epiText("\n\n").lineCount(), 2);
    EXPECT_EQ(epiText("a\rb\nc").lineCount(), 3);
    // LF CR is two line ends, unlike CR LF.
    EXPECT_EQ(epiText("a\n\rb").lineCount(), 3);
}

TEST(TextLines, SingleLines)
{
    const epiText t("one\r\ntwo\rthree\n\nfive");
    EXPECT_EQ(t.line(0), "one");
    EXPECT_EQ(t.line(1), "two");
    EXPECT_EQ(t.line(2), "three");
    EXPECT_EQ(t.line(3), "");
    EXPECT_EQ(t.line(4), "five");
    EXPECT_EQ(t.line(5), "");

    epiText dest("stale");
    epiText("a\n").lineInto(1, &dest);
    EXPECT_TRUE(dest.isEmpty());
    epiText("x\ny").lineInto(7, &dest);
    EXPECT_TRUE(dest.isEmpty());
}

TEST(TextLines, RunsOfLinesKeepInnerEnds)
{
    const epiText t("a\r\nb\nc\r\nd\n");
    EXPECT_EQ(t.lines(1, 2), "b\nc");
    EXPECT_EQ(t.lines(0, 4), "a\r\nb\nc\r\nd");
    // Asking for more lines than there are stops at the text's end without the last line end.
    EXPECT_EQ(t.lines(2, 10), "c\r\nd");
    EXPECT_EQ(t.lines(0, 0), "");
    EXPECT_EQ(t.lines(9, 1), "");
}

// Fields: skipping counts every separator, copying steps over runs.

TEST(TextFields, Count)
{
    EXPECT_EQ(epiText("").fieldCount(','), 0);
    EXPECT_EQ(epiText("a").fieldCount(','), 1);
    EXPECT_EQ(epiText("a,").fieldCount(','), 2);
    EXPECT_EQ(epiText(",,").fieldCount(','), 3);
    EXPECT_EQ(epiText("one two  three").wordCount(), 4);
}

TEST(TextFields, SkippingCountsEmptyFields)
{
    const epiText t("a,,b,c");
    EXPECT_EQ(t.field(0, ','), "a");
    EXPECT_EQ(t.field(1, ','), "");
    EXPECT_EQ(t.field(2, ','), "b");
    EXPECT_EQ(t.field(3, ','), "c");
    EXPECT_EQ(t.field(4, ','), "");
    EXPECT_EQ(epiText("a").field(1, ','), "");
    EXPECT_EQ(epiText("a,").field(1, ','), "");
}

TEST(TextFields, CopyingKeepsRunsOfSeparators)
{
    const epiText t("a,,b,c");
    EXPECT_EQ(t.fields(0, 2, ','), "a,,b");
    EXPECT_EQ(t.fields(0, 3, ','), "a,,b,c");
    EXPECT_EQ(t.fields(2, 2, ','), "b,c");
    // From the empty field, the run after it is stepped over as one.
    EXPECT_EQ(t.fields(1, 2, ','), ",b");
    EXPECT_EQ(t.fields(0, 9, ','), "a,,b,c");
    EXPECT_EQ(t.fields(0, 0, ','), "");

    epiText dest("stale");
    t.fieldsInto(9, 1, ',', &dest);
    EXPECT_TRUE(dest.isEmpty());

    const epiText sentence("the  quick brown fox");
    EXPECT_EQ(sentence.word(0), "the");
    EXPECT_EQ(sentence.word(1), "");
    EXPECT_EQ(sentence.words(0, 2), "the  quick");
}

TEST(TextFields, LastField)
{
    EXPECT_EQ(epiText("name").lastField('.'), "name");
    EXPECT_EQ(epiText("a.b.c").lastField('.'), "c");
    EXPECT_EQ(epiText("a.").lastField('.'), "");
    EXPECT_EQ(epiText("").lastField('.'), "");
}

TEST(TextFields, QuotedFields)
{
    const epiText t("plain,\"with, comma\",last");
    EXPECT_EQ(t.quotedField(0, ',', '"'), "plain");
    EXPECT_EQ(t.quotedField(1, ',', '"'), "with, comma");
    EXPECT_EQ(t.quotedField(2, ',', '"'), "last");
    EXPECT_EQ(t.quotedField(3, ',', '"'), "");
    // An unclosed quote runs to the end.
    EXPECT_EQ(epiText("a,\"open, end").quotedField(1, ',', '"'), "open, end");
    EXPECT_EQ(epiText("\"\",x").quotedField(1, ',', '"'), "x");
}

// Comparisons.

TEST(TextCompare, ExactAndCaseFolded)
{
    const epiText t("Guitar");
    EXPECT_TRUE(t.equalsChars("Guitar"));
    EXPECT_FALSE(t.equalsChars("guitar"));
    EXPECT_FALSE(t.equalsChars(nullptr));
    const epiText same("Guitar");
    const epiText other("guitar");
    EXPECT_TRUE(t.equalsText(&same));
    EXPECT_FALSE(t.equalsText(&other));
    EXPECT_TRUE(t.equalsNoCase("gUITAR"));
    EXPECT_TRUE(t.equalsNoCase(&other));
    EXPECT_FALSE(t.equalsNoCase("Guitars"));
    // A null argument compares as equal.
    EXPECT_TRUE(t.equalsNoCase(static_cast<const char*>(nullptr)));
    EXPECT_TRUE(t.equalsNoCase(static_cast<const epiText*>(nullptr)));
    // Only ASCII folds: É and é differ.
    EXPECT_FALSE(epiText("\xC3\x89").equalsNoCase("\xC3\xA9"));
    // equalsText compares every byte; a NUL inside the text counts.
    epiText withNul;
    withNul.assignBytes(3, "ab\0");
    const epiText ab("ab");
    EXPECT_FALSE(withNul.equalsText(&ab));
}

TEST(TextCompare, ContainsAndStartsWith)
{
    const epiText t("abc");
    EXPECT_TRUE(t.contains("bc"));
    EXPECT_FALSE(t.contains("cb"));
    EXPECT_TRUE(t.contains(""));
    EXPECT_FALSE(t.contains(nullptr));
    EXPECT_FALSE(epiText("").contains(""));
    EXPECT_TRUE(t.containsChar('a'));
    EXPECT_FALSE(epiText("").containsChar('\0'));

    EXPECT_TRUE(t.startsWith("ab"));
    EXPECT_TRUE(t.startsWith(""));
    EXPECT_FALSE(t.startsWith("abcd"));
    EXPECT_FALSE(t.startsWith(static_cast<const char*>(nullptr)));
    const epiText prefix("a");
    EXPECT_TRUE(t.startsWith(&prefix));
    EXPECT_FALSE(t.startsWith(static_cast<const epiText*>(nullptr)));
}

TEST(TextCompare, ListMembershipTakesTheLastMatch)
{
    const epiText list("wav,AIF,aiff,aif");
    int32_t index = -1;
    EXPECT_TRUE(epiText("aif").isInList(&list, &index));
    EXPECT_EQ(index, 3);
    EXPECT_TRUE(epiText("WAV").isInList(&list, &index));
    EXPECT_EQ(index, 0);
    index = -1;
    EXPECT_FALSE(epiText("mp3").isInList(&list, &index));
    EXPECT_EQ(index, 0);
    const epiText empty;
    index = -1;
    EXPECT_FALSE(epiText("").isInList(&empty, &index));
    EXPECT_EQ(index, 0);
    EXPECT_TRUE(epiText("").isInChars("a,,b", &index));
    EXPECT_EQ(index, 1);
    EXPECT_FALSE(epiText("a").isInChars(nullptr, &index));
    EXPECT_TRUE(epiText("b").isInChars("a,b", nullptr));
}

// Wide conversions.

TEST(TextWide, RoundTripThroughUtf16)
{
    // e acute (2 bytes), euro (3 bytes) and a guitar outside the BMP (4 bytes, a surrogate pair).
    const epiText t("h\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB8");
    char16_t wide[16];
    ASSERT_EQ(t.toWide(wide, 16), 5u);
    EXPECT_EQ(wide[0], u'h');
    EXPECT_EQ(wide[1], char16_t(0xE9));
    EXPECT_EQ(wide[2], char16_t(0x20AC));
    EXPECT_EQ(wide[3], char16_t(0xD83C));
    EXPECT_EQ(wide[4], char16_t(0xDFB8));
    EXPECT_EQ(wide[5], 0);
    epiText back;
    back.fromWide(wide);
    EXPECT_EQ(back, t);
    EXPECT_EQ(std::u16string(t.toWideStatic()), std::u16string(wide));
}

TEST(TextWide, CapacityNeverSplitsAPair)
{
    const epiText t("ab\xF0\x9F\x8E\xB8");
    char16_t wide[4] = {9, 9, 9, 9};
    // Room for three units: "ab" fits, the pair doesn't.
    EXPECT_EQ(t.toWide(wide, 4), 2u);
    EXPECT_EQ(wide[2], 0);
}

TEST(TextWide, BadInputGivesEmpty)
{
    char16_t wide[8] = {7, 7};
    EXPECT_EQ(epiText("").toWide(wide, 8), 0u);
    EXPECT_EQ(wide[0], 0);
    const char* bad[] = {"\xFF", "a\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82"};
    for (const char* b : bad)
    {
        wide[0] = 7;
        EXPECT_EQ(epiText(b).toWide(wide, 8), 0u) << b;
        EXPECT_EQ(wide[0], 0);
    }
    epiText t("stale");
    const char16_t lone[] = {u'a', char16_t(0xD800), u'b', 0};
    t.fromWide(lone);
    EXPECT_EQ(t, "a\xEF\xBF\xBD"
                 "b");
    t.fromWide(u"");
    EXPECT_TRUE(t.isEmpty());
    t = "x";
    t.fromWide(nullptr);
    EXPECT_TRUE(t.isEmpty());
}

// Object behaviour of texts and the list of texts.

TEST(TextObject, CopyCarriesTheCountAssignmentDoesNot)
{
    epiText counted("abc");
    counted.startRefCount();
    counted.retain();
    const epiText copy(counted);
    EXPECT_EQ(copy.refCount(), 2);
    EXPECT_EQ(copy, "abc");

    epiText plain("x");
    plain = counted;
    EXPECT_EQ(plain.refCount(), epiObject::kNotCounted);
    EXPECT_EQ(plain, "abc");
    plain.assignText(nullptr);
    EXPECT_EQ(plain, "abc");
    plain.assignChars(nullptr);
    EXPECT_TRUE(plain.isEmpty());
    plain.assignTextValue(counted);
    plain.appendTextValue(epiText("!"));
    plain.appendText(nullptr);
    plain.appendChars(nullptr);
    EXPECT_EQ(plain, "abc!");
}

TEST(TextObject, TextsListOwnsItsElements)
{
    epiTextsList list;
    const epiText source("first");
    list.appendCopy(&source);
    list.appendChars("second");
    list.appendChars(nullptr);
    ASSERT_EQ(list.count(), 3);
    EXPECT_EQ(*list.textAt(0), "first");
    EXPECT_NE(list.textAt(0), &source);
    EXPECT_EQ(*list.textAt(1), "second");
    EXPECT_TRUE(list.textAt(2)->isEmpty());
    EXPECT_EQ(list.textAt(3), nullptr);
    EXPECT_EQ(list.textAt(-1), nullptr);
    // clear() deletes; the sanitizer run would report a leak or a double free here.
    list.clear();
    EXPECT_EQ(list.count(), 0);
    list.appendChars("again");
    EXPECT_EQ(list.count(), 1);
}

// Properties over many random texts: splitting and joining must give back the text.

namespace
{

uint32_t nextRandom(uint32_t& state)
{
    state = state * 1664525u + 1013904223u;
    return state >> 8;
}

epiText randomText(uint32_t& state, const char* alphabet, size_t alphabetSize)
{
    epiText t;
    const size_t length = nextRandom(state) % 40;
    for (size_t i = 0; i < length; ++i)
        t.appendChar(alphabet[nextRandom(state) % alphabetSize]);
    return t;
}

} // namespace

TEST(TextProperties, FieldsJoinBackIntoTheText)
{
    uint32_t state = 12345;
    const char alphabet[] = {'a', 'b', ',', ',', '\0', '\xE9'};
    for (int round = 0; round < 2000; ++round)
    {
        const epiText t = randomText(state, alphabet, sizeof alphabet);
        const int32_t count = t.fieldCount(',');
        epiText joined;
        for (int32_t i = 0; i < count; ++i)
        {
            if (i > 0)
                joined.appendChar(',');
            joined.appendTextValue(t.field(i, ','));
        }
        ASSERT_EQ(joined, t) << "round " << round;
        // All fields from the first, copied at once, are the whole text.
        if (count > 0)
        {
            ASSERT_EQ(t.fields(0, count, ','), t) << "round " << round;
        }
        ASSERT_TRUE(t.field(count, ',').isEmpty());
    }
}

TEST(TextProperties, LinesJoinBackIntoTheText)
{
    uint32_t state = 777;
    const char alphabet[] = {'x', 'y', '\r', '\n', '\n', ' '};
    for (int round = 0; round < 2000; ++round)
    {
        const epiText t = randomText(state, alphabet, sizeof alphabet);
        const int32_t count = t.lineCount();
        // Every line is free of line ends, and there is nothing after the last line.
        for (int32_t i = 0; i < count; ++i)
        {
            const epiText l = t.line(i);
            ASSERT_FALSE(l.containsChar('\r') || l.containsChar('\n')) << "round " << round;
        }
        ASSERT_TRUE(t.line(count).isEmpty()) << "round " << round;
        // All lines at once are the text without a final line end.
        epiText expected(t);
        if (expected.size() >= 2 && expected.right(2) == "\r\n")
            expected.truncate(expected.size() - 2);
        else if (expected.lastChar() == '\r' || expected.lastChar() == '\n')
            expected.dropLastChar();
        ASSERT_EQ(t.lines(0, count), expected) << "round " << round;
    }
}
