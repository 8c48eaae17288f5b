#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/plan_cubic.h"
#include "transform/plan/x86/plan_row_groups_avx512.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx512 {

// A sample is 2^15 high + low; both are kept as words.
template <>
struct RowKernel<Cubic16> {
    using Rule = Cubic16;
    struct Line {
        alignas(64) int16_t low[kMostSamples];
        alignas(64) int16_t high[kMostSamples];
    };

    HalfGroupSteps steps;

    explicit RowKernel(int32_t step) : steps(step) {}

    static void sample(Words fractions, const Words *taps, Line *line, int32_t at)
    {
        const auto samples = cubicSamples16(fractions, taps);
        const __m512i first = samples.low.v;
        const __m512i second = samples.high.v;
        const __m512i mask = _mm512_set1_epi32(0x7FFF);
        _mm512_storeu_si512(line->low + at,
                            _mm512_packs_epi32(_mm512_and_si512(first, mask), _mm512_and_si512(second, mask)));
        _mm512_storeu_si512(line->high + at,
                            _mm512_packs_epi32(_mm512_srai_epi32(first, 15), _mm512_srai_epi32(second, 15)));
    }

    // The sum of the products of the high parts is small, that of the low ones below 2^31, and the nested shifts round
    // down as one does.
    static __m256i half(const Line &line, int32_t origin, __m512i positions, Words weights01, Words weights23)
    {
        const __m512i index = pairIndex(positions);
        const auto weigh = [&](const int16_t *entries) {
            const Words taps01 = {_mm512_permutexvar_epi16(index, load(entries))};
            const Words taps23 = {_mm512_permutexvar_epi16(index, load(entries + 2))};
            return weighPairs(taps01, taps23, weights01, weights23);
        };
        const Lanes low = weigh(line.low + origin);
        const Lanes high = weigh(line.high + origin);
        const Lanes carried = (low + Lanes::all(0x100000)).shiftedRight<15>();
        const Lanes value = (high + carried).shiftedRight<6>();
        return _mm512_cvtusepi32_epi16(_mm512_max_epi32(value.v, _mm512_setzero_si512()));
    }

    Words output(const Line &line, int32_t position, int32_t first) const
    {
        const int32_t h = first / 16;
        const __m512i start = _mm512_set1_epi32(position);
        const __m512i low = _mm512_add_epi32(steps.positions[h], start);
        const __m512i high = _mm512_add_epi32(steps.positions[h + 1], start);
        const auto weights = outputWeights(low, high);
        return {
            _mm512_inserti64x4(_mm512_castsi256_si512(half(line, steps.origins[h], low, weights.low01, weights.low23)),
                               half(line, steps.origins[h + 1], high, weights.high01, weights.high23), 1)};
    }
};

} // namespace kip::avx512

KIP_TARGET_END

namespace kip {

template RowGroupKernel<uint16_t> *rowGroupKernelAvx512<Cubic16, false>();

} // namespace kip

#endif
