#include "geometry/sampling_grid.h"

namespace kip {

namespace {

// Maps (x, y) and makes the result relative to the source window's first pixel.
int32_t mapIntoWindow(const kmath_xformLinear &map, double x, double y, const kimg_windowConst &source,
                      kmath_vect *result)
{
    const kmath_vect point = {x, y};
    const int32_t status = kmath_xformLinear_mapPoint(&map, &point, result);
    if (status < 0)
        return status;
    result->x -= source.x;
    result->y -= source.y;
    return status;
}

} // namespace

int32_t unitSquareFromDest(double width, double height, kmath_xformLinear *xform)
{
    return kmath_xformLinear_initMatrixTransElements(xform, 1.0 / width, 0.0, 0.0, 1.0 / height, 0.0, 0.0);
}

int32_t computeSamplingGrid(const Sampling &sampling, SamplingGrid *grid)
{
    const kip_affineSampleParams &params = sampling.params;
    kmath_xformLinear map;
    int32_t status = unitSquareFromDest(params.destWidth, params.destHeight, &map);
    if (status < 0)
        return status;
    status = kmath_xformLinear_initCompose(&map, &params.rect, &map);
    if (status < 0)
        return status;
    status = kmath_xformLinear_initCompose(&map, &sampling.srcFromClient, &map);
    if (status < 0)
        return status;

    kmath_vect below;
    kmath_vect right;
    status = mapIntoWindow(map, 0.5, 0.5, sampling.source, &grid->start);
    if (status < 0)
        return status;
    status = mapIntoWindow(map, 0.5, 1.5, sampling.source, &below);
    if (status < 0)
        return status;
    status = mapIntoWindow(map, 1.5, 0.5, sampling.source, &right);
    if (status < 0)
        return status;

    // The steps are differences of mapped points, not matrix elements: every path rounds them this way.
    grid->rowStep = {below.x - grid->start.x, below.y - grid->start.y};
    grid->colStep = {right.x - grid->start.x, right.y - grid->start.y};
    return status;
}

} // namespace kip
