#include "transform/plan/x86/plan_kernels_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/plan_linear.h"
#include "transform/plan/x86/plan_row_groups_avx2.h"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx2 {

namespace {

// (32768 a + w (b - a)) >> 15 of eight pairs (a, b) of signed words, with pairs of weights (-w, w).
inline Lanes blendPairs(Words pairs, Words weights)
{
    const Lanes scaled = {_mm256_srai_epi32(_mm256_slli_epi32(pairs.v, 16), 1)};
    return (scaled + sumsOfPairs(pairs, weights)).shiftedRight<15>();
}

struct BlendWeights {
    Words low, high; // pairs (-w, w) in the order of an unpack
};

inline BlendWeights blendWeights(Words fractions)
{
    const Words weight = fractions.shiftedRight<1>();
    const Words negative = Words::all(0) - weight;
    return {unpackLow(negative, weight), unpackHigh(negative, weight)};
}

} // namespace

template <>
struct RowKernel<Linear16> {
    using Rule = Linear16;

    using Runs = Runs4;
    using Entries = Words;

    static Words samples(Words fractions, const Words *taps)
    {
        const BlendWeights weights = blendWeights(fractions);
        const Words a = toSigned(taps[0]);
        const Words b = toSigned(taps[1]);
        const Lanes low = blendPairs(unpackLow(a, b), weights.low);
        const Lanes high = blendPairs(unpackHigh(a, b), weights.high);
        return toSigned(pack(low, high));
    }
    static Words pixels(Words fractions, const Words *entries) { return samples(fractions, entries); }
    static void sample(Words fractions, const Words *taps, uint16_t *out) { storeWords(out, samples(fractions, taps)); }

    static Words output(const OutputRun<uint16_t> &run, int32_t first)
    {
        const uint32_t start = run.position + static_cast<uint32_t>(first) * run.step;
        const auto p = positionsFrom<2>(start, run.step);
        const BlendWeights weights = blendWeights(fractionWords(p.at[0], p.at[1]));
        const PairWindows windows[2] = {pairWindows(p, start, run.step, 0), pairWindows(p, start, run.step, 1)};
        const Lanes low = blendPairs(toSigned(pairsAt(run.line, windows[0])), weights.low);
        const Lanes high = blendPairs(toSigned(pairsAt(run.line, windows[1])), weights.high);
        return toSigned(pack(low, high));
    }

    static Words coarseOutput(const OutputRun<uint16_t> &run, int32_t first)
    {
        const auto p = positionsFrom<2>(run.position + static_cast<uint32_t>(first) * run.step, run.step);
        const BlendWeights weights = blendWeights(fractionWords(p.at[0], p.at[1]));
        const Indices index(p);
        const Lanes low = blendPairs(toSigned(pairsFrom(run.line, index.at)), weights.low);
        const Lanes high = blendPairs(toSigned(pairsFrom(run.line, index.at + 4)), weights.high);
        return toSigned(pack(low, high));
    }
};

} // namespace kip::avx2

KIP_TARGET_END

namespace kip {

template PlanKernels<Linear16> planKernelsAvx2<Linear16, false>();

} // namespace kip

#endif
