// The main window from the built pack on a real X screen: epiview shows `main` under Xvfb, xdotool
// clicks and drags, and screenshots are held against the generated images.

#include "tests/epi/ui/gtk/XvfbSupport.h"
#include "tests/support/Program.h"
#include "tests/support/TempFolder.h"
#include "tools/artgen/PanelGeometry.h"
#include "tools/artkit/ArtKit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

namespace
{

using artkit::Rgba;

Rgba image(const std::string& name)
{
    Rgba loaded;
    std::string error;
    EXPECT_TRUE(artkit::readPng(std::string(KV3_ART_DIR) + "/images/" + name, loaded, error)) << error;
    return loaded;
}

/** The part of `from` at (x, y), `w` by `h`; with `top` given, drawn over it with its alpha first. */
Rgba cut(const Rgba& from, int x, int y, int w, int h, const Rgba* top = nullptr)
{
    Rgba part(w, h);
    for (int row = 0; row < h; ++row)
        for (int col = 0; col < w; ++col)
        {
            std::copy_n(from.at(x + col, y + row), 4, part.at(col, row));
            if (top != nullptr && col < top->width && row < top->height)
                for (int c = 0, a = top->at(col, row)[3]; c < 3; ++c)
                    part.at(col, row)[c] =
                        uint8_t((top->at(col, row)[c] * a + part.at(col, row)[c] * (255 - a) + 127) / 255);
        }
    return part;
}

/** The largest difference of a colour channel between two images of one size. */
int farthest(const Rgba& a, const Rgba& b)
{
    int most = 0;
    for (size_t i = 0; i < a.pixels.size(); ++i)
        if (i % 4 != 3)
            most = std::max(most, std::abs(a.pixels[i] - b.pixels[i]));
    return most;
}

class MainWindowOnScreen : public ::testing::Test
{
protected:
    void SetUp() override
    {
        XVFB_REQUIRE();
        viewer_ =
            xvfb::spawn({"sh", "-c", std::string("exec ") + EPIVIEW + " " + KV3_PACK + " main > " + log_});
        ASSERT_GT(viewer_, 0);
        std::string id;
        ASSERT_TRUE(xvfb::pumpUntil(
            [&] {
                return !(id = testsupport::runProgram("xdotool", "search --name '^Korvalind 3$'").out)
                            .empty();
            },
            20));
        std::istringstream shell(testsupport::runProgram("xdotool", "getwindowgeometry --shell " + id).out);
        std::map<std::string, int> geometry;
        for (std::string line; std::getline(shell, line);)
            if (const size_t eq = line.find('='); eq != std::string::npos)
                geometry[line.substr(0, eq)] = std::atoi(line.c_str() + eq + 1);
        // The panel fills the window's last 165 rows, whatever a menu bar takes above.
        left_ = geometry["X"];
        top_ = geometry["Y"] + geometry["HEIGHT"] - panel::kHeight;
        background_ = cut(image("tkbk.png"), 0, 0, panel::kWidth, panel::kHeight);
        xvfb::pumpUntil([] { return false; }, 1.0);
    }
    void TearDown() override
    {
        if (viewer_ > 0)
        {
            kill(viewer_, SIGTERM);
            waitpid(viewer_, nullptr, 0);
        }
    }

    /** The panel as the screen shows it. */
    Rgba screen()
    {
        gdk_display_sync(gdk_display_get_default());
        xvfb::pumpUntil([] { return false; }, 0.3);
        GdkPixbuf* shot = gdk_pixbuf_get_from_window(gdk_get_default_root_window(), left_, top_,
                                                     panel::kWidth, panel::kHeight);
        Rgba shown(panel::kWidth, panel::kHeight);
        EXPECT_NE(shot, nullptr);
        const int channels = gdk_pixbuf_get_n_channels(shot), stride = gdk_pixbuf_get_rowstride(shot);
        for (int y = 0; y < shown.height; ++y)
            for (int x = 0; x < shown.width; ++x)
                std::copy_n(gdk_pixbuf_read_pixels(shot) + y * stride + x * channels, 3, shown.at(x, y));
        g_object_unref(shot);
        return shown;
    }
    /** The panel once `shows` holds for it, or as it stands after some seconds: the viewer may lag. */
    Rgba screenWhen(const std::function<bool(const Rgba&)>& shows)
    {
        Rgba shown = screen();
        for (int tries = 0; tries < 30 && !shows(shown); ++tries)
            shown = screen();
        return shown;
    }
    /** The largest difference between the control `c` on `shown` and `c` drawn with `file`. */
    int distance(const Rgba& shown, const panel::Control& c, const std::string& file)
    {
        return farthest(cut(shown, c.x, c.y, c.w, c.h), expected(c, file));
    }
    int run(const std::string& command) { return xvfb::run({"sh", "-c", command}); }
    std::string at(int x, int y) { return std::to_string(left_ + x) + " " + std::to_string(top_ + y); }
    static const panel::Control& control(const std::string& name)
    {
        return *std::find_if(std::begin(panel::kControls), std::end(panel::kControls),
                             [&](const panel::Control& c) { return name == c.name; });
    }
    /** The control `name` as it should show with `file` drawn in its frame, or part of it. */
    Rgba expected(const panel::Control& c, const std::string& file, int dy = 0, int h = 0)
    {
        const Rgba top = image(file);
        return cut(background_, c.x, c.y + dy, c.w, h != 0 ? h : c.h, &top);
    }
    /** The row of the fader `c` where its cap stands, found by the closest match of the image; -1 for none.
     */
    int capRow(const Rgba& shown, const panel::Control& c)
    {
        int best = -1, bestDistance = 256;
        for (int y = 0; y + panel::kCapH <= c.h; ++y)
        {
            const int distance = farthest(cut(shown, c.x, c.y + y, c.w, panel::kCapH),
                                          expected(c, "levelknob.png", y, panel::kCapH));
            if (distance < bestDistance)
                std::tie(best, bestDistance) = std::make_pair(y, distance);
        }
        return bestDistance <= 3 ? best : -1;
    }

    pid_t viewer_ = -1;
    testsupport::TempFolder folder_;
    std::string log_ = folder_.file("epiview.log");
    int left_ = 0, top_ = 0;
    Rgba background_;
};

TEST_F(MainWindowOnScreen, ThePanelIsItsBackgroundWhereNoControlLies)
{
    std::vector<bool> covered(size_t(panel::kWidth * panel::kHeight));
    for (const panel::Control& c : panel::kControls)
        for (int y = c.y; y < c.y + c.h; ++y)
            std::fill_n(covered.begin() + y * panel::kWidth + c.x, c.w, true);
    int differing = 0;
    std::string first;
    screenWhen(
        [&](const Rgba& shown)
        {
            differing = 0;
            for (int y = 0; y < panel::kHeight; ++y)
                for (int x = 0; x < panel::kWidth; ++x)
                    if (!covered[size_t(y * panel::kWidth + x)] &&
                        !std::equal(shown.at(x, y), shown.at(x, y) + 3, background_.at(x, y)) &&
                        differing++ == 0)
                        first = std::to_string(x) + "," + std::to_string(y);
            return differing == 0;
        });
    EXPECT_EQ(differing, 0) << "first at " << first;
}

TEST_F(MainWindowOnScreen, AClickOnSoloShowsItsOnImageAndADragUpRaisesTheTrackVolume)
{
    const panel::Control& solo = control("tSo0");
    auto shows = [&](const char* file)
    { return [&, file](const Rgba& shown) { return distance(shown, solo, file) <= 3; }; };
    EXPECT_LE(distance(screenWhen(shows("trksolo_off.png")), solo, "trksolo_off.png"), 3);
    ASSERT_EQ(run("xdotool mousemove --sync " + at(solo.x + solo.w / 2, solo.y + solo.h / 2) + " click 1"),
              0);
    EXPECT_LE(distance(screenWhen(shows("trksolo_on.png")), solo, "trksolo_on.png"), 3);

    const panel::Control& volume = control("tVol");
    const int before =
        capRow(screenWhen([&](const Rgba& shown) { return capRow(shown, volume) >= 0; }), volume);
    ASSERT_GE(before, 20) << "no cap on screen, or too high to be lifted";
    const int x = volume.x + volume.w / 2, y = volume.y + before + panel::kCapH / 2;
    ASSERT_EQ(run("xdotool mousemove --sync " + at(x, y) + " mousedown 1 mousemove --sync " + at(x, y - 10) +
                  " mousemove --sync " + at(x, y - 20) + " mouseup 1"),
              0);
    EXPECT_EQ(
        capRow(screenWhen([&](const Rgba& shown) { return capRow(shown, volume) == before - 20; }), volume),
        before - 20);
    // The viewer reports each hit with the value: the volume rose from 0.
    std::ifstream log(log_);
    std::string line, last;
    while (std::getline(log, line))
        if (line.rfind("cmd tVol ", 0) == 0)
            last = line;
    ASSERT_FALSE(last.empty());
    EXPECT_GT(std::atof(last.c_str() + 9), 0.0) << last;
}

} // namespace
