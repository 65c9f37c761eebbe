#include "dsp/SegmentedConv.h"

#include "dsp/SimdKernels.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace dsp
{

void traceTransformFailure(const char* line)
{
    std::fputs(line, stderr);
}

namespace
{

// Floats in a packed half spectrum of F + 2, rounded up so that the vector loops (up to eight wide)
// need no tail. The padding is zero in every spectrum, so its products are zero too.
int paddedSpectrumSize(int fftSize)
{
    return (fftSize + 2 + 7) / 8 * 8;
}

} // namespace

int FilterSpectrum::pieceLength(int segment, int fftSize)
{
    return (fftSize / segment - 1) * segment;
}

int FilterSpectrum::chooseFftSize(int segment, int taps)
{
    int size = taps;
    switch (segment)
    {
    case 16:
        size = taps < 1025 ? 64 : 128;
        break;
    case 32:
        size = taps <= 2048 ? 128 : 256;
        break;
    case 64:
        size = taps <= 512 ? 128 : 256;
        break;
    case 128:
        size = 256;
        break;
    case 256:
        size = 512;
        break;
    default:
        break;
    }
    // The delay line needs pieces of whole blocks, so F holds at least two blocks; a length from
    // the table always does, F = N may not.
    if (size < 2 * segment)
        size = segment * ((taps + segment - 1) / segment + 1);
    return size;
}

FilterSpectrum::FilterSpectrum(int segment, const float* taps, int count)
    : segment_(segment), fftSize_(0), partitions_(0), taps_(count)
{
    if (segment < 1 || count < 1 || taps == nullptr)
    {
        traceTransformFailure("FAIL: Create Descriptor\n");
        return;
    }
    fftSize_ = chooseFftSize(segment, count);
    const int piece = pieceLength(segment_, fftSize_);
    partitions_ = (count - 1) / piece + 1;
    transform_ = makeRealTransform(fftSize_);
    if (!transform_)
    {
        traceTransformFailure("FAIL: Create Descriptor\n");
        return;
    }
    const int padded = paddedSpectrumSize(fftSize_);
    spectra_ = reinterpret_cast<float**>(pool_.allocate(static_cast<std::size_t>(partitions_) * 2));
    if (spectra_ == nullptr)
        return;
    status_ = true;
    for (int i = 0; i < partitions_; ++i)
    {
        spectra_[i] = pool_.allocate(static_cast<std::size_t>(padded));
        if (spectra_[i] == nullptr)
        {
            status_ = false;
            return;
        }
        const int first = i * piece;
        const int n = std::min(piece, count - first);
        std::memcpy(spectra_[i], taps + first, static_cast<std::size_t>(n) * sizeof(float));
        if (!transform_->forward(spectra_[i]))
        {
            traceTransformFailure("FAIL: FFT compute\n");
            status_ = false;
        }
    }
}

SegmentedConv::~SegmentedConv() = default;

bool SegmentedConv::attach(const FilterSpectrum& spectrum)
{
    ready_ = false;
    pool_.release();
    transform_.reset();
    if (!spectrum.valid())
        return false;
    spectrum_ = &spectrum;
    segment_ = spectrum.segment();
    fftSize_ = spectrum.fftSize();
    partitions_ = spectrum.partitions();
    step_ = fftSize_ / segment_ - 1;
    accumulators_ = step_ * (partitions_ - 1) + 1;
    paddedSize_ = paddedSpectrumSize(fftSize_);
    scale_ = 1.0f / static_cast<float>(fftSize_);

    transform_ = makeRealTransform(fftSize_);
    if (!transform_)
    {
        traceTransformFailure("FAIL: Create Descriptor\n");
        return false;
    }
    input_ = pool_.allocate(static_cast<std::size_t>(paddedSize_));
    accumulator_ = reinterpret_cast<float**>(pool_.allocate(static_cast<std::size_t>(accumulators_) * 2));
    ring_ = pool_.allocate(static_cast<std::size_t>(fftSize_) * 2);
    if (input_ == nullptr || accumulator_ == nullptr || ring_ == nullptr)
        return false;
    for (int k = 0; k < accumulators_; ++k)
    {
        accumulator_[k] = pool_.allocate(static_cast<std::size_t>(paddedSize_));
        if (accumulator_[k] == nullptr)
            return false;
    }
    filter_ = nullptr;
    current_ = 0;
    ringPos_ = 0;
    ready_ = true;
    return true;
}

void SegmentedConv::reset()
{
    if (!ready_)
        return;
    for (int k = 0; k < accumulators_; ++k)
        std::memset(accumulator_[k], 0, static_cast<std::size_t>(paddedSize_) * sizeof(float));
    std::memset(ring_, 0, static_cast<std::size_t>(fftSize_) * 2 * sizeof(float));
    current_ = 0;
    ringPos_ = 0;
}

void SegmentedConv::processBlock(const float* in, float* out)
{
    if (!ready_)
    {
        std::memset(out, 0, static_cast<std::size_t>(segment_) * sizeof(float));
        return;
    }
    const int S = segment_;
    const int F = fftSize_;
    const int ringSize = 2 * F;

    // The tiny offset keeps denormals out of the spectrum and so out of every later product.
    for (int i = 0; i < S; ++i)
        input_[i] = in[i] + 1e-29f;
    std::memset(input_ + S, 0, static_cast<std::size_t>(paddedSize_ - S) * sizeof(float));
    if (!transform_->forward(input_))
        traceTransformFailure("FAIL: FFT compute\n");

    const SimdKernels& kernels = simdKernels();
    for (int i = 0; i < partitions_; ++i)
    {
        const int k = (step_ * i + current_) % accumulators_;
        kernels.complexMultiplyAdd(accumulator_[k], input_, spectrum_->partition(i), paddedSize_);
    }

    float* due = accumulator_[current_];
    if (!transform_->backwardUnscaled(due))
        traceTransformFailure("FAIL: FFT compute\n");

    // Overlap add with the 1/F of the backward transform folded in, then hand out S frames.
    const int pos = ringPos_ % ringSize;
    const int firstRun = std::min(F, ringSize - pos);
    kernels.addScaled(ring_ + pos, due, firstRun, scale_);
    if (firstRun < F)
        kernels.addScaled(ring_, due + firstRun, F - firstRun, scale_);
    const int takeRun = std::min(S, ringSize - pos);
    std::memcpy(out, ring_ + pos, static_cast<std::size_t>(takeRun) * sizeof(float));
    std::memset(ring_ + pos, 0, static_cast<std::size_t>(takeRun) * sizeof(float));
    if (takeRun < S)
    {
        std::memcpy(out + takeRun, ring_, static_cast<std::size_t>(S - takeRun) * sizeof(float));
        std::memset(ring_, 0, static_cast<std::size_t>(S - takeRun) * sizeof(float));
    }

    std::memset(due, 0, static_cast<std::size_t>(paddedSize_) * sizeof(float));
    ringPos_ = (pos + S) % ringSize;
    current_ = (current_ + 1) % accumulators_;
}

namespace Domain::Adapters
{

AnySizeAdapter2::AnySizeAdapter2(int segment, int extraDelay)
    : stageSegment_(std::max(1, segment)), extraDelay_(std::clamp(extraDelay, 0, std::max(1, segment)))
{
    inStage_ = stagePool_.allocate(static_cast<std::size_t>(stageSegment_));
    outStage_ = stagePool_.allocate(static_cast<std::size_t>(stageSegment_));
    reset();
}

void AnySizeAdapter2::reset()
{
    SegmentedConv::reset();
    if (inStage_ == nullptr || outStage_ == nullptr)
        return;
    std::memset(inStage_, 0, static_cast<std::size_t>(stageSegment_) * sizeof(float));
    std::memset(outStage_, 0, static_cast<std::size_t>(stageSegment_) * sizeof(float));
    // One frame short of a block: the first frame in completes it. The extra delay, at most one
    // block, waits as zeros at the end of the output stage.
    staged_ = stageSegment_ - 1;
    pending_ = extraDelay_;
}

int AnySizeAdapter2::process(const float* in, float* out, int frames)
{
    if (inStage_ == nullptr || outStage_ == nullptr)
        return 0;
    const int S = stageSegment_;
    int taken = 0;
    int given = 0;
    auto handOut = [&]()
    {
        const int n = std::min(pending_, frames - given);
        if (n > 0)
        {
            std::memcpy(out + given, outStage_ + (S - pending_), static_cast<std::size_t>(n) * sizeof(float));
            pending_ -= n;
            given += n;
        }
    };
    while (taken < frames)
    {
        const int n = std::min(S - staged_, frames - taken);
        std::memcpy(inStage_ + staged_, in + taken, static_cast<std::size_t>(n) * sizeof(float));
        staged_ += n;
        taken += n;
        handOut();
        if (staged_ == S)
        {
            processBlock(inStage_, outStage_);
            pending_ = S;
            staged_ = 0;
            handOut();
        }
    }
    return given;
}

} // namespace Domain::Adapters

} // namespace dsp
