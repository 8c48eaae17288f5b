#include <cstdint>

#include <kip/kip.h>

#include "cache/sample_cache.h"
#include "support/cleanup_list.h"
#include "support/pixel_check.h"

namespace {

// What differs between the two depths.
struct Depth {
    int32_t bytesPerPixel;
    int32_t (*transform)(const kimg_imageConst *source, kimg_image *destination, const kip_affineSampleParams *params,
                         kip_affineSampleCache **cache);
    int32_t (*clear)(kimg_window *window);
    int32_t (*copy)(const kimg_imageConst *source, kimg_image *destination);
};

int32_t clear8(kimg_window *window)
{
    return kip_pelSetWindow8(window, 0);
}

int32_t clear16(kimg_window *window)
{
    return kip_pelSetWindow16(window, 0);
}

constexpr Depth kDepth8 = {1, kip_affineTransform, clear8, kip_pelCopy8};
constexpr Depth kDepth16 = {2, kip_affineTransform16, clear16, kip_pelCopy16};

// Arguments of one call. The mask and the cache may be null.
struct Request {
    const kimg_imageConst *source;
    kimg_image *destination;
    kimg_image *mask;
    const kip_affineSampleParams *params;
    kip_affineSampleCache **cache;
};

// An image that holds every pixel that the sampling may read, and the part of it that the source covers.
struct Padded {
    kimg_image image;
    kstd_rect32 covered;
    int32_t isCoverEmpty;
};

int32_t checkImage(const kimg_imageConst *image, int32_t bytesPerPixel)
{
    kimg_windowConst window;
    const int32_t status = kimg_windowConst_init(&window, image);
    return status < 0 ? status : kip::checkPixels(window, bytesPerPixel);
}

int32_t checkImages(const Depth &depth, const Request &request)
{
    int32_t status = checkImage(request.source, depth.bytesPerPixel);
    if (status >= 0)
        status = checkImage(request.destination, depth.bytesPerPixel);
    if (status >= 0 && request.mask != nullptr)
        status = checkImage(request.mask, kDepth8.bytesPerPixel);
    return status;
}

// Leaves the pixels uninitialised. The image goes onto the list even if it could not be made.
int32_t constructPadded(const Depth &depth, const kstd_rect32 &rect, const kimg_imageConst &maps,
                        kip::CleanupList &cleanup, kimg_image *padded)
{
    const int32_t status = kimg_image_construct(padded, depth.bytesPerPixel, rect.width, rect.height);
    kip::addCleanup<kimg_image_destruct>(cleanup, padded);
    if (status < 0)
        return status;
    padded->x = rect.x;
    padded->y = rect.y;
    return kimg_image_copyXforms(padded, &maps);
}

// Makes black what the source does not cover, and only that: the rest is written once, by whoever fills it.
int32_t clearAround(const Depth &depth, const kimg_image &padded, const kstd_rect32 &covered)
{
    const int32_t above = covered.y - padded.y;
    const int32_t left = covered.x - padded.x;
    const kstd_rect32 bands[] = {
        {padded.x, padded.y, padded.width, above},
        {padded.x, covered.y + covered.height, padded.width, padded.height - above - covered.height},
        {padded.x, covered.y, left, covered.height},
        {covered.x + covered.width, covered.y, padded.width - left - covered.width, covered.height},
    };
    for (const kstd_rect32 &band : bands) {
        kimg_window window;
        int32_t status = kimg_window_initWindow(&window, &padded, &band, 0);
        if (status >= 0)
            status = depth.clear(&window);
        if (status < 0)
            return status;
    }
    return 0;
}

int32_t makePaddedSource(const Depth &depth, const Request &request, const kstd_rect32 &rect, kip::CleanupList &cleanup,
                         Padded *padded)
{
    int32_t status = constructPadded(depth, rect, *request.source, cleanup, &padded->image);
    if (status >= 0)
        status = kimg_imageConst_gcr(&padded->image, request.source, &padded->covered, &padded->isCoverEmpty);
    if (status < 0)
        return status;
    if (padded->isCoverEmpty != 0)
        padded->covered = {rect.x, rect.y, 0, 0};
    status = clearAround(depth, padded->image, padded->covered);
    return status < 0 ? status : depth.copy(request.source, &padded->image);
}

int32_t fillCovered(const kimg_image &padded, const kstd_rect32 &covered, uint8_t value)
{
    kimg_window window;
    const int32_t status = kimg_window_initWindow(&window, &padded, &covered, 0);
    return status < 0 ? status : kip_pelSetWindow8(&window, value);
}

bool hasExactSize(const kimg_image &destination, const kip_affineSampleParams &params)
{
    return destination.width == params.destWidth && destination.height == params.destHeight && destination.x == 0 &&
           destination.y == 0;
}

// wasBound tells of the destination before the call: the caller may give one image as destination and mask.
int32_t transformPadded(const Depth &depth, const kimg_image &padded, kimg_image *destination, int32_t wasBound,
                        const Request &request)
{
    const kip_affineSampleParams &params = *request.params;
    if (wasBound != 0 && hasExactSize(*destination, params))
        return depth.transform(&padded, destination, &params, request.cache);

    kip::CleanupList cleanup;
    kimg_image temporary;
    int32_t status = kimg_image_construct(&temporary, depth.bytesPerPixel, params.destWidth, params.destHeight);
    kip::addCleanup<kimg_image_destruct>(cleanup, &temporary);
    if (status >= 0)
        status = depth.transform(&padded, &temporary, &params, request.cache);
    if (status >= 0)
        status = wasBound != 0 ? depth.copy(&temporary, destination) : kimg_image_assign(destination, &temporary);
    return kip::runCleanup(cleanup, status);
}

// The mask is what becomes of an image that is 255 where the source has pixels. An 8-bit padded source turns into
// that: round its covered part it is black already.
int32_t transformMask8(const Request &request, int32_t wasBound, const Padded &padded)
{
    const int32_t status = fillCovered(padded.image, padded.covered, 255);
    return status < 0 ? status : transformPadded(kDepth8, padded.image, request.mask, wasBound, request);
}

// A 16-bit one gives up its pixels, before the memory of their 8-bit twins is taken, and keeps its client map,
// which the source need not: it may be the destination, too.
int32_t transformMask16(const Request &request, int32_t wasBound, Padded *padded)
{
    const kstd_rect32 rect = {padded->image.x, padded->image.y, padded->image.width, padded->image.height};
    int32_t status = kimg_image_setUnbound(&padded->image);
    if (status < 0)
        return status;
    kip::CleanupList cleanup;
    kimg_image cover;
    status = constructPadded(kDepth8, rect, padded->image, cleanup, &cover);
    if (status >= 0)
        status = clearAround(kDepth8, cover, padded->covered);
    if (status >= 0)
        status = fillCovered(cover, padded->covered, 255);
    if (status >= 0)
        status = transformPadded(kDepth8, cover, request.mask, wasBound, request);
    return kip::runCleanup(cleanup, status);
}

int32_t runPasses(const Depth &depth, const Request &request, Padded *padded)
{
    int32_t isDestinationBound;
    int32_t status = kimg_image_getIsBound(request.destination, &isDestinationBound);
    if (status < 0)
        return status;
    status = ksys_attention_check();
    if (status < 0)
        return status;
    int32_t isMaskBound = 0;
    if (request.mask != nullptr)
        status = kimg_image_getIsBound(request.mask, &isMaskBound);
    if (status < 0)
        return status;

    status = transformPadded(depth, padded->image, request.destination, isDestinationBound, request);
    if (status < 0)
        return status;
    if (padded->isCoverEmpty != 0)
        return kip_statusTransformOutsideSource;
    if (request.mask == nullptr)
        return 0;
    return depth.bytesPerPixel == kDepth8.bytesPerPixel ? transformMask8(request, isMaskBound, *padded)
                                                        : transformMask16(request, isMaskBound, padded);
}

int32_t transformPaddedSource(const Depth &depth, const Request &request)
{
    kstd_rect32 rect;
    int32_t status = kip_affineSampleParams_getMaxSrcRect(request.params, request.source, &rect);
    if (status < 0)
        return status;
    kip::CleanupList cleanup;
    Padded padded;
    status = makePaddedSource(depth, request, rect, cleanup, &padded);
    if (status >= 0)
        status = runPasses(depth, request, &padded);
    return kip::runCleanup(cleanup, status);
}

// Both passes sample the same geometry: without a caller's cache, one of the call's own serves them.
int32_t transformWithCache(const Depth &depth, Request request)
{
    if (request.cache != nullptr)
        return transformPaddedSource(depth, request);
    kip::CleanupList cleanup;
    kip_affineSampleCache local;
    kip_affineSampleCache *handle = &local;
    kip_affineSampleCache_initLocal(&local);
    kip::addCleanup<kip_affineSampleCache_release>(cleanup, &local);
    request.cache = &handle;
    return kip::runCleanup(cleanup, transformPaddedSource(depth, request));
}

int32_t transformClipped(const Depth &depth, const Request &request, int32_t *willClip)
{
    int32_t bound;
    int32_t status = kimg_imageConst_getIsBound(request.source, &bound);
    if (status < 0)
        return status;
    if (bound == 0)
        return kip_statusTransformSourceUnbound;
    status = kip_affineSampleParams_getWillClip(request.params, request.source, willClip);
    if (status < 0)
        return status;
    status = checkImages(depth, request);
    if (status < 0)
        return status;
    if (*willClip == 0)
        return depth.transform(request.source, request.destination, request.params, request.cache);
    return transformWithCache(depth, request);
}

} // namespace

int32_t kip_affineTransformClipped(const kimg_imageConst *source, kimg_image *destination, kimg_image *mask,
                                   const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                   int32_t *willClip)
{
    return transformClipped(kDepth8, {source, destination, mask, params, cache}, willClip);
}

int32_t kip_affineTransformClipped16(const kimg_imageConst *source, kimg_image *destination, kimg_image *mask,
                                     const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                     int32_t *willClip)
{
    return transformClipped(kDepth16, {source, destination, mask, params, cache}, willClip);
}
