#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/plan_cubic.h"
#include "transform/plan/x86/plan_row_groups_avx512.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx512 {

template <>
struct RowKernel<CubicOptimized8> {
    using Rule = CubicOptimized8;
    struct Line {
        alignas(64) int16_t entries[kMostSamples];
    };

    HalfGroupSteps steps;

    explicit RowKernel(int32_t step) : steps(step) {}

    static void sample(Words fractions, const Words *taps, Line *line, int32_t at)
    {
        _mm512_storeu_si512(line->entries + at, cubicSamples8(fractions, taps).v);
    }

    static __m128i half(const int16_t *entries, __m512i positions, Words weights01, Words weights23)
    {
        const __m512i index = pairIndex(positions);
        const Words taps01 = {_mm512_permutexvar_epi16(index, load(entries))};
        const Words taps23 = {_mm512_permutexvar_epi16(index, load(entries + 2))};
        const Lanes value = weighRounded<21>(taps01, taps23, weights01, weights23);
        return _mm512_cvtusepi32_epi8(_mm512_max_epi32(value.v, _mm512_setzero_si512()));
    }

    [[gnu::always_inline]] __m256i output(const Line &line, int32_t position, int32_t first) const
    {
        const int32_t h = first / 16;
        const __m512i start = _mm512_set1_epi32(position);
        const __m512i low = _mm512_add_epi32(steps.positions[h], start);
        const __m512i high = _mm512_add_epi32(steps.positions[h + 1], start);
        const auto weights = outputWeights(low, high);
        return _mm256_setr_m128i(half(line.entries + steps.origins[h], low, weights.low01, weights.low23),
                                 half(line.entries + steps.origins[h + 1], high, weights.high01, weights.high23));
    }
};

} // namespace kip::avx512

KIP_TARGET_END

namespace kip {

template RowGroupKernel<uint8_t> *rowGroupKernelAvx512<CubicOptimized8, false>();
template RowGroupKernel<uint8_t> *rowGroupKernelAvx512<CubicOptimized8, true>();

} // namespace kip

#endif
