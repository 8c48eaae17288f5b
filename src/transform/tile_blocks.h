#ifndef KIP_TRANSFORM_TILE_BLOCKS_H
#define KIP_TRANSFORM_TILE_BLOCKS_H

// How a tile is cut into small blocks of destination pixels, all of whose source pixels fit a box that a few
// vector registers hold.

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "transform/tile_kernels.h"

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

// Calls put for every block of a tile of at least one block, along the side that leaves the source's rows
// less: a row's bytes are then used up while they are in the nearest cache.
template <int32_t kWidth, int32_t kRows, typename Put>
void walkPlaces(const FixedTile &tile, const Put &put)
{
    // One loop for both orders, so that put has one caller and becomes part of it.
    const bool downFirst = std::abs(int64_t{tile.colStepY}) > std::abs(int64_t{tile.rowStepY});
    const int32_t outerEnd = downFirst ? tile.width : tile.rows;
    const int32_t innerEnd = downFirst ? tile.rows : tile.width;
    const int32_t outerStep = downFirst ? kWidth : kRows;
    const int32_t innerStep = downFirst ? kRows : kWidth;
    for (int32_t outer = 0; outer < outerEnd; outer += outerStep) {
        for (int32_t inner = 0; inner < innerEnd; inner += innerStep) {
            const int32_t column = downFirst ? outer : inner;
            const int32_t row = downFirst ? inner : outer;
            const int32_t lastColumn = std::min(column, tile.width - kWidth);
            const int32_t lastRow = std::min(row, tile.rows - kRows);
            put(BlockPlace{lastColumn, lastRow, column - lastColumn, row - lastRow});
        }
    }
}

} // namespace kip

#endif
