#include "transform/tiles/tile_kernels.h"

#include <kip/kip.h>

#include "support/optimized_path.h"
#include "transform/tiles/tile_sampling.h"

namespace kip {

namespace {

bool mayOptimiseTransformTileBilinear16()
{
    return !isInhibited(L"kip_affineTransformTileBilinearAccurate16Portable");
}

} // namespace

void kip_affineTransformTileNearest8Portable(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                             int32_t dstPitch)
{
    resampleInside<Nearest, Store, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineTransformTileBilinearAccurate8Portable(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                      void *dst, int32_t dstPitch)
{
    resampleInside<Bilinear<Accurate8>, Store, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineProjectTileNearest8Portable(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                           int32_t dstPitch)
{
    resampleInside<Nearest, Add, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineProjectTileBilinearAccurate8Portable(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                    void *dst, int32_t dstPitch)
{
    resampleInside<Bilinear<Accurate8>, Add, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineTransformTileNearest8DoublePortable(const DoubleTile &tile, const uint8_t *src, int32_t srcPitch,
                                                   void *dst, int32_t dstPitch)
{
    resampleInside<Nearest, Store, DoublePosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineTransformTileBilinearAccurate8DoublePortable(const DoubleTile &tile, const uint8_t *src,
                                                            int32_t srcPitch, void *dst, int32_t dstPitch)
{
    resampleInside<Bilinear<Accurate8>, Store, DoublePosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineProjectTileNearest8DoublePortable(const DoubleTile &tile, const uint8_t *src, int32_t srcPitch,
                                                 void *dst, int32_t dstPitch)
{
    resampleInside<Nearest, Add, DoublePosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineProjectTileBilinearAccurate8DoublePortable(const DoubleTile &tile, const uint8_t *src, int32_t srcPitch,
                                                          void *dst, int32_t dstPitch)
{
    resampleInside<Bilinear<Accurate8>, Add, DoublePosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineTransformTileNearest16Portable(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst,
                                              int32_t dstPitch)
{
    resampleInside<Nearest, Store, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineTransformTileBilinearAccurate16Portable(const FixedTile &tile, const uint16_t *src, int32_t srcPitch,
                                                       void *dst, int32_t dstPitch)
{
    resampleInside<Bilinear<Accurate16>, Store, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineProjectTileNearest16Portable(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst,
                                            int32_t dstPitch)
{
    resampleInside<Nearest, Add, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

void kip_affineProjectTileBilinearAccurate16Portable(const FixedTile &tile, const uint16_t *src, int32_t srcPitch,
                                                     void *dst, int32_t dstPitch)
{
    resampleInside<Bilinear<Accurate16>, Add, FixedPosition>(tile, src, srcPitch, dst, dstPitch);
}

TileKernels<uint8_t, int32_t> fixedTileKernels8(uint32_t accumulate, uint32_t mode)
{
    if (mode == kip_affineModeNearest)
        return accumulate == 0 ? withTwin<Nearest, Store, FixedPosition>(kip_affineTransformTileNearest8Portable)
                               : withTwin<Nearest, Add, FixedPosition>(kip_affineProjectTileNearest8Portable);
    return accumulate == 0
               ? withTwin<Bilinear<Accurate8>, Store, FixedPosition>(kip_affineTransformTileBilinearAccurate8Portable)
               : withTwin<Bilinear<Accurate8>, Add, FixedPosition>(kip_affineProjectTileBilinearAccurate8Portable);
}

TileKernels<uint8_t, double> doubleTileKernels8(uint32_t accumulate, uint32_t mode)
{
    if (mode == kip_affineModeNearest)
        return accumulate == 0 ? withTwin<Nearest, Store, DoublePosition>(kip_affineTransformTileNearest8DoublePortable)
                               : withTwin<Nearest, Add, DoublePosition>(kip_affineProjectTileNearest8DoublePortable);
    return accumulate == 0 ? withTwin<Bilinear<Accurate8>, Store, DoublePosition>(
                                 kip_affineTransformTileBilinearAccurate8DoublePortable)
                           : withTwin<Bilinear<Accurate8>, Add, DoublePosition>(
                                 kip_affineProjectTileBilinearAccurate8DoublePortable);
}

TileKernels<uint16_t, int32_t> fixedTileKernels16(uint32_t accumulate, uint32_t mode)
{
    if (mode == kip_affineModeNearest)
        return accumulate == 0 ? withTwin<Nearest, Store, FixedPosition>(kip_affineTransformTileNearest16Portable)
                               : withTwin<Nearest, Add, FixedPosition>(kip_affineProjectTileNearest16Portable);
    if (accumulate != 0)
        return withTwin<Bilinear<Accurate16>, Add, FixedPosition>(kip_affineProjectTileBilinearAccurate16Portable);
    auto kernels =
        withTwin<Bilinear<Accurate16>, Store, FixedPosition>(kip_affineTransformTileBilinearAccurate16Portable);
    kernels.mayOptimise = mayOptimiseTransformTileBilinear16;
    kernels.portable = kernels.inside;
    return kernels;
}

} // namespace kip
