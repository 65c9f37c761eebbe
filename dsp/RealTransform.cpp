#include "dsp/RealTransform.h"

#include "dsp/AlignedPool.h"

#include <fftw3.h>

#include <mutex>

namespace dsp
{
namespace
{

// FFTW's planner keeps process-wide tables and is not thread-safe; executing a finished plan is.
std::mutex& plannerMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Owns one FFTW plan, so that an early return in the constructor frees what was made.
struct PlanHandle
{
    fftwf_plan plan = nullptr;
    ~PlanHandle()
    {
        if (plan != nullptr)
        {
            std::lock_guard<std::mutex> lock(plannerMutex());
            fftwf_destroy_plan(plan);
        }
    }
};

class FftwRealTransform final : public RealTransform
{
public:
    explicit FftwRealTransform(int size) : size_(size), scale_(1.0f / static_cast<float>(size)) {}

    bool plan()
    {
        // The planner runs on a buffer of the same pool, so the alignment that the plan assumes
        // is the one every buffer of ours has. Powers of two up to 8192 (every length the
        // convolution's table gives) get measured plans, which FFTW remembers for the process, so
        // only the first design of a length pays the few milliseconds; other lengths are estimated.
        float* scratch = pool_.allocate(static_cast<std::size_t>(size_) + 2);
        if (scratch == nullptr)
            return false;
        auto* spectrum = reinterpret_cast<fftwf_complex*>(scratch);
        const bool powerOfTwo = (size_ & (size_ - 1)) == 0 && size_ <= 8192;
        const unsigned flags = powerOfTwo ? FFTW_MEASURE : FFTW_ESTIMATE;
        std::lock_guard<std::mutex> lock(plannerMutex());
        forward_.plan = fftwf_plan_dft_r2c_1d(size_, scratch, spectrum, flags);
        backward_.plan = fftwf_plan_dft_c2r_1d(size_, spectrum, scratch, flags);
        return forward_.plan != nullptr && backward_.plan != nullptr;
    }

    int size() const override { return size_; }

    bool forward(float* data) override
    {
        fftwf_execute_dft_r2c(forward_.plan, data, reinterpret_cast<fftwf_complex*>(data));
        return true;
    }

    bool backward(float* data) override
    {
        backwardUnscaled(data);
        for (int i = 0; i < size_; ++i)
            data[i] *= scale_;
        return true;
    }

    bool backwardUnscaled(float* data) override
    {
        fftwf_execute_dft_c2r(backward_.plan, reinterpret_cast<fftwf_complex*>(data), data);
        return true;
    }

private:
    int size_;
    float scale_;
    AlignedPool pool_;
    PlanHandle forward_;
    PlanHandle backward_;
};

} // namespace

std::unique_ptr<RealTransform> makeRealTransform(int size)
{
    if (size < 2)
        return nullptr;
    auto transform = std::make_unique<FftwRealTransform>(size);
    if (!transform->plan())
        return nullptr;
    return transform;
}

} // namespace dsp
