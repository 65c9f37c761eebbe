#include "dsp/stretch/PstsHannTable.h"

#include <array>
#include <cmath>
#include <numbers>

namespace dsp::Stretch
{

namespace
{

struct Table
{
    std::array<float, PstsHannTable::kLength + 1> v{};

    Table()
    {
        constexpr double n = PstsHannTable::kLength;
        v[0] = 0.0f;
        for (int32_t i = 1; i <= PstsHannTable::kLength; ++i)
        {
            const double x = std::numbers::pi * (2.0 * i - 1.0 - n) * n / ((n - 1.0) * (n + 2.0));
            v[static_cast<size_t>(i)] = static_cast<float>(0.5 + 0.5 * std::cos(x));
        }
    }
};

} // namespace

const float* PstsHannTable::values()
{
    static const Table table;
    return table.v.data();
}

} // namespace dsp::Stretch
