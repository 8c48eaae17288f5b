#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/records.h"

namespace {

using namespace kip::test;

constexpr kstd_rect32 kUntouched = {-71, -72, -73, -74};

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
    const kimg_windowConst source = {3, 1, 0, 0, 0, 0, 3, 1, 3, nullptr, 1}; // does not count
    for (const auto &row : rows) {
        kstd_rect32 found = kUntouched;
        const kip_affineSampleParams params = {row.rect, 1, 8, 8};
        EXPECT_LT(kip_affineSampleParams_getMaxSrcRectWindow(&params, &source, &row.map, &found), 0) << row.name;
        EXPECT_EQ(found, kUntouched) << row.name;
    }
}

} // namespace
