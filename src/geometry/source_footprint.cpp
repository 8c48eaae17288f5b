#include <algorithm>

#include <kip/kip.h>
#include <kmath/kq2.hpp>

namespace {

// Covers the support of every interpolation mode and of its tables round a sampled position.
constexpr double kFootprintMargin = 6.0;

} // namespace

int32_t kip_affineSampleParams_getMaxSrcRect(const kip_affineSampleParams *params, const kimg_imageConst *source,
                                             kstd_rect32 *rect)
{
    kmath_xformLinear srcFromClient;
    int32_t status = kimg_imageConst_getLinearImageFromClientXform(source, &srcFromClient);
    if (status < 0)
        return status;
    kimg_windowConst window;
    status = kimg_windowConst_init(&window, source);
    if (status < 0)
        return status;
    return kip_affineSampleParams_getMaxSrcRectWindow(params, &window, &srcFromClient, rect);
}

int32_t kip_affineSampleParams_getMaxSrcRectWindow(const kip_affineSampleParams *params, const kimg_windowConst *,
                                                   const kmath_xformLinear *srcFromClient, kstd_rect32 *rect)
{
    const double width = params->destWidth;
    const double height = params->destHeight;
    double left, top, right, bottom;
    try {
        const kq2Xform scale(kq2Matrix(1.0 / width, 0.0, 0.0, 1.0 / height));
        const kq2Xform srcFromDest = kq2Xform(*srcFromClient) * kq2Xform(params->rect) * scale;
        const kq2Vect corners[] = {
            srcFromDest * kq2Vect(0.5, 0.5),
            srcFromDest * kq2Vect(width - 0.5, 0.5),
            srcFromDest * kq2Vect(0.5, height - 0.5),
            srcFromDest * kq2Vect(width - 0.5, height - 0.5),
        };
        left = right = corners[0].x();
        top = bottom = corners[0].y();
        for (const kq2Vect &corner : corners) {
            left = std::min(left, corner.x());
            right = std::max(right, corner.x());
            top = std::min(top, corner.y());
            bottom = std::max(bottom, corner.y());
        }
    } catch (const kqException &failure) {
        return failure.status;
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
