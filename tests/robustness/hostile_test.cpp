// Any numbers in any argument: a status that the headers name, within bounds of time and memory, every promise kept and
// the same bytes at every level of the processor.

#include <algorithm>
#include <cstdint>

#include <gtest/gtest.h>

#include "robustness/sampling_call.h"
#include "support/crash_note.h"
#include "support/failing_allocator.h"
#include "support/levels.h"
#include "support/records.h"

namespace kip::test {

namespace {

constexpr double kNumbers[] = {0.0,     -0.0,      4.9e-324,   -1e-310, 1e-300,        -1e-17,      0x1p-16,
                               0.5,     1.0,       -1.0,       1e5,     -32767.5,      32768.0,     65535.99999999,
                               1e9,     -1e12,     9.3e18,     -1e19,   2147483647,    1e300,       -1e308,
                               1.7e308, kInfinity, -kInfinity, kNan,    -2147483648.5, 4294967296.0};
constexpr int32_t kSizes[] = {0, -1, INT32_MIN, INT32_MAX, INT32_MAX - 1, 46341, 65536};
constexpr int32_t kPlaces[] = {INT32_MIN, INT32_MIN + 1, INT32_MAX, INT32_MAX - 1, 1 << 30, -(1 << 30)};
constexpr uint32_t kModes[] = {4, 5, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

constexpr int64_t kMostMemory = int64_t{1} << 20;

void spoilNumbers(Random &random, uint64_t rarity, kmath_xformLinear *record)
{
    for (double kmath_xformLinear::*const element : kElements)
        if (random.oneIn(rarity))
            record->*element = random.oneIn(8) ? -random.pick(kNumbers) : random.pick(kNumbers);
}

void spoilSizes(Random &random, SamplingCall *call)
{
    (random.oneIn(2) ? call->params.destWidth : call->params.destHeight) = random.pick(kSizes);
    if (random.oneIn(2))
        (random.oneIn(2) ? call->params.destWidth : call->params.destHeight) = random.pick(kSizes);
    // A projection takes no memory for its samples: as many as a caller asks for, it adds up. These take too long.
    constexpr int32_t kMostSamples = 1 << 16;
    kip_affineSampleParams &params = call->params;
    if (call->operation >= Operation::project && params.destWidth > 0 && params.destWidth <= kMostMemory / 4)
        params.destHeight = std::min(params.destHeight, std::max(1, kMostSamples / params.destWidth));
}

void spoil(Random &random, SamplingCall *call)
{
    const uint64_t rarity = random.oneIn(3) ? 1 : 16;
    const int32_t kind = random.between32(0, 7);
    if (kind < 5) {
        spoilNumbers(random, rarity, &call->params.rect);
        spoilNumbers(random, rarity * 2, &call->srcFromClient);
    }
    if (kind == 5 || random.oneIn(16))
        spoilSizes(random, call);
    if (kind == 6 || random.oneIn(16)) {
        // Only sampling asks where its result lies.
        const bool placesResult = samples(call->operation);
        for (int32_t *const place : {&call->x, &call->y, placesResult ? &call->result.x : &call->x,
                                     placesResult ? &call->result.y : &call->y, &call->second.x})
            if (random.oneIn(3))
                *place = random.pick(kPlaces);
    }
    if (kind == 7 || random.oneIn(32))
        call->params.mode = random.pick(kModes);
    if (random.oneIn(16)) {
        call->hasOtherWindow = true;
        call->windowWidth = std::min(random.pick(kSizes), call->width);
        call->windowHeight = std::min(random.pick(kSizes), call->height);
    }
    if (random.oneIn(4))
        call->alignCode = static_cast<int32_t>(random.next());
}

class Hostile : public testing::TestWithParam<Operation> {
protected:
    Hostile() { allocator.failBeyond(kMostMemory); }

    FailingAllocator allocator;
    const CallMemory memory{};
};

INSTANTIATE_TEST_SUITE_P(Operations, Hostile, testing::ValuesIn(kOperations),
                         [](const auto &operation) { return nameOf(operation.param); });

TEST_P(Hostile, CallsGiveAStatusAndKeepTheirPromises)
{
    const auto levels = availableLevels();
    const uint32_t features = levels.empty() ? uint32_t{ksys_featurePackedInteger} : levels.back().features;
    Random random(80000 + static_cast<uint64_t>(GetParam()));
    for (int n = 0; n < 4000; ++n) {
        SamplingCall call = drawCall(random, GetParam());
        spoil(random, &call);
        noteForCrash(describe(call));
        Outcome outcomes[2];
        for (const bool isVector : {false, true}) {
            const ProcessorLevel level(isVector ? features : 0);
            outcomes[isVector] = runCall(call, memory, nullptr, isVector);
            ASSERT_EQ(outcomes[isVector].fault, "") << describe(call);
        }
        ASSERT_EQ(outcomes[0].status, outcomes[1].status) << describe(call);
        ASSERT_EQ(outcomes[0].digest, outcomes[1].digest) << describe(call);
    }
    ksys_shutdown_run();
    EXPECT_EQ(allocator.liveBlocks(), 0);
}

// The exports that only calculate.
TEST(HostileGeometry, GivesAStatusAndTouchesNothingInFailure)
{
    const CallMemory memory{};
    Random random(80100);
    int served = 0;
    for (int n = 0; n < 40000; ++n) {
        SamplingCall call = drawCall(random, Operation::transform);
        spoil(random, &call);
        noteForCrash(describe(call));
        SCOPED_TRACE(describe(call));
        uint16_t pixels[1] = {};
        kimg_image image;
        ASSERT_EQ(kimg_image_constructExternal(&image, 1, 1, 1, 1, pixels), 0);
        image.x = call.x;
        image.y = call.y;
        kimg_image_setLinearImageFromClientXform(&image, &call.srcFromClient);
        kimg_windowConst window;
        kimg_windowConst_init(&window, &image);
        window.width = call.hasOtherWindow ? call.windowWidth : call.width;
        window.height = call.hasOtherWindow ? call.windowHeight : call.height;
        window.pitch = random.oneIn(8) ? random.pick(kPlaces) : call.pitch;

        constexpr kstd_rect32 kNoRect = {1, 2, 3, 4};
        constexpr kmath_xformLinear kNoMap = {1, 2, 3, 4, 5, 6};
        const auto expectKept = [&](int32_t status, bool isKept) {
            EXPECT_TRUE(status >= 0 || isKept);
            served += status >= 0 ? 1 : 0;
        };
        kstd_rect32 rects[] = {kNoRect, kNoRect, kNoRect};
        int32_t status = kip_affineSampleParams_getMaxSrcRect(&call.params, &image, &rects[0]);
        expectKept(status, rects[0] == kNoRect);
        EXPECT_EQ(kip_affineSampleParams_getMaxSrcRectWindow(&call.params, &window, &call.srcFromClient, &rects[1]),
                  status);
        EXPECT_EQ(rects[0], rects[1]);
        int32_t willClip = -5;
        status = kip_affineSampleParams_getWillClip(&call.params, &image, &willClip);
        expectKept(status, willClip == -5 || willClip == 1);
        status = kip_affineSampleParams_getWillClipWindow(&call.params, &window, &call.srcFromClient, &(willClip = -5));
        expectKept(status, willClip == -5 || willClip == 1);
        kip_affine_imageAlignment code = 5;
        status = kip_affine_imageAlignment_compute(&call.params, &call.srcFromClient, &code, &rects[2]);
        expectKept(status, rects[2] == kNoRect);
        kmath_xformLinear map = kNoMap;
        status = kip_affineSampleParams_getDestImageFromClientXform(&call.params, random.between32(0, 1), &map);
        expectKept(status, map == kNoMap);
        kip_affineSampleParams params = {kNoMap, 9, 8, 7};
        status = kip_affineSampleParams_initRectStandard(&params, &call.params.rect,
                                                         random.oneIn(4) ? nullptr : &call.srcFromClient);
        expectKept(status, params.rect == kNoMap && params.mode == 9 && params.destWidth == 8);
        EXPECT_EQ(kip_affineSampleParams_init(&params, call.params.mode, &call.params.rect, call.params.destWidth,
                                              call.params.destHeight),
                  0);
        kimg_image_destruct(&image);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(served, 40000);
}

} // namespace

} // namespace kip::test
