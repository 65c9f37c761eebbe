#include "plugins/refamp/Dsp.h"

#include <utility>

namespace refamp
{

void Biquad::set(double b0, double b1, double b2, double a0, double a1, double a2)
{
    b0_ = static_cast<float>(b0 / a0);
    b1_ = static_cast<float>(b1 / a0);
    b2_ = static_cast<float>(b2 / a0);
    a1_ = static_cast<float>(a1 / a0);
    a2_ = static_cast<float>(a2 / a0);
}

void Biquad::setIdentity()
{
    set(1.0, 0.0, 0.0, 1.0, 0.0, 0.0);
}

void Biquad::setLowpass(double rate, double hz, double q)
{
    const double w = 2.0 * kPi * hz / rate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double c = std::cos(w);
    set((1.0 - c) / 2.0, 1.0 - c, (1.0 - c) / 2.0, 1.0 + alpha, -2.0 * c, 1.0 - alpha);
}

void Biquad::setHighpass(double rate, double hz, double q)
{
    const double w = 2.0 * kPi * hz / rate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double c = std::cos(w);
    set((1.0 + c) / 2.0, -(1.0 + c), (1.0 + c) / 2.0, 1.0 + alpha, -2.0 * c, 1.0 - alpha);
}

void Biquad::setPeak(double rate, double hz, double q, double db)
{
    const double a = std::pow(10.0, db / 40.0);
    const double w = 2.0 * kPi * hz / rate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double c = std::cos(w);
    set(1.0 + alpha * a, -2.0 * c, 1.0 - alpha * a, 1.0 + alpha / a, -2.0 * c, 1.0 - alpha / a);
}

void Biquad::setLowShelf(double rate, double hz, double db)
{
    const double a = std::pow(10.0, db / 40.0);
    const double w = 2.0 * kPi * hz / rate;
    const double c = std::cos(w);
    const double alpha = std::sin(w) / 2.0 * std::sqrt(2.0); // shelf slope 1
    const double s = 2.0 * std::sqrt(a) * alpha;
    set(a * ((a + 1.0) - (a - 1.0) * c + s), 2.0 * a * ((a - 1.0) - (a + 1.0) * c),
        a * ((a + 1.0) - (a - 1.0) * c - s), (a + 1.0) + (a - 1.0) * c + s,
        -2.0 * ((a - 1.0) + (a + 1.0) * c), (a + 1.0) + (a - 1.0) * c - s);
}

void Biquad::setHighShelf(double rate, double hz, double db)
{
    const double a = std::pow(10.0, db / 40.0);
    const double w = 2.0 * kPi * hz / rate;
    const double c = std::cos(w);
    const double alpha = std::sin(w) / 2.0 * std::sqrt(2.0);
    const double s = 2.0 * std::sqrt(a) * alpha;
    set(a * ((a + 1.0) + (a - 1.0) * c + s), -2.0 * a * ((a - 1.0) + (a + 1.0) * c),
        a * ((a + 1.0) + (a - 1.0) * c - s), (a + 1.0) - (a - 1.0) * c + s, 2.0 * ((a - 1.0) - (a + 1.0) * c),
        (a + 1.0) - (a - 1.0) * c - s);
}

double Biquad::magnitude(double rate, double hz) const
{
    const std::complex<double> z = std::polar(1.0, -2.0 * kPi * hz / rate); // z^-1
    const std::complex<double> num = double(b0_) + double(b1_) * z + double(b2_) * z * z;
    const std::complex<double> den = 1.0 + double(a1_) * z + double(a2_) * z * z;
    return std::abs(num / den);
}

void Fft::setSize(int size)
{
    size_ = size;
    twiddles_.resize(static_cast<std::size_t>(size / 2));
    for (int i = 0; i < size / 2; ++i)
    {
        twiddles_[static_cast<std::size_t>(i)] =
            std::complex<float>(std::polar(1.0, -2.0 * kPi * i / static_cast<double>(size)));
    }
    int bits = 0;
    while ((1 << bits) < size)
    {
        ++bits;
    }
    reversed_.resize(static_cast<std::size_t>(size));
    for (int i = 0; i < size; ++i)
    {
        std::uint32_t r = 0;
        for (int b = 0; b < bits; ++b)
        {
            r |= ((static_cast<std::uint32_t>(i) >> b) & 1u) << (bits - 1 - b);
        }
        reversed_[static_cast<std::size_t>(i)] = r;
    }
}

void Fft::transform(std::complex<float>* data, bool inverse) const
{
    const int n = size_;
    for (int i = 0; i < n; ++i)
    {
        const auto r = static_cast<int>(reversed_[static_cast<std::size_t>(i)]);
        if (r > i)
        {
            std::swap(data[i], data[r]);
        }
    }
    for (int len = 2; len <= n; len <<= 1)
    {
        const int half = len / 2;
        const int step = n / len;
        for (int start = 0; start < n; start += len)
        {
            for (int k = 0; k < half; ++k)
            {
                std::complex<float> w = twiddles_[static_cast<std::size_t>(k * step)];
                if (inverse)
                {
                    w = std::conj(w);
                }
                // Written out: the library's complex product checks for infinities on every call.
                const std::complex<float> a = data[start + k];
                const std::complex<float> x = data[start + k + half];
                const std::complex<float> b(x.real() * w.real() - x.imag() * w.imag(),
                                            x.real() * w.imag() + x.imag() * w.real());
                data[start + k] = a + b;
                data[start + k + half] = a - b;
            }
        }
    }
}

} // namespace refamp
