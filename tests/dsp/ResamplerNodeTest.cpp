#include "dsp/AudioResampler_DSP.h"

#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFileLoaded.h"
#include "audiofiles/AudioFile_sf.h"
#include "tests/support/SoundFile.h"
#include "tests/support/StereoBlock.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{

// A sound in memory at a stated rate: the loaded-file reader hands out its samples by reference.
class RatedSound : public AudioFileLoaded
{
public:
    RatedSound(int32_t rate, int32_t channels, int64_t frames, double hz) : rate_(rate)
    {
        AudioBuffer b;
        b.alloc(frames, channels);
        b.frames = frames;
        for (int32_t c = 0; c < channels; ++c)
            for (int64_t i = 0; i < frames; ++i)
                b.channel[c][i] =
                    static_cast<float>((c == 0 ? 0.5 : 0.25) * std::sin(2.0 * M_PI * hz * i / rate));
        loadFrom(b);
    }
    int32_t sampleRate() const override { return rate_; }

private:
    int32_t rate_;
};

std::vector<float> sineAt(double hz, double rate, int64_t from, int64_t frames, double amplitude)
{
    std::vector<float> v(static_cast<std::size_t>(frames));
    for (int64_t i = 0; i < frames; ++i)
        v[static_cast<std::size_t>(i)] =
            static_cast<float>(amplitude * std::sin(2.0 * M_PI * hz * (from + i) / rate));
    return v;
}

using Block = testsupport::StereoBlock;

} // namespace

TEST(AudioResampler_DSP, JumpGivesTheFramesAtTheNewPosition)
{
    RatedSound sound(48000, 1, 48000, 440.0);
    AudioResampler_DSP r;
    r.setProvider(&sound);
    r.prepare(44100, 64);
    r.sourceChanged();
    ASSERT_EQ(r.channels(), 1);
    Block block(64);
    block.data.position = 0;
    ASSERT_TRUE(r.read(block.data));
    block.data.position = 20000; // a locate
    ASSERT_TRUE(r.read(block.data));
    EXPECT_EQ(r.nextPosition(), 20064);
    const std::vector<float> expected = sineAt(440.0, 44100.0, 20000, 64, 0.5);
    for (std::size_t i = 0; i < 64; ++i)
        ASSERT_NEAR(block.left[i], expected[i], 2e-4f) << i;
}

TEST(AudioResampler_DSP, EmptyOrMissingProviderReadsFalse)
{
    AudioResampler_DSP r;
    r.prepare(48000, 64);
    r.sourceChanged();
    EXPECT_FALSE(r.ready());
    EXPECT_NE(r.refusal(), nullptr);
    Block block(64);
    EXPECT_FALSE(r.read(block.data));
    AudioFileLoaded empty;
    r.setProvider(&empty);
    r.sourceChanged();
    EXPECT_FALSE(r.ready());
    ASSERT_NE(r.refusal(), nullptr);
    EXPECT_NE(std::string(r.refusal()).find("no audio"), std::string::npos) << r.refusal();
    EXPECT_EQ(r.frames(), 0);
    EXPECT_FALSE(r.read(block.data));
}

TEST(AudioResampler_DSP, RatioTheInterpolatorRefusesIsNotReady)
{
    RatedSound sound(44100, 1, 1000, 440.0);
    AudioResampler_DSP r;
    r.setProvider(&sound);
    r.prepare(40, 64); // a fall by 1,102 reaches beyond the input stage
    r.sourceChanged();
    EXPECT_FALSE(r.ready());
    ASSERT_NE(r.refusal(), nullptr);
    EXPECT_NE(std::string(r.refusal()).find("input stage"), std::string::npos) << r.refusal();
    Block block(64);
    EXPECT_FALSE(r.read(block.data));
}

// Over the matrix of rates and block sizes, and a random sequence of block sizes, reading block by
// block gives exactly what one long read gives: no block boundary leaves a trace.
TEST(AudioResampler_DSP, BlockSizesLeaveNoTraceAcrossTheRateMatrix)
{
    std::mt19937 rng(17);
    for (int32_t in : {44100, 48000, 96000})
        for (uint32_t out : {44100u, 48000u, 96000u})
        {
            if (static_cast<uint32_t>(in) == out)
                continue;
            RatedSound sound(in, 2, 30000, 997.0);
            AudioResampler_DSP whole, blocks;
            for (AudioResampler_DSP* r : {&whole, &blocks})
            {
                r->setProvider(&sound);
                r->prepare(out, 1024);
                r->sourceChanged();
                ASSERT_TRUE(r->ready());
            }
            const int64_t total = std::min<int64_t>(whole.frames(), 12000);
            Block reference(total);
            reference.data.position = 0;
            ASSERT_TRUE(whole.read(reference.data));
            for (int sequence = 0; sequence < 4; ++sequence)
            {
                std::uniform_int_distribution<int64_t> sizes(1, 1024);
                const int64_t fixed[] = {64, 256, 1024, 0};
                Block block(1024);
                blocks.setOutputRate(static_cast<float>(out)); // back to 0
                for (int64_t position = 0; position < total;)
                {
                    const int64_t n =
                        std::min(total - position, fixed[sequence] != 0 ? fixed[sequence] : sizes(rng));
                    block.data.frames = n;
                    block.data.position = position;
                    ASSERT_TRUE(blocks.read(block.data));
                    for (int64_t i = 0; i < n; ++i)
                    {
                        const auto at = static_cast<std::size_t>(position + i);
                        ASSERT_EQ(block.left[static_cast<std::size_t>(i)], reference.left[at])
                            << in << " -> " << out << " sequence " << sequence << " at " << at;
                        ASSERT_EQ(block.right[static_cast<std::size_t>(i)], reference.right[at]);
                    }
                    position += n;
                }
            }
        }
}

namespace
{

// Writes a float WAVE of two channels: a 1 kHz sine on the left and a 3,100 Hz one on the right,
// both at full swing up to the last frame, then `silence` frames of zeros.
void writeToneToTheEnd(const std::string& path, int32_t rate, int64_t frames, int64_t silence)
{
    std::vector<float> x(static_cast<std::size_t>(frames + silence) * 2, 0.0f);
    for (int64_t i = 0; i < frames; ++i)
    {
        x[static_cast<std::size_t>(2 * i)] =
            static_cast<float>(0.8 * std::sin(2.0 * M_PI * 1000.0 * i / rate));
        x[static_cast<std::size_t>(2 * i + 1)] =
            static_cast<float>(-0.6 * std::sin(2.0 * M_PI * 3100.0 * i / rate + 0.3));
    }
    ASSERT_TRUE(testsound::write(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, 2, x)) << path;
}

// Every output frame of `provider` through the node, read in blocks of `block`.
void convertAll(AudioFile& provider, uint32_t rate, int64_t block, std::vector<float>& left,
                std::vector<float>& right, int64_t frames = -1)
{
    AudioResampler_DSP r;
    r.setProvider(&provider);
    r.prepare(rate, static_cast<uint32_t>(block));
    r.sourceChanged();
    ASSERT_TRUE(r.ready());
    const int64_t total = frames < 0 ? r.frames() : frames;
    left.assign(static_cast<std::size_t>(total), 0.0f);
    right.assign(static_cast<std::size_t>(total), 0.0f);
    Block b(block);
    for (int64_t position = 0; position < total; position += block)
    {
        b.data.position = position;
        b.data.frames = std::min(block, total - position);
        // What a stale buffer would leave shows up against the reference instead of passing as 0.
        std::fill(b.left.begin(), b.left.end(), 7.0f);
        std::fill(b.right.begin(), b.right.end(), 7.0f);
        ASSERT_TRUE(r.read(b.data));
        std::copy_n(b.left.begin(), b.data.frames, left.begin() + position);
        std::copy_n(b.right.begin(), b.data.frames, right.begin() + position);
    }
}

} // namespace

// A file whose tone runs up to its last frame, converted down: the low-pass stage reads ahead of
// the output, past the file's end, near the end. The frames up to the end must be the file's own
// and what lies beyond silence, so the output is that of the same file followed by a second of
// silence. It is the same sample for sample up to the interpolator's reach (128 output frames and
// a group of four) from the end; within it the padded file also hands the interpolator the
// low-pass stage's ring-out past the end, which the interpolator never reads beyond a source's
// length: that differs by well under a hundredth, where a stale input differs by the tone itself.
TEST(AudioResampler_DSP, FallingRateEndsWithTheFilesOwnLastFrames)
{
    const char* dir = std::getenv("KV3_BINARY_DIR");
    const std::filesystem::path folder =
        std::filesystem::path(dir != nullptr ? dir : ".") / "dsp_resampler_node_end_test";
    std::filesystem::create_directories(folder);
    for (auto [in, out] : {std::pair{48000, 44100u}, std::pair{96000, 44100u}, std::pair{48000, 32000u}})
    {
        const int64_t frames = in / 2 + 77; // not a whole number of any block
        const std::string plain = (folder / "plain.wav").string();
        const std::string padded = (folder / "padded.wav").string();
        writeToneToTheEnd(plain, in, frames, 0);
        writeToneToTheEnd(padded, in, frames, in);

        // The safe reader (what the commands and the preview open) and the plain libsndfile one.
        for (int kind = 0; kind < 2; ++kind)
        {
            std::unique_ptr<AudioFile> file, reference;
            if (kind == 0)
            {
                file = std::make_unique<AudioFileGuessSafe>();
                reference = std::make_unique<AudioFileGuessSafe>();
            }
            else
            {
                file = std::make_unique<AudioFile_sf>();
                reference = std::make_unique<AudioFile_sf>();
            }
            ASSERT_TRUE(file->open(epiPath(plain.c_str())));
            ASSERT_TRUE(reference->open(epiPath(padded.c_str())));
            for (int64_t block : {int64_t{1024}, int64_t{4096}, int64_t{333}})
            {
                std::vector<float> left, right, refLeft, refRight;
                convertAll(*file, out, block, left, right);
                ASSERT_EQ(static_cast<int64_t>(left.size()),
                          static_cast<int64_t>(static_cast<double>(frames) * out / in));
                convertAll(*reference, out, block, refLeft, refRight, static_cast<int64_t>(left.size()));
                // The tail carries the tone: a silent tail would pass for the wrong reason.
                float tail = 0.0f;
                for (std::size_t i = left.size() - 200; i < left.size(); ++i)
                    tail = std::max(tail, std::fabs(refLeft[i]));
                ASSERT_GT(tail, 0.3f);
                const std::size_t reach = 132;
                for (std::size_t i = 0; i < left.size(); ++i)
                {
                    const float tolerance = i + reach < left.size() ? 1e-6f : 0.015f;
                    ASSERT_NEAR(left[i], refLeft[i], tolerance)
                        << in << " -> " << out << " reader " << kind << " block " << block << " frame " << i
                        << " of " << left.size();
                    ASSERT_NEAR(right[i], refRight[i], tolerance)
                        << in << " -> " << out << " reader " << kind << " block " << block << " frame " << i;
                }
            }
        }
    }
    std::filesystem::remove_all(folder);
}
