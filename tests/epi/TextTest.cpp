#include "epi/epiText.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace
{

template <typename... Args> epiText fmt(const char* format, Args... args)
{
    epiText t("stale");
    t.formatAssign(format, args...);
    return t;
}

// Each row is what an operation gave and what it must give.
struct Row
{
    epiText got;
    const char* want;
};

void expectRows(const std::vector<Row>& rows)
{
    for (size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(rows[i].got, rows[i].want) << "row " << i;
}

} // namespace

TEST(Text, FormatterDirectives)
{
    const epiText word("word");
    const std::string big(600, 'q');
    expectRows({
        {fmt("100%% sure"), "100% sure"},
        {fmt("end%"), "end"}, // a '%' at the very end prints nothing
        {fmt("[%5d][%05d][%5d][%05d]", 42, 42, -42, -42), "[   42][00042][  -42][-0042]"},
        {fmt("[%-5d]", 7), "[    7]"}, // numbers are always right-justified
        {fmt("%d", INT32_MIN), "-2147483648"},
        {fmt("%2d", 12345), "12345"}, // a narrow width never cuts
        {fmt("%X %x %o", 0xBEEFu, 0xBEEFu, 8u), "BEEF beef 10"},
        {fmt("%08X|%4x", 0xABCu, 0xFu), "00000ABC|   f"},
        {fmt("%X", -1), "FFFFFFFF"},
        {fmt("%ld %lX %Ld", 5, 255u, -3), "5 FF -3"},
        {fmt("%u %q %5u", 7u, -1, 3u), "7 4294967295     3"}, // other letters: unsigned decimal
        {fmt("[%s][%6s][%-6s][%2s]", "ab", "ab", "ab", "long"), "[ab][    ab][ab    ][long]"},
        {fmt("[%t][%7t][%-7t]", &word, &word, &word), "[word][   word][word   ]"},
        {fmt("[%s][%3t]", static_cast<const char*>(nullptr), static_cast<const epiText*>(nullptr)),
         "[][   ]"},
        {fmt("[%*d][%*s][%-*s]", 4, 7, 3, "x", 3, "y"), "[   7][  x][y  ]"},
        {fmt("[%*s]", -3, "z"), "[z  ]"},
        {fmt("%c%c|%k|%k", 'a', 'b', 0x61620000u, 0u), "ab|ab__|____"},
        {fmt("%I", 0xC0A80001u), "192.168.0.1"},
        {fmt("%p", reinterpret_cast<void*>(uintptr_t(0xABC))), "00000ABC"},
        {fmt("<%s>", big.c_str()), ("<" + big + ">").c_str()},
    });
    // %t takes every byte of the text, a NUL inside included.
    epiText withNul;
    withNul.assignBytes(3, "a\0b");
    EXPECT_EQ(fmt("%t", &withNul), withNul);
}

TEST(Text, LinesEndAtCrLfOrCrLf)
{
    const epiText t("one\r\ntwo\rthree\n\nfive");
    const epiText runs("a\r\nb\nc\r\nd\n");
    EXPECT_EQ(epiText("a\n\rb").lineCount(), 3); // LF CR is two line ends, unlike CR LF
    EXPECT_EQ(epiText("a\r\n").lineCount(), 1);
    expectRows({
        {t.line(2), "three"},
        {t.line(3), ""},
        {t.line(4), "five"},
        {t.line(5), ""},
        {runs.lines(1, 2), "b\nc"},
        {runs.lines(2, 10), "c\r\nd"}, // stops at the end without the last line end
        {runs.lines(9, 1), ""},
    });
}

TEST(Text, FieldsSkipEverySeparatorButCopyRunsAsOne)
{
    const epiText t("a,,b,c");
    const epiText sentence("the  quick brown fox");
    EXPECT_EQ(epiText(",,").fieldCount(','), 3);
    EXPECT_EQ(sentence.wordCount(), 5);
    char dest[8];
    std::memset(dest, '#', sizeof dest);
    t.copyTo(dest, 3); // copies end at the limit
    EXPECT_EQ(std::string(dest, 5), std::string("a,,\0#", 5));
    expectRows({
        {t.field(1, ','), ""},
        {t.field(2, ','), "b"},
        {t.fields(0, 2, ','), "a,,b"},
        {t.fields(1, 2, ','), ",b"}, // from the empty field the run after it is one step
        {t.fields(0, 9, ','), "a,,b,c"},
        {sentence.word(1), ""},
        {sentence.words(0, 2), "the  quick"},
        {epiText("a.").lastField('.'), ""},
        {epiText("plain,\"with, comma\",last").quotedField(1, ',', '"'), "with, comma"},
        {epiText("a,\"open, end").quotedField(1, ',', '"'), "open, end"}, // an unclosed quote runs to the end
        {epiText("\"\",x").quotedField(1, ',', '"'), "x"},
    });
}

// Comparisons.

TEST(TextCompare, CaseNullsAndLists)
{
    const epiText t("Guitar");
    EXPECT_FALSE(t.equalsChars("guitar"));
    EXPECT_FALSE(t.equalsChars(nullptr));
    EXPECT_TRUE(t.equalsNoCase("gUITAR"));
    EXPECT_TRUE(t.equalsNoCase(static_cast<const char*>(nullptr))); // a null argument compares as equal
    EXPECT_FALSE(epiText("\xC3\x89").equalsNoCase("\xC3\xA9"));     // only ASCII folds
    epiText withNul;
    withNul.assignBytes(3, "ab\0");
    const epiText ab("ab");
    EXPECT_FALSE(withNul.equalsText(&ab)); // every byte counts
    EXPECT_TRUE(t.contains(""));
    EXPECT_FALSE(t.contains(nullptr));
    EXPECT_FALSE(epiText("").contains(""));
    EXPECT_FALSE(t.startsWith(static_cast<const char*>(nullptr)));

    // List membership ignores case and takes the last match; no match gives index 0.
    const epiText list("wav,AIF,aiff,aif");
    int32_t index = -1;
    EXPECT_TRUE(epiText("aif").isInList(&list, &index));
    EXPECT_EQ(index, 3);
    index = -1;
    EXPECT_FALSE(epiText("mp3").isInList(&list, &index));
    EXPECT_EQ(index, 0);
    EXPECT_TRUE(epiText("").isInChars("a,,b", &index));
    EXPECT_EQ(index, 1);
    EXPECT_FALSE(epiText("a").isInChars(nullptr, &index));
}

// Wide conversions.

TEST(TextWide, RoundTripThroughUtf16)
{
    // e acute (2 bytes), euro (3 bytes) and a guitar outside the BMP (4 bytes, a surrogate pair).
    const epiText t("h\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB8");
    char16_t wide[16];
    ASSERT_EQ(t.toWide(wide, 16), 5u);
    EXPECT_EQ(std::u16string(wide), u"h\u00E9\u20AC\U0001F3B8");
    epiText back;
    back.fromWide(wide);
    EXPECT_EQ(back, t);
    EXPECT_EQ(std::u16string(t.toWideStatic()), std::u16string(wide));
    // Room for three units: "ab" fits, the pair doesn't.
    EXPECT_EQ(epiText("ab\xF0\x9F\x8E\xB8").toWide(wide, 4), 2u);
    EXPECT_EQ(wide[2], 0);
}

TEST(TextWide, BadInputGivesEmpty)
{
    char16_t wide[8] = {7, 7};
    const char* bad[] = {"", "\xFF", "a\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82"};
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
    t.fromWide(nullptr);
    EXPECT_TRUE(t.isEmpty());
}

// Properties over many random texts: splitting and joining must give back the text.

TEST(TextProperties, FieldsAndLinesJoinBackIntoTheText)
{
    uint32_t state = 12345;
    const char alphabet[] = {'a', ',', ',', '\0', '\xE9', '\r', '\n', '\n'};
    for (int round = 0; round < 4000; ++round)
    {
        epiText t;
        state = state * 1664525u + 1013904223u;
        for (uint32_t length = (state >> 8) % 40; length > 0; --length)
        {
            state = state * 1664525u + 1013904223u;
            t.appendChar(alphabet[(state >> 8) % sizeof alphabet]);
        }
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
        ASSERT_TRUE(count == 0 || t.fields(0, count, ',') == t) << "round " << round;
        ASSERT_TRUE(t.field(count, ',').isEmpty());

        // Every line is free of line ends, and all lines at once are the text without a final line end.
        const int32_t lines = t.lineCount();
        for (int32_t i = 0; i < lines; ++i)
            ASSERT_FALSE(t.line(i).containsChar('\r') || t.line(i).containsChar('\n')) << "round " << round;
        ASSERT_TRUE(t.line(lines).isEmpty()) << "round " << round;
        epiText expected(t);
        if (expected.size() >= 2 && expected.right(2) == "\r\n")
            expected.truncate(expected.size() - 2);
        else if (expected.lastChar() == '\r' || expected.lastChar() == '\n')
            expected.dropLastChar();
        ASSERT_EQ(t.lines(0, lines), expected) << "round " << round;
    }
}
