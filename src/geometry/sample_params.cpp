#include <kip/kip.h>

int32_t kip_affineSampleParams_init(kip_affineSampleParams *params, uint32_t mode, const kmath_shapeAffineRect *rect,
                                    int32_t destWidth, int32_t destHeight)
{
    params->rect = *rect;
    params->mode = mode;
    params->destWidth = destWidth;
    params->destHeight = destHeight;
    return 0;
}

int32_t kip_affineSampleParams_initRectStandard(kip_affineSampleParams *params, const kmath_shapeAffineRect *rect,
                                                const kmath_xformLinear *map)
{
    kmath_shapeAffineRect measured = *rect;
    if (map != nullptr) {
        const int32_t status = kmath_shapeAffineRect_initMap(&measured, map, rect);
        if (status < 0)
            return status;
    }

    kmath_shapeAffineRectCenter center;
    const int32_t status = kmath_shapeAffineRect_getCenter(&measured, &center);
    if (status < 0)
        return status;

    return kip_affineSampleParams_init(params, kip_affineModeBilinear, rect, kmath_double_round(center.xSideLength),
                                       kmath_double_round(center.ySideLength));
}

int32_t kip_affineSampleParams_getDestImageFromClientXform(const kip_affineSampleParams *params, int32_t oneRow,
                                                           kmath_xformLinear *xform)
{
    const double height = oneRow != 0 ? 1.0 : params->destHeight;
    const kmath_xformLinear scale{0.0, 0.0, 1.0 / params->destWidth, 0.0, 0.0, 1.0 / height};
    kmath_xformLinear clientFromDest;
    const int32_t status = kmath_xformLinear_initCompose(&clientFromDest, &params->rect, &scale);
    if (status < 0)
        return status; // a size of 0, or a rectangle that is not finite
    return kmath_xformLinear_initInverse(xform, &clientFromDest);
}
