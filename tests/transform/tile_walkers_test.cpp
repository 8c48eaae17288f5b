// The walkers: in which order they take the tiles, which twin of a kernel they call, and that
// no geometry, even one that the clipping test would refuse, leads them out of their memory.

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "cache/sample_cache.h"
#include "support/records.h"
#include "transform/resample.h"
#include "transform/tiles/tile_walkers.h"

namespace kip::test {

namespace {

enum class Walker { fixed8, rebased8, inDoubles8, fixed16 };

constexpr Walker kWalkers[] = {Walker::fixed8, Walker::rebased8, Walker::inDoubles8, Walker::fixed16};

struct Call {
    bool isBounded;
    int32_t width, rows;
};

std::vector<Call> calls;

template <typename Position>
void record(bool isBounded, const Tile<Position> &tile)
{
    calls.push_back({isBounded, tile.width, tile.rows});
}

template <typename Pixel, typename Position>
TileKernels<Pixel, Position> recordingKernels(int32_t reach, Position shift)
{
    return {[](const Tile<Position> &tile, const Pixel *, int32_t, void *, int32_t) { record(false, tile); },
            [](const Tile<Position> &tile, const Pixel *, int32_t, const SourceBounds &, void *, int32_t) {
                record(true, tile);
            },
            reach, shift};
}

// Records a walk over a map from destination pixels to those of a source, whose memory is never touched.
int32_t recordWalk(Walker walker, const kmath_xformLinear &m, int32_t columns, int32_t rows, int32_t width = 5000,
                   int32_t height = 5000, int32_t reach = 0)
{
    static uint16_t memory[2];
    calls.clear();
    const kip_affineSampleParams params = {
        {m.tx, m.ty, m.e0 * columns, m.e1 * rows, m.e2 * columns, m.e3 * rows}, 0, columns, rows};
    const kimg_windowConst source = {width, height, 0, 0, 0, 0, width, height, width + 1, memory, 1};
    kimg_window destination = {columns, rows, 0, 0, 0, 0, 0, 0, 2000, memory, 1};
    kip_affineSampleCache cache;
    const int32_t shift = reach * 0x8000;
    const auto walk = [&](auto function, const auto &kernels) {
        return function({source, kIdentity, destination, params, cache, 0}, 64, kernels);
    };
    switch (walker) {
    case Walker::fixed8:
        return walk(walkTiles8, recordingKernels<uint8_t, int32_t>(reach, shift));
    case Walker::rebased8:
        return walk(walkTilesRebased8, recordingKernels<uint8_t, int32_t>(reach, shift));
    case Walker::inDoubles8:
        return walk(walkTilesDouble8, recordingKernels<uint8_t, double>(reach, reach * 0.5));
    default:
        return walk(walkTiles16, recordingKernels<uint16_t, int32_t>(reach, shift));
    }
}

// The source's rows stay in the cache.
TEST(TileWalkers, FollowTheSourcesRows)
{
    for (const Walker walker : kWalkers) {
        const auto widthOfSecondTile = [&](const kmath_xformLinear &map) {
            EXPECT_EQ(recordWalk(walker, map, 100, 70), 0);
            EXPECT_EQ(calls.size(), 4u);
            return calls[1].width;
        };
        EXPECT_EQ(widthOfSecondTile({0, 0, 1, 0, 0, 1}), 36) << "row by row";
        EXPECT_EQ(widthOfSecondTile({100, 0, 0, -1, 1, 0}), 64) << "column by column";
        EXPECT_EQ(widthOfSecondTile({100, 0, 1, -1, 1, -1}), 36) << "neither is steeper";

        const double huge = std::numeric_limits<double>::max();
        EXPECT_LT(recordWalk(walker, {huge, 0, huge, 0, 0, 1}, 3, 3), 0);
        EXPECT_TRUE(calls.empty());
    }
}

// The unchecked twin serves exactly where all neighbourhoods lie inside the source.
TEST(TileWalkers, OnlyTilesThatReachOutsideAreChecked)
{
    // Eight columns of a source of eight, with a neighbourhood of one or two.
    const struct {
        const char *name;
        double left, step; // the first centre's column and the step to the next
        int32_t reach;
        bool isBounded; // in 16.16; doubles keep a distance from the edges
        bool isBoundedInDoubles;
    } rows[] = {
        {"whole source", 0.5, 1.0, 0, false, false},
        {"a unit from both edges", 0x1p-16, 1.0, 0, false, true},
        {"the left edge itself", 0.0, 1.0, 0, false, true},
        {"two units beyond the left edge", -0x1p-15, 1.0, 0, true, true},
        {"a unit beyond the right edge", 1.0, 1.0, 0, true, true},
        {"mirrored, at the edges", 8.0 - 0x1p-16, -1.0, 0, false, true},
        {"mirrored, beyond the left edge", 6.5, -1.0, 0, true, true},
        {"two columns wide, inside", 0.625, 0.9375, 1, false, false},
        {"two columns wide, to the last one", 1.5, 0.857, 1, false, true},
        {"two columns wide, beyond the right edge", 1.0, 1.0, 1, true, true},
        {"two columns wide, beyond the left edge", 0.25, 0.5, 1, true, true},
    };
    for (const auto &row : rows) {
        for (const Walker walker : kWalkers) {
            SCOPED_TRACE(row.name);
            const bool isBounded = walker == Walker::inDoubles8 ? row.isBoundedInDoubles : row.isBounded;
            const double start = row.left - row.step * 0.5;
            recordWalk(walker, {start, 0.5, row.step, 0, 0, 1}, 8, 3, 8, 5, row.reach);
            EXPECT_EQ(calls[0].isBounded, isBounded);
            recordWalk(walker, {0.5, start, 1, 0, 0, row.step}, 3, 8, 5, 8, row.reach);
            EXPECT_EQ(calls[0].isBounded, isBounded);
        }
    }
    // 40000 columns in 16.16 wrap below zero and come back into the source.
    for (const Walker walker : {Walker::fixed8, Walker::fixed16}) {
        for (const kmath_xformLinear &map : {kmath_xformLinear{0, 0, 20000.0, 0, 0, 1}, {-40000.0, 0, 1.0, 0, 0, 1}}) {
            recordWalk(walker, map, 3, 1, 80000);
            EXPECT_TRUE(calls[0].isBounded);
        }
    }
}

// The optimised path's refusal comes before its first write.
TEST(TileWalkers, TheFastPathDeclinesWithoutATrace)
{
    for (const bool isWide : {true, false}) {
        std::vector<uint8_t> source(3 * 32768);
        uint8_t destination[] = {77, 77, 77, 77};
        const kimg_windowConst from = {3, isWide ? 3 : 32768, 0, 0, 0, 0, 3, 3, isWide ? 32768 : 3, source.data(), 1};
        kimg_window to = {2, 2, 0, 0, 0, 0, 2, 2, 2, destination, 1};
        const kip_affineSampleParams params = {{0.25, 0.25, 2, 0, 0, 2}, kip_affineModeBilinear, 2, 2};
        kip_affineSampleCache cache;
        kip_affineSampleCache_initLocal(&cache);
        EXPECT_EQ(resampleFast8({from, kIdentity, to, params, cache, 0}), int32_t{kip_statusOptimizationDeclined});
        EXPECT_EQ(std::count(destination, destination + 4, 77), 4);
    }
}

} // namespace

} // namespace kip::test
