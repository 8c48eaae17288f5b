#include "transform/aligned/x86/aligned_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <cstring>

#include "support/x86/block_transpose_sse2.h"

namespace kip {

namespace {

// One line of the cache.
template <typename Pixel>
constexpr int32_t kTile = 64 / sizeof(Pixel);

// Transposes up to kTile x kTile pixels of an input into a tile without gaps.
template <typename Pixel>
void transposeTile(const Rows<const Pixel> &input, Pixel *tile)
{
    constexpr int32_t block = kTransposedBlock<Pixel>;
    const int64_t wholeWidth = input.width / block * block;
    const int64_t wholeHeight = input.height / block * block;
    for (int64_t y = 0; y < wholeHeight; y += block)
        for (int64_t x = 0; x < wholeWidth; x += block)
            transposeBlock<Pixel>(input.row(y) + x, input.pitch, tile + x * kTile<Pixel> + y, kTile<Pixel>);
    for (int64_t y = 0; y < input.height; ++y)
        for (int64_t x = y < wholeHeight ? wholeWidth : 0; x < input.width; ++x)
            tile[x * kTile<Pixel> + y] = input.row(y)[x];
}

// The pixels of a register in reversed order.
template <typename Pixel>
__m128i reversed(__m128i v)
{
    if (sizeof(Pixel) == 1)
        v = _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
    v = _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, _MM_SHUFFLE(0, 1, 2, 3)), _MM_SHUFFLE(0, 1, 2, 3));
    return _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2));
}

} // namespace

// By way of a tile of its own, so that every cache line of either side is touched once: with a pitch of a power of
// two, the lines of a block of rows share a few sets of the cache and soon drive each other out.
template <typename Pixel>
void transposeSse2(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    constexpr int32_t side = kTile<Pixel>;
    alignas(64) Pixel tile[side * side];
    for (int64_t r = 0; r < output.height; r += side) {
        const int64_t rows = std::min<int64_t>(side, output.height - r);
        for (int64_t c = 0; c < output.width; c += side) {
            const int64_t columns = std::min<int64_t>(side, output.width - c);
            transposeTile<Pixel>({input.row(c) + r, input.pitch, rows, columns}, tile);
            for (int64_t n = 0; n < rows; ++n) {
                if (columns == side)
                    std::memcpy(output.row(r + n) + c, tile + n * side, sizeof(Pixel) * side);
                else
                    std::copy_n(tile + n * side, columns, output.row(r + n) + c);
            }
        }
    }
}

template <typename Pixel>
void mirrorSse2(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    constexpr int64_t block = sizeof(__m128i) / sizeof(Pixel);
    const int64_t whole = output.width / block * block;
    for (int64_t r = 0; r < output.height; ++r) {
        const Pixel *const src = input.row(r);
        Pixel *const dst = output.row(r);
        for (int64_t n = 0; n < whole; n += block) {
            const auto *const from = reinterpret_cast<const __m128i *>(src + (output.width - block - n));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + n), reversed<Pixel>(_mm_loadu_si128(from)));
        }
    }
    const int64_t rest = output.width - whole;
    mirrorPortable<Pixel>({input.first, input.pitch, rest, output.height},
                          {output.first + whole, output.pitch, rest, output.height});
}

template void transposeSse2(const Rows<const uint8_t> &input, const Rows<uint8_t> &output);
template void transposeSse2(const Rows<const uint16_t> &input, const Rows<uint16_t> &output);
template void mirrorSse2(const Rows<const uint8_t> &input, const Rows<uint8_t> &output);
template void mirrorSse2(const Rows<const uint16_t> &input, const Rows<uint16_t> &output);

} // namespace kip

#endif
