#ifndef KIP_TRANSFORM_PLAN_PLAN_TILES_H
#define KIP_TRANSFORM_PLAN_PLAN_TILES_H

// The table-driven modes, 2 (separable bilinear) and 3 (bicubic). A call goes from here through these files:
//
//   plan_tiles.cpp                   the walk over tiles and rows
//   plan_scan.h, plan_footprint.h,   where a tile and its rows begin; what they read; the rows that reach the source's
//   plan_edge_rows.h                 edges
//   plan_kernel_choice.h             the kernels of a row, or of a group of rows, for a processor
//   plan_rows.h, plan_linear.h,      the portable kernels, which define the results
//   plan_cubic.h
//   x86/plan_<mode><bits>_<level>    their variants, such as plan_cubic16_avx2.cpp
//
// The variants are compared in tests/transform/transform_model_test.cpp and timed by bench/transform.

#include <cstdint>

#include "support/sampling.h"

namespace kip {

// Resample a destination through the plan that the cache holds for it, tile by tile and row by row. The plan's scratch
// memory is overwritten. Adding is for 8-bit sources only.
//
//   features  what of the processor may be used, for the variants of the kernels
// Return 0, or the status of the weight table.
int32_t processPlanTiles8(const Sampling &sampling);
int32_t processPlanTiles16(const Sampling &sampling, uint32_t features);

// The optimised 8-bit path's: the same walk and edges with the arithmetic of packed integer kernels.
int32_t processTilePlanPacked8(const Sampling &sampling, uint32_t features);

} // namespace kip

#endif
