// The reader chain over real files written by libsndfile and by FFmpeg's encoders.
#include "TestFiles.h"
#include "tests/support/Signal.h"

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFile_av.h"
#include "audiofiles/AudioFile_sf.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <random>
#include <sndfile.h>

using testfiles::fillWith;
using testfiles::staircase;
using testfiles::wrongFrames;

namespace
{

/** Reads a whole file sequentially in blocks of varying size, as a track would. */
std::vector<std::vector<float>> readSequential(AudioFile& file, int32_t channels)
{
    const auto frames = static_cast<int64_t>(file.frames());
    std::vector<std::vector<float>> all(static_cast<size_t>(channels), std::vector<float>(frames));
    AudioBuffer block;
    int64_t size = 1000;
    for (int64_t at = 0; at < frames; at += block.frames)
    {
        fillWith(block, std::min(size, frames - at), channels, 9.0f, at);
        EXPECT_TRUE(file.read(block)) << "at " << at;
        for (int32_t c = 0; c < channels; ++c)
            std::copy(block.channel[c], block.channel[c] + block.frames, all[c].begin() + at);
        size = size == 1000 ? 4411 : 1000;
    }
    return all;
}

/** The lag (within +-range) at which decoded best matches the reference, by summed squares. */
int bestLag(const std::vector<float>& decoded, const std::vector<float>& reference, int range)
{
    const auto n = static_cast<int64_t>(std::min(decoded.size(), reference.size()));
    int best = 0;
    double bestSum = 1e300;
    for (int lag = -range; lag <= range; ++lag)
    {
        double sum = 0;
        for (int64_t i = 4096; i < n - 4096; ++i)
            sum += std::pow(decoded[static_cast<size_t>(i)] - reference[static_cast<size_t>(i + lag)], 2);
        best = sum < bestSum ? lag : best;
        bestSum = std::min(sum, bestSum);
    }
    return best;
}

double rmsError(const std::vector<float>& decoded, const std::vector<float>& reference, size_t from = 0)
{
    double sum = 0;
    const size_t n = std::min(decoded.size(), reference.size());
    for (size_t i = from; i < n; ++i)
        sum += (decoded[i] - reference[i]) * (decoded[i] - reference[i]);
    return std::sqrt(sum / static_cast<double>(n - from));
}

/** A compressed kind: Ogg Vorbis written by libsndfile, the others by FFmpeg's encoders. */
struct Encoded
{
    const char* extension;
    const char* codec;       // null: written by libsndfile
    const char* chainReader; // the reader the chain picks on this system
    double frameSlack;       // how far the fall-back reader's length may be off
    double rms;
    int lagRange;
};

// libsndfile reads Vorbis and MP3 itself; AAC in MP4 only the fall-back can. MP3 carries its exact
// length in the encoder's header; FFmpeg's MP4 muxer writes an edit list that can be off by a few
// samples (within one AAC frame); FFmpeg's Ogg demuxer trims one short block too many from the end of
// a file whose audio fits in its first pages.
const Encoded kEncoded[] = {{"ogg", nullptr, "sndfile", 256.0, 0.02, 40},
                            {"mp3", "libmp3lame", "sndfile", 0.0, 0.01, 2200},
                            {"m4a", "aac", "ffmpeg", 1024.0, 0.01, 2200}};

/** Writes the music as a file of the kind, through a float WAV for the encoders. */
bool writeEncoded(const testfiles::TempDir& dir, const Encoded& kind, const std::string& out,
                  int32_t channels, int32_t rate, int64_t frames, const std::string& extra = "")
{
    if (kind.codec == nullptr)
        return testfiles::writeMusic(out, SF_FORMAT_OGG | SF_FORMAT_VORBIS, channels, rate, frames);
    const std::string wav = dir.file("src.wav");
    return testfiles::writeMusic(wav, SF_FORMAT_WAV | SF_FORMAT_FLOAT, channels, rate, frames) &&
           testfiles::encode(wav, out, kind.codec, extra);
}

class ReaderTest : public ::testing::Test
{
protected:
    testfiles::TempDir dir_;
};

} // namespace

TEST_F(ReaderTest, EveryPcmFormatRateAndChannelCountReadsBackExactly)
{
    // Every depth libsndfile writes in each container (FLAC has no 32-bit or float depths); WAV's
    // 8-bit samples are unsigned.
    std::vector<int> formats;
    for (const int container : {SF_FORMAT_WAV, SF_FORMAT_AIFF, SF_FORMAT_CAF, SF_FORMAT_FLAC})
        for (const int depth : {SF_FORMAT_PCM_S8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32,
                                SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE})
        {
            const int u8 = container == SF_FORMAT_WAV && depth == SF_FORMAT_PCM_S8 ? SF_FORMAT_PCM_U8 : depth;
            SF_INFO info{0, 44100, 2, container | u8, 0, 0};
            if (sf_format_check(&info))
                formats.push_back(info.format);
        }
    ASSERT_EQ(formats.size(), 21u);
    for (const int format : formats)
        for (int32_t rate : {22050, 44100, 48000, 88200, 96000, 176400, 192000})
            for (int32_t channels : {1, 2})
            {
                SCOPED_TRACE(testfiles::join(std::hex, format, std::dec, " ", rate, " Hz ", channels, " ch"));
                const std::string path = dir_.file(testfiles::join(format, "-", rate, "-", channels));
                // Even: libsndfile counts the pad byte of an odd 8-bit mono AIFF as a frame.
                const int64_t frames = rate / 40 * 2 + 18;
                ASSERT_TRUE(testfiles::writeStaircase(path, format, channels, rate, frames));
                AudioFileGuess file;
                ASSERT_TRUE(file.open(path));
                EXPECT_STREQ(file.readerName(), "sndfile");
                EXPECT_EQ(file.channels(), channels);
                EXPECT_EQ(file.sampleRate(), rate);
                ASSERT_EQ(file.frames(), static_cast<uint64_t>(frames));
                // The whole file in one block, then a block from the middle after it (a seek).
                AudioBuffer block;
                fillWith(block, frames, channels, 9.0f);
                ASSERT_TRUE(file.read(block));
                EXPECT_EQ(wrongFrames(block, channels), 0);
                fillWith(block, 100, channels, 9.0f, frames / 3);
                ASSERT_TRUE(file.read(block));
                EXPECT_EQ(wrongFrames(block, channels), 0);
            }
}

TEST_F(ReaderTest, CompressedFilesStartOnTheMusicAndSeekToTheFrame)
{
    std::mt19937 random(7);
    for (const Encoded& kind : kEncoded)
        for (int32_t rate : {44100, 48000})
            for (int32_t channels : {1, 2})
            {
                SCOPED_TRACE(testfiles::join(kind.extension, " ", rate, " Hz ", channels, " ch"));
                const int64_t frames = rate * 3 / 2 + 321;
                const std::string out =
                    dir_.file(testfiles::join("enc", rate, channels, ".", kind.extension));
                ASSERT_TRUE(writeEncoded(dir_, kind, out, channels, rate, frames));
                AudioFileGuess chain;
                ASSERT_TRUE(chain.open(out));
                EXPECT_STREQ(chain.readerName(), kind.chainReader);
                // The fall-back reader decodes the same file to the same music.
                AudioFile_av av;
                ASSERT_TRUE(av.open(out)) << av.error();
                for (AudioFile* file : {static_cast<AudioFile*>(&chain), static_cast<AudioFile*>(&av)})
                {
                    SCOPED_TRACE(file == &av ? "ffmpeg" : "chain");
                    EXPECT_EQ(file->channels(), channels);
                    EXPECT_EQ(file->sampleRate(), rate);
                    const bool exact = file == &chain && std::string(kind.chainReader) == "sndfile";
                    const auto length = static_cast<int64_t>(file->frames());
                    ASSERT_NEAR(static_cast<double>(length), static_cast<double>(frames),
                                exact ? 0.0 : kind.frameSlack);
                    const auto decoded = readSequential(*file, channels);
                    for (int32_t c = 0; c < channels; ++c)
                    {
                        const std::vector<float> reference = testfiles::musicChannel(c, rate, frames);
                        EXPECT_LT(rmsError(decoded[c], reference), kind.rms);
                        // Position 0 is the first sample of the music: no encoder delay left.
                        EXPECT_EQ(bestLag(decoded[c], reference, kind.lagRange), 0);
                        // The end as well: positions in the last page are counted back from its end.
                        EXPECT_LT(rmsError(decoded[c], reference, decoded[c].size() - rate / 4),
                                  2 * kind.rms);
                    }
                    // Random jumps, forwards and back, including the very start and the last frames,
                    // read what the sequential read did. AAC's noise substitution draws from a
                    // generator that runs from the start of the stream, and the MP3 decoder restarts a
                    // mono stream a little differently, so after a seek those differ slightly; one
                    // frame of misalignment would differ by more than 0.02.
                    const bool mp3 = kind.extension == std::string("mp3");
                    const float tolerance = kind.extension == std::string("m4a") ? 5e-3f
                                            : mp3 && channels == 1               ? 1e-3f
                                                                                 : 0.0f;
                    for (int jump = 0; jump < 20; ++jump)
                    {
                        const int64_t count = 1 + static_cast<int64_t>(random() % 3000);
                        int64_t at = static_cast<int64_t>(random() % static_cast<uint64_t>(length - count));
                        at = jump == 0 ? 0 : jump == 1 ? length - count : jump == 2 ? 1 : at;
                        AudioBuffer block;
                        fillWith(block, count, channels, 9.0f, at);
                        ASSERT_TRUE(file->read(block)) << "at " << at;
                        int64_t wrong = 0;
                        for (int32_t c = 0; c < channels; ++c)
                            for (int64_t i = 0; i < count; ++i)
                                wrong += std::fabs(block.channel[c][i] -
                                                   decoded[c][static_cast<size_t>(at + i)]) > tolerance;
                        EXPECT_EQ(wrong, 0) << "block of " << count << " at " << at << " of " << length;
                    }
                }
            }
}

TEST_F(ReaderTest, ATruncatedFilePlaysWhatExistsThenSilence)
{
    const std::string whole = dir_.file("whole.wav");
    ASSERT_TRUE(testfiles::writeStaircase(whole, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, 10000));
    const std::string cut = dir_.file("cut.wav");
    // 44 bytes of header, then 6000 frames of 4 bytes and half a frame.
    ASSERT_TRUE(testfiles::writeBytes(cut, testfiles::readBytes(whole).substr(0, 44 + 6000 * 4 + 2)));
    AudioFileGuessSafe file;
    ASSERT_TRUE(file.open(cut));
    EXPECT_TRUE(file.frames() >= 6000u && file.frames() <= 10000u) << file.frames();
    AudioBuffer block;
    fillWith(block, 6000, 2, 9.0f);
    EXPECT_TRUE(file.read(block));
    EXPECT_EQ(wrongFrames(block, 2), 0);
    fillWith(block, 4000, 2, 9.0f, 6000);
    EXPECT_TRUE(file.read(block));
    for (int32_t c = 0; c < 2; ++c)
        EXPECT_EQ(testsignal::peak(block.channel[c], 4000), 0.0) << c;
}

TEST_F(ReaderTest, ReadsAtTheEdgesOfTheFile)
{
    const std::string path = dir_.file("edge.wav");
    ASSERT_TRUE(testfiles::writeStaircase(path, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1, 44100, 5000));

    // One frame too many, or before the start: the plain reader fails and leaves the output as it was.
    AudioFile_sf sf;
    ASSERT_TRUE(sf.open(path));
    AudioBuffer block;
    for (const int64_t at : {4000, -5})
    {
        fillWith(block, 1001, 1, 9.0f, at);
        EXPECT_FALSE(sf.read(block)) << at;
        EXPECT_EQ(*std::min_element(block.channel[0], block.channel[0] + 1001), 9.0f) << at;
    }
    // The cursor stays usable: the same place with the right count reads.
    fillWith(block, 1000, 1, 9.0f, 4000);
    EXPECT_TRUE(sf.read(block));
    EXPECT_EQ(wrongFrames(block, 1), 0);

    // Through the safe reader the same block gives the frames that exist and then silence...
    AudioFileGuessSafe safe;
    ASSERT_TRUE(safe.open(path));
    fillWith(block, 1001, 1, 9.0f, 4000);
    EXPECT_TRUE(safe.read(block));
    EXPECT_EQ(block.channel[0][999], staircase(4999, 0));
    EXPECT_EQ(block.channel[0][1000], 0.0f);
    // ...whereas provide is all or nothing.
    AudioData request;
    request.channels = 1;
    request.position = 4000;
    request.frames = 1001;
    EXPECT_FALSE(safe.provide(request));
    request.frames = 1000;
    ASSERT_TRUE(safe.provide(request));
    EXPECT_EQ(request.channel[0][0], staircase(4000, 0));

    // A mono file read into a stereo block fills the first channel only.
    fillWith(block, 10, 2, 9.0f);
    EXPECT_TRUE(safe.read(block));
    EXPECT_EQ(block.channel[0][3], staircase(3, 0));
    EXPECT_EQ(block.channel[1][3], 9.0f);
}

TEST_F(ReaderTest, BadFilesFailCleanlyAndDamagedOnesNeverCrashOrHang)
{
    // Sources of every kind, named beyond ASCII (but for the float WAV the encoders were given).
    std::vector<std::string> sources = {dir_.file("Übung – Tänze ♪.flac")};
    ASSERT_TRUE(
        testfiles::writeStaircase(sources.back(), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 44100, 44100));
    for (const Encoded& kind : kEncoded)
    {
        sources.push_back(dir_.file(testfiles::join("Übung – Tänze ♪.", kind.extension)));
        ASSERT_TRUE(writeEncoded(dir_, kind, sources.back(), 2, 44100, 44100, "-movflags +faststart"));
    }
    sources.push_back(dir_.file("src.wav"));

    // Files neither library can open: refused with a reason, and a read leaves the block alone.
    std::mt19937 random(3);
    std::string noise(20000, '\0');
    for (char& byte : noise)
        byte = static_cast<char>(random());
    const std::vector<std::pair<std::string, std::string>> bad = {
        {"noise.wav", noise},
        {"noise.mp3", noise},
        {"noise.m4a", noise},
        {"noise", noise},
        {"header.wav", testfiles::readBytes(sources[4]).substr(0, 30)},
        {"header.m4a", testfiles::readBytes(sources[3]).substr(0, 200)},
        {"text.wav", "This is not a sound.\nJust words, one line after another.\n"},
        {"empty.wav", ""}};
    std::vector<std::string> paths = {dir_.file("missing ü.wav"), dir_.file("folder.wav")};
    std::filesystem::create_directory(paths.back());
    for (const auto& [name, bytes] : bad)
    {
        paths.push_back(dir_.file(name));
        ASSERT_TRUE(testfiles::writeBytes(paths.back(), bytes));
    }
    {
        AudioFileGuess warmUp;
        ASSERT_TRUE(warmUp.open(sources[3]));
    }
    auto descriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = descriptors();
    for (const std::string& path : paths)
    {
        SCOPED_TRACE(path);
        AudioFileGuess file;
        EXPECT_FALSE(file.open(path));
        EXPECT_FALSE(file.error().empty());
        AudioBuffer block;
        fillWith(block, 64, 2, 9.0f);
        EXPECT_FALSE(file.read(block));
        EXPECT_EQ(block.channel[0][0], 9.0f);
        AudioFileGuessSafe safe;
        EXPECT_FALSE(safe.open(path));
        EXPECT_FALSE(safe.read(block));
    }
    // The sources open read-only, each open over the one before, which it closes: no handle leaks.
    {
        AudioFileGuess file;
        for (const std::string& source : sources)
        {
            std::filesystem::permissions(source, std::filesystem::perms::owner_read,
                                         std::filesystem::perm_options::replace);
            ASSERT_TRUE(file.open(source)) << source;
            AudioBuffer block;
            fillWith(block, 100, 2, 9.0f, 50);
            EXPECT_TRUE(file.read(block)) << source;
        }
    }
    EXPECT_EQ(descriptors(), before);

    // Real files of every kind, then bytes overwritten and ends cut at random: each opens or
    // fails, and an opened one reads to its end in blocks, jumps included.
    int opened = 0;
    int refused = 0;
    for (const std::string& source : sources)
    {
        const std::string bytes = testfiles::readBytes(source);
        ASSERT_GT(bytes.size(), 1000u);
        for (int variant = 0; variant < 12; ++variant)
        {
            std::string damaged = bytes;
            if (variant % 3 == 0)
                damaged.resize(random() % damaged.size());
            else
                for (int hits = 0; hits < 1 + variant * 3; ++hits)
                    damaged[random() % damaged.size()] = static_cast<char>(random());
            const std::string path = dir_.file(
                testfiles::join("damaged", variant, std::filesystem::path(source).extension().string()));
            ASSERT_TRUE(testfiles::writeBytes(path, damaged));
            SCOPED_TRACE(testfiles::join(source, " variant ", variant));
            AudioFileGuessSafe file;
            if (!file.open(path))
            {
                ++refused;
                continue;
            }
            ++opened;
            const auto length = static_cast<int64_t>(file.frames());
            EXPECT_LT(length, 44100 * 100) << "a length far beyond the file";
            AudioBuffer block;
            block.alloc(4096, 2);
            for (int64_t at = 0; at < std::min<int64_t>(length, 44100 * 100); at += 4096)
            {
                block.position = at;
                block.frames = 4096;
                file.read(block);
            }
            for (int jump = 0; jump < 5 && length > 0; ++jump)
            {
                block.position = static_cast<int64_t>(random() % static_cast<uint64_t>(length));
                block.frames = 1000;
                file.read(block);
            }
        }
    }
    // Both outcomes occur: the damage is real, and the readers are tolerant.
    EXPECT_GT(opened, 0);
    EXPECT_GT(refused, 0);
}
