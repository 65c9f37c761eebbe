// Our segmented convolution against a plain uniformly partitioned FFTW convolution and
// zita-convolver, at block 64 with 256 and 4096 taps: CPU time per sample, measured in one run on
// the same signal and filter. Also checks that all three compute the same thing.
#include "dsp/SegmentedConv.h"
#include "dsp/SimdKernels.h"

#include "BenchCommon.h"

#include <fftw3.h>
#include <sched.h>
#include <zita-convolver.h>

#include <algorithm>
#include <complex>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

namespace
{

constexpr int block = 64;

double processCpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// The textbook form: overlap-save with FFTs of two blocks, a frequency-domain delay line of input
// spectra, the filter's 1/N folded into its spectra.
class PlainConvolution
{
public:
    PlainConvolution(const std::vector<float>& taps, unsigned flags)
        : size_(2 * block), bins_(block + 1), parts_(static_cast<int>((taps.size() + block - 1) / block))
    {
        time_ = fftwf_alloc_real(static_cast<std::size_t>(size_));
        spectrum_ = fftwf_alloc_complex(static_cast<std::size_t>(bins_));
        forward_ = fftwf_plan_dft_r2c_1d(size_, time_, spectrum_, flags);
        backward_ = fftwf_plan_dft_c2r_1d(size_, spectrum_, time_, flags);
        filter_.assign(static_cast<std::size_t>(parts_ * bins_), {});
        delay_.assign(static_cast<std::size_t>(parts_ * bins_), {});
        for (int p = 0; p < parts_; ++p)
        {
            std::fill(time_, time_ + size_, 0.0f);
            for (int i = 0; i < block && p * block + i < static_cast<int>(taps.size()); ++i)
                time_[i] = taps[static_cast<std::size_t>(p * block + i)] / static_cast<float>(size_);
            fftwf_execute(forward_);
            std::memcpy(reinterpret_cast<void*>(&filter_[static_cast<std::size_t>(p * bins_)]), spectrum_,
                        sizeof(fftwf_complex) * static_cast<std::size_t>(bins_));
        }
        history_.assign(static_cast<std::size_t>(size_), 0.0f);
        acc_.assign(static_cast<std::size_t>(bins_), {});
    }
    ~PlainConvolution()
    {
        fftwf_destroy_plan(forward_);
        fftwf_destroy_plan(backward_);
        fftwf_free(time_);
        fftwf_free(spectrum_);
    }

    void process(const float* in, float* out)
    {
        std::memmove(history_.data(), history_.data() + block, sizeof(float) * block);
        std::memcpy(history_.data() + block, in, sizeof(float) * block);
        std::memcpy(time_, history_.data(), sizeof(float) * static_cast<std::size_t>(size_));
        fftwf_execute(forward_);
        std::memcpy(reinterpret_cast<void*>(&delay_[static_cast<std::size_t>(pos_ * bins_)]), spectrum_,
                    sizeof(fftwf_complex) * static_cast<std::size_t>(bins_));
        std::fill(acc_.begin(), acc_.end(), std::complex<float>{});
        for (int p = 0; p < parts_; ++p)
        {
            const int slot = (pos_ - p + parts_) % parts_;
            const std::complex<float>* x = &delay_[static_cast<std::size_t>(slot * bins_)];
            const std::complex<float>* h = &filter_[static_cast<std::size_t>(p * bins_)];
            // Written out rather than with std::complex's operator*, whose NaN checks would call a
            // library function for every bin.
            float* acc = reinterpret_cast<float*>(acc_.data());
            const float* xf = reinterpret_cast<const float*>(x);
            const float* hf = reinterpret_cast<const float*>(h);
            for (int k = 0; k < 2 * bins_; k += 2)
            {
                acc[k] += xf[k] * hf[k] - xf[k + 1] * hf[k + 1];
                acc[k + 1] += xf[k] * hf[k + 1] + xf[k + 1] * hf[k];
            }
        }
        std::memcpy(spectrum_, acc_.data(), sizeof(fftwf_complex) * static_cast<std::size_t>(bins_));
        fftwf_execute(backward_);
        std::memcpy(out, time_ + block, sizeof(float) * block);
        pos_ = (pos_ + 1) % parts_;
    }

private:
    int size_, bins_, parts_;
    int pos_ = 0;
    float* time_;
    fftwf_complex* spectrum_;
    fftwf_plan forward_, backward_;
    std::vector<std::complex<float>> filter_, delay_, acc_;
    std::vector<float> history_;
};

struct Result
{
    double nsPerSample;
    double maxError;
};

// Runs `process` over x block by block; error against the reference after `delay` frames.
template <class F>
Result measure(const std::vector<float>& x, const std::vector<double>& reference, int delay, F&& process)
{
    std::vector<float> y(x.size());
    const double t0 = processCpuSeconds();
    for (std::size_t i = 0; i + block <= x.size(); i += block)
        process(x.data() + i, y.data() + i);
    const double cpu = processCpuSeconds() - t0;
    double worst = 0.0;
    for (std::size_t n = static_cast<std::size_t>(delay); n < std::min<std::size_t>(x.size(), 20000); ++n)
        worst = std::max(worst, std::abs(y[n] - reference[n - static_cast<std::size_t>(delay)]));
    return {1e9 * cpu / static_cast<double>(x.size()), worst};
}

} // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 20.0;
    const auto frames = static_cast<std::size_t>(48000.0 * seconds) / block * block;
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<float> x(frames);
    for (float& v : x)
        v = dist(rng) * 0.5f;

    std::printf("Convolution at block %d, %.0f s of mono at 48 kHz: CPU ns per sample (lower is better), "
                "max error against a double-precision direct convolution; our vector form: %s\n\n",
                block, seconds, dsp::simdKernels().name);
    std::printf("%-6s %-44s %12s %12s\n", "taps", "engine", "ns/sample", "max error");
    for (int taps : {256, 4096})
    {
        std::vector<float> h(static_cast<std::size_t>(taps));
        for (float& v : h)
            v = dist(rng) / std::sqrt(static_cast<float>(taps));
        std::vector<double> reference(std::min<std::size_t>(x.size(), 20000), 0.0);
        for (std::size_t n = 0; n < reference.size(); ++n)
            for (std::size_t k = 0; k < h.size() && k <= n; ++k)
                reference[n] += static_cast<double>(h[k]) * x[n - k];

        dsp::FilterSpectrum spectrum(block, h.data(), taps);
        dsp::SegmentedConv ours;
        ours.attach(spectrum);
        const Result r0 =
            measure(x, reference, 0, [&](const float* in, float* out) { ours.processBlock(in, out); });
        std::printf("%-6d %-44s %12.2f %12.2e\n", taps, "kv3 SegmentedConv", r0.nsPerSample, r0.maxError);

        for (unsigned flags : {FFTW_ESTIMATE, FFTW_MEASURE})
        {
            PlainConvolution plain(h, flags);
            const Result r =
                measure(x, reference, 0, [&](const float* in, float* out) { plain.process(in, out); });
            std::printf("%-6d %-44s %12.2f %12.2e\n", taps,
                        flags == FFTW_MEASURE ? "plain uniform FFTW (FFTW_MEASURE plans)"
                                              : "plain uniform FFTW (FFTW_ESTIMATE plans)",
                        r.nsPerSample, r.maxError);
        }

        for (unsigned maxpart : {static_cast<unsigned>(block)})
        {
            Convproc zita;
            zita.configure(1, 1, static_cast<unsigned>(taps), block, block, maxpart, 0.0f);
            zita.impdata_create(0, 0, 1, h.data(), 0, taps);
            zita.start_process(0, SCHED_OTHER);
            const Result r = measure(x, reference, 0,
                                     [&](const float* in, float* out)
                                     {
                                         std::memcpy(zita.inpdata(0), in, sizeof(float) * block);
                                         zita.process(true);
                                         std::memcpy(out, zita.outdata(0), sizeof(float) * block);
                                     });
            zita.stop_process();
            zita.cleanup();
            std::printf("%-6d %-44s %12.2f %12.2e\n", taps,
                        maxpart == block ? "zita-convolver (uniform 64)"
                                         : "zita-convolver (64 to 8192, its threads)",
                        r.nsPerSample, r.maxError);
        }
        std::printf("\n");
    }
    return 0;
}
