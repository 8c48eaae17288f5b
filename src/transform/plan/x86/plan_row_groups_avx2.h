#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_ROW_GROUPS_AVX2_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_ROW_GROUPS_AVX2_H

// Groups of rows, by AVX2, for all modes and both sizes of pixels. Included after every other header.

#include <algorithm>
#include <cstdint>

#include "support/x86/block_transpose_sse2.h"
#include "transform/plan/plan_kernel_choice.h"
#include "transform/plan/x86/plan_kernels_x86.h"
#include "transform/plan/x86/plan_row_groups_x86.h"
#include "transform/plan/x86/plan_rows_avx2.h"
#include "transform/plan/x86/plan_samples_x86.h"
#include "transform/plan/x86/plan_sparse_rows_avx2.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx2 {

// ---- The copy of a group's footprint ------------------------------------------------------------------------------

template <typename Pixel>
inline __m256i reversedPixels(__m256i pixels)
{
    const __m256i backwards = sizeof(Pixel) == 1
                                  ? _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13,
                                                     12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)
                                  : _mm256_setr_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1, 14, 15, 12,
                                                     13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1);
    return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(pixels, backwards), 0x4E);
}

template <typename Pixel>
struct BlockCopier {
    static constexpr int32_t kColumns = 32 / sizeof(Pixel);
    static constexpr int32_t kTransposed = kTransposedBlock<Pixel>;

    static int32_t linesRead(const CopyBlock<Pixel> &block)
    {
        return block.spread + (block.minorStep == 1 ? std::max(block.count, kTransposed) : block.count);
    }

    // The columns whose start has this bit.
    static __m256i startsWith(__m256i starts, int32_t bit)
    {
        if constexpr (sizeof(Pixel) == 1) {
            const __m256i bits = _mm256_set1_epi8(static_cast<char>(bit));
            return _mm256_cmpeq_epi8(_mm256_and_si256(starts, bits), bits);
        } else {
            const __m256i bits = _mm256_set1_epi16(static_cast<int16_t>(bit));
            return _mm256_cmpeq_epi16(_mm256_and_si256(starts, bits), bits);
        }
    }

    // Moves each column up by its start: one bit of the starts after the other, the last three in one pass.
    static void straighten(const CopyBlock<Pixel> &block)
    {
        const int32_t read = linesRead(block);
        __m256i rows[kMostLines + kColumns + 8];
        const Pixel *const src = block.majorStep < 0 ? block.src - (kColumns - 1) : block.src;
        for (int32_t i = 0; i < read; ++i) {
            const __m256i row = load(src + i * block.minorStep);
            rows[i] = block.majorStep < 0 ? reversedPixels<Pixel>(row) : row;
        }
        for (int32_t i = read; i < read + 8; ++i)
            rows[i] = _mm256_setzero_si256();

        alignas(32) Pixel of[kColumns];
        for (int32_t i = 0; i < kColumns; ++i)
            of[i] = static_cast<Pixel>(block.start(i));
        const __m256i starts = load(of);
        for (int32_t distance = kColumns / 2; distance >= 8; distance /= 2) {
            if (distance > block.spread)
                continue;
            const __m256i moved = startsWith(starts, distance);
            const int32_t end = std::min(block.count + distance - 1, read - distance); // what later passes reach
            for (int32_t i = 0; i < end; ++i)
                rows[i] = _mm256_blendv_epi8(rows[i], rows[i + distance], moved);
        }

        const __m256i byFour = startsWith(starts, 4);
        const __m256i byTwo = startsWith(starts, 2);
        const __m256i byOne = startsWith(starts, 1);
        const auto fours = [&](int32_t i) { return _mm256_blendv_epi8(rows[i], rows[i + 4], byFour); };
        __m256i second = fours(1);
        __m256i third = fours(2);
        __m256i first = _mm256_blendv_epi8(fours(0), third, byTwo);
        for (int32_t i = 0; i < block.count; ++i) {
            const __m256i fourth = fours(i + 3);
            const __m256i next = _mm256_blendv_epi8(second, fourth, byTwo);
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(block.copy + i * block.copyPitch),
                                _mm256_blendv_epi8(first, next, byOne));
            first = next;
            second = third;
            third = fourth;
        }
    }

    // Reads and writes a whole block of lines where there are fewer.
    static void transpose(const CopyBlock<Pixel> &block)
    {
        for (int32_t x = 0; x < kColumns; x += kTransposed) {
            const Pixel *columns[kTransposed];
            for (int32_t i = 0; i < kTransposed; ++i)
                columns[i] = block.src + (x + i) * block.majorStep + block.start(x + i);
            for (int32_t begin = 0; begin < block.count; begin += kTransposed) {
                const int32_t line = std::max(0, std::min(begin, block.count - kTransposed));
                transposeColumns(columns, line, block.copy + line * block.copyPitch + x, block.copyPitch);
            }
        }
    }
};

// ---- The two passes -----------------------------------------------------------------------------------------------

// Those of a row's kernel (plan_rows_avx2.h), for the rows of a group.
template <typename Kernel, bool kAdd>
struct RowGroupPasses {
    using Rule = typename Kernel::Rule;
    using Pixel = typename Rule::Pixel;
    using Copier = BlockCopier<Pixel>;
    struct Line {
        alignas(32) typename Rule::Entry entries[kMostSamples];
    };

    uint32_t step;
    const int16_t *weights;

    explicit RowGroupPasses(const RowGroup<Pixel> &group)
        : step(static_cast<uint32_t>(group.outputStep)), weights(group.weights)
    {}

    static void sample(Words fractions, const Words *taps, Line *line, int32_t at)
    {
        Kernel::sample(fractions, taps, line->entries + at);
    }
    static void sampleRows(const RowTaps<Pixel> *taps, int64_t pitch, int32_t rows, Line *lines)
    {
        sampleRowsOf<Words, RowGroupPasses>(taps, pitch, rows, lines);
    }
    void outputRows(const Line *lines, int32_t rows, int32_t width, const RowOutput *outputs) const
    {
        for (int32_t i = 0; i < rows; ++i)
            outputLine<Kernel, kAdd>(
                {lines[i].entries, static_cast<uint32_t>(outputs[i].position), step, width, weights, outputs[i].dst});
    }
};

} // namespace kip::avx2

KIP_TARGET_END

namespace kip {

// Outside the region: asking is for every processor.
template <typename Rule, bool kAdd>
PlanKernels<Rule> planKernelsAvx2()
{
    using Kernel = avx2::RowKernel<Rule>;
    constexpr auto rowGroup = resampleRowGroup<avx2::RowGroupPasses<Kernel, kAdd>>;
    return {avx2::sampleLine<Kernel>,
            avx2::outputLine<Kernel, kAdd>,
            avx2::sparseRow<Kernel, kAdd>,
            Rule::kTaps / 2 * 65536,
            copyStripSse2<typename Rule::Pixel>,
            rowGroup,
            rowGroup};
}

} // namespace kip

#endif
