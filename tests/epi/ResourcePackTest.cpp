#include "epi/epiFileDump.h"
#include "epi/epiResourcePack.h"
#include "tests/epi/FileTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using epitest::Builder;
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
        epitest::MemoryAtoms lent(bytes);
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
    epitest::writeAll(file, bytes);
    epiResourcePack disk;
    ASSERT_TRUE(disk.openFile(epiPath(file)));
    expectSample(disk);
    // The offsets are positions in the file: the bytes stand there.
    const epiResourcePack::fileElem* elem = nullptr;
    ASSERT_TRUE(disk.find("/layouts/mainPanel.xml", &elem));
    EXPECT_EQ(bytes.substr(elem->offset(), elem->entrySize()), kSample[1].second);
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
