// Geometry where the random calls of the general harness do not lead: at the ends of 32 bits and of doubles, and
// standard sizes. What clipping, footprints and alignments are everywhere else is for the boundary test.

#include <cmath>
#include <cstdint>

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
        kmath_shapeAffineRect rect;
        int32_t width = 4, height = 4;
        kip_affine_imageAlignment code = kip_affine_alignNone;
        kstd_rect32 block = kUntouched;
        int32_t status = 0;
    } rows[] = {
        {turned(16000), 16000, 8, kip_affine_alignRotate90, {0, 0, 8, 16000}},
        {turned(17000), 17000, 8}, // too long
        {{10, 20, 4, 4, 0, 0}},
        {{2147483647.5, 20, 4, 0, 0, 4}},
        {{10, kNan, 4, 0, 0, 4}},
        {{-2147483648.0, 20, 4, 0, 0, 4}, 4, 4, kip_affine_alignIdentity, {kMin32, 20, 4, 4}},
        {{kMax32, 20, 4, 0, 0, 4}, 4, 4, kip_affine_alignIdentity, kUntouched, kmath_statusOutOfRange},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.rect));
        const kip_affineSampleParams params = {row.rect, 0, row.width, row.height};
        kip_affine_imageAlignment found = -77;
        kstd_rect32 block = kUntouched;
        EXPECT_EQ(kip_affine_imageAlignment_compute(&params, &kIdentity, &found, &block), row.status);
        EXPECT_EQ(found, row.code);
        EXPECT_EQ(block, row.block);
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
    const kimg_windowConst source = {3, 1, 0, 0, 0, 0, 3, 1, 3, nullptr, 1}; // does not count
    for (const kmath_shapeAffineRect &rect :
         {kmath_shapeAffineRect{1.5e308, 0, 1.5e308, 0, 0, 8},
          {10, -2e9, 8, 0, 0, 4e9},
          {-2147483644.0, 10, 8, 0, 0, 8}, // the margin crosses the least coordinate
          {2147483637.0, 10, 8, 0, 0, 8}}) {
        kstd_rect32 found = kUntouched;
        const kip_affineSampleParams params = {rect, 1, 8, 8};
        EXPECT_LT(kip_affineSampleParams_getMaxSrcRectWindow(&params, &source, &kIdentity, &found), 0);
        EXPECT_EQ(found, kUntouched) << testing::PrintToString(rect);
    }
}

TEST(SampleParams, StandardSizeTakesOneSamplePerUnitOfMappedLength)
{
    const struct {
        kmath_shapeAffineRect rect;
        int32_t width, height; // -1 where it fails
        kmath_xformLinear map = kIdentity;
    } rows[] = {
        {{3, 4, 30, -12, 40, 5}, 50, 13},
        {{0, 0, 0.49999999999999994, 0, 0, 2.5000000001}, 0, 3},
        {{0, 0, 1e300, 0, 0, 3e9}, kMax32, kMax32},
        {{0, 0, 0, -10, 10, 0}, 5, 30, {0, 0, 3, 0, 0, 0.5}},
        {{0, 0, 8, 0, 0, 4}, 8, 5, {0, 0, 1, 0.75, 0, 1}},
        {{0, 0, kNan, 0, 0, 1}, -1, -1},
        {{1, 2, 30, 0, 0, 40}, -1, -1, {0, 0, 1e308, 0, 0, 1}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.rect));
        kip_affineSampleParams params = {kIdentity, 0, -1, -1};
        EXPECT_EQ(kip_affineSampleParams_initRectStandard(&params, &row.rect, &row.map),
                  row.width < 0 ? kmath_statusNotFinite : 0);
        EXPECT_EQ(params.destWidth, row.width);
        EXPECT_EQ(params.destHeight, row.height);
    }
}

TEST(SampleParams, PlacementIsExactForDyadicRectangles)
{
    const auto placementOf = [](const kip_affineSampleParams &params, int32_t oneRow) {
        kmath_xformLinear placement{};
        EXPECT_EQ(kip_affineSampleParams_getDestImageFromClientXform(&params, oneRow, &placement), 0);
        return placement;
    };
    EXPECT_EQ(placementOf({{8, 0, 0, -4, 16, 0}, 1, 16, 4}, 0), (kmath_xformLinear{0, 8, 0, 1, -1, 0}));
    EXPECT_EQ(placementOf({{0, 0, 4, 4, 0, 4}, 1, 8, 16}, 0), (kmath_xformLinear{0, 0, 2, -2, 0, 4}));
    EXPECT_EQ(placementOf({{10, 20, 100, 0, 0, 64}, 1, 200, 100}, -5), // in rectangle heights
              (kmath_xformLinear{-20, -0.3125, 2, 0, 0, 0.015625}));
}

} // namespace
