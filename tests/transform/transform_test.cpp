// What no pixel of a transform shows: memory that is shared, memory that is not taken, jobs, and what the hook is
// asked.

#include <atomic>
#include <cstdint>
#include <cwchar>
#include <vector>

#include <gtest/gtest.h>
#include <kip/kip.h>

#include "support/draw_call.h"
#include "support/failing_allocator.h"
#include "support/images.h"
#include "support/levels.h"

namespace kip::test {

namespace {

// The hook that forbids optimised paths is asked once for every band, and once more by the 8-bit driver when it chooses
// the bands' height.
TEST(TransformJobs, CutsLargeWorkIntoBandsOfOneTileRow)
{
    constexpr uint32_t kNearest = kip_affineModeNearest;
    constexpr uint32_t kBilinear = kip_affineModeBilinear;
    const struct {
        int32_t bytesPerPixel;
        uint32_t mode;
        int32_t pitch, columns, rows, bands;
    } rows[] = {
        {2, kBilinear, 640, 300, 336, 1},   // not above one and a half bands
        {2, kBilinear, 640, 300, 337, 2},   //
        {2, kBilinear, 640, 128, 511, 1},   // 65408 pixels
        {2, kBilinear, 640, 128, 512, 3},   // 65536
        {2, kNearest, 640, 512, 511, 1},    // 261632 pixels
        {2, kNearest, 640, 512, 512, 3},    // 262144
        {2, kBilinear, 1024, 256, 448, 2},  //
        {2, kBilinear, 1025, 256, 448, 5},  //
        {2, kBilinear, 2049, 700, 97, 2},   //
        {2, kBilinear, 640, 2, 40000, 179}, // taller than 32767
        {1, kBilinear, 640, 700, 96, 1},    // the portable 8-bit tiles are 64 high, whatever the pitch
        {1, kBilinear, 5000, 256, 448, 7},  //
        {1, kNearest, 640, 512, 512, 8},    //
    };
    static std::atomic<int32_t> questions; // by the jobs as well
    const CallMemory memory{};
    const auto before = kprt_isOptimizationInhibitedFP;
    kprt_isOptimizationInhibitedFP = [](const wchar_t *kernel) -> int32_t {
        const bool isOfBand = std::wcsncmp(kernel, L"kip_affineProcess", 17) == 0;
        return isOfBand ? ++questions, 1 : 0;
    };
    for (const auto &row : rows) {
        SamplingCall call;
        call.bytesPerPixel = row.bytesPerPixel;
        call.width = 600;
        call.height = 300;
        call.pitch = row.pitch;
        call.params = {{}, row.mode, row.columns, row.rows};
        placeCorners({{66.4, 0.53}, {587.5, 36.4}, {0.52, 260.6}}, &call);
        for (const int32_t threads : {1, 2, 5}) {
            ksys_jobThreadGroup_setThreadCount(threads);
            questions = 0;
            EXPECT_EQ(runCall(call, memory).status, 0);
            const int32_t asked = threads > 1 && row.bytesPerPixel == 1 ? 1 : 0;
            EXPECT_EQ(questions, (threads == 1 ? 1 : row.bands) + asked) << describe(call);
        }
    }
    kprt_isOptimizationInhibitedFP = before;
    ksys_jobThreadGroup_setThreadCount(0);
}

// Both depths; the parameter is the bytes per pixel.
class Transform : public testing::TestWithParam<int32_t> {
protected:
    Transform()
    {
        Random random(1);
        for (uint8_t &byte : pixels)
            byte = static_cast<uint8_t>(random.next());
    }
    ~Transform() override { ksys_jobThreadGroup_setThreadCount(0); }

    const int32_t bytes = GetParam();
    decltype(&kip_affineTransform) transform = bytes == 1 ? kip_affineTransform : kip_affineTransform16;
    decltype(&kip_affineTransformClipped) transformClipped =
        bytes == 1 ? kip_affineTransformClipped : kip_affineTransformClipped16;
    std::vector<uint8_t> pixels = std::vector<uint8_t>(size_t{410} * 300 * 2);
    Image source{bytes, 400, 300, 410, pixels.data()};
};
INSTANTIATE_TEST_SUITE_P(Depths, Transform, testing::Values(1, 2));

TEST_P(Transform, RefusesOverlappingMemoryFirstOfAll)
{
    const auto before = pixels;
    const kip_affineSampleParams good = {{20.25, 8.5, 32, -6, 6, 16}, 1, 32, 16};
    const kip_affineSampleParams bad = {good.rect, 4, 0, 0};
    // The whole, a part, the last column and the last pixel.
    for (const auto &[width, height, x, y] :
         {kstd_rect32{400, 300, 0, 0}, {32, 16, 20, 20}, {6, 3, 399, 10}, {2, 1, 399, 299}}) {
        Image part(bytes, width, height, 410, pixels.data() + (y * 410 + x) * bytes);
        kip_affineSampleCache *handle = nullptr;
        EXPECT_EQ(transform(source.get(), part.get(), &good, nullptr), kip_pelStatusOverlap);
        EXPECT_EQ(transform(source.get(), part.get(), &bad, &handle), kip_pelStatusOverlap);
        EXPECT_EQ(before, pixels);
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
        EXPECT_EQ(mask.bytes(), single.bytes());
        Image copy(bytes, 400, 300);
        (bytes == 1 ? kip_pelCopy8 : kip_pelCopy16)(source.get(), copy.get());
        ASSERT_EQ(transformClipped(copy.get(), copy.get(), mask.get(), &params, nullptr, &willClip), 0);
        EXPECT_EQ(result.bytes(), copy.bytes());
        EXPECT_EQ(single.bytes(), mask.bytes());
    }
}

// The processor is said to have all instructions: a variant that runs all the same ends the program.
TEST_P(Transform, RunsNoVariantThatTheHookForbids)
{
    constexpr uint32_t all = ksys_featurePackedInteger | ksys_featureAvx2 | ksys_featureAvx512 | ksys_featureAvx512Vbmi;
    ksys_cpuinfo processor;
    ksys_cpuinfo_init(&processor);
    if ((processor.features & all) == all || (processor.features & ksys_featurePackedInteger) == 0)
        GTEST_SKIP() << "this processor runs every variant that there is";
    const auto before = kprt_isOptimizationInhibitedFP;
    static bool isOfTiles; // the one kernel of these that has a name of its own
    kprt_isOptimizationInhibitedFP = [](const wchar_t *kernel) -> int32_t {
        return isOfTiles ? std::wcscmp(kernel, L"kip_affineTransformTileBilinearAccurate16Portable") == 0
                         : std::wcsncmp(kernel, L"kip_affineProcess", 17) == 0;
    };
    for (uint32_t mode = 0; mode < (bytes == 1 ? 4 : 5); ++mode) {
        isOfTiles = mode == 4;
        const kip_affineSampleParams params = {{60.25, 18.5, 200, -26, 16, 180}, isOfTiles ? 1u : mode, 200, 180};
        Image forbidden, plain;
        for (Image *const image : {&forbidden, &plain}) {
            const ProcessorLevel level(image == &forbidden ? all : 0);
            EXPECT_GE(transform(source.get(), image->get(), &params, nullptr), 0);
        }
        EXPECT_EQ(forbidden.bytes(), plain.bytes()) << "mode " << mode;
    }
    kprt_isOptimizationInhibitedFP = before;
}

TEST_P(Transform, TakesNoMemoryWithACacheAndABoundDestination)
{
    for (const kip_affineSampleParams &params :
         {kip_affineSampleParams{{20.25, 8.5, 320, -6, 6, 280}, kip_affineModeNearest, 320, 280},
          {{20.25, 8.5, 320, -6, 6, 280}, kip_affineModeBilinear, 320, 280},
          {{300, 20, 0, -280, 280, 0}, kip_affineModeBicubic, 280, 280},
          {{20.25, 8.5, 32, -6, 6, 16}, kip_affineModeBilinear, 32, 16}}) {
        ksys_jobThreadGroup_setThreadCount(params.destWidth > 32 ? 1 : 4); // one thread, or too little work for more
        kip_affineSampleCache *cache = nullptr;
        ASSERT_EQ(kip_affineSampleCache_construct(&cache), 0);
        Image destination(bytes, params.destWidth, params.destHeight);
        FailingAllocator allocator;
        for (int call = 0; call < 2; ++call)
            EXPECT_GE(transform(source.get(), destination.get(), &params, &cache), 0);
        EXPECT_EQ(allocator.requests(), 0) << "mode " << params.mode;
        EXPECT_EQ(kip_affineSampleCache_destruct(&cache), 0);
    }
}

TEST_P(Transform, SplitOnesTakeScratchMemoryOnce)
{
    const kip_affineSampleParams params = {{20.25, 8.5, 320, -6, 6, 280}, kip_affineModeBicubic, 320, 280};
    ksys_jobThreadGroup_setThreadCount(4);
    ksys_jobThreadGroup_setSplitAll(0);
    kip_affineSampleCache *cache = nullptr;
    ASSERT_EQ(kip_affineSampleCache_construct(&cache), 0);
    Image destination(bytes, params.destWidth, params.destHeight);
    EXPECT_GE(transform(source.get(), destination.get(), &params, nullptr), 0); // makes what the process keeps
    FailingAllocator allocator;
    const auto call = [&] { return transform(source.get(), destination.get(), &params, &cache); };
    EXPECT_GE(call(), 0); // makes the plan
    allocator.failFrom(1);
    EXPECT_GE(call(), 0) << "not split unless asked for";
    ksys_jobThreadGroup_setSplitAll(1);
    EXPECT_LT(call(), 0);
    allocator.failNone();
    EXPECT_GE(call(), 0);
    allocator.failBeyond(allocator.liveBytes() + 2000); // the jobs' own
    EXPECT_GE(call(), 0);
    ksys_jobThreadGroup_setSplitAll(0);
    EXPECT_EQ(kip_affineSampleCache_destruct(&cache), 0);
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

} // namespace

} // namespace kip::test
