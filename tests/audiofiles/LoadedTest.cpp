// Sounds held in memory and the drop-sample resampler, over real files.
#include "TestFiles.h"

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileLoaded.h"
#include "audiofiles/AudioResampler.h"

#include <gtest/gtest.h>

#include <sndfile.h>

using testfiles::staircase;

namespace
{

class LoadedTest : public ::testing::Test
{
protected:
    testfiles::TempDir dir_;
};

void fill(AudioBuffer& buffer, int64_t frames, int32_t channels, float value)
{
    buffer.alloc(frames, channels);
    buffer.frames = frames;
    for (int32_t c = 0; c < channels; ++c)
        std::fill(buffer.channel[c], buffer.channel[c] + frames, value);
}

} // namespace

TEST_F(LoadedTest, LoadReadsTheWholeFileAndTheEdgesBehave)
{
    const std::string path = dir_.file("click.wav");
    ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, 3000));
    AudioFileLoaded sound;
    ASSERT_TRUE(sound.load(path));
    EXPECT_EQ(sound.frames(), 3000u);
    EXPECT_EQ(sound.channels(), 2);
    EXPECT_FALSE(sound.open(path));
    EXPECT_TRUE(sound.isOpen());
    EXPECT_EQ(sound.sampleRate(), 44100);

    // provide refers to the held samples: one frame before the end gives a count of 1.
    AudioData request;
    request.channels = 2;
    request.position = 2999;
    request.frames = 512;
    ASSERT_TRUE(sound.provide(request));
    EXPECT_EQ(request.frames, 1);
    EXPECT_EQ(request.position, 2999);
    EXPECT_EQ(request.channel[0], sound.buffer().channel[0] + 2999);
    EXPECT_EQ(request.channel[1][0], staircase(2999, 1));
    request.position = 3000;
    request.frames = 512;
    EXPECT_FALSE(sound.provide(request));

    // read copies what is left; frames past it stay as they were; at the end it touches nothing.
    AudioBuffer block;
    fill(block, 100, 2, 9.0f);
    block.position = 2950;
    ASSERT_TRUE(sound.read(block));
    EXPECT_EQ(block.channel[0][49], staircase(2999, 0));
    EXPECT_EQ(block.channel[0][50], 9.0f);
    fill(block, 100, 2, 9.0f);
    block.position = 3000;
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
    EXPECT_EQ(sound.channels(), 1);
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
    EXPECT_EQ(copy.frames(), 777u);
    EXPECT_EQ(copy.channels(), 1);
    EXPECT_NE(copy.buffer().channel[0], sound.buffer().channel[0]);
    EXPECT_EQ(copy.buffer().channel[0][776], staircase(776, 0));
}

TEST_F(LoadedTest, LoadResampledConvertsByDroppingOrRepeatingSamples)
{
    struct Case
    {
        int32_t fileRate;
        int32_t targetRate;
    };
    for (const Case& c : {Case{44100, 44100}, Case{22050, 44100}, Case{96000, 48000}, Case{48000, 44100}})
    {
        SCOPED_TRACE(testfiles::join(c.fileRate, " to ", c.targetRate));
        const std::string path = dir_.file(testfiles::join("r", c.fileRate, ".wav"));
        const int64_t frames = 5000;
        ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, c.fileRate, frames));
        AudioFileGuess file;
        ASSERT_TRUE(file.open(path));
        AudioFileLoadedResampled sound;
        sound.prepare(static_cast<uint32_t>(c.targetRate), 512);
        ASSERT_TRUE(sound.loadResampled(file));
        // As many frames as the file: cut off when the file's rate is lower, and silence past the
        // file's end when it is higher.
        ASSERT_EQ(sound.frames(), static_cast<uint64_t>(frames));
        const double ratio = static_cast<double>(c.fileRate) / c.targetRate;
        int64_t wrong = 0;
        for (int32_t ch = 0; ch < 2; ++ch)
            for (int64_t i = 0; i < frames; ++i)
            {
                const auto source = static_cast<int64_t>(static_cast<double>(i) * ratio);
                const float expected = source < frames ? staircase(source, ch) : 0.0f;
                wrong += sound.buffer().channel[ch][i] != expected;
            }
        EXPECT_EQ(wrong, 0);
    }
}

TEST_F(LoadedTest, TheDropSampleResamplerIsAnExactCopyAtEqualRatesAndReadsAtAnyPosition)
{
    const std::string path = dir_.file("a.caf");
    ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_CAF | SF_FORMAT_PCM_16, 2, 48000, 20000));
    AudioFileGuess file;
    ASSERT_TRUE(file.open(path));
    AudioResampler_aliased resampler;
    resampler.setProvider(&file);
    resampler.prepare(48000, 1024);
    EXPECT_EQ(resampler.channels(), 2);
    EXPECT_EQ(resampler.frames(), 20000);
    AudioData request;
    EXPECT_FALSE(resampler.provide(request));
    AudioBuffer block;
    fill(block, 1024, 2, 9.0f);
    block.position = 7777;
    ASSERT_TRUE(resampler.read(block));
    for (int64_t i = 0; i < 1024; ++i)
        ASSERT_EQ(block.channel[1][i], staircase(7777 + i, 1));

    // Twice the rate down to the output: every other input frame, from the position's frame.
    resampler.prepare(24000, 1024);
    fill(block, 1024, 2, 9.0f);
    block.position = 3000;
    ASSERT_TRUE(resampler.read(block));
    for (int64_t i = 0; i < 1024; ++i)
        ASSERT_EQ(block.channel[0][i], staircase(6000 + 2 * i, 0));
}

TEST_F(LoadedTest, AnEmptyFileLoadsAsAnEmptySound)
{
    const std::string path = dir_.file("zero.wav");
    ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, 0));
    AudioFileGuess file;
    ASSERT_TRUE(file.open(path));
    AudioFileLoadedResampled sound;
    sound.prepare(48000, 512);
    EXPECT_TRUE(sound.loadResampled(file));
    EXPECT_EQ(sound.frames(), 0u);
    AudioBuffer block;
    fill(block, 16, 2, 9.0f);
    block.position = 0;
    EXPECT_FALSE(sound.read(block));
}
