#include "transform/plan/x86/plan_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <algorithm>
#include <cstddef>

#include "transform/plan/x86/plan_bands_avx2.h"
#include "transform/plan/x86/plan_rows_avx2.h"

KIP_TARGET_BEGIN("avx2")

namespace kip {

namespace {

using namespace avx2;

constexpr int32_t kSampleGroup = 32;
constexpr int32_t kOutputGroup = 16;

// Eight sums of four products, rounded and shifted.
template <int kShift>
inline __m256i weighPairs(__m256i taps01, __m256i taps23, __m256i weights01, __m256i weights23)
{
    const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(taps01, weights01), _mm256_madd_epi16(taps23, weights23));
    return _mm256_srai_epi32(_mm256_add_epi32(sum, _mm256_set1_epi32(1 << (kShift - 1))), kShift);
}

// ---- Samples ------------------------------------------------------------------------------------------------------

// A run shorter than a group would be read past its end.
inline bool isVectorRun(const SampleRun<uint8_t> &run)
{
    return run.majorStep == 1 && isGentle(run.shear) && run.count >= kSampleGroup;
}

// Collects taps kFirst to kFirst + kTaps - 1 of 32 samples as bytes. Neighbouring samples lie next to each other as
// long as they are on one line: each line that the samples touch is loaded once and spread to the taps that need it.
template <int kFirst, int kTaps>
inline void gatherTaps(const SampleRun<uint8_t> &run, int32_t first, const Positions<4> &p, __m256i (&taps)[kTaps])
{
    const int32_t firstLine = fixedInteger(run.position + static_cast<uint32_t>(first) * run.shear);
    const int32_t lastLine = fixedInteger(run.position + static_cast<uint32_t>(first + kSampleGroup - 1) * run.shear);
    const int32_t least = std::min(firstLine, lastLine);
    const int32_t count = std::max(firstLine, lastLine) - least + kTaps;
    const __m256i lines = integerBytes(p, least);
    __m256i on[kTaps]; // the samples whose tap k lies on the current line
    for (int k = 0; k < kTaps; ++k)
        on[k] = taps[k] = _mm256_setzero_si256();
    const uint8_t *row = run.base + first + (least + kFirst) * run.minorStep;
    for (int32_t i = 0; i < count; ++i, row += run.minorStep) {
        // Tap k of a sample lies k lines below its tap 0.
        for (int k = kTaps - 1; k > 0; --k)
            on[k] = on[k - 1];
        on[0] = _mm256_cmpeq_epi8(lines, _mm256_set1_epi8(static_cast<char>(i)));
        const __m256i pixels = load(row);
        for (int k = 0; k < kTaps; ++k)
            taps[k] = _mm256_or_si256(taps[k], _mm256_and_si256(pixels, on[k]));
    }
}

// Sixteen samples from their taps, as words: entries of the line.
struct LinearSamples8 {
    using Rule = Linear8;

    static void combine(__m256i fractions, const __m256i *taps, uint8_t *out)
    {
        const __m256i words = blendWords(taps[0], taps[1], fractions);
        const __m256i bytes = inOrder(_mm256_packus_epi16(words, words));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm256_castsi256_si128(bytes));
    }
};

struct CubicSamples8 {
    using Rule = CubicPacked8;

    static void combine(__m256i fractions, const __m256i *taps, int16_t *out)
    {
        const WeightPairs weights = weightPairs(cubicWeights(fractions));
        const __m256i low = weighPairs<9>(_mm256_unpacklo_epi16(taps[0], taps[1]),
                                          _mm256_unpacklo_epi16(taps[2], taps[3]), weights.low01, weights.low23);
        const __m256i high = weighPairs<9>(_mm256_unpackhi_epi16(taps[0], taps[1]),
                                           _mm256_unpackhi_epi16(taps[2], taps[3]), weights.high01, weights.high23);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm256_packs_epi32(low, high));
    }
};

// Runs groups of 32 samples; the last one overlaps the one before, and computes the same entries again.
template <typename Samples>
inline void sampleLine(const SampleRun<uint8_t> &run, typename Samples::Rule::Entry *out)
{
    using Rule = typename Samples::Rule;
    if (!isVectorRun(run))
        return sampleLinePortable<Rule>(run, out);
    for (int32_t begin = 0; begin < run.count; begin += kSampleGroup) {
        const int32_t first = std::min(begin, run.count - kSampleGroup);
        const auto p = positionsFrom<4>(run.position + static_cast<uint32_t>(first) * run.shear, run.shear);
        __m256i taps[Rule::kTaps];
        gatherTaps<Rule::kFirstTap, Rule::kTaps>(run, first, p, taps);
        for (ptrdiff_t half = 0; half < 2; ++half) {
            __m256i words[Rule::kTaps];
            for (int k = 0; k < Rule::kTaps; ++k)
                words[k] = bytesToWords(taps[k], half);
            Samples::combine(fractionWords(p.at[2 * half], p.at[2 * half + 1]), words, out + first + 16 * half);
        }
    }
}

// ---- Outputs ------------------------------------------------------------------------------------------------------

template <bool kAdd>
inline void emit(void *dst, int32_t first, __m256i words)
{
    if constexpr (kAdd) {
        addWords(static_cast<uint32_t *>(dst) + first, words);
    } else {
        const __m256i bytes = inOrder(_mm256_packus_epi16(words, words));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(static_cast<uint8_t *>(dst) + first),
                         _mm256_castsi256_si128(bytes));
    }
}

// The linear pixels first to first + 15, as words.
inline __m256i linearOutputWords(const OutputRun<uint8_t> &run, int32_t first)
{
    const uint32_t start = run.position + static_cast<uint32_t>(first) * run.step;
    const auto p = positionsFrom<2>(start, run.step);
    const int32_t lowOrigin = fixedInteger(start);
    const int32_t highOrigin = fixedInteger(start + 8 * run.step);
    const __m256i origins = _mm256_setr_m128i(_mm_set1_epi16(static_cast<int16_t>(lowOrigin)),
                                              _mm_set1_epi16(static_cast<int16_t>(highOrigin)));
    // The top bit of a control byte makes a zero: the upper half of each word.
    const __m256i control =
        _mm256_or_si256(_mm256_sub_epi16(integerWords(p.at[0], p.at[1]), origins), _mm256_set1_epi16(INT16_MIN));
    const uint8_t *const low = run.line + lowOrigin;
    const uint8_t *const high = run.line + highOrigin;
    return blendWords(_mm256_shuffle_epi8(loadHalves(low, high), control),
                      _mm256_shuffle_epi8(loadHalves(low + 1, high + 1), control), fractionWords(p.at[0], p.at[1]));
}

// The cubic pixels first to first + 15, as words that are not clamped yet.
inline __m256i cubicOutputWords(const OutputRun<int16_t> &run, int32_t first)
{
    const uint32_t start = run.position + static_cast<uint32_t>(first) * run.step;
    const auto p = positionsFrom<2>(start, run.step);
    const WeightPairs weights = weightPairs(cubicWeights(fractionWords(p.at[0], p.at[1])));
    const PairWindows low = pairWindows(p, start, run.step, 0);
    const PairWindows high = pairWindows(p, start, run.step, 1);
    return _mm256_packs_epi32(
        weighPairs<21>(pairsAt(run.line, low), pairsAt(run.line + 2, low), weights.low01, weights.low23),
        weighPairs<21>(pairsAt(run.line, high), pairsAt(run.line + 2, high), weights.high01, weights.high23));
}

template <bool kAdd>
inline void outputLine(const OutputRun<uint8_t> &run)
{
    int32_t first = 0;
    if (isFineStep(run.step))
        for (; first + kOutputGroup <= run.count; first += kOutputGroup)
            emit<kAdd>(run.dst, first, linearOutputWords(run, first));
    outputLinePortable<Linear8, kAdd>(restOf(run, first, kAdd ? sizeof(uint32_t) : sizeof(uint8_t)));
}

template <bool kAdd>
inline void outputLine(const OutputRun<int16_t> &run)
{
    int32_t first = 0;
    if (isFineStep(run.step)) {
        const __m256i greatest = _mm256_set1_epi16(255);
        for (; first + kOutputGroup <= run.count; first += kOutputGroup) {
            const __m256i words = _mm256_max_epi16(cubicOutputWords(run, first), _mm256_setzero_si256());
            emit<kAdd>(run.dst, first, _mm256_min_epi16(words, greatest));
        }
    }
    outputLinePortable<CubicPacked8, kAdd>(restOf(run, first, kAdd ? sizeof(uint32_t) : sizeof(uint8_t)));
}

} // namespace

} // namespace kip

KIP_TARGET_END

namespace kip {

namespace {

// Outside the region: asking is for every processor.
template <typename Samples>
PlanRowKernels<uint8_t, typename Samples::Rule::Entry> rowKernels(bool add)
{
    if (add)
        return {sampleLine<Samples>, outputLine<true>, copyStripSse2,
                resampleBand<BandPasses<Samples, outputLine<true>>>};
    return {sampleLine<Samples>, outputLine<false>, copyStripSse2,
            resampleBand<BandPasses<Samples, outputLine<false>>>};
}

} // namespace

template <>
PlanRowKernels<uint8_t, Linear8::Entry> rowKernelsAvx2<Linear8>(bool add)
{
    return rowKernels<LinearSamples8>(add);
}

template <>
PlanRowKernels<uint8_t, CubicPacked8::Entry> rowKernelsAvx2<CubicPacked8>(bool add)
{
    return rowKernels<CubicSamples8>(add);
}

} // namespace kip

#endif
