#include "transform/aligned/x86/aligned_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "support/x86/block_transpose_avx512.h"

KIP_TARGET_BEGIN("avx512f,avx512bw")

namespace kip {

namespace {

using namespace avx512;

// Transposes a square of one line of the cache a side: first within quarters of registers, a block of rows at a time,
// then the quarters.
template <typename Pixel>
inline void transposeTile(const Pixel *src, int64_t srcPitch, Pixel *dst, int64_t dstPitch)
{
    constexpr int64_t block = kQuarterPixels<Pixel>;
    __m512i blocks[block][4];
    for (int b = 0; b < 4; ++b) {
        __m512i a[block];
        for (int i = 0; i < block; ++i)
            a[i] = _mm512_loadu_si512(src + (b * block + i) * srcPitch);
        for (int n = block; n > 1; n /= 2)
            interleaveQuarters<Pixel>(a);
        for (int i = 0; i < block; ++i)
            blocks[i][b] = a[i];
    }
    for (int i = 0; i < block; ++i) {
        const auto &a = blocks[i];
        const __m512i low01 = _mm512_shuffle_i32x4(a[0], a[1], 0x44);
        const __m512i low23 = _mm512_shuffle_i32x4(a[2], a[3], 0x44);
        const __m512i high01 = _mm512_shuffle_i32x4(a[0], a[1], 0xEE);
        const __m512i high23 = _mm512_shuffle_i32x4(a[2], a[3], 0xEE);
        Pixel *const to = dst + i * dstPitch;
        _mm512_storeu_si512(to, _mm512_shuffle_i32x4(low01, low23, 0x88));
        _mm512_storeu_si512(to + block * dstPitch, _mm512_shuffle_i32x4(low01, low23, 0xDD));
        _mm512_storeu_si512(to + 2 * block * dstPitch, _mm512_shuffle_i32x4(high01, high23, 0x88));
        _mm512_storeu_si512(to + 3 * block * dstPitch, _mm512_shuffle_i32x4(high01, high23, 0xDD));
    }
}

} // namespace

template <typename Pixel>
void transposeAvx512(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    constexpr int64_t side = 64 / sizeof(Pixel);
    const int64_t rows = output.height / side * side;
    const int64_t columns = output.width / side * side;
    for (int64_t r = 0; r < rows; r += side)
        for (int64_t c = 0; c < columns; c += side)
            transposeTile(input.row(c) + r, input.pitch, output.row(r) + c, output.pitch);
    // What is left beside and below whole tiles.
    const auto rest = [&](int64_t r, int64_t c, int64_t height) {
        if (height > 0 && c < output.width)
            transposeSse2<Pixel>({input.row(c) + r, input.pitch, height, output.width - c},
                                 {output.row(r) + c, output.pitch, output.width - c, height});
    };
    rest(0, columns, rows);
    rest(rows, 0, output.height - rows);
}

template void transposeAvx512(const Rows<const uint8_t> &input, const Rows<uint8_t> &output);
template void transposeAvx512(const Rows<const uint16_t> &input, const Rows<uint16_t> &output);

} // namespace kip

KIP_TARGET_END

#endif
