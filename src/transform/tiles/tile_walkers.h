#ifndef KIP_TRANSFORM_TILES_TILE_WALKERS_H
#define KIP_TRANSFORM_TILES_TILE_WALKERS_H

#include <cstdint>

#include "support/sampling.h"
#include "transform/tiles/tile_kernels.h"

namespace kip {

// A walker cuts a destination into square tiles, finds where each begins in the source and gives it to a
// kernel: to the plain one when the tile's corners show that all of it reads inside the source, else to the
// bounded twin, so that the plain one needs no test.
//
//   sampling  The originY of its destination, where not 0, is minus the first row of a band, a whole number of rows of
//             tiles: the walk begins that far down and covers the sampling's rows. Sums that are added to have been
//             zeroed.
//   tileSize  destination pixels along a tile's side
// All return a status of the geometry library.

// 16.16 positions from the source window's first pixel.
int32_t walkTiles8(const Sampling &sampling, int32_t tileSize, const TileKernels<uint8_t, int32_t> &kernels);
int32_t walkTiles16(const Sampling &sampling, int32_t tileSize, const TileKernels<uint16_t, int32_t> &kernels);

// The optimised 8-bit path's: as walkTiles8, but steps too long for 16.16 saturate and tile steps always come from the
// doubles, 0 where they are too long.
int32_t walkTilesBilinearFast8(const Sampling &sampling, int32_t tileSize,
                               const TileKernels<uint8_t, int32_t> &kernels);

// Tile starts of 64 bits with 30 fraction bits; 16.16 positions from each tile's own source pixel. For sources that
// 16.16 cannot span.
int32_t walkTilesRebased8(const Sampling &sampling, int32_t tileSize, const TileKernels<uint8_t, int32_t> &kernels);

// Positions in doubles, for tiles that 16.16 cannot span either. A band starts at a multiple of the tile step where a
// whole walk adds it repeatedly, which may differ in the last bits.
int32_t walkTilesDouble8(const Sampling &sampling, int32_t tileSize, const TileKernels<uint8_t, double> &kernels);

} // namespace kip

#endif
