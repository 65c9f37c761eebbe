#include "plugins/refamp/Convolver.h"

#include <algorithm>
#include <cstring>

namespace refamp
{

void Convolver::prepare(const std::vector<float>& response)
{
    fft_.setSize(kFftSize);
    head_.assign(kPartition, 0.0f);
    for (int i = 0; i < kPartition && i < static_cast<int>(response.size()); ++i)
    {
        head_[static_cast<std::size_t>(kPartition - 1 - i)] = response[static_cast<std::size_t>(i)];
    }
    const int tailLength = std::max(0, static_cast<int>(response.size()) - kPartition);
    tailPartitions_ = (tailLength + kPartition - 1) / kPartition;
    tailSpectra_.assign(static_cast<std::size_t>(tailPartitions_ * kFftSize), {});
    for (int m = 0; m < tailPartitions_; ++m)
    {
        std::complex<float>* spectrum = tailSpectra_.data() + m * kFftSize;
        for (int s = 0; s < kPartition; ++s)
        {
            const std::size_t tap = static_cast<std::size_t>(kPartition + m * kPartition + s);
            spectrum[s] = tap < response.size() ? response[tap] : 0.0f;
        }
        fft_.forward(spectrum);
        // Fold the 1/N of the inverse transform into the response once.
        for (int k = 0; k < kFftSize; ++k)
        {
            spectrum[k] /= static_cast<float>(kFftSize);
        }
    }
    inputSpectra_.assign(static_cast<std::size_t>(std::max(1, tailPartitions_) * kFftSize), {});
    historyL_.assign(2 * kPartition, 0.0f);
    historyR_.assign(2 * kPartition, 0.0f);
    previousL_.assign(kPartition, 0.0f);
    previousR_.assign(kPartition, 0.0f);
    tailL_.assign(kPartition, 0.0f);
    tailR_.assign(kPartition, 0.0f);
    work_.assign(kFftSize, {});
    reset();
}

void Convolver::reset()
{
    std::fill(inputSpectra_.begin(), inputSpectra_.end(), std::complex<float>());
    std::fill(historyL_.begin(), historyL_.end(), 0.0f);
    std::fill(historyR_.begin(), historyR_.end(), 0.0f);
    std::fill(previousL_.begin(), previousL_.end(), 0.0f);
    std::fill(previousR_.begin(), previousR_.end(), 0.0f);
    std::fill(tailL_.begin(), tailL_.end(), 0.0f);
    std::fill(tailR_.begin(), tailR_.end(), 0.0f);
    fill_ = 0;
    newest_ = 0;
}

void Convolver::process(const float* inL, const float* inR, float* outL, float* outR, int frames)
{
    constexpr int keep = kPartition - 1;
    for (int i = 0; i < frames; ++i)
    {
        // The history holds keep older samples before the present partition's samples.
        historyL_[static_cast<std::size_t>(keep + fill_)] = inL[i];
        historyR_[static_cast<std::size_t>(keep + fill_)] = inR[i];
        const float* xl = historyL_.data() + fill_;
        const float* xr = historyR_.data() + fill_;
        float accL = tailL_[static_cast<std::size_t>(fill_)];
        float accR = tailR_[static_cast<std::size_t>(fill_)];
        for (int k = 0; k < kPartition; ++k)
        {
            accL += head_[static_cast<std::size_t>(k)] * xl[k];
            accR += head_[static_cast<std::size_t>(k)] * xr[k];
        }
        outL[i] = accL;
        outR[i] = accR;
        if (++fill_ == kPartition)
        {
            finishPartition();
            fill_ = 0;
        }
    }
}

void Convolver::finishPartition()
{
    constexpr int keep = kPartition - 1;
    const float* presentL = historyL_.data() + keep;
    const float* presentR = historyR_.data() + keep;
    if (tailPartitions_ > 0)
    {
        // Spectrum of [previous partition, present partition], both channels in one.
        newest_ = (newest_ + 1) % tailPartitions_;
        std::complex<float>* x = inputSpectra_.data() + newest_ * kFftSize;
        for (int s = 0; s < kPartition; ++s)
        {
            x[s] = {previousL_[static_cast<std::size_t>(s)], previousR_[static_cast<std::size_t>(s)]};
            x[kPartition + s] = {presentL[s], presentR[s]};
        }
        fft_.forward(x);

        // Tail for the next partition: sum over m of X(now - m) times H(m).
        std::complex<float>* acc = work_.data();
        std::fill(acc, acc + kFftSize, std::complex<float>());
        for (int m = 0; m < tailPartitions_; ++m)
        {
            const int slot = (newest_ - m + tailPartitions_) % tailPartitions_;
            const float* xs = reinterpret_cast<const float*>(inputSpectra_.data() + slot * kFftSize);
            const float* hs = reinterpret_cast<const float*>(tailSpectra_.data() + m * kFftSize);
            float* as = reinterpret_cast<float*>(acc);
            for (int k = 0; k < kFftSize; ++k)
            {
                const float xr = xs[2 * k], xi = xs[2 * k + 1];
                const float hr = hs[2 * k], hi = hs[2 * k + 1];
                as[2 * k] += xr * hr - xi * hi;
                as[2 * k + 1] += xr * hi + xi * hr;
            }
        }
        fft_.inverse(acc);
        for (int s = 0; s < kPartition; ++s)
        {
            tailL_[static_cast<std::size_t>(s)] = acc[kPartition + s].real();
            tailR_[static_cast<std::size_t>(s)] = acc[kPartition + s].imag();
        }
    }
    std::memcpy(previousL_.data(), presentL, sizeof(float) * kPartition);
    std::memcpy(previousR_.data(), presentR, sizeof(float) * kPartition);
    // The last keep samples become the older part of the history.
    std::memmove(historyL_.data(), historyL_.data() + kPartition, sizeof(float) * keep);
    std::memmove(historyR_.data(), historyR_.data() + kPartition, sizeof(float) * keep);
}

} // namespace refamp
