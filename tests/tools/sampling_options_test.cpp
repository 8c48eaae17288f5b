#include "sampling_options.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>

namespace {

// Origin, x side, y side.
std::array<double, 6> turned(const kmath_shapeAffineRect &upright, double degrees)
{
    const kmath_shapeAffineRect rect = kiptool::turnedRectangle(upright, degrees);
    return {rect.tx, rect.ty, rect.e0, rect.e2, rect.e1, rect.e3};
}

TEST(TurnedRectangle, TurnsClockwiseAboutItsCentre)
{
    using Sides = std::array<double, 6>;
    const kmath_shapeAffineRect upright = {10, 20, 40, 0, 0, 10};
    // Any rounding of quarter turns would keep the library from seeing a map of whole pixels.
    for (const double full : {0.0, 360.0, -360.0, 360.0 * 1e12}) {
        EXPECT_EQ(turned(upright, full), (Sides{10, 20, 40, 0, 0, 10}));
        EXPECT_EQ(turned(upright, full + 90), (Sides{35, 5, 0, 40, -10, 0}));
        EXPECT_EQ(turned(upright, full - 90), (Sides{25, 45, 0, -40, 10, 0}));
        EXPECT_EQ(turned(upright, full + 180), (Sides{50, 30, -40, 0, 0, -10}));
    }
    EXPECT_EQ(turned({0.1, 0.3, 0.7, 0, 0, 0.9}, 0), (Sides{0.1, 0.3, 0.7, 0, 0, 0.9}));
    const double h = std::sqrt(3) / 2; // the cosine of 30 degrees; the x side runs down the screen
    const Sides expected = {30 - 20 * h + 2.5, 25 - 10 - 5 * h, 40 * h, 20, -5, 10 * h}, got = turned(upright, 30);
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_NEAR(got[i], expected[i], 1e-12) << i;
}

} // namespace
