#include "dsp/stretch/PstsButterworth.h"

#include <cmath>
#include <cstring>
#include <numbers>

namespace dsp::Stretch
{

namespace
{

// Zero for a result whose exponent bits are all clear: denormals (and zeros) stop the feedback path
// from crawling through the slow denormal range when the input falls silent.
inline float flushDenormal(float v)
{
    std::uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return (bits & 0x7f800000u) == 0 ? 0.0f : v;
}

} // namespace

void PstsButterworth::Section::reset()
{
    y1 = y2 = x1 = x2 = 0.0f;
}

void PstsButterworth::Section::run(float* samples, int32_t count)
{
    float hx1 = x1;
    float hx2 = x2;
    float hy1 = y1;
    float hy2 = y2;
    for (int32_t i = 0; i < count; ++i)
    {
        const float x = samples[i];
        const float y = flushDenormal(b0 * x + b1 * hx1 + b2 * hx2 + c1 * hy1 + c2 * hy2);
        samples[i] = y;
        hx2 = hx1;
        hx1 = x;
        hy2 = hy1;
        hy1 = y;
    }
    x1 = hx1;
    x2 = hx2;
    y1 = hy1;
    y2 = hy2;
}

void PstsButterworth::design(float cutoff)
{
    constexpr double pi = std::numbers::pi;
    constexpr int32_t n = kOrder;
    constexpr int32_t odd = n % 2;
    const double half = pi * static_cast<double>(cutoff) / 2.0;
    const double k = 2.0 * std::sin(half) / std::cos(half);
    const double m = k * k / 4.0;
    size_t s = 0;
    // The poles of the left half-plane that lie below the real axis; each section takes one and its
    // conjugate.
    for (int32_t i = n + odd; i <= (3 * n + odd) / 2 - 1 && s < sections_.size(); ++i, ++s)
    {
        const double theta = (2.0 * i + 1.0 - odd) * pi / (2.0 * n);
        const double d = 1.0 / (1.0 - k * std::cos(theta) + m);
        const double a = d * (1.0 - m);
        const double b = std::sin(theta) * d * k;
        const double g = ((1.0 - a) * (1.0 - a) + b * b) / 4.0;
        Section& sec = sections_[s];
        sec.b0 = static_cast<float>(g);
        sec.b1 = static_cast<float>(2.0 * g);
        sec.b2 = static_cast<float>(g);
        sec.c1 = static_cast<float>(2.0 * a);
        sec.c2 = static_cast<float>(-(a * a + b * b));
        sec.reset();
    }
}

void PstsButterworth::reset()
{
    for (Section& s : sections_)
    {
        s.reset();
    }
}

void PstsButterworth::run(float* samples, int32_t count)
{
    for (Section& s : sections_)
    {
        s.run(samples, count);
    }
}

} // namespace dsp::Stretch
