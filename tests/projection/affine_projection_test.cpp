// Transforms and projections at every level of the processor: the pixels are the same at each, and every sum is that of
// its column.

#include <algorithm>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "projection/projection_entry.h"
#include "support/crash_note.h"
#include "support/depths.h"
#include "support/levels.h"
#include "support/random.h"
#include "support/transform_case.h"

namespace kip::test {

namespace {

Sums columnSums(const std::vector<uint32_t> &pixels, int32_t columns)
{
    Sums sums(static_cast<size_t>(columns));
    for (size_t i = 0; i < pixels.size(); ++i)
        sums[i % sums.size()] += pixels[i];
    return sums;
}

// What the projection of a case answers where the transform of the same answers so.
int32_t projectionStatus(const TransformCase &c, int32_t transformStatus)
{
    if (transformStatus == kip_statusTransformWouldClip)
        return kip_statusProjectionWouldClip;
    const bool isOffered = c.bytesPerPixel == 1 || c.params.mode <= kip_affineModeBilinear;
    return isOffered || transformStatus == kip_statusSourceTooLarge ? transformStatus
                                                                    : kip_statusProjectionModeUnsupported;
}

SumsPlace drawPlace(Random &random, int32_t columns)
{
    SumsPlace place;
    place.width = columns + random.between32(0, 3);
    if (random.oneIn(2)) {
        place.x = random.between32(-columns - 1, columns + 1);
        place.y = random.between32(-3, 1);
        place.width = random.between32(1, 2 * columns + 2);
        place.height = random.between32(1, 4);
    }
    place.pitch = (place.width + random.between32(0, 2)) * random.sign();
    place.misalignment = random.oneIn(4) ? random.between32(1, 3) : 0;
    return place;
}

// Depth and mode.
class AffineProjection : public testing::TestWithParam<DepthAndMode> {
protected:
    const Forms &forms = formsOf(std::get<0>(GetParam()));
    const TransformMemory memory{};
    TransformResult transform;

    TransformCase caseOf(Random &random, int32_t width, int32_t height) const
    {
        TransformCase c;
        c.bytesPerPixel = forms.bytesPerPixel;
        c.params.mode = std::get<1>(GetParam());
        c.seed = random.next();
        c.width = width;
        c.height = height;
        c.pitch = (width + random.between32(0, 20)) * (random.oneIn(4) ? -1 : 1);
        c.x = random.between32(-50, 50);
        c.y = random.between32(-50, 50);
        c.sourceGuard = random.pick(kGuards);
        c.destinationGuard = random.pick(kGuards);
        c.srcFromClient = drawClientMap(random);
        return c;
    }

    // Expects the sums to be those of the pixels that the transform gives, and remembers those.
    void expectColumnSums(const TransformCase &c, const SumsPlace &place)
    {
        transform = runTransform(c, memory);
        ASSERT_EQ(transform.damage, "") << describe(c);
        const kimg_windowConst source = transformSource(c, memory);
        SumsWindow result(place);
        kimg_window window = result.window();
        kmath_xformLinear placement{};
        uint32_t depth = kNoSum;
        noteForCrash("projection of " + describe(c));
        const int32_t status =
            forms.projectWindow(&source, &c.srcFromClient, &window, &c.params, nullptr, &placement, &depth);
        ASSERT_EQ(status < 0 ? status : 0, projectionStatus(c, transform.status < 0 ? transform.status : 0))
            << describe(c);
        if (status < 0)
            return;
        ASSERT_TRUE(result.holds(columnSums(transform.pixels, c.params.destWidth))) << describe(c);
        ASSERT_EQ(depth, static_cast<uint32_t>(c.params.destHeight));
        ASSERT_TRUE(isEqual(placement, rowPlacementOf(c.params))) << describe(c);
    }
};

INSTANTIATE_TEST_SUITE_P(DepthsAndModes, AffineProjection, depthsAndModes(3), depthAndModeName);

TEST_P(AffineProjection, PixelsAndSumsAreTheSameAtEveryLevel)
{
    std::vector<Level> levels = availableLevels();
    levels.insert(levels.begin(), {"portable", 0});
    Random random(4200 + std::get<1>(GetParam()));
    for (int n = 0; n < 400 && !HasFatalFailure(); ++n) {
        // Long sources are beyond 16.16, which 8-bit pixels alone may be in the modes without tables.
        const bool isLong = n % 16 == 0;
        const bool isWide = isLong && random.oneIn(2);
        const bool isSmall = random.oneIn(2);
        const auto draw = [&](int32_t most) { return random.between32(isSmall ? 1 : 20, isSmall ? 40 : most); };
        const int32_t width = isWide ? 33000 : draw(isLong ? 50 : 600);
        const int32_t height = isLong && !isWide ? 33000 : draw(isLong ? 50 : 400);
        TransformCase c = caseOf(random, width, height);
        c.params.destWidth = draw(300);
        c.params.destHeight = draw(300);
        c.destinationPitch = c.params.destWidth + random.between32(0, 5);
        drawRectangle(random, &c);
        const SumsPlace place = drawPlace(random, c.params.destWidth);
        {
            const InhibitOptimizedPaths inhibited;
            expectColumnSums(c, place);
        }
        TransformResult portable;
        for (const Level &level : levels) {
            SCOPED_TRACE(level.name);
            const ProcessorLevel set(level.features);
            expectColumnSums(c, place);
            if (level.features == 0)
                portable = transform;
            ASSERT_EQ(transform.status, portable.status) << describe(c);
            ASSERT_TRUE(transform.pixels == portable.pixels) << describe(c);
        }
    }
}

// A column that leads down, in rows that would lead up: its line of samples is shorter than the step says.
TEST_P(AffineProjection, ColumnsWhoseRowsLeadBackAddUp)
{
    Random random(4300);
    TransformCase c = caseOf(random, 40, 50);
    c.x = c.y = 0;
    c.srcFromClient = {0, 0, 1, 0, 0, 1};
    c.params.destWidth = 1;
    c.params.destHeight = 40;
    c.params.rect = {20.25, 5.75, 5e-7, 0, -1, 35.5};
    expectColumnSums(c, {0, 0, 1, 1, 1, 0});
    EXPECT_EQ(transform.status, 0);
}

// One cache goes from transform to projection and back, from depth to depth and from geometry to geometry.
TEST(AffineProjectionCache, ServesTransformsAndProjectionsInTurn)
{
    Random random(4400);
    Cache cache;
    for (int n = 0; n < 3000 && !testing::Test::HasFailure(); ++n) {
        const int32_t bytesPerPixel = random.between32(1, 2);
        const uint32_t mode = static_cast<uint32_t>(random.between(1, 3));
        const int32_t rows = random.pick({1, 7});
        const kmath_shapeAffineRect rects[] = {{10.25, 9.5, 17, 3, -2, 8},
                                               {11, 9, 17, 0, 0, static_cast<double>(rows)}};
        const kip_affineSampleParams params = {random.pick(rects), mode, 17, rows};
        const bool isProjection = random.oneIn(2);
        SCOPED_TRACE(testing::Message() << "call " << n << ": " << (isProjection ? "projection" : "transform") << " of "
                                        << bytesPerPixel << " bytes, mode " << mode << ", " << rows << " rows");
        Pixels pixels(bytesPerPixel, 60, 50, -64);
        const Image source(pixels);
        Image plain, cached;
        const auto run = [&](Image &result, kip_affineSampleCache **handle) {
            const Forms &forms = formsOf(bytesPerPixel);
            if (isProjection)
                return forms.project(source.get(), result.get(), &params, handle, nullptr);
            return bytesPerPixel == 1 ? kip_affineTransform(source.get(), result.get(), &params, handle)
                                      : kip_affineTransform16(source.get(), result.get(), &params, handle);
        };
        const int32_t status = run(plain, nullptr);
        EXPECT_EQ(run(cached, &cache.handle), status);
        if (status < 0)
            continue;
        EXPECT_TRUE(isEqual(cached.map(), plain.map()));
        if (isProjection) {
            EXPECT_EQ(sumsOf(cached.get()), sumsOf(plain.get()));
        }
        for (int32_t i = 0; !isProjection && i < 17 * rows; ++i)
            EXPECT_EQ(cached.at(i % 17, i / 17), plain.at(i % 17, i / 17));
    }
}

// Sums count modulo 2^32.
TEST(AffineProjectionWrap, SumsWrap)
{
    constexpr int32_t kRows = 70001;
    Pixels pixels(2, 3, 3);
    for (int32_t i = 0; i < 9; ++i)
        pixels.set(i % 3, i / 3, 65535);
    Image source(pixels);
    for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
        const kip_affineSampleParams params = {{0.75, 0.75, 1.5, 0, 0, 1.5}, mode, 2, kRows};
        Image result;
        uint32_t depth = 0;
        EXPECT_GE(kip_affineProject16(source.get(), result.get(), &params, nullptr, &depth), 0);
        constexpr auto sum = static_cast<uint32_t>(uint64_t{65535} * kRows);
        EXPECT_EQ(sumsOf(result.get()), (Sums{sum, sum}));
        EXPECT_EQ(depth, uint32_t{kRows});
    }
}

} // namespace

} // namespace kip::test
