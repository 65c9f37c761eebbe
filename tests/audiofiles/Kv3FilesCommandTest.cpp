// `kv3 info` and `kv3 convert`, run as a user runs them.
#include "TestFiles.h"

#include "tests/support/Program.h"
#include "tests/support/SoundFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sndfile.h>

namespace
{

using Result = testsupport::ProgramResult;

class Kv3FilesCommandTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(testfiles::writeMusic(wav_, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 48000, 96000));
        ASSERT_TRUE(testfiles::encode(wav_, m4a_, "aac"));
    }

    Result kv3(const std::string& arguments)
    {
        return testsupport::runProgram(testsupport::kv3Program(), arguments);
    }

    static size_t lines(const std::string& text)
    {
        return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    }

    testfiles::TempDir dir_;
    std::string wav_ = dir_.file("in.wav");
    std::string m4a_ = dir_.file("in.m4a");
};

} // namespace

TEST_F(Kv3FilesCommandTest, InfoNamesTheReaderAndTheFormat)
{
    const Result text = kv3(testfiles::join("info '", wav_, "' '", m4a_, "'"));
    EXPECT_EQ(text.exit, 0) << text.err;
    EXPECT_NE(text.out.find(wav_ + ": sndfile, 2 channels, 48000 Hz, 96000 frames"), std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find(m4a_ + ": ffmpeg, 2 channels, 48000 Hz"), std::string::npos) << text.out;
    EXPECT_TRUE(text.err.empty());

    const Result json = kv3(testfiles::join("info --json '", wav_, "'"));
    EXPECT_EQ(json.exit, 0);
    EXPECT_EQ(json.out, testfiles::join("[{\"path\":\"", wav_,
                                        "\",\"reader\":\"sndfile\",\"channels\":2,\"sample_rate\":48000,"
                                        "\"frames\":96000,\"seconds\":2}]\n"));
}

TEST_F(Kv3FilesCommandTest, InfoOnAFileThatCantBeOpenedPrintsOneLineAndFails)
{
    const std::string text = dir_.file("notes.wav");
    ASSERT_TRUE(testfiles::writeBytes(text, "just some words\n"));
    for (const std::string& path : {text, dir_.file("missing.flac"), dir_.path()})
    {
        SCOPED_TRACE(path);
        const Result result = kv3(testfiles::join("info '", path, "'"));
        EXPECT_EQ(result.exit, 1);
        EXPECT_EQ(lines(result.err), 1u) << result.err;
        EXPECT_NE(result.err.find(path), std::string::npos) << result.err;
        EXPECT_TRUE(result.out.empty());
    }
    // Good files are still listed when another fails.
    const Result mixed = kv3(testfiles::join("info '", wav_, "' '", text, "'"));
    EXPECT_EQ(mixed.exit, 1);
    EXPECT_EQ(lines(mixed.out), 1u);
    EXPECT_EQ(lines(mixed.err), 1u);
    EXPECT_EQ(kv3("info --bogus x").exit, 2);
}

TEST_F(Kv3FilesCommandTest, ConvertWritesTheContainerAndDepthAsked)
{
    struct Case
    {
        std::string out, options;
        int format;
        double step;
    };
    for (const Case& c :
         {Case{"a.wav", "", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1.0 / (1 << 23)},
          Case{"b.data", "--container caf --depth float", SF_FORMAT_CAF | SF_FORMAT_FLOAT, 0}})
    {
        SCOPED_TRACE(c.out);
        const std::string out = dir_.file(c.out);
        const Result result = kv3(testfiles::join("convert '", wav_, "' '", out, "' ", c.options));
        ASSERT_EQ(result.exit, 0) << result.err;
        const testsound::Sound back = testsound::read(out);
        EXPECT_EQ(back.format, c.format);
        EXPECT_EQ(back.rate, 48000);
        ASSERT_EQ(back.frames(), 96000);
        // libsndfile scales floats to integers by 2^(bits-1) - 1 and back by 2^(bits-1): within
        // two steps of the depth.
        for (int32_t ch = 0; ch < 2; ++ch)
        {
            const std::vector<float> expected = testfiles::musicChannel(ch, 48000, 96000);
            const std::vector<float> channel = back.channel(ch);
            int64_t wrong = 0;
            for (size_t i = 0; i < expected.size(); ++i)
                wrong += std::fabs(channel[i] - expected[i]) > c.step * 2.0;
            EXPECT_EQ(wrong, 0) << ch;
        }
    }
}

TEST_F(Kv3FilesCommandTest, ConvertFailuresLeaveNothingBehindAndNothingDamaged)
{
    const std::string before = testfiles::readBytes(wav_);
    const std::string broken = dir_.file("broken.wav");
    ASSERT_TRUE(testfiles::writeBytes(broken, "RIFF....WAVEnothing"));
    const std::string x = dir_.file("x.wav");
    for (const auto& [arguments, exit] :
         {std::pair{testfiles::join("'", broken, "' '", x, "'"), 1},
          {testfiles::join("'", dir_.file("missing.wav"), "' '", x, "'"), 1},
          {testfiles::join("'", wav_, "' '", dir_.file("no/folder/x.wav"), "'"), 1},
          {testfiles::join("'", wav_, "' '", wav_, "'"), 2},
          {testfiles::join("'", wav_, "' '", dir_.file("x.mp3"), "'"), 2},
          {testfiles::join("'", wav_, "' '", x, "' --depth 20"), 2},
          {testfiles::join("'", wav_, "' '", x, "' --container flac"), 2},
          {testfiles::join("'", wav_, "' '", x, "' --rate fast"), 2},
          {testfiles::join("'", wav_, "'"), 2}})
    {
        SCOPED_TRACE(arguments);
        const Result result = kv3("convert " + arguments);
        EXPECT_EQ(result.exit, exit) << result.err;
        EXPECT_GE(lines(result.err), 1u);
        EXPECT_TRUE(result.out.empty());
    }
    // Only what the test made: no output, no partial file.
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"broken.wav", "in.m4a", "in.wav"}));
    EXPECT_EQ(testfiles::readBytes(wav_), before);
}
