#include "epi/epiPath.h"

#include "tests/epi/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
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

TEST(PathForms, SeparatorsAndFolders)
{
    epiPath p("/a/b/c.txt");
    EXPECT_TRUE(p.isAbsolute());
    EXPECT_FALSE(p.isFolder());
    EXPECT_FALSE(epiPath("a/b").isAbsolute());
    EXPECT_FALSE(epiPath("").isAbsolute());
    EXPECT_TRUE(epiPath("/").isFolder());

    p.removeLast();
    EXPECT_EQ(p, "/a/b/");
    EXPECT_TRUE(p.isFolder());
    p.removeLast();
    EXPECT_EQ(p, "/a/b/");
    epiPath bare("name.wav");
    bare.removeLast();
    EXPECT_TRUE(bare.isEmpty());

    epiPath f;
    f.ensureTrailingSlash();
    EXPECT_TRUE(f.isEmpty());
    f = "/x";
    f.ensureTrailingSlash();
    f.ensureTrailingSlash();
    EXPECT_EQ(f, "/x/");
    f.appendFolderChars("sub");
    f.appendFolderChars("deeper/");
    const epiText more("more");
    f.appendFolderText(&more);
    EXPECT_EQ(f, "/x/sub/deeper/more/");
}

TEST(PathForms, GoUp)
{
    epiPath p("/a/b/c.txt");
    p.goUp();
    EXPECT_EQ(p, "/a/");
    p = "/a/b/";
    p.goUp();
    EXPECT_EQ(p, "/a/");
    p.goUp();
    EXPECT_EQ(p, "/");
    p = "a";
    p.goUp();
    EXPECT_TRUE(p.isEmpty());
}

TEST(PathNames, FolderAndLastComponent)
{
    const epiPath p("/sounds/take.1.wav");
    EXPECT_EQ(p.folder(), "/sounds/");
    EXPECT_EQ(p, "/sounds/take.1.wav");
    EXPECT_EQ(p.lastComponent(), "take.1.wav");
    EXPECT_EQ(epiPath("/sounds/loops/").lastComponent(), "loops");
    EXPECT_EQ(epiPath("plain").lastComponent(), "plain");
    EXPECT_EQ(epiPath("/").lastComponent(), "");

    epiPath q(p);
    const epiText other("other.aif");
    q.replaceLast(&other);
    EXPECT_EQ(q, "/sounds/other.aif");
    q = std::string("/from/a/string");
    EXPECT_EQ(q.lastComponent(), "string");
    q = std::string_view("/view/x.y");
    EXPECT_EQ(q.baseName(), "x");
}

TEST(PathNames, ExtensionAndBaseName)
{
    const epiPath p("/a/b.c.d");
    EXPECT_EQ(p.extension(), "d");
    EXPECT_EQ(p.baseName(), "b.c");
    // A name without '.' is its own extension and its own base name.
    EXPECT_EQ(epiPath("/a/name").extension(), "name");
    EXPECT_EQ(epiPath("/a/name").baseName(), "name");
    EXPECT_EQ(epiPath("/a/.hidden").baseName(), "");
    EXPECT_EQ(epiPath("/a/.hidden").extension(), "hidden");
    // The extension is taken from the file name, never from a folder's dot.
    EXPECT_EQ(epiPath("/v1.2/readme").baseName(), "readme");
}

TEST(PathNames, RebuildingTheName)
{
    epiPath p("/t/Audio_T1_1.aif");
    p.appendToBaseName("_tmp");
    EXPECT_EQ(p, "/t/Audio_T1_1_tmp.aif");
    p.replaceExtension("wav");
    EXPECT_EQ(p, "/t/Audio_T1_1_tmp.wav");
    const epiText ext("kv3h");
    p.replaceExtension(&ext);
    EXPECT_EQ(p, "/t/Audio_T1_1_tmp.kv3h");
    const epiText suffix("_frozen");
    p.appendToBaseName(&suffix);
    EXPECT_EQ(p, "/t/Audio_T1_1_tmp_frozen.kv3h");

    epiPath rel("a.wav");
    rel.appendToBaseName("_tmp");
    EXPECT_EQ(rel, "a_tmp.wav");
    // Without an extension the whole name stands as the extension too.
    epiPath noExt("/t/take");
    noExt.appendToBaseName("_tmp");
    EXPECT_EQ(noExt, "/t/take_tmp.take");
    noExt = "/t/take";
    noExt.replaceExtension("aif");
    EXPECT_EQ(noExt, "/t/take.aif");
}

TEST(PathNative, LinuxFormIsThePathItself)
{
    char native[epiPath::kNativeCapacity];
    epiPath p;
    p.fromNative("/home/player/Music/a b.wav");
    EXPECT_EQ(p, "/home/player/Music/a b.wav");
    p.toNative(native);
    EXPECT_STREQ(native, "/home/player/Music/a b.wav");
    // A backslash is an ordinary byte of a Linux name, and a colon too.
    p.fromNative("/x/odd\\name:/y");
    EXPECT_EQ(p, "/x/odd\\name:/y");
    EXPECT_EQ(p.toNativeText(), "/x/odd\\name:/y");
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

TEST(PathNative, LongPathsAreCutAt2048Bytes)
{
    char native[epiPath::kNativeCapacity + 16];
    std::fill(std::begin(native), std::end(native), '#');
    const epiPath longPath("/" + std::string(3000, 'n'));
    longPath.toNative(native);
    EXPECT_EQ(std::string(native).size(), 2048u);
    EXPECT_EQ(native[2049], '#');
    EXPECT_EQ(longPath.toNativeText().size(), 3001u);
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

TEST(PathNative, WideFormsCarryNonAsciiNames)
{
    const epiPath p("/tmp/K\xC3\xB6rper \xF0\x9F\x8E\xB8.wav");
    std::u16string wide(epiPath::kNativeWideCapacity, u'\0');
    p.toNativeWide(wide.data());
    EXPECT_EQ(std::u16string(wide.c_str()), u"/tmp/K\u00F6rper \U0001F3B8.wav");
    epiPath back;
    back.fromNativeWide(wide.c_str());
    EXPECT_EQ(back, p);
}

TEST(PathSystem, ExistsAndRemoveOnRealFiles)
{
    TempFolder tmp;
    epiPath file(tmp.path() + "f\xC3\xA9.txt");
    EXPECT_FALSE(file.exists());
    EXPECT_FALSE(file.remove());
    std::ofstream(file.cstr()) << "x";
    EXPECT_TRUE(file.exists());
    EXPECT_TRUE(epiPath(tmp.path()).exists());
    EXPECT_TRUE(file.remove());
    EXPECT_FALSE(file.exists());
    EXPECT_FALSE(epiPath().exists());
    EXPECT_FALSE(epiPath().remove());
}

TEST(PathSystem, DialogsAnswerFalseUntilAPlatformInstallsThem)
{
    epiPath p("/home/x/song.kv3h");
    EXPECT_FALSE(p.askOpen());
    EXPECT_FALSE(p.askSave());
    EXPECT_EQ(p, "/home/x/song.kv3h");

    static bool sawSave = false;
    epiPath::setDialogHandler(
        [](epiPath& path, bool save)
        {
            sawSave = save;
            path = "/chosen.kv3h";
            return true;
        });
    EXPECT_TRUE(p.askSave());
    EXPECT_TRUE(sawSave);
    EXPECT_EQ(p, "/chosen.kv3h");
    EXPECT_TRUE(p.askOpen());
    EXPECT_FALSE(sawSave);
    epiPath::setDialogHandler(nullptr);
    EXPECT_FALSE(p.askOpen());
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
