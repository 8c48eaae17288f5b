#include <algorithm>
#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/random.h"
#include "support/records.h"
#include "support/turns.h"

namespace {

using namespace kip::test;

constexpr kstd_rect32 kUntouched = {-71, -72, -73, -74};

// A code without a block in the output leaves it untouched.
void expectCode(const kip_affineSampleParams &params, const kmath_xformLinear &map, kip_affine_imageAlignment code,
                const kstd_rect32 &block = kUntouched)
{
    for (const bool wantsBlock : {true, false}) {
        kip_affine_imageAlignment found = -77;
        kstd_rect32 rect = kUntouched;
        EXPECT_GE(kip_affine_imageAlignment_compute(&params, &map, &found, wantsBlock ? &rect : nullptr), 0);
        EXPECT_EQ(found, code);
        EXPECT_EQ(rect, wantsBlock ? block : kUntouched);
    }
}

// Maps from client to pixel coordinates beside their inverses. Products with the sides of a whole rectangle
// round to whole numbers, so that nothing of the alignment is lost.
const struct ClientMap {
    const char *name;
    kmath_xformLinear map, inverse;
} kClientMaps[] = {
    {"identity", kIdentity, kIdentity},
    {"moved by half a pixel", {0.5, -0.25, 1, 0, 0, 1}, {-0.5, 0.25, 1, 0, 0, 1}},
    {"scale 1/2, moved", {-7, 3, 0.5, 0, 0, 0.5}, {14, -6, 2, 0, 0, 2}},
    {"scale 1/3", {0, 0, 1.0 / 3, 0, 0, 1.0 / 3}, {0, 0, 3, 0, 0, 3}},
    {"uneven scale", {0, 0, 4, 0, 0, 0.125}, {0, 0, 0.25, 0, 0, 8}},
    {"y upwards", {0, 480, 1, 0, 0, -1}, {0, 480, 1, 0, 0, -1}},
    {"turned", {640, 0, 0, -1, 1, 0}, {0, 640, 0, 1, -1, 0}},
    {"transposed and scaled", {0, 0, 0, 2, 2, 0}, {0, 0, 0, 0.5, 0.5, 0}},
    {"sheared", {0, 0, 1, 0.5, 0, 1}, {0, 0, 1, -0.5, 0, 1}},
};

// Pixel by pixel, where the destination is small: the samples lead where the steps of the code lead, from the
// block's corner that the first of them lies in.
TEST(Alignment, RecognisesEveryTurnUnderEveryClientMap)
{
    Random random(21);
    for (const ClientMap &client : kClientMaps) {
        for (const Turn &turn : kTurns) {
            for (int i = 0; i < 40; ++i) {
                const int32_t greatest = i % 2 == 0 ? 12 : 32767;
                const int32_t width = random.between32(1, greatest);
                const int32_t height = random.between32(1, greatest);
                const kstd_rect32 block = {random.between32(-3000, 3000), random.between32(-3000, 3000),
                                           turn.swapsAxes() ? height : width, turn.swapsAxes() ? width : height};
                SCOPED_TRACE(testing::Message() << client.name << ", " << turn.name << ", " << width << " x " << height
                                                << " at (" << block.x << ", " << block.y << ")");
                const auto mode = static_cast<uint32_t>(random.between32(0, 5)); // does not count
                kip_affineSampleParams params = {turn.rect(block.x, block.y, width, height), mode, width, height};
                ASSERT_GE(kmath_xformLinear_initCompose(&params.rect, &client.inverse, &params.rect), 0);
                expectCode(params, client.map, turn.code, block);

                const int32_t firstX = block.x + (turn.right.x + turn.down.x < 0 ? block.width - 1 : 0);
                const int32_t firstY = block.y + (turn.right.y + turn.down.y < 0 ? block.height - 1 : 0);
                const kmath_shapeAffineRect &rect = params.rect;
                const kmath_xformLinear &map = client.map;
                for (int32_t k = 0; k < width * height && greatest == 12; ++k) {
                    const double u = (k % width + 0.5) / width;
                    const double v = (k / width + 0.5) / height;
                    const double x = rect.e0 * u + rect.e1 * v + rect.tx;
                    const double y = rect.e2 * u + rect.e3 * v + rect.ty;
                    EXPECT_EQ(std::floor(map.e0 * x + map.e1 * y + map.tx),
                              firstX + k % width * turn.right.x + k / width * turn.down.x);
                    EXPECT_EQ(std::floor(map.e2 * x + map.e3 * y + map.ty),
                              firstY + k % width * turn.right.y + k / width * turn.down.y);
                }
            }
        }
    }
}

TEST(Alignment, ToleratesTheLastBitsOnly)
{
    for (const Turn &turn : kTurns) {
        for (const auto element : kElements) {
            for (const double sign : {1.0, -1.0}) {
                const kip_affineSampleParams exact = {turn.rect(3, 2, 5, 4), 0, 5, 4};
                kip_affineSampleParams params = exact;
                params.rect.*element = exact.rect.*element + sign * 0.9e-12;
                SCOPED_TRACE(testing::Message() << turn.name << ", " << testing::PrintToString(params.rect));
                expectCode(params, kIdentity, turn.code,
                           turn.swapsAxes() ? kstd_rect32{3, 2, 4, 5} : kstd_rect32{3, 2, 5, 4});
                params.rect.*element = exact.rect.*element + sign * 1.1e-12;
                expectCode(params, kIdentity, kip_affine_alignNone);
            }
        }
    }
    // It does not grow with the size: the cosine of a quarter turn is about 6.1e-17, which the length multiplies.
    for (const int32_t width : {16000, 17000}) {
        const double angle = std::acos(0.0);
        const kmath_shapeAffineRect rect = {
            8, 0, width * std::cos(angle), -8 * std::sin(angle), width * std::sin(angle), 8 * std::cos(angle)};
        if (width == 16000)
            expectCode({rect, 0, width, 8}, kIdentity, kip_affine_alignRotate90, {0, 0, 8, width});
        else
            expectCode({rect, 0, width, 8}, kIdentity, kip_affine_alignNone);
    }
}

TEST(Alignment, RefusesWhatMovesNoWholePixels)
{
    const double d = 4.0 * std::sqrt(0.5);
    const struct {
        const char *name;
        kmath_shapeAffineRect rect;
        int32_t width, height;
        kmath_xformLinear map = kIdentity;
    } rows[] = {
        {"half a pixel in x", {10.5, 20, 64, 0, 0, 48}, 64, 48},
        {"half a pixel by the map", {10, 20, 64, 0, 0, 48}, 64, 48, {0.5, 0, 1, 0, 0, 1}},
        {"two samples a pixel in y", {10, 20, 64, 0, 0, 48}, 64, 96},
        {"scaled by the map", {10, 20, 64, 0, 0, 48}, 64, 48, {0, 0, 2, 0, 0, 2}},
        {"sizes swapped", {10, 20, 64, 0, 0, 48}, 48, 64},
        {"turned by 45 degrees", {10, 20, d, -d, d, d}, 4, 4},
        {"parallel sides", {10, 20, 4, 4, 0, 0}, 4, 4},
        {"sheared", {10, 20, 4, 3, 0, 4}, 4, 5},
        {"no size", {10, 20, 0, 0, 0, 0}, 0, 0},
        {"right of 32 bits", {2147483648.0, 20, 4, 0, 0, 4}, 4, 4},
        {"right of 32 bits by half a pixel", {2147483647.5, 20, 4, 0, 0, 4}, 4, 4},
        {"far beyond 32 bits", {1e300, -1e300, 4, 0, 0, 4}, 4, 4},
        {"enormous sides", {10, 20, 1e300, 0, 0, -1e308}, 4, 4},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        expectCode({row.rect, 0, row.width, row.height}, row.map, kip_affine_alignNone);
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
    expectCode({{-2147483648.0, 20, 4, 0, 0, 4}, 0, 4, 4}, kIdentity, kip_affine_alignIdentity, {INT32_MIN, 20, 4, 4});
}

} // namespace
