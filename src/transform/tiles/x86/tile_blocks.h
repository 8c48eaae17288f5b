#ifndef KIP_TRANSFORM_TILES_X86_TILE_BLOCKS_H
#define KIP_TRANSFORM_TILES_X86_TILE_BLOCKS_H

// How a tile is cut into small blocks of destination pixels, all of whose source pixels fit a box that a few
// vector registers hold.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "transform/tiles/tile_kernels.h"

namespace kip {

// One axis of a tile's positions, less the interpolation's shift, and of its blocks.
struct BlockAxis {
    uint32_t start; // least position of the block that begins at the tile's first pixel
    int64_t least;  // that position less the first pixel's: nothing or negative
    int32_t extent; // source pixels of a block's box, for every fraction of its least position
    int32_t first;  // source pixels first to last: what the whole tile may read
    int32_t last;
    int32_t colStep, rowStep;

    // Least position of the block that begins at a pixel of the tile.
    uint32_t positionOf(int32_t column, int32_t row) const
    {
        return start + static_cast<uint32_t>(column) * static_cast<uint32_t>(colStep) +
               static_cast<uint32_t>(row) * static_cast<uint32_t>(rowStep);
    }
};

// Returns whether no position of the tile wraps: only then are its pixels those between its corners.
inline bool measureBlockAxis(int32_t position, int32_t colStep, int32_t rowStep, const FixedTile &tile, int32_t width,
                             int32_t rows, int32_t shift, int32_t reach, BlockAxis *axis)
{
    const auto least = [=](int64_t columnCount, int64_t rowCount) {
        return std::min<int64_t>((columnCount - 1) * colStep, 0) + std::min<int64_t>((rowCount - 1) * rowStep, 0);
    };
    const auto span = [=](int64_t columnCount, int64_t rowCount) {
        return (columnCount - 1) * std::abs(int64_t{colStep}) + (rowCount - 1) * std::abs(int64_t{rowStep});
    };
    const int64_t first = int64_t{position} - shift + least(tile.width, tile.rows);
    const int64_t last = first + span(tile.width, tile.rows);
    if (first < INT32_MIN || last > INT32_MAX)
        return false;

    axis->least = least(width, rows);
    axis->start = static_cast<uint32_t>(position) - static_cast<uint32_t>(shift) + static_cast<uint32_t>(axis->least);
    axis->extent = static_cast<int32_t>((span(width, rows) + 0xFFFF) >> 16) + 1 + reach;
    axis->first = static_cast<int32_t>(first >> 16);
    axis->last = static_cast<int32_t>(last >> 16) + reach;
    axis->colStep = colStep;
    axis->rowStep = rowStep;
    return true;
}

// A block of a tile. The last one of a row or column of blocks overlaps the one before it.
struct BlockPlace {
    int32_t column, row; // first pixel, from the tile's
    int32_t overlapColumns, overlapRows;
};

// Tells whether rows of the destination leave the source's rows more than columns do.
inline bool leadsDown(const FixedTile &tile)
{
    return std::abs(int64_t{tile.colStepY}) > std::abs(int64_t{tile.rowStepY});
}

// At row pitches of whole 512 bytes the lines of many rows share a few sets of the first-level cache and evict each
// other.
template <typename Pixel>
bool evictLines(int32_t pitch)
{
    return pitch * int64_t{sizeof(Pixel)} % 512 == 0;
}

// The order in which the blocks of a tile of at least one block follow each other, along its columns or its rows.
struct BlockOrder {
    int32_t outerEnd, outerStep; // both sides in destination pixels
    int32_t innerEnd, innerStep;
    int32_t lastColumn, lastRow;
    bool downFirst;

    BlockOrder(const FixedTile &tile, int32_t blockWidth, int32_t blockRows, bool alongColumns)
        : outerEnd(tile.rows), outerStep(blockRows), innerEnd(tile.width), innerStep(blockWidth),
          lastColumn(tile.width - blockWidth), lastRow(tile.rows - blockRows), downFirst(alongColumns)
    {
        if (downFirst) {
            std::swap(outerEnd, innerEnd);
            std::swap(outerStep, innerStep);
        }
    }
    BlockPlace place(int32_t outer, int32_t inner) const
    {
        const int32_t column = downFirst ? outer : inner;
        const int32_t row = downFirst ? inner : outer;
        const int32_t firstColumn = std::min(column, lastColumn);
        const int32_t firstRow = std::min(row, lastRow);
        return {firstColumn, firstRow, column - firstColumn, row - firstRow};
    }
};

} // namespace kip

#endif
