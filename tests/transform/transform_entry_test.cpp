#include <cstdint>
#include <vector>

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

// The stamped map and the source's lead from a pixel of the result to the pixel that it was taken from.
TEST_P(TransformResult, UnboundDestinationAdoptsTheResultAndItsMap)
{
    const kmath_xformLinear clientMaps[] = {
        {0, 0, 1, 0, 0, 1}, {-8, 4, 2, 0, 0, 2}, {0, 48, 0.5, 0, 0, -0.5}, {64, 0, 0, -4, 4, 0}};
    for (const kmath_xformLinear &clientMap : clientMaps) {
        kmath_xformLinear clientFromSource;
        ASSERT_GE(kmath_xformLinear_initInverse(&clientFromSource, &clientMap), 0);
        source.setMap(clientMap);
        for (const Turn &turn : kTurns) {
            for (uint32_t mode = kip_affineModeNearest; mode <= kip_affineModeBicubic; ++mode) {
                SCOPED_TRACE(testing::Message() << turn.name << ", mode " << mode << ", map scale " << clientMap.e0);
                kip_affineSampleParams params = {turn.rect(9, 5, 17, 11), mode, 17, 11};
                ASSERT_GE(kmath_xformLinear_initCompose(&params.rect, &clientFromSource, &params.rect), 0);
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
                kmath_xformLinear sourceFromResult;
                const kmath_xformLinear resultMap = result.map();
                EXPECT_TRUE(isEqual(resultMap, placementOf(params)));
                ASSERT_GE(kmath_xformLinear_initInverse(&sourceFromResult, &resultMap), 0);
                ASSERT_GE(kmath_xformLinear_initCompose(&sourceFromResult, &clientMap, &sourceFromResult), 0);
                for (int32_t y = 0; y < 11; ++y) {
                    for (int32_t x = 0; x < 17; ++x) {
                        const kmath_vect center = {x + 0.5, y + 0.5};
                        kmath_vect at;
                        kmath_xformLinear_mapPoint(&sourceFromResult, &center, &at);
                        ASSERT_EQ(result.at(x, y),
                                  sourcePixels.at(static_cast<int32_t>(at.x), static_cast<int32_t>(at.y)))
                            << "(" << x << ", " << y << ")";
                    }
                }
            }
        }
    }
}

TEST_P(TransformResult, BoundDestinationsReceiveThePixelsTheyShareWithTheResult)
{
    const struct {
        const char *name;
        int32_t width, height, pitch, x, y;
    } rows[] = {
        {"as large as the result", 32, 16, 0, 0, 0}, {"as large as the result, with gaps", 32, 16, 37, 0, 0},
        {"a column larger", 33, 16, 0, 0, 0},        {"a row larger, bottom-up", 32, 17, -32, 0, 0},
        {"larger, bottom-up", 50, 35, -55, 0, 0},    {"a column too small", 31, 16, 34, 0, 0},
        {"a row too small", 32, 15, 35, 0, 0},       {"a single pixel", 1, 1, 4, 0, 0},
        {"too small but higher", 5, 40, 8, 0, 0},    {"right of the origin", 40, 30, 43, 3, 0},
        {"below the origin", 40, 30, 43, 0, 2},      {"left of and above the origin", 40, 30, 43, -4, -3},
        {"inside the result", 6, 5, 9, 11, 7},       {"over the last pixel", 9, 9, 12, 31, 15},
        {"right of the result", 40, 30, 43, 32, 0},  {"far away", 40, 30, 43, INT32_MAX - 5, INT32_MIN},
    };
    std::vector<kip_affineSampleParams> samplings = {kSlanted, {kSlanted.rect, kip_affineModeNearest, 32, 16}};
    for (const Turn &turn : kTurns)
        samplings.push_back({turn.rect(9, 5, 16, 32), kip_affineModeNearest, 16, 32});
    for (const auto &row : rows) {
        for (const kip_affineSampleParams &params : samplings) {
            SCOPED_TRACE(testing::Message() << row.name << ", sampling " << &params - samplings.data());
            Bound destination(bytes, row.width, row.height, row.pitch);
            const kimg_image &image = *destination.image.get();
            destination.image.place(row.x, row.y);
            ASSERT_GE(transform(source, destination.image, params), 0);
            EXPECT_EQ(image.width, row.width);
            EXPECT_EQ(image.height, row.height);
            EXPECT_EQ(image.x, row.x);
            EXPECT_EQ(image.y, row.y);
            expectResult(params, destination);
        }
    }
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
    const Image source(sourcePixels);
    // The second reaches outside, the third has no pixel.
    for (const kip_affineSampleParams &params :
         {kSlanted, {{40, 8, 32, 0, 0, 16}, kip_affineModeNearest, 32, 16}, {kSlanted.rect, 1, 0, 16}}) {
        Bound expected(1, 40, 30);
        Bound found(1, 40, 30);
        const int32_t status = kip_affineTransform(source.get(), expected.image.get(), &params, nullptr);
        EXPECT_EQ(kip_affine8(&params, source.get(), found.image.get()), status);
        EXPECT_TRUE(isSameMemory(expected.pixels, found.pixels));
        EXPECT_TRUE(isEqual(expected.image.map(), found.image.map()));
    }
}

} // namespace
