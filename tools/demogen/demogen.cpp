// Synthesises the audio of the demo session: a bass line and a chord part of four bars in A minor
// at 100 beats a minute, meant to loop. The bass is written at 44100 Hz and the chords at 48000 Hz
// so that the demo also exercises the resampler on a 48 kHz or 44.1 kHz session. FLAC keeps them
// small enough for the repository. Deterministic: the same files every run.
//
// Usage: demogen OUTDIR

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

constexpr double kPi = 3.14159265358979323846;
constexpr double kTempo = 100.0;
constexpr int kBars = 4;
constexpr double kBeat = 60.0 / kTempo;
constexpr double kLength = kBars * 4 * kBeat; // seconds

double midiToHz(int note)
{
    return 440.0 * std::pow(2.0, (note - 69) / 12.0);
}

/** Adds one note: a few harmonics under an attack-decay envelope. */
void addNote(std::vector<double>& out, double rate, double start, double length, double freq, double level,
             const std::vector<double>& harmonics, double decay)
{
    const auto first = static_cast<std::size_t>(start * rate);
    const auto count = static_cast<std::size_t>(length * rate);
    const double release = 0.02;
    for (std::size_t i = 0; i < count && first + i < out.size(); ++i)
    {
        const double t = static_cast<double>(i) / rate;
        double env = (1.0 - std::exp(-t * 400.0)) * std::exp(-t * decay);
        const double left = length - t;
        if (left < release)
            env *= left / release;
        double v = 0.0;
        for (std::size_t h = 0; h < harmonics.size(); ++h)
            v += harmonics[h] * std::sin(2.0 * kPi * freq * static_cast<double>(h + 1) * t);
        out[first + i] += level * env * v;
    }
}

std::vector<double> bass(double rate)
{
    std::vector<double> out(static_cast<std::size_t>(kLength * rate));
    // Root notes of Am - F - C - G, played in eighths with an octave jump on the offbeat of beat 4.
    const int roots[kBars] = {45, 41, 48, 43};
    for (int bar = 0; bar < kBars; ++bar)
        for (int eighth = 0; eighth < 8; ++eighth)
        {
            const int note = roots[bar] - 12 + (eighth == 7 ? 12 : 0);
            const double start = (bar * 4 + eighth * 0.5) * kBeat;
            addNote(out, rate, start, 0.45 * kBeat, midiToHz(note), 0.5, {1.0, 0.45, 0.2, 0.1}, 3.0);
        }
    return out;
}

std::vector<double> chords(double rate)
{
    std::vector<double> out(static_cast<std::size_t>(kLength * rate));
    const int voicings[kBars][3] = {{57, 60, 64}, {53, 57, 60}, {55, 60, 64}, {55, 59, 62}};
    for (int bar = 0; bar < kBars; ++bar)
        for (int hit = 0; hit < 4; ++hit)
        {
            // Strummed on every beat, the notes a few milliseconds apart.
            for (int n = 0; n < 3; ++n)
            {
                const double start = (bar * 4 + hit) * kBeat + n * 0.012;
                addNote(out, rate, start, 0.9 * kBeat, midiToHz(voicings[bar][n]), 0.22,
                        {1.0, 0.6, 0.35, 0.25, 0.12}, 2.2);
            }
        }
    return out;
}

bool writeFlac(const std::string& path, const std::vector<double>& samples, int rate)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
    {
        std::fprintf(stderr, "demogen: cannot write %s: %s\n", path.c_str(), sf_strerror(nullptr));
        return false;
    }
    double peak = 0.0;
    for (double v : samples)
        peak = std::max(peak, std::abs(v));
    std::vector<float> scaled(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
        scaled[i] = static_cast<float>(samples[i] * (peak > 0.0 ? 0.7 / peak : 0.0));
    const sf_count_t written = sf_writef_float(file, scaled.data(), static_cast<sf_count_t>(scaled.size()));
    return sf_close(file) == 0 && written == static_cast<sf_count_t>(scaled.size());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: demogen OUTDIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    if (!writeFlac(dir + "/demo_bass.flac", bass(44100.0), 44100))
        return 1;
    if (!writeFlac(dir + "/demo_chords.flac", chords(48000.0), 48000))
        return 1;
    return 0;
}
