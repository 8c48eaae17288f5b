#include "transform/plan/x86/plan_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <algorithm>

#include "transform/plan/x86/plan_bands_avx2.h"
#include "transform/plan/x86/plan_rows_avx2.h"

KIP_TARGET_BEGIN("avx2")

namespace kip {

namespace {

using namespace avx2;

constexpr int32_t kGroup = 16;

// Words are made signed by taking half their range off, so that pairs of them multiply and add in one step.
inline __m256i toSigned(__m256i words)
{
    return _mm256_xor_si256(words, _mm256_set1_epi16(INT16_MIN));
}

// ---- Samples ------------------------------------------------------------------------------------------------------

inline bool isVectorRun(const SampleRun<uint16_t> &run)
{
    return run.majorStep == 1 && isGentle(run.shear) && run.count >= kGroup;
}

// Collects taps kFirst to kFirst + kTaps - 1 of sixteen samples; see the 8-bit kernels.
template <int kFirst, int kTaps>
inline void gatherTaps(const SampleRun<uint16_t> &run, int32_t first, const Positions<2> &p, __m256i (&taps)[kTaps])
{
    const int32_t firstLine = fixedInteger(run.position + static_cast<uint32_t>(first) * run.shear);
    const int32_t lastLine = fixedInteger(run.position + static_cast<uint32_t>(first + kGroup - 1) * run.shear);
    const int32_t least = std::min(firstLine, lastLine);
    const int32_t count = std::max(firstLine, lastLine) - least + kTaps;
    const __m256i lines =
        _mm256_sub_epi16(integerWords(p.at[0], p.at[1]), _mm256_set1_epi16(static_cast<int16_t>(least)));
    __m256i on[kTaps]; // the samples whose tap k lies on the current line
    for (int k = 0; k < kTaps; ++k)
        on[k] = taps[k] = _mm256_setzero_si256();
    const uint16_t *row = run.base + first + (least + kFirst) * run.minorStep;
    for (int32_t i = 0; i < count; ++i, row += run.minorStep) {
        for (int k = kTaps - 1; k > 0; --k)
            on[k] = on[k - 1];
        on[0] = _mm256_cmpeq_epi16(lines, _mm256_set1_epi16(static_cast<int16_t>(i)));
        const __m256i pixels = load(row);
        for (int k = 0; k < kTaps; ++k)
            taps[k] = _mm256_or_si256(taps[k], _mm256_and_si256(pixels, on[k]));
    }
}

// (32768 a + w (b - a)) >> 15 of eight pairs (a, b) of signed words, with pairs of weights (-w, w).
inline __m256i blendPairs(__m256i pairs, __m256i weights)
{
    const __m256i scaled = _mm256_srai_epi32(_mm256_slli_epi32(pairs, 16), 1);
    return _mm256_srai_epi32(_mm256_add_epi32(scaled, _mm256_madd_epi16(pairs, weights)), 15);
}

struct BlendWeights {
    __m256i low, high; // pairs (-w, w) in the order of an unpack
};

inline BlendWeights blendWeights(__m256i fractions)
{
    const __m256i weight = _mm256_srli_epi16(fractions, 1);
    const __m256i negative = _mm256_sub_epi16(_mm256_setzero_si256(), weight);
    return {_mm256_unpacklo_epi16(negative, weight), _mm256_unpackhi_epi16(negative, weight)};
}

// A weighted sum of four signed taps and the sum of the weights, which makes up for the half range: it adds
// 32768 / 512 = 64 times itself. The division by 512 truncates toward zero.
inline __m256i cubicSample(__m256i sum, __m256i weightSum)
{
    const __m256i rounded = _mm256_add_epi32(sum, _mm256_set1_epi32(256));
    const __m256i value = _mm256_add_epi32(_mm256_srai_epi32(rounded, 9), _mm256_slli_epi32(weightSum, 6));
    const __m256i exact = _mm256_cmpeq_epi32(_mm256_and_si256(rounded, _mm256_set1_epi32(511)), _mm256_setzero_si256());
    const __m256i isUp = _mm256_andnot_si256(exact, _mm256_srai_epi32(value, 31));
    return _mm256_sub_epi32(value, isUp);
}

// Sixteen samples from their taps: entries of the line.
struct LinearSamples16 {
    using Rule = Linear16;

    static void combine(__m256i fractions, const __m256i *taps, uint16_t *out)
    {
        const BlendWeights weights = blendWeights(fractions);
        const __m256i a = toSigned(taps[0]);
        const __m256i b = toSigned(taps[1]);
        const __m256i low = blendPairs(_mm256_unpacklo_epi16(a, b), weights.low);
        const __m256i high = blendPairs(_mm256_unpackhi_epi16(a, b), weights.high);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), toSigned(_mm256_packs_epi32(low, high)));
    }
};

struct CubicSamples16 {
    using Rule = Cubic16;

    static void combine(__m256i fractions, const __m256i *taps, int32_t *out)
    {
        const CubicWeights weights = cubicWeights(fractions);
        const WeightPairs pairs = weightPairs(weights);
        const __m256i total = _mm256_add_epi16(_mm256_add_epi16(weights.w[0], weights.w[1]),
                                               _mm256_add_epi16(weights.w[2], weights.w[3]));
        const __m256i t[4] = {toSigned(taps[0]), toSigned(taps[1]), toSigned(taps[2]), toSigned(taps[3])};
        const __m256i zero = _mm256_setzero_si256();
        const __m256i low =
            cubicSample(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(t[0], t[1]), pairs.low01),
                                         _mm256_madd_epi16(_mm256_unpacklo_epi16(t[2], t[3]), pairs.low23)),
                        _mm256_unpacklo_epi16(total, zero));
        const __m256i high =
            cubicSample(_mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(t[0], t[1]), pairs.high01),
                                         _mm256_madd_epi16(_mm256_unpackhi_epi16(t[2], t[3]), pairs.high23)),
                        _mm256_unpackhi_epi16(total, zero));
        auto *const at = reinterpret_cast<__m256i *>(out);
        _mm256_storeu_si256(at, _mm256_permute2x128_si256(low, high, 0x20));
        _mm256_storeu_si256(at + 1, _mm256_permute2x128_si256(low, high, 0x31));
    }
};

// Runs groups of sixteen samples; the last one overlaps the one before, and computes the same entries again.
template <typename Samples>
inline void sampleLine(const SampleRun<uint16_t> &run, typename Samples::Rule::Entry *out)
{
    using Rule = typename Samples::Rule;
    if (!isVectorRun(run))
        return sampleLinePortable<Rule>(run, out);
    for (int32_t begin = 0; begin < run.count; begin += kGroup) {
        const int32_t first = std::min(begin, run.count - kGroup);
        const auto p = positionsFrom<2>(run.position + static_cast<uint32_t>(first) * run.shear, run.shear);
        __m256i taps[Rule::kTaps];
        gatherTaps<Rule::kFirstTap, Rule::kTaps>(run, first, p, taps);
        Samples::combine(fractionWords(p.at[0], p.at[1]), taps, out + first);
    }
}

// ---- Outputs ------------------------------------------------------------------------------------------------------

template <bool kAdd>
inline void emit(void *dst, int32_t first, __m256i words)
{
    if constexpr (kAdd)
        addWords(static_cast<uint32_t *>(dst) + first, words);
    else
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(static_cast<uint16_t *>(dst) + first), words);
}

// The linear pixels first to first + 15.
inline __m256i linearOutputWords(const OutputRun<uint16_t> &run, int32_t first)
{
    const uint32_t start = run.position + static_cast<uint32_t>(first) * run.step;
    const auto p = positionsFrom<2>(start, run.step);
    const BlendWeights weights = blendWeights(fractionWords(p.at[0], p.at[1]));
    const PairWindows windows[2] = {pairWindows(p, start, run.step, 0), pairWindows(p, start, run.step, 1)};
    const __m256i low = blendPairs(toSigned(pairsAt(run.line, windows[0])), weights.low);
    const __m256i high = blendPairs(toSigned(pairsAt(run.line, windows[1])), weights.high);
    return toSigned(_mm256_packs_epi32(low, high));
}

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

// The cubic pixels first to first + 7, clamped, one in each 32-bit lane. An entry is 2^15 h + l; the sum of the
// products of h is small, that of l below 2^31, and the nested shifts round down as one does.
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

template <bool kAdd>
inline void outputLine(const OutputRun<uint16_t> &run)
{
    int32_t first = 0;
    if (isFineStep(run.step))
        for (; first + kGroup <= run.count; first += kGroup)
            emit<kAdd>(run.dst, first, linearOutputWords(run, first));
    outputLinePortable<Linear16, kAdd>(restOf(run, first, kAdd ? sizeof(uint32_t) : sizeof(uint16_t)));
}

template <bool kAdd>
inline void outputLine(const OutputRun<int32_t> &run)
{
    int32_t first = 0;
    for (; first + kGroup <= run.count; first += kGroup) {
        const __m256i words = _mm256_packus_epi32(cubicOutputLanes(run, first), cubicOutputLanes(run, first + 8));
        emit<kAdd>(run.dst, first, inOrder(words));
    }
    outputLinePortable<Cubic16, kAdd>(restOf(run, first, kAdd ? sizeof(uint32_t) : sizeof(uint16_t)));
}

} // namespace

} // namespace kip

KIP_TARGET_END

namespace kip {

namespace {

// Outside the region: asking is for every processor.
template <typename Samples>
PlanRowKernels<uint16_t, typename Samples::Rule::Entry> rowKernels(bool add)
{
    if (add)
        return {sampleLine<Samples>, outputLine<true>, copyStripSse2,
                resampleBand<BandPasses<Samples, outputLine<true>>>};
    return {sampleLine<Samples>, outputLine<false>, copyStripSse2,
            resampleBand<BandPasses<Samples, outputLine<false>>>};
}

} // namespace

template <>
PlanRowKernels<uint16_t, Linear16::Entry> rowKernelsAvx2<Linear16>(bool add)
{
    return rowKernels<LinearSamples16>(add);
}

template <>
PlanRowKernels<uint16_t, Cubic16::Entry> rowKernelsAvx2<Cubic16>(bool add)
{
    return rowKernels<CubicSamples16>(add);
}

} // namespace kip

#endif
