// Transforms by examples worked out by hand, and what no pixel shows: memory that is shared, memory that is not taken.

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/failing_allocator.h"
#include "support/images.h"

namespace kip::test {

namespace {

// One sample between four pixels, by weights worked out by hand: exact ones that round halves down at 16 bits, ones of
// 16 bits that sum to a little less than 1 at 8.
TEST(BilinearTransform, WorkedSamples)
{
    const struct {
        const char *name;
        uint32_t fx, fy; // 16 fraction bits
        uint16_t pixels[4];
        uint32_t sample8, sample16;
    } rows[] = {
        {"a pixel's centre", 0, 0, {255, 1, 2, 3}, 255, 255},
        {"half way between two columns", 0x8000, 0, {100, 101, 9, 9}, 100, 100},
        {"between four pixels", 0x8000, 0x8000, {0, 0, 0, 255}, 64, 64},
        {"half a grey level from four pixels", 0x8000, 0x8000, {0, 0, 0, 6}, 2, 1},
        {"all but at the next column", 0xFFFF, 0, {0, 255, 0, 0}, 255, 255},
        {"a constant keeps its value", 0x8000, 0x8000, {255, 255, 255, 255}, 255, 255},
        {"complements are taken to 65535", 0x5000, 0xD000, {52, 132, 131, 228}, 145, 146},
        {"an exact half at 8 bits", 0xD000, 0xD000, {155, 229, 128, 204}, 195, 195},
        {"lost weights round down", 0x8000, 0x8000, {0, 2, 2, 2}, 1, 1},
        {"each pixel has its weight", 0x4000, 0x8000, {80, 160, 40, 200}, 90, 90},
    };
    const auto before = kprt_isOptimizationInhibitedFP;
    static std::vector<std::wstring> askedNames;
    kprt_isOptimizationInhibitedFP = [](const wchar_t *name) -> int32_t { return askedNames.emplace_back(name), 1; };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Pixels pixels8(1, 2, 2);
        Pixels pixels16(2, 2, 2);
        for (int32_t i = 0; i < 4; ++i) {
            pixels8.set(i % 2, i / 2, row.pixels[i]);
            pixels16.set(i % 2, i / 2, row.pixels[i]);
        }
        const kip_affineSampleParams params = {{row.fx * 0x1p-16, row.fy * 0x1p-16, 1, 0, 0, 1}, 1, 1, 1};
        Image result8, result16;
        ASSERT_EQ(kip_affineTransform(Image(pixels8).get(), result8.get(), &params, nullptr), 0);
        EXPECT_EQ(result8.at(0, 0), row.sample8);
        askedNames.clear();
        ASSERT_EQ(kip_affineTransform16(Image(pixels16).get(), result16.get(), &params, nullptr), 0);
        EXPECT_EQ(result16.at(0, 0), row.sample16);
    }
    kprt_isOptimizationInhibitedFP = before;
    EXPECT_EQ(askedNames, (std::vector<std::wstring>{L"kip_affineProcess16",
                                                     L"kip_affineTransformTileBilinearAccurate16Portable"}));
}

// A row of samples that begins left of a source of one value, a quarter of a pixel off its grid.
TEST(ClippedTransform, MixesByTheWeightsOfTheInterpolation)
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
            Image result, mask;
            int32_t willClip = 0;
            const auto transform = bytes == 1 ? kip_affineTransformClipped : kip_affineTransformClipped16;
            ASSERT_EQ(transform(source.get(), result.get(), mask.get(), &params, nullptr, &willClip), 0);
            EXPECT_EQ(willClip, 1);
            for (int32_t x = 0; x < 5; ++x)
                EXPECT_EQ(mask.at(x, 15), row.row[x]) << x;
            EXPECT_EQ(mask.at(1, 1), row.corner);
        }
    }
}

// Both depths; the parameter is the bytes per pixel.
class Transform : public testing::TestWithParam<int32_t> {
protected:
    ~Transform() override { ksys_jobThreadGroup_setThreadCount(0); }

    const int32_t bytes = GetParam();
    decltype(&kip_affineTransform) transform = bytes == 1 ? kip_affineTransform : kip_affineTransform16;
    decltype(&kip_affineTransformClipped) transformClipped =
        bytes == 1 ? kip_affineTransformClipped : kip_affineTransformClipped16;
    Pixels pixels{bytes, 400, 300, 410};
    Image source{pixels};
};
INSTANTIATE_TEST_SUITE_P(Depths, Transform, testing::Values(1, 2));

TEST_P(Transform, RefusesOverlappingMemoryFirstOfAll)
{
    const auto before = pixels.memory;
    const kip_affineSampleParams good = {{20.25, 8.5, 32, -6, 6, 16}, 1, 32, 16};
    const kip_affineSampleParams bad = {good.rect, 4, 0, 0};
    const auto expectOverlap = [&](kimg_image *destination) {
        kip_affineSampleCache *handle = nullptr;
        EXPECT_EQ(transform(source.get(), destination, &good, nullptr), kip_pelStatusOverlap);
        EXPECT_EQ(transform(source.get(), destination, &bad, &handle), kip_pelStatusOverlap);
        EXPECT_EQ(before, pixels.memory);
    };
    expectOverlap(source.get());
    Image shared;
    ASSERT_GE(kimg_image_assign(shared.get(), source.get()), 0);
    expectOverlap(shared.get());
    // The whole, a part, the last row, the last column and the last pixel.
    const struct {
        int32_t width, height, x, y;
    } rows[] = {{400, 300, 0, 0}, {32, 16, 20, 20}, {32, 2, 0, 299}, {6, 3, 399, 10}, {2, 1, 399, 299}};
    for (const auto &row : rows) {
        kimg_image part;
        auto *const first = pixels.memory.data() + (row.y * pixels.pitch + row.x) * bytes;
        ASSERT_EQ(kimg_image_constructExternal(&part, bytes, row.width, row.height, pixels.pitch, first), 0);
        expectOverlap(&part);
        kimg_image_destruct(&part);
    }
}

// The source's pixels are copied before any is written, the mask comes last.
TEST_P(Transform, ClippedOnesMayShareTheirImages)
{
    int32_t willClip;
    for (const uint32_t mode : {kip_affineModeBilinear, kip_affineModeBicubic}) {
        const kip_affineSampleParams params = {{-5, -3, 400, 2, 0, 300}, mode, 400, 300};
        Image result, mask, single;
        ASSERT_EQ(transformClipped(source.get(), result.get(), mask.get(), &params, nullptr, &willClip), 0);
        ASSERT_EQ(transformClipped(source.get(), single.get(), single.get(), &params, nullptr, &willClip), 0);
        expectSamePixels(mask, single, "mask");
        Image copy(bytes, 400, 300);
        (bytes == 1 ? kip_pelCopy8 : kip_pelCopy16)(source.get(), copy.get());
        ASSERT_EQ(transformClipped(copy.get(), copy.get(), mask.get(), &params, nullptr, &willClip), 0);
        expectSamePixels(result, copy, "pixel");
        expectSamePixels(single, mask, "mask");
    }
}

TEST_P(Transform, TakesNoMemoryWithACacheAndABoundDestination)
{
    const kip_affineSampleParams samplings[] = {
        {{20.25, 8.5, 320, -6, 6, 280}, kip_affineModeNearest, 320, 280},
        {{20.25, 8.5, 320, -6, 6, 280}, kip_affineModeBilinear, 320, 280},
        {{300, 20, 0, -280, 280, 0}, kip_affineModeBicubic, 280, 280},
        {{20.25, 8.5, 32, -6, 6, 16}, kip_affineModeBilinear, 32, 16},
    };
    for (const kip_affineSampleParams &params : samplings) {
        // One thread, or too little work for more.
        ksys_jobThreadGroup_setThreadCount(params.destWidth > 32 ? 1 : 4);
        kip_affineSampleCache *cache = nullptr;
        ASSERT_EQ(kip_affineSampleCache_construct(&cache), 0);
        Image destination(bytes, params.destWidth, params.destHeight);
        {
            FailingAllocator allocator;
            for (int call = 0; call < 2; ++call)
                EXPECT_GE(transform(source.get(), destination.get(), &params, &cache), 0);
            EXPECT_EQ(allocator.requests(), 0) << "mode " << params.mode;
        }
        EXPECT_EQ(kip_affineSampleCache_destruct(&cache), 0);
    }
}

} // namespace

} // namespace kip::test
