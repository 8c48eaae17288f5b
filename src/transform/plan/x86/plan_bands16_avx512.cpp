#include "transform/plan/x86/plan_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/x86/plan_bands_avx512.h"

KIP_TARGET_BEGIN("avx2,avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi")

namespace kip {

namespace {

using namespace avx512;

// ((32768 - w) a + w b) >> 15 of 32 words, w being the upper 15 bits of the fraction. Where b is less, the two change
// places, and so the difference fits into a word; a weight of 0 keeps its place, as that of 32768 does not fit.
inline __m512i blendWords(__m512i a, __m512i b, __m512i fractions)
{
    const __m512i zero = _mm512_setzero_si512();
    const __m512i doubled = _mm512_and_si512(fractions, word(0xFFFE));
    const __mmask32 falls = _mm512_mask_cmplt_epu16_mask(_mm512_test_epi16_mask(doubled, doubled), b, a);
    const __m512i upward = _mm512_sub_epi16(b, a);
    const __m512i difference = _mm512_mask_sub_epi16(upward, falls, zero, upward);
    const __m512i weight = _mm512_mask_sub_epi16(doubled, falls, zero, doubled);
    return _mm512_add_epi16(_mm512_mask_mov_epi16(a, falls, b), _mm512_mulhi_epu16(difference, weight));
}

struct LinearBand16 {
    using Rule = Linear16;
    struct Line {
        alignas(64) uint16_t entries[kMostSamples];
    };

    __m512i fractions[kOutputGroups];
    __m512i indices[kOutputGroups];
    int32_t origins[kOutputGroups];

    explicit LinearBand16(int32_t step)
    {
        for (int32_t g = 0; g < kOutputGroups; ++g) {
            origins[g] = (kGroup * g * step) >> 16;
            const __m512i first = positionsFrom(-(origins[g] << 16), step, kGroup * g);
            const __m512i second = positionsFrom(-(origins[g] << 16), step, kGroup * g + 16);
            fractions[g] = lowWords(first, second);
            indices[g] = lowWords(_mm512_srli_epi32(first, 16), _mm512_srli_epi32(second, 16));
        }
    }

    static void sample(const uint16_t *taps, int64_t pitch, const ColumnGroup &group, Line *line, int32_t at)
    {
        const __m512i middle = load(taps + pitch);
        const __m512i a = _mm512_mask_mov_epi16(load(taps), group.carried, middle);
        const __m512i b = _mm512_mask_mov_epi16(middle, group.carried, load(taps + 2 * pitch));
        _mm512_storeu_si512(line->entries + at, blendWords(a, b, group.fractions));
    }

    void output(const Line &line, int32_t position, int32_t first, __mmask32 lanes, void *dst) const
    {
        const int32_t g = first / kGroup;
        const __m512i start = word(position);
        const __m512i fraction = _mm512_add_epi16(fractions[g], start);
        const __mmask32 carried = _mm512_cmplt_epu16_mask(fraction, start);
        const __m512i index = _mm512_mask_add_epi16(indices[g], carried, indices[g], word(1));
        const uint16_t *const entries = line.entries + origins[g];
        const __m512i a = _mm512_permutex2var_epi16(load(entries), index, load(entries + 32));
        const __m512i b = _mm512_permutex2var_epi16(load(entries + 1), index, load(entries + 33));
        emitWords(dst, first, lanes, blendWords(a, b, fraction));
    }
};

// Words are made signed by taking half their range off, so that pairs of them multiply and add in one step.
inline __m512i toSigned(__m512i words)
{
    return _mm512_xor_si512(words, word(INT16_MIN));
}

// A weighted sum of four signed taps and the sum of the weights, which makes up for the half range: it adds
// 32768 / 512 = 64 times itself. The division by 512 truncates toward zero.
inline __m512i cubicSample(__m512i sum, __m512i weightSum)
{
    const __m512i rounded = _mm512_add_epi32(sum, _mm512_set1_epi32(256));
    const __m512i value = _mm512_add_epi32(_mm512_srai_epi32(rounded, 9), _mm512_slli_epi32(weightSum, 6));
    const __mmask16 isUp = _mm512_mask_test_epi32_mask(_mm512_movepi32_mask(value), rounded, _mm512_set1_epi32(511));
    return _mm512_mask_add_epi32(value, isUp, value, _mm512_set1_epi32(1));
}

// A sample is 2^15 high + low; both are kept as words.
struct CubicBand16 {
    using Rule = Cubic16;
    struct Line {
        alignas(64) int16_t low[kMostSamples];
        alignas(64) int16_t high[kMostSamples];
    };

    HalfGroupSteps steps;

    explicit CubicBand16(int32_t step) : steps(step) {}

    static void sample(const uint16_t *taps, int64_t pitch, const ColumnGroup &group, Line *line, int32_t at)
    {
        __m512i t[5];
        for (int k = 0; k < 5; ++k)
            t[k] = toSigned(load(taps + k * pitch));
        for (int k = 0; k < 4; ++k)
            t[k] = _mm512_mask_mov_epi16(t[k], group.carried, t[k + 1]);
        const CubicWeights weights = cubicWeights(_mm512_srli_epi16(group.fractions, 8));
        const WeightPairs pairs = weightPairs(weights);
        const __m512i total = _mm512_add_epi16(_mm512_add_epi16(weights.w[0], weights.w[1]),
                                               _mm512_add_epi16(weights.w[2], weights.w[3]));
        const __m512i zero = _mm512_setzero_si512();
        const __m512i first = cubicSample(
            weighPairs(_mm512_unpacklo_epi16(t[0], t[1]), _mm512_unpacklo_epi16(t[2], t[3]), pairs.low01, pairs.low23),
            _mm512_unpacklo_epi16(total, zero));
        const __m512i second = cubicSample(weighPairs(_mm512_unpackhi_epi16(t[0], t[1]),
                                                      _mm512_unpackhi_epi16(t[2], t[3]), pairs.high01, pairs.high23),
                                           _mm512_unpackhi_epi16(total, zero));
        const __m512i mask = _mm512_set1_epi32(0x7FFF);
        _mm512_storeu_si512(line->low + at,
                            _mm512_packs_epi32(_mm512_and_si512(first, mask), _mm512_and_si512(second, mask)));
        _mm512_storeu_si512(line->high + at,
                            _mm512_packs_epi32(_mm512_srai_epi32(first, 15), _mm512_srai_epi32(second, 15)));
    }

    // The sum of the products of the high parts is small, that of the low ones below 2^31, and the nested shifts round
    // down as one does.
    static __m256i half(const Line &line, int32_t origin, __m512i positions, __m512i weights01, __m512i weights23)
    {
        const __m512i index = pairIndex(positions);
        const auto weigh = [&](const int16_t *entries) {
            return weighPairs(_mm512_permutexvar_epi16(index, load(entries)),
                              _mm512_permutexvar_epi16(index, load(entries + 2)), weights01, weights23);
        };
        const __m512i low = weigh(line.low + origin);
        const __m512i high = weigh(line.high + origin);
        const __m512i carried = _mm512_srai_epi32(_mm512_add_epi32(low, _mm512_set1_epi32(0x100000)), 15);
        const __m512i value = _mm512_srai_epi32(_mm512_add_epi32(high, carried), 6);
        return _mm512_cvtusepi32_epi16(_mm512_max_epi32(value, _mm512_setzero_si512()));
    }

    void output(const Line &line, int32_t position, int32_t first, __mmask32 lanes, void *dst) const
    {
        const int32_t h = first / 16;
        const __m512i start = _mm512_set1_epi32(position);
        const __m512i low = _mm512_add_epi32(steps.positions[h], start);
        const __m512i high = _mm512_add_epi32(steps.positions[h + 1], start);
        const WeightPairs weights = outputWeights(low, high);
        emitWords(
            dst, first, lanes,
            _mm512_inserti64x4(_mm512_castsi256_si512(half(line, steps.origins[h], low, weights.low01, weights.low23)),
                               half(line, steps.origins[h + 1], high, weights.high01, weights.high23), 1));
    }
};

} // namespace

} // namespace kip

KIP_TARGET_END

namespace kip {

// Outside the region: asking is for every processor.
template <>
BandKernel<uint16_t> *bandKernelAvx512<Linear16>(bool add)
{
    return add ? nullptr : resampleBand<InGroups<LinearBand16>>;
}

template <>
BandKernel<uint16_t> *bandKernelAvx512<Cubic16>(bool add)
{
    return add ? nullptr : resampleBand<InGroups<CubicBand16>>;
}

} // namespace kip

#endif
