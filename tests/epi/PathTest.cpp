#include "epi/epiPath.h"

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <utility>

// What an edit of a path gives: each row applies one edit to a path and names the result.
struct PathRow
{
    const char* path;
    std::function<void(epiPath&)> edit;
    const char* want;
};

TEST(Path, EditsOfFoldersAndNames)
{
    const PathRow rows[] = {
        {"/a/b/c.txt", [](epiPath& p) { p.removeLast(); }, "/a/b/"},
        {"/a/b/", [](epiPath& p) { p.removeLast(); }, "/a/b/"}, // a folder has no last name to remove
        {"name.wav", [](epiPath& p) { p.removeLast(); }, ""},
        {"", [](epiPath& p) { p.ensureTrailingSlash(); }, ""},
        {"/x", [](epiPath& p) { p.ensureTrailingSlash(), p.ensureTrailingSlash(); }, "/x/"},
        {"/x/", [](epiPath& p) { p.appendFolderChars("sub"), p.appendFolderChars("deeper/"); },
         "/x/sub/deeper/"},
        {"/a/b/c.txt", [](epiPath& p) { p.goUp(); }, "/a/"},
        {"/a/b/", [](epiPath& p) { p.goUp(); }, "/a/"},
        {"/a/", [](epiPath& p) { p.goUp(); }, "/"},
        {"a", [](epiPath& p) { p.goUp(); }, ""},
        {"/sounds/take.1.wav", [](epiPath& p) { p = p.folder(); }, "/sounds/"},
        {"/sounds/loops/", [](epiPath& p) { p = p.lastComponent(); }, "loops"},
        {"/", [](epiPath& p) { p = p.lastComponent(); }, ""},
        {"/a/b.c.d", [](epiPath& p) { p = p.extension() + "|" + p.baseName(); }, "d|b.c"},
        // A name without '.' is its own extension and base name; a folder's dot never counts.
        {"/a/name", [](epiPath& p) { p = p.extension() + "|" + p.baseName(); }, "name|name"},
        {"/a/.hidden", [](epiPath& p) { p = p.extension() + "|" + p.baseName(); }, "hidden|"},
        {"/v1.2/readme", [](epiPath& p) { p = p.baseName(); }, "readme"},
        {"/t/Audio_T1_1.aif", [](epiPath& p) { p.appendToBaseName("_tmp"); }, "/t/Audio_T1_1_tmp.aif"},
        {"a.wav", [](epiPath& p) { p.appendToBaseName("_tmp"); }, "a_tmp.wav"},
        {"/t/take", [](epiPath& p) { p.appendToBaseName("_tmp"); }, "/t/take_tmp.take"},
        {"/t/take", [](epiPath& p) { p.replaceExtension("aif"); }, "/t/take.aif"},
        {"/t/a.aif", [](epiPath& p) { p.replaceExtension("wav"); }, "/t/a.wav"},
    };
    for (const PathRow& row : rows)
    {
        epiPath p(row.path);
        row.edit(p);
        EXPECT_EQ(p, row.want) << row.path;
    }
}

TEST(PathNative, RelativePathsTakeTheBaseFolderAndDrivesMapToVolumes)
{
    char native[epiPath::kNativeCapacity];
    const epiPath base("/opt/kv3/bin/kv3");
    const epiPath rel("resources/a.xml");
    rel.toNative(native, &base);
    EXPECT_STREQ(native, "/opt/kv3/bin/resources/a.xml");
    const epiPath abs("/etc/x");
    abs.toNative(native, &base);
    EXPECT_STREQ(native, "/etc/x");

    const epiPath appFolder("/usr/lib/kv3/");
    epiPath::setDefaultBase(&appFolder);
    rel.toNative(native);
    EXPECT_STREQ(native, "/usr/lib/kv3/resources/a.xml");
    // An explicit base wins over the default.
    rel.toNative(native, &base);
    EXPECT_STREQ(native, "/opt/kv3/bin/resources/a.xml");
    epiPath::setDefaultBase(nullptr);
    rel.toNative(native);
    EXPECT_STREQ(native, "resources/a.xml");

    // Drive-letter notation.
    for (const auto& [windows, path] :
         {std::pair{"C:\\x\\y.wav", "/Volumes/C/x/y.wav"}, std::pair{"D:\\", "/Volumes/D/"},
          std::pair{"sub\\file.txt", "sub/file.txt"}})
    {
        epiPath p;
        p.fromWindowsNative(windows);
        EXPECT_EQ(p, path);
        p.toWindowsNative(native);
        EXPECT_STREQ(native, windows);
    }
    const epiPath volume("/Volumes/E/prog/");
    epiPath("res/a.xml").toWindowsNative(native, &volume);
    EXPECT_STREQ(native, "E:\\prog\\res\\a.xml");
}

// Each test has its own HOME and XDG_CONFIG_HOME; the old values come back after it.
class PathSpecialFolders : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (auto& [name, old] : saved_)
        {
            if (const char* value = std::getenv(name))
                old = value;
        }
        ASSERT_TRUE(std::filesystem::create_directory(home_));
        ::setenv("HOME", home_.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", config_.c_str(), 1);
    }
    void TearDown() override
    {
        for (const auto& [name, old] : saved_)
            old ? ::setenv(name, old->c_str(), 1) : ::unsetenv(name);
    }

    testsupport::TempFolder tmp_;
    const std::string home_ = tmp_.file("home");
    const std::string config_ = tmp_.file("cfg/deep");
    std::pair<const char*, std::optional<std::string>> saved_[2] = {{"HOME", {}}, {"XDG_CONFIG_HOME", {}}};
};

TEST_F(PathSpecialFolders, UserFoldersFollowTheEnvironment)
{
    epiPath p("unchanged");
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uHom"), false));
    EXPECT_EQ(p, home_ + "/");
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uDoc"), false));
    EXPECT_EQ(p, home_ + "/");
    EXPECT_TRUE(p.setSpecialFolder(epiCode("sRot"), false));
    EXPECT_EQ(p, "/");
    // The program's folder: the tests run from the build tree, so it lies inside it.
    ASSERT_TRUE(p.setSpecialFolder(epiCode("sApp"), false));
    EXPECT_TRUE(p.isFolder() && p.exists()) << p;
    if (const char* binary = std::getenv("KV3_BINARY_DIR"))
    {
        const epiText prefix(std::filesystem::canonical(binary).string());
        EXPECT_TRUE(p.startsWith(&prefix)) << p << " is not inside " << prefix;
    }

    // The folder is made only when asked for.
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uAps"), false));
    EXPECT_EQ(p, config_ + "/");
    EXPECT_FALSE(std::filesystem::is_directory(config_));
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uPrf"), true));
    EXPECT_EQ(p, config_ + "/");
    EXPECT_TRUE(std::filesystem::is_directory(config_));

    p = "kept";
    EXPECT_FALSE(p.setSpecialFolder(epiCode("zzzz"), true));
    EXPECT_EQ(p, "kept");

    // A relative XDG_CONFIG_HOME is ignored in favour of ~/.config.
    ::setenv("XDG_CONFIG_HOME", "relative/cfg", 1);
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uAps"), false));
    EXPECT_EQ(p, home_ + "/.config/");
}

TEST_F(PathSpecialFolders, DesktopComesFromTheUserDirs)
{
    epiPath p;
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uDes"), false));
    EXPECT_EQ(p, home_ + "/Desktop/");

    ASSERT_TRUE(std::filesystem::create_directories(config_));
    std::ofstream(config_ + "/user-dirs.dirs") << "# written by a test\n"
                                                  "XDG_DOCUMENTS_DIR=\"$HOME/Docs\"\n"
                                                  "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n";
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uDes"), true));
    EXPECT_EQ(p, home_ + "/Schreibtisch/");
    EXPECT_TRUE(std::filesystem::is_directory(home_ + "/Schreibtisch"));
}
