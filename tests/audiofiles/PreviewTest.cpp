// The overview reduction, its scales and the cache, over real files.
#include "TestFiles.h"

#include "audiofiles/AudioPreview.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sndfile.h>
#include <thread>

namespace
{

class PreviewTest : public ::testing::Test
{
protected:
    testfiles::TempDir dir_;
};

bool waitFinished(const AudioPreview& preview)
{
    const auto start = std::chrono::steady_clock::now();
    while (!preview.finished())
    {
        if (std::chrono::steady_clock::now() - start > std::chrono::seconds(10))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

/** The point the reduction should give for frames [from, from + step) of a signal. */
std::pair<int8_t, int8_t> expectedPoint(const std::function<float(int64_t, int32_t)>& signal, int64_t from,
                                        int32_t step, int32_t channels)
{
    float high = -2.0f;
    float low = 2.0f;
    for (int32_t c = 0; c < channels; ++c)
        for (int64_t i = from; i < from + step; ++i)
        {
            const float shaped = AudioPreview::shape(signal(i, c));
            high = std::max(high, shaped);
            low = std::min(low, shaped);
        }
    return {static_cast<int8_t>(high * 127.0f), static_cast<int8_t>(low * 127.0f)};
}

} // namespace

TEST(AudioPreviewScaleTest, ScalesForAnyWidth)
{
    AudioPreview preview;
    preview.openMemory(48000, 48000); // step 64, 750 points
    ASSERT_EQ(preview.points(), 750);
    // Feed a ramp of peaks: point p peaks at p / 750 (shaped), from absolute positions.
    AudioBuffer block;
    block.alloc(48000, 1);
    block.frames = 48000;
    block.position = 0;
    for (int64_t i = 0; i < 48000; ++i)
        block.channel[0][i] = (i % 64 == 10) ? static_cast<float>(i / 64) / 750.0f : 0.0f;
    preview.feedBlock(block);
    EXPECT_TRUE(preview.changed());
    EXPECT_FALSE(preview.changed());

    const auto& wide = preview.getScale(1500);
    for (int32_t i = 0; i < 1500; ++i)
        ASSERT_EQ(wide.maxima[i], preview.maximum(i / 2));

    // Narrow: each column spans points i*750/100 to (i+1)*750/100, both included.
    const auto& narrow = preview.getScale(100);
    for (int32_t i = 0; i < 100; ++i)
    {
        const int32_t last = std::min((i + 1) * 750 / 100, 749);
        ASSERT_EQ(narrow.maxima[i], preview.maximum(last)) << i;
    }
}

TEST_F(PreviewTest, TheThreadReducesAFileToItsOverview)
{
    const int32_t rate = 44100;
    const int64_t frames = rate * 3 + 100;
    auto signal = [](int64_t i, int32_t c) { return testfiles::music(i, c, 44100) * (c ? 1.3f : 1.0f); };
    const std::string path = dir_.file("song.wav");
    ASSERT_TRUE(testfiles::writeSignal(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, rate, frames, signal));

    AudioPreview preview;
    ASSERT_TRUE(preview.open(path, 0));
    preview.start();
    ASSERT_TRUE(waitFinished(preview));
    preview.stop();
    const int32_t step = preview.step();
    int64_t wrong = 0;
    for (int32_t p = 0; p < preview.points(); ++p)
    {
        const auto [high, low] = expectedPoint(signal, static_cast<int64_t>(p) * step, step, 2);
        wrong += preview.maximum(p) != high || preview.minimum(p) != low;
    }
    EXPECT_EQ(wrong, 0);
    // Finished: starting again does nothing.
    preview.start();
    EXPECT_FALSE(preview.isRunning());
}

TEST_F(PreviewTest, TheCacheKeepsOneOverviewPerFileAndRunsOneAtATime)
{
    std::vector<std::string> paths;
    for (int i = 0; i < 3; ++i)
    {
        paths.push_back(dir_.file(testfiles::join("f", i, ".wav")));
        ASSERT_TRUE(
            testfiles::writeMusic(paths.back(), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, 44100 * 20));
    }
    const std::string text = dir_.file("notes.wav");
    ASSERT_TRUE(testfiles::writeBytes(text, "no sound here"));

    PreviewCache cache;
    AudioPreview* first = cache.show(paths[0]);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->isRunning());

    AudioPreview* second = cache.show(paths[1]);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first);
    EXPECT_FALSE(first->isRunning());
    EXPECT_EQ(cache.show(paths[0]), first);
    ASSERT_TRUE(waitFinished(*first));

    // A missing file shows nothing and adds nothing; one that can't be read stays, empty.
    EXPECT_EQ(cache.show(dir_.file("gone.wav")), nullptr);
    EXPECT_EQ(cache.current(), nullptr);
    AudioPreview* broken = cache.show(text);
    ASSERT_NE(broken, nullptr);
    EXPECT_FALSE(broken->ready());
    EXPECT_EQ(cache.find(text), 2);

    cache.remove(paths[0]);
    EXPECT_EQ(cache.find(paths[0]), -1);
    EXPECT_EQ(cache.find(paths[1]), 0);
    // A running reduction is stopped when the cache dies.
    ASSERT_NE(cache.show(paths[2]), nullptr);
}
