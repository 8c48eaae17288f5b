// Geometry where the random calls of the general harness do not lead: at the ends of 32 bits and of doubles, and
// standard sizes. What clipping, footprints and alignments are everywhere else is for the boundary test.

#include <cmath>
#include <cstdint>
#include <optional>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/records.h"

namespace {

using namespace kip::test;

constexpr kstd_rect32 kUntouched = {-71, -72, -73, -74};

TEST(Alignment, HasATolerancePerPixelAndEndsWith32Bits)
{
    const double angle = std::acos(0.0); // its cosine is about 6.1e-17, which the length multiplies
    const auto turned = [angle](int32_t width) {
        const double c = std::cos(angle), s = std::sin(angle);
        return kmath_shapeAffineRect{8, 0, width * c, -8 * s, width * s, 8 * c};
    };
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        int32_t width, height;
        kip_affine_imageAlignment code = kip_affine_alignNone;
        kstd_rect32 block = kUntouched;
        bool fails = false; // where the block is asked for
    } rows[] = {
        {"long enough a turn", turned(16000), 16000, 8, kip_affine_alignRotate90, {0, 0, 8, 16000}},
        {"too long a turn", turned(17000), 17000, 8},
        {"parallel sides", {10, 20, 4, 4, 0, 0}, 4, 4},
        {"no size", {10, 20, 0, 0, 0, 0}, 0, 0},
        {"right of 32 bits", {2147483648.0, 20, 4, 0, 0, 4}, 4, 4},
        {"right of 32 bits by half a pixel", {2147483647.5, 20, 4, 0, 0, 4}, 4, 4},
        {"far beyond 32 bits", {1e300, -1e300, 4, 0, 0, 4}, 4, 4},
        {"infinitely far", {-kInfinity, 20, 4, 0, 0, 4}, 4, 4},
        {"at no place", {10, kNan, 4, 0, 0, 4}, 4, 4},
        {"enormous sides", {10, 20, 1e300, 0, 0, -1e308}, 4, 4},
        {"at the least", {-2147483648.0, 20, 4, 0, 0, 4}, 4, 4, kip_affine_alignIdentity, {kMin32, 20, 4, 4}},
        {"beyond the greatest", {kMax32, 20, 4, 0, 0, 4}, 4, 4, kip_affine_alignIdentity, kUntouched, true},
    };
    for (const auto &row : rows) {
        for (const bool wantsBlock : {true, false}) {
            SCOPED_TRACE(row.name);
            const kip_affineSampleParams params = {row.rect, 0, row.width, row.height};
            kip_affine_imageAlignment found = -77;
            kstd_rect32 rect = kUntouched;
            const int32_t status =
                kip_affine_imageAlignment_compute(&params, &kIdentity, &found, wantsBlock ? &rect : nullptr);
            EXPECT_EQ(status < 0, row.fails && wantsBlock);
            EXPECT_EQ(found, row.code);
            EXPECT_EQ(rect, wantsBlock ? row.block : kUntouched);
        }
    }
}

// Sides as parallel as their coordinates can be said to be, whatever the counts and the lengths; or by a little less.
TEST(Placement, IsThatOfSidesThatAreNotParallel)
{
    const struct {
        kmath_shapeAffineRect rect;
        bool isParallel;
    } rows[] = {
        {{1, 2, 10, 20, 30, 60}, true},           {{1, 2, 0.1, 0.3 * 0.1, -0.7, -0.3 * 0.7}, true},
        {{1, 2, 1, 1, 1, 1 + 3 * 0x1p-52}, true}, {{1, 2, 1, 1, 1, 1 + 9 * 0x1p-52}, false},
        {{1, 2, 1e5, 1e5, 1, 1.0001}, false},     {{1, 2, 1, 0, 0, 1e-12}, false},
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

TEST(SourceFootprint, FailsWhereNoRectangleHoldsIt)
{
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        kmath_xformLinear map = kIdentity;
    } rows[] = {
        {"no number", {10, kNan, 8, 0, 0, 8}},
        {"beyond the doubles", {10, 10, 1e308, 0, 0, 8}, {0, 0, 100, 0, 0, 1}},
        {"corner beyond the doubles", {1.5e308, 0, 1.5e308, 0, 0, 8}},
        {"wider than 32 bits", {-2e9, 10, 4e9, 0, 0, 8}},
        {"higher than 32 bits", {10, -2e9, 8, 0, 0, 4e9}},
        {"the margin crosses the least coordinate", {-2147483644.0, 10, 8, 0, 0, 8}},
        {"the margin crosses the greatest coordinate", {2147483637.0, 10, 8, 0, 0, 8}},
    };
    const kimg_windowConst source = {3, 1, 0, 0, 0, 0, 3, 1, 3, nullptr, 1}; // does not count
    for (const auto &row : rows) {
        kstd_rect32 found = kUntouched;
        const kip_affineSampleParams params = {row.rect, 1, 8, 8};
        EXPECT_LT(kip_affineSampleParams_getMaxSrcRectWindow(&params, &source, &row.map, &found), 0) << row.name;
        EXPECT_EQ(found, kUntouched) << row.name;
    }
}

TEST(SampleParams, StandardSizeTakesOneSamplePerUnitOfMappedLength)
{
    const kmath_xformLinear wide = {0, 0, 3, 0, 0, 0.5};
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        int32_t width, height; // a width of -1: fails
        std::optional<kmath_xformLinear> map = {};
    } rows[] = {
        {"rounds up and down", {0, 0, 99.6, 0, 0, 10.4}, 100, 10},
        {"lengths of slanted sides", {3, 4, 30, -12, 40, 5}, 50, 13},
        {"sides are not swapped by a turn", {0, 0, 0, -20, 11, 0}, 11, 20},
        {"just below and above a half", {0, 0, 0.49999999999999994, 0, 0, 2.5000000001}, 0, 3},
        {"longer than any image", {0, 0, 1e300, 0, 0, 3e9}, kMax32, kMax32},
        {"the uneven map on a turned rectangle", {0, 0, 0, -10, 10, 0}, 5, 30, wide},
        {"a shearing map", {0, 0, 8, 0, 0, 4}, 8, 5, kmath_xformLinear{0, 0, 1, 0.75, 0, 1}},
        {"side that is no number", {0, 0, kNan, 0, 0, 1}, -1, 0},
        {"mapped beyond the doubles", {1, 2, 30, 0, 0, 40}, -1, 0, kmath_xformLinear{0, 0, 1e308, 0, 0, 1}},
    };
    for (const auto &row : rows) {
        kip_affineSampleParams params = {{1, 2, 3, 4, 5, 6}, 7, 8, 9};
        const bool fails = row.width < 0;
        EXPECT_EQ(kip_affineSampleParams_initRectStandard(&params, &row.rect, row.map ? &*row.map : nullptr) < 0,
                  fails);
        EXPECT_EQ(params.destWidth, fails ? 8 : row.width) << row.name;
        EXPECT_EQ(params.destHeight, fails ? 9 : row.height) << row.name;
        EXPECT_EQ(params.mode, fails ? 7u : uint32_t{kip_affineModeBilinear}) << row.name;
        EXPECT_TRUE(params.rect == (fails ? kmath_shapeAffineRect{1, 2, 3, 4, 5, 6} : row.rect)) << row.name;
    }
}

TEST(SampleParams, PlacementIsExactForDyadicRectangles)
{
    const struct {
        const char *name;
        kip_affineSampleParams params;
        int32_t oneRow;
        kmath_xformLinear expected;
    } rows[] = {
        {"two samples per unit", {{10, 20, 100, 0, 0, 50}, 99, 200, 100}, 0, {-20, -40, 2, 0, 0, 2}},
        {"one row, in rectangle heights",
         {{10, 20, 100, 0, 0, 64}, 1, 200, 100},
         -5,
         {-20, -0.3125, 2, 0, 0, 0.015625}},
        {"quarter turn", {{8, 0, 0, -4, 16, 0}, 1, 16, 4}, 0, {0, 8, 0, 1, -1, 0}},
        {"sheared", {{0, 0, 4, 4, 0, 4}, 1, 4, 4}, 0, {0, 0, 1, -1, 0, 1}},
    };
    for (const auto &row : rows) {
        kmath_xformLinear placement{};
        ASSERT_GE(kip_affineSampleParams_getDestImageFromClientXform(&row.params, row.oneRow, &placement), 0);
        EXPECT_EQ(placement, row.expected) << row.name;
    }
}

} // namespace
