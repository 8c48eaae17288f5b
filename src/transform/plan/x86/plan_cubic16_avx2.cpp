#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/plan_cubic.h"
#include "transform/plan/x86/plan_row_groups_avx2.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx2 {

namespace {

// Four taps of two outputs times their weights, as (low 15 bits: taps 0 1, 2 3; the rest: taps 0 1, 2 3) each.
inline __m256i cubicProducts(const OutputRun<int32_t> &run, uint32_t first, uint32_t second)
{
    const __m256i entries = loadHalves(run.line + fixedInteger(first), run.line + fixedInteger(second));
    const __m256i parts =
        _mm256_packs_epi32(_mm256_and_si256(entries, _mm256_set1_epi32(0x7FFF)), _mm256_srai_epi32(entries, 15));
    const auto weightsAt = [&run](uint32_t position) {
        const int16_t *const four = run.weights + size_t{4} * (fixedFraction(position) >> 8);
        const __m128i once = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(four));
        return _mm_unpacklo_epi64(once, once);
    };
    return _mm256_madd_epi16(parts, _mm256_setr_m128i(weightsAt(first), weightsAt(second)));
}

// The pixels first to first + 7, clamped, one in each 32-bit lane. An entry is 2^15 h + l; the sum of the products of h
// is small, that of l below 2^31, and the nested shifts round down as one does.
inline __m256i cubicOutputLanes(const OutputRun<int32_t> &run, int32_t first)
{
    const uint32_t start = run.position + static_cast<uint32_t>(first) * run.step;
    __m256i products[4];
    for (uint32_t k = 0; k < 4; ++k)
        products[k] = cubicProducts(run, start + k * run.step, start + (k + 4) * run.step);
    // Halves hold outputs 0 to 3 and 4 to 7: (l0, h0, l1, h1) and (l2, h2, l3, h3), then all of a kind.
    const __m256 pairs01 = _mm256_castsi256_ps(_mm256_hadd_epi32(products[0], products[1]));
    const __m256 pairs23 = _mm256_castsi256_ps(_mm256_hadd_epi32(products[2], products[3]));
    const __m256i low = _mm256_castps_si256(_mm256_shuffle_ps(pairs01, pairs23, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m256i high = _mm256_castps_si256(_mm256_shuffle_ps(pairs01, pairs23, _MM_SHUFFLE(3, 1, 3, 1)));
    const __m256i carried = _mm256_srai_epi32(_mm256_add_epi32(low, _mm256_set1_epi32(0x100000)), 15);
    const __m256i value = _mm256_srai_epi32(_mm256_add_epi32(high, carried), 6);
    return _mm256_min_epi32(_mm256_max_epi32(value, _mm256_setzero_si256()), _mm256_set1_epi32(0xFFFF));
}

} // namespace

template <>
struct RowKernel<Cubic16> {
    using Rule = Cubic16;
    static constexpr bool kFineSteps = false; // each output loads its own entries

    static void sample(Words fractions, const Words *taps, int32_t *out)
    {
        const auto samples = cubicSamples16(fractions, taps);
        auto *const at = reinterpret_cast<__m256i *>(out);
        _mm256_storeu_si256(at, _mm256_permute2x128_si256(samples.low.v, samples.high.v, 0x20));
        _mm256_storeu_si256(at + 1, _mm256_permute2x128_si256(samples.low.v, samples.high.v, 0x31));
    }

    static Words output(const OutputRun<int32_t> &run, int32_t first)
    {
        return {inOrder(_mm256_packus_epi32(cubicOutputLanes(run, first), cubicOutputLanes(run, first + 8)))};
    }
};

} // namespace kip::avx2

KIP_TARGET_END

namespace kip {

template PlanKernels<Cubic16> planKernelsAvx2<Cubic16, false>();

} // namespace kip

#endif
