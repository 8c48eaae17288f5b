#include "cache/sample_cache.h"

#include <cstdint>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/records.h"

namespace {

using namespace kip::test;

// What an update is given. The windows need no pixels.
struct Inputs {
    kimg_windowConst source = {100, 80, 3, 4, 0, 0, 100, 80, 100, nullptr, 1};
    kimg_window destination = {20, 10, 5, 6, 0, 0, 20, 10, 20, nullptr, 1};
    kmath_xformLinear srcFromClient = {1.5, 0, 1, 0, 0, 1};
    kip_affineSampleParams params = {{10, 12, 30, 2, -2, 15}, kip_affineModeBilinear, 20, 10};
    int32_t oneRow = 0;
};

int32_t update(kip_affineSampleCache &cache, Inputs inputs)
{
    return kip_affineSampleCache_update(
        {inputs.source, inputs.srcFromClient, inputs.destination, inputs.params, cache, 0}, inputs.oneRow);
}

// Marks every result of the geometry work, so that one can see which of them is made again.
void poison(kip_affineSampleCache &cache)
{
    cache.destImageFromClient = {-1, -2, -3, -4, -5, -6};
    cache.alignCode = 12345;
    cache.alignSrcRect = {-1, -2, -3, -4};
}

bool isPoisoned(const kip_affineSampleCache &cache)
{
    const bool placement = cache.destImageFromClient.tx == -1 && cache.destImageFromClient.e3 == -6;
    const bool alignment = cache.alignCode == 12345;
    EXPECT_EQ(placement, alignment) << "placement and alignment are made together";
    return placement && alignment;
}

class SampleCache : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(kip_affineSampleCache_construct(&handle), 0); }
    void TearDown() override
    {
        EXPECT_EQ(kip_affineSampleCache_destruct(&handle), 0);
        EXPECT_EQ(handle, nullptr);
    }

    kip_affineSampleCache *handle = nullptr;
};

TEST_F(SampleCache, FirstUpdateComputesPlacementAndAlignment)
{
    EXPECT_EQ(handle->valid, 0u);
    Inputs inputs;
    // Even a cache that holds the very inputs computes while it is not valid.
    handle->params = inputs.params;
    handle->srcFromClient = inputs.srcFromClient;
    handle->srcRect = {3, 4, 100, 80};
    handle->dstRect = {5, 6, 20, 10};
    poison(*handle);
    ASSERT_GE(update(*handle, inputs), 0);

    EXPECT_NE(handle->valid, 0u);
    kmath_xformLinear placement;
    ASSERT_GE(kip_affineSampleParams_getDestImageFromClientXform(&inputs.params, 0, &placement), 0);
    EXPECT_EQ(handle->destImageFromClient, placement);
    EXPECT_EQ(handle->alignCode, kip_affine_alignNone);
    EXPECT_EQ(handle->srcRect, (kstd_rect32{3, 4, 100, 80}));
    EXPECT_EQ(handle->dstRect, (kstd_rect32{5, 6, 20, 10}));
}

TEST_F(SampleCache, RecomputesOnWhatTheGeometryDependsOnAndOnNothingElse)
{
    static unsigned char pixel = 0;
    const struct {
        const char *name;
        void (*change)(Inputs &inputs, double kmath_xformLinear::*element);
        bool counts = true;
    } rows[] = {
        {"source x", [](Inputs &i, auto) { ++i.source.x; }},
        {"source y", [](Inputs &i, auto) { ++i.source.y; }},
        {"source width", [](Inputs &i, auto) { ++i.source.width; }},
        {"source height", [](Inputs &i, auto) { ++i.source.height; }},
        {"destination x", [](Inputs &i, auto) { ++i.destination.x; }},
        {"destination y", [](Inputs &i, auto) { ++i.destination.y; }},
        {"destination width", [](Inputs &i, auto) { ++i.destination.width; }},
        {"destination height", [](Inputs &i, auto) { ++i.destination.height; }},
        {"mode", [](Inputs &i, auto) { i.params.mode = kip_affineModeNearest; }},
        {"destWidth", [](Inputs &i, auto) { ++i.params.destWidth; }},
        {"destHeight", [](Inputs &i, auto) { ++i.params.destHeight; }},
        {"rectangle", [](Inputs &i, auto element) { i.params.rect.*element += 1e-9; }},
        {"map", [](Inputs &i, auto element) { i.srcFromClient.*element += 1e-9; }},
        {"nothing", [](Inputs &, auto) {}, false},
        {"oneRow", [](Inputs &i, auto) { i.oneRow = 1; }, false},
        {"pitches", [](Inputs &i, auto) { i.source.pitch = i.destination.pitch = -128; }, false},
        {"pixels", [](Inputs &i, auto) { i.source.pixels = i.destination.pixels = &pixel; }, false},
        {"pixel size", [](Inputs &i, auto) { i.source.bytesPerPixel = i.destination.bytesPerPixel = 2; }, false},
        {"destination origin", [](Inputs &i, auto) { i.destination.originY = -4; }, false},
        {"sign of a zero", [](Inputs &i, auto) { i.srcFromClient.ty = -0.0; }, false},
    };
    for (const auto &row : rows) {
        for (const auto element : kElements) {
            SCOPED_TRACE(row.name);
            Inputs inputs;
            ASSERT_GE(update(*handle, inputs), 0);
            poison(*handle);
            row.change(inputs, element);
            ASSERT_GE(update(*handle, inputs), 0);
            EXPECT_EQ(isPoisoned(*handle), !row.counts);
            EXPECT_NE(handle->valid, 0u);
            // What was stored is the new geometry: it is known now, the old one is not.
            poison(*handle);
            ASSERT_GE(update(*handle, inputs), 0);
            EXPECT_TRUE(isPoisoned(*handle));
            ASSERT_GE(update(*handle, Inputs{}), 0);
            EXPECT_EQ(isPoisoned(*handle), !row.counts);
            handle->valid = 0;
        }
    }
}

TEST_F(SampleCache, PlacesByTheOneRowOfTheUpdateThatComputes)
{
    Inputs inputs;
    inputs.params.rect = {0, 0, 40, 0, 0, 16};
    inputs.oneRow = 1;
    ASSERT_GE(update(*handle, inputs), 0);
    EXPECT_EQ(handle->destImageFromClient.e3, 1.0 / 16);
    inputs.oneRow = 0;
    ASSERT_GE(update(*handle, inputs), 0);
    EXPECT_EQ(handle->destImageFromClient.e3, 1.0 / 16);
    inputs.params.rect.tx = 1;
    ASSERT_GE(update(*handle, inputs), 0);
    EXPECT_EQ(handle->destImageFromClient.e3, 10.0 / 16);
}

TEST_F(SampleCache, FailureLeavesItInvalidUntilAnUpdateSucceeds)
{
    const struct {
        const char *name;
        void (*spoil)(kip_affineSampleParams &params, kmath_xformLinear &map);
        int32_t status;
    } rows[] = {
        {"parallel sides", [](auto &params, auto &) { params.rect = {10, 12, 30, 15, 10, 5}; }, kmath_statusSingular},
        {"no sides", [](auto &params, auto &) { params.rect = {}; }, kmath_statusSingular},
        {"rectangle without a number", [](auto &params, auto &) { params.rect.e2 = kNan; }, kmath_statusNotFinite},
        {"map without a number", [](auto &, auto &map) { map.e2 = kNan; }, kmath_statusNotFinite},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const Inputs good;
        ASSERT_GE(update(*handle, good), 0);
        Inputs bad;
        row.spoil(bad.params, bad.srcFromClient);
        EXPECT_EQ(update(*handle, bad), row.status);
        EXPECT_EQ(handle->valid, 0u);
        // Neither the failed geometry nor the one before it is taken as known.
        EXPECT_EQ(update(*handle, bad), row.status);
        poison(*handle);
        ASSERT_GE(update(*handle, good), 0);
        EXPECT_FALSE(isPoisoned(*handle));
        EXPECT_NE(handle->valid, 0u);
        if (row.status == kmath_statusNotFinite) { // nor a number that equals nothing, itself included
            row.spoil(handle->params, handle->srcFromClient);
            EXPECT_EQ(update(*handle, bad), row.status);
            EXPECT_EQ(handle->valid, 0u);
        }
    }
}

TEST(SampleCacheLife, HandlesAreNullBeforeAndAfterAndWhenMemoryIsRefused)
{
    const int64_t requests = failEachAllocation([] {
        auto *handle = reinterpret_cast<kip_affineSampleCache *>(uintptr_t{0x10});
        const int32_t status = kip_affineSampleCache_construct(&handle);
        EXPECT_EQ(status, status < 0 ? ksys_statusOutOfMemory : 0);
        EXPECT_EQ(handle == nullptr, status < 0);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(kip_affineSampleCache_destruct(&handle), 0);
            EXPECT_EQ(handle, nullptr);
        }
        return status;
    });
    EXPECT_GE(requests, 1);
}

} // namespace
