#ifndef KIP_TRANSFORM_PLAN_X86_PLAN_WORDS_AVX512_H
#define KIP_TRANSFORM_PLAN_X86_PLAN_WORDS_AVX512_H

// Words in AVX-512 registers, for what the plan's kernels of all instruction sets share. Included after every other
// header, and before those that share.

#include <cstdint>

#include "support/target_region.h"
#include "support/x86/x86_intrinsics.h"

#define KIP_PLAN_TARGET "avx2,avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi"

KIP_TARGET_BEGIN(KIP_PLAN_TARGET)

namespace kip::avx512 {

inline __m512i load(const void *at)
{
    return _mm512_loadu_si512(at);
}

// A register of 32-bit lanes: sums of two products of words each.
struct Lanes {
    __m512i v;

    static Lanes all(int32_t value) { return {_mm512_set1_epi32(value)}; }
    template <int kBits>
    Lanes shiftedLeft() const
    {
        return {_mm512_slli_epi32(v, kBits)};
    }
    template <int kBits>
    Lanes shiftedRight() const
    {
        return {_mm512_srai_epi32(v, kBits)};
    }
};

inline Lanes operator+(Lanes a, Lanes b)
{
    return {_mm512_add_epi32(a.v, b.v)};
}

// One more where a value is negative and the number that it comes from has any of its lowest bits set.
template <int kBits>
inline Lanes raisedWhereCut(Lanes value, Lanes from)
{
    const __mmask16 isUp =
        _mm512_mask_test_epi32_mask(_mm512_movepi32_mask(value.v), from.v, _mm512_set1_epi32((1 << kBits) - 1));
    return {_mm512_mask_add_epi32(value.v, isUp, value.v, _mm512_set1_epi32(1))};
}

// A register of words. Unpacking and packing work within its quarters.
struct Words {
    __m512i v;

    static constexpr int32_t kCount = 32;
    using Lanes = avx512::Lanes;

    static Words all(int32_t value) { return {_mm512_set1_epi16(static_cast<int16_t>(value))}; }
    static Words load(const uint16_t *at) { return {avx512::load(at)}; }
    static Words load(const uint8_t *at)
    {
        return {_mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(at)))};
    }
    // All bits of the first words, as many as count says: fewer than there are.
    static Words onesBefore(int32_t count) { return {_mm512_movm_epi16((uint32_t{1} << count) - 1)}; }
    template <int kBits>
    Words shiftedLeft() const
    {
        return {_mm512_slli_epi16(v, kBits)};
    }
    template <int kBits>
    Words shiftedRight() const // fills up with zeros
    {
        return {_mm512_srli_epi16(v, kBits)};
    }
    Words signs() const { return {_mm512_srai_epi16(v, 15)}; } // all bits of each word
};

inline Words operator+(Words a, Words b)
{
    return {_mm512_add_epi16(a.v, b.v)};
}

inline Words operator-(Words a, Words b)
{
    return {_mm512_sub_epi16(a.v, b.v)};
}

inline Words operator*(Words a, Words b)
{
    return {_mm512_mullo_epi16(a.v, b.v)};
}

inline Words operator&(Words a, Words b)
{
    return {_mm512_and_si512(a.v, b.v)};
}

inline Words operator^(Words a, Words b)
{
    return {_mm512_xor_si512(a.v, b.v)};
}

inline Words leastUnsigned(Words a, Words b)
{
    return {_mm512_min_epu16(a.v, b.v)};
}

// The upper halves of the products of words.
inline Words highProduct(Words a, Words b)
{
    return {_mm512_mulhi_epi16(a.v, b.v)};
}

inline Words highProductUnsigned(Words a, Words b)
{
    return {_mm512_mulhi_epu16(a.v, b.v)};
}

inline Words zeroWhereZero(Words where, Words words)
{
    return {_mm512_maskz_mov_epi16(_mm512_test_epi16_mask(where.v, where.v), words.v)};
}

// first where a sum of unsigned words did not carry, sum being it and part one of its two parts; else second.
inline Words selectByCarry(Words sum, Words part, Words first, Words second)
{
    return {_mm512_mask_mov_epi16(first.v, _mm512_cmplt_epu16_mask(sum.v, part.v), second.v)};
}

inline Words unpackLow(Words a, Words b)
{
    return {_mm512_unpacklo_epi16(a.v, b.v)};
}

inline Words unpackHigh(Words a, Words b)
{
    return {_mm512_unpackhi_epi16(a.v, b.v)};
}

inline Lanes asLanes(Words pairs)
{
    return {pairs.v};
}

// The sums of the products of neighbouring signed words.
inline Lanes sumsOfPairs(Words a, Words b)
{
    return {_mm512_madd_epi16(a.v, b.v)};
}

inline Words pack(Lanes low, Lanes high)
{
    return {_mm512_packs_epi32(low.v, high.v)};
}

} // namespace kip::avx512

KIP_TARGET_END

#endif
