#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_ROW_GROUPS_AVX512_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_ROW_GROUPS_AVX512_H

// Groups of rows, by AVX-512, for all modes and both sizes of pixels. Included after every other header.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "support/x86/block_transpose_avx512.h"
#include "transform/plan/x86/plan_kernels_x86.h"
#include "transform/plan/x86/plan_row_groups_x86.h"
#include "transform/plan/x86/plan_words_avx512.h"

#include "transform/plan/x86/plan_samples_x86.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx512 {

// ---- The copy of a group's footprint
// -------------------------------------------------------------------------------------------

template <typename Pixel>
inline constexpr int32_t kBlock = kQuarterPixels<Pixel>;

inline __m128i loadBlockRow(const void *at)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(at));
}

// Four rows of a block.
template <typename Pixel>
inline __m512i loadFourRows(const Pixel *src, int64_t pitch)
{
    const __m256i low =
        _mm256_inserti128_si256(_mm256_castsi128_si256(loadBlockRow(src)), loadBlockRow(src + pitch), 1);
    const __m256i high = _mm256_inserti128_si256(_mm256_castsi128_si256(loadBlockRow(src + 2 * pitch)),
                                                 loadBlockRow(src + 3 * pitch), 1);
    return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}

inline void storeQuarters(__m512i v, uint8_t *dst, int64_t pitch)
{
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst), _mm512_castsi512_si128(v));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + pitch), _mm512_extracti32x4_epi32(v, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 2 * pitch), _mm512_extracti32x4_epi32(v, 2));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + 3 * pitch), _mm512_extracti32x4_epi32(v, 3));
}

template <typename Pixel>
inline __m512i permute(__m512i low, __m512i index, __m512i high)
{
    if constexpr (sizeof(Pixel) == 1)
        return _mm512_permutex2var_epi8(low, index, high);
    else
        return _mm512_permutex2var_epi16(low, index, high);
}

template <typename Pixel>
inline __m512i select(__mmask64 mask, __m512i otherwise, __m512i where)
{
    if constexpr (sizeof(Pixel) == 1)
        return _mm512_mask_blend_epi8(mask, otherwise, where);
    else
        return _mm512_mask_blend_epi16(static_cast<__mmask32>(mask), otherwise, where);
}

// Which of up to 20 rows every pixel of four copied ones is taken from.
struct BlockIndex {
    __m512i withinEight; // index into eight rows
    __mmask64 second;    // pixels from rows 8 to 15
    __mmask64 third;     // pixels from rows 16 to 19
};

// The rows count from the uppermost one that any column starts at.
template <typename Pixel>
inline BlockIndex blockIndex(const CopyBlock<Pixel> &block)
{
    constexpr int32_t size = kBlock<Pixel>;
    const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m512i columns = _mm512_and_si512(lanes, _mm512_set1_epi32(size - 1));
    const __m512i positions = _mm512_add_epi32(_mm512_set1_epi32(static_cast<int32_t>(block.position & 0xFFFF)),
                                               _mm512_mullo_epi32(columns, _mm512_set1_epi32(block.shear)));
    const __m512i starts = _mm512_add_epi32(_mm512_srai_epi32(positions, 16), _mm512_set1_epi32(block.start(0)));
    const __m512i places = block.majorStep < 0 ? _mm512_sub_epi32(_mm512_set1_epi32(size - 1), columns) : columns;
    if constexpr (sizeof(Pixel) == 1) {
        const __m512i within =
            _mm512_setr_epi32(0, 0, 0, 0, 0x01010101, 0x01010101, 0x01010101, 0x01010101, 0x02020202, 0x02020202,
                              0x02020202, 0x02020202, 0x03030303, 0x03030303, 0x03030303, 0x03030303);
        const __m512i rows = _mm512_add_epi8(_mm512_broadcast_i32x4(_mm512_cvtepi32_epi8(starts)), within);
        const __m512i place = _mm512_broadcast_i32x4(_mm512_cvtepi32_epi8(places));
        const __m512i scaled = _mm512_slli_epi16(_mm512_and_si512(rows, _mm512_set1_epi8(7)), 4);
        return {_mm512_or_si512(scaled, place), _mm512_test_epi8_mask(rows, _mm512_set1_epi8(8)),
                _mm512_test_epi8_mask(rows, _mm512_set1_epi8(16))};
    } else {
        const __m512i within = _mm512_setr_epi32(0, 0, 0, 0, 0x10001, 0x10001, 0x10001, 0x10001, 0x20002, 0x20002,
                                                 0x20002, 0x20002, 0x30003, 0x30003, 0x30003, 0x30003);
        const __m512i rows = _mm512_add_epi16(_mm512_broadcast_i64x4(_mm512_cvtepi32_epi16(starts)), within);
        const __m512i place = _mm512_broadcast_i64x4(_mm512_cvtepi32_epi16(places));
        const __m512i scaled = _mm512_slli_epi16(_mm512_and_si512(rows, _mm512_set1_epi16(7)), 3);
        return {_mm512_or_si512(scaled, place), _mm512_test_epi16_mask(rows, _mm512_set1_epi16(8)), 0};
    }
}

// Copies whole quads of lines. kRegisters of four rows hold all that four lines of the copy come from.
template <typename Pixel, int kRegisters>
inline void straightenBlock(const CopyBlock<Pixel> &block, int32_t quads)
{
    const BlockIndex index = blockIndex(block);
    const int64_t pitch = block.minorStep;
    constexpr int64_t columns = kBlock<Pixel>;
    const Pixel *const src = block.majorStep < 0 ? block.src - (columns - 1) : block.src;
    __m512i rows[6];
    for (int i = 0; i < kRegisters - 1; ++i)
        rows[i] = loadFourRows(src + int64_t{4} * i * pitch, pitch);
    for (int32_t n = 0; n < quads; ++n) {
        rows[kRegisters - 1] = loadFourRows(src + int64_t{4} * (n + kRegisters - 1) * pitch, pitch);
        __m512i lines = permute<Pixel>(rows[0], index.withinEight, rows[kRegisters > 1 ? 1 : 0]);
        if constexpr (kRegisters > 2)
            lines = select<Pixel>(index.second, lines,
                                  permute<Pixel>(rows[2], index.withinEight, rows[kRegisters > 3 ? 3 : 2]));
        if constexpr (kRegisters > 4)
            lines = select<Pixel>(index.third, lines, permute<Pixel>(rows[4], index.withinEight, rows[4]));
        storeQuarters(lines, reinterpret_cast<uint8_t *>(block.copy + int64_t{4} * n * block.copyPitch),
                      block.copyPitch * static_cast<int64_t>(sizeof(Pixel)));
        for (int i = 0; i + 1 < kRegisters; ++i)
            rows[i] = rows[i + 1];
    }
}

// Writes whole blocks of lines, of which count are read.
template <typename Pixel>
inline void transposeBlock(const CopyBlock<Pixel> &block)
{
    constexpr int32_t size = kBlock<Pixel>;
    for (int32_t k = 0; k < block.count; k += 4 * size) {
        const int32_t lines = std::min(block.count - k, 4 * size);
        const __mmask64 lanes = ~__mmask64{0} >> (64 - lines * static_cast<int32_t>(sizeof(Pixel)));
        __m512i a[size];
        for (int32_t i = 0; i < size; ++i)
            a[i] = _mm512_maskz_loadu_epi8(lanes, block.src + i * block.majorStep + block.start(i) + k);
        for (int32_t n = size; n > 1; n /= 2)
            interleaveQuarters<Pixel>(a);
        const int32_t quarters = (lines + size - 1) / size;
        Pixel *const to = block.copy + k * block.copyPitch;
        const auto store = [&](int32_t quarter, int32_t i, __m128i v) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(to + (quarter * size + i) * block.copyPitch), v);
        };
        for (int32_t i = 0; i < size; ++i)
            store(0, i, _mm512_castsi512_si128(a[i]));
        if (quarters > 1)
            for (int32_t i = 0; i < size; ++i)
                store(1, i, _mm512_extracti32x4_epi32(a[i], 1));
        if (quarters > 2)
            for (int32_t i = 0; i < size; ++i)
                store(2, i, _mm512_extracti32x4_epi32(a[i], 2));
        if (quarters > 3)
            for (int32_t i = 0; i < size; ++i)
                store(3, i, _mm512_extracti32x4_epi32(a[i], 3));
    }
}

template <typename Pixel>
struct BlockCopier {
    static constexpr int32_t kColumns = kBlock<Pixel>;

    static int32_t registersOf(const CopyBlock<Pixel> &block) { return (block.spread + 3) / 4 + 1; }
    static int32_t quadsOf(const CopyBlock<Pixel> &block) { return (block.count + 3) / 4; }
    static int32_t linesRead(const CopyBlock<Pixel> &block)
    {
        return block.minorStep == 1 ? block.spread + block.count : 4 * (quadsOf(block) + registersOf(block) - 1);
    }
    static void straighten(const CopyBlock<Pixel> &block)
    {
        switch (registersOf(block)) {
        case 1:
            return straightenBlock<Pixel, 1>(block, quadsOf(block));
        case 2:
            return straightenBlock<Pixel, 2>(block, quadsOf(block));
        case 3:
            return straightenBlock<Pixel, 3>(block, quadsOf(block));
        case 4:
            return straightenBlock<Pixel, 4>(block, quadsOf(block));
        default:
            return straightenBlock<Pixel, 5>(block, quadsOf(block));
        }
    }
    static void transpose(const CopyBlock<Pixel> &block) { transposeBlock(block); }
};

// ---- The second pass ----------------------------------------------------------------------------------------------

// start + n * step for n = first to first + 15.
inline __m512i positionsFrom(int32_t start, int32_t step, int32_t first)
{
    const __m512i lanes = _mm512_add_epi32(_mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15),
                                           _mm512_set1_epi32(first));
    return _mm512_add_epi32(_mm512_set1_epi32(start), _mm512_mullo_epi32(lanes, _mm512_set1_epi32(step)));
}

inline __m512i lowWords(__m512i first, __m512i second)
{
    return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi32_epi16(first)), _mm512_cvtepi32_epi16(second), 1);
}

// A row's pixels: up to three groups of 32.
constexpr int32_t kOutputGroups = kGroupWidth / Words::kCount;

// Where the pixels of a group lie on the line, but for the row's own start: from its origin on.
struct GroupSteps {
    __m512i fractions, indices; // as words
    int32_t origin;

    static GroupSteps of(int32_t group, int32_t step)
    {
        const int32_t first = Words::kCount * group;
        const int32_t origin = (first * step) >> 16;
        const __m512i low = positionsFrom(-(origin << 16), step, first);
        const __m512i high = positionsFrom(-(origin << 16), step, first + 16);
        return {lowWords(low, high), lowWords(_mm512_srli_epi32(low, 16), _mm512_srli_epi32(high, 16)), origin};
    }
};

// The same for kernels that take 16 pixels at a time from one register of words.
struct HalfGroupSteps {
    __m512i positions[2 * kOutputGroups]; // from the origins
    int32_t origins[2 * kOutputGroups];

    explicit HalfGroupSteps(int32_t step)
    {
        for (int32_t h = 0; h < 2 * kOutputGroups; ++h) {
            origins[h] = (16 * h * step) >> 16;
            positions[h] = positionsFrom(-(origins[h] << 16), step, 16 * h);
        }
    }
};

// Both words of a lane take an index into words: that of the position's integer part and the one behind it.
inline __m512i pairIndex(__m512i positions)
{
    const __m512i upper = _mm512_set1_epi32(0x03020302);
    const __m512i both = _mm512_shuffle_epi8(
        positions,
        _mm512_add_epi32(upper, _mm512_broadcast_i32x4(_mm_setr_epi32(0, 0x04040404, 0x08080808, 0x0C0C0C0C))));
    return _mm512_add_epi32(both, _mm512_set1_epi32(0x00010000));
}

// The cubic weights of 32 pixels, paired: low ones for the first sixteen positions, high ones for the second.
inline WeightPairs<Words> outputWeights(__m512i first, __m512i second)
{
    const __m512i mask = _mm512_set1_epi32(0xFFFF);
    const Words fractions = {_mm512_packus_epi32(_mm512_and_si512(first, mask), _mm512_and_si512(second, mask))};
    return weightPairs(cubicWeights(fractions));
}

inline __mmask32 lanesOf(int32_t count)
{
    return count >= Words::kCount ? ~__mmask32{0} : (__mmask32{1} << count) - 1;
}

template <bool kAdd>
inline void emitPixels(void *dst, int32_t first, __mmask32 lanes, __m256i bytes)
{
    if constexpr (kAdd) {
        auto *const sums = static_cast<uint32_t *>(dst) + first;
        const auto low = static_cast<__mmask16>(lanes);
        const auto high = static_cast<__mmask16>(lanes >> 16);
        _mm512_mask_storeu_epi32(
            sums, low,
            _mm512_add_epi32(_mm512_maskz_loadu_epi32(low, sums), _mm512_cvtepu8_epi32(_mm256_castsi256_si128(bytes))));
        _mm512_mask_storeu_epi32(sums + 16, high,
                                 _mm512_add_epi32(_mm512_maskz_loadu_epi32(high, sums + 16),
                                                  _mm512_cvtepu8_epi32(_mm256_extracti128_si256(bytes, 1))));
    } else {
        auto *const pixels = static_cast<uint8_t *>(dst) + first;
        if (lanes == ~__mmask32{0})
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(pixels), bytes);
        else
            _mm256_mask_storeu_epi8(pixels, lanes, bytes);
    }
}

template <bool kAdd>
inline void emitPixels(void *dst, int32_t first, __mmask32 lanes, Words words)
{
    static_assert(!kAdd, "16-bit pixels are only stored");
    auto *const pixels = static_cast<uint16_t *>(dst) + first;
    if (lanes == ~__mmask32{0})
        _mm512_storeu_si512(pixels, words.v);
    else
        _mm512_mask_storeu_epi16(pixels, lanes, words.v);
}

// ---- The two passes -----------------------------------------------------------------------------------------------

// What a mode and a size of pixels make of registers:
//   Rule
//   Line                                  what is kept of a row between the passes
//   RowKernel(step)
//   sample(fractions, taps, line, at)     the first pass of 32 samples
//   output(line, outputPosition, first)   the second pass of 32 pixels: words, or bytes
// Each one is defined in a file of its own, such as plan_cubic16_avx512.cpp.
template <typename Rule>
struct RowKernel;

template <typename Kernel, bool kAdd>
struct RowGroupPasses : Kernel {
    using Pixel = typename Kernel::Rule::Pixel;
    using Copier = BlockCopier<Pixel>;
    using Line = typename Kernel::Line;

    explicit RowGroupPasses(const RowGroup<Pixel> &group) : Kernel(group.outputStep) {}

    static void sampleRows(const RowTaps<Pixel> *taps, int64_t pitch, int32_t rows, Line *lines)
    {
        sampleRowsOf<Words, Kernel>(taps, pitch, rows, lines);
    }
    void outputRows(const Line *lines, int32_t rows, int32_t width, const RowOutput *outputs) const
    {
        for (int32_t i = 0; i < rows; ++i)
            for (int32_t n = 0; n < width; n += Words::kCount)
                emitPixels<kAdd>(outputs[i].dst, n, lanesOf(width - n), this->output(lines[i], outputs[i].position, n));
    }
};

} // namespace kip::avx512

KIP_TARGET_END

namespace kip {

// Outside the region: asking is for every processor.
template <typename Rule, bool kAdd>
RowGroupKernel<typename Rule::Pixel> *rowGroupKernelAvx512()
{
    return resampleRowGroup<avx512::RowGroupPasses<avx512::RowKernel<Rule>, kAdd>>;
}

} // namespace kip

#endif
