// 16-bit tiles in blocks of 8 x 4 destination pixels: as the 8-bit blocks, with word permutes, which need no
// more than the first AVX-512 processors have.

#include "transform/tiles/x86/tile_kernels_x86.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/tiles/tile_sampling.h"
#include "transform/tiles/x86/block_lanes_avx512.h"

KIP_TARGET_BEGIN("avx2,avx512f,avx512bw,avx512dq,avx512vl")

namespace kip {

namespace {

constexpr int32_t kBlockWidth = 8;
constexpr int32_t kBlockRows = 4;

// ---- The box ---------------------------------------------------------------------------------------------------

// Two rows in each register; a permute looks up in two registers, a bank of four rows.
constexpr int32_t kBoxRowsPerBank = 4;

template <int kBanks>
struct Box {
    __m512i rows[2 * kBanks];
};

template <int kBanks>
Box<kBanks> loadBox(const uint16_t *at, int64_t pitch)
{
    const auto row = [&](int32_t n) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(at + n * pitch)); };
    Box<kBanks> box;
    for (int n = 0; n < 2 * kBanks; ++n)
        box.rows[n] = _mm512_inserti64x4(_mm512_castsi256_si512(row(2 * n)), row(2 * n + 1), 1);
    return box;
}

// The box's pixels at 32 indices.
template <int kBanks>
__m512i lookUp(const Box<kBanks> &box, __m512i index)
{
    const auto bank = [&](int n) { return _mm512_permutex2var_epi16(box.rows[2 * n], index, box.rows[2 * n + 1]); };
    const __mmask32 isOdd = _mm512_test_epi16_mask(index, _mm512_set1_epi16(kBoxColumns * kBoxRowsPerBank));
    const __m512i upper = _mm512_mask_blend_epi16(isOdd, bank(0), bank(1));
    if constexpr (kBanks == 2)
        return upper;
    const __mmask32 isLower = _mm512_test_epi16_mask(index, _mm512_set1_epi16(2 * kBoxColumns * kBoxRowsPerBank));
    if constexpr (kBanks == 3)
        return _mm512_mask_blend_epi16(isLower, upper, bank(2));
    else if constexpr (kBanks == 4)
        return _mm512_mask_blend_epi16(isLower, upper, _mm512_mask_blend_epi16(isOdd, bank(2), bank(3)));
}

// ---- Interpolations --------------------------------------------------------------------------------------------

template <typename Interpolation>
struct BlockSamples;

template <>
struct BlockSamples<Nearest> {

    template <int kBanks>
    static __m512i sample(const Box<kBanks> &box, const BlockLanes &at)
    {
        return lookUp(box, at.index);
    }
};

// The exact sum as two linear steps: along x it fits 32 bits, along y it takes 64.
template <>
struct BlockSamples<Bilinear<Accurate16>> {

    template <int kBanks>
    static __m512i sample(const Box<kBanks> &box, const BlockLanes &at)
    {
        const auto neighbour = [&](int16_t offset) {
            return lookUp(box, _mm512_add_epi16(at.index, _mm512_set1_epi16(offset)));
        };
        const __m512i p00 = lookUp(box, at.index);
        const __m512i p01 = neighbour(1);
        const __m512i p10 = neighbour(kBoxColumns);
        const __m512i p11 = neighbour(kBoxColumns + 1);

        const __m512i zero = _mm512_setzero_si512();
        const __m512i fxLow = _mm512_unpacklo_epi16(at.fractionX, zero);
        const __m512i fxHigh = _mm512_unpackhi_epi16(at.fractionX, zero);
        const __m512i low =
            mixRows(mixPairs(_mm512_unpacklo_epi16(p00, p01), fxLow), mixPairs(_mm512_unpacklo_epi16(p10, p11), fxLow),
                    _mm512_unpacklo_epi16(at.fractionY, zero));
        const __m512i high =
            mixRows(mixPairs(_mm512_unpackhi_epi16(p00, p01), fxHigh),
                    mixPairs(_mm512_unpackhi_epi16(p10, p11), fxHigh), _mm512_unpackhi_epi16(at.fractionY, zero));
        return _mm512_packus_epi32(low, high);
    }

private:
    // (65536 - fx) left + fx right, as 65536 left + fx (right - left): differences wrap, the sum does not.
    static __m512i mixPairs(__m512i pairs, __m512i fx)
    {
        const __m512i left = _mm512_slli_epi32(pairs, 16);
        const __m512i difference = _mm512_sub_epi32(_mm512_srli_epi32(pairs, 16), _mm512_srli_epi32(left, 16));
        return _mm512_add_epi32(left, _mm512_mullo_epi32(fx, difference));
    }
    // The upper halves of (65536 - fy) above + fy below, rounded.
    static __m512i mixRows(__m512i above, __m512i below, __m512i fy)
    {
        const __m512i gy = _mm512_sub_epi32(_mm512_set1_epi32(65536), fy);
        const __m512i half = _mm512_set1_epi64(0x7FFFFFFF); // less a last bit: exact halves go down
        const auto mixEven = [half](__m512i a, __m512i b, __m512i g, __m512i f) {
            return _mm512_add_epi64(_mm512_add_epi64(_mm512_mul_epu32(a, g), _mm512_mul_epu32(b, f)), half);
        };
        const __m512i even = mixEven(above, below, gy, fy);
        const __m512i odd = mixEven(_mm512_srli_epi64(above, 32), _mm512_srli_epi64(below, 32),
                                    _mm512_srli_epi64(gy, 32), _mm512_srli_epi64(fy, 32));
        return _mm512_mask_blend_epi32(0xAAAA, _mm512_srli_epi64(even, 32), odd);
    }
};

// ---- What happens to a block's samples ---------------------------------------------------------------------------

template <typename Sink>
struct PutBlocks;

// Storing the same values twice does no harm.
template <>
struct PutBlocks<Store> {
    uint16_t *dst;
    int64_t pitch;

    PutBlocks(void *first, int32_t dstPitch) : dst(static_cast<uint16_t *>(first)), pitch(dstPitch) {}

    void put(const BlockPlace &place, __m512i samples) const
    {
        uint16_t *const at = dst + place.row * pitch + place.column;
        storeRow<0>(at, samples);
        storeRow<1>(at, samples);
        storeRow<2>(at, samples);
        storeRow<3>(at, samples);
    }

private:
    template <int kRow>
    void storeRow(uint16_t *at, __m512i samples) const
    {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(at + kRow * pitch), _mm512_extracti32x4_epi32(samples, kRow));
    }
};

template <>
struct PutBlocks<Add> {
    uint32_t *sums;

    PutBlocks(void *first, int32_t) : sums(static_cast<uint32_t *>(first)) {}

    void put(const BlockPlace &place, __m512i samples) const
    {
        const __mmask32 freshRows = ~__mmask32{0} << (kBlockWidth * place.overlapRows);
        samples = _mm512_maskz_mov_epi16(freshRows, samples);
        const __m512i pairs = _mm512_add_epi32(_mm512_cvtepu16_epi32(_mm512_castsi512_si256(samples)),
                                               _mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(samples, 1)));
        const __m256i fours = _mm256_add_epi32(_mm512_castsi512_si256(pairs), _mm512_extracti64x4_epi64(pairs, 1));

        const auto fresh = static_cast<__mmask8>(0xFF << place.overlapColumns);
        uint32_t *const at = sums + place.column;
        _mm256_mask_storeu_epi32(at, fresh, _mm256_add_epi32(_mm256_maskz_loadu_epi32(fresh, at), fours));
    }
};

// ---- The walk ------------------------------------------------------------------------------------------------------

struct Blocks {
    using Pixel = uint16_t;
    template <typename Sink>
    using Output = PutBlocks<Sink>;
    static constexpr int32_t kWidth = kBlockWidth;
    static constexpr int32_t kRows = kBlockRows;
    static constexpr int32_t kBoxRows = kBoxRowsPerBank;

    template <typename Interpolation, int kBanks, typename Put>
    static void walk(const BlockTile<uint16_t> &t, const Put &output)
    {
        const BlockLanes lanes = makeBlockLanes(t.x, t.y, 0);
        const BlockOrder order(t.tile, kBlockWidth, kBlockRows, t.downFirst);
        for (int32_t outer = 0; outer < order.outerEnd; outer += order.outerStep) {
            for (int32_t inner = 0; inner < order.innerEnd; inner += order.innerStep) {
                const BlockPlace place = order.place(outer, inner);
                const BlockCorner corner(t.x, t.y, place, kBanks * kBoxRowsPerBank);
                const auto box = loadBox<kBanks>(t.src + (corner.boxY * t.pitch + corner.boxX), t.pitch);
                output.put(place, BlockSamples<Interpolation>::sample(box, placeLanes(lanes, corner, 1)));
            }
        }
    }
};

} // namespace

template <typename Interpolation, typename Sink, typename Pixel>
TileKernel<Pixel, int32_t> tileBlockKernelAvx512()
{
    return resampleBlocks<Blocks, Interpolation, Sink>;
}

template TileKernel<uint16_t, int32_t> tileBlockKernelAvx512<Nearest, Store, uint16_t>();
template TileKernel<uint16_t, int32_t> tileBlockKernelAvx512<Nearest, Add, uint16_t>();
template TileKernel<uint16_t, int32_t> tileBlockKernelAvx512<Bilinear<Accurate16>, Store, uint16_t>();
template TileKernel<uint16_t, int32_t> tileBlockKernelAvx512<Bilinear<Accurate16>, Add, uint16_t>();

} // namespace kip

KIP_TARGET_END

#endif
