#ifndef KIP_SUPPORT_X86_BLOCK_TRANSPOSE_AVX512_H
#define KIP_SUPPORT_X86_BLOCK_TRANSPOSE_AVX512_H

// Blocks of 16 x 16 bytes or 8 x 8 words, four side by side, transposed in registers. Included after every other
// header.

#include <cstdint>

#include "support/target_region.h"
#include "support/x86/x86_intrinsics.h"

KIP_TARGET_BEGIN("avx512f,avx512bw")

namespace kip::avx512 {

template <typename Pixel>
inline constexpr int32_t kQuarterPixels = 16 / sizeof(Pixel);

// Interleaves registers i and i + n / 2 of n, each quarter on its own; log2(n) such steps transpose the quarters.
template <typename Pixel>
inline void interleaveQuarters(__m512i (&a)[kQuarterPixels<Pixel>])
{
    constexpr int32_t half = kQuarterPixels<Pixel> / 2;
    __m512i b[2 * half];
    for (int i = 0; i < half; ++i) {
        b[2 * i] =
            sizeof(Pixel) == 1 ? _mm512_unpacklo_epi8(a[i], a[i + half]) : _mm512_unpacklo_epi16(a[i], a[i + half]);
        b[2 * i + 1] =
            sizeof(Pixel) == 1 ? _mm512_unpackhi_epi8(a[i], a[i + half]) : _mm512_unpackhi_epi16(a[i], a[i + half]);
    }
    for (int i = 0; i < 2 * half; ++i)
        a[i] = b[i];
}

} // namespace kip::avx512

KIP_TARGET_END

#endif
