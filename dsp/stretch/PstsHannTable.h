#pragma once

#include <cstdint>

namespace dsp::Stretch
{

/**
 * The process-wide grain window: 8,193 floats, element 0 is 0 and elements 1 to 8,192 a raised cosine
 * whose ends fall just short of 0 (the argument is scaled by N / ((N - 1)(N + 2)) with N = 8,192), so
 * that the first and last samples of a grain still count for a little.
 */
class PstsHannTable
{
public:
    static constexpr int32_t kLength = 8192;

    /**
     * The table, kLength + 1 values. Built on the first call; call it once off the audio thread (the
     * voices do so when they are made) and the later calls only read.
     */
    // [any thread]
    static const float* values();
};

} // namespace dsp::Stretch
