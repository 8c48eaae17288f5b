// Sums of rows and columns in every orientation against a model, at every level of the processor.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "projection/sum_kernels.h"
#include "projection/window_sums.h"
#include "projection/window_sums_packed.h"
#include "support/call_meaning.h"
#include "support/crash_note.h"
#include "support/levels.h"
#include "support/random.h"
#include "support/target_region.h"

namespace kip::test {

namespace {

using Sums = std::vector<uint32_t>;

constexpr struct Orientation {
    kip_affine_imageAlignment code;
    bool ofColumns, isReversed;
} kOrientations[] = {
    {kip_affine_alignIdentity, true, false},
    {kip_affine_alignRotate90, false, false},
    {kip_affine_alignRotate180, true, true},
    {kip_affine_alignRotate270, false, true},
    {kip_affine_alignTranspose, false, false},
    {kip_affine_alignRotate90Transpose, true, true},
    {kip_affine_alignRotate180Transpose, false, true},
    {kip_affine_alignRotate270Transpose, true, false},
    {kip_affine_alignNone, false, false},
    {INT32_MIN, false, false},
};

Sums modelSums(const kimg_windowConst &window, const Orientation &orientation)
{
    Sums sums(static_cast<size_t>(orientation.ofColumns ? window.width : window.height));
    for (int32_t y = 0; y < window.height; ++y)
        for (int32_t x = 0; x < window.width; ++x)
            sums[static_cast<size_t>(orientation.ofColumns ? x : y)] += static_cast<uint32_t>(valueAt(window, x, y));
    if (orientation.isReversed)
        std::reverse(sums.begin(), sums.end());
    return sums;
}

std::vector<Level> allLevels()
{
    std::vector<Level> levels = availableLevels();
    levels.insert(levels.begin(), {"portable", 0});
    return levels;
}

// Pixels between unreadable pages, some of them all of the greatest value.
kimg_windowConst drawWindow(Random &random, const GuardedMemory &memory, int32_t bytes, int32_t width, int32_t height)
{
    const int32_t pitch = (width + random.between32(0, random.oneIn(3) ? 70 : 3)) * random.sign();
    const void *first = memory.end(); // where there is nothing to read
    if (width > 0 && height > 0) {
        const auto rows = placeRows<uint8_t>(memory, random.pick(kGuards), width * bytes, height, pitch * bytes);
        const bool isFull = random.oneIn(3);
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < rows.width; ++x)
                rows.row(y)[x] = isFull ? 0xFF : static_cast<uint8_t>(random.next() >> 32);
        first = rows.first;
    }
    return {width, height, 5, -3, 0, 0, width, height, pitch, first, bytes};
}

void expectModelsSums(Random &random, int32_t bytes, int32_t width, int32_t height)
{
    static const GuardedMemory pixels(4 << 20);
    static const GuardedMemory sums(1 << 16);
    const kimg_windowConst window = drawWindow(random, pixels, bytes, width, height);
    for (const Orientation &orientation : kOrientations) {
        const Sums expected = modelSums(window, orientation);
        const auto count = static_cast<int32_t>(expected.size());
        const auto row = placeRows<uint8_t>(sums, random.pick(kGuards), count * 4, 1, count * 4,
                                            random.oneIn(2) ? random.between32(0, 7) : 0);
        putCanaries(sums, row);
        const kimg_window destination = {count, 1, 0, 0, 0, 0, count, 1, count, row.first, 4};
        const auto project = bytes == 1 ? projectWindowOriented8 : projectWindowOriented16;
        noteForCrash(std::to_string(width) + " x " + std::to_string(height));
        EXPECT_EQ(project(window, destination, orientation.code), 0);
        EXPECT_EQ(findDeadCanary(sums, row), "");
        ASSERT_TRUE(count == 0 || std::memcmp(expected.data(), row.first, expected.size() * 4) == 0)
            << width << " x " << height << " of pitch " << window.pitch << ", code " << orientation.code;
    }
}

TEST(WindowSums, AreTheModels)
{
    Random random(4711);
    std::vector<int32_t> widths = {191, 256, 300, 1009, 2048};
    for (int32_t width = 0; width <= 131; ++width)
        widths.push_back(width);
    for (const Level &level : allLevels()) {
        SCOPED_TRACE(level.name);
        const ProcessorLevel set(level.features);
        for (const int32_t width : widths) {
            // Few rows, some bands and the ends of them, about the 256 rows that partial sums hold.
            static constexpr int32_t kHeights[][2] = {{0, 9}, {10, 40}, {0, 9}, {254, 514}};
            const auto &heights = kHeights[random.next() % 4];
            expectModelsSums(random, level.features == 0 ? 2 : 1, width, random.between32(heights[0], heights[1]));
            expectModelsSums(random, 1, width, random.between32(heights[0], heights[1]));
        }
    }
}

#if defined(KIP_HAS_X86_VARIANTS)
TEST(WindowSums, EveryLevelHasKernelsOfItsOwn)
{
    const std::vector<Level> levels = allLevels();
    for (size_t i = 0; i + 1 < levels.size(); ++i) {
        const SumKernels8 kernels = sumKernels8(levels[i].features);
        const SumKernels8 wider = sumKernels8(levels[i + 1].features);
        const bool isVbmi = (levels[i + 1].features & ksys_featureAvx512Vbmi) != 0;
        EXPECT_EQ(kernels.addRows == wider.addRows, isVbmi) << levels[i + 1].name;
        EXPECT_EQ(kernels.sumRows == wider.sumRows, isVbmi) << levels[i + 1].name;
    }
}
#endif

// One line read over and over: 255 times 2^32 / 255 and a little more.
TEST(WindowSums, WrapBeyond32Bits)
{
    constexpr int32_t kPixels = 16843009 + 3;
    const std::vector<uint8_t> white(kPixels, 255);
    const kimg_windowConst tall = {1, kPixels, 0, 0, 0, 0, 1, kPixels, 0, white.data(), 1};
    const kimg_windowConst wide = {kPixels, 1, 0, 0, 0, 0, kPixels, 1, kPixels, white.data(), 1};
    for (const Level &level : allLevels()) {
        const ProcessorLevel set(level.features);
        uint32_t sum = 0;
        kimg_window destination = {1, 1, 0, 0, 0, 0, 1, 1, 1, &sum, 4};
        EXPECT_EQ(kip_projectVerticalWindow8(&tall, &destination, nullptr), 0);
        EXPECT_EQ(sum, 3u * 255 - 1) << level.name;
        EXPECT_EQ(kip_projectHorizontalWindow8(&wide, &destination, nullptr), 0);
        EXPECT_EQ(sum, 3u * 255 - 1) << level.name;
    }
}

TEST(WindowSums, OptimisedRoutinesRunOnSuitableProcessorsOnly)
{
    const uint8_t pixels[] = {1, 2};
    uint32_t sums[2];
    for (const uint32_t kind : {0u, 1u, 2u, 4u, 5u, 6u}) {
        for (const uint32_t features : {0u, 1u, 2u}) {
            const ksys_cpuinfo processor = {kind, 0, 0, 0, features};
            ksys_cpuinfo_setOverride(&processor);
            const bool isSuitable = (kind == 1 || kind == 5) && (features & 1) != 0;
            const int32_t status = isSuitable ? 0 : kip_statusOptimizationDeclined;
            EXPECT_EQ(sumColumnsPacked8(pixels, 2, 1, 2, sums, 0), status) << kind << ", " << features;
            EXPECT_EQ(sumRowsPacked8(pixels, 2, 1, 2, sums, 0), status) << kind << ", " << features;
        }
    }
    ksys_cpuinfo_setOverride(nullptr);
}

// Both cores ask under the names that callers know them by, and give the same whatever the answer.
TEST(WindowSums, CoresAskTheHook)
{
    static std::vector<std::wstring> askedNames;
    static int32_t answer;
    const auto before = kprt_isOptimizationInhibitedFP;
    kprt_isOptimizationInhibitedFP = [](const wchar_t *name) {
        askedNames.emplace_back(name);
        return answer;
    };
    const uint8_t pixels[] = {1, 2, 3, 4, 5, 6};
    const kimg_windowConst source = {3, 2, 0, 0, 0, 0, 3, 2, 3, pixels, 1};
    for (answer = 0; answer < 2; ++answer) {
        uint32_t sums[3] = {};
        int32_t depth = 0;
        kimg_window destination = {3, 1, 0, 0, 0, 0, 3, 1, 3, sums, 4};
        EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, &depth), 0);
        EXPECT_EQ(Sums(sums, sums + 3), (Sums{5, 7, 9}));
        EXPECT_EQ(depth, 2);
        EXPECT_EQ(kip_projectHorizontalWindow8(&source, &destination, &depth), 0);
        EXPECT_EQ(Sums(sums, sums + 3), (Sums{6, 15, 9}));
        EXPECT_EQ(depth, 3);
        EXPECT_EQ(askedNames.front(), L"kf_projection_horizontal8_core");
        EXPECT_EQ(askedNames.back(), L"kf_projection_vertical8_core");
        askedNames.clear();
    }
    kprt_isOptimizationInhibitedFP = before;

    // Windows made by hand may have no pixels, or no row to write to.
    uint32_t sums[3] = {1, 1, 1};
    kimg_windowConst noPixels = source;
    noPixels.pixels = nullptr;
    kimg_window destination = {3, 1, 0, 0, 0, 0, 3, 1, 3, sums, 4};
    EXPECT_EQ(kip_projectVerticalWindow8(&noPixels, &destination, nullptr), kimg_statusNoPixels);
    destination.height = 0;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), kip_statusWindowMismatch);
    destination.height = 1;
    destination.pixels = nullptr;
    EXPECT_EQ(kip_projectVerticalWindow8(&source, &destination, nullptr), kimg_statusNoPixels);
    EXPECT_EQ(Sums(sums, sums + 3), Sums(3, 1));
}

} // namespace

} // namespace kip::test
