#ifndef KIP_TRANSFORM_TILES_X86_BLOCK_LANES_AVX512_H
#define KIP_TRANSFORM_TILES_X86_BLOCK_LANES_AVX512_H

// The positions of a block's pixels in a box of 16 source columns, for the block kernels of either depth.

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "support/x86/x86_intrinsics.h"
#include "transform/tiles/x86/tile_blocks.h"
#include "transform/tiles/x86/tile_kernels_x86.h"

KIP_TARGET_BEGIN("avx2,avx512f,avx512bw,avx512dq,avx512vl")

namespace kip {

inline constexpr int32_t kBoxColumns = 16;

// Four rows of eight pixels, one in each word. A position splits into a fraction, which needs all of its 16
// bits, and a pixel of the box.
struct BlockLanes {
    __m512i fractionX;
    __m512i fractionY;
    __m512i index; // kBoxColumns y + x
};

// Rows firstRow to firstRow + 3 of a block whose least position is a whole pixel: what the blocks of a tile
// have in common.
inline BlockLanes makeBlockLanes(const BlockAxis &x, const BlockAxis &y, int32_t firstRow)
{
    const __m512i columns = _mm512_set_epi32(7, 6, 5, 4, 3, 2, 1, 0, 7, 6, 5, 4, 3, 2, 1, 0);
    const __m512i rows =
        _mm512_add_epi32(_mm512_set_epi32(1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0), _mm512_set1_epi32(firstRow));
    const __m512i evenWords = _mm512_set_epi16(62, 60, 58, 56, 54, 52, 50, 48, 46, 44, 42, 40, 38, 36, 34, 32, 30, 28,
                                               26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
    const __m512i oddWords = _mm512_or_si512(evenWords, _mm512_set1_epi16(1));
    const auto split = [&](const BlockAxis &axis, __m512i *fraction) {
        const __m512i rowStep = _mm512_set1_epi32(axis.rowStep);
        const __m512i upper =
            _mm512_sub_epi32(_mm512_add_epi32(_mm512_mullo_epi32(columns, _mm512_set1_epi32(axis.colStep)),
                                              _mm512_mullo_epi32(rows, rowStep)),
                             _mm512_set1_epi32(static_cast<int32_t>(axis.least)));
        const __m512i lower = _mm512_add_epi32(upper, _mm512_add_epi32(rowStep, rowStep));
        *fraction = _mm512_permutex2var_epi16(upper, evenWords, lower);
        return _mm512_permutex2var_epi16(upper, oddWords, lower);
    };
    BlockLanes lanes;
    const __m512i pixelX = split(x, &lanes.fractionX);
    const __m512i pixelY = split(y, &lanes.fractionY);
    lanes.index = _mm512_add_epi16(pixelX, _mm512_mullo_epi16(pixelY, _mm512_set1_epi16(kBoxColumns)));
    return lanes;
}

// Where a block's least position lies, and the corner of its box. The box is moved back from the tile's right
// and lower edge, to read nothing beyond.
struct BlockCorner {
    __m512i fractionX;
    __m512i fractionY;
    int32_t boxX, boxY;
    int32_t index; // of the least position's pixel in the box

    BlockCorner(const BlockAxis &axisX, const BlockAxis &axisY, const BlockPlace &place, int32_t boxRows)
    {
        const uint32_t x = axisX.positionOf(place.column, place.row);
        const uint32_t y = axisY.positionOf(place.column, place.row);
        fractionX = _mm512_set1_epi16(static_cast<int16_t>(x));
        fractionY = _mm512_set1_epi16(static_cast<int16_t>(y));
        const int32_t pixelX = static_cast<int32_t>(x) >> 16;
        const int32_t pixelY = static_cast<int32_t>(y) >> 16;
        boxX = std::min(pixelX, axisX.last - (kBoxColumns - 1));
        boxY = std::min(pixelY, axisY.last - (boxRows - 1));
        index = (pixelY - boxY) * kBoxColumns + (pixelX - boxX);
    }
};

// The lanes of one block. Indices count in units of indexUnit.
inline BlockLanes placeLanes(const BlockLanes &lanes, const BlockCorner &corner, int16_t indexUnit)
{
    BlockLanes placed;
    placed.fractionX = _mm512_add_epi16(lanes.fractionX, corner.fractionX);
    placed.fractionY = _mm512_add_epi16(lanes.fractionY, corner.fractionY);
    // A sum of fractions below either of them has carried into the pixel.
    const __mmask32 carryX = _mm512_cmplt_epu16_mask(placed.fractionX, corner.fractionX);
    const __mmask32 carryY = _mm512_cmplt_epu16_mask(placed.fractionY, corner.fractionY);
    const __m512i origin = _mm512_set1_epi16(static_cast<int16_t>(corner.index * indexUnit));
    const __m512i right = _mm512_set1_epi16(indexUnit);
    const __m512i down = _mm512_set1_epi16(static_cast<int16_t>(indexUnit * kBoxColumns));
    __m512i index = _mm512_add_epi16(lanes.index, origin);
    index = _mm512_mask_add_epi16(index, carryX, index, right);
    placed.index = _mm512_mask_add_epi16(index, carryY, index, down);
    return placed;
}

// How blocks of a size read a tile: fills both axes and returns the number of banks, of boxRows rows each and
// at least two, that hold a block's box. Returns 0 if the tile is smaller than a block, a block's box wider
// than boxColumns, or the box larger than what the tile may read.
template <typename Interpolation>
int32_t boxBanks(const FixedTile &tile, int32_t blockWidth, int32_t blockRows, int32_t boxColumns, int32_t boxRows,
                 BlockAxis *x, BlockAxis *y)
{
    constexpr auto shift = static_cast<int32_t>(Interpolation::template shift<int32_t>());
    constexpr int32_t reach = Interpolation::kReach;
    if (tile.width < blockWidth || tile.rows < blockRows ||
        !measureBlockAxis(tile.x, tile.colStepX, tile.rowStepX, tile, blockWidth, blockRows, shift, reach, x) ||
        !measureBlockAxis(tile.y, tile.colStepY, tile.rowStepY, tile, blockWidth, blockRows, shift, reach, y))
        return 0;
    if (x->extent > boxColumns || x->last - x->first < boxColumns - 1)
        return 0;
    const int32_t banks = std::max((y->extent + boxRows - 1) / boxRows, 2);
    return y->last - y->first < banks * boxRows - 1 ? 0 : banks;
}

// A tile, its axes and its source.
template <typename Pixel>
struct BlockTile {
    const FixedTile &tile;
    BlockAxis x, y;
    const Pixel *src;
    int64_t pitch;
    bool downFirst; // blocks follow each other along the columns
};

// Resamples a tile by Blocks::walk<Interpolation, banks>, banks being how many of Blocks::kBoxRows rows each hold a
// block's box; by runs or rows if two to four of them do not. Blocks also tells the size of its blocks, kWidth and
// kRows, and what becomes of their samples: Blocks::Output<Store> or <Add>, made of the destination and its pitch.
template <typename Blocks, typename Interpolation, typename Sink>
void resampleBlocks(const FixedTile &tile, const typename Blocks::Pixel *src, int32_t srcPitch, void *dst,
                    int32_t dstPitch)
{
    using Pixel = typename Blocks::Pixel;
    const typename Blocks::template Output<Sink> output(dst, dstPitch);
    // Along the side that leaves the source's rows less, so that a row's bytes are used up while they are in the
    // nearest cache; but columns of stores would evict each other's lines before these are full.
    const bool evictsStores = std::is_same_v<Sink, Store> && evictLines<Pixel>(dstPitch);
    BlockTile<Pixel> t = {tile, {}, {}, src, srcPitch, leadsDown(tile) && !evictsStores};
    switch (boxBanks<Interpolation>(tile, Blocks::kWidth, Blocks::kRows, kBoxColumns, Blocks::kBoxRows, &t.x, &t.y)) {
    case 2:
        return Blocks::template walk<Interpolation, 2>(t, output);
    case 3:
        return Blocks::template walk<Interpolation, 3>(t, output);
    case 4:
        return Blocks::template walk<Interpolation, 4>(t, output);
    default:
        return tileKernelAvx2<Interpolation, Sink, Pixel>()(tile, src, srcPitch, dst, dstPitch);
    }
}

} // namespace kip

KIP_TARGET_END

#endif

#endif
