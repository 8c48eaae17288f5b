// Sixty-four pixels at a time, and a mask for the end of a row.

#include "projection/sum_kernels.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "support/x86/x86_intrinsics.h"

KIP_TARGET_BEGIN("avx512f,avx512bw,avx512dq,avx512vl")

namespace kip {

namespace {

struct Vector {
    static constexpr int32_t kBytes = 64;

    __m512i bits;

    static Vector load(const void *at) { return {_mm512_loadu_si512(at)}; }
    static Vector zero() { return {_mm512_setzero_si512()}; }
    void store(void *at) const { _mm512_storeu_si512(at, bits); }

    template <int kQuarter>
    __m128i quarter() const
    {
        return _mm512_extracti32x4_epi32(bits, kQuarter);
    }

    static void addEightWords(unsigned char *sums, __m128i words)
    {
        auto *const at = reinterpret_cast<__m256i *>(sums);
        _mm256_storeu_si256(at, _mm256_add_epi32(_mm256_loadu_si256(at), _mm256_cvtepu16_epi32(words)));
    }

    Vector plusWords(Vector b) const { return {_mm512_add_epi16(bits, b.bits)}; }
    Vector minusWords(Vector b) const { return {_mm512_sub_epi16(bits, b.bits)}; }
    Vector upperBytes() const { return {_mm512_srli_epi16(bits, 8)}; }
    Vector raisedBytes() const { return {_mm512_slli_epi16(bits, 8)}; }
    Vector interleavedLower(Vector b) const { return {_mm512_unpacklo_epi16(bits, b.bits)}; }
    Vector interleavedUpper(Vector b) const { return {_mm512_unpackhi_epi16(bits, b.bits)}; }
    Vector sumsOfBytes() const { return {_mm512_sad_epu8(bits, zero().bits)}; }
    Vector plusSums(Vector b) const { return {_mm512_add_epi64(bits, b.bits)}; }
    __m128i foldedSums() const
    {
        const __m256i half = _mm256_add_epi64(_mm512_castsi512_si256(bits), _mm512_extracti64x4_epi64(bits, 1));
        return _mm_add_epi64(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
    }

    struct Tail {
        __mmask64 mask;
        int32_t first;

        explicit Tail(int32_t width) : mask((uint64_t{1} << (width % kBytes)) - 1), first(width - width % kBytes) {}
        Vector load(const uint8_t *row) const { return {_mm512_maskz_loadu_epi8(mask, row + first)}; }
    };
};

} // namespace

} // namespace kip

#include "projection/x86/sum_kernels_vectors.h"

namespace kip {

void addRowsToPartialsAvx512(const PixelRows8 &rows, uint16_t *partials)
{
    addRowsByVectors<Vector>(rows, partials, addRowsToPartialsAvx2);
}

void widenPartialsAvx512(uint16_t *partials, int32_t width, SumRow sums)
{
    widenByVectors<Vector>(partials, width, sums, widenPartialsAvx2);
}

void sumRowsAvx512(const PixelRows8 &rows, SumRow sums, int32_t step)
{
    sumRowsByVectors<Vector>(rows, sums, step);
}

} // namespace kip

KIP_TARGET_END

#endif
