#include "dsp/SincInterpolator.h"

#include "dsp/SimdKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace dsp
{

namespace
{

int64_t floorDiv(int64_t a, int64_t b)
{
    const int64_t q = a / b;
    return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

// Beyond this many phases the banks would take tens of megabytes (4.6 kB a phase).
constexpr uint32_t maxPhases = 4096;

// A ratio whose exact form needs more phases (two rates with a small common divisor, 44056 to 48000
// say) is replaced by the fraction with the fewest phases that lies within this relative error of it
// (a 600th of a cent of pitch, 0.6 ms in ten minutes), or the closest one within maxPhases.
constexpr double ratioTolerance = 1.0e-6;

// The input stage grows with the ratio (a large fall in rate reaches many inputs per output), up to
// this many floats.
constexpr int32_t maxStage = 1 << 18;

// Extended Euclid, recursive, larger number first: returns gcd(a, b) and fills x, y with
// a x + b y = gcd. Only the divisor is used here.
int64_t extendedEuclid(int64_t a, int64_t b, int64_t& x, int64_t& y)
{
    if (b == 0)
    {
        x = 1;
        y = 0;
        return a;
    }
    int64_t x1 = 0, y1 = 0;
    const int64_t g = extendedEuclid(b, a % b, x1, y1);
    x = y1;
    y = x1 - (a / b) * y1;
    return g;
}

// Terms gathered for one group of four outputs before they are added in one pass.
constexpr int32_t maxTerms = 64;

// Outputs per pass, a multiple of 4, such that the input they reach fits an input stage of `stage`
// floats; below 4 when even one group's reach doesn't.
int32_t pieceFor(uint32_t up, uint32_t down, uint32_t halfLength, int32_t stage)
{
    const double reach = 2.0 * halfLength / down + 3.0;
    const double perOutput = static_cast<double>(up) / down;
    return static_cast<int32_t>(
               std::min<double>(SincInterpolator::maxPiece, (stage - reach) / perOutput + 1.0)) /
           4 * 4;
}

// The input stage for a design: the usual size, or enough for passes of eight outputs when the
// ratio's reach needs more; rounded up to a multiple of 4.
int64_t stageFor(uint32_t up, uint32_t down, uint32_t halfLength)
{
    const double reach = 2.0 * halfLength / down + 3.0;
    const double needed = std::ceil(reach + 8.0 * up / down) + 4.0;
    return std::max<int64_t>(SincInterpolator::stageSize, static_cast<int64_t>(needed) / 4 * 4 + 4);
}

} // namespace

uint32_t SincInterpolator::greatestCommonDivisor(uint32_t a, uint32_t b)
{
    int64_t x = 0, y = 0;
    return static_cast<uint32_t>(extendedEuclid(std::max(a, b), std::min(a, b), x, y));
}

void SincInterpolator::ratioFor(uint32_t in, uint32_t out, uint32_t& up, uint32_t& down)
{
    const uint32_t divisor = greatestCommonDivisor(in, out);
    up = in / divisor;
    down = out / divisor;
    if (up <= maxPhases)
        return;
    // The continued fraction of out / in gives its best approximations down / up: each convergent,
    // and between two of them the semiconvergents. The first within the tolerance is taken; failing
    // that, the closest whose up stays within maxPhases.
    const double exact = static_cast<double>(out) / in;
    auto error = [exact](uint64_t d, uint64_t u)
    { return std::fabs(static_cast<double>(d) / u / exact - 1.0); };
    uint64_t a = out, b = in;
    uint64_t h0 = 0, h1 = 1, k0 = 1, k1 = 0; // the two convergents before, as h / k
    uint64_t bestUp = 1, bestDown = std::max<uint64_t>(1, (out + in / 2) / in);
    auto consider = [&](uint64_t d, uint64_t u)
    {
        if (d > 0 && u > 0 && error(d, u) < error(bestDown, bestUp))
        {
            bestDown = d;
            bestUp = u;
        }
    };
    while (b != 0)
    {
        const uint64_t q = a / b;
        const uint64_t r = a - q * b;
        a = b;
        b = r;
        const uint64_t h2 = q * h1 + h0, k2 = q * k1 + k0;
        if (k2 > maxPhases)
        {
            if (k1 != 0)
            {
                const uint64_t t = (maxPhases - k0) / k1;
                if (t > 0)
                    consider(t * h1 + h0, t * k1 + k0);
            }
            break;
        }
        h0 = h1;
        h1 = h2;
        k0 = k1;
        k1 = k2;
        consider(h2, k2);
        if (h2 > 0 && error(h2, k2) <= ratioTolerance)
            break;
    }
    up = static_cast<uint32_t>(bestUp);
    down = static_cast<uint32_t>(bestDown);
}

void SincInterpolator::setSource(RandomAccessPCM* source)
{
    source_ = source;
    inRate_ = source != nullptr ? source->rate() : 0.0f;
}

bool SincInterpolator::setOutputRate(float rate)
{
    outRate_ = rate;
    if (source_ != nullptr)
        inRate_ = source_->rate();
    if (!design())
        return false;
    seek(0);
    return true;
}

float SincInterpolator::tap(int64_t t) const
{
    const int64_t a = t < 0 ? -t : t;
    return a < static_cast<int64_t>(halfLength_) ? halfFilter_[a] : 0.0f;
}

const char* SincInterpolator::refusal(float inRate, float outRate, uint32_t crossings)
{
    if (!(inRate >= 1.0f) || !(outRate >= 1.0f) || inRate > 1e7f || outRate > 1e7f)
        return "a rate lies outside 1 Hz to 10 MHz";
    if (crossings < 4)
        return "the filter is shorter than four samples";
    uint32_t up = 1, down = 1;
    ratioFor(static_cast<uint32_t>(inRate), static_cast<uint32_t>(outRate), up, down);
    if (stageFor(up, down, crossings * up) > maxStage)
        return "the input rate is too many times the output rate for the interpolator's input stage";
    return nullptr;
}

bool SincInterpolator::design()
{
    designed_ = false;
    pool_.release();
    banks_.clear();
    ring_ = halfFilter_ = stage_ = discard_ = nullptr;
    if (source_ == nullptr || !(inRate_ >= 1.0f) || !(outRate_ >= 1.0f) || inRate_ > 1e7f || outRate_ > 1e7f)
        return false;
    if (refusal(inRate_, outRate_, crossings_) != nullptr)
        return false;
    ratioFor(static_cast<uint32_t>(inRate_), static_cast<uint32_t>(outRate_), up_, down_);
    halfLength_ = crossings_ * up_;
    stageLength_ = static_cast<int32_t>(stageFor(up_, down_, halfLength_));
    piece_ = pieceFor(up_, down_, halfLength_, stageLength_);

    halfFilter_ = pool_.allocate(halfLength_);
    ring_ = pool_.allocate(ringSize);
    stage_ = pool_.allocate(static_cast<std::size_t>(stageLength_));
    discard_ = pool_.allocate(maxPiece);
    phaseBlocks_ = static_cast<int32_t>(2 * halfLength_ / up_ / 4 + 2);
    const std::size_t entry = static_cast<std::size_t>(phaseBlocks_) * 4;
    float* bank = pool_.allocate(entry * 4 * up_);
    if (halfFilter_ == nullptr || ring_ == nullptr || stage_ == nullptr || discard_ == nullptr ||
        bank == nullptr)
        return false;

    const double pi = std::numbers::pi;
    halfFilter_[0] = 1.0f;
    for (uint32_t i = 1; i < halfLength_; ++i)
    {
        const double x = pi * i / down_;
        const double window = 0.5 + 0.5 * std::cos(pi * i / halfLength_);
        halfFilter_[i] = static_cast<float>(std::sin(x) / x * window);
    }

    // An input first scattered at output o lies d = o up - i down + halfLength filter units from
    // the start of o's reach, 0 <= d < up, so the entry of phase p holds the filter at
    // t = p - halfLength + j up for j = 0, 1, ..., one tap per output, and four copies of it shifted
    // by 0 to 3 outputs for the four outputs of a group.
    banks_.resize(static_cast<std::size_t>(up_) * 4);
    const auto hl = static_cast<int64_t>(halfLength_);
    for (uint32_t p = 0; p < up_; ++p)
        for (uint32_t a = 0; a < 4; ++a)
        {
            float* e = bank + (static_cast<std::size_t>(p) * 4 + a) * entry;
            banks_[static_cast<std::size_t>(p) * 4 + a] = e;
            std::size_t j = a;
            for (int64_t t = static_cast<int64_t>(p) - hl; t < hl; t += up_)
                e[j++] = tap(t);
        }
    designed_ = true;
    return true;
}

int32_t SincInterpolator::length()
{
    if (source_ == nullptr || !(inRate_ > 0.0f))
        return 0;
    return static_cast<int32_t>(static_cast<double>(source_->length()) * outRate_ / inRate_);
}

void SincInterpolator::seek(int32_t position)
{
    if (!designed_)
        return;
    std::memset(ring_, 0, sizeof(float) * ringSize);
    sourceNext_ = noSourcePosition;
    remainderCount_ = 0;
    sourceLength_ = source_->length();

    const auto up = static_cast<int64_t>(up_);
    const auto down = static_cast<int64_t>(down_);
    const auto hl = static_cast<int64_t>(halfLength_);
    nextIn_ = std::max<int64_t>(0, floorDiv(position * up - hl, down));
    // Start a few outputs before the first one that nextIn reaches, on a multiple of 4, so that
    // every input from nextIn on is scattered at the output where its reach begins.
    const int64_t t = floorDiv(nextIn_ * down - hl, up);
    nextOut_ = floorDiv(t + 1, 4) * 4 - 4;
    ringPos_ = ((nextOut_ % ringSize) + ringSize) % ringSize;

    for (int64_t left = position - nextOut_; left > 0;)
    {
        const auto n = static_cast<int32_t>(std::min<int64_t>(left, maxPiece));
        read(discard_, n);
        left -= n;
    }
}

int32_t SincInterpolator::read(float* destination, int32_t count)
{
    if (count <= 0)
        return 0;
    if (!designed_)
    {
        std::fill(destination, destination + count, 0.0f);
        return count;
    }
    int32_t given = std::min(remainderCount_, count);
    std::memcpy(destination, remainder_ + (4 - remainderCount_),
                sizeof(float) * static_cast<std::size_t>(given));
    remainderCount_ -= given;

    int32_t multiple = (count - given) / 4 * 4;
    const int32_t tail = count - given - multiple;
    while (multiple > 0)
    {
        const int32_t n = std::min(multiple, piece_);
        produce(destination + given, n);
        given += n;
        multiple -= n;
    }
    if (tail > 0)
    {
        produce(remainder_, 4);
        std::memcpy(destination + given, remainder_, sizeof(float) * static_cast<std::size_t>(tail));
        remainderCount_ = 4 - tail;
    }
    return count;
}

void SincInterpolator::produce(float* out, int32_t count)
{
    const auto up = static_cast<int64_t>(up_);
    const auto down = static_cast<int64_t>(down_);
    const auto hl = static_cast<int64_t>(halfLength_);
    const int64_t lastIndex = static_cast<int64_t>(sourceLength_) - 1;

    const int64_t lastOut = nextOut_ + count - 1;
    const int64_t first = std::max(nextIn_, floorDiv(nextOut_ * up - hl - 1, down) + 1);
    const int64_t last = std::min(floorDiv(lastOut * up + hl, down), lastIndex);
    if (last >= first)
    {
        if (sourceNext_ != first)
            source_->seek(static_cast<int32_t>(first));
        const auto n = static_cast<int32_t>(last - first + 1);
        const int32_t got = std::clamp(source_->read(stage_, n), 0, n);
        std::fill(stage_ + got, stage_ + n, 0.0f);
        stageFirst_ = first;
        sourceNext_ = last + 1;
    }

    const int32_t entryFloats = phaseBlocks_ * 4;
    const SimdKernels& kernels = simdKernels();
    ScatterTerm terms[maxTerms];
    // hi(o) = floor((o up + halfLength) / down) and lo(o) = floor((o up - halfLength - 1) / down) + 1
    // move on by up / down per output: kept as quotient and remainder, so no division per output.
    int64_t hiNum = nextOut_ * up + hl;
    int64_t hiQ = floorDiv(hiNum, down);
    int64_t hiR = hiNum - hiQ * down;
    int64_t loQ = floorDiv(nextOut_ * up - hl - 1, down);
    int64_t loR = nextOut_ * up - hl - 1 - loQ * down;
    for (int32_t g = 0; g < count; g += 4)
    {
        const auto base = static_cast<int32_t>(ringPos_);
        float* groupRing = ring_ + base;
        const int32_t firstRun = std::min(entryFloats, ringSize - base);
        // Every input whose reach starts in this group lands on the same run of the ring, from the
        // group on; they are gathered and added in one pass. An entry running past the ring's end
        // goes on at its start.
        int32_t n = 0;
        auto flush = [&]()
        {
            kernels.scatter(groupRing, terms, n, 0, firstRun);
            if (firstRun < entryFloats)
                kernels.scatter(ring_, terms, n, firstRun, entryFloats - firstRun);
            n = 0;
        };
        for (int64_t r = 0; r < 4; ++r)
        {
            const int64_t lo = std::max(nextIn_, loQ + 1);
            const int64_t hi = std::min(hiQ, lastIndex);
            for (int64_t i = lo; i <= hi; ++i)
            {
                // The input's offset into the reach of this output, in filter units; it lies
                // below up, since the input wasn't in reach of the output before.
                int64_t phase = hiNum - i * down;
                if (phase >= up || phase < 0)
                    phase = ((phase % up) + up) % up;
                if (n == maxTerms)
                    flush();
                terms[n++] =
                    ScatterTerm{banks_[static_cast<std::size_t>(phase * 4 + r)], stage_[i - stageFirst_]};
            }
            nextIn_ = std::max(nextIn_, hi + 1);
            hiNum += up;
            for (hiR += up; hiR >= down; hiR -= down)
                ++hiQ;
            for (loR += up; loR >= down; loR -= down)
                ++loQ;
        }
        if (n > 0)
            flush();
        std::memcpy(out + g, groupRing, sizeof(float) * 4);
        std::memset(groupRing, 0, sizeof(float) * 4);
        nextOut_ += 4;
        ringPos_ = (ringPos_ + 4) % ringSize;
    }
}

void HiQualityResampler::setSource(RandomAccessPCM* source)
{
    realSource_ = source;
}

bool HiQualityResampler::setOutputRate(float rate)
{
    bypass_ = false;
    lowPassActive_ = false;
    if (realSource_ == nullptr)
        return false;
    const float sourceRate = realSource_->rate();
    if (sourceRate <= rate)
    {
        SincInterpolator::setSource(realSource_);
        bypass_ = sourceRate == rate;
    }
    else
    {
        const auto taps = static_cast<int32_t>(static_cast<double>(sourceRate) * lowPassTapsAt44k_ / 44100.0);
        lowPass_.setSource(realSource_);
        lowPass_.setTaps(taps);
        lowPass_.setSampleRate(sourceRate);
        if (!lowPass_.design(static_cast<double>(rate) * 0.5 * cutoffFraction_))
            return false;
        lowPass_.setLatency(lowPass_.filterLatency());
        SincInterpolator::setSource(&lowPass_);
        lowPassActive_ = true;
    }
    setCrossings((crossingsSetting_ - 1) / 4 * 4 + 4);
    return SincInterpolator::setOutputRate(rate);
}

void HiQualityResampler::seek(int32_t position)
{
    if (bypass_)
    {
        realSource_->seek(position);
        return;
    }
    SincInterpolator::seek(position);
}

int32_t HiQualityResampler::read(float* destination, int32_t count)
{
    if (bypass_)
        return realSource_->read(destination, count);
    return SincInterpolator::read(destination, count);
}

} // namespace dsp
