#ifndef KIP_GEOMETRY_SAMPLING_GRID_H
#define KIP_GEOMETRY_SAMPLING_GRID_H

#include <kip/kip.h>

#include "support/sampling.h"

namespace kip {

// Where the destination's pixel centres lie in a source window, in source pixels.
struct SamplingGrid {
    kmath_vect start;   // the centre of destination pixel (0, 0)
    kmath_vect rowStep; // one destination row down
    kmath_vect colStep; // one destination column to the right
};

// The map from the destination's pixel coordinates to the unit square, (x / width, y / height).
int32_t unitSquareFromDest(double width, double height, kmath_xformLinear *xform);

// Computes the grid of a sampling, relative to the source window's first pixel. Returns a status of the geometry.
int32_t computeSamplingGrid(const Sampling &sampling, SamplingGrid *grid);

} // namespace kip

#endif
