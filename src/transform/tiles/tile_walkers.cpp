#include "transform/tiles/tile_walkers.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "geometry/sampling_grid.h"
#include "support/fixed_point.h"
#include "support/prefetch.h"

namespace kip {

namespace {

// Destinations up to this size step from tile to tile by whole multiples of the truncated pixel step; larger
// ones from the doubles, so that the truncation does not add up.
constexpr int32_t kMaxExtentForSteppedTiles = 1024;

// Rows of the destination that a walk down its columns takes at a time where it leaves the caches. They still have
// their lines in the second-level cache, and their pages in the translation buffer, when the next column comes.
constexpr int32_t kStretchOfRows = 384;

// Source pixels to a destination pixel, at most, where the next tile is asked for: of greater reductions most lines of
// a tile's footprint are never read.
constexpr double kMostAreaAhead = 2.5;

template <typename Coordinate>
struct Point {
    Coordinate x, y;
};

// Per-pixel steps of a destination, in 16.16.
struct PixelSteps {
    int32_t rowX, rowY, colX, colY;
};

PixelSteps fixedPixelSteps(const SamplingGrid &grid)
{
    return {fixedStep(grid.rowStep.x), fixedStep(grid.rowStep.y), fixedStep(grid.colStep.x), fixedStep(grid.colStep.y)};
}

uint32_t unsignedOf(int32_t v)
{
    return static_cast<uint32_t>(v);
}

template <typename Position>
Tile<Position> tileAt(Position x, Position y, const PixelSteps &steps)
{
    return {x, y, steps.rowX, steps.rowY, steps.colX, steps.colY, 0, 0};
}

bool isSteeper(int32_t a, int32_t b)
{
    return std::abs(int64_t{a}) > std::abs(int64_t{b});
}

// The 16.16 positions of a tile along one axis, less the interpolation's shift.
struct Interval {
    int64_t least, greatest;

    Interval(int64_t start, int64_t alongRow, int64_t alongColumn)
        : least(start + std::min<int64_t>(alongRow, 0) + std::min<int64_t>(alongColumn, 0)),
          greatest(start + std::max<int64_t>(alongRow, 0) + std::max<int64_t>(alongColumn, 0))
    {}

    // Tells whether all of it lies in columns (or rows) 0 to size - 1 - reach of the source, counted from base, and in
    // 32 bits.
    bool isInside(int64_t base, int32_t size, int32_t reach) const
    {
        return least >= INT32_MIN && greatest <= INT32_MAX && base + (least >> 16) >= 0 &&
               base + (greatest >> 16) + reach < size;
    }
    // The first and the last of these columns (or rows) that it leads to, or the nearest ones to that.
    int64_t first(int64_t base, int32_t size) const { return std::clamp<int64_t>(base + (least >> 16), 0, size - 1); }
    int64_t last(int64_t base, int32_t size, int32_t reach) const
    {
        return std::clamp<int64_t>(base + (greatest >> 16) + reach, 0, size - 1);
    }
};

// A tile is a parallelogram in the source: its corners bound all of its positions, none of which wraps then.
Interval horizontalInterval(const FixedTile &tile, int32_t shift)
{
    return {int64_t{tile.x} - shift, int64_t{tile.width - 1} * tile.colStepX, int64_t{tile.rows - 1} * tile.rowStepX};
}

Interval verticalInterval(const FixedTile &tile, int32_t shift)
{
    return {int64_t{tile.y} - shift, int64_t{tile.width - 1} * tile.colStepY, int64_t{tile.rows - 1} * tile.rowStepY};
}

bool isInside(const FixedTile &tile, const SourceBounds &bounds, int32_t reach, int32_t shift)
{
    return horizontalInterval(tile, shift).isInside(bounds.baseX, bounds.width, reach) &&
           verticalInterval(tile, shift).isInside(bounds.baseY, bounds.height, reach);
}

// The kernel adds steps where this multiplies them. A tile's sums differ from the products by far less than
// the guard, in pixels, for any source that memory can hold.
bool isIntervalInside(double start, double alongRow, double alongColumn, int32_t size, int32_t reach)
{
    constexpr double guard = 0.0625;
    const double least = start + std::min(alongRow, 0.0) + std::min(alongColumn, 0.0);
    const double greatest = start + std::max(alongRow, 0.0) + std::max(alongColumn, 0.0);
    return least >= guard && greatest <= static_cast<double>(size) - reach - guard;
}

bool isInside(const DoubleTile &tile, const SourceBounds &bounds, int32_t reach, double shift)
{
    const double columns = tile.width - 1;
    const double rows = tile.rows - 1;
    return isIntervalInside(tile.x - shift, columns * tile.colStepX, rows * tile.rowStepX, bounds.width, reach) &&
           isIntervalInside(tile.y - shift, columns * tile.colStepY, rows * tile.rowStepY, bounds.height, reach);
}

// ---- Motions: how the start of a tile is carried from tile to tile -----------------------------------------
//
// A motion knows the start of the first tile, the steps to the tile to the right and to the one below, and
// what a kernel is given for a start: a tile and the source pixel that its positions count from.

// 16.16, wrapping.
struct FixedMotion {
    using Coordinate = uint32_t;
    PixelSteps steps;
    Point<uint32_t> start, tileRow, tileCol;

    static Coordinate times(int64_t count, Coordinate step) { return static_cast<uint32_t>(count) * step; }
    bool isColumnSteeper() const { return isSteeper(steps.colY, steps.rowY); }

    FixedTile tile(const Point<uint32_t> &at, SourceBounds *) const
    {
        return tileAt(static_cast<int32_t>(at.x), static_cast<int32_t>(at.y), steps);
    }
};

Point<uint32_t> fixedStart(const SamplingGrid &grid)
{
    return {unsignedOf(fixedPosition(grid.start.x)), unsignedOf(fixedPosition(grid.start.y))};
}

FixedMotion fixedMotion(const SamplingGrid &grid, const kip_affineSampleParams &params, int32_t tileSize)
{
    FixedMotion motion = {fixedPixelSteps(grid), fixedStart(grid), {}, {}};
    const auto size = static_cast<uint32_t>(tileSize);
    const PixelSteps &steps = motion.steps;
    if (params.destWidth <= kMaxExtentForSteppedTiles && params.destHeight <= kMaxExtentForSteppedTiles) {
        motion.tileRow = {size * unsignedOf(steps.rowX), size * unsignedOf(steps.rowY)};
        motion.tileCol = {size * unsignedOf(steps.colX), size * unsignedOf(steps.colY)};
    } else {
        const auto tileStep = [tileSize](double step) { return unsignedOf(fixedStep(tileSize * step)); };
        motion.tileRow = {tileStep(grid.rowStep.x), tileStep(grid.rowStep.y)};
        motion.tileCol = {tileStep(grid.colStep.x), tileStep(grid.colStep.y)};
    }
    return motion;
}

// The optimised path's steps: a pixel's saturate, and a tile's that 16.16 cannot hold leads out of any source, where
// nothing is sampled.
FixedMotion fastMotion(const SamplingGrid &grid, int32_t tileSize)
{
    const auto pixelStep = [](double step) {
        if (step > 32767.0)
            return INT32_MAX;
        return step < -32767.0 ? -INT32_MAX : fixedStep(step);
    };
    const auto tileStep = [tileSize](double step) {
        const double moved = tileSize * step;
        return moved > -32768.0 && moved < 32768.0 ? unsignedOf(fixedStep(moved)) : 0u;
    };
    return {
        {pixelStep(grid.rowStep.x), pixelStep(grid.rowStep.y), pixelStep(grid.colStep.x), pixelStep(grid.colStep.y)},
        fixedStart(grid),
        {tileStep(grid.rowStep.x), tileStep(grid.rowStep.y)},
        {tileStep(grid.colStep.x), tileStep(grid.colStep.y)}};
}

// 64 bits with 30 fraction bits, rebased to the tile's own source pixel.
struct RebasedMotion {
    using Coordinate = uint64_t;
    static constexpr double kOne = 1073741824.0;
    PixelSteps steps;
    Point<uint64_t> start, tileRow, tileCol;

    RebasedMotion(const SamplingGrid &grid, int32_t tileSize)
        : steps(fixedPixelSteps(grid)), start{startCoordinate(grid.start.x), startCoordinate(grid.start.y)},
          tileRow{tileStep(tileSize, grid.rowStep.x), tileStep(tileSize, grid.rowStep.y)},
          tileCol{tileStep(tileSize, grid.colStep.x), tileStep(tileSize, grid.colStep.y)}
    {}

    // Rounds to nearest; an exact half of a unit goes up, on either side of zero.
    static uint64_t startCoordinate(double v)
    {
        return static_cast<uint64_t>(truncateToInt64(v * kOne + (v >= 0.0 ? 0.5 : -0.4999999999)));
    }
    static uint64_t tileStep(int32_t tileSize, double step)
    {
        return static_cast<uint64_t>(truncateToInt64(step * kOne)) * static_cast<uint64_t>(tileSize);
    }
    static Coordinate times(int64_t count, Coordinate step) { return static_cast<uint64_t>(count) * step; }
    bool isColumnSteeper() const { return isSteeper(steps.colY, steps.rowY); }

    FixedTile tile(const Point<uint64_t> &at, SourceBounds *bounds) const
    {
        bounds->baseX = static_cast<int64_t>(at.x) >> 30;
        bounds->baseY = static_cast<int64_t>(at.y) >> 30;
        return tileAt(fraction16(at.x), fraction16(at.y), steps);
    }
    // The 30-bit fraction rounded to 16 bits, 0 to 1.0.
    static int32_t fraction16(uint64_t v) { return static_cast<int32_t>(((v & 0x3FFFFFFF) + 0x2000) >> 14); }
};

struct DoubleMotion {
    using Coordinate = double;
    SamplingGrid grid;
    Point<double> start, tileRow, tileCol;

    DoubleMotion(const SamplingGrid &samplingGrid, int32_t tileSize)
        : grid(samplingGrid), start{grid.start.x, grid.start.y},
          tileRow{tileSize * grid.rowStep.x, tileSize * grid.rowStep.y}, tileCol{tileSize * grid.colStep.x,
                                                                                 tileSize * grid.colStep.y}
    {}

    static double times(int64_t count, double step) { return static_cast<double>(count) * step; }
    bool isColumnSteeper() const { return std::fabs(grid.colStep.y) > std::fabs(grid.rowStep.y); }

    DoubleTile tile(const Point<double> &at, SourceBounds *) const
    {
        return {at.x, at.y, grid.rowStep.x, grid.rowStep.y, grid.colStep.x, grid.colStep.y, 0, 0};
    }
};

// ---- The walk -------------------------------------------------------------------------------------------------

// One of the two directions in which tiles follow each other.
template <typename Coordinate>
struct Direction {
    int32_t extent;         // destination pixels
    Point<Coordinate> step; // source step to the next tile
    int64_t advance;        // bytes of the destination to the next tile
};

// A tile's place in the walk.
template <typename Coordinate>
struct Place {
    Point<Coordinate> at;
    int64_t offset; // bytes of the destination

    void move(const Direction<Coordinate> &direction)
    {
        at = {at.x + direction.step.x, at.y + direction.step.y};
        offset += direction.advance;
    }
};

// Goes from tile to tile: a stretch along the inner direction, then on by one along the outer, and so on; then the next
// stretch.
template <typename Coordinate>
struct Cursor {
    int32_t tileSize;
    Direction<Coordinate> outer, inner;
    int64_t stretch;        // destination pixels along the inner direction, whole tiles
    Place<Coordinate> line; // the first tile of this stretch at this place along the outer direction
    Place<Coordinate> place = line;
    Place<Coordinate> nextStretch = {};
    int64_t stretchBegin = 0; // destination pixels before this stretch and before this tile
    int64_t outerCovered = 0;
    int64_t innerCovered = 0;

    bool isDone() const { return outerCovered >= outer.extent || innerCovered >= inner.extent; }
    int32_t outerCount() const { return count(outer.extent - outerCovered); }
    int32_t innerCount() const { return count(inner.extent - innerCovered); }
    void advance()
    {
        innerCovered += tileSize;
        place.move(inner);
        if (innerCovered < std::min<int64_t>(stretchBegin + stretch, inner.extent))
            return;
        if (outerCovered == 0)
            nextStretch = place;
        outerCovered += tileSize;
        if (outerCovered < outer.extent) {
            innerCovered = stretchBegin;
            line.move(outer);
        } else {
            stretchBegin = innerCovered;
            outerCovered = 0;
            line = nextStretch;
        }
        place = line;
    }

private:
    int32_t count(int64_t left) const { return static_cast<int32_t>(std::min<int64_t>(tileSize, left)); }
};

// A tile and where it reads and writes.
template <typename Position>
struct PlacedTile {
    Tile<Position> tile;
    SourceBounds bounds;
    uint8_t *dst;
};

// What all tiles of a walk share.
template <typename Pixel, typename Position>
struct Walk {
    const kimg_windowConst &source;
    const TileKernels<Pixel, Position> &kernels;
    int32_t dstPitch; // elements; 0 where all rows add to the same sums
    int64_t elementSize;
    bool prefetches;
};

// So many rows of a tile. One in doubles, whose kernels add up from its first row, is never cut.
FixedTile sliceOf(const FixedTile &tile, int32_t first, int32_t rows)
{
    FixedTile slice = tile;
    slice.x = static_cast<int32_t>(unsignedOf(tile.x) + unsignedOf(first) * unsignedOf(tile.rowStepX));
    slice.y = static_cast<int32_t>(unsignedOf(tile.y) + unsignedOf(first) * unsignedOf(tile.rowStepY));
    slice.rows = rows;
    return slice;
}

DoubleTile sliceOf(const DoubleTile &tile, int32_t, int32_t)
{
    return tile;
}

// Resamples a tile; in slices of a few rows, with a part of what is ahead before each, where the walk prefetches.
template <typename Pixel, typename Position>
void resampleTile(const Walk<Pixel, Position> &walk, const PlacedTile<Position> &placed, const TileAhead &ahead)
{
    constexpr int32_t sliceRows = 16 / sizeof(Pixel); // fewer cost more in calls than they gain
    const TileKernels<Pixel, Position> &kernels = walk.kernels;
    const SourceBounds &bounds = placed.bounds;
    const int32_t rows = placed.tile.rows;
    const auto *const src = static_cast<const Pixel *>(walk.source.pixels);
    const int32_t srcPitch = walk.source.pitch;
    const bool mayOptimise = kernels.mayOptimise == nullptr || kernels.mayOptimise();
    const auto inside = mayOptimise ? kernels.inside : kernels.portable;
    const bool isTileInside = isInside(placed.tile, bounds, kernels.reach, kernels.shift);
    for (int32_t first = 0, end = 0; first < rows; first = end) {
        end = walk.prefetches && first + 2 * sliceRows <= rows ? first + sliceRows : rows;
        ahead.prefetch(first, end, rows);
        const auto slice = sliceOf(placed.tile, first, end - first);
        uint8_t *const dst = placed.dst + int64_t{first} * walk.dstPitch * walk.elementSize;
        if (isTileInside)
            inside(slice, src + (bounds.baseY * srcPitch + bounds.baseX), srcPitch, dst, walk.dstPitch);
        else
            kernels.bounded(slice, src, srcPitch, bounds, dst, walk.dstPitch);
    }
}

template <typename Pixel, typename Position>
TileAhead aheadOf(const Walk<Pixel, Position> &walk, const PlacedTile<Position> &placed)
{
    constexpr int64_t bytes = sizeof(Pixel);
    const auto &[tile, bounds, dst] = placed;
    const int32_t reach = walk.kernels.reach;
    const Interval x = horizontalInterval(tile, walk.kernels.shift);
    const Interval y = verticalInterval(tile, walk.kernels.shift);
    const int64_t column = x.first(bounds.baseX, bounds.width);
    const int64_t row = y.first(bounds.baseY, bounds.height);
    const int64_t pitch = walk.source.pitch;
    const MemoryBox footprint = {static_cast<const uint8_t *>(walk.source.pixels) + (row * pitch + column) * bytes,
                                 pitch * bytes, (x.last(bounds.baseX, bounds.width, reach) + 1 - column) * bytes,
                                 y.last(bounds.baseY, bounds.height, reach) + 1 - row};
    const MemoryBox destination = {dst, walk.dstPitch * walk.elementSize, tile.width * walk.elementSize,
                                   walk.dstPitch == 0 ? 1 : tile.rows};
    return {footprint.lines() <= kMostLinesAhead ? footprint : MemoryBox{}, destination};
}

// makeMotion(grid): the motion of the walk.
template <typename Pixel, typename Position, typename MakeMotion>
int32_t walkTiles(const Sampling &sampling, int32_t tileSize, const TileKernels<Pixel, Position> &kernels,
                  MakeMotion makeMotion)
{
    using Motion = decltype(makeMotion(SamplingGrid{}));
    using Coordinate = typename Motion::Coordinate;
    constexpr bool isFixed = std::is_same_v<Position, int32_t>;
    const kimg_windowConst &source = sampling.source;
    const kimg_window &destination = sampling.destination;
    const kip_affineSampleParams &params = sampling.params;

    SamplingGrid grid;
    const int32_t status = computeSamplingGrid(sampling, &grid);
    if (status < 0)
        return status;
    const Motion motion = makeMotion(grid);

    const bool add = sampling.adds();
    const double sourceArea = grid.colStep.x * grid.rowStep.y - grid.colStep.y * grid.rowStep.x;
    const int64_t elementSize = add ? sizeof(uint32_t) : sizeof(Pixel);
    const Walk<Pixel, Position> walk = {
        source, kernels, add ? 0 : destination.pitch, elementSize,
        isFixed && std::fabs(sourceArea) <= kMostAreaAhead &&
            leavesCaches(sourceArea, params.destWidth, params.destHeight, sizeof(Pixel))};
    const Direction<Coordinate> down = {sampling.rows(), motion.tileRow,
                                        int64_t{tileSize} * walk.dstPitch * walk.elementSize};
    const Direction<Coordinate> right = {add ? params.destWidth : destination.width, motion.tileCol,
                                         tileSize * walk.elementSize};

    // Tiles that follow each other along the source's rows share them in the cache.
    const bool transposedOrder = motion.isColumnSteeper() && destination.originY == 0;
    const Direction<Coordinate> &outer = transposedOrder ? right : down;
    const Direction<Coordinate> &inner = transposedOrder ? down : right;

    const int64_t skipped = -(int64_t{destination.originY} / tileSize);
    const int64_t stretch = transposedOrder && walk.prefetches ? kStretchOfRows / tileSize * tileSize : inner.extent;
    Cursor<Coordinate> cursor = {
        tileSize,
        outer,
        inner,
        stretch,
        {{motion.start.x + Motion::times(skipped, outer.step.x), motion.start.y + Motion::times(skipped, outer.step.y)},
         skipped * outer.advance}};
    const auto placedTile = [&] {
        PlacedTile<Position> placed = {
            {}, {0, 0, source.width, source.height}, static_cast<uint8_t *>(destination.pixels) + cursor.place.offset};
        placed.tile = motion.tile(cursor.place.at, &placed.bounds);
        placed.tile.width = transposedOrder ? cursor.outerCount() : cursor.innerCount();
        placed.tile.rows = transposedOrder ? cursor.innerCount() : cursor.outerCount();
        return placed;
    };
    while (!cursor.isDone()) {
        const PlacedTile<Position> placed = placedTile();
        cursor.advance();
        TileAhead ahead;
        if constexpr (isFixed)
            if (walk.prefetches && !cursor.isDone())
                ahead = aheadOf(walk, placedTile());
        resampleTile(walk, placed, ahead);
    }
    return status;
}

} // namespace

int32_t walkTiles8(const Sampling &sampling, int32_t tileSize, const TileKernels<uint8_t, int32_t> &kernels)
{
    return walkTiles(sampling, tileSize, kernels,
                     [&](const SamplingGrid &grid) { return fixedMotion(grid, sampling.params, tileSize); });
}

int32_t walkTiles16(const Sampling &sampling, int32_t tileSize, const TileKernels<uint16_t, int32_t> &kernels)
{
    return walkTiles(sampling, tileSize, kernels,
                     [&](const SamplingGrid &grid) { return fixedMotion(grid, sampling.params, tileSize); });
}

int32_t walkTilesBilinearFast8(const Sampling &sampling, int32_t tileSize, const TileKernels<uint8_t, int32_t> &kernels)
{
    return walkTiles(sampling, tileSize, kernels,
                     [tileSize](const SamplingGrid &grid) { return fastMotion(grid, tileSize); });
}

int32_t walkTilesRebased8(const Sampling &sampling, int32_t tileSize, const TileKernels<uint8_t, int32_t> &kernels)
{
    return walkTiles(sampling, tileSize, kernels,
                     [tileSize](const SamplingGrid &grid) { return RebasedMotion(grid, tileSize); });
}

int32_t walkTilesDouble8(const Sampling &sampling, int32_t tileSize, const TileKernels<uint8_t, double> &kernels)
{
    return walkTiles(sampling, tileSize, kernels,
                     [tileSize](const SamplingGrid &grid) { return DoubleMotion(grid, tileSize); });
}

} // namespace kip
