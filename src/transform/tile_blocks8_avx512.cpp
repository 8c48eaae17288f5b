// 8-bit tiles in blocks of 8 x 8 destination pixels. At scales near 1 a block's source pixels lie in a box of
// at most 16 x 16, whatever the angle. The box is loaded row by row into two to four registers, and byte
// permutes fetch all 64 neighbours of a kind at once.

#include "transform/tile_kernels_x86.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "support/x86_intrinsics.h"
#include "transform/tile_blocks.h"
#include "transform/tile_sampling.h"

KIP_TARGET_BEGIN("avx2,avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi")

namespace kip {

namespace {

constexpr int32_t kBlockSize = 8;
constexpr int32_t kBoxColumns = 16;
constexpr int32_t kBoxRowsPerRegister = 4;

// Byte order of a block: register lane q of 128 bits holds row q and then row q + 4. In words, half h holds
// rows 4h to 4h + 3.

// What the pixels of a block have in common with those of every other block of the tile.
struct BlockLanes {
    __m512i fractionX[2]; // words: low half of the position less the block's least one, by halves
    __m512i fractionY[2];
    __m512i index[2]; // words: high halves, 16 y + x
};

void setBlockLanes(const FixedTile &tile, const BlockAxis &x, const BlockAxis &y, BlockLanes *lanes)
{
    const __m512i columns = _mm512_set_epi32(7, 6, 5, 4, 3, 2, 1, 0, 7, 6, 5, 4, 3, 2, 1, 0);
    const __m512i rows = _mm512_set_epi32(1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0);
    const auto spread = [&](int32_t colStep, int32_t rowStep, int64_t least) {
        return _mm512_sub_epi32(_mm512_add_epi32(_mm512_mullo_epi32(columns, _mm512_set1_epi32(colStep)),
                                                 _mm512_mullo_epi32(rows, _mm512_set1_epi32(rowStep))),
                                _mm512_set1_epi32(static_cast<int32_t>(least)));
    };
    const __m512i twoRowsX = _mm512_slli_epi32(_mm512_set1_epi32(tile.rowStepX), 1);
    const __m512i twoRowsY = _mm512_slli_epi32(_mm512_set1_epi32(tile.rowStepY), 1);
    __m512i dx = spread(tile.colStepX, tile.rowStepX, x.least);
    __m512i dy = spread(tile.colStepY, tile.rowStepY, y.least);

    __m512i low, high;
    const __m512i evenWords = _mm512_set_epi16(62, 60, 58, 56, 54, 52, 50, 48, 46, 44, 42, 40, 38, 36, 34, 32, 30, 28,
                                               26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
    const __m512i oddWords = _mm512_or_si512(evenWords, _mm512_set1_epi16(1));
    for (int half = 0; half < 2; ++half) {
        const __m512i nextX = _mm512_add_epi32(dx, twoRowsX);
        const __m512i nextY = _mm512_add_epi32(dy, twoRowsY);
        lanes->fractionX[half] = _mm512_permutex2var_epi16(dx, evenWords, nextX);
        lanes->fractionY[half] = _mm512_permutex2var_epi16(dy, evenWords, nextY);
        low = _mm512_permutex2var_epi16(dx, oddWords, nextX);
        high = _mm512_permutex2var_epi16(dy, oddWords, nextY);
        lanes->index[half] = _mm512_add_epi16(low, _mm512_slli_epi16(high, 4));
        dx = _mm512_add_epi32(nextX, twoRowsX);
        dy = _mm512_add_epi32(nextY, twoRowsY);
    }
}

// ---- The box ---------------------------------------------------------------------------------------------------

template <int kRegisters>
struct Box {
    __m512i rows[kRegisters];
};

template <int kRegisters>
Box<kRegisters> loadBox(const uint8_t *at, int64_t pitch)
{
    const auto row = [&](int32_t n) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at + n * pitch)); };
    Box<kRegisters> box;
    for (int n = 0; n < kRegisters; ++n) {
        __m512i four = _mm512_castsi128_si512(row(4 * n));
        four = _mm512_inserti32x4(four, row(4 * n + 1), 1);
        four = _mm512_inserti32x4(four, row(4 * n + 2), 2);
        box.rows[n] = _mm512_inserti32x4(four, row(4 * n + 3), 3);
    }
    return box;
}

// The box's bytes at 64 indices.
template <int kRegisters>
__m512i lookUp(const Box<kRegisters> &box, __m512i index)
{
    const __m512i upper = _mm512_permutex2var_epi8(box.rows[0], index, box.rows[1]);
    if constexpr (kRegisters == 2)
        return upper;
    const __mmask64 isLower = _mm512_movepi8_mask(index); // index 128 and above
    if constexpr (kRegisters == 3)
        return _mm512_mask_permutexvar_epi8(upper, isLower, index, box.rows[2]);
    else if constexpr (kRegisters == 4)
        return _mm512_mask_blend_epi8(isLower, upper, _mm512_permutex2var_epi8(box.rows[2], index, box.rows[3]));
}

// ---- Interpolations --------------------------------------------------------------------------------------------

// The positions of a block's pixels.
struct BlockPositions {
    __m512i fractionX[2]; // words, by halves
    __m512i fractionY[2];
    __m512i index[2]; // words: byte of the box, 16 y + x, in every byte that the interpolation asks for
};

struct NearestBlock {
    using Portable = Nearest;
    static constexpr int16_t kIndexUnit = 0x0001;
    static constexpr int16_t kIndexOffset = 0;

    template <int kRegisters>
    static __m512i sample(const Box<kRegisters> &box, const BlockPositions &at)
    {
        return lookUp(box, _mm512_packus_epi16(at.index[0], at.index[1]));
    }
};

struct BilinearBlock {
    using Portable = Bilinear<Fast8>;
    static constexpr int16_t kIndexUnit = 0x0101; // a word looks up the pixel and the one to its right
    static constexpr int16_t kIndexOffset = 0x0100;

    template <int kRegisters>
    static __m512i sample(const Box<kRegisters> &box, const BlockPositions &at)
    {
        return _mm512_packus_epi16(sampleHalf(box, at, 0), sampleHalf(box, at, 1));
    }

private:
    // Weights are below 2^15 and a neighbourhood's sum to less than that: a sum of products is below 2^23.
    template <int kRegisters>
    static __m512i sampleHalf(const Box<kRegisters> &box, const BlockPositions &at, int half)
    {
        const __m512i ones = _mm512_set1_epi16(-1);
        const __m512i zero = _mm512_setzero_si512();
        const __m512i fx = at.fractionX[half];
        const __m512i fy = at.fractionY[half];
        // A subtraction, since GCC's complement waits for the register that it overwrites: 4.9 -> 5.5 Gpixel/s.
        const __m512i gx = _mm512_subs_epu16(ones, fx);
        const __m512i gy = _mm512_subs_epu16(ones, fy);
        const __m512i w00 = _mm512_srli_epi16(_mm512_mulhi_epu16(gy, gx), 1);
        const __m512i w01 = _mm512_srli_epi16(_mm512_mulhi_epu16(gy, fx), 1);
        const __m512i w10 = _mm512_srli_epi16(_mm512_mulhi_epu16(fy, gx), 1);
        const __m512i w11 = _mm512_srli_epi16(_mm512_mulhi_epu16(fy, fx), 1);

        const __m512i above = lookUp(box, at.index[half]);
        const __m512i below = lookUp(box, _mm512_add_epi8(at.index[half], _mm512_set1_epi8(kBoxColumns)));
        const __m512i low =
            _mm512_add_epi32(_mm512_madd_epi16(_mm512_unpacklo_epi16(w00, w01), _mm512_unpacklo_epi8(above, zero)),
                             _mm512_madd_epi16(_mm512_unpacklo_epi16(w10, w11), _mm512_unpacklo_epi8(below, zero)));
        const __m512i high =
            _mm512_add_epi32(_mm512_madd_epi16(_mm512_unpackhi_epi16(w00, w01), _mm512_unpackhi_epi8(above, zero)),
                             _mm512_madd_epi16(_mm512_unpackhi_epi16(w10, w11), _mm512_unpackhi_epi8(below, zero)));
        // (sum + 2^14) >> 15. The bits below the eighth never carry, so they may go first, and words remain.
        const __m512i sums = _mm512_packus_epi32(_mm512_srli_epi32(low, 8), _mm512_srli_epi32(high, 8));
        return _mm512_mulhrs_epi16(sums, _mm512_set1_epi16(256));
    }
};

// ---- What happens to a block's samples ---------------------------------------------------------------------------

// Storing the same values twice does no harm.
struct StoreBlocks {
    uint8_t *dst;
    int64_t pitch;

    void put(const BlockPlace &place, __m512i samples) const
    {
        uint8_t *const at = dst + place.row * pitch + place.column;
        storeRows<0>(at, samples);
        storeRows<1>(at, samples);
        storeRows<2>(at, samples);
        storeRows<3>(at, samples);
    }

private:
    template <int kLane>
    void storeRows(uint8_t *at, __m512i samples) const
    {
        const __m128i lane = _mm512_extracti32x4_epi32(samples, kLane);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(at + kLane * pitch), lane);
        _mm_storeh_pd(reinterpret_cast<double *>(at + (kLane + 4) * pitch), _mm_castsi128_pd(lane));
    }
};

struct AddBlocks {
    uint32_t *sums;

    void put(const BlockPlace &place, __m512i samples) const
    {
        if (place.overlapRows != 0)
            samples = _mm512_maskz_mov_epi8(rowsFrom(place.overlapRows), samples);
        const __m512i zero = _mm512_setzero_si512();
        const __m512i pairs =
            _mm512_add_epi16(_mm512_unpacklo_epi8(samples, zero), _mm512_unpackhi_epi8(samples, zero));
        const __m256i fours = _mm256_add_epi16(_mm512_castsi512_si256(pairs), _mm512_extracti64x4_epi64(pairs, 1));
        const __m128i eights = _mm_add_epi16(_mm256_castsi256_si128(fours), _mm256_extracti128_si256(fours, 1));

        const auto fresh = static_cast<__mmask8>(0xFF << place.overlapColumns);
        uint32_t *const at = sums + place.column;
        const __m256i before = _mm256_maskz_loadu_epi32(fresh, at);
        _mm256_mask_storeu_epi32(at, fresh, _mm256_add_epi32(before, _mm256_cvtepu16_epi32(eights)));
    }

private:
    // The bytes of rows first to 7.
    static __mmask64 rowsFrom(int32_t first)
    {
        uint64_t bytes = 0;
        for (int32_t row = first; row < kBlockSize; ++row)
            bytes |= uint64_t{0xFF} << (16 * (row % 4) + 8 * (row / 4));
        return bytes;
    }
};

// ---- The walk ------------------------------------------------------------------------------------------------------

// A tile, its axes and its source.
struct BlockTile {
    const FixedTile &tile;
    BlockAxis x, y;
    const uint8_t *src;
    int64_t pitch;
};

template <typename Interpolation, int kRegisters, typename Sink>
void walkBlocks(const BlockTile &t, const Sink &sink)
{
    const FixedTile &tile = t.tile;
    BlockLanes lanes;
    setBlockLanes(tile, t.x, t.y, &lanes);
    for (__m512i &index : lanes.index)
        index = _mm512_add_epi16(_mm512_mullo_epi16(index, _mm512_set1_epi16(Interpolation::kIndexUnit)),
                                 _mm512_set1_epi16(Interpolation::kIndexOffset));
    const __m512i right = _mm512_set1_epi16(Interpolation::kIndexUnit);
    const __m512i down = _mm512_set1_epi16(Interpolation::kIndexUnit * kBoxColumns);
    // The box is moved back from the tile's right and lower edge, to read nothing beyond.
    const int32_t lastColumn = t.x.last - (kBoxColumns - 1);
    const int32_t lastRow = t.y.last - (kRegisters * kBoxRowsPerRegister - 1);

    const BlockOrder order(tile, kBlockSize, kBlockSize);
    for (int32_t outer = 0; outer < order.outerEnd; outer += order.outerStep) {
        for (int32_t inner = 0; inner < order.innerEnd; inner += order.innerStep) {
            const BlockPlace place = order.place(outer, inner);
            const uint32_t x = t.x.positionOf(place.column, place.row);
            const uint32_t y = t.y.positionOf(place.column, place.row);
            const int32_t pixelX = static_cast<int32_t>(x) >> 16;
            const int32_t pixelY = static_cast<int32_t>(y) >> 16;
            const int32_t boxX = std::min(pixelX, lastColumn);
            const int32_t boxY = std::min(pixelY, lastRow);
            const auto box = loadBox<kRegisters>(t.src + (boxY * t.pitch + boxX), t.pitch);

            const __m512i fractionX = _mm512_set1_epi16(static_cast<int16_t>(x));
            const __m512i fractionY = _mm512_set1_epi16(static_cast<int16_t>(y));
            const __m512i origin = _mm512_set1_epi16(
                static_cast<int16_t>(((pixelY - boxY) * kBoxColumns + (pixelX - boxX)) * Interpolation::kIndexUnit));
            BlockPositions at;
            for (int half = 0; half < 2; ++half) {
                at.fractionX[half] = _mm512_add_epi16(lanes.fractionX[half], fractionX);
                at.fractionY[half] = _mm512_add_epi16(lanes.fractionY[half], fractionY);
                // A sum of fractions below either of them has carried into the pixel.
                const __mmask32 carryX = _mm512_cmplt_epu16_mask(at.fractionX[half], fractionX);
                const __mmask32 carryY = _mm512_cmplt_epu16_mask(at.fractionY[half], fractionY);
                __m512i index = _mm512_add_epi16(lanes.index[half], origin);
                index = _mm512_mask_add_epi16(index, carryX, index, right);
                at.index[half] = _mm512_mask_add_epi16(index, carryY, index, down);
            }
            sink.put(place, Interpolation::sample(box, at));
        }
    }
}

template <typename Interpolation, typename Sink>
int32_t resampleBlocks(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst, int32_t dstPitch,
                       const Sink &sink, TileKernel<uint8_t, int32_t> rows)
{
    using Portable = typename Interpolation::Portable;
    constexpr auto shift = static_cast<int32_t>(Portable::template shift<int32_t>());

    BlockTile t = {tile, {}, {}, src, srcPitch};
    if (tile.width >= kBlockSize && tile.rows >= kBlockSize &&
        measureBlockAxis(tile.x, tile.colStepX, tile.rowStepX, tile, kBlockSize, kBlockSize, shift, Portable::kReach,
                         &t.x) &&
        measureBlockAxis(tile.y, tile.colStepY, tile.rowStepY, tile, kBlockSize, kBlockSize, shift, Portable::kReach,
                         &t.y) &&
        t.x.extent <= kBoxColumns && t.x.last - t.x.first >= kBoxColumns - 1) {
        const int32_t boxRows = std::max(t.y.extent, 2 * kBoxRowsPerRegister);
        const int32_t registers = (boxRows + kBoxRowsPerRegister - 1) / kBoxRowsPerRegister;
        if (t.y.last - t.y.first >= registers * kBoxRowsPerRegister - 1) {
            switch (registers) {
            case 2:
                walkBlocks<Interpolation, 2>(t, sink);
                return 0;
            case 3:
                walkBlocks<Interpolation, 3>(t, sink);
                return 0;
            case 4:
                walkBlocks<Interpolation, 4>(t, sink);
                return 0;
            default:
                break;
            }
        }
    }
    return rows(tile, src, srcPitch, dst, dstPitch);
}

} // namespace

int32_t kip_affineTransformTileNearest8Avx512Vbmi(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                  void *dst, int32_t dstPitch)
{
    return resampleBlocks<NearestBlock>(tile, src, srcPitch, dst, dstPitch,
                                        StoreBlocks{static_cast<uint8_t *>(dst), dstPitch},
                                        kip_affineTransformTileNearest8Avx2);
}

int32_t kip_affineTransformTileBilinearFast8Avx512Vbmi(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                       void *dst, int32_t dstPitch)
{
    return resampleBlocks<BilinearBlock>(tile, src, srcPitch, dst, dstPitch,
                                         StoreBlocks{static_cast<uint8_t *>(dst), dstPitch},
                                         kip_affineTransformTileBilinearFast8Avx2);
}

int32_t kip_affineProjectTileNearest8Avx512Vbmi(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst,
                                                int32_t dstPitch)
{
    return resampleBlocks<NearestBlock>(tile, src, srcPitch, dst, dstPitch, AddBlocks{static_cast<uint32_t *>(dst)},
                                        kip_affineProjectTileNearest8Avx2);
}

int32_t kip_affineProjectTileBilinearFast8Avx512Vbmi(const FixedTile &tile, const uint8_t *src, int32_t srcPitch,
                                                     void *dst, int32_t dstPitch)
{
    return resampleBlocks<BilinearBlock>(tile, src, srcPitch, dst, dstPitch, AddBlocks{static_cast<uint32_t *>(dst)},
                                         kip_affineProjectTileBilinearFast8Avx2);
}

} // namespace kip

KIP_TARGET_END

#endif
