#ifndef KIP_TRANSFORM_PLAN_PLAN_ROW_GROUPS_H
#define KIP_TRANSFORM_PLAN_PLAN_ROW_GROUPS_H

#include <cstdint>
#include <cstdlib>

#include "cache/tile_plan.h"
#include "support/prefetch.h"

namespace kip {

// Rows of a tile, both passes of which run in one call; each row gives what sampleLinePortable and outputLinePortable
// give. Sample m of row j, counted from sample 0 of row 0, lies at position + j * positionRowStep + m * shear: a row's
// samples are a window into this grid, which moves along the primary axis by outputRowStep from row to row.
template <typename Pixel>
struct RowGroup {
    const Pixel *origin;               // where sample 0 of row 0 would lie at position 0
    int64_t majorStep, minorStep;      // pixels of a step along the primary and the secondary axis: one is 1 or -1
    int64_t leastLine, greatestLine;   // what the source holds along the secondary axis, counted from origin
    int32_t position, positionRowStep; // 16.16 across the primary axis, not wrapping
    int32_t shear;                     // the advance of a position per sample
    int32_t outputPosition;            // of row 0's first pixel on its line of samples: a fraction
    int32_t outputStep, outputRowStep;
    int32_t width, rows;
    const int16_t *weights; // of the cubic table
    void *dst;              // pixels to store, or uint32_t sums to add to
    int64_t rowAdvance;     // bytes from a row of these to the next
    const TileAhead &ahead;
    int32_t firstRow, tileRows; // the group's first row, of so many of its tile
};

// The size of a group whose steps are kGroupStep at most, and of its tile; greater steps make it smaller.
inline constexpr int32_t kGroupRows = 32;
inline constexpr int32_t kGroupWidth = kMaxTileSize;
// 1.875: the samples of 32 pixels, or the lines of 32 rows and their taps, then fit into 64.
inline constexpr int32_t kGroupStep = 0x1E000;
// 4.25, for kernels of coarse groups.
inline constexpr int32_t kCoarseGroupStep = 0x44000;

// Tells whether the rows of a tile of gentle shear may run in groups, whose steps are mostStep at most.
inline bool isGroupGeometry(int32_t positionRowStep, int32_t outputStep, int32_t outputRowStep, int32_t mostStep)
{
    const auto isWithin = [mostStep](int32_t step) { return step >= -mostStep && step <= mostStep; };
    return isWithin(positionRowStep) && outputStep >= 0 && outputStep <= mostStep && isWithin(outputRowStep);
}

// How many pixels, or rows, at this step reach no further than `most` at steps of kGroupStep.
inline int32_t countWithinReach(int32_t most, int32_t step)
{
    const int32_t distance = std::abs(step);
    return distance <= kGroupStep ? most : 1 + (most - 1) * kGroupStep / distance;
}

// All taps of so many samples of each row must lie inside the source: what its pixels may need, wherever on its first
// sample it starts.
template <typename Rule>
int32_t countGroupSamples(const RowGroup<typename Rule::Pixel> &group)
{
    return ((0xFFFF + group.outputStep * (group.width - 1)) >> 16) + Rule::kTaps;
}

} // namespace kip

#endif
