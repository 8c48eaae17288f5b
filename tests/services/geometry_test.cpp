// Vectors, matrices, affine maps and rectangles: exactness, extremes and statuses.

#include <kmath/kmath.h>
#include <kmath/kq2.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <utility>

#include <gtest/gtest.h>

#include "support/random.h"
#include "support/records.h"

namespace {

using namespace kip::test;

using Map = kmath_xformLinear;

constexpr double kGreatest = std::numeric_limits<double>::max();
constexpr double kLeast = std::numeric_limits<double>::denorm_min();
constexpr Map kUntouched{-1, -2, -3, -4, -5, -6};
constexpr kstd_rect32 kNone{-1, -2, -3, -4};

Map inverseOf(const Map &map)
{
    Map result = kUntouched;
    EXPECT_EQ(kmath_xformLinear_initInverse(&result, &map), 0);
    for (const auto element : kElements)
        EXPECT_FALSE(result.*element == 0.0 && std::signbit(result.*element)) << "a negative zero";
    return result;
}

double scaleOf(const kmath_matrix &matrix)
{
    double scale = -1;
    EXPECT_EQ(kmath_matrix_getScale(&matrix, &scale), 0);
    return scale;
}

} // namespace

TEST(Scalar, SaturatesAndRoundsHalvesAwayFrom0)
{
    const auto saturated = [](double whole) {
        return std::isnan(whole) ? 0 : static_cast<int32_t>(std::clamp<double>(whole, kMin32, kMax32));
    };
    for (const double magnitude : {0.0, 2.5, 2.75, 0.49999999999999994, 1073741824.5, 2147483646.5, 2147483647.4,
                                   2147483647.5, 1e300, kInfinity, kNan}) {
        for (const double value : {magnitude, -magnitude}) {
            const double below = std::floor(magnitude);
            const double rounded = magnitude - below >= 0.5 ? below + 1 : below;
            EXPECT_EQ(kmath_double_round(value), saturated(std::copysign(rounded, value))) << value;
            EXPECT_EQ(kqfIFloor(value), saturated(std::floor(value))) << value;
            EXPECT_EQ(kqfICeil(value), saturated(std::ceil(value))) << value;
        }
    }
    for (const auto &[value, fraction] : {kmath_vect{-3.25, 0.75}, {kInfinity, 0}})
        EXPECT_EQ(kqfFrac(value), fraction);
}

TEST(Lengths, HaveTheBitsOfThePlainFormulaAndTheRangeOfDoubles)
{
    Random random(11);
    const auto draw = [&random] { return random.between(-5000.0, 5000.0); };
    for (int i = 0; i < 2000; ++i) {
        const kmath_matrix m{draw(), draw(), draw(), draw()};
        const double unit = std::ldexp(1.0, random.between32(-960, 1000));
        EXPECT_EQ(scaleOf({m.e0 * unit, m.e1 * unit, m.e2 * unit, m.e3 * unit}),
                  std::sqrt(std::max(m.e0 * m.e0 + m.e2 * m.e2, m.e1 * m.e1 + m.e3 * m.e3)) * unit);
    }
    EXPECT_EQ(scaleOf({3 * 0x1p-1060, 0, -4 * 0x1p-1060, 0}), 5 * 0x1p-1060);
    EXPECT_EQ(scaleOf({kLeast, kGreatest, 0, kGreatest}), kInfinity);
    EXPECT_TRUE(std::isnan(scaleOf({1, kNan, 1, 0})));
}

TEST(Maps, ComposeInPlaceAndReportWhatIsNotFinite)
{
    const Map a{1, 2, 1, 4, 8, 1};
    Map inPlace{3, 5, 7, 11, 13, 17}; // applied first
    EXPECT_EQ(kmath_shapeAffineRect_initMap(&inPlace, &a, &inPlace), 0);
    EXPECT_EQ(inPlace, (Map{24, 31, 59, 79, 69, 105}));

    const Map spoilt{0, 0, 1, 0, kNan, 1};
    const Map huge{0, 0, 1e200, 0, 0, 1}; // finite, but its square is not
    const Map far{kGreatest, 0, kGreatest, 0, 0, kGreatest};
    const kmath_shapeAffineRectPoints apart{{-kGreatest, 0}, {kGreatest, 0}, {0, 1}};
    kmath_shapeAffineRectPoints points{};
    kmath_shapeAffineRectCenter center{};
    Map result = kUntouched;
    for (const int32_t status :
         {kmath_xformLinear_initCompose(&result, &huge, &huge), kmath_xformLinear_initInverse(&result, &spoilt),
          kmath_shapeAffineRect_initPoints(&result, &apart), kmath_shapeAffineRect_getPoints(&far, &points),
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
    Random random(14);
    for (int i = 0; i < 2000; ++i) {
        const auto draw = [&random] { return std::ldexp(1.0, random.between32(-480, 480)); };
        const double p = draw(), q = draw(), c = draw();
        const Map scaled{map.tx * p, map.ty * q, map.e0 * p * c, map.e1 * p, map.e2 * q * c, map.e3 * q};
        const Map expected{inverse.tx / c,     inverse.ty,     inverse.e0 / p / c,
                           inverse.e1 / q / c, inverse.e2 / p, inverse.e3 / q};
        EXPECT_EQ(inverseOf(scaled), expected) << "scaled by " << p << ", " << q << ", " << c;
    }
    EXPECT_EQ(inverseOf({0, 0, 1e200, 0, 0, 1e200}), (Map{0, 0, 1 / 1e200, 0, 0, 1 / 1e200}));

    const std::pair<Map, int32_t> refused[] = {
        {{0, 0, 0, 0, 0, 0}, kmath_statusSingular},
        {{5, 5, 0.1, -0.1, 0.3, -0.3}, kmath_statusSingular},
        {{5, 5, 1e200, 1e200, 1e300, 1e300}, kmath_statusSingular},
        {{5, 5, kLeast, kLeast, 4 * kLeast, 4 * kLeast}, kmath_statusSingular},
        {{0, 0, kLeast, 0, 0, 1}, kmath_statusNotFinite},
        {{1e200, 0, 1e-200, 0, 0, 1}, kmath_statusNotFinite}, // for its translation alone
    };
    for (const auto &[given, status] : refused) {
        kq2Xform object(kUntouched);
        EXPECT_EQ(kq2Xform(given).getInverse(object), status) << testing::PrintToString(given);
        EXPECT_EQ(object.record(), kUntouched);
    }
}

TEST(Center, TurnsByQuartersExactlyHoweverTheyAreComputed)
{
    constexpr double kPi = std::numbers::pi;
    const Map turned[] = {
        {7, -3.75, 7, 0, 0, 3}, {12, -5.75, 0, -3, 7, 0}, {14, -0.75, -7, 0, 0, -3}, {9, 1.25, 0, 3, -7, 0}};
    Random random(12);
    for (int i = 0; i < 4000; ++i) {
        const int32_t quarters = i < 9 ? i - 4 : random.between32(-3000000, 3000000);
        const double degrees = 90.0 * quarters;
        for (const double angle :
             {quarters * (kPi / 2), degrees * kPi / 180, degrees * (kPi / 180), degrees / 180 * kPi}) {
            Map rect = kUntouched;
            EXPECT_EQ(kmath_shapeAffineRect_initCenter(&rect, 10.5, -2.25, 7, 3, angle), 0);
            ASSERT_EQ(rect, turned[quarters & 3]) << quarters;
            for (const auto element : kElements)
                EXPECT_TRUE(rect.*element != 0.0 || !std::signbit(rect.*element)) << "a negative zero";
        }
    }
    for (int i = 0; i < 6; ++i) {
        double numbers[] = {1, 2, 3, 4, 5, -1e308};
        numbers[i] = i < 5 ? i % 2 == 0 ? kNan : kInfinity : 0;
        if (i == 5) // finite numbers, but not the corner's
            numbers[0] = -kGreatest, numbers[2] = kGreatest;
        Map rect = kUntouched;
        EXPECT_EQ(kmath_shapeAffineRect_initCenter(&rect, numbers[0], numbers[1], numbers[2], numbers[3], numbers[4]),
                  kmath_statusNotFinite);
        EXPECT_EQ(rect, kUntouched);
    }
    for (const double angle : {kGreatest, -kGreatest, kLeast}) {
        Map rect = kUntouched;
        EXPECT_EQ(kmath_shapeAffineRect_initCenter(&rect, 0, 0, 1, 1, angle), 0);
        EXPECT_NEAR(std::hypot(rect.e0, rect.e2), 1, 1e-15);
    }
}

TEST(Center, HasTheSameSinesAndCosinesOnEveryMachine)
{
    Random random(13);
    uint64_t hash = 0xcbf29ce484222325u;
    for (int i = 0; i < 20000; ++i) {
        const double angle = i % 2 == 0 ? random.between(-60.0, 60.0) : std::ldexp(random.between(-1.0, 1.0), -i % 64);
        Map rect = kUntouched; // of a square with sides of length 1
        EXPECT_EQ(kmath_shapeAffineRect_initCenter(&rect, 0, 0, 1, 1, angle), 0);
        EXPECT_EQ(rect.e1, -rect.e2);
        EXPECT_EQ(rect.e3, rect.e0);
        const long double exact[] = {std::cos(static_cast<long double>(angle)),
                                     std::sin(static_cast<long double>(angle))};
        for (const double got : {rect.e0, rect.e2}) {
            const long double error = std::fabs(got - exact[got == rect.e0 ? 0 : 1]);
            // Of the standard library, whose long double may be a double.
            EXPECT_LE(error, std::nextafter(std::fabs(got), 2) - std::fabs(got) + 1e-18L) << angle;
            hash = (hash ^ std::bit_cast<uint64_t>(got)) * 0x100000001b3u;
        }
    }
    EXPECT_EQ(hash, 14334558678212482763u);
}

TEST(Enclose, TakesAllFourCornersAndChecksTheirRange)
{
    const struct {
        kmath_shapeAffineRect rect;
        kstd_rect32 expected;
        int32_t status = 0;
    } cases[] = {
        {{0.5, 0.5, 10, 20, 30, 5}, {0, 0, 31, 36}},         // the opposite corner is the farthest
        {{0.5, 0.5, -10, -20, -30, -5}, {-30, -35, 31, 36}}, // the origin is
        {{2, 3, 4, 0, 0, 5}, {2, 3, 5, 6}},                  // a corner on a pixel's edge lies in that pixel
        {{2147483646.5, -2147483648.0, 0, 0, 0, 0}, {kMax32 - 1, kMin32, 1, 1}}, // the last pixel that has an end
        {{2147483647.0, 0, 0, 0, 0, 0}, kNone, kmath_statusOutOfRange},
        {{-2147483648.5, 0, 1, 0, 0, 1}, kNone, kmath_statusOutOfRange},
        {{0, -2147483648.0, 1, 0, 0, 2147483647.0}, kNone, kmath_statusOutOfRange}, // too high for a size
        {{0, kNan, 1, 0, 0, 1}, kNone, kmath_statusNotFinite},
    };
    for (const auto &c : cases) {
        kstd_rect32 found = kNone;
        EXPECT_EQ(kmath_shapeAffineRect_getEncloseImageRect(&c.rect, &kIdentity, &found), c.status);
        EXPECT_EQ(found, c.expected) << testing::PrintToString(c.rect);
    }
}

TEST(Rect32, RefusesWhatHasNoEnd)
{
    const std::pair<kstd_rect32, int32_t> cases[] = {
        {{kMin32, kMin32, kMax32, kMax32}, 0},    {{kMax32, 0, 0, kMax32}, 0},
        {{1, 0, kMax32, 0}, kstd_statusTooLarge}, {{0, kMax32, 0, kMax32}, kstd_statusTooLarge},
        {{0, 0, -1, 1}, kstd_statusNegativeSize}, {{0, 0, 1, kMin32}, kstd_statusNegativeSize},
    };
    for (const auto &[asked, status] : cases) {
        kstd_rect32 rect = kNone;
        EXPECT_EQ(kstd_rect32_init(&rect, asked.x, asked.y, asked.width, asked.height), status);
        EXPECT_EQ(rect, status < 0 ? kNone : asked);
    }
}
