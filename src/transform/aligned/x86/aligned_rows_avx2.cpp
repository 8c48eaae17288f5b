#include "transform/aligned/x86/aligned_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "support/x86/x86_intrinsics.h"

KIP_TARGET_BEGIN("avx2")

namespace kip {

template <typename Pixel>
void reverseAvx2(const Pixel *src, int64_t count, Pixel *dst)
{
    constexpr int64_t block = sizeof(__m256i) / sizeof(Pixel);
    const __m256i order =
        _mm256_broadcastsi128_si256(sizeof(Pixel) == 1 ? _mm_set_epi64x(0x0001020304050607, 0x08090A0B0C0D0E0F)
                                                       : _mm_set_epi64x(0x0100030205040706, 0x09080B0A0D0C0F0E));
    const auto move = [src, count, dst, order](int64_t n) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + (count - n - block)));
        const __m256i halves = _mm256_shuffle_epi8(v, order);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + n), _mm256_permute4x64_epi64(halves, 0x4E));
    };
    if (count < block)
        return reversePortable(src, count, dst);
    for (int64_t n = 0; n + block <= count; n += block)
        move(n);
    move(count - block); // writes some pixels again
}

template void reverseAvx2(const uint8_t *src, int64_t count, uint8_t *dst);
template void reverseAvx2(const uint16_t *src, int64_t count, uint16_t *dst);

} // namespace kip

KIP_TARGET_END

#endif
