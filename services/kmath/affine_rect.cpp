#include <kmath/kmath.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>

#include "turn.h"

namespace {

bool areFinite(std::initializer_list<double> values)
{
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

// The pixels from the one that holds the least corner to the one that holds the greatest, along one axis.
int32_t enclose(std::initializer_list<double> corners, int32_t *start, int32_t *size)
{
    if (!areFinite(corners))
        return kmath_statusNotFinite;
    const double first = std::floor(std::min(corners));
    const double last = std::floor(std::max(corners));
    // The end of the rectangle, one past its last pixel, must have a number too.
    if (first < -2147483648.0 || last >= 2147483647.0 || last - first >= 2147483647.0)
        return kmath_statusOutOfRange;
    *start = static_cast<int32_t>(first);
    *size = static_cast<int32_t>(last - first) + 1;
    return 0;
}

} // namespace

int32_t kmath_shapeAffineRect_initMap(kmath_shapeAffineRect *result, const kmath_xformLinear *map,
                                      const kmath_shapeAffineRect *rect)
{
    return kmath_xformLinear_initCompose(result, map, rect);
}

int32_t kmath_shapeAffineRect_initPoints(kmath_shapeAffineRect *result, const kmath_shapeAffineRectPoints *points)
{
    const kmath_vect &origin = points->origin;
    const kmath_vect &xEnd = points->xEnd;
    const kmath_vect &yEnd = points->yEnd;
    const kmath_shapeAffineRect rect{
        origin.x,          origin.y,          //
        xEnd.x - origin.x, yEnd.x - origin.x, //
        xEnd.y - origin.y, yEnd.y - origin.y,
    };
    if (!areFinite({rect.tx, rect.ty, rect.e0, rect.e1, rect.e2, rect.e3}))
        return kmath_statusNotFinite;
    *result = rect;
    return 0;
}

int32_t kmath_shapeAffineRect_initCenter(kmath_shapeAffineRect *result, double centerX, double centerY, double width,
                                         double height, double angle)
{
    if (!std::isfinite(angle))
        return kmath_statusNotFinite;
    const auto [cosine, sine] = turnBy(angle);
    const kmath_vect xSide{width * cosine, width * sine};
    const kmath_vect ySide{0 - height * sine, height * cosine}; // not -0 where the sine is 0
    const kmath_shapeAffineRect rect{
        centerX - (xSide.x + ySide.x) / 2,
        centerY - (xSide.y + ySide.y) / 2, //
        xSide.x,
        ySide.x, //
        xSide.y,
        ySide.y,
    };
    if (!areFinite({rect.tx, rect.ty, rect.e0, rect.e1, rect.e2, rect.e3}))
        return kmath_statusNotFinite;
    *result = rect;
    return 0;
}

int32_t kmath_shapeAffineRect_getCenter(const kmath_shapeAffineRect *rect, kmath_shapeAffineRectCenter *center)
{
    const kmath_matrix matrix{rect->e0, rect->e1, rect->e2, rect->e3};
    const kmath_vect middle{0.5, 0.5};
    kmath_vect mapped;
    kmath_shapeAffineRectCenter found{};
    kmath_xformLinear_mapPoint(rect, &middle, &mapped);
    kmath_matrix_getXScale(&matrix, &found.xSideLength);
    kmath_matrix_getYScale(&matrix, &found.ySideLength);
    found.x = mapped.x;
    found.y = mapped.y;
    if (!areFinite({found.x, found.y, found.xSideLength, found.ySideLength}))
        return kmath_statusNotFinite;
    *center = found;
    return 0;
}

int32_t kmath_shapeAffineRect_getPoints(const kmath_shapeAffineRect *rect, kmath_shapeAffineRectPoints *points)
{
    const kmath_shapeAffineRectPoints found{
        {rect->tx, rect->ty},
        {rect->tx + rect->e0, rect->ty + rect->e2},
        {rect->tx + rect->e1, rect->ty + rect->e3},
    };
    if (!areFinite({found.origin.x, found.origin.y, found.xEnd.x, found.xEnd.y, found.yEnd.x, found.yEnd.y}))
        return kmath_statusNotFinite;
    *points = found;
    return 0;
}

int32_t kmath_shapeAffineRectPoints_getPopp(const kmath_shapeAffineRectPoints *points, kmath_vect *opposite)
{
    *opposite = {points->xEnd.x + points->yEnd.x - points->origin.x,
                 points->xEnd.y + points->yEnd.y - points->origin.y};
    return 0;
}

int32_t kmath_shapeAffineRect_getEncloseImageRect(const kmath_shapeAffineRect *rect, const kmath_xformLinear *map,
                                                  kstd_rect32 *result)
{
    kmath_shapeAffineRectPoints points;
    int32_t status = kmath_shapeAffineRect_getPoints(rect, &points);
    if (status < 0)
        return status;
    kmath_vect opposite;
    kmath_shapeAffineRectPoints_getPopp(&points, &opposite);

    kmath_vect corners[4];
    kmath_xformLinear_mapPoint(map, &points.origin, &corners[0]);
    kmath_xformLinear_mapPoint(map, &points.xEnd, &corners[1]);
    kmath_xformLinear_mapPoint(map, &points.yEnd, &corners[2]);
    kmath_xformLinear_mapPoint(map, &opposite, &corners[3]);

    kstd_rect32 enclosing{};
    status = enclose({corners[0].x, corners[1].x, corners[2].x, corners[3].x}, &enclosing.x, &enclosing.width);
    if (status < 0)
        return status;
    status = enclose({corners[0].y, corners[1].y, corners[2].y, corners[3].y}, &enclosing.y, &enclosing.height);
    if (status < 0)
        return status;
    *result = enclosing;
    return 0;
}
