// Our quality resampler against libsamplerate (best and medium sinc) and soxr (very high and high
// quality), side by side in one run on the same signals: real-time factor (seconds of stereo audio
// per CPU second) and quality figures of each direction.
#include "dsp/SimdKernels.h"
#include "dsp/SincInterpolator.h"

#include "BenchCommon.h"

#include <samplerate.h>
#include <soxr.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace
{

using Channels = std::vector<std::vector<float>>; // planar stereo

class MemorySource : public dsp::RandomAccessPCM
{
public:
    MemorySource(const std::vector<float>& samples, float rate) : samples_(samples), rate_(rate) {}
    void seek(int32_t position) override { position_ = position; }
    int32_t read(float* destination, int32_t count) override
    {
        for (int32_t j = 0; j < count; ++j)
        {
            const int64_t i = position_ + j;
            destination[j] = i >= 0 && i < static_cast<int64_t>(samples_.size())
                                 ? samples_[static_cast<std::size_t>(i)]
                                 : 0.0f;
        }
        position_ += count;
        return count;
    }
    int32_t length() override { return static_cast<int32_t>(samples_.size()); }
    float rate() override { return rate_; }

private:
    const std::vector<float>& samples_;
    float rate_;
    int64_t position_ = 0;
};

// Converts planar stereo `in` from rate a to rate b; returns CPU seconds of the conversion alone.
using Converter = std::function<double(const Channels& in, double a, double b, Channels& out)>;

double runOurs(const Channels& in, double a, double b, Channels& out)
{
    const auto outFrames = static_cast<int64_t>(static_cast<double>(in[0].size()) * b / a);
    out.assign(2, std::vector<float>(static_cast<std::size_t>(outFrames)));
    double cpu = 0.0;
    for (int c = 0; c < 2; ++c)
    {
        MemorySource src(in[static_cast<std::size_t>(c)], static_cast<float>(a));
        dsp::HiQualityResampler r;
        r.setSource(&src);
        r.setOutputRate(static_cast<float>(b));
        const double t0 = dspbench::cpuSeconds();
        r.seek(0);
        // Blocks of 512 frames, as the engine asks for them.
        for (int64_t done = 0; done < outFrames; done += 512)
            r.read(out[static_cast<std::size_t>(c)].data() + done,
                   static_cast<int32_t>(std::min<int64_t>(512, outFrames - done)));
        cpu += dspbench::cpuSeconds() - t0;
    }
    return cpu;
}

std::vector<float> interleave(const Channels& in)
{
    std::vector<float> v(in[0].size() * 2);
    for (std::size_t i = 0; i < in[0].size(); ++i)
    {
        v[2 * i] = in[0][i];
        v[2 * i + 1] = in[1][i];
    }
    return v;
}

void deinterleave(const std::vector<float>& v, std::size_t frames, Channels& out)
{
    out.assign(2, std::vector<float>(frames));
    for (std::size_t i = 0; i < frames; ++i)
    {
        out[0][i] = v[2 * i];
        out[1][i] = v[2 * i + 1];
    }
}

Converter libsamplerate(int type)
{
    return [type](const Channels& in, double a, double b, Channels& out)
    {
        const std::vector<float> x = interleave(in);
        const long frames = static_cast<long>(in[0].size());
        std::vector<float> y(static_cast<std::size_t>(static_cast<double>(frames) * b / a + 4096) * 2);
        int error = 0;
        SRC_STATE* state = src_new(type, 2, &error);
        const double t0 = dspbench::cpuSeconds();
        long produced = 0;
        for (long done = 0; done < frames || true;)
        {
            SRC_DATA d{};
            const long n = std::min<long>(512, frames - done);
            d.data_in = x.data() + 2 * done;
            d.input_frames = n;
            d.data_out = y.data() + 2 * produced;
            d.output_frames = static_cast<long>(y.size() / 2) - produced;
            d.src_ratio = b / a;
            d.end_of_input = done + n >= frames ? 1 : 0;
            src_process(state, &d);
            done += d.input_frames_used;
            produced += d.output_frames_gen;
            if (d.end_of_input && d.output_frames_gen == 0)
                break;
        }
        const double cpu = dspbench::cpuSeconds() - t0;
        src_delete(state);
        deinterleave(y, static_cast<std::size_t>(produced), out);
        return cpu;
    };
}

Converter soxrConverter(unsigned long quality)
{
    return [quality](const Channels& in, double a, double b, Channels& out)
    {
        const std::vector<float> x = interleave(in);
        const std::size_t frames = in[0].size();
        std::vector<float> y(static_cast<std::size_t>(static_cast<double>(frames) * b / a + 4096) * 2);
        soxr_error_t error = nullptr;
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        const soxr_quality_spec_t q = soxr_quality_spec(quality, 0);
        soxr_t s = soxr_create(a, b, 2, &error, &io, &q, nullptr);
        const double t0 = dspbench::cpuSeconds();
        std::size_t produced = 0;
        for (std::size_t done = 0;;)
        {
            const std::size_t n = std::min<std::size_t>(512, frames - done);
            std::size_t used = 0, gen = 0;
            soxr_process(s, n > 0 ? x.data() + 2 * done : nullptr, n, &used, y.data() + 2 * produced,
                         y.size() / 2 - produced, &gen);
            done += used;
            produced += gen;
            if (n == 0 && gen == 0)
                break;
        }
        const double cpu = dspbench::cpuSeconds() - t0;
        soxr_delete(s);
        deinterleave(y, produced, out);
        return cpu;
    };
}

// Amplitude at hz over the middle of y, Hann-weighted projection.
double amplitudeAt(const std::vector<float>& y, double hz, double rate)
{
    const std::size_t from = y.size() / 8, to = y.size() - y.size() / 8;
    double s = 0.0, c = 0.0, weight = 0.0;
    for (std::size_t i = from; i < to; ++i)
    {
        const double w =
            0.5 - 0.5 * std::cos(2.0 * M_PI * static_cast<double>(i - from) / static_cast<double>(to - from));
        s += w * y[i] * std::sin(2.0 * M_PI * hz * static_cast<double>(i) / rate);
        c += w * y[i] * std::cos(2.0 * M_PI * hz * static_cast<double>(i) / rate);
        weight += w;
    }
    return 2.0 * std::hypot(s, c) / weight;
}

// SNR of a sine at hz against the ideal sine: exact (the sine computed at the output rate with the
// input's phase, so any delay counts as error) and fitted (best amplitude and phase, delay forgiven).
void sineSnr(const std::vector<float>& y, double hz, double rate, double amplitude, double& exact,
             double& fitted)
{
    const std::size_t from = y.size() / 8, to = y.size() - y.size() / 8;
    double ss = 0, sc = 0, cc = 0, ys = 0, yc = 0, yy = 0, errExact = 0, power = 0;
    for (std::size_t i = from; i < to; ++i)
    {
        const double sn = std::sin(2.0 * M_PI * hz * static_cast<double>(i) / rate);
        const double cs = std::cos(2.0 * M_PI * hz * static_cast<double>(i) / rate);
        ss += sn * sn;
        sc += sn * cs;
        cc += cs * cs;
        ys += y[i] * sn;
        yc += y[i] * cs;
        yy += static_cast<double>(y[i]) * y[i];
        errExact += (y[i] - amplitude * sn) * (y[i] - amplitude * sn);
        power += amplitude * sn * amplitude * sn;
    }
    const double det = ss * cc - sc * sc;
    const double p = (ys * cc - yc * sc) / det, q = (yc * ss - ys * sc) / det;
    double fitPower = 0.0, residual = 0.0;
    for (std::size_t i = from; i < to; ++i)
    {
        const double fit = p * std::sin(2.0 * M_PI * hz * static_cast<double>(i) / rate) +
                           q * std::cos(2.0 * M_PI * hz * static_cast<double>(i) / rate);
        fitPower += fit * fit;
        residual += (y[i] - fit) * (y[i] - fit);
    }
    (void)yy;
    fitted = 10.0 * std::log10(fitPower / std::max(residual, 1e-30));
    exact = 10.0 * std::log10(power / std::max(errExact, 1e-30));
}

Channels stereoOf(const std::vector<float>& v)
{
    return Channels{v, v};
}

struct Row
{
    std::string name;
    double rtf = 0, snrExact = 0, snrFit = 0, stop = 0, g18 = 0, g20 = 0;
};

} // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 20.0;
    const std::vector<std::pair<std::string, Converter>> engines = {
        {"kv3 HiQualityResampler", runOurs},
        {"libsamplerate best sinc", libsamplerate(SRC_SINC_BEST_QUALITY)},
        {"libsamplerate medium sinc", libsamplerate(SRC_SINC_MEDIUM_QUALITY)},
        {"soxr very high (VHQ)", soxrConverter(SOXR_VHQ)},
        {"soxr high (HQ)", soxrConverter(SOXR_HQ)},
    };
    const std::pair<double, double> directions[] = {{44100, 48000}, {48000, 44100}, {44100, 96000}};

    std::printf(
        "Resampler comparison: %.0f s of stereo per speed run, blocks of 512 frames; our vector form: %s\n",
        seconds, dsp::simdKernels().name);
    for (auto [a, b] : directions)
    {
        // Speed signal: two tones and noise, so that nothing is trivially predictable.
        std::mt19937 rng(1);
        std::uniform_real_distribution<float> noise(-0.1f, 0.1f);
        const long frames = static_cast<long>(a * seconds);
        Channels music(2, std::vector<float>(static_cast<std::size_t>(frames)));
        for (long i = 0; i < frames; ++i)
        {
            music[0][static_cast<std::size_t>(i)] =
                static_cast<float>(0.3 * std::sin(2 * M_PI * 440.0 * i / a)) + noise(rng);
            music[1][static_cast<std::size_t>(i)] =
                static_cast<float>(0.3 * std::sin(2 * M_PI * 3001.0 * i / a)) + noise(rng);
        }
        const bool rising = b > a;
        const double stopTone = rising ? 21000.0 : 23000.0;
        std::vector<Row> rows;
        for (const auto& [name, run] : engines)
        {
            Row row{name};
            Channels out;
            double cpu = 1e30;
            for (int repeat = 0; repeat < 2; ++repeat) // best of two
                cpu = std::min(cpu, run(music, a, b, out));
            row.rtf = seconds / cpu;

            const long qFrames = static_cast<long>(a * 2);
            run(stereoOf(dspbench::sine(1000.0, a, qFrames, 0.5)), a, b, out);
            sineSnr(out[0], 1000.0, b, 0.5, row.snrExact, row.snrFit);
            run(stereoOf(dspbench::sine(stopTone, a, qFrames, 0.5)), a, b, out);
            // Rising: the image of the tone at a - f. Falling: the alias of 23 kHz at b - 23 kHz
            // folded around the new Nyquist frequency, b - f.
            const double heard = rising ? a - stopTone : b - stopTone < 0 ? stopTone - b : b - stopTone;
            row.stop = 20.0 * std::log10(amplitudeAt(out[0], std::abs(heard), b) / 0.5 + 1e-30);
            run(stereoOf(dspbench::sine(18000.0, a, qFrames, 0.5)), a, b, out);
            row.g18 = 20.0 * std::log10(amplitudeAt(out[0], 18000.0, b) / 0.5);
            run(stereoOf(dspbench::sine(20000.0, a, qFrames, 0.5)), a, b, out);
            row.g20 = 20.0 * std::log10(amplitudeAt(out[0], 20000.0, b) / 0.5);
            rows.push_back(row);
        }
        std::printf("\n%.0f -> %.0f Hz\n", a, b);
        std::printf("%-27s %9s %10s %10s %12s %9s %9s\n", "engine", "RTF", "SNR exact", "SNR fit",
                    rising ? "image 21k" : "alias 23k", "gain 18k", "gain 20k");
        for (const Row& r : rows)
            std::printf("%-27s %9.0f %8.1f dB %7.1f dB %9.1f dB %6.2f dB %6.2f dB\n", r.name.c_str(), r.rtf,
                        r.snrExact, r.snrFit, r.stop, r.g18, r.g20);
        const double vsBest = rows[0].rtf / rows[1].rtf;
        const double vsVhq = rows[0].rtf / rows[3].rtf;
        const double needVhq = rising ? 0.5 : 1.0 / 3.0;
        std::printf("ours / libsamplerate best: %.1fx (target >= 10x: %s); ours / soxr VHQ: %.2f (target >= "
                    "%.2f: %s)\n",
                    vsBest, vsBest >= 10.0 ? "met" : "NOT met", vsVhq, needVhq,
                    vsVhq >= needVhq ? "met" : "NOT met");
    }
    return 0;
}
