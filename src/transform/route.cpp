#include "transform/route.h"

#include <algorithm>
#include <cmath>

#include "cache/sample_cache.h"
#include "geometry/sampling_grid.h"
#include "support/fixed_point.h"
#include "support/optimized_path.h"
#include "transform/tiles/tile_size.h"

namespace kip {

namespace {

bool isAddressableInFixedPoint(const kimg_windowConst &source)
{
    return source.pitch <= kFixedMaxExtent && source.height <= kFixedMaxExtent;
}

// Finds whether the positions of a tile, counted from the source pixel of its first one, stay within 16.16 along one
// axis. The corners bound them. A side of a single sample takes no step, however long it is.
bool fitsFixedPoint(int32_t columns, double colStep, int32_t rows, double rowStep)
{
    constexpr double span = 32768.0;
    constexpr double margin = 2.0; // the start within its own pixel, the half-pixel shift and rounding
    const double alongRow = columns > 1 ? (columns - 1) * colStep : 0.0;
    const double alongColumn = rows > 1 ? (rows - 1) * rowStep : 0.0;
    return std::min(alongRow, 0.0) + std::min(alongColumn, 0.0) > margin - span &&
           std::max(alongRow, 0.0) + std::max(alongColumn, 0.0) < span - margin;
}

// For an 8-bit source beyond 16.16: tells whether the tiles are small enough to count from their own source pixels.
int32_t isWithinRebasedReach(const Sampling &sampling, int32_t tileSize, bool *isWithin)
{
    *isWithin = false;
    const kip_affineSampleParams &params = sampling.params;
    kmath_shapeAffineRectCenter center;
    int32_t status = kmath_shapeAffineRect_getCenter(&params.rect, &center);
    if (status < 0)
        return status;
    constexpr double span = 32768.0;
    if (tileSize * center.xSideLength / params.destWidth >= span ||
        tileSize * center.ySideLength / params.destHeight >= span)
        return status;

    // Side lengths are in client units. What a tile's positions have to hold is source pixels.
    SamplingGrid grid;
    status = computeSamplingGrid(sampling, &grid);
    if (status < 0)
        return status;
    const int32_t columns = std::min(tileSize, params.destWidth);
    const int32_t rows = std::min(tileSize, params.destHeight);
    *isWithin = fitsFixedPoint(columns, grid.colStep.x, rows, grid.rowStep.x) &&
                fitsFixedPoint(columns, grid.colStep.y, rows, grid.rowStep.y);
    return status;
}

} // namespace

template <typename Pixel>
int32_t findRoute(Path path, const Sampling &sampling, Route *route)
{
    constexpr bool is8 = sizeof(Pixel) == 1;
    const uint32_t mode = sampling.params.mode;
    const bool isAddressable = isAddressableInFixedPoint(sampling.source);
    if (!isAddressable && path == Path::optimised)
        return kip_statusOptimizationDeclined;
    if (mode > kip_affineModeBicubic)
        return kip_statusUnknownMode;

    if (mode >= kip_affineModeBilinearSeparable) {
        const kip_affineTilePlan &plan = is8 ? sampling.cache.plan8 : sampling.cache.plan16;
        *route = {Walker::plan, plan.tileHeight[0], kip_affineTilePlan_hasIndependentRows(plan)};
        // The clipping test has refused such a 16-bit source, and a plan can be walked all the same.
        return is8 && !isAddressable ? kip_statusSourceTooLarge : 0;
    }
    if constexpr (!is8) {
        *route = {Walker::fixed, tileSizeForPitch(sampling.source.pitch), true};
        return isAddressable ? 0 : kip_statusSourceTooLarge;
    } else if (path == Path::optimised) {
        *route = {mode == kip_affineModeNearest ? Walker::fixed : Walker::fast, tileSizeForPitch(sampling.source.pitch),
                  true};
        return 0;
    } else if (isAddressable) {
        *route = {Walker::fixed, kTileSizePortable8, true};
        return 0;
    } else {
        bool isWithin;
        const int32_t status = isWithinRebasedReach(sampling, kTileSizePortable8, &isWithin);
        // The walk in doubles starts a band a last bit away from where the whole walk is by then.
        *route = {isWithin ? Walker::rebased : Walker::inDoubles, kTileSizePortable8, isWithin};
        return status;
    }
}

template <typename Pixel>
int32_t findRouteTaken(bool isInhibited, const Sampling &sampling, Route *route)
{
    const int32_t status =
        isInhibited ? kip_statusOptimizationDeclined : findRoute<Pixel>(Path::optimised, sampling, route);
    return isDeclined(status) ? findRoute<Pixel>(Path::portable, sampling, route) : status;
}

bool isWorthJobs(const Sampling &sampling, const Route &route, int64_t samples)
{
    constexpr int64_t leastNearest = 0x40000;
    constexpr int64_t leastOfOthers = 0x10000;
    const int64_t least = sampling.params.mode == kip_affineModeNearest ? leastNearest : leastOfOthers;
    return route.mayBeCut && sampling.rows() > int64_t{3} * route.tileSize / 2 && samples >= least;
}

template int32_t findRoute<uint8_t>(Path path, const Sampling &sampling, Route *route);
template int32_t findRoute<uint16_t>(Path path, const Sampling &sampling, Route *route);
template int32_t findRouteTaken<uint8_t>(bool isInhibited, const Sampling &sampling, Route *route);
template int32_t findRouteTaken<uint16_t>(bool isInhibited, const Sampling &sampling, Route *route);

} // namespace kip
