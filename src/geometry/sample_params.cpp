#include <algorithm>
#include <cfloat>
#include <cmath>

#include <kip/kip.h>

namespace {

// A rectangle's area is the difference of two products. Of parallel sides the rounding of the coordinates and of the
// products leaves up to 1.5 times DBL_EPSILON of their sum, and less than 4 times where the coordinates were rounded
// three times over. A smaller area would hardly have a digit that is right.
constexpr double kLeastArea = 4.0 * DBL_EPSILON;

// Judged by the sides themselves, whatever their lengths: divided by the sample counts they are rounded again.
bool areSidesParallel(const kmath_shapeAffineRect &rect)
{
    int e0, e1, e2, e3;
    const double a = std::frexp(rect.e0, &e0) * std::frexp(rect.e3, &e3);
    double b = std::frexp(rect.e1, &e1) * std::frexp(rect.e2, &e2);
    // Relative to the first product, so that neither leaves the range of a double. Beyond 64 bits only the
    // greater one counts.
    b = std::ldexp(b, std::clamp(e1 + e2 - e0 - e3, -64, 64));
    return std::fabs(a - b) <= kLeastArea * (std::fabs(a) + std::fabs(b));
}

} // namespace

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
    if (areSidesParallel(params->rect))
        return kmath_statusSingular;
    return kmath_xformLinear_initInverse(xform, &clientFromDest);
}
