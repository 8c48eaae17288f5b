#include <kip/kip.h>

#include "geometry/sampling_grid.h"

namespace {

constexpr double kTolerance = 1e-12;

bool isNearInteger(double value)
{
    if (!(value >= -2147483648.0 && value <= 2147483647.0))
        return false;
    return kmath_double_epsilonEqual(kmath_double_round(value), value, kTolerance) != 0;
}

bool isNearZero(double value)
{
    return kmath_double_epsilonEqual(value, 0.0, kTolerance) != 0;
}

// Names the quarter turn or mirror of a matrix whose sides are known to be whole pixels long.
kip_affine_imageAlignment classify(const kmath_matrix &m)
{
    if (isNearZero(m.e1) && isNearZero(m.e2)) {
        if (m.e0 > 0.0 && m.e3 > 0.0)
            return kip_affine_alignIdentity;
        if (m.e0 < 0.0 && m.e3 < 0.0)
            return kip_affine_alignRotate180;
        if (m.e0 < 0.0 && m.e3 > 0.0)
            return kip_affine_alignRotate90Transpose;
        if (m.e0 > 0.0 && m.e3 < 0.0)
            return kip_affine_alignRotate270Transpose;
        return kip_affine_alignNone;
    }
    if (isNearZero(m.e0) && isNearZero(m.e3)) {
        if (m.e1 < 0.0 && m.e2 > 0.0)
            return kip_affine_alignRotate90;
        if (m.e1 > 0.0 && m.e2 < 0.0)
            return kip_affine_alignRotate270;
        if (m.e1 > 0.0 && m.e2 > 0.0)
            return kip_affine_alignTranspose;
        if (m.e1 < 0.0 && m.e2 < 0.0)
            return kip_affine_alignRotate180Transpose;
    }
    return kip_affine_alignNone;
}

// What is not finite is a failure in the sides alone: a translation beyond all pixels is just not aligned.
int32_t composeSides(kmath_xformLinear srcFromClient, kmath_shapeAffineRect rect)
{
    srcFromClient.tx = srcFromClient.ty = 0.0;
    rect.tx = rect.ty = 0.0;
    kmath_xformLinear sides;
    return kmath_xformLinear_initCompose(&sides, &srcFromClient, &rect);
}

// The source pixels that hold the centres of the destination's corner pixels.
int32_t computeSourceRect(const kmath_xformLinear &srcFromUnit, double width, double height, kstd_rect32 *rect)
{
    kmath_xformLinear srcFromDest;
    int32_t status = kip::unitSquareFromDest(width, height, &srcFromDest);
    if (status < 0)
        return status;
    status = kmath_xformLinear_initCompose(&srcFromDest, &srcFromUnit, &srcFromDest);
    if (status < 0)
        return status;

    kmath_shapeAffineRectPoints centers;
    kmath_vect_init(&centers.origin, 0.5, 0.5);
    kmath_vect_init(&centers.xEnd, width - 0.5, 0.5);
    kmath_vect_init(&centers.yEnd, 0.5, height - 0.5);
    kmath_shapeAffineRect centerRect;
    status = kmath_shapeAffineRect_initPoints(&centerRect, &centers);
    if (status < 0)
        return status;
    return kmath_shapeAffineRect_getEncloseImageRect(&centerRect, &srcFromDest, rect);
}

} // namespace

int32_t kip_affine_imageAlignment_compute(const kip_affineSampleParams *params, const kmath_xformLinear *srcFromClient,
                                          kip_affine_imageAlignment *alignCode, kstd_rect32 *srcRect)
{
    *alignCode = kip_affine_alignNone;

    kmath_xformLinear srcFromUnit;
    int32_t status = kmath_xformLinear_initCompose(&srcFromUnit, srcFromClient, &params->rect);
    if (status == kmath_statusNotFinite)
        return composeSides(*srcFromClient, params->rect);
    if (status < 0)
        return status;
    if (!isNearInteger(srcFromUnit.tx) || !isNearInteger(srcFromUnit.ty))
        return status;

    // With sides as long as their sample counts, a destination step is exactly one source pixel.
    const double width = params->destWidth;
    const double height = params->destHeight;
    const kmath_matrix matrix = {srcFromUnit.e0, srcFromUnit.e1, srcFromUnit.e2, srcFromUnit.e3};
    double xScale;
    double yScale;
    status = kmath_matrix_getXScale(&matrix, &xScale);
    if (status < 0)
        return status;
    status = kmath_matrix_getYScale(&matrix, &yScale);
    if (status < 0)
        return status;
    if (!kmath_double_epsilonEqual(width, xScale, kTolerance) || !kmath_double_epsilonEqual(height, yScale, kTolerance))
        return status;

    *alignCode = classify(matrix);
    if (srcRect == nullptr || *alignCode == kip_affine_alignNone)
        return status;
    return computeSourceRect(srcFromUnit, width, height, srcRect);
}
