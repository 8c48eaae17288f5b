#ifndef KIP_TRANSFORM_PLAN_PLAN_TILES_H
#define KIP_TRANSFORM_PLAN_PLAN_TILES_H

#include <cstdint>

#include <kip/kip.h>

#include "cache/tile_plan.h"

namespace kip {

// A plan processor resamples a destination through a plan, tile by tile and row by row; mode 2 or 3 of params.
//
//   accumulate  0: dst is the destination's first pixel. Else it is the first of destWidth zeroed uint32_t sums, one
//               a column, to which every row adds (8-bit sources only).
//   plan        built for this source, destination and mode; its scratch memory is overwritten
// Returns 0, or the status of the weight table.
using PlanProcessor = int32_t(uint32_t accumulate, const kip_affineSampleParams &params, const kip_affineTilePlan &plan,
                              const kimg_windowConst &source, void *dst);

PlanProcessor processPlanTiles8;
PlanProcessor processPlanTiles16;

// The fast 8-bit path's: the same walk and edges with the arithmetic of packed integer kernels.
PlanProcessor processTilePlanPacked8;

} // namespace kip

#endif
