// Sums of rows and columns: what the hook is asked, where sums wrap, and windows made by hand. Which sums they are is
// for the boundary test.

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/levels.h"
#include "support/records.h"

namespace kip::test {

namespace {

using Sums = std::vector<uint32_t>;

// One line read over and over: 255 times 2^32 / 255 and a little more.
TEST(WindowSums, WrapBeyond32Bits)
{
    constexpr int32_t kPixels = 16843009 + 3;
    const std::vector<uint8_t> white(kPixels, 255);
    const kimg_windowConst tall = {1, kPixels, 0, 0, 0, 0, 1, kPixels, 0, white.data(), 1};
    const kimg_windowConst wide = {kPixels, 1, 0, 0, 0, 0, kPixels, 1, kPixels, white.data(), 1};
    std::vector<Level> levels = availableLevels();
    levels.push_back({"portable", 0});
    for (const Level &level : levels) {
        const ProcessorLevel set(level.features);
        uint32_t sum = 0;
        kimg_window destination = {1, 1, 0, 0, 0, 0, 1, 1, 1, &sum, 4};
        EXPECT_EQ(kip_projectVerticalWindow8(&tall, &destination, nullptr), 0);
        EXPECT_EQ(sum, 3u * 255 - 1) << level.name;
        EXPECT_EQ(kip_projectHorizontalWindow8(&wide, &destination, nullptr), 0);
        EXPECT_EQ(sum, 3u * 255 - 1) << level.name;
    }
}

// The hook is asked under the names that callers know.
TEST(WindowSums, WorkedExampleAndWindowsWithoutPixelsOrRows)
{
    static std::vector<std::wstring> asked;
    const auto before = kprt_isOptimizationInhibitedFP;
    kprt_isOptimizationInhibitedFP = [](const wchar_t *name) -> int32_t { return asked.emplace_back(name), 0; };
    const uint8_t pixels[] = {1, 2, 3, 4, 5, 6};
    kimg_windowConst source = {3, 2, 0, 0, 0, 0, 3, 2, 3, pixels, 1};
    uint32_t sums[3] = {};
    kimg_window destination = {3, 1, 0, 0, 0, 0, 3, 1, 3, sums, 4};
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), 0);
    EXPECT_EQ(Sums(sums, sums + 3), (Sums{5, 7, 9}));
    EXPECT_EQ(kip_projectHorizontalWindow8(&source, &destination, nullptr), 0);
    EXPECT_EQ(Sums(sums, sums + 3), (Sums{6, 15, 9}));
    EXPECT_EQ(asked.front(), L"kf_projection_horizontal8_core");
    EXPECT_EQ(asked.back(), L"kf_projection_vertical8_core");
    kprt_isOptimizationInhibitedFP = before;

    destination.height = 0;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), kip_statusWindowMismatch);
    destination.height = 1;
    destination.pixels = nullptr;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), kimg_statusNoPixels);
    destination.pixels = sums;
    source.pixels = nullptr;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), kimg_statusNoPixels);
    EXPECT_EQ(Sums(sums, sums + 3), (Sums{6, 15, 9}));
    source.height = 0;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), 0);
    EXPECT_EQ(Sums(sums, sums + 3), Sums(3, 0));
}

TEST(AffineProjection, SourcesWithoutPixelsAreRefused)
{
    const kimg_windowConst source = {64, 48, 0, 0, 0, 0, 64, 48, 64, nullptr, 1};
    kimg_window nowhere;
    kimg_window_initUnbound(&nowhere);
    kmath_xformLinear placement{};
    for (const kmath_shapeAffineRect &rect :
         {kmath_shapeAffineRect{20.25, 8.5, 32, -6, 6, 16}, {20, 8, 32, 0, 0, 16}}) {
        const kip_affineSampleParams params = {rect, kip_affineModeBilinear, 32, 16};
        EXPECT_EQ(kip_affineProjectWindow(&source, &kIdentity, &nowhere, &params, nullptr, &placement, nullptr),
                  int32_t{kimg_statusNoPixels});
    }
}

} // namespace

} // namespace kip::test
