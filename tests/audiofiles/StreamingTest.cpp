// The streaming reader against its disk thread, with real files. Labelled for ThreadSanitizer: the
// long sequential read is shortened there, everything else runs as it is.
#include "TestFiles.h"
#include "tests/support/Signal.h"

#include "audiofiles/AudioFileStreaming.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sndfile.h>
#include <thread>

using testfiles::wrongFrames;
using Clock = std::chrono::steady_clock;

namespace
{

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KV3_STREAMING_UNDER_TSAN
#endif
#endif
#if defined(__SANITIZE_THREAD__) || defined(KV3_STREAMING_UNDER_TSAN)
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif

constexpr int32_t kRate = 48000;

/** Whether both channels of the block are silent. */
bool allSilent(const AudioBuffer& block)
{
    return testsignal::peak(block.channel[0], block.frames) +
               testsignal::peak(block.channel[1], block.frames) ==
           0.0;
}

/** Reads a block as the audio thread would: fixed buffers, the caller's position. */
bool readAt(AudioFileStreaming& file, AudioBuffer& block, int64_t position, int64_t frames)
{
    block.frames = frames;
    block.position = position;
    // Garbage first, so that silence is something the reader wrote.
    for (int32_t c = 0; c < block.channels; ++c)
        std::fill(block.channel[c], block.channel[c] + frames, 9.0f);
    return file.read(block);
}

/**
 * Plays blocks in sequence from a position, as the audio thread does after a jump (each read tells
 * the disk thread where the next one will be), until a block finds data.
 * @return the position of that block, or -1 when two seconds pass without data
 */
int64_t playUntilData(AudioFileStreaming& file, AudioBuffer& block, int64_t position, int64_t frames)
{
    const auto start = Clock::now();
    while (Clock::now() - start < std::chrono::seconds(2))
    {
        readAt(file, block, position, frames);
        if (!file.underrun())
            return position;
        position += frames;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return -1;
}

double secondsToClose(AudioFileStreaming& file)
{
    const auto start = Clock::now();
    file.close();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class StreamingTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        path_ = dir_.file("thirty.wav");
        ASSERT_TRUE(testfiles::writeStaircase(path_, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, kRate, 30 * kRate));
        block_.alloc(1024, 2);
    }

    testfiles::TempDir dir_;
    std::string path_;
    AudioBuffer block_;
};

} // namespace

TEST_F(StreamingTest, AJumpGivesSilenceUntilTheDiskThreadHasRefilled)
{
    AudioFileStreaming file;
    ASSERT_TRUE(file.open(path_));
    // Far from where the disk thread starts: nothing can hold it yet.
    const int64_t far = 20 * kRate + 123;
    EXPECT_TRUE(readAt(file, block_, far, 1024));
    EXPECT_TRUE(file.underrun());
    EXPECT_TRUE(allSilent(block_));

    const int64_t found = playUntilData(file, block_, far + 1024, 1024);
    ASSERT_GE(found, 0) << "no data two seconds after the jump";
    EXPECT_EQ(wrongFrames(block_, 2), 0);

    // Sequential reads from there on find data at once, across a buffer boundary too.
    for (int64_t at = found + 1024; at < found + 6 * kRate; at += 1024)
    {
        // The next buffer is prepared while the current one plays.
        EXPECT_TRUE(readAt(file, block_, at, 1024));
        ASSERT_FALSE(file.underrun()) << at;
        ASSERT_EQ(wrongFrames(block_, 2), 0) << at;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

TEST_F(StreamingTest, ALongFileReadsInSequenceWithoutUnderrunAfterTheFirstRefill)
{
    // Ten minutes of 48 kHz stereo, read faster than real time (as a render would) but at a
    // steady pace; a minute under ThreadSanitizer, which slows everything down.
    const int64_t seconds = kUnderThreadSanitizer ? 60 : 600;
    const double pace = kUnderThreadSanitizer ? 8.0 : 30.0;
    const std::string path = dir_.file("long.wav");
    ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, kRate, seconds * kRate));
    AudioFileStreaming file;
    ASSERT_TRUE(file.open(path));
    const int64_t length = seconds * kRate;

    const int64_t first = playUntilData(file, block_, 0, 1024);
    ASSERT_GE(first, 0);
    int64_t underruns = 0;
    int64_t wrong = 0;
    const auto start = Clock::now();
    for (int64_t at = first + 1024; at < length; at += 1024)
    {
        const int64_t count = std::min<int64_t>(1024, length - at);
        // The pace of a device running `pace` times faster than real time.
        const auto due = start + std::chrono::duration<double>(static_cast<double>(at) / (kRate * pace));
        std::this_thread::sleep_until(due);
        EXPECT_TRUE(readAt(file, block_, at, count));
        if (file.underrun())
            ++underruns;
        else
            wrong += wrongFrames(block_, 2);
    }
    EXPECT_EQ(underruns, 0);
    EXPECT_EQ(wrong, 0);
    // The block that ends at the file's end leaves the read position at 0, and the buffer after
    // the last one already holds the file's beginning: a loop back is ready at once.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(readAt(file, block_, 0, 1024));
    EXPECT_FALSE(file.underrun());
    EXPECT_EQ(wrongFrames(block_, 2), 0);
}

// A block across the end is not wrapped: the part past the end is silence, flagged. (The loop back
// from the end is the long read's last check.)
TEST_F(StreamingTest, ABlockAcrossTheEndOfAShortFileEndsInSilence)
{
    const std::string path = dir_.file("short.aiff");
    const int64_t length = 30000;
    ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1, kRate, length));
    AudioFileStreaming file;
    ASSERT_TRUE(file.open(path));
    AudioBuffer mono;
    mono.alloc(1024, 1);
    ASSERT_GE(playUntilData(file, mono, 0, 1024), 0);
    EXPECT_TRUE(readAt(file, mono, length - 24, 1024));
    EXPECT_TRUE(file.underrun());
    EXPECT_EQ(testsignal::peak(mono.channel[0] + 24, 1000), 0.0);
    mono.frames = 24;
    EXPECT_EQ(wrongFrames(mono, 1), 0);
}

// After prepare, blocks up to its size, smaller ones between them included, are handed out from one
// buffer: nothing is allocated on the audio thread.
TEST_F(StreamingTest, ProvideHandsOutTheFramesFromOneBuffer)
{
    AudioFileStreaming file;
    ASSERT_TRUE(file.open(path_));
    const int64_t at = playUntilData(file, block_, 5000, 512);
    ASSERT_GE(at, 0);
    file.prepare(48000, 1024);
    std::vector<const float*> arrays;
    for (const int64_t frames : {1024, 100, 1024, 512})
    {
        AudioData request;
        request.channels = 2;
        request.position = at + 512;
        request.frames = frames;
        ASSERT_TRUE(file.provide(request));
        EXPECT_FALSE(file.underrun());
        EXPECT_EQ(wrongFrames(request, 2), 0);
        arrays.push_back(request.channel[0]);
    }
    EXPECT_EQ(std::count(arrays.begin(), arrays.end(), arrays.front()), 4);
}

TEST_F(StreamingTest, CloseReturnsPromptlyFromAnyState)
{
    // A compressed file makes the disk thread's reads slow enough to be caught in one.
    const std::string wav = dir_.file("src.wav");
    ASSERT_TRUE(testfiles::writeMusic(wav, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 44100, 44100 * 20));
    const std::string mp3 = dir_.file("slow.mp3");
    ASSERT_TRUE(testfiles::encode(wav, mp3, "libmp3lame"));
    const double limit = kUnderThreadSanitizer ? 3.0 : 0.5;

    AudioFileStreaming never;
    EXPECT_LT(secondsToClose(never), limit);

    for (const std::string& path : {path_, mp3})
    {
        SCOPED_TRACE(path);
        AudioFileStreaming file;
        // At once after open, while the first fill runs.
        ASSERT_TRUE(file.open(path));
        EXPECT_LT(secondsToClose(file), limit);
        EXPECT_FALSE(file.read(block_));

        // While streaming, straight after a jump, with a refill under way.
        ASSERT_TRUE(file.open(path));
        ASSERT_GE(playUntilData(file, block_, 0, 1024), 0);
        readAt(file, block_, 10 * 44100, 1024);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_LT(secondsToClose(file), limit);
        // And by destruction, reopened.
        ASSERT_TRUE(file.open(path));
    }
}

TEST_F(StreamingTest, FilesThatCantBeStreamedFailToOpen)
{
    const std::string empty = dir_.file("empty.wav");
    ASSERT_TRUE(testfiles::writeStaircase(empty, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, kRate, 0));
    AudioFileStreaming file;
    for (const std::string& path : {empty, dir_.file("missing.wav")})
    {
        EXPECT_FALSE(file.open(path));
        EXPECT_FALSE(file.read(block_));
    }
    // Still usable for a good file afterwards.
    ASSERT_TRUE(file.open(path_));
    ASSERT_GE(playUntilData(file, block_, 100, 1024), 0);
    EXPECT_EQ(wrongFrames(block_, 2), 0);
}
