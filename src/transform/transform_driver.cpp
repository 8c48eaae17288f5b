#include "transform/transform_driver.h"

#include <type_traits>

#include "cache/sample_cache.h"
#include "support/optimized_path.h"
#include "transform/band_jobs.h"
#include "transform/job_queue.h"
#include "transform/resample.h"
#include "transform/route.h"
#include "transform/split_jobs.h"

namespace kip {

namespace {

// The route that the bands will take. The 16-bit one is the same with the optimised kernels and without, so nobody is
// asked about them here.
template <typename Pixel>
int32_t findRouteOfBands(const Sampling &sampling, Route *route)
{
    const bool isInhibited = std::is_same_v<Pixel, uint8_t> && kprt_isOptimizationInhibited(kInhibitName<Pixel>) != 0;
    return findRouteTaken<Pixel>(isInhibited, sampling, route);
}

// The work of a route without a plan: a 32-bit product, which may wrap. An enormous destination then stays on the
// calling thread.
bool isWorthBands(const Sampling &sampling, const Route &route)
{
    const auto samples = static_cast<int32_t>(static_cast<uint32_t>(sampling.destination.width) *
                                              static_cast<uint32_t>(sampling.destination.height));
    return isWorthJobs(sampling, route, samples);
}

template <typename Pixel>
int32_t process(const Sampling &sampling)
{
    return withThreadGroup([&](ksys_jobThreadGroup *group, const ksys_jobThreadState &state) {
        constexpr const wchar_t *name = kInhibitName<Pixel>;
        if (state.threadCount > 1) {
            Route route;
            const int32_t status = findRouteOfBands<Pixel>(sampling, &route);
            if (status < 0)
                return status;
            if (route.walker != Walker::plan && isWorthBands(sampling, route))
                return runBands<Pixel>(sampling, route.tileSize, group);
            if (route.walker == Walker::plan && state.splitsAll != 0 && isWorthSplit(sampling, route))
                return runSplit<Pixel>(sampling, isInhibited(name), route, group, state.threadCount);
        }
        return resample<Pixel>(isInhibited(name), sampling);
    });
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
