// The writer's format codes and tables, and what it writes, read back with libsndfile.
#include "TestFiles.h"
#include "tests/support/SoundFile.h"

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <sndfile.h>
#include <sys/stat.h>
#include <vector>

using testfiles::staircase;

namespace
{

class WriterTest : public ::testing::Test
{
protected:
    testfiles::TempDir dir_;
};

SF_INFO infoOf(const std::string& path)
{
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file)
        sf_close(file);
    else
        info = SF_INFO{};
    return info;
}

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
                    epiPath path(dir_.file(testfiles::join("w", files)));
                    AudioFileFormats::extension(container.value, path);
                    AudioFileWriter writer;
                    ASSERT_TRUE(writer.open(
                        path, AudioFileFormat{channels, rate.value, container.value, depth.value}))
                        << writer.error();
                    EXPECT_EQ(writer.sampleRate(), rate.value);
                    AudioBuffer block;
                    staircaseBlock(block, 0, 700, channels);
                    ASSERT_TRUE(writer.writeFloat(block));
                    staircaseBlock(block, 700, 301, channels);
                    ASSERT_TRUE(writer.writeFloat(block));
                    writer.close();
                    EXPECT_FALSE(writer.isOpen());

                    const SF_INFO info = infoOf(path);
                    EXPECT_EQ(info.format, AudioFileFormats::formatCode(container.value, depth.value));
                    EXPECT_EQ(info.samplerate, rate.value);
                    EXPECT_EQ(info.channels, channels);
                    EXPECT_EQ(info.frames, 1001);
                    AudioFileGuess file;
                    ASSERT_TRUE(file.open(path));
                    AudioBuffer back;
                    back.alloc(1001, channels);
                    back.frames = 1001;
                    back.position = 0;
                    ASSERT_TRUE(file.read(back));
                    // Float depths hold the samples exactly; libsndfile scales floats to integers
                    // by 2^(bits-1) - 1, so PCM is within one step of the depth.
                    const int bits[] = {16, 24, 32};
                    const float step = depth.value <= AudioFileFormats::k32Bit
                                           ? 1.0f / static_cast<float>(1LL << (bits[depth.value] - 1))
                                           : 0.0f;
                    int64_t wrong = 0;
                    for (int32_t c = 0; c < channels; ++c)
                        for (int64_t i = 0; i < 1001; ++i)
                            wrong += std::fabs(back.channel[c][i] - staircase(i, c)) > step;
                    EXPECT_EQ(wrong, 0);
                    ++files;
                }
    EXPECT_EQ(files, 3 * 5 * 6 * 2);
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
    ASSERT_TRUE(testfiles::writeStaircase(source, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, 44100, length));
    AudioFileGuess file;
    ASSERT_TRUE(file.open(source));

    const std::string out = dir_.file("out.aiff");
    AudioFileWriter writer;
    // Floats, so that the copy is exact as well as its length.
    ASSERT_TRUE(writer.open(out, AudioFileFormat{2, 44100, 1, 3}));
    EXPECT_TRUE(writer.append(file, 0, -1));                     // the whole file: 250,001
    EXPECT_TRUE(writer.writeSilence(0));                         // nothing
    EXPECT_TRUE(writer.writeSilence(123457));                    // two pieces and a bit
    EXPECT_TRUE(writer.append(file, 1000, 1500));                // 500
    EXPECT_TRUE(writer.append(file, length, -1));                // at the end: one empty write
    EXPECT_FALSE(writer.append(file, length - 10, length + 10)); // runs past the end: fails
    writer.close();

    const testsound::Sound sound = testsound::read(out);
    const std::vector<float>& samples = sound.samples;
    ASSERT_EQ(sound.channels, 2);
    const int64_t frames = static_cast<int64_t>(samples.size()) / 2;
    EXPECT_EQ(frames, length + 123457 + 500);
    int64_t wrong = 0;
    for (int64_t i = 0; i < frames; ++i)
        for (int32_t c = 0; c < 2; ++c)
        {
            float expected = 0.0f;
            if (i < length)
                expected = staircase(i, c);
            else if (i >= length + 123457)
                expected = staircase(1000 + i - length - 123457, c);
            wrong += samples[static_cast<size_t>(i * 2 + c)] != expected;
        }
    EXPECT_EQ(wrong, 0);
}

// Floats beyond full scale, and full scale itself, written at every depth: the integer depths hold
// them at the ends of their range, sign kept, where an unclipped conversion wraps them round to
// the other side; the float depths keep them as they are.
TEST_F(WriterTest, IntegerDepthsClipBeyondFullScaleAndFloatDepthsKeepIt)
{
    const std::vector<float> samples = {1.0f, -1.0f, 1.5f, -3.0f, 0.5f, 100.0f, -1.0001f, 0.25f};
    const auto frames = static_cast<int64_t>(samples.size());
    for (int32_t depth = AudioFileFormats::k16Bit; depth <= AudioFileFormats::k64BitFloat; ++depth)
    {
        SCOPED_TRACE(depth);
        const bool integer = depth <= AudioFileFormats::k32Bit;
        const std::string out = dir_.file("clip.wav");
        AudioFileWriter writer;
        ASSERT_TRUE(writer.open(out, AudioFileFormat{1, 44100, AudioFileFormats::kWave, depth}));
        AudioBuffer block;
        block.alloc(frames, 1);
        block.frames = frames;
        std::copy(samples.begin(), samples.end(), block.channel[0]);
        ASSERT_TRUE(writer.writeFloat(block));
        writer.close();

        SF_INFO info{};
        SNDFILE* file = sf_open(out.c_str(), SFM_READ, &info);
        ASSERT_NE(file, nullptr);
        std::vector<double> back(samples.size());
        ASSERT_EQ(sf_readf_double(file, back.data(), frames), frames);
        sf_close(file);
        // Read back as libsndfile scales integers, by 2^(bits-1): full scale is a step below 1.
        const int bits = depth == AudioFileFormats::k16Bit ? 16 : depth == AudioFileFormats::k24Bit ? 24 : 32;
        const double step = std::ldexp(1.0, 1 - bits);
        for (std::size_t i = 0; i < samples.size(); ++i)
        {
            const double x = samples[i];
            if (integer)
                EXPECT_NEAR(back[i], std::clamp(x, -1.0, 1.0), 2.0 * step) << "sample " << i;
            else
                EXPECT_EQ(back[i], x) << "sample " << i;
        }
        std::filesystem::remove(out);
    }
}

TEST_F(WriterTest, WriteIntPassesIntegersThrough)
{
    const std::string out = dir_.file("int.caf");
    AudioFileWriter writer;
    ASSERT_TRUE(writer.open(out, AudioFileFormat{2, 96000, 2, 2}));
    AudioBuffer block;
    block.alloc(64, 2);
    block.frames = 64;
    for (int32_t c = 0; c < 2; ++c)
        for (int64_t i = 0; i < 64; ++i)
        {
            const int32_t value = static_cast<int32_t>((i * 33554432LL) - (c ? 1073741824LL : 0));
            std::memcpy(&block.channel[c][i], &value, 4);
        }
    ASSERT_TRUE(writer.writeInt(block));
    writer.close();
    SF_INFO info{};
    SNDFILE* file = sf_open(out.c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    std::vector<int> back(128);
    ASSERT_EQ(sf_readf_int(file, back.data(), 64), 64);
    sf_close(file);
    for (int64_t i = 0; i < 64; ++i)
    {
        EXPECT_EQ(back[static_cast<size_t>(i * 2)], static_cast<int32_t>(i * 33554432LL));
        EXPECT_EQ(back[static_cast<size_t>(i * 2 + 1)], static_cast<int32_t>(i * 33554432LL - 1073741824LL));
    }
}
