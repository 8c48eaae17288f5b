#include "transform/plan_rows_x86.h"

#include "support/target_region.h"

#if defined(KIP_HAS_X86_VARIANTS)

#include <cstring>

#include <emmintrin.h>

namespace kip {

namespace {

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

template <typename Pixel, int kBlock>
void transposeBlock(const Pixel *src, int64_t srcPitch, Pixel *dst, int64_t dstPitch)
{
    __m128i a[kBlock];
    __m128i b[kBlock];
    for (int i = 0; i < kBlock; ++i)
        a[i] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i * srcPitch));
    for (int n = kBlock; n > 1; n /= 2) {
        interleave<Pixel>(a, b);
        for (int i = 0; i < kBlock; ++i)
            a[i] = b[i];
    }
    for (int i = 0; i < kBlock; ++i)
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i * dstPitch), a[i]);
}

// A part of a copy: from (secondary, primary) on, of the given size.
template <typename Pixel>
StripCopy<Pixel> partOf(const StripCopy<Pixel> &copy, int32_t s, int32_t p, int32_t secondary, int32_t primary)
{
    return {copy.src + p * copy.majorStep + s * copy.minorStep,
            copy.majorStep,
            copy.minorStep,
            primary,
            secondary,
            copy.strip + s * copy.stripPitch + p,
            copy.stripPitch};
}

template <typename Pixel>
void transposeStrip(const StripCopy<Pixel> &copy)
{
    constexpr int32_t block = 16 / sizeof(Pixel);
    const int32_t wholePrimary = copy.primary / block * block;
    const int32_t wholeSecondary = copy.secondary / block * block;
    for (int32_t s = 0; s < wholeSecondary; s += block)
        for (int32_t p = 0; p < wholePrimary; p += block)
            transposeBlock<Pixel, block>(copy.src + p * copy.majorStep + s, copy.majorStep,
                                         copy.strip + s * copy.stripPitch + p, copy.stripPitch);
    copyStripPortable(partOf(copy, 0, wholePrimary, wholeSecondary, copy.primary - wholePrimary));
    copyStripPortable(partOf(copy, wholeSecondary, 0, copy.secondary - wholeSecondary, copy.primary));
}

// The pixels of a word in reversed order.
uint64_t reversed(uint64_t word, uint8_t)
{
    return __builtin_bswap64(word);
}

uint64_t reversed(uint64_t word, uint16_t)
{
    const uint64_t swappedHalves = (word >> 32) | (word << 32);
    return ((swappedHalves >> 16) & 0x0000FFFF0000FFFF) | ((swappedHalves & 0x0000FFFF0000FFFF) << 16);
}

// Rows that run backwards.
template <typename Pixel>
void mirrorStrip(const StripCopy<Pixel> &copy)
{
    constexpr int32_t block = sizeof(uint64_t) / sizeof(Pixel);
    for (int32_t s = 0; s < copy.secondary; ++s) {
        const Pixel *const src = copy.src + s * copy.minorStep;
        Pixel *const strip = copy.strip + s * copy.stripPitch;
        int32_t p = 0;
        for (; p + block <= copy.primary; p += block) {
            uint64_t word;
            std::memcpy(&word, src - p - (block - 1), sizeof(word));
            word = reversed(word, Pixel{});
            std::memcpy(strip + p, &word, sizeof(word));
        }
        for (; p < copy.primary; ++p)
            strip[p] = src[-p];
    }
}

template <typename Pixel>
void copyStrip(const StripCopy<Pixel> &copy)
{
    if (copy.minorStep == 1)
        transposeStrip(copy);
    else if (copy.majorStep == -1)
        mirrorStrip(copy);
    else
        copyStripPortable(copy);
}

} // namespace

void copyStrip8Sse2(const StripCopy<uint8_t> &copy)
{
    copyStrip(copy);
}

void copyStrip16Sse2(const StripCopy<uint16_t> &copy)
{
    copyStrip(copy);
}

} // namespace kip

#endif
