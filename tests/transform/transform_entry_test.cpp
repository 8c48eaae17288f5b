#include <array>
#include <cstdint>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "cache/sample_cache.h"
#include "support/failing_allocator.h"
#include "support/turns.h"
#include "transform/transform_entry.h"

namespace {

using kip::test::bothDepths;
using kip::test::Bound;
using kip::test::Cache;
using kip::test::depthName;
using kip::test::FailingAllocator;
using kip::test::Image;
using kip::test::isEqual;
using kip::test::kSlanted;
using kip::test::kSomeMap;
using kip::test::kTurns;
using kip::test::Pixels;
using kip::test::placementOf;
using kip::test::Turn;

class TransformResult : public kip::test::TransformEntry {};
INSTANTIATE_TEST_SUITE_P(Depths, TransformResult, bothDepths(), depthName);

TEST_P(TransformResult, UnboundDestinationAdoptsTheResult)
{
    for (const Turn &turn : kTurns) {
        for (uint32_t mode = kip_affineModeNearest; mode <= kip_affineModeBicubic; ++mode) {
            SCOPED_TRACE(testing::Message() << turn.name << ", mode " << mode);
            const kip_affineSampleParams params = {turn.rect(9, 5, 17, 11), mode, 17, 11};
            Image result;
            ASSERT_GE(transform(source, result, params), 0);
            ASSERT_TRUE(result.isBound());
            kimg_window window;
            kimg_window_init(&window, result.get());
            EXPECT_EQ(window.bytesPerPixel, bytes);
            ASSERT_EQ(window.width, 17);
            ASSERT_EQ(window.height, 11);
            EXPECT_EQ(window.x, 0);
            EXPECT_EQ(window.y, 0);
            EXPECT_TRUE(isEqual(result.map(), placementOf(params)));
            for (int32_t y = 0; y < 11; ++y) {
                for (int32_t x = 0; x < 17; ++x) {
                    const int32_t column = static_cast<int32_t>(params.rect.tx + (turn.right.x + turn.down.x - 1) / 2) +
                                           x * turn.right.x + y * turn.down.x;
                    const int32_t row = static_cast<int32_t>(params.rect.ty + (turn.right.y + turn.down.y - 1) / 2) +
                                        x * turn.right.y + y * turn.down.y;
                    ASSERT_EQ(result.at(x, y), sourcePixels.at(column, row)) << "(" << x << ", " << y << ")";
                }
            }
        }
    }
}

// The stamped map and the source's lead from a pixel of the result to the pixel that it was taken from.
TEST_P(TransformResult, StampsTheMapThatLeadsBackToTheSource)
{
    const kmath_xformLinear clientMaps[] = {
        {0, 0, 1, 0, 0, 1}, {-8, 4, 2, 0, 0, 2}, {0, 48, 0.5, 0, 0, -0.5}, {64, 0, 0, -4, 4, 0}};
    for (const kmath_xformLinear &clientMap : clientMaps) {
        kmath_xformLinear clientFromSource;
        ASSERT_GE(kmath_xformLinear_initInverse(&clientFromSource, &clientMap), 0);
        source.setMap(clientMap);
        for (const Turn &turn : kTurns) {
            kip_affineSampleParams params = {turn.rect(9, 5, 17, 11), kip_affineModeNearest, 17, 11};
            ASSERT_GE(kmath_xformLinear_initCompose(&params.rect, &clientFromSource, &params.rect), 0);
            Image result;
            ASSERT_GE(transform(source, result, params), 0);
            kmath_xformLinear sourceFromResult;
            const kmath_xformLinear resultMap = result.map();
            ASSERT_GE(kmath_xformLinear_initInverse(&sourceFromResult, &resultMap), 0);
            ASSERT_GE(kmath_xformLinear_initCompose(&sourceFromResult, &clientMap, &sourceFromResult), 0);
            for (int32_t y = 0; y < 11; ++y) {
                for (int32_t x = 0; x < 17; ++x) {
                    const kmath_vect center = {x + 0.5, y + 0.5};
                    kmath_vect at;
                    kmath_xformLinear_mapPoint(&sourceFromResult, &center, &at);
                    ASSERT_EQ(result.at(x, y), sourcePixels.at(static_cast<int32_t>(at.x), static_cast<int32_t>(at.y)))
                        << turn.name << " (" << x << ", " << y << "), map scale " << clientMap.e0;
                }
            }
        }
    }
}

TEST_P(TransformResult, LargeEnoughDestinationIsWrittenInPlace)
{
    for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
        for (const auto &[width, height, pitch] :
             {std::array{32, 16, 0}, {32, 16, 37}, {33, 16, 0}, {32, 17, -32}, {60, 40, 64}, {50, 30, -55}}) {
            SCOPED_TRACE(testing::Message() << width << " x " << height << ", pitch " << pitch << ", mode " << mode);
            kip_affineSampleParams params = kSlanted;
            params.mode = mode;
            Bound destination(bytes, width, height, pitch);
            ASSERT_GE(transform(source, destination.image, params), 0);
            EXPECT_EQ(destination.image.get()->width, width);
            EXPECT_EQ(destination.image.get()->height, height);
            expectResult(params, destination);
        }
    }
    for (const Turn &turn : kTurns) {
        SCOPED_TRACE(turn.name);
        const kip_affineSampleParams params = {turn.rect(9, 5, 17, 11), kip_affineModeNearest, 17, 11};
        Bound destination(bytes, 29, 23, 31);
        ASSERT_GE(transform(source, destination.image, params), 0);
        expectResult(params, destination);
    }
}

TEST_P(TransformResult, OtherDestinationsReceiveThePixelsTheyShareWithTheResult)
{
    const struct {
        const char *name;
        int32_t width, height, x, y;
    } rows[] = {
        {"a column too small", 31, 16, 0, 0},
        {"a row too small", 32, 15, 0, 0},
        {"a single pixel", 1, 1, 0, 0},
        {"too small but higher", 5, 40, 0, 0},
        {"right of the origin", 40, 30, 3, 0},
        {"below the origin", 40, 30, 0, 2},
        {"left of and above the origin", 40, 30, -4, -3},
        {"inside the result", 6, 5, 11, 7},
        {"over the last pixel", 9, 9, 31, 15},
        {"right of the result", 40, 30, 32, 0},
        {"far away", 40, 30, INT32_MAX - 5, INT32_MIN},
    };
    const kip_affineSampleParams samplings[] = {
        kSlanted,
        {kSlanted.rect, kip_affineModeNearest, 32, 16},
        {kTurns[7].rect(9, 5, 16, 32), kip_affineModeNearest, 16, 32},
    };
    for (const auto &row : rows) {
        for (const kip_affineSampleParams &params : samplings) {
            SCOPED_TRACE(testing::Message() << row.name << ", mode " << params.mode << ", " << params.destWidth << " x "
                                            << params.destHeight);
            Bound destination(bytes, row.width, row.height, row.width + 3);
            destination.image.place(row.x, row.y);
            ASSERT_GE(transform(source, destination.image, params), 0);
            EXPECT_EQ(destination.image.get()->width, row.width);
            EXPECT_EQ(destination.image.get()->height, row.height);
            EXPECT_EQ(destination.image.get()->x, row.x);
            EXPECT_EQ(destination.image.get()->y, row.y);
            expectResult(params, destination);
        }
    }
}

TEST_P(TransformResult, SourcesMayBePlacedScaledOrBottomUp)
{
    for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
        SCOPED_TRACE(mode);
        kip_affineSampleParams params = kSlanted;
        params.mode = mode;
        Image expected;
        ASSERT_GE(transform(source, expected, params), 0);
        const auto expectSame = [&](Image &from, const kmath_shapeAffineRect &rect) {
            kip_affineSampleParams moved = params;
            moved.rect = rect;
            Image result;
            ASSERT_GE(transform(from, result, moved), 0);
            for (int32_t y = 0; y < params.destHeight; ++y)
                for (int32_t x = 0; x < params.destWidth; ++x)
                    ASSERT_EQ(result.at(x, y), expected.at(x, y)) << "(" << x << ", " << y << ")";
        };

        Image placed(sourcePixels);
        placed.place(100, -50);
        expectSame(placed, {120.25, -41.5, 32, -6, 6, 16});

        Image scaled(sourcePixels);
        scaled.setMap({0, 0, 2, 0, 0, 2});
        expectSame(scaled, {10.125, 4.25, 16, -3, 3, 8});

        Image placedAndMirrored(sourcePixels);
        placedAndMirrored.place(8, 16);
        placedAndMirrored.setMap({8, 112, 1, 0, 0, -1});
        expectSame(placedAndMirrored, {20.25, 87.5, 32, -6, -6, -16});

        Pixels upsideDown(bytes, 64, 48, -71, 5);
        for (int32_t y = 0; y < 48; ++y)
            for (int32_t x = 0; x < 64; ++x)
                upsideDown.set(x, y, sourcePixels.at(x, y));
        Image bottomUp(upsideDown);
        expectSame(bottomUp, params.rect);
    }
}

TEST_P(TransformResult, SourceAndDestinationMayLieSideBySide)
{
    for (const bool sourceIsLeft : {true, false}) {
        Pixels both(bytes, 110, 48, 110, 9);
        for (int32_t y = 0; y < 48; ++y)
            for (int32_t x = 0; x < 64; ++x)
                both.set(x + (sourceIsLeft ? 0 : 46), y, sourcePixels.at(x, y));
        auto *const left = static_cast<unsigned char *>(both.first());
        Image from;
        Image to;
        kimg_image_destruct(from.get());
        kimg_image_destruct(to.get());
        ASSERT_EQ(kimg_image_constructExternal(from.get(), bytes, 64, 48, 110, left + (sourceIsLeft ? 0 : 46) * bytes),
                  0);
        ASSERT_EQ(kimg_image_constructExternal(to.get(), bytes, 46, 48, 110, left + (sourceIsLeft ? 64 : 0) * bytes),
                  0);
        Pixels expected = both;
        Image result;
        ASSERT_GE(transform(source, result, kSlanted), 0);
        for (int32_t y = 0; y < kSlanted.destHeight; ++y)
            for (int32_t x = 0; x < kSlanted.destWidth; ++x)
                expected.set(x + (sourceIsLeft ? 64 : 0), y, result.at(x, y));
        EXPECT_GE(transform(from, to, kSlanted), 0);
        EXPECT_TRUE(isSameMemory(expected, both));
    }
}

TEST_P(TransformResult, CachesChangeNoPixelWhateverWasTransformedBefore)
{
    const kip_affineSampleParams samplings[] = {
        kSlanted,
        {kSlanted.rect, kip_affineModeNearest, 32, 16},
        {kSlanted.rect, kip_affineModeBilinear, 33, 16},
        {{20.25, 8.5, 31.5, -6, 6, 16}, kip_affineModeBilinear, 32, 16},
        {kTurns[2].rect(9, 5, 17, 11), kip_affineModeBicubic, 17, 11},
        {kTurns[4].rect(9, 5, 17, 11), kip_affineModeNearest, 17, 11},
        {kTurns[4].rect(8, 5, 17, 11), kip_affineModeNearest, 17, 11},
    };
    Cache cache;
    const auto expectSameWithCache = [&](const kip_affineSampleParams &params, bool tooSmall) {
        Bound plain(bytes, tooSmall ? 13 : 40, 30, 41);
        Bound cached(bytes, tooSmall ? 13 : 40, 30, 41);
        ASSERT_GE(transform(source, plain.image, params), 0);
        ASSERT_GE(transform(source, cached.image, params, &cache.handle), 0);
        EXPECT_TRUE(isSameMemory(plain.pixels, cached.pixels));
        EXPECT_TRUE(isEqual(plain.image.map(), cached.image.map()));
    };
    for (const kip_affineSampleParams &first : samplings) {
        for (const kip_affineSampleParams &second : samplings) {
            expectSameWithCache(first, false);
            expectSameWithCache(second, false);
            expectSameWithCache(second, true);
        }
    }
    // A call that failed leaves nothing behind that a later one takes for its own.
    for (const kip_affineSampleParams &bad :
         {kip_affineSampleParams{{10, 10, 20, 10, 10, 5}, 0, 32, 16}, {kSlanted.rect, 4, 32, 16}}) {
        Image unbound;
        EXPECT_LT(transform(source, unbound, bad, &cache.handle), 0);
        expectSameWithCache(kSlanted, false);
    }
    // Nor do the source's size and map.
    source.setMap({0.25, 0, 1, 0, 0, 1});
    expectSameWithCache(kSlanted, false);
}

TEST_P(TransformResult, KnownGeometryIsNotWorkedOutAgain)
{
    Cache cache;
    Bound destination(bytes, 32, 16);
    ASSERT_GE(transform(source, destination.image, kSlanted, &cache.handle), 0);
    cache.handle->destImageFromClient = kSomeMap;
    Bound again(bytes, 32, 16, 40); // the rows may lie elsewhere
    again.image.setMap({0, 0, 1, 0, 0, 1});
    ASSERT_GE(transform(source, again.image, kSlanted, &cache.handle), 0);
    EXPECT_TRUE(isEqual(again.image.map(), kSomeMap));
}

TEST_P(TransformResult, TakesNoMemoryWithACacheAndABoundDestination)
{
    Pixels largePixels(bytes, 400, 300, 0, 8);
    Image large(largePixels);
    const kip_affineSampleParams samplings[] = {
        {{20.25, 8.5, 320, -6, 6, 280}, kip_affineModeNearest, 320, 280},
        {{20.25, 8.5, 320, -6, 6, 280}, kip_affineModeBilinear, 320, 280},
        {kTurns[2].rect(9, 5, 280, 320), kip_affineModeBicubic, 280, 320},
        {kSlanted.rect, kip_affineModeBilinear, 32, 16},
    };
    for (const kip_affineSampleParams &params : samplings) {
        // One thread, or too little work for more.
        ksys_jobThreadGroup_setThreadCount(params.destWidth > 32 ? 1 : 4);
        Cache cache;
        Bound destination(bytes, params.destWidth, params.destHeight);
        FailingAllocator allocator;
        for (const char *const call : {"first", "second"}) {
            EXPECT_GE(transform(large, destination.image, params, &cache.handle), 0) << call;
            EXPECT_EQ(allocator.requests(), 0) << call << " call, mode " << params.mode;
        }
    }
}

TEST(TransformResult8, ShortFormIsTheSameWithoutACache)
{
    Pixels sourcePixels(1, 64, 48, 70);
    Image source(sourcePixels);
    const kip_affineSampleParams samplings[] = {
        kSlanted,
        {kSlanted.rect, kip_affineModeNearest, 32, 16},
        {kTurns[5].rect(9, 5, 17, 11), kip_affineModeBilinear, 17, 11},
        {{40, 8, 32, 0, 0, 16}, kip_affineModeNearest, 32, 16}, // reaches outside
        {kSlanted.rect, 4, 32, 16},
        {kSlanted.rect, 1, 0, 16},
    };
    for (const kip_affineSampleParams &params : samplings) {
        for (const int32_t width : {40, 9}) {
            Bound expected(1, width, 30);
            Bound found(1, width, 30);
            const int32_t status = kip_affineTransform(source.get(), expected.image.get(), &params, nullptr);
            EXPECT_EQ(kip_affine8(&params, source.get(), found.image.get()), status);
            EXPECT_TRUE(isSameMemory(expected.pixels, found.pixels));
            EXPECT_TRUE(isEqual(expected.image.map(), found.image.map()));
        }
    }
    Image unbound;
    Image destination;
    EXPECT_EQ(kip_affine8(&kSlanted, unbound.get(), destination.get()), kip_statusTransformSourceUnbound);
    EXPECT_EQ(kip_affine8(&kSlanted, source.get(), source.get()), kip_pelStatusOverlap);
}

} // namespace
