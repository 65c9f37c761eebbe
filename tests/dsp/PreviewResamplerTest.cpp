// Waveform previews of a file at another rate: the quality resampler against dropped samples.
#include "dsp/AudioResampler_DSP.h"

#include "audiofiles/AudioPreview.h"
#include "tests/support/SoundFile.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr int32_t kFileRate = 96000;
constexpr int32_t kRate = 44100;
constexpr int64_t kFileFrames = 2 * kFileRate;

// What the display should show: 1 kHz at 0.25.
double heard(double seconds)
{
    return 0.25 * std::sin(2.0 * M_PI * 1000.0 * seconds);
}

// The tone, and 30 kHz at 0.5: a low-pass removes it, dropped samples fold it down to 14.1 kHz.
std::string writeFile(const testsupport::TempFolder& folder)
{
    std::vector<float> x(static_cast<std::size_t>(kFileFrames));
    for (int64_t i = 0; i < kFileFrames; ++i)
    {
        const double t = static_cast<double>(i) / kFileRate;
        x[static_cast<std::size_t>(i)] =
            static_cast<float>(heard(t) + 0.5 * std::sin(2.0 * M_PI * 30000.0 * t));
    }
    EXPECT_TRUE(
        testsound::writeStereo(folder.file("tones.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, kFileRate, x, x));
    return folder.file("tones.wav");
}

bool waitFinished(AudioPreview& preview)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!preview.finished())
    {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// The largest distance, in overview steps, from a preview's points to those of the tone itself.
int worstAgainstTheTone(const AudioPreview& preview)
{
    const auto frames = static_cast<int64_t>(static_cast<double>(kFileFrames) * kRate / kFileRate);
    AudioBuffer tone;
    tone.alloc(frames, 1);
    tone.frames = frames;
    tone.position = 0;
    for (int64_t i = 0; i < frames; ++i)
        tone.channel[0][i] = static_cast<float>(heard(static_cast<double>(i) / kRate));
    AudioPreview direct;
    direct.openMemory(frames, kRate);
    direct.feedBlock(tone);
    EXPECT_TRUE(direct.finished());
    EXPECT_EQ(preview.points(), direct.points());
    EXPECT_GT(direct.maximum(direct.points() / 2), 30); // the tone itself shows
    int worst = 0;
    for (int32_t i = 0; i < std::min(preview.points(), direct.points()); ++i)
    {
        worst = std::max(worst, std::abs(preview.maximum(i) - direct.maximum(i)));
        worst = std::max(worst, std::abs(preview.minimum(i) - direct.minimum(i)));
    }
    return worst;
}

} // namespace

// By itself the file library drops samples and the 30 kHz tone shows. From the program's start every
// cache and single preview without a factory of its own shows the tone alone; a cache's own factory
// comes before the default.
TEST(PreviewResampler, TheQualityDefaultShowsTheToneWhereDroppingSamplesShowsItsAlias)
{
    testsupport::TempFolder folder;
    const std::string path = writeFile(folder);
    auto cached = [&](bool ownFactory)
    {
        PreviewCache cache(kRate);
        if (ownFactory)
            cache.setResamplerFactory(qualityResamplerFactory());
        AudioPreview* preview = cache.show(epiPath(path.c_str()));
        EXPECT_TRUE(preview != nullptr && preview->ready() && waitFinished(*preview));
        return preview != nullptr ? worstAgainstTheTone(*preview) : 1000;
    };
    AudioPreview::setDefaultResamplerFactory({});
    EXPECT_GT(cached(false), 30);

    useQualityResamplerForPreviews();
    EXPECT_LE(cached(false), 1);
    AudioPreview preview;
    ASSERT_TRUE(preview.open(epiPath(path.c_str()), kRate));
    preview.start();
    ASSERT_TRUE(waitFinished(preview));
    EXPECT_LE(worstAgainstTheTone(preview), 1);

    AudioPreview::setDefaultResamplerFactory({});
    EXPECT_LE(cached(true), 1);
}
