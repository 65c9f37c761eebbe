// What a user waits for on the screen: a repaint of the whole 850 x 747 window (panel, 69 blended
// widgets, the copy to the X server), a repaint after one 20 x 20 widget changed, and epiview from
// its start to the first frame of a 70-widget layout. All run on one private Xvfb; a repaint counts
// as done when the draw handler copied it and the X server has it.

#include "bench/pixels/Pattern.h"
#include "epi/ui/epiApplication.h"
#include "tests/epi/ui/gtk/XvfbSupport.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

constexpr int32_t kWidth = 850;
constexpr int32_t kHeight = 747;
constexpr int32_t kWidgets = 70;

using benchpixels::pattern;

/** Copies its picture over its frame: opaque for the panel, blended for the widgets on it. */
class Painter : public epiUbo
{
public:
    void draw(const epiRect& rect) override
    {
        if (picture != nullptr)
            blitBitmap(picture, picture->rect(), rect, picture->usesAlpha());
        epiUbo::draw(rect);
    }
    epiBitmap* picture = nullptr;
};

/** One window of a panel and 69 widgets of 20 x 20 on it, as the main panel is built. */
struct RepaintScene
{
    RepaintScene()
    {
        epiFactory::add(epiCode("GrUi"), epiCode("bPnt"),
                        [](uint32_t) -> epiObject* { return new Painter(); });
        app.start();
        epiGtk::attach(app);
        const std::string layout = "<epi><version>4</version><signature>layout</"
                                   "signature><content><kind>iWin</kind><name>main</name>"
                                   "<text>Bench</text><position>0,0</position><size>" +
                                   std::to_string(kWidth) + "," + std::to_string(kHeight) +
                                   "</size><itemslist></itemslist></content></epi>";
        window = dynamic_cast<epiWindow*>(app.openWindowText(epiText(layout)));
        auto* panel = dynamic_cast<Painter*>(
            window->createChild(true, epiCode("bPnt"), epiCode("panl"), 0, 0, kWidth, kHeight, ""));
        panel->picture = &panelPicture;
        for (int32_t i = 0; i + 1 < kWidgets; ++i)
        {
            const int32_t x = 20 + (i % 10) * 80;
            const int32_t y = 40 + (i / 10) * 90;
            auto* widget = dynamic_cast<Painter*>(
                window->createChild(true, epiCode("bPnt"), 0, x, y, x + 20, y + 20, ""));
            widget->picture = &widgetPicture;
            widgets.push_back(widget);
        }
        waitForFrame(window->framesDrawn());
    }
    ~RepaintScene()
    {
        window->notifyDestroyed();
        app.stop();
    }
    /** Pumps GTK until a frame after `before` was drawn, then waits for the X server to have it. */
    bool waitForFrame(int64_t before)
    {
        const bool drawn = xvfb::pumpUntil([&] { return window->framesDrawn() > before; });
        gdk_display_sync(gdk_display_get_default());
        return drawn;
    }

    epiWindowApplication app;
    epiWindow* window = nullptr;
    epiBitmap panelPicture = pattern(kWidth, kHeight, false);
    epiBitmap widgetPicture = pattern(20, 20, true);
    std::vector<Painter*> widgets;
};

// Arg 1: the whole window changed; 0: one 20 x 20 widget.
/** Whether the private X server runs; a benchmark without it is skipped. */
bool haveDisplay(benchmark::State& state)
{
    if (!xvfb::Server::instance().ready())
        state.SkipWithError(xvfb::Server::instance().failure().c_str());
    return xvfb::Server::instance().ready();
}

void BM_Repaint(benchmark::State& state)
{
    if (!haveDisplay(state))
        return;
    RepaintScene scene;
    epiUbo* changed = state.range(0) != 0 ? static_cast<epiUbo*>(scene.window) : scene.widgets[34];
    for (auto _ : state)
    {
        const int64_t before = scene.window->framesDrawn();
        changed->invalidateAll();
        if (!scene.waitForFrame(before))
            state.SkipWithError("no frame drawn");
    }
    state.counters["pixels"] = double(scene.window->lastCopiedPixels());
    state.SetLabel(state.range(0) != 0 ? "850x747" : "20x20");
}
BENCHMARK(BM_Repaint)->Arg(1)->Arg(0)->UseRealTime()->Unit(benchmark::kMicrosecond);

// The same two repaints without the screen: the tree drawn into the back buffer, which is what a
// frame costs apart from GTK's frame clock (one frame at most, about 16.7 ms, before a repaint starts).
void BM_TreePaint(benchmark::State& state)
{
    if (!haveDisplay(state))
        return;
    RepaintScene scene;
    const epiRect area = state.range(0) != 0 ? epiRect(0, 0, kWidth, kHeight) : scene.widgets[34]->frame();
    for (auto _ : state)
    {
        scene.window->paintBackBuffer(area);
        benchmark::DoNotOptimize(scene.window->backBuffer().pixels());
    }
    state.SetLabel(state.range(0) != 0 ? "850x747" : "20x20");
}
BENCHMARK(BM_TreePaint)->Arg(1)->Arg(0)->Unit(benchmark::kMicrosecond);

/** A resource folder holding one window of 70 native controls of every common kind. */
std::filesystem::path writeSeventyWidgetFolder()
{
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "epi_window_bench.frs";
    std::filesystem::create_directories(folder / "layouts");
    std::ofstream(folder / "epi.frs") << "";
    static const char* const kKinds[] = {"iSbt", "iSst", "iSet", "iSck", "iSpu", "iSrd", "iSsc"};
    std::string items;
    for (int32_t i = 0; i < kWidgets; ++i)
    {
        const char* kind = kKinds[i % 7];
        const int32_t x = 10 + (i % 7) * 118;
        const int32_t y = 10 + (i / 7) * 70;
        const bool bar = i % 7 == 6;
        items += std::string("<item><kind>") + kind + "</kind><position>" + std::to_string(x) + "," +
                 std::to_string(y) + "</position><size>" + (bar ? "100,16" : "100,23") +
                 "</size><text>Item " + std::to_string(i) + "</text><attributes>" +
                 (i % 7 == 4 ? "<attribute><name>cont</name><value>one|two|three</value></attribute>" : "") +
                 "</attributes></item>";
    }
    std::ofstream(folder / "layouts" / "main.xml")
        << "<epi><version>4</version><signature>layout</signature><content><kind>iWin</kind><name>main</name>"
           "<text>Seventy</text><position>0,0</position><size>850,747</size><itemslist>"
        << items << "</itemslist></content></epi>";
    return folder;
}

void BM_EpiviewLaunchToFirstFrame(benchmark::State& state)
{
    if (!haveDisplay(state))
        return;
    const std::filesystem::path folder = writeSeventyWidgetFolder();
    // epiview prints "shown" once its first frame reached the X server.
    for (auto _ : state)
    {
        xvfb::Program view({EPIVIEW_PATH, folder.string(), "main"});
        const bool shown = view.waitFor("shown ", 20.0);
        state.PauseTiming();
        if (!shown)
            state.SkipWithError("epiview showed no frame");
        view.stop();
        state.ResumeTiming();
    }
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_EpiviewLaunchToFirstFrame)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(20);

} // namespace

BENCHMARK_MAIN();
