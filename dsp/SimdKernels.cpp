#include "dsp/SimdKernels.h"

#include <immintrin.h>

#include <cstdlib>
#include <cstring>

namespace dsp
{
namespace
{

// One pass over the ring for N inputs (1 to 4): one load and one store of each accumulator for N
// products. The sums keep the order of the terms, so that the result doesn't depend on how the
// terms were batched.
template <int N> void scatterPassSse(float* ring, const ScatterTerm* terms, int32_t offset, int32_t floats)
{
    const float* e[N];
    __m128 x[N];
    for (int k = 0; k < N; ++k)
    {
        e[k] = terms[k].entry + offset;
        x[k] = _mm_set1_ps(terms[k].x);
    }
    for (int32_t j = 0; j < floats; j += 4)
    {
        __m128 acc = _mm_load_ps(ring + j);
        for (int k = 0; k < N; ++k)
            acc = _mm_add_ps(acc, _mm_mul_ps(_mm_load_ps(e[k] + j), x[k]));
        _mm_store_ps(ring + j, acc);
    }
}

void scatterSse(float* ring, const ScatterTerm* terms, int32_t count, int32_t offset, int32_t floats)
{
    int32_t t = 0;
    for (; t + 4 <= count; t += 4)
        scatterPassSse<4>(ring, terms + t, offset, floats);
    switch (count - t)
    {
    case 3:
        scatterPassSse<3>(ring, terms + t, offset, floats);
        break;
    case 2:
        scatterPassSse<2>(ring, terms + t, offset, floats);
        break;
    case 1:
        scatterPassSse<1>(ring, terms + t, offset, floats);
        break;
    default:
        break;
    }
}

void complexMultiplyAddSse(float* acc, const float* a, const float* b, int32_t floats)
{
    const __m128 signs = _mm_set_ps(0.0f, -0.0f, 0.0f, -0.0f); // negate lanes 0 and 2
    for (int32_t i = 0; i < floats; i += 4)
    {
        const __m128 va = _mm_load_ps(a + i);
        const __m128 vb = _mm_load_ps(b + i);
        const __m128 bRe = _mm_shuffle_ps(vb, vb, _MM_SHUFFLE(2, 2, 0, 0));
        const __m128 bIm = _mm_shuffle_ps(vb, vb, _MM_SHUFFLE(3, 3, 1, 1));
        const __m128 aSwap = _mm_shuffle_ps(va, va, _MM_SHUFFLE(2, 3, 0, 1));
        const __m128 cross = _mm_xor_ps(_mm_mul_ps(aSwap, bIm), signs);
        const __m128 product = _mm_add_ps(_mm_mul_ps(va, bRe), cross);
        _mm_store_ps(acc + i, _mm_add_ps(_mm_load_ps(acc + i), product));
    }
}

void addScaledSse(float* ring, const float* src, int32_t count, float scale)
{
    const __m128 vs = _mm_set1_ps(scale);
    int32_t i = 0;
    for (; i + 4 <= count; i += 4)
        _mm_storeu_ps(ring + i, _mm_add_ps(_mm_loadu_ps(ring + i), _mm_mul_ps(_mm_loadu_ps(src + i), vs)));
    for (; i < count; ++i)
        ring[i] += src[i] * scale;
}

#if defined(__GNUC__) || defined(__clang__)
#define KV3_AVX2 __attribute__((target("avx2,fma")))

template <int N>
KV3_AVX2 void scatterPassAvx(float* ring, const ScatterTerm* terms, int32_t offset, int32_t floats)
{
    // The ring is only 16-byte aligned at a group, so its accesses are unaligned; a 4-float tail
    // remains where a run was split at the ring's end.
    const float* e[N];
    __m256 x[N];
    for (int k = 0; k < N; ++k)
    {
        e[k] = terms[k].entry + offset;
        x[k] = _mm256_set1_ps(terms[k].x);
    }
    const int32_t wide = floats / 8 * 8;
    int32_t j = 0;
    for (; j < wide; j += 8)
    {
        __m256 acc = _mm256_loadu_ps(ring + j);
        for (int k = 0; k < N; ++k)
            acc = _mm256_fmadd_ps(_mm256_loadu_ps(e[k] + j), x[k], acc);
        _mm256_storeu_ps(ring + j, acc);
    }
    if (j < floats)
    {
        __m128 acc = _mm_load_ps(ring + j);
        for (int k = 0; k < N; ++k)
            acc = _mm_fmadd_ps(_mm_load_ps(e[k] + j), _mm256_castps256_ps128(x[k]), acc);
        _mm_store_ps(ring + j, acc);
    }
}

KV3_AVX2 void scatterAvx(float* ring, const ScatterTerm* terms, int32_t count, int32_t offset, int32_t floats)
{
    int32_t t = 0;
    for (; t + 4 <= count; t += 4)
        scatterPassAvx<4>(ring, terms + t, offset, floats);
    switch (count - t)
    {
    case 3:
        scatterPassAvx<3>(ring, terms + t, offset, floats);
        break;
    case 2:
        scatterPassAvx<2>(ring, terms + t, offset, floats);
        break;
    case 1:
        scatterPassAvx<1>(ring, terms + t, offset, floats);
        break;
    default:
        break;
    }
}

KV3_AVX2 void complexMultiplyAddAvx(float* acc, const float* a, const float* b, int32_t floats)
{
    for (int32_t i = 0; i < floats; i += 8)
    {
        const __m256 va = _mm256_load_ps(a + i);
        const __m256 vb = _mm256_load_ps(b + i);
        const __m256 bRe = _mm256_moveldup_ps(vb);
        const __m256 bIm = _mm256_movehdup_ps(vb);
        const __m256 aSwap = _mm256_permute_ps(va, _MM_SHUFFLE(2, 3, 0, 1));
        // (ar br - ai bi, ai br + ar bi) as fmaddsub(a, bRe, aSwap * bIm).
        const __m256 product = _mm256_fmaddsub_ps(va, bRe, _mm256_mul_ps(aSwap, bIm));
        _mm256_store_ps(acc + i, _mm256_add_ps(_mm256_load_ps(acc + i), product));
    }
}

KV3_AVX2 void addScaledAvx(float* ring, const float* src, int32_t count, float scale)
{
    const __m256 vs = _mm256_set1_ps(scale);
    int32_t i = 0;
    for (; i + 8 <= count; i += 8)
        _mm256_storeu_ps(ring + i, _mm256_fmadd_ps(_mm256_loadu_ps(src + i), vs, _mm256_loadu_ps(ring + i)));
    for (; i < count; ++i)
        ring[i] += src[i] * scale;
}

bool hasAvx2()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}
#else
bool hasAvx2()
{
    return false;
}
#endif

const SimdKernels sse{scatterSse, complexMultiplyAddSse, addScaledSse, "sse"};
#if defined(__GNUC__) || defined(__clang__)
const SimdKernels avx{scatterAvx, complexMultiplyAddAvx, addScaledAvx, "avx2+fma"};
#endif

// Chosen while the program loads, so that the first use on the audio thread finds it made.
// KV3_DSP_SIMD=sse keeps the four-wide form (benchmarks use it to show both).
const SimdKernels* pick()
{
#if defined(__GNUC__) || defined(__clang__)
    const char* forced = std::getenv("KV3_DSP_SIMD");
    if (forced != nullptr && std::strcmp(forced, "sse") == 0)
        return &sse;
    return hasAvx2() ? &avx : &sse;
#else
    return &sse;
#endif
}

const SimdKernels* const chosen = pick();

} // namespace

const SimdKernels& simdKernels()
{
    return *chosen;
}

const SimdKernels& sseKernels()
{
    return sse;
}

} // namespace dsp
