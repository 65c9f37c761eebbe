// The generated fonts and images, read back as the program's loaders will read them.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "tests/support/Program.h"
#include "tools/artkit/ArtKit.h"

namespace fs = std::filesystem;

namespace
{

std::string slurp(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

artkit::Rgba load(const fs::path& p)
{
    artkit::Rgba image;
    std::string error;
    EXPECT_TRUE(artkit::readPng(p.string(), image, error)) << error;
    return image;
}

struct FontEntry
{
    std::string kind, code, face;
    int pixels;
};

/** The processor time that the children of this process have used so far, in seconds. */
double childSeconds()
{
    rusage use{};
    getrusage(RUSAGE_CHILDREN, &use);
    return double(use.ru_utime.tv_sec + use.ru_stime.tv_sec) +
           (use.ru_utime.tv_usec + use.ru_stime.tv_usec) / 1e6;
}

/**
 * Both generators run twice into fresh folders; tests read run a. seconds_ is the processor time of
 * both runs, which other work on a shared machine doesn't stretch the way it stretches the clock.
 */
class Art : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        root_ = fs::temp_directory_path() / ("kv3-art-" + std::to_string(::getpid()));
        const double before = childSeconds();
        for (const char* run : {"a", "b"})
        {
            ASSERT_EQ(testsupport::runProgram(FONTGEN, (root_ / run / "fonts").string()).exit, 0);
            ASSERT_EQ(testsupport::runProgram(ARTGEN, (root_ / run / "images").string()).exit, 0);
        }
        seconds_ = childSeconds() - before;
        std::istringstream list(testsupport::runProgram(FONTGEN, "--list").out);
        FontEntry e;
        while (list >> e.kind >> e.code >> e.face >> e.pixels)
            fonts_.push_back(e);
    }
    static void TearDownTestSuite() { fs::remove_all(root_); }

    static fs::path out() { return root_ / "a"; }

    /** The font of an entry. */
    static FT_Face face(const FontEntry& e)
    {
        std::string error;
        FT_Face f = library_.open(artkit::defaultFontDir(), e.face, e.pixels, error);
        EXPECT_NE(f, nullptr) << error;
        return f;
    }

    static inline fs::path root_;
    static inline double seconds_ = 0;
    static inline std::vector<FontEntry> fonts_;
    static inline artkit::FontLibrary library_;
};

TEST_F(Art, TwoRunsGiveIdenticalBytesInUnderTwentySeconds)
{
    std::map<fs::path, std::string> runs[2];
    for (int run = 0; run < 2; ++run)
        for (const auto& entry : fs::recursive_directory_iterator(root_ / (run == 0 ? "a" : "b")))
            if (entry.is_regular_file())
                runs[run][fs::relative(entry.path(), root_ / (run == 0 ? "a" : "b"))] = slurp(entry.path());
    EXPECT_FALSE(runs[0].empty());
    EXPECT_TRUE(runs[0] == runs[1]) << "the two runs differ";
    EXPECT_LT(seconds_, 20.0);
    RecordProperty("seconds", std::to_string(seconds_));
}

/** The glyph for `code`, loaded as the generator loads it. */
FT_GlyphSlot glyph(FT_Face f, int code)
{
    EXPECT_EQ(FT_Load_Char(f, code, FT_LOAD_TARGET_LIGHT | FT_LOAD_NO_BITMAP), 0);
    return f->glyph;
}

bool drawable(int code)
{
    return (code >= 32 && code < 127) || code >= 160;
}

bool inkIn(const artkit::Rgba& image, int l, int t, int r, int b)
{
    for (int y = t; y < b; ++y)
        for (int x = l; x < r; ++x)
            if (image.at(x, y)[3] != 0)
                return true;
    return false;
}

TEST_F(Art, StripsHave257MarksAndTheWidthsOfFreeTypeAdvances)
{
    for (const FontEntry& e : fonts_)
    {
        if (e.kind != "strip")
            continue;
        SCOPED_TRACE(e.code);
        const artkit::Rgba strip = load(out() / "fonts" / ("fontstrip_" + e.code + ".png"));
        // The reader's scan: skip marks (blue 0x80 and up), then the gap; where the gap ends is a boundary.
        std::vector<int> bounds;
        for (int x = 0, row = strip.height - 2; x < strip.width;)
        {
            while (x < strip.width && strip.at(x, row)[2] >= 0x80)
                ++x;
            while (x < strip.width && strip.at(x, row)[2] < 0x80)
                ++x;
            if (x < strip.width)
                bounds.push_back(x);
        }
        ASSERT_EQ(bounds.size(), 257u);
        FT_Face f = face(e);
        for (int c = 0; c < 256; ++c)
        {
            const int left = bounds[c] - 1, width = bounds[c + 1] - bounds[c] - 1;
            if (!drawable(c))
                continue;
            EXPECT_EQ(width, (glyph(f, c)->advance.x + 32) >> 6) << "code " << c;
            // Only the space-like glyphs are blank; "é" above all must draw.
            EXPECT_TRUE(c == 32 || c == 160 || inkIn(strip, left, 0, left + width, strip.height - 4))
                << "code " << c << " is blank";
        }
    }
}

TEST_F(Art, MatrixGlyphsCopyNothingOfTheirNeighboursAndKeepFreeTypeAdvances)
{
    const std::regex glyphPattern(
        R"(<gliph>[\s\S]*?<code>(\d+)</code>[\s\S]*?<advance>([^<]+)</advance>([\s\S]*?)</gliph>)");
    const std::regex areaPattern(R"(<copyarea>(\d+),(\d+),(\d+),(\d+)</copyarea>)");
    for (const FontEntry& e : fonts_)
    {
        if (e.kind != "matrix")
            continue;
        SCOPED_TRACE(e.code);
        const artkit::Rgba image = load(out() / "fonts" / ("fontmatrix_" + e.code + ".png"));
        const std::string xml = slurp(out() / "fonts" / ("fontmatrix_" + e.code + ".xml"));
        FT_Face f = face(e);
        // Each copy area with its glyph's code, and the owner of every pixel an area covers.
        std::vector<std::pair<int, std::array<int, 4>>> areas;
        std::vector<int> owner(static_cast<std::size_t>(image.width) * image.height, -1);
        int glyphs = 0;
        for (std::sregex_iterator g(xml.begin(), xml.end(), glyphPattern), end; g != end; ++g, ++glyphs)
        {
            const int code = std::stoi((*g)[1]);
            if (drawable(code))
            {
                EXPECT_NEAR(std::stod((*g)[2]) + 0.5, glyph(f, code)->linearHoriAdvance / 65536.0, 0.006)
                    << "code " << code;
            }
            const std::string inner = (*g)[3];
            for (std::sregex_iterator a(inner.begin(), inner.end(), areaPattern); a != end; ++a)
            {
                const std::array<int, 4> r{std::stoi((*a)[1]), std::stoi((*a)[2]), std::stoi((*a)[3]),
                                           std::stoi((*a)[4])};
                for (int y = r[1]; y < r[3]; ++y)
                    for (int x = r[0]; x < r[2]; ++x)
                        owner[static_cast<std::size_t>(y) * image.width + x] = static_cast<int>(areas.size());
                EXPECT_TRUE(code != 0xE9 || inkIn(image, r[0], r[1], r[2], r[3])) << "é is blank";
                areas.push_back({code, r});
            }
        }
        ASSERT_EQ(glyphs, 224);
        ASSERT_EQ(areas.size(), 4u * 224);
        // Every inked pixel belongs to some glyph's area, and the reader's copy, two wider and two
        // taller than the area, takes in no pixel of another glyph.
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x)
                ASSERT_TRUE(image.at(x, y)[3] == 0 ||
                            owner[static_cast<std::size_t>(y) * image.width + x] >= 0)
                    << x << "," << y;
        for (std::size_t entry = 0; entry < areas.size(); ++entry)
        {
            const auto& [code, r] = areas[entry];
            ASSERT_LE(r[2] + 2, image.width);
            ASSERT_LE(r[3] + 2, image.height);
            for (int y = r[1]; y < r[3] + 2; ++y)
                for (int x = r[0]; x < r[2] + 2; ++x)
                {
                    const int o = owner[static_cast<std::size_t>(y) * image.width + x];
                    ASSERT_TRUE(o == static_cast<int>(entry) || image.at(x, y)[3] == 0)
                        << "code " << code << " copies " << x << "," << y << " of entry " << o;
                }
        }
    }
}

struct Placed
{
    std::string name, images;
    int x, y, w, h;
};

TEST_F(Art, EveryControlHasItsImagesAtItsSizeAndTheFilmLightsOnlyTheTrackRow)
{
    std::istringstream geometry(testsupport::runProgram(ARTGEN, "--geometry").out);
    std::map<std::string, Placed> controls;
    for (Placed p; geometry >> p.name >> p.x >> p.y >> p.w >> p.h >> p.images;)
        controls[p.name] = p;
    ASSERT_GT(controls.size(), 60u);
    for (const auto& [name, c] : controls)
    {
        if (c.images == "-" || c.images.ends_with(".png"))
        {
            EXPECT_TRUE(c.images == "-" || fs::exists(out() / "images" / c.images)) << name;
            continue;
        }
        for (const char* state : {"_off", "_offdown", "_on", "_ondown", "_dis"})
        {
            const artkit::Rgba image = load(out() / "images" / (c.images + state + ".png"));
            EXPECT_EQ(std::pair(image.width, image.height), std::pair(c.w, c.h)) << name << state;
        }
    }
    // The four frames are opaque; frame k differs from frame 0 in rows 0 and k of the track strip only.
    const artkit::Rgba film = load(out() / "images" / "tkbk.png");
    const int h = film.height / 4;
    const Placed& first = controls["tOn0"];
    const Placed& last = controls["iSl3"];
    auto rowOf = [&](int y)
    {
        for (int r = 0; r < 4; ++r)
        {
            const Placed& key = controls["tOn" + std::to_string(r)];
            if (y >= key.y - 2 && y < key.y + key.h + 2)
                return r;
        }
        return -1;
    };
    for (int frame = 0; frame < 4; ++frame)
    {
        bool changed[4] = {};
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < film.width; ++x)
            {
                ASSERT_EQ(film.at(x, frame * h + y)[3], 255) << "frame " << frame << " at " << x << "," << y;
                if (std::equal(film.at(x, y), film.at(x, y) + 4, film.at(x, frame * h + y)))
                    continue;
                const int r = rowOf(y);
                ASSERT_TRUE((r == 0 || r == frame) && x >= first.x - 14 && x < last.x + last.w + 4)
                    << "frame " << frame << " changes " << x << "," << y;
                changed[r] = true;
            }
        EXPECT_EQ(changed[frame], frame != 0) << "frame " << frame << " doesn't light its row";
    }
}

} // namespace
