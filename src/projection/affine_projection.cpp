#include <cstdint>

#include <kip/kip.h>

#include "cache/sample_cache.h"
#include "projection/projection_driver.h"
#include "support/cleanup_list.h"
#include "support/sampling_source.h"

namespace {

constexpr int32_t kSumBytes = sizeof(uint32_t);

// The call's cache: the caller's, or a local one that the clean-up list releases.
int32_t takeCache(kip_affineSampleCache **handle, kip_affineSampleCache *local, kip::CleanupList &cleanup,
                  kip_affineSampleCache **cache)
{
    if (handle == nullptr) {
        kip_affineSampleCache_initLocal(local);
        kip::addCleanup<kip_affineSampleCache_release>(cleanup, local);
        *cache = local;
        return 0;
    }
    *cache = *handle;
    return *handle == nullptr ? kip_statusCacheNotConstructed : 0;
}

// ---- Rows of sums ---------------------------------------------------------------------------------------------

// Row 0, columns 0 to destWidth - 1 of a caller's window, or of a temporary image where that does not hold them.
struct SumsRow {
    kimg_window window;
    kimg_image temporary;
    bool isTemporary = false;
    bool isWhole = false; // the caller's window holds all of it
};

bool holdsRow(const kimg_window &window, int32_t width)
{
    return window.pixels != nullptr && window.x <= 0 && window.y <= 0 && int64_t{window.x} + window.width >= width &&
           int64_t{window.y} + window.height >= 1;
}

// Tells whether sums can be written as such.
bool isAligned(const kimg_window &window)
{
    return reinterpret_cast<uintptr_t>(window.pixels) % kSumBytes == 0;
}

int32_t openRow(const kimg_window &target, int32_t width, kip::CleanupList &cleanup, SumsRow *row)
{
    if (target.width > 0 && target.height > 0 && target.bytesPerPixel != kSumBytes)
        return kip_statusPixelDepth;
    row->isWhole = holdsRow(target, width);
    row->isTemporary = !row->isWhole || !isAligned(target);
    if (row->isTemporary) {
        const int32_t status = kimg_image_construct(&row->temporary, kSumBytes, width, 1);
        kip::addCleanup<kimg_image_destruct>(cleanup, &row->temporary);
        return status < 0 ? status : kimg_window_init(&row->window, &row->temporary);
    }
    row->window = target;
    // A window may come from a caller who gave it an origin. That would shift the samples.
    row->window.originX = 0;
    row->window.originY = 0;
    return kimg_window_window(&row->window, 0, 0, width, 1, nullptr);
}

// Brings a temporary row to where the caller wants it: what of it his window covers.
int32_t closeRow(const SumsRow &row, kimg_window *target)
{
    if (!row.isTemporary)
        return 0;
    kimg_windowConst sums;
    const int32_t status = kimg_windowConst_init(&sums, &row.temporary);
    return status < 0 ? status : kip_pelCopyWindow32(&sums, target);
}

int32_t assignRowIfUnbound(kimg_image *image, int32_t width)
{
    int32_t bound;
    const int32_t status = kimg_image_getIsBound(image, &bound);
    if (status < 0 || bound != 0)
        return status;
    return kimg_image_assignNew(image, kSumBytes, width, 1);
}

// The window of a result or coverage image, which receives pixels if it has none.
int32_t openImage(kimg_image *image, int32_t width, kimg_window *window)
{
    const int32_t status = assignRowIfUnbound(image, width);
    return status < 0 ? status : kimg_window_init(window, image);
}

// ---- Window forms ---------------------------------------------------------------------------------------------

template <typename Pixel>
int32_t projectAffineIntoWindow(const kip::SamplingSource &source, kimg_window *result,
                                const kip_affineSampleParams &params, kip_affineSampleCache **cacheHandle,
                                kmath_xformLinear *placement, uint32_t *depth)
{
    kip::CleanupList cleanup;
    kip_affineSampleCache local;
    kip_affineSampleCache *cache;
    SumsRow sums;
    int32_t status = kip::checkProcessor();
    if (status >= 0)
        status = takeCache(cacheHandle, &local, cleanup, &cache);
    if (status >= 0)
        status = openRow(*result, params.destWidth, cleanup, &sums);
    if (status >= 0)
        status = kip::projectAffine<Pixel>({source.window, source.fromClient, sums.window, params, *cache, 1},
                                           placement, depth);
    if (status >= 0)
        status = closeRow(sums, result);
    return kip::runCleanup(cleanup, status);
}

template <typename Pixel>
int32_t projectWindow(const kip::SamplingSource &source, kimg_window *result, const kip_affineSampleParams &params,
                      kip_affineSampleCache **cacheHandle, kmath_xformLinear *placement, uint32_t *depth)
{
    int32_t willClip;
    const int32_t status =
        kip_affineSampleParams_getWillClipWindow(&params, &source.window, &source.fromClient, &willClip);
    if (status < 0)
        return status;
    return willClip != 0 ? kip_statusProjectionWouldClip
                         : projectAffineIntoWindow<Pixel>(source, result, params, cacheHandle, placement, depth);
}

template <typename Pixel>
int32_t projectClippedIntoWindows(const kip::SamplingSource &source, kimg_window *result, kimg_window *coverage,
                                  const kip_affineSampleParams &params, kip_affineSampleCache **cacheHandle,
                                  kmath_xformLinear *placement, uint8_t coverageValue, uint32_t *greatestCoverage)
{
    kip::CleanupList cleanup;
    kip_affineSampleCache local;
    kip_affineSampleCache *cache;
    SumsRow sums;
    SumsRow covered;
    int32_t status = kip::checkProcessor();
    if (status >= 0)
        status = takeCache(cacheHandle, &local, cleanup, &cache);
    if (status >= 0)
        status = openRow(*result, params.destWidth, cleanup, &sums);
    if (status >= 0)
        status = openRow(*coverage, params.destWidth, cleanup, &covered);
    if (status >= 0)
        status = kip::projectAffineClipped<Pixel>({source.window, source.fromClient, sums.window, params, *cache, 1},
                                                  covered.window, placement, coverageValue, greatestCoverage);
    // The zeros of a rectangle outside stand in a whole row, at any address.
    if (status == kip_statusProjectionOutsideSource && sums.isWhole) {
        const int32_t closed = closeRow(sums, result);
        return kip::runCleanup(cleanup, closed < 0 ? closed : status);
    }
    if (status >= 0)
        status = closeRow(sums, result);
    if (status >= 0)
        status = closeRow(covered, coverage);
    return kip::runCleanup(cleanup, status);
}

template <typename Pixel>
int32_t projectClippedWindow(const kip::SamplingSource &source, kimg_window *result, kimg_window *coverage,
                             const kip_affineSampleParams &params, kip_affineSampleCache **cacheHandle,
                             kmath_xformLinear *placement, uint8_t coverageValue, uint32_t *depth, uint32_t *willClip)
{
    int32_t clips;
    const int32_t status =
        kip_affineSampleParams_getWillClipWindow(&params, &source.window, &source.fromClient, &clips);
    if (status < 0)
        return status;
    *willClip = static_cast<uint32_t>(clips);
    return clips != 0 ? projectClippedIntoWindows<Pixel>(source, result, coverage, params, cacheHandle, placement,
                                                         coverageValue, depth)
                      : projectAffineIntoWindow<Pixel>(source, result, params, cacheHandle, placement, depth);
}

// ---- Image forms ----------------------------------------------------------------------------------------------

int32_t checkIsBound(const kimg_imageConst *source)
{
    int32_t bound;
    const int32_t status = kimg_imageConst_getIsBound(source, &bound);
    if (status < 0)
        return status;
    return bound != 0 ? status : kip_statusProjectionSourceUnbound;
}

template <typename Pixel>
int32_t project(const kimg_imageConst *sourceImage, kimg_image *result, const kip_affineSampleParams &params,
                kip_affineSampleCache **cacheHandle, uint32_t *depth)
{
    int32_t status = checkIsBound(sourceImage);
    if (status < 0)
        return status;
    int32_t willClip;
    status = kip_affineSampleParams_getWillClip(&params, sourceImage, &willClip);
    if (status < 0)
        return status;
    if (willClip != 0)
        return kip_statusProjectionWouldClip;

    kip::SamplingSource source;
    kimg_window window;
    kmath_xformLinear placement;
    status = kip::openSamplingSource(sourceImage, &source);
    if (status >= 0)
        status = openImage(result, params.destWidth, &window);
    if (status >= 0)
        status = projectAffineIntoWindow<Pixel>(source, &window, params, cacheHandle, &placement, depth);
    return status < 0 ? status : kimg_image_setLinearImageFromClientXform(result, &placement);
}

// The result receives its pixels before the sampling is looked at.
template <typename Pixel>
int32_t projectClipped(const kimg_imageConst *sourceImage, kimg_image *result, kimg_image *coverage,
                       const kip_affineSampleParams &params, kip_affineSampleCache **cacheHandle, uint8_t coverageValue,
                       uint32_t *depth, uint32_t *willClip)
{
    int32_t status = checkIsBound(sourceImage);
    if (status < 0)
        return status;
    kip::SamplingSource source;
    kimg_window window;
    int32_t clips = 0;
    status = kip::openSamplingSource(sourceImage, &source);
    if (status >= 0)
        status = openImage(result, params.destWidth, &window);
    if (status >= 0)
        status = kip_affineSampleParams_getWillClip(&params, sourceImage, &clips);
    if (status < 0)
        return status;

    kmath_xformLinear placement;
    if (clips != 0) {
        kimg_window coverageWindow;
        status = openImage(coverage, params.destWidth, &coverageWindow);
        if (status < 0)
            return status;
        *willClip = 1;
        status = projectClippedIntoWindows<Pixel>(source, &window, &coverageWindow, params, cacheHandle, &placement,
                                                  coverageValue, depth);
    } else {
        status = projectAffineIntoWindow<Pixel>(source, &window, params, cacheHandle, &placement, depth);
        if (status >= 0)
            *willClip = 0;
    }
    if (status < 0)
        return status;

    status = kimg_image_setLinearImageFromClientXform(result, &placement);
    return status < 0 || clips == 0 ? status : kimg_image_copyXforms(coverage, result);
}

} // namespace

int32_t kip_affineProject(const kimg_imageConst *source, kimg_image *result, const kip_affineSampleParams *params,
                          kip_affineSampleCache **cache, uint32_t *depth)
{
    return project<uint8_t>(source, result, *params, cache, depth);
}

int32_t kip_affineProject16(const kimg_imageConst *source, kimg_image *result, const kip_affineSampleParams *params,
                            kip_affineSampleCache **cache, uint32_t *depth)
{
    return project<uint16_t>(source, result, *params, cache, depth);
}

int32_t kip_affineProjectWindow(const kimg_windowConst *source, const kmath_xformLinear *srcFromClient,
                                kimg_window *result, const kip_affineSampleParams *params,
                                kip_affineSampleCache **cache, kmath_xformLinear *placement, uint32_t *depth)
{
    return projectWindow<uint8_t>({*source, *srcFromClient}, result, *params, cache, placement, depth);
}

int32_t kip_affineProjectWindow16(const kimg_windowConst *source, const kmath_xformLinear *srcFromClient,
                                  kimg_window *result, const kip_affineSampleParams *params,
                                  kip_affineSampleCache **cache, kmath_xformLinear *placement, uint32_t *depth)
{
    return projectWindow<uint16_t>({*source, *srcFromClient}, result, *params, cache, placement, depth);
}

int32_t kip_affineProjectClipped(const kimg_imageConst *source, kimg_image *result, kimg_image *coverage,
                                 const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                 uint8_t coverageValue, uint32_t *depth, uint32_t *willClip)
{
    return projectClipped<uint8_t>(source, result, coverage, *params, cache, coverageValue, depth, willClip);
}

int32_t kip_affineProjectClipped16(const kimg_imageConst *source, kimg_image *result, kimg_image *coverage,
                                   const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                   uint8_t coverageValue, uint32_t *depth, uint32_t *willClip)
{
    return projectClipped<uint16_t>(source, result, coverage, *params, cache, coverageValue, depth, willClip);
}

int32_t kip_affineProjectClippedWindow(const kimg_windowConst *source, const kmath_xformLinear *srcFromClient,
                                       kimg_window *result, kimg_window *coverage, const kip_affineSampleParams *params,
                                       kip_affineSampleCache **cache, kmath_xformLinear *placement,
                                       uint8_t coverageValue, uint32_t *depth, uint32_t *willClip)
{
    return projectClippedWindow<uint8_t>({*source, *srcFromClient}, result, coverage, *params, cache, placement,
                                         coverageValue, depth, willClip);
}

int32_t kip_affineProjectClippedWindow16(const kimg_windowConst *source, const kmath_xformLinear *srcFromClient,
                                         kimg_window *result, kimg_window *coverage,
                                         const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                         kmath_xformLinear *placement, uint8_t coverageValue, uint32_t *depth,
                                         uint32_t *willClip)
{
    return projectClippedWindow<uint16_t>({*source, *srcFromClient}, result, coverage, *params, cache, placement,
                                          coverageValue, depth, willClip);
}
