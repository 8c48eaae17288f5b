// Sums of rows and columns: which routines serve them, under which names they ask, and where sums wrap. That they are
// the model's at every level is for the boundary test.

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "projection/sum_kernels.h"
#include "projection/window_sums.h"
#include "support/levels.h"
#include "support/target_region.h"

namespace kip::test {

namespace {

using Sums = std::vector<uint32_t>;

std::vector<Level> allLevels()
{
    std::vector<Level> levels = availableLevels();
    levels.insert(levels.begin(), {"portable", 0});
    return levels;
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

    // Windows made by hand may have no pixels, no row to write to, or nothing to sum.
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
    const kimg_windowConst flat = {3, 0, 0, 0, 0, 0, 3, 0, 3, nullptr, 1};
    destination.pixels = sums;
    EXPECT_EQ(kip_projectVerticalWindow8(&flat, &destination, nullptr), 0);
    EXPECT_EQ(Sums(sums, sums + 3), Sums(3, 0));
}

} // namespace

} // namespace kip::test
