#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/images.h"

namespace {

using kip::test::Image;
using kip::test::Random;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

constexpr kmath_xformLinear kIdentity = {0, 0, 1, 0, 0, 1};
constexpr kstd_rect32 kUntouched = {-71, -72, -73, -74};

void expectRect(const kstd_rect32 &expected, const kstd_rect32 &actual)
{
    EXPECT_EQ(actual.x, expected.x);
    EXPECT_EQ(actual.y, expected.y);
    EXPECT_EQ(actual.width, expected.width);
    EXPECT_EQ(actual.height, expected.height);
}

TEST(SourceFootprint, SurroundsTheCornerCentersBySixPixels)
{
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        int32_t width, height;
        kmath_xformLinear map;
        kstd_rect32 expected;
    } rows[] = {
        // Centres 10.5 to 109.5: floor(4.5) to ceil(115.5), both ends counted.
        {"whole pixels", {10, 10, 100, 0, 0, 100}, 100, 100, kIdentity, {4, 4, 113, 113}},
        {"centres on whole numbers", {9.5, 9.5, 100, 0, 0, 100}, 100, 100, kIdentity, {4, 4, 112, 112}},
        {"a little later", {9.625, 9.5, 100, 0, 0, 100}, 100, 100, kIdentity, {4, 4, 113, 112}},
        {"a little earlier", {9.5, 9.375, 100, 0, 0, 100}, 100, 100, kIdentity, {4, 3, 112, 113}},
        {"below zero", {-20.25, -3, 8, 0, 0, 4}, 8, 4, kIdentity, {-26, -9, 21, 17}},
        {"one sample", {10, 20, 64, 0, 0, 32}, 1, 1, kIdentity, {36, 30, 13, 13}},
        {"one sample, between pixels", {10.25, 20, 64, 0, 0, 32}, 1, 1, kIdentity, {36, 30, 14, 13}},
        {"few samples far apart", {0, 0, 64, 0, 0, 64}, 2, 4, kIdentity, {10, 2, 45, 61}},
        {"mirrored", {110, 110, -100, 0, 0, -100}, 100, 100, kIdentity, {4, 4, 113, 113}},
        {"quarter turn", {110, 20, 0, -100, 50, 0}, 50, 100, kIdentity, {4, 14, 113, 63}},
        {"diamond", {50, 10, 32, -32, 32, 32}, 2, 2, kIdentity, {28, 20, 45, 45}},
        {"map twice as fine", {5, 5, 50, 0, 0, 50}, 100, 100, {0, 0, 2, 0, 0, 2}, {4, 4, 113, 113}},
        {"map with y upwards", {10, 90, 100, 0, 0, -50}, 100, 50, {0, 100, 1, 0, 0, -1}, {4, 4, 113, 63}},
        {"map that turns", {10, 10, 50, 0, 0, 100}, 50, 100, {120, 0, 0, -1, 1, 0}, {4, 4, 113, 63}},
    };
    for (const auto &row : rows) {
        for (uint32_t mode = kip_affineModeNearest; mode <= kip_affineModeBicubic; ++mode) {
            SCOPED_TRACE(testing::Message() << row.name << ", mode " << mode);
            const kip_affineSampleParams params = {row.rect, mode, row.width, row.height};

            // The window does not count, however small or odd.
            const kimg_windowConst window = {3, 1, -500, 70000, 0, 0, 3, 1, -3, nullptr, 1};
            kstd_rect32 rect = kUntouched;
            EXPECT_EQ(kip_affineSampleParams_getMaxSrcRectWindow(&params, &window, &row.map, &rect), 0);
            expectRect(row.expected, rect);

            Image image(1, 3, 2);
            image.setMap(row.map);
            image.place(40, -40);
            rect = kUntouched;
            EXPECT_EQ(kip_affineSampleParams_getMaxSrcRect(&params, image.get(), &rect), 0);
            expectRect(row.expected, rect);
        }
    }
}

// Every sample lies six pixels inside, and no side stands off further than rounding moves it.
TEST(SourceFootprint, EnclosesEverySampleTightly)
{
    Random random(12);
    for (int i = 0; i < 300; ++i) {
        const int32_t width = random.between32(1, 30);
        const int32_t height = random.between32(1, 30);
        const kmath_shapeAffineRect rect = {random.between(-99.0, 99.0), random.between(-99.0, 99.0),
                                            random.between(-60.0, 60.0), random.between(-60.0, 60.0),
                                            random.between(-60.0, 60.0), random.between(-60.0, 60.0)};
        const kmath_xformLinear map = {random.between(-99.0, 99.0), random.between(-99.0, 99.0),
                                       random.between(-2.0, 2.0),   random.between(-2.0, 2.0),
                                       random.between(-2.0, 2.0),   random.between(-2.0, 2.0)};
        const kip_affineSampleParams params = {rect, 0, width, height};
        const kimg_windowConst window{};
        kstd_rect32 found;
        ASSERT_EQ(kip_affineSampleParams_getMaxSrcRectWindow(&params, &window, &map, &found), 0);

        double left = kInfinity, right = -kInfinity, top = kInfinity, bottom = -kInfinity;
        for (int32_t row = 0; row < height; ++row) {
            for (int32_t column = 0; column < width; ++column) {
                const double u = (column + 0.5) / width;
                const double v = (row + 0.5) / height;
                const double x = rect.e0 * u + rect.e1 * v + rect.tx;
                const double y = rect.e2 * u + rect.e3 * v + rect.ty;
                left = std::min(left, map.e0 * x + map.e1 * y + map.tx);
                right = std::max(right, map.e0 * x + map.e1 * y + map.tx);
                top = std::min(top, map.e2 * x + map.e3 * y + map.ty);
                bottom = std::max(bottom, map.e2 * x + map.e3 * y + map.ty);
            }
        }
        constexpr double kRounding = 1e-9;
        const double xEnd = found.x + found.width - 1.0;
        const double yEnd = found.y + found.height - 1.0;
        EXPECT_GE(left - found.x, 6.0 - kRounding) << "case " << i;
        EXPECT_LE(left - found.x, 7.0 + kRounding) << "case " << i;
        EXPECT_GE(top - found.y, 6.0 - kRounding) << "case " << i;
        EXPECT_LE(top - found.y, 7.0 + kRounding) << "case " << i;
        EXPECT_GE(xEnd - right, 6.0 - kRounding) << "case " << i;
        EXPECT_LE(xEnd - right, 7.0 + kRounding) << "case " << i;
        EXPECT_GE(yEnd - bottom, 6.0 - kRounding) << "case " << i;
        EXPECT_LE(yEnd - bottom, 7.0 + kRounding) << "case " << i;
    }
}

TEST(SourceFootprint, FailsWhereNoRectangleHoldsIt)
{
    const kmath_shapeAffineRect plain = {10, 10, 8, 0, 0, 8};
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        kmath_xformLinear map;
    } rows[] = {
        {"rectangle without a number", {10, kNan, 8, 0, 0, 8}, kIdentity},
        {"infinite rectangle", {10, 10, kInfinity, 0, 0, 8}, kIdentity},
        {"map without a number", plain, {0, 0, 1, 0, kNan, 1}},
        {"infinite map", plain, {0, -kInfinity, 1, 0, 0, 1}},
        {"beyond the doubles", {10, 10, 1e308, 0, 0, 8}, {0, 0, 100, 0, 0, 1}},
        {"corner beyond the doubles", {1.5e308, 0, 1.5e308, 0, 0, 8}, kIdentity},
        {"far away", {1e308, 1e308, 8, 0, 0, 8}, kIdentity},
        {"too far right for 32 bits", {3e9, 10, 8, 0, 0, 8}, kIdentity},
        {"too far left for 32 bits", {-3e9, 10, 8, 0, 0, 8}, kIdentity},
        {"too far down for 32 bits", {10, 3e9, 8, 0, 0, 8}, kIdentity},
        {"too far up for 32 bits", {10, -3e9, 8, 0, 0, 8}, kIdentity},
        {"wider than 32 bits", {-2e9, 10, 4e9, 0, 0, 8}, kIdentity},
        {"the margin crosses the least coordinate", {-2147483644.0, 10, 8, 0, 0, 8}, kIdentity},
        {"the margin crosses the greatest coordinate", {2147483637.0, 10, 8, 0, 0, 8}, kIdentity},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const kip_affineSampleParams params = {row.rect, 1, 8, 8};
        const kimg_windowConst window = {100, 100, 0, 0, 0, 0, 100, 100, 100, nullptr, 1};
        kstd_rect32 rect = kUntouched;
        EXPECT_LT(kip_affineSampleParams_getMaxSrcRectWindow(&params, &window, &row.map, &rect), 0);
        expectRect(kUntouched, rect);
    }
    for (const int32_t size : {0, -1, INT32_MIN}) { // no failure is promised, only that nothing breaks
        const kip_affineSampleParams params = {plain, 1, size, 8};
        const kimg_windowConst window{};
        kstd_rect32 rect = kUntouched;
        if (kip_affineSampleParams_getMaxSrcRectWindow(&params, &window, &kIdentity, &rect) < 0)
            expectRect(kUntouched, rect);
    }
}

} // namespace
