// Alignment where the random calls of the general harness do not lead: at the ends of 32 bits and of doubles. What it
// is everywhere else, so with clipping and footprints, is for the boundary test.

#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/records.h"

namespace {

using namespace kip::test;

constexpr kstd_rect32 kUntouched = {-71, -72, -73, -74};

// A code without a block in the output leaves it untouched.
void expectCode(const kip_affineSampleParams &params, kip_affine_imageAlignment code,
                const kstd_rect32 &block = kUntouched)
{
    for (const bool wantsBlock : {true, false}) {
        kip_affine_imageAlignment found = -77;
        kstd_rect32 rect = kUntouched;
        EXPECT_GE(kip_affine_imageAlignment_compute(&params, &kIdentity, &found, wantsBlock ? &rect : nullptr), 0);
        EXPECT_EQ(found, code);
        EXPECT_EQ(rect, wantsBlock ? block : kUntouched);
    }
}

TEST(Alignment, ToleranceDoesNotGrowWithTheSize)
{
    // The cosine of a quarter turn is about 6.1e-17, which the length multiplies.
    for (const int32_t width : {16000, 17000}) {
        const double angle = std::acos(0.0);
        const kmath_shapeAffineRect rect = {
            8, 0, width * std::cos(angle), -8 * std::sin(angle), width * std::sin(angle), 8 * std::cos(angle)};
        if (width == 16000)
            expectCode({rect, 0, width, 8}, kip_affine_alignRotate90, {0, 0, 8, width});
        else
            expectCode({rect, 0, width, 8}, kip_affine_alignNone);
    }
}

TEST(Alignment, RefusesWhatHasNoPlaceOrNoSize)
{
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        int32_t width, height;
    } rows[] = {
        {"parallel sides", {10, 20, 4, 4, 0, 0}, 4, 4},
        {"no size", {10, 20, 0, 0, 0, 0}, 0, 0},
        {"right of 32 bits", {2147483648.0, 20, 4, 0, 0, 4}, 4, 4},
        {"right of 32 bits by half a pixel", {2147483647.5, 20, 4, 0, 0, 4}, 4, 4},
        {"far beyond 32 bits", {1e300, -1e300, 4, 0, 0, 4}, 4, 4},
        {"infinitely far", {-kInfinity, 20, 4, 0, 0, 4}, 4, 4},
        {"at no place", {10, kNan, 4, 0, 0, 4}, 4, 4},
        {"enormous sides", {10, 20, 1e300, 0, 0, -1e308}, 4, 4},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        expectCode({row.rect, 0, row.width, row.height}, kip_affine_alignNone);
    }
}

// The last coordinates that 32 bits hold: the map is aligned there, but the block may reach further.
TEST(Alignment, KeepsTheCodeWhenTheBlockLeaves32Bits)
{
    const kip_affineSampleParams right = {{2147483647.0, 20, 4, 0, 0, 4}, 0, 4, 4};
    for (const bool wantsBlock : {false, true}) {
        kip_affine_imageAlignment code = -77;
        kstd_rect32 rect = kUntouched;
        const int32_t status =
            kip_affine_imageAlignment_compute(&right, &kIdentity, &code, wantsBlock ? &rect : nullptr);
        EXPECT_EQ(status < 0, wantsBlock);
        EXPECT_EQ(code, kip_affine_alignIdentity);
        EXPECT_EQ(rect, kUntouched);
    }
    expectCode({{-2147483648.0, 20, 4, 0, 0, 4}, 0, 4, 4}, kip_affine_alignIdentity, {INT32_MIN, 20, 4, 4});
}

} // namespace
