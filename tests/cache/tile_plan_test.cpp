#include "cache/tile_plan.h"

#include "cache/sample_cache.h"

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

    explicit BuiltPlan(PlanCase input, bool is8 = false)
    {
        kip_affineSampleCache cache;
        kip_affineTilePlan_init(&plan);
        const auto build = is8 ? kip::buildTilePlan8 : kip::buildTilePlan16;
        status = build(&plan, {input.source, input.srcFromClient, input.destination, input.params, cache, 0});
    }
    ~BuiltPlan() { kip_affineTilePlan_free(&plan); }
    BuiltPlan(const BuiltPlan &) = delete;
    BuiltPlan &operator=(const BuiltPlan &) = delete;
};

// Worked by hand. All four classes of tiles are the one tile.
TEST(TilePlan, OneTileForwardAndTransposed)
{
    using Plan = kip_affineTilePlan;
    const BuiltPlan shift({{10.3, 20.6, 1.0, 0.0, 0.0, 1.0}, 2, 64, 48, 200});
    const BuiltPlan turn({{100.25, 10.5, 0.0, -1.0, 1.0, 0.0}, 3, 64, 48, 200});
    ASSERT_EQ(shift.status, 0);
    ASSERT_EQ(turn.status, 0);
    const struct {
        const char *name;
        int32_t Plan::*number;
        int32_t ofShift, ofTurn;
    } rows[] = {
        {"tilesX", &Plan::tilesX, 1, 1},
        {"tilesY", &Plan::tilesY, 1, 1},
        {"startX", &Plan::startX, 675020, 6504448},
        {"startY", &Plan::startY, 1350041, 688128},
        {"bandStartX", &Plan::bandStartX, 543948, 6504448 - 51 * 65536},
        {"bandStartY", &Plan::bandStartY, 1218969, 688128 - 3 * 65536},
        {"majorStep", &Plan::majorStep, 1, 200},
        {"minorStep", &Plan::minorStep, 200, 1},
        {"direction", &Plan::direction, 1, 1},
        {"transposed", &Plan::transposed, 0, 1},
        {"primaryStep", &Plan::primaryStep, 65536, 65536},
        {"primaryRowStep", &Plan::primaryRowStep, 0, 0},
        {"secondaryShear", &Plan::secondaryShear, 0, 0},
        {"secondaryRowStep", &Plan::secondaryRowStep, 65536, -65536},
        {"secondaryFraction", &Plan::secondaryFraction, 39321, 16384},
        {"tileColumnStepX", &Plan::tileColumnStepX, 4194304, 0},
        {"tileColumnStepY", &Plan::tileColumnStepY, 0, 4194304},
        {"tileRowStepX", &Plan::tileRowStepX, 0, -3145728},
        {"tileRowStepY", &Plan::tileRowStepY, 3145728, 0},
        {"scratchBytes", &Plan::scratchBytes, 1024, 2052},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(shift.plan.*row.number, row.ofShift) << row.name;
        EXPECT_EQ(turn.plan.*row.number, row.ofTurn) << row.name;
    }
    for (const BuiltPlan *const built : {&shift, &turn}) {
        const bool isTurn = built == &turn;
        const Plan &p = built->plan;
        EXPECT_EQ(p.bandX0, isTurn ? -51 : -2);
        EXPECT_EQ(p.bandY0, isTurn ? -3 : -2);
        EXPECT_EQ(p.primaryFraction, isTurn ? 32768u : 19660u);
        for (int c = 0; c < 4; ++c) {
            EXPECT_EQ(p.tileWidth[c], 64);
            EXPECT_EQ(p.tileHeight[c], 48);
            EXPECT_EQ(p.bandOffset[c], isTurn ? -651 : -402);
            EXPECT_EQ(p.spanCount[c], 65);
        }
    }
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
        {"the first diagonal belongs to rows", {5, 99, half, half, half, -half}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 0, 1},
        {"the second", {50, 50, half, half, -half, half}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 0, 1},
        {"the third", {50, 50, -half, -half, half, -half}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 0, -1},
        {"the fourth", {50, 50, -half, half, -half, -half}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 0, -1},
        {"transposed", {50, 50, 0, 1, 1, 0}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 1, 1},
        {"transposed and turned", {50, 50, 0, -1, -1, 0}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 1, -1},
        {"a quarter back", {50, 50, 0, 1, -1, 0}, 2, 10, 10, 1, 1, 10, 10, 10, 10, 1, -1},
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
    const BuiltPlan whole({{10.0 + 1e-7, 20.0, 1, 0, 0, 1}, 2, 8, 8, 100});
    EXPECT_EQ(whole.plan.startX, (10 << 16) + 1); // a start without a fraction is lifted
    EXPECT_EQ(whole.plan.startY, (20 << 16) + 1);
    // One column at a scale below 1: the recorded size holds two bytes where a row writes three samples.
    const BuiltPlan narrow({{5.5, 5.5, 0.3, 0, 0, 0.3}, 2, 1, 40, 100}, true);
    EXPECT_EQ(narrow.plan.scratchBytes, 2);
    EXPECT_GE(narrow.plan.lineEntries, narrow.plan.spanCount[0] + 2);
    EXPECT_GE(narrow.plan.allocatedBytes, static_cast<size_t>(narrow.plan.lineEntries));
    const BuiltPlan wide({{5.5, 5.5, 20.3, 0, 0, 0.01}, 3, 90, 40, 4000}, true);
    EXPECT_EQ(wide.plan.scratchBytes, 4 * 21 * 90 + 4);
    EXPECT_GE(wide.plan.allocatedBytes, 2 * static_cast<size_t>(wide.plan.spanCount[0] + 3));
}

TEST(TilePlan, FailuresChangeNothing)
{
    EXPECT_EQ(BuiltPlan({{0, 0, 1, 0, 0, 1}, 2, 0, 8, 100}).status, kip_statusSizeBelowOne);
    EXPECT_EQ(BuiltPlan({{0, 0, 1, 0, 0, 1}, 2, 8, -1, 100}).status, kip_statusSizeBelowOne);

    kip::test::FailingAllocator allocator;
    BuiltPlan built({{10.3, 20.6, 1.0, 0.0, 0.0, 1.0}, 2, 64, 48, 200});
    PlanCase larger({1.5, 2.5, 3.0, 0.0, 0.0, 1.0}, 3, 200, 90, 300);
    const std::string before(reinterpret_cast<const char *>(&built.plan), sizeof(built.plan));
    allocator.failOnly(1);
    kip_affineSampleCache cache;
    EXPECT_LT(kip::buildTilePlan16(&built.plan,
                                   {larger.source, larger.srcFromClient, larger.destination, larger.params, cache, 0}),
              0);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&built.plan), sizeof(built.plan)), before);
}

} // namespace
