#include "transform/resample.h"

#include <algorithm>
#include <cmath>

#include "geometry/sampling_grid.h"
#include "support/fixed_point.h"
#include "support/processor_features.h"
#include "transform/plan/plan_tiles.h"
#include "transform/tiles/tile_kernel_choice.h"
#include "transform/tiles/tile_kernels.h"
#include "transform/tiles/tile_size.h"
#include "transform/tiles/tile_walkers.h"

namespace kip {

namespace {

constexpr double kFixedSpan = 32768.0; // source pixels that a tile's 16.16 positions reach

bool isAddressableInFixedPoint(const kimg_windowConst &source)
{
    return source.pitch <= kFixedMaxExtent && source.height <= kFixedMaxExtent;
}

// Source pixels that the positions of a tile spread over along one axis. A side of a single sample takes no
// step, however long it is.
double tileSpread(int32_t columns, double colStep, int32_t rows, double rowStep)
{
    double spread = 0.0;
    if (columns > 1)
        spread += (columns - 1) * std::fabs(colStep);
    if (rows > 1)
        spread += (rows - 1) * std::fabs(rowStep);
    return spread;
}

int32_t selectWalker8(uint32_t accumulate, const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                      const kimg_window &destination, const kip_affineSampleParams &params, int32_t tileSize)
{
    Walker8 walker;
    const int32_t status = chooseWalker8(source, srcFromClient, params, tileSize, &walker);
    if (status < 0)
        return status;
    switch (walker) {
    case Walker8::inDoubles:
        return walkTilesDouble8(accumulate, source, srcFromClient, destination, params, tileSize,
                                doubleTileKernels8(accumulate, params.mode));
    case Walker8::rebased:
        return walkTilesRebased8(accumulate, source, srcFromClient, destination, params, tileSize,
                                 fixedTileKernels8(accumulate, params.mode));
    default:
        return walkTiles8(accumulate, source, srcFromClient, destination, params, tileSize,
                          fixedTileKernels8(accumulate, params.mode));
    }
}

} // namespace

int32_t chooseWalker8(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                      const kip_affineSampleParams &params, int32_t tileSize, Walker8 *walker)
{
    *walker = Walker8::fixed;
    if (isAddressableInFixedPoint(source))
        return 0;

    *walker = Walker8::inDoubles;
    kmath_shapeAffineRectCenter center;
    int32_t status = kmath_shapeAffineRect_getCenter(&params.rect, &center);
    if (status < 0)
        return status;
    if (tileSize * center.xSideLength / params.destWidth >= kFixedSpan ||
        tileSize * center.ySideLength / params.destHeight >= kFixedSpan)
        return status;

    // Side lengths are in client units. What a tile's positions have to hold is source pixels, and a sheared
    // tile spreads over the sum of both its sides.
    SamplingGrid grid;
    status = computeSamplingGrid(params, source, srcFromClient, &grid);
    if (status < 0)
        return status;
    const int32_t columns = std::min(tileSize, params.destWidth);
    const int32_t rows = std::min(tileSize, params.destHeight);
    constexpr double margin = 2.0; // the start within its own pixel, the half-pixel shift and rounding
    if (tileSpread(columns, grid.colStep.x, rows, grid.rowStep.x) < kFixedSpan - margin &&
        tileSpread(columns, grid.colStep.y, rows, grid.rowStep.y) < kFixedSpan - margin)
        *walker = Walker8::rebased;
    return status;
}

int32_t resamplePortable8(uint32_t accumulate, const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                          const kimg_window &destination, const kip_affineSampleParams &params,
                          kip_affineSampleCache &cache)
{
    if (params.mode > kip_affineModeBicubic)
        return kip_statusUnknownMode;
    if (params.mode <= kip_affineModeBilinear)
        return selectWalker8(accumulate, source, srcFromClient, destination, params, kTileSizePortable8);
    if (!isAddressableInFixedPoint(source))
        return kip_statusSourceTooLarge;
    return processPlanTiles8(accumulate, params, cache.plan8, source, destination.pixels);
}

int32_t resamplePortable16(uint32_t accumulate, const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                           const kimg_window &destination, const kip_affineSampleParams &params,
                           kip_affineSampleCache &cache)
{
    if (params.mode > kip_affineModeBicubic)
        return kip_statusUnknownMode;
    if (params.mode >= kip_affineModeBilinearSeparable)
        return processPlanTiles16(accumulate, params, cache.plan16, source, destination.pixels);
    if (!isAddressableInFixedPoint(source))
        return kip_statusSourceTooLarge;
    return walkTiles16(accumulate, source, srcFromClient, destination, params, tileSizeForPitch(source.pitch),
                       tileKernels16(processorFeatures(), accumulate, params.mode));
}

} // namespace kip
