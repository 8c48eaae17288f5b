// Vectors, matrices, affine maps and rectangles: exactness, extremes and statuses.

#include <kmath/kmath.h>
#include <kmath/kq2.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "support/random.h"
#include "support/records.h"

namespace {

using namespace kip::test;

using Map = kmath_xformLinear;

constexpr double kGreatest = std::numeric_limits<double>::max();
constexpr double kLeast = std::numeric_limits<double>::denorm_min();
constexpr Map kUntouched{-1, -2, -3, -4, -5, -6};

Map inverseOf(const Map &map)
{
    Map result = kUntouched;
    EXPECT_EQ(kmath_xformLinear_initInverse(&result, &map), 0);
    for (const auto element : kElements)
        EXPECT_FALSE(result.*element == 0.0 && std::signbit(result.*element)) << "a negative zero";
    return result;
}

// The length of (a, b) as the matrix's x side; its y side must have the same.
double lengthOf(double a, double b)
{
    const kmath_matrix matrices[] = {{a, 7, b, 8}, {7, a, 8, b}};
    double x = -1;
    double y = -2;
    EXPECT_EQ(kmath_matrix_getXScale(&matrices[0], &x), 0);
    EXPECT_EQ(kmath_matrix_getYScale(&matrices[1], &y), 0);
    EXPECT_TRUE(x == y || (std::isnan(x) && std::isnan(y)));
    return x;
}

} // namespace

TEST(Scalar, SaturatesAndTakesEpsilonsAsAbsolute)
{
    const auto saturated = [](double whole) {
        return std::isnan(whole) ? 0 : static_cast<int32_t>(std::clamp<double>(whole, kMin32, kMax32));
    };
    for (const double magnitude : {0.0, 0.5, 2.5, 2.75, 3.0, 0.49999999999999994, 1073741824.5, 2147483646.5,
                                   2147483647.4, 2147483647.5, 2147483648.0, 1e300, kInfinity, kNan, kLeast}) {
        for (const double value : {magnitude, -magnitude}) {
            const double below = std::floor(magnitude);
            const double rounded = magnitude - below >= 0.5 ? below + 1 : below;
            EXPECT_EQ(kmath_double_round(value), saturated(std::copysign(rounded, value))) << value;
            EXPECT_EQ(kqfIFloor(value), saturated(std::floor(value))) << value;
            EXPECT_EQ(kqfICeil(value), saturated(std::ceil(value))) << value;
        }
    }
    for (const auto &[value, fraction] : {kmath_vect{3.25, 0.25}, {-3.25, 0.75}, {-4, 0}, {1e300, 0}, {kInfinity, 0}})
        EXPECT_EQ(kqfFrac(value), fraction);
    EXPECT_EQ(kqfFrac(kNan), 0.0);

    EXPECT_TRUE(kmath_double_epsilonEqual(-1.0, -1.25, 0.25));
    EXPECT_FALSE(kmath_double_epsilonEqual(1.0, 1.25, 0.2499));
    EXPECT_FALSE(kmath_double_epsilonEqual(1e15, 1e15 + 1, 1e-12)) << "not relative to the size of the numbers";
    EXPECT_FALSE(kmath_double_epsilonEqual(kInfinity, kInfinity, 1.0));
}

TEST(Lengths, HaveTheBitsOfThePlainFormulaAndTheRangeOfDoubles)
{
    Random random(11);
    for (int i = 0; i < 2000; ++i) {
        const double a = random.between(-5000.0, 5000.0);
        const double b = random.between(-5000.0, 5000.0);
        const double unit = std::ldexp(1.0, random.between32(-960, 1000));
        EXPECT_EQ(lengthOf(a * unit, b * unit), std::sqrt(a * a + b * b) * unit) << unit;
        double scale = 0;
        const double c = random.between(-5000.0, 5000.0);
        const kmath_matrix matrix{a, c, b, -a};
        EXPECT_EQ(kmath_matrix_getScale(&matrix, &scale), 0);
        EXPECT_EQ(scale, std::max(lengthOf(a, b), lengthOf(c, a)));
    }
    EXPECT_EQ(lengthOf(3 * 0x1p-1060, -4 * 0x1p-1060), 5 * 0x1p-1060);
    EXPECT_EQ(lengthOf(kGreatest, kLeast), kGreatest);
    EXPECT_EQ(lengthOf(kGreatest, kGreatest), kInfinity);
    EXPECT_TRUE(std::isnan(lengthOf(kNan, 0.0)));
    double determinant = 0;
    const kmath_matrix matrix{3, 5, 7, 11};
    EXPECT_EQ(kmath_matrix_getDeterminant(&matrix, &determinant), 0);
    EXPECT_EQ(determinant, -2.0);
}

TEST(Maps, ComposeConvertAndReportWhatIsNotFinite)
{
    const Map a{1, 2, 1, 4, 8, 1};
    const Map b{3, 5, 7, 11, 13, 17};
    const Map composed{24, 31, 59, 79, 69, 105}; // the second is applied first
    EXPECT_EQ((kq2Xform(a) * kq2Xform(b)).record(), composed);
    Map inPlace = a;
    EXPECT_EQ(kmath_xformLinear_initCompose(&inPlace, &inPlace, &b), 0);
    EXPECT_EQ(inPlace, composed);
    EXPECT_EQ(kmath_shapeAffineRect_initMap(&(inPlace = b), &a, &inPlace), 0);
    EXPECT_EQ(inPlace, composed);
    EXPECT_EQ((kq2Xform(a) * kq2Vect(kmath_vect{2, 3})).record(), (kmath_vect{15, 21}));

    const kmath_shapeAffineRect rect{10, 20, 30, -12, 40, 16}; // x side (30, 40), y side (-12, 16)
    kmath_shapeAffineRectPoints points{};
    kmath_vect opposite{};
    kmath_shapeAffineRectCenter center{};
    EXPECT_EQ(kmath_shapeAffineRect_getPoints(&rect, &points), 0);
    EXPECT_EQ(points.xEnd, (kmath_vect{40, 60}));
    EXPECT_EQ(points.yEnd, (kmath_vect{-2, 36}));
    EXPECT_EQ(kmath_shapeAffineRect_initPoints(&inPlace, &points), 0);
    EXPECT_EQ(inPlace, rect);
    EXPECT_EQ(kmath_shapeAffineRectPoints_getPopp(&points, &opposite), 0);
    EXPECT_EQ(opposite, (kmath_vect{28, 76}));
    EXPECT_EQ(kmath_shapeAffineRect_getCenter(&rect, &center), 0);
    EXPECT_EQ((kmath_vect{center.x, center.y}), (kmath_vect{19, 48}));
    EXPECT_EQ((kmath_vect{center.xSideLength, center.ySideLength}), (kmath_vect{50, 20}));

    const Map spoilt{0, 0, 1, 0, kNan, 1};
    const Map huge{0, 0, 1e200, 0, 0, 1}; // finite, but its square is not
    const Map far{kGreatest, 0, kGreatest, 0, 0, kGreatest};
    const kmath_shapeAffineRectPoints apart{{-kGreatest, 0}, {kGreatest, 0}, {0, 1}};
    Map result = kUntouched;
    for (const int32_t status :
         {kmath_xformLinear_initCompose(&result, &spoilt, &kIdentity),
          kmath_xformLinear_initCompose(&result, &kIdentity, &spoilt),
          kmath_xformLinear_initCompose(&result, &huge, &huge), kmath_xformLinear_initInverse(&result, &spoilt),
          kmath_shapeAffineRect_initPoints(&result, &apart), kmath_shapeAffineRect_getPoints(&spoilt, &points),
          kmath_shapeAffineRect_getPoints(&far, &points), kmath_shapeAffineRect_getCenter(&spoilt, &center),
          kmath_shapeAffineRect_getCenter(&far, &center)})
        EXPECT_EQ(status, kmath_statusNotFinite);
    EXPECT_EQ(result, kUntouched);
    EXPECT_THROW((void)(kq2Xform(huge) * kq2Xform(huge)), kqException);
}

// Units of source and result are scaled by powers of two, up to where the determinant, or its square, no
// longer fits a double: the inverse must scale along to the bit.
TEST(Inverse, HoldsItsBitsAtEveryScale)
{
    const Map map{12.5, -700.1, 3.1, 1.7, -0.9, 2.3};
    const Map inverse = inverseOf(map);
    EXPECT_EQ(inverseOf({10, 20, 100, 0, 0, 50}), (Map{-0.1, -0.4, 0.01, 0, 0, 0.02})) << "each quotient rounded once";
    EXPECT_EQ(inverseOf({3, -5, 2, 0.5, -4, 1}), (Map{-1.375, -0.5, 0.25, -0.125, 1, 0.5}));
    Random random(14);
    for (int i = 0; i < 2000; ++i) {
        const double p = std::ldexp(1.0, random.between32(-480, 480));
        const double q = std::ldexp(1.0, random.between32(-480, 480));
        const double c = std::ldexp(1.0, random.between32(-480, 480));
        const Map scaled{map.tx * p, map.ty * q, map.e0 * p * c, map.e1 * p, map.e2 * q * c, map.e3 * q};
        const Map expected{inverse.tx / c,     inverse.ty,     inverse.e0 / p / c,
                           inverse.e1 / q / c, inverse.e2 / p, inverse.e3 / q};
        EXPECT_EQ(inverseOf(scaled), expected) << "scaled by " << p << ", " << q << ", " << c;
    }
    EXPECT_EQ(inverseOf({0, 0, 1e200, 1e-200, 1e-200, 1e200}), (Map{0, 0, 1 / 1e200, 0, 0, 1 / 1e200}));

    const struct {
        const char *name;
        Map map;
        int32_t status;
    } refused[] = {
        {"all zero", {0, 0, 0, 0, 0, 0}, kmath_statusSingular},
        {"parallel sides", {5, 5, 30, 60, 40, 80}, kmath_statusSingular},
        {"opposite sides", {5, 5, 0.1, -0.1, 0.3, -0.3}, kmath_statusSingular},
        {"huge parallel sides", {5, 5, 1e200, 1e200, 1e300, 1e300}, kmath_statusSingular},
        {"tiny parallel sides", {5, 5, kLeast, kLeast, 4 * kLeast, 4 * kLeast}, kmath_statusSingular},
        {"a huge inverse", {0, 0, kLeast, 0, 0, 1}, kmath_statusNotFinite},
        {"a huge translation of the inverse", {1e200, 0, 1e-200, 0, 0, 1}, kmath_statusNotFinite},
    };
    for (const auto &row : refused) {
        Map result = kUntouched;
        kq2Xform object(kUntouched);
        EXPECT_EQ(kmath_xformLinear_initInverse(&result, &row.map), row.status) << row.name;
        EXPECT_EQ(kq2Xform(row.map).getInverse(object), row.status) << row.name;
        EXPECT_EQ(result, kUntouched) << row.name;
        EXPECT_EQ(object.record(), kUntouched) << row.name;
    }
}

TEST(Enclose, TakesAllFourCornersAndChecksTheirRange)
{
    constexpr kstd_rect32 kNone{-1, -2, -3, -4};
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        int32_t status;
        kstd_rect32 expected;
    } cases[] = {
        {"the opposite corner is the farthest", {0.5, 0.5, 10, 20, 30, 5}, 0, {0, 0, 31, 36}},
        {"the origin is the farthest", {0.5, 0.5, -10, -20, -30, -5}, 0, {-30, -35, 31, 36}},
        {"a corner on a pixel's edge lies in that pixel", {2, 3, 4, 0, 0, 5}, 0, {2, 3, 5, 6}},
        {"just below an edge", {-1e-9, 0, 1, 0, 0, 1}, 0, {-1, 0, 2, 2}},
        {"the last pixel that has an end", {2147483646.5, -2147483648.0, 0, 0, 0, 0}, 0, {kMax32 - 1, kMin32, 1, 1}},
        {"a pixel without an end", {2147483647.0, 0, 0, 0, 0, 0}, kmath_statusOutOfRange, kNone},
        {"below 32 bits", {-2147483648.5, 0, 1, 0, 0, 1}, kmath_statusOutOfRange, kNone},
        {"wider than 32 bits", {-2e9, 0, 4e9, 0, 0, 1}, kmath_statusOutOfRange, kNone},
        {"high, in 32 bits", {0, -2e9, 1, 0, 0, 2e9}, 0, {0, -2000000000, 2, 2000000001}},
        {"size beyond 32 bits", {0, -2147483648.0, 1, 0, 0, 2147483647.0}, kmath_statusOutOfRange, kNone},
        {"not a number", {0, kNan, 1, 0, 0, 1}, kmath_statusNotFinite, kNone},
    };
    for (const auto &c : cases) {
        kstd_rect32 found = kNone;
        EXPECT_EQ(kmath_shapeAffineRect_getEncloseImageRect(&c.rect, &kIdentity, &found), c.status) << c.name;
        EXPECT_EQ(found, c.expected) << c.name;
    }
}
