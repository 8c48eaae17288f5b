// Tiles in blocks of 16 destination pixels, or 32 where a pixel needs no more than a byte. The source pixels of either
// half of a block lie in a box of at most 16 bytes by a few rows, whatever the angle: these are loaded into registers,
// and byte shuffles fetch all neighbours of a kind. Plain loads, which fetch one pixel at a time, serve what is left.

#include "transform/tiles/x86/tile_kernels_x86.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "support/x86/x86_intrinsics.h"
#include "transform/tiles/tile_sampling.h"
#include "transform/tiles/x86/tile_blocks.h"

KIP_TARGET_BEGIN("avx2")

namespace kip {

namespace {

constexpr int32_t kMostBlocksOfLine = 256; // a tile that is longer than this has none
constexpr int32_t kBlocksOfStrip = 16;
constexpr int32_t kBoxBytes = 16;    // of a source row that are loaded
constexpr int32_t kMostBoxRows = 64; // far below what a signed byte counts

template <typename Pixel>
constexpr int32_t kBoxColumns = kBoxBytes / static_cast<int32_t>(sizeof(Pixel));

// How many vectors of words the pixels of a block take.
template <typename Interpolation, typename Pixel>
constexpr int32_t kVectors = std::is_same_v<Interpolation, Nearest> && sizeof(Pixel) == 1 ? 2 : 1;

// A block is two halves side by side. A half fills the same half of every vector of the block, row by row.
template <int32_t kWidthOfHalf, int32_t kVectorsOfBlock>
struct Shape {
    static constexpr int32_t kHalfWidth = kWidthOfHalf;
    static constexpr int32_t kWidth = 2 * kHalfWidth;
    static constexpr int32_t kRowsOfVector = 8 / kHalfWidth;
    static constexpr int32_t kRows = kRowsOfVector * kVectorsOfBlock;
};

// ---- Boxes ---------------------------------------------------------------------------------------------------------

// Where the boxes of the blocks of a line begin, two for each.
struct Boxes {
    alignas(32) int32_t offset[2 * kMostBlocksOfLine]; // of the corner, from the source's first pixel
    // How much further on in its box a half's least position lies: columns, and rows in the upper word.
    alignas(32) uint32_t moved[2 * kMostBlocksOfLine];

    // half: the left one of a block
    bool haveMoved(int32_t half) const
    {
        uint64_t both;
        std::memcpy(&both, moved + half, sizeof both);
        return both != 0;
    }
};

// The steps from one block to the next one.
struct BlockStep {
    uint32_t x, y;
};

// Finds the boxes of blocks that follow each other. A box is moved back from the tile's right and lower edge, to read
// nothing beyond.
struct BoxFinder {
    __m256i halvesX, halvesY; // least positions of halves, from the first pixel of the first block
    __m256i stepX, stepY;     // to the next four blocks
    __m256i lastX, lastY;     // the last corner of a box
    __m256i pitch;

    BoxFinder(const BlockAxis &x, const BlockAxis &y, int32_t halfWidth, BlockStep step, int32_t boxColumns,
              int32_t boxRows, int32_t srcPitch)
        : halvesX(halvesOf(x, halfWidth, step.x)), halvesY(halvesOf(y, halfWidth, step.y)),
          stepX(_mm256_set1_epi32(static_cast<int32_t>(4 * step.x))),
          stepY(_mm256_set1_epi32(static_cast<int32_t>(4 * step.y))),
          lastX(_mm256_set1_epi32(x.last - (boxColumns - 1))), lastY(_mm256_set1_epi32(y.last - (boxRows - 1))),
          pitch(_mm256_set1_epi32(srcPitch))
    {}

    void find(FixedPosition first, int32_t blocks, Boxes *boxes) const
    {
        __m256i x = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(first.x)), halvesX);
        __m256i y = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(first.y)), halvesY);
        for (int32_t n = 0; n < 2 * blocks; n += 8) {
            const __m256i pixelX = _mm256_srai_epi32(x, 16);
            const __m256i pixelY = _mm256_srai_epi32(y, 16);
            const __m256i boxX = _mm256_min_epi32(pixelX, lastX);
            const __m256i boxY = _mm256_min_epi32(pixelY, lastY);
            const __m256i movedY = _mm256_slli_epi32(_mm256_sub_epi32(pixelY, boxY), 16);
            _mm256_store_si256(reinterpret_cast<__m256i *>(boxes->offset + n),
                               _mm256_add_epi32(_mm256_mullo_epi32(boxY, pitch), boxX));
            _mm256_store_si256(reinterpret_cast<__m256i *>(boxes->moved + n),
                               _mm256_add_epi32(movedY, _mm256_sub_epi32(pixelX, boxX)));
            x = _mm256_add_epi32(x, stepX);
            y = _mm256_add_epi32(y, stepY);
        }
    }

private:
    static __m256i halvesOf(const BlockAxis &axis, int32_t halfWidth, uint32_t step)
    {
        const __m256i block = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3);
        const __m256i isRight = _mm256_setr_epi32(0, 1, 0, 1, 0, 1, 0, 1);
        const __m256i toBlock = _mm256_mullo_epi32(block, _mm256_set1_epi32(static_cast<int32_t>(step)));
        const __m256i toHalf =
            _mm256_mullo_epi32(isRight, _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(halfWidth) *
                                                                               static_cast<uint32_t>(axis.colStep))));
        return _mm256_add_epi32(_mm256_add_epi32(toBlock, toHalf), _mm256_set1_epi32(static_cast<int32_t>(axis.least)));
    }
};

// The boxes of a block's halves, row after row.
template <typename Pixel>
struct BoxRows {
    const Pixel *left, *right;
    int64_t pitch;

    __m256i next()
    {
        const __m128i ofLeft = _mm_loadu_si128(reinterpret_cast<const __m128i *>(left));
        const __m128i ofRight = _mm_loadu_si128(reinterpret_cast<const __m128i *>(right));
        left += pitch;
        right += pitch;
        return _mm256_inserti128_si256(_mm256_castsi128_si256(ofLeft), ofRight, 1);
    }
};

// ---- Lanes ---------------------------------------------------------------------------------------------------------

// What the pixels of all blocks of a tile have in common, in one vector of a block.
struct Lanes {
    __m256i fractionX, fractionY; // of a position, where the block's first pixel has none
    __m256i lowX, lowY;           // the same where the least position of its half has none
    __m256i column, row;          // of the box, where the fraction has carried; columns as a shuffle counts them
};

// The words of two vectors, of which the first holds the first row, or rows, of either half.
__m256i packLow(__m256i upper, __m256i lower)
{
    const __m256i low = _mm256_set1_epi32(0xFFFF);
    return _mm256_packus_epi32(_mm256_and_si256(upper, low), _mm256_and_si256(lower, low));
}

__m256i packHigh(__m256i upper, __m256i lower)
{
    return _mm256_packus_epi32(_mm256_srli_epi32(upper, 16), _mm256_srli_epi32(lower, 16));
}

// Steps to four pixels of each half of a vector, from the first pixel of the half; firstPixel is 0 or 4.
template <int32_t kHalfWidth>
__m256i stepsInHalves(const BlockAxis &axis, int32_t firstPixel)
{
    const auto step = [&](int32_t pixel) {
        return static_cast<int32_t>((firstPixel + pixel) % kHalfWidth * int64_t{axis.colStep} +
                                    (firstPixel + pixel) / kHalfWidth * int64_t{axis.rowStep});
    };
    return _mm256_broadcastsi128_si256(_mm_setr_epi32(step(0), step(1), step(2), step(3)));
}

// One coordinate of the lanes that begin in a row of the block; returns the pixels of the box.
template <int32_t kHalfWidth>
__m256i splitPositions(const BlockAxis &axis, int32_t firstRow, __m256i *fraction, __m256i *low)
{
    const int32_t toRight = kHalfWidth * axis.colStep;
    const __m256i toHalves = _mm256_setr_epi32(0, 0, 0, 0, toRight, toRight, toRight, toRight);
    // Not negative, and within the box.
    const __m256i fromLeast = _mm256_set1_epi32(static_cast<int32_t>(firstRow * int64_t{axis.rowStep} - axis.least));
    const __m256i upper = _mm256_add_epi32(stepsInHalves<kHalfWidth>(axis, 0), fromLeast);
    const __m256i lower = _mm256_add_epi32(stepsInHalves<kHalfWidth>(axis, 4), fromLeast);
    const __m256i toFirst = _mm256_add_epi32(toHalves, _mm256_set1_epi32(static_cast<int32_t>(axis.least)));
    *fraction = packLow(_mm256_add_epi32(upper, toFirst), _mm256_add_epi32(lower, toFirst));
    *low = packLow(upper, lower);
    return packHigh(upper, lower);
}

// columnUnit: what a shuffle counts columns by. columnOffset: what it counts the first one as.
template <int32_t kHalfWidth>
Lanes makeLanes(const BlockAxis &x, const BlockAxis &y, int32_t firstRow, int16_t columnUnit, int16_t columnOffset)
{
    Lanes lanes;
    const __m256i one = _mm256_set1_epi16(1);
    const __m256i column =
        _mm256_add_epi16(splitPositions<kHalfWidth>(x, firstRow, &lanes.fractionX, &lanes.lowX), one);
    lanes.column =
        _mm256_add_epi16(_mm256_mullo_epi16(column, _mm256_set1_epi16(columnUnit)), _mm256_set1_epi16(columnOffset));
    lanes.row = _mm256_add_epi16(splitPositions<kHalfWidth>(y, firstRow, &lanes.fractionY, &lanes.lowY), one);
    return lanes;
}

// Where a sum of fractions has not carried: it is not below either of them.
__m256i uncarried(__m256i sum, __m256i added)
{
    return _mm256_cmpeq_epi16(_mm256_min_epu16(sum, added), added);
}

// The pixels of one vector of a block.
struct LanesAt {
    __m256i fractionX, fractionY;
    __m256i column, row;

    void place(const Lanes &lanes, int16_t columnUnit)
    {
        column = _mm256_sub_epi16(lanes.column,
                                  _mm256_and_si256(uncarried(fractionX, lanes.lowX), _mm256_set1_epi16(columnUnit)));
        row = _mm256_add_epi16(lanes.row, uncarried(fractionY, lanes.lowY));
    }
    void shift(uint32_t left, uint32_t right, uint32_t columnUnit)
    {
        column = _mm256_add_epi16(column, halves(left * columnUnit, right * columnUnit));
        row = _mm256_add_epi16(row, halves(left >> 16, right >> 16));
    }
    void move(__m256i stepX, __m256i stepY)
    {
        fractionX = _mm256_add_epi16(fractionX, stepX);
        fractionY = _mm256_add_epi16(fractionY, stepY);
    }

private:
    static __m256i halves(uint32_t left, uint32_t right)
    {
        return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_set1_epi16(static_cast<int16_t>(left))),
                                       _mm_set1_epi16(static_cast<int16_t>(right)), 1);
    }
};

// ---- Interpolations ------------------------------------------------------------------------------------------------

// Every row of a box is looked up for all pixels and replaces what earlier rows gave, but where a pixel lies in one of
// these: its row, counted from this one, is negative.
__m256i replace(__m256i row, __m256i earlier, __m256i now)
{
    return _mm256_blendv_epi8(now, earlier, row);
}

// boxRows: rows of a box that the first neighbours lie in. Samples are as wide as the pixels, or words. Blocks are
// faster than rows of pixels while boxRows is at most kRowsThatPay.
template <typename Interpolation, typename Pixel>
struct BlockSamples;

template <>
struct BlockSamples<Nearest, uint8_t> {
    static constexpr int32_t kRowsThatPay = 12;
    static constexpr int16_t kColumnUnit = 0x0001;
    static constexpr int16_t kColumnOffset = 0;

    static __m256i sample(BoxRows<uint8_t> box, const LanesAt (&at)[2], int32_t boxRows)
    {
        const __m256i column = _mm256_packus_epi16(at[0].column, at[1].column);
        __m256i row = _mm256_packus_epi16(at[0].row, at[1].row);
        __m256i samples = _mm256_shuffle_epi8(box.next(), column);
        for (int32_t r = 1; r < boxRows; ++r) {
            row = _mm256_sub_epi8(row, _mm256_set1_epi8(1));
            samples = replace(row, samples, _mm256_shuffle_epi8(box.next(), column));
        }
        return samples;
    }
};

template <>
struct BlockSamples<Nearest, uint16_t> {
    static constexpr int32_t kRowsThatPay = 6;
    static constexpr int16_t kColumnUnit = 0x0202;
    static constexpr int16_t kColumnOffset = 0x0100;

    static __m256i sample(BoxRows<uint16_t> box, const LanesAt (&at)[1], int32_t boxRows)
    {
        __m256i row = at[0].row;
        __m256i samples = _mm256_shuffle_epi8(box.next(), at[0].column);
        for (int32_t r = 1; r < boxRows; ++r) {
            row = _mm256_sub_epi16(row, _mm256_set1_epi16(1));
            samples = replace(row, samples, _mm256_shuffle_epi8(box.next(), at[0].column));
        }
        return samples;
    }
};

template <>
struct BlockSamples<Bilinear<Fast8>, uint8_t> {
    static constexpr int32_t kRowsThatPay = 12;
    static constexpr int16_t kColumnUnit = 0x0101; // a word looks up the pixel and the one to its right
    static constexpr int16_t kColumnOffset = 0x0100;

    // Every row is loaded once: it is the lower one of the neighbours that the row before it holds.
    static __m256i sample(BoxRows<uint8_t> box, const LanesAt (&at)[1], int32_t boxRows)
    {
        __m256i row = at[0].row;
        __m256i above = _mm256_shuffle_epi8(box.next(), at[0].column);
        __m256i next = _mm256_shuffle_epi8(box.next(), at[0].column);
        __m256i below = next;
        for (int32_t r = 1; r < boxRows; ++r) {
            row = _mm256_sub_epi16(row, _mm256_set1_epi16(1));
            above = replace(row, above, next);
            next = _mm256_shuffle_epi8(box.next(), at[0].column);
            below = replace(row, below, next);
        }
        return mix(above, below, at[0].fractionX, at[0].fractionY);
    }

private:
    // Weights are below 2^15 and a neighbourhood's sum to less than that: a sum of products is below 2^23.
    static __m256i mix(__m256i above, __m256i below, __m256i fx, __m256i fy)
    {
        const __m256i ones = _mm256_set1_epi16(-1);
        const __m256i zero = _mm256_setzero_si256();
        const __m256i gx = _mm256_xor_si256(fx, ones);
        const __m256i gy = _mm256_xor_si256(fy, ones);
        const __m256i w00 = _mm256_srli_epi16(_mm256_mulhi_epu16(gy, gx), 1);
        const __m256i w01 = _mm256_srli_epi16(_mm256_mulhi_epu16(gy, fx), 1);
        const __m256i w10 = _mm256_srli_epi16(_mm256_mulhi_epu16(fy, gx), 1);
        const __m256i w11 = _mm256_srli_epi16(_mm256_mulhi_epu16(fy, fx), 1);
        const __m256i low =
            _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(w00, w01), _mm256_unpacklo_epi8(above, zero)),
                             _mm256_madd_epi16(_mm256_unpacklo_epi16(w10, w11), _mm256_unpacklo_epi8(below, zero)));
        const __m256i high =
            _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(w00, w01), _mm256_unpackhi_epi8(above, zero)),
                             _mm256_madd_epi16(_mm256_unpackhi_epi16(w10, w11), _mm256_unpackhi_epi8(below, zero)));
        // (sum + 2^14) >> 15. The bits below the eighth never carry, so they may go first, and words remain.
        const __m256i sums = _mm256_packus_epi32(_mm256_srli_epi32(low, 8), _mm256_srli_epi32(high, 8));
        return _mm256_mulhrs_epi16(sums, _mm256_set1_epi16(256));
    }
};

template <>
struct BlockSamples<Bilinear<Accurate16>, uint16_t> {
    static constexpr int32_t kRowsThatPay = 9;
    static constexpr int16_t kColumnUnit = 0x0202;
    static constexpr int16_t kColumnOffset = 0x0100;

    static __m256i sample(BoxRows<uint16_t> box, const LanesAt (&at)[1], int32_t boxRows)
    {
        const __m256i left = at[0].column;
        const __m256i right = _mm256_add_epi8(left, _mm256_set1_epi8(sizeof(uint16_t)));
        __m256i row = at[0].row;
        __m256i line = box.next();
        __m256i p00 = _mm256_shuffle_epi8(line, left);
        __m256i p01 = _mm256_shuffle_epi8(line, right);
        line = box.next();
        __m256i nextLeft = _mm256_shuffle_epi8(line, left);
        __m256i nextRight = _mm256_shuffle_epi8(line, right);
        __m256i p10 = nextLeft;
        __m256i p11 = nextRight;
        for (int32_t r = 1; r < boxRows; ++r) {
            row = _mm256_sub_epi16(row, _mm256_set1_epi16(1));
            p00 = replace(row, p00, nextLeft);
            p01 = replace(row, p01, nextRight);
            line = box.next();
            nextLeft = _mm256_shuffle_epi8(line, left);
            nextRight = _mm256_shuffle_epi8(line, right);
            p10 = replace(row, p10, nextLeft);
            p11 = replace(row, p11, nextRight);
        }
        const Words above = mixPixels(p00, p01, at[0].fractionX);
        const Words below = mixPixels(p10, p11, at[0].fractionX);
        return mixRows(above, below, at[0].fractionY);
    }

private:
    // The halves of numbers of 32 bits.
    struct Words {
        __m256i high, low;
    };

    // (65536 - f) a + f b, as 65536 a + f (b - a): the difference is taken modulo 65536, and 65536 f less where it is
    // negative.
    static Words mixPixels(__m256i a, __m256i b, __m256i f)
    {
        const __m256i difference = _mm256_sub_epi16(b, a);
        const __m256i isPositive = _mm256_cmpeq_epi16(_mm256_max_epu16(a, b), b);
        const __m256i high = _mm256_sub_epi16(_mm256_add_epi16(a, _mm256_mulhi_epu16(difference, f)),
                                              _mm256_andnot_si256(isPositive, f));
        return {high, _mm256_mullo_epi16(difference, f)};
    }

    // The exact sum is 65536 m + n, m and n being the mixtures of the upper and the lower halves. With 0x7FFFFFFF, less
    // than a half by a last bit, since exact halves go down, its uppermost words are those of m + 0x7FFF +
    // ceil(n / 65536).
    static __m256i mixRows(const Words &above, const Words &below, __m256i fy)
    {
        const Words m = mixPixels(above.high, below.high, fy);
        const Words n = mixPixels(above.low, below.low, fy);
        const __m256i one = _mm256_set1_epi16(1);
        const __m256i up = _mm256_add_epi16(n.high, _mm256_min_epu16(n.low, one)); // n is at most 65535 * 65536
        // (low + up + 0x7FFF) >> 16 is 0, 1 or 2.
        const __m256i mean = _mm256_subs_epu16(_mm256_avg_epu16(m.low, up), one);
        const __m256i carry = _mm256_avg_epu16(_mm256_srli_epi16(mean, 14), _mm256_setzero_si256());
        return _mm256_add_epi16(m.high, carry);
    }
};

// ---- What happens to a block's samples -----------------------------------------------------------------------------

// A block's samples with its rows one after the other, in two halves.
struct BlockLines {
    __m128i upper, lower;
};

// kElementSize: bytes of a sample.
template <typename Shape, int32_t kElementSize>
BlockLines linesOf(__m256i samples)
{
    const __m128i left = _mm256_castsi256_si128(samples);
    const __m128i right = _mm256_extracti128_si256(samples, 1);
    constexpr int32_t kHalfRow = Shape::kHalfWidth * kElementSize;
    if constexpr (kHalfRow == 16)
        return {left, right};
    else if constexpr (kHalfRow == 8)
        return {_mm_unpacklo_epi64(left, right), _mm_unpackhi_epi64(left, right)};
    else if constexpr (kHalfRow == 4)
        return {_mm_unpacklo_epi32(left, right), _mm_unpackhi_epi32(left, right)};
    else
        return {_mm_unpacklo_epi16(left, right), _mm_unpackhi_epi16(left, right)};
}

// Part of a tile in whole blocks, and how many of their columns and rows other blocks have done.
struct BlockRegion {
    int32_t column, row; // first pixel
    int32_t blocksAcross, blocksDown;
    int32_t overlapColumns, overlapRows;
};

// Storing the same values twice does no harm.
template <typename Shape, typename Pixel, int32_t kElementSize>
struct StoreBlocks {
    Pixel *dst;
    int64_t pitch;

    StoreBlocks(void *first, int32_t dstPitch, const BlockRegion &) : dst(static_cast<Pixel *>(first)), pitch(dstPitch)
    {}

    // Elements from the first to those of a block.
    int64_t offset(int32_t column, int32_t row) const { return row * pitch + column; }

    void put(int64_t offset, __m256i samples) const
    {
        const BlockLines lines = linesOf<Shape, kElementSize>(samples);
        if constexpr (kElementSize == sizeof(Pixel)) {
            putLines<Shape::kRows / 2>(dst + offset, lines.upper);
            putLines<Shape::kRows / 2>(dst + offset + Shape::kRows / 2 * pitch, lines.lower);
        } else {
            putLines<Shape::kRows>(dst + offset, _mm_packus_epi16(lines.upper, lines.lower));
        }
    }

private:
    template <int32_t kRows>
    void putLines(Pixel *at, __m128i lines) const
    {
        if constexpr (kRows == 1) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(at), lines);
        } else if constexpr (kRows == 2) {
            _mm_storel_epi64(reinterpret_cast<__m128i *>(at), lines);
            _mm_storel_epi64(reinterpret_cast<__m128i *>(at + pitch), _mm_unpackhi_epi64(lines, lines));
        } else {
            storeFour(at, lines);
            storeFour(at + pitch, _mm_srli_si128(lines, 4));
            storeFour(at + 2 * pitch, _mm_srli_si128(lines, 8));
            storeFour(at + 3 * pitch, _mm_srli_si128(lines, 12));
        }
    }
    static void storeFour(Pixel *at, __m128i samples)
    {
        const int32_t four = _mm_cvtsi128_si32(samples);
        std::memcpy(at, &four, sizeof four);
    }
};

// What other blocks have added is left out.
template <typename Shape, typename Pixel, int32_t kElementSize>
struct AddBlocks {
    uint32_t *sums;
    __m256i freshColumns;
    __m128i freshUpper, freshLower; // elements of lines

    AddBlocks(void *first, int32_t, const BlockRegion &region)
        : sums(static_cast<uint32_t *>(first)),
          freshColumns(_mm256_cmpgt_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7),
                                          _mm256_set1_epi32(region.overlapColumns - 1)))
    {
        alignas(16) uint8_t isFresh[32];
        for (int32_t n = 0; n < 32; ++n)
            isFresh[n] = n / (Shape::kWidth * kElementSize) >= region.overlapRows ? 0xFF : 0;
        freshUpper = _mm_load_si128(reinterpret_cast<const __m128i *>(isFresh));
        freshLower = _mm_load_si128(reinterpret_cast<const __m128i *>(isFresh + 16));
    }

    int64_t offset(int32_t column, int32_t) const { return column; }

    void put(int64_t offset, __m256i samples) const
    {
        const BlockLines lines = linesOf<Shape, kElementSize>(samples);
        const __m128i upper = _mm_and_si128(lines.upper, freshUpper);
        const __m128i lower = _mm_and_si128(lines.lower, freshLower);
        uint32_t *const at = sums + offset;
        const __m256i columns = _mm256_and_si256(addLines(upper, lower), freshColumns);
        if constexpr (Shape::kWidth == 8) {
            auto *const eight = reinterpret_cast<__m256i *>(at);
            _mm256_storeu_si256(eight, _mm256_add_epi32(_mm256_loadu_si256(eight), columns));
        } else {
            auto *const four = reinterpret_cast<__m128i *>(at);
            _mm_storeu_si128(four, _mm_add_epi32(_mm_loadu_si128(four), _mm256_castsi256_si128(columns)));
        }
    }

private:
    // The sums of a block's columns.
    static __m256i addLines(__m128i upper, __m128i lower)
    {
        if constexpr (kElementSize == 1) {
            const __m256i pairs = _mm256_add_epi16(_mm256_cvtepu8_epi16(upper), _mm256_cvtepu8_epi16(lower));
            const __m128i sum = _mm_add_epi16(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1));
            if constexpr (Shape::kWidth == 8)
                return _mm256_cvtepu16_epi32(sum);
            else
                return _mm256_cvtepu16_epi32(_mm_add_epi16(sum, _mm_unpackhi_epi64(sum, sum)));
        } else {
            const __m256i sum = _mm256_add_epi32(_mm256_cvtepu16_epi32(upper), _mm256_cvtepu16_epi32(lower));
            if constexpr (Shape::kWidth == 8)
                return sum;
            else
                return _mm256_add_epi32(sum, _mm256_permute4x64_epi64(sum, _MM_SHUFFLE(1, 0, 3, 2)));
        }
    }
};

template <typename Sink, typename Shape, typename Pixel, int32_t kElementSize>
using PutBlocks = std::conditional_t<std::is_same_v<Sink, Store>, StoreBlocks<Shape, Pixel, kElementSize>,
                                     AddBlocks<Shape, Pixel, kElementSize>>;

// ---- The walk ------------------------------------------------------------------------------------------------------

template <typename Pixel>
struct BlockTile {
    const FixedTile &tile;
    FixedPosition position; // of the first pixel, less the interpolation's shift
    BlockAxis x, y;         // of halves
    const Pixel *src;
    int32_t pitch;
    int32_t boxRows; // rows of a box that the first neighbours lie in
    void *dst;
    int32_t dstPitch;
    int32_t strip;  // blocks across, at most, of a region that is walked
    bool downFirst; // along the columns of a region
};

// Blocks that follow each other by a step.
struct BlockLine {
    FixedPosition first;
    int64_t offset;  // of the first, in the destination
    int64_t advance; // from one to the next
    BlockStep step;
    int32_t count;
};

// A function of its own, and what it reads in variables of its own: the compiler has registers enough then, and no
// pixel that is stored can change what it has read.
template <typename Interpolation, typename Pixel, typename Put>
[[gnu::noinline]] void walkLine(const BlockTile<Pixel> &t, const Lanes *lanes, const Boxes &boxes, BlockLine line,
                                const Put &put)
{
    using Samples = BlockSamples<Interpolation, Pixel>;
    constexpr int32_t kCount = kVectors<Interpolation, Pixel>;
    const Put output = put;
    const Pixel *const src = t.src;
    const int64_t pitch = t.pitch;
    const int32_t boxRows = t.boxRows;
    const __m256i stepX = _mm256_set1_epi16(static_cast<int16_t>(line.step.x));
    const __m256i stepY = _mm256_set1_epi16(static_cast<int16_t>(line.step.y));
    LanesAt at[kCount];
    for (int v = 0; v < kCount; ++v) {
        at[v].fractionX = _mm256_add_epi16(lanes[v].fractionX, _mm256_set1_epi16(static_cast<int16_t>(line.first.x)));
        at[v].fractionY = _mm256_add_epi16(lanes[v].fractionY, _mm256_set1_epi16(static_cast<int16_t>(line.first.y)));
    }
    for (int32_t half = 0; half < 2 * line.count; half += 2) {
        for (int v = 0; v < kCount; ++v)
            at[v].place(lanes[v], Samples::kColumnUnit);
        if (boxes.haveMoved(half))
            for (int v = 0; v < kCount; ++v)
                at[v].shift(boxes.moved[half], boxes.moved[half + 1], Samples::kColumnUnit);
        const BoxRows<Pixel> box = {src + boxes.offset[half], src + boxes.offset[half + 1], pitch};
        output.put(line.offset, Samples::sample(box, at, boxRows));
        line.offset += line.advance;
        for (LanesAt &ofVector : at)
            ofVector.move(stepX, stepY);
    }
}

// The blocks of a region, one after the other along the side that leaves the source's rows less.
template <typename Interpolation, typename Sink, typename Shape, typename Pixel>
void walkRegion(const BlockTile<Pixel> &t, const Lanes *lanes, const BlockRegion &region)
{
    constexpr int32_t kCount = kVectors<Interpolation, Pixel>;
    const FixedTile &tile = t.tile;
    const PutBlocks<Sink, Shape, Pixel, sizeof(Pixel) == 1 && kCount == 2 ? 1 : 2> output(t.dst, t.dstPitch, region);

    const BlockStep across = {Shape::kWidth * static_cast<uint32_t>(tile.colStepX),
                              Shape::kWidth * static_cast<uint32_t>(tile.colStepY)};
    const BlockStep down = {Shape::kRows * static_cast<uint32_t>(tile.rowStepX),
                            Shape::kRows * static_cast<uint32_t>(tile.rowStepY)};
    // A line costs time of its own; but columns read all of the source's lines anew where these evict each other.
    const int32_t enough = evictLines<Pixel>(t.pitch) ? 16 / Shape::kRows : 8;
    const bool isShort = std::min(region.blocksAcross, region.blocksDown) < enough;
    const bool downFirst = isShort ? region.blocksDown > region.blocksAcross : t.downFirst;
    const BlockStep outerStep = downFirst ? across : down;
    const int32_t count = downFirst ? region.blocksDown : region.blocksAcross;
    const int32_t outerCount = downFirst ? region.blocksAcross : region.blocksDown;
    const int64_t outerAdvance = downFirst ? output.offset(Shape::kWidth, 0) : output.offset(0, Shape::kRows);
    BlockLine line = {t.position, output.offset(region.column, region.row),
                      downFirst ? output.offset(0, Shape::kRows) : output.offset(Shape::kWidth, 0),
                      downFirst ? down : across, count};
    const BoxFinder finder(t.x, t.y, Shape::kHalfWidth, line.step, kBoxColumns<Pixel>,
                           t.boxRows + Interpolation::kReach, t.pitch);
    line.first.x += static_cast<uint32_t>(region.column) * static_cast<uint32_t>(tile.colStepX) +
                    static_cast<uint32_t>(region.row) * static_cast<uint32_t>(tile.rowStepX);
    line.first.y += static_cast<uint32_t>(region.column) * static_cast<uint32_t>(tile.colStepY) +
                    static_cast<uint32_t>(region.row) * static_cast<uint32_t>(tile.rowStepY);
    // Those of the next line are found before they are needed: scalars are loaded slowly from vectors stored just
    // before.
    Boxes boxes[2];
    finder.find(line.first, line.count, &boxes[0]);
    for (int32_t outer = 0; outer < outerCount; ++outer) {
        const FixedPosition next = {line.first.x + outerStep.x, line.first.y + outerStep.y};
        if (outer + 1 != outerCount)
            finder.find(next, line.count, &boxes[(outer + 1) % 2]);
        walkLine<Interpolation>(t, lanes, boxes[outer % 2], line, output);
        line.first = next;
        line.offset += outerAdvance;
    }
}

// One side of a tile in whole blocks, and one block more that ends with it.
struct BlockSide {
    struct Part {
        int32_t first, blocks, overlap;
    };
    Part parts[2];
    int32_t count;

    BlockSide(int32_t extent, int32_t size)
        : parts{{0, extent / size, 0}, {extent - size, 1, size - extent % size}}, count(extent % size == 0 ? 1 : 2)
    {}
};

template <typename Interpolation, typename Sink, typename Shape, typename Pixel>
void walkTile(const BlockTile<Pixel> &t)
{
    using Samples = BlockSamples<Interpolation, Pixel>;
    Lanes lanes[kVectors<Interpolation, Pixel>];
    for (int v = 0; v < kVectors<Interpolation, Pixel>; ++v)
        lanes[v] = makeLanes<Shape::kHalfWidth>(t.x, t.y, v * Shape::kRowsOfVector, Samples::kColumnUnit,
                                                Samples::kColumnOffset);
    const BlockSide across(t.tile.width, Shape::kWidth);
    const BlockSide down(t.tile.rows, Shape::kRows);
    for (int d = 0; d < down.count; ++d)
        for (int a = 0; a < across.count; ++a)
            for (int32_t block = 0; block < across.parts[a].blocks; block += t.strip)
                walkRegion<Interpolation, Sink, Shape>(
                    t, lanes,
                    {across.parts[a].first + block * Shape::kWidth, down.parts[d].first,
                     std::min(t.strip, across.parts[a].blocks - block), down.parts[d].blocks, across.parts[a].overlap,
                     down.parts[d].overlap});
}

// What decides whether blocks of a shape serve a tile.
struct BlockNeeds {
    int32_t halfWidth, rows; // of the shape
    int32_t shift, reach;    // of the interpolation
    int32_t rowsThatPay;
};

// Fills in how blocks read a tile; returns whether they serve it and pay. Where a row of the destination leads down the
// source, rows of pixels read hundreds of lines over and over; where these evict each other, blocks, which follow each
// other along the source's rows, are several times as fast, and pay always. Where the destination's evict each other,
// columns of 16-bit blocks, which write a few bytes of a line at a time, take up to twice as long as strips of them.
template <typename Pixel>
bool measureTile(const BlockNeeds &needs, BlockTile<Pixel> *t)
{
    const FixedTile &tile = t->tile;
    if (tile.width < 2 * needs.halfWidth || tile.rows < needs.rows || tile.width > kMostBlocksOfLine ||
        tile.rows > kMostBlocksOfLine || std::abs(int64_t{t->pitch}) > INT16_MAX ||
        !measureBlockAxis(tile.x, tile.colStepX, tile.rowStepX, tile, needs.halfWidth, needs.rows, needs.shift,
                          needs.reach, &t->x) ||
        !measureBlockAxis(tile.y, tile.colStepY, tile.rowStepY, tile, needs.halfWidth, needs.rows, needs.shift,
                          needs.reach, &t->y))
        return false;
    t->boxRows = t->y.extent - needs.reach;
    const int32_t boxColumns = kBoxColumns<Pixel>;
    const bool fits = t->x.extent <= boxColumns && t->x.last - t->x.first >= boxColumns - 1 &&
                      t->boxRows <= kMostBoxRows && t->y.last - t->y.first >= t->y.extent - 1;
    const bool byStrips =
        sizeof(Pixel) == 2 && leadsDown(tile) && evictLines<Pixel>(t->dstPitch) && !evictLines<Pixel>(t->pitch);
    t->strip = byStrips ? kBlocksOfStrip : tile.width;
    t->downFirst = leadsDown(tile) && !byStrips;
    const bool pays = t->boxRows <= needs.rowsThatPay || (leadsDown(tile) && evictLines<Pixel>(t->pitch));
    return fits && pays;
}

// Returns false, with nothing done, where blocks of a shape do not serve a tile.
template <typename Interpolation, typename Sink, typename Shape, typename Pixel>
bool resampleInShape(const FixedTile &tile, const Pixel *src, int32_t srcPitch, void *dst, int32_t dstPitch)
{
    constexpr auto shift = static_cast<int32_t>(Interpolation::template shift<int32_t>());
    BlockTile<Pixel> t = {tile, FixedPosition::at(tile.x, tile.y), {}, {}, src, srcPitch, 0, dst, dstPitch, 0, false};
    t.position.move(-shift, -shift);
    if (!measureTile({Shape::kHalfWidth, Shape::kRows, shift, Interpolation::kReach,
                      BlockSamples<Interpolation, Pixel>::kRowsThatPay},
                     &t))
        return false;
    walkTile<Interpolation, Sink, Shape>(t);
    return true;
}

// Tells whether blocks of 16 x 1 pixels read no more rows than those of 8 x 2 and fill the tile as well.
bool isFlat(const FixedTile &tile)
{
    return 4 * std::abs(int64_t{tile.colStepY}) <= std::abs(int64_t{tile.rowStepY}) &&
           (tile.width % 16 == 0 || tile.width >= 64);
}

template <typename Interpolation, typename Sink, typename Pixel>
void resampleBlocks(const FixedTile &tile, const Pixel *src, int32_t srcPitch, void *dst, int32_t dstPitch)
{
    constexpr int32_t kCount = kVectors<Interpolation, Pixel>;
    if constexpr (std::is_same_v<Interpolation, Bilinear<Fast8>> && std::is_same_v<Sink, Store>)
        if (isFlat(tile) && resampleInShape<Interpolation, Sink, Shape<8, 1>>(tile, src, srcPitch, dst, dstPitch))
            return;
    const auto wide = resampleInShape<Interpolation, Sink, Shape<4, kCount>, Pixel>;
    const auto high = resampleInShape<Interpolation, Sink, Shape<2, kCount>, Pixel>;
    const bool isHigh = kCount == 1 && leadsDown(tile);
    if (!(isHigh ? high : wide)(tile, src, srcPitch, dst, dstPitch) &&
        !(isHigh ? wide : high)(tile, src, srcPitch, dst, dstPitch))
        tileRowKernelAvx2<Interpolation, Sink, Pixel>()(tile, src, srcPitch, dst, dstPitch);
}

} // namespace

template <typename Interpolation, typename Sink, typename Pixel>
TileKernel<Pixel, int32_t> tileKernelAvx2()
{
    return resampleBlocks<Interpolation, Sink, Pixel>;
}

template TileKernel<uint8_t, int32_t> tileKernelAvx2<Nearest, Store, uint8_t>();
template TileKernel<uint8_t, int32_t> tileKernelAvx2<Nearest, Add, uint8_t>();
template TileKernel<uint8_t, int32_t> tileKernelAvx2<Bilinear<Fast8>, Store, uint8_t>();
template TileKernel<uint8_t, int32_t> tileKernelAvx2<Bilinear<Fast8>, Add, uint8_t>();
template TileKernel<uint16_t, int32_t> tileKernelAvx2<Nearest, Store, uint16_t>();
template TileKernel<uint16_t, int32_t> tileKernelAvx2<Nearest, Add, uint16_t>();
template TileKernel<uint16_t, int32_t> tileKernelAvx2<Bilinear<Accurate16>, Store, uint16_t>();
template TileKernel<uint16_t, int32_t> tileKernelAvx2<Bilinear<Accurate16>, Add, uint16_t>();

} // namespace kip

KIP_TARGET_END

#endif
