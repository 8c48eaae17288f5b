// 8-bit tiles in blocks of 8 x 2 destination pixels. The source pixels of either half, 4 x 2, lie in a box of at most
// 16 columns and a few rows, whatever the angle: these are loaded into registers, and byte shuffles fetch all
// neighbours of a kind. Plain loads, which fetch one pixel at a time, serve what is left.

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

// A block, and its halves of 8 pixels. Fewer source rows hold a half that is short in the direction that leaves them.
template <int32_t kWidthOfHalf>
struct Shape {
    static constexpr int32_t kHalfWidth = kWidthOfHalf;
    static constexpr int32_t kWidth = 2 * kHalfWidth;
    static constexpr int32_t kRows = 8 / kHalfWidth;
};
using Wide = Shape<4>; // where a row of the destination stays closer to a row of the source than a column does
using High = Shape<2>;

constexpr int32_t kPixels = 16;
constexpr int32_t kBlocksAtOnce = 4; // whose boxes are found together
constexpr int32_t kBoxColumns = 16;  // bytes of a row that are loaded
constexpr int32_t kLeastSourceRows = 2;
constexpr int32_t kGreatestSourceRows = 6; // rows of a box that the first neighbours lie in

// ---- Boxes ---------------------------------------------------------------------------------------------------------

// Where the boxes of some blocks begin, two for each.
struct Boxes {
    alignas(32) int32_t offset[2 * kBlocksAtOnce]; // of the corner, from the source's first pixel
    alignas(32) int32_t moved[2 * kBlocksAtOnce];  // how much further on in its box a half's least position lies
    bool anyMoved;
};

// The steps from one block to the next one.
struct BlockStep {
    uint32_t x, y;
};

// Finds the boxes of blocks that follow each other. A box is moved back from the tile's right and lower edge, to read
// nothing beyond.
struct BoxFinder {
    __m256i halvesX, halvesY; // least positions of halves, from the first pixel of the first block
    __m256i lastX, lastY;     // the last corner of a box
    __m256i pitch;

    BoxFinder(const BlockAxis &x, const BlockAxis &y, int32_t halfWidth, BlockStep step, int32_t boxRows,
              int32_t srcPitch)
        : halvesX(halvesOf(x, halfWidth, step.x)), halvesY(halvesOf(y, halfWidth, step.y)),
          lastX(_mm256_set1_epi32(x.last - (kBoxColumns - 1))), lastY(_mm256_set1_epi32(y.last - (boxRows - 1))),
          pitch(_mm256_set1_epi32(srcPitch))
    {}

    void find(FixedPosition first, Boxes *boxes) const
    {
        const __m256i pixelX =
            _mm256_srai_epi32(_mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(first.x)), halvesX), 16);
        const __m256i pixelY =
            _mm256_srai_epi32(_mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(first.y)), halvesY), 16);
        const __m256i boxX = _mm256_min_epi32(pixelX, lastX);
        const __m256i boxY = _mm256_min_epi32(pixelY, lastY);
        const __m256i moved =
            _mm256_add_epi32(_mm256_slli_epi32(_mm256_sub_epi32(pixelY, boxY), 4), _mm256_sub_epi32(pixelX, boxX));
        _mm256_store_si256(reinterpret_cast<__m256i *>(boxes->offset),
                           _mm256_add_epi32(_mm256_mullo_epi32(boxY, pitch), boxX));
        _mm256_store_si256(reinterpret_cast<__m256i *>(boxes->moved), moved);
        boxes->anyMoved = _mm256_testz_si256(moved, moved) == 0;
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

// ---- Lanes ---------------------------------------------------------------------------------------------------------

// What the pixels of all blocks of a tile have in common, a pixel in each word: the left half row by row, then the
// right one.
struct Lanes {
    __m256i fractionX, fractionY; // of a position, where the block's first pixel has none
    __m256i lowX, lowY;           // the same where the least position of its half has none
    __m256i index;                // place in the box, where the fraction has carried into both coordinates
};

__m256i loadWords(const uint16_t *words)
{
    return _mm256_load_si256(reinterpret_cast<const __m256i *>(words));
}

// indexUnit: what an index counts by, 1 in each byte that takes part.
template <typename Shape>
Lanes makeLanes(const BlockAxis &x, const BlockAxis &y, int16_t indexUnit, int16_t indexOffset)
{
    alignas(32) uint16_t words[5][kPixels];
    for (int32_t n = 0; n < kPixels; ++n) {
        const int32_t column = n % Shape::kHalfWidth;
        const int32_t row = n / Shape::kHalfWidth % Shape::kRows;
        const int32_t left = n / (kPixels / 2) * Shape::kHalfWidth;
        const auto fromLeast = [=](const BlockAxis &axis) { // not negative, and within the box
            return static_cast<uint32_t>(column * int64_t{axis.colStep} + row * int64_t{axis.rowStep} - axis.least);
        };
        const auto fromFirst = [=](const BlockAxis &axis) {
            return static_cast<uint16_t>((left + column) * int64_t{axis.colStep} + row * int64_t{axis.rowStep});
        };
        const uint32_t place = ((fromLeast(y) >> 16) + 1) * kBoxColumns + (fromLeast(x) >> 16) + 1;
        words[0][n] = fromFirst(x);
        words[1][n] = fromFirst(y);
        words[2][n] = static_cast<uint16_t>(fromLeast(x));
        words[3][n] = static_cast<uint16_t>(fromLeast(y));
        words[4][n] =
            static_cast<uint16_t>(place * static_cast<uint16_t>(indexUnit) + static_cast<uint16_t>(indexOffset));
    }
    return {loadWords(words[0]), loadWords(words[1]), loadWords(words[2]), loadWords(words[3]), loadWords(words[4])};
}

// Where a sum of fractions has not carried: it is not below either of them.
__m256i uncarried(__m256i sum, __m256i added)
{
    return _mm256_cmpeq_epi16(_mm256_min_epu16(sum, added), added);
}

__m256i placeLanes(const Lanes &lanes, __m256i fractionX, __m256i fractionY, int16_t indexUnit)
{
    const __m256i left = _mm256_and_si256(uncarried(fractionX, lanes.lowX), _mm256_set1_epi16(indexUnit));
    const __m256i up = _mm256_and_si256(uncarried(fractionY, lanes.lowY),
                                        _mm256_set1_epi16(static_cast<int16_t>(indexUnit * kBoxColumns)));
    return _mm256_sub_epi16(_mm256_sub_epi16(lanes.index, left), up);
}

// The bytes of an index that lie in one row of a box; the others get their highest bit set.
template <bool kIsLast>
__m256i selectRow(__m256i index, int32_t row)
{
    const __m256i fromRow = _mm256_sub_epi8(index, _mm256_set1_epi8(static_cast<char>(row * kBoxColumns)));
    return kIsLast ? fromRow : _mm256_adds_epu8(fromRow, _mm256_set1_epi8(0x80 - kBoxColumns));
}

// The boxes of a block's halves.
struct BoxPair {
    const uint8_t *left, *right;
    int64_t pitch;

    __m256i row(int32_t n) const
    {
        const __m128i ofLeft = _mm_loadu_si128(reinterpret_cast<const __m128i *>(left + n * pitch));
        const __m128i ofRight = _mm_loadu_si128(reinterpret_cast<const __m128i *>(right + n * pitch));
        return _mm256_inserti128_si256(_mm256_castsi128_si256(ofLeft), ofRight, 1);
    }
};

// ---- Interpolations ------------------------------------------------------------------------------------------------

// An index in words: the byte of the box in every byte that the interpolation asks for. Samples are words.

template <typename Interpolation>
struct BlockSamples;

template <>
struct BlockSamples<Nearest> {
    static constexpr int16_t kIndexUnit = 0x0001;
    static constexpr auto kIndexOffset = static_cast<int16_t>(0xFF00); // in no row: 0
    // Else plain loads are as fast or faster.
    static constexpr int32_t kRowsThatPayWide = 3;
    static constexpr int32_t kRowsThatPayHigh = 0;

    template <int kSourceRows>
    static __m256i sample(const BoxPair &box, __m256i index, __m256i, __m256i)
    {
        __m256i samples = _mm256_shuffle_epi8(box.row(0), selectRow<false>(index, 0));
        for (int r = 1; r < kSourceRows - 1; ++r)
            samples = _mm256_or_si256(samples, _mm256_shuffle_epi8(box.row(r), selectRow<false>(index, r)));
        return _mm256_or_si256(samples,
                               _mm256_shuffle_epi8(box.row(kSourceRows - 1), selectRow<true>(index, kSourceRows - 1)));
    }
};

template <>
struct BlockSamples<Bilinear<Fast8>> {
    static constexpr int16_t kIndexUnit = 0x0101; // a word looks up the pixel and the one to its right
    static constexpr int16_t kIndexOffset = 0x0100;
    static constexpr int32_t kRowsThatPayWide = kGreatestSourceRows;
    static constexpr int32_t kRowsThatPayHigh = kGreatestSourceRows;

    // Every row is loaded once: it is the lower one of the neighbours that the row before it holds.
    template <int kSourceRows>
    static __m256i sample(const BoxPair &box, __m256i index, __m256i fx, __m256i fy)
    {
        __m256i select = selectRow<false>(index, 0);
        __m256i above = _mm256_shuffle_epi8(box.row(0), select);
        __m256i below = _mm256_setzero_si256();
        for (int r = 1; r < kSourceRows; ++r) {
            const __m256i row = box.row(r);
            below = _mm256_or_si256(below, _mm256_shuffle_epi8(row, select));
            select = r == kSourceRows - 1 ? selectRow<true>(index, r) : selectRow<false>(index, r);
            above = _mm256_or_si256(above, _mm256_shuffle_epi8(row, select));
        }
        below = _mm256_or_si256(below, _mm256_shuffle_epi8(box.row(kSourceRows), select));
        return mix(above, below, fx, fy);
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

// ---- What happens to a block's samples -----------------------------------------------------------------------------

// Storing the same values twice does no harm.
template <typename Shape>
struct StoreBlocks {
    uint8_t *dst;
    int64_t pitch;

    StoreBlocks(void *first, int32_t dstPitch) : dst(static_cast<uint8_t *>(first)), pitch(dstPitch) {}

    void put(const BlockPlace &place, __m256i samples) const
    {
        const __m128i left = _mm256_castsi256_si128(samples);
        const __m128i right = _mm256_extracti128_si256(samples, 1);
        uint8_t *const at = dst + place.row * pitch + place.column;
        if constexpr (Shape::kHalfWidth == 4) {
            const __m128i rows = _mm_shuffle_epi32(_mm_packus_epi16(left, right), _MM_SHUFFLE(3, 1, 2, 0));
            _mm_storel_epi64(reinterpret_cast<__m128i *>(at), rows);
            _mm_storel_epi64(reinterpret_cast<__m128i *>(at + pitch), _mm_unpackhi_epi64(rows, rows));
        } else {
            const __m128i upperRows = _mm_unpacklo_epi32(left, right); // words
            const __m128i lowerRows = _mm_unpackhi_epi32(left, right);
            const __m128i rows = _mm_packus_epi16(upperRows, lowerRows);
            storeFour(at, rows);
            storeFour(at + pitch, _mm_srli_si128(rows, 4));
            storeFour(at + 2 * pitch, _mm_srli_si128(rows, 8));
            storeFour(at + 3 * pitch, _mm_srli_si128(rows, 12));
        }
    }

private:
    static void storeFour(uint8_t *at, __m128i samples)
    {
        const int32_t four = _mm_cvtsi128_si32(samples);
        std::memcpy(at, &four, sizeof four);
    }
};

// What the blocks before have added is left out.
template <typename Shape>
struct AddBlocks {
    uint32_t *sums;

    AddBlocks(void *first, int32_t) : sums(static_cast<uint32_t *>(first)) {}

    void put(const BlockPlace &place, __m256i samples) const
    {
        if (place.overlapRows != 0)
            samples = _mm256_and_si256(samples, isFreshRow(place.overlapRows));
        __m256i columns = _mm256_add_epi16(samples, _mm256_unpackhi_epi64(samples, samples));
        if constexpr (Shape::kHalfWidth == 2)
            columns = _mm256_add_epi16(columns, _mm256_srli_epi64(columns, 32));
        const __m128i left = _mm256_castsi256_si128(columns);
        const __m128i right = _mm256_extracti128_si256(columns, 1);
        uint32_t *const at = sums + place.column;
        const __m128i overlap = _mm_set1_epi32(place.overlapColumns - 1);
        if constexpr (Shape::kHalfWidth == 4) {
            add(at, left, _mm_cmpgt_epi32(_mm_setr_epi32(0, 1, 2, 3), overlap));
            add(at + Shape::kHalfWidth, right, _mm_cmpgt_epi32(_mm_setr_epi32(4, 5, 6, 7), overlap));
        } else {
            add(at, _mm_unpacklo_epi32(left, right), _mm_cmpgt_epi32(_mm_setr_epi32(0, 1, 2, 3), overlap));
        }
    }

private:
    static __m256i isFreshRow(int32_t overlapRows)
    {
        constexpr int kShift = Shape::kHalfWidth == 4 ? 2 : 1;
        const __m256i pixel = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7);
        return _mm256_cmpgt_epi16(_mm256_srli_epi16(pixel, kShift),
                                  _mm256_set1_epi16(static_cast<int16_t>(overlapRows - 1)));
    }
    // The first four words, as far as they are fresh.
    static void add(uint32_t *sums, __m128i words, __m128i isFresh)
    {
        auto *const at = reinterpret_cast<__m128i *>(sums);
        const __m128i fresh = _mm_and_si128(_mm_cvtepu16_epi32(words), isFresh);
        _mm_storeu_si128(at, _mm_add_epi32(_mm_loadu_si128(at), fresh));
    }
};

template <typename Sink, typename Shape>
using PutBlocks = std::conditional_t<std::is_same_v<Sink, Store>, StoreBlocks<Shape>, AddBlocks<Shape>>;

// ---- The walk ------------------------------------------------------------------------------------------------------

struct BlockTile {
    const FixedTile &tile;
    FixedPosition position; // of the first pixel, less the interpolation's shift
    BlockAxis x, y;         // of halves
    const uint8_t *src;
    int32_t pitch;
};

template <typename Interpolation, typename Sink, typename Shape, int kSourceRows>
void walkBlocks(const BlockTile &t, void *dst, int32_t dstPitch)
{
    using Samples = BlockSamples<Interpolation>;
    const FixedTile &tile = t.tile;
    const PutBlocks<Sink, Shape> output(dst, dstPitch);
    const BlockOrder order(tile, Shape::kWidth, Shape::kRows);
    constexpr bool kDown = std::is_same_v<Shape, High>; // as the order is
    const uint32_t count = kDown ? Shape::kRows : Shape::kWidth;
    const BlockStep step = {count * static_cast<uint32_t>(kDown ? tile.rowStepX : tile.colStepX),
                            count * static_cast<uint32_t>(kDown ? tile.rowStepY : tile.colStepY)};
    const BoxFinder finder(t.x, t.y, Shape::kHalfWidth, step, kSourceRows + Interpolation::kReach, t.pitch);
    const Lanes lanes = makeLanes<Shape>(t.x, t.y, Samples::kIndexUnit, Samples::kIndexOffset);

    // Blocks that follow each other by the step.
    const auto walk = [&](int32_t outer, int32_t inner, int32_t blocks) {
        BlockPlace place = order.place(outer, inner);
        FixedPosition first = t.position;
        first.x += static_cast<uint32_t>(place.column) * static_cast<uint32_t>(tile.colStepX) +
                   static_cast<uint32_t>(place.row) * static_cast<uint32_t>(tile.rowStepX);
        first.y += static_cast<uint32_t>(place.column) * static_cast<uint32_t>(tile.colStepY) +
                   static_cast<uint32_t>(place.row) * static_cast<uint32_t>(tile.rowStepY);
        Boxes boxes;
        finder.find(first, &boxes);
        __m256i fx = _mm256_add_epi16(lanes.fractionX, _mm256_set1_epi16(static_cast<int16_t>(first.x)));
        __m256i fy = _mm256_add_epi16(lanes.fractionY, _mm256_set1_epi16(static_cast<int16_t>(first.y)));
        for (int32_t n = 0; n < 2 * blocks; n += 2) {
            __m256i index = placeLanes(lanes, fx, fy, Samples::kIndexUnit);
            if (boxes.anyMoved) {
                const __m128i left = _mm_set1_epi16(static_cast<int16_t>(boxes.moved[n] * Samples::kIndexUnit));
                const __m128i right = _mm_set1_epi16(static_cast<int16_t>(boxes.moved[n + 1] * Samples::kIndexUnit));
                index = _mm256_add_epi16(index, _mm256_inserti128_si256(_mm256_castsi128_si256(left), right, 1));
            }
            const BoxPair box = {t.src + boxes.offset[n], t.src + boxes.offset[n + 1], t.pitch};
            output.put(place, Samples::template sample<kSourceRows>(box, index, fx, fy));
            (kDown ? place.row : place.column) += order.innerStep;
            fx = _mm256_add_epi16(fx, _mm256_set1_epi16(static_cast<int16_t>(step.x)));
            fy = _mm256_add_epi16(fy, _mm256_set1_epi16(static_cast<int16_t>(step.y)));
        }
    };
    const int32_t whole = order.innerEnd / order.innerStep;
    for (int32_t outer = 0; outer < order.outerEnd; outer += order.outerStep) {
        for (int32_t block = 0; block < whole; block += kBlocksAtOnce)
            walk(outer, block * order.innerStep, std::min(kBlocksAtOnce, whole - block));
        if (whole * order.innerStep < order.innerEnd)
            walk(outer, whole * order.innerStep, 1);
    }
}

using WalkBlocks = void (*)(const BlockTile &t, void *dst, int32_t dstPitch);

// The walk for a number of source rows; none where blocks do not pay at any pitch.
template <typename Interpolation, typename Sink, typename Shape, int kSourceRows>
constexpr WalkBlocks walkIfPaid()
{
    if constexpr (std::is_same_v<Shape, High> || kSourceRows <= BlockSamples<Interpolation>::kRowsThatPayWide)
        return walkBlocks<Interpolation, Sink, Shape, kSourceRows>;
    else
        return nullptr;
}

// From kLeastSourceRows on.
template <typename Interpolation, typename Sink, typename Shape>
constexpr WalkBlocks kWalks[] = {
    walkIfPaid<Interpolation, Sink, Shape, 2>(), walkIfPaid<Interpolation, Sink, Shape, 3>(),
    walkIfPaid<Interpolation, Sink, Shape, 4>(), walkIfPaid<Interpolation, Sink, Shape, 5>(),
    walkIfPaid<Interpolation, Sink, Shape, 6>()};

// What decides whether blocks of a shape serve a tile.
struct BlockNeeds {
    int32_t halfWidth, rows; // of the shape
    int32_t shift, reach;    // of the interpolation
    bool isSteep;            // rows of the destination lead down the source
    int32_t rowsThatPay;     // greatest number of source rows with which blocks are faster than rows of pixels
};

// Fills in how blocks read a tile and returns the rows of a box that the first neighbours lie in; 0 where blocks do not
// serve the tile or do not pay. Where a row of the destination leads down the source, rows of pixels read hundreds of
// lines over and over; at pitches of whole 512 bytes the lines share a few sets of the first-level cache and evict each
// other, and blocks, which follow each other along the source's rows, are several times as fast.
int32_t findSourceRows(const BlockNeeds &needs, BlockTile *t)
{
    const FixedTile &tile = t->tile;
    if (tile.width < 2 * needs.halfWidth || tile.rows < needs.rows || std::abs(int64_t{t->pitch}) > INT16_MAX ||
        !measureBlockAxis(tile.x, tile.colStepX, tile.rowStepX, tile, needs.halfWidth, needs.rows, needs.shift,
                          needs.reach, &t->x) ||
        !measureBlockAxis(tile.y, tile.colStepY, tile.rowStepY, tile, needs.halfWidth, needs.rows, needs.shift,
                          needs.reach, &t->y))
        return 0;
    const int32_t sourceRows = std::max(t->y.extent - needs.reach, kLeastSourceRows);
    const bool fits = t->x.extent <= kBoxColumns && t->x.last - t->x.first >= kBoxColumns - 1 &&
                      sourceRows <= kGreatestSourceRows && t->y.last - t->y.first >= sourceRows + needs.reach - 1;
    const bool pays = sourceRows <= needs.rowsThatPay || (needs.isSteep && t->pitch % 512 == 0);
    return fits && pays ? sourceRows : 0;
}

// Returns false, with nothing done, where blocks of a shape do not serve a tile.
template <typename Interpolation, typename Sink, typename Shape>
bool resampleInShape(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst, int32_t dstPitch)
{
    constexpr auto shift = static_cast<int32_t>(Interpolation::template shift<int32_t>());
    constexpr bool kIsSteep = std::is_same_v<Shape, High>;
    BlockTile t = {tile, FixedPosition::at(tile.x, tile.y), {}, {}, src, srcPitch};
    t.position.move(-shift, -shift);
    const int32_t sourceRows = findSourceRows(
        {Shape::kHalfWidth, Shape::kRows, shift, Interpolation::kReach, kIsSteep,
         kIsSteep ? BlockSamples<Interpolation>::kRowsThatPayHigh : BlockSamples<Interpolation>::kRowsThatPayWide},
        &t);
    if (sourceRows == 0)
        return false;
    kWalks<Interpolation, Sink, Shape>[sourceRows - kLeastSourceRows](t, dst, dstPitch);
    return true;
}

template <typename Interpolation, typename Sink>
void resampleBlocks(const FixedTile &tile, const uint8_t *src, int32_t srcPitch, void *dst, int32_t dstPitch)
{
    const bool isSteep = std::abs(int64_t{tile.colStepY}) > std::abs(int64_t{tile.rowStepY});
    const auto resample =
        isSteep ? resampleInShape<Interpolation, Sink, High> : resampleInShape<Interpolation, Sink, Wide>;
    if (!resample(tile, src, srcPitch, dst, dstPitch))
        tileRowKernelAvx2<Interpolation, Sink, uint8_t>()(tile, src, srcPitch, dst, dstPitch);
}

} // namespace

template <typename Interpolation, typename Sink>
TileKernel<uint8_t, int32_t> tileBlockKernelAvx2()
{
    return resampleBlocks<Interpolation, Sink>;
}

template TileKernel<uint8_t, int32_t> tileBlockKernelAvx2<Nearest, Store>();
template TileKernel<uint8_t, int32_t> tileBlockKernelAvx2<Nearest, Add>();
template TileKernel<uint8_t, int32_t> tileBlockKernelAvx2<Bilinear<Fast8>, Store>();
template TileKernel<uint8_t, int32_t> tileBlockKernelAvx2<Bilinear<Fast8>, Add>();

} // namespace kip

KIP_TARGET_END

#endif
