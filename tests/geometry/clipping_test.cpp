#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/images.h"
#include "support/turns.h"

namespace {

using kip::test::Image;
using kip::test::kTurns;
using kip::test::Random;
using kip::test::Turn;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

constexpr kmath_xformLinear kIdentity = {0, 0, 1, 0, 0, 1};
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

enum class Side { left, top, right, bottom };

// Where samples may lie, in sixteenths of a 16.16 unit from the margin's end: half a unit is added to a
// position before it is truncated toward zero, so a nearest sample may be left of the window by less than one
// and a half units, and the upper bound of the per-pixel modes lies one unit below the table-driven ones'.
const struct Reach {
    uint32_t mode;
    double margin;
    int32_t least, greatest; // sixteenths of a unit beyond the lower and the upper margin
} kReaches[] = {
    {kip_affineModeNearest, 0.0, -23, -9},
    {kip_affineModeBilinear, 0.5, -8, -9},
    {kip_affineModeBilinearSeparable, 1.5, -8, 7},
    {kip_affineModeBicubic, 2.5, -8, 7},
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

struct Extent {
    double left, top, right, bottom;
};

Extent extentOf(const Shape &shape)
{
    const kmath_vect c3 = {shape.c1.x + shape.c2.x - shape.c0.x, shape.c1.y + shape.c2.y - shape.c0.y};
    return {std::min({shape.c0.x, shape.c1.x, shape.c2.x, c3.x}), std::min({shape.c0.y, shape.c1.y, shape.c2.y, c3.y}),
            std::max({shape.c0.x, shape.c1.x, shape.c2.x, c3.x}), std::max({shape.c0.y, shape.c1.y, shape.c2.y, c3.y})};
}

// The sampling whose corner centres are the shape's, moved by (x, y).
kip_affineSampleParams samplingOf(const Shape &shape, double x, double y, uint32_t mode)
{
    if (shape.c0.x == shape.c1.x && shape.c0.y == shape.c1.y)
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
        {{0, 480, 1, 0, 0, -1}, {0, 480, 1, 0, 0, -1}},
    };
    const kimg_windowConst sources[] = {window(40, 31), window(33, 40, 7, -3, -33),
                                        window(41, 33, -1000, 20000, 32767)};
    for (const Reach &reach : kReaches)
        for (const Shape &shape : kShapes)
            for (const Side side : {Side::left, Side::top, Side::right, Side::bottom})
                for (const kimg_windowConst &source : sources)
                    for (const auto &client : clients)
                        for (int32_t delta = -40; delta <= 40; ++delta) {
                            const Extent extent = extentOf(shape);
                            const bool isLower = side == Side::left || side == Side::top;
                            const bool inside = isLower ? delta >= reach.least : delta <= reach.greatest;
                            double x = source.x + 0.5 * source.width;
                            double y = source.y + 0.5 * source.height;
                            if (side == Side::left)
                                x = source.x + reach.margin + delta * kSixteenth - extent.left;
                            else if (side == Side::right)
                                x = source.x + source.width - reach.margin + delta * kSixteenth - extent.right;
                            else if (side == Side::top)
                                y = source.y + reach.margin + delta * kSixteenth - extent.top;
                            else
                                y = source.y + source.height - reach.margin + delta * kSixteenth - extent.bottom;
                            kip_affineSampleParams params = samplingOf(shape, x, y, reach.mode);
                            ASSERT_GE(kmath_xformLinear_initCompose(&params.rect, &client.inverse, &params.rect), 0);
                            ASSERT_EQ(willClip(params, source, client.map), inside ? 0 : 1)
                                << "mode " << reach.mode << ", " << shape.name << ", side " << static_cast<int>(side)
                                << ", " << delta << " sixteenths, window at (" << source.x << ", " << source.y
                                << "), map scale " << client.map.e0 << ' ' << client.map.e1;
                        }
}

TEST(ClippingTest, AgreesWithThePositionsOfRandomSamplings)
{
    Random random(31);
    int counts[2] = {};
    for (int i = 0; i < 4000; ++i) {
        const Reach &reach = kReaches[random.next() % 4];
        const kimg_windowConst source = window(random.between32(7, 300), random.between32(7, 300),
                                               random.between32(-900, 900), random.between32(-900, 900));
        const double size = random.between(1.0, 200.0);
        const double angle = random.between(0.0, 6.3);
        const double skew = random.between(-0.7, 0.7);
        const kip_affineSampleParams params = {{source.x + random.between(0.0, source.width),
                                                source.y + random.between(0.0, source.height), size * std::cos(angle),
                                                -size * std::sin(angle + skew), size * std::sin(angle),
                                                size * std::cos(angle + skew)},
                                               reach.mode,
                                               random.between32(1, 60),
                                               random.between32(1, 60)};
        const double scale = random.between(0.5, 2.0);
        const kmath_xformLinear map = {(1 - scale) * source.x, (1 - scale) * source.y, scale, 0, 0, scale};

        double room = kInfinity; // of the corner sample that lies nearest to the margin or furthest beyond it
        for (const double u : {0.5 / params.destWidth, 1 - 0.5 / params.destWidth}) {
            for (const double v : {0.5 / params.destHeight, 1 - 0.5 / params.destHeight}) {
                const double clientX = params.rect.e0 * u + params.rect.e1 * v + params.rect.tx;
                const double clientY = params.rect.e2 * u + params.rect.e3 * v + params.rect.ty;
                const double x = map.e0 * clientX + map.tx - source.x;
                const double y = map.e3 * clientY + map.ty - source.y;
                room = std::min({room, x - reach.margin, y - reach.margin, source.width - reach.margin - x,
                                 source.height - reach.margin - y});
            }
        }
        if (std::fabs(room) < 1e-4)
            continue; // the table above has the edges
        ASSERT_EQ(willClip(params, source, map), room > 0 ? 0 : 1) << "case " << i << ", room " << room;
        ++counts[room > 0 ? 0 : 1];
    }
    EXPECT_GT(counts[0], 300);
    EXPECT_GT(counts[1], 300);
}

TEST(ClippingTest, WindowsBelowTheLeastSizeClip)
{
    const struct {
        uint32_t mode;
        int32_t width, height, flag;
    } rows[] = {
        {kip_affineModeNearest, 1, 1, 0},           {kip_affineModeNearest, 0, 1, 1},
        {kip_affineModeNearest, 1, 0, 1},           {kip_affineModeBilinear, 2, 2, 0},
        {kip_affineModeBilinear, 1, 1, 1}, // no position keeps half a pixel from both edges
        {kip_affineModeBilinearSeparable, 5, 5, 0}, {kip_affineModeBilinearSeparable, 4, 5, 1},
        {kip_affineModeBilinearSeparable, 5, 4, 1}, {kip_affineModeBilinearSeparable, 4, 4, 1},
        {kip_affineModeBicubic, 7, 7, 0},           {kip_affineModeBicubic, 6, 7, 1},
        {kip_affineModeBicubic, 7, 6, 1},           {kip_affineModeBicubic, 6, 6, 1},
    };
    for (const auto &row : rows) {
        const kip_affineSampleParams params = sampleAt(0.5 * row.width, 0.5 * row.height, row.mode);
        EXPECT_EQ(willClip(params, window(row.width, row.height)), row.flag)
            << "mode " << row.mode << ", " << row.width << " x " << row.height;
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
                SCOPED_TRACE(testing::Message() << turn.name << ", mode " << mode << ", pitch " << pitch);
                const int32_t width = turn.swapsAxes() ? 6 : 13;
                const int32_t height = turn.swapsAxes() ? 13 : 6;
                const kimg_windowConst source = window(13, 6, 100, -50, pitch);
                EXPECT_EQ(willClip({turn.rect(100, -50, width, height), mode, width, height}, source), 0);
                for (const auto &[x, y] : {kip::test::Step{1, 0}, {-1, 0}, {0, 1}, {0, -1}})
                    EXPECT_EQ(willClip({turn.rect(100 + x, -50 + y, width, height), mode, width, height}, source), 1)
                        << "moved by (" << x << ", " << y << ")";
            }
        }
        const kimg_windowConst pixel = window(1, 1);
        EXPECT_EQ(willClip({{0, 0, 1, 0, 0, 1}, mode, 1, 1}, pixel), 0) << "one pixel, mode " << mode;
    }
}

TEST(ClippingTest, LargeWindowsAreTestedInDoubles)
{
    // A nearest sample 9e-6 left of the right edge passes in 16.16 and not in doubles, which stay 1e-5 away;
    // one just outside the left edge is truncated to 0 in 16.16 only.
    const struct {
        const char *name;
        kimg_windowConst source;
        bool isLarge;
    } rows[] = {
        {"greatest pitch", window(100, 100, 0, 0, 32767), false},
        {"pitch one above", window(100, 100, 0, 0, 32768), true},
        {"pitch 40000", window(100, 100, 0, 0, 40000), true},
        {"greatest width", window(32767, 10), false},
        {"greatest height", window(100, 32767), false},
        {"height one above", window(100, 32768), true},
        {"both", window(40000, 40000), true},
        {"bottom-up", window(100, 100, 0, 0, -40000), false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const double x = 0.5 * row.source.width;
        const double y = 0.5 * row.source.height;
        EXPECT_EQ(willClip(sampleAt(row.source.width - 9e-6, y, kip_affineModeNearest), row.source), row.isLarge);
        EXPECT_EQ(willClip(sampleAt(x, row.source.height - 9e-6, kip_affineModeNearest), row.source), row.isLarge);
        EXPECT_EQ(willClip(sampleAt(-1e-6, y, kip_affineModeNearest), row.source), row.isLarge);
        EXPECT_EQ(willClip(sampleAt(x, -1e-6, kip_affineModeNearest), row.source), row.isLarge);
        for (const uint32_t mode : {kip_affineModeBilinearSeparable, kip_affineModeBicubic}) {
            const kip_affineSampleParams params = sampleAt(x, y, mode);
            int32_t flag = kUntouched;
            const int32_t status = kip_affineSampleParams_getWillClipWindow(&params, &row.source, &kIdentity, &flag);
            EXPECT_EQ(status, row.isLarge ? kip_statusSourceTooLarge : 0);
            EXPECT_EQ(flag, row.isLarge ? kUntouched : 0);
        }
    }
}

TEST(ClippingTest, LargeWindowsKeepTheirOwnMargins)
{
    constexpr double kGuard = 1e-5;
    constexpr double kNear = 1e-7;
    const struct {
        uint32_t mode;
        double margin;
    } rows[] = {{kip_affineModeNearest, 0.0}, {kip_affineModeBilinear, 0.5}};
    for (const kimg_windowConst &source : {window(300, 200, 0, 0, 40000), window(300, 40000, -7, 90000)}) {
        const double x = source.x + 0.5 * source.width;
        const double y = source.y + 0.5 * source.height;
        for (const auto &[mode, margin] : rows) {
            const double left = source.x + margin;
            const double top = source.y + margin;
            const double right = source.x + source.width - margin - kGuard;
            const double bottom = source.y + source.height - margin - kGuard;
            SCOPED_TRACE(testing::Message() << "mode " << mode << ", height " << source.height);
            EXPECT_EQ(willClip(sampleAt(left, y, mode), source), 0);
            EXPECT_EQ(willClip(sampleAt(left - kNear, y, mode), source), 1);
            EXPECT_EQ(willClip(sampleAt(x, top, mode), source), 0);
            EXPECT_EQ(willClip(sampleAt(x, top - kNear, mode), source), 1);
            EXPECT_EQ(willClip(sampleAt(right - kNear, y, mode), source), 0);
            EXPECT_EQ(willClip(sampleAt(right + kNear, y, mode), source), 1);
            EXPECT_EQ(willClip(sampleAt(x, bottom - kNear, mode), source), 0);
            EXPECT_EQ(willClip(sampleAt(x, bottom + kNear, mode), source), 1);
            // Each corner counts.
            for (const Shape &shape : kShapes) {
                const Extent extent = extentOf(shape);
                EXPECT_EQ(willClip(samplingOf(shape, left + kNear - extent.left, y, mode), source), 0) << shape.name;
                EXPECT_EQ(willClip(samplingOf(shape, left - kNear - extent.left, y, mode), source), 1) << shape.name;
                EXPECT_EQ(willClip(samplingOf(shape, right - kNear - extent.right, y, mode), source), 0) << shape.name;
                EXPECT_EQ(willClip(samplingOf(shape, right + kNear - extent.right, y, mode), source), 1) << shape.name;
                EXPECT_EQ(willClip(samplingOf(shape, x, top - kNear - extent.top, mode), source), 1) << shape.name;
                EXPECT_EQ(willClip(samplingOf(shape, x, bottom + kNear - extent.bottom, mode), source), 1)
                    << shape.name;
            }
        }
    }
    EXPECT_EQ(willClip(sampleAt(0, 1, kip_affineModeNearest), window(0, 9, 0, 0, 40000)), 1);
    EXPECT_EQ(willClip(sampleAt(1, 0, kip_affineModeNearest), window(9, 0, 0, 0, 40000)), 1);
}

// A bottom-up window is wider than positions in 16.16 reach: they end there, and the window's width must not wrap.
TEST(ClippingTest, BottomUpWindowsWiderThanThePositions)
{
    const kimg_windowConst source = window(40000, 100, 0, 0, -40000);
    for (const uint32_t mode : kAllModes) {
        SCOPED_TRACE(mode);
        EXPECT_EQ(willClip(sampleAt(100, 50, mode), source), 0);
        EXPECT_EQ(willClip(sampleAt(32767, 50, mode), source), 0);
        EXPECT_EQ(willClip(sampleAt(32767 + kSixteenth, 50, mode), source), 1);
        EXPECT_EQ(willClip(sampleAt(39000, 50, mode), source), 1);
    }
}

TEST(ClippingTest, RefusesSizesModesAndSourcesInThatOrder)
{
    const kimg_windowConst small = window(100, 100);
    const kimg_windowConst large = window(100, 100, 0, 0, 40000);
    const kmath_xformLinear bad = {kNan, 0, 1, 0, 0, 1};
    const struct {
        const char *name;
        uint32_t mode;
        int32_t width, height;
        const kimg_windowConst *source;
        int32_t status;
    } rows[] = {
        {"width 0", kip_affineModeNearest, 0, 5, &small, kip_statusSizeBelowOne},
        {"height 0", kip_affineModeBilinear, 5, 0, &small, kip_statusSizeBelowOne},
        {"width far below 0", kip_affineModeBicubic, INT32_MIN, 5, &small, kip_statusSizeBelowOne},
        {"height far below 0", kip_affineModeNearest, 5, INT32_MIN, &small, kip_statusSizeBelowOne},
        {"no size, large source", kip_affineModeNearest, 0, 5, &large, kip_statusSizeBelowOne},
        {"no size, table-driven, large source", kip_affineModeBicubic, 5, 0, &large, kip_statusSizeBelowOne},
        {"no size, unknown mode", 4, 5, 0, &small, kip_statusSizeBelowOne},
        {"mode 4", 4, 5, 5, &small, kip_statusUnknownMode},
        {"mode 4, large source", 4, 5, 5, &large, kip_statusUnknownMode},
        {"greatest mode", UINT32_MAX, 5, 5, &small, kip_statusUnknownMode},
        {"mode 2, large source", kip_affineModeBilinearSeparable, 5, 5, &large, kip_statusSourceTooLarge},
        {"mode 3, large source", kip_affineModeBicubic, 5, 5, &large, kip_statusSourceTooLarge},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const kip_affineSampleParams params = {{10, 10, 5, 0, 0, 5}, row.mode, row.width, row.height};
        int32_t flag = kUntouched;
        EXPECT_EQ(kip_affineSampleParams_getWillClipWindow(&params, row.source, &bad, &flag), row.status);
        EXPECT_EQ(flag, kUntouched);
    }
}

// Whatever the numbers are, the answer is that the sampling clips.
TEST(ClippingTest, AbsurdGeometryClips)
{
    double kmath_xformLinear::*const elements[] = {&kmath_xformLinear::tx, &kmath_xformLinear::ty,
                                                   &kmath_xformLinear::e0, &kmath_xformLinear::e1,
                                                   &kmath_xformLinear::e2, &kmath_xformLinear::e3};
    const kimg_windowConst sources[] = {window(100, 100), window(100, 100, 0, 0, 40000),
                                        window(100, 100, INT32_MAX, INT32_MIN)};
    for (const double bad : {kNan, kInfinity, -kInfinity, 1.7e308, -1e308, 1e18, -3e9, 4e5}) {
        for (const auto element : elements) {
            for (const bool inMap : {false, true}) {
                for (const uint32_t mode : kAllModes) {
                    for (const kimg_windowConst &source : sources) {
                        if (source.pitch > 32767 && mode > kip_affineModeBilinear)
                            continue;
                        kip_affineSampleParams params = {{40, 40, 9, 1, -1, 9}, mode, 8, 8};
                        kmath_xformLinear map = kIdentity;
                        kmath_xformLinear &target = inMap ? map : params.rect;
                        target.*element = bad;
                        int32_t flag = kUntouched;
                        const int32_t status = kip_affineSampleParams_getWillClipWindow(&params, &source, &map, &flag);
                        EXPECT_EQ(flag, 1) << bad << ", mode " << mode;
                        EXPECT_TRUE(std::isfinite(bad) || status < 0) << bad << ", mode " << mode;
                    }
                }
            }
        }
    }
}

TEST(ClippingTest, ImagesAreTestedByTheirPlaceAndMap)
{
    Image image(1, 40, 30);
    image.place(200, -100);
    image.setMap({200, -100, 2, 0, 0, 2}); // client (0, 0) is the image's first corner
    for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
        const double margin = mode == kip_affineModeNearest ? 0.0 : 0.5;
        const struct {
            double x, y;
            int32_t flag;
        } rows[] = {
            {20, 15, 0},
            {margin + 0.01, 15, 0},
            {margin - 0.01, 15, 1},
            {20, margin - 0.01, 1},
            {20, margin + 0.01, 0},
            {39.99 - margin, 15, 0},
            {40.01 - margin, 15, 1},
            {20, 30.01 - margin, 1},
            {20, 29.99 - margin, 0},
            {240, -70, 1},
        };
        for (const auto &row : rows) {
            kip_affineSampleParams params = sampleAt(row.x, row.y, mode);
            for (double *const element : {&params.rect.tx, &params.rect.ty, &params.rect.e0, &params.rect.e3})
                *element /= 2;
            int32_t flag = kUntouched;
            EXPECT_EQ(kip_affineSampleParams_getWillClip(&params, image.get(), &flag), 0);
            EXPECT_EQ(flag, row.flag) << "(" << row.x << ", " << row.y << "), mode " << mode;
        }
    }
}

} // namespace
