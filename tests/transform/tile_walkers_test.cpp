// What the walkers hand to the kernels: which tiles in which order, their starts and steps, where each goes,
// and which twin serves it. The kernels here write the calls down.

#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "transform/tile_walkers.h"

namespace kip::test {

namespace {

struct RecordedCall {
    bool isBounded;
    double x, y, rowStepX, rowStepY, colStepX, colStepY;
    int32_t width, rows;
    int64_t sourceOffset;      // pixels; of a bounded call the base of its positions
    int64_t destinationOffset; // bytes
    int32_t destinationPitch;
};

std::vector<RecordedCall> calls;
const void *sourceOrigin;
const void *destinationOrigin;
int32_t statusOfCall = 0; // of the third call
int32_t sourcePitch = 0;

template <typename Position>
int32_t record(bool isBounded, const Tile<Position> &t, int64_t sourceOffset, const void *dst, int32_t dstPitch)
{
    calls.push_back({isBounded, static_cast<double>(t.x), static_cast<double>(t.y), static_cast<double>(t.rowStepX),
                     static_cast<double>(t.rowStepY), static_cast<double>(t.colStepX), static_cast<double>(t.colStepY),
                     t.width, t.rows, sourceOffset,
                     static_cast<const uint8_t *>(dst) - static_cast<const uint8_t *>(destinationOrigin), dstPitch});
    return calls.size() == 3 ? statusOfCall : 0;
}

template <typename Pixel, typename Position>
int32_t recordInside(const Tile<Position> &tile, const Pixel *src, int32_t, void *dst, int32_t dstPitch)
{
    return record(false, tile, src - static_cast<const Pixel *>(sourceOrigin), dst, dstPitch);
}

template <typename Pixel, typename Position>
int32_t recordBounded(const Tile<Position> &tile, const Pixel *src, int32_t srcPitch, const SourceBounds &bounds,
                      void *dst, int32_t dstPitch)
{
    EXPECT_EQ(src, sourceOrigin);
    return record(true, tile, bounds.baseY * srcPitch + bounds.baseX, dst, dstPitch);
}

enum class WalkerUnderTest { fixed8, fixed16, rebased8, inDoubles8 };

constexpr WalkerUnderTest kWalkers[] = {WalkerUnderTest::fixed8, WalkerUnderTest::fixed16, WalkerUnderTest::rebased8,
                                        WalkerUnderTest::inDoubles8};

// A walk over a map from destination pixels to source pixels. The memory is never touched.
struct Walk {
    WalkerUnderTest walker = WalkerUnderTest::fixed8;
    kmath_xformLinear sourceFromDest = {0.0, 0.0, 1.0, 0.0, 0.0, 1.0};
    int32_t columns = 1, rows = 1;
    int32_t tileSize = 64;
    int32_t originY = 0;
    int32_t sourceWidth = 5000, sourceHeight = 5000;
    uint32_t accumulate = 0;
    int32_t bandHeight = 0; // 0: rows
    int32_t reach = 0;
    double shift = 0.0; // pixels
};

int32_t run(const Walk &walk)
{
    static uint16_t memory[2];
    calls.clear();
    sourceOrigin = memory;
    destinationOrigin = memory;
    sourcePitch = walk.sourceWidth + 1;
    const kmath_xformLinear &m = walk.sourceFromDest;
    const kip_affineSampleParams params = {
        {m.tx, m.ty, m.e0 * walk.columns, m.e1 * walk.rows, m.e2 * walk.columns, m.e3 * walk.rows},
        0,
        walk.columns,
        walk.rows};
    const kmath_xformLinear identity = {0.0, 0.0, 1.0, 0.0, 0.0, 1.0};
    const kimg_windowConst source = {walk.sourceWidth, walk.sourceHeight, 0,           0,      0, 0,
                                     walk.sourceWidth, walk.sourceHeight, sourcePitch, memory, 1};
    const kimg_window destination = {
        walk.columns, walk.bandHeight == 0 ? walk.rows : walk.bandHeight, 0, 0, 0, walk.originY, 0, 0, 2000, memory, 1};
    const auto fixedShift = static_cast<int32_t>(walk.shift * 65536.0);
    const TileKernels<uint8_t, int32_t> fixed8 = {recordInside, recordBounded, walk.reach, fixedShift};
    switch (walk.walker) {
    case WalkerUnderTest::fixed8:
        return walkTiles8(walk.accumulate, source, identity, destination, params, walk.tileSize, fixed8);
    case WalkerUnderTest::rebased8:
        return walkTilesRebased8(walk.accumulate, source, identity, destination, params, walk.tileSize, fixed8);
    case WalkerUnderTest::fixed16:
        return walkTiles16(walk.accumulate, source, identity, destination, params, walk.tileSize,
                           {recordInside, recordBounded, walk.reach, fixedShift});
    default:
        return walkTilesDouble8(walk.accumulate, source, identity, destination, params, walk.tileSize,
                                {recordInside, recordBounded, walk.reach, walk.shift});
    }
}

using Numbers = std::vector<int64_t>;

TEST(TileWalkers, CutTheDestinationIntoTilesAlongTheSourcesRows)
{
    struct Row {
        const char *name;
        Walk walk;
        Numbers sizes;   // width and rows of each call
        Numbers offsets; // elements from the destination's first
    };
    const kmath_xformLinear quarterTurn = {100.0, 0.0, 0.0, -1.0, 1.0, 0.0};
    const Numbers allSizes = {64, 64, 36, 64, 64, 6, 36, 6};
    const Numbers allOffsets = {0, 64, 128000, 128064};
    const Walk whole = {.columns = 100, .rows = 70};
    const auto with = [&](const kmath_xformLinear &map) {
        Walk walk = whole;
        walk.sourceFromDest = map;
        return walk;
    };
    Walk band = with(quarterTurn);
    band.originY = -64;
    band.bandHeight = 6;
    const Row rows[] = {
        {"one row", {.columns = 300, .rows = 10, .tileSize = 224}, {224, 10, 76, 10}, {0, 224}},
        {"one column", {.columns = 48, .rows = 97, .tileSize = 48}, {48, 48, 48, 48, 48, 1}, {0, 96000, 192000}},
        {"row by row", whole, allSizes, allOffsets},
        {"column by column", with(quarterTurn), {64, 64, 64, 6, 36, 64, 36, 6}, {0, 128000, 64, 128064}},
        {"neither is steeper", with({100.0, 0.0, 1.0, -1.0, 1.0, -1.0}), allSizes, allOffsets},
        {"a band is one row of tiles", band, {64, 6, 36, 6}, {128000, 128064}},
        {"sums share their place", {.columns = 100, .rows = 70, .accumulate = 1}, allSizes, {0, 64, 0, 64}},
        {"nothing to write", {.columns = 5, .rows = 5, .bandHeight = -1}, {}, {}},
    };
    for (const Row &row : rows) {
        for (const WalkerUnderTest walker : kWalkers) {
            SCOPED_TRACE(row.name);
            Walk walk = row.walk;
            walk.walker = walker;
            EXPECT_EQ(run(walk), 0);
            const int64_t element = walk.accumulate != 0 ? 4 : walker == WalkerUnderTest::fixed16 ? 2 : 1;
            Numbers sizes, offsets;
            for (const RecordedCall &call : calls) {
                sizes.insert(sizes.end(), {call.width, call.rows});
                offsets.push_back(call.destinationOffset / element);
                EXPECT_EQ(call.destinationPitch, walk.accumulate != 0 ? 0 : 2000);
            }
            EXPECT_EQ(sizes, row.sizes);
            EXPECT_EQ(offsets, row.offsets);
        }
    }
}

TEST(TileWalkers, BandsStartWholeTileRowsDown)
{
    for (const WalkerUnderTest walker : kWalkers) {
        Walk walk = {
            .walker = walker, .sourceFromDest = {3.5, 7.25, 0.75, -0.3, 0.2, 0.6}, .columns = 130, .rows = 300};
        run(walk);
        const std::vector<RecordedCall> whole = calls;
        for (const int32_t band : {1, 2, 4}) {
            walk.originY = -64 * band;
            walk.bandHeight = std::min(64, walk.rows - 64 * band);
            run(walk);
            ASSERT_EQ(calls.size(), 3u);
            for (size_t n = 0; n < 3; ++n) {
                const RecordedCall &expected = whole[static_cast<size_t>(band) * 3 + n];
                // Multiplying doubles rounds where adding them does not.
                const double tolerance = walker == WalkerUnderTest::inDoubles8 ? 1e-12 : 0.0;
                EXPECT_NEAR(calls[n].x, expected.x, tolerance);
                EXPECT_NEAR(calls[n].y, expected.y, tolerance);
                EXPECT_EQ(std::tie(calls[n].rows, calls[n].sourceOffset, calls[n].destinationOffset),
                          std::tie(expected.rows, expected.sourceOffset, expected.destinationOffset));
            }
        }
        // A band that starts inside a row of tiles is taken as the start of that row.
        walk.originY = -64 * 2 - 63;
        run(walk);
        EXPECT_EQ(calls[0].destinationOffset, whole[6].destinationOffset);
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

// Positions and steps, worked out by hand.

TEST(TileWalkers, FixedPositionsTruncate)
{
    const auto numbersOf = [](const RecordedCall &call) {
        return std::vector<double>{call.x, call.y, call.colStepX, call.rowStepX, call.colStepY, call.rowStepY};
    };
    for (const WalkerUnderTest walker : {WalkerUnderTest::fixed8, WalkerUnderTest::fixed16}) {
        // The first centre lies at (-0.25, 0.125 + 1/262144): trunc(-16384 + 0.5), and a quarter of a unit is lost.
        run({.walker = walker,
             .sourceFromDest = {-0.5, -0.5 + 0x1p-18, 0.75, -0.25, 0.75, 0.5},
             .columns = 2,
             .rows = 2});
        EXPECT_EQ(numbersOf(calls[0]), (std::vector<double>{-16383, 8192, 49152, -16384, 49152, 32768}));
        // Steps lose what lies below a unit, on either side of zero.
        run({.walker = walker, .sourceFromDest = {3.5, 4.5, 1.0 - 0x1p-18, -0x1p-17, 0x1p-17, -1.0 - 0x1p-18}});
        EXPECT_EQ(numbersOf(calls[0]), (std::vector<double>{0x40000, 0x40000, 65535, 0, 0, -65536}));
    }
}

TEST(TileWalkers, FixedTileStepsComeFromDoublesBeyond1024)
{
    for (const WalkerUnderTest walker : {WalkerUnderTest::fixed8, WalkerUnderTest::fixed16}) {
        Walk walk = {.walker = walker, .sourceFromDest = {0, 0, 1.0 / 3, 0, 0, 1.0 / 3}, .columns = 1024, .rows = 65};
        // The start is a sixth of a pixel: trunc(10922.67 + 0.5). A third is 21845.33 units.
        run(walk);
        EXPECT_EQ(calls[1].x, 10923.0 + 64 * 21845);
        EXPECT_EQ(calls[16].y, 10923.0 + 64 * 21845);
        walk.columns = 1025;
        run(walk);
        EXPECT_EQ(calls[1].x, 10923.0 + 1398101); // trunc(64 * 21845.33)
        EXPECT_EQ(calls[17].y, 10923.0 + 1398101);
        walk.columns = 65;
        walk.rows = 1025;
        run(walk);
        EXPECT_EQ(calls[1].x, 10923.0 + 1398101);
        EXPECT_EQ(calls[2].y, 10923.0 + 1398101);
    }
}

TEST(TileWalkers, RebasedPositionsCountFromTheTilesOwnPixel)
{
    // The first centre lies at (-0.25, 2.75): base column -1 and 0.75, base row 2 and 0.75.
    run({.walker = WalkerUnderTest::rebased8,
         .sourceFromDest = {-0.5, 2.5, 0.5, 0, 0, 0.5},
         .columns = 2,
         .rows = 65,
         .sourceWidth = 40000});
    EXPECT_EQ(calls[0].sourceOffset, 2 * 40001 - 1);
    EXPECT_EQ(calls[0].x, 0xC000);
    EXPECT_EQ(calls[0].y, 0xC000);
    EXPECT_EQ(calls[1].sourceOffset, 34 * 40001 - 1);
    EXPECT_EQ(calls[1].y, 0xC000);
    // 30 bits of the fraction round to 16; the greatest ones to a whole pixel.
    run({.walker = WalkerUnderTest::rebased8, .sourceFromDest = {0.5 - 0x1p-20, 6.5 - 0x1p-30, 1, 0, 0, 1}});
    EXPECT_EQ(calls[0].sourceOffset, 6 * 5001);
    EXPECT_EQ(calls[0].x, 0x10000);
    EXPECT_EQ(calls[0].y, 0x10000);
    // A third of a pixel is 357913941.33 units of 30 bits, the tile step 64 times the truncated one.
    run({.walker = WalkerUnderTest::rebased8, .sourceFromDest = {0, 0, 1.0 / 3, 0, 0, 1}, .columns = 130});
    const int64_t start = 178956971; // a sixth, rounded
    const int64_t third = start + 2 * 64 * int64_t{357913941};
    EXPECT_EQ(calls[2].sourceOffset, third >> 30);
    EXPECT_EQ(calls[2].x, static_cast<double>(((third & 0x3FFFFFFF) + 0x2000) >> 14));
    EXPECT_EQ(calls[2].colStepX, 21845.0);
}

TEST(TileWalkers, DoublePositionsAreAddedUp)
{
    run({.walker = WalkerUnderTest::inDoubles8, .sourceFromDest = {0.3, 0, 0.1, 0, 0, 1}, .columns = 400});
    ASSERT_EQ(calls.size(), 7u);
    EXPECT_DOUBLE_EQ(calls[0].x, 0.35);
    double x = calls[0].x;
    for (size_t n = 0; n < calls.size(); ++n) {
        EXPECT_EQ(calls[n].x, x);
        x += 64 * calls[0].colStepX;
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
