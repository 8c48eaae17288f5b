#include <cstdint>
#include <type_traits>

#include <kip/kip.h>

#include "cache/sample_cache.h"
#include "support/cleanup_list.h"
#include "support/pixel_check.h"
#include "support/sampling_source.h"
#include "transform/temporary_result.h"
#include "transform/transform_driver.h"

namespace {

// Opens a bound source that can be sampled as asked.
template <typename Pixel>
int32_t checkSource(const kimg_imageConst *image, const kip_affineSampleParams &params, kip::SamplingSource *source)
{
    int32_t bound;
    int32_t status = kimg_imageConst_getIsBound(image, &bound);
    if (status < 0)
        return status;
    if (bound == 0)
        return kip_statusTransformSourceUnbound;

    int32_t willClip;
    status = kip_affineSampleParams_getWillClip(&params, image, &willClip);
    if (status < 0)
        return status;
    if (willClip != 0)
        return kip_statusTransformWouldClip;

    status = kip::openSamplingSource(image, source);
    return status < 0 ? status : kip::checkPixels(source->window, sizeof(Pixel));
}

bool canWriteInPlace(const kimg_image &destination, const kip_affineSampleParams &params)
{
    return destination.width >= params.destWidth && destination.height >= params.destHeight && destination.x == 0 &&
           destination.y == 0;
}

template <typename Pixel>
int32_t transformWindow(const kip::SamplingSource &source, kimg_window &destination,
                        const kip_affineSampleParams &params, kip_affineSampleCache &cache)
{
    constexpr auto transform =
        std::is_same_v<Pixel, uint8_t> ? kip::kip_affineTransformWindow8 : kip::kip_affineTransformWindow16;
    return transform({source.window, source.fromClient, destination, params, cache, 0});
}

template <typename Pixel>
int32_t transformInPlace(const kip::SamplingSource &source, kimg_window destination,
                         const kip_affineSampleParams &params, kip_affineSampleCache &cache)
{
    const int32_t status = kimg_window_window(&destination, 0, 0, params.destWidth, params.destHeight, nullptr);
    return status < 0 ? status : transformWindow<Pixel>(source, destination, params, cache);
}

template <typename Pixel>
int32_t transformThroughTemporary(const kip::SamplingSource &source, kimg_image *destination, bool isBound,
                                  const kip_affineSampleParams &params, kip_affineSampleCache &cache)
{
    return kip::makeThroughTemporary<Pixel>(destination, isBound, params, [&](kimg_image *temporary) {
        kimg_window window;
        const int32_t status = kimg_window_init(&window, temporary);
        return status < 0 ? status : transformWindow<Pixel>(source, window, params, cache);
    });
}

template <typename Pixel>
int32_t transformChecked(const kimg_imageConst *sourceImage, kimg_image *destination,
                         const kip_affineSampleParams &params, kip_affineSampleCache &cache)
{
    kip::SamplingSource source;
    int32_t status = checkSource<Pixel>(sourceImage, params, &source);
    if (status < 0)
        return status;

    int32_t bound;
    status = kimg_image_getIsBound(destination, &bound);
    if (status < 0)
        return status;
    kimg_window window;
    status = kimg_window_init(&window, destination);
    if (status < 0)
        return status;
    status = kip::checkPixels(window, sizeof(Pixel));
    if (status < 0)
        return status;

    status = bound != 0 && canWriteInPlace(*destination, params)
                 ? transformInPlace<Pixel>(source, window, params, cache)
                 : transformThroughTemporary<Pixel>(source, destination, bound != 0, params, cache);
    if (status < 0)
        return status;
    return kimg_image_setLinearImageFromClientXform(destination, &cache.destImageFromClient);
}

// A result must not overwrite pixels that it is still to be made from. An unbound destination gets new ones.
int32_t checkMemoryOverlap(const kimg_imageConst *source, const kimg_image *destination)
{
    int32_t bound;
    int32_t status = kimg_image_getIsBound(destination, &bound);
    if (status < 0 || bound == 0)
        return status;
    kimg_windowConst read;
    status = kimg_windowConst_init(&read, source);
    if (status < 0)
        return status;
    kimg_window write;
    status = kimg_window_init(&write, destination);
    if (status < 0)
        return status;
    return kip_pelfunc_checkMemoryOverlap(&read, &write);
}

template <typename Pixel>
int32_t transform(const kimg_imageConst *source, kimg_image *destination, const kip_affineSampleParams *params,
                  kip_affineSampleCache **cache)
{
    const int32_t status = checkMemoryOverlap(source, destination);
    if (status < 0)
        return status;

    if (cache != nullptr)
        return *cache == nullptr ? kip_statusCacheNotConstructed
                                 : transformChecked<Pixel>(source, destination, *params, **cache);

    kip::CleanupList cleanup;
    kip_affineSampleCache local;
    kip_affineSampleCache_initLocal(&local);
    kip::addCleanup<kip_affineSampleCache_release>(cleanup, &local);
    return kip::runCleanup(cleanup, transformChecked<Pixel>(source, destination, *params, local));
}

} // namespace

int32_t kip_affineTransform(const kimg_imageConst *source, kimg_image *destination,
                            const kip_affineSampleParams *params, kip_affineSampleCache **cache)
{
    return transform<uint8_t>(source, destination, params, cache);
}

int32_t kip_affineTransform16(const kimg_imageConst *source, kimg_image *destination,
                              const kip_affineSampleParams *params, kip_affineSampleCache **cache)
{
    return transform<uint16_t>(source, destination, params, cache);
}

int32_t kip_affine8(const kip_affineSampleParams *params, const kimg_imageConst *source, kimg_image *destination)
{
    return kip_affineTransform(source, destination, params, nullptr);
}
