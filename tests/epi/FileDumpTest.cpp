#include "epi/epiAtomsFile.h"
#include "epi/epiFile.h"
#include "epi/epiFileDump.h"

#include "tests/epi/FileTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace epitest;

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

    // Saving other bytes over a longer file leaves exactly those bytes.
    ASSERT_TRUE(dump.saveFile(path, "xy", 2));
    EXPECT_EQ(readAll(at("state.bin")), "xy");

    // A failed load leaves the dump empty; an empty file loads as an empty dump.
    EXPECT_FALSE(dump.loadFile(epiPath(at("missing"))));
    EXPECT_EQ(dump.size(), 0u);
    EXPECT_EQ(dump.data(), nullptr);
    EXPECT_FALSE(loaded.loadFile(epiPath(at(""))));
    EXPECT_EQ(loaded.data(), nullptr);
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

TEST(FileDumpAtoms, SavesIntoABorrowedMemoryFileAndReadsBack)
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
}

TEST(FileDumpAtoms, DamagedAtomsLoadNothing)
{
    constexpr uint32_t kSize = epiCode("size");
    constexpr uint32_t kData = epiCode("data");
    // 'size' promises more than the 'data' atom holds; no 'size' atom at all.
    for (const std::string& bytes : {Builder(false).head().u32(kSize, 0x7FFFFFF0).atom(kData, "xy").bytes(),
                                     Builder(false).head().atom(kData, "xy").bytes()})
    {
        MemoryAtoms atoms(bytes);
        ASSERT_TRUE(atoms.attach());
        epiFileDump dump;
        ASSERT_TRUE(dump.copyBytes("old", 3));
        EXPECT_FALSE(dump.loadAtoms(&atoms.atoms));
        EXPECT_EQ(dump.size(), 0u);
        EXPECT_EQ(dump.data(), nullptr);
    }
    epiFileDump dump;
    EXPECT_FALSE(dump.loadAtoms(nullptr));
    EXPECT_FALSE(dump.saveAtoms(nullptr));
}
