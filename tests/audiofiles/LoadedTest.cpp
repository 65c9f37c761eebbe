// Sounds held in memory and the drop-sample resampler, over real files.
#include "TestFiles.h"

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileLoaded.h"

#include <gtest/gtest.h>

#include <sndfile.h>

using testfiles::staircase;

namespace
{

class LoadedTest : public ::testing::Test
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

void fill(AudioBuffer& buffer, int64_t frames, int32_t channels, int64_t position)
{
    buffer.alloc(frames, channels);
    buffer.frames = frames;
    buffer.position = position;
    for (int32_t c = 0; c < channels; ++c)
        std::fill(buffer.channel[c], buffer.channel[c] + frames, 9.0f);
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
    fill(block, 100, 2, 2950);
    ASSERT_TRUE(sound.read(block));
    EXPECT_EQ(block.channel[0][49], staircase(2999, 0));
    EXPECT_EQ(block.channel[0][50], 9.0f);
    fill(block, 100, 2, 3000);
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
    fill(block, 16, 2, 0);
    EXPECT_FALSE(sound.read(block));
}
