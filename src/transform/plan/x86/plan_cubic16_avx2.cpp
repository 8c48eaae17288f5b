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

// Eight pixels, clamped, from the sums of an entry's two parts times the weights. An entry is 2^15 high + low; the sum
// for high is small, that for low below 2^31, and the nested shifts round down as one does.
inline __m256i pixelLanes(__m256i low, __m256i high)
{
    const __m256i carried = _mm256_srai_epi32(_mm256_add_epi32(low, _mm256_set1_epi32(0x100000)), 15);
    const __m256i value = _mm256_srai_epi32(_mm256_add_epi32(high, carried), 6);
    return _mm256_min_epi32(_mm256_max_epi32(value, _mm256_setzero_si256()), _mm256_set1_epi32(0xFFFF));
}

// The pixels first to first + 7, one in each 32-bit lane.
inline __m256i cubicOutputLanes(const OutputRun<int32_t> &run, int32_t first)
{
    const uint32_t start = run.position + static_cast<uint32_t>(first) * run.step;
    __m256i products[4];
    for (uint32_t k = 0; k < 4; ++k)
        products[k] = cubicProducts(run, start + k * run.step, start + (k + 4) * run.step);
    // Halves hold outputs 0 to 3 and 4 to 7: (l0, h0, l1, h1) and (l2, h2, l3, h3), then all of a kind.
    const __m256 pairs01 = _mm256_castsi256_ps(_mm256_hadd_epi32(products[0], products[1]));
    const __m256 pairs23 = _mm256_castsi256_ps(_mm256_hadd_epi32(products[2], products[3]));
    return pixelLanes(_mm256_castps_si256(_mm256_shuffle_ps(pairs01, pairs23, _MM_SHUFFLE(2, 0, 2, 0))),
                      _mm256_castps_si256(_mm256_shuffle_ps(pairs01, pairs23, _MM_SHUFFLE(3, 1, 3, 1))));
}

// Two entries in the words of each lane: their low 15 bits, and the rest.
inline Words lowPairs(Lanes a, Lanes b)
{
    const __m256i mask = _mm256_set1_epi32(0x7FFF);
    return {_mm256_or_si256(_mm256_and_si256(a.v, mask), _mm256_slli_epi32(_mm256_and_si256(b.v, mask), 16))};
}

inline Words highPairs(Lanes a, Lanes b)
{
    return {_mm256_blend_epi16(_mm256_srai_epi32(a.v, 15), _mm256_slli_epi32(_mm256_srai_epi32(b.v, 15), 16), 0xAA)};
}

// Eight pixels from four entries each.
inline __m256i cubicPixelLanes(Lanes a, Lanes b, Lanes c, Lanes d, Words weights01, Words weights23)
{
    return pixelLanes(weighPairs(lowPairs(a, b), lowPairs(c, d), weights01, weights23).v,
                      weighPairs(highPairs(a, b), highPairs(c, d), weights01, weights23).v);
}

} // namespace

template <>
struct RowKernel<Cubic16> {
    using Rule = Cubic16;

    using Runs = Runs8;
    using Entries = UnpackedSamples<Lanes>;

    static Entries samples(Words fractions, const Words *taps) { return cubicSamples16(fractions, taps); }
    static Words pixels(Words fractions, const Entries *e)
    {
        const auto weights = weightPairs(cubicWeights(fractions));
        return {_mm256_packus_epi32(
            cubicPixelLanes(e[0].low, e[1].low, e[2].low, e[3].low, weights.low01, weights.low23),
            cubicPixelLanes(e[0].high, e[1].high, e[2].high, e[3].high, weights.high01, weights.high23))};
    }
    static void sample(Words fractions, const Words *taps, int32_t *out)
    {
        const Entries made = cubicSamples16(fractions, taps);
        auto *const at = reinterpret_cast<__m256i *>(out);
        _mm256_storeu_si256(at, _mm256_permute2x128_si256(made.low.v, made.high.v, 0x20));
        _mm256_storeu_si256(at + 1, _mm256_permute2x128_si256(made.low.v, made.high.v, 0x31));
    }

    static Words output(const OutputRun<int32_t> &run, int32_t first)
    {
        return {inOrder(_mm256_packus_epi32(cubicOutputLanes(run, first), cubicOutputLanes(run, first + 8)))};
    }
    static Words coarseOutput(const OutputRun<int32_t> &run, int32_t first) { return output(run, first); }
};

} // namespace kip::avx2

KIP_TARGET_END

namespace kip {

template PlanKernels<Cubic16> planKernelsAvx2<Cubic16, false>();

} // namespace kip

#endif
