#include "engine/AudioFileRecorder.h"
#include "tests/engine/tracks/TrackTestFiles.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <random>
#include <vector>

using namespace tracktest;

namespace
{

/** A block of the staircase at a position, in its own buffer. */
struct Block : testsupport::StereoBlock
{
    Block(int64_t position, int64_t frames) : StereoBlock(frames, position)
    {
        for (int64_t i = 0; i < frames; ++i)
        {
            left[static_cast<size_t>(i)] = stepValue(position + i);
            right[static_cast<size_t>(i)] = stepValueRight(position + i);
        }
    }
};

void expectStaircase(const FileAudio& audio, int64_t fileFrame, int64_t sourceFrame, int64_t count)
{
    for (int64_t i = 0; i < count; ++i)
    {
        const size_t at = static_cast<size_t>(fileFrame + i);
        ASSERT_LT(at, audio.left.size());
        ASSERT_FLOAT_EQ(audio.left[at], stepValue(sourceFrame + i)) << "file frame " << fileFrame + i;
        ASSERT_FLOAT_EQ(audio.right[at], stepValueRight(sourceFrame + i)) << "file frame " << fileFrame + i;
    }
}

class RecorderTest : public ::testing::Test
{
protected:
    RecorderTest() { recorder_.prepare(48000, 512); }
    TempFolder folder_;
    AudioFileRecorder recorder_;
};

} // namespace

TEST_F(RecorderTest, LatencyCutsOnlyTheStartOfTheTimeline)
{
    const std::string path = folder_.file("latency.aif");
    recorder_.setLatency(100);
    ASSERT_TRUE(recorder_.open(path));
    // A block wholly before the latency records nothing; one later on the timeline keeps all its frames.
    for (int64_t position : {0, 64, 10000})
    {
        Block block(position, 64);
        recorder_.write(block.data);
    }
    recorder_.close();
    const FileAudio audio = readFile(path);
    ASSERT_EQ(audio.frames(), 28 + 64);
    // The 28 kept are the last of the second block: frames 100 to 127 of the timeline.
    expectStaircase(audio, 0, 100, 28);
    expectStaircase(audio, 28, 10000, 64);
}

TEST_F(RecorderTest, CloseWithAnEmptyBufferHandsNothingOver)
{
    const std::string path = folder_.file("empty.aif");
    ASSERT_TRUE(recorder_.open(path));
    recorder_.close();
    EXPECT_TRUE(readFile(path).ok);
    EXPECT_EQ(readFile(path).frames(), 0);
    // A recorder is reusable: a second take into another file starts from empty buffers.
    const std::string second = folder_.file("second.aif");
    ASSERT_TRUE(recorder_.open(second));
    Block block(0, 300);
    recorder_.write(block.data);
    recorder_.close();
    EXPECT_EQ(readFile(second).frames(), 300);
}

TEST_F(RecorderTest, FileHoldsExactlyTheAppendedFramesOverRandomBlocks)
{
    const std::string path = folder_.file("random.aif");
    ASSERT_TRUE(recorder_.open(path));
    std::mt19937 random(7);
    std::uniform_int_distribution<int64_t> sizes(1, 4096);
    int64_t position = 0;
    // About seven buffers' worth, paced so the disk is never more than a buffer behind.
    while (position < 600000)
    {
        Block block(position, sizes(random));
        recorder_.write(block.data);
        position += block.data.frames;
        while (recorder_.pendingBuffers() > 1)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    recorder_.close();
    EXPECT_EQ(recorder_.writeFailures(), 0u);
    const FileAudio audio = readFile(path);
    EXPECT_EQ(audio.rate, 48000);
    ASSERT_EQ(audio.frames(), position);
    expectStaircase(audio, 0, 0, position);
}

TEST_F(RecorderTest, DiskBehindDropsWholeBlocksAndCountsThem)
{
    const std::string path = folder_.file("overrun.aif");
    ASSERT_TRUE(recorder_.open(path));
    // Five buffers' worth at once, faster than any disk: the thread sleeps up to 100 ms between looks,
    // so the ring of three fills and later blocks are dropped whole.
    const int64_t blockFrames = 4000;
    std::vector<int64_t> accepted;
    for (int64_t b = 0; b < 110; ++b)
    {
        const int64_t before = recorder_.framesAccepted();
        Block block(b * blockFrames, blockFrames);
        recorder_.write(block.data);
        if (recorder_.framesAccepted() > before)
        {
            accepted.push_back(b);
        }
    }
    recorder_.close();
    const FileAudio audio = readFile(path);
    ASSERT_EQ(audio.frames(), static_cast<int64_t>(accepted.size()) * blockFrames);
    EXPECT_EQ(recorder_.overruns(), 110u - accepted.size());
    // Whatever was accepted is in the file, whole and in order; nothing was written over.
    for (size_t k = 0; k < accepted.size(); ++k)
    {
        expectStaircase(audio, static_cast<int64_t>(k) * blockFrames, accepted[k] * blockFrames, blockFrames);
    }
}

TEST_F(RecorderTest, OpenFailureChangesNothingAndSaysWhy)
{
    EXPECT_FALSE(recorder_.open(folder_.file("no/such/folder/take.aif")));
    EXPECT_FALSE(recorder_.isOpen());
    EXPECT_FALSE(recorder_.error().empty());
    recorder_.close(); // harmless when closed
}
