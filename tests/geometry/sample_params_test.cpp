#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/records.h"

namespace {

using namespace kip::test;

constexpr kip_affineSampleParams kUntouched = {{1, 2, 3, 4, 5, 6}, 7, 8, 9};

void expectSameBits(const kip_affineSampleParams &expected, const kip_affineSampleParams &actual)
{
    EXPECT_EQ(std::memcmp(&expected.rect, &actual.rect, sizeof expected.rect), 0)
        << testing::PrintToString(actual.rect);
    EXPECT_EQ(actual.mode, expected.mode);
    EXPECT_EQ(actual.destWidth, expected.destWidth);
    EXPECT_EQ(actual.destHeight, expected.destHeight);
}

TEST(SampleParamsInitRectStandard, TakesOneSamplePerUnitOfMappedLength)
{
    constexpr int32_t kFails = -1; // a width
    const kmath_xformLinear twice = {5, -3, 2, 0, 0, 2};
    const kmath_xformLinear wide = {0, 0, 3, 0, 0, 0.5};
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        int32_t width, height;
        std::optional<kmath_xformLinear> map = {};
    } rows[] = {
        {"rounds up and down", {0, 0, 99.6, 0, 0, 10.4}, 100, 10},
        {"lengths of slanted sides", {3, 4, 30, -12, 40, 5}, 50, 13},
        {"sides are not swapped by a turn", {0, 0, 0, -20, 11, 0}, 11, 20},
        {"no length at all", {1, 1, 0, 0.25, 0, 0.25}, 0, 0},
        {"just below and above a half", {0, 0, 0.49999999999999994, 0, 0, 2.5000000001}, 0, 3},
        {"longer than any image", {0, 0, 1e300, 0, 0, 3e9}, INT32_MAX, INT32_MAX},
        {"measured after mapping", {7, 7, 50.2, 0, 0, 10.3}, 100, 21, twice},
        {"a map that scales unevenly", {0, 0, 10, 0, 0, 10}, 30, 5, wide},
        {"the uneven map on a turned rectangle", {0, 0, 0, -10, 10, 0}, 5, 30, wide},
        {"a shearing map", {0, 0, 8, 0, 0, 4}, 8, 5, kmath_xformLinear{0, 0, 1, 0.75, 0, 1}},
        {"side that is no number", {0, 0, kNan, 0, 0, 1}, kFails, 0},
        {"infinite side", {0, 0, 1, 0, 0, -kInfinity}, kFails, 0},
        {"infinite map", {1, 2, 30, 0, 0, 40}, kFails, 0, kmath_xformLinear{0, 0, kInfinity, 0, 0, 1}},
        {"mapped beyond the doubles", {1, 2, 30, 0, 0, 40}, kFails, 0, kmath_xformLinear{0, 0, 1e308, 0, 0, 1}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        kip_affineSampleParams params = kUntouched;
        const int32_t status =
            kip_affineSampleParams_initRectStandard(&params, &row.rect, row.map ? &*row.map : nullptr);
        EXPECT_EQ(status < 0, row.width == kFails);
        const kip_affineSampleParams stored = {row.rect, kip_affineModeBilinear, row.width, row.height};
        expectSameBits(row.width == kFails ? kUntouched : stored, params);
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
        {"one row, in rectangle heights", {{10, 20, 100, 0, 0, 64}, 1, 200, 100}, 1, {-20, -0.3125, 2, 0, 0, 0.015625}},
        {"any nonzero oneRow", {{10, 20, 100, 0, 0, 64}, 1, 200, 100}, -5, {-20, -0.3125, 2, 0, 0, 0.015625}},
        {"quarter turn", {{8, 0, 0, -4, 16, 0}, 1, 16, 4}, 0, {0, 8, 0, 1, -1, 0}},
        {"mirrored", {{8, 4, -8, 0, 0, 4}, 1, 8, 8}, 0, {8, -8, -1, 0, 0, 2}},
        {"sheared", {{0, 0, 4, 4, 0, 4}, 1, 4, 4}, 0, {0, 0, 1, -1, 0, 1}},
    };
    for (const auto &row : rows) {
        kmath_xformLinear placement{};
        ASSERT_GE(kip_affineSampleParams_getDestImageFromClientXform(&row.params, row.oneRow, &placement), 0);
        EXPECT_EQ(placement, row.expected) << row.name;
    }
}

// As parallel as their coordinates can be said to be, whatever the counts and the lengths; or by a little less.
TEST(SampleParamsPlacement, IsThatOfSidesThatAreNotParallel)
{
    const struct {
        kmath_shapeAffineRect rect;
        bool isParallel;
    } rows[] = {
        {{1, 2, 10, 20, 30, 60}, true},           {{1, 2, 0.1, 0.3 * 0.1, -0.7, -0.3 * 0.7}, true},
        {{1, 2, 1, 1, 1, 1 + 3 * 0x1p-52}, true}, {{1, 2, 1, 1, 1, 1 + 9 * 0x1p-52}, false},
        {{1, 2, 1e5, 1e5, 1, 1.0001}, false},     {{1, 2, 1e-12, 1e-12, 1, 1.0001}, false},
        {{1, 2, 1, 0, 0, 1e-12}, false},
    };
    for (const auto &row : rows) {
        for (int n = 0; n < 2000; ++n) {
            const double x = std::ldexp(1.0, n * 331 % 600 - 300), y = std::ldexp(1.0, n * 173 % 600 - 300);
            const kmath_shapeAffineRect &r = row.rect;
            const kip_affineSampleParams params = {
                {r.tx * x, r.ty * x, r.e0 * x, r.e1 * y, r.e2 * x, r.e3 * y}, 0, n % 59 + 1, n * 7 % 53 + 1};
            kmath_xformLinear placement = kIdentity;
            const int32_t status = kip_affineSampleParams_getDestImageFromClientXform(&params, n & 1, &placement);
            ASSERT_EQ(status, row.isParallel ? kmath_statusSingular : 0) << testing::PrintToString(r) << ", " << n;
            ASSERT_TRUE(!row.isParallel || placement == kIdentity);
        }
    }
}

} // namespace
