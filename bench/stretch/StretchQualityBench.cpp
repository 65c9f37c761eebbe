// Quality and cost of speed and pitch change, side by side in one run on the same material: the
// standard engine, the high-quality engine (both as the node a track plays, at block 64 behind the
// history reader), SoundTouch with its defaults, Rubber Band with its default (R2) engine and with its
// finer R3 engine, both in real-time mode, fed 64 frames at a time.
//
// Material at 48 kHz stereo: a steady 440 Hz tone, two tones (440 and 659.26 Hz), a sequence of
// plucked notes (six harmonics each, decaying), and a recording given on the command line (made with
// `espeak-ng -w voice.wav "..."`; any rate, mono or stereo).
//
// Figures per engine:
// - off: energy off the expected partials, dB of the total: everything further than 3 Hz from the
//   material's partials times the pitch ratio, over a Blackman-Harris window of 2^16 frames taken from
//   the middle of the output. Tones and plucked notes only.
// - SC: spectral convergence against the ideal stretched output, dB: the Frobenius norm of the
//   difference of magnitude spectrograms (Hann 2048, hop 512) over that of the reference. The ideal is
//   the synthesised material at the new tempo and pitch; for the recording, its own spectrogram read at
//   the stretched time with the frequency axis scaled by the pitch ratio.
// - lag: the output's offset against the ideal, ms (envelope cross-correlation; peers are compared at
//   their best lag, our nodes too, so the column shows what their latency compensation leaves).
// - CPU: ms of one core per second of stereo output, over all material of the setting.
//
// Usage: stretch_quality_bench [recording.wav [seconds]]   (default 8 s of each material)

#include "dsp/stretch/AudioFxPSTS.h"
#include "dsp/stretchhq/AudioFxHQStretch.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"
#include "engine/graph/ContiguousReader.h"

#include <SoundTouch.h>
#include <fftw3.h>
#include <rubberband/RubberBandStretcher.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <numbers>
#include <string>
#include <vector>

namespace
{

constexpr int32_t kRate = 48000;
constexpr int32_t kBlock = 64;
constexpr double kPi2 = 2.0 * std::numbers::pi;

double cpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

struct Stereo
{
    std::vector<float> l;
    std::vector<float> r;
    int64_t frames() const { return static_cast<int64_t>(l.size()); }
};

struct Partial
{
    double hz;
    double amplitude;
};

enum class Kind
{
    tone,
    twoTones,
    plucked,
    recording,
};

constexpr double kPluckEvery = 0.4; // seconds of source between notes
const double kPluckNotes[] = {196.0, 246.94, 293.66, 392.0, 329.63, 246.94};

// The synthetic material at a speed and pitch ratio: speed 1 and ratio 1 give the source itself,
// anything else the ideal stretched output (partials moved by the ratio, note onsets and decays
// spread by the speed).
Stereo synth(Kind kind, double sourceSeconds, double speed, double ratio)
{
    const auto frames = static_cast<int64_t>(std::llround(sourceSeconds * kRate / speed));
    Stereo s{std::vector<float>(static_cast<size_t>(frames)),
             std::vector<float>(static_cast<size_t>(frames))};
    for (int64_t i = 0; i < frames; ++i)
    {
        const double t = static_cast<double>(i) / kRate;
        double v = 0.0;
        if (kind == Kind::tone)
        {
            v = 0.5 * std::sin(kPi2 * 440.0 * ratio * t);
        }
        else if (kind == Kind::twoTones)
        {
            v = 0.3 * std::sin(kPi2 * 440.0 * ratio * t) + 0.3 * std::sin(kPi2 * 659.26 * ratio * t + 1.0);
        }
        else
        {
            const double ts = t * speed; // source time
            const auto note = static_cast<int64_t>(ts / kPluckEvery);
            const double since = (ts - static_cast<double>(note) * kPluckEvery); // source seconds
            const double f = kPluckNotes[note % 6] * ratio;
            const double attack = std::min(1.0, since / 0.002);
            for (int h = 1; h <= 6; ++h)
            {
                v += attack * 0.25 / h * std::exp(-since * h / 0.6) *
                     std::sin(kPi2 * f * h * since * 1.0 / speed);
            }
        }
        s.l[static_cast<size_t>(i)] = static_cast<float>(v);
        s.r[static_cast<size_t>(i)] = static_cast<float>(0.9 * v);
    }
    return s;
}

std::vector<Partial> partials(Kind kind, double ratio)
{
    std::vector<Partial> p;
    if (kind == Kind::tone || kind == Kind::twoTones)
    {
        p.push_back({440.0 * ratio, 1.0});
    }
    if (kind == Kind::twoTones)
    {
        p.push_back({659.26 * ratio, 1.0});
    }
    if (kind == Kind::plucked)
    {
        for (double f : kPluckNotes)
        {
            for (int h = 1; h <= 6; ++h)
            {
                p.push_back({f * h * ratio, 1.0});
            }
        }
    }
    return p;
}

bool readRecording(const char* path, double seconds, Stereo& out)
{
    SF_INFO info{};
    SNDFILE* f = sf_open(path, SFM_READ, &info);
    if (f == nullptr)
    {
        std::fprintf(stderr, "stretch_quality_bench: %s: %s\n", path, sf_strerror(nullptr));
        return false;
    }
    std::vector<float> in(static_cast<size_t>(info.frames * info.channels));
    sf_readf_float(f, in.data(), info.frames);
    sf_close(f);
    // Linear interpolation to 48 kHz: the material only has to be the same for every engine.
    const double step = static_cast<double>(info.samplerate) / kRate;
    const auto frames = std::min(static_cast<int64_t>(static_cast<double>(info.frames) / step) - 1,
                                 static_cast<int64_t>(seconds * kRate));
    out.l.resize(static_cast<size_t>(frames));
    out.r.resize(static_cast<size_t>(frames));
    for (int64_t i = 0; i < frames; ++i)
    {
        const double x = static_cast<double>(i) * step;
        const auto j = static_cast<int64_t>(x);
        const double a = x - static_cast<double>(j);
        for (int c = 0; c < 2; ++c)
        {
            const int cc = std::min(c, info.channels - 1);
            const float s0 = in[static_cast<size_t>(j * info.channels + cc)];
            const float s1 = in[static_cast<size_t>((j + 1) * info.channels + cc)];
            (c == 0 ? out.l : out.r)[static_cast<size_t>(i)] = static_cast<float>(s0 + a * (s1 - s0));
        }
    }
    return frames > kRate;
}

class MemoryNode final : public AudioSource
{
public:
    explicit MemoryNode(const Stereo& s) : s_(&s) {}
    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        for (int32_t c = 0; c < 2; ++c)
        {
            const std::vector<float>& src = c == 0 ? s_->l : s_->r;
            for (int64_t i = 0; i < into.frames; ++i)
            {
                const int64_t p = into.position + i;
                into.channel[c][i] = p >= 0 && p < s_->frames() ? src[static_cast<size_t>(p)] : 0.0f;
            }
        }
        return true;
    }
    void prepare(uint32_t, uint32_t) override {}

private:
    const Stereo* s_;
};

struct Setting
{
    const char* name;
    double speed;
    double semitones;
};

struct Run
{
    Stereo out;
    double cpu = 0.0;
};

template <typename Node> Run runNode(const Stereo& in, const Setting& s)
{
    MemoryNode source(in);
    ContiguousReader reader;
    reader.setFirst(&source);
    reader.prepare(kRate, kBlock);
    reader.setActive(true);
    Node node;
    node.setSource(&reader);
    node.prepare(kRate, kBlock);
    node.setStretch(static_cast<float>(1.0 / s.speed));
    node.setPitch(static_cast<float>(std::pow(2.0, -s.semitones / 12.0)));
    const auto total = static_cast<int64_t>(std::llround(static_cast<double>(in.frames()) / s.speed));
    Run r;
    r.out.l.resize(static_cast<size_t>(total));
    r.out.r.resize(static_cast<size_t>(total));
    const double t0 = cpuSeconds();
    for (int64_t pos = 0; pos < total; pos += kBlock)
    {
        AudioData d;
        d.channel[0] = r.out.l.data() + pos;
        d.channel[1] = r.out.r.data() + pos;
        d.channels = 2;
        d.frames = std::min<int64_t>(kBlock, total - pos);
        d.position = pos;
        node.read(d);
    }
    r.cpu = cpuSeconds() - t0;
    return r;
}

Run runSoundTouch(const Stereo& in, const Setting& s)
{
    soundtouch::SoundTouch st;
    st.setSampleRate(kRate);
    st.setChannels(2);
    st.setTempo(s.speed);
    st.setPitchSemiTones(s.semitones);
    std::vector<float> block(2 * kBlock);
    std::vector<float> got(2 * 4096);
    Run r;
    auto drain = [&]
    {
        for (uint n; (n = st.receiveSamples(got.data(), 4096)) > 0;)
        {
            for (uint i = 0; i < n; ++i)
            {
                r.out.l.push_back(got[2 * i]);
                r.out.r.push_back(got[2 * i + 1]);
            }
        }
    };
    r.out.l.reserve(static_cast<size_t>(static_cast<double>(in.frames()) / s.speed) + 65536);
    r.out.r.reserve(r.out.l.capacity());
    const double t0 = cpuSeconds();
    for (int64_t pos = 0; pos < in.frames(); pos += kBlock)
    {
        const int64_t n = std::min<int64_t>(kBlock, in.frames() - pos);
        for (int64_t i = 0; i < n; ++i)
        {
            block[static_cast<size_t>(2 * i)] = in.l[static_cast<size_t>(pos + i)];
            block[static_cast<size_t>(2 * i + 1)] = in.r[static_cast<size_t>(pos + i)];
        }
        st.putSamples(block.data(), static_cast<uint>(n));
        drain();
    }
    st.flush();
    drain();
    r.cpu = cpuSeconds() - t0;
    return r;
}

Run runRubberBand(const Stereo& in, const Setting& s, bool finer)
{
    using RubberBand::RubberBandStretcher;
    const RubberBandStretcher::Options options =
        RubberBandStretcher::OptionProcessRealTime |
        (finer ? RubberBandStretcher::OptionEngineFiner | RubberBandStretcher::OptionPitchHighConsistency |
                     RubberBandStretcher::OptionChannelsTogether
               : RubberBandStretcher::DefaultOptions);
    RubberBandStretcher rb(kRate, 2, options, 1.0 / s.speed, std::pow(2.0, s.semitones / 12.0));
    rb.setMaxProcessSize(kBlock);
    std::vector<float> gl(4096);
    std::vector<float> gr(4096);
    float* outs[2] = {gl.data(), gr.data()};
    std::vector<float> zeros(kBlock);
    Run r;
    auto drain = [&]
    {
        for (int avail; (avail = rb.available()) > 0;)
        {
            const size_t n = rb.retrieve(outs, std::min<size_t>(static_cast<size_t>(avail), 4096));
            r.out.l.insert(r.out.l.end(), gl.begin(), gl.begin() + static_cast<int64_t>(n));
            r.out.r.insert(r.out.r.end(), gr.begin(), gr.begin() + static_cast<int64_t>(n));
        }
    };
    const double t0 = cpuSeconds();
    // The documented start: the preferred pad of silence in, the start delay taken off the output.
    for (auto pad = static_cast<int64_t>(rb.getPreferredStartPad()); pad > 0; pad -= kBlock)
    {
        const float* ins[2] = {zeros.data(), zeros.data()};
        rb.process(ins, static_cast<size_t>(std::min<int64_t>(pad, kBlock)), false);
        drain();
    }
    const auto delay = static_cast<int64_t>(rb.getStartDelay());
    for (int64_t pos = 0; pos < in.frames(); pos += kBlock)
    {
        const int64_t n = std::min<int64_t>(kBlock, in.frames() - pos);
        const float* ins[2] = {in.l.data() + pos, in.r.data() + pos};
        rb.process(ins, static_cast<size_t>(n), pos + n >= in.frames());
        drain();
    }
    drain();
    r.cpu = cpuSeconds() - t0;
    const auto cut = std::min<int64_t>(delay, r.out.frames());
    r.out.l.erase(r.out.l.begin(), r.out.l.begin() + cut);
    r.out.r.erase(r.out.r.begin(), r.out.r.begin() + cut);
    return r;
}

// Magnitude spectrogram, Hann 2048, hop 512, of one channel from frame `from` for `count` frames.
constexpr int kFft = 2048;
constexpr int kHop = 512;
constexpr int kBins = kFft / 2 + 1;

std::vector<float> spectrogram(const std::vector<float>& x, int64_t from, int64_t count)
{
    const int64_t columns = std::max<int64_t>(0, (count - kFft) / kHop);
    std::vector<float> mags(static_cast<size_t>(columns * kBins));
    float* buf = fftwf_alloc_real(kFft);
    fftwf_complex* bins = fftwf_alloc_complex(kBins);
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(kFft, buf, bins, FFTW_ESTIMATE);
    for (int64_t c = 0; c < columns; ++c)
    {
        for (int i = 0; i < kFft; ++i)
        {
            const int64_t p = from + c * kHop + i;
            const float v = p >= 0 && p < static_cast<int64_t>(x.size()) ? x[static_cast<size_t>(p)] : 0.0f;
            buf[i] = v * static_cast<float>(0.5 - 0.5 * std::cos(kPi2 * i / kFft));
        }
        fftwf_execute(plan);
        for (int k = 0; k < kBins; ++k)
        {
            mags[static_cast<size_t>(c * kBins + k)] = std::hypot(bins[k][0], bins[k][1]);
        }
    }
    fftwf_destroy_plan(plan);
    fftwf_free(bins);
    fftwf_free(buf);
    return mags;
}

// The recording's ideal: its spectrogram read at source time t * speed, bins scaled by the ratio.
std::vector<float> mappedSpectrogram(const std::vector<float>& src, double speed, double ratio, int64_t from,
                                     int64_t count)
{
    const int64_t columns = std::max<int64_t>(0, (count - kFft) / kHop);
    const std::vector<float> s = spectrogram(src, 0, static_cast<int64_t>(src.size()));
    const int64_t srcColumns = static_cast<int64_t>(s.size()) / kBins;
    std::vector<float> out(static_cast<size_t>(columns * kBins), 0.0f);
    for (int64_t c = 0; c < columns; ++c)
    {
        const double sc = static_cast<double>(from + c * kHop) * speed / kHop;
        const auto c0 = static_cast<int64_t>(sc);
        const double ct = sc - static_cast<double>(c0);
        if (c0 + 1 >= srcColumns)
        {
            break;
        }
        for (int k = 0; k < kBins; ++k)
        {
            const double sk = k / ratio;
            const auto k0 = static_cast<int>(sk);
            const double kt = sk - k0;
            if (k0 + 1 >= kBins)
            {
                break;
            }
            auto at = [&](int64_t cc, int kk)
            { return static_cast<double>(s[static_cast<size_t>(cc * kBins + kk)]); };
            const double a = at(c0, k0) + kt * (at(c0, k0 + 1) - at(c0, k0));
            const double b = at(c0 + 1, k0) + kt * (at(c0 + 1, k0 + 1) - at(c0 + 1, k0));
            // Scaling the frequency axis spreads a partial's energy over more bins.
            out[static_cast<size_t>(c * kBins + k)] =
                static_cast<float>((a + ct * (b - a)) / std::sqrt(ratio));
        }
    }
    return out;
}

double convergenceDb(const std::vector<float>& got, const std::vector<float>& ideal)
{
    double diff = 0.0;
    double ref = 0.0;
    for (size_t i = 0; i < std::min(got.size(), ideal.size()); ++i)
    {
        const double d = static_cast<double>(got[i]) - ideal[i];
        diff += d * d;
        ref += static_cast<double>(ideal[i]) * ideal[i];
    }
    return 10.0 * std::log10(std::max(diff, 1e-30) / std::max(ref, 1e-30));
}

// Energy off the partials, dB of the total, over 2^16 frames from the middle of x.
double offPartialsDb(const std::vector<float>& x, const std::vector<Partial>& ps)
{
    constexpr int n = 1 << 16;
    const int64_t from = static_cast<int64_t>(x.size()) / 2 - n / 2;
    if (from < 0)
    {
        return NAN;
    }
    float* buf = fftwf_alloc_real(n);
    fftwf_complex* bins = fftwf_alloc_complex(n / 2 + 1);
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(n, buf, bins, FFTW_ESTIMATE);
    for (int i = 0; i < n; ++i)
    {
        const double w = kPi2 * i / n;
        const double bh =
            0.35875 - 0.48829 * std::cos(w) + 0.14128 * std::cos(2 * w) - 0.01168 * std::cos(3 * w);
        buf[i] = static_cast<float>(x[static_cast<size_t>(from + i)] * bh);
    }
    fftwf_execute(plan);
    double on = 0.0;
    double total = 0.0;
    for (int k = 1; k <= n / 2; ++k)
    {
        const double e =
            static_cast<double>(bins[k][0]) * bins[k][0] + static_cast<double>(bins[k][1]) * bins[k][1];
        const double hz = static_cast<double>(k) * kRate / n;
        total += e;
        if (std::any_of(ps.begin(), ps.end(), [&](const Partial& p) { return std::fabs(hz - p.hz) <= 3.0; }))
        {
            on += e;
        }
    }
    fftwf_destroy_plan(plan);
    fftwf_free(bins);
    fftwf_free(buf);
    return 10.0 * std::log10(std::max(total - on, 1e-30) / std::max(total, 1e-30));
}

// Offset of got against ideal, frames: the peak of the cross-correlation of their 64-frame energy
// envelopes, within +-8192 frames.
int64_t lagOf(const std::vector<float>& got, const std::vector<float>& ideal)
{
    auto envelope = [](const std::vector<float>& x)
    {
        std::vector<double> e(x.size() / kBlock);
        for (size_t b = 0; b < e.size(); ++b)
        {
            for (size_t i = 0; i < kBlock; ++i)
            {
                e[b] += static_cast<double>(x[b * kBlock + i]) * x[b * kBlock + i];
            }
        }
        return e;
    };
    const std::vector<double> a = envelope(got);
    const std::vector<double> b = envelope(ideal);
    int64_t best = 0;
    double bestScore = -1.0;
    for (int64_t lag = -128; lag <= 128; ++lag)
    {
        double score = 0.0;
        for (size_t i = 0; i < b.size(); ++i)
        {
            const int64_t j = static_cast<int64_t>(i) + lag;
            if (j >= 0 && j < static_cast<int64_t>(a.size()))
            {
                score += a[static_cast<size_t>(j)] * b[i];
            }
        }
        if (score > bestScore * (1.0 + 1e-9))
        {
            bestScore = score;
            best = lag;
        }
    }
    return best * kBlock;
}

struct Figures
{
    double off = NAN;
    double sc = NAN;
    double lagMs = NAN;
};

Figures measure(const Stereo& out, const Stereo& source, const Stereo* ideal, Kind kind, const Setting& s)
{
    const double ratio = std::pow(2.0, s.semitones / 12.0);
    Figures f;
    const auto total = static_cast<int64_t>(std::llround(static_cast<double>(source.frames()) / s.speed));
    // Compared from 0.25 s in to 0.5 s before the end: the edges of the stream are no one's music.
    const int64_t from = kRate / 4;
    const int64_t count = total - from - kRate / 2;
    std::vector<float> idealSpec = ideal != nullptr
                                       ? spectrogram(ideal->l, from, count)
                                       : mappedSpectrogram(source.l, s.speed, ratio, from, count);
    const int64_t lag = ideal != nullptr ? lagOf(out.l, ideal->l) : 0;
    // The recording has no synthetic ideal to correlate with: its lag is searched by convergence.
    int64_t useLag = lag;
    if (ideal == nullptr)
    {
        double best = 1e9;
        for (int64_t l = -8192; l <= 8192; l += 256)
        {
            const double sc = convergenceDb(spectrogram(out.l, from + l, count), idealSpec);
            if (sc < best)
            {
                best = sc;
                useLag = l;
            }
        }
    }
    f.sc = convergenceDb(spectrogram(out.l, from + useLag, count), idealSpec);
    f.lagMs = 1000.0 * static_cast<double>(useLag) / kRate;
    if (kind != Kind::recording)
    {
        std::vector<float> trimmed(out.l.begin(), out.l.begin() + std::min<int64_t>(total, out.frames()));
        f.off = offPartialsDb(trimmed, partials(kind, ratio));
    }
    return f;
}

} // namespace

int main(int argc, char** argv)
{
    const char* recording = argc > 1 ? argv[1] : nullptr;
    const double seconds = argc > 2 ? std::atof(argv[2]) : 8.0;
    if (!(seconds >= 3.0 && seconds <= 600.0))
    {
        std::fprintf(stderr, "stretch_quality_bench: seconds must lie between 3 and 600\n");
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    struct Material
    {
        const char* name;
        Kind kind;
        Stereo source;
    };
    std::vector<Material> materials;
    materials.push_back({"tone", Kind::tone, synth(Kind::tone, seconds, 1.0, 1.0)});
    materials.push_back({"two tones", Kind::twoTones, synth(Kind::twoTones, seconds, 1.0, 1.0)});
    materials.push_back({"plucked", Kind::plucked, synth(Kind::plucked, seconds, 1.0, 1.0)});
    if (recording != nullptr)
    {
        Stereo rec;
        if (!readRecording(recording, seconds, rec))
        {
            return 1;
        }
        materials.push_back({"recording", Kind::recording, std::move(rec)});
    }
    const Setting settings[] = {
        {"speed 0.5", 0.5, 0.0}, {"speed 0.75", 0.75, 0.0}, {"speed 1.5", 1.5, 0.0},
        {"pitch +2", 1.0, 2.0},  {"pitch -5", 1.0, -5.0},
    };
    const char* engines[] = {"standard", "high quality", "SoundTouch", "RubberBand R2", "RubberBand R3"};
    constexpr int kEngines = 5;

    std::printf("48 kHz stereo, %.0f s of each material, block 64. off = energy off the partials (dB), "
                "SC = spectral convergence (dB), lag in ms; CPU in ms per second of stereo output\n\n",
                seconds);
    std::printf("%-10s %-10s", "setting", "material");
    for (const char* e : engines)
    {
        std::printf(" | %-21s", e);
    }
    std::printf("\n");
    for (const Setting& s : settings)
    {
        double cpu[kEngines] = {};
        double outSeconds = 0.0;
        for (const Material& m : materials)
        {
            const double ratio = std::pow(2.0, s.semitones / 12.0);
            Stereo ideal;
            if (m.kind != Kind::recording)
            {
                ideal = synth(m.kind, static_cast<double>(m.source.frames()) / kRate, s.speed, ratio);
            }
            std::printf("%-10s %-10s", s.name, m.name);
            for (int e = 0; e < kEngines; ++e)
            {
                Run r = e == 0   ? runNode<AudioFxPSTS>(m.source, s)
                        : e == 1 ? runNode<AudioFxHQStretch>(m.source, s)
                        : e == 2 ? runSoundTouch(m.source, s)
                                 : runRubberBand(m.source, s, e == 4);
                cpu[e] += r.cpu;
                const Figures f =
                    measure(r.out, m.source, m.kind != Kind::recording ? &ideal : nullptr, m.kind, s);
                std::printf(" | %6.1f %6.1f %6.1f", f.off, f.sc, f.lagMs);
            }
            outSeconds += static_cast<double>(m.source.frames()) / s.speed / kRate;
            std::printf("\n");
        }
        std::printf("%-10s %-10s", s.name, "CPU ms/s");
        for (double c : cpu)
        {
            std::printf(" | %20.2f", 1000.0 * c / outSeconds);
        }
        std::printf("\n\n");
    }
    return 0;
}
