// The settings store: two types, failing reads, the file's form and its atomic rewrite.

#include "host/settings/SettingsStore.h"
#include "tests/host/SettingsFolder.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>

#include <random>
#include <sys/stat.h>

using Korvalind3Host::SettingsStore;
using kv3test::SettingsFolder;

TEST(SettingsStore, ValuesOfBothTypesRoundTripAndARewriteKeepsTheOthersInOrder)
{
    SettingsFolder folder;
    SettingsStore store;
    std::string text = "kept";
    std::uint32_t number = 7;
    EXPECT_FALSE(store.readString("Text", text));             // no file at all
    for (const char* name : {"", "a\nb", "a = b", "#hidden"}) // names that can't stand on a line
        EXPECT_FALSE(store.writeNumber(name, 1)) << name;
    ASSERT_TRUE(store.writeString("Text", "hello = world"));
    ASSERT_TRUE(store.writeNumber("Number", 4294967295u));
    store.writeString("C", "3");
    EXPECT_FALSE(store.readNumber("Text", number)) << "the other type";
    EXPECT_FALSE(store.readString("Number", text));
    EXPECT_EQ(std::pair(text, number), std::pair(std::string("kept"), 7u));
    EXPECT_TRUE(store.readString("Text", text));
    EXPECT_TRUE(store.readNumber("Number", number));
    EXPECT_EQ(std::pair(text, number), std::pair(std::string("hello = world"), 4294967295u));
    EXPECT_EQ(folder.contents(), "Text = sz:hello = world\nNumber = dword:4294967295\nC = sz:3\n");
    store.writeString("Number", "twenty"); // a value may change its type
    EXPECT_TRUE(store.remove("Text"));
    EXPECT_EQ(folder.contents(), "Number = sz:twenty\nC = sz:3\n");
}

TEST(SettingsStore, TextsWithLineBreaksAndBackslashesSurvive)
{
    SettingsFolder folder;
    SettingsStore store;
    const std::string awkward = "C:\\path\\n not a break\nline two\r\nend\\";
    ASSERT_TRUE(store.writeString("Awkward", awkward));
    ASSERT_TRUE(store.writeString("After", "x"));
    std::string back;
    EXPECT_TRUE(store.readString("Awkward", back));
    EXPECT_EQ(back, awkward);
    EXPECT_TRUE(store.readString("After", back));
    EXPECT_EQ(back, "x");
}

TEST(SettingsStore, MalformedLinesAndNumbersAreNoValues)
{
    SettingsFolder folder;
    {
        std::ofstream out(folder.file(), std::ios::binary);
        out << "# a comment = sz:no\r\n"
               "garbage without separator\n"
               "Neg = dword:-1\n"
               "Big = dword:4294967296\n"
               "Hex = dword:0x10\n"
               "Empty = dword:\n"
               "Good = dword:10\r\n"
               "Twice = sz:first\n"
               "Twice = sz:second\n"
               "Untyped = plain";
    }
    SettingsStore store;
    std::uint32_t n = 99;
    std::string s;
    EXPECT_FALSE(store.readNumber("Neg", n));
    EXPECT_FALSE(store.readNumber("Big", n));
    EXPECT_FALSE(store.readNumber("Hex", n));
    EXPECT_FALSE(store.readNumber("Empty", n));
    EXPECT_FALSE(store.readString("Untyped", s));
    EXPECT_FALSE(store.readString("# a comment", s));
    EXPECT_FALSE(store.readString("Missing", s));
    EXPECT_EQ(n, 99u);
    EXPECT_TRUE(store.readNumber("Good", n)); // a CR line end is tolerated
    EXPECT_EQ(n, 10u);
    EXPECT_TRUE(store.readString("Twice", s));
    EXPECT_EQ(s, "second");
    // Writing keeps the lines it doesn't understand and folds the doubled name into one.
    ASSERT_TRUE(store.writeString("Twice", "third"));
    EXPECT_NE(folder.contents().find("garbage without separator\n"), std::string::npos);
    EXPECT_EQ(folder.contents().find("first"), std::string::npos);
}

TEST(SettingsStore, AWriteThatCantReachTheFolderFailsAndKeepsTheFile)
{
    SettingsFolder folder;
    SettingsStore store;
    ASSERT_TRUE(store.writeNumber("A", 1));
    ::chmod(folder.path().c_str(), 0555);
    EXPECT_TRUE(testsupport::asUnprivileged([&] { return !store.writeNumber("A", 2); }));
    ::chmod(folder.path().c_str(), 0700);
    std::uint32_t n = 0;
    EXPECT_TRUE(store.readNumber("A", n));
    EXPECT_EQ(n, 1u);
    // A file where the folder should be: nothing is written, nothing read.
    std::ofstream(folder.path() + "/blocked") << "x";
    ::setenv("KV3_CONFIG_DIR", (folder.path() + "/blocked/sub").c_str(), 1);
    SettingsStore blocked;
    EXPECT_FALSE(blocked.writeNumber("A", 1));
    EXPECT_FALSE(blocked.readNumber("A", n));
}

TEST(SettingsStore, AFileOfRandomBytesIsReadWithoutHarmAndRepairedByAWrite)
{
    SettingsFolder folder;
    std::mt19937 random(9);
    for (int round = 0; round < 50; ++round)
    {
        {
            std::ofstream out(folder.file(), std::ios::binary);
            const int length = static_cast<int>(random() % 2000);
            for (int i = 0; i < length; ++i)
            {
                // Mostly printable with separators, so that some lines almost parse.
                const unsigned r = random() % 64;
                out << (r < 4 ? "\n=:"[r] : static_cast<char>(random() % 256));
            }
        }
        SettingsStore store;
        std::string text;
        std::uint32_t number = 0;
        store.readString("Host.Midi.InputDevice", text);
        store.readNumber("Host.AudioInterface.BufferSize", number);
        ASSERT_TRUE(store.writeNumber("Host.AudioInterface.BufferSize", 64));
        ASSERT_TRUE(store.readNumber("Host.AudioInterface.BufferSize", number));
        EXPECT_EQ(number, 64u);
    }
}
