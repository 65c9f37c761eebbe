#pragma once

// Small building blocks of the reference amp: level conversion, biquads and a complex FFT. The amp
// is a library of its own and links nothing of the host, so it carries these itself.

#include <cmath>
#include <complex>
#include <cstdint>
#include <vector>

namespace refamp
{

constexpr double kPi = 3.14159265358979323846;

/** Linear factor of a level in dB. */
inline float dbToGain(float db)
{
    return std::pow(10.0f, db / 20.0f);
}

/**
 * A second-order section in transposed direct form II, with the coefficient formulas of the
 * well-known audio equaliser cookbook. Frequencies in Hz, gains in dB.
 */
class Biquad
{
public:
    void setLowpass(double rate, double hz, double q);
    void setHighpass(double rate, double hz, double q);
    void setPeak(double rate, double hz, double q, double db);
    void setLowShelf(double rate, double hz, double db);
    void setHighShelf(double rate, double hz, double db);
    /** A section that passes its input unchanged. */
    void setIdentity();
    void reset() { z1_ = z2_ = 0.0f; }

    float process(float x)
    {
        const float y = b0_ * x + z1_;
        z1_ = b1_ * x - a1_ * y + z2_;
        z2_ = b2_ * x - a2_ * y;
        return y;
    }

    /** Magnitude of the response at `hz` (for design and tests). */
    double magnitude(double rate, double hz) const;

private:
    void set(double b0, double b1, double b2, double a0, double a1, double a2);

    float b0_ = 1.0f, b1_ = 0.0f, b2_ = 0.0f, a1_ = 0.0f, a2_ = 0.0f;
    float z1_ = 0.0f, z2_ = 0.0f;
};

/**
 * An in-place complex FFT of a fixed power-of-two size. The tables are made in `setSize`; the
 * transforms themselves don't allocate. `inverse` is unscaled.
 */
class Fft
{
public:
    /** @param size a power of two, at least 2 */
    void setSize(int size);
    int size() const { return size_; }
    void forward(std::complex<float>* data) const { transform(data, false); }
    void inverse(std::complex<float>* data) const { transform(data, true); }

private:
    void transform(std::complex<float>* data, bool inverse) const;

    int size_ = 0;
    std::vector<std::complex<float>> twiddles_;
    std::vector<std::uint32_t> reversed_;
};

} // namespace refamp
