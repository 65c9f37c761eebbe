// Side-by-side cost of speed and pitch change: our grain stretcher against the two peer libraries
// on the same 60 s of stereo 44.1 kHz material, at speed 0.75, speed 0.5, and +2 semitones at speed
// 1. Reports the real-time factor (seconds of output per CPU second, best of three runs), the ratio
// to ours, and the output length error against input length / speed. Then the speed/pitch node at
// block 64 in a track's chain (history reader in front of it): CPU milliseconds per second of audio.
//
// Usage: stretch_peers_bench [seconds [ours]]   (default 60; "ours" leaves the peers out)

#include "dsp/stretch/AudioFxPSTS.h"
#include "engine/graph/AudioData.h"
#include "engine/graph/AudioSource.h"
#include "engine/graph/ContiguousReader.h"

#include <SoundTouch.h>
#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace
{

constexpr int32_t kRate = 44100;

// CPU time of the whole process: a peer may work on threads of its own (Rubber Band's offline mode
// runs one per channel), and their time counts too.
double cpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Music-like material: a chord progression of harmonic tones with note envelopes, a bass line,
// noise bursts as percussion, and different mixes on the two sides.
struct Material
{
    std::vector<float> left;
    std::vector<float> right;
    std::vector<float> interleaved;
    int64_t frames = 0;
};

Material makeMaterial(double seconds)
{
    Material m;
    m.frames = static_cast<int64_t>(seconds * kRate);
    m.left.assign(static_cast<size_t>(m.frames), 0.0f);
    m.right.assign(static_cast<size_t>(m.frames), 0.0f);
    const double chords[4][3] = {
        {220.0, 277.18, 329.63}, {196.0, 246.94, 293.66}, {174.61, 220.0, 261.63}, {196.0, 246.94, 311.13}};
    std::mt19937 rng(1234);
    std::uniform_real_distribution<float> noise(-1.0f, 1.0f);
    const double pi2 = 2.0 * std::numbers::pi;
    const int64_t beat = kRate / 4; // 240 bpm eighths of a 120 bpm bar
    for (int64_t i = 0; i < m.frames; ++i)
    {
        const double t = static_cast<double>(i) / kRate;
        const auto bar = static_cast<size_t>(i / (2 * kRate)) % 4;
        const double inBeat = static_cast<double>(i % beat) / kRate;
        const double env = std::exp(-3.0 * inBeat);
        double l = 0.0;
        double r = 0.0;
        for (int k = 0; k < 3; ++k)
        {
            const double f = chords[bar][k];
            const double tone =
                std::sin(pi2 * f * t) + 0.5 * std::sin(pi2 * 2 * f * t) + 0.25 * std::sin(pi2 * 3 * f * t);
            l += (k == 2 ? 0.6 : 1.0) * tone;
            r += (k == 0 ? 0.6 : 1.0) * tone;
        }
        const double bass = std::sin(pi2 * chords[bar][0] / 2.0 * t) * env;
        const double hat =
            (i % beat) < 2000 ? static_cast<double>(noise(rng)) * std::exp(-inBeat * 60.0) : 0.0;
        m.left[static_cast<size_t>(i)] =
            static_cast<float>(0.08 * l * (0.5 + 0.5 * env) + 0.3 * bass + 0.15 * hat);
        m.right[static_cast<size_t>(i)] =
            static_cast<float>(0.08 * r * (0.5 + 0.5 * env) + 0.25 * bass + 0.2 * hat);
    }
    m.interleaved.resize(static_cast<size_t>(2 * m.frames));
    for (int64_t i = 0; i < m.frames; ++i)
    {
        m.interleaved[static_cast<size_t>(2 * i)] = m.left[static_cast<size_t>(i)];
        m.interleaved[static_cast<size_t>(2 * i + 1)] = m.right[static_cast<size_t>(i)];
    }
    return m;
}

// The material as a node of the graph, silent outside its length, as a file in memory would be.
class MemoryNode final : public AudioSource
{
public:
    explicit MemoryNode(const Material& m) : m_(&m) {}
    bool provide(AudioData&) override { return false; }
    bool read(AudioData& into) override
    {
        const std::vector<float>* planes[2] = {&m_->left, &m_->right};
        for (int32_t c = 0; c < std::min(into.channels, 2); ++c)
        {
            const float* src = planes[c]->data();
            float* dst = into.channel[c];
            const int64_t end = into.position + into.frames;
            const int64_t from = std::clamp<int64_t>(0, into.position, end);
            const int64_t to = std::clamp<int64_t>(m_->frames, from, end);
            std::fill(dst, dst + (from - into.position), 0.0f);
            std::copy(src + from, src + to, dst + (from - into.position));
            std::fill(dst + (to - into.position), dst + into.frames, 0.0f);
        }
        return true;
    }
    void prepare(uint32_t, uint32_t) override {}

private:
    const Material* m_;
};

struct Setting
{
    const char* name;
    double speed;
    double semitones;
};

struct Result
{
    double rtf = 0.0;     // seconds of output per CPU second
    int64_t produced = 0; // frames of output
};

// Our stretcher as a track runs it: the node over the material, blocks of `block` frames.
Result runOurs(const Material& m, const Setting& s, int32_t block, bool withReader)
{
    MemoryNode source(m);
    ContiguousReader reader;
    reader.setFirst(&source);
    reader.prepare(kRate, static_cast<uint32_t>(block));
    reader.setActive(true);
    AudioFxPSTS node;
    node.setSource(withReader ? static_cast<AudioSource*>(&reader) : &source);
    node.prepare(kRate, static_cast<uint32_t>(block));
    node.setStretch(static_cast<float>(1.0 / s.speed));
    node.setPitch(std::pow(2.0f, static_cast<float>(-s.semitones / 12.0)));
    const auto total = static_cast<int64_t>(std::llround(static_cast<double>(m.frames) / s.speed));
    std::vector<float> l(static_cast<size_t>(block));
    std::vector<float> r(static_cast<size_t>(block));
    double sink = 0.0;
    const double t0 = cpuSeconds();
    for (int64_t pos = 0; pos < total; pos += block)
    {
        AudioData d;
        d.channel[0] = l.data();
        d.channel[1] = r.data();
        d.channels = 2;
        d.frames = std::min<int64_t>(block, total - pos);
        d.position = pos;
        node.read(d);
        sink += static_cast<double>(l[0]);
    }
    const double t1 = cpuSeconds();
    if (sink == 12345.678)
    {
        std::puts("");
    }
    return {static_cast<double>(total) / kRate / (t1 - t0), total};
}

Result runSoundTouch(const Material& m, const Setting& s, bool quickSeek)
{
    soundtouch::SoundTouch st;
    st.setSampleRate(kRate);
    st.setChannels(2);
    st.setTempo(s.speed);
    st.setPitchSemiTones(s.semitones);
    st.setSetting(SETTING_USE_QUICKSEEK, quickSeek ? 1 : 0);
    std::vector<float> out(8192 * 2);
    int64_t produced = 0;
    auto drain = [&]
    {
        for (;;)
        {
            const uint n = st.receiveSamples(out.data(), 8192);
            produced += n;
            if (n == 0)
            {
                break;
            }
        }
    };
    const double t0 = cpuSeconds();
    constexpr int64_t chunk = 4096;
    for (int64_t pos = 0; pos < m.frames; pos += chunk)
    {
        const auto n = static_cast<uint>(std::min(chunk, m.frames - pos));
        st.putSamples(m.interleaved.data() + 2 * pos, n);
        drain();
    }
    st.flush();
    drain();
    const double t1 = cpuSeconds();
    return {static_cast<double>(produced) / kRate / (t1 - t0), produced};
}

Result runRubberBand(const Material& m, const Setting& s, bool realTime)
{
    using RubberBand::RubberBandStretcher;
    const RubberBandStretcher::Options options =
        RubberBandStretcher::OptionEngineFaster |
        (realTime ? RubberBandStretcher::OptionProcessRealTime : RubberBandStretcher::OptionProcessOffline);
    RubberBandStretcher rb(kRate, 2, options, 1.0 / s.speed, std::pow(2.0, s.semitones / 12.0));
    std::vector<float> outL(8192);
    std::vector<float> outR(8192);
    float* outs[2] = {outL.data(), outR.data()};
    int64_t produced = 0;
    auto drain = [&]
    {
        for (;;)
        {
            const int avail = rb.available();
            if (avail <= 0)
            {
                return avail;
            }
            produced +=
                static_cast<int64_t>(rb.retrieve(outs, std::min<size_t>(static_cast<size_t>(avail), 8192)));
        }
    };
    const double t0 = cpuSeconds();
    constexpr int64_t chunk = 4096;
    if (!realTime)
    {
        rb.setExpectedInputDuration(static_cast<size_t>(m.frames));
        for (int64_t pos = 0; pos < m.frames; pos += chunk)
        {
            const float* ins[2] = {m.left.data() + pos, m.right.data() + pos};
            const auto n = static_cast<size_t>(std::min(chunk, m.frames - pos));
            rb.study(ins, n, pos + chunk >= m.frames);
        }
        for (int64_t pos = 0; pos < m.frames; pos += chunk)
        {
            const float* ins[2] = {m.left.data() + pos, m.right.data() + pos};
            const auto n = static_cast<size_t>(std::min(chunk, m.frames - pos));
            rb.process(ins, n, pos + chunk >= m.frames);
            drain();
        }
        while (drain() >= 0)
        {
        }
    }
    else
    {
        // Real time, as a host drives it: blocks of 1024 frames in, whatever is ready out; its start
        // delay is then taken off the output's length.
        constexpr int64_t hostBlock = 1024;
        for (int64_t pos = 0; pos < m.frames; pos += hostBlock)
        {
            const int64_t n = std::min(hostBlock, m.frames - pos);
            const float* ins[2] = {m.left.data() + pos, m.right.data() + pos};
            rb.process(ins, static_cast<size_t>(n), pos + n >= m.frames);
            drain();
        }
        while (drain() >= 0)
        {
        }
        produced -= static_cast<int64_t>(rb.getStartDelay());
    }
    const double t1 = cpuSeconds();
    return {static_cast<double>(produced) / kRate / (t1 - t0), produced};
}

Result best(const std::function<Result()>& run)
{
    Result b;
    for (int i = 0; i < 3; ++i)
    {
        const Result r = run();
        if (r.rtf > b.rtf)
        {
            b = r;
        }
    }
    return b;
}

} // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60.0;
    const bool oursOnly = argc > 2 && std::string(argv[2]) == "ours";
    if (!(seconds > 0.5 && seconds < 3600.0))
    {
        std::fprintf(stderr, "stretch_peers_bench: seconds must lie between 0.5 and 3600\n");
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const Material m = makeMaterial(seconds);
    const Setting settings[] = {{"speed 0.75", 0.75, 0.0}, {"speed 0.5", 0.5, 0.0}, {"pitch +2", 1.0, 2.0}};

    std::printf("%.0f s stereo %d Hz; RTF = seconds of output per CPU second (best of 3); "
                "length error = output frames - input frames / speed\n\n",
                seconds, kRate);
    std::printf("%-11s %-32s %10s %12s %13s\n", "setting", "stretcher", "RTF", "ours/this", "length error");
    for (const Setting& s : settings)
    {
        const auto expected = static_cast<int64_t>(std::llround(static_cast<double>(m.frames) / s.speed));
        const Result ours = best([&] { return runOurs(m, s, 1024, false); });
        struct Row
        {
            const char* name;
            Result r;
        };
        auto peer = [&](const std::function<Result()>& run) { return oursOnly ? ours : best(run); };
        const Row rows[] = {
            {"ours (node, block 1024)", ours},
            {"SoundTouch default", peer([&] { return runSoundTouch(m, s, false); })},
            {"SoundTouch quick-seek", peer([&] { return runSoundTouch(m, s, true); })},
            {"Rubber Band faster, offline", peer([&] { return runRubberBand(m, s, false); })},
            {"Rubber Band faster, real-time", peer([&] { return runRubberBand(m, s, true); })},
        };
        for (const Row& row : rows)
        {
            if (oursOnly && &row != &rows[0])
            {
                continue;
            }
            std::printf("%-11s %-32s %10.1f %12.2f %13lld\n", s.name, row.name, row.r.rtf,
                        ours.rtf / row.r.rtf, static_cast<long long>(row.r.produced - expected));
        }
        std::printf("\n");
    }

    std::printf("The node at block 64, stereo, behind the history reader: CPU per second of audio\n");
    const Setting nodeSettings[] = {
        {"unity", 1.0, 0.0}, {"speed 0.75", 0.75, 0.0}, {"speed 0.5", 0.5, 0.0}, {"pitch +2", 1.0, 2.0}};
    for (const Setting& s : nodeSettings)
    {
        const Result r = best([&] { return runOurs(m, s, 64, true); });
        std::printf("%-11s %8.3f ms/s  (RTF %.1f)\n", s.name, 1000.0 / r.rtf, r.rtf);
    }
    return 0;
}
