// What no pixel shows: in which order the walkers take the tiles, which twin of a kernel they call, and that they stop
// with it.

#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/records.h"
#include "transform/tile_walkers.h"

namespace kip::test {

namespace {

struct Call {
    bool isBounded;
    int32_t width, rows;
};

std::vector<Call> calls;
int32_t statusOfCall = 0; // of the third call

template <typename Position>
int32_t record(bool isBounded, const Tile<Position> &tile)
{
    calls.push_back({isBounded, tile.width, tile.rows});
    return calls.size() == 3 ? statusOfCall : 0;
}

template <typename Pixel, typename Position>
TileKernels<Pixel, Position> recordingKernels(int32_t reach, Position shift)
{
    return {[](const Tile<Position> &tile, const Pixel *, int32_t, void *, int32_t) { return record(false, tile); },
            [](const Tile<Position> &tile, const Pixel *, int32_t, const SourceBounds &, void *, int32_t) {
                return record(true, tile);
            },
            reach, shift};
}

enum class WalkerUnderTest { fixed8, fixed16, rebased8, inDoubles8 };

constexpr WalkerUnderTest kWalkers[] = {WalkerUnderTest::fixed8, WalkerUnderTest::fixed16, WalkerUnderTest::rebased8,
                                        WalkerUnderTest::inDoubles8};

// A walk over a map from destination pixels to source pixels. The memory is never touched.
struct Walk {
    WalkerUnderTest walker = WalkerUnderTest::fixed8;
    kmath_xformLinear sourceFromDest = {0.0, 0.0, 1.0, 0.0, 0.0, 1.0};
    int32_t columns = 1, rows = 1;
    int32_t sourceWidth = 5000, sourceHeight = 5000;
    int32_t reach = 0;
    double shift = 0.0; // pixels
};

int32_t run(const Walk &walk)
{
    static uint16_t memory[2];
    constexpr int32_t kTileSize = 64;
    calls.clear();
    const kmath_xformLinear &m = walk.sourceFromDest;
    const kip_affineSampleParams params = {
        {m.tx, m.ty, m.e0 * walk.columns, m.e1 * walk.rows, m.e2 * walk.columns, m.e3 * walk.rows},
        0,
        walk.columns,
        walk.rows};
    const int32_t width = walk.sourceWidth;
    const kimg_windowConst source = {width, walk.sourceHeight, 0,         0,      0, 0,
                                     width, walk.sourceHeight, width + 1, memory, 1};
    const kimg_window destination = {walk.columns, walk.rows, 0, 0, 0, 0, 0, 0, 2000, memory, 1};
    const auto fixed8 = recordingKernels<uint8_t, int32_t>(walk.reach, static_cast<int32_t>(walk.shift * 65536.0));
    switch (walk.walker) {
    case WalkerUnderTest::fixed8:
        return walkTiles8(0, source, kIdentity, destination, params, kTileSize, fixed8);
    case WalkerUnderTest::rebased8:
        return walkTilesRebased8(0, source, kIdentity, destination, params, kTileSize, fixed8);
    case WalkerUnderTest::fixed16:
        return walkTiles16(0, source, kIdentity, destination, params, kTileSize,
                           recordingKernels<uint16_t, int32_t>(walk.reach, fixed8.shift));
    default:
        return walkTilesDouble8(0, source, kIdentity, destination, params, kTileSize,
                                recordingKernels<uint8_t, double>(walk.reach, walk.shift));
    }
}

// The source's rows stay in the cache.
TEST(TileWalkers, FollowTheSourcesRows)
{
    for (const WalkerUnderTest walker : kWalkers) {
        const auto widthOfSecondTile = [&](const kmath_xformLinear &map) {
            EXPECT_EQ(run({.walker = walker, .sourceFromDest = map, .columns = 100, .rows = 70}), 0);
            EXPECT_EQ(calls.size(), 4u);
            return calls[1].width;
        };
        EXPECT_EQ(widthOfSecondTile({0, 0, 1, 0, 0, 1}), 36) << "row by row";
        EXPECT_EQ(widthOfSecondTile({100, 0, 0, -1, 1, 0}), 64) << "column by column";
        EXPECT_EQ(widthOfSecondTile({100, 0, 1, -1, 1, -1}), 36) << "neither is steeper";
    }
}

TEST(TileWalkers, AFailingKernelEndsTheWalk)
{
    for (const WalkerUnderTest walker : kWalkers) {
        statusOfCall = -12345;
        EXPECT_EQ(run({.walker = walker, .columns = 300, .rows = 300}), -12345);
        EXPECT_EQ(calls.size(), 3u);
        statusOfCall = 7;
        EXPECT_EQ(run({.walker = walker, .columns = 129, .rows = 1}), 7);
        statusOfCall = 0;
        const double huge = std::numeric_limits<double>::max();
        EXPECT_LT(run({.walker = walker, .sourceFromDest = {huge, 0, huge, 0, 0, 1}, .columns = 3, .rows = 3}), 0);
        EXPECT_TRUE(calls.empty());
    }
}

// Which of the twins serves a tile: the unchecked one exactly where all neighbourhoods lie inside the source.
TEST(TileWalkers, OnlyTilesThatReachOutsideAreChecked)
{
    struct Row {
        const char *name;
        double left, step; // the first centre's column and the step to the next
        int32_t reach;
        bool isBounded; // in 16.16; doubles keep a distance from the edges
        bool isBoundedInDoubles;
    };
    // Eight columns of a source of eight, with a neighbourhood of one or two.
    const Row table[] = {
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
    for (const Row &row : table) {
        for (const WalkerUnderTest walker : kWalkers) {
            SCOPED_TRACE(row.name);
            Walk walk = {.walker = walker,
                         .sourceFromDest = {row.left - row.step * 0.5, 0.5, row.step, 0, 0, 1},
                         .columns = 8,
                         .rows = 3,
                         .sourceWidth = 8,
                         .sourceHeight = 5,
                         .reach = row.reach,
                         .shift = row.reach == 0 ? 0.0 : 0.5};
            const bool isBounded = walker == WalkerUnderTest::inDoubles8 ? row.isBoundedInDoubles : row.isBounded;
            run(walk);
            EXPECT_EQ(calls[0].isBounded, isBounded);
            // The same along the rows.
            const kmath_xformLinear &m = walk.sourceFromDest;
            walk.sourceFromDest = {0.5, m.tx, 1, 0, 0, m.e0};
            std::swap(walk.columns, walk.rows);
            std::swap(walk.sourceWidth, walk.sourceHeight);
            run(walk);
            EXPECT_EQ(calls[0].isBounded, isBounded);
        }
    }
}

TEST(TileWalkers, TilesWhosePositionsWrapAreChecked)
{
    // 40000 columns in 16.16 wrap below zero and come back into the source.
    for (const WalkerUnderTest walker : {WalkerUnderTest::fixed8, WalkerUnderTest::fixed16}) {
        for (const kmath_xformLinear &map : {kmath_xformLinear{0, 0, 20000.0, 0, 0, 1}, {-40000.0, 0, 1.0, 0, 0, 1}}) {
            run({.walker = walker, .sourceFromDest = map, .columns = 3, .sourceWidth = 80000});
            EXPECT_TRUE(calls[0].isBounded);
        }
    }
}

} // namespace

} // namespace kip::test
