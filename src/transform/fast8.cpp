#include "support/fixed_point.h"
#include "support/processor_features.h"
#include "transform/plan/plan_tiles.h"
#include "transform/resample.h"
#include "transform/tiles/tile_kernel_choice.h"
#include "transform/tiles/tile_size.h"
#include "transform/tiles/tile_walkers.h"

namespace kip {

bool isServedByFast8(const kimg_windowConst &source)
{
    return source.pitch <= kFixedMaxExtent && source.height <= kFixedMaxExtent;
}

int32_t resampleFast8(uint32_t accumulate, const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                      const kimg_window &destination, const kip_affineSampleParams &params,
                      kip_affineSampleCache &cache)
{
    if (!isServedByFast8(source))
        return kip_statusOptimizationDeclined;
    if (params.mode > kip_affineModeBicubic)
        return kip_statusUnknownMode;
    if (params.mode >= kip_affineModeBilinearSeparable)
        return processTilePlanPacked8(accumulate, params, cache.plan8, source, destination.pixels);

    const auto kernels = fastTileKernels8(processorFeatures(), accumulate, params.mode);
    const int32_t tileSize = tileSizeForPitch(source.pitch);
    if (params.mode == kip_affineModeNearest)
        return walkTiles8(accumulate, source, srcFromClient, destination, params, tileSize, kernels);
    return walkTilesBilinearFast8(accumulate, source, srcFromClient, destination, params, tileSize, kernels);
}

} // namespace kip
