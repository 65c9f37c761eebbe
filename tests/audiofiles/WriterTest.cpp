// What the writer writes for each entry of its tables, read back with libsndfile.
#include "TestFiles.h"
#include "tests/support/SoundFile.h"

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <sndfile.h>
#include <vector>

using testfiles::staircase;

namespace
{

class WriterTest : public ::testing::Test
{
protected:
    testfiles::TempDir dir_;
};

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

} // namespace

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

// Floats beyond full scale, and full scale itself, written at every depth: the integer depths hold
// them at the ends of their range, sign kept, where an unclipped conversion wraps them round to
// the other side; the float depths keep them as they are.
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
