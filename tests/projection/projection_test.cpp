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

// One line read over and over: 255 times 2^32 / 255 and a little more.
TEST(WindowSums, WrapBeyond32Bits)
{
    constexpr int32_t kPixels = 16843009 + 3;
    const std::vector<uint8_t> white(kPixels, 255);
    const kimg_windowConst tall = {1, kPixels, 0, 0, 0, 0, 1, kPixels, 0, white.data(), 1};
    const kimg_windowConst wide = {kPixels, 1, 0, 0, 0, 0, kPixels, 1, kPixels, white.data(), 1};
    auto levels = availableLevels();
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
    std::vector<uint32_t> sums(3);
    kimg_window destination = {3, 1, 0, 0, 0, 0, 3, 1, 3, sums.data(), 4};
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), 0);
    EXPECT_EQ(kip_projectHorizontalWindow8(&source, &destination, nullptr), 0);
    EXPECT_EQ(sums, (std::vector<uint32_t>{6, 15, 9})); // two rows, over three columns
    EXPECT_EQ(asked.front(), L"kf_projection_horizontal8_core");
    EXPECT_EQ(asked.back(), L"kf_projection_vertical8_core");
    kprt_isOptimizationInhibitedFP = before;

    destination.height = 0;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), kip_statusWindowMismatch);
    destination = {3, 1, 0, 0, 0, 0, 3, 1, 3, nullptr, 4};
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), kimg_statusNoPixels);
    destination.pixels = sums.data();
    source.pixels = nullptr;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), kimg_statusNoPixels);
    for (const double slant : {0.0, 0.25}) {
        const kip_affineSampleParams params = {{1, 0, 1, slant, 0, 1}, kip_affineModeBilinear, 1, 1};
        kmath_xformLinear placement{};
        EXPECT_EQ(kip_affineProjectWindow(&source, &kIdentity, &destination, &params, nullptr, &placement, nullptr),
                  int32_t{kimg_statusNoPixels});
    }
    source.height = 0;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), 0);
    EXPECT_EQ(sums, std::vector<uint32_t>(3));
}

} // namespace

} // namespace kip::test
