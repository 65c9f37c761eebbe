#pragma once

#include <cstdint>

namespace dsp
{

/** One input sample scattered through one bank entry. */
struct ScatterTerm
{
    const float* entry;
    float x;
};

/**
 * The vector loops of the convolution and the sinc interpolator. The plain SSE forms run on every
 * x86-64 processor; where a CPU test at start-up finds AVX2 and FMA, eight-wide forms take their
 * place. Results of the two forms differ only in rounding.
 */
struct SimdKernels
{
    /**
     * ring[j] += sum over terms of term.entry[offset + j] * term.x, for j below `floats` (a multiple
     * of 4). Entries are 16-byte aligned at `offset`, and so is ring.
     */
    void (*scatter)(float* ring, const ScatterTerm* terms, int32_t count, int32_t offset, int32_t floats);
    /** acc += a * b over packed complex pairs; `floats` a multiple of 8, all 32-byte aligned. */
    void (*complexMultiplyAdd)(float* acc, const float* a, const float* b, int32_t floats);
    /** ring[j] += src[j] * scale for j below count; no alignment needed. */
    void (*addScaled)(float* ring, const float* src, int32_t count, float scale);
    /** Name of the form chosen, for benchmarks and reports. */
    const char* name;
};

/** The kernels for this processor (chosen once, on first use). */
const SimdKernels& simdKernels();

/** The SSE kernels, whatever the processor; for tests that compare the two forms. */
const SimdKernels& sseKernels();

} // namespace dsp
