#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/plan_cubic.h"
#include "transform/plan/x86/plan_row_groups_avx2.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx2 {

namespace {

inline Words clamped(Words words)
{
    return {_mm256_min_epi16(_mm256_max_epi16(words.v, _mm256_setzero_si256()), _mm256_set1_epi16(255))};
}

} // namespace

template <>
struct RowKernel<CubicOptimized8> {
    using Rule = CubicOptimized8;

    using Runs = Runs4;
    using Entries = Words;

    static Words samples(Words fractions, const Words *taps) { return cubicSamples8(fractions, taps); }
    static Words pixels(Words fractions, const Words *e)
    {
        const auto weights = weightPairs(cubicWeights(fractions));
        return clamped(
            pack(weighRounded<21>(unpackLow(e[0], e[1]), unpackLow(e[2], e[3]), weights.low01, weights.low23),
                 weighRounded<21>(unpackHigh(e[0], e[1]), unpackHigh(e[2], e[3]), weights.high01, weights.high23)));
    }
    static void sample(Words fractions, const Words *taps, int16_t *out) { storeWords(out, samples(fractions, taps)); }

    static Words output(const OutputRun<int16_t> &run, int32_t first)
    {
        const uint32_t start = run.position + static_cast<uint32_t>(first) * run.step;
        const auto p = positionsFrom<2>(start, run.step);
        const auto weights = weightPairs(cubicWeights(fractionWords(p.at[0], p.at[1])));
        const PairWindows low = pairWindows(p, start, run.step, 0);
        const PairWindows high = pairWindows(p, start, run.step, 1);
        const Words words = pack(
            weighRounded<21>(pairsAt(run.line, low), pairsAt(run.line + 2, low), weights.low01, weights.low23),
            weighRounded<21>(pairsAt(run.line, high), pairsAt(run.line + 2, high), weights.high01, weights.high23));
        return clamped(words);
    }

    static Words coarseOutput(const OutputRun<int16_t> &run, int32_t first)
    {
        const auto p = positionsFrom<2>(run.position + static_cast<uint32_t>(first) * run.step, run.step);
        const auto weights = weightPairs(cubicWeights(fractionWords(p.at[0], p.at[1])));
        const Indices index(p);
        const Words words =
            pack(weighRounded<21>(pairsFrom(run.line, index.at), pairsFrom(run.line + 2, index.at), weights.low01,
                                  weights.low23),
                 weighRounded<21>(pairsFrom(run.line, index.at + 4), pairsFrom(run.line + 2, index.at + 4),
                                  weights.high01, weights.high23));
        return clamped(words);
    }
};

} // namespace kip::avx2

KIP_TARGET_END

namespace kip {

template PlanKernels<CubicOptimized8> planKernelsAvx2<CubicOptimized8, false>();
template PlanKernels<CubicOptimized8> planKernelsAvx2<CubicOptimized8, true>();

} // namespace kip

#endif
