#ifndef KIP_SUPPORT_X86_BLOCK_TRANSPOSE_SSE2_H
#define KIP_SUPPORT_X86_BLOCK_TRANSPOSE_SSE2_H

// Blocks of 16 x 16 bytes or 8 x 8 words transposed in registers, by SSE2, which every x86-64 processor has. Included
// after every other header.

#include <cstdint>

#include <emmintrin.h>

namespace kip {

template <typename Pixel>
inline constexpr int32_t kTransposedBlock = 16 / sizeof(Pixel);

// Interleaves registers i and i + n / 2 of n; log2(n) such steps transpose an n x n block.
template <typename Pixel, int kBlock>
void interleave(const __m128i (&in)[kBlock], __m128i (&out)[kBlock])
{
    for (int i = 0; i < kBlock / 2; ++i) {
        const __m128i a = in[i];
        const __m128i b = in[i + kBlock / 2];
        out[2 * i] = sizeof(Pixel) == 1 ? _mm_unpacklo_epi8(a, b) : _mm_unpacklo_epi16(a, b);
        out[2 * i + 1] = sizeof(Pixel) == 1 ? _mm_unpackhi_epi8(a, b) : _mm_unpackhi_epi16(a, b);
    }
}

// Writes the block whose column i lies at columns[i] + first.
template <typename Pixel>
void transposeColumns(const Pixel *const (&columns)[kTransposedBlock<Pixel>], int64_t first, Pixel *dst,
                      int64_t dstPitch)
{
    constexpr int32_t block = kTransposedBlock<Pixel>;
    __m128i a[block];
    __m128i b[block];
    for (int i = 0; i < block; ++i)
        a[i] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(columns[i] + first));
    for (int n = block; n > 1; n /= 2) {
        interleave<Pixel>(a, b);
        for (int i = 0; i < block; ++i)
            a[i] = b[i];
    }
    for (int i = 0; i < block; ++i)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i * dstPitch), a[i]);
}

template <typename Pixel>
void transposeBlock(const Pixel *src, int64_t srcPitch, Pixel *dst, int64_t dstPitch)
{
    const Pixel *columns[kTransposedBlock<Pixel>];
    for (int i = 0; i < kTransposedBlock<Pixel>; ++i)
        columns[i] = src + i * srcPitch;
    transposeColumns(columns, 0, dst, dstPitch);
}

} // namespace kip

#endif
