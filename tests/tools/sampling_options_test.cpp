#include "sampling_options.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using kiptool::turnedRectangle;

// tx, ty, x side, y side.
void expectRect(const kmath_shapeAffineRect &rect, double tx, double ty, kmath_vect x, kmath_vect y)
{
    EXPECT_EQ(rect.tx, tx);
    EXPECT_EQ(rect.ty, ty);
    EXPECT_EQ(rect.e0, x.x);
    EXPECT_EQ(rect.e2, x.y);
    EXPECT_EQ(rect.e1, y.x);
    EXPECT_EQ(rect.e3, y.y);
}

// Any rounding here would keep the library from seeing a map of whole pixels.
TEST(TurnedRectangle, QuarterTurnsAreExact)
{
    const kmath_shapeAffineRect upright = {10, 20, 40, 0, 0, 10};
    for (const double full : {0.0, 360.0, -360.0, 360.0 * 1e12}) {
        expectRect(turnedRectangle(upright, full), 10, 20, {40, 0}, {0, 10});
        expectRect(turnedRectangle(upright, full + 90), 35, 5, {0, 40}, {-10, 0});
        expectRect(turnedRectangle(upright, full - 90), 25, 45, {0, -40}, {10, 0});
        expectRect(turnedRectangle(upright, full + 180), 50, 30, {-40, 0}, {0, -10});
    }
    expectRect(turnedRectangle({0.1, 0.3, 0.7, 0, 0, 0.9}, 0), 0.1, 0.3, {0.7, 0}, {0, 0.9});
}

TEST(TurnedRectangle, TurnsClockwiseAboutItsCentre)
{
    const kmath_shapeAffineRect rect = turnedRectangle({10, 20, 40, 0, 0, 10}, 30);
    EXPECT_NEAR(rect.e0, 40 * std::sqrt(3) / 2, 1e-12);
    EXPECT_NEAR(rect.e2, 20, 1e-12); // the x side runs down the screen
    EXPECT_NEAR(rect.tx + (rect.e0 + rect.e1) / 2, 30, 1e-12);
    EXPECT_NEAR(rect.ty + (rect.e2 + rect.e3) / 2, 25, 1e-12);
}

} // namespace
