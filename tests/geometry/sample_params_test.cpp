#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/random.h"

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

void expectSameBits(const kmath_xformLinear &expected, const kmath_xformLinear &actual)
{
    EXPECT_EQ(std::memcmp(&expected, &actual, sizeof expected), 0)
        << actual.tx << ' ' << actual.ty << ' ' << actual.e0 << ' ' << actual.e1 << ' ' << actual.e2 << ' '
        << actual.e3;
}

TEST(SampleParamsInit, StoresWhateverItIsGiven)
{
    const struct {
        uint32_t mode;
        kmath_shapeAffineRect rect;
        int32_t width, height;
    } rows[] = {
        {kip_affineModeNearest, {1.5, -2.0, 30.0, 0.25, -0.5, 40.0}, 30, 40},
        {kip_affineModeBicubic, {0.0, 0.0, 0.0, 0.0, 0.0, 0.0}, 0, -7},
        {4, {kNan, kInfinity, -kInfinity, 1e308, -0.0, 5e-324}, INT32_MIN, INT32_MAX},
        {UINT32_MAX, {1.0, 2.0, 3.0, 4.0, 5.0, 6.0}, 1, 1},
    };
    for (const auto &row : rows) {
        kip_affineSampleParams params{{9.0, 9.0, 9.0, 9.0, 9.0, 9.0}, 9, 9, 9};
        EXPECT_EQ(kip_affineSampleParams_init(&params, row.mode, &row.rect, row.width, row.height), 0);
        expectSameBits(row.rect, params.rect);
        EXPECT_EQ(params.mode, row.mode);
        EXPECT_EQ(params.destWidth, row.width);
        EXPECT_EQ(params.destHeight, row.height);
    }
}

TEST(SampleParamsInitRectStandard, TakesOneSamplePerUnitOfMappedLength)
{
    const kmath_xformLinear twice = {5.0, -3.0, 2.0, 0.0, 0.0, 2.0};
    const kmath_xformLinear wide = {0.0, 0.0, 3.0, 0.0, 0.0, 0.5};
    const kmath_xformLinear quarterTurn = {100.0, 0.0, 0.0, -1.0, 1.0, 0.0};
    const kmath_xformLinear sheared = {0.0, 0.0, 1.0, 0.75, 0.0, 1.0}; // takes (0, 4) to (3, 4)
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        std::optional<kmath_xformLinear> map;
        int32_t width, height;
    } rows[] = {
        {"rounds up and down", {0.0, 0.0, 99.6, 0.0, 0.0, 10.4}, {}, 100, 10},
        {"place does not count", {-1e6, 1e6, 99.6, 0.0, 0.0, 10.4}, {}, 100, 10},
        {"lengths of slanted sides", {3.0, 4.0, 30.0, -12.0, 40.0, 5.0}, {}, 50, 13},
        {"mirrored sides", {0.0, 0.0, -7.0, 0.0, 0.0, -9.0}, {}, 7, 9},
        {"sides are not swapped by a turn", {0.0, 0.0, 0.0, -20.0, 11.0, 0.0}, {}, 11, 20},
        {"no length at all", {1.0, 1.0, 0.0, 0.25, 0.0, 0.25}, {}, 0, 0},
        {"just below and above a half", {0.0, 0.0, 0.49999999999999994, 0.0, 0.0, 2.5000000001}, {}, 0, 3},
        {"longer than any image", {0.0, 0.0, 1e300, 0.0, 0.0, 3e9}, {}, INT32_MAX, INT32_MAX},
        {"measured after mapping", {7.0, 7.0, 50.2, 0.0, 0.0, 10.3}, twice, 100, 21},
        {"a map that scales unevenly", {0.0, 0.0, 10.0, 0.0, 0.0, 10.0}, wide, 30, 5},
        {"the uneven map on a turned rectangle", {0.0, 0.0, 0.0, -10.0, 10.0, 0.0}, wide, 5, 30},
        {"a turning map", {1.0, 2.0, 12.0, 0.0, 0.0, 8.0}, quarterTurn, 12, 8},
        {"a shearing map", {0.0, 0.0, 8.0, 0.0, 0.0, 4.0}, sheared, 8, 5},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        kip_affineSampleParams params{{}, 77, -1, -1};
        EXPECT_EQ(kip_affineSampleParams_initRectStandard(&params, &row.rect, row.map ? &*row.map : nullptr), 0);
        EXPECT_EQ(params.destWidth, row.width);
        EXPECT_EQ(params.destHeight, row.height);
        EXPECT_EQ(params.mode, static_cast<uint32_t>(kip_affineModeBilinear));
        expectSameBits(row.rect, params.rect);
    }
}

TEST(SampleParamsInitRectStandard, FailsOnWhatIsNotFiniteAndKeepsTheRecord)
{
    const kmath_shapeAffineRect rect = {1.0, 2.0, 30.0, 0.0, 0.0, 40.0};
    const kmath_xformLinear unmoved = {0.0, 0.0, 1.0, 0.0, 0.0, 1.0};
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        std::optional<kmath_xformLinear> map;
    } rows[] = {
        {"side that is no number", {0.0, 0.0, kNan, 0.0, 0.0, 1.0}, {}},
        {"infinite side", {0.0, 0.0, 1.0, 0.0, 0.0, -kInfinity}, {}},
        {"side that is no number, mapped", {0.0, 0.0, kNan, 0.0, 0.0, 1.0}, unmoved},
        {"infinite map", rect, kmath_xformLinear{0.0, 0.0, kInfinity, 0.0, 0.0, 1.0}},
        {"map whose place is no number", rect, kmath_xformLinear{kNan, 0.0, 1.0, 0.0, 0.0, 1.0}},
        {"mapped beyond the doubles", rect, kmath_xformLinear{0.0, 0.0, 1e308, 0.0, 0.0, 1.0}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        kip_affineSampleParams params{{1.0, 2.0, 3.0, 4.0, 5.0, 6.0}, 7, 8, 9};
        EXPECT_LT(kip_affineSampleParams_initRectStandard(&params, &row.rect, row.map ? &*row.map : nullptr), 0);
        expectSameBits({1.0, 2.0, 3.0, 4.0, 5.0, 6.0}, params.rect);
        EXPECT_EQ(params.mode, 7u);
        EXPECT_EQ(params.destWidth, 8);
        EXPECT_EQ(params.destHeight, 9);
    }
}

TEST(SampleParamsPlacement, IsExactForDyadicRectangles)
{
    const struct {
        const char *name;
        kip_affineSampleParams params;
        int32_t oneRow;
        kmath_xformLinear expected;
    } rows[] = {
        {"two samples per unit", {{10, 20, 100, 0, 0, 50}, 1, 200, 100}, 0, {-20, -40, 2, 0, 0, 2}},
        {"mode does not count", {{10, 20, 100, 0, 0, 50}, 99, 200, 100}, 0, {-20, -40, 2, 0, 0, 2}},
        {"one row: y is in rectangle heights",
         {{10, 20, 100, 0, 0, 64}, 1, 200, 100},
         1,
         {-20, -0.3125, 2, 0, 0, 0.015625}},
        {"any nonzero oneRow", {{10, 20, 100, 0, 0, 64}, 1, 200, 100}, -5, {-20, -0.3125, 2, 0, 0, 0.015625}},
        {"quarter turn", {{8, 0, 0, -4, 16, 0}, 1, 16, 4}, 0, {0, 8, 0, 1, -1, 0}},
        {"mirrored", {{8, 4, -8, 0, 0, 4}, 1, 8, 8}, 0, {8, -8, -1, 0, 0, 2}},
        {"sheared", {{0, 0, 4, 4, 0, 4}, 1, 4, 4}, 0, {0, 0, 1, -1, 0, 1}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        kmath_xformLinear placement{};
        ASSERT_GE(kip_affineSampleParams_getDestImageFromClientXform(&row.params, row.oneRow, &placement), 0);
        const kmath_xformLinear &e = row.expected;
        EXPECT_EQ(placement.tx, e.tx);
        EXPECT_EQ(placement.ty, e.ty);
        EXPECT_EQ(placement.e0, e.e0);
        EXPECT_EQ(placement.e1, e.e1);
        EXPECT_EQ(placement.e2, e.e2);
        EXPECT_EQ(placement.e3, e.e3);
    }
}

TEST(SampleParamsPlacement, TakesTheRectanglesCornersToTheDestinations)
{
    kip::test::Random random(11);
    for (int i = 0; i < 500; ++i) {
        const double angle = random.between(0.0, 6.3);
        const double width = random.between(1.0, 900.0);
        const double height = random.between(1.0, 900.0);
        const double shear = random.between(-0.5, 0.5);
        const kmath_shapeAffineRect rect = {
            random.between(-1e4, 1e4),         random.between(-1e4, 1e4), width * std::cos(angle),
            -height * std::sin(angle + shear), width * std::sin(angle),   height * std::cos(angle + shear),
        };
        const kip_affineSampleParams params = {rect, 0, random.between32(1, 700), random.between32(1, 700)};
        const int32_t oneRow = random.between32(0, 1);
        kmath_xformLinear placement;
        ASSERT_GE(kip_affineSampleParams_getDestImageFromClientXform(&params, oneRow, &placement), 0);

        const double rows = oneRow != 0 ? 1.0 : params.destHeight;
        const double corners[3][2] = {{0.0, 0.0}, {1.0, 0.0}, {0.0, 1.0}};
        for (const auto &[u, v] : corners) {
            const double x = rect.e0 * u + rect.e1 * v + rect.tx;
            const double y = rect.e2 * u + rect.e3 * v + rect.ty;
            EXPECT_NEAR(placement.e0 * x + placement.e1 * y + placement.tx, u * params.destWidth, 1e-7) << "case " << i;
            EXPECT_NEAR(placement.e2 * x + placement.e3 * y + placement.ty, v * rows, 1e-7) << "case " << i;
        }
    }
}

TEST(SampleParamsPlacement, FailsWithoutAnInverseAndKeepsTheOutput)
{
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        int32_t status; // 0: any failure
    } rows[] = {
        {"parallel sides", {5, 5, 30, 15, 10, 5}, kmath_statusSingular},
        {"opposite sides", {5, 5, 4, -4, 8, -8}, kmath_statusSingular},
        {"x side of no length", {5, 5, 0, 0, 0, 40}, kmath_statusSingular},
        {"y side of no length", {5, 5, 30, 0, 0, 0}, kmath_statusSingular},
        {"a single point", {5, 5, 0, 0, 0, 0}, kmath_statusSingular},
        {"no number", {5, kNan, 30, 0, 0, 40}, 0},
        {"infinite place", {kInfinity, 5, 30, 0, 0, 40}, 0},
        {"infinite side", {5, 5, 30, 0, 0, kInfinity}, 0},
        {"an inverse beyond the doubles", {1e308, 0, 1e-10, 0, 0, 1e-10}, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const kip_affineSampleParams params = {row.rect, 1, 16, 8};
        for (const int32_t oneRow : {0, 1}) {
            kmath_xformLinear placement = {1, 2, 3, 4, 5, 6};
            const int32_t status = kip_affineSampleParams_getDestImageFromClientXform(&params, oneRow, &placement);
            EXPECT_LT(status, 0);
            EXPECT_TRUE(row.status == 0 || status == row.status) << status;
            expectSameBits({1, 2, 3, 4, 5, 6}, placement);
        }
    }
}

} // namespace
