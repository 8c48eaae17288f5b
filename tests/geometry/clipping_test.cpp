#include <algorithm>
#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/images.h"
#include "support/records.h"
#include "support/turns.h"

namespace {

using namespace kip::test;

constexpr int32_t kUntouched = -77;
constexpr uint32_t kAllModes[] = {kip_affineModeNearest, kip_affineModeBilinear, kip_affineModeBilinearSeparable,
                                  kip_affineModeBicubic};

// A source window; the test looks at its numbers only.
kimg_windowConst window(int32_t width, int32_t height, int32_t x = 0, int32_t y = 0, int32_t pitch = 0)
{
    return {width, height, x, y, 0, 0, width, height, pitch == 0 ? width : pitch, nullptr, 1};
}

// The flag of a test that succeeds.
int32_t willClip(const kip_affineSampleParams &params, const kimg_windowConst &source,
                 const kmath_xformLinear &map = kIdentity)
{
    int32_t flag = kUntouched;
    EXPECT_GE(kip_affineSampleParams_getWillClipWindow(&params, &source, &map, &flag), 0);
    return flag;
}

// One sample at (x, y). Its rectangle is half a pixel long, so the map moves no whole pixels.
kip_affineSampleParams sampleAt(double x, double y, uint32_t mode)
{
    return {{x - 0.25, y - 0.25, 0.5, 0, 0, 0.5}, mode, 1, 1};
}

// Where samples may lie, in sixteenths of a 16.16 unit from the margin's end: half a unit is added to a
// position before it is truncated toward zero, so a nearest sample may be left of the window by less than one
// and a half units, and the upper bound of the per-pixel modes lies one unit below the table-driven ones'.
// Large windows are tested in doubles, which stay 1e-5 below the upper edge.
const struct Reach {
    uint32_t mode;
    bool isLarge;
    double margin;
    int32_t least, greatest; // sixteenths of a unit beyond the lower and the upper margin
} kReaches[] = {
    {kip_affineModeNearest, false, 0.0, -23, -9},         {kip_affineModeBilinear, false, 0.5, -8, -9},
    {kip_affineModeBilinearSeparable, false, 1.5, -8, 7}, {kip_affineModeBicubic, false, 2.5, -8, 7},
    {kip_affineModeNearest, true, 0.0, 0, -11},           {kip_affineModeBilinear, true, 0.5, 0, -11},
};
constexpr double kSixteenth = 1.0 / (16 * 65536);

// Corner sample centres of 2 x 2 samples, all dyadic, round the point that comes to lie at the tested side.
const struct Shape {
    const char *name;
    kmath_vect c0, c1, c2; // the fourth is c1 + c2 - c0
} kShapes[] = {
    {"point", {0, 0}, {0, 0}, {0, 0}},
    {"diamond from the top", {0, -10}, {12, 0}, {-12, 0}},
    {"diamond from the right", {12, 0}, {0, 10}, {0, -10}},
    {"diamond from the bottom", {0, 10}, {-12, 0}, {12, 0}},
    {"diamond from the left", {-12, 0}, {0, -10}, {0, 10}},
    {"mirrored diamond from the top", {0, -10}, {-12, 0}, {12, 0}},
    {"mirrored diamond from the right", {12, 0}, {0, -10}, {0, 10}},
    {"sliver", {-12, -10}, {12, 10}, {-11, -9}},
};

// The sampling whose corner centres are the shape's, moved by (x, y).
kip_affineSampleParams samplingOf(const Shape &shape, double x, double y, uint32_t mode)
{
    if (shape.c0 == shape.c1)
        return sampleAt(x, y, mode);
    const kmath_vect xSide = {2 * (shape.c1.x - shape.c0.x), 2 * (shape.c1.y - shape.c0.y)};
    const kmath_vect ySide = {2 * (shape.c2.x - shape.c0.x), 2 * (shape.c2.y - shape.c0.y)};
    return {{x + shape.c0.x - (xSide.x + ySide.x) / 4, y + shape.c0.y - (xSide.y + ySide.y) / 4, //
             xSide.x, ySide.x, xSide.y, ySide.y},
            mode,
            2,
            2};
}

TEST(ClippingTest, EveryMarginIsRoundedAsTheWalksRound)
{
    const struct {
        kmath_xformLinear map, inverse;
    } clients[] = {
        {kIdentity, kIdentity},
        {{3, -5, 2, 0, 0, 2}, {-1.5, 2.5, 0.5, 0, 0, 0.5}},
        {{64, 0, 0, -0.25, 0.25, 0}, {0, 256, 0, 4, -4, 0}},
    };
    const kimg_windowConst sources[] = {window(40, 31), window(33, 40, 7, -3, -33),
                                        window(41, 33, -1000, 20000, 32767)};
    const kimg_windowConst large[] = {window(300, 200, 0, 0, 40000), window(300, 40000, -7, 90000)};
    Random random(30);
    for (const Reach &reach : kReaches) {
        for (const Shape &shape : kShapes) {
            for (int32_t i = 0; i < 12 * 81; ++i) { // every side and distance under three windows and maps
                const bool isLower = i % 2 == 0;
                const bool isColumn = i / 2 % 2 == 0;
                const int32_t delta = i / 4 % 81 - 40;
                const kimg_windowConst source = reach.isLarge ? random.pick(large) : random.pick(sources);
                const auto client = random.pick(clients);
                const bool inside = isLower ? delta >= reach.least : delta <= reach.greatest;
                const auto corner = [isColumn](const kmath_vect &c) { return isColumn ? c.x : c.y; };
                const auto corners = {corner(shape.c0), corner(shape.c1), corner(shape.c2),
                                      corner(shape.c1) + corner(shape.c2) - corner(shape.c0)};
                const int32_t start = isColumn ? source.x : source.y;
                const int32_t size = isColumn ? source.width : source.height;
                const double at = (isLower ? start + reach.margin - std::min(corners)
                                           : start + size - reach.margin - std::max(corners)) +
                                  delta * kSixteenth;
                kip_affineSampleParams params = samplingOf(shape, isColumn ? at : source.x + 0.5 * source.width,
                                                           isColumn ? source.y + 0.5 * source.height : at, reach.mode);
                ASSERT_GE(kmath_xformLinear_initCompose(&params.rect, &client.inverse, &params.rect), 0);
                ASSERT_EQ(willClip(params, source, client.map), inside ? 0 : 1)
                    << "mode " << reach.mode << ", " << shape.name << (isColumn ? ", x, " : ", y, ")
                    << (isLower ? "lower, " : "upper, ") << delta << " sixteenths, window at (" << source.x << ", "
                    << source.y << "), map " << testing::PrintToString(client.map);
            }
        }
    }
}

TEST(ClippingTest, WindowsBelowTheLeastSizeClip)
{
    const int32_t least[] = {1, 2, 5, 7}; // two pixels, as no position keeps half a pixel from both edges of one
    for (const uint32_t mode : kAllModes) {
        for (const int32_t width : {least[mode] - 1, least[mode]}) {
            for (const int32_t height : {least[mode] - 1, least[mode]}) {
                for (const int32_t pitch : {0, 40000}) {
                    if (pitch != 0 && mode > kip_affineModeBilinear)
                        continue;
                    const bool fits = width == least[mode] && height == least[mode];
                    EXPECT_EQ(willClip(sampleAt(0.5 * width, 0.5 * height, mode), window(width, height, 0, 0, pitch)),
                              fits ? 0 : 1)
                        << "mode " << mode << ", " << width << " x " << height;
                }
            }
        }
    }
}

// A copy of whole pixels has no support round its samples.
TEST(ClippingTest, AlignedMapsNeedNoMargin)
{
    for (const uint32_t mode : kAllModes) {
        for (const Turn &turn : kTurns) {
            for (const int32_t pitch : {13, 40000}) { // the second is tested in doubles
                if (pitch > 32767 && mode > kip_affineModeBilinear)
                    continue;
                const int32_t width = turn.swapsAxes() ? 6 : 13;
                const int32_t height = turn.swapsAxes() ? 13 : 6;
                const kimg_windowConst source = window(13, 6, 100, -50, pitch);
                for (const auto &[x, y] : {Step{0, 0}, {1, 0}, {-1, 0}, {0, 1}, {0, -1}})
                    EXPECT_EQ(willClip({turn.rect(100 + x, -50 + y, width, height), mode, width, height}, source),
                              x == 0 && y == 0 ? 0 : 1)
                        << turn.name << ", mode " << mode << ", moved by (" << x << ", " << y << ")";
            }
        }
        EXPECT_EQ(willClip({{0, 0, 1, 0, 0, 1}, mode, 1, 1}, window(1, 1)), 0) << "one pixel, mode " << mode;
    }
}

TEST(ClippingTest, PitchAndHeightMakeAWindowLarge)
{
    const struct {
        const char *name;
        kimg_windowConst source;
        bool isLarge;
    } rows[] = {
        {"greatest pitch", window(100, 100, 0, 0, 32767), false},
        {"pitch one above", window(100, 100, 0, 0, 32768), true},
        {"greatest width", window(32767, 10), false},
        {"greatest height", window(100, 32767), false},
        {"height one above", window(100, 32768), true},
        {"both", window(40000, 40000), true},
        {"bottom-up", window(100, 100, 0, 0, -40000), false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const double y = 0.5 * row.source.height;
        // Passes in 16.16 alone, where it is truncated to 0.
        EXPECT_EQ(willClip(sampleAt(-1e-6, y, kip_affineModeNearest), row.source), row.isLarge);
        for (const uint32_t mode : {kip_affineModeBilinearSeparable, kip_affineModeBicubic}) {
            const kip_affineSampleParams params = sampleAt(0.5 * row.source.width, y, mode);
            int32_t flag = kUntouched;
            const int32_t status = kip_affineSampleParams_getWillClipWindow(&params, &row.source, &kIdentity, &flag);
            EXPECT_EQ(status, row.isLarge ? kip_statusSourceTooLarge : 0);
            EXPECT_EQ(flag, row.isLarge ? kUntouched : 0);
        }
    }
    // A bottom-up window is wider than positions in 16.16 reach: they end there, and its width must not wrap.
    const kimg_windowConst wide = window(40000, 100, 0, 0, -40000);
    for (const uint32_t mode : kAllModes) {
        EXPECT_EQ(willClip(sampleAt(32767, 50, mode), wide), 0);
        EXPECT_EQ(willClip(sampleAt(32767 + kSixteenth, 50, mode), wide), 1);
        EXPECT_EQ(willClip(sampleAt(39000, 50, mode), wide), 1);
    }
}

} // namespace
