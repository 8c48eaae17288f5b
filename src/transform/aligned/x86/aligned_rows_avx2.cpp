#include "transform/aligned/x86/aligned_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include "support/x86/x86_intrinsics.h"

KIP_TARGET_BEGIN("avx2")

namespace kip {

namespace {

// Pixels of a vector and of a line of the cache.
template <typename Pixel>
constexpr int32_t kVector = sizeof(__m256i) / sizeof(Pixel);
template <typename Pixel>
constexpr int32_t kLine = 64 / sizeof(Pixel);

template <typename Pixel>
__m256i load(const Pixel *at)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(at));
}

template <typename Pixel>
void store(Pixel *at, __m256i pixels)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(at), pixels);
}

// ---- Mirror --------------------------------------------------------------------------------------------------------

// Mirrors as many vectors of each row, the first row of the output from the first of the input.
template <typename Pixel, int kVectors>
void mirrorStrip(const Pixel *src, int64_t srcPitch, Pixel *dst, int64_t dstPitch, int64_t rows)
{
    const __m256i order =
        _mm256_broadcastsi128_si256(sizeof(Pixel) == 1 ? _mm_set_epi64x(0x0001020304050607, 0x08090A0B0C0D0E0F)
                                                       : _mm_set_epi64x(0x0100030205040706, 0x09080B0A0D0C0F0E));
    for (; rows > 0; --rows) {
        __m256i pixels[kVectors];
        for (int n = 0; n < kVectors; ++n) {
            const __m256i v = load(src + n * kVector<Pixel>);
            pixels[n] = _mm256_shuffle_epi8(_mm256_permute2x128_si256(order, v, 0x23), order); // v's halves swapped
        }
        for (int n = 0; n < kVectors; ++n)
            store(dst + (kVectors - 1 - n) * kVector<Pixel>, pixels[n]);
        src += srcPitch;
        dst += dstPitch;
    }
}

// In strips, so that a short row costs no loop of its own. Down a few rows of a wide window: as many streams of memory
// at once are faster than one, and more of them would fall into one set of the cache at a pitch of a power of two.
template <typename Pixel, int kVectors>
void mirrorStrips(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    constexpr int64_t strip = kVectors * kVector<Pixel>;
    const int64_t rowsAtOnce = output.width <= 2 * kLine<Pixel> ? 64 : 4;
    for (int64_t r = 0; r < output.height; r += rowsAtOnce) {
        const int64_t rows = std::min(rowsAtOnce, output.height - r);
        const auto mirror = [&](int64_t c) {
            mirrorStrip<Pixel, kVectors>(input.row(r) + c, input.pitch, output.row(r) + (output.width - strip - c),
                                         output.pitch, rows);
        };
        for (int64_t c = 0; c + strip <= output.width; c += strip)
            mirror(c);
        if (output.width % strip != 0)
            mirror(output.width - strip); // writes some pixels again
    }
}

// ---- Transpose -----------------------------------------------------------------------------------------------------

// A square of a line of the cache a side.
template <typename Pixel>
struct Tile {
    static constexpr int32_t kSide = kLine<Pixel>;
    static constexpr int32_t kBlock = 16 / sizeof(Pixel);

    alignas(64) Pixel pixels[kSide * kSide];

    const Pixel *row(int64_t r) const { return pixels + r * kSide; }
    Pixel *row(int64_t r) { return pixels + r * kSide; }
};

// Interleaves registers i and i + n / 2 of n, either half on its own; log2(n) such steps transpose the halves.
template <typename Pixel>
void interleave(const __m256i *in, __m256i *out)
{
    constexpr int32_t block = Tile<Pixel>::kBlock;
    for (int i = 0; i < block / 2; ++i) {
        const __m256i a = in[i];
        const __m256i b = in[i + block / 2];
        out[2 * i] = sizeof(Pixel) == 1 ? _mm256_unpacklo_epi8(a, b) : _mm256_unpacklo_epi16(a, b);
        out[2 * i + 1] = sizeof(Pixel) == 1 ? _mm256_unpackhi_epi8(a, b) : _mm256_unpackhi_epi16(a, b);
    }
}

// Transposes kBlock columns of half of a tile's rows, from at on: one square in either half of the registers.
template <typename Pixel>
inline void transposeHalf(const Pixel *at, __m256i *columns)
{
    constexpr int32_t block = Tile<Pixel>::kBlock;
    __m256i a[block];
    __m256i b[block];
    for (int i = 0; i < block; ++i) {
        const auto *const upper = reinterpret_cast<const __m128i *>(at + i * kLine<Pixel>);
        const auto *const lower = reinterpret_cast<const __m128i *>(at + (i + block) * kLine<Pixel>);
        a[i] = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_load_si128(upper)), _mm_load_si128(lower), 1);
    }
    interleave<Pixel>(a, b);
    interleave<Pixel>(b, a);
    if (sizeof(Pixel) == 2)
        return interleave<Pixel>(a, columns);
    interleave<Pixel>(a, b);
    interleave<Pixel>(b, columns);
}

template <typename Pixel>
void transposeTile(const Tile<Pixel> &tile, Pixel *dst, int64_t dstPitch)
{
    constexpr int32_t block = Tile<Pixel>::kBlock;
    for (int64_t c = 0; c < kLine<Pixel>; c += block) {
        __m256i left[block];
        __m256i right[block];
        transposeHalf(tile.row(0) + c, left);
        transposeHalf(tile.row(kVector<Pixel>) + c, right);
        for (int i = 0; i < block; ++i) {
            Pixel *const line = dst + (c + i) * dstPitch;
            store(line, left[i]);
            store(line + kVector<Pixel>, right[i]);
        }
    }
}

template <typename Pixel>
void transposeWhole(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    Tile<Pixel> tile;
    for (int64_t r = 0; r < kLine<Pixel>; ++r) {
        const __m256i left = load(input.row(r));
        const __m256i right = load(input.row(r) + kVector<Pixel>);
        store(tile.row(r), left);
        store(tile.row(r) + kVector<Pixel>, right);
    }
    transposeTile(tile, output.first, output.pitch);
}

// At the right and lower margins.
template <typename Pixel>
void transposePart(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    Tile<Pixel> tile = {};
    Tile<Pixel> turned;
    for (int64_t r = 0; r < output.width; ++r)
        std::copy_n(input.row(r), output.height, tile.row(r));
    transposeTile(tile, turned.pixels, kLine<Pixel>);
    for (int64_t r = 0; r < output.height; ++r)
        std::copy_n(turned.row(r), output.width, output.row(r));
}

} // namespace

template <typename Pixel>
void mirrorAvx2(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    if (output.width < kVector<Pixel>)
        mirrorSse2(input, output);
    else if (output.width < kLine<Pixel>)
        mirrorStrips<Pixel, 1>(input, output);
    else
        mirrorStrips<Pixel, 2>(input, output);
}

// Each tile by way of a copy of its own: with a pitch of a power of two its lines share a few sets of the cache and
// soon drive each other out, so that every one, of either side, is touched once. The tiles of a group lie in so few
// pages of either side that none of these is looked up for each line.
template <typename Pixel>
void transposeAvx2(const Rows<const Pixel> &input, const Rows<Pixel> &output)
{
    constexpr int64_t side = kLine<Pixel>;
    constexpr int64_t group = 8 * side;
    const auto transpose = [&](int64_t r, int64_t c) {
        const int64_t rows = std::min(side, output.height - r);
        const int64_t columns = std::min(side, output.width - c);
        const auto transposeOne = rows == side && columns == side ? transposeWhole<Pixel> : transposePart<Pixel>;
        transposeOne({input.row(c) + r, input.pitch, rows, columns}, {output.row(r) + c, output.pitch, columns, rows});
    };
    for (int64_t groupRow = 0; groupRow < output.height; groupRow += group)
        for (int64_t groupColumn = 0; groupColumn < output.width; groupColumn += group)
            for (int64_t c = groupColumn; c < std::min(groupColumn + group, output.width); c += side)
                for (int64_t r = groupRow; r < std::min(groupRow + group, output.height); r += side)
                    transpose(r, c);
}

template void mirrorAvx2(const Rows<const uint8_t> &input, const Rows<uint8_t> &output);
template void mirrorAvx2(const Rows<const uint16_t> &input, const Rows<uint16_t> &output);
template void transposeAvx2(const Rows<const uint8_t> &input, const Rows<uint8_t> &output);
template void transposeAvx2(const Rows<const uint16_t> &input, const Rows<uint16_t> &output);

} // namespace kip

KIP_TARGET_END

#endif
