#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/images.h"
#include "support/records.h"

namespace {

using namespace kip::test;

constexpr kstd_rect32 kUntouched = {-71, -72, -73, -74};

// By the window's form, whose numbers do not count, however small or odd, and by the image's: the same.
int32_t footprint(const kip_affineSampleParams &params, const kmath_xformLinear &map, kstd_rect32 *rect)
{
    const kimg_windowConst window = {3, 1, -500, 70000, 0, 0, 3, 1, -3, nullptr, 1};
    Image image(1, 3, 2);
    image.setMap(map);
    image.place(40, -40);
    kstd_rect32 ofImage = kUntouched;
    *rect = kUntouched;
    const int32_t status = kip_affineSampleParams_getMaxSrcRectWindow(&params, &window, &map, rect);
    EXPECT_EQ(kip_affineSampleParams_getMaxSrcRect(&params, image.get(), &ofImage), status);
    EXPECT_EQ(*rect, ofImage);
    return status;
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
        {"few samples far apart", {0, 0, 64, 0, 0, 64}, 2, 4, kIdentity, {10, 2, 45, 61}},
        {"quarter turn", {110, 20, 0, -100, 50, 0}, 50, 100, kIdentity, {4, 14, 113, 63}},
        {"map with y upwards", {10, 90, 100, 0, 0, -50}, 100, 50, {0, 100, 1, 0, 0, -1}, {4, 4, 113, 63}},
    };
    for (const auto &row : rows) {
        for (uint32_t mode = kip_affineModeNearest; mode <= kip_affineModeBicubic; ++mode) {
            SCOPED_TRACE(testing::Message() << row.name << ", mode " << mode);
            kstd_rect32 rect;
            EXPECT_EQ(footprint({row.rect, mode, row.width, row.height}, row.map, &rect), 0);
            EXPECT_EQ(rect, row.expected);
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
        {"no number in the map", {10, 10, 8, 0, 0, 8}, {0, 0, 1, kNan, 0, 1}},
        {"beyond the doubles", {10, 10, 1e308, 0, 0, 8}, {0, 0, 100, 0, 0, 1}},
        {"corner beyond the doubles", {1.5e308, 0, 1.5e308, 0, 0, 8}},
        {"wider than 32 bits", {-2e9, 10, 4e9, 0, 0, 8}},
        {"higher than 32 bits", {10, -2e9, 8, 0, 0, 4e9}},
        {"the margin crosses the least coordinate", {-2147483644.0, 10, 8, 0, 0, 8}},
        {"the margin crosses the greatest coordinate", {2147483637.0, 10, 8, 0, 0, 8}},
    };
    for (const auto &row : rows) {
        kstd_rect32 found;
        EXPECT_LT(footprint({row.rect, 1, 8, 8}, row.map, &found), 0) << row.name;
        EXPECT_EQ(found, kUntouched) << row.name;
    }
}

} // namespace
