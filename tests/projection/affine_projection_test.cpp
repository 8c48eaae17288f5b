// Projections by examples worked out by hand.

#include <algorithm>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "projection/normalize_projection.h"
#include "support/images.h"

namespace kip::test {

namespace {

using Sums = std::vector<uint32_t>;

// The sums of an image's row 0.
Sums sumsOf(const Image &image)
{
    kimg_windowConst window;
    EXPECT_EQ(kimg_windowConst_init(&window, image.get()), 0);
    const auto *const first = static_cast<const uint32_t *>(window.pixels);
    return {first, first + window.width};
}

TEST(AffineProjection, RowsAndColumnsOutsideTheSource)
{
    Image source(1, 20, 20);
    kip_pelSet8(source.get(), 100);
    // Two rows of samples above the source, two inside.
    const kip_affineSampleParams above = {{5, -2, 4, 0, 0, 4}, kip_affineModeBicubic, 4, 4};
    Image result, coverage;
    uint32_t depth = 0;
    uint32_t willClip = 0;
    ASSERT_GE(
        kip_affineProjectClipped(source.get(), result.get(), coverage.get(), &above, nullptr, 255, &depth, &willClip),
        0);
    EXPECT_EQ(sumsOf(result), Sums(4, 200));
    EXPECT_EQ(sumsOf(coverage), Sums(4, 510));
    EXPECT_EQ(depth, 510u);
    EXPECT_EQ(willClip, 1u);

    // The left half of the columns outside.
    const kip_affineSampleParams left = {{-4, 3, 8, 0, 0, 5}, kip_affineModeBilinear, 8, 5};
    Image means;
    int32_t first = -1;
    int32_t end = -1;
    ASSERT_GE(kip_affineProjectNorm(source.get(), means.get(), &left, 1, nullptr, &depth, &first, &end), 0);
    EXPECT_EQ(sumsOf(means), (Sums{0, 0, 0, 0, 100, 100, 100, 100}));
    EXPECT_EQ(depth, 1u);
    EXPECT_EQ(first, 4);
    EXPECT_EQ(end, 8);
}

// The clipped form makes its result first, and only then looks at the sampling.
TEST(AffineProjection, ResultKeepsItsPixelsWhereTheSamplingIsRefused)
{
    Image source(1, 20, 20);
    const kip_affineSampleParams flat = {{5, 5, 4, 0, 0, 4}, kip_affineModeBilinear, 4, 0};
    Image result, coverage;
    uint32_t depth = 0, willClip = 0;
    EXPECT_EQ(
        kip_affineProjectClipped(source.get(), result.get(), coverage.get(), &flat, nullptr, 255, &depth, &willClip),
        int32_t{kip_statusSizeBelowOne});
    EXPECT_EQ(sumsOf(result).size(), 4u);
}

// Sums count modulo 2^32.
TEST(AffineProjection, SumsWrap)
{
    constexpr int32_t kRows = 70001;
    Image source(2, 3, 3);
    kip_pelSet16(source.get(), 65535);
    for (const uint32_t mode : {kip_affineModeNearest, kip_affineModeBilinear}) {
        const kip_affineSampleParams params = {{0.75, 0.75, 1.5, 0, 0, 1.5}, mode, 2, kRows};
        Image result;
        uint32_t depth = 0;
        EXPECT_GE(kip_affineProject16(source.get(), result.get(), &params, nullptr, &depth), 0);
        EXPECT_EQ(sumsOf(result), Sums(2, static_cast<uint32_t>(uint64_t{65535} * kRows)));
        EXPECT_EQ(depth, uint32_t{kRows});
    }
}

// Sums at odd addresses go through a row of their own, which once was brought home after a success only.
TEST(AffineProjection, ZerosOutsideTheSourceStandAtOddAddresses)
{
    const Pixels pixels(1, 20, 20);
    const kimg_windowConst source = {20, 20, 0, 0, 0, 0, 20, 20, 20, pixels.memory.data(), 1};
    const kmath_xformLinear map = {0, 0, 1, 0, 0, 1};
    const kip_affineSampleParams outside = {{100, 3, 4, 0, 0, 4}, kip_affineModeBilinear, 4, 4};
    std::vector<uint8_t> memory(40, 0xA5);
    kimg_window sums = {4, 1, 0, 0, 0, 0, 4, 1, 4, memory.data() + 1, 4};
    kimg_window nowhere;
    kimg_window_initUnbound(&nowhere);
    kmath_xformLinear placement{};
    uint32_t depth = 7, willClip = 7;
    EXPECT_EQ(kip_affineProjectClippedWindow(&source, &map, &sums, &nowhere, &outside, nullptr, &placement, 255, &depth,
                                             &willClip),
              int32_t{kip_statusProjectionOutsideSource});
    std::vector<uint8_t> expected(40, 0xA5);
    std::fill_n(expected.begin() + 1, 16, uint8_t{0});
    EXPECT_EQ(memory, expected);
    EXPECT_EQ(depth, 7u);
    EXPECT_EQ(willClip, 1u);
}

// A window without pixels takes sums to nowhere; the numbers are given all the same. One without a source's is refused.
TEST(AffineProjection, WindowsWithoutPixels)
{
    Pixels pixels(1, 64, 48);
    kimg_windowConst source = {64, 48, 0, 0, 0, 0, 64, 48, 64, pixels.memory.data(), 1};
    const kmath_xformLinear map = {0, 0, 1, 0, 0, 1};
    const kip_affineSampleParams inside = {{20.25, 8.5, 32, -6, 6, 16}, kip_affineModeBilinear, 32, 16};
    const kip_affineSampleParams aligned = {{20, 8, 32, 0, 0, 16}, kip_affineModeBilinear, 32, 16};
    kimg_window nowhere;
    kimg_window_initUnbound(&nowhere);
    kmath_xformLinear placement{};
    uint32_t depth = 0;
    EXPECT_GE(kip_affineProjectWindow(&source, &map, &nowhere, &inside, nullptr, &placement, &depth), 0);
    EXPECT_EQ(depth, 16u);
    source.pixels = nullptr;
    for (const kip_affineSampleParams &params : {inside, aligned})
        EXPECT_EQ(kip_affineProjectWindow(&source, &map, &nowhere, &params, nullptr, &placement, &depth),
                  int32_t{kimg_statusNoPixels});
}

// Samples are coverage by its fraction, rounded; means divide by the fraction as it is. The columns end where no sample
// is left at either side.
TEST(NormalizeProjection, WorkedExample)
{
    Sums sums = {7, 50, 60, 100, 201, 50, 9};
    Sums samples = {0, 100, 128, 255, 510, 127, 0};
    kimg_image result, coverage;
    ASSERT_EQ(kimg_image_constructExternal(&result, 4, 7, 1, 7, sums.data()), 0);
    ASSERT_EQ(kimg_image_constructExternal(&coverage, 4, 7, 1, 7, samples.data()), 0);
    uint32_t depth = 0;
    int32_t first = -1, end = -1;
    EXPECT_GE(normalizeProjection(&result, &coverage, 255, 7, &depth, &first, &end), 0);
    EXPECT_EQ(sums, (Sums{7, 0, 120, 100, 101, 0, 9}));
    EXPECT_EQ(samples, (Sums{0, 0, 1, 1, 2, 0, 0}));
    EXPECT_EQ(depth, 1u);
    EXPECT_EQ(first, 2);
    EXPECT_EQ(end, 5);
    kimg_image_destruct(&result);
    kimg_image_destruct(&coverage);
}

} // namespace

} // namespace kip::test
