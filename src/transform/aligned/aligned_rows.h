#ifndef KIP_TRANSFORM_ALIGNED_ALIGNED_ROWS_H
#define KIP_TRANSFORM_ALIGNED_ALIGNED_ROWS_H

#include <algorithm>
#include <cstdint>

#include "support/target_region.h"

namespace kip {

// Rows of pixels, without what else a window tells.
template <typename Pixel>
struct Rows {
    Pixel *first;
    int64_t pitch;
    int64_t width, height;

    Pixel *row(int64_t r) const { return first + r * pitch; }
};

// What aligned maps are made of, from one memory to another. No two of them overlap.
template <typename Pixel>
struct AlignedKernels {
    // output(r, c) := input(c, r); as many rows as the other has columns.
    void (*transpose)(const Rows<const Pixel> &input, const Rows<Pixel> &output);
    // dst[n] := src[count - 1 - n]
    void (*reverse)(const Pixel *src, int64_t count, Pixel *dst);
};

// The kernels for a set of ksys_feature... bits: the portable ones, replaced level by level by what runs, and runs
// well, on such a processor. A pure function; for uint8_t and uint16_t.
template <typename Pixel>
AlignedKernels<Pixel> alignedKernels(uint32_t features);

// Walks blocks: both the rows that are written and the columns that are read then stay in the first-level cache.
template <typename Pixel>
void transposePortable(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    constexpr int64_t block = 32;
    for (int64_t r0 = 0; r0 < output.height; r0 += block) {
        const int64_t rEnd = std::min(r0 + block, output.height);
        for (int64_t c0 = 0; c0 < output.width; c0 += block) {
            const int64_t cEnd = std::min(c0 + block, output.width);
            for (int64_t r = r0; r < rEnd; ++r)
                for (int64_t c = c0; c < cEnd; ++c)
                    output.row(r)[c] = input.row(c)[r];
        }
    }
}

template <typename Pixel>
void reversePortable(const Pixel *src, int64_t count, Pixel *dst)
{
    std::reverse_copy(src, src + count, dst);
}

#if defined(KIP_HAS_X86_VARIANTS)

// SSE2, which every x86-64 processor has.
void transpose8Sse2(const Rows<const uint8_t> &input, const Rows<uint8_t> &output);
void transpose16Sse2(const Rows<const uint16_t> &input, const Rows<uint16_t> &output);
void reverse8Sse2(const uint8_t *src, int64_t count, uint8_t *dst);
void reverse16Sse2(const uint16_t *src, int64_t count, uint16_t *dst);

// AVX2.
void reverse8Avx2(const uint8_t *src, int64_t count, uint8_t *dst);
void reverse16Avx2(const uint16_t *src, int64_t count, uint16_t *dst);

// AVX-512 F, BW.
void transpose8Avx512(const Rows<const uint8_t> &input, const Rows<uint8_t> &output);
void transpose16Avx512(const Rows<const uint16_t> &input, const Rows<uint16_t> &output);

#endif

} // namespace kip

#endif
