#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/plan_linear.h"
#include "transform/plan/x86/plan_row_groups_avx512.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx512 {

namespace {

// ((32768 - w) a + w b) >> 15 of 32 words, w being the upper 15 bits of the fraction. Where b is less, the two change
// places, and so the difference fits into a word; a weight of 0 keeps its place, as that of 32768 does not fit.
inline Words blendWords(Words a, Words b, Words fractions)
{
    const __m512i zero = _mm512_setzero_si512();
    const __m512i doubled = _mm512_and_si512(fractions.v, _mm512_set1_epi16(static_cast<int16_t>(0xFFFE)));
    const __mmask32 falls = _mm512_mask_cmplt_epu16_mask(_mm512_test_epi16_mask(doubled, doubled), b.v, a.v);
    const __m512i upward = _mm512_sub_epi16(b.v, a.v);
    const __m512i difference = _mm512_mask_sub_epi16(upward, falls, zero, upward);
    const __m512i weight = _mm512_mask_sub_epi16(doubled, falls, zero, doubled);
    return {_mm512_add_epi16(_mm512_mask_mov_epi16(a.v, falls, b.v), _mm512_mulhi_epu16(difference, weight))};
}

} // namespace

template <>
struct RowKernel<Linear16> {
    using Rule = Linear16;
    struct Line {
        alignas(64) uint16_t entries[kMostSamples];
    };

    __m512i fractions[kOutputGroups];
    __m512i indices[kOutputGroups];
    int32_t origins[kOutputGroups];

    explicit RowKernel(int32_t step)
    {
        for (int32_t g = 0; g < kOutputGroups; ++g) {
            const GroupSteps steps = GroupSteps::of(g, step);
            fractions[g] = steps.fractions;
            indices[g] = steps.indices;
            origins[g] = steps.origin;
        }
    }

    static void sample(Words fractions, const Words *taps, Line *line, int32_t at)
    {
        _mm512_storeu_si512(line->entries + at, blendWords(taps[0], taps[1], fractions).v);
    }

    Words output(const Line &line, int32_t position, int32_t first) const
    {
        const int32_t g = first / Words::kCount;
        const __m512i start = _mm512_set1_epi16(static_cast<int16_t>(position));
        const __m512i fraction = _mm512_add_epi16(fractions[g], start);
        const __mmask32 carried = _mm512_cmplt_epu16_mask(fraction, start);
        const __m512i index = _mm512_mask_add_epi16(indices[g], carried, indices[g], _mm512_set1_epi16(1));
        const uint16_t *const entries = line.entries + origins[g];
        const Words a = {_mm512_permutex2var_epi16(load(entries), index, load(entries + 32))};
        const Words b = {_mm512_permutex2var_epi16(load(entries + 1), index, load(entries + 33))};
        return blendWords(a, b, Words{fraction});
    }
};

} // namespace kip::avx512

KIP_TARGET_END

namespace kip {

template RowGroupKernel<uint16_t> *rowGroupKernelAvx512<Linear16, false>();

} // namespace kip

#endif
