// Tiles row by row, eight pixels at a time: vectors find the addresses and do the arithmetic, plain loads
// fetch the pixels. Gathers would do that in one instruction, but a slow one on many processors.

#include "transform/tiles/x86/tile_kernels_x86.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/x86/x86_intrinsics.h"
#include "transform/tiles/tile_sampling.h"

KIP_TARGET_BEGIN("avx2")

namespace kip {

namespace {

constexpr int32_t kLanes = 8;

// ---- Positions and pixels --------------------------------------------------------------------------------------

// The positions of eight neighbouring pixels and the way to the next eight.
struct RowPositions {
    __m256i x, y;
    __m256i stepX, stepY;

    RowPositions(uint32_t startX, uint32_t startY, int32_t colStepX, int32_t colStepY)
    {
        const __m256i count = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
        const __m256i oneX = _mm256_set1_epi32(colStepX);
        const __m256i oneY = _mm256_set1_epi32(colStepY);
        x = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(startX)), _mm256_mullo_epi32(count, oneX));
        y = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(startY)), _mm256_mullo_epi32(count, oneY));
        stepX = _mm256_slli_epi32(oneX, 3);
        stepY = _mm256_slli_epi32(oneY, 3);
    }
    void move()
    {
        x = _mm256_add_epi32(x, stepX);
        y = _mm256_add_epi32(y, stepY);
    }
};

// Where the rows of a source lie.
template <typename Pixel>
struct RowSource {
    const Pixel *src;
    int64_t pitch;
    bool isWide;         // the pitch does not fit a signed word
    __m256i pitchAndOne; // words: 1, pitch

    RowSource(const Pixel *first, int32_t srcPitch)
        : src(first), pitch(srcPitch), isWide(srcPitch < INT16_MIN || srcPitch > INT16_MAX),
          pitchAndOne(_mm256_set1_epi32(static_cast<int32_t>((static_cast<uint32_t>(srcPitch) << 16) | 1)))
    {}

    // Tells whether 32 bits hold the offsets of a tile's pixels.
    static bool canReach(const FixedTile &tile, int32_t srcPitch)
    {
        const int64_t toEnd = (tile.width - 1) * std::abs(int64_t{tile.colStepY});
        const int64_t toLastRow = (tile.rows - 1) * std::abs(int64_t{tile.rowStepY});
        const int64_t rows = ((std::abs(int64_t{tile.y}) + toEnd + toLastRow) >> 16) + 2;
        return rows <= (INT32_MAX - 0x10000) / std::max<int64_t>(std::abs(int64_t{srcPitch}), 1);
    }

    // Pixels from the first of the source to those of eight positions.
    void offsets(const RowPositions &at, int32_t *offset) const
    {
        if (isWide) {
            const __m256i toRows =
                _mm256_mullo_epi32(_mm256_srai_epi32(at.y, 16), _mm256_set1_epi32(static_cast<int32_t>(pitch)));
            _mm256_store_si256(reinterpret_cast<__m256i *>(offset),
                               _mm256_add_epi32(toRows, _mm256_srai_epi32(at.x, 16)));
            return;
        }
        const __m256i pixels = _mm256_blend_epi16(_mm256_srli_epi32(at.x, 16), at.y, 0xAA);
        _mm256_store_si256(reinterpret_cast<__m256i *>(offset), _mm256_madd_epi16(pixels, pitchAndOne));
    }
};

// ---- Interpolations --------------------------------------------------------------------------------------------

// Eight samples of an interpolation.
template <typename Interpolation>
struct RowSamples;

template <>
struct RowSamples<Nearest> {
    template <typename Pixel>
    static void sample(const RowSource<Pixel> &source, const RowPositions &at, Pixel *line)
    {
        alignas(32) int32_t offset[kLanes];
        source.offsets(at, offset);
        for (int32_t n = 0; n < kLanes; ++n)
            line[n] = source.src[offset[n]];
    }
};

// The low words of eight lanes in both words of each.
__m256i repeatFraction(__m256i positions)
{
    return _mm256_shuffle_epi8(positions, _mm256_setr_epi8(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13, 0, 1, 0,
                                                           1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13));
}

// Eight pixels and those to their right, in words.
__m256i loadPairs(const uint8_t *src, const int32_t *offset)
{
    const auto pair = [=](int32_t n) {
        int16_t bytes;
        std::memcpy(&bytes, src + offset[n], sizeof bytes);
        return bytes;
    };
    return _mm256_cvtepu8_epi16(_mm_setr_epi16(pair(0), pair(1), pair(2), pair(3), pair(4), pair(5), pair(6), pair(7)));
}

// The low bytes of eight lanes.
void storeBytes(__m256i value, uint8_t *line)
{
    const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(value), _mm256_extracti128_si256(value, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(line), _mm_packus_epi16(words, words));
}

template <>
struct RowSamples<Bilinear<Fast8>> {
    static void sample(const RowSource<uint8_t> &source, const RowPositions &at, uint8_t *line)
    {
        alignas(32) int32_t offset[kLanes];
        source.offsets(at, offset);
        const __m256i above = loadPairs(source.src, offset);
        const __m256i below = loadPairs(source.src + source.pitch, offset);

        const __m256i ones = _mm256_set1_epi32(-1);
        const __m256i gxfx = _mm256_xor_si256(repeatFraction(at.x), _mm256_set1_epi32(0xFFFF));
        const __m256i fy = repeatFraction(at.y);
        const __m256i upper = _mm256_srli_epi16(_mm256_mulhi_epu16(gxfx, _mm256_xor_si256(fy, ones)), 1);
        const __m256i lower = _mm256_srli_epi16(_mm256_mulhi_epu16(gxfx, fy), 1);
        const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(upper, above), _mm256_madd_epi16(lower, below));
        storeBytes(_mm256_srli_epi32(_mm256_add_epi32(sum, _mm256_set1_epi32(1 << 14)), 15), line);
    }
};

// Weights of 16 bits less 2^15 are signed words; 2^15 times the sum of the pixels comes on top.
template <>
struct RowSamples<Bilinear<Accurate8>> {
    static void sample(const RowSource<uint8_t> &source, const RowPositions &at, uint8_t *line)
    {
        alignas(32) int32_t offset[kLanes];
        source.offsets(at, offset);
        const __m256i above = loadPairs(source.src, offset);
        const __m256i below = loadPairs(source.src + source.pitch, offset);

        const __m256i half = _mm256_set1_epi16(INT16_MIN);
        const __m256i gxfx = _mm256_xor_si256(repeatFraction(at.x), _mm256_set1_epi32(0xFFFF));
        const __m256i fy = repeatFraction(at.y);
        const __m256i gy = _mm256_xor_si256(fy, _mm256_set1_epi32(-1));
        const __m256i upper = _mm256_xor_si256(_mm256_mulhi_epu16(gxfx, gy), half);
        const __m256i lower = _mm256_xor_si256(_mm256_mulhi_epu16(gxfx, fy), half);
        const __m256i products = _mm256_add_epi32(_mm256_madd_epi16(upper, above), _mm256_madd_epi16(lower, below));
        const __m256i sum = _mm256_sub_epi32(products, _mm256_madd_epi16(half, _mm256_add_epi16(above, below)));
        storeBytes(_mm256_srli_epi32(_mm256_add_epi32(sum, _mm256_set1_epi32(0x8000)), 16), line);
    }
};

// The exact sum as two linear steps: along x it fits 32 bits, along y it takes 64.
template <>
struct RowSamples<Bilinear<Accurate16>> {
    static void sample(const RowSource<uint16_t> &source, const RowPositions &at, uint16_t *line)
    {
        alignas(32) int32_t offset[kLanes];
        source.offsets(at, offset);
        const __m256i low = _mm256_set1_epi32(0xFFFF);
        const __m256i fx = _mm256_and_si256(at.x, low);
        const __m256i fy = _mm256_and_si256(at.y, low);
        const __m256i above = mixPairs(loadPairs(source.src, offset), fx);
        const __m256i below = mixPairs(loadPairs(source.src + source.pitch, offset), fx);

        const __m256i gy = _mm256_sub_epi32(_mm256_set1_epi32(65536), fy);
        const __m256i even = mixRows(above, below, gy, fy);
        const __m256i odd = mixRows(_mm256_srli_epi64(above, 32), _mm256_srli_epi64(below, 32),
                                    _mm256_srli_epi64(gy, 32), _mm256_srli_epi64(fy, 32));
        const __m256i value = _mm256_blend_epi32(_mm256_srli_epi64(even, 32), odd, 0xAA);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(line),
                         _mm_packus_epi32(_mm256_castsi256_si128(value), _mm256_extracti128_si256(value, 1)));
    }

private:
    static __m256i loadPairs(const uint16_t *src, const int32_t *offset)
    {
        const auto pair = [=](int32_t n) {
            int32_t pixels;
            std::memcpy(&pixels, src + offset[n], sizeof pixels);
            return pixels;
        };
        return _mm256_setr_epi32(pair(0), pair(1), pair(2), pair(3), pair(4), pair(5), pair(6), pair(7));
    }
    // (65536 - fx) left + fx right, as 65536 left + fx (right - left): differences wrap, the sum does not.
    static __m256i mixPairs(__m256i pairs, __m256i fx)
    {
        const __m256i left = _mm256_slli_epi32(pairs, 16);
        const __m256i right = _mm256_srli_epi32(pairs, 16);
        const __m256i difference = _mm256_sub_epi32(right, _mm256_srli_epi32(left, 16));
        return _mm256_add_epi32(left, _mm256_mullo_epi32(fx, difference));
    }
    // The even lanes' sums, rounded; the sample is their upper half.
    static __m256i mixRows(__m256i above, __m256i below, __m256i gy, __m256i fy)
    {
        const __m256i sum = _mm256_add_epi64(_mm256_mul_epu32(above, gy), _mm256_mul_epu32(below, fy));
        return _mm256_add_epi64(sum, _mm256_set1_epi64x(0x7FFFFFFF));
    }
};

// ---- What happens to the samples ---------------------------------------------------------------------------------

// Samples a whole number of vectors.
template <typename Interpolation, typename Pixel>
void sampleLine(const RowSource<Pixel> &source, RowPositions at, Pixel *line, int32_t width)
{
    for (int32_t n = 0; n < width; n += kLanes) {
        RowSamples<Interpolation>::sample(source, at, line + n);
        at.move();
    }
}

// Some columns of a tile, a whole number of vectors; the first few are already done.
struct Columns {
    FixedPosition position; // of the first pixel
    int32_t first, width, overlap;
};

template <typename Sink, typename Pixel>
struct Lines;

// Storing the same values twice does no harm.
template <typename Pixel>
struct Lines<Store, Pixel> {
    template <typename Interpolation>
    static void resample(const FixedTile &tile, const Columns &columns, RowSource<Pixel> source, void *dst,
                         int32_t dstPitch)
    {
        FixedPosition position = columns.position;
        for (int32_t r = 0; r < tile.rows; ++r) {
            sampleLine<Interpolation>(source, {position.x, position.y, tile.colStepX, tile.colStepY},
                                      static_cast<Pixel *>(dst) + r * int64_t{dstPitch} + columns.first, columns.width);
            position.move(tile.rowStepX, tile.rowStepY);
        }
    }
};

// A few rows of samples are made before the first is added: a load right behind narrower stores waits, and the sums
// are read and written once for all of the rows.
template <typename Pixel>
struct Lines<Add, Pixel> {
    template <typename Interpolation>
    static void resample(const FixedTile &tile, const Columns &columns, RowSource<Pixel> source, void *dst, int32_t)
    {
        alignas(32) Pixel lines[kRows * kStretch];
        FixedPosition position = columns.position;
        for (int32_t first = 0; first < columns.width; first += kStretch) {
            const int32_t count = std::min(kStretch, columns.width - first);
            FixedPosition start = position;
            for (int32_t r = 0; r < tile.rows; r += kRows) {
                const int32_t rows = std::min(kRows, tile.rows - r);
                for (int32_t n = 0; n < rows; ++n) {
                    sampleLine<Interpolation>(source, {start.x, start.y, tile.colStepX, tile.colStepY},
                                              lines + int64_t{n} * kStretch, count);
                    start.move(tile.rowStepX, tile.rowStepY);
                }
                addLines(lines, rows, count, columns.overlap - first,
                         static_cast<uint32_t *>(dst) + columns.first + first);
            }
            position.x += kStretch * static_cast<uint32_t>(tile.colStepX);
            position.y += kStretch * static_cast<uint32_t>(tile.colStepY);
        }
    }

private:
    static constexpr int32_t kRows = 8; // 16 bits hold the sum of as many 8-bit samples
    static constexpr int32_t kStretch = 256;

    static void addLines(const Pixel *lines, int32_t rows, int32_t count, int32_t overlap, uint32_t *sums)
    {
        for (int32_t n = 0; n < count; n += kLanes) {
            const __m256i isFresh =
                _mm256_cmpgt_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(overlap - n - 1));
            const __m256i fresh = _mm256_and_si256(addColumns(lines + n, rows), isFresh);
            auto *const sum = reinterpret_cast<__m256i *>(sums + n);
            _mm256_storeu_si256(sum, _mm256_add_epi32(_mm256_loadu_si256(sum), fresh));
        }
    }
    static __m256i addColumns(const uint8_t *samples, int32_t rows)
    {
        __m128i sum = _mm_setzero_si128();
        for (int32_t r = 0; r < rows; ++r)
            sum = _mm_add_epi16(sum, _mm_cvtepu8_epi16(_mm_loadl_epi64(
                                         reinterpret_cast<const __m128i *>(samples + int64_t{r} * kStretch))));
        return _mm256_cvtepu16_epi32(sum);
    }
    static __m256i addColumns(const uint16_t *samples, int32_t rows)
    {
        __m256i sum = _mm256_setzero_si256();
        for (int32_t r = 0; r < rows; ++r)
            sum = _mm256_add_epi32(sum, _mm256_cvtepu16_epi32(_mm_load_si128(
                                            reinterpret_cast<const __m128i *>(samples + int64_t{r} * kStretch))));
        return sum;
    }
};

// ---- The walk ------------------------------------------------------------------------------------------------------

template <typename Interpolation, typename Sink, typename Pixel>
void resampleRows(const FixedTile &tile, const Pixel *src, int32_t srcPitch, void *dst, int32_t dstPitch)
{
    if (tile.width < kLanes || !RowSource<Pixel>::canReach(tile, srcPitch))
        return resampleInside<Interpolation, Sink, FixedPosition>(tile, src, srcPitch, dst, dstPitch);

    constexpr auto shift = static_cast<int32_t>(Interpolation::template shift<int32_t>());
    const auto resample = Lines<Sink, Pixel>::template resample<Interpolation>;
    const RowSource<Pixel> source(src, srcPitch);
    Columns columns = {FixedPosition::at(tile.x, tile.y), 0, tile.width / kLanes * kLanes, 0};
    columns.position.move(-shift, -shift);
    resample(tile, columns, source, dst, dstPitch);
    if (columns.width == tile.width)
        return;

    columns.overlap = columns.width + kLanes - tile.width;
    columns.first = tile.width - kLanes;
    columns.width = kLanes;
    columns.position.x += static_cast<uint32_t>(columns.first) * static_cast<uint32_t>(tile.colStepX);
    columns.position.y += static_cast<uint32_t>(columns.first) * static_cast<uint32_t>(tile.colStepY);
    resample(tile, columns, source, dst, dstPitch);
}

} // namespace

template <typename Interpolation, typename Sink, typename Pixel>
TileKernel<Pixel, int32_t> tileRowKernelAvx2()
{
    return resampleRows<Interpolation, Sink, Pixel>;
}

template TileKernel<uint8_t, int32_t> tileRowKernelAvx2<Nearest, Store, uint8_t>();
template TileKernel<uint8_t, int32_t> tileRowKernelAvx2<Nearest, Add, uint8_t>();
template TileKernel<uint8_t, int32_t> tileRowKernelAvx2<Bilinear<Fast8>, Store, uint8_t>();
template TileKernel<uint8_t, int32_t> tileRowKernelAvx2<Bilinear<Fast8>, Add, uint8_t>();
template TileKernel<uint8_t, int32_t> tileRowKernelAvx2<Bilinear<Accurate8>, Store, uint8_t>();
template TileKernel<uint8_t, int32_t> tileRowKernelAvx2<Bilinear<Accurate8>, Add, uint8_t>();
template TileKernel<uint16_t, int32_t> tileRowKernelAvx2<Nearest, Store, uint16_t>();
template TileKernel<uint16_t, int32_t> tileRowKernelAvx2<Nearest, Add, uint16_t>();
template TileKernel<uint16_t, int32_t> tileRowKernelAvx2<Bilinear<Accurate16>, Store, uint16_t>();
template TileKernel<uint16_t, int32_t> tileRowKernelAvx2<Bilinear<Accurate16>, Add, uint16_t>();

} // namespace kip

KIP_TARGET_END

#endif
