#ifndef KIP_TRANSFORM_TILES_X86_TILE_KERNELS_X86_H
#define KIP_TRANSFORM_TILES_X86_TILE_KERNELS_X86_H

// Variants of the 16.16 tile kernels for x86-64 processors, equal to the portable ones to the bit. A tile that a
// variant has no good way for is handed on: from wider blocks to narrower ones, from blocks to
// rows, from rows to the portable kernel.
//
// There are some for Nearest with either pixel type, for Bilinear<Fast8> with uint8_t and for Bilinear<Accurate16> with
// uint16_t, each for both sinks, Store and Add; for Bilinear<Accurate8> there are rows.

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/tiles/tile_kernels.h"

namespace kip {

// Rows of eight pixels.
template <typename Interpolation, typename Sink, typename Pixel>
TileKernel<Pixel, int32_t> tileRowKernelAvx2();

// Blocks of 8 x 2, 8 x 4, 4 x 4 or 4 x 8 pixels, or rows.
template <typename Interpolation, typename Sink, typename Pixel>
TileKernel<Pixel, int32_t> tileKernelAvx2();

// Blocks of 8 x 8 pixels of 8 bits, for processors with VBMI, or of 8 x 4 pixels of 16 bits.
template <typename Interpolation, typename Sink, typename Pixel>
TileKernel<Pixel, int32_t> tileBlockKernelAvx512();

} // namespace kip

#endif

#endif
