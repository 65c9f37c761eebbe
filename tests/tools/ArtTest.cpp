// The generated fonts and images, read back as the program's loaders will read them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
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
        for (const char* run_ : {"a", "b"})
        {
            const fs::path out = root_ / run_;
            const int fonts = std::system((std::string(FONTGEN) + " " + (out / "fonts").string()).c_str());
            const int images = std::system((std::string(ARTGEN) + " " + (out / "images").string()).c_str());
            ASSERT_EQ(fonts, 0);
            ASSERT_EQ(images, 0);
        }
        seconds_ = childSeconds() - before;
        std::istringstream list(testsupport::runProgram(FONTGEN, "--list").out);
        FontEntry e;
        while (list >> e.kind >> e.code >> e.face >> e.pixels)
            fonts_.push_back(e);
    }
    static void TearDownTestSuite() { fs::remove_all(root_); }

    static fs::path out() { return root_ / "a"; }

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
    std::size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(out()))
    {
        if (!entry.is_regular_file())
            continue;
        ++files;
        const fs::path twin = root_ / "b" / fs::relative(entry.path(), out());
        ASSERT_TRUE(fs::exists(twin)) << twin;
        EXPECT_EQ(slurp(entry.path()), slurp(twin)) << entry.path() << " differs between two runs";
    }
    std::size_t twins = 0;
    for (const auto& entry : fs::recursive_directory_iterator(root_ / "b"))
        twins += entry.is_regular_file();
    EXPECT_EQ(files, twins);
    EXPECT_LT(seconds_, 20.0);
    RecordProperty("seconds", std::to_string(seconds_));
}

/** The reader's scan: skip marks (blue 0x80 and up), then the gap; where the gap ends is a boundary. */
std::vector<int> scanMarks(const artkit::Rgba& strip)
{
    std::vector<int> bounds;
    const int row = strip.height - 2;
    int x = 0;
    while (x < strip.width)
    {
        while (x < strip.width && strip.at(x, row)[2] >= 0x80)
            ++x;
        while (x < strip.width && strip.at(x, row)[2] < 0x80)
            ++x;
        if (x < strip.width)
            bounds.push_back(x);
    }
    return bounds;
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
        const std::vector<int> bounds = scanMarks(strip);
        ASSERT_EQ(bounds.size(), 257u);
        FT_Face f = face(e);
        const int height = strip.height - 4;
        for (int c = 0; c < 256; ++c)
        {
            const int left = bounds[c] - 1, width = bounds[c + 1] - bounds[c] - 1;
            if (!drawable(c))
                continue;
            ASSERT_EQ(FT_Load_Char(f, c, FT_LOAD_TARGET_LIGHT | FT_LOAD_NO_BITMAP), 0);
            EXPECT_EQ(width, (f->glyph->advance.x + 32) >> 6) << "code " << c;
            // Only the space-like glyphs are blank; "é" above all must draw.
            if (c != 32 && c != 160)
            {
                EXPECT_TRUE(inkIn(strip, left, 0, left + width, height)) << "code " << c << " is blank";
            }
        }
    }
}

/** One glyph of a matrix font's table. */
struct MatrixGlyph
{
    int code = 0;
    double advance = 0;
    std::vector<std::array<int, 4>> areas;
};

std::string element(const std::string& s, const std::string& name, std::size_t& from)
{
    const std::size_t open = s.find("<" + name + ">", from);
    if (open == std::string::npos)
        return {};
    const std::size_t start = open + name.size() + 2;
    const std::size_t close = s.find("</" + name + ">", start);
    from = close + name.size() + 3;
    return s.substr(start, close - start);
}

std::vector<MatrixGlyph> readMatrix(const fs::path& xml)
{
    const std::string s = slurp(xml);
    std::vector<MatrixGlyph> glyphs;
    std::size_t at = 0;
    for (std::string g; !(g = element(s, "gliph", at)).empty();)
    {
        MatrixGlyph glyph;
        std::size_t p = 0;
        glyph.code = std::stoi(element(g, "code", p));
        glyph.advance = std::stod(element(g, "advance", p));
        for (std::string area; !(area = element(g, "copyarea", p)).empty();)
        {
            std::array<int, 4> a{};
            std::sscanf(area.c_str(), "%d,%d,%d,%d", &a[0], &a[1], &a[2], &a[3]);
            glyph.areas.push_back(a);
        }
        glyphs.push_back(glyph);
    }
    return glyphs;
}

TEST_F(Art, MatrixGlyphsCopyNothingOfTheirNeighboursAndKeepFreeTypeAdvances)
{
    for (const FontEntry& e : fonts_)
    {
        if (e.kind != "matrix")
            continue;
        SCOPED_TRACE(e.code);
        const artkit::Rgba image = load(out() / "fonts" / ("fontmatrix_" + e.code + ".png"));
        const std::vector<MatrixGlyph> glyphs =
            readMatrix(out() / "fonts" / ("fontmatrix_" + e.code + ".xml"));
        ASSERT_EQ(glyphs.size(), 224u);
        FT_Face f = face(e);
        std::vector<int> owner(static_cast<std::size_t>(image.width) * image.height, -1);
        int entry = 0;
        for (const MatrixGlyph& g : glyphs)
        {
            ASSERT_EQ(g.areas.size(), 4u);
            if (drawable(g.code))
            {
                ASSERT_EQ(FT_Load_Char(f, g.code, FT_LOAD_TARGET_LIGHT | FT_LOAD_NO_BITMAP), 0);
                EXPECT_NEAR(g.advance + 0.5, f->glyph->linearHoriAdvance / 65536.0, 0.006)
                    << "code " << g.code;
            }
            for (const auto& a : g.areas)
            {
                for (int y = a[1]; y < a[3]; ++y)
                    for (int x = a[0]; x < a[2]; ++x)
                        owner[static_cast<std::size_t>(y) * image.width + x] = entry;
                if (g.code == 0xE9)
                {
                    EXPECT_TRUE(inkIn(image, a[0], a[1], a[2], a[3])) << "é is blank";
                }
                ++entry;
            }
        }
        // Every inked pixel belongs to some glyph's area, and the reader's copy, two wider and two
        // taller than the area, takes in no pixel of another glyph.
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x)
                if (image.at(x, y)[3] != 0)
                {
                    ASSERT_GE(owner[static_cast<std::size_t>(y) * image.width + x], 0) << x << "," << y;
                }
        entry = 0;
        for (const MatrixGlyph& g : glyphs)
        {
            for (const auto& a : g.areas)
            {
                ASSERT_LE(a[2] + 2, image.width);
                ASSERT_LE(a[3] + 2, image.height);
                for (int y = a[1]; y < a[3] + 2; ++y)
                    for (int x = a[0]; x < a[2] + 2; ++x)
                    {
                        const int o = owner[static_cast<std::size_t>(y) * image.width + x];
                        if (o != entry && image.at(x, y)[3] != 0)
                            FAIL() << "code " << g.code << " copies " << x << "," << y << " of entry " << o;
                    }
                ++entry;
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
    Placed p;
    while (geometry >> p.name >> p.x >> p.y >> p.w >> p.h >> p.images)
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
            EXPECT_EQ(image.width, c.w) << name << state;
            EXPECT_EQ(image.height, c.h) << name << state;
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
                ASSERT_TRUE(r == 0 || r == frame) << "frame " << frame << " changes " << x << "," << y;
                EXPECT_GE(x, first.x - 14);
                EXPECT_LT(x, last.x + last.w + 4);
                changed[r] = true;
            }
        EXPECT_EQ(changed[frame], frame != 0) << "frame " << frame << " doesn't light its row";
    }
}

} // namespace
