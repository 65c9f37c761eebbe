// Sounds held in memory, the writer and the overview reduction, over real files read back with
// libsndfile.
#include "TestFiles.h"
#include "tests/support/SoundFile.h"

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileLoaded.h"
#include "audiofiles/AudioFileWriter.h"
#include "audiofiles/AudioPreview.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <sndfile.h>
#include <thread>
#include <vector>

using testfiles::fillWith;
using testfiles::staircase;

namespace
{

class SoundsTest : public ::testing::Test
{
protected:
    /** A staircase file of 2 channels, opened. */
    AudioFileGuess& open(const std::string& name, int format, int32_t rate, int64_t frames)
    {
        const std::string path = dir_.file(name);
        EXPECT_TRUE(testfiles::writeStaircase(path, format, 2, rate, frames));
        EXPECT_TRUE(file_.open(path));
        return file_;
    }

    testfiles::TempDir dir_;
    AudioFileGuess file_;
};

using LoadedTest = SoundsTest;
using WriterTest = SoundsTest;
using PreviewTest = SoundsTest;

/** A block of the staircase at a position. */
void staircaseBlock(AudioBuffer& block, int64_t position, int64_t frames, int32_t channels)
{
    block.alloc(frames, channels);
    block.frames = frames;
    block.position = position;
    for (int32_t c = 0; c < channels; ++c)
        for (int64_t i = 0; i < frames; ++i)
            block.channel[c][i] = staircase(position + i, c);
}

/** The samples of `sound` further than `tolerance` from expected(frame, channel). */
int64_t wrongSamples(const testsound::Sound& sound, float tolerance,
                     const std::function<float(int64_t, int32_t)>& expected)
{
    int64_t wrong = 0;
    for (int64_t i = 0; i < sound.frames(); ++i)
        for (int32_t c = 0; c < sound.channels; ++c)
            wrong += std::fabs(sound.samples[static_cast<size_t>(i * sound.channels + c)] - expected(i, c)) >
                     tolerance;
    return wrong;
}

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

TEST_F(LoadedTest, LoadReadsTheWholeFileAndTheEdgesBehave)
{
    const std::string path = dir_.file("click.wav");
    ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, 3000));
    AudioFileLoaded sound;
    ASSERT_TRUE(sound.load(path));
    EXPECT_EQ(sound.frames(), 3000u);

    // provide refers to the held samples: one frame before the end gives a count of 1.
    AudioData request;
    request.channels = 2;
    request.position = 2999;
    request.frames = 512;
    ASSERT_TRUE(sound.provide(request));
    EXPECT_EQ(request.frames, 1);
    EXPECT_EQ(request.channel[1][0], staircase(2999, 1));
    request.position = 3000;
    request.frames = 512;
    EXPECT_FALSE(sound.provide(request));

    // read copies what is left; frames past it stay as they were; at the end it touches nothing.
    AudioBuffer block;
    fillWith(block, 100, 2, 9.0f, 2950);
    ASSERT_TRUE(sound.read(block));
    EXPECT_EQ(block.channel[0][49], staircase(2999, 0));
    EXPECT_EQ(block.channel[0][50], 9.0f);
    fillWith(block, 100, 2, 9.0f, 3000);
    EXPECT_FALSE(sound.read(block));
    EXPECT_EQ(block.channel[0][0], 9.0f);

    // A file that can't be opened leaves the sound as it was.
    EXPECT_FALSE(sound.load(dir_.file("missing.wav")));
    EXPECT_EQ(sound.frames(), 3000u);
}

TEST_F(LoadedTest, AMonoSoundStaysMonoAndLoadFromCopies)
{
    const std::string path = dir_.file("mono.aiff");
    ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1, 48000, 777));
    AudioFileLoaded sound;
    ASSERT_TRUE(sound.load(path));
    // A stereo request that asks for mono to be duplicated gets two views of one channel.
    AudioData request;
    request.duplicateMono = true;
    request.position = 10;
    request.frames = 5;
    ASSERT_TRUE(sound.provide(request));
    EXPECT_EQ(request.channels, 2);
    EXPECT_EQ(request.channel[0], request.channel[1]);
    EXPECT_EQ(request.channel[0][0], staircase(10, 0));

    AudioFileLoaded copy;
    copy.loadFrom(sound.buffer());
    EXPECT_EQ(copy.channels(), 1);
    EXPECT_NE(copy.buffer().channel[0], sound.buffer().channel[0]);
    EXPECT_EQ(copy.buffer().channel[0][776], staircase(776, 0));
}

TEST_F(LoadedTest, LoadResampledConvertsByDroppingOrRepeatingSamples)
{
    for (const auto& [fileRate, targetRate] :
         {std::pair{44100, 44100}, {22050, 44100}, {96000, 48000}, {48000, 44100}})
    {
        SCOPED_TRACE(testfiles::join(fileRate, " to ", targetRate));
        const int64_t frames = 5000;
        AudioFileGuess& file =
            open(testfiles::join("r", fileRate, ".wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, fileRate, frames);
        AudioFileLoadedResampled sound;
        sound.prepare(static_cast<uint32_t>(targetRate), 512);
        ASSERT_TRUE(sound.loadResampled(file));
        // As many frames as the file: cut off when the file's rate is lower, and silence past the
        // file's end when it is higher.
        ASSERT_EQ(sound.frames(), static_cast<uint64_t>(frames));
        const double ratio = static_cast<double>(fileRate) / targetRate;
        int64_t wrong = 0;
        for (int32_t ch = 0; ch < 2; ++ch)
            for (int64_t i = 0; i < frames; ++i)
            {
                const auto source = static_cast<int64_t>(static_cast<double>(i) * ratio);
                wrong += sound.buffer().channel[ch][i] != (source < frames ? staircase(source, ch) : 0.0f);
            }
        EXPECT_EQ(wrong, 0);
    }
}

TEST_F(LoadedTest, AnEmptyFileLoadsAsAnEmptySound)
{
    AudioFileLoadedResampled sound;
    sound.prepare(48000, 512);
    EXPECT_TRUE(sound.loadResampled(open("zero.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 0)));
    EXPECT_EQ(sound.frames(), 0u);
    AudioBuffer block;
    fillWith(block, 16, 2, 9.0f, 0);
    EXPECT_FALSE(sound.read(block));
}

TEST_F(WriterTest, EveryContainerDepthAndRateOfTheTablesWritesAFileThatReadsBack)
{
    int files = 0;
    for (const auto& container : AudioFileFormats::containers())
        for (const auto& depth : AudioFileFormats::depths(container.value))
            for (const auto& rate : AudioFileFormats::sampleRates())
                for (int32_t channels : {1, 2})
                {
                    SCOPED_TRACE(
                        testfiles::join(container.label, " ", depth.label, " ", rate.label, " ", channels));
                    epiPath path(dir_.file(testfiles::join("w", files++)));
                    AudioFileFormats::extension(container.value, path);
                    AudioFileWriter writer;
                    ASSERT_TRUE(writer.open(
                        path, AudioFileFormat{channels, rate.value, container.value, depth.value}))
                        << writer.error();
                    AudioBuffer block;
                    staircaseBlock(block, 0, 700, channels);
                    ASSERT_TRUE(writer.writeFloat(block));
                    staircaseBlock(block, 700, 301, channels);
                    ASSERT_TRUE(writer.writeFloat(block));
                    writer.close();

                    const testsound::Sound back = testsound::read(path);
                    EXPECT_EQ(back.format, AudioFileFormats::formatCode(container.value, depth.value));
                    EXPECT_EQ(back.rate, rate.value);
                    EXPECT_EQ(back.channels, channels);
                    EXPECT_EQ(back.frames(), 1001);
                    // Float depths hold the samples exactly; libsndfile scales floats to integers
                    // by 2^(bits-1) - 1, so PCM is within one step of the depth.
                    const int bits[] = {16, 24, 32};
                    const float step = depth.value <= AudioFileFormats::k32Bit
                                           ? 1.0f / static_cast<float>(1LL << (bits[depth.value] - 1))
                                           : 0.0f;
                    EXPECT_EQ(wrongSamples(back, step, staircase), 0);
                }
}

TEST_F(WriterTest, AFailedOpenLeavesTheWriterClosed)
{
    AudioFileWriter writer;
    EXPECT_FALSE(writer.open(dir_.file("no/such/folder/a.wav"), AudioFileFormat{}));
    EXPECT_FALSE(writer.isOpen());
    EXPECT_FALSE(writer.error().empty());
    AudioBuffer block;
    staircaseBlock(block, 0, 10, 2);
    EXPECT_FALSE(writer.writeFloat(block));
    EXPECT_FALSE(writer.writeSilence(10));
}

TEST_F(WriterTest, AppendAndWriteSilenceWriteExactlyTheFramesAskedFor)
{
    const std::string source = dir_.file("source.wav");
    const int64_t length = 250001; // more than two pieces of 100,000
    const int64_t silence = 123457;
    ASSERT_TRUE(testfiles::writeStaircase(source, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, 44100, length));
    AudioFileGuess file;
    ASSERT_TRUE(file.open(source));

    const std::string out = dir_.file("out.aiff");
    AudioFileWriter writer;
    // Floats, so that the copy is exact as well as its length.
    ASSERT_TRUE(writer.open(out, AudioFileFormat{2, 44100, 1, 3}));
    EXPECT_TRUE(writer.append(file, 0, -1));                     // the whole file
    EXPECT_TRUE(writer.writeSilence(0));                         // nothing
    EXPECT_TRUE(writer.writeSilence(silence));                   // two pieces and a bit
    EXPECT_TRUE(writer.append(file, 1000, 1500));                // 500
    EXPECT_TRUE(writer.append(file, length, -1));                // at the end: one empty write
    EXPECT_FALSE(writer.append(file, length - 10, length + 10)); // runs past the end: fails
    writer.close();

    const testsound::Sound back = testsound::read(out);
    EXPECT_EQ(back.frames(), length + silence + 500);
    EXPECT_EQ(wrongSamples(back, 0.0f,
                           [&](int64_t i, int32_t c)
                           {
                               return i < length             ? staircase(i, c)
                                      : i < length + silence ? 0.0f
                                                             : staircase(1000 + i - length - silence, c);
                           }),
              0);
}

// Integer depths hold floats beyond full scale at the ends of their range, where an unclipped
// conversion wraps them round to the other side; float depths keep them as they are.
TEST_F(WriterTest, IntegerDepthsClipBeyondFullScaleAndFloatDepthsKeepIt)
{
    const std::vector<float> samples = {1.0f, -1.0f, 1.5f, -3.0f, 0.5f, 100.0f, -1.0001f, 0.25f};
    for (int32_t depth = AudioFileFormats::k16Bit; depth <= AudioFileFormats::k64BitFloat; ++depth)
    {
        SCOPED_TRACE(depth);
        const bool integer = depth <= AudioFileFormats::k32Bit;
        const std::string out = dir_.file(testfiles::join("clip", depth, ".wav"));
        AudioFileWriter writer;
        ASSERT_TRUE(writer.open(out, AudioFileFormat{1, 44100, AudioFileFormats::kWave, depth}));
        AudioBuffer block;
        block.alloc(static_cast<int64_t>(samples.size()), 1);
        block.frames = static_cast<int64_t>(samples.size());
        std::copy(samples.begin(), samples.end(), block.channel[0]);
        ASSERT_TRUE(writer.writeFloat(block));
        writer.close();
        // Read back as libsndfile scales integers, by 2^(bits-1): full scale is a step below 1.
        EXPECT_EQ(wrongSamples(testsound::read(out), integer ? 1e-4f : 0.0f,
                               [&](int64_t i, int32_t)
                               {
                                   const float x = samples[static_cast<size_t>(i)];
                                   return integer ? std::clamp(x, -1.0f, 1.0f) : x;
                               }),
                  0);
    }
}

TEST(AudioPreviewScaleTest, ScalesForAnyWidth)
{
    AudioPreview preview;
    preview.openMemory(48000, 48000); // step 64, 750 points
    ASSERT_EQ(preview.points(), 750);
    // Feed a ramp of peaks: point p peaks at p / 750 (shaped), from absolute positions.
    AudioBuffer block;
    fillWith(block, 48000, 1, 0.0f);
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
