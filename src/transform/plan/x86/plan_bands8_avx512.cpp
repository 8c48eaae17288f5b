#include "transform/plan/x86/plan_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "transform/plan/x86/plan_bands_avx512.h"

KIP_TARGET_BEGIN("avx2,avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi")

namespace kip {

namespace {

using namespace avx512;

// 32 pixels as words.
inline __m512i loadWords(const uint8_t *at)
{
    return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(at)));
}

// a + ((2 (b - a)) * w >> 16) with w the upper 15 bits of the fraction: the linear blend of 32 words.
inline __m512i blendWords(__m512i a, __m512i b, __m512i fractions)
{
    const __m512i difference = _mm512_sub_epi16(b, a);
    return _mm512_add_epi16(
        a, _mm512_mulhi_epi16(_mm512_add_epi16(difference, difference), _mm512_srli_epi16(fractions, 1)));
}

struct LinearBand8 {
    using Rule = Linear8;
    struct Line {
        alignas(64) uint8_t entries[kMostSamples];
    };

    __m512i fractions[kOutputGroups];
    __m512i pairs[kOutputGroups]; // indices of an entry and the next, in the two bytes of a word
    int32_t origins[kOutputGroups];

    explicit LinearBand8(int32_t step)
    {
        for (int32_t g = 0; g < kOutputGroups; ++g) {
            origins[g] = (kGroup * g * step) >> 16;
            const __m512i first = positionsFrom(-(origins[g] << 16), step, kGroup * g);
            const __m512i second = positionsFrom(-(origins[g] << 16), step, kGroup * g + 16);
            fractions[g] = lowWords(first, second);
            const __m512i index = lowWords(_mm512_srli_epi32(first, 16), _mm512_srli_epi32(second, 16));
            pairs[g] = _mm512_add_epi16(_mm512_mullo_epi16(index, word(0x0101)), word(0x0100));
        }
    }

    static void sample(const uint8_t *taps, int64_t pitch, const ColumnGroup &group, Line *line, int32_t at)
    {
        const __m512i middle = loadWords(taps + pitch);
        const __m512i a = _mm512_mask_mov_epi16(loadWords(taps), group.carried, middle);
        const __m512i b = _mm512_mask_mov_epi16(middle, group.carried, loadWords(taps + 2 * pitch));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(line->entries + at),
                            _mm512_cvtepi16_epi8(blendWords(a, b, group.fractions)));
    }

    [[gnu::always_inline]] __m256i pixels(const Line &line, int32_t position, int32_t first) const
    {
        const int32_t g = first / kGroup;
        const __m512i start = word(position);
        const __m512i fraction = _mm512_add_epi16(fractions[g], start);
        const __mmask32 carried = _mm512_cmplt_epu16_mask(fraction, start);
        const __m512i index = _mm512_mask_add_epi16(pairs[g], carried, pairs[g], word(0x0101));
        const __m512i both = _mm512_permutexvar_epi8(index, load(line.entries + origins[g]));
        return _mm512_cvtepi16_epi8(
            blendWords(_mm512_and_si512(both, word(0xFF)), _mm512_srli_epi16(both, 8), fraction));
    }
};

// 16 sums of four products, rounded and shifted.
template <int kShift>
inline __m512i weighRounded(__m512i pairs01, __m512i pairs23, __m512i weights01, __m512i weights23)
{
    const __m512i sum = weighPairs(pairs01, pairs23, weights01, weights23);
    return _mm512_srai_epi32(_mm512_add_epi32(sum, _mm512_set1_epi32(1 << (kShift - 1))), kShift);
}

struct CubicBand8 {
    using Rule = CubicPacked8;
    struct Line {
        alignas(64) int16_t entries[kMostSamples];
    };

    HalfGroupSteps steps;

    explicit CubicBand8(int32_t step) : steps(step) {}

    static void sample(const uint8_t *taps, int64_t pitch, const ColumnGroup &group, Line *line, int32_t at)
    {
        __m512i t[5];
        for (int k = 0; k < 5; ++k)
            t[k] = loadWords(taps + k * pitch);
        for (int k = 0; k < 4; ++k)
            t[k] = _mm512_mask_mov_epi16(t[k], group.carried, t[k + 1]);
        const WeightPairs weights = weightPairs(cubicWeights(_mm512_srli_epi16(group.fractions, 8)));
        const __m512i low = weighRounded<9>(_mm512_unpacklo_epi16(t[0], t[1]), _mm512_unpacklo_epi16(t[2], t[3]),
                                            weights.low01, weights.low23);
        const __m512i high = weighRounded<9>(_mm512_unpackhi_epi16(t[0], t[1]), _mm512_unpackhi_epi16(t[2], t[3]),
                                             weights.high01, weights.high23);
        _mm512_storeu_si512(line->entries + at, _mm512_packs_epi32(low, high));
    }

    static __m128i half(const int16_t *entries, __m512i positions, __m512i weights01, __m512i weights23)
    {
        const __m512i index = pairIndex(positions);
        const __m512i value =
            weighRounded<21>(_mm512_permutexvar_epi16(index, load(entries)),
                             _mm512_permutexvar_epi16(index, load(entries + 2)), weights01, weights23);
        return _mm512_cvtusepi32_epi8(_mm512_max_epi32(value, _mm512_setzero_si512()));
    }

    [[gnu::always_inline]] __m256i pixels(const Line &line, int32_t position, int32_t first) const
    {
        const int32_t h = first / 16;
        const __m512i start = _mm512_set1_epi32(position);
        const __m512i low = _mm512_add_epi32(steps.positions[h], start);
        const __m512i high = _mm512_add_epi32(steps.positions[h + 1], start);
        const WeightPairs weights = outputWeights(low, high);
        return _mm256_setr_m128i(half(line.entries + steps.origins[h], low, weights.low01, weights.low23),
                                 half(line.entries + steps.origins[h + 1], high, weights.high01, weights.high23));
    }
};

// Stores the pixels, or adds them to sums.
template <typename Band, bool kAdd>
struct Emitting : Band {
    using Band::Band;

    void output(const typename Band::Line &line, int32_t position, int32_t first, __mmask32 lanes, void *dst) const
    {
        emitBytes<kAdd>(dst, first, lanes, this->pixels(line, position, first));
    }
};

} // namespace

} // namespace kip

KIP_TARGET_END

namespace kip {

namespace {

// Outside the region: asking is for every processor.
template <typename Band>
BandKernel<uint8_t> *bandKernel(bool add)
{
    return add ? resampleBand<InGroups<Emitting<Band, true>>> : resampleBand<InGroups<Emitting<Band, false>>>;
}

} // namespace

template <>
BandKernel<uint8_t> *bandKernelAvx512<Linear8>(bool add)
{
    return bandKernel<LinearBand8>(add);
}

template <>
BandKernel<uint8_t> *bandKernelAvx512<CubicPacked8>(bool add)
{
    return bandKernel<CubicBand8>(add);
}

} // namespace kip

#endif
