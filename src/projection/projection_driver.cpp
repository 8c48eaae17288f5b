#include "projection/projection_driver.h"

#include <cstddef>
#include <cstring>

#include "cache/cubic_weight_table.h"
#include "projection/window_sums.h"
#include "support/fixed_point.h"
#include "support/optimized_path.h"
#include "support/pixel_check.h"
#include "transform/resample.h"

namespace kip {

namespace {

// Only the status of filling it counts. Any number of threads may do so at once.
ksys_cpuinfo processor;

void clearSums(const kimg_window &sums)
{
    std::memset(sums.pixels, 0, static_cast<size_t>(sums.width) * sizeof(uint32_t));
}

// Tells what a resampling path would find only after the sums are cleared.
int32_t checkSampling(const kimg_windowConst &source, uint32_t mode)
{
    const bool isTableDriven = mode >= kip_affineModeBilinearSeparable;
    const bool needsFixedPoint = isTableDriven || source.bytesPerPixel == 2;
    if (needsFixedPoint && (source.pitch > kFixedMaxExtent || source.height > kFixedMaxExtent))
        return kip_statusSourceTooLarge;
    return isTableDriven ? ensureCubicWeightTable() : 0;
}

// Every sample is added to the sum of its column as it is made: there is no picture of the rectangle.
int32_t sampleProjection8(const Sampling &sampling)
{
    clearSums(sampling.destination);
    return resample<uint8_t>(isInhibited(L"kip_affineProcess"), sampling);
}

// Here the hook is not asked.
int32_t sampleProjection16(const Sampling &sampling)
{
    clearSums(sampling.destination);
    return resample<uint16_t>(false, sampling);
}

// What differs between the two depths.
struct Depth {
    int32_t bytesPerPixel;
    int32_t (*sample)(const Sampling &sampling);
    int32_t (*sumAligned)(const kimg_windowConst &source, const kimg_window &sums, kip_affine_imageAlignment alignCode);
};

constexpr Depth kDepth8 = {1, sampleProjection8, projectWindowOriented8};
constexpr Depth kDepth16 = {2, sampleProjection16, projectWindowOriented16};

int32_t sumAligned(const Depth &depth, const kimg_windowConst &source, const kimg_window &sums,
                   const kip_affineSampleCache &cache)
{
    const kstd_rect32 &block = cache.alignSrcRect;
    kimg_windowConst window = source;
    const int32_t status = kimg_windowConst_window(&window, block.x, block.y, block.width, block.height, nullptr);
    if (status < 0)
        return status;
    // A block that the clipping test let pass by a last bit, or one of another shape, would leave sums unwritten.
    if (window.width != block.width || window.height != block.height ||
        (isColumnProjection(cache.alignCode) ? block.width : block.height) != sums.width)
        return kip_statusWindowMismatch;
    return depth.sumAligned(window, sums, cache.alignCode);
}

int32_t project(const Depth &depth, const kimg_windowConst &source, const kmath_xformLinear &srcFromClient,
                kimg_window &sums, const kip_affineSampleParams &params, kip_affineSampleCache &cache,
                kmath_xformLinear *placement, uint32_t *sampleCount)
{
    int32_t status = ksys_cpuinfo_get(&processor);
    if (status < 0)
        return status;
    status = checkProjectionSource(source, depth.bytesPerPixel, params.mode);
    if (status < 0)
        return status;
    constexpr int32_t oneRow = 1;
    const Sampling sampling = {source, srcFromClient, sums, params, cache, 1};
    status = kip_affineSampleCache_update(sampling, oneRow);
    if (status < 0)
        return status;
    if (cache.alignCode == kip_affine_alignNone) {
        status = checkSampling(source, params.mode);
        if (status >= 0)
            status = depth.sample(sampling);
    } else {
        status = sumAligned(depth, source, sums, cache);
    }
    if (status < 0)
        return status;
    if (sampleCount != nullptr)
        *sampleCount = static_cast<uint32_t>(params.destHeight);
    *placement = cache.destImageFromClient;
    return status;
}

} // namespace

int32_t checkProjectionSource(const kimg_windowConst &source, int32_t bytesPerPixel, uint32_t mode)
{
    if (source.bytesPerPixel == 2 && mode > kip_affineModeBilinear)
        return kip_statusProjectionModeUnsupported;
    if (source.width < 1 || source.height < 1)
        return 0; // without a pixel, it has none of a wrong depth
    if (source.bytesPerPixel != bytesPerPixel)
        return kip_statusPixelDepth;
    if (source.pixels == nullptr)
        return kimg_statusNoPixels;
    return isMisaligned(source, bytesPerPixel) ? kip_statusMisaligned : 0;
}

int32_t projectAffine8(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient, kimg_window &sums,
                       const kip_affineSampleParams &params, kip_affineSampleCache &cache, kmath_xformLinear *placement,
                       uint32_t *depth)
{
    return project(kDepth8, source, srcFromClient, sums, params, cache, placement, depth);
}

int32_t projectAffine16(const kimg_windowConst &source, const kmath_xformLinear &srcFromClient, kimg_window &sums,
                        const kip_affineSampleParams &params, kip_affineSampleCache &cache,
                        kmath_xformLinear *placement, uint32_t *depth)
{
    return project(kDepth16, source, srcFromClient, sums, params, cache, placement, depth);
}

} // namespace kip
