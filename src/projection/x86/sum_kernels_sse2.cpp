// Sixteen pixels at a time.

#include "projection/sum_kernels.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <emmintrin.h>

namespace kip {

namespace {

struct Vector {
    static constexpr int32_t kBytes = 16;

    __m128i bits;

    static Vector load(const void *at) { return {_mm_loadu_si128(static_cast<const __m128i *>(at))}; }
    static Vector zero() { return {_mm_setzero_si128()}; }
    void store(void *at) const { _mm_storeu_si128(static_cast<__m128i *>(at), bits); }

    template <int>
    __m128i quarter() const
    {
        return bits;
    }

    static void addEightWords(unsigned char *sums, __m128i words)
    {
        Vector{_mm_add_epi32(load(sums).bits, _mm_unpacklo_epi16(words, zero().bits))}.store(sums);
        sums += kBytes;
        Vector{_mm_add_epi32(load(sums).bits, _mm_unpackhi_epi16(words, zero().bits))}.store(sums);
    }

    Vector plusWords(Vector b) const { return {_mm_add_epi16(bits, b.bits)}; }
    Vector minusWords(Vector b) const { return {_mm_sub_epi16(bits, b.bits)}; }
    Vector upperBytes() const { return {_mm_srli_epi16(bits, 8)}; }
    Vector raisedBytes() const { return {_mm_slli_epi16(bits, 8)}; }
    Vector interleavedLower(Vector b) const { return {_mm_unpacklo_epi16(bits, b.bits)}; }
    Vector interleavedUpper(Vector b) const { return {_mm_unpackhi_epi16(bits, b.bits)}; }
    Vector sumsOfBytes() const { return {_mm_sad_epu8(bits, zero().bits)}; }
    Vector plusSums(Vector b) const { return {_mm_add_epi64(bits, b.bits)}; }
    __m128i foldedSums() const { return bits; }

    // A vector that ends with the row, less the pixels that are in whole ones.
    struct Tail {
        __m128i mask;
        int32_t first;

        explicit Tail(int32_t width) : first(width - kBytes)
        {
            const __m128i place = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
            mask = _mm_cmpgt_epi8(place, _mm_set1_epi8(static_cast<char>(kBytes - 1 - width % kBytes)));
        }
        Vector load(const uint8_t *row) const { return {_mm_and_si128(Vector::load(row + first).bits, mask)}; }
    };
};

} // namespace

} // namespace kip

#include "projection/x86/sum_kernels_vectors.h"

namespace kip {

void addRowsToPartialsSse2(const PixelRows8 &rows, uint16_t *partials)
{
    addRowsByVectors<Vector>(rows, partials, addRowsToPartialsPortable);
}

void widenPartialsSse2(uint16_t *partials, int32_t width, SumRow sums)
{
    widenByVectors<Vector>(partials, width, sums, widenPartialsPortable);
}

void sumRowsSse2(const PixelRows8 &rows, SumRow sums, int32_t step)
{
    if (rows.width < Vector::kBytes)
        sumRowsPortable(rows, sums, step);
    else
        sumRowsByVectors<Vector>(rows, sums, step);
}

} // namespace kip

#endif
