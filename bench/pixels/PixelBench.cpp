// What a repaint of the 850 x 747 main window spends in pixels: the panel's opaque copy, images
// blended over it, glyphs painted through their masks, and the platform's scaled copies and shapes.

#include "bench/pixels/Pattern.h"
#include "epi/ui/epiBitmap.h"
#include "epi/ui/gtk/epiBitmapGtk.h"

#include <benchmark/benchmark.h>

namespace
{

constexpr int32_t kWidth = 850;
constexpr int32_t kHeight = 747;

using benchpixels::pattern;

// A back buffer as a repaint leaves it: opaque everywhere.
epiBitmapDib opaqueBack()
{
    epiBitmapDib back;
    back.create(kWidth, kHeight);
    back.fillRect(epiColour{240, 240, 240, 255}, nullptr);
    return back;
}

void BM_PanelOpaqueCopy(benchmark::State& state)
{
    epiBitmapDib back = opaqueBack();
    epiBitmap panel = pattern(kWidth, kHeight, false);
    panel.setUsesAlpha(false);
    for (auto _ : state)
    {
        back.blit(panel, nullptr, nullptr);
        benchmark::DoNotOptimize(back.pixels());
    }
}
BENCHMARK(BM_PanelOpaqueCopy);

void BM_PanelBlended(benchmark::State& state)
{
    epiBitmapDib back = opaqueBack();
    epiBitmap overlay = pattern(kWidth, kHeight, true);
    for (auto _ : state)
    {
        back.blit(overlay, nullptr, nullptr);
        benchmark::DoNotOptimize(back.pixels());
    }
}
BENCHMARK(BM_PanelBlended);

void BM_WidgetBlended20(benchmark::State& state)
{
    epiBitmapDib back = opaqueBack();
    epiBitmap knob = pattern(20, 20, true);
    const epiRect at(400, 300, 420, 320);
    for (auto _ : state)
    {
        back.blit(knob, nullptr, &at);
        benchmark::DoNotOptimize(back.pixels());
    }
}
BENCHMARK(BM_WidgetBlended20);

// One 40-glyph line of 7 x 12 glyphs.
void BM_TextLineMasks(benchmark::State& state)
{
    epiBitmapDib back = opaqueBack();
    epiBitmap glyph = pattern(7, 12, true);
    for (auto _ : state)
    {
        for (int32_t i = 0; i < 40; ++i)
        {
            const epiRect at(10 + i * 7, 100, 17 + i * 7, 112);
            back.drawMasked(glyph, nullptr, &at, epiColour{255, 220, 120, 255});
        }
        benchmark::DoNotOptimize(back.pixels());
    }
}
BENCHMARK(BM_TextLineMasks);

void BM_ScaledWidget(benchmark::State& state)
{
    epiGtkInstallBitmapPlatform();
    epiBitmapDib back = opaqueBack();
    epiBitmap image = pattern(40, 40, true);
    const epiRect at(100, 100, 160, 160);
    for (auto _ : state)
    {
        back.blit(image, nullptr, &at);
        benchmark::DoNotOptimize(back.pixels());
    }
}
BENCHMARK(BM_ScaledWidget);

void BM_FilledEllipse20(benchmark::State& state)
{
    epiGtkInstallBitmapPlatform();
    epiBitmapDib back = opaqueBack();
    for (auto _ : state)
    {
        back.drawShapeA(epiCode("ovaF"), epiRect(200, 200, 220, 220), epiColour{200, 40, 40, 255});
        benchmark::DoNotOptimize(back.pixels());
    }
}
BENCHMARK(BM_FilledEllipse20);

} // namespace

BENCHMARK_MAIN();
