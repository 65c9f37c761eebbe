#include "epi/epiAtomsFile.h"
#include "epi/epiFile.h"
#include "epi/epiFileDump.h"
#include "epi/epiFolder.h"
#include "epi/epiTextFile.h"

#include "tests/epi/FileTestSupport.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace epitest;

// Disk files.

TEST_F(FileTest, WriteThenReadBack)
{
    const epiPath path(at("data.bin"));
    epiFile f;
    ASSERT_TRUE(f.open(path, epiFile::kWrite));
    EXPECT_TRUE(f.write("hello world", 11));
    EXPECT_TRUE(f.close());
    EXPECT_FALSE(f.close());
    EXPECT_EQ(readAll(at("data.bin")), "hello world");

    ASSERT_TRUE(f.open(path, epiFile::kRead));
    char buffer[32] = {};
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
    EXPECT_TRUE(f.read(buffer, 0));
    EXPECT_FALSE(f.write("x", 1));
    // A second open fails and leaves the open file where it was.
    EXPECT_FALSE(f.open(epiPath(at("other")), epiFile::kWrite));
    EXPECT_EQ(f.tell(), 11u);
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
    EXPECT_FALSE(f.open(epiPath(at("")), epiFile::kRead)); // a folder is not a file

    // Write opens without emptying, kDeleteFirst empties, and close cuts the file at the position.
    writeAll(at("keep"), "0123456789");
    ASSERT_TRUE(f.open(epiPath(at("keep")), epiFile::kWrite | epiFile::kMustExist));
    EXPECT_TRUE(f.seek(0, 2));
    f.close();
    EXPECT_EQ(readAll(at("keep")), "0123456789");
    ASSERT_TRUE(f.open(epiPath(at("keep")), epiFile::kRead));
    EXPECT_TRUE(f.seek(2, 0));
    f.close(); // a reader's close never cuts
    EXPECT_EQ(readAll(at("keep")), "0123456789");
    {
        epiFile scoped; // the destructor closes with the same cut
        ASSERT_TRUE(scoped.open(epiPath(at("keep")), epiFile::kWrite));
        ASSERT_TRUE(scoped.write("new", 3));
    }
    EXPECT_EQ(readAll(at("keep")), "new");
    ASSERT_TRUE(f.open(epiPath(at("keep")), epiFile::kWrite | epiFile::kDeleteFirst));
    EXPECT_EQ(f.size(), 0u);
    f.close();
    EXPECT_EQ(readAll(at("keep")), "");
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
}

TEST_F(FileTest, ReadOnlyFiles)
{
    // In a folder open to all, only the file's own protection stands in the way.
    const std::string ro = at("ro.txt");
    writeAll(ro, "locked");
    ASSERT_EQ(::chmod(ro.c_str(), 0444), 0);
    ASSERT_EQ(::chmod(at("").c_str(), 0777), 0);
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

// Memory files and their deliberate differences.

TEST(RamFile, BuffersAreBorrowedOrHandedOverNeverFreedByClose)
{
    epiRamFile f;
    EXPECT_FALSE(f.open(epiPath("/tmp/x"), epiFile::kRead));
    EXPECT_FALSE(f.setBuffer(nullptr, 10));
    EXPECT_FALSE(f.isOpen());
    char borrowed[4];
    std::memcpy(borrowed, "wxyz", 4);
    ASSERT_TRUE(f.setBuffer(borrowed, 4));
    // Writing past a borrowed buffer copies it; the lender's bytes are untouched.
    ASSERT_TRUE(f.seek(2, 0));
    ASSERT_TRUE(f.write("12345", 5));
    void* data = nullptr;
    uint32_t position = 0;
    ASSERT_TRUE(f.getBuffer(&data, &position));
    EXPECT_EQ(position, 7u);
    EXPECT_EQ(std::memcmp(data, "wx12345", 7), 0);
    EXPECT_EQ(std::memcmp(borrowed, "wxyz", 4), 0);
    // close() forgets the block without freeing it: it is ours to free now (the sanitizer run
    // reports a leak if close() had kept it, or a double free if it had freed it).
    EXPECT_TRUE(f.close());
    EXPECT_FALSE(f.close());
    void* after = &position;
    EXPECT_FALSE(f.getBuffer(&after, nullptr));
    EXPECT_EQ(after, nullptr);
    std::free(data);
    // freeBuffer() forgets a borrowed buffer without freeing this stack array.
    ASSERT_TRUE(f.setBuffer(borrowed, 4));
    f.freeBuffer();
    EXPECT_FALSE(f.isOpen());
}

TEST(RamFile, ReadPastTheEndMovesThePositionAndAWriteThereZeroesTheGap)
{
    char lent[10];
    std::memcpy(lent, "abcdefghij", 10);
    epiRamFile f;
    ASSERT_TRUE(f.setBuffer(lent, 10));
    ASSERT_TRUE(f.seek(2, 2));
    char out[8];
    std::memset(out, '#', sizeof out);
    int32_t count = -1;
    EXPECT_TRUE(f.read(out, 5, &count));
    EXPECT_EQ(count, 2);
    EXPECT_EQ(std::string(out, 3), "ij#");
    EXPECT_EQ(f.tell(), 13u);
    // Now less than nothing is left: nothing is copied and the position still moves.
    EXPECT_FALSE(f.read(out, 4, &count));
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(f.read(out, 1));
    EXPECT_TRUE(f.read(out, 0));
    EXPECT_EQ(f.tell(), 18u);
    ASSERT_TRUE(f.write("!", 1));
    void* data = nullptr;
    ASSERT_TRUE(f.getBuffer(&data, nullptr));
    EXPECT_EQ(std::string(static_cast<const char*>(data), 19),
              std::string("abcdefghij\0\0\0\0\0\0\0\0!", 19));
    f.freeBuffer();
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

// Folders.

// Names are UTF-8 bytes on Linux: "Übung – Gitarre 🎸.txt".
const std::string kUnicodeName = "\xC3\x9C"
                                 "bung \xE2\x80\x93 Gitarre \xF0\x9F\x8E\xB8.txt";

TEST_F(FileTest, FolderListsSortedEntries)
{
    writeAll(at(kUnicodeName), "u");
    writeAll(at("b.wav"), "b");
    writeAll(at("A.aif"), "a");
    writeAll(at(".hidden"), "h");
    ASSERT_EQ(::mkdir(at("loops").c_str(), 0755), 0);
    writeAll(at("loops/x.wav"), "x");
    ASSERT_EQ(::symlink(at("loops").c_str(), at("link").c_str()), 0);

    epiFolder folder;
    ASSERT_TRUE(folder.scan(epiPath(tmp_.path())));
    EXPECT_EQ(folder.path(), at(""));
    ASSERT_EQ(folder.count(), 5);
    EXPECT_EQ(folder.nameAt(0), "A.aif");
    EXPECT_EQ(folder.nameAt(1), "b.wav");
    EXPECT_EQ(folder.nameAt(2), "link");
    EXPECT_TRUE(folder.isFolderAt(2)); // a link to a folder counts as one
    EXPECT_EQ(folder.pathAt(3), at("loops/"));
    EXPECT_EQ(folder.pathAt(4), at(kUnicodeName));
    EXPECT_EQ(folder.pathAt(-1), "");
    ASSERT_TRUE(folder.scan(epiPath(at("")), true));
    EXPECT_EQ(folder.nameAt(0), ".hidden");

    // Lists hold files only, one a line; recursive ones name the folder too.
    epiText list("head\r\n");
    ASSERT_TRUE(folder.listTo(epiPath(tmp_.path()), &list, false));
    EXPECT_EQ(list, "head\r\nA.aif\r\nb.wav\r\n" + kUnicodeName + "\r\n");
    list.clear();
    ASSERT_TRUE(folder.listTo(epiPath(at("")), &list, true));
    EXPECT_EQ(list, "A.aif\r\nb.wav\r\nlink/x.wav\r\nloops/x.wav\r\n" + kUnicodeName + "\r\n");
}

TEST_F(FileTest, FolderFailures)
{
    epiFolder folder;
    writeAll(at("plain"), "p");
    for (const epiPath& bad : {epiPath(at("missing")), epiPath(), epiPath(at("plain"))})
    {
        EXPECT_FALSE(folder.scan(bad)) << bad;
        EXPECT_EQ(folder.count(), 0);
        epiText list;
        EXPECT_FALSE(folder.listTo(bad, &list, true)) << bad;
    }
    EXPECT_FALSE(folder.listTo(epiPath(at("")), nullptr, true));
}

// Texts that load and save themselves.

TEST_F(FileTest, TextFileRoundTripIsByteExact)
{
    epiTextFile text;
    text.assignBytes(9, "a\r\nb\0\xFF\xC3\n!");
    const std::string name = at(kUnicodeName);
    ASSERT_TRUE(text.saveFile(name.c_str()));
    epiTextFile back("before");
    ASSERT_TRUE(back.loadFile(name.c_str()));
    EXPECT_TRUE(back.equalsText(&text));

    // An empty text deletes the file.
    EXPECT_FALSE(epiTextFile().saveFile(epiPath(name)));
    EXPECT_FALSE(epiPath(name).exists());
    EXPECT_FALSE(back.saveFile(epiPath(at("no/folder/x.txt"))));

    // A failed load leaves the text; an empty file loads as an empty text.
    EXPECT_FALSE(back.loadFile(epiPath(name)));
    EXPECT_TRUE(back.equalsText(&text));
    writeAll(name, "");
    EXPECT_TRUE(back.loadFile(epiPath(name)));
    EXPECT_TRUE(back.isEmpty());
}

// Dumps: whole files and atoms.

TEST_F(FileTest, DumpSavesAndLoadsFiles)
{
    const epiPath path(at("state.bin"));
    epiFileDump dump;
    const uint8_t bytes[] = {0, 1, 2, 0xFF, 0, 7};
    ASSERT_TRUE(dump.copyBytes(bytes, sizeof bytes));
    ASSERT_TRUE(dump.saveFile(path, nullptr, 0));
    EXPECT_EQ(readAll(at("state.bin")), std::string(reinterpret_cast<const char*>(bytes), sizeof bytes));
    epiFileDump loaded;
    ASSERT_TRUE(loaded.loadFile(path));
    EXPECT_FALSE(loaded.differs(dump));

    ASSERT_TRUE(dump.saveFile(path, "xy", 2));
    EXPECT_EQ(readAll(at("state.bin")), "xy");
    EXPECT_FALSE(dump.saveFile(epiPath(at("no/folder/x")), nullptr, 0));

    // A failed load leaves the dump empty; an empty file loads as an empty dump.
    EXPECT_FALSE(dump.loadFile(epiPath(at("missing"))));
    EXPECT_EQ(dump.data(), nullptr);
    writeAll(at("empty"), "");
    EXPECT_TRUE(dump.loadFile(epiPath(at("empty"))));
    EXPECT_EQ(dump.size(), 0u);
}

TEST(FileDump, MemoryOperations)
{
    epiFileDump a;
    EXPECT_FALSE(a.copyBytes(nullptr, 4));
    ASSERT_TRUE(a.allocate(8, true));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(a.data()), 8), std::string(8, '\0'));
    ASSERT_TRUE(a.writeAt(2, "hi", 2));
    char out[2];
    ASSERT_TRUE(a.readAt(2, out, 2));
    EXPECT_EQ(std::memcmp(out, "hi", 2), 0);
    // Outside the block nothing moves.
    EXPECT_FALSE(a.writeAt(7, "hi", 2));
    EXPECT_FALSE(a.readAt(9, out, 0));
    EXPECT_FALSE(a.readAt(UINT32_MAX, out, 2));

    epiFileDump b;
    EXPECT_TRUE(b.differs(a));
    ASSERT_TRUE(b.copyFrom(a));
    EXPECT_FALSE(b.differs(a));
    b.data()[0] = 1;
    EXPECT_TRUE(b.differs(a));

    // A lent block is never freed here.
    char lent[3] = {'l', 'e', 'n'};
    b.attach(lent, 3, false);
    b.free();
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(lent[0], 'l');

    // Copying from a dump's own bytes must not read freed memory.
    ASSERT_TRUE(a.copyBytes(a.data() + 2, 2));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(a.data()), a.size()), "hi");
}

// Dumps inside atoms files: 'size', then 'data'.

TEST(FileDumpAtoms, SavesIntoABorrowedMemoryFileReadsBackAndLoadsNothingFromDamage)
{
    epiRamFile ram;
    ASSERT_TRUE(ram.createBuffer());
    epiFileDump dump;
    const uint8_t state[] = {9, 0, 8, 0xFE, 7};
    ASSERT_TRUE(dump.copyBytes(state, sizeof state));
    {
        epiAtomsFile atoms;
        ASSERT_TRUE(atoms.attach(&ram, false));
        ASSERT_TRUE(dump.saveAtoms(&atoms));
    }
    // The atoms file is gone but the memory file it borrowed, and what was written into it, stay.
    ASSERT_TRUE(ram.seek(0, 0));
    epiAtomsFile reader;
    ASSERT_TRUE(reader.attach(&ram, true));
    epiFileDump loaded;
    ASSERT_TRUE(loaded.loadAtoms(&reader));
    EXPECT_FALSE(loaded.differs(dump));
    ram.freeBuffer();

    // 'size' promises more than the 'data' atom holds; no 'size' atom at all.
    for (const std::string& bytes :
         {Builder(false).head().u32(epiCode("size"), 0x7FFFFFF0).atom(epiCode("data"), "xy").bytes(),
          Builder(false).head().atom(epiCode("data"), "xy").bytes()})
    {
        MemoryAtoms atoms(bytes);
        ASSERT_TRUE(atoms.attach());
        EXPECT_FALSE(dump.loadAtoms(&atoms.atoms));
        EXPECT_EQ(dump.data(), nullptr);
        ASSERT_TRUE(dump.copyBytes("old", 3));
    }
    EXPECT_FALSE(dump.loadAtoms(nullptr));
    EXPECT_FALSE(dump.saveAtoms(nullptr));
}
