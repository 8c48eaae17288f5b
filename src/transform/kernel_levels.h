#ifndef KIP_TRANSFORM_KERNEL_LEVELS_H
#define KIP_TRANSFORM_KERNEL_LEVELS_H

#include <cstdint>

#include "transform/aligned_rows.h"
#include "transform/plan_rows.h"
#include "transform/tile_kernels.h"

namespace kip {

// The kernels of each family for a set of ksys_feature... bits: the portable ones, replaced level by level by
// what runs, and runs well, on such a processor. Pure functions; an operation asks once.

// The features that the processor information reports now; none if it fails.
uint32_t processorFeatures();

// The fast 8-bit path, modes 0 and 1.
TileKernels<uint8_t, int32_t> fastTileKernels8(uint32_t features, uint32_t accumulate, uint32_t mode);

// The 16-bit path, modes 0 and 1.
TileKernels<uint16_t, int32_t> tileKernels16(uint32_t features, uint32_t accumulate, uint32_t mode);

// The rows of the table-driven modes. Rule: Linear8, CubicPacked8 of the fast 8-bit path, Linear16 or Cubic16.
template <typename Rule>
PlanRowKernels<typename Rule::Pixel, typename Rule::Entry> planRowKernels(uint32_t features, uint32_t accumulate);

// Whole-pixel maps, for uint8_t and uint16_t.
template <typename Pixel>
AlignedKernels<Pixel> alignedKernels(uint32_t features);

} // namespace kip

#endif
