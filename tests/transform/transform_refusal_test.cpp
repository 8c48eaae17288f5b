#include <cstdint>
#include <limits>
#include <utility>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/turns.h"
#include "transform/transform_entry.h"

namespace {

using kip::test::bothDepths;
using kip::test::Bound;
using kip::test::Cache;
using kip::test::depthName;
using kip::test::Image;
using kip::test::isEqual;
using kip::test::kSlanted;
using kip::test::kSomeMap;
using kip::test::kTurns;
using kip::test::Pixels;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

class TransformRefusal : public kip::test::TransformEntry {};
INSTANTIATE_TEST_SUITE_P(Depths, TransformRefusal, bothDepths(), depthName);

TEST_P(TransformRefusal, RefusesBadSamplingsAndTouchesNothing)
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

TEST_P(TransformRefusal, RefusesUnboundSourcesAndNullHandles)
{
    Image unbound;
    expectRefusal(kip_statusTransformSourceUnbound, unbound, kSlanted);
    kip_affineSampleCache *handle = nullptr;
    expectRefusal(kip_statusCacheNotConstructed, source, kSlanted, &handle);
    EXPECT_EQ(handle, nullptr);
}

TEST_P(TransformRefusal, RefusesOtherPixelSizesAndTouchesNothing)
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

TEST_P(TransformRefusal, RefusesOverlappingMemoryFirstOfAll)
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

// An image over the caller's memory may lie anywhere.
TEST(TransformRefusal16, OddAddressesAreRefused)
{
    const kip_affineSampleParams across = {{40, 8, 32, 0, 0, 16}, kip_affineModeNearest, 32, 16};
    Pixels even(2, 64, 48);
    Pixels odd(2, 64, 48, 65);
    const Pixels before = odd;
    Image evenImage(even);
    Image oddImage;
    kimg_image_destruct(oddImage.get());
    ASSERT_EQ(kimg_image_constructExternal(oddImage.get(), 2, 64, 48, 65, static_cast<char *>(odd.first()) + 1), 0);
    Image unbound;
    int32_t willClip = 0;
    for (const auto &[from, to] : {std::pair{&oddImage, &unbound}, {&evenImage, &oddImage}}) {
        EXPECT_EQ(kip_affineTransform16(from->get(), to->get(), &kSlanted, nullptr), kip_statusMisaligned);
        for (const kip_affineSampleParams &params : {kSlanted, across})
            EXPECT_EQ(kip_affineTransformClipped16(from->get(), to->get(), nullptr, &params, nullptr, &willClip),
                      kip_statusMisaligned);
    }
    EXPECT_FALSE(unbound.isBound());
    EXPECT_TRUE(isSameMemory(before, odd));
}

// Positions in 16.16 cannot address such sources; copies need none.
TEST(TransformRefusal16, SourcesOfLargePitchOrHeightAreOnlyCopied)
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
