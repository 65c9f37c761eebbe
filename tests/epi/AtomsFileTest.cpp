#include "epi/epiAtomsFile.h"
#include "epi/epiFileDump.h"
#include "epi/epiResourcePack.h"
#include "tests/epi/FileTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace epitest;
namespace fs = std::filesystem;

constexpr uint32_t kTagA = epiCode("tagA");
constexpr uint32_t kTagB = epiCode("tagB");
constexpr uint32_t kTagT = epiCode("text");

// The same content in both orders: the same values come out, swapped when the file is big-endian;
// what is written into a file keeps the file's order and reads back from memory too.
TEST_F(FileTest, AtomsOfEitherByteOrderReadAndWriteInThatOrder)
{
    const std::string odd("\x01\x02", 2);
    const float gain = -6.5f;
    uint32_t gainBits = 0;
    std::memcpy(&gainBits, &gain, 4);
    const epiText name("/layouts/main panel.xml");
    const epiText empty;
    for (const bool big : {true, false})
    {
        const std::string path = at(big ? "big.atoms" : "little.atoms");
        writeAll(path, Builder(big).head().u32(kTagA, 0x01020304).atom(kTagB, odd).bytes());
        {
            epiAtomsFile atoms;
            ASSERT_TRUE(atoms.open(epiPath(path), epiFile::kRead | epiFile::kWrite));
            EXPECT_EQ(atoms.swapped(), big);
            // A second open of an atoms file that is open fails and leaves it as it was.
            EXPECT_FALSE(atoms.open(epiPath(path), epiFile::kRead));
            uint32_t a = 0;
            EXPECT_TRUE(atoms.readU32(kTagA, a));
            EXPECT_EQ(a, 0x01020304u);
            // A 2-byte body read as U32: the two bytes, two zero bytes, then the swap if any.
            EXPECT_TRUE(atoms.readU32(kTagB, a));
            EXPECT_EQ(a, big ? 0x01020000u : 0x00000201u);
            ASSERT_TRUE(atoms.writeU32Ref(kTagB, &gain));
            ASSERT_TRUE(atoms.writeText(kTagT, &name));
            ASSERT_TRUE(atoms.writeText(kTagT, &empty)); // an empty text is an atom of size 0
        }
        const std::string written = readAll(path);
        EXPECT_EQ(written, Builder(big)
                               .head()
                               .u32(kTagA, 0x01020304)
                               .atom(kTagB, odd)
                               .u32(kTagB, gainBits)
                               .atom(kTagT, name)
                               .atom(kTagT, "")
                               .bytes());
        MemoryAtoms m(written);
        ASSERT_TRUE(m.attach());
        uint32_t skipped = 0;
        float b = 0;
        epiText t("not empty");
        EXPECT_TRUE(m.atoms.readU32(kTagA, skipped) && m.atoms.readU32(kTagB, skipped));
        EXPECT_TRUE(m.atoms.readU32(kTagB, b));
        EXPECT_EQ(b, gain);
        EXPECT_TRUE(m.atoms.readText(kTagT, t));
        EXPECT_EQ(t, name);
        EXPECT_TRUE(m.atoms.readText(kTagT, t));
        EXPECT_TRUE(t.isEmpty());
        EXPECT_FALSE(m.atoms.readText(kTagT, t)); // the end of the file
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
        MemoryAtoms m(Builder(false).head().u32(kTagA, 1).atom(kTagT, "abcde", promised).bytes());
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

// Resource packs: atoms files of named entries.

using Entries = std::vector<std::pair<std::string, std::string>>;
using Pack = epiResourcePack;

struct PackShape
{
    uint32_t version = 1;
    int extraCount = 0; // a count that promises more (or fewer) entries than there are
    bool endAtom = true;
};

std::string packBytes(const Entries& entries, const PackShape& shape = {})
{
    Builder b(false);
    b.head().u32(Pack::kTagVersion, shape.version);
    b.u32(Pack::kTagCount, uint32_t(int(entries.size()) + shape.extraCount));
    for (const auto& [name, data] : entries)
        b.atom(Pack::kTagName, name).u32(Pack::kTagSize, uint32_t(data.size())).atom(Pack::kTagData, data);
    if (shape.endAtom)
        b.u32(Pack::kTagEnd, 0);
    return b.bytes();
}

const Entries kSample = {
    {"/aux/click.raw", std::string("\0\1\2\3\xFF\xFE", 6)},
    {"/layouts/mainPanel.xml", "<content><x>1</x></content>"},
    {"/empty.txt", ""},
    {"/a name with blanks", "blanks"},
};

bool openBytes(epiResourcePack& pack, const std::string& bytes)
{
    return pack.openMemory(bytes.data(), uint32_t(bytes.size()));
}

void expectSample(epiResourcePack& pack)
{
    ASSERT_EQ(pack.count(), int32_t(kSample.size()));
    for (int32_t i = 0; i < pack.count(); ++i)
    {
        epiText name;
        ASSERT_TRUE(pack.nameAt(i, &name));
        EXPECT_EQ(name, kSample[size_t(i)].first);
        epiText bytes("stale");
        ASSERT_TRUE(pack.loadText(name.cstr(), bytes)) << name;
        EXPECT_EQ(std::string(bytes), kSample[size_t(i)].second) << name;
        epiFileDump dump;
        ASSERT_TRUE(pack.load(name.cstr(), dump)) << name;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(dump.data()), dump.size()),
                  kSample[size_t(i)].second);
    }
    epiText name;
    EXPECT_FALSE(pack.nameAt(pack.count(), &name));
    EXPECT_FALSE(pack.nameAt(-1, &name));
}

TEST(ResourcePack, ReadsFromALentAtomsFileAndFromDisk)
{
    const std::string bytes = packBytes(kSample);
    {
        MemoryAtoms lent(bytes);
        ASSERT_TRUE(lent.attach());
        {
            epiResourcePack pack;
            ASSERT_TRUE(pack.parse(&lent.atoms));
            expectSample(pack);
        }
        // The pack closed the lent atoms file but didn't delete it (the sanitizers would see that).
        EXPECT_FALSE(lent.ram.isOpen());
    }

    const testsupport::TempFolder tmp;
    const std::string file = tmp.file("res.pack");
    writeAll(file, bytes);
    epiResourcePack disk;
    ASSERT_TRUE(disk.openFile(epiPath(file)));
    expectSample(disk);
    const epiResourcePack::fileElem* elem = nullptr;
    ASSERT_TRUE(disk.find("/layouts/mainPanel.xml", &elem));
    // The file cut short under an open pack: a load fails and leaves nothing behind.
    fs::resize_file(file, elem->offset() + 3);
    epiFileDump dump;
    EXPECT_FALSE(disk.load("/layouts/mainPanel.xml", dump));
    EXPECT_EQ(dump.data(), nullptr);
    epiText text("stale");
    EXPECT_FALSE(disk.loadText("/layouts/mainPanel.xml", text));
    EXPECT_TRUE(text.isEmpty());
    EXPECT_TRUE(disk.load("/aux/click.raw", dump)); // what lies before the cut still loads
    disk.close();
    fs::remove(file);
    EXPECT_FALSE(disk.openFile(epiPath(file)));
}

TEST(ResourcePack, FindNeedsExactNamesTakesTheFirstTwinAndAddsTheLeadingSlash)
{
    const std::string bytes =
        packBytes({{"/z", "last first"}, {"/b", "one"}, {"/b", "two"}, {"/A", "A"}, {"/d/x", "x"}});
    epiResourcePack pack;
    ASSERT_TRUE(openBytes(pack, bytes));
    epiText t;
    ASSERT_TRUE(pack.loadText("b", t));
    EXPECT_EQ(t, "one");
    ASSERT_TRUE(pack.loadText("/z", t));
    EXPECT_EQ(t, "last first");
    const epiResourcePack::fileElem* elem = pack.elemAt(0);
    EXPECT_FALSE(pack.find("/a", &elem));
    EXPECT_EQ(elem, nullptr);
    for (const char* name : {"/d/", "x", "", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(pack.exists(name)) << (name ? name : "null");
    t = "stale";
    EXPECT_FALSE(pack.loadText("/nothing", t));
    EXPECT_TRUE(t.isEmpty());
    epiFileDump dump;
    ASSERT_TRUE(dump.copyBytes("old", 3));
    EXPECT_FALSE(pack.load("/nothing", dump));
    EXPECT_EQ(dump.data(), nullptr);
}

TEST(ResourcePack, VersionCountAndEndAtom)
{
    // {bytes, opens, entries}, opened one after the other into one pack. A count that promises
    // more entries than exist is a damaged pack, left without entries; the end atom is not read
    // back; a count that promises fewer reads those.
    struct Row
    {
        std::string bytes;
        bool opens;
        int32_t count;
    };
    const Row rows[] = {
        {packBytes(kSample, {.endAtom = false}), true, 4},
        {packBytes(kSample, {.extraCount = 1}), false, 0},
        {packBytes(kSample, {.extraCount = -2}), true, 2},
        {packBytes(kSample, {.version = 2}), false, 0},
        {packBytes({}), true, 0},
        {packBytes(kSample, {.extraCount = 1000000000}), false, 0},
        {Builder(false).head().u32(Pack::kTagCount, 0).bytes(), false, 0},
        {Builder(false).head().u32(Pack::kTagVersion, 1).bytes(), false, 0},
    };
    epiResourcePack pack;
    for (const Row& row : rows)
    {
        EXPECT_EQ(openBytes(pack, row.bytes), row.opens) << &row - rows;
        EXPECT_EQ(pack.count(), row.count) << &row - rows;
        EXPECT_EQ(pack.exists("/aux/click.raw"), row.count > 0) << &row - rows;
        EXPECT_EQ(pack.atoms() != nullptr, row.opens) << &row - rows;
    }
    EXPECT_FALSE(pack.openMemory(nullptr, 0));
    EXPECT_FALSE(pack.parse());
}

TEST(ResourcePack, EveryCutOfAPackFailsUntilTheLastDataIsWhole)
{
    const std::string bytes = packBytes(kSample);
    const size_t needed = bytes.size() - 16; // the end atom is not needed
    epiResourcePack pack;
    for (size_t n = 0; n < bytes.size(); ++n)
    {
        // A copy of exactly n bytes, so that a read past them is a read out of bounds.
        std::vector<char> cut(bytes.begin(), bytes.begin() + std::ptrdiff_t(n));
        const bool ok = pack.openMemory(cut.data(), uint32_t(n));
        EXPECT_EQ(ok, n >= needed) << n;
        if (ok)
            expectSample(pack);
        pack.close();
    }
}

} // namespace
