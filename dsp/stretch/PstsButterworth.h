#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace dsp::Stretch
{

/**
 * Twelfth-order Butterworth low-pass made by the bilinear transform, as a cascade of six second-order
 * sections, each of unity gain at zero frequency. It is the anti-alias filter of the overlap-add when
 * the source runs at a higher rate than the output.
 */
class PstsButterworth
{
public:
    /** One second-order section; processes in place and keeps its history between runs. */
    struct Section
    {
        /** Feedback coefficients, the minus sign already in them: y += c1 y1 + c2 y2. */
        float c1 = 0.0f;
        float c2 = 0.0f;
        float b0 = 1.0f;
        float b1 = 0.0f;
        float b2 = 0.0f;
        float y1 = 0.0f;
        float y2 = 0.0f;
        float x1 = 0.0f;
        float x2 = 0.0f;

        /** Clears the history, not the coefficients. */
        void reset();
        /** Filters count samples in place; results that would be denormal become 0. */
        // [audio thread]
        void run(float* samples, int32_t count);
    };

    static constexpr int32_t kOrder = 12;
    static constexpr int32_t kSections = kOrder / 2;

    /**
     * Designs the cascade for a cut-off and clears the history.
     * @param cutoff normalised cut-off frequency, 1.0 being the Nyquist frequency (0 < cutoff < 1)
     */
    void design(float cutoff);

    /** Clears the history of every section. */
    // [audio thread]
    void reset();

    /** Filters count samples in place through each section in turn. */
    // [audio thread]
    void run(float* samples, int32_t count);

    int32_t order() const { return kOrder; }
    int32_t sections() const { return kSections; }
    const Section& section(int32_t i) const { return sections_[static_cast<size_t>(i)]; }

private:
    std::array<Section, kSections> sections_{};
};

} // namespace dsp::Stretch
