#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/plan_linear.h"
#include "transform/plan/x86/plan_row_groups_avx512.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx512 {

template <>
struct RowKernel<Linear8> {
    using Rule = Linear8;
    struct Line {
        alignas(64) uint8_t entries[kMostSamples];
    };

    __m512i fractions[kOutputGroups];
    __m512i pairs[kOutputGroups]; // indices of an entry and the next, in the two bytes of a word
    int32_t origins[kOutputGroups];

    explicit RowKernel(int32_t step)
    {
        for (int32_t g = 0; g < kOutputGroups; ++g) {
            const GroupSteps steps = GroupSteps::of(g, step);
            fractions[g] = steps.fractions;
            pairs[g] = _mm512_add_epi16(_mm512_mullo_epi16(steps.indices, _mm512_set1_epi16(0x0101)),
                                        _mm512_set1_epi16(0x0100));
            origins[g] = steps.origin;
        }
    }

    static void sample(Words fractions, const Words *taps, Line *line, int32_t at)
    {
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(line->entries + at),
                            _mm512_cvtepi16_epi8(blendBytes(taps[0], taps[1], fractions).v));
    }

    [[gnu::always_inline]] __m256i output(const Line &line, int32_t position, int32_t first) const
    {
        const int32_t g = first / Words::kCount;
        const __m512i start = _mm512_set1_epi16(static_cast<int16_t>(position));
        const __m512i fraction = _mm512_add_epi16(fractions[g], start);
        const __mmask32 carried = _mm512_cmplt_epu16_mask(fraction, start);
        const __m512i index = _mm512_mask_add_epi16(pairs[g], carried, pairs[g], _mm512_set1_epi16(0x0101));
        const __m512i both = _mm512_permutexvar_epi8(index, load(line.entries + origins[g]));
        const Words a = {_mm512_and_si512(both, _mm512_set1_epi16(0xFF))};
        const Words b = {_mm512_srli_epi16(both, 8)};
        return _mm512_cvtepi16_epi8(blendBytes(a, b, Words{fraction}).v);
    }
};

} // namespace kip::avx512

KIP_TARGET_END

namespace kip {

template RowGroupKernel<uint8_t> *rowGroupKernelAvx512<Linear8, false>();
template RowGroupKernel<uint8_t> *rowGroupKernelAvx512<Linear8, true>();

} // namespace kip

#endif
