#pragma once

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
    const __m128d s = _mm_set1_pd(step);
    const __m128d lane01 = _mm_set_pd(1.0, 0.0);
    const __m128d lane23 = _mm_set_pd(3.0, 2.0);
    const __m128d f = _mm_set1_pd(from);
    alignas(16) int32_t idx[4];
    for (; k + 4 <= count; k += 4)
    {
        const __m128d kk = _mm_set1_pd(static_cast<double>(k));
        const __m128d x01 = _mm_add_pd(f, _mm_mul_pd(_mm_add_pd(kk, lane01), s));
        const __m128d x23 = _mm_add_pd(f, _mm_mul_pd(_mm_add_pd(kk, lane23), s));
        const __m128i i01 = _mm_cvttpd_epi32(x01);
        const __m128i i23 = _mm_cvttpd_epi32(x23);
        const __m128 u01 = _mm_cvtpd_ps(_mm_sub_pd(x01, _mm_cvtepi32_pd(i01)));
        const __m128 u23 = _mm_cvtpd_ps(_mm_sub_pd(x23, _mm_cvtepi32_pd(i23)));
        const __m128 u = _mm_movelh_ps(u01, u23);
        _mm_store_si128(reinterpret_cast<__m128i*>(idx), _mm_unpacklo_epi64(i01, i23));
        __m128 p = _mm_loadu_ps(buf + idx[0] - 1);
        __m128 q = _mm_loadu_ps(buf + idx[1] - 1);
        __m128 r = _mm_loadu_ps(buf + idx[2] - 1);
        __m128 t = _mm_loadu_ps(buf + idx[3] - 1);
        _MM_TRANSPOSE4_PS(p, q, r, t);
        p = _mm_add_ps(p, b);
        q = _mm_add_ps(q, b);
        r = _mm_add_ps(r, b);
        t = _mm_add_ps(t, b);
        const __m128 a3 = _mm_add_ps(_mm_mul_ps(_mm_sub_ps(q, r), c15), _mm_mul_ps(_mm_sub_ps(t, p), c05));
        const __m128 a2 =
            _mm_sub_ps(_mm_add_ps(_mm_sub_ps(p, _mm_mul_ps(c25, q)), _mm_mul_ps(c2, r)), _mm_mul_ps(c05, t));
        const __m128 a1 = _mm_mul_ps(_mm_sub_ps(r, p), c05);
        __m128 y =
            _mm_add_ps(_mm_mul_ps(_mm_add_ps(_mm_mul_ps(_mm_add_ps(_mm_mul_ps(a3, u), a2), u), a1), u), q);
        if (window != nullptr)
        {
            y = _mm_mul_ps(y, _mm_loadu_ps(window + k));
        }
        _mm_storeu_ps(out + k, y);
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
