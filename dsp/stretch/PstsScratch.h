#pragma once

#include <cstdint>
#include <memory>

namespace dsp::Stretch
{

/**
 * Work memory shared by the two voices of one effect. The voices run one after the other on the same
 * thread, so one buffer serves the grain reader's fetches and the overlap-add's render of both. It only
 * ever grows, and only while the voices are being built, never during processing.
 *
 * Users keep a pointer to the record, not to its data, so that a later growth can't leave them holding
 * the old array.
 */
class PstsScratch
{
public:
    PstsScratch() = default;
    PstsScratch(const PstsScratch&) = delete;
    PstsScratch& operator=(const PstsScratch&) = delete;

    /** Makes the buffer at least floats long; the contents are zeroed when it grows. Allocates. */
    // [ui thread, device stopped]
    void grow(int32_t floats);

    float* data() const { return data_.get(); }
    /** Floats the buffer holds. */
    int32_t capacity() const { return capacity_; }

private:
    std::unique_ptr<float[]> data_;
    int32_t capacity_ = 0;
};

} // namespace dsp::Stretch
