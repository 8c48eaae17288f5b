#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_WORDS_AVX2_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_WORDS_AVX2_H

// Words in AVX2 registers, for what the plan's kernels of all instruction sets share. Included after every other
// header, and before those that share.

#include <cstdint>

#include "support/target_region.h"
#include "support/x86/x86_intrinsics.h"

#define KIP_PLAN_TARGET "avx2"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx2 {

inline __m256i load(const void *at)
{
    return _mm256_loadu_si256(static_cast<const __m256i *>(at));
}

// A register of 32-bit lanes: sums of two products of words each.
struct Lanes {
    __m256i v;

    static Lanes all(int32_t value) { return {_mm256_set1_epi32(value)}; }
    template <int kBits>
    Lanes shiftedLeft() const
    {
        return {_mm256_slli_epi32(v, kBits)};
    }
    template <int kBits>
    Lanes shiftedRight() const
    {
        return {_mm256_srai_epi32(v, kBits)};
    }
};

inline Lanes operator+(Lanes a, Lanes b)
{
    return {_mm256_add_epi32(a.v, b.v)};
}

// One more where a value is negative and the number that it comes from has any of its lowest bits set.
template <int kBits>
inline Lanes raisedWhereCut(Lanes value, Lanes from)
{
    const __m256i cut = _mm256_and_si256(from.v, _mm256_set1_epi32((1 << kBits) - 1));
    const __m256i exact = _mm256_cmpeq_epi32(cut, _mm256_setzero_si256());
    const __m256i isUp = _mm256_andnot_si256(exact, _mm256_srai_epi32(value.v, 31));
    return {_mm256_sub_epi32(value.v, isUp)};
}

// A register of words. Unpacking and packing work within its halves.
struct Words {
    __m256i v;

    static constexpr int32_t kCount = 16;
    using Lanes = avx2::Lanes;

    static Words all(int32_t value) { return {_mm256_set1_epi16(static_cast<int16_t>(value))}; }
    static Words load(const uint16_t *at) { return {avx2::load(at)}; }
    static Words load(const uint8_t *at)
    {
        return {_mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(at)))};
    }
    // All bits of the first words, as many as count says.
    static Words onesBefore(int32_t count)
    {
        const __m256i place = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        return {_mm256_cmpgt_epi16(_mm256_set1_epi16(static_cast<int16_t>(count)), place)};
    }
    template <int kBits>
    Words shiftedLeft() const
    {
        return {_mm256_slli_epi16(v, kBits)};
    }
    template <int kBits>
    Words shiftedRight() const // fills up with zeros
    {
        return {_mm256_srli_epi16(v, kBits)};
    }
    Words signs() const { return {_mm256_srai_epi16(v, 15)}; } // all bits of each word
};

inline Words operator+(Words a, Words b)
{
    return {_mm256_add_epi16(a.v, b.v)};
}

inline Words operator-(Words a, Words b)
{
    return {_mm256_sub_epi16(a.v, b.v)};
}

inline Words operator*(Words a, Words b)
{
    return {_mm256_mullo_epi16(a.v, b.v)};
}

inline Words operator&(Words a, Words b)
{
    return {_mm256_and_si256(a.v, b.v)};
}

inline Words operator^(Words a, Words b)
{
    return {_mm256_xor_si256(a.v, b.v)};
}

inline Words leastUnsigned(Words a, Words b)
{
    return {_mm256_min_epu16(a.v, b.v)};
}

// The upper halves of the products of words.
inline Words highProduct(Words a, Words b)
{
    return {_mm256_mulhi_epi16(a.v, b.v)};
}

inline Words highProductUnsigned(Words a, Words b)
{
    return {_mm256_mulhi_epu16(a.v, b.v)};
}

inline Words zeroWhereZero(Words where, Words words)
{
    return {_mm256_andnot_si256(_mm256_cmpeq_epi16(where.v, _mm256_setzero_si256()), words.v)};
}

// first where a sum of unsigned words did not carry, sum being it and part one of its two parts; else second.
inline Words selectByCarry(Words sum, Words part, Words first, Words second)
{
    const __m256i stays = _mm256_cmpeq_epi16(_mm256_max_epu16(sum.v, part.v), sum.v);
    return {_mm256_blendv_epi8(second.v, first.v, stays)};
}

inline Words unpackLow(Words a, Words b)
{
    return {_mm256_unpacklo_epi16(a.v, b.v)};
}

inline Words unpackHigh(Words a, Words b)
{
    return {_mm256_unpackhi_epi16(a.v, b.v)};
}

inline Lanes asLanes(Words pairs)
{
    return {pairs.v};
}

// The sums of the products of neighbouring signed words.
inline Lanes sumsOfPairs(Words a, Words b)
{
    return {_mm256_madd_epi16(a.v, b.v)};
}

inline Words pack(Lanes low, Lanes high)
{
    return {_mm256_packs_epi32(low.v, high.v)};
}

} // namespace kip::avx2

KIP_TARGET_END

#endif
