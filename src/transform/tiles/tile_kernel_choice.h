#ifndef KIP_TRANSFORM_TILES_TILE_KERNEL_CHOICE_H
#define KIP_TRANSFORM_TILES_TILE_KERNEL_CHOICE_H

#include <cstdint>

#include "transform/tiles/tile_kernels.h"

namespace kip {

// The kernels of the per-pixel modes for a set of ksys_feature... bits: the portable ones, replaced level by level by
// what runs, and runs well, on such a processor. Pure functions; an operation asks once.

// The fast 8-bit path, modes 0 and 1.
TileKernels<uint8_t, int32_t> fastTileKernels8(uint32_t features, uint32_t accumulate, uint32_t mode);

// The portable 8-bit path, modes 0 and 1.
TileKernels<uint8_t, int32_t> accurateTileKernels8(uint32_t features, uint32_t accumulate, uint32_t mode);

// The 16-bit path, modes 0 and 1.
TileKernels<uint16_t, int32_t> tileKernels16(uint32_t features, uint32_t accumulate, uint32_t mode);

} // namespace kip

#endif
