// The reference amp's signal processing, part by part and whole: aliasing of the oversampled
// stages, the convolution against a direct one, the cabinet's voicing, the gate, the state and MIDI,
// and that processing neither allocates nor depends on the block size.

#include "plugins/refamp/AmpState.h"
#include "plugins/refamp/Cabinet.h"
#include "plugins/refamp/Convolver.h"
#include "plugins/refamp/Dsp.h"
#include "plugins/refamp/Oversampler.h"
#include "plugins/refamp/Preamp.h"
#include "plugins/refamp/RefAmp.h"
#include "tests/plugin/Spectrum.h"

#include "tests/support/CountedAllocations.h"
#include "tests/support/Signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <random>
#include <vector>

using namespace refamp;

namespace
{

constexpr double kRate = 44100.0; // 2 kHz does not divide it, so aliases fall between harmonics

std::vector<float> sine(std::size_t frames, double hz, double rate = kRate, float level = 1.0f)
{
    std::vector<float> out(frames);
    for (std::size_t i = 0; i < frames; ++i)
    {
        out[i] = level * static_cast<float>(std::sin(2.0 * kPi * hz * static_cast<double>(i) / rate));
    }
    return out;
}

/** Runs a sine through the preamp at full drive and returns the output's spectrum figures. */
kv3test::AliasReport preampAliasing(int factor)
{
    Preamp preamp(factor);
    preamp.prepare(kRate);
    preamp.setDrive(kDriveMax);
    preamp.reset();
    const int settle = 8192;
    std::vector<float> signal = sine(static_cast<std::size_t>(settle + kv3test::kSpectrumSize), 2000.0);
    for (std::size_t done = 0; done < signal.size(); done += Preamp::kMaxFrames)
    {
        preamp.process(signal.data() + done, Preamp::kMaxFrames);
    }
    return kv3test::measureAliasing(signal.data() + settle, kRate, 2000.0);
}

} // namespace

TEST(RefAmpAliasing, FullDriveOnA2kHzSineAliasesBelowMinus90dBWithOversampling)
{
    const kv3test::AliasReport oversampled = preampAliasing(Oversampler::kFactor);
    const kv3test::AliasReport plain = preampAliasing(1);
    std::printf(
        "aliasing at full drive, 2 kHz at 44.1 kHz: 4x %.1f dB, 1x %.1f dB (largest harmonic %.1f dB)\n",
        oversampled.worstAliasDb, plain.worstAliasDb, oversampled.thirdHarmonicDb);
    // The drive really distorts: strong harmonics.
    EXPECT_GT(oversampled.thirdHarmonicDb, -30.0);
    EXPECT_LT(oversampled.worstAliasDb, -90.0);
    // The same stages without oversampling alias audibly: the measurement can tell.
    EXPECT_GT(plain.worstAliasDb, -60.0);
}

TEST(RefAmpOversampler, PassesTheBandAndDelaysByItsLatency)
{
    Oversampler up;
    up.prepare(64);
    Oversampler down;
    down.prepare(64);
    const double hz = 1000.0;
    std::vector<float> in = sine(8192, hz), out(8192), high(256);
    for (std::size_t done = 0; done < in.size(); done += 64)
    {
        up.up(in.data() + done, high.data(), 64);
        up.down(high.data(), out.data() + done, 64);
    }
    // After the round trip the sine is the input, delayed by the latency.
    const double latency = Oversampler::latency();
    double worst = 0.0;
    for (std::size_t i = 4096; i < 8000; ++i)
    {
        const double expected = std::sin(2.0 * kPi * hz * (static_cast<double>(i) - latency) / kRate);
        worst = std::max(worst, std::fabs(out[i] - expected));
    }
    EXPECT_LT(worst, 2e-3);
    // The prototype's gain at DC is 1 and past the base Nyquist frequency it is tiny.
    double dc = 0.0;
    std::complex<double> stop;
    for (std::size_t k = 0; k < up.taps().size(); ++k)
    {
        dc += up.taps()[k];
        stop += double(up.taps()[k]) * std::polar(1.0, -2.0 * kPi * 0.6 / 4.0 * static_cast<double>(k));
    }
    EXPECT_NEAR(dc, 1.0, 1e-5);
    EXPECT_LT(20.0 * std::log10(std::abs(stop)), -85.0);
}

TEST(RefAmpConvolver, MatchesADirectConvolutionWithoutLatency)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    for (const int length : {1, 63, 64, 65, 200, 1000})
    {
        std::vector<float> response(static_cast<std::size_t>(length));
        for (auto& h : response)
        {
            h = uniform(random);
        }
        Convolver convolver;
        convolver.prepare(response);
        const int frames = 3000;
        std::vector<float> inL(frames), inR(frames), outL(frames), outR(frames);
        for (int i = 0; i < frames; ++i)
        {
            inL[static_cast<std::size_t>(i)] = uniform(random);
            inR[static_cast<std::size_t>(i)] = uniform(random);
        }
        // Blocks of changing size, some not a multiple of the partition.
        std::uniform_int_distribution<int> sizes(1, 200);
        for (int done = 0; done < frames;)
        {
            const int n = std::min(sizes(random), frames - done);
            convolver.process(inL.data() + done, inR.data() + done, outL.data() + done, outR.data() + done,
                              n);
            done += n;
        }
        double worst = 0.0;
        for (int n = 0; n < frames; ++n)
        {
            double l = 0.0, r = 0.0;
            for (int k = 0; k < length && k <= n; ++k)
            {
                l += double(response[static_cast<std::size_t>(k)]) * inL[static_cast<std::size_t>(n - k)];
                r += double(response[static_cast<std::size_t>(k)]) * inR[static_cast<std::size_t>(n - k)];
            }
            worst = std::max({worst, std::fabs(l - outL[static_cast<std::size_t>(n)]),
                              std::fabs(r - outR[static_cast<std::size_t>(n)])});
        }
        EXPECT_LT(worst, 1e-3 * std::sqrt(static_cast<double>(length))) << "length " << length;
    }
}

TEST(RefAmpCabinet, IsVoicedLikeASpeaker)
{
    for (const double rate : {44100.0, 48000.0, 96000.0})
    {
        const std::vector<float> ir = designCabinet(rate);
        ASSERT_EQ(ir.size() % 64, 0u);
        EXPECT_NEAR(static_cast<double>(ir.size()) / rate, 0.0213, 0.002);
        auto level = [&](double hz)
        {
            std::complex<double> sum;
            for (std::size_t n = 0; n < ir.size(); ++n)
            {
                sum += double(ir[n]) * std::polar(1.0, -2.0 * kPi * hz * static_cast<double>(n) / rate);
            }
            return 20.0 * std::log10(std::abs(sum));
        };
        EXPECT_NEAR(level(1000.0), 0.0, 0.01) << rate;
        EXPECT_LT(level(30.0), level(110.0) - 12.0) << rate; // sealed box: no deep lows
        EXPECT_LT(level(12000.0), -30.0) << rate;            // the speaker's roll-off
        EXPECT_GT(level(2200.0), level(1000.0)) << rate;     // presence peak
        EXPECT_LT(std::fabs(ir.back()), 1e-4) << rate;       // faded out, no step at the end
    }
}

TEST(RefAmpState, RoundTripsEveryValueAndKeepsItsForm)
{
    AmpParams p = builtInProgram(1);
    p.master = -7.25f;
    p.bass = 3.5f;
    p.reverb = 0.3f;
    const std::string text = writeState(p);
    EXPECT_NE(text.find("\t<Program>\r\n\t\t<name>crunch</name>\r\n"), std::string::npos);
    AmpParams back = builtInProgram(0);
    ASSERT_TRUE(readState(text, back));
    EXPECT_EQ(back.program, 1);
    EXPECT_FLOAT_EQ(back.master, -7.25f);
    EXPECT_FLOAT_EQ(back.bass, 3.5f);
    EXPECT_FLOAT_EQ(back.reverb, 0.3f);
    EXPECT_FLOAT_EQ(back.drive, p.drive);
    EXPECT_EQ(writeState(back), text);
}

TEST(RefAmpState, BadTextChangesNothingAndBadValuesAreTamed)
{
    AmpParams p = builtInProgram(2);
    AmpParams q = p;
    EXPECT_FALSE(readState("", q));
    EXPECT_FALSE(readState("garbage <Program> without end", q));
    EXPECT_FALSE(readState(std::string("\0\xff\x01", 3), q));
    EXPECT_EQ(writeState(q), writeState(p));
    ASSERT_TRUE(readState("<Program><drive>500</drive><master>nan</master><bass>1e</bass>"
                          "<mid> -40 </mid><name>nonsense</name></Program>",
                          q));
    EXPECT_FLOAT_EQ(q.drive, kDriveMax);
    EXPECT_FLOAT_EQ(q.master, p.master); // not a number: kept
    EXPECT_FLOAT_EQ(q.bass, p.bass);     // not a whole number: kept
    EXPECT_FLOAT_EQ(q.mid, -kToneRange);
    EXPECT_EQ(q.program, 2);
}

TEST(RefAmpState, RandomBytesNeverLeaveAValueOutOfRange)
{
    std::mt19937 random(5);
    const std::string pieces[] = {"<Program>", "</Program>", "<drive>", "</drive>", "<master>", "</master>",
                                  "1e38",      "-inf",       "nan",     "<name>",   "lead",     "</name>",
                                  "\r\n",      "<",          ">",       "/",        "0.5",      "\xff"};
    for (int round = 0; round < 2000; ++round)
    {
        std::string text;
        const int count = static_cast<int>(random() % 12);
        for (int i = 0; i < count; ++i)
        {
            text += pieces[random() % std::size(pieces)];
            if (random() % 4 == 0)
            {
                text += static_cast<char>(random() % 256);
            }
        }
        AmpParams p = builtInProgram(0);
        readState(text, p);
        EXPECT_GE(p.drive, 0.0f) << text;
        EXPECT_LE(p.drive, kDriveMax) << text;
        EXPECT_GE(p.master, kMasterMin) << text;
        EXPECT_LE(p.master, kMasterMax) << text;
        EXPECT_TRUE(p.program >= 0 && p.program < kProgramCount) << text;
    }
}

TEST(RefAmpState, NumbersDontDependOnTheLocale)
{
    const char* old = std::setlocale(LC_NUMERIC, nullptr);
    const std::string saved = old != nullptr ? old : "C";
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr &&
        std::setlocale(LC_NUMERIC, "fr_FR.UTF-8") == nullptr)
    {
        GTEST_SKIP() << "no locale with a decimal comma installed";
    }
    AmpParams p;
    p.master = -2.5f;
    const std::string text = writeState(p);
    AmpParams q;
    ASSERT_TRUE(readState(text, q));
    std::setlocale(LC_NUMERIC, saved.c_str());
    EXPECT_NE(text.find("<master>-2.50</master>"), std::string::npos);
    EXPECT_FLOAT_EQ(q.master, -2.5f);
}

TEST(RefAmpMidi, ProgramChangeAndMasterController)
{
    RefAmp amp;
    amp.handleMidi(0xC0u | (1u << 8));
    EXPECT_EQ(amp.params().program, 1);
    EXPECT_FLOAT_EQ(amp.params().drive, builtInProgram(1).drive);
    amp.handleMidi(0xC5u | (5u << 8)); // any channel; 5 is program 2 of three
    EXPECT_EQ(amp.params().program, 2);
    amp.handleMidi(0xB0u | (7u << 8) | (127u << 16));
    EXPECT_FLOAT_EQ(amp.params().master, 0.0f);
    amp.handleMidi(0xB0u | (7u << 8) | (64u << 16));
    EXPECT_NEAR(amp.params().master, 40.0 * std::log10(64.0 / 127.0), 1e-4);
    amp.handleMidi(0xB0u | (8u << 8) | (0u << 16)); // another controller: ignored
    EXPECT_NEAR(amp.params().master, 40.0 * std::log10(64.0 / 127.0), 1e-4);
    amp.handleMidi(0x90u | (7u << 8) | (0u << 16)); // a note: ignored
    EXPECT_EQ(amp.params().program, 2);

    // Master at 0 silences the amp once the room has died away.
    amp.setSampleRate(48000.0);
    amp.handleMidi(0xB0u | (7u << 8));
    std::vector<float> l(48000, 0.5f), r(48000, 0.5f);
    float* io[2] = {l.data(), r.data()};
    amp.process(io, io, 48000);
    EXPECT_LT(std::fabs(l.back()), 1e-7f);
    EXPECT_LT(std::fabs(r.back()), 1e-7f);
}

TEST(RefAmpGate, ClosesOnNoiseAndOpensForPlaying)
{
    RefAmp amp;
    amp.setSampleRate(48000.0);
    AmpParams p = builtInProgram(1);
    p.reverb = 0.0f;
    amp.setParams(p);
    amp.reset();
    std::mt19937 random(3);
    std::normal_distribution<float> noise(0.0f, 1e-4f); // about -80 dB
    std::vector<float> l(24000), r(24000);
    for (std::size_t i = 0; i < l.size(); ++i)
    {
        l[i] = r[i] = noise(random);
    }
    float* io[2] = {l.data(), r.data()};
    amp.process(io, io, 24000);
    EXPECT_LT(testsignal::peak(l.data() + 12000, static_cast<int64_t>(l.size()) - 12000), 1e-6);
    l = r = sine(l.size(), 220.0, 48000.0, 0.2f);
    float* playing[2] = {l.data(), r.data()};
    amp.process(playing, playing, 24000);
    EXPECT_GT(testsignal::peak(l.data() + 12000, static_cast<int64_t>(l.size()) - 12000), 0.05);
}

TEST(RefAmp, ProcessingNeitherAllocatesNorDependsOnTheBlockSize)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<float> uniform(-0.5f, 0.5f);
    const int frames = 20000;
    std::vector<float> input(frames);
    for (auto& x : input)
    {
        x = uniform(random);
    }
    RefAmp a, b;
    for (RefAmp* amp : {&a, &b})
    {
        amp->setSampleRate(48000.0);
        amp->selectProgram(2);
        amp->reset();
    }
    std::vector<float> la = input, ra = input, lb = input, rb = input;
    std::optional<testsupport::CountedAllocations> counting(std::in_place);
    for (int done = 0; done < frames; done += 64)
    {
        float* io[2] = {la.data() + done, ra.data() + done};
        a.process(io, io, std::min(64, frames - done));
    }
    std::uniform_int_distribution<int> sizes(1, 700);
    for (int done = 0; done < frames;)
    {
        const int n = std::min(sizes(random), frames - done);
        const float* in[2] = {lb.data() + done, rb.data() + done};
        float* out[2] = {lb.data() + done, rb.data() + done};
        b.process(in, out, n);
        if (done == 100)
        {
            b.handleMidi(0xB0u | (7u << 8) | (100u << 16)); // MIDI doesn't allocate either
            b.handleMidi(0xB0u | (7u << 8) | (127u << 16));
            b.handleMidi(0xC2u | (2u << 8));
        }
        done += n;
    }
    EXPECT_EQ(counting->count(), 0);
    counting.reset();
    for (int i = 0; i < frames; ++i)
    {
        ASSERT_EQ(la[static_cast<std::size_t>(i)], lb[static_cast<std::size_t>(i)]) << i;
        ASSERT_EQ(ra[static_cast<std::size_t>(i)], rb[static_cast<std::size_t>(i)]) << i;
    }
}

TEST(RefAmp, NonFiniteInputBecomesSilenceAndDoesNotStick)
{
    RefAmp amp;
    amp.setSampleRate(48000.0);
    std::vector<float> l(256, 0.1f), r(256, 0.1f);
    l[10] = std::nanf("");
    r[20] = INFINITY;
    float* io[2] = {l.data(), r.data()};
    amp.process(io, io, 256);
    std::vector<float> l2(4800, 0.1f), r2(4800, 0.1f);
    float* io2[2] = {l2.data(), r2.data()};
    amp.process(io2, io2, 4800);
    for (std::size_t i = 0; i < l2.size(); ++i)
    {
        ASSERT_TRUE(std::isfinite(l2[i]) && std::isfinite(r2[i])) << i;
    }
    EXPECT_GT(std::fabs(l2.back()) + std::fabs(r2.back()), 0.0f);
}
