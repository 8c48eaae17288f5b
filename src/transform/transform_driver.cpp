#include "transform/transform_driver.h"

#include <type_traits>

#include "cache/sample_cache.h"
#include "support/cleanup_list.h"
#include "support/optimized_path.h"
#include "transform/band_jobs.h"
#include "transform/resample.h"
#include "transform/route.h"

namespace kip {

namespace {

// Least work, in destination pixels, that is worth a dispatch.
constexpr int32_t kMinJobPixelsNearest = 0x40000;
constexpr int32_t kMinJobPixelsBilinear = 0x10000;

// The route that the bands will take. The 16-bit one is the same with the optimised kernels and without, so nobody is
// asked about them here.
template <typename Pixel>
int32_t findRouteOfBands(const Sampling &sampling, Route *route)
{
    const bool isInhibited = std::is_same_v<Pixel, uint8_t> && kprt_isOptimizationInhibited(kInhibitName<Pixel>) != 0;
    return findRouteTaken<Pixel>(isInhibited, sampling, route);
}

bool isWorthJobs(const Sampling &sampling, const Route &route)
{
    if (!route.mayBeCut || sampling.destination.height <= 3 * route.tileSize / 2)
        return false;
    // A 32-bit product, which may wrap: an enormous destination then stays on the calling thread.
    const auto pixels = static_cast<int32_t>(static_cast<uint32_t>(sampling.destination.width) *
                                             static_cast<uint32_t>(sampling.destination.height));
    return pixels >= (sampling.params.mode == kip_affineModeNearest ? kMinJobPixelsNearest : kMinJobPixelsBilinear);
}

template <typename Pixel>
int32_t processWithGroup(const Sampling &sampling, ksys_jobThreadGroup *group)
{
    ksys_jobThreadState state;
    int32_t status = ksys_jobGetCurrentThreadState(&state, group);
    if (status < 0)
        return status;
    if (state.threadCount > 1) {
        Route route;
        status = findRouteOfBands<Pixel>(sampling, &route);
        if (status < 0)
            return status;
        if (isWorthJobs(sampling, route))
            return runBands<Pixel>(sampling, route.tileSize, group);
    }
    return resample<Pixel>(isInhibited(kInhibitName<Pixel>), sampling);
}

template <typename Pixel>
int32_t process(const Sampling &sampling)
{
    CleanupList cleanup;
    ksys_jobThreadGroup group;
    int32_t status = ksys_jobThreadGroup_construct(&group);
    if (status < 0)
        return status;
    addCleanup<ksys_jobThreadGroup_destruct>(cleanup, &group);
    status = processWithGroup<Pixel>(sampling, &group);
    return runCleanup(cleanup, status);
}

template <typename Pixel>
int32_t copyAligned(const Sampling &sampling)
{
    const kstd_rect32 &block = sampling.cache.alignSrcRect;
    kimg_windowConst window = sampling.source;
    const int32_t status = kimg_windowConst_window(&window, block.x, block.y, block.width, block.height, nullptr);
    if (status < 0)
        return status;
    if (window.width != block.width || window.height != block.height)
        return kip_statusWindowMismatch;
    constexpr auto transformAligned =
        std::is_same_v<Pixel, uint8_t> ? kip_affineTransformAligned : kip_affineTransformAligned16;
    return transformAligned(&window, &sampling.destination, sampling.cache.alignCode);
}

template <typename Pixel>
int32_t transformWindow(const Sampling &sampling)
{
    const int32_t status = kip_affineSampleCache_update(sampling, 0);
    if (status < 0)
        return status;
    return sampling.cache.alignCode == kip_affine_alignNone ? process<Pixel>(sampling) : copyAligned<Pixel>(sampling);
}

} // namespace

int32_t kip_affineTransformWindow8(const Sampling &sampling)
{
    return transformWindow<uint8_t>(sampling);
}

int32_t kip_affineTransformWindow16(const Sampling &sampling)
{
    return transformWindow<uint16_t>(sampling);
}

} // namespace kip
