#include "epi/epiAtomsFile.h"
#include "tests/epi/FileTestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using namespace epitest;

constexpr uint32_t kTagA = epiCode("tagA");
constexpr uint32_t kTagB = epiCode("tagB");
constexpr uint32_t kTagT = epiCode("text");

TEST_F(FileTest, AtomsOnDiskAndInMemoryReadBackWhatWasWritten)
{
    const epiPath path(at("r.atoms"));
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
    check(disk);
    MemoryAtoms memory(readAll(at("r.atoms")));
    ASSERT_TRUE(memory.attach());
    check(memory.atoms);

    // A second open of an atoms file that is open fails and leaves it as it was.
    EXPECT_FALSE(disk.open(path, epiFile::kRead));
    EXPECT_TRUE(disk.fileOf()->isOpen());
}

// The same content in both orders: the same values come out, swapped when the file is big-endian,
// and what is written into a file keeps the file's order.
TEST_F(FileTest, AtomsOfEitherByteOrderReadAndWriteInThatOrder)
{
    const std::string odd("\x01\x02", 2);
    for (const bool big : {true, false})
    {
        writeAll(at("o.atoms"), Builder(big).head().u32(kTagA, 0x01020304).atom(kTagB, odd).bytes());
        {
            epiAtomsFile atoms;
            ASSERT_TRUE(atoms.open(epiPath(at("o.atoms")), epiFile::kRead | epiFile::kWrite));
            EXPECT_EQ(atoms.swapped(), big);
            uint32_t a = 0;
            EXPECT_TRUE(atoms.readU32(kTagA, a));
            EXPECT_EQ(a, 0x01020304u);
            // A 2-byte body read as U32: the two bytes, two zero bytes, then the swap if any.
            EXPECT_TRUE(atoms.readU32(kTagB, a));
            EXPECT_EQ(a, big ? 0x01020000u : 0x00000201u);
            ASSERT_TRUE(atoms.writeU32(kTagB, 0x11223344));
            const epiText text("abc");
            ASSERT_TRUE(atoms.writeText(kTagT, &text));
        }
        EXPECT_EQ(readAll(at("o.atoms")), Builder(big)
                                              .head()
                                              .u32(kTagA, 0x01020304)
                                              .atom(kTagB, odd)
                                              .u32(kTagB, 0x11223344)
                                              .atom(kTagT, "abc")
                                              .bytes());
    }
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
    // Nothing attached: nothing reads or writes.
    epiAtomsFile none;
    uint32_t v = 5;
    EXPECT_FALSE(none.attach(nullptr, true));
    EXPECT_FALSE(none.readU32(kTagA, v));
    EXPECT_FALSE(none.writeU32(kTagA, 1));
}

TEST_F(FileTest, AFailedAtomsOpenLosesNothingOnDisk)
{
    const epiPath path(at("notatoms.bin"));
    const std::string content = "this is not an atoms file but it must stay as it is";
    writeAll(at("notatoms.bin"), content);
    epiAtomsFile atoms;
    EXPECT_FALSE(atoms.open(path, epiFile::kRead | epiFile::kWrite));
    EXPECT_FALSE(atoms.fileOf()->isOpen());
    EXPECT_EQ(readAll(at("notatoms.bin")), content);
    EXPECT_FALSE(atoms.open(epiPath(at("missing.atoms")), epiFile::kRead));
    // Once the failed file is closed, the same object opens a good one.
    writeAll(at("notatoms.bin"), Builder(false).head().u32(kTagA, 3).bytes());
    ASSERT_TRUE(atoms.open(path, epiFile::kRead));
    uint32_t a = 0;
    EXPECT_TRUE(atoms.readU32(kTagA, a));
    EXPECT_EQ(a, 3u);
}

TEST(AtomsFileRead, AWrongTagLeavesThePositionAndAShortReadSkipsTheWholeAtom)
{
    MemoryAtoms m(Builder(false)
                      .head()
                      .atom(kTagA, std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8))
                      .u32(kTagB, 6)
                      .atom(kTagT, "xyz")
                      .bytes());
    ASSERT_TRUE(m.attach());
    uint32_t v = 99;
    EXPECT_FALSE(m.atoms.readU32(kTagB, v));
    EXPECT_EQ(v, 0u);
    EXPECT_TRUE(m.atoms.readU32(kTagA, v));
    EXPECT_EQ(v, 0x04030201u);
    // Without clearOnFail a failed read leaves the target alone.
    m.atoms.setClearOnFail(false);
    EXPECT_FALSE(m.atoms.readU32(kTagA, v));
    EXPECT_EQ(v, 0x04030201u);
    EXPECT_TRUE(m.atoms.readU32(kTagB, v));
    EXPECT_EQ(v, 6u);
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
        char buffer[4] = {1, 1, 1, 1};
        EXPECT_FALSE(m.atoms.readAtom(kTagT, buffer, 4));
        EXPECT_EQ(std::string(buffer, 4), std::string(4, '\0'));
        uint32_t size = 0;
        uint32_t position = 0;
        EXPECT_FALSE(m.atoms.skipAtom(kTagT, size, position));
        EXPECT_EQ(m.ram.tell(), at);
        EXPECT_TRUE(m.atoms.peekSize(kTagT, size));
        EXPECT_EQ(size, promised);
    }
    // A header cut short.
    MemoryAtoms cut(Builder(false).head().bytes() + std::string("Agat\4\0", 6));
    ASSERT_TRUE(cut.attach());
    uint32_t v = 1;
    EXPECT_FALSE(cut.atoms.readU32(kTagA, v));
    EXPECT_EQ(v, 0u);
    EXPECT_EQ(cut.ram.tell(), 12u);
}

} // namespace
