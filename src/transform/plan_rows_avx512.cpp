#include "transform/plan_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <algorithm>
#include <cstddef>

#include "support/x86_intrinsics.h"

KIP_TARGET_BEGIN("avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi")

namespace kip {

namespace {

// Positions start + n * step for n = 0 to 63, as 32-bit lanes.
struct Positions {
    __m512i at[4];
};

inline Positions positionsFrom(uint32_t start, uint32_t step)
{
    const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m512i steps = _mm512_set1_epi32(static_cast<int32_t>(step));
    const __m512i sixteen = _mm512_set1_epi32(static_cast<int32_t>(step * 16));
    Positions p;
    p.at[0] = _mm512_add_epi32(_mm512_set1_epi32(static_cast<int32_t>(start)), _mm512_mullo_epi32(lanes, steps));
    for (int k = 1; k < 4; ++k)
        p.at[k] = _mm512_add_epi32(p.at[k - 1], sixteen);
    return p;
}

inline void advance(Positions &p, uint32_t by)
{
    const __m512i step = _mm512_set1_epi32(static_cast<int32_t>(by));
    for (__m512i &at : p.at)
        at = _mm512_add_epi32(at, step);
}

// The integer parts of 64 positions as bytes; they lie less than 256 from the one at which counting begins.
inline __m512i integerBytes(const Positions &p, int32_t from)
{
    const __m512i origin = _mm512_set1_epi32(from);
    __m128i part[4];
    for (int k = 0; k < 4; ++k)
        part[k] = _mm512_cvtepi32_epi8(_mm512_sub_epi32(_mm512_srai_epi32(p.at[k], 16), origin));
    const __m512i low = _mm512_inserti32x4(_mm512_castsi128_si512(part[0]), part[1], 1);
    return _mm512_inserti32x4(_mm512_inserti32x4(low, part[2], 2), part[3], 3);
}

// The fractions of positions 0 to 31 (half 0) or 32 to 63 (half 1) as words.
inline __m512i fractionWords(const Positions &p, ptrdiff_t half)
{
    return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi32_epi16(p.at[2 * half])),
                              _mm512_cvtepi32_epi16(p.at[2 * half + 1]), 1);
}

inline __m512i bytesToWords(__m512i bytes, ptrdiff_t half)
{
    return _mm512_cvtepu8_epi16(half == 0 ? _mm512_castsi512_si256(bytes) : _mm512_extracti64x4_epi64(bytes, 1));
}

// a + ((2 (b - a)) * w >> 16) with w the upper 15 bits of the fraction: the linear blend of 64 bytes.
inline __m512i blendBytes(__m512i a, __m512i b, const Positions &p)
{
    __m256i half[2];
    for (int k = 0; k < 2; ++k) {
        const __m512i low = bytesToWords(a, k);
        const __m512i difference = _mm512_sub_epi16(bytesToWords(b, k), low);
        const __m512i weight = _mm512_srli_epi16(fractionWords(p, k), 1);
        const __m512i moved = _mm512_mulhi_epi16(_mm512_add_epi16(difference, difference), weight);
        half[k] = _mm512_cvtepi16_epi8(_mm512_add_epi16(low, moved));
    }
    return _mm512_inserti64x4(_mm512_castsi256_si512(half[0]), half[1], 1);
}

// The four cubic weights of 32 fractions. They are whole-number polynomials of the phase p (q = 256 - p):
//   w0 = -(p q q >> 10)     w1 = 32768 - p p + (p p (3 p - 256) >> 10), at most 32767
// and w3, w2 the same with p and q exchanged; the shifts round down. Words hold every step of it.
struct CubicWeights {
    __m512i w[4];
};

inline __m512i outerWeight(__m512i pq, __m512i q)
{
    return _mm512_sub_epi16(_mm512_setzero_si512(), _mm512_mulhi_epu16(pq, _mm512_slli_epi16(q, 6)));
}

inline __m512i innerWeight(__m512i p)
{
    const __m512i square = _mm512_mullo_epi16(p, p);
    const __m512i factor =
        _mm512_slli_epi16(_mm512_sub_epi16(_mm512_add_epi16(p, _mm512_add_epi16(p, p)), _mm512_set1_epi16(256)), 6);
    // An unsigned by signed high product: the square may have its top bit set.
    const __m512i high =
        _mm512_add_epi16(_mm512_mulhi_epi16(square, factor), _mm512_and_si512(_mm512_srai_epi16(square, 15), factor));
    const __m512i weight = _mm512_add_epi16(_mm512_sub_epi16(_mm512_set1_epi16(INT16_MIN), square), high);
    return _mm512_min_epu16(weight, _mm512_set1_epi16(INT16_MAX));
}

inline CubicWeights cubicWeights(__m512i fractions)
{
    const __m512i p = _mm512_srli_epi16(fractions, 8);
    const __m512i q = _mm512_sub_epi16(_mm512_set1_epi16(256), p);
    const __m512i pq = _mm512_mullo_epi16(p, q);
    // At phase 0, q q leaves 16 bits; the weight there is 0, which the truncated square gives as well: 32768 - 0
    // plus the high product of nothing would not, so the phase is masked.
    const __m512i w2 = _mm512_maskz_mov_epi16(_mm512_test_epi16_mask(p, p), innerWeight(q));
    return {{outerWeight(pq, q), innerWeight(p), w2, outerWeight(pq, p)}};
}

// The weighted sums of 32 quadruples of words, rounded and shifted, as saturated words.
template <int kShift>
inline __m512i weighWords(const CubicWeights &weights, const __m512i (&taps)[4])
{
    const __m512i round = _mm512_set1_epi32(1 << (kShift - 1));
    const __m512i low = _mm512_add_epi32(
        _mm512_madd_epi16(_mm512_unpacklo_epi16(taps[0], taps[1]), _mm512_unpacklo_epi16(weights.w[0], weights.w[1])),
        _mm512_madd_epi16(_mm512_unpacklo_epi16(taps[2], taps[3]), _mm512_unpacklo_epi16(weights.w[2], weights.w[3])));
    const __m512i high = _mm512_add_epi32(
        _mm512_madd_epi16(_mm512_unpackhi_epi16(taps[0], taps[1]), _mm512_unpackhi_epi16(weights.w[0], weights.w[1])),
        _mm512_madd_epi16(_mm512_unpackhi_epi16(taps[2], taps[3]), _mm512_unpackhi_epi16(weights.w[2], weights.w[3])));
    return _mm512_packs_epi32(_mm512_srai_epi32(_mm512_add_epi32(low, round), kShift),
                              _mm512_srai_epi32(_mm512_add_epi32(high, round), kShift));
}

inline __mmask64 firstLanes(int32_t count)
{
    return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

// A shear of at most one pixel a sample keeps 64 samples within 64 lines of each other.
inline bool isGentle(uint32_t shear)
{
    return shear + 65536 <= 131072;
}

// Collects tap kFirst .. kFirst + kTaps - 1 of 64 samples as bytes. Neighbouring samples lie next to each other as long
// as they are on one line: each line that the samples touch is loaded once and spread to the taps that need it.
template <int kFirst, int kTaps>
inline void gatherTaps(const uint8_t *base, int64_t minorStep, const Positions &p, __mmask64 lanes, int32_t firstLine,
                       int32_t lastLine, __m512i (&taps)[kTaps])
{
    const int32_t least = std::min(firstLine, lastLine);
    const int32_t greatest = std::max(firstLine, lastLine);
    const __m512i lines = integerBytes(p, least);
    for (__m512i &tap : taps)
        tap = _mm512_setzero_si512();
    __mmask64 on[kTaps] = {}; // the samples whose tap k lies on the current line
    const uint8_t *row = base + (least + kFirst) * minorStep;
    const int32_t count = greatest - least + kTaps;
    for (int32_t i = 0; i < count; ++i, row += minorStep) {
        // Tap k of a sample lies k lines below its tap 0.
        for (int k = kTaps - 1; k > 0; --k)
            on[k] = on[k - 1];
        on[0] = _mm512_cmpeq_epi8_mask(lines, _mm512_set1_epi8(static_cast<char>(i)));
        const __m512i pixels = _mm512_maskz_loadu_epi8(lanes, row);
        for (int k = 0; k < kTaps; ++k)
            taps[k] = _mm512_mask_mov_epi8(taps[k], on[k], pixels);
    }
}

inline int32_t integerAt(const SampleRun<uint8_t> &run, int32_t sample)
{
    return fixedInteger(run.position + static_cast<uint32_t>(sample) * run.shear);
}

// Runs groups of up to 64 samples: combine(first, lanes, positions, taps) makes entries of them.
template <int kFirst, int kTaps, typename Combine>
inline void forEachSampleGroup(const SampleRun<uint8_t> &run, Combine combine)
{
    Positions p = positionsFrom(run.position, run.shear);
    for (int32_t first = 0; first < run.count; first += 64) {
        const int32_t last = std::min(first + 63, run.count - 1);
        const __mmask64 lanes = firstLanes(run.count - first);
        __m512i taps[kTaps];
        gatherTaps<kFirst, kTaps>(run.base + first, run.minorStep, p, lanes, integerAt(run, first),
                                  integerAt(run, last), taps);
        combine(first, lanes, p, taps);
        advance(p, run.shear * 64);
    }
}

// Runs groups of up to 64 outputs whose taps lie within 128 entries.
template <typename Entry, typename Emit>
inline void forEachOutputGroup(const OutputRun<Entry> &run, int32_t size, Emit emit)
{
    Positions p = positionsFrom(run.position, run.step);
    for (int32_t first = 0; first < run.count; first += size) {
        const int32_t origin = fixedInteger(run.position + static_cast<uint32_t>(first) * run.step);
        emit(first, origin, p);
        advance(p, run.step * static_cast<uint32_t>(size));
    }
}

inline void storeBytes(uint8_t *dst, __mmask64 lanes, __m512i bytes)
{
    _mm512_mask_storeu_epi8(dst, lanes, bytes);
}

inline void addBytes(uint32_t *sums, __mmask64 lanes, __m512i bytes)
{
    const __m128i part[4] = {_mm512_castsi512_si128(bytes), _mm512_extracti32x4_epi32(bytes, 1),
                             _mm512_extracti32x4_epi32(bytes, 2), _mm512_extracti32x4_epi32(bytes, 3)};
    for (int k = 0; k < 4; ++k) {
        const auto mask = static_cast<__mmask16>(lanes >> (16 * k));
        uint32_t *const at = sums + ptrdiff_t{16} * k;
        const __m512i sum = _mm512_add_epi32(_mm512_maskz_loadu_epi32(mask, at), _mm512_cvtepu8_epi32(part[k]));
        _mm512_mask_storeu_epi32(at, mask, sum);
    }
}

// Bytes at origin + index and one further on, for 64 indices below 128.
template <bool kAdd>
inline void linearOutputs(const OutputRun<uint8_t> &run)
{
    forEachOutputGroup(run, 64, [&run](int32_t first, int32_t origin, const Positions &p) {
        const uint8_t *const line = run.line + origin;
        const __m512i index = integerBytes(p, origin);
        const __m512i a = _mm512_permutex2var_epi8(_mm512_loadu_si512(line), index, _mm512_loadu_si512(line + 64));
        const __m512i b = _mm512_permutex2var_epi8(_mm512_loadu_si512(line + 1), index, _mm512_loadu_si512(line + 65));
        const __m512i value = blendBytes(a, b, p);
        const __mmask64 lanes = firstLanes(run.count - first);
        if constexpr (kAdd)
            addBytes(static_cast<uint32_t *>(run.dst) + first, lanes, value);
        else
            storeBytes(static_cast<uint8_t *>(run.dst) + first, lanes, value);
    });
}

// The cubic values of 32 outputs (half of 64 positions) as words, not yet clamped to bytes.
inline __m512i cubicOutputWords(const int16_t *line, __m512i index, const Positions &p, ptrdiff_t half)
{
    __m512i taps[4];
    for (int k = 0; k < 4; ++k)
        taps[k] = _mm512_permutex2var_epi16(_mm512_loadu_si512(line + k), index, _mm512_loadu_si512(line + k + 32));
    return weighWords<21>(cubicWeights(fractionWords(p, half)), taps);
}

template <bool kAdd>
inline void cubicOutputs(const OutputRun<int16_t> &run)
{
    forEachOutputGroup(run, 64, [&run](int32_t first, int32_t origin, const Positions &p) {
        __m256i half[2];
        const __m512i indices = integerBytes(p, origin);
        const int32_t middle = fixedInteger(run.position + static_cast<uint32_t>(first + 32) * run.step) - origin;
        for (int k = 0; k < 2; ++k) {
            const int32_t moved = k == 0 ? 0 : middle;
            const __m512i index =
                _mm512_sub_epi16(bytesToWords(indices, k), _mm512_set1_epi16(static_cast<int16_t>(moved)));
            // Beyond the count, lanes may point anywhere on the line; they are not stored.
            const __m512i words = first + 32 * k < run.count ? cubicOutputWords(run.line + origin + moved, index, p, k)
                                                             : _mm512_setzero_si512();
            half[k] = _mm512_cvtusepi16_epi8(_mm512_max_epi16(words, _mm512_setzero_si512()));
        }
        const __m512i value = _mm512_inserti64x4(_mm512_castsi256_si512(half[0]), half[1], 1);
        const __mmask64 lanes = firstLanes(run.count - first);
        if constexpr (kAdd)
            addBytes(static_cast<uint32_t *>(run.dst) + first, lanes, value);
        else
            storeBytes(static_cast<uint8_t *>(run.dst) + first, lanes, value);
    });
}

// Up to two entries a pixel, the indices of 32 words or 64 bytes stay within two registers.
inline bool isFineStep(uint32_t step)
{
    return step <= 2 * 65536 - 4096;
}

inline bool isVectorRun(const SampleRun<uint8_t> &run)
{
    return run.majorStep == 1 && isGentle(run.shear);
}

} // namespace

void linearSamples8Avx512(const SampleRun<uint8_t> &run, uint8_t *out)
{
    if (!isVectorRun(run))
        return sampleLinePortable<Linear8>(run, out);
    forEachSampleGroup<0, 2>(run, [out](int32_t first, __mmask64 lanes, const Positions &p, const __m512i(&taps)[2]) {
        storeBytes(out + first, lanes, blendBytes(taps[0], taps[1], p));
    });
}

void cubicSamples8Avx512(const SampleRun<uint8_t> &run, int16_t *out)
{
    if (!isVectorRun(run))
        return sampleLinePortable<CubicPacked8>(run, out);
    forEachSampleGroup<-1, 4>(run, [out](int32_t first, __mmask64 lanes, const Positions &p, const __m512i(&taps)[4]) {
        for (ptrdiff_t k = 0; k < 2; ++k) {
            const __m512i words[4] = {bytesToWords(taps[0], k), bytesToWords(taps[1], k), bytesToWords(taps[2], k),
                                      bytesToWords(taps[3], k)};
            _mm512_mask_storeu_epi16(out + first + 32 * k, static_cast<__mmask32>(lanes >> (32 * k)),
                                     weighWords<9>(cubicWeights(fractionWords(p, k)), words));
        }
    });
}

void linearOutputs8Avx512(const OutputRun<uint8_t> &run)
{
    isFineStep(run.step) ? linearOutputs<false>(run) : outputLinePortable<Linear8, false>(run);
}

void linearOutputsAdd8Avx512(const OutputRun<uint8_t> &run)
{
    isFineStep(run.step) ? linearOutputs<true>(run) : outputLinePortable<Linear8, true>(run);
}

void cubicOutputs8Avx512(const OutputRun<int16_t> &run)
{
    isFineStep(run.step) ? cubicOutputs<false>(run) : outputLinePortable<CubicPacked8, false>(run);
}

void cubicOutputsAdd8Avx512(const OutputRun<int16_t> &run)
{
    isFineStep(run.step) ? cubicOutputs<true>(run) : outputLinePortable<CubicPacked8, true>(run);
}

} // namespace kip

KIP_TARGET_END

#endif
