#include <algorithm>

#include <kip/kip.h>

#include "support/sampling_source.h"

namespace {

// Covers the support of every interpolation mode and of its tables round a sampled position.
constexpr double kFootprintMargin = 6.0;

} // namespace

int32_t kip_affineSampleParams_getMaxSrcRect(const kip_affineSampleParams *params, const kimg_imageConst *source,
                                             kstd_rect32 *rect)
{
    kip::SamplingSource opened;
    const int32_t status = kip::openSamplingSource(source, &opened);
    if (status < 0)
        return status;
    return kip_affineSampleParams_getMaxSrcRectWindow(params, &opened.window, &opened.fromClient, rect);
}

int32_t kip_affineSampleParams_getMaxSrcRectWindow(const kip_affineSampleParams *params, const kimg_windowConst *,
                                                   const kmath_xformLinear *srcFromClient, kstd_rect32 *rect)
{
    const double width = params->destWidth;
    const double height = params->destHeight;
    const kmath_xformLinear scale{0.0, 0.0, 1.0 / width, 0.0, 0.0, 1.0 / height};
    kmath_xformLinear srcFromDest;
    int32_t status = kmath_xformLinear_initCompose(&srcFromDest, srcFromClient, &params->rect);
    if (status >= 0)
        status = kmath_xformLinear_initCompose(&srcFromDest, &srcFromDest, &scale);
    if (status < 0)
        return status;

    kmath_vect corners[] = {{0.5, 0.5}, {width - 0.5, 0.5}, {0.5, height - 0.5}, {width - 0.5, height - 0.5}};
    for (kmath_vect &corner : corners) {
        status = kmath_xformLinear_mapPoint(&srcFromDest, &corner, &corner);
        if (status < 0)
            return status;
    }
    double left = corners[0].x, right = left;
    double top = corners[0].y, bottom = top;
    for (const kmath_vect &corner : corners) {
        left = std::min(left, corner.x);
        right = std::max(right, corner.x);
        top = std::min(top, corner.y);
        bottom = std::max(bottom, corner.y);
    }

    left -= kFootprintMargin;
    top -= kFootprintMargin;
    right += kFootprintMargin;
    bottom += kFootprintMargin;
    // The floor and the ceiling saturate: beyond 32 bits they would give a rectangle that lies elsewhere.
    if (!(left >= INT32_MIN && top >= INT32_MIN && right <= INT32_MAX && bottom <= INT32_MAX))
        return kmath_statusOutOfRange;

    const int64_t x0 = kqfIFloor(left);
    const int64_t y0 = kqfIFloor(top);
    const int64_t width64 = kqfICeil(right) - x0 + 1;
    const int64_t height64 = kqfICeil(bottom) - y0 + 1;
    if (width64 > INT32_MAX || height64 > INT32_MAX)
        return kstd_statusTooLarge;
    return kstd_rect32_init(rect, static_cast<int32_t>(x0), static_cast<int32_t>(y0), static_cast<int32_t>(width64),
                            static_cast<int32_t>(height64));
}
