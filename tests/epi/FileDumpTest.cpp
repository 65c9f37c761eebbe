#include "epi/epiAtomsFile.h"
#include "epi/epiFile.h"
#include "epi/epiFileDump.h"

#include "tests/epi/AtomsBytes.h"
#include "tests/epi/FileTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <sys/stat.h>

using namespace epitest;

TEST_F(FileTest, DumpSavesAndLoadsFiles)
{
    const epiPath path(at("state.bin"));
    epiFileDump dump;
    EXPECT_EQ(dump.size(), 0u);
    EXPECT_EQ(dump.data(), nullptr);
    const uint8_t bytes[] = {0, 1, 2, 0xFF, 0, 7};
    ASSERT_TRUE(dump.copyBytes(bytes, sizeof bytes));
    EXPECT_TRUE(dump.owned());
    EXPECT_NE(dump.data(), bytes);
    ASSERT_TRUE(dump.saveFile(path, nullptr, 0));
    EXPECT_EQ(readAll(at("state.bin")), std::string(reinterpret_cast<const char*>(bytes), sizeof bytes));

    epiFileDump loaded;
    ASSERT_TRUE(loaded.loadFile(path));
    EXPECT_EQ(loaded.size(), sizeof bytes);
    EXPECT_FALSE(loaded.differs(dump));

    // Saving other bytes over a longer file leaves exactly those bytes.
    ASSERT_TRUE(dump.saveFile(path, "xy", 2));
    EXPECT_EQ(readAll(at("state.bin")), "xy");
    ASSERT_TRUE(loaded.loadFile(path));
    EXPECT_EQ(loaded.size(), 2u);
    EXPECT_TRUE(loaded.differs(dump));
}

TEST_F(FileTest, DumpLoadFailuresLeaveItEmpty)
{
    epiFileDump dump;
    ASSERT_TRUE(dump.copyBytes("abc", 3));
    EXPECT_FALSE(dump.loadFile(epiPath(at("missing"))));
    EXPECT_EQ(dump.size(), 0u);
    EXPECT_EQ(dump.data(), nullptr);
    EXPECT_FALSE(dump.loadFile(epiPath(tmp_.path())));

    writeAll(at("empty"), "");
    EXPECT_TRUE(dump.loadFile(epiPath(at("empty"))));
    EXPECT_EQ(dump.size(), 0u);
}

TEST(FileDump, MemoryOperations)
{
    epiFileDump a;
    EXPECT_FALSE(a.copyBytes(nullptr, 4));
    ASSERT_TRUE(a.allocate(8, true));
    EXPECT_EQ(a.size(), 8u);
    for (uint32_t i = 0; i < 8; ++i)
        EXPECT_EQ(a.data()[i], 0);
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
    EXPECT_EQ(b.data(), reinterpret_cast<uint8_t*>(lent));
    EXPECT_FALSE(b.owned());
    b.free();
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(lent[0], 'l');

    // Copying from a dump's own bytes must not read freed memory.
    ASSERT_TRUE(a.copyBytes(a.data() + 2, 2));
    EXPECT_EQ(a.size(), 2u);
    EXPECT_EQ(std::memcmp(a.data(), "hi", 2), 0);

    epiFileDump e1, e2;
    EXPECT_FALSE(e1.differs(e2));
}

// Dumps inside atoms files.

namespace
{

using atomsbytes::Builder;
constexpr uint32_t kSize = epiCode("size");
constexpr uint32_t kData = epiCode("data");

// An atoms file over bytes in memory, attached for reading.
struct AtomsOver
{
    explicit AtomsOver(std::string content) : bytes(std::move(content))
    {
        EXPECT_TRUE(ram.setBuffer(bytes.data(), uint32_t(bytes.size())));
        EXPECT_TRUE(atoms.attach(&ram, true));
    }
    std::string bytes;
    epiRamFile ram;
    epiAtomsFile atoms;
};

} // namespace

TEST(FileDumpAtoms, SavesSizeThenDataAndReadsThemBack)
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
    ASSERT_TRUE(ram.seek(0, 0));
    epiAtomsFile reader;
    ASSERT_TRUE(reader.attach(&ram, true));
    epiFileDump loaded;
    ASSERT_TRUE(loaded.loadAtoms(&reader));
    EXPECT_TRUE(loaded.owned());
    EXPECT_FALSE(loaded.differs(dump));
    ram.freeBuffer();
}

TEST(FileDumpAtoms, DamagedAtomsLoadNothing)
{
    // 'size' promises more than the 'data' atom holds.
    AtomsOver overlong(Builder(false).head().u32(kSize, 0x7FFFFFF0).atom(kData, "xy").bytes());
    epiFileDump dump;
    ASSERT_TRUE(dump.copyBytes("old", 3));
    EXPECT_FALSE(dump.loadAtoms(&overlong.atoms));
    EXPECT_EQ(dump.size(), 0u);
    EXPECT_EQ(dump.data(), nullptr);

    // No 'size' atom where one is expected.
    AtomsOver sizeless(Builder(false).head().atom(kData, "xy").bytes());
    EXPECT_FALSE(dump.loadAtoms(&sizeless.atoms));
    EXPECT_FALSE(dump.loadAtoms(nullptr));
    EXPECT_FALSE(dump.saveAtoms(nullptr));
}
