#include "dsp/AudioResampler_DSP.h"

#include "TestSources.h"
#include "audiofiles/AudioFileGuess.h"
#include "audiofiles/AudioFile_sf.h"
#include "tests/support/Signal.h"
#include "tests/support/SoundFile.h"
#include "tests/support/StereoBlock.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

using dsptest::RatedSound;
using testsupport::StereoBlock;

namespace
{

// The node over a provider, prepared for an output rate.
struct Node : AudioResampler_DSP
{
    Node(AudioFile* provider, uint32_t rate, uint32_t block = 1024)
    {
        setProvider(provider);
        prepare(rate, block);
        sourceChanged();
    }
};

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

// `total` output frames of the node (all when negative), read in blocks of `block`, both sides.
std::vector<float> convertAll(AudioFile& provider, uint32_t rate, int64_t block, int64_t total = -1)
{
    Node r(&provider, rate, static_cast<uint32_t>(block));
    EXPECT_TRUE(r.ready());
    total = total < 0 ? r.frames() : total;
    std::vector<float> out(static_cast<std::size_t>(2 * total));
    StereoBlock b(block);
    for (int64_t position = 0; position < total; position += block)
    {
        b.data.position = position;
        b.data.frames = std::min(block, total - position);
        // What a stale buffer would leave shows up against the reference instead of passing as 0.
        std::fill(b.left.begin(), b.left.end(), 7.0f);
        std::fill(b.right.begin(), b.right.end(), 7.0f);
        EXPECT_TRUE(r.read(b.data));
        std::copy_n(b.left.begin(), b.data.frames, out.begin() + position);
        std::copy_n(b.right.begin(), b.data.frames, out.begin() + total + position);
    }
    return out;
}

} // namespace

TEST(AudioResampler_DSP, JumpGivesTheFramesAtTheNewPosition)
{
    RatedSound sound(48000, 1, 48000, 440.0);
    Node r(&sound, 44100, 64);
    ASSERT_EQ(r.channels(), 1);
    StereoBlock block(64);
    ASSERT_TRUE(r.read(block.data));
    block.data.position = 20000; // a locate
    ASSERT_TRUE(r.read(block.data));
    EXPECT_EQ(r.nextPosition(), 20064);
    const std::vector<float> expected = dsptest::sine(440.0, 44100.0, 20064);
    for (std::size_t i = 0; i < 64; ++i)
        ASSERT_NEAR(block.left[i], expected[20000 + i], 2e-4f) << i;
}

// No provider, an empty one, and a fall beyond the input stage: not ready, told why, reads refused.
TEST(AudioResampler_DSP, WhatItCantServeIsRefusedAndSaysWhy)
{
    AudioFileLoaded empty;
    RatedSound sound(44100, 1, 1000, 440.0);
    struct Case
    {
        AudioFile* provider;
        uint32_t rate;
        const char* why;
    };
    for (const Case& c :
         {Case{nullptr, 48000, "no file"}, Case{&empty, 48000, "no audio"}, Case{&sound, 40, "input stage"}})
    {
        Node r(c.provider, c.rate, 64);
        EXPECT_FALSE(r.ready());
        ASSERT_NE(r.refusal(), nullptr) << c.why;
        EXPECT_NE(std::string(r.refusal()).find(c.why), std::string::npos) << r.refusal();
        StereoBlock block(64);
        EXPECT_FALSE(r.read(block.data)) << c.why;
    }
}

// Over the rate matrix, blocks of fixed and random sizes give exactly what one long read gives.
TEST(AudioResampler_DSP, BlockSizesLeaveNoTraceAcrossTheRateMatrix)
{
    std::mt19937 rng(17);
    std::uniform_int_distribution<int64_t> sizes(1, 1024);
    for (int32_t in : {44100, 48000, 96000})
        for (uint32_t out : {44100u, 48000u, 96000u})
        {
            if (static_cast<uint32_t>(in) == out)
                continue;
            RatedSound sound(in, 2, 30000, 997.0);
            Node whole(&sound, out), blocks(&sound, out);
            const int64_t total = std::min<int64_t>(whole.frames(), 12000);
            StereoBlock reference(total);
            ASSERT_TRUE(whole.read(reference.data));
            StereoBlock block(1024);
            for (int64_t fixed : {64, 256, 1024, 0})
            {
                blocks.setOutputRate(static_cast<float>(out)); // back to 0
                for (int64_t position = 0; position < total; position += block.data.frames)
                {
                    block.data.frames = std::min(total - position, fixed != 0 ? fixed : sizes(rng));
                    block.data.position = position;
                    ASSERT_TRUE(blocks.read(block.data));
                    for (int64_t i = 0; i < block.data.frames; ++i)
                    {
                        const auto at = static_cast<std::size_t>(position + i);
                        ASSERT_EQ(block.left[static_cast<std::size_t>(i)], reference.left[at])
                            << in << " -> " << out << " blocks of " << fixed << " at " << at;
                        ASSERT_EQ(block.right[static_cast<std::size_t>(i)], reference.right[at]);
                    }
                }
            }
        }
}

// A tone to the last frame, converted down (the low-pass reads ahead, past the end), is the same file
// followed by silence, sample for sample up to the interpolator's reach (132 frames) from the end and
// within a hundredth there (the padded file's low-pass ring-out); a stale input differs by the tone.
TEST(AudioResampler_DSP, FallingRateEndsWithTheFilesOwnLastFrames)
{
    testsupport::TempFolder folder;
    const std::string plain = folder.file("plain.wav");
    const std::string padded = folder.file("padded.wav");
    for (auto [in, out] : {std::pair{48000, 44100u}, std::pair{96000, 44100u}, std::pair{48000, 32000u}})
    {
        const int64_t frames = in / 2 + 77; // not a whole number of any block
        writeToneToTheEnd(plain, in, frames, 0);
        writeToneToTheEnd(padded, in, frames, in);
        // The safe reader (what the commands and the preview open) and the plain one.
        for (const bool safe : {true, false})
        {
            std::unique_ptr<AudioFile> file, reference;
            for (std::unique_ptr<AudioFile>* f : {&file, &reference})
                *f = safe ? std::unique_ptr<AudioFile>(new AudioFileGuessSafe)
                          : std::make_unique<AudioFile_sf>();
            ASSERT_TRUE(file->open(epiPath(plain.c_str())));
            ASSERT_TRUE(reference->open(epiPath(padded.c_str())));
            for (int64_t block : {int64_t{1024}, int64_t{4096}, int64_t{333}})
            {
                const std::vector<float> y = convertAll(*file, out, block);
                const auto n = static_cast<int64_t>(y.size() / 2);
                ASSERT_EQ(n, static_cast<int64_t>(static_cast<double>(frames) * out / in));
                const std::vector<float> z = convertAll(*reference, out, block, n);
                // The tail carries the tone: a silent tail would pass for the wrong reason.
                EXPECT_GT(testsignal::peak(z.data() + n - 200, 200), 0.3);
                for (int64_t i = 0; i < 2 * n; ++i)
                {
                    const float tolerance = i % n + 132 < n ? 1e-6f : 0.015f;
                    ASSERT_NEAR(y[static_cast<std::size_t>(i)], z[static_cast<std::size_t>(i)], tolerance)
                        << in << " -> " << out << " safe " << safe << " block " << block << " frame " << i % n
                        << " of " << n << (i < n ? " left" : " right");
                }
            }
        }
    }
}
