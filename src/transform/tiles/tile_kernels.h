#ifndef KIP_TRANSFORM_TILES_TILE_KERNELS_H
#define KIP_TRANSFORM_TILES_TILE_KERNELS_H

#include <cstdint>

namespace kip {

// One rectangle of destination samples: where its first sample lies in the source and how the position
// moves. Positions are pixel coordinates, 16.16 (int32_t, wrapping) or double; a pixel's centre lies at half.
template <typename Position>
struct Tile {
    Position x, y;               // the centre of the first destination pixel
    Position rowStepX, rowStepY; // one destination row down
    Position colStepX, colStepY; // one destination column to the right
    int32_t width, rows;         // destination pixels; nothing is done when either is below 1
};

using FixedTile = Tile<int32_t>;
using DoubleTile = Tile<double>;

// Computes a tile.
//
//   src, srcPitch  source pixel (0, 0) of the positions; pixels from row to row
//   dst, dstPitch  storing kernels: the tile's first destination pixel; pixels from row to row
//                  adding kernels: the first of tile.width uint32_t column sums; the pitch is not read
// Every neighbourhood that the positions name must lie inside the source.
template <typename Pixel, typename Position>
using TileKernel = void (*)(const Tile<Position> &tile, const Pixel *src, int32_t srcPitch, void *dst,
                            int32_t dstPitch);

// What a bounded kernel may read: width x height pixels. The tile's positions count from pixel
// (baseX, baseY) of them.
struct SourceBounds {
    int64_t baseX;
    int64_t baseY;
    int32_t width;
    int32_t height;
};

// The bounded twin of a kernel takes a neighbour outside the source from the nearest pixel of it, so that it
// may be given any positions; with all neighbours inside it gives the same values. src is the source's first
// pixel, whatever the base.
template <typename Pixel, typename Position>
using BoundedTileKernel = void (*)(const Tile<Position> &tile, const Pixel *src, int32_t srcPitch,
                                   const SourceBounds &bounds, void *dst, int32_t dstPitch);

// A kernel, its twin, and what both read: pixels (ix, iy) to (ix + reach, iy + reach), where ix and iy are the
// integer parts of the position less shift.
template <typename Pixel, typename Position>
struct TileKernels {
    TileKernel<Pixel, Position> inside;
    BoundedTileKernel<Pixel, Position> bounded;
    int32_t reach;
    Position shift;
    // Asked once for every tile, where set, whatever it is for: without a yes, portable takes the place of inside.
    bool (*mayOptimise)() = nullptr;
    TileKernel<Pixel, Position> portable = nullptr;
};

// The portable kernels of mode 0 or 1 that store samples (accumulate 0) or add them to column sums.
TileKernels<uint8_t, int32_t> fixedTileKernels8(uint32_t accumulate, uint32_t mode);
TileKernels<uint8_t, double> doubleTileKernels8(uint32_t accumulate, uint32_t mode);
TileKernels<uint16_t, int32_t> fixedTileKernels16(uint32_t accumulate, uint32_t mode);

// The kernels by name. Nearest neighbour takes the pixel that contains the position. Bilinear weighs the four
// pixels round it, with the exact 32-bit weights of a 16-bit fraction for 16-bit pixels and with 16-bit
// weights that sum to at most 65534 for 8-bit pixels. "Transform" stores, "Project" adds.
void kip_affineTransformTileNearest8Portable(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                             int32_t dstPitch);
void kip_affineTransformTileBilinearAccurate8Portable(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                      void *dst, int32_t dstPitch);
void kip_affineProjectTileNearest8Portable(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                           int32_t dstPitch);
void kip_affineProjectTileBilinearAccurate8Portable(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                    void *dst, int32_t dstPitch);

void kip_affineTransformTileNearest8DoublePortable(const DoubleTile &tile, const uint8_t *src, int32_t srcPitch,
                                                   void *dst, int32_t dstPitch);
void kip_affineTransformTileBilinearAccurate8DoublePortable(const DoubleTile &tile, const uint8_t *src,
                                                            int32_t srcPitch, void *dst, int32_t dstPitch);
void kip_affineProjectTileNearest8DoublePortable(const DoubleTile &tile, const uint8_t *src, int32_t srcPitch,
                                                 void *dst, int32_t dstPitch);
void kip_affineProjectTileBilinearAccurate8DoublePortable(const DoubleTile &tile, const uint8_t *src, int32_t srcPitch,
                                                          void *dst, int32_t dstPitch);

void kip_affineTransformTileNearest16Portable(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst,
                                              int32_t dstPitch);
void kip_affineTransformTileBilinearAccurate16Portable(const FixedTile &tile, const uint16_t *src, int32_t srcPitch,
                                                       void *dst, int32_t dstPitch);
void kip_affineProjectTileNearest16Portable(const FixedTile &tile, const uint16_t *src, int32_t srcPitch, void *dst,
                                            int32_t dstPitch);
void kip_affineProjectTileBilinearAccurate16Portable(const FixedTile &tile, const uint16_t *src, int32_t srcPitch,
                                                     void *dst, int32_t dstPitch);

} // namespace kip

#endif
