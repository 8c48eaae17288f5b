// Clipped transforms are what plain ones make of a source with a black frame, the mask what they make of a white one.

#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "cache/sample_cache.h"
#include "support/crash_note.h"
#include "support/depths.h"
#include "support/failing_allocator.h"
#include "support/levels.h"
#include "support/transform_case.h"
#include "transform/transform_entry.h"

namespace kip::test {

namespace {

int32_t transformPlain(int32_t bytes, const Image &from, Image &to, const kip_affineSampleParams &params)
{
    return bytes == 1 ? kip_affineTransform(from.get(), to.get(), &params, nullptr)
                      : kip_affineTransform16(from.get(), to.get(), &params, nullptr);
}

int32_t transformClipped(int32_t bytes, const kimg_image *from, kimg_image *to, kimg_image *mask,
                         const kip_affineSampleParams &params, int32_t *willClip,
                         kip_affineSampleCache **cache = nullptr)
{
    return bytes == 1 ? kip_affineTransformClipped(from, to, mask, &params, cache, willClip)
                      : kip_affineTransformClipped16(from, to, mask, &params, cache, willClip);
}

// An image between unreadable pages, its rows taken as bytes.
class Guarded {
public:
    Guarded(const GuardedMemory &memory, const Pixels &shape, int32_t pitch, Guard guard)
        : memory_(memory), rows_(placeRows<uint8_t>(memory, guard, shape.width * shape.bytesPerPixel, shape.height,
                                                    pitch * shape.bytesPerPixel))
    {
        putCanaries(memory, rows_);
        kimg_image_destruct(image.get());
        EXPECT_EQ(kimg_image_constructExternal(image.get(), shape.bytesPerPixel, shape.width, shape.height, pitch,
                                               rows_.first),
                  0);
    }

    std::string damage() const { return findDeadCanary(memory_, rows_); }

    Image image;

private:
    const GuardedMemory &memory_;
    PixelRows<uint8_t> rows_;
};

// Depth and mode.
class ClippedModes : public testing::TestWithParam<DepthAndMode> {};
INSTANTIATE_TEST_SUITE_P(DepthsAndModes, ClippedModes, depthsAndModes(3), depthAndModeName);

// Rectangles of every kind that the source holds some, all or nothing of.
TransformCase drawCase(Random &random, int32_t bytes, uint32_t mode)
{
    TransformCase c;
    c.bytesPerPixel = bytes;
    c.params.mode = mode;
    c.width = random.between32(1, 60);
    c.height = random.between32(1, 60);
    c.pitch = (c.width + random.between32(0, 5)) * random.sign();
    c.x = random.oneIn(2) ? 0 : random.between32(-300, 300);
    c.y = random.oneIn(2) ? 0 : random.between32(-300, 300);
    c.srcFromClient = drawClientMap(random);
    c.params.destWidth = random.between32(1, random.oneIn(4) ? 200 : 30);
    c.params.destHeight = random.between32(1, random.oneIn(4) ? 200 : 30);
    c.destinationPitch = c.params.destWidth + random.between32(0, 5);
    c.sourceGuard = random.pick(kGuards);
    c.destinationGuard = random.pick(kGuards);
    c.seed = random.next();
    // Drawn inside a larger source, and moved: by whole pixels, so that some maps stay aligned.
    TransformCase larger = c;
    larger.width += 40;
    larger.height += 40;
    drawRectangle(random, &larger);
    c.params.rect = larger.params.rect;
    kmath_xformLinear clientFromSource;
    EXPECT_EQ(kmath_xformLinear_initInverse(&clientFromSource, &c.srcFromClient), 0);
    const double dx = random.between32(-60, 20);
    const double dy = random.between32(-60, 20);
    c.params.rect.tx += clientFromSource.e0 * dx + clientFromSource.e1 * dy;
    c.params.rect.ty += clientFromSource.e2 * dx + clientFromSource.e3 * dy;
    return c;
}

TEST_P(ClippedModes, AreTransformsOfFramedSourcesAtEveryLevel)
{
    const auto [bytes, mode] = GetParam();
    const GuardedMemory sourceMemory(size_t{1} << 16);
    const GuardedMemory destinationMemory(size_t{1} << 17);
    const GuardedMemory maskMemory(size_t{1} << 17);
    Random random(4000 + mode);
    int clipped = 0;
    int outside = 0;
    std::vector<Level> levels = availableLevels();
    levels.push_back({"portable", 0});
    for (int n = 0; n < 250 && !HasFatalFailure(); ++n) {
        const TransformCase c = drawCase(random, bytes, mode);
        const std::string about = describe(c);
        SCOPED_TRACE(about);
        noteForCrash(about);
        Pixels pixels(bytes, c.width, c.height, 0, c.seed);
        Guarded source(sourceMemory, pixels, c.pitch, c.sourceGuard);
        ASSERT_EQ((bytes == 1 ? kip_pelCopy8 : kip_pelCopy16)(Image(pixels).get(), source.image.get()), 0);
        source.image.place(c.x, c.y);
        source.image.setMap(c.srcFromClient);
        Image expected;
        Image expectedMask;
        const int32_t expectedStatus = [&, bytes = bytes] {
            const ProcessorLevel portable(0);
            FramedSource white(source.image, 1, c.params, 255);
            transformPlain(1, white.image, expectedMask, c.params);
            FramedSource framed(source.image, bytes, c.params);
            return transformPlain(bytes, framed.image, expected, c.params);
        }();
        for (const Level &level : levels) {
            SCOPED_TRACE(level.name);
            const ProcessorLevel set(level.features);
            const Pixels shape(bytes, c.params.destWidth, c.params.destHeight);
            const Pixels maskShape(1, c.params.destWidth, c.params.destHeight);
            Guarded destination(destinationMemory, shape, c.destinationPitch, c.destinationGuard);
            Guarded mask(maskMemory, maskShape, -c.destinationPitch, c.destinationGuard);
            const FailingAllocator junk; // stands in what the padded images do not overwrite
            int32_t willClip = -1;
            const int32_t status = transformClipped(bytes, source.image.get(), destination.image.get(),
                                                    mask.image.get(), c.params, &willClip);
            ASSERT_EQ(destination.damage() + mask.damage() + source.damage(), "");
            const bool isOutside = status == kip_statusTransformOutsideSource;
            ASSERT_EQ(status, isOutside ? status : expectedStatus);
            if (expectedStatus < 0)
                continue;
            expectSamePixels(expected, destination.image, "pixel");
            EXPECT_TRUE(isEqual(destination.image.map(), placementOf(c.params)));
            clipped += willClip != 0 && !isOutside;
            outside += isOutside;
            if (willClip != 0 && !isOutside)
                expectSamePixels(expectedMask, mask.image, "mask");
            else
                for (int32_t x = 0; x < c.params.destWidth; ++x)
                    ASSERT_EQ(mask.image.at(x, 0), kCanary) << "the mask was touched";
        }
    }
    EXPECT_GT(clipped, 100);
    EXPECT_GT(outside, 5);
}

// A row of samples that begins left of a white source, a quarter of a pixel off its grid.
TEST(ClippedMask, MixesByTheWeightsOfTheInterpolation)
{
    const struct {
        uint32_t mode;
        uint32_t row[5]; // of a middle row
        uint32_t corner; // the first pixel with a part of the source
    } rows[] = {
        {kip_affineModeNearest, {0, 255, 255, 255, 255}, 255},
        {kip_affineModeBilinear, {0, 191, 255, 255, 255}, 143},
        {kip_affineModeBilinearSeparable, {0, 191, 255, 255, 255}, 143},
        {kip_affineModeBicubic, {0, 203, 255, 255, 255}, 162},
    };
    for (const int32_t bytes : {1, 2}) {
        Image source(bytes, 40, 40);
        bytes == 1 ? kip_pelSet8(source.get(), 100) : kip_pelSet16(source.get(), 1000);
        for (const auto &row : rows) {
            SCOPED_TRACE(testing::Message() << 8 * bytes << " bits, mode " << row.mode);
            const kip_affineSampleParams params = {{-1.25, -1.25, 30, 0, 0, 30}, row.mode, 30, 30};
            Image result;
            Image mask;
            int32_t willClip = 0;
            ASSERT_EQ(transformClipped(bytes, source.get(), result.get(), mask.get(), params, &willClip), 0);
            EXPECT_NE(willClip, 0);
            for (int32_t x = 0; x < 5; ++x)
                EXPECT_EQ(mask.at(x, 15), row.row[x]) << x;
            EXPECT_EQ(mask.at(1, 1), row.corner);
        }
    }
}

class Clipped : public testing::TestWithParam<int32_t> {
protected:
    int32_t transform(const kimg_image *from, kimg_image *to, kimg_image *mask, const kip_affineSampleParams &params,
                      kip_affineSampleCache **cache = nullptr)
    {
        willClip = kUnwritten;
        return transformClipped(bytes, from, to, mask, params, &willClip, cache);
    }

    static constexpr int32_t kUnwritten = 77;
    const int32_t bytes = GetParam();
    int32_t willClip = kUnwritten;
    Pixels sourcePixels{bytes, 64, 48, 70};
    Image source{sourcePixels};
    kip_affineSampleParams across = {{40.25, 20.5, 32, -6, 6, 16}, kip_affineModeBilinear, 32, 16};
};
INSTANTIATE_TEST_SUITE_P(Depths, Clipped, bothDepths(), depthName);

TEST_P(Clipped, RefusalsTouchNothing)
{
    enum Flag { unwritten, inside, clips };
    Image unbound;
    Image other(3 - bytes, 64, 48);
    Image wide(4, 64, 48);
    kip_affineSampleCache *nullHandle = nullptr;
    const kmath_shapeAffineRect &rect = across.rect;
    const int32_t odd = 3 - bytes;
    const struct {
        const char *name;
        const Image &source;
        kip_affineSampleParams params;
        int32_t status;
        Flag flag;
        int32_t destinationBytes = 0, maskBytes = 1; // 0: those of the operation
        kip_affineSampleCache **cache = nullptr;
    } rows[] = {
        {"unbound source", unbound, {rect, 1, 0, 9}, kip_statusTransformSourceUnbound, unwritten},
        {"no width", source, {rect, 1, 0, 9}, kip_statusSizeBelowOne, unwritten},
        {"mode 4", source, {rect, 4, 32, 16}, kip_statusUnknownMode, unwritten},
        {"no number", source, {{NAN, 0, 9, 0, 0, 9}, 1, 9, 9}, kmath_statusNotFinite, clips},
        {"parallel sides", source, {{-9, 10, 20, 10, 10, 5}, 0, 9, 9}, kmath_statusSingular, clips},
        {"too far away", source, {{3e9, 0, 9, 0, 0, 9}, 0, 9, 9}, kmath_statusOutOfRange, clips},
        {"too large", source, {{-2e9, 0, 4e9, 0, 0, 9}, 0, 9, 9}, kstd_statusTooLarge, clips},
        {"long table", source, {{-33000, 0, 70000, 0, 0, 9}, 3, 9, 9}, kip_statusSourceTooLarge, clips},
        {"null handle", source, across, kip_statusCacheNotConstructed, clips, 0, 1, &nullHandle},
        {"null handle inside", source, kSlanted, kip_statusCacheNotConstructed, inside, 0, 1, &nullHandle},
        {"other source", other, across, kip_statusPixelDepth, clips},
        {"other source inside", other, kSlanted, kip_statusPixelDepth, inside},
        {"32-bit source", wide, across, kip_statusPixelDepth, clips},
        {"other destination", source, across, kip_statusPixelDepth, clips, odd},
        {"other destination inside", source, kSlanted, kip_statusPixelDepth, inside, odd},
        {"16-bit mask", source, across, kip_statusPixelDepth, clips, 0, 2},
        {"16-bit mask inside", source, kSlanted, kip_statusPixelDepth, inside, 0, 2},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        for (const int32_t width : {row.params.destWidth > 0 ? row.params.destWidth : 9, 40}) {
            Bound destination(row.destinationBytes != 0 ? row.destinationBytes : bytes, width, 16);
            Bound mask(row.maskBytes, width, 16);
            EXPECT_EQ(transform(row.source.get(), destination.image.get(), mask.image.get(), row.params, row.cache),
                      row.status);
            EXPECT_EQ(willClip == kUnwritten ? unwritten : willClip == 0 ? inside : clips, row.flag);
            destination.expectUntouched();
            mask.expectUntouched();
        }
    }
}

TEST_P(Clipped, OutsideTheSourceTheResultIsBlackAndThereIsNoMask)
{
    for (const double tx : {-1000.0, 100.25}) {
        kip_affineSampleParams params = across;
        params.rect.tx = tx;
        Bound destination(bytes, 32, 16, 37);
        Bound mask(1, 32, 16);
        EXPECT_EQ(transform(source.get(), destination.image.get(), mask.image.get(), params),
                  kip_statusTransformOutsideSource);
        Pixels black = destination.before;
        for (int32_t y = 0; y < 16; ++y)
            for (int32_t x = 0; x < 32; ++x)
                black.set(x, y, 0);
        EXPECT_TRUE(isSameMemory(black, destination.pixels));
        mask.expectUntouched();
        EXPECT_EQ(transform(source.get(), destination.image.get(), nullptr, params), kip_statusTransformOutsideSource);
    }
}

// Only a destination of exactly the result's size is written in place, and gets its map.
TEST_P(Clipped, EveryDestinationReceivesWhatItSharesWithTheResult)
{
    Image result;
    Image resultMask;
    ASSERT_EQ(transform(source.get(), result.get(), resultMask.get(), across), 0);
    EXPECT_TRUE(isEqual(result.map(), placementOf(across)));
    EXPECT_TRUE(isEqual(resultMask.map(), placementOf(across)));
    const struct {
        int32_t width, height, pitch, x, y;
    } rows[] = {{32, 16, 0, 0, 0}, {32, 16, -35, 0, 0}, {40, 16, 41, 0, 0}, {32, 20, 0, 0, 0},
                {5, 30, 0, 0, 0},  {40, 20, 0, 3, -2},  {40, 20, 0, 99, 0}};
    const auto expectPart = [](const Bound &bound, const Image &whole, bool inPlace, const kmath_xformLinear &map) {
        Pixels expected = bound.before;
        for (int32_t y = 0; y < expected.height; ++y) {
            for (int32_t x = 0; x < expected.width; ++x) {
                const int32_t column = x + bound.image.get()->x;
                const int32_t row = y + bound.image.get()->y;
                if (column < 32 && row >= 0 && row < 16)
                    expected.set(x, y, whole.at(column, row));
            }
        }
        EXPECT_TRUE(isSameMemory(expected, bound.pixels));
        EXPECT_TRUE(isEqual(bound.image.map(), inPlace ? map : kSomeMap));
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.width << " x " << row.height << " at (" << row.x << ", " << row.y
                                        << ")");
        const bool inPlace = row.width == 32 && row.height == 16 && row.x == 0;
        Bound destination(bytes, row.width, row.height, row.pitch);
        Bound mask(1, row.width, row.height, row.pitch);
        destination.image.place(row.x, row.y);
        mask.image.place(row.x, row.y);
        ASSERT_EQ(transform(source.get(), destination.image.get(), mask.image.get(), across), 0);
        expectPart(destination, result, inPlace, placementOf(across));
        expectPart(mask, resultMask, inPlace, placementOf(across));
    }
    // One image in two places: the source's pixels are copied before any is written, the mask comes last.
    for (const uint32_t mode : {kip_affineModeBilinear, kip_affineModeBicubic}) {
        kip_affineSampleParams params = across;
        params.mode = mode;
        ASSERT_EQ(transform(source.get(), result.get(), resultMask.get(), params), 0);
        Bound both(bytes, 32, 16);
        Image apart;
        Image mask;
        kip_affineSampleParams beside = {{-5, -3, 32, 2, 0, 16}, mode, 32, 16};
        both.image.setMap({0, 0, 1, 0, 0, 1});
        ASSERT_EQ(transform(both.image.get(), apart.get(), resultMask.get(), beside), 0);
        ASSERT_EQ(transform(both.image.get(), both.image.get(), mask.get(), beside), 0);
        expectSamePixels(apart, both.image, "pixel");
        expectSamePixels(resultMask, mask, "mask");
        Image single;
        ASSERT_EQ(transform(source.get(), single.get(), single.get(), params), 0);
        ASSERT_EQ(transform(source.get(), result.get(), resultMask.get(), params), 0);
        expectSamePixels(resultMask, single, "mask");
    }
}

TEST_P(Clipped, OneCacheServesBothPassesAndTheNextCall)
{
    for (uint32_t mode = kip_affineModeNearest; mode <= kip_affineModeBicubic; ++mode) {
        kip_affineSampleParams params = across;
        params.mode = mode;
        Image plain;
        Image plainMask;
        ASSERT_EQ(transform(source.get(), plain.get(), plainMask.get(), params), 0);
        Cache cache;
        for (const char *const call : {"first", "second"}) {
            SCOPED_TRACE(testing::Message() << call << " call, mode " << mode);
            Image result;
            Image mask;
            ASSERT_EQ(transform(source.get(), result.get(), mask.get(), params, &cache.handle), 0);
            expectSamePixels(plain, result, "pixel");
            expectSamePixels(plainMask, mask, "mask");
            EXPECT_EQ(cache.handle->geometry, 1u);
        }
    }
}

} // namespace

} // namespace kip::test
