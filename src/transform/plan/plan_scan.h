#ifndef KIP_TRANSFORM_PLAN_PLAN_SCAN_H
#define KIP_TRANSFORM_PLAN_PLAN_SCAN_H

// The geometry of a plan's scan: the source along the scan, and where the tiles and their rows begin.

#include <algorithm>
#include <cstdint>

#include <kip/kip.h>

#include "cache/tile_plan.h"
#include "transform/plan/plan_kernel_choice.h"

namespace kip {

// ---- The call ---------------------------------------------------------------------------------------------------

// The source, seen along the scan: which coordinate is primary, how far it reaches, what memory it may be read from.
template <typename Pixel>
struct ScanSource {
    const Pixel *first;
    int64_t pitch;
    bool transposed;
    int64_t width, height;
    int64_t lowest, highest; // offsets of the memory between the first and the last pixel

    int64_t primarySize() const { return transposed ? height : width; }
    int64_t secondarySize() const { return transposed ? width : height; }
    int64_t offset(int64_t primary, int64_t secondary) const
    {
        return transposed ? primary * pitch + secondary : secondary * pitch + primary;
    }
    bool contains(int64_t at) const { return at >= lowest && at <= highest; }

    // The pixel at a place that may lie outside. What is inside the source's memory is read there, as the scan
    // without tests does; anything else is taken from the nearest pixel.
    Pixel pixel(int64_t primary, int64_t secondary) const
    {
        const int64_t at = offset(primary, secondary);
        if (contains(at))
            return first[at];
        return first[offset(std::clamp<int64_t>(primary, 0, primarySize() - 1),
                            std::clamp<int64_t>(secondary, 0, secondarySize() - 1))];
    }
};

template <typename Pixel>
ScanSource<Pixel> scanSourceOf(const kimg_windowConst &source, const kip_affineTilePlan &plan)
{
    // In a bottom-up image the last pixel lies before the first.
    const int64_t lastRow = (int64_t{source.height} - 1) * source.pitch;
    return {static_cast<const Pixel *>(source.pixels),
            source.pitch,
            plan.transposed != 0,
            source.width,
            source.height,
            std::min<int64_t>(0, lastRow),
            std::max<int64_t>(0, lastRow) + source.width - 1};
}

// Everything that the tiles of one call share.
template <typename Rule>
struct Scan {
    using Pixel = typename Rule::Pixel;
    using Entry = typename Rule::Entry;

    const kip_affineTilePlan &plan;
    ScanSource<Pixel> source;
    PlanKernels<Rule> kernels;
    const int16_t *weights; // of the cubic table
    uint8_t *scratch;       // of the plan's size, its own or a job's: the line, and a strip
    Entry *line;            // a row's samples
    bool touchesTiles;      // each tile's footprint is read before its rows are

    static constexpr int32_t kFirstSample = Rule::kCubic ? -1 : 0;
    // Where sample r is kept.
    Entry *entry(int32_t r) const { return line + (r - kFirstSample); }
};

// ---- Tiles --------------------------------------------------------------------------------------------------------

struct Position {
    uint32_t x, y;

    void move(int32_t dx, int32_t dy)
    {
        x += static_cast<uint32_t>(dx);
        y += static_cast<uint32_t>(dy);
    }
};

// Where the first tile of a row of them begins: what the walk reaches by adding the steps, which wrap.
inline Position rowOfTilesStart(const kip_affineTilePlan &plan, int32_t row)
{
    const auto count = static_cast<uint32_t>(row);
    return {static_cast<uint32_t>(plan.startX) + count * static_cast<uint32_t>(plan.tileRowStepX),
            static_cast<uint32_t>(plan.startY) + count * static_cast<uint32_t>(plan.tileRowStepY)};
}

// Where a tile begins: the source pixel of its first sample, and the fractions from there.
struct TileStart {
    int64_t primary, secondary;
    uint32_t primaryFraction;
    uint32_t secondaryFraction;
};

// A backward scan starts one pixel further along, in step with its reversed fraction.
inline TileStart tileStartAt(const kip_affineTilePlan &plan, const Position &at, uint32_t primaryFraction,
                             uint32_t secondaryFraction)
{
    const int64_t x = fixedInteger(at.x);
    const int64_t y = fixedInteger(at.y);
    const int64_t reversal = plan.direction < 0 ? 1 : 0;
    return {(plan.transposed != 0 ? y : x) + reversal, (plan.transposed != 0 ? x : y) + fixedInteger(secondaryFraction),
            primaryFraction, fixedFraction(secondaryFraction)};
}

inline TileStart firstTileStart(const kip_affineTilePlan &plan)
{
    return tileStartAt(plan, {static_cast<uint32_t>(plan.startX), static_cast<uint32_t>(plan.startY)},
                       fixedFraction(plan.primaryFraction), static_cast<uint32_t>(plan.secondaryFraction));
}

inline TileStart laterTileStart(const kip_affineTilePlan &plan, const Position &at)
{
    const uint32_t along = fixedFraction(plan.transposed != 0 ? at.y : at.x);
    const uint32_t across = fixedFraction(plan.transposed != 0 ? at.x : at.y);
    const uint32_t primaryFraction = fixedFraction(static_cast<uint32_t>(plan.direction) * (along == 0 ? 1u : along));
    const auto shearHigh = static_cast<uint32_t>(plan.secondaryShear >> 16);
    const uint32_t shearLow = fixedFraction(static_cast<uint32_t>(plan.secondaryShear));
    return tileStartAt(plan, at, primaryFraction,
                       across - ((shearLow * primaryFraction) >> 16) - shearHigh * primaryFraction);
}

struct PlanTile {
    TileStart start;
    int32_t width, height; // destination pixels
    int32_t spanCount;     // of its class
};

inline PlanTile planTileOf(const kip_affineTilePlan &plan, const TileStart &start, int32_t tileClass)
{
    return {start, plan.tileWidth[tileClass], plan.tileHeight[tileClass], plan.spanCount[tileClass]};
}

template <typename Rule>
int32_t lastSampleOf(const PlanTile &tile)
{
    return tile.spanCount + (Rule::kCubic ? 1 : 0);
}

// Tells whether the taps of a row's pixels stay on the line of samples, whatever fraction the row starts at.
template <typename Rule>
bool isLineLongEnough(const kip_affineTilePlan &plan, const PlanTile &tile)
{
    const int64_t last = 0xFFFF + int64_t{plan.primaryStep} * (tile.width - 1);
    return plan.primaryStep >= 0 && last <= INT32_MAX && (last >> 16) + Rule::kTaps <= plan.lineEntries;
}

// ---- Rows ---------------------------------------------------------------------------------------------------------

// One destination row of a tile. Sample r lies at primary + direction * r, secondary + int(position + r * shear).
struct PlanRow {
    int64_t primary, secondary;
    uint32_t position;
    uint32_t outputPosition;
};

inline PlanRow planRowAt(const kip_affineTilePlan &plan, const TileStart &tile, int32_t j)
{
    const auto row = static_cast<uint32_t>(j);
    const uint32_t along = tile.primaryFraction + row * static_cast<uint32_t>(plan.primaryRowStep);
    const int32_t skipped = fixedInteger(along);
    const uint32_t across = tile.secondaryFraction + row * static_cast<uint32_t>(plan.secondaryRowStep) +
                            static_cast<uint32_t>(skipped) * static_cast<uint32_t>(plan.secondaryShear);
    return {tile.primary + int64_t{plan.direction} * skipped, tile.secondary, across, fixedFraction(along)};
}

} // namespace kip

#endif
