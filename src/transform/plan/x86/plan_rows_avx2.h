#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_ROWS_AVX2_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_ROWS_AVX2_H

// What the AVX2 row kernels of both depths share. Included after every other header.

#include <cstddef>
#include <cstdint>

#include "support/target_region.h"
#include "support/x86/x86_intrinsics.h"
#include "transform/plan/plan_rows.h"

KIP_TARGET_BEGIN("avx2")

namespace kip::avx2 {

// Positions start + n * step for n = 0 to 8 * kVectors - 1, as 32-bit lanes.
template <int kVectors>
struct Positions {
    __m256i at[kVectors];
};

template <int kVectors>
inline Positions<kVectors> positionsFrom(uint32_t start, uint32_t step)
{
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i eight = _mm256_set1_epi32(static_cast<int32_t>(step * 8));
    Positions<kVectors> p;
    p.at[0] = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(start)),
                               _mm256_mullo_epi32(lanes, _mm256_set1_epi32(static_cast<int32_t>(step))));
    for (int k = 1; k < kVectors; ++k)
        p.at[k] = _mm256_add_epi32(p.at[k - 1], eight);
    return p;
}

// Packs work within halves of a register; this puts their quarters into order.
inline __m256i inOrder(__m256i packed)
{
    return _mm256_permute4x64_epi64(packed, 0xD8);
}

// The fractions of sixteen positions as words.
inline __m256i fractionWords(__m256i first, __m256i second)
{
    const __m256i mask = _mm256_set1_epi32(0xFFFF);
    return inOrder(_mm256_packus_epi32(_mm256_and_si256(first, mask), _mm256_and_si256(second, mask)));
}

// The integer parts of sixteen positions as words.
inline __m256i integerWords(__m256i first, __m256i second)
{
    return inOrder(_mm256_packs_epi32(_mm256_srai_epi32(first, 16), _mm256_srai_epi32(second, 16)));
}

// The integer parts of 32 positions as bytes; they lie less than 128 from the one at which counting begins.
inline __m256i integerBytes(const Positions<4> &p, int32_t from)
{
    const __m256i origin = _mm256_set1_epi32(from);
    __m256i part[4];
    for (int k = 0; k < 4; ++k)
        part[k] = _mm256_sub_epi32(_mm256_srai_epi32(p.at[k], 16), origin);
    const __m256i bytes =
        _mm256_packs_epi16(_mm256_packs_epi32(part[0], part[1]), _mm256_packs_epi32(part[2], part[3]));
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

inline __m256i bytesToWords(__m256i bytes, ptrdiff_t half)
{
    return _mm256_cvtepu8_epi16(half == 0 ? _mm256_castsi256_si128(bytes) : _mm256_extracti128_si256(bytes, 1));
}

// a + ((2 (b - a)) * w >> 16) with w the upper 15 bits of the fraction: the linear blend of sixteen words.
inline __m256i blendWords(__m256i a, __m256i b, __m256i fractions)
{
    const __m256i difference = _mm256_sub_epi16(b, a);
    return _mm256_add_epi16(
        a, _mm256_mulhi_epi16(_mm256_add_epi16(difference, difference), _mm256_srli_epi16(fractions, 1)));
}

// The four cubic weights of sixteen fractions. They are whole-number polynomials of the phase p (q = 256 - p):
//   w0 = -(p q q >> 10)     w1 = 32768 - p p + (p p (3 p - 256) >> 10), at most 32767
// and w3, w2 the same with p and q exchanged; the shifts round down. Words hold every step of it.
struct CubicWeights {
    __m256i w[4];
};

inline __m256i outerWeight(__m256i pq, __m256i q)
{
    return _mm256_sub_epi16(_mm256_setzero_si256(), _mm256_mulhi_epu16(pq, _mm256_slli_epi16(q, 6)));
}

inline __m256i innerWeight(__m256i p)
{
    const __m256i square = _mm256_mullo_epi16(p, p);
    const __m256i factor =
        _mm256_slli_epi16(_mm256_sub_epi16(_mm256_add_epi16(p, _mm256_add_epi16(p, p)), _mm256_set1_epi16(256)), 6);
    // An unsigned by signed high product: the square may have its top bit set.
    const __m256i high =
        _mm256_add_epi16(_mm256_mulhi_epi16(square, factor), _mm256_and_si256(_mm256_srai_epi16(square, 15), factor));
    const __m256i weight = _mm256_add_epi16(_mm256_sub_epi16(_mm256_set1_epi16(INT16_MIN), square), high);
    return _mm256_min_epu16(weight, _mm256_set1_epi16(INT16_MAX));
}

inline CubicWeights cubicWeights(__m256i fractions)
{
    const __m256i p = _mm256_srli_epi16(fractions, 8);
    const __m256i q = _mm256_sub_epi16(_mm256_set1_epi16(256), p);
    const __m256i pq = _mm256_mullo_epi16(p, q);
    // At phase 0 the square of q leaves a word; the weight there is 0.
    const __m256i w2 = _mm256_andnot_si256(_mm256_cmpeq_epi16(p, _mm256_setzero_si256()), innerWeight(q));
    return {{outerWeight(pq, q), innerWeight(p), w2, outerWeight(pq, p)}};
}

// The weights in pairs, in the order of an unpack.
struct WeightPairs {
    __m256i low01, high01, low23, high23;
};

inline WeightPairs weightPairs(const CubicWeights &weights)
{
    return {_mm256_unpacklo_epi16(weights.w[0], weights.w[1]), _mm256_unpackhi_epi16(weights.w[0], weights.w[1]),
            _mm256_unpacklo_epi16(weights.w[2], weights.w[3]), _mm256_unpackhi_epi16(weights.w[2], weights.w[3])};
}

inline __m256i load(const void *at)
{
    return _mm256_loadu_si256(static_cast<const __m256i *>(at));
}

// Sixteen bytes from each of two places, one in each half.
inline __m256i loadHalves(const void *low, const void *high)
{
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(static_cast<const __m128i *>(low))),
                                   _mm_loadu_si128(static_cast<const __m128i *>(high)), 1);
}

// A shear of at most one pixel a sample keeps the samples of a group within as many lines.
inline bool isGentle(uint32_t shear)
{
    return shear + 65536 <= 131072;
}

// At most two entries a pixel: eight pixels then lie within sixteen bytes, four within eight words.
inline bool isFineStep(uint32_t step)
{
    return step <= 2 * 65536;
}

// What is left of a run after its first pixels.
template <typename Entry>
inline OutputRun<Entry> restOf(const OutputRun<Entry> &run, int32_t done, int64_t elementSize)
{
    return {run.line,    run.position + static_cast<uint32_t>(done) * run.step, run.step, run.count - done,
            run.weights, static_cast<uint8_t *>(run.dst) + done * elementSize};
}

// Where pairs of neighbouring words of a line stand for eight of sixteen outputs: 0 to 3 and 8 to 11 (part 0), or 4 to
// 7 and 12 to 15 (part 1), which is the order of unpacked weights. Each four lie in a window of eight words.
struct PairWindows {
    int32_t low, high;
    __m256i control;
};

inline PairWindows pairWindows(const Positions<2> &p, uint32_t start, uint32_t step, uint32_t part)
{
    const int32_t low = fixedInteger(start + 4 * part * step);
    const int32_t high = fixedInteger(start + (4 * part + 8) * step);
    const __m256i positions = part == 0 ? _mm256_permute2x128_si256(p.at[0], p.at[1], 0x20)
                                        : _mm256_permute2x128_si256(p.at[0], p.at[1], 0x31);
    const __m256i origins = _mm256_setr_m128i(_mm_set1_epi32(low), _mm_set1_epi32(high));
    const __m256i index = _mm256_sub_epi32(_mm256_srai_epi32(positions, 16), origins);
    return {low, high,
            _mm256_add_epi32(_mm256_mullo_epi32(index, _mm256_set1_epi32(0x02020202)), _mm256_set1_epi32(0x03020100))};
}

template <typename Word>
inline __m256i pairsAt(const Word *line, const PairWindows &windows)
{
    return _mm256_shuffle_epi8(loadHalves(line + windows.low, line + windows.high), windows.control);
}

// Adds sixteen unsigned words to as many sums.
inline void addWords(uint32_t *sums, __m256i words)
{
    auto *const at = reinterpret_cast<__m256i *>(sums);
    const __m256i low = _mm256_cvtepu16_epi32(_mm256_castsi256_si128(words));
    const __m256i high = _mm256_cvtepu16_epi32(_mm256_extracti128_si256(words, 1));
    _mm256_storeu_si256(at, _mm256_add_epi32(_mm256_loadu_si256(at), low));
    _mm256_storeu_si256(at + 1, _mm256_add_epi32(_mm256_loadu_si256(at + 1), high));
}

} // namespace kip::avx2

KIP_TARGET_END

#endif
