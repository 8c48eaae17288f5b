// Projections beside the transform of the same sampling: every sum is that of its column.

#include <algorithm>
#include <cstdint>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "projection/projection_entry.h"
#include "support/crash_note.h"
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
class AffineProjection : public testing::TestWithParam<std::tuple<int32_t, uint32_t>> {
protected:
    const Forms &forms = formsOf(std::get<0>(GetParam()));
    const TransformMemory memory{};

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
        c.srcFromClient = drawClientMap(random);
        return c;
    }

    // Projects the source of a transform that has just run.
    void expectColumnSums(const TransformCase &c, const TransformResult &transform, const SumsPlace &place,
                          kip_affineSampleCache **cache)
    {
        const kimg_windowConst source = transformSource(c, memory);
        SumsWindow result(place);
        kimg_window window = result.window();
        kmath_xformLinear placement{};
        uint32_t depth = kNoSum;
        noteForCrash("projection of " + describe(c));
        const int32_t status =
            forms.projectWindow(&source, &c.srcFromClient, &window, &c.params, cache, &placement, &depth);
        ASSERT_EQ(status < 0 ? status : 0, projectionStatus(c, transform.status < 0 ? transform.status : 0))
            << describe(c);
        if (status < 0) {
            ASSERT_TRUE(result.holds({})) << describe(c);
            return;
        }
        ASSERT_TRUE(result.holds(columnSums(transform.pixels, c.params.destWidth))) << describe(c);
        ASSERT_EQ(depth, static_cast<uint32_t>(c.params.destHeight));
        ASSERT_TRUE(isEqual(placement, rowPlacementOf(c.params))) << describe(c);
    }

    void expectColumnSums(const TransformCase &c, const SumsPlace &place, kip_affineSampleCache **cache = nullptr)
    {
        expectColumnSums(c, runTransform(c, memory), place, cache);
    }
};

INSTANTIATE_TEST_SUITE_P(DepthsAndModes, AffineProjection,
                         testing::Combine(testing::Values(1, 2), testing::Values(0u, 1u, 2u, 3u)),
                         [](const auto &suite) {
                             return std::to_string(8 * std::get<0>(suite.param)) + "Mode" +
                                    std::to_string(std::get<1>(suite.param));
                         });

TEST_P(AffineProjection, SumsAreThoseOfTheTransformAtEveryLevel)
{
    std::vector<Level> levels = availableLevels();
    levels.push_back({"portable", 0});
    Random random(4200 + std::get<1>(GetParam()));
    for (int n = 0; n < 200 && !HasFatalFailure(); ++n) {
        const bool isSmall = random.oneIn(2);
        TransformCase c = caseOf(random, random.between32(isSmall ? 1 : 20, isSmall ? 40 : 600),
                                 random.between32(isSmall ? 1 : 20, isSmall ? 40 : 400));
        c.params.destWidth = random.between32(1, isSmall ? 40 : 300);
        c.params.destHeight = random.between32(1, isSmall ? 40 : 300);
        drawRectangle(random, &c);
        const SumsPlace place = drawPlace(random, c.params.destWidth);
        {
            const InhibitOptimizedPaths inhibited;
            expectColumnSums(c, place);
        }
        for (const Level &level : levels) {
            SCOPED_TRACE(level.name);
            const ProcessorLevel set(level.features);
            expectColumnSums(c, place);
        }
    }
}

// Sources beyond 16.16, which 8-bit pixels alone may have in the modes without tables.
TEST_P(AffineProjection, SumsAreThoseOfTheTransformForLongSources)
{
    Random random(4300 + std::get<1>(GetParam()));
    for (int n = 0; n < 30 && !HasFatalFailure(); ++n) {
        const bool isWide = random.oneIn(2);
        TransformCase c = caseOf(random, isWide ? 33000 : 50, isWide ? 50 : 33000);
        c.srcFromClient = {0, 0, 1, 0, 0, 1};
        c.params.destWidth = random.between32(1, 300);
        c.params.destHeight = random.between32(1, 300);
        drawRectangle(random, &c);
        expectColumnSums(c, drawPlace(random, c.params.destWidth));
    }
}

// One cache goes from transform to projection and back, from depth to depth and from geometry to geometry.
TEST(AffineProjectionCache, ServesTransformsAndProjectionsInTurn)
{
    const Pixels pixels8(1, 60, 50);
    const Pixels pixels16(2, 60, 50, -64);
    Random random(4400);
    std::vector<kip_affineSampleParams> samplings;
    for (const uint32_t mode : {1u, 2u, 3u})
        for (const int32_t rows : {1, 7}) {
            samplings.push_back({{10.25, 9.5, 17, 3, -2, 8}, mode, 17, rows});
            samplings.push_back({{11, 9, 17, 0, 0, static_cast<double>(rows)}, mode, 17, rows});
        }

    const auto run = [&](bool isProjection, int32_t bytesPerPixel, const kip_affineSampleParams &params,
                         kip_affineSampleCache **cache, std::vector<uint32_t> *values, kmath_xformLinear *placement) {
        Pixels pixels = bytesPerPixel == 1 ? pixels8 : pixels16;
        Image source(pixels);
        Image result;
        const int32_t status = isProjection
                                   ? formsOf(bytesPerPixel).project(source.get(), result.get(), &params, cache, nullptr)
                               : bytesPerPixel == 1 ? kip_affineTransform(source.get(), result.get(), &params, cache)
                                                    : kip_affineTransform16(source.get(), result.get(), &params, cache);
        if (status < 0)
            return status;
        *placement = result.map();
        if (isProjection)
            *values = sumsOf(result.get());
        for (int32_t i = 0; !isProjection && i < params.destWidth * params.destHeight; ++i)
            values->push_back(result.at(i % params.destWidth, i / params.destWidth));
        return status;
    };

    Cache cache;
    for (int n = 0; n < 3000 && !testing::Test::HasFailure(); ++n) {
        const kip_affineSampleParams params = samplings[random.next() % samplings.size()];
        const bool isProjection = random.oneIn(2);
        const int32_t bytesPerPixel = random.between32(1, 2);
        SCOPED_TRACE(testing::Message() << "call " << n << ": " << (isProjection ? "projection" : "transform") << " of "
                                        << bytesPerPixel << " bytes, mode " << params.mode << ", " << params.destHeight
                                        << " rows");
        std::vector<uint32_t> expected, actual;
        kmath_xformLinear expectedPlacement{}, placement{};
        const int32_t status = run(isProjection, bytesPerPixel, params, nullptr, &expected, &expectedPlacement);
        EXPECT_EQ(run(isProjection, bytesPerPixel, params, &cache.handle, &actual, &placement), status);
        EXPECT_EQ(actual, expected);
        EXPECT_TRUE(isEqual(placement, expectedPlacement));
    }
}

// Calls side by side share a source, and each has a cache and a result of its own.
TEST(AffineProjectionThreads, RunSideBySide)
{
    Pixels pixels(1, 60, 50);
    const Image source(pixels);
    std::vector<Sums> sums(4);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < sums.size(); ++i)
        threads.emplace_back([&, i] {
            for (uint32_t n = 0; n < 40; ++n) {
                const kip_affineSampleParams params = {{15.25, 19.5, 17, 3, -2, 8}, n % 4, 17, 7};
                Image result;
                EXPECT_GE(kip_affineProject(source.get(), result.get(), &params, nullptr, nullptr), 0);
                const Sums row = sumsOf(result.get());
                sums[i].insert(sums[i].end(), row.begin(), row.end());
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    for (const Sums &each : sums)
        EXPECT_EQ(each, sums[0]);
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
