#include "epi/epiPath.h"

#include "tests/epi/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Sets an environment variable for one test and puts the old value back.
class ScopedEnv
{
public:
    ScopedEnv(const char* name, const char* value) : name_(name)
    {
        const char* old = std::getenv(name);
        had_ = old != nullptr;
        if (had_)
            old_ = old;
        if (value != nullptr)
            ::setenv(name, value, 1);
        else
            ::unsetenv(name);
    }
    ~ScopedEnv()
    {
        if (had_)
            ::setenv(name_, old_.c_str(), 1);
        else
            ::unsetenv(name_);
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
    std::string old_;
    bool had_ = false;
};

bool isDirectory(const std::string& path)
{
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

} // namespace

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
    EXPECT_TRUE(epiPath("/").isFolder());
    EXPECT_FALSE(epiPath("a/b").isAbsolute());
}

TEST(PathNative, RelativePathsTakeTheBaseFolder)
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
    EXPECT_EQ(epiPath::defaultBase(), &appFolder);
    rel.toNative(native);
    EXPECT_STREQ(native, "/usr/lib/kv3/resources/a.xml");
    // An explicit base wins over the default.
    rel.toNative(native, &base);
    EXPECT_STREQ(native, "/opt/kv3/bin/resources/a.xml");
    epiPath::setDefaultBase(nullptr);
    rel.toNative(native);
    EXPECT_STREQ(native, "resources/a.xml");
}

TEST(PathNative, DriveLetterNotation)
{
    epiPath p;
    p.fromWindowsNative("C:\\x\\y.wav");
    EXPECT_EQ(p, "/Volumes/C/x/y.wav");
    char native[epiPath::kNativeCapacity];
    p.toWindowsNative(native);
    EXPECT_STREQ(native, "C:\\x\\y.wav");

    p.fromWindowsNative("D:\\");
    EXPECT_EQ(p, "/Volumes/D/");
    p.toWindowsNative(native);
    EXPECT_STREQ(native, "D:\\");

    p.fromWindowsNative("sub\\file.txt");
    EXPECT_EQ(p, "sub/file.txt");
    p.toWindowsNative(native);
    EXPECT_STREQ(native, "sub\\file.txt");

    const epiPath base("/Volumes/E/prog/");
    const epiPath rel("res/a.xml");
    rel.toWindowsNative(native, &base);
    EXPECT_STREQ(native, "E:\\prog\\res\\a.xml");
}

TEST(PathSpecialFolders, UserFoldersFollowTheEnvironment)
{
    TempFolder tmp;
    const std::string home = tmp.path() + "home";
    const std::string config = tmp.path() + "cfg/deep";
    ASSERT_EQ(::mkdir(home.c_str(), 0755), 0);
    ScopedEnv homeEnv("HOME", home.c_str());
    ScopedEnv configEnv("XDG_CONFIG_HOME", config.c_str());

    epiPath p("unchanged");
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uHom"), false));
    EXPECT_EQ(p, home + "/");
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uDoc"), false));
    EXPECT_EQ(p, home + "/");

    EXPECT_TRUE(p.setSpecialFolder(epiCode("uAps"), false));
    EXPECT_EQ(p, config + "/");
    EXPECT_FALSE(isDirectory(config));
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uPrf"), true));
    EXPECT_EQ(p, config + "/");
    EXPECT_TRUE(isDirectory(config));

    {
        // A relative XDG_CONFIG_HOME is ignored in favour of ~/.config.
        ScopedEnv relative("XDG_CONFIG_HOME", "relative/cfg");
        EXPECT_TRUE(p.setSpecialFolder(epiCode("uAps"), false));
        EXPECT_EQ(p, home + "/.config/");
    }

    EXPECT_TRUE(p.setSpecialFolder(epiCode("sRot"), false));
    EXPECT_EQ(p, "/");

    p = "kept";
    EXPECT_FALSE(p.setSpecialFolder(epiCode("zzzz"), true));
    EXPECT_EQ(p, "kept");
}

TEST(PathSpecialFolders, DesktopComesFromTheUserDirs)
{
    TempFolder tmp;
    const std::string home = tmp.path() + "home";
    const std::string config = tmp.path() + "cfg";
    ASSERT_EQ(::mkdir(home.c_str(), 0755), 0);
    ASSERT_EQ(::mkdir(config.c_str(), 0755), 0);
    ScopedEnv homeEnv("HOME", home.c_str());
    ScopedEnv configEnv("XDG_CONFIG_HOME", config.c_str());

    epiPath p;
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uDes"), false));
    EXPECT_EQ(p, home + "/Desktop/");

    std::ofstream(config + "/user-dirs.dirs") << "# written by a test\n"
                                                 "XDG_DOCUMENTS_DIR=\"$HOME/Docs\"\n"
                                                 "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n";
    EXPECT_TRUE(p.setSpecialFolder(epiCode("uDes"), true));
    EXPECT_EQ(p, home + "/Schreibtisch/");
    EXPECT_TRUE(isDirectory(home + "/Schreibtisch"));
}

TEST(PathSpecialFolders, ProgramFolderHoldsThisProgram)
{
    epiPath p;
    ASSERT_TRUE(p.setSpecialFolder(epiCode("sApp"), false));
    EXPECT_TRUE(p.isAbsolute());
    EXPECT_TRUE(p.isFolder());
    EXPECT_TRUE(p.exists());
    // The tests run from the build tree: the program's folder lies inside it.
    if (const char* binary = std::getenv("KV3_BINARY_DIR"))
    {
        char* resolved = ::realpath(binary, nullptr);
        ASSERT_NE(resolved, nullptr);
        const epiText prefix(resolved);
        std::free(resolved);
        EXPECT_TRUE(p.startsWith(&prefix)) << p << " is not inside " << prefix;
    }
}
