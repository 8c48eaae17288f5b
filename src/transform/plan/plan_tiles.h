#ifndef KIP_TRANSFORM_PLAN_PLAN_TILES_H
#define KIP_TRANSFORM_PLAN_PLAN_TILES_H

#include <cstdint>

#include "support/sampling.h"

namespace kip {

// Resample a destination through the plan that the cache holds for it, tile by tile and row by row; mode 2 or 3. The
// plan's scratch memory is overwritten. Adding is for 8-bit sources only.
//
//   features  what of the processor may be used, for the variants of the kernels
// Return 0, or the status of the weight table.
int32_t processPlanTiles8(const Sampling &sampling);
int32_t processPlanTiles16(const Sampling &sampling, uint32_t features);

// The optimised 8-bit path's: the same walk and edges with the arithmetic of packed integer kernels.
int32_t processTilePlanPacked8(const Sampling &sampling, uint32_t features);

} // namespace kip

#endif
