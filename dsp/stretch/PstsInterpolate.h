#pragma once

#include <cmath>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#include <xmmintrin.h>
#endif

namespace dsp::Stretch
{

/**
 * Four-point Catmull-Rom through q (u = 0) and r (u = 1), with p before and t after; u may also lie
 * in -1 .. 0, which extrapolates towards p.
 */
inline float catmullRom(float p, float q, float r, float t, float u)
{
    return ((((q - r) * 1.5f + (t - p) * 0.5f) * u + (p - 2.5f * q + 2.0f * r - 0.5f * t)) * u +
            (r - p) * 0.5f) *
               u +
           q;
}

/**
 * Interpolates count samples at positions from + k * step (k = 0 .. count - 1), in frames of buf:
 * the sample at x uses buf[i - 1] .. buf[i + 2] with i = x truncated, and u = x - i. Positions must
 * not be negative. bias is added to each of the four frames first (the overlap-add's guard against
 * denormals; 0 for none). With a window, sample k is multiplied by window[k]. Each position is computed from
 * its own k, so the samples don't depend on each other and four are worked at once where the processor
 * allows.
 */
inline void interpolateRun(const float* buf, double from, double step, float* out, int32_t count, float bias,
                           const float* window = nullptr)
{
    int32_t k = 0;
#if defined(__SSE2__)
    const __m128 c15 = _mm_set1_ps(1.5f);
    const __m128 c05 = _mm_set1_ps(0.5f);
    const __m128 c25 = _mm_set1_ps(2.5f);
    const __m128 c2 = _mm_set1_ps(2.0f);
    const __m128 b = _mm_set1_ps(bias);
    // Positions run in 32.32 fixed point: whole frames in the high half, the fraction in the low
    // half. Rounding the step to 2^-32 of a frame moves a position by under 2e-6 frames over the
    // longest grain, far below what the interpolation itself resolves.
    constexpr double kOne = 4294967296.0;
    if (from >= 0.0 && from + static_cast<double>(count) * step < 2.0e9)
    {
        const auto fixedStep = static_cast<int64_t>(std::llround(step * kOne));
        const auto fixedFrom = static_cast<int64_t>(std::llround(from * kOne));
        __m128i x01 = _mm_set_epi64x(fixedFrom + fixedStep, fixedFrom);
        __m128i x23 = _mm_set_epi64x(fixedFrom + 3 * fixedStep, fixedFrom + 2 * fixedStep);
        const __m128i advance = _mm_set1_epi64x(4 * fixedStep);
        const __m128i mantissaOne = _mm_set1_epi32(0x3f800000);
        const __m128 one = _mm_set1_ps(1.0f);
        alignas(16) int32_t idx[4];
        for (; k + 4 <= count; k += 4)
        {
            // High halves are the frames, low halves the fractions; the fraction's top 23 bits
            // become the mantissa of a float in 1 .. 2.
            const __m128i hi = _mm_unpacklo_epi64(_mm_shuffle_epi32(x01, _MM_SHUFFLE(3, 1, 3, 1)),
                                                  _mm_shuffle_epi32(x23, _MM_SHUFFLE(3, 1, 3, 1)));
            const __m128i lo = _mm_unpacklo_epi64(_mm_shuffle_epi32(x01, _MM_SHUFFLE(2, 0, 2, 0)),
                                                  _mm_shuffle_epi32(x23, _MM_SHUFFLE(2, 0, 2, 0)));
            const __m128 u =
                _mm_sub_ps(_mm_castsi128_ps(_mm_or_si128(_mm_srli_epi32(lo, 9), mantissaOne)), one);
            _mm_store_si128(reinterpret_cast<__m128i*>(idx), hi);
            x01 = _mm_add_epi64(x01, advance);
            x23 = _mm_add_epi64(x23, advance);
            __m128 p = _mm_loadu_ps(buf + idx[0] - 1);
            __m128 q = _mm_loadu_ps(buf + idx[1] - 1);
            __m128 r = _mm_loadu_ps(buf + idx[2] - 1);
            __m128 t = _mm_loadu_ps(buf + idx[3] - 1);
            _MM_TRANSPOSE4_PS(p, q, r, t);
            p = _mm_add_ps(p, b);
            q = _mm_add_ps(q, b);
            r = _mm_add_ps(r, b);
            t = _mm_add_ps(t, b);
            const __m128 a3 =
                _mm_add_ps(_mm_mul_ps(_mm_sub_ps(q, r), c15), _mm_mul_ps(_mm_sub_ps(t, p), c05));
            const __m128 a2 = _mm_sub_ps(_mm_add_ps(_mm_sub_ps(p, _mm_mul_ps(c25, q)), _mm_mul_ps(c2, r)),
                                         _mm_mul_ps(c05, t));
            const __m128 a1 = _mm_mul_ps(_mm_sub_ps(r, p), c05);
            __m128 y = _mm_add_ps(
                _mm_mul_ps(_mm_add_ps(_mm_mul_ps(_mm_add_ps(_mm_mul_ps(a3, u), a2), u), a1), u), q);
            if (window != nullptr)
            {
                y = _mm_mul_ps(y, _mm_loadu_ps(window + k));
            }
            _mm_storeu_ps(out + k, y);
        }
    }
#endif
    for (; k < count; ++k)
    {
        const double x = from + static_cast<double>(k) * step;
        const auto i = static_cast<int64_t>(x);
        const float u = static_cast<float>(x - static_cast<double>(i));
        const float* w = buf + i;
        const float y = catmullRom(w[-1] + bias, w[0] + bias, w[1] + bias, w[2] + bias, u);
        out[k] = window != nullptr ? y * window[k] : y;
    }
}

} // namespace dsp::Stretch
