#include "turn.h"

#include <cmath>
#include <initializer_list>
#include <numbers>

namespace {

constexpr double kQuarter = std::numbers::pi / 2;
constexpr double kQuarterError = 0x1.1a62633145c07p-54; // pi / 2 is greater than its double by this

// The series end with the powers 17 and 16 of the angle, which is at most pi / 4: what follows is below 2^-58.
// The angle is x + rest, the rest less than half a unit of x's last place.

double sineOf(double x, double rest)
{
    const double z = x * x;
    double sum = 1.0 / 355687428096000;
    for (const double factor :
         {-1.0 / 1307674368000, 1.0 / 6227020800, -1.0 / 39916800, 1.0 / 362880, -1.0 / 5040, 1.0 / 120, -1.0 / 6})
        sum = sum * z + factor;
    return x + (x * z * sum + rest);
}

double cosineOf(double x, double rest)
{
    const double z = x * x;
    double sum = 1.0 / 20922789888000;
    for (const double factor : {-1.0 / 87178291200, 1.0 / 479001600, -1.0 / 3628800, 1.0 / 40320, -1.0 / 720, 1.0 / 24})
        sum = sum * z + factor;
    // What 1 - z / 2 loses is added where it still counts.
    const double half = z / 2;
    const double most = 1 - half;
    return most + ((1 - most - half) + (z * z * sum - x * rest));
}

} // namespace

Turn turnBy(double angle)
{
    // The remainder of two doubles is exact. Far beyond 2^50 radians the number of quarters is not, nor any angle.
    double remainder = std::remainder(angle, kQuarter);
    const double quarters = std::nearbyint((angle - remainder) / kQuarter);
    double cosine = 1, sine = 0;
    if (std::fabs(remainder) > std::fabs(angle) * 0x1p-51) {
        const double excess = quarters * kQuarterError;
        const double x = remainder - excess;
        const double rest = (remainder - x) - excess;
        cosine = cosineOf(x, rest);
        sine = sineOf(x, rest);
    }
    switch (static_cast<int>(std::fmod(quarters, 4)) & 3) {
    case 1:
        return {0 - sine, cosine};
    case 2:
        return {0 - cosine, 0 - sine};
    case 3:
        return {sine, 0 - cosine};
    default:
        return {cosine, sine};
    }
}
