#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/random.h"
#include "support/turns.h"

namespace {

using kip::test::kTurns;
using kip::test::Random;
using kip::test::Turn;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

constexpr kmath_xformLinear kIdentity = {0, 0, 1, 0, 0, 1};
constexpr kstd_rect32 kUntouched = {-71, -72, -73, -74};

bool isSame(const kstd_rect32 &a, const kstd_rect32 &b)
{
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}

void expectRect(const kstd_rect32 &expected, const kstd_rect32 &actual)
{
    EXPECT_TRUE(isSame(expected, actual))
        << "(" << actual.x << ", " << actual.y << ", " << actual.width << ", " << actual.height << ") instead of ("
        << expected.x << ", " << expected.y << ", " << expected.width << ", " << expected.height << ")";
}

void expectAligned(const kip_affineSampleParams &params, const kmath_xformLinear &map, kip_affine_imageAlignment code,
                   const kstd_rect32 &block)
{
    kip_affine_imageAlignment found = -77;
    kstd_rect32 rect = kUntouched;
    EXPECT_GE(kip_affine_imageAlignment_compute(&params, &map, &found, &rect), 0);
    EXPECT_EQ(found, code);
    expectRect(block, rect);
    found = -77;
    EXPECT_GE(kip_affine_imageAlignment_compute(&params, &map, &found, nullptr), 0);
    EXPECT_EQ(found, code);
}

void expectNotAligned(const kip_affineSampleParams &params, const kmath_xformLinear &map)
{
    kip_affine_imageAlignment found = -77;
    kstd_rect32 rect = kUntouched;
    EXPECT_GE(kip_affine_imageAlignment_compute(&params, &map, &found, &rect), 0);
    EXPECT_EQ(found, kip_affine_alignNone);
    expectRect(kUntouched, rect);
}

// Pixel by pixel: where the steps that the code stands for lead from the pixel of the first sample, the
// samples must lead too, and the block is what they cover.
kstd_rect32 coveredPixels(const kip_affineSampleParams &params, const kmath_xformLinear &map, const Turn &turn)
{
    const kmath_shapeAffineRect &rect = params.rect;
    int32_t left = INT32_MAX, top = INT32_MAX, right = INT32_MIN, bottom = INT32_MIN;
    int32_t firstX = 0, firstY = 0;
    for (int32_t row = 0; row < params.destHeight; ++row) {
        for (int32_t column = 0; column < params.destWidth; ++column) {
            const double u = (column + 0.5) / params.destWidth;
            const double v = (row + 0.5) / params.destHeight;
            const double x = rect.e0 * u + rect.e1 * v + rect.tx;
            const double y = rect.e2 * u + rect.e3 * v + rect.ty;
            const auto p = static_cast<int32_t>(std::floor(map.e0 * x + map.e1 * y + map.tx));
            const auto q = static_cast<int32_t>(std::floor(map.e2 * x + map.e3 * y + map.ty));
            if (row == 0 && column == 0) {
                firstX = p;
                firstY = q;
            }
            EXPECT_EQ(p, firstX + column * turn.right.x + row * turn.down.x);
            EXPECT_EQ(q, firstY + column * turn.right.y + row * turn.down.y);
            left = std::min(left, p);
            right = std::max(right, p);
            top = std::min(top, q);
            bottom = std::max(bottom, q);
        }
    }
    return {left, top, right - left + 1, bottom - top + 1};
}

// Maps from client to pixel coordinates beside their inverses. Products with the sides of a whole rectangle
// round to whole numbers, so that nothing of the alignment is lost.
const struct ClientMap {
    const char *name;
    kmath_xformLinear map, inverse;
} kClientMaps[] = {
    {"identity", kIdentity, kIdentity},
    {"moved by half a pixel", {0.5, -0.25, 1, 0, 0, 1}, {-0.5, 0.25, 1, 0, 0, 1}},
    {"scale 2", {0, 0, 2, 0, 0, 2}, {0, 0, 0.5, 0, 0, 0.5}},
    {"scale 1/2, moved", {-7, 3, 0.5, 0, 0, 0.5}, {14, -6, 2, 0, 0, 2}},
    {"scale 1/3", {0, 0, 1.0 / 3, 0, 0, 1.0 / 3}, {0, 0, 3, 0, 0, 3}},
    {"uneven scale", {0, 0, 4, 0, 0, 0.125}, {0, 0, 0.25, 0, 0, 8}},
    {"y upwards", {0, 480, 1, 0, 0, -1}, {0, 480, 1, 0, 0, -1}},
    {"turned", {640, 0, 0, -1, 1, 0}, {0, 640, 0, 1, -1, 0}},
    {"transposed and scaled", {0, 0, 0, 2, 2, 0}, {0, 0, 0, 0.5, 0.5, 0}},
    {"sheared", {0, 0, 1, 0.5, 0, 1}, {0, 0, 1, -0.5, 0, 1}},
};

TEST(Alignment, RecognisesEveryTurnUnderEveryClientMap)
{
    Random random(21);
    for (const ClientMap &client : kClientMaps) {
        for (const Turn &turn : kTurns) {
            for (int i = 0; i < 20; ++i) {
                const int32_t width = random.between32(1, 33);
                const int32_t height = random.between32(1, 33);
                const kstd_rect32 block = {random.between32(-3000, 3000), random.between32(-3000, 3000),
                                           turn.swapsAxes() ? height : width, turn.swapsAxes() ? width : height};
                SCOPED_TRACE(testing::Message() << client.name << ", " << turn.name << ", " << width << " x " << height
                                                << " at (" << block.x << ", " << block.y << ")");
                kip_affineSampleParams params = {turn.rect(block.x, block.y, width, height), 0, width, height};
                ASSERT_GE(kmath_xformLinear_initCompose(&params.rect, &client.inverse, &params.rect), 0);
                params.mode = static_cast<uint32_t>(random.between32(0, 5)); // does not count
                expectAligned(params, client.map, turn.code, block);
                expectRect(block, coveredPixels(params, client.map, turn));
            }
        }
    }
}

TEST(Alignment, ToleratesTheLastBitsOnly)
{
    constexpr double kSlack = 0.9e-12;  // within the tolerance
    constexpr double kExcess = 1.1e-12; // beyond it
    const struct {
        const char *name;
        double kmath_shapeAffineRect::*element;
        bool swapped;
    } rows[] = {
        {"tx", &kmath_shapeAffineRect::tx, false},
        {"ty", &kmath_shapeAffineRect::ty, false},
        {"e0", &kmath_shapeAffineRect::e0, false},
        {"e1", &kmath_shapeAffineRect::e1, false},
        {"e2", &kmath_shapeAffineRect::e2, false},
        {"e3", &kmath_shapeAffineRect::e3, false},
        {"e0 of a transpose", &kmath_shapeAffineRect::e0, true},
        {"e1 of a transpose", &kmath_shapeAffineRect::e1, true},
        {"e2 of a transpose", &kmath_shapeAffineRect::e2, true},
        {"e3 of a transpose", &kmath_shapeAffineRect::e3, true},
    };
    for (const auto &row : rows) {
        const Turn &turn = kTurns[row.swapped ? 1 : 0];
        for (const double sign : {1.0, -1.0}) {
            SCOPED_TRACE(testing::Message() << row.name << ", sign " << sign);
            kip_affineSampleParams params = {turn.rect(3, 2, 5, 4), 0, 5, 4};
            const double exact = params.rect.*row.element;
            params.rect.*row.element = exact + sign * kSlack;
            expectAligned(params, kIdentity, turn.code,
                          row.swapped ? kstd_rect32{3, 2, 4, 5} : kstd_rect32{3, 2, 5, 4});
            params.rect.*row.element = exact + sign * kExcess;
            expectNotAligned(params, kIdentity);
        }
    }
}

TEST(Alignment, ToleranceDoesNotGrowWithTheSize)
{
    // The cosine of a quarter turn is about 6.1e-17, which the side's length multiplies.
    const double angle = std::acos(0.0);
    for (const int32_t width : {16000, 17000}) {
        const kip_affineSampleParams params = {
            {8, 0, width * std::cos(angle), -8 * std::sin(angle), width * std::sin(angle), 8 * std::cos(angle)},
            0,
            width,
            8};
        if (width == 16000)
            expectAligned(params, kIdentity, kip_affine_alignRotate90, {0, 0, 8, width});
        else
            expectNotAligned(params, kIdentity);
    }
}

TEST(Alignment, RefusesWhatMovesNoWholePixels)
{
    const double d = 4.0 * std::sqrt(0.5);
    const struct {
        const char *name;
        kip_affineSampleParams params;
        kmath_xformLinear map;
    } rows[] = {
        {"half a pixel in x", {{10.5, 20, 64, 0, 0, 48}, 0, 64, 48}, kIdentity},
        {"half a pixel in y", {{10, 20.5, 64, 0, 0, 48}, 0, 64, 48}, kIdentity},
        {"half a pixel by the map", {{10, 20, 64, 0, 0, 48}, 0, 64, 48}, {0.5, 0, 1, 0, 0, 1}},
        {"two pixels a sample in x", {{10, 20, 64, 0, 0, 48}, 0, 32, 48}, kIdentity},
        {"two samples a pixel in y", {{10, 20, 64, 0, 0, 48}, 0, 64, 96}, kIdentity},
        {"scaled by the map", {{10, 20, 64, 0, 0, 48}, 0, 64, 48}, {0, 0, 2, 0, 0, 2}},
        {"sizes swapped", {{10, 20, 64, 0, 0, 48}, 0, 48, 64}, kIdentity},
        {"turned by 45 degrees", {{10, 20, d, -d, d, d}, 0, 4, 4}, kIdentity},
        {"turned by a 3-4-5 triangle", {{10, 20, 3, -4, 4, 3}, 0, 5, 5}, kIdentity},
        {"parallel sides", {{10, 20, 4, 4, 0, 0}, 0, 4, 4}, kIdentity},
        {"sheared", {{10, 20, 4, 3, 0, 4}, 0, 4, 5}, kIdentity},
        {"no size", {{10, 20, 0, 0, 0, 0}, 0, 0, 0}, kIdentity},
        {"sizes below zero", {{10, 20, -4, 0, 0, -4}, 0, -4, -4}, kIdentity},
        {"right of 32 bits", {{2147483648.0, 20, 4, 0, 0, 4}, 0, 4, 4}, kIdentity},
        {"right of 32 bits by half a pixel", {{2147483647.5, 20, 4, 0, 0, 4}, 0, 4, 4}, kIdentity},
        {"left of 32 bits", {{-2147483649.0, 20, 4, 0, 0, 4}, 0, 4, 4}, kIdentity},
        {"below 32 bits", {{10, 3e9, 4, 0, 0, 4}, 0, 4, 4}, kIdentity},
        {"above 32 bits", {{10, -3e9, 4, 0, 0, 4}, 0, 4, 4}, kIdentity},
        {"far beyond 32 bits", {{1e300, -1e300, 4, 0, 0, 4}, 0, 4, 4}, kIdentity},
        {"enormous sides", {{10, 20, 1e300, 0, 0, -1e308}, 0, 4, 4}, kIdentity},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        expectNotAligned(row.params, row.map);
    }
}

TEST(Alignment, FailsOnWhatIsNotFinite)
{
    double kmath_xformLinear::*const elements[] = {&kmath_xformLinear::tx, &kmath_xformLinear::ty,
                                                   &kmath_xformLinear::e0, &kmath_xformLinear::e1,
                                                   &kmath_xformLinear::e2, &kmath_xformLinear::e3};
    for (const double bad : {kNan, kInfinity, -kInfinity}) {
        for (const auto element : elements) {
            for (const bool inMap : {false, true}) {
                kip_affineSampleParams params = {{10, 20, 4, 0, 0, 4}, 0, 4, 4};
                kmath_xformLinear map = kIdentity;
                kmath_xformLinear &target = inMap ? map : params.rect;
                target.*element = bad;
                kip_affine_imageAlignment code = -77;
                kstd_rect32 rect = kUntouched;
                EXPECT_EQ(kip_affine_imageAlignment_compute(&params, &map, &code, &rect), kmath_statusNotFinite);
                EXPECT_EQ(code, kip_affine_alignNone);
                expectRect(kUntouched, rect);
            }
        }
    }
    // Finite inputs, but their product is not.
    const kip_affineSampleParams params = {{10, 20, 1e308, 0, 0, 4}, 0, 4, 4};
    const kmath_xformLinear map = {0, 0, 100, 0, 0, 1};
    kip_affine_imageAlignment code = -77;
    EXPECT_EQ(kip_affine_imageAlignment_compute(&params, &map, &code, nullptr), kmath_statusNotFinite);
    EXPECT_EQ(code, kip_affine_alignNone);
}

// The last coordinates that 32 bits hold: the map is aligned there, but the block may reach further.
TEST(Alignment, KeepsTheCodeWhenTheBlockLeaves32Bits)
{
    const kip_affineSampleParams right = {{2147483647.0, 20, 4, 0, 0, 4}, 0, 4, 4};
    kip_affine_imageAlignment code = -77;
    EXPECT_GE(kip_affine_imageAlignment_compute(&right, &kIdentity, &code, nullptr), 0);
    EXPECT_EQ(code, kip_affine_alignIdentity);

    code = -77;
    kstd_rect32 rect = kUntouched;
    EXPECT_LT(kip_affine_imageAlignment_compute(&right, &kIdentity, &code, &rect), 0);
    EXPECT_EQ(code, kip_affine_alignIdentity);
    expectRect(kUntouched, rect);

    const kip_affineSampleParams left = {{-2147483648.0, 20, 4, 0, 0, 4}, 0, 4, 4};
    expectAligned(left, kIdentity, kip_affine_alignIdentity, {INT32_MIN, 20, 4, 4});
}

} // namespace
