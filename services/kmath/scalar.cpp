#include <kmath/kmath.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

// Takes a whole number, an infinity or not-a-number to 32 bits.
int32_t saturate(double whole)
{
    if (std::isnan(whole))
        return 0;
    if (whole <= -2147483648.0)
        return std::numeric_limits<int32_t>::min();
    if (whole >= 2147483647.0)
        return std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(whole);
}

} // namespace

int32_t kmath_double_round(double value)
{
    // Adding 0.5 before taking the floor would carry the double below 0.5 up to 1, and so does MinGW's std::round.
    const double magnitude = std::fabs(value);
    const double below = std::floor(magnitude);
    return saturate(std::copysign(magnitude - below >= 0.5 ? below + 1.0 : below, value));
}

int32_t kmath_double_epsilonEqual(double a, double b, double epsilon)
{
    return std::fabs(a - b) <= epsilon ? 1 : 0;
}

double kqfFrac(double value)
{
    return std::isfinite(value) ? value - std::floor(value) : 0.0;
}

int32_t kqfIFloor(double value)
{
    return saturate(std::floor(value));
}

int32_t kqfICeil(double value)
{
    return saturate(std::ceil(value));
}
