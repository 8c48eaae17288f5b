// Vectors, matrices, affine maps and rectangles: exactness, extremes and statuses.

#include <kmath/kmath.h>
#include <kmath/kq2.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/random.h"

namespace {

using kip::test::Random;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kGreatest = std::numeric_limits<double>::max();
constexpr double kLeast = std::numeric_limits<double>::denorm_min();
constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();

using Map = kmath_xformLinear;

constexpr Map kIdentity{0, 0, 1, 0, 0, 1};
constexpr Map kUntouched{-1, -2, -3, -4, -5, -6};

std::vector<double> elements(const Map &map)
{
    return {map.tx, map.ty, map.e0, map.e1, map.e2, map.e3};
}

void expectSame(const Map &actual, const Map &expected, const std::string &what)
{
    EXPECT_EQ(elements(actual), elements(expected)) << what;
}

Map compose(const Map &a, const Map &b)
{
    Map result = kUntouched;
    EXPECT_EQ(kmath_xformLinear_initCompose(&result, &a, &b), 0);
    return result;
}

Map inverseOf(const Map &map)
{
    Map result = kUntouched;
    EXPECT_EQ(kmath_xformLinear_initInverse(&result, &map), 0);
    return result;
}

double xScale(double e0, double e2)
{
    const kmath_matrix matrix{e0, 7, e2, 8};
    double scale = -1;
    EXPECT_EQ(kmath_matrix_getXScale(&matrix, &scale), 0);
    return scale;
}

double yScale(double e1, double e3)
{
    const kmath_matrix matrix{7, e1, 8, e3};
    double scale = -1;
    EXPECT_EQ(kmath_matrix_getYScale(&matrix, &scale), 0);
    return scale;
}

// A random map of small whole numbers over a power of two with determinant +-2^n, whose inverse is therefore
// dyadic too: shears, turns, mirrors and doublings applied one after the other.
Map randomDyadicMap(Random &random)
{
    Map map = kIdentity;
    for (int step = 0; step < 6; ++step) {
        const double shift = random.between32(-3, 3) * 0.25;
        const double amount = random.between32(-3, 3);
        switch (random.between32(0, 4)) {
        case 0:
            map = compose({shift, amount, 1, amount, 0, 1}, map);
            break;
        case 1:
            map = compose({amount, shift, 1, 0, amount, 1}, map);
            break;
        case 2:
            map = compose({shift, shift, 0, -1, 1, 0}, map);
            break;
        case 3:
            map = compose({amount, shift, -1, 0, 0, 2}, map);
            break;
        default:
            map = compose({shift, amount, 0.5, 0, 0, 1}, map);
            break;
        }
    }
    return map;
}

} // namespace

TEST(Scalar, RoundsHalvesAwayFromZeroAndSaturates)
{
    const struct {
        double value;
        int32_t rounded, below, above;
    } cases[] = {
        {0.0, 0, 0, 0},
        {0.5, 1, 0, 1},
        {-0.5, -1, -1, 0},
        {2.5, 3, 2, 3},
        {-2.5, -3, -3, -2},
        {0.49999999999999994, 0, 0, 1}, // adding 0.5 gives exactly 1
        {-0.49999999999999994, 0, -1, 0},
        {1073741824.5, 1073741825, 1073741824, 1073741825},
        {2147483646.5, kMax32, 2147483646, kMax32},
        {2147483647.4, kMax32, kMax32, kMax32},
        {2147483648.0, kMax32, kMax32, kMax32},
        {-2147483648.0, kMin32, kMin32, kMin32},
        {-2147483648.5, kMin32, kMin32, kMin32},
        {-2147483647.5, kMin32, kMin32, -2147483647},
        {1e300, kMax32, kMax32, kMax32},
        {-kInfinity, kMin32, kMin32, kMin32},
        {kInfinity, kMax32, kMax32, kMax32},
        {kNan, 0, 0, 0},
        {kLeast, 0, 0, 1},
        {-kLeast, 0, -1, 0},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(kmath_double_round(c.value), c.rounded) << c.value;
        EXPECT_EQ(kqfIFloor(c.value), c.below) << c.value;
        EXPECT_EQ(kqfICeil(c.value), c.above) << c.value;
    }
}

TEST(Scalar, FractionIsMeasuredFromTheFloor)
{
    EXPECT_EQ(kqfFrac(3.25), 0.25);
    EXPECT_EQ(kqfFrac(-3.25), 0.75);
    EXPECT_EQ(kqfFrac(-4.0), 0.0);
    EXPECT_EQ(kqfFrac(1e300), 0.0);
    EXPECT_EQ(kqfFrac(-1e-30), 1.0); // the nearest double to what is just below 1
    EXPECT_EQ(kqfFrac(kInfinity), 0.0);
    EXPECT_EQ(kqfFrac(-kInfinity), 0.0);
    EXPECT_EQ(kqfFrac(kNan), 0.0);
}

TEST(Scalar, EpsilonIsAbsoluteAndInclusive)
{
    EXPECT_TRUE(kmath_double_epsilonEqual(1.0, 1.25, 0.25));
    EXPECT_TRUE(kmath_double_epsilonEqual(-1.0, -1.25, 0.25));
    EXPECT_FALSE(kmath_double_epsilonEqual(1.0, 1.25, 0.2499));
    EXPECT_FALSE(kmath_double_epsilonEqual(1e15, 1e15 + 1, 1e-12)) << "not relative to the size of the numbers";
    EXPECT_FALSE(kmath_double_epsilonEqual(kNan, kNan, 1.0));
    EXPECT_FALSE(kmath_double_epsilonEqual(kInfinity, kInfinity, 1.0));
    EXPECT_FALSE(kmath_double_epsilonEqual(kInfinity, 0.0, 1.0));
}

TEST(Lengths, AxisSidesAreExactAtEverySize)
{
    for (const double side : {1.0, 0.1, 49.0, 1e-160, 1e160, 1e300, kGreatest, kLeast, 3e-310, 0.0}) {
        for (const double signedSide : {side, -side}) {
            EXPECT_EQ(xScale(signedSide, 0.0), side);
            EXPECT_EQ(xScale(0.0, signedSide), side);
            EXPECT_EQ(yScale(signedSide, -0.0), side);
            EXPECT_EQ(yScale(-0.0, signedSide), side);
        }
    }
}

TEST(Lengths, NeitherOverflowNorUnderflow)
{
    for (int exponent = -1060; exponent <= 1018; exponent += 7) {
        const double unit = std::ldexp(1.0, exponent);
        EXPECT_EQ(xScale(3 * unit, -4 * unit), 5 * unit) << exponent;
        EXPECT_EQ(yScale(-4 * unit, 3 * unit), 5 * unit) << exponent;
        const double exact = exponent > -960 ? unit : 1.0; // sides below 2^-1022 lose bits
        EXPECT_EQ(xScale(0.1 * exact, 0.7 * exact), xScale(0.1, 0.7) * exact) << exponent;
    }
    EXPECT_EQ(xScale(kGreatest, kLeast), kGreatest);
    EXPECT_EQ(xScale(kGreatest, kGreatest), kInfinity);
    EXPECT_EQ(xScale(kInfinity, 3.0), kInfinity);
    EXPECT_TRUE(std::isnan(xScale(kNan, 0.0)));
}

TEST(Lengths, OrdinarySidesHaveTheBitsOfThePlainFormula)
{
    Random random(11);
    for (int i = 0; i < 2000; ++i) {
        const double a = random.between(-5000.0, 5000.0);
        const double b = random.between(-5000.0, 5000.0);
        EXPECT_EQ(xScale(a, b), std::sqrt(a * a + b * b));
        const kmath_matrix matrix{a, b, random.between(-5000.0, 5000.0), random.between(-5000.0, 5000.0)};
        double x = 0;
        double y = 0;
        double scale = 0;
        kmath_matrix_getXScale(&matrix, &x);
        kmath_matrix_getYScale(&matrix, &y);
        EXPECT_EQ(kmath_matrix_getScale(&matrix, &scale), 0);
        EXPECT_EQ(scale, std::max(x, y));
    }
}

TEST(Lengths, ScaleAndDeterminantDoNotHideNotANumber)
{
    double value = 0;
    for (const kmath_matrix &matrix : {kmath_matrix{kNan, 1, 0, 1}, kmath_matrix{1, kNan, 0, 1}}) {
        kmath_matrix_getScale(&matrix, &value);
        EXPECT_TRUE(std::isnan(value));
        kmath_matrix_getDeterminant(&matrix, &value);
        EXPECT_TRUE(std::isnan(value));
    }
    const kmath_matrix matrix{3, 5, 7, 11};
    EXPECT_EQ(kmath_matrix_getDeterminant(&matrix, &value), 0);
    EXPECT_EQ(value, -2.0);
}

TEST(Compose, AppliesTheSecondMapFirst)
{
    const Map shift{10, 20, 1, 0, 0, 1};
    const Map stretch{0, 0, 2, 0, 0, 3};
    const Map shear{1, 2, 1, 4, 8, 1};
    expectSame(compose(shift, stretch), {10, 20, 2, 0, 0, 3}, "stretched, then shifted");
    expectSame(compose(stretch, shift), {20, 60, 2, 0, 0, 3}, "shifted, then stretched");
    expectSame(compose(shear, {3, 5, 7, 11, 13, 17}), {24, 31, 59, 79, 69, 105}, "general");

    Random random(12);
    for (int i = 0; i < 300; ++i) { // dyadic maps compose and map without rounding
        const Map a = randomDyadicMap(random);
        const Map b = randomDyadicMap(random);
        const kmath_vect point{i * 0.5, 7.25 - i};
        kmath_vect inner;
        kmath_vect outer;
        kmath_vect direct;
        const Map ab = compose(a, b);
        kmath_xformLinear_mapPoint(&b, &point, &inner);
        kmath_xformLinear_mapPoint(&a, &inner, &outer);
        EXPECT_EQ(kmath_xformLinear_mapPoint(&ab, &point, &direct), 0);
        EXPECT_EQ(direct.x, outer.x);
        EXPECT_EQ(direct.y, outer.y);
    }
}

TEST(Compose, ResultMayBeEitherOperand)
{
    const Map a{1, 2, 3, 4, 5, 6};
    const Map b{7, 8, 9, 10, 11, 12};
    const Map expected = compose(a, b);
    Map first = a;
    kmath_xformLinear_initCompose(&first, &first, &b);
    expectSame(first, expected, "over the first operand");
    Map second = b;
    kmath_shapeAffineRect_initMap(&second, &a, &second);
    expectSame(second, expected, "a rectangle carried in place");
    kmath_vect point{1, 2};
    kmath_xformLinear_mapPoint(&a, &point, &point);
    EXPECT_EQ(point.x, 12);
    EXPECT_EQ(point.y, 19);
}

TEST(Compose, ReportsWhatIsNotFiniteAndLeavesTheResult)
{
    for (size_t place = 0; place < 6; ++place) {
        for (const double bad : {kNan, kInfinity, -kInfinity}) {
            std::vector<double> e = elements(kIdentity);
            e[place] = bad;
            const Map map{e[0], e[1], e[2], e[3], e[4], e[5]};
            Map result = kUntouched;
            EXPECT_EQ(kmath_xformLinear_initCompose(&result, &map, &kIdentity), kmath_statusNotFinite) << place;
            EXPECT_EQ(kmath_xformLinear_initCompose(&result, &kIdentity, &map), kmath_statusNotFinite) << place;
            EXPECT_EQ(kmath_xformLinear_initInverse(&result, &map), kmath_statusNotFinite) << place;
            expectSame(result, kUntouched, "after a failure");
        }
    }
    const Map huge{0, 0, 1e200, 0, 0, 1};
    Map result = kUntouched;
    EXPECT_EQ(kmath_xformLinear_initCompose(&result, &huge, &huge), kmath_statusNotFinite);
    expectSame(result, kUntouched, "after an overflow");
}

TEST(Inverse, OfDyadicMapsIsExact)
{
    expectSame(inverseOf({10, 20, 100, 0, 0, 50}), {-0.1, -0.4, 0.01, 0, 0, 0.02}, "each quotient rounded once");
    Random random(13);
    for (int i = 0; i < 500; ++i) {
        const Map map = randomDyadicMap(random);
        const Map inverse = inverseOf(map);
        expectSame(compose(inverse, map), kIdentity, "inverse after map");
        expectSame(compose(map, inverse), kIdentity, "map after inverse");
        for (const double element : elements(inverse))
            EXPECT_FALSE(element == 0.0 && std::signbit(element)) << "a negative zero";
    }
}

TEST(Inverse, OfOrdinaryMapsUndoesThem)
{
    Random random(14);
    const auto element = [&] { return random.between(-10.0, 10.0); };
    const auto shift = [&] { return random.between(-3000.0, 3000.0); };
    for (int i = 0; i < 1000; ++i) {
        const Map map{shift(), shift(), element(), element(), element(), element()};
        const double determinant = map.e0 * map.e3 - map.e1 * map.e2;
        if (std::fabs(determinant) < 0.5)
            continue;
        Map inverse = map;
        ASSERT_EQ(kmath_xformLinear_initInverse(&inverse, &inverse), 0);
        const std::vector<double> product = elements(compose(inverse, map));
        const std::vector<double> identity = elements(kIdentity);
        for (size_t k = 0; k < 6; ++k)
            EXPECT_NEAR(product[k], identity[k], 1e-9) << "element " << k << " of map " << i;
    }
}

// Units of source and result are scaled by powers of two, up to where the determinant, or its square, no
// longer fits a double: the inverse must scale along to the bit.
TEST(Inverse, HoldsItsBitsAtEveryScale)
{
    const Map map{12.5, -700.1, 3.1, 1.7, -0.9, 2.3};
    const Map inverse = inverseOf(map);
    for (int rowX = -480; rowX <= 480; rowX += 96) {
        for (int rowY = -480; rowY <= 480; rowY += 96) {
            for (int column = -480; column <= 480; column += 96) {
                const double p = std::ldexp(1.0, rowX);
                const double q = std::ldexp(1.0, rowY);
                const double c = std::ldexp(1.0, column);
                const Map scaled{map.tx * p, map.ty * q, map.e0 * p * c, map.e1 * p, map.e2 * q * c, map.e3 * q};
                const Map expected{inverse.tx / c,     inverse.ty,     inverse.e0 / p / c,
                                   inverse.e1 / q / c, inverse.e2 / p, inverse.e3 / q};
                expectSame(inverseOf(scaled), expected,
                           "scaled by 2^" + std::to_string(rowX) + ", 2^" + std::to_string(rowY) + ", 2^" +
                               std::to_string(column));
            }
        }
    }
}

TEST(Inverse, RefusesWhatHasNone)
{
    const struct {
        const char *name;
        Map map;
        int32_t status;
    } cases[] = {
        {"all zero", {0, 0, 0, 0, 0, 0}, kmath_statusSingular},
        {"no x side", {5, 5, 0, 3, 0, 4}, kmath_statusSingular},
        {"no y side", {5, 5, 3, 0, 4, 0}, kmath_statusSingular},
        {"parallel sides", {5, 5, 30, 60, 40, 80}, kmath_statusSingular},
        {"opposite sides", {5, 5, 0.1, -0.1, 0.3, -0.3}, kmath_statusSingular},
        {"huge parallel sides", {5, 5, 1e200, 1e200, 1e300, 1e300}, kmath_statusSingular},
        {"tiny parallel sides", {5, 5, kLeast, kLeast, 4 * kLeast, 4 * kLeast}, kmath_statusSingular},
        {"a huge inverse", {0, 0, kLeast, 0, 0, 1}, kmath_statusNotFinite},
        {"a huge translation of the inverse", {1e200, 0, 1e-200, 0, 0, 1}, kmath_statusNotFinite},
    };
    for (const auto &c : cases) {
        Map result = kUntouched;
        EXPECT_EQ(kmath_xformLinear_initInverse(&result, &c.map), c.status) << c.name;
        expectSame(result, kUntouched, c.name);
    }
}

TEST(Inverse, OfExtremeElementsIsRight)
{
    const Map apart{1e-300, 1e300, 1e-200, 0, 0, 1e200};
    expectSame(inverseOf(apart), {-1e-300 / 1e-200, -1e300 / 1e200, 1 / 1e-200, 0, 0, 1 / 1e200}, "opposite axes");
    const Map crossed{0, 0, 1e200, 1e-200, 1e-200, 1e200};
    expectSame(inverseOf(crossed), {0, 0, 1 / 1e200, 0, 0, 1 / 1e200}, "a product beyond the other's range");
    for (const double element : elements(inverseOf(apart)))
        EXPECT_FALSE(element == 0.0 && std::signbit(element)) << "a negative zero";
}

TEST(Compare, EqualMeansEqualAsNumbers)
{
    const Map map{1, 2, 3, 4, 0.0, 6};
    int32_t equal = -1;
    EXPECT_EQ(kmath_xformLinear_compareEqual(&map, &map, &equal), 0);
    EXPECT_NE(equal, 0);
    const Map negativeZero{1, 2, 3, 4, -0.0, 6};
    kmath_shapeAffineRect_compareEqual(&map, &negativeZero, &equal);
    EXPECT_NE(equal, 0);
    for (size_t place = 0; place < 6; ++place) {
        for (const double other : {-9.0, kNan}) {
            std::vector<double> e = elements(map);
            e[place] = other;
            const Map changed{e[0], e[1], e[2], e[3], e[4], e[5]};
            kmath_xformLinear_compareEqual(&map, &changed, &equal);
            EXPECT_EQ(equal, 0) << place;
            kmath_shapeAffineRect_compareEqual(&changed, &map, &equal);
            EXPECT_EQ(equal, 0) << place;
            if (std::isnan(other)) {
                kmath_shapeAffineRect_compareEqual(&changed, &changed, &equal);
                EXPECT_EQ(equal, 0) << "a rectangle that is not a number equals nothing, itself included";
            }
        }
    }
}

TEST(AffineRect, ConvertsBetweenItsForms)
{
    const kmath_shapeAffineRect rect{10, 20, 30, -12, 40, 16}; // x side (30, 40), y side (-12, 16)
    kmath_shapeAffineRectPoints points{};
    ASSERT_EQ(kmath_shapeAffineRect_getPoints(&rect, &points), 0);
    EXPECT_EQ(points.origin.x, 10);
    EXPECT_EQ(points.origin.y, 20);
    EXPECT_EQ(points.xEnd.x, 40);
    EXPECT_EQ(points.xEnd.y, 60);
    EXPECT_EQ(points.yEnd.x, -2);
    EXPECT_EQ(points.yEnd.y, 36);

    kmath_shapeAffineRect back = kUntouched;
    ASSERT_EQ(kmath_shapeAffineRect_initPoints(&back, &points), 0);
    expectSame(back, rect, "from its points");

    kmath_vect opposite{};
    EXPECT_EQ(kmath_shapeAffineRectPoints_getPopp(&points, &opposite), 0);
    EXPECT_EQ(opposite.x, 28);
    EXPECT_EQ(opposite.y, 76);

    kmath_shapeAffineRectCenter center{};
    ASSERT_EQ(kmath_shapeAffineRect_getCenter(&rect, &center), 0);
    EXPECT_EQ(center.x, 19);
    EXPECT_EQ(center.y, 48);
    EXPECT_EQ(center.xSideLength, 50);
    EXPECT_EQ(center.ySideLength, 20);
}

TEST(AffineRect, ReportsWhatIsNotFiniteAndLeavesTheResult)
{
    kmath_shapeAffineRectCenter center{-1, -2, -3, -4};
    kmath_shapeAffineRectPoints points{{-1, -2}, {-3, -4}, {-5, -6}};
    for (const kmath_shapeAffineRect &rect :
         {kmath_shapeAffineRect{kNan, 0, 1, 0, 0, 1}, kmath_shapeAffineRect{0, 0, 1, kInfinity, 0, 1},
          kmath_shapeAffineRect{kGreatest, 0, kGreatest, 0, 0, kGreatest}}) {
        EXPECT_EQ(kmath_shapeAffineRect_getCenter(&rect, &center), kmath_statusNotFinite);
        EXPECT_EQ(kmath_shapeAffineRect_getPoints(&rect, &points), kmath_statusNotFinite);
    }
    EXPECT_EQ(center.x, -1);
    EXPECT_EQ(center.ySideLength, -4);
    EXPECT_EQ(points.origin.x, -1);
    EXPECT_EQ(points.yEnd.y, -6);

    const kmath_shapeAffineRectPoints apart{{-kGreatest, 0}, {kGreatest, 0}, {0, 1}};
    kmath_shapeAffineRect rect = kUntouched;
    EXPECT_EQ(kmath_shapeAffineRect_initPoints(&rect, &apart), kmath_statusNotFinite);
    expectSame(rect, kUntouched, "after a failure");
}

// The use that the alignment analysis makes of it: a rectangle of pixel centres whose map divides by sizes
// that have no exact reciprocal must still name whole pixels, in all eight orientations.
TEST(Enclose, FindsThePixelsOfMappedCentres)
{
    const struct {
        double e0, e1, e2, e3;
    } turns[] = {{1, 0, 0, 1},   {0, 1, 1, 0},   {0, -1, 1, 0}, {-1, 0, 0, 1},
                 {-1, 0, 0, -1}, {0, -1, -1, 0}, {0, 1, -1, 0}, {1, 0, 0, -1}};
    for (const auto &turn : turns) {
        for (const int32_t width : {1, 2, 7, 49, 64, 113, 1021, 32749}) {
            for (const int32_t height : {1, 3, 48, 103, 997}) {
                const Map unitToSource{-37, 1000, turn.e0 * width, turn.e1 * height, turn.e2 * width, turn.e3 * height};
                const Map map = compose(unitToSource, {0, 0, 1.0 / width, 0, 0, 1.0 / height});
                const kmath_shapeAffineRectPoints centres{{0.5, 0.5}, {width - 0.5, 0.5}, {0.5, height - 0.5}};
                kmath_shapeAffineRect rect;
                ASSERT_EQ(kmath_shapeAffineRect_initPoints(&rect, &centres), 0);
                kstd_rect32 found{};
                ASSERT_EQ(kmath_shapeAffineRect_getEncloseImageRect(&rect, &map, &found), 0);
                const bool swapped = turn.e0 == 0;
                EXPECT_EQ(found.width, swapped ? height : width);
                EXPECT_EQ(found.height, swapped ? width : height);
                EXPECT_EQ(found.x, turn.e0 + turn.e1 > 0 ? -37 : -37 - found.width);
                EXPECT_EQ(found.y, turn.e2 + turn.e3 > 0 ? 1000 : 1000 - found.height);
            }
        }
    }
}

TEST(Enclose, TakesAllFourCornersAndChecksTheirRange)
{
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
        {"a pixel without an end", {2147483647.0, 0, 0, 0, 0, 0}, kmath_statusOutOfRange, {}},
        {"below 32 bits", {-2147483648.5, 0, 1, 0, 0, 1}, kmath_statusOutOfRange, {}},
        {"wider than 32 bits", {-2e9, 0, 4e9, 0, 0, 1}, kmath_statusOutOfRange, {}},
        {"higher than 32 bits", {0, -2e9, 1, 0, 0, 2e9}, 0, {0, -2000000000, 2, 2000000001}},
        {"far away", {0, 1e300, 1, 0, 0, 1}, kmath_statusOutOfRange, {}},
        {"not a number", {0, 0, 1, 0, kNan, 1}, kmath_statusNotFinite, {}},
        {"infinite", {0, 0, 1, 0, 0, kInfinity}, kmath_statusNotFinite, {}},
    };
    for (const auto &c : cases) {
        kstd_rect32 found{-1, -2, -3, -4};
        EXPECT_EQ(kmath_shapeAffineRect_getEncloseImageRect(&c.rect, &kIdentity, &found), c.status) << c.name;
        const kstd_rect32 expected = c.status < 0 ? kstd_rect32{-1, -2, -3, -4} : c.expected;
        EXPECT_EQ(found.x, expected.x) << c.name;
        EXPECT_EQ(found.y, expected.y) << c.name;
        EXPECT_EQ(found.width, expected.width) << c.name;
        EXPECT_EQ(found.height, expected.height) << c.name;
    }
    const kmath_shapeAffineRect unit = kIdentity;
    const Map notANumber{0, 0, kNan, 0, 0, 1};
    kstd_rect32 found{};
    EXPECT_EQ(kmath_shapeAffineRect_getEncloseImageRect(&unit, &notANumber, &found), kmath_statusNotFinite);
}

TEST(Classes, FollowTheRecordFunctions)
{
    const Map a{1, 2, 3, 4, 5, 6};
    const Map b{7, 8, 9, 10, 11, 12};
    expectSame((kq2Xform(a) * kq2Xform(b)).record(), compose(a, b), "product");
    expectSame(kq2Xform(kq2Matrix(1, 2, 3, 4)).record(), {0, 0, 1, 2, 3, 4}, "of a matrix");
    const kq2Vect mapped = kq2Xform(a) * kq2Vect(1, 2);
    EXPECT_EQ(mapped.x(), 12);
    EXPECT_EQ(mapped.y(), 19);

    kq2Xform inverse(kIdentity);
    EXPECT_EQ(kq2Xform(b).getInverse(inverse), 0);
    expectSame(inverse.record(), inverseOf(b), "inverse");
    EXPECT_EQ(kq2Xform(Map{0, 0, 1, 1, 1, 1}).getInverse(inverse), kmath_statusSingular);
    expectSame(inverse.record(), inverseOf(b), "after a failure");

    const kq2Xform huge(Map{0, 0, 1e200, 0, 0, 1});
    try {
        (void)(huge * huge);
        FAIL() << "an infinite product was not thrown";
    } catch (const kqException &failure) {
        EXPECT_EQ(failure.status, kmath_statusNotFinite);
    }
}
