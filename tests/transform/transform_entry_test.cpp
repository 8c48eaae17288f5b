#include <array>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "cache/sample_cache.h"
#include "support/failing_allocator.h"
#include "support/images.h"
#include "support/turns.h"

namespace {

using kip::test::failEachAllocation;
using kip::test::FailingAllocator;
using kip::test::Image;
using kip::test::kTurns;
using kip::test::Pixels;
using kip::test::Turn;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr kmath_xformLinear kSomeMap = {7, -3, 2, 0.5, 0.25, 4};

// A slanted 32 x 16 sampling inside a 64 x 48 source; all its positions are dyadic.
constexpr kip_affineSampleParams kSlanted = {{20.25, 8.5, 32, -6, 6, 16}, kip_affineModeBilinear, 32, 16};

bool isEqual(const kmath_xformLinear &a, const kmath_xformLinear &b)
{
    int32_t equal = 0;
    kmath_xformLinear_compareEqual(&a, &b, &equal);
    return equal != 0;
}

kmath_xformLinear placementOf(const kip_affineSampleParams &params)
{
    kmath_xformLinear placement{};
    EXPECT_GE(kip_affineSampleParams_getDestImageFromClientXform(&params, 0, &placement), 0);
    return placement;
}

// A bound image over pixels that the test sees, with a client map of its own.
struct Bound {
    Pixels pixels;
    Image image;
    Pixels before;

    Bound(int32_t bytesPerPixel, int32_t width, int32_t height, int32_t pitch = 0, uint64_t seed = 77)
        : pixels(bytesPerPixel, width, height, pitch, seed), image(pixels), before(pixels)
    {
        image.setMap(kSomeMap);
    }

    void expectUntouched() const
    {
        EXPECT_TRUE(isSameMemory(before, pixels));
        EXPECT_TRUE(isEqual(image.map(), kSomeMap));
        EXPECT_TRUE(image.isBound());
    }
};

// A cache that destructs itself.
class Cache {
public:
    Cache() { EXPECT_EQ(kip_affineSampleCache_construct(&handle), 0); }
    Cache(const Cache &) = delete;
    Cache &operator=(const Cache &) = delete;
    ~Cache() { EXPECT_EQ(kip_affineSampleCache_destruct(&handle), 0); }

    kip_affineSampleCache *handle = nullptr;
};

// Both depths; the parameter is the bytes per pixel.
class TransformEntry : public testing::TestWithParam<int32_t> {
protected:
    void TearDown() override { ksys_jobThreadGroup_setThreadCount(0); }

    int32_t transform(Image &from, Image &to, const kip_affineSampleParams &params,
                      kip_affineSampleCache **cache = nullptr) const
    {
        return bytes == 1 ? kip_affineTransform(from.get(), to.get(), &params, cache)
                          : kip_affineTransform16(from.get(), to.get(), &params, cache);
    }

    // Expects the top left of the destination, as it is placed, to hold the sampling's result, and all else of
    // its memory to be as before.
    void expectResult(const kip_affineSampleParams &params, const Bound &destination)
    {
        Image result;
        ASSERT_GE(transform(source, result, params), 0);
        Pixels expected = destination.before;
        const kimg_image &place = *const_cast<Image &>(destination.image).get();
        for (int32_t y = 0; y < params.destHeight; ++y) {
            for (int32_t x = 0; x < params.destWidth; ++x) {
                const int64_t column = int64_t{x} - place.x;
                const int64_t row = int64_t{y} - place.y;
                if (column >= 0 && column < expected.width && row >= 0 && row < expected.height)
                    expected.set(static_cast<int32_t>(column), static_cast<int32_t>(row), result.at(x, y));
            }
        }
        EXPECT_TRUE(isSameMemory(expected, destination.pixels));
        EXPECT_TRUE(isEqual(destination.image.map(), placementOf(params)));
    }

    // Expects a status and, whatever the destination is, that nothing of it changes.
    void expectRefusal(int32_t status, Image &from, const kip_affineSampleParams &params,
                       kip_affineSampleCache **cache = nullptr)
    {
        Bound larger(bytes, 40, 30, 45);
        EXPECT_EQ(transform(from, larger.image, params, cache), status);
        larger.expectUntouched();

        Bound smaller(bytes, 31, 16);
        EXPECT_EQ(transform(from, smaller.image, params, cache), status);
        smaller.expectUntouched();

        Bound placed(bytes, 40, 30, -40);
        placed.image.place(3, -2);
        EXPECT_EQ(transform(from, placed.image, params, cache), status);
        placed.expectUntouched();
        EXPECT_EQ(placed.image.get()->x, 3);
        EXPECT_EQ(placed.image.get()->y, -2);

        Image unbound;
        unbound.setMap(kSomeMap);
        EXPECT_EQ(transform(from, unbound, params, cache), status);
        EXPECT_FALSE(unbound.isBound());
        EXPECT_TRUE(isEqual(unbound.map(), kSomeMap));
    }

    const int32_t bytes = GetParam();
    Pixels sourcePixels{bytes, 64, 48, 70};
    Image source{sourcePixels};
};

INSTANTIATE_TEST_SUITE_P(Depths, TransformEntry, testing::Values(1, 2),
                         [](const auto &depth) { return depth.param == 1 ? "Bits8" : "Bits16"; });

TEST_P(TransformEntry, UnboundDestinationAdoptsTheResult)
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
TEST_P(TransformEntry, StampsTheMapThatLeadsBackToTheSource)
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

TEST_P(TransformEntry, LargeEnoughDestinationIsWrittenInPlace)
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

TEST_P(TransformEntry, OtherDestinationsReceiveThePixelsTheyShareWithTheResult)
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

TEST_P(TransformEntry, SourcesMayBePlacedScaledOrBottomUp)
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

TEST_P(TransformEntry, RefusesBadSamplingsAndTouchesNothing)
{
    const struct {
        const char *name;
        kip_affineSampleParams params;
        int32_t status;
    } rows[] = {
        {"no width", {kSlanted.rect, 1, 0, 16}, kip_statusSizeBelowOne},
        {"no height", {kSlanted.rect, 0, 32, 0}, kip_statusSizeBelowOne},
        {"least size", {kSlanted.rect, 1, INT32_MIN, INT32_MIN}, kip_statusSizeBelowOne},
        {"mode 4", {kSlanted.rect, 4, 32, 16}, kip_statusUnknownMode},
        {"greatest mode", {kSlanted.rect, UINT32_MAX, 32, 16}, kip_statusUnknownMode},
        {"table-driven bilinear", {kSlanted.rect, 2, 32, 16}, kip_statusModeNotAvailable},
        {"cubic", {kSlanted.rect, 3, 32, 16}, kip_statusModeNotAvailable},
        {"outside", {{40, 8, 32, 0, 0, 16}, 0, 32, 16}, kip_statusTransformWouldClip},
        {"far outside", {{1e300, 8, 32, 0, 0, 16}, 1, 32, 16}, kip_statusTransformWouldClip},
        {"no room for the neighbours", {{0, 0.25, 32, 0, 0, 16}, 1, 64, 32}, kip_statusTransformWouldClip},
        {"parallel sides", {{10, 10, 20, 10, 10, 5}, 0, 32, 16}, kmath_statusSingular},
        {"a single point", {{10, 10, 0, 0, 0, 0}, 1, 32, 16}, kmath_statusSingular},
        {"no number", {{10, kNan, 32, 0, 0, 16}, 1, 32, 16}, kmath_statusNotFinite},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        expectRefusal(row.status, source, row.params);
        Cache cache;
        expectRefusal(row.status, source, row.params, &cache.handle);
    }
}

TEST_P(TransformEntry, RefusesUnboundSourcesAndNullHandles)
{
    Image unbound;
    expectRefusal(kip_statusTransformSourceUnbound, unbound, kSlanted);
    kip_affineSampleCache *handle = nullptr;
    expectRefusal(kip_statusCacheNotConstructed, source, kSlanted, &handle);
    EXPECT_EQ(handle, nullptr);
}

TEST_P(TransformEntry, RefusesOtherPixelSizesAndTouchesNothing)
{
    const kip_affineSampleParams aligned = {{10, 5, 32, 0, 0, 16}, kip_affineModeNearest, 32, 16};
    for (const int32_t other : {1, 2, 4}) {
        if (other == bytes)
            continue;
        SCOPED_TRACE(testing::Message() << other << " bytes");
        Image otherSource(other, 64, 48);
        for (const kip_affineSampleParams &params : {kSlanted, aligned}) {
            expectRefusal(kip_statusPixelDepth, otherSource, params);
            if (other == 4)
                continue;
            for (const int32_t width : {40, 31}) {
                Bound destination(other, width, 30);
                EXPECT_EQ(transform(source, destination.image, params), kip_statusPixelDepth);
                destination.expectUntouched();
            }
        }
    }
}

TEST_P(TransformEntry, RefusesOverlappingMemoryFirstOfAll)
{
    const Pixels before = sourcePixels;
    const auto expectOverlap = [&](Image &destination, const char *name) {
        SCOPED_TRACE(name);
        destination.setMap(kSomeMap);
        EXPECT_EQ(transform(source, destination, kSlanted), kip_pelStatusOverlap);
        const kip_affineSampleParams bad = {kSlanted.rect, 4, 0, 0};
        kip_affineSampleCache *handle = nullptr;
        EXPECT_EQ(transform(source, destination, bad, &handle), kip_pelStatusOverlap);
        EXPECT_TRUE(isEqual(destination.map(), kSomeMap));
        EXPECT_TRUE(isSameMemory(before, sourcePixels));
    };
    const auto at = [&](int32_t x, int32_t y) {
        return static_cast<unsigned char *>(sourcePixels.first()) + (y * sourcePixels.pitch + x) * bytes;
    };

    expectOverlap(source, "the source itself");
    {
        Image same(sourcePixels);
        expectOverlap(same, "another image of the same pixels");
    }
    {
        Image shared;
        ASSERT_GE(kimg_image_assign(shared.get(), source.get()), 0);
        expectOverlap(shared, "pixels shared by assignment");
    }
    const struct {
        const char *name;
        int32_t width, height, x, y;
    } rows[] = {
        {"a part of the source", 32, 16, 20, 20},
        {"the last row", 32, 2, 0, 47},
        {"the last column", 6, 3, 63, 10},
        {"the last pixel", 2, 1, 63, 47},
    };
    for (const auto &row : rows) {
        Image part;
        kimg_image_destruct(part.get());
        ASSERT_EQ(kimg_image_constructExternal(part.get(), bytes, row.width, row.height, sourcePixels.pitch,
                                               at(row.x, row.y)),
                  0);
        expectOverlap(part, row.name);
    }
}

TEST_P(TransformEntry, SourceAndDestinationMayLieSideBySide)
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

TEST_P(TransformEntry, CachesChangeNoPixelWhateverWasTransformedBefore)
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
         {kip_affineSampleParams{{10, 10, 20, 10, 10, 5}, 0, 32, 16}, {kSlanted.rect, 3, 32, 16}}) {
        Image unbound;
        EXPECT_LT(transform(source, unbound, bad, &cache.handle), 0);
        expectSameWithCache(kSlanted, false);
    }
    // Nor do the source's size and map.
    source.setMap({0.25, 0, 1, 0, 0, 1});
    expectSameWithCache(kSlanted, false);
}

TEST_P(TransformEntry, KnownGeometryIsNotWorkedOutAgain)
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

TEST_P(TransformEntry, RefusedAllocationsLeaveTheDestinationAsItWas)
{
    ksys_jobThreadGroup_setThreadCount(1);
    const kip_affineSampleParams samplings[] = {
        kSlanted,
        {kSlanted.rect, kip_affineModeNearest, 32, 16},
        {kTurns[1].rect(9, 5, 16, 12), kip_affineModeBicubic, 16, 12},
    };
    for (const kip_affineSampleParams &params : samplings) {
        const int64_t forUnbound = failEachAllocation([&] {
            Image result;
            const int32_t status = transform(source, result, params);
            EXPECT_EQ(result.isBound(), status >= 0);
            return status;
        });
        EXPECT_GT(forUnbound, 0);

        Bound smaller(bytes, 15, 10);
        const int64_t forSmaller = failEachAllocation([&] {
            const int32_t status = transform(source, smaller.image, params);
            if (status < 0)
                smaller.expectUntouched();
            return status;
        });
        EXPECT_GT(forSmaller, 0);
        expectResult(params, smaller);
    }
}

TEST_P(TransformEntry, RefusedAllocationsOfJobsWriteNothing)
{
    ksys_jobThreadGroup_setThreadCount(3);
    Pixels largePixels(bytes, 400, 440, 0, 8);
    Image large(largePixels);
    const kip_affineSampleParams params = {{20.25, 8.5, 320, -6, 6, 410}, kip_affineModeBilinear, 320, 410};
    Bound expected(bytes, 330, 420);
    ASSERT_GE(transform(large, expected.image, params), 0); // starts the threads

    Bound destination(bytes, 330, 420);
    const int64_t requests = failEachAllocation([&] {
        const int32_t status = transform(large, destination.image, params);
        if (status < 0)
            destination.expectUntouched();
        return status;
    });
    EXPECT_GT(requests, 0) << "no jobs were made";
    EXPECT_TRUE(isSameMemory(expected.pixels, destination.pixels));
}

TEST_P(TransformEntry, TakesNoMemoryWithACacheAndABoundDestination)
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

TEST(TransformEntry8, ShortFormIsTheSameWithoutACache)
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

// Positions in 16.16 cannot address such sources; copies need none.
TEST(TransformEntry16, SourcesOfLargePitchOrHeightAreOnlyCopied)
{
    const struct {
        const char *name;
        int32_t width, height, pitch;
        bool isServed;
    } rows[] = {
        {"greatest pitch", 64, 48, 32767, true},
        {"pitch one above", 64, 48, 32768, false},
        {"greatest height", 64, 32767, 64, true},
        {"height one above", 64, 32768, 64, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Pixels pixels(2, row.width, row.height, row.pitch);
        Image source(pixels);
        for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
            kip_affineSampleParams params = kSlanted;
            params.mode = mode;
            Bound destination(2, 40, 30);
            EXPECT_EQ(kip_affineTransform16(source.get(), destination.image.get(), &params, nullptr),
                      row.isServed ? 0 : kip_statusSourceTooLarge);
            if (!row.isServed)
                destination.expectUntouched();

            const kip_affineSampleParams aligned = {kTurns[1].rect(40, 30, 17, 11), mode, 17, 11};
            Image copy;
            EXPECT_EQ(kip_affineTransform16(source.get(), copy.get(), &aligned, nullptr), 0);
            for (int32_t y = 0; y < 11; ++y)
                for (int32_t x = 0; x < 17; ++x)
                    ASSERT_EQ(copy.at(x, y), pixels.at(40 + y, 30 + x));
        }
    }
}

} // namespace
