#include "dsp/BiquadFilter.h"

#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace utils
{

namespace
{

uint8_t detectCpuFeatures()
{
#if defined(__SSE2__) && (defined(__GNUC__) || defined(__clang__))
    return __builtin_cpu_supports("sse2") ? cpuFeatureSse : 0;
#else
    return 0;
#endif
}

} // namespace

uint8_t cpuFeatures = detectCpuFeatures();

std::unique_ptr<BiquadFilter> newBiquadFilter()
{
    if ((cpuFeatures & cpuFeatureSse) != 0)
        return std::make_unique<BiquadFilterKATMAI>();
    return std::make_unique<BiquadFilter>();
}

float BiquadFilter::flushDenormal(float value)
{
    return (std::bit_cast<uint32_t>(value) & 0x7f800000u) == 0 ? 0.0f : value;
}

void BiquadFilter::setup(int32_t channels, int32_t sampleRate)
{
    channels_ = channels;
    sampleRate_ = static_cast<float>(sampleRate);
    reset();
}

void BiquadFilter::reset()
{
    for (int c = 0; c < 2; ++c)
        x1_[c] = x2_[c] = y1_[c] = y2_[c] = 0.0f;
}

void BiquadFilter::setCoefficients(float b0, float b1, float b2, float a1, float a2)
{
    b0_ = b0;
    b1_ = b1;
    b2_ = b2;
    a1_ = a1;
    a2_ = a2;
}

void BiquadFilter::designBilinear(float n2, float n1, float n0, float d2, float d1, float d0)
{
    const float k = 2.0f * sampleRate_;
    const float kk = k * k;
    const float q = 1.0f / (kk * d2 + d0 + k * d1);
    setCoefficients((kk * n2 + n0 + k * n1) * q, 2.0f * (n0 - kk * n2) * q, (kk * n2 + n0 - k * n1) * q,
                    2.0f * (d0 - kk * d2) * q, (kk * d2 + d0 - k * d1) * q);
}

void BiquadFilter::designLowPass(float w, float d)
{
    const float k = 2.0f * sampleRate_;
    const float s = k * k + w * w;
    const float q = 1.0f / (k * w * d + s);
    const float g = q * w * w;
    setCoefficients(g, 2.0f * g, g, 2.0f * (g - q * k * k), (s - k * w * d) * q);
}

void BiquadFilter::designHighPass(float w, float d)
{
    const float k = 2.0f * sampleRate_;
    const float s = k * k + w * w;
    const float q = 1.0f / (k * w * d + s);
    const float g = q * k * k;
    setCoefficients(g, -2.0f * g, g, 2.0f * (q * w * w - g), (s - k * w * d) * q);
}

void BiquadFilter::designBandPass(float w, float d)
{
    const float k = 2.0f * sampleRate_;
    const float m = k * w * d;
    const float s = w * w + k * k;
    const float q = 1.0f / (m + s);
    setCoefficients(q * m, 0.0f, -q * m, 2.0f * (w * w - k * k) * q, (s - m) * q);
}

void BiquadFilter::designShelf(float z1, float z2, float p1, float p2)
{
    const float k = 2.0f * sampleRate_;
    const float kk = k * k;
    const float zp = z1 * z2;
    const float zs = (z1 + z2) * k;
    const float pp = p1 * p2;
    const float ps = (p1 + p2) * k;
    const float g = pp / zp;
    const float q = g / (ps + pp + kk);
    // q already carries the gain g, and the denominator is normalised by it: divide it back out.
    const float qa = 1.0f / (ps + pp + kk);
    setCoefficients((zs + zp + kk) * q, 2.0f * (zp - kk) * q, (zp + kk - zs) * q, 2.0f * (pp - kk) * qa,
                    (pp + kk - ps) * qa);
}

void BiquadFilter::processSample(float* output, const float* input)
{
    const int n = channels_ >= 2 ? 2 : 1;
    for (int c = 0; c < n; ++c)
    {
        const float x = input[c];
        const float y = flushDenormal(b0_ * x + b1_ * x1_[c] + b2_ * x2_[c] - a1_ * y1_[c] - a2_ * y2_[c]);
        x2_[c] = x1_[c];
        x1_[c] = x;
        y2_[c] = y1_[c];
        y1_[c] = y;
        output[c] = y;
    }
}

void BiquadFilter::processBlock(float* output, const float* input, int32_t frames)
{
    const int n = channels_ >= 2 ? 2 : 1;
    const double b0 = b0_, b1 = b1_, b2 = b2_, a1 = a1_, a2 = a2_;
    for (int c = 0; c < n; ++c)
    {
        // The history stays in locals, so that output may overwrite input.
        double x1 = x1_[c], x2 = x2_[c], y1 = y1_[c], y2 = y2_[c];
        for (int32_t i = 0; i < frames; ++i)
        {
            const double x = input[i * n + c];
            const float y = flushDenormal(static_cast<float>(b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2));
            output[i * n + c] = y;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
        }
        x1_[c] = static_cast<float>(x1);
        x2_[c] = static_cast<float>(x2);
        y1_[c] = static_cast<float>(y1);
        y2_[c] = static_cast<float>(y2);
    }
}

void BiquadFilterKATMAI::processBlock(float* output, const float* input, int32_t frames)
{
#if defined(__SSE2__)
    if (channels_ < 2)
    {
        BiquadFilter::processBlock(output, input, frames);
        return;
    }
    // Lanes 0 and 1 are the two channels; lanes 2 and 3 carry zeros along.
    const __m128 b0 = _mm_set1_ps(b0_), b1 = _mm_set1_ps(b1_), b2 = _mm_set1_ps(b2_);
    const __m128 a1 = _mm_set1_ps(a1_), a2 = _mm_set1_ps(a2_);
    const __m128 exponent = _mm_castsi128_ps(_mm_set1_epi32(0x7f800000));
    const __m128 zero = _mm_setzero_ps();
    __m128 x1 = _mm_setr_ps(x1_[0], x1_[1], 0.0f, 0.0f);
    __m128 x2 = _mm_setr_ps(x2_[0], x2_[1], 0.0f, 0.0f);
    __m128 y1 = _mm_setr_ps(y1_[0], y1_[1], 0.0f, 0.0f);
    __m128 y2 = _mm_setr_ps(y2_[0], y2_[1], 0.0f, 0.0f);
    for (int32_t i = 0; i < frames; ++i)
    {
        const __m128 x = _mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(input + 2 * i)));
        __m128 y = _mm_add_ps(_mm_mul_ps(b0, x), _mm_mul_ps(b1, x1));
        y = _mm_add_ps(y, _mm_mul_ps(b2, x2));
        y = _mm_sub_ps(y, _mm_mul_ps(a1, y1));
        y = _mm_sub_ps(y, _mm_mul_ps(a2, y2));
        // A value whose exponent bits are all zero is a denormal or a zero: make it a true zero.
        y = _mm_and_ps(y, _mm_cmpneq_ps(_mm_and_ps(y, exponent), zero));
        _mm_store_sd(reinterpret_cast<double*>(output + 2 * i), _mm_castps_pd(y));
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
    }
    float h[4];
    _mm_storeu_ps(h, x1);
    x1_[0] = h[0];
    x1_[1] = h[1];
    _mm_storeu_ps(h, x2);
    x2_[0] = h[0];
    x2_[1] = h[1];
    _mm_storeu_ps(h, y1);
    y1_[0] = h[0];
    y1_[1] = h[1];
    _mm_storeu_ps(h, y2);
    y2_[0] = h[0];
    y2_[1] = h[1];
#else
    BiquadFilter::processBlock(output, input, frames);
#endif
}

} // namespace utils
