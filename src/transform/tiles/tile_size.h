#ifndef KIP_TRANSFORM_TILES_TILE_SIZE_H
#define KIP_TRANSFORM_TILES_TILE_SIZE_H

#include <cstdint>

namespace kip {

// Side of the portable 8-bit walkers' tiles, in destination pixels.
inline constexpr int32_t kTileSizePortable8 = 64;

// Side of all other walkers' tiles, in destination pixels. The longer the source's rows, the smaller: a
// turned tile reads from many rows, and its pages and cache lines have to stay at hand. The height of the
// bands that run as jobs comes from the same table, since a band is one row of tiles.
constexpr int32_t tileSizeForPitch(int32_t sourcePitch)
{
    if (sourcePitch <= 1024)
        return 224;
    if (sourcePitch <= 2048)
        return 96;
    return sourcePitch <= 3072 ? 64 : 48;
}

} // namespace kip

#endif
