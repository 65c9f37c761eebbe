// The reference amp's signal processing, part by part and whole.

#include "plugins/refamp/AmpState.h"
#include "plugins/refamp/Cabinet.h"
#include "plugins/refamp/Convolver.h"
#include "plugins/refamp/Dsp.h"
#include "plugins/refamp/Oversampler.h"
#include "plugins/refamp/Preamp.h"
#include "plugins/refamp/RefAmp.h"

#include "tests/support/CountedAllocations.h"
#include "tests/support/Signal.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <complex>
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
        out[i] = level * static_cast<float>(std::sin(2.0 * kPi * hz * static_cast<double>(i) / rate));
    return out;
}

std::vector<float> noise(std::size_t frames, std::mt19937& random, float level = 1.0f)
{
    std::uniform_real_distribution<float> uniform(-level, level);
    std::vector<float> out(frames);
    for (float& x : out)
        x = uniform(random);
    return out;
}

/** The response of taps at hz for a rate, in dB. */
double responseDb(const std::vector<float>& taps, double hz, double rate)
{
    std::complex<double> sum;
    for (std::size_t n = 0; n < taps.size(); ++n)
        sum += double(taps[n]) * std::polar(1.0, -2.0 * kPi * hz * static_cast<double>(n) / rate);
    return 20.0 * std::log10(std::abs(sum));
}

constexpr int kSpectrumSize = 65536;

/**
 * A sine of 2 kHz through the preamp at full drive, its spectrum under a four-term Blackman-Harris
 * window (side lobes below -92 dB): the third harmonic, and the strongest bin below 20 kHz further
 * than 10 bins from every harmonic (an alias), both in dB against the fundamental.
 */
std::pair<double, double> preampThirdAndAlias(int factor)
{
    Preamp preamp(factor);
    preamp.prepare(kRate);
    preamp.setDrive(kDriveMax);
    preamp.reset();
    const int settle = 8192;
    std::vector<float> signal = sine(static_cast<std::size_t>(settle + kSpectrumSize), 2000.0);
    for (std::size_t done = 0; done < signal.size(); done += Preamp::kMaxFrames)
        preamp.process(signal.data() + done, Preamp::kMaxFrames);
    std::vector<std::complex<float>> data(kSpectrumSize);
    for (int i = 0; i < kSpectrumSize; ++i)
    {
        const double t = 2.0 * kPi * i / (kSpectrumSize - 1);
        const double w =
            0.35875 - 0.48829 * std::cos(t) + 0.14128 * std::cos(2 * t) - 0.01168 * std::cos(3 * t);
        data[static_cast<std::size_t>(i)] =
            static_cast<float>(signal[static_cast<std::size_t>(settle + i)] * w);
    }
    Fft fft;
    fft.setSize(kSpectrumSize);
    fft.forward(data.data());
    const double binHz = kRate / kSpectrumSize;
    auto level = [&](int k) { return double(std::abs(data[static_cast<std::size_t>(k)])); };
    auto peakNear = [&](double f)
    {
        const auto centre = static_cast<int>(std::lround(f / binHz));
        double peak = 0.0;
        for (int k = centre - 4; k <= centre + 4; ++k)
            peak = std::max(peak, level(k));
        return peak;
    };
    double alias = 1e-30;
    for (int k = 5; k * binHz < 20000.0; ++k)
        if (std::fabs(k * binHz - std::round(k * binHz / 2000.0) * 2000.0) / binHz > 10.0)
            alias = std::max(alias, level(k));
    return {20.0 * std::log10(peakNear(6000.0) / peakNear(2000.0)),
            20.0 * std::log10(alias / peakNear(2000.0))};
}

void process(RefAmp& amp, std::vector<float>& l, std::vector<float>& r)
{
    float* io[2] = {l.data(), r.data()};
    amp.process(io, io, static_cast<int>(l.size()));
}

} // namespace

TEST(RefAmpAliasing, FullDriveOnA2kHzSineAliasesBelowMinus90dBWithOversampling)
{
    const auto [third, alias] = preampThirdAndAlias(Oversampler::kFactor);
    EXPECT_GT(third, -30.0); // the drive really distorts
    EXPECT_LT(alias, -90.0);
    // The same stages without oversampling alias audibly: the measurement can tell.
    EXPECT_GT(preampThirdAndAlias(1).second, -60.0);
}

TEST(RefAmpOversampler, PassesTheBandAndDelaysByItsLatency)
{
    Oversampler os;
    os.prepare(64);
    const double hz = 1000.0;
    std::vector<float> in = sine(8192, hz), out(8192), high(256);
    for (std::size_t done = 0; done < in.size(); done += 64)
    {
        os.up(in.data() + done, high.data(), 64);
        os.down(high.data(), out.data() + done, 64);
    }
    double worst = 0.0;
    for (std::size_t i = 4096; i < 8000; ++i)
    {
        const double t = static_cast<double>(i) - Oversampler::latency();
        worst = std::max(worst, std::fabs(out[i] - std::sin(2.0 * kPi * hz * t / kRate)));
    }
    EXPECT_LT(worst, 2e-3);
    // Past the base rate's Nyquist frequency the prototype is far down.
    EXPECT_LT(responseDb(os.taps(), 0.6, 4.0), -85.0);
}

TEST(RefAmpConvolver, MatchesADirectConvolutionWithoutLatency)
{
    std::mt19937 random(7);
    const int frames = 3000;
    for (const int length : {1, 63, 64, 65, 200, 1000})
    {
        const std::vector<float> response = noise(static_cast<std::size_t>(length), random);
        Convolver convolver;
        convolver.prepare(response);
        const std::vector<float> in[2] = {noise(frames, random), noise(frames, random)};
        std::vector<float> out[2] = {std::vector<float>(frames), std::vector<float>(frames)};
        // Blocks of changing size, some not a multiple of the partition.
        std::uniform_int_distribution<int> sizes(1, 200);
        for (int done = 0; done < frames;)
        {
            const int n = std::min(sizes(random), frames - done);
            convolver.process(in[0].data() + done, in[1].data() + done, out[0].data() + done,
                              out[1].data() + done, n);
            done += n;
        }
        double worst = 0.0;
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < frames; ++n)
            {
                double y = 0.0;
                for (int k = 0; k < length && k <= n; ++k)
                    y += double(response[static_cast<std::size_t>(k)]) *
                         in[c][static_cast<std::size_t>(n - k)];
                worst = std::max(worst, std::fabs(y - out[c][static_cast<std::size_t>(n)]));
            }
        EXPECT_LT(worst, 1e-3 * std::sqrt(static_cast<double>(length))) << "length " << length;
    }
}

TEST(RefAmpCabinet, IsVoicedLikeASpeaker)
{
    for (const double rate : {44100.0, 48000.0, 96000.0})
    {
        const std::vector<float> ir = designCabinet(rate);
        auto level = [&](double hz) { return responseDb(ir, hz, rate); };
        EXPECT_NEAR(level(1000.0), 0.0, 0.01) << rate;
        EXPECT_LT(level(30.0), level(110.0) - 12.0) << rate; // sealed box: no deep lows
        EXPECT_LT(level(12000.0), -30.0) << rate;            // the speaker's roll-off
        EXPECT_GT(level(2200.0), level(1000.0)) << rate;     // presence peak
        EXPECT_LT(std::fabs(ir.back()), 1e-4) << rate;       // faded out, no step at the end
    }
}

// Every value comes back and the text keeps its form, under a decimal comma locale too.
TEST(RefAmpState, RoundTripsEveryValueInAnyLocale)
{
    const std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    for (const char* locale : {"C", "de_DE.UTF-8", "fr_FR.UTF-8"})
    {
        if (std::setlocale(LC_NUMERIC, locale) == nullptr)
            continue;
        AmpParams p = builtInProgram(1);
        p.master = -7.25f;
        p.bass = 3.5f;
        p.reverb = 0.3f;
        const std::string text = writeState(p);
        AmpParams back = builtInProgram(0);
        const bool read = readState(text, back);
        std::setlocale(LC_NUMERIC, saved.c_str());
        EXPECT_NE(text.find("\t<Program>\r\n\t\t<name>crunch</name>\r\n"), std::string::npos);
        EXPECT_NE(text.find("<master>-7.25</master>"), std::string::npos) << locale;
        ASSERT_TRUE(read) << locale;
        EXPECT_EQ(back.program, 1);
        EXPECT_FLOAT_EQ(back.master, -7.25f);
        EXPECT_FLOAT_EQ(back.bass, 3.5f);
        EXPECT_FLOAT_EQ(back.reverb, 0.3f);
        EXPECT_FLOAT_EQ(back.drive, p.drive);
        EXPECT_EQ(writeState(back), text);
    }
}

TEST(RefAmpState, BadTextChangesNothingAndNoValueLeavesItsRange)
{
    AmpParams p = builtInProgram(2);
    AmpParams q = p;
    for (const std::string& bad :
         {std::string(), std::string("garbage <Program> without end"), std::string("\0\xff\x01", 3)})
        EXPECT_FALSE(readState(bad, q));
    EXPECT_EQ(writeState(q), writeState(p));
    ASSERT_TRUE(readState("<Program><drive>500</drive><master>nan</master><bass>1e</bass>"
                          "<mid> -40 </mid><name>nonsense</name></Program>",
                          q));
    EXPECT_FLOAT_EQ(q.drive, kDriveMax);
    EXPECT_FLOAT_EQ(q.master, p.master); // not a number: kept
    EXPECT_FLOAT_EQ(q.bass, p.bass);     // not a whole number: kept
    EXPECT_FLOAT_EQ(q.mid, -kToneRange);
    EXPECT_EQ(q.program, 2);

    std::mt19937 random(5);
    const std::string pieces[] = {"<Program>", "</Program>", "<drive>", "</drive>", "<master>", "</master>",
                                  "1e38",      "-inf",       "nan",     "<name>",   "lead",     "</name>",
                                  "\r\n",      "<",          ">",       "/",        "0.5",      "\xff"};
    for (int round = 0; round < 2000; ++round)
    {
        std::string text;
        for (int i = static_cast<int>(random() % 12); i > 0; --i)
        {
            text += pieces[random() % std::size(pieces)];
            if (random() % 4 == 0)
                text += static_cast<char>(random() % 256);
        }
        AmpParams r = builtInProgram(0);
        readState(text, r);
        ASSERT_TRUE(r.drive >= 0.0f && r.drive <= kDriveMax) << text;
        ASSERT_TRUE(r.master >= kMasterMin && r.master <= kMasterMax) << text;
        ASSERT_TRUE(r.program >= 0 && r.program < kProgramCount) << text;
    }
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
    amp.handleMidi(0xB0u | (8u << 8) | (0u << 16)); // another controller: ignored
    amp.handleMidi(0x90u | (7u << 8) | (0u << 16)); // a note: ignored
    EXPECT_NEAR(amp.params().master, 40.0 * std::log10(64.0 / 127.0), 1e-4);
    EXPECT_EQ(amp.params().program, 2);

    // Master at 0 silences the amp once the room has died away.
    amp.setSampleRate(48000.0);
    amp.handleMidi(0xB0u | (7u << 8));
    std::vector<float> l(48000, 0.5f), r(48000, 0.5f);
    process(amp, l, r);
    EXPECT_LT(std::fabs(l.back()) + std::fabs(r.back()), 1e-7f);
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
    std::vector<float> l = noise(24000, random, 2e-4f), r = l; // about -80 dB
    process(amp, l, r);
    EXPECT_LT(testsignal::peak(l.data() + 12000, 12000), 1e-6);
    l = r = sine(l.size(), 220.0, 48000.0, 0.2f);
    process(amp, l, r);
    EXPECT_GT(testsignal::peak(l.data() + 12000, 12000), 0.05);
}

// Blocks of 64, or of random sizes with MIDI among them that ends where it began: the same sound,
// and no allocation.
TEST(RefAmp, ProcessingNeitherAllocatesNorDependsOnTheBlockSize)
{
    std::mt19937 random(11);
    const std::vector<float> input = noise(20000, random, 0.5f);
    std::uniform_int_distribution<int> sizes(1, 700);
    auto run = [&](bool randomSizes)
    {
        RefAmp amp;
        amp.setSampleRate(48000.0);
        amp.selectProgram(2);
        amp.reset();
        std::vector<float> l = input, r = input;
        const testsupport::CountedAllocations counting;
        for (int done = 0, n = 0; done < 20000; done += n)
        {
            n = std::min(randomSizes ? sizes(random) : 64, 20000 - done);
            float* io[2] = {l.data() + done, r.data() + done};
            amp.process(io, io, n);
            if (randomSizes && done == 0)
            {
                amp.handleMidi(0xB0u | (7u << 8) | (100u << 16));
                amp.handleMidi(0xB0u | (7u << 8) | (127u << 16));
                amp.handleMidi(0xC2u | (2u << 8));
            }
        }
        EXPECT_EQ(counting.count(), 0);
        l.insert(l.end(), r.begin(), r.end());
        return l;
    };
    EXPECT_EQ(run(false), run(true));
}

TEST(RefAmp, NonFiniteInputBecomesSilenceAndDoesNotStick)
{
    RefAmp amp;
    amp.setSampleRate(48000.0);
    std::vector<float> l(256, 0.1f), r(256, 0.1f);
    l[10] = std::nanf("");
    r[20] = INFINITY;
    process(amp, l, r);
    std::vector<float> l2(4800, 0.1f), r2(4800, 0.1f);
    process(amp, l2, r2);
    for (std::size_t i = 0; i < l2.size(); ++i)
        ASSERT_TRUE(std::isfinite(l2[i]) && std::isfinite(r2[i])) << i;
    EXPECT_GT(std::fabs(l2.back()) + std::fabs(r2.back()), 0.0f);
}
