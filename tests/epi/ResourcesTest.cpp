#include "epi/epiResources.h"

#include "epi/epiFileDump.h"
#include "tests/epi/FileTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace
{

namespace fs = std::filesystem;
using epitest::readAll;
using testsupport::TempFolder;

const std::string kTree = EPI_TEST_TREE;
const std::string kPack = EPI_TEST_PACK;

enum class Medium
{
    Folder,
    PackFile,
    Linked
};

// The same tree as a folder (a copy, so that writes are free), as the pack file, and as the pack
// linked into this program: every medium must give the same answers.
class ResourcesOnEveryMedium : public ::testing::TestWithParam<Medium>
{
protected:
    void SetUp() override
    {
        if (GetParam() == Medium::Folder)
        {
            fs::copy(kTree, temp.file("res.frs"), fs::copy_options::recursive);
            ASSERT_TRUE(resources.openPathChars(temp.file("res.frs").c_str()));
        }
        else if (GetParam() == Medium::PackFile)
            ASSERT_TRUE(resources.openPathChars(kPack.c_str()));
        else
            ASSERT_TRUE(resources.openNative(0, nullptr));
    }

    std::string read(const char* name, uint32_t kind)
    {
        epiText text;
        EXPECT_TRUE(resources.readTextChars(name, kind, text)) << name;
        return text;
    }

    TempFolder temp;
    epiResources resources;
};

TEST_P(ResourcesOnEveryMedium, ReadsListsFindsAndWritesTheSameTree)
{
    const std::string main = readAll(kTree + "/layouts/main.xml");
    EXPECT_EQ(read("main.xml", epiCode("laya")), main);
    // A kind outside the table leaves the name as a path from the root.
    EXPECT_EQ(read("layouts/main.xml", epiCode("zzzz")), main);
    EXPECT_EQ(read("empty.txt", epiCode("text")), "");
    epiText text = "kept";
    EXPECT_FALSE(resources.readTextChars("main.xml", epiCode("text"), text));

    // One folder of a kind, or the whole tree under it; lists append.
    text.clear();
    ASSERT_TRUE(resources.listKind(epiCode("fnts"), text, false));
    EXPECT_EQ(text, "a.png\r\n");
    ASSERT_TRUE(resources.listKind(epiCode("fnts"), text, true));
    EXPECT_NE(text.find("a.png\r\n"), std::string::npos);
    EXPECT_NE(text.find("sub/b.png\r\n"), std::string::npos);

    EXPECT_TRUE(resources.findByInternalName(epiCode("laya"), epiCode("NoSz"), text));
    EXPECT_EQ(text, "nosize.xml");
    EXPECT_TRUE(resources.findByInternalName(epiCode("menu"), epiCode("Bar "), text));
    EXPECT_EQ(text, "bar.xml");
    EXPECT_FALSE(resources.findByInternalName(epiCode("laya"), epiCode("Bar "), text));

    epiPoint size(-1, -1);
    const epiText names[] = {"nosize.xml", "none.xml", "main.xml", "about.txt"};
    EXPECT_FALSE(resources.layoutSize(&names[0], size));
    EXPECT_FALSE(resources.layoutSize(&names[1], size));
    EXPECT_EQ(size, epiPoint(-1, -1));
    EXPECT_TRUE(resources.layoutSize(&names[2], size));
    EXPECT_EQ(size, epiPoint(640, 480));

    // Writes go to folders only; packs keep their bytes.
    text = "changed";
    EXPECT_TRUE(resources.writeText(&names[3], epiCode("text"), &text));
    EXPECT_EQ(read("about.txt", epiCode("text")), GetParam() == Medium::Folder ? "changed" : "about");
}

INSTANTIATE_TEST_SUITE_P(Media, ResourcesOnEveryMedium,
                         ::testing::Values(Medium::Folder, Medium::PackFile, Medium::Linked));

TEST(ResourcesOpen, TheExtensionChoosesTheMediumIgnoringCase)
{
    TempFolder temp;
    fs::copy(kTree, temp.file("upper.FRS"), fs::copy_options::recursive);
    fs::create_directory(temp.file("unmarked.frs"));
    fs::copy_file(kPack, temp.file("pack.PRS"));
    fs::copy_file(kPack, temp.file("pack.bin"));

    struct Row
    {
        const char* name;
        bool opens;
        bool folder;
    };
    for (const Row& row :
         {Row{"upper.FRS", true, true}, Row{"pack.PRS", true, false}, Row{"unmarked.frs", false, false},
          Row{"pack.bin", false, false}, Row{"missing.prs", false, false}})
    {
        epiResources resources;
        EXPECT_EQ(resources.openPathChars(temp.file(row.name).c_str()), row.opens) << row.name;
        EXPECT_EQ(resources.isFolderMedia(), row.folder) << row.name;
        EXPECT_EQ(resources.media() != nullptr, row.opens) << row.name;
    }
}

TEST(ResourcesOpen, NothingReadsWithoutAMedium)
{
    epiResources resources;
    epiText text;
    ASSERT_TRUE(resources.openNative(0, nullptr));
    resources.closeMedia();
    EXPECT_FALSE(resources.readTextChars("main.xml", epiCode("laya"), text));
    // A failed open leaves no medium behind, not even the one before.
    ASSERT_TRUE(resources.openNative(0, nullptr));
    EXPECT_FALSE(resources.openNative(4321, nullptr));
    EXPECT_EQ(resources.media(), nullptr);
}

TEST(ResourcesLinked, TheLinkedBytesAreThePackFileWithTheGeneratedFile)
{
    const void* data = nullptr;
    uint32_t size = 0;
    ASSERT_TRUE(epiLinkedResources::find("#22000", &data, &size));
    EXPECT_TRUE(std::string(static_cast<const char*>(data), size) == readAll(kPack));
    epiResMediaNativePack linked;
    ASSERT_TRUE(linked.openId(22000, nullptr));
    epiFileDump generated;
    ASSERT_TRUE(linked.read(epiText("aux/generated.txt"), generated));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(generated.data()), generated.size()),
              "made by the build\n");

    // Only linked ids of this program open.
    EXPECT_FALSE(linked.openId(22001, nullptr));
    int module = 0;
    EXPECT_FALSE(linked.openId(22000, &module));
    for (const char* name : {"#", "22000", "#22000x", "#-", ""})
        EXPECT_FALSE(epiLinkedResources::find(name, &data, &size)) << name;
}

// The search runs from the application's folder: the linked pack first, then beside the program
// the folder, then the pack file, then the bundle's and the sibling Resources/ folder.
TEST(ResourcesSearch, TakesTheFirstMediumInOrder)
{
    TempFolder temp;
    const std::string root = temp.file("");
    const std::string app = root + "bin/";
    fs::create_directories(app);
    const epiPath appPath((app + "Korvalind3Host").c_str());
    epiPath::setDefaultBase(&appPath);
    const void* linked = nullptr;
    uint32_t linkedSize = 0;
    ASSERT_TRUE(epiLinkedResources::find("#22000", &linked, &linkedSize));

    fs::copy(kTree, app + "Korvalind3Host.frs", fs::copy_options::recursive);
    fs::copy_file(kPack, app + "Korvalind3Host.prs");
    fs::create_directories(root + "Resources");
    fs::copy_file(kPack, root + "Resources/Korvalind3Host.prs");
    fs::create_directories(app + "Korvalind3Host.app/Contents/Resources");
    fs::copy(kTree, app + "Korvalind3Host.app/Contents/Resources/Host.frs", fs::copy_options::recursive);

    epiResources resources;
    ASSERT_TRUE(resources.openSearch("Korvalind3Host", nullptr));
    EXPECT_NE(dynamic_cast<epiResMediaNativePack*>(resources.media()), nullptr);

    epiLinkedResources::remove(epiLinkedResources::kProgramPackId);
    struct Row
    {
        const char* fileName;
        const char* removeFirst;
        const char* expectedRoot;
    };
    for (const Row& row : {Row{nullptr, nullptr, "bin/Korvalind3Host.frs/"},
                           Row{nullptr, "bin/Korvalind3Host.frs/epi.frs", "bin/Korvalind3Host.prs"},
                           Row{"Host", nullptr, "bin/Korvalind3Host.app/Contents/Resources/Host.frs/"},
                           Row{nullptr, "bin/Korvalind3Host.prs", "bin/../Resources/Korvalind3Host.prs"}})
    {
        if (row.removeFirst != nullptr)
            fs::remove(root + row.removeFirst);
        ASSERT_TRUE(resources.openSearch("Korvalind3Host", row.fileName)) << row.expectedRoot;
        EXPECT_EQ(resources.media()->rootPathRef()->toNativeText(), root + row.expectedRoot);
    }
    fs::remove(root + "Resources/Korvalind3Host.prs");
    EXPECT_FALSE(resources.openSearch("Korvalind3Host", nullptr));

    epiLinkedResources::add(epiLinkedResources::kProgramPackId, linked, linkedSize);
    EXPECT_TRUE(resources.openSearch("Korvalind3Host", nullptr));
    resources.closeMedia();
    epiPath::setDefaultBase(nullptr);
}

} // namespace
