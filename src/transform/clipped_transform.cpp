#include <cstdint>
#include <type_traits>

#include <kip/kip.h>

#include "cache/sample_cache.h"
#include "support/cleanup_list.h"
#include "support/pixel_check.h"
#include "support/pixel_functions.h"
#include "transform/row_jobs.h"
#include "transform/temporary_result.h"

namespace {

using kip::PixelFunctions;

template <typename Pixel>
constexpr auto kTransform = std::is_same_v<Pixel, uint8_t> ? kip_affineTransform : kip_affineTransform16;

// Arguments of one call. The mask and the cache may be null.
struct ClippedCall {
    const kimg_imageConst *source;
    kimg_image *destination;
    kimg_image *mask;
    const kip_affineSampleParams *params;
    kip_affineSampleCache **cache;
};

// An image that holds every pixel that the sampling may read, and the part of it that the source covers.
struct PaddedSource {
    kimg_image image;
    kstd_rect32 covered;
    int32_t isCoverEmpty;
};

template <typename Pixel>
int32_t checkImage(const kimg_imageConst *image)
{
    kimg_windowConst window;
    const int32_t status = kimg_windowConst_init(&window, image);
    return status < 0 ? status : kip::checkPixels(window, sizeof(Pixel));
}

template <typename Pixel>
int32_t checkImages(const ClippedCall &call)
{
    int32_t status = checkImage<Pixel>(call.source);
    if (status >= 0)
        status = checkImage<Pixel>(call.destination);
    if (status >= 0 && call.mask != nullptr)
        status = checkImage<uint8_t>(call.mask);
    return status;
}

// The pixels are for the caller to write. The image goes onto the list even if it could not be made.
template <typename Pixel>
int32_t constructPadded(const kstd_rect32 &rect, const kimg_imageConst &maps, kip::CleanupList &cleanup,
                        kimg_image *padded)
{
    const int32_t status = kimg_image_construct(padded, sizeof(Pixel), rect.width, rect.height);
    kip::addCleanup<kimg_image_destruct>(cleanup, padded);
    if (status < 0)
        return status;
    padded->x = rect.x;
    padded->y = rect.y;
    return kimg_image_copyXforms(padded, &maps);
}

// Sets what of a rectangle lies in some rows of a padded image.
template <typename Pixel>
int32_t setRect(kimg_window rows, const kstd_rect32 &rect, Pixel value)
{
    const int32_t status = kimg_window_windowRect(&rows, &rect, 0);
    return status < 0 ? status : PixelFunctions<Pixel>::setWindow(&rows, value);
}

// Makes black what the source does not cover, and only that: the rest is written once, by whoever fills it.
template <typename Pixel>
int32_t clearAround(const kimg_image &padded, const kimg_window &rows, const kstd_rect32 &covered)
{
    const int32_t above = covered.y - padded.y;
    const int32_t left = covered.x - padded.x;
    const kstd_rect32 sides[] = {
        {padded.x, padded.y, padded.width, above},
        {padded.x, covered.y + covered.height, padded.width, padded.height - above - covered.height},
        {padded.x, covered.y, left, covered.height},
        {covered.x + covered.width, covered.y, padded.width - left - covered.width, covered.height},
    };
    int32_t status = 0;
    for (const kstd_rect32 &side : sides) {
        if (status >= 0)
            status = setRect<Pixel>(rows, side, 0);
    }
    return status;
}

// Lets fill(rows) fill a padded image.
template <typename Fill>
int32_t fillPadded(const kimg_image &padded, const Fill &fill)
{
    kimg_window window;
    const int32_t status = kimg_window_init(&window, &padded);
    return status < 0 ? status : kip::forRows(window, fill);
}

template <typename Pixel>
int32_t makePaddedSource(const ClippedCall &call, const kstd_rect32 &rect, kip::CleanupList &cleanup,
                         PaddedSource *padded)
{
    int32_t status = constructPadded<Pixel>(rect, *call.source, cleanup, &padded->image);
    if (status >= 0)
        status = kimg_imageConst_gcr(&padded->image, call.source, &padded->covered, &padded->isCoverEmpty);
    if (status < 0)
        return status;
    if (padded->isCoverEmpty != 0)
        padded->covered = {rect.x, rect.y, 0, 0};
    kimg_windowConst source;
    status = kimg_windowConst_init(&source, call.source);
    if (status < 0)
        return status;
    return fillPadded(padded->image, [&](kimg_window &rows) {
        const int32_t cleared = clearAround<Pixel>(padded->image, rows, padded->covered);
        return cleared < 0 ? cleared : PixelFunctions<Pixel>::copyWindow(&source, &rows);
    });
}

bool hasExactSize(const kimg_image &destination, const kip_affineSampleParams &params)
{
    return destination.width == params.destWidth && destination.height == params.destHeight && destination.x == 0 &&
           destination.y == 0;
}

// wasBound tells of the destination before the call: the caller may give one image as destination and mask.
template <typename Pixel>
int32_t transformPadded(const kimg_image &padded, kimg_image *destination, int32_t wasBound, const ClippedCall &call)
{
    const kip_affineSampleParams &params = *call.params;
    if (wasBound != 0 && hasExactSize(*destination, params))
        return kTransform<Pixel>(&padded, destination, &params, call.cache);

    return kip::makeThroughTemporary<Pixel>(destination, wasBound != 0, params, [&](kimg_image *temporary) {
        return kTransform<Pixel>(&padded, temporary, &params, call.cache);
    });
}

// The mask is what becomes of an image that is 255 where the source has pixels. An 8-bit padded source turns into
// that: round its covered part it is black already.
int32_t transformMask8(const ClippedCall &call, int32_t wasBound, const PaddedSource &padded)
{
    const int32_t status =
        fillPadded(padded.image, [&](const kimg_window &rows) { return setRect<uint8_t>(rows, padded.covered, 255); });
    return status < 0 ? status : transformPadded<uint8_t>(padded.image, call.mask, wasBound, call);
}

// A 16-bit one gives up its pixels, before the memory of their 8-bit twins is taken, and keeps its client map,
// which the source need not: it may be the destination, too.
int32_t transformMask16(const ClippedCall &call, int32_t wasBound, PaddedSource *padded)
{
    const kstd_rect32 rect = {padded->image.x, padded->image.y, padded->image.width, padded->image.height};
    int32_t status = kimg_image_setUnbound(&padded->image);
    if (status < 0)
        return status;
    kip::CleanupList cleanup;
    kimg_image cover;
    status = constructPadded<uint8_t>(rect, padded->image, cleanup, &cover);
    if (status >= 0)
        status = fillPadded(cover, [&](const kimg_window &rows) {
            const int32_t cleared = clearAround<uint8_t>(cover, rows, padded->covered);
            return cleared < 0 ? cleared : setRect<uint8_t>(rows, padded->covered, 255);
        });
    if (status >= 0)
        status = transformPadded<uint8_t>(cover, call.mask, wasBound, call);
    return kip::runCleanup(cleanup, status);
}

template <typename Pixel>
int32_t runPasses(const ClippedCall &call, PaddedSource *padded)
{
    int32_t isDestinationBound;
    int32_t status = kimg_image_getIsBound(call.destination, &isDestinationBound);
    if (status < 0)
        return status;
    status = ksys_attention_check();
    if (status < 0)
        return status;
    int32_t isMaskBound = 0;
    if (call.mask != nullptr)
        status = kimg_image_getIsBound(call.mask, &isMaskBound);
    if (status < 0)
        return status;

    status = transformPadded<Pixel>(padded->image, call.destination, isDestinationBound, call);
    if (status < 0)
        return status;
    if (padded->isCoverEmpty != 0)
        return kip_statusTransformOutsideSource;
    if (call.mask == nullptr)
        return 0;
    return std::is_same_v<Pixel, uint8_t> ? transformMask8(call, isMaskBound, *padded)
                                          : transformMask16(call, isMaskBound, padded);
}

template <typename Pixel>
int32_t transformPaddedSource(const ClippedCall &call)
{
    kstd_rect32 rect;
    int32_t status = kip_affineSampleParams_getMaxSrcRect(call.params, call.source, &rect);
    if (status < 0)
        return status;
    kip::CleanupList cleanup;
    PaddedSource padded;
    status = makePaddedSource<Pixel>(call, rect, cleanup, &padded);
    if (status >= 0)
        status = runPasses<Pixel>(call, &padded);
    return kip::runCleanup(cleanup, status);
}

// Both passes sample the same geometry: without a caller's cache, one of the call's own serves them.
template <typename Pixel>
int32_t transformWithCache(ClippedCall call)
{
    if (call.cache != nullptr)
        return transformPaddedSource<Pixel>(call);
    kip::CleanupList cleanup;
    kip_affineSampleCache local;
    kip_affineSampleCache *handle = &local;
    kip_affineSampleCache_initLocal(&local);
    kip::addCleanup<kip_affineSampleCache_release>(cleanup, &local);
    call.cache = &handle;
    return kip::runCleanup(cleanup, transformPaddedSource<Pixel>(call));
}

template <typename Pixel>
int32_t transformClipped(const ClippedCall &call, int32_t *willClip)
{
    int32_t bound;
    int32_t status = kimg_imageConst_getIsBound(call.source, &bound);
    if (status < 0)
        return status;
    if (bound == 0)
        return kip_statusTransformSourceUnbound;
    status = kip_affineSampleParams_getWillClip(call.params, call.source, willClip);
    if (status < 0)
        return status;
    if (*willClip == 0) // nothing becomes of the mask, whatever it is
        return kTransform<Pixel>(call.source, call.destination, call.params, call.cache);
    status = checkImages<Pixel>(call);
    return status < 0 ? status : transformWithCache<Pixel>(call);
}

} // namespace

int32_t kip_affineTransformClipped(const kimg_imageConst *source, kimg_image *destination, kimg_image *mask,
                                   const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                   int32_t *willClip)
{
    return transformClipped<uint8_t>({source, destination, mask, params, cache}, willClip);
}

int32_t kip_affineTransformClipped16(const kimg_imageConst *source, kimg_image *destination, kimg_image *mask,
                                     const kip_affineSampleParams *params, kip_affineSampleCache **cache,
                                     int32_t *willClip)
{
    return transformClipped<uint16_t>({source, destination, mask, params, cache}, willClip);
}
