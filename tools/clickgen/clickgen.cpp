// Synthesises the metronome's five click sets into a folder: for every set three files
// "<Set>_accent_hi.raw", "<Set>_accent_lo.raw" and "<Set>_noaccent.raw", headerless signed 16-bit
// little-endian interleaved stereo at 44100 Hz. The frame counts are fixed: the metronome and the
// project's users expect each set's clicks to have exactly these lengths.
//
// Every sound is made here from oscillators, noise and envelopes; the output is deterministic, so
// the files in resources/clicks/ can be regenerated and compared byte for byte.
//
// Usage: clickgen OUTDIR

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

constexpr double kRate = 44100.0;
constexpr double kPi = 3.14159265358979323846;

/** Which of the three clicks of a set is being made. */
enum class Kind
{
    AccentHi,
    AccentLo,
    NoAccent,
};

/** A small deterministic noise source (xorshift), so that runs give identical files. */
class Noise
{
public:
    explicit Noise(std::uint32_t seed) : state_(seed ? seed : 1u) {}
    double next()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return static_cast<double>(state_) / 2147483648.0 - 1.0;
    }

private:
    std::uint32_t state_;
};

/** Two-pole resonator used to colour noise bursts. */
class Resonator
{
public:
    Resonator(double freq, double q)
    {
        const double w = 2.0 * kPi * freq / kRate;
        const double alpha = std::sin(w) / (2.0 * q);
        const double a0 = 1.0 + alpha;
        b0_ = alpha / a0;
        b2_ = -alpha / a0;
        a1_ = -2.0 * std::cos(w) / a0;
        a2_ = (1.0 - alpha) / a0;
    }
    double process(double x)
    {
        const double y = b0_ * x + b2_ * x2_ - a1_ * y1_ - a2_ * y2_;
        x2_ = x1_;
        x1_ = x;
        y2_ = y1_;
        y1_ = y;
        return y;
    }

private:
    double b0_ = 0, b2_ = 0, a1_ = 0, a2_ = 0;
    double x1_ = 0, x2_ = 0, y1_ = 0, y2_ = 0;
};

double pitchFor(Kind kind, double hi, double lo, double plain)
{
    switch (kind)
    {
    case Kind::AccentHi:
        return hi;
    case Kind::AccentLo:
        return lo;
    case Kind::NoAccent:
        break;
    }
    return plain;
}

double levelFor(Kind kind)
{
    // The first beat stands out by level as well as by pitch.
    return kind == Kind::AccentHi ? 0.70 : 0.50;
}

// A short dry tick: a sine burst with a very fast decay, like a wood block.
std::vector<double> classic(Kind kind, std::size_t frames)
{
    const double f = pitchFor(kind, 2200.0, 1650.0, 1650.0);
    std::vector<double> out(frames);
    for (std::size_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / kRate;
        const double env = std::exp(-t * 180.0);
        out[i] = env * (std::sin(2 * kPi * f * t) + 0.25 * std::sin(2 * kPi * 2.01 * f * t));
    }
    return out;
}

// A rim click: a bright noise crack into a resonant body that rings on.
std::vector<double> sidestick(Kind kind, std::size_t frames)
{
    const double body = pitchFor(kind, 520.0, 430.0, 430.0);
    Noise noise(0x51de5u + static_cast<std::uint32_t>(kind));
    Resonator crack(3200.0, 2.5);
    Resonator ring(body * 2.7, 30.0);
    std::vector<double> out(frames);
    for (std::size_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / kRate;
        const double n = noise.next();
        const double burst = crack.process(n) * std::exp(-t * 120.0) * 2.0;
        const double tone = std::sin(2 * kPi * body * t) * std::exp(-t * 14.0);
        const double shimmer = ring.process(n * std::exp(-t * 40.0)) * 3.0;
        out[i] = burst + 0.6 * tone + shimmer;
    }
    return out;
}

// Electronic sticks: a frequency-modulated ping with a falling modulation index.
std::vector<double> elSticks(Kind kind, std::size_t frames)
{
    const double carrier = pitchFor(kind, 1800.0, 1350.0, 1200.0);
    std::vector<double> out(frames);
    for (std::size_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / kRate;
        const double index = 3.0 * std::exp(-t * 30.0);
        const double env = std::exp(-t * 11.0);
        out[i] = env * std::sin(2 * kPi * carrier * t + index * std::sin(2 * kPi * carrier * 1.41 * t));
    }
    return out;
}

// A bell of two detuned square-ish partials through a decay, like a small cowbell.
std::vector<double> perc1(Kind kind, std::size_t frames)
{
    const double f = pitchFor(kind, 800.0, 587.0, 540.0);
    std::vector<double> out(frames);
    for (std::size_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / kRate;
        const double a = std::tanh(4.0 * std::sin(2 * kPi * f * t));
        const double b = std::tanh(4.0 * std::sin(2 * kPi * f * 1.48 * t));
        const double env = std::exp(-t * 16.0) * (1.0 - std::exp(-t * 3000.0));
        out[i] = 0.5 * env * (a + b);
    }
    return out;
}

// A small tom: a sine whose pitch drops quickly after the hit, with a touch of noise.
std::vector<double> perc2(Kind kind, std::size_t frames)
{
    const double f0 = pitchFor(kind, 330.0, 250.0, 220.0);
    Noise noise(0x9e2cu + static_cast<std::uint32_t>(kind));
    std::vector<double> out(frames);
    double phase = 0.0;
    for (std::size_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / kRate;
        const double f = f0 * (1.0 + 0.8 * std::exp(-t * 35.0));
        phase += 2 * kPi * f / kRate;
        const double env = std::exp(-t * 9.0);
        out[i] = env * std::sin(phase) + 0.15 * noise.next() * std::exp(-t * 200.0);
    }
    return out;
}

/** Scales to the kind's peak level and fades the last 5 ms to exact silence. */
void finish(std::vector<double>& s, Kind kind)
{
    double peak = 0.0;
    for (double v : s)
        peak = std::max(peak, std::abs(v));
    const double gain = peak > 0.0 ? levelFor(kind) / peak : 0.0;
    const std::size_t fade = std::min<std::size_t>(s.size(), static_cast<std::size_t>(kRate * 0.005));
    for (std::size_t i = 0; i < s.size(); ++i)
    {
        double g = gain;
        const std::size_t fromEnd = s.size() - 1 - i;
        if (fromEnd < fade)
            g *= static_cast<double>(fromEnd) / static_cast<double>(fade);
        s[i] *= g;
    }
}

bool writeRaw(const std::string& path, const std::vector<double>& s)
{
    std::vector<unsigned char> bytes;
    bytes.reserve(s.size() * 4);
    for (double v : s)
    {
        const long q = std::lround(std::clamp(v, -1.0, 1.0) * 32767.0);
        const auto u = static_cast<std::uint16_t>(static_cast<std::int16_t>(q));
        for (int ch = 0; ch < 2; ++ch)
        {
            bytes.push_back(static_cast<unsigned char>(u & 0xff));
            bytes.push_back(static_cast<unsigned char>(u >> 8));
        }
    }
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return std::fclose(f) == 0 && ok;
}

struct ClickSet
{
    const char* name;
    std::size_t accentHiFrames;
    std::size_t otherFrames;
    std::vector<double> (*make)(Kind, std::size_t);
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: clickgen OUTDIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    const ClickSet sets[] = {
        {"Classic", 1292, 1292, classic},      {"Sidestick", 18228, 18228, sidestick},
        {"El_Sticks", 19404, 19992, elSticks}, {"Perc_1", 12936, 12936, perc1},
        {"Perc_2", 18228, 18228, perc2},
    };
    const struct
    {
        Kind kind;
        const char* ending;
    } files[] = {{Kind::AccentHi, "_accent_hi.raw"},
                 {Kind::AccentLo, "_accent_lo.raw"},
                 {Kind::NoAccent, "_noaccent.raw"}};

    for (const ClickSet& set : sets)
    {
        for (const auto& file : files)
        {
            const std::size_t frames = file.kind == Kind::AccentHi ? set.accentHiFrames : set.otherFrames;
            std::vector<double> samples = set.make(file.kind, frames);
            finish(samples, file.kind);
            const std::string path = dir + "/" + set.name + file.ending;
            if (!writeRaw(path, samples))
            {
                std::fprintf(stderr, "clickgen: cannot write %s\n", path.c_str());
                return 1;
            }
        }
    }
    return 0;
}
