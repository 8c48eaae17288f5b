#include <cstdint>

#include <kip/kip.h>

#include "support/fixed_point.h"
#include "support/sampling_source.h"

namespace {

// How far inside the source window's edges a mode's sampled positions must lie, and the window that holds
// its support at all.
struct Support {
    int32_t margin;          // 16.16
    int32_t leastSize;       // pixels
    int32_t upperBoundGuard; // 16.16 units below the upper edge: such a sample would address the next pixel
};

constexpr Support kSupport[] = {
    {0x00000, 1, 1},
    {0x08000, 1, 1},
    {0x18000, 5, 0},
    {0x28000, 7, 0},
};

// The large-window test has no fixed-point unit to stay below the upper edge by.
constexpr double kLargeUpperGuard = 1e-05;

struct Corners {
    kmath_vect centers[4];
};

// The centres of the four corner destination pixels, in the source's pixel coordinates.
int32_t computeCornerCenters(const kip_affineSampleParams &params, const kmath_xformLinear &srcFromClient,
                             Corners *corners)
{
    kmath_shapeAffineRect rect;
    int32_t status = kmath_shapeAffineRect_initMap(&rect, &srcFromClient, &params.rect);
    if (status < 0)
        return status;
    kmath_shapeAffineRectPoints points;
    status = kmath_shapeAffineRect_getPoints(&rect, &points);
    if (status < 0)
        return status;

    const kmath_vect &p0 = points.origin;
    const kmath_vect &p1 = points.xEnd;
    const kmath_vect &p2 = points.yEnd;
    const double xFactor = 0.5 / params.destWidth;
    const double yFactor = 0.5 / params.destHeight;
    const kmath_vect hx = {(p1.x - p0.x) * xFactor, (p1.y - p0.y) * xFactor};
    const kmath_vect hy = {(p2.x - p0.x) * yFactor, (p2.y - p0.y) * yFactor};

    const kmath_shapeAffineRectPoints inner = {
        {p0.x + hx.x + hy.x, p0.y + hx.y + hy.y},
        {p1.x - hx.x + hy.x, p1.y - hx.y + hy.y},
        {p2.x + hx.x - hy.x, p2.y + hx.y - hy.y},
    };
    *corners = {{inner.origin, inner.xEnd, inner.yEnd, {}}};
    return kmath_shapeAffineRectPoints_getPopp(&inner, &corners->centers[3]);
}

// A map of whole pixels is copied, whatever its mode: it needs no support round its samples.
int32_t effectiveMode(const kip_affineSampleParams &params, const kmath_xformLinear &srcFromClient, uint32_t *mode)
{
    *mode = params.mode;
    if (params.mode == kip_affineModeNearest)
        return 0;
    kip_affine_imageAlignment alignCode;
    const int32_t status = kip_affine_imageAlignment_compute(&params, &srcFromClient, &alignCode, nullptr);
    if (status >= 0 && alignCode != kip_affine_alignNone)
        *mode = kip_affineModeNearest;
    return status;
}

bool isInsideFixed(double coordinate, int32_t size, const Support &support)
{
    if (!(coordinate >= -32767.0 && coordinate <= 32767.0))
        return false;
    // 64 bits: a bottom-up window's width may exceed what 16.16 holds.
    const int64_t low = support.margin;
    const int64_t high = int64_t{size} * 65536 - low - support.upperBoundGuard;
    const int64_t position = kip::fixedPosition(coordinate);
    return position >= low && position <= high;
}

// The test in double precision, for windows that 16.16 cannot address. Nearest and bilinear only.
int32_t willClipLarge(const kip_affineSampleParams &params, const kimg_windowConst &source,
                      const kmath_xformLinear &srcFromClient, int32_t *willClip)
{
    if (params.destWidth < 1 || params.destHeight < 1)
        return kip_statusSizeBelowOne;
    *willClip = 1;
    uint32_t mode;
    int32_t status = effectiveMode(params, srcFromClient, &mode);
    if (status < 0 || source.width < 1 || source.height < 1)
        return status;

    const double low = mode == kip_affineModeNearest ? 0.0 : 0.5;
    const double xHigh = source.width - low - kLargeUpperGuard;
    const double yHigh = source.height - low - kLargeUpperGuard;
    Corners corners;
    status = computeCornerCenters(params, srcFromClient, &corners);
    if (status < 0)
        return status;
    for (const kmath_vect &center : corners.centers) {
        const double x = center.x - source.x;
        const double y = center.y - source.y;
        if (!(x >= low && y >= low && x <= xHigh && y <= yHigh))
            return status;
    }
    *willClip = 0;
    return status;
}

} // namespace

int32_t kip_affineSampleParams_getWillClip(const kip_affineSampleParams *params, const kimg_imageConst *source,
                                           int32_t *willClip)
{
    kip::SamplingSource opened;
    const int32_t status = kip::openSamplingSource(source, &opened);
    if (status < 0)
        return status;
    return kip_affineSampleParams_getWillClipWindow(params, &opened.window, &opened.fromClient, willClip);
}

int32_t kip_affineSampleParams_getWillClipWindow(const kip_affineSampleParams *params, const kimg_windowConst *source,
                                                 const kmath_xformLinear *srcFromClient, int32_t *willClip)
{
    if (params->destWidth < 1 || params->destHeight < 1)
        return kip_statusSizeBelowOne;
    if (params->mode > kip_affineModeBicubic)
        return kip_statusUnknownMode;
    if (source->pitch > kip::kFixedMaxExtent || source->height > kip::kFixedMaxExtent) {
        if (params->mode >= kip_affineModeBilinearSeparable)
            return kip_statusSourceTooLarge;
        return willClipLarge(*params, *source, *srcFromClient, willClip);
    }

    *willClip = 1;
    uint32_t mode;
    int32_t status = effectiveMode(*params, *srcFromClient, &mode);
    if (status < 0)
        return status;
    const Support &support = kSupport[mode];
    if (source->width < support.leastSize || source->height < support.leastSize)
        return status;

    Corners corners;
    status = computeCornerCenters(*params, *srcFromClient, &corners);
    if (status < 0)
        return status;
    // The sampled region is a parallelogram: its corners decide for all of it.
    for (const kmath_vect &center : corners.centers) {
        if (!isInsideFixed(center.x - source->x, source->width, support) ||
            !isInsideFixed(center.y - source->y, source->height, support))
            return status;
    }
    *willClip = 0;
    return status;
}
