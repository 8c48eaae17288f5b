// Thirty-two pixels at a time.

#include "projection/sum_kernels.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "support/x86/x86_intrinsics.h"

KIP_TARGET_BEGIN("avx2")

namespace kip {

namespace {

struct Vector {
    static constexpr int32_t kBytes = 32;

    __m256i bits;

    static Vector load(const void *at) { return {_mm256_loadu_si256(static_cast<const __m256i *>(at))}; }
    static Vector zero() { return {_mm256_setzero_si256()}; }
    void store(void *at) const { _mm256_storeu_si256(static_cast<__m256i *>(at), bits); }

    template <int kQuarter>
    __m128i quarter() const
    {
        return kQuarter == 0 ? _mm256_castsi256_si128(bits) : _mm256_extracti128_si256(bits, 1);
    }

    static void addEightWords(unsigned char *sums, __m128i words)
    {
        Vector{_mm256_add_epi32(load(sums).bits, _mm256_cvtepu16_epi32(words))}.store(sums);
    }

    Vector plusWords(Vector b) const { return {_mm256_add_epi16(bits, b.bits)}; }
    Vector minusWords(Vector b) const { return {_mm256_sub_epi16(bits, b.bits)}; }
    Vector upperBytes() const { return {_mm256_srli_epi16(bits, 8)}; }
    Vector raisedBytes() const { return {_mm256_slli_epi16(bits, 8)}; }
    Vector interleavedLower(Vector b) const { return {_mm256_unpacklo_epi16(bits, b.bits)}; }
    Vector interleavedUpper(Vector b) const { return {_mm256_unpackhi_epi16(bits, b.bits)}; }
    Vector sumsOfBytes() const { return {_mm256_sad_epu8(bits, zero().bits)}; }
    Vector plusSums(Vector b) const { return {_mm256_add_epi64(bits, b.bits)}; }
    __m128i foldedSums() const { return _mm_add_epi64(quarter<0>(), quarter<1>()); }

    // A vector that ends with the row, less the pixels that are in whole ones.
    struct Tail {
        __m256i mask;
        int32_t first;

        explicit Tail(int32_t width) : first(width - kBytes)
        {
            const __m256i place = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
                                                   20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
            mask = _mm256_cmpgt_epi8(place, _mm256_set1_epi8(static_cast<char>(kBytes - 1 - width % kBytes)));
        }
        Vector load(const uint8_t *row) const { return {_mm256_and_si256(Vector::load(row + first).bits, mask)}; }
    };
};

} // namespace

} // namespace kip

#include "projection/x86/sum_kernels_vectors.h"

namespace kip {

void addRowsToPartialsAvx2(const PixelRows8 &rows, uint16_t *partials)
{
    addRowsByVectors<Vector>(rows, partials, addRowsToPartialsSse2);
}

void widenPartialsAvx2(uint16_t *partials, int32_t width, SumRow sums)
{
    widenByVectors<Vector>(partials, width, sums, widenPartialsSse2);
}

void sumRowsAvx2(const PixelRows8 &rows, SumRow sums, int32_t step)
{
    if (rows.width < Vector::kBytes)
        sumRowsSse2(rows, sums, step);
    else
        sumRowsByVectors<Vector>(rows, sums, step);
}

} // namespace kip

KIP_TARGET_END

#endif
