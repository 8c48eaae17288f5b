#ifndef KIP_TRANSFORM_PLAN_PLAN_FOOTPRINT_H
#define KIP_TRANSFORM_PLAN_PLAN_FOOTPRINT_H

// What of the source the rows of a tile read: whether all of it is there, and in which order it is read.

#include <algorithm>
#include <cstdint>

#include "transform/plan/plan_scan.h"

namespace kip {

// ---- What is read -------------------------------------------------------------------------------------------------

// Source pixels, counted along the scan's axes.
struct Footprint {
    int64_t primaryLeast, primaryGreatest;
    int64_t secondaryLeast, secondaryGreatest;
};

template <typename Pixel>
bool isInside(const ScanSource<Pixel> &source, const Footprint &footprint)
{
    return footprint.primaryLeast >= 0 && footprint.primaryGreatest < source.primarySize() &&
           footprint.secondaryLeast >= 0 && footprint.secondaryGreatest < source.secondarySize();
}

// The taps of samples from first to last, which start at a pixel of the source and lie at these 16.16 positions from
// its row or column.
template <typename Rule>
Footprint footprintOf(const kip_affineTilePlan &plan, int64_t primary, int64_t secondary, int64_t first, int64_t last,
                      int64_t leastPosition, int64_t greatestPosition)
{
    const auto [nearEnd, farEnd] = std::minmax({primary + plan.direction * first, primary + plan.direction * last});
    return {nearEnd, farEnd, secondary + (leastPosition >> 16) + Rule::kFirstTap,
            secondary + (greatestPosition >> 16) + Rule::kFirstTap + Rule::kTaps - 1};
}

// Tells whether all taps of a row's samples lie inside the source. Along a row both coordinates are monotone, so
// the first and the last sample decide, provided that the position does not wrap.
template <typename Rule>
bool isRowInside(const Scan<Rule> &scan, const PlanTile &tile, const PlanRow &row)
{
    const int64_t shear = scan.plan.secondaryShear;
    const int64_t first = scan.kFirstSample;
    const int64_t last = lastSampleOf<Rule>(tile);
    const int64_t position = static_cast<int32_t>(row.position);
    const auto [least, greatest] = std::minmax({position + first * shear, position + last * shear});
    if (least < INT32_MIN || greatest > INT32_MAX)
        return false;
    return isInside(scan.source,
                    footprintOf<Rule>(scan.plan, row.primary, row.secondary, first, last, least, greatest));
}

// Finds what all rows of a tile read. Returns false if not all taps lie inside the source, or a position would wrap.
// The row's own advance is linear in the row, and a sample's secondary position in both its row and its place along
// the primary axis: the corners bound them.
template <typename Rule>
bool findFootprint(const Scan<Rule> &scan, const PlanTile &tile, Footprint *footprint)
{
    const kip_affineTilePlan &plan = scan.plan;
    const int64_t lastRow = tile.height - 1;
    const auto [alongLeast, alongGreatest] =
        std::minmax({int64_t{tile.start.primaryFraction}, tile.start.primaryFraction + lastRow * plan.primaryRowStep});
    if (lastRow < 0 || alongLeast < INT32_MIN || alongGreatest > INT32_MAX)
        return false;
    const int64_t first = (alongLeast >> 16) + scan.kFirstSample;
    const int64_t last = (alongGreatest >> 16) + lastSampleOf<Rule>(tile);

    const int64_t shear = plan.secondaryShear;
    const auto [shearLeast, shearGreatest] = std::minmax({first * shear, last * shear});
    const auto [rowLeast, rowGreatest] = std::minmax({int64_t{0}, lastRow * plan.secondaryRowStep});
    const int64_t least = tile.start.secondaryFraction + shearLeast + rowLeast;
    const int64_t greatest = tile.start.secondaryFraction + shearGreatest + rowGreatest;
    if (least < INT32_MIN || greatest > INT32_MAX)
        return false;
    *footprint = footprintOf<Rule>(plan, tile.start.primary, tile.start.secondary, first, last, least, greatest);
    return isInside(scan.source, *footprint);
}

// Reads a byte of every 64 of a footprint inside the source, in the order of memory: processors see such loads coming
// and fetch ahead of them. Rows that cross the source's wait for the memory line by line. Measured: prefetch
// instructions in this place gain nothing, and the next tile's footprint, a little in every row, gains less.
template <typename Rule>
void touchFootprint(const Scan<Rule> &scan, const Footprint &footprint)
{
    using Pixel = typename Rule::Pixel;
    constexpr int64_t step = 64 / sizeof(Pixel);
    const ScanSource<Pixel> &source = scan.source;
    const bool transposed = source.transposed;
    const int64_t left = transposed ? footprint.secondaryLeast : footprint.primaryLeast;
    const int64_t right = transposed ? footprint.secondaryGreatest : footprint.primaryGreatest;
    const int64_t top = transposed ? footprint.primaryLeast : footprint.secondaryLeast;
    const int64_t bottom = transposed ? footprint.primaryGreatest : footprint.secondaryGreatest;
    for (int64_t y = top; y <= bottom; ++y)
        for (int64_t x = left; x <= right; x += step)
            static_cast<void>(*static_cast<const volatile Pixel *>(source.first + (y * source.pitch + x)));
}

// ---- From where it is read ----------------------------------------------------------------------------------------

// Pixels in the order of a scan: the source itself, or a strip. origin is the pixel at (primary, secondary); the steps
// count pixels per step of the scan.
template <typename Pixel>
struct SampleView {
    const Pixel *origin;
    int64_t primary, secondary;
    int64_t majorStep, minorStep;
};

template <typename Rule>
SampleView<typename Rule::Pixel> sourceView(const Scan<Rule> &scan)
{
    return {scan.source.first, 0, 0, scan.plan.direction * scan.source.offset(1, 0), scan.source.offset(0, 1)};
}

// Copies a footprint into the scan's order if the kernels ask for it and it fits; the view of the source otherwise.
template <typename Rule>
SampleView<typename Rule::Pixel> viewOf(const Scan<Rule> &scan, const Footprint &footprint)
{
    using Pixel = typename Rule::Pixel;
    const SampleView<Pixel> direct = sourceView(scan);
    if (scan.kernels.copyStrip == nullptr || direct.majorStep == 1)
        return direct;
    const int64_t primary = footprint.primaryGreatest - footprint.primaryLeast + 1;
    const int64_t secondary = footprint.secondaryGreatest - footprint.secondaryLeast + 1;
    const int64_t pitch = (primary + 63) / 64 * 64;
    if (pitch * secondary > scan.plan.stripPixels)
        return direct;

    auto *const strip = reinterpret_cast<Pixel *>(scan.scratch + scan.plan.stripOffset);
    const int64_t start = scan.plan.direction > 0 ? footprint.primaryLeast : footprint.primaryGreatest;
    scan.kernels.copyStrip({direct.origin + scan.source.offset(start, footprint.secondaryLeast), direct.majorStep,
                            direct.minorStep, static_cast<int32_t>(primary), static_cast<int32_t>(secondary), strip,
                            pitch});
    return {strip, start, footprint.secondaryLeast, 1, pitch};
}

} // namespace kip

#endif
