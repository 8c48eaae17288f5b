#ifndef KIP_TRANSFORM_TILES_X86_TILE_KERNELS_X86_H
#define KIP_TRANSFORM_TILES_X86_TILE_KERNELS_X86_H

// Variants of the 16.16 tile kernels for x86-64 processors, equal to the portable ones to the bit. A tile
// that a variant has no good way for is handed on: from blocks to rows, from rows to the portable kernel.

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/tiles/tile_kernels.h"

namespace kip {

// Rows of eight pixels.
int32_t kip_affineTransformTileNearest8Avx2(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                            int32_t dstPitch);
int32_t kip_affineTransformTileBilinearFast8Avx2(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                                 int32_t dstPitch);
int32_t kip_affineProjectTileNearest8Avx2(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                          int32_t dstPitch);
int32_t kip_affineProjectTileBilinearFast8Avx2(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                               int32_t dstPitch);

int32_t kip_affineTransformTileNearest16Avx2(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst,
                                             int32_t dstPitch);
int32_t kip_affineTransformTileBilinearAccurate16Avx2(const FixedTile &tile, const uint16_t *src, int32_t srcPitch,
                                                      void *dst, int32_t dstPitch);
int32_t kip_affineProjectTileNearest16Avx2(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst,
                                           int32_t dstPitch);
int32_t kip_affineProjectTileBilinearAccurate16Avx2(const FixedTile &tile, const uint16_t *src, int32_t srcPitch,
                                                    void *dst, int32_t dstPitch);

// Blocks of 8 x 8 pixels.
int32_t kip_affineTransformTileNearest8Avx512Vbmi(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                  void *dst, int32_t dstPitch);
int32_t kip_affineTransformTileBilinearFast8Avx512Vbmi(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                       void *dst, int32_t dstPitch);
int32_t kip_affineProjectTileNearest8Avx512Vbmi(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                                int32_t dstPitch);
int32_t kip_affineProjectTileBilinearFast8Avx512Vbmi(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                     void *dst, int32_t dstPitch);

// Blocks of 8 x 4 pixels.
int32_t kip_affineTransformTileNearest16Avx512(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst,
                                               int32_t dstPitch);
int32_t kip_affineTransformTileBilinearAccurate16Avx512(const FixedTile &tile, const uint16_t *src, int32_t srcPitch,
                                                        void *dst, int32_t dstPitch);
int32_t kip_affineProjectTileNearest16Avx512(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst,
                                             int32_t dstPitch);
int32_t kip_affineProjectTileBilinearAccurate16Avx512(const FixedTile &tile, const uint16_t *src, int32_t srcPitch,
                                                      void *dst, int32_t dstPitch);

} // namespace kip

#endif

#endif
