#include "cache/tile_plan.h"

#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"

namespace {

// A sampling whose map from destination to source pixels is the given one, and the windows that it runs between.
struct PlanCase {
    kip_affineSampleParams params = {};
    kmath_xformLinear srcFromClient = {0.0, 0.0, 1.0, 0.0, 0.0, 1.0};
    kimg_windowConst source = {};
    kimg_window destination = {};

    PlanCase(const kmath_xformLinear &map, uint32_t mode, int32_t width, int32_t height, int32_t sourcePitch)
    {
        params = {
            {map.tx, map.ty, map.e0 * width, map.e1 * height, map.e2 * width, map.e3 * height}, mode, width, height};
        source.pitch = sourcePitch;
        destination.width = width;
        destination.height = height;
        destination.pitch = width;
    }
};

// A plan and its storage.
struct BuiltPlan {
    kip_affineTilePlan plan = {};
    int32_t status;

    explicit BuiltPlan(const PlanCase &input, bool is8 = false)
    {
        kip_affineTilePlan_init(&plan);
        const auto build = is8 ? kip::buildTilePlan8 : kip::buildTilePlan16;
        status = build(&plan, input.source, input.srcFromClient, input.destination, input.params);
    }
    ~BuiltPlan() { kip_affineTilePlan_free(&plan); }
    BuiltPlan(const BuiltPlan &) = delete;
    BuiltPlan &operator=(const BuiltPlan &) = delete;
};

TEST(TilePlan, PlainShiftInOneTile)
{
    const BuiltPlan built({{10.3, 20.6, 1.0, 0.0, 0.0, 1.0}, 2, 64, 48, 200});
    const kip_affineTilePlan &p = built.plan;
    ASSERT_EQ(built.status, 0);
    EXPECT_EQ(p.tilesX * p.tilesY, 1);
    EXPECT_EQ(p.startX, 675020);
    EXPECT_EQ(p.startY, 1350041);
    EXPECT_EQ(p.bandStartX, 543948);
    EXPECT_EQ(p.bandStartY, 1218969);
    EXPECT_EQ(p.bandX0, -2);
    EXPECT_EQ(p.bandY0, -2);
    EXPECT_EQ(p.majorStep, 1);
    EXPECT_EQ(p.minorStep, 200);
    EXPECT_EQ(p.direction, 1);
    EXPECT_EQ(p.transposed, 0);
    EXPECT_EQ(p.primaryStep, 65536);
    EXPECT_EQ(p.primaryRowStep, 0);
    EXPECT_EQ(p.secondaryShear, 0);
    EXPECT_EQ(p.secondaryRowStep, 65536);
    EXPECT_EQ(p.primaryFraction, 19660u);
    EXPECT_EQ(p.secondaryFraction, 39321);
    EXPECT_EQ(p.tileColumnStepX, 4194304);
    EXPECT_EQ(p.tileColumnStepY, 0);
    EXPECT_EQ(p.tileRowStepX, 0);
    EXPECT_EQ(p.tileRowStepY, 3145728);
    EXPECT_EQ(p.scratchBytes, 1024);
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(p.tileWidth[c], 64);
        EXPECT_EQ(p.tileHeight[c], 48);
        EXPECT_EQ(p.bandOffset[c], -402);
        EXPECT_EQ(p.spanCount[c], 65);
    }
}

TEST(TilePlan, QuarterTurnScansColumns)
{
    const BuiltPlan built({{100.25, 10.5, 0.0, -1.0, 1.0, 0.0}, 3, 64, 48, 200});
    const kip_affineTilePlan &p = built.plan;
    ASSERT_EQ(built.status, 0);
    EXPECT_EQ(p.transposed, 1);
    EXPECT_EQ(p.direction, 1);
    EXPECT_EQ(p.majorStep, 200);
    EXPECT_EQ(p.minorStep, 1);
    EXPECT_EQ(p.startX, 6504448);
    EXPECT_EQ(p.startY, 688128);
    EXPECT_EQ(p.bandX0, -51);
    EXPECT_EQ(p.bandY0, -3);
    EXPECT_EQ(p.bandOffset[0], -651);
    EXPECT_EQ(p.primaryStep, 65536);
    EXPECT_EQ(p.secondaryRowStep, -65536);
    EXPECT_EQ(p.primaryFraction, 32768u);
    EXPECT_EQ(p.secondaryFraction, 16384);
    EXPECT_EQ(p.spanCount[0], 65);
    EXPECT_EQ(p.tileColumnStepY, 4194304);
    EXPECT_EQ(p.tileRowStepX, -3145728);
    EXPECT_EQ(p.scratchBytes, 2052);
}

TEST(TilePlan, TilesAndScanByGeometry)
{
    const double half = std::sqrt(0.5);
    const struct {
        const char *name;
        kmath_xformLinear map;
        uint32_t mode;
        int32_t width, height;
        int32_t tilesX, tilesY, tileWidth, tileHeight, lastWidth, lastHeight;
        int32_t transposed, direction;
    } cases[] = {
        {"unit scale", {5.5, 5.5, 1, 0, 0, 1}, 2, 200, 150, 3, 2, 96, 96, 8, 54, 0, 1},
        {"tall", {5.5, 5.5, 1, 0, 0, 1}, 2, 90, 100, 1, 2, 90, 96, 90, 4, 0, 1},
        {"one tile has no limit", {5, 5, 30, 0, 0, 30}, 3, 96, 96, 1, 1, 96, 96, 96, 96, 0, 1},
        {"reduction by 8", {5, 5, 8, 0, 0, 8}, 3, 800, 800, 15, 15, 55, 55, 30, 30, 0, 1},
        {"reduction beyond any tile", {5, 5, 1000, 0, 0, 1000}, 3, 97, 2, 97, 2, 1, 1, 1, 1, 0, 1},
        {"half turn", {99, 99, -1, 0, 0, -1}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 0, -1},
        {"diagonal belongs to rows", {5, 99, half, half, half, -half}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 0, 1},
        {"steep down", {5, 5, 0.5, -0.8, 0.8, 0.5}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 1, 1},
        {"steep up", {5, 99, 0.5, 0.8, -0.8, 0.5}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 1, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const BuiltPlan built({c.map, c.mode, c.width, c.height, 2000});
        const kip_affineTilePlan &p = built.plan;
        ASSERT_EQ(built.status, 0);
        EXPECT_EQ(p.tilesX, c.tilesX);
        EXPECT_EQ(p.tilesY, c.tilesY);
        EXPECT_EQ(p.tileWidth[0], c.tileWidth);
        EXPECT_EQ(p.tileHeight[0], c.tileHeight);
        EXPECT_EQ(p.tileWidth[3], c.lastWidth);
        EXPECT_EQ(p.tileHeight[3], c.lastHeight);
        EXPECT_EQ(p.transposed, c.transposed);
        EXPECT_EQ(p.direction, c.direction);
        EXPECT_GT(p.primaryStep, 0);
    }
}

TEST(TilePlan, RecordedSizeFollowsTheScaleAndMemoryTheRows)
{
    // One column at a scale below 1: the recorded size holds two bytes where a row writes three samples.
    const BuiltPlan narrow({{5.5, 5.5, 0.3, 0, 0, 0.3}, 2, 1, 40, 100}, true);
    EXPECT_EQ(narrow.plan.scratchBytes, 2);
    EXPECT_GE(narrow.plan.lineEntries, narrow.plan.spanCount[0] + 2);
    EXPECT_GE(narrow.plan.allocatedBytes, static_cast<size_t>(narrow.plan.lineEntries));
    const BuiltPlan wide({{5.5, 5.5, 20.3, 0, 0, 0.01}, 3, 90, 40, 4000}, true);
    EXPECT_EQ(wide.plan.scratchBytes, 4 * 21 * 90 + 4);
    EXPECT_GE(wide.plan.allocatedBytes, 2 * static_cast<size_t>(wide.plan.spanCount[0] + 3));
}

TEST(TilePlan, LiftsStartsWithoutAFraction)
{
    const BuiltPlan built({{10.0 + 1e-7, 20.0, 1, 0, 0, 1}, 2, 8, 8, 100});
    EXPECT_EQ(built.plan.startX, (10 << 16) + 1);
    EXPECT_EQ(built.plan.startY, (20 << 16) + 1);
}

TEST(TilePlan, FailuresChangeNothing)
{
    EXPECT_EQ(BuiltPlan({{0, 0, 1, 0, 0, 1}, 2, 0, 8, 100}).status, kip_statusSizeBelowOne);
    EXPECT_EQ(BuiltPlan({{0, 0, 1, 0, 0, 1}, 2, 8, -1, 100}).status, kip_statusSizeBelowOne);

    kip::test::FailingAllocator allocator;
    BuiltPlan built({{10.3, 20.6, 1.0, 0.0, 0.0, 1.0}, 2, 64, 48, 200});
    const PlanCase larger({1.5, 2.5, 3.0, 0.0, 0.0, 1.0}, 3, 90, 90, 300);
    const std::string before(reinterpret_cast<const char *>(&built.plan), sizeof(built.plan));
    allocator.failOnly(1);
    EXPECT_LT(kip::buildTilePlan16(&built.plan, larger.source, larger.srcFromClient, larger.destination, larger.params),
              0);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&built.plan), sizeof(built.plan)), before);
}

} // namespace
