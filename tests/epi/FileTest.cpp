#include "epi/epiFile.h"
#include "epi/epiFolder.h"
#include "epi/epiTextFile.h"

#include "tests/epi/FileTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace epitest;

// Disk files.

TEST_F(FileTest, WriteThenReadBack)
{
    const epiPath path(at("data.bin"));
    {
        epiFile f;
        ASSERT_TRUE(f.open(path, epiFile::kWrite));
        EXPECT_TRUE(f.write("hello world", 11));
        EXPECT_TRUE(f.close());
        EXPECT_FALSE(f.close());
    }
    EXPECT_EQ(readAll(at("data.bin")), "hello world");

    epiFile f;
    ASSERT_TRUE(f.open(path, epiFile::kRead));
    char buffer[32] = {};
    EXPECT_TRUE(f.read(buffer, 5));
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_TRUE(f.seek(-5, 2));
    EXPECT_TRUE(f.read(buffer, 5));
    EXPECT_EQ(std::string(buffer, 5), "world");
    EXPECT_TRUE(f.seek(1, 0));
    EXPECT_TRUE(f.seek(2, 1));
    EXPECT_EQ(f.tell(), 3u);
    // Asking for more than is left: with a count it is true and tells how much came,
    // without one it is false.
    int32_t count = -1;
    EXPECT_TRUE(f.read(buffer, 20, &count));
    EXPECT_EQ(count, 8);
    EXPECT_FALSE(f.read(buffer, 1, &count));
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(f.seek(3, 0));
    EXPECT_FALSE(f.read(buffer, 20));
    // A read of 0 bytes on an open file is true.
    EXPECT_TRUE(f.read(buffer, 0));
    EXPECT_FALSE(f.write("x", 1));
    f.close();
}

TEST_F(FileTest, OpenFailsOnAnOpenFileAndLeavesItAlone)
{
    writeAll(at("a.txt"), "first");
    writeAll(at("b.txt"), "second");
    epiFile f;
    ASSERT_TRUE(f.open(epiPath(at("a.txt")), epiFile::kRead));
    char c = 0;
    ASSERT_TRUE(f.read(&c, 1));
    EXPECT_FALSE(f.open(epiPath(at("b.txt")), epiFile::kRead));
    EXPECT_EQ(f.tell(), 1u);
    ASSERT_TRUE(f.read(&c, 1));
    EXPECT_EQ(c, 'i');
    f.close();
}

TEST_F(FileTest, MissingFilesAndTheFlags)
{
    epiFile f;
    EXPECT_FALSE(f.open(epiPath(at("missing")), epiFile::kRead));
    EXPECT_FALSE(f.open(epiPath(at("missing")), epiFile::kWrite | epiFile::kMustExist));
    EXPECT_FALSE(epiPath(at("missing")).exists());
    EXPECT_FALSE(f.open(epiPath(at("no/such/folder/x")), epiFile::kWrite));
    EXPECT_FALSE(f.open(epiPath(), epiFile::kWrite));
    // A folder is not a file.
    EXPECT_FALSE(f.open(epiPath(tmp_.path()), epiFile::kRead));
    char c;

    // Write opens without deleting; with kDeleteFirst the old content is gone.
    writeAll(at("keep"), "0123456789");
    ASSERT_TRUE(f.open(epiPath(at("keep")), epiFile::kWrite | epiFile::kMustExist));
    EXPECT_EQ(f.size(), 10u);
    EXPECT_TRUE(f.read(&c, 1));
    EXPECT_EQ(c, '0');
    EXPECT_TRUE(f.seek(0, 2));
    f.close();
    EXPECT_EQ(readAll(at("keep")), "0123456789");
    ASSERT_TRUE(f.open(epiPath(at("keep")), epiFile::kWrite | epiFile::kDeleteFirst));
    EXPECT_EQ(f.size(), 0u);
    f.close();
    EXPECT_EQ(readAll(at("keep")), "");
}

TEST_F(FileTest, CloseCutsTheFileAtThePosition)
{
    writeAll(at("old.txt"), "a long old content");
    epiFile f;
    ASSERT_TRUE(f.open(epiPath(at("old.txt")), epiFile::kWrite));
    ASSERT_TRUE(f.write("new", 3));
    f.close();
    EXPECT_EQ(readAll(at("old.txt")), "new");

    // A reader's close never cuts.
    ASSERT_TRUE(f.open(epiPath(at("old.txt")), epiFile::kRead));
    char c;
    ASSERT_TRUE(f.read(&c, 1));
    f.close();
    EXPECT_EQ(readAll(at("old.txt")), "new");

    // The destructor closes with the same cut.
    {
        epiFile scoped;
        ASSERT_TRUE(scoped.open(epiPath(at("old.txt")), epiFile::kWrite));
        ASSERT_TRUE(scoped.write("N", 1));
    }
    EXPECT_EQ(readAll(at("old.txt")), "N");
}

TEST_F(FileTest, FilesPastFourGigabytesAreRefused)
{
    // A sparse file: no disk space is used for its size.
    const std::string big = at("big.bin");
    writeAll(big, "");
    if (::truncate(big.c_str(), off_t(UINT32_MAX) + 2) != 0)
        GTEST_SKIP() << "the file system can't hold a sparse file of this size";
    epiFile f;
    EXPECT_FALSE(f.open(epiPath(big), epiFile::kRead));
    EXPECT_FALSE(f.isOpen());
    epiTextFile text("kept");
    EXPECT_FALSE(text.loadFile(epiPath(big)));
    EXPECT_EQ(text, "kept");
}

TEST_F(FileTest, ReadOnlyFiles)
{
    const std::string ro = readOnlyFile("ro.txt", "locked");
    EXPECT_TRUE(testsupport::asUnprivileged(
        [&ro]
        {
            epiFile f;
            char buffer[6];
            if (f.open(epiPath(ro), epiFile::kWrite) ||
                f.open(epiPath(ro), epiFile::kWrite | epiFile::kDeleteFirst) ||
                !f.open(epiPath(ro), epiFile::kRead) || !f.read(buffer, 6) ||
                std::memcmp(buffer, "locked", 6) != 0)
                return false;
            f.close();
            epiTextFile text("replacement");
            // An unreadable file (when this user may make it one) doesn't load and leaves the text alone.
            return !text.saveFile(epiPath(ro)) && readAll(ro) == "locked" &&
                   (::chmod(ro.c_str(), 0) != 0 || (!text.loadFile(epiPath(ro)) && text == "replacement"));
        }));
    // Run as its owner, the check above may have left the file unreadable.
    ASSERT_EQ(::chmod(ro.c_str(), 0444), 0);
    EXPECT_EQ(readAll(ro), "locked");
}

TEST_F(FileTest, NonAsciiNames)
{
    // Names are UTF-8 bytes on Linux: "Übung – Gitarre 🎸.txt".
    const std::string name = "\xC3\x9C"
                             "bung \xE2\x80\x93 Gitarre \xF0\x9F\x8E\xB8.txt";
    const epiPath path(at(name));
    epiFile f;
    ASSERT_TRUE(f.open(path, epiFile::kWrite));
    ASSERT_TRUE(f.write("riff", 4));
    f.close();
    EXPECT_EQ(readAll(at(name)), "riff");
    EXPECT_TRUE(path.exists());
    EXPECT_EQ(path.lastComponent(), name);
    EXPECT_EQ(path.extension(), "txt");

    epiTextFile text;
    ASSERT_TRUE(text.loadFile(path));
    EXPECT_EQ(text, "riff");

    epiFolder folder;
    ASSERT_TRUE(folder.scan(epiPath(tmp_.path())));
    ASSERT_EQ(folder.count(), 1);
    EXPECT_EQ(folder.nameAt(0), name);
    EXPECT_EQ(folder.pathAt(0), path);
    EXPECT_TRUE(path.remove());
}

// Memory files and their deliberate differences.

TEST(RamFile, OpenAlwaysFailsAndSetBufferBorrows)
{
    epiRamFile f;
    EXPECT_FALSE(f.open(epiPath("/tmp/x"), epiFile::kRead));
    EXPECT_FALSE(f.isOpen());
    EXPECT_FALSE(f.setBuffer(nullptr, 10));
    EXPECT_FALSE(f.isOpen());

    char borrowed[10];
    std::memcpy(borrowed, "0123456789", 10);
    ASSERT_TRUE(f.setBuffer(borrowed, 10));
    EXPECT_TRUE(f.isOpen());
    EXPECT_EQ(f.size(), 10u);
    EXPECT_EQ(f.tell(), 0u);
    char out[4] = {};
    EXPECT_TRUE(f.read(out, 4));
    EXPECT_EQ(std::string(out, 4), "0123");
    // freeBuffer() forgets a borrowed buffer without freeing it (the sanitizer run would catch a
    // free of this stack array).
    f.freeBuffer();
    EXPECT_FALSE(f.isOpen());
    EXPECT_EQ(borrowed[0], '0');
}

TEST(RamFile, ReadPastTheEndMovesThePositionAnyway)
{
    char bytes[10];
    std::memcpy(bytes, "abcdefghij", 10);
    epiRamFile f;
    ASSERT_TRUE(f.setBuffer(bytes, 10));
    ASSERT_TRUE(f.seek(8, 0));
    char out[8];
    std::memset(out, '#', sizeof out);
    int32_t count = -1;
    EXPECT_TRUE(f.read(out, 5, &count));
    EXPECT_EQ(count, 2);
    EXPECT_EQ(std::string(out, 3), "ij#");
    EXPECT_EQ(f.tell(), 13u);
    // Now less than nothing is left: nothing is copied and the position still moves.
    std::memset(out, '#', sizeof out);
    EXPECT_FALSE(f.read(out, 4, &count));
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out[0], '#');
    EXPECT_EQ(f.tell(), 17u);
    EXPECT_FALSE(f.read(out, 1));
    EXPECT_TRUE(f.read(out, 0));
}

TEST(RamFile, SeekRules)
{
    char bytes[10] = {};
    epiRamFile f;
    EXPECT_FALSE(f.seek(0, 0));
    ASSERT_TRUE(f.setBuffer(bytes, 10));
    // {offset, whence, result, position}: from the end counts backwards; any other whence is
    // absolute; outside the buffer the position falls back to 0.
    const int32_t rows[][4] = {{3, 2, 1, 7}, {-2, 1, 1, 5}, {10, 0, 1, 10}, {4, 9, 1, 4}, {11, 0, 0, 0},
                               {6, 0, 1, 6}, {-3, 2, 0, 0}, {6, 0, 1, 6},   {-7, 1, 0, 0}};
    for (const auto& row : rows)
    {
        EXPECT_EQ(f.seek(row[0], row[1]), row[2] != 0) << row[0] << "," << row[1];
        EXPECT_EQ(f.tell(), uint32_t(row[3])) << row[0] << "," << row[1];
    }
}

TEST(RamFile, WritePastABorrowedBufferCopiesIt)
{
    char borrowed[4];
    std::memcpy(borrowed, "wxyz", 4);
    epiRamFile f;
    ASSERT_TRUE(f.setBuffer(borrowed, 4));
    ASSERT_TRUE(f.seek(2, 0));
    ASSERT_TRUE(f.write("12345", 5));
    EXPECT_EQ(f.size(), 2u + 5u + 100000u);
    void* data = nullptr;
    ASSERT_TRUE(f.getBuffer(&data, nullptr));
    EXPECT_NE(data, static_cast<void*>(borrowed));
    EXPECT_EQ(std::memcmp(data, "wx12345", 7), 0);
    // The lender's bytes are untouched.
    EXPECT_EQ(std::memcmp(borrowed, "wxyz", 4), 0);
    f.freeBuffer();
}

TEST(RamFile, WriteAfterAReadPastTheEndZeroesTheGap)
{
    epiRamFile f;
    ASSERT_TRUE(f.createBuffer());
    ASSERT_TRUE(f.seek(0, 2));
    char ignore[8];
    f.read(ignore, 8);
    EXPECT_EQ(f.tell(), 100008u);
    ASSERT_TRUE(f.write("!", 1));
    void* data = nullptr;
    ASSERT_TRUE(f.getBuffer(&data, nullptr));
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (int i = 100000; i < 100008; ++i)
        EXPECT_EQ(bytes[i], 0) << i;
    EXPECT_EQ(bytes[100008], '!');
    f.freeBuffer();
}

TEST(RamFile, CloseForgetsWithoutFreeing)
{
    epiRamFile f;
    ASSERT_TRUE(f.createBuffer());
    ASSERT_TRUE(f.write("kept", 4));
    void* data = nullptr;
    uint32_t position = 0;
    ASSERT_TRUE(f.getBuffer(&data, &position));
    EXPECT_EQ(position, 4u);
    EXPECT_TRUE(f.close());
    EXPECT_FALSE(f.isOpen());
    EXPECT_EQ(f.size(), 0u);
    EXPECT_EQ(f.tell(), 0u);
    EXPECT_FALSE(f.close());
    void* after = &position;
    EXPECT_FALSE(f.getBuffer(&after, nullptr));
    EXPECT_EQ(after, nullptr);
    // The block was not freed: it still holds what was written, and it is ours to free now (the
    // sanitizer run reports a leak if close() had kept it, or a double free if it had freed it).
    EXPECT_EQ(std::memcmp(data, "kept", 4), 0);
    std::free(data);
}

// Folders.

TEST_F(FileTest, FolderListsSortedEntries)
{
    writeAll(at("b.wav"), "b");
    writeAll(at("A.aif"), "a");
    writeAll(at(".hidden"), "h");
    ASSERT_EQ(::mkdir(at("loops").c_str(), 0755), 0);
    writeAll(at("loops/x.wav"), "x");
    ASSERT_EQ(::symlink(at("loops").c_str(), at("link").c_str()), 0);

    epiFolder folder;
    ASSERT_TRUE(folder.scan(epiPath(tmp_.path().substr(0, tmp_.path().size() - 1))));
    EXPECT_EQ(folder.path(), tmp_.path());
    ASSERT_EQ(folder.count(), 4);
    EXPECT_EQ(folder.nameAt(0), "A.aif");
    EXPECT_EQ(folder.nameAt(1), "b.wav");
    EXPECT_EQ(folder.nameAt(2), "link");
    EXPECT_EQ(folder.nameAt(3), "loops");
    EXPECT_TRUE(folder.isFolderAt(2)); // a link to a folder counts as one
    EXPECT_EQ(folder.pathAt(3), at("loops/"));
    EXPECT_EQ(folder.pathAt(-1), "");

    ASSERT_TRUE(folder.scan(epiPath(tmp_.path()), true));
    EXPECT_EQ(folder.count(), 5);
    EXPECT_EQ(folder.nameAt(0), ".hidden");
}

TEST_F(FileTest, FolderFailuresAndLists)
{
    epiFolder folder;
    EXPECT_FALSE(folder.scan(epiPath(at("missing"))));
    EXPECT_EQ(folder.count(), 0);
    EXPECT_FALSE(folder.scan(epiPath()));
    writeAll(at("plain"), "p");
    EXPECT_FALSE(folder.scan(epiPath(at("plain"))));

    ASSERT_EQ(::mkdir(at("res").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(at("res/fonts").c_str(), 0755), 0);
    writeAll(at("res/main.xml"), "m");
    writeAll(at("res/fonts/f.xml"), "f");
    epiText list("head\r\n");
    ASSERT_TRUE(folder.listTo(epiPath(at("res")), &list, false));
    EXPECT_EQ(list, "head\r\nmain.xml\r\n");
    list.clear();
    ASSERT_TRUE(folder.listTo(epiPath(at("res/")), &list, true));
    EXPECT_EQ(list, "fonts/f.xml\r\nmain.xml\r\n");
    EXPECT_FALSE(folder.listTo(epiPath(at("nothing")), &list, true));
    EXPECT_FALSE(folder.listTo(epiPath(at("res")), nullptr, true));
}

// Texts that load and save themselves.

TEST_F(FileTest, TextFileRoundTripIsByteExact)
{
    epiTextFile text;
    text.assignBytes(9, "a\r\nb\0\xFF\xC3\n!");
    const std::string name = at("t\xC3\xA9xt.txt");
    ASSERT_TRUE(text.saveFile(name.c_str()));
    EXPECT_EQ(readAll(name), std::string("a\r\nb\0\xFF\xC3\n!", 9));

    epiTextFile back;
    ASSERT_TRUE(back.loadFile(name.c_str()));
    EXPECT_EQ(back.size(), 9u);
    EXPECT_TRUE(back.equalsText(&text));

    // A shorter text rewrites the file to its own length.
    epiTextFile shorter("xy");
    ASSERT_TRUE(shorter.saveFile(epiPath(name)));
    EXPECT_EQ(readAll(name), "xy");
}

TEST_F(FileTest, SavingAnEmptyTextDeletesTheFile)
{
    writeAll(at("gone.txt"), "content");
    epiTextFile empty;
    EXPECT_FALSE(empty.saveFile(epiPath(at("gone.txt"))));
    EXPECT_FALSE(epiPath(at("gone.txt")).exists());
    EXPECT_FALSE(empty.saveFile(epiPath(at("never.txt"))));
    EXPECT_FALSE(epiPath(at("never.txt")).exists());
}

TEST_F(FileTest, TextFileLoadFailures)
{
    epiTextFile text("before");
    EXPECT_FALSE(text.loadFile(epiPath(at("missing"))));
    EXPECT_EQ(text, "before");
    EXPECT_FALSE(text.loadFile(tmp_.path().c_str()));
    EXPECT_EQ(text, "before");
    writeAll(at("empty"), "");
    EXPECT_TRUE(text.loadFile(epiPath(at("empty"))));
    EXPECT_TRUE(text.isEmpty());
    EXPECT_FALSE(text.saveFile(epiPath(at("no/folder/x.txt"))));
}
