#include "epi/epiAtomsFile.h"
#include "tests/epi/AtomsBytes.h"
#include "tests/epi/FileTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

using atomsbytes::Builder;

constexpr uint32_t kTagA = epiCode("tagA");
constexpr uint32_t kTagB = epiCode("tagB");
constexpr uint32_t kTagT = epiCode("text");

// An atoms file over bytes in memory. The memory file outlives the atoms file that closes it.
struct MemoryAtoms
{
    explicit MemoryAtoms(std::string content) : bytes(std::move(content))
    {
        ram.setBuffer(bytes.data(), uint32_t(bytes.size()));
    }
    bool attach() { return atoms.attach(&ram, true); }

    std::string bytes;
    epiRamFile ram;
    epiAtomsFile atoms;
};

epiPath fileIn(const TempFolder& dir, const std::string& name)
{
    return epiPath(dir.path() + name);
}

std::string readWhole(const epiPath& path)
{
    return epitest::readAll(path.cstr());
}

void writeWhole(const epiPath& path, const std::string& bytes)
{
    epitest::writeAll(path.cstr(), bytes);
}

TEST(AtomsFileRoundTrip, DiskAndMemoryReadBackWhatWasWritten)
{
    TempFolder dir;
    const epiPath path = fileIn(dir, "r.atoms");
    const float gain = -6.5f;
    const uint32_t word = 0xDEADBEEF;
    const epiText name("/layouts/main panel.xml");
    {
        epiAtomsFile atoms;
        ASSERT_TRUE(atoms.open(path, epiFile::kWrite | epiFile::kDeleteFirst));
        ASSERT_TRUE(atoms.writeU32Ref(kTagA, &word));
        ASSERT_TRUE(atoms.writeU32Ref(kTagB, &gain));
        ASSERT_TRUE(atoms.writeText(kTagT, &name));
        const epiText empty;
        ASSERT_TRUE(atoms.writeText(kTagT, &empty)); // an empty text is an atom of size 0
    }

    auto check = [&](epiAtomsFile& atoms)
    {
        EXPECT_FALSE(atoms.swapped());
        uint32_t a = 0;
        float b = 0;
        epiText t;
        EXPECT_TRUE(atoms.readU32(kTagA, a));
        EXPECT_EQ(a, word);
        EXPECT_TRUE(atoms.readU32(kTagB, b));
        EXPECT_EQ(b, gain);
        EXPECT_TRUE(atoms.readText(kTagT, t));
        EXPECT_EQ(t, name);
        t = "not empty";
        EXPECT_TRUE(atoms.readText(kTagT, t));
        EXPECT_TRUE(t.isEmpty());
        EXPECT_FALSE(atoms.readText(kTagT, t)); // the end of the file
    };
    epiAtomsFile disk;
    ASSERT_TRUE(disk.open(path, epiFile::kRead));
    EXPECT_EQ(disk.path(), path);
    check(disk);
    MemoryAtoms memory(readWhole(path));
    ASSERT_TRUE(memory.attach());
    check(memory.atoms);

    // A second open of an atoms file that is open fails and leaves it as it was.
    EXPECT_FALSE(disk.open(path, epiFile::kRead));
    EXPECT_TRUE(disk.fileOf()->isOpen());
}

TEST(AtomsFileRoundTrip, WritesIntoAMemoryFileThatItOnlyBorrows)
{
    epiRamFile ram;
    ASSERT_TRUE(ram.createBuffer());
    {
        epiAtomsFile writer;
        ASSERT_TRUE(writer.attach(&ram, false));
        ASSERT_TRUE(writer.writeU32(kTagA, 42));
    }
    // The atoms file is gone but the lent memory file, and what was written into it, stay.
    void* buffer = nullptr;
    uint32_t written = 0;
    ASSERT_TRUE(ram.getBuffer(&buffer, &written));
    MemoryAtoms reader(std::string(static_cast<char*>(buffer), written));
    ram.freeBuffer();
    ASSERT_TRUE(reader.attach());
    uint32_t v = 0;
    EXPECT_TRUE(reader.atoms.readU32(kTagA, v));
    EXPECT_EQ(v, 42u);
}

// The same content in both orders: the same values come out, swapped when the file is big-endian.
TEST(AtomsFileByteOrder, BigEndianFilesReadWithSwap)
{
    for (const bool big : {true, false})
    {
        const std::string bytes = Builder(big)
                                      .head()
                                      .u32(kTagA, 0x01020304)
                                      .atom(kTagT, "text stays")
                                      .atom(kTagB, std::string("\x01\x02", 2))
                                      .bytes();
        EXPECT_EQ(bytes.substr(0, 4), big ? "atms" : "smta");
        MemoryAtoms m(bytes);
        ASSERT_TRUE(m.attach());
        EXPECT_EQ(m.atoms.swapped(), big);
        uint32_t a = 0;
        epiText t;
        EXPECT_TRUE(m.atoms.readU32(kTagA, a));
        EXPECT_EQ(a, 0x01020304u);
        EXPECT_TRUE(m.atoms.readText(kTagT, t));
        EXPECT_EQ(t, "text stays");
        // A 2-byte body read as U32: the two bytes, two zero bytes, then the swap if any.
        EXPECT_TRUE(m.atoms.readU32(kTagB, a));
        EXPECT_EQ(a, big ? 0x01020000u : 0x00000201u);
    }
}

TEST(AtomsFileByteOrder, WritingToASwappedFileKeepsItsOrder)
{
    TempFolder dir;
    const epiPath path = fileIn(dir, "big.atoms");
    writeWhole(path, Builder(true).head().u32(kTagA, 7).bytes());
    {
        epiAtomsFile atoms;
        ASSERT_TRUE(atoms.open(path, epiFile::kRead | epiFile::kWrite));
        ASSERT_TRUE(atoms.swapped());
        uint32_t a = 0;
        ASSERT_TRUE(atoms.readU32(kTagA, a));
        EXPECT_EQ(a, 7u);
        ASSERT_TRUE(atoms.writeU32(kTagB, 0x11223344));
        const epiText text("abc");
        ASSERT_TRUE(atoms.writeText(kTagT, &text));
    }
    EXPECT_EQ(readWhole(path),
              Builder(true).head().u32(kTagA, 7).u32(kTagB, 0x11223344).atom(kTagT, "abc").bytes());
}

TEST(AtomsFileHead, BadHeadsFailAndCloseTheStream)
{
    const std::string cases[] = {
        "",
        std::string("smta\0\0\0\0\1\0\0", 11),
        Builder(false).head(epiCode("atmz")).bytes(),
        Builder(false).head(0x61746D73, 1, 1).bytes(),
        Builder(false).head(0x61746D73, 0, 2).bytes(),
        Builder(true).head(0x61746D73, 0, 2).bytes(),
        // A magic in one order with the other words in the other order.
        Builder(false).head().bytes().substr(0, 4) + Builder(true).word(0).word(1).bytes(),
    };
    for (const std::string& bytes : cases)
    {
        MemoryAtoms m(bytes.empty() ? bytes : bytes + Builder(false).u32(kTagA, 1).bytes());
        EXPECT_FALSE(m.attach()) << testing::PrintToString(bytes);
        EXPECT_FALSE(m.ram.isOpen());
        EXPECT_FALSE(m.atoms.swapped());
    }
    epiAtomsFile none;
    EXPECT_FALSE(none.attach(nullptr, true));
}

TEST(AtomsFileHead, AFailedOpenLosesNothingOnDisk)
{
    TempFolder dir;
    const epiPath path = fileIn(dir, "notatoms.bin");
    const std::string content = "this is not an atoms file but it must stay as it is";
    writeWhole(path, content);
    epiAtomsFile atoms;
    EXPECT_FALSE(atoms.open(path, epiFile::kRead | epiFile::kWrite));
    EXPECT_FALSE(atoms.fileOf()->isOpen());
    EXPECT_EQ(readWhole(path), content);
    EXPECT_FALSE(atoms.open(fileIn(dir, "missing.atoms"), epiFile::kRead));
    // Once the failed file is closed, the same object opens a good one.
    writeWhole(path, Builder(false).head().u32(kTagA, 3).bytes());
    ASSERT_TRUE(atoms.open(path, epiFile::kRead));
    uint32_t a = 0;
    EXPECT_TRUE(atoms.readU32(kTagA, a));
    EXPECT_EQ(a, 3u);
}

TEST(AtomsFileRead, AWrongTagLeavesThePositionAndGivesZero)
{
    MemoryAtoms m(Builder(false).head().u32(kTagA, 5).u32(kTagB, 6).bytes());
    ASSERT_TRUE(m.attach());
    uint32_t v = 99;
    const uint32_t start = m.ram.tell();
    EXPECT_FALSE(m.atoms.readU32(kTagB, v));
    EXPECT_EQ(v, 0u);
    EXPECT_EQ(m.ram.tell(), start);
    EXPECT_TRUE(m.atoms.readU32(kTagA, v));
    EXPECT_EQ(v, 5u);
    // Without clearOnFail a failed read leaves the target alone.
    m.atoms.setClearOnFail(false);
    v = 99;
    EXPECT_FALSE(m.atoms.readU32(kTagA, v));
    EXPECT_EQ(v, 99u);
    EXPECT_TRUE(m.atoms.readU32(kTagB, v));
    EXPECT_EQ(v, 6u);
}

TEST(AtomsFileRead, LongerAndShorterBodies)
{
    MemoryAtoms m(Builder(false)
                      .head()
                      .atom(kTagA, std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8))
                      .atom(kTagB, std::string("\x0A\x0B", 2))
                      .atom(kTagT, "xyz")
                      .bytes());
    ASSERT_TRUE(m.attach());
    uint32_t v = 0;
    EXPECT_TRUE(m.atoms.readU32(kTagA, v));
    EXPECT_EQ(v, 0x04030201u);
    EXPECT_EQ(m.ram.tell(), 12u + 20u); // behind the whole atom, not behind 4 bytes of it
    EXPECT_TRUE(m.atoms.readU32(kTagB, v));
    EXPECT_EQ(v, 0x00000B0Au);
    uint8_t byte = 0;
    EXPECT_TRUE(m.atoms.readByte(kTagT, byte));
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(m.ram.tell(), uint32_t(m.bytes.size()));
}

TEST(AtomsFileRead, TruncatedAndOversizedAtomsFailInPlace)
{
    // A header that promises more than the file holds: every read fails where it stands,
    // readText makes no room for the promised size, and the good atom before it is unharmed.
    for (const uint32_t promised : {6u, 1000u, 0x7FFFFFFFu, 0xFFFFFFF0u})
    {
        MemoryAtoms m(Builder(false).head().u32(kTagA, 1).atomSized(kTagT, promised, "abcde").bytes());
        ASSERT_TRUE(m.attach());
        uint32_t v = 0;
        ASSERT_TRUE(m.atoms.readU32(kTagA, v));
        const uint32_t at = m.ram.tell();
        epiText t("x");
        EXPECT_FALSE(m.atoms.readText(kTagT, t)) << promised;
        EXPECT_TRUE(t.isEmpty());
        EXPECT_EQ(m.ram.tell(), at);
        char buffer[4] = {1, 1, 1, 1};
        EXPECT_FALSE(m.atoms.readAtom(kTagT, buffer, 4));
        EXPECT_EQ(std::string(buffer, 4), std::string(4, '\0'));
        EXPECT_EQ(m.ram.tell(), at);
        uint32_t size = 0;
        uint32_t position = 0;
        EXPECT_FALSE(m.atoms.skipAtom(kTagT, size, position));
        EXPECT_EQ(m.ram.tell(), at);
        EXPECT_TRUE(m.atoms.peekSize(kTagT, size));
        EXPECT_EQ(size, promised);
    }
    // A header cut short.
    MemoryAtoms cut(Builder(false).head().raw("Agat\4\0").bytes());
    ASSERT_TRUE(cut.attach());
    uint32_t v = 1;
    EXPECT_FALSE(cut.atoms.readU32(kTagA, v));
    EXPECT_EQ(v, 0u);
    EXPECT_EQ(cut.ram.tell(), 12u);
}

TEST(AtomsFileRead, NothingAttachedReadsNothing)
{
    epiAtomsFile atoms;
    uint32_t v = 5;
    epiText t("x");
    EXPECT_FALSE(atoms.readU32(kTagA, v));
    EXPECT_FALSE(atoms.readText(kTagT, t));
    EXPECT_FALSE(atoms.writeU32(kTagA, 1));
}

} // namespace
