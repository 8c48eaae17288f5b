#include "transform/resample.h"

#include <type_traits>

#include "support/optimized_path.h"
#include "support/processor_features.h"
#include "transform/plan/plan_tiles.h"
#include "transform/route.h"
#include "transform/tiles/tile_kernel_choice.h"
#include "transform/tiles/tile_walkers.h"

namespace kip {

namespace {

constexpr uint32_t kNoFeatures = 0;

int32_t selectWalker8(const Sampling &sampling, const Route &route, uint32_t features)
{
    const auto kernels = accurateTileKernels8(features, sampling.accumulate, sampling.params.mode);
    switch (route.walker) {
    case Walker::inDoubles:
        return walkTilesDouble8(sampling, route.tileSize,
                                doubleTileKernels8(sampling.accumulate, sampling.params.mode));
    case Walker::rebased:
        return walkTilesRebased8(sampling, route.tileSize, kernels);
    default:
        return walkTiles8(sampling, route.tileSize, kernels);
    }
}

int32_t selectFastWalker8(const Sampling &sampling, const Route &route, uint32_t features)
{
    const auto kernels = fastTileKernels8(features, sampling.accumulate, sampling.params.mode);
    return route.walker == Walker::fast ? walkTilesBilinearFast8(sampling, route.tileSize, kernels)
                                        : walkTiles8(sampling, route.tileSize, kernels);
}

// Both 16-bit paths, which differ in no value.
int32_t resample16(Path path, uint32_t features, const Sampling &sampling)
{
    Route route;
    const int32_t status = findRoute<uint16_t>(path, sampling, &route);
    if (status < 0)
        return status;
    if (route.walker == Walker::plan)
        return processPlanTiles16(sampling, features);
    return walkTiles16(sampling, route.tileSize, tileKernels16(features, sampling.accumulate, sampling.params.mode));
}

} // namespace

int32_t resamplePortable8(const Sampling &sampling, uint32_t features)
{
    Route route;
    const int32_t status = findRoute<uint8_t>(Path::portable, sampling, &route);
    if (status < 0)
        return status;
    return route.walker == Walker::plan ? processPlanTiles8(sampling) : selectWalker8(sampling, route, features);
}

int32_t resamplePortable16(const Sampling &sampling, uint32_t features)
{
    return resample16(Path::portable, features, sampling);
}

int32_t resampleFast8(const Sampling &sampling, uint32_t features)
{
    Route route;
    const int32_t status = findRoute<uint8_t>(Path::optimised, sampling, &route);
    if (status < 0)
        return status;
    return route.walker == Walker::plan ? processTilePlanPacked8(sampling, features)
                                        : selectFastWalker8(sampling, route, features);
}

int32_t resampleFast16(const Sampling &sampling, uint32_t features)
{
    return resample16(Path::optimised, features, sampling);
}

template <typename Pixel>
int32_t resample(bool isInhibited, const Sampling &sampling)
{
    constexpr bool is8 = std::is_same_v<Pixel, uint8_t>;
    constexpr ResamplePath *optimised = is8 ? resampleFast8 : resampleFast16;
    constexpr ResamplePath *portable = is8 ? resamplePortable8 : resamplePortable16;
    if (isInhibited)
        return portable(sampling, kNoFeatures);
    const uint32_t features = processorFeatures();
    const int32_t status = optimised(sampling, features);
    return isDeclined(status) ? portable(sampling, features) : status;
}

template int32_t resample<uint8_t>(bool isInhibited, const Sampling &sampling);
template int32_t resample<uint16_t>(bool isInhibited, const Sampling &sampling);

} // namespace kip
