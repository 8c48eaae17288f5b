#include "projection/projection_driver.h"

#include <cstddef>
#include <cstring>

#include "cache/cubic_weight_table.h"
#include "cache/sample_cache.h"
#include "projection/window_sums.h"
#include "support/optimized_path.h"
#include "support/pixel_check.h"
#include "transform/job_queue.h"
#include "transform/resample.h"
#include "transform/route.h"
#include "transform/split_jobs.h"

namespace kip {

namespace {

// Shared by all calls, which may fill it side by side: ksys_cpuinfo_get writes each word atomically. Nobody reads it.
ksys_cpuinfo processor;

bool isModeUnsupported(const Sampling &sampling)
{
    return sampling.source.bytesPerPixel == 2 && sampling.params.mode > kip_affineModeBilinear;
}

void clearSums(const kimg_window &sums)
{
    std::memset(sums.pixels, 0, static_cast<size_t>(sums.width) * sizeof(uint32_t));
}

// Every sample is added to the sum of its column as it is made: there is no picture of the rectangle.
template <typename Pixel>
int32_t addSamples(const Sampling &sampling, bool isInhibited)
{
    return withThreadGroup([&](ksys_jobThreadGroup *group, const ksys_jobThreadState &state) {
        if (state.threadCount > 1 && state.splitsAll != 0) {
            Route route;
            const int32_t status = findRouteTaken<Pixel>(isInhibited, sampling, &route);
            if (status < 0)
                return status;
            if (isWorthSplit(sampling, route))
                return runSplit<Pixel>(sampling, isInhibited, route, group, state.threadCount);
        }
        clearSums(sampling.destination);
        return resample<Pixel>(isInhibited, sampling);
    });
}

int32_t sampleProjection8(const Sampling &sampling)
{
    return addSamples<uint8_t>(sampling, isInhibited(L"kip_affineProcess"));
}

// Here the hook is not asked.
int32_t sampleProjection16(const Sampling &sampling)
{
    return addSamples<uint16_t>(sampling, false);
}

// Tells what a resampling path would find only after the sums are cleared.
template <typename Pixel>
int32_t checkSampling(const Sampling &sampling)
{
    Route route;
    const int32_t status = findRoute<Pixel>(Path::portable, sampling, &route);
    return status < 0 || route.walker != Walker::plan ? status : ensureCubicWeightTable();
}

template <typename Pixel>
int32_t sampleProjection(const Sampling &sampling)
{
    const int32_t status = checkSampling<Pixel>(sampling);
    if (status < 0)
        return status;
    return (std::is_same_v<Pixel, uint8_t> ? sampleProjection8 : sampleProjection16)(sampling);
}

template <typename Pixel>
int32_t sumAligned(const Sampling &sampling)
{
    const kip_affine_imageAlignment alignCode = sampling.cache.alignCode;
    const kstd_rect32 &block = sampling.cache.alignSrcRect;
    kimg_windowConst window = sampling.source;
    const int32_t status = kimg_windowConst_window(&window, block.x, block.y, block.width, block.height, nullptr);
    if (status < 0)
        return status;
    // A block that the clipping test let pass by a last bit, or one of another shape, would leave sums unwritten.
    if (window.width != block.width || window.height != block.height ||
        (isColumnProjection(alignCode) ? block.width : block.height) != sampling.destination.width)
        return kip_statusWindowMismatch;
    constexpr auto sumWindow = std::is_same_v<Pixel, uint8_t> ? projectWindowOriented8 : projectWindowOriented16;
    return sumWindow(window, sampling.destination, alignCode);
}

template <typename Pixel>
int32_t project(const Sampling &sampling, kmath_xformLinear *placement, uint32_t *depth)
{
    int32_t status = checkProcessor();
    if (status < 0)
        return status;
    if (isModeUnsupported(sampling))
        return kip_statusProjectionModeUnsupported;
    status = checkProjectionPixels(sampling, sizeof(Pixel));
    if (status < 0)
        return status;
    constexpr int32_t oneRow = 1;
    status = kip_affineSampleCache_update(sampling, oneRow);
    if (status < 0)
        return status;
    status = sampling.cache.alignCode == kip_affine_alignNone ? sampleProjection<Pixel>(sampling)
                                                              : sumAligned<Pixel>(sampling);
    if (status < 0)
        return status;
    if (depth != nullptr)
        *depth = static_cast<uint32_t>(sampling.params.destHeight);
    *placement = sampling.cache.destImageFromClient;
    return status;
}

} // namespace

int32_t checkProcessor()
{
    return ksys_cpuinfo_get(&processor);
}

int32_t checkProjectionPixels(const Sampling &sampling, int32_t bytesPerPixel)
{
    const kimg_windowConst &source = sampling.source;
    if (source.width < 1 || source.height < 1)
        return 0;
    if (source.bytesPerPixel != bytesPerPixel)
        return isModeUnsupported(sampling) ? kip_statusProjectionModeUnsupported : kip_statusPixelDepth;
    if (source.pixels == nullptr)
        return kimg_statusNoPixels;
    return isMisaligned(source, bytesPerPixel) ? kip_statusMisaligned : 0;
}

int32_t projectAffine8(const Sampling &sampling, kmath_xformLinear *placement, uint32_t *depth)
{
    return project<uint8_t>(sampling, placement, depth);
}

int32_t projectAffine16(const Sampling &sampling, kmath_xformLinear *placement, uint32_t *depth)
{
    return project<uint16_t>(sampling, placement, depth);
}

} // namespace kip
